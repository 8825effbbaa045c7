// MessengerExt: retries while both ends of the channel are taken (each
// refusal leaving nothing of itself), success once a place frees up, and the
// cases that must not try at all.
//
// Attempts are counted by the segment look-ups they make (one each, through
// the injectable ShmGet), not by their error texts.
#include <gtest/gtest.h>
#include <sys/shm.h>

#include <chrono>

#include "messenger_connection.h"
#include "support/channel.h"
#include "support/ipc.h"
#include "support/process.h"
#include "transport/sysv.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr int kId = 0x47;
constexpr int kPause = 150;  // ms

std::vector<Clock::time_point> gLookups;
std::function<void()> gOnLookup;

int CountingShmGet(key_t key, size_t size, int flags) {
  if (!(flags & IPC_CREAT)) {
    gLookups.push_back(Clock::now());
    if (gOnLookup) gOnLookup();
  }
  return kRealSysVCalls.ShmGet(key, size, flags);
}

class MessengerExtTest : public testing::Test {
 protected:
  void SetUp() override {
    gLookups.clear();
    gOnLookup = nullptr;
    sysv.ShmGet = CountingShmGet;
    CyclicSharedMemory::mMemoryErrorMessage = "No errors";
  }
  void TearDown() override { sysv.ShmGet = kRealSysVCalls.ShmGet; }
  // A child holding one end of kId until told to leave.
  pid_t Hold(test::Pipe& leave) {
    pid_t pid = test::Spawn([&] {
      CyclicSharedMemory channel(kId, "/bin/ping", 32768);
      held_.Send(channel.Create());
      return leave.Receive(60) ? 0 : 1;
    });
    int created = 0;
    EXPECT_TRUE(held_.Receive(&created) && created);
    return pid;
  }
  long Millis(Clock::time_point from, Clock::time_point to) {
    return static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(to - from).count());
  }
  test::Pipe held_;
};

struct Probe : MessengerExt {
  using MessengerExt::MessengerExt;
  CyclicMessageQueue* queue() const { return mQueue; }
};

TEST_F(MessengerExtTest, ThreeAttemptsTwoPausesWhileBothEndsAreHeldElsewhere) {
  test::Pipe leaveFirst, leaveSecond;
  pid_t first = Hold(leaveFirst), second = Hold(leaveSecond);
  Probe probe(kId);
  Clock::time_point returned;
  std::string const shown = test::Stderr([&] {
    EXPECT_FALSE(probe.Connect(3, kPause, 0));
    returned = Clock::now();
  });
  std::string refused = "\n\rThird with ID 0x47 is redundant error.\r\n\n\rConstructor failed error.\r\n";
  EXPECT_EQ(refused + refused + refused, shown);
  EXPECT_EQ(2, test::AttachCount(kId));  // the holders'
  EXPECT_EQ(1, test::CountSegments());
  EXPECT_EQ(2, test::CountSemaphoreSets());
  ASSERT_EQ(3u, gLookups.size());
  EXPECT_GE(Millis(gLookups[0], gLookups[1]), kPause);
  EXPECT_GE(Millis(gLookups[1], gLookups[2]), kPause);
  EXPECT_LT(Millis(gLookups[2], returned), kPause);  // no pause after the last
  EXPECT_FALSE(probe.IsConnected());
  EXPECT_EQ(nullptr, probe.queue());
  // The next attempt finds the first place free.
  gLookups.clear();
  gOnLookup = [&] {
    if (gLookups.size() != 2) return;
    leaveFirst.Send();
    test::Wait(first);
  };
  test::Stderr([&] { EXPECT_TRUE(probe.Connect(3, kPause, 0)); });
  EXPECT_EQ(2u, gLookups.size());
  EXPECT_TRUE(probe.IsConnected());
  leaveSecond.Send();
  EXPECT_TRUE(test::Wait(second).ok());
}

TEST_F(MessengerExtTest, NoAttemptWithoutIdOrAttemptsAndNoneWhenConnected) {
  Probe unnamed(0);
  EXPECT_FALSE(unnamed.Connect(3, 60000, 0));
  Probe named(kId);
  EXPECT_FALSE(named.Connect(0, 60000, 0));
  EXPECT_TRUE(gLookups.empty());
  ASSERT_TRUE(named.Connect(1, 0, 0));
  CyclicMessageQueue* queue = named.queue();
  EXPECT_TRUE(named.Connect(3, 0, 0));
  EXPECT_EQ(queue, named.queue());
  EXPECT_EQ(1u, gLookups.size());
  ASSERT_TRUE(unnamed.Connect(1, 0, kId + 1));  // an explicit id overrides the default
  EXPECT_EQ(2, test::CountSegments());
  unnamed.Disconnect();
  named.Disconnect();
  EXPECT_FALSE(named.IsConnected());
  EXPECT_EQ("", test::DescribeIpcObjects());
  EXPECT_EQ("No errors", CyclicSharedMemory::GetLastError());
}

}  // namespace
