// Thread::Sleep and Utility::GenerateUniqueNumber.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/time.h>

#include <vpnutils.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <vector>

#include "support/process.h"

namespace {

double MsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

TEST(ThreadSleep, SpendsTheWholeTimeThroughSignals) {
  // A handler without SA_RESTART makes every tick interrupt the sleep.
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  struct sigaction previous;
  ASSERT_EQ(0, sigaction(SIGALRM, &action, &previous));
  struct itimerval ticks = {{0, 3000}, {0, 3000}};
  ASSERT_EQ(0, setitimer(ITIMER_REAL, &ticks, nullptr));
  auto start = std::chrono::steady_clock::now();
  Thread::Sleep(120);
  double slept = MsSince(start);
  struct itimerval off = {};
  setitimer(ITIMER_REAL, &off, nullptr);
  sigaction(SIGALRM, &previous, nullptr);
  EXPECT_GE(slept, 120.0);
  start = std::chrono::steady_clock::now();
  Thread::Sleep(0);
  Thread::Sleep(-5);
  EXPECT_LT(MsSince(start), 100.0);
}

TEST(UniqueNumber, NeverRepeatsAcrossThreadsNorIsZero) {
  constexpr int kEach = 100000;
  std::vector<unsigned long long> a(kEach), b(kEach);
  auto fill = [](std::vector<unsigned long long>* out) {
    for (auto& n : *out) n = Utility::GenerateUniqueNumber();
  };
  std::thread first(fill, &a), second(fill, &b);
  first.join();
  second.join();
  a.insert(a.end(), b.begin(), b.end());
  std::sort(a.begin(), a.end());
  EXPECT_EQ(a.end(), std::adjacent_find(a.begin(), a.end()));
  EXPECT_NE(0ull, a.front());
}

TEST(UniqueNumber, ForkedChildDoesNotRepeatItsParent) {
  // Child and parent continue from the same sequence: with an inherited salt
  // their next numbers would be equal.
  Utility::GenerateUniqueNumber();
  test::Pipe pipe;
  pid_t child = test::Spawn([&] {
    unsigned long long n = Utility::GenerateUniqueNumber();
    pipe.Send(static_cast<int>(n >> 32));
    pipe.Send(static_cast<int>(n));
    return 0;
  });
  unsigned long long const mine = Utility::GenerateUniqueNumber();
  int high = 0, low = 0;
  ASSERT_TRUE(pipe.Receive(&high) && pipe.Receive(&low));
  EXPECT_TRUE(test::Wait(child).ok());
  EXPECT_NE(mine, static_cast<unsigned long long>(static_cast<unsigned>(high)) << 32 | static_cast<unsigned>(low));
}
