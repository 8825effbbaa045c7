// Arbitrary sequences of writes (both forms, any code, body lengths up to
// beyond the buffer), reads (both forms, any buffer size) and buffer resets
// through a real channel with 500-byte buffers, both ends in this process,
// against a queue model of each direction:
// - a read returns exactly the oldest unread frame of its direction, byte
//   for byte, and only when the semaphore counted one; nothing else appears;
// - each semaphore equals the frames the model counts; a reset zeroes the
//   counts but the uncounted frames are still read first, by position;
// - a refused write moves nothing and raises nothing;
// - an empty buffer always takes a body of up to 476 bytes.
// Needs a private IPC namespace (run.sh uses unshare --ipc).
#include <fuzzer/FuzzedDataProvider.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <string>

#include "transport.h"

namespace {

constexpr int kId = 61;
constexpr unsigned kSize = 1056;
constexpr unsigned kEmptyTakes = 476;  // the least an empty buffer takes, wherever it stands

struct Frame {
  int code;
  std::string body;
};

struct Direction {
  CyclicSharedMemory* writer;
  CyclicSharedMemory* reader;
  unsigned writeWord;  // offset of its write position in the header
  int key;             // of its semaphore
  std::deque<Frame> frames;  // written and not read, oldest first
  unsigned counted = 0;      // of which the semaphore counts the newest
};

[[noreturn]] void Fail(char const* what) {
  std::fprintf(stderr, "channel: %s\n", what);
  std::abort();
}

int SemValue(int key) { return semctl(semget(key, 1, 0), 0, GETVAL); }

class Channel {
 public:
  Channel()
      : first_(new CyclicSharedMemory(kId, "/bin/ping", kSize)),
        second_(new CyclicSharedMemory(kId, "/bin/ping", kSize)) {
    if (!*first_ || !*second_) Fail("construction");
    std::string body;
    first_->Read(nullptr, &body, false);
    second_->Read(nullptr, &body, false);
    first_->Read(nullptr, &body, false);  // the online notice
    header_ = static_cast<std::uint32_t*>(shmat(shmget(ftok("/bin/ping", kId), 0, 0), nullptr, 0));
    directions_[0] = {first_.get(), second_.get(), 3, ftok("/bin/ping", 0x7FFFFFFF - kId), {}, 0};
    directions_[1] = {second_.get(), first_.get(), 5,
                      ftok("/bin/ping", static_cast<int>(0x80000000u + kId)), {}, 0};
  }
  ~Channel() {
    shmdt(header_);  // first, or neither end would see itself as the last
    second_.reset();
    first_.reset();
  }

  void Write(Direction& d, bool raw, int code, std::string const& body) {
    std::uint32_t before = header_[d.writeWord];
    unsigned result = raw ? d.writer->Write(&code, body.data(), static_cast<unsigned>(body.size()))
                          : d.writer->Write(&code, &body);
    if (result == body.size() + 4) {
      d.frames.push_back({code, body});
      ++d.counted;
    } else if (result != 0) {
      Fail("write result");
    } else {
      if (header_[d.writeWord] != before) Fail("a refused write moved the write position");
      if (d.frames.empty() && body.size() <= kEmptyTakes && !(raw && body.empty()))
        Fail("an empty buffer refused a small frame");
    }
  }

  void Read(Direction& d, bool raw, unsigned size) {
    int code = 0x5A5A5A5A;
    std::string body(3, 'x');
    std::string buffer(size, '#');
    unsigned result = raw ? d.reader->Read(&code, size ? &buffer[0] : nullptr, size, false)
                          : d.reader->Read(&code, &body, false);
    if (raw && size == 0) {
      if (result != 0) Fail("a read into no buffer");
      return;
    }
    if (d.counted == 0) {
      if (result != 0) Fail("a message that was not counted");
      return;
    }
    Frame const& frame = d.frames.front();
    if (code != frame.code) Fail("code");
    if (raw && frame.body.size() > size) {
      if (result != 0 || buffer != std::string(size, '\0')) Fail("short buffer not zero-filled");
    } else {
      if (result != frame.body.size() + 4) Fail("read result");
      if ((raw ? buffer.substr(0, frame.body.size()) : body) != frame.body) Fail("body");
    }
    d.frames.pop_front();
    --d.counted;
  }

  void Reset(bool byFirst) {
    if (!(byFirst ? first_ : second_)->ResetBuffers()) Fail("reset");
    for (Direction& d : directions_) d.counted = 0;
  }

  void CheckCounts() {
    for (Direction& d : directions_)
      if (SemValue(d.key) != static_cast<int>(d.counted)) Fail("semaphore differs from the counted frames");
  }

  Direction& direction(int i) { return directions_[i]; }

 private:
  std::unique_ptr<CyclicSharedMemory> first_, second_;
  std::uint32_t* header_ = nullptr;
  Direction directions_[2];
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  Channel channel;
  std::string body;
  for (unsigned step = 0; step < 256 && input.remaining_bytes() > 0; ++step) {
    Direction& d = channel.direction(input.ConsumeBool() ? 1 : 0);
    switch (input.ConsumeIntegralInRange<int>(0, 4)) {
      case 0:
      case 1: {
        int code = input.ConsumeIntegral<int>();
        unsigned length = input.ConsumeIntegralInRange<unsigned>(0, 520);
        body.assign(length, static_cast<char>(input.ConsumeIntegral<char>()));
        if (length > 1) body[length / 2] = static_cast<char>(step);
        channel.Write(d, input.ConsumeBool(), code, body);
        break;
      }
      case 2:
      case 3:
        channel.Read(d, input.ConsumeBool(), input.ConsumeIntegralInRange<unsigned>(0, 520));
        break;
      case 4:
        if (input.ConsumeIntegralInRange<int>(0, 7) == 0) channel.Reset(input.ConsumeBool());
        break;
    }
    channel.CheckCounts();
  }
  return 0;
}
