#include "sip_trunk_messenger.h"

#include <gtest/gtest.h>

#include "call/family_probe.h"

namespace {

using namespace test;
using Users = std::list<CallParams>;

class Trunk : public CSIPTrunkMessenger, public Notes {
 public:
  // Moved off channel 116 onto a capturing link.
  Trunk() : link_(new CapturingLink) { Reseat(new CyclicMessageQueue(0, nullptr, 0, link_.get())); }
  void Reseat(CyclicMessageQueue* queue) {
    delete mQueue;
    mQueue = queue;
  }
  Sent& sent() { return link_->sent; }
  int OnSetUsersList(Users const& a, bool b, bool c) override { return Note("SetUsersList", a, b, c); }
  int OnChangeUserParams(CallParams const& a, CallParams const& b, bool c) override {
    return Note("ChangeUserParams", a, b, c);
  }
  int OnConfirmUserState(CallParams const& a, bool b, unsigned long c, bool d) override {
    return Note("ConfirmUserState", a, b, c, d);
  }

 private:
  std::unique_ptr<CapturingLink> link_;
};

TEST(SipTrunkMessengerTest, BodiesEndWithTheirLastField) {
  Trunk m;
  ASSERT_TRUE(m.SetUsersList(Users{}, true, false));
  ASSERT_TRUE(m.ConfirmUserState(CallParams{}, true, 0x01020304ul, false));
  ASSERT_EQ(m.sent().size(), 2u);
  EXPECT_EQ(m.sent()[0].first, 0);
  EXPECT_EQ(Hex(m.sent()[0].second), Hex(W("00000000") + B("01 00")));
  std::string const emptyParty = std::string(11 * 4, '\0');  // 10 empty texts, port
  EXPECT_EQ(m.sent()[1].first, 2);
  EXPECT_EQ(Hex(m.sent()[1].second), Hex(emptyParty + B("01") + W("01020304") + B("00")));
}

TEST(SipTrunkMessengerTest, EveryMessageArrivesWithEveryFieldAndOthersAreDeclined) {
  Trunk sender, receiver, expect;
  CallParams alice = Party("alice", "trunk.example"), bob = Party("bob", "");
  ASSERT_TRUE(sender.SetUsersList(Users{alice, bob}, false, true));
  expect.Note("SetUsersList", Users{alice, bob}, false, true);
  ASSERT_TRUE(sender.ChangeUserParams(alice, bob, true));
  expect.Note("ChangeUserParams", alice, bob, true);
  ASSERT_TRUE(sender.ConfirmUserState(bob, true, 0x89ABCDEFul, true));
  expect.Note("ConfirmUserState", bob, true, 0x89ABCDEFul, true);
  for (auto& message : sender.sent()) EXPECT_TRUE(receiver.DispatchMessage(&message.first, &message.second));
  EXPECT_EQ(receiver.calls, expect.calls);
  std::string body = N("00 00 00 00");
  for (int code : {3, -1, static_cast<int>(0x80000000u)}) EXPECT_FALSE(receiver.DispatchMessage(&code, &body));
  EXPECT_EQ(receiver.calls.size(), 3u);
}

TEST(SipTrunkMessengerTest, NoQueueIsQuietlyFalse) {
  Trunk m;
  m.Reseat(nullptr);
  EXPECT_EQ("", Stderr([&] {
              EXPECT_FALSE(m.ProcessMessageFromQueue(1) || m.IsPartyOnline() || m.SetUsersList(Users{}, true, true));
            }));
}

}  // namespace
