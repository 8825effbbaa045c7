// Trigger counts, removal and error texts. (Trojan re-creating a vanished
// poller's events and following its new keys: queue_poller_test.)
#include <gtest/gtest.h>

#include <cerrno>

#include "support/channel.h"
#include "support/process.h"
#include "transport/sysv.h"

namespace {

using test::SemValue;
using test::Stderr;

constexpr int kKey = 0x5151;

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
  }
};

TEST_F(TriggerTest, NewSetStartsAtZeroAndExistingKeepsItsCount) {
  Trigger first(kKey);
  ASSERT_TRUE(first);
  EXPECT_EQ(0, SemValue(kKey));
  EXPECT_FALSE(first.WaitForImpulse(false));
  first.SetImpulse();
  first.SetImpulse();
  Trigger second(kKey);
  EXPECT_EQ(2, SemValue(kKey));
  EXPECT_TRUE(second.WaitForImpulse(true));
  EXPECT_TRUE(second.WaitForImpulse(false));
  EXPECT_FALSE(second.WaitForImpulse(false));
  first.SetImpulse();
  EXPECT_TRUE(second.ResetTrigger());
  EXPECT_EQ(0, SemValue(kKey));
}

TEST_F(TriggerTest, RemovedSetInvalidatesRaiserWithOneReport) {
  Trigger raiser(kKey), remover(kKey);
  sysv.SemRemove = CountingSemRemove;
  EXPECT_TRUE(remover.RemoveTrigger());
  EXPECT_TRUE(remover.RemoveTrigger());  // already invalid: no system call
  EXPECT_EQ(1, gRemovals);
  EXPECT_FALSE(remover);
  std::string shown = Stderr([&] { EXPECT_FALSE(raiser.SetImpulse() || raiser.SetImpulse()); });
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
  EXPECT_EQ("\nWaitForImpulse error : Interrupted system call\n",
            Stderr([&] { EXPECT_FALSE(trigger.WaitForImpulse(true)); }));
  gFailures = 1;
  EXPECT_EQ("", Stderr([&] { EXPECT_FALSE(trigger.WaitForImpulse(false)); }));  // non-blocking failures are silent
  EXPECT_TRUE(trigger);
  trigger.RemoveTrigger();
}

}  // namespace
