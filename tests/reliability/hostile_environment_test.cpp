// Channels built where the system is short of objects or where someone else
// left objects under the channel's keys.
#include <gtest/gtest.h>
#include <sched.h>

#include <cstdio>
#include <ostream>

#include "support/channel.h"
#include "support/ipc.h"
#include "support/process.h"

namespace {

using namespace test;

constexpr unsigned kSize = 1056;

bool WriteProc(char const* path, std::string const& value) {
  std::ofstream out(path);
  out << value << "\n";
  out.flush();
  return static_cast<bool>(out);
}

// Joins channel `id` as second party, finds nothing pending and exchanges one
// message each way.
bool Talks(CyclicSharedMemory& first, int id) {
  CyclicSharedMemory second(id, "/bin/ping", kSize);
  Announce(first);
  if (!second || Take(second) != "<none>" || Take(first) != "online " + std::to_string(id)) return false;
  std::string const ping = std::to_string(id) + ":ping";
  return Send(first, id, "ping") && Take(second) == ping && Send(second, id, "ping") && Take(first) == ping;
}

struct Limit {
  char const* name;
  char const* sem;     // kernel.sem: SEMMSL SEMMNS SEMOPM SEMMNI
  char const* shmmni;  // segments
  char const* shmmax;  // bytes per segment; null: as it is
  int built;           // channels that fit
  char const* report;  // what the next one prints
};

// A channel needs one segment and two semaphore sets.
Limit const kLimits[] = {
    {"SemaphoreSets", "250 32000 32 7", "4096", nullptr, 3,
     "\nGetting trigger error : No space left on device\n"
     "\nResetTrigger error : Invalid argument\n"
     "\n\rReset Buffers error.\r\n"
     "\n\rConstructor failed error.\r\n"},
    {"Segments", "250 32000 32 32000", "3", nullptr, 3,
     "\n\rCreate Shared Memory error : No space left on device\r\n"
     "\n\rConstructor failed error.\r\n"},
    {"SegmentSize", "250 32000 32 32000", "4096", "1000", 0,
     "\n\rCreate Shared Memory error : Invalid argument\r\n"
     "\n\rConstructor failed error.\r\n"},
};

void PrintTo(Limit const& limit, std::ostream* out) { *out << limit.name; }

class LimitTest : public testing::TestWithParam<Limit> {};

// In a namespace of its own with lowered limits (they are per namespace),
// channels are built until one fails: its exact reports, nothing of it left,
// and every earlier channel still talks.
TEST_P(LimitTest, FailsWithSystemReasonLeavesNothingAndSparesEarlierChannels) {
  Watchdog watchdog(60);
  Limit const limit = GetParam();
  ChildResult child = test::Run([&] {
    if (unshare(CLONE_NEWIPC) != 0) return 1;
    if (!WriteProc("/proc/sys/kernel/sem", limit.sem) ||
        !WriteProc("/proc/sys/kernel/shmmni", limit.shmmni) ||
        (limit.shmmax && !WriteProc("/proc/sys/kernel/shmmax", limit.shmmax)))
      return 2;
    std::vector<std::unique_ptr<CyclicSharedMemory> > channels;
    for (int id = 1; id <= limit.built; ++id) {
      channels.push_back(Open(id, kSize));
      if (!*channels.back()) return 3;
    }
    CyclicSharedMemory::mMemoryErrorMessage = Trigger::mTriggerErrorMessage = "No errors";
    bool created = true;
    std::string report = Stderr([&] { created = CyclicSharedMemory(100, "/bin/ping", kSize).Create(); });
    if (created) return 4;
    if (report != limit.report) {
      std::fprintf(stderr, "reported:\n%s", report.c_str());
      return 5;
    }
    if (CountSegments() != limit.built || CountSemaphoreSets() != 2 * limit.built) return 6;
    for (int id = 1; id <= limit.built; ++id)
      if (!Talks(*channels[id - 1], id)) return 7;
    channels.clear();
    return DescribeIpcObjects().empty() ? 0 : 8;
  });
  EXPECT_EQ(0, child.code) << child.Describe();
}

INSTANTIATE_TEST_SUITE_P(Lowered, LimitTest, testing::ValuesIn(kLimits),
                         [](testing::TestParamInfo<Limit> const& info) { return info.param.name; });

// Someone else's objects under the channel's keys (id 9): created here
// before the channel, some still attached here as if by a live stranger.
constexpr int kId = 9;

struct Stranger {
  char* mapping = nullptr;
  void Segment(unsigned size, std::uint32_t flags, std::uint32_t sizeWord, bool attached) {
    char* at = static_cast<char*>(shmat(shmget(SegmentKey(kId), size, IPC_CREAT | 0666), nullptr, 0));
    reinterpret_cast<std::uint32_t*>(at)[0] = flags;
    reinterpret_cast<std::uint32_t*>(at)[1] = sizeWord;
    if (!attached) shmdt(at);
    mapping = attached ? at : nullptr;
  }
  void Semaphore(int key, int count) {
    union {  // semctl reads a union there; an int is passed differently on 32-bit PowerPC
      int val;
      semid_ds* buf;
      unsigned short* array;
    } value;
    value.val = count;
    semctl(semget(key, 1, IPC_CREAT | 0666), 0, SETVAL, value);
  }
  ~Stranger() {
    if (mapping) shmdt(mapping);
    RemoveAllIpcObjects();
  }
};

struct Foreign {
  char const* name;
  void (*prepare)(Stranger&);
  unsigned size;
  char const* report;  // of the construction, "" when it succeeds
  int segments, sets;  // left after a refusal (both are the stranger's)
  int countA;          // then trigger A's count, -1 when gone
};

Foreign const kForeign[] = {
    {"SmallerSegment", [](Stranger& s) { s.Segment(100, 0, 0, false); }, kSize,
     "\n\rSystem create Shared Memory error : Invalid argument\r\n", 1, 0, -1},
    {"GarbagePartyFlags", [](Stranger& s) { s.Segment(kSize, 0x1234, kSize, true); }, kSize,
     "\n\rBuffer type detect error.\r\n", 1, 0, -1},
    {"FirstPartyOfOtherSize", [](Stranger& s) { s.Segment(2048, 0xFF, 2048, true); }, kSize,
     "\n\rDifferent sizes of the Shared Memory error.\r\n", 1, 0, -1},
    {"SemaphoreCountingFiveUnderTooSmallChannel",
     [](Stranger& s) { s.Semaphore(FirstToSecondKey(kId), 5); }, 63,
     "\n\rSize of shared memory must be at least 64 bytes error.\r\n", 0, 1, 5},
    // Accepted: a larger segment nobody holds is taken over whatever it says,
    // and a semaphore that already counts is zeroed before anyone reads.
    {"LargerSegmentNobodyHolds", [](Stranger& s) { s.Segment(2048, 0xFFFF, 2048, false); }, kSize, "",
     0, 0, 0},
    {"SemaphoreCountingFive", [](Stranger& s) { s.Semaphore(FirstToSecondKey(kId), 5); },
     kSize, "", 0, 0, 0},
};

void PrintTo(Foreign const& foreign, std::ostream* out) { *out << foreign.name; }

class ForeignObjectTest : public testing::TestWithParam<Foreign> {};

TEST_P(ForeignObjectTest, ReportsExactlyAndLeavesOnlyWhatWasThere) {
  Watchdog watchdog(30);
  Foreign const f = GetParam();
  Stranger stranger;
  f.prepare(stranger);
  CyclicSharedMemory::mMemoryErrorMessage = "No errors";
  std::unique_ptr<CyclicSharedMemory> channel;
  EXPECT_EQ(f.report, Stderr([&] { channel.reset(new CyclicSharedMemory(kId, "/bin/ping", f.size)); }));
  if (*f.report) {
    EXPECT_FALSE(*channel);
    channel.reset();
    EXPECT_EQ(f.segments, CountSegments()) << DescribeIpcObjects();
    EXPECT_EQ(f.sets, CountSemaphoreSets()) << DescribeIpcObjects();
    EXPECT_EQ(stranger.mapping ? 1 : f.segments ? 0 : -1, AttachCount(kId));
    EXPECT_EQ(f.countA, SemValue(FirstToSecondKey(kId)));
    return;
  }
  ASSERT_TRUE(*channel);
  EXPECT_EQ(0, SemValue(FirstToSecondKey(kId)));
  EXPECT_TRUE(Talks(*channel, kId));
}

INSTANTIATE_TEST_SUITE_P(Preexisting, ForeignObjectTest, testing::ValuesIn(kForeign),
                         [](testing::TestParamInfo<Foreign> const& info) { return info.param.name; });

// A semaphore counts to 32,767 at most. The frame that finds it there was
// published but never counted: the reader, which trusts the count, later
// took it in place of the next counted frame, and from then on every message
// arrived one message late. At the ceiling a Write must report, lose that
// message like an overflow, and leave the channel as before.
TEST(SemaphoreCeilingTest, UncountedFrameAtCeilingDelaysEveryLaterMessage) {
  Watchdog watchdog(120);
  constexpr int kCeiling = 32767;
  Pair pair(kId, 56 + 2 * (kCeiling + 8) * 12);  // room for that many empty bodies
  ASSERT_TRUE(pair.ok());
  int const key = FirstToSecondKey(kId);
  std::string empty, body;
  for (int code = 0; code < kCeiling; ++code) ASSERT_EQ(4u, pair.first->Write(&code, &empty)) << code;
  ASSERT_EQ(kCeiling, SemValue(key));
  int code = kCeiling;
  EXPECT_EQ("\nSetImpulse error : Numerical result out of range\n",
            Stderr([&] { EXPECT_EQ(0u, pair.first->Write(&code, &empty)); }));
  EXPECT_EQ(kCeiling, SemValue(key));
  for (int expected = 0; expected < kCeiling; ++expected) {
    ASSERT_EQ(4u, pair.second->Read(&code, &body, false)) << expected;
    ASSERT_EQ(expected, code);
  }
  EXPECT_TRUE(pair.first->IsQueueEmpty());
  ASSERT_EQ(9u, Send(*pair.first, 1, "again"));
  EXPECT_EQ("1:again", Take(*pair.second));
  EXPECT_EQ("<none>", Take(*pair.second));
}

}  // namespace
