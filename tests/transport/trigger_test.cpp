// Trigger counts, removal and error texts; Trojan re-creating a vanished
// poller's events.
#include <gtest/gtest.h>
#include <sys/sem.h>

#include <cerrno>
#include <string>

#include "transport.h"
#include "transport/sysv.h"

namespace {

constexpr int kKey = 0x5151;
constexpr int kOtherKey = 0x5252;

int Count(int key) { return semctl(semget(key, 1, 0), 0, GETVAL); }
bool Exists(int key) { return semget(key, 1, 0) != -1; }

int gFailures;  // how many calls the injected failure still hits
int gErrno;
int FailingSemOp(int id, sembuf* op) {
  if (gFailures > 0) {
    --gFailures;
    errno = gErrno;
    return -1;
  }
  return kRealSysVCalls.SemOp(id, op);
}
int gRemovals;
int CountingSemRemove(int id) {
  ++gRemovals;
  return kRealSysVCalls.SemRemove(id);
}

class TriggerTest : public testing::Test {
 protected:
  void SetUp() override { Trigger::mTriggerErrorMessage = "No errors"; }
  void TearDown() override {
    sysv = kRealSysVCalls;
    Trigger::WipeTrigger(kKey);
    Trigger::WipeTrigger(kOtherKey);
  }
};

TEST_F(TriggerTest, NewSetStartsAtZeroAndExistingKeepsItsCount) {
  Trigger first(kKey);
  ASSERT_TRUE(first);
  EXPECT_EQ(0, Count(kKey));
  EXPECT_FALSE(first.WaitForImpulse(false));
  first.SetImpulse();
  first.SetImpulse();
  Trigger second(kKey);
  EXPECT_EQ(2, Count(kKey));
  EXPECT_TRUE(second.WaitForImpulse(true));
  EXPECT_TRUE(second.WaitForImpulse(false));
  EXPECT_FALSE(second.WaitForImpulse(false));
  first.SetImpulse();
  EXPECT_TRUE(second.ResetTrigger());
  EXPECT_EQ(0, Count(kKey));
}

TEST_F(TriggerTest, RemovedSetInvalidatesRaiserWithOneReport) {
  Trigger raiser(kKey), remover(kKey);
  sysv.SemRemove = CountingSemRemove;
  EXPECT_TRUE(remover.RemoveTrigger());
  EXPECT_TRUE(remover.RemoveTrigger());  // already invalid: no system call
  EXPECT_EQ(1, gRemovals);
  EXPECT_FALSE(remover);
  testing::internal::CaptureStderr();
  EXPECT_FALSE(raiser.SetImpulse());
  EXPECT_FALSE(raiser.SetImpulse());
  std::string shown = testing::internal::GetCapturedStderr();
  EXPECT_FALSE(raiser);
  EXPECT_TRUE(shown == "\nSetImpulse error : Invalid argument\n" ||
              shown == "\nSetImpulse error : Identifier removed\n")
      << shown;
  EXPECT_EQ(shown.substr(1, shown.size() - 2), Trigger::mTriggerErrorMessage);
  EXPECT_TRUE(Trigger::WipeTrigger(kKey));  // nothing left to wipe
}

TEST_F(TriggerTest, BlockingWaitRetriesAgainButEndsOnInterrupt) {
  Trigger trigger(kKey);
  sysv.SemOp = FailingSemOp;
  trigger.SetImpulse();
  gErrno = EAGAIN;
  gFailures = 2;
  EXPECT_TRUE(trigger.WaitForImpulse(true));
  gErrno = EINTR;
  gFailures = 1;
  testing::internal::CaptureStderr();
  EXPECT_FALSE(trigger.WaitForImpulse(true));
  EXPECT_EQ("\nWaitForImpulse error : Interrupted system call\n", testing::internal::GetCapturedStderr());
  gFailures = 1;
  testing::internal::CaptureStderr();
  EXPECT_FALSE(trigger.WaitForImpulse(false));  // non-blocking failures are silent
  EXPECT_EQ("", testing::internal::GetCapturedStderr());
  EXPECT_TRUE(trigger);
  trigger.RemoveTrigger();
}

TEST_F(TriggerTest, WhisperRecreatesVanishedEventsAndUpdatesFollowKeys) {
  Trojan trojan(kKey, kOtherKey);
  EXPECT_TRUE(trojan.Whisper());
  EXPECT_EQ(1, Count(kKey));
  EXPECT_EQ(1, Count(kOtherKey));
  Trigger::WipeTrigger(kKey);  // the poller went away
  Trigger::WipeTrigger(kOtherKey);
  testing::internal::CaptureStderr();
  EXPECT_TRUE(trojan.Whisper());
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(1, Count(kKey));
  EXPECT_EQ(1, Count(kOtherKey));

  EXPECT_FALSE(trojan.CheckForUpdates(kKey, kOtherKey));
  EXPECT_TRUE(trojan.CheckForUpdates(kKey + 1, kOtherKey));
  EXPECT_FALSE(Exists(kKey));  // the replaced event's set is removed
  EXPECT_TRUE(Exists(kKey + 1));
  Trigger::WipeTrigger(kKey + 1);
}

}  // namespace
