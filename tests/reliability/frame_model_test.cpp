// Frame placement against an independent model of a cyclic buffer.
//
// The model does not repeat the writer's inequalities. It places a frame by
// the layout rules alone (header to the start within 7 bytes of the end, body
// split over the end, next frame to start + 4 after a body ending within 3
// bytes of the end) and then accepts it only if every byte it writes, and the
// 4-byte gap after it, lies in free space: from the write position to the end
// and on from the start when the writer is ahead of the reader, but only up
// to the reader when the writer has wrapped behind it, and in both cases
// stopping one byte short of the read position. A frame that would wrap to
// the start while the writer is behind the reader therefore never fits: that
// is the guard against overwriting an unread header.
//
// Both parties live in this process; header words are poked through a third
// mapping of the segment.
#include <gtest/gtest.h>
#include <errno.h>

#include <cstdio>
#include <cstring>
#include <deque>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "reliability.h"
#include "transport/sysv.h"

namespace {

using reliability::Pair;

constexpr int kId = 3;
constexpr unsigned kSize = 1056;  // two 500-byte buffers
constexpr unsigned kMaxBody = 500;

struct Direction {
  char const* name;
  unsigned start, end;
  unsigned readWord, writeWord;
  bool firstWrites;
};
constexpr Direction kFirstToSecond = {"first-to-second", 56, 556, 8, 12, true};
constexpr Direction kSecondToFirst = {"second-to-first", 556, 1056, 16, 20, false};

struct Range {
  unsigned at, length;
};

struct Placement {
  unsigned header;
  Range pieces[2];  // the body, in one or two pieces
  unsigned bodyEnd;  // P: the gap is [P, P + 4), the new write position P + 4
};

Placement Place(Direction const& d, unsigned write, unsigned length) {
  Placement p = {};
  bool wrapped = d.end - write < 8;
  p.header = wrapped ? d.start : write;
  unsigned body = p.header + 8;
  if (!wrapped && d.end - body < length) {
    unsigned head = d.end - body;
    p.pieces[0] = {body, head};
    p.pieces[1] = {d.start, length - head};
    p.bodyEnd = d.start + length - head;
  } else {
    p.pieces[0] = {body, length};
    p.bodyEnd = body + length;
    if (!wrapped && d.end - p.bodyEnd < 4) p.bodyEnd = d.start;
  }
  return p;
}

bool Fits(Direction const& d, unsigned read, unsigned write, Placement const& p) {
  Range free[2];
  int count = 0;
  if (write > read) {
    free[count++] = {write, d.end - write};
    if (read > d.start) free[count++] = {d.start, read - 1 - d.start};
  } else {
    free[count++] = {write, read - 1 - write};
  }
  auto inside = [&](Range r) {
    if (r.length == 0) return true;
    for (int i = 0; i < count; ++i)
      if (r.at >= free[i].at && r.at + r.length <= free[i].at + free[i].length) return true;
    return false;
  };
  return inside({p.header, 8}) && inside(p.pieces[0]) && inside(p.pieces[1]) &&
         inside({p.bodyEnd, 4});
}

// A reader stands at most 4 bytes before the end and a writer at least 4
// bytes past the start; the writer is never within the 4 bytes after the
// reader (that would read as empty) nor at the reader itself.
bool Reachable(Direction const& d, unsigned read, unsigned write) {
  return read <= d.end - 4 && write >= d.start + 4 && (write >= read + 4 || write < read);
}

// The semaphore stands in for the kernel's during the sweep: the channel's
// result does not depend on it, and the real one would cost a system call
// per case.
int gFakeCount;
int FakeSemOp(int, sembuf* op) {
  if (op->sem_op > 0) {
    gFakeCount += op->sem_op;
    return 0;
  }
  if (gFakeCount == 0) {
    errno = EAGAIN;
    return -1;
  }
  --gFakeCount;
  return 0;
}

std::string Body(unsigned length) {
  std::string body(length, '\0');
  for (unsigned i = 0; i < length; ++i) body[i] = static_cast<char>(length * 7 + i * 13 + 1);
  return body;
}

class FrameModelTest : public testing::TestWithParam<int> {
 protected:
  void SetUp() override {
    pair_.reset(new Pair(kId, kSize));
    ASSERT_TRUE(pair_->ok());
    for (unsigned length = 0; length <= kMaxBody; ++length) bodies_.push_back(Body(length));
  }
  void TearDown() override {
    sysv = kRealSysVCalls;
    pair_.reset();
  }

