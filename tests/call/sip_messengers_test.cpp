#include "sip_messengers.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "call/family_probe.h"

namespace {

using namespace test;
using RP = RegisterParams;

struct Sip : Probe<SipMessenger> {
  Sip(Link* link, int id) : Probe(link, id) {}
  int OnRegisterUser(RP const& a, RP const& b, PT p) override { return Note("RegisterUser", a, b, p); }
  int OnRegisterUsers(std::list<RP> const& a, PT p) override { return Note("RegisterUsers", a, p); }
  int OnConfirmRegister(CP const& a, CEP const& b, bool c, PT p) override {
    return Note("ConfirmRegister", a, b, c, p);
  }
  int OnMakeReferCall(CP const& a, CP const& b, CallId const& c, Media const& d, CallId const& e,
                       std::string const& f, CEP const& g, PT p) override {
    return Note("MakeReferCall", a, b, c, d, e, f, g, p);
  }
  int OnRaiseAddInfo(CallId const& a, RaiseAddInfoType const& b, CP const& c, CP const& d, PackageParam const& e,
                      CEP const& f, PT p) override {
    return Note("RaiseAddInfo", a, b, c, d, e, f, p);
  }
  int OnAcceptRaiseAddInfo(CallId const& a, CEP const& b, PT p) override {
    return Note("AcceptRaiseAddInfo", a, b, p);
  }
  int OnConfigChanged(CfgChangeType a, std::list<std::string> const& b, PT p) override {
    return Note("ConfigChanged", a, b, p);
  }
  int OnIMUserSet(std::list<CP> const& a) override { return Note("IMUserSet", a); }
  int OnIMRequest(CallId const& a, CP const& b, CP const& c, PackageParam const& d, CEP const& e) override {
    return Note("IMRequest", a, b, c, d, e);
  }
  int OnIMResponse(CallId const& a, long b, CallErrorCode c, CEP const& d) override {
    return Note("IMResponse", a, b, c, d);
  }
};

// Keeps SPMGMessenger's own registration overrides: the bridge is under test.
struct Spmg : Probe<SPMGMessenger> {
  Spmg() : Probe(12) {}
  int OnMakeAlertCall(CP const& a, CP const& b, CallId const& c, Media const& d, AlertInfo const& e, CEP const& f,
                       PT p) override {
    return Note("MakeAlertCall", a, b, c, d, e, f, p);
  }
  int OnSetConfiguration(std::list<CP> const& a, PT p) override { return Note("SetConfiguration", a, p); }
  int OnUserActivated(CP const& a, bool b, PT p) override { return Note("UserActivated", a, b, p); }
  int OnVMIndication(std::string const& a, unsigned long b, unsigned long c, PT p) override {
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
  EXPECT_EQ(Hex(link.sent[0].second), Hex(N("00 00 00 00 00 00 00 05") + B("FF FF FF FF") +  // long -1
                                          N("00 00 00 01") + N("00 00 00 00") + N("00 00 00 00") +
                                          N("00 00 00 02")));  // sender: SIP
  link.sent.clear();
  Probe<CmCsMessenger> cmcs;
  Sent& fromCmCs = cmcs.Capture();
  Probe<IsdnMessenger> isdn(10);
  Sent& fromIsdn = isdn.Capture();
  ASSERT_TRUE(sip.RaiseAddInfo(kId, ADD_INFO_INFO, kAlice, kBob, kPackage, kExtra) &&
              sip.AcceptRaiseAddInfo(kId, kExtra) && sip.ConfigChanged(CFG_CHANGE_LINES, {"a", "b"}));
  ASSERT_TRUE(cmcs.RaiseAddInfo(kId, ADD_INFO_INFO, kAlice, kBob, kPackage, kExtra) &&
              cmcs.AcceptRaiseAddInfo(kId, kExtra) && isdn.ConfigChanged(CFG_CHANGE_LINES, {"a", "b"}));
  auto content = [](std::string const& body) { return body.substr(0, body.size() - 4); };
  EXPECT_EQ(content(link.sent[0].second), content(fromCmCs[0].second));
  EXPECT_EQ(content(link.sent[1].second), content(fromCmCs[1].second));
  EXPECT_EQ(content(link.sent[2].second), content(fromIsdn[0].second));
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

// A SIP process on channel 7 talks to call control: base and own messages
// arrive whole under their codes, every body saying SIP, while call control
// sees the peer come online as kind 4 (channel 7 - 3); codes of the other
// messengers are declined.
TEST(SipMessengersTest, SipTalksToCallControlAcrossProcesses) {
  constexpr int kChannel = 7;
  Notes expect;
  expect.Note("PartyState", true, static_cast<PT>(4));
  {
    Sip scratch(nullptr, kChannel);  // gone before call control takes the channel
    scratch.Capture();
    for (auto& call : SendSipDialogue(scratch)) expect.calls.push_back(call);
    EXPECT_EQ(scratch.Codes(), (std::vector<int>{0x50, 0x51, 0x52, 0x53, 0x54, 0x55, 0x60, 0x61, 0x62, 0x63, 0x03}));
  }
  Sip control(nullptr, kChannel);
  ExpectFromPeer(control, expect.calls, [&] { return std::make_unique<Sip>(nullptr, kChannel); },
                 [](Sip& sip) { SendSipDialogue(sip); });
  std::string const empty = MakeBody(PROTOCOL_SIP);
  for (int code : {0x11, 0x56, 0x64, 0x80, 0x100, 0x154}) EXPECT_FALSE(control.DispatchMessage(&code, &empty));
}

}  // namespace
