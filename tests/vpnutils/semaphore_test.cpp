// Semaphore: exclusion between processes, recovery from dead holders and dead
// creators, and cleanup.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/time.h>
#include <unistd.h>

#include <vpnutils.h>

#include <atomic>
#include <chrono>

#include "support/ipc.h"
#include "support/process.h"

namespace {

constexpr int kKey = 36;
char const* const kPath = "/bin/ls";

class SemaphoreTest : public ::testing::Test {
 protected:
  void TearDown() override { EXPECT_TRUE(Semaphore::Remove(kKey, kPath)); }
};

}  // namespace

TEST_F(SemaphoreTest, HolderInAnotherProcessExcludesUntilItIsKilled) {
  Semaphore lock(kKey, kPath);
  ASSERT_TRUE(lock);
  test::Pipe held;
  pid_t child = test::Spawn([&] {
    Semaphore mine(kKey, kPath);
    if (!mine || !mine.Lock()) return 1;
    held.Send();
    pause();
    return 2;
  });
  ASSERT_TRUE(held.Receive());
  EXPECT_FALSE(lock.TryLock() || lock.Lock(50));
  kill(child, SIGKILL);
  test::ChildResult result = test::Wait(child);
  EXPECT_TRUE(result.signaled) << result.Describe();
  ASSERT_TRUE(lock.Lock(5000));  // the kernel undid the dead holder's lock
  lock.Unlock();
  EXPECT_EQ(1, test::CountSemaphoreSets());
}

TEST_F(SemaphoreTest, WaiterResumesAfterSignalsAndGetsTheLock) {
  Semaphore lock(kKey, kPath);
  ASSERT_TRUE(lock.Lock());
  test::Pipe started;
  pid_t child = test::Spawn([&] {
    struct sigaction action = {};
    action.sa_handler = [](int) {};  // no SA_RESTART: each tick interrupts semop
    sigaction(SIGALRM, &action, nullptr);
    struct itimerval ticks = {{0, 5000}, {0, 5000}};
    setitimer(ITIMER_REAL, &ticks, nullptr);
    Semaphore mine(kKey, kPath);
    started.Send();
    if (!mine.Lock()) return 1;
    mine.Unlock();
    return 0;
  });
  ASSERT_TRUE(started.Receive());
  usleep(100000);
  lock.Unlock();
  test::ChildResult result = test::Wait(child);
  EXPECT_TRUE(result.ok()) << result.Describe();
}

TEST_F(SemaphoreTest, SimultaneousCreatorsShareOneSetAndExclude) {
  // Shared anonymous memory (not System V) counts the holders.
  auto* shared = static_cast<std::atomic<int>*>(
      mmap(nullptr, 2 * sizeof(std::atomic<int>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(MAP_FAILED, static_cast<void*>(shared));
  std::atomic<int>& start = shared[0];
  std::atomic<int>& inside = shared[1];
  start = 0;
  inside = 0;
  std::vector<pid_t> children;
  for (int i = 0; i < 4; ++i) {
    children.push_back(test::Spawn([&] {
      while (start.load() == 0) {
      }
      Semaphore lock(kKey, kPath);
      if (!lock) return 1;
      for (int round = 0; round < 20; ++round) {
        if (!lock.Lock()) return 2;
        if (inside.fetch_add(1) != 0) return 3;
        usleep(200);
        inside.fetch_sub(1);
        lock.Unlock();
      }
      return 0;
    }));
  }
  start = 1;
  for (pid_t child : children) EXPECT_TRUE(test::Wait(child, 60).ok());
  EXPECT_EQ(1, test::CountSemaphoreSets());
  munmap(shared, 2 * sizeof(std::atomic<int>));
}

TEST_F(SemaphoreTest, OnlyASetNeverMadeReadyIsRebuilt) {
  {
    // A held lock is a ready set: a newcomer neither waits nor rebuilds it.
    Semaphore creator(kKey, kPath);
    ASSERT_TRUE(creator.Lock());
    auto start = std::chrono::steady_clock::now();
    Semaphore joiner(kKey, kPath);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
    EXPECT_FALSE(joiner.TryLock());
  }
  ASSERT_TRUE(Semaphore::Remove(kKey, kPath));
  // What a creator killed between semget and its first semop leaves: a set
  // (lock and ready flag) at 0 that nobody will ever raise.
  ASSERT_GE(semget(ftok(kPath, kKey), 2, IPC_CREAT | 0666), 0);
  Semaphore lock(kKey, kPath);
  ASSERT_TRUE(lock);
  EXPECT_TRUE(lock.TryLock());
  lock.Unlock();
  EXPECT_EQ(1, test::CountSemaphoreSets());
}

TEST_F(SemaphoreTest, StrayUnlocksCannotAdmitTwoHolders) {
  Semaphore a(kKey, kPath), b(kKey, kPath);
  a.Unlock();  // never locked: must not raise the count to 2
  ASSERT_TRUE(a.Lock());
  EXPECT_FALSE(b.TryLock());
  // A forked child inherits the object but not the hold.
  test::ChildResult result = test::Run([&] {
    a.Unlock();
    return 0;
  });
  EXPECT_TRUE(result.exited) << result.Describe();
  EXPECT_FALSE(b.TryLock());
  a.Unlock();
  EXPECT_TRUE(b.TryLock());
  b.Unlock();
}

TEST_F(SemaphoreTest, RemovedSetIsRecreatedOnNextLock) {
  Semaphore a(kKey, kPath), b(kKey, kPath);
  EXPECT_TRUE(a.Remove());
  EXPECT_FALSE(a);
  EXPECT_EQ(0, test::CountSemaphoreSets());
  EXPECT_TRUE(b.Lock());
  EXPECT_EQ(1, test::CountSemaphoreSets());
  b.Unlock();
  EXPECT_TRUE(b.Remove());
  EXPECT_TRUE(Semaphore::Remove(kKey, kPath));  // nothing left is success
}

TEST_F(SemaphoreTest, BadPathIsReportedAndLocksNothing) {
  std::string text = test::Stderr([] {
    Semaphore lock(1, "/no/such/file");
    EXPECT_FALSE(lock || lock.Lock());
  });
  EXPECT_NE(std::string::npos, text.find("Semaphore: ftok(/no/such/file, 1) failed: No such file or directory\n"))
      << text;
  EXPECT_NE(std::string::npos, text.find("Semaphore: no semaphore set\n")) << text;
}