  // Every reachable (read, write) pair whose read position falls in this
  // shard, with every body length: result, new write position, the bytes
  // placed and, from an empty buffer, the reader's new position.
  void Sweep(Direction const& d, unsigned stride, int shard, int shards) {
    CyclicSharedMemory& writer = d.firstWrites ? *pair_->first : *pair_->second;
    CyclicSharedMemory& reader = d.firstWrites ? *pair_->second : *pair_->first;
    testing::internal::CaptureStderr();  // the one overflow report
    sysv.SemOp = FakeSemOp;
    std::string received;
    std::ostringstream faults;
    unsigned failures = 0, cases = 0;
    auto fault = [&](unsigned read, unsigned write, unsigned length, char const* what) {
      if (++failures <= 10)
        faults << d.name << " read " << read << " write " << write << " length " << length << ": "
               << what << "\n";
    };
    for (unsigned read = d.start; read <= d.end - 4; read += stride) {
      if ((read - d.start) / stride % shards != static_cast<unsigned>(shard)) continue;
      for (unsigned write = d.start + 4; write <= d.end; write += stride) {
        if (!Reachable(d, read, write)) continue;
        for (unsigned length = 0; length <= kMaxBody; ++length) {
          ++cases;
          pair_->SetWord(d.readWord, read);
          pair_->SetWord(d.writeWord, write);
          gFakeCount = 0;
          int code = static_cast<int>(length) - 7;
          unsigned result = writer.Write(&code, &bodies_[length]);
          Placement p = Place(d, write, length);
          bool fits = Fits(d, read, write, p);
          if (result != (fits ? length + 4 : 0)) {
            fault(read, write, length, fits ? "refused, model accepts" : "accepted, model refuses");
            continue;
          }
          if (pair_->Word(d.writeWord) != (fits ? p.bodyEnd + 4 : write)) {
            fault(read, write, length, "write position");
            continue;
          }
          if (gFakeCount != (fits ? 1 : 0)) fault(read, write, length, "semaphore raised");
          if (!fits) continue;
          char const* base = pair_->base;
          std::int32_t codeWord;
          std::uint32_t lengthWord;
          std::memcpy(&codeWord, base + p.header, 4);
          std::memcpy(&lengthWord, base + p.header + 4, 4);
          Range const& a = p.pieces[0];
          Range const& b = p.pieces[1];
          if (codeWord != code || lengthWord != length ||
              std::memcmp(base + a.at, bodies_[length].data(), a.length) != 0 ||
              std::memcmp(base + b.at, bodies_[length].data() + a.length, b.length) != 0) {
            fault(read, write, length, "frame bytes");
            continue;
          }
          if (write != read + 4) continue;
          int got = 0;
          if (reader.Read(&got, &received, false) != length + 4 || got != code ||
              received != bodies_[length] || pair_->Word(d.readWord) != p.bodyEnd)
            fault(read, write, length, "read back");
        }
      }
    }
    sysv = kRealSysVCalls;
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(0u, failures) << failures << " of " << cases << " cases differ from the model:\n"
                            << faults.str();
    EXPECT_GT(cases, 0u);
    std::printf("%s: %u cases checked against the model\n", d.name, cases);
  }

