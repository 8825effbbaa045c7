// A thread blocked in a waiting read while another process removes the
// channel's objects, or while signals interrupt it.
//
// For the removals the reading process is a child: this process, the
// remover, attaches nothing itself until the child is gone.
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <thread>

#include "support/channel.h"
#include "support/ipc.h"
#include "support/process.h"
#include "transport/sysv.h"

namespace {

using test::FirstToSecondKey;
using test::Pair;
using test::Send;

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

// Reads with wait until code kLast arrives or `giveUp` reads have failed,
// noting each message's code or, for a failed read, the trigger's report.
struct Reader {
  Reader(CyclicSharedMemory* channel, unsigned giveUp)
      : thread([this, channel, giveUp] {
          tReader = true;
          for (unsigned failed = 0; failed < giveUp;) {
            int code = 0;
            std::string body;
            bool got = channel->Read(&code, &body, true) != 0;
            failed += !got;
            results.push_back(got ? std::to_string(code) : Trigger::mTriggerErrorMessage);
            if (code == kLast) return;
          }
        }) {}
  std::vector<std::string> results;  // written by the thread until it is joined
  std::thread thread;
};

class BlockedReaderTest : public testing::Test {
 protected:
  void SetUp() override {
    gReaderOps = 0;
    gBlocking = 0;
    Trigger::mTriggerErrorMessage = "No errors";
  }
  void TearDown() override { sysv = kRealSysVCalls; }
  // A child holds both parties; once the second one's reader blocks, this
  // process runs `remove`. The child then runs `check`, whose non-zero result
  // names its failing step, and the first party leaves last, expecting
  // `lastError` and leaving `segmentsLeft`. Afterwards a fresh pair here must
  // work both ways.
  void ExpectInChild(unsigned giveUp, std::function<void()> const& remove,
                     std::function<int(Pair&, Reader&)> const& check, char const* lastError, int segmentsLeft) {
    test::Watchdog watchdog(60);
    test::Pipe blocked;
    pid_t child = test::Spawn([&] {
      test::Silence();
      sysv.SemOp = CountingSemOp;
      Pair pair(kId, kSize);
      Reader reader(pair.second.get(), giveUp);
      if (!Blocked(1)) return 1;
      blocked.Send();
      if (int failed = check(pair, reader)) return failed;
      pair.second.reset();
      pair.Close();
      return CyclicSharedMemory::GetLastError() == lastError ? 0 : 9;
    });
    if (blocked.Receive()) remove();
    test::ChildResult owner = test::Wait(child, 20);
    ASSERT_TRUE(owner.ok()) << owner.Describe();
    EXPECT_EQ(segmentsLeft, test::CountSegments()) << test::DescribeIpcObjects();
    EXPECT_TRUE(segmentsLeft || test::DescribeIpcObjects().empty()) << test::DescribeIpcObjects();
    Pair pair(kId, kSize);
    ASSERT_TRUE(pair.ok());
    EXPECT_TRUE(Send(*pair.first, 1, "a") && Send(*pair.second, 2, "b"));
    EXPECT_EQ("1:a", test::Take(*pair.second));
    EXPECT_EQ("2:b", test::Take(*pair.first));
  }
};

// The removed set wakes the waiter once with EIDRM (EINVAL if the removal
// won the race); later waits fail at once, one system call each, so a loop
// over GetMessage ends instead of spinning. The first party's clean-up then
// stops at "Triggers Remove" and leaves the segment, which the next comer
// takes over.
TEST_F(BlockedReaderTest, RemovedSemaphoreEndsTheWaitWithoutSpinning) {
  ExpectInChild(
      3, [] { semctl(semget(FirstToSecondKey(kId), 1, 0), 0, IPC_RMID); },
      [](Pair&, Reader& reader) {
        reader.thread.join();
        std::string const invalid = "WaitForImpulse error : Invalid argument";
        if (reader.results.size() != 3 || reader.results[2] != invalid) return 2;
        if (reader.results[0] != "WaitForImpulse error : Identifier removed" && reader.results[0] != invalid) return 3;
        return gReaderOps.load() == 3 ? 0 : 4;
      },
      "Triggers Remove error : Invalid argument", 1);
}

// A removed segment stays mapped by both ends until they leave: the waiter
// is not woken, the channel keeps working, and the last party's removal finds
// the segment already gone ("Memory Remove").
TEST_F(BlockedReaderTest, RemovedSegmentKeepsTheWaiterAndTheChannel) {
  ExpectInChild(
      1, [] { shmctl(shmget(test::SegmentKey(kId), 0, 0), IPC_RMID, nullptr); },
      [](Pair& pair, Reader& reader) {
        usleep(100000);
        if (!reader.results.empty()) return 2;  // woken by the removal
        if (!Send(*pair.first, 7, "a") || !Send(*pair.first, kLast, "b")) return 3;
        reader.thread.join();
        return reader.results == std::vector<std::string>{"7", "99"} ? 0 : 4;
      },
      "Memory Remove error : Invalid argument", 0);
}

// A handled signal ends a blocked wait with EINTR whether or not its handler
// asked for restarts (System V waits are never restarted); user-mode
// emulation may restart it instead. Either way no message appears that was
// not sent, the count stays equal to the unread frames, and what is sent
// afterwards arrives once, in order.
class InterruptedReaderTest : public BlockedReaderTest, public testing::WithParamInterface<bool> {};

TEST_P(InterruptedReaderTest, SignalsNeverDeliverPhantomsOrLoseCount) {
  test::Watchdog watchdog(60);
  struct sigaction action = {}, previous;
  action.sa_handler = [](int) {};
  action.sa_flags = GetParam() ? SA_RESTART : 0;
  sigaction(SIGUSR1, &action, &previous);
  sysv.SemOp = CountingSemOp;
  Pair pair(kId, kSize);
  ASSERT_TRUE(pair.ok());
  testing::internal::CaptureStderr();  // the interrupted waits' report
  Reader reader(pair.second.get(), 10);
  int const kSignals = 3;
  for (int i = 1; i <= kSignals; ++i) {
    ASSERT_TRUE(Blocked(test::kEmulated ? 1 : i));
    pthread_kill(reader.thread.native_handle(), SIGUSR1);
  }
  usleep(30000);
  EXPECT_EQ(0, test::SemValue(FirstToSecondKey(kId)));
  EXPECT_TRUE(Send(*pair.first, 1, "a") && Send(*pair.first, 2, "b") && Send(*pair.first, kLast, "c"));
  reader.thread.join();
  testing::internal::GetCapturedStderr();
  sigaction(SIGUSR1, &previous, nullptr);
  std::vector<std::string> delivered;
  int interrupted = 0;
  for (std::string const& r : reader.results) {
    bool failed = r.find("error") != std::string::npos;
    interrupted += failed;
    if (failed) {
      EXPECT_EQ("WaitForImpulse error : Interrupted system call", r);
    } else {
      delivered.push_back(r);
    }
  }
  EXPECT_EQ((std::vector<std::string>{"1", "2", "99"}), delivered);
  EXPECT_TRUE(test::kEmulated || interrupted == kSignals) << interrupted;
  EXPECT_EQ(0, test::SemValue(FirstToSecondKey(kId)));
  EXPECT_TRUE(pair.first->IsQueueEmpty());
}

INSTANTIATE_TEST_SUITE_P(Restart, InterruptedReaderTest, testing::Bool(),
                         [](testing::TestParamInfo<bool> const& info) {
                           return info.param ? "WithRestart" : "WithoutRestart";
                         });

}  // namespace
