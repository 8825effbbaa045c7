#include "sip_messengers.h"

#include <gtest/gtest.h>

#include "call/family_probe.h"

namespace {

using namespace test;
using RP = RegisterParams;

struct Sip : Probe<SipMessenger> {
  Sip(Link* link, int id) : Probe(link, id) {}
  int OnRegisterUser(RP const& a, RP const& b, PT p) override { return Note("RegisterUser", a, b, p); }
  int OnRegisterUsers(std::list<RP> const& a, PT p) override { return Note("RegisterUsers", a, p); }
  int OnConfirmRegister(PartyRef a, ExtraRef b, bool c, PT p) override { return Note("ConfirmRegister", a, b, c, p); }
  int OnMakeReferCall(PartyRef a, PartyRef b, IdRef c, MediaRef d, IdRef e, TextRef f, ExtraRef g, PT p) override {
    return Note("MakeReferCall", a, b, c, d, e, f, g, p);
  }
  int OnRaiseAddInfo(IdRef a, RaiseAddInfoType const& b, PartyRef c, PartyRef d, PackageParam const& e, ExtraRef f,
                      PT p) override {
    return Note("RaiseAddInfo", a, b, c, d, e, f, p);
  }
  int OnAcceptRaiseAddInfo(IdRef a, ExtraRef b, PT p) override { return Note("AcceptRaiseAddInfo", a, b, p); }
  int OnConfigChanged(CfgChangeType a, std::list<std::string> const& b, PT p) override {
    return Note("ConfigChanged", a, b, p);
  }
  int OnIMUserSet(std::list<CP> const& a) override { return Note("IMUserSet", a); }
  int OnIMRequest(IdRef a, PartyRef b, PartyRef c, PackageParam const& d, ExtraRef e) override {
    return Note("IMRequest", a, b, c, d, e);
  }
  int OnIMResponse(IdRef a, long b, CallErrorCode c, ExtraRef d) override { return Note("IMResponse", a, b, c, d); }
};

// Keeps SPMGMessenger's own registration overrides: the bridge is under test.
struct Spmg : Probe<SPMGMessenger> {
  Spmg() : Probe(12) {}
  int OnMakeAlertCall(PartyRef a, PartyRef b, IdRef c, MediaRef d, AlertInfo const& e, ExtraRef f, PT p) override {
    return Note("MakeAlertCall", a, b, c, d, e, f, p);
  }
  int OnSetConfiguration(std::list<CP> const& a, PT p) override { return Note("SetConfiguration", a, p); }
  int OnUserActivated(CP const& a, bool b, PT p) override { return Note("UserActivated", a, b, p); }
  int OnVMIndication(TextRef a, unsigned long b, unsigned long c, PT p) override {
    return Note("VMIndication", a, b, c, p);
  }
};

CallId const kId = 0x0102030405060708ULL, kOther = 0x1112131415161718ULL;
CEP const kExtra{7, 0xFFFFFFFF};
CP const kAlice = Party("alice", "a.example"), kBob = Party("bob", "");
PackageParam const kPackage{"message", "text/plain", std::string("hi\0", 3)};
RP const kAliceOn(kAlice, true), kBobOff(kBob);

// Every SipMessenger message once, a base one included; returns what the
// receiving handlers must see.
std::vector<std::string> SendSipDialogue(SipMessenger& m) {
  Notes expect;
  PT const sip = PROTOCOL_SIP;
  EXPECT_TRUE(m.RegisterUser(kAliceOn, kBobOff) && m.RegisterUsers({kAliceOn, kBobOff}) &&
              m.ConfirmRegister(kAlice, kExtra, true) &&
              m.MakeReferCall(kAlice, kBob, kId, OneStream(), kOther, "refer", kExtra) &&
              m.RaiseAddInfo(kId, ADD_INFO_MESSAGE, kAlice, kBob, kPackage, kExtra) &&
              m.AcceptRaiseAddInfo(kId, kExtra) && m.ConfigChanged(CFG_CHANGE_USERS, {"alice"}) &&
              m.IMUserSet({kAlice, kBob}) && m.IMRequest(kId, kAlice, kBob, kPackage, kExtra) &&
              m.IMResponse(kId, -486, CALL_ERROR_BUSY, kExtra) && m.Ringing(kId, OneStream(), &kExtra));
  expect.Note("RegisterUser", kAliceOn, kBobOff, sip);
  expect.Note("RegisterUsers", std::list<RP>{kAliceOn, kBobOff}, sip);
  expect.Note("ConfirmRegister", kAlice, kExtra, true, sip);
  expect.Note("MakeReferCall", kAlice, kBob, kId, OneStream(), kOther, std::string("refer"), kExtra, sip);
  expect.Note("RaiseAddInfo", kId, ADD_INFO_MESSAGE, kAlice, kBob, kPackage, kExtra, sip);
  expect.Note("AcceptRaiseAddInfo", kId, kExtra, sip);
  expect.Note("ConfigChanged", CFG_CHANGE_USERS, std::list<std::string>{"alice"}, sip);
  expect.Note("IMUserSet", std::list<CP>{kAlice, kBob});  // the IM handlers get no sender
  expect.Note("IMRequest", kId, kAlice, kBob, kPackage, kExtra);
  expect.Note("IMResponse", kId, -486L, CALL_ERROR_BUSY, kExtra);
  expect.Note("Ringing", kId, OneStream(), kExtra, sip);
  return expect.calls;
}

// A borrowed link gets SIP bodies, with `long` as 4 bytes; the shared bodies
// are those of the line messengers, under other codes.
TEST(SipMessengersTest, BodiesMatchTheirGoldenLayoutAndTheirTwins) {
  CapturingLink link;
  Sip sip(&link, 7);
  ASSERT_TRUE(sip.IMResponse(5, -1, CALL_ERROR_BUSY, CEP{}));
  // Id, long -1, error, extra (0, 0), sender SIP.
  EXPECT_EQ(Hex(link.sent[0].second), Hex(W("0000000000000005 FFFFFFFF 00000001 00000000 00000000 00000002")));
  link.sent.clear();
  Probe<CmCsMessenger> cmcs;
  Probe<IsdnMessenger> isdn(10);
  Sent &fromCmCs = cmcs.Capture(), &fromIsdn = isdn.Capture();
  ASSERT_TRUE(sip.RaiseAddInfo(kId, ADD_INFO_INFO, kAlice, kBob, kPackage, kExtra) &&
              sip.AcceptRaiseAddInfo(kId, kExtra) && sip.ConfigChanged(CFG_CHANGE_LINES, {"a", "b"}));
  ASSERT_TRUE(cmcs.RaiseAddInfo(kId, ADD_INFO_INFO, kAlice, kBob, kPackage, kExtra) &&
              cmcs.AcceptRaiseAddInfo(kId, kExtra) && isdn.ConfigChanged(CFG_CHANGE_LINES, {"a", "b"}));
  auto content = [](std::pair<int, std::string> const& m) { return m.second.substr(0, m.second.size() - 4); };
  EXPECT_EQ(content(link.sent[0]), content(fromCmCs[0]));
  EXPECT_EQ(content(link.sent[1]), content(fromCmCs[1]));
  EXPECT_EQ(content(link.sent[2]), content(fromIsdn[0]));
}

TEST(SipMessengersTest, SpmgBridgesUsersToRegistrationsAndHasItsOwnCodes) {
  Spmg management, gateway;
  Sent& sent = management.Capture();
  gateway.Capture();
  AlertInfo const alert{true, "urn:alert:tone"};
  ASSERT_TRUE(management.SetConfiguration({kAlice, kBob}) && management.ConfigurationChanged(kAlice, kBob) &&
              management.ConfirmRegister(kBob, kExtra, true) && management.VMIndication("100", 3, 0xFFFFFFFFul) &&
              management.MakeAlertCall(kAlice, kBob, kId, OneStream(), alert, kExtra));
  EXPECT_EQ(management.Codes(), (std::vector<int>{0x51, 0x50, 0x52, 0x80, 0x81}));
  EXPECT_EQ(Hex(sent[0].second), Hex(MakeBody(std::list<RP>{RP(kAlice), RP(kBob)}, PROTOCOL_SIP)));
  EXPECT_EQ(Hex(sent[1].second), Hex(MakeBody(RP(kAlice), RP(kBob), PROTOCOL_SIP)));
  // A 0x51 tells the gateway only that a configuration arrived, whatever it
  // held; a 0x50 reaches no application handler.
  EXPECT_TRUE(management.DeliverTo(gateway));
  Notes expect;
  expect.Note("SetConfiguration", std::list<CP>{}, PROTOCOL_SIP);
  expect.Note("UserActivated", kBob, true, PROTOCOL_SIP);
  expect.Note("VMIndication", std::string("100"), 3ul, 0xFFFFFFFFul, PROTOCOL_SIP);
  expect.Note("MakeAlertCall", kAlice, kBob, kId, OneStream(), alert, kExtra, PROTOCOL_SIP);
  EXPECT_EQ(gateway.calls, expect.calls);
  EXPECT_TRUE(gateway.OnRegisterUsers({kAliceOn}, PROTOCOL_FXO));  // OnSetConfiguration's result
  std::string const empty = MakeBody(PROTOCOL_SIP);
  for (int code : {0x60, 0x61, 0x63, 0x82, 0x100}) EXPECT_FALSE(gateway.DispatchMessage(&code, &empty));
}

// The whole SIP dialogue, a base message included, arrives whole under its
// codes with every body saying SIP; codes of the other messengers are
// declined.
TEST(SipMessengersTest, SipTalksToCallControl) {
  CapturingLink unused;
  Sip sender(&unused, 7), receiver(&unused, 7);
  sender.Capture();
  receiver.Capture();
  std::vector<std::string> const expected = SendSipDialogue(sender);
  EXPECT_EQ(sender.Codes(), (std::vector<int>{0x50, 0x51, 0x52, 0x53, 0x54, 0x55, 0x60, 0x61, 0x62, 0x63, 0x03}));
  EXPECT_TRUE(sender.DeliverTo(receiver));
  EXPECT_EQ(receiver.calls, expected);
  std::string const empty = MakeBody(PROTOCOL_SIP);
  for (int code : {0x11, 0x56, 0x64, 0x80, 0x100, 0x154}) EXPECT_FALSE(receiver.DispatchMessage(&code, &empty));
}

}  // namespace
