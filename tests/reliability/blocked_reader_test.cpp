// A thread blocked in a waiting read while another process removes the
// channel's objects, or while signals interrupt it.
//
// For the removals the reading process is a child: this process, the
// remover, attaches nothing itself until the child is gone.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "reliability.h"
#include "support/ipc.h"
#include "support/process.h"
#include "transport/sysv.h"

namespace {

using reliability::Pair;

constexpr int kId = 12;
constexpr unsigned kSize = 1056;
constexpr int kLast = 99;  // the code that ends a reader

// Counts the semaphore operations of the reading thread and tells when it
// is about to block.
thread_local bool tReader = false;
std::atomic<int> gReaderOps(0);
std::atomic<int> gBlocking(0);
int CountingSemOp(int id, sembuf* op) {
  if (tReader) {
    ++gReaderOps;
    if (op->sem_op < 0 && !(op->sem_flg & IPC_NOWAIT)) ++gBlocking;
  }
  return kRealSysVCalls.SemOp(id, op);
}

// Until the reader has announced its n-th blocking wait, then a moment for it
// to get into the kernel.
bool Blocked(int n) {
  bool reached = test::WaitUntil([n] { return gBlocking.load() >= n; }, 10);
  usleep(30000);
  return reached;
}

// Reads with wait until code kLast arrives or `give_up` reads have failed,
// keeping each result, code and, after a failure, the trigger's report.
struct Reader {
  struct Result {
    unsigned length;
    int code;
    std::string text;
  };
  std::vector<Result> results;
  std::thread thread;

  void Start(CyclicSharedMemory* channel, unsigned give_up) {
    thread = std::thread([this, channel, give_up] {
      tReader = true;
      for (unsigned failed = 0; failed < give_up;) {
        Result r = {0, 0, ""};
        std::string body;
        r.length = channel->Read(&r.code, &body, true);
        if (r.length == 0) {
          r.text = Trigger::mTriggerErrorMessage;
          ++failed;
        }
        results.push_back(r);
        if (r.code == kLast) return;
      }
    });
  }
  unsigned Delivered() const {
    unsigned n = 0;
    for (Result const& r : results) n += r.length != 0;
    return n;
  }
};

void OpenPair(std::unique_ptr<CyclicSharedMemory>* first, std::unique_ptr<CyclicSharedMemory>* second) {
  first->reset(new CyclicSharedMemory(kId, "/bin/ping", kSize));
  second->reset(new CyclicSharedMemory(kId, "/bin/ping", kSize));
  std::string body;
  (*first)->Read(nullptr, &body, false);
  (*second)->Read(nullptr, &body, false);
  (*first)->Read(nullptr, &body, false);
}

unsigned Send(CyclicSharedMemory& channel, int code) {
  std::string body = "m" + std::to_string(code);
  return channel.Write(&code, &body);
}

// After the child: a fresh pair here must work both ways and leave nothing.
void ExpectChannelCanBeBuilt() {
  std::unique_ptr<CyclicSharedMemory> first, second;
  OpenPair(&first, &second);
  ASSERT_TRUE(*first && *second);
  int code = 0;
  std::string body;
  EXPECT_EQ(6u, Send(*first, 1));
  EXPECT_EQ(6u, second->Read(&code, &body, false));
  EXPECT_EQ(6u, Send(*second, 2));
  EXPECT_EQ(6u, first->Read(&code, &body, false));
  EXPECT_EQ("m2", body);
}

class BlockedReaderTest : public testing::Test {
 protected:
  void SetUp() override {
    gReaderOps = 0;
    gBlocking = 0;
    Trigger::mTriggerErrorMessage = "No errors";
  }
  void TearDown() override { sysv = kRealSysVCalls; }