  std::unique_ptr<Pair> pair_;
  std::vector<std::string> bodies_;
};

// Natively every pair is checked, split over the shards so ctest can run
// them side by side; under emulation one read and one write position in 3
// is, under AddressSanitizer one in 2.
constexpr int kShards = 4;
unsigned Stride() { return reliability::kEmulated ? 3 : reliability::kAddressSanitizer ? 2 : 1; }

TEST_P(FrameModelTest, WriteAndReadAgreeWithModelAtEveryPosition) {
  reliability::Watchdog watchdog(240);
  Sweep(kFirstToSecond, Stride(), GetParam(), kShards);
}
INSTANTIATE_TEST_SUITE_P(Shard, FrameModelTest, testing::Range(0, kShards));

// The other buffer runs through the same code with other bounds; a sample
// shows that no bound of the first one leaked into it.
TEST_F(FrameModelTest, SecondToFirstBufferAgreesWithModel) {
  reliability::Watchdog watchdog(240);
  Sweep(kSecondToFirst, 7, 0, 1);
}

// A seeded random walk of writes and reads in both directions with the real
// semaphores: after every step, refused writes included, each semaphore
// counts exactly the frames the model holds unread, and the positions are
// the model's.
TEST(FrameWalkTest, SemaphoreCountsUnreadFramesThroughRefusalsAcrossWraps) {
  reliability::Watchdog watchdog(120);
  Pair pair(kId, kSize);
  ASSERT_TRUE(pair.ok());
  struct Frame {
    int code;
    std::string body;
  };
  struct Model {
    Direction const* d;
    std::deque<Frame> unread;
    unsigned read, write;
    int key;
    unsigned refusedBehind;  // refusals while the writer was behind the reader
  };
  Model models[2] = {{&kFirstToSecond, {}, 0, 0, reliability::FirstToSecondKey(kId), 0},
                     {&kSecondToFirst, {}, 0, 0, reliability::SecondToFirstKey(kId), 0}};
  for (Model& m : models) {  // the online notice has moved one of them
    m.read = pair.Word(m.d->readWord);
    m.write = pair.Word(m.d->writeWord);
  }
  std::mt19937 random(20240611);
  testing::internal::CaptureStderr();
  unsigned const steps = reliability::kEmulated ? 4000 : 40000;
  for (unsigned step = 0; step < steps; ++step) {
    Model& m = models[random() % 2];
    Direction const& d = *m.d;
    CyclicSharedMemory& writer = d.firstWrites ? *pair.first : *pair.second;
    CyclicSharedMemory& reader = d.firstWrites ? *pair.second : *pair.first;
    if (random() % 100 < 55) {
      unsigned length = random() % 4 == 0 ? random() % (kMaxBody + 1) : random() % 120;
      Frame frame = {static_cast<int>(step), Body(length)};
      Placement p = Place(d, m.write, length);
      bool fits = Fits(d, m.read, m.write, p);
      ASSERT_EQ(fits ? length + 4 : 0, writer.Write(&frame.code, &frame.body))
          << "step " << step << " " << d.name << " read " << m.read << " write " << m.write
          << " length " << length;
      if (fits) {
        m.write = p.bodyEnd + 4;
        m.unread.push_back(frame);
      } else if (m.write < m.read) {
        ++m.refusedBehind;
      }
    } else {
      int code = 0;
      std::string body;
      unsigned result = reader.Read(&code, &body, false);
      if (m.unread.empty()) {
        ASSERT_EQ(0u, result) << "step " << step << ": a phantom message";
      } else {
        Frame const& frame = m.unread.front();
        ASSERT_EQ(frame.body.size() + 4, result) << "step " << step;
        ASSERT_EQ(frame.code, code);
        ASSERT_EQ(frame.body, body);
        m.read = Place(d, m.read + 4, static_cast<unsigned>(body.size())).bodyEnd;
        m.unread.pop_front();
      }
    }
    for (Model const& each : models) {
      ASSERT_EQ(static_cast<int>(each.unread.size()), reliability::SemValue(each.key))
          << "step " << step << " " << each.d->name;
      ASSERT_EQ(each.write, pair.Word(each.d->writeWord)) << "step " << step;
      ASSERT_EQ(each.read, pair.Word(each.d->readWord)) << "step " << step;
    }
  }
  testing::internal::GetCapturedStderr();
  // The walk must have hit the interesting case often, in both buffers.
  EXPECT_GT(models[0].refusedBehind, steps / 400);
  EXPECT_GT(models[1].refusedBehind, steps / 400);
}

}  // namespace