  // Runs `owner` in a child once it reports that its reader blocks, then
  // `remove` here; returns the child's result.
  test::ChildResult WithBlockedChild(std::function<int(test::Pipe&)> const& owner,
                                     std::function<void()> const& remove) {
    test::Pipe blocked;
    pid_t child = test::Spawn([&] {
      int null = open("/dev/null", O_WRONLY);
      dup2(null, 2);
      sysv.SemOp = CountingSemOp;
      return owner(blocked);
    });
    int v;
    if (blocked.Receive(&v)) remove();
    return test::Wait(child, 20);
  }
};

// The removed set wakes the waiter once with EIDRM (EINVAL if the removal
// won the race); later waits fail at once, one system call each, so a loop
// over GetMessage ends instead of spinning. The first party's clean-up then
// stops at "Triggers Remove" and leaves the segment, which the next comer
// takes over.
TEST_F(BlockedReaderTest, RemovedSemaphoreEndsTheWaitWithoutSpinning) {
  reliability::Watchdog watchdog(60);
  test::ChildResult owner = WithBlockedChild(
      [](test::Pipe& blocked) {
        std::unique_ptr<CyclicSharedMemory> first, second;
        OpenPair(&first, &second);
        Reader reader;
        reader.Start(second.get(), 3);
        if (!Blocked(1)) return 1;
        blocked.Send(1);
        reader.thread.join();
        if (reader.Delivered() != 0 || reader.results.size() != 3) return 2;
        std::string const& woken = reader.results[0].text;
        if (woken != "WaitForImpulse error : Identifier removed" &&
            woken != "WaitForImpulse error : Invalid argument")
          return 3;
        if (reader.results[2].text != "WaitForImpulse error : Invalid argument") return 4;
        if (gReaderOps.load() != 3) return 5;
        second.reset();
        first.reset();
        return CyclicSharedMemory::GetLastError() == "Triggers Remove error : Invalid argument" ? 0 : 6;
      },
      [] { semctl(semget(reliability::FirstToSecondKey(kId), 1, 0), 0, IPC_RMID); });
  ASSERT_EQ(0, owner.code) << owner.Describe();
  EXPECT_EQ(1, test::CountSegments());  // left by the stopped clean-up
  ExpectChannelCanBeBuilt();
}

// A removed segment stays mapped by both ends until they leave: the waiter
// is not woken, the channel keeps working, and the last party's removal finds
// the segment already gone ("Memory Remove").
TEST_F(BlockedReaderTest, RemovedSegmentKeepsTheWaiterAndTheChannel) {
  reliability::Watchdog watchdog(60);
  test::ChildResult owner = WithBlockedChild(
      [](test::Pipe& blocked) {
        std::unique_ptr<CyclicSharedMemory> first, second;
        OpenPair(&first, &second);
        Reader reader;
        reader.Start(second.get(), 1);
        if (!Blocked(1)) return 1;
        blocked.Send(1);
        usleep(100000);
        if (!reader.results.empty()) return 2;  // woken by the removal
        if (Send(*first, 7) != 6 || Send(*first, kLast) != 7) return 3;
        reader.thread.join();
        if (reader.results.size() != 2 || reader.results[0].code != 7) return 4;
        second.reset();
        first.reset();
        return CyclicSharedMemory::GetLastError() == "Memory Remove error : Invalid argument" ? 0 : 5;
      },
      [] { shmctl(shmget(reliability::SegmentKey(kId), 0, 0), IPC_RMID, nullptr); });
  ASSERT_EQ(0, owner.code) << owner.Describe();
  EXPECT_EQ("", test::DescribeIpcObjects());
  ExpectChannelCanBeBuilt();
}

// A handled signal ends a blocked wait with EINTR whether or not its handler
// asked for restarts (System V waits are never restarted); user-mode
// emulation may restart it instead. Either way no message appears that was
// not sent, the count stays equal to the unread frames, and what is sent
// afterwards arrives once, in order.
class InterruptedReaderTest : public BlockedReaderTest, public testing::WithParamInterface<bool> {};

TEST_P(InterruptedReaderTest, SignalsNeverDeliverPhantomsOrLoseCount) {
  reliability::Watchdog watchdog(60);
  struct sigaction action = {}, previous;
  action.sa_handler = [](int) {};
  action.sa_flags = GetParam() ? SA_RESTART : 0;
  sigaction(SIGUSR1, &action, &previous);
  sysv.SemOp = CountingSemOp;
  Pair pair(kId, kSize);
  ASSERT_TRUE(pair.ok());
  testing::internal::CaptureStderr();  // the interrupted waits' report
  Reader reader;
  reader.Start(pair.second.get(), 10);
  int const kSignals = 3;
  for (int i = 1; i <= kSignals; ++i) {
    ASSERT_TRUE(Blocked(reliability::kEmulated ? 1 : i));
    pthread_kill(reader.thread.native_handle(), SIGUSR1);
  }
  usleep(30000);
  EXPECT_EQ(0, reliability::SemValue(reliability::FirstToSecondKey(kId)));
  EXPECT_EQ(6u, Send(*pair.first, 1));
  EXPECT_EQ(6u, Send(*pair.first, 2));
  EXPECT_EQ(7u, Send(*pair.first, kLast));
  reader.thread.join();
  testing::internal::GetCapturedStderr();
  sigaction(SIGUSR1, &previous, nullptr);

  std::vector<int> delivered;
  unsigned interrupted = 0;
  for (Reader::Result const& r : reader.results) {
    if (r.length) {
      delivered.push_back(r.code);
    } else {
      ++interrupted;
      EXPECT_EQ("WaitForImpulse error : Interrupted system call", r.text);
    }
  }
  EXPECT_EQ((std::vector<int>{1, 2, kLast}), delivered);
  if (!reliability::kEmulated) {
    EXPECT_EQ(static_cast<unsigned>(kSignals), interrupted);
  }
  EXPECT_EQ(0, reliability::SemValue(reliability::FirstToSecondKey(kId)));
  EXPECT_TRUE(pair.first->IsQueueEmpty());
}

INSTANTIATE_TEST_SUITE_P(Restart, InterruptedReaderTest, testing::Bool(),
                         [](testing::TestParamInfo<bool> const& info) {
                           return info.param ? "WithRestart" : "WithoutRestart";
                         });

}  // namespace
