#include "line_messengers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "call/family_probe.h"

namespace {

using namespace test;

std::list<std::string> const kItems{"lines", std::string("b\0c", 3)};
CallId const kId = 0x0102030405060708ULL;
CEP const kExtra{7, 0xFFFFFFFF};

// The three line messengers that carry ConfigChanged.
template <typename Messenger>
struct Configurable : Probe<Messenger> {
  using Probe<Messenger>::Probe;
  int OnConfigChanged(CfgChangeType t, std::list<std::string> const& i, PT p) override {
    return this->Note("ConfigChanged", t, i, p);
  }
};

// Each probe sends its own messages with SendOwn, noting what the receiving
// handlers must see, and names the codes they go under.
struct Cas : Configurable<CasMessenger> {
  Cas() : Configurable(9) {}
  static constexpr PT kKind = PROTOCOL_DEFAULT;
  static std::vector<int> Own() { return {0x100, 0x200}; }
  void SendOwn(Notes& expect) {
    EXPECT_TRUE(ConfigChanged(CFG_CHANGE_LINES, kItems) && CasEventRaise(kId, "seized"));
    expect.Note("ConfigChanged", CFG_CHANGE_LINES, kItems, kKind);
    expect.Note("CasEventRaise", kId, std::string("seized"));
  }
  int OnCasEventRaise(CallId const& id, std::string const& e) override { return Note("CasEventRaise", id, e); }
};

struct Fxo : Configurable<FxoMessenger> {
  static constexpr PT kKind = PROTOCOL_FXO;
  static std::vector<int> Own() { return {0x100, 0x101, 0x101}; }
  void SendOwn(Notes& expect) {
    EXPECT_TRUE(ConfigChanged(CFG_CHANGE_TIMERS, {}) && GenerateFlash(kId, &kExtra) && GenerateFlash(kId, nullptr));
    expect.Note("ConfigChanged", CFG_CHANGE_TIMERS, std::list<std::string>{}, kKind);
    expect.Note("GenerateFlash", kId, kExtra, kKind);
    expect.Note("GenerateFlash", kId, CEP{}, kKind);
  }
  int OnGenerateFlash(CallId const& id, CEP const& e, PT p) override { return Note("GenerateFlash", id, e, p); }
};

struct Isdn : Configurable<IsdnMessenger> {
  Isdn() : Configurable(10) {}
  static constexpr PT kKind = PROTOCOL_DEFAULT;
  static std::vector<int> Own() { return {0x100}; }
  void SendOwn(Notes& expect) {
    EXPECT_TRUE(ConfigChanged(CFG_CHANGE_ROUTES, kItems));
    expect.Note("ConfigChanged", CFG_CHANGE_ROUTES, kItems, kKind);
  }
};

struct CmCs : Probe<CmCsMessenger> {
  static constexpr PT kKind = PROTOCOL_CMCS;
  static std::vector<int> Own() { return {0x154, 0x155}; }
  void SendOwn(Notes& expect) {
    CP const from = Party("alice", "a.example"), to = Party("bob", "");
    PackageParam const package{"dialog", "application/xml", std::string("<x>\0</x>", 8)};
    EXPECT_TRUE(RaiseAddInfo(kId, ADD_INFO_NOTIFY, from, to, package, kExtra) && AcceptRaiseAddInfo(kId, kExtra));
    expect.Note("RaiseAddInfo", kId, ADD_INFO_NOTIFY, from, to, package, kExtra, kKind);
    expect.Note("AcceptRaiseAddInfo", kId, kExtra, kKind);
  }
  int OnRaiseAddInfo(CallId const& a, RaiseAddInfoType const& b, CP const& c, CP const& d, PackageParam const& e,
                      CEP const& f, PT p) override {
    return Note("RaiseAddInfo", a, b, c, d, e, f, p);
  }
  int OnAcceptRaiseAddInfo(CallId const& a, CEP const& b, PT p) override {
    return Note("AcceptRaiseAddInfo", a, b, p);
  }
};

// Every code that some messenger of the family adds above the base range.
std::vector<int> const kFamilyCodes = {0x11, 0x50, 0x54, 0x55, 0x60, 0x63, 0x80, 0x100, 0x101, 0x154, 0x155, 0x200};

// A line process talks to call control: a base message and its own ones
// arrive whole, under their codes and with its sender kind; a code of another
// messenger is declined; a frame with a bad sender is consumed by the base
// checks even under an own code.
template <typename Line>
void ExpectDialogue(char const* name) {
  SCOPED_TRACE(name);
  Line sender;
  sender.Capture();
  Line receiver;
  receiver.Capture();
  Notes expect;
  EXPECT_TRUE(sender.Ringing(kId, OneStream(), nullptr));
  expect.Note("Ringing", kId, OneStream(), CEP{}, Line::kKind);
  sender.SendOwn(expect);
  std::vector<int> codes = Line::Own();
  codes.insert(codes.begin(), 0x03);
  EXPECT_EQ(sender.Codes(), codes);
  EXPECT_TRUE(sender.DeliverTo(receiver));
  EXPECT_EQ(receiver.calls, expect.calls);

  std::string const empty = MakeBody(Line::kKind), wrongSender = MakeBody(kId, 9);
  testing::internal::CaptureStderr();
  for (int code : kFamilyCodes) {
    bool own = std::count(codes.begin(), codes.end(), code) != 0;
    EXPECT_EQ(receiver.DispatchMessage(&code, own ? &wrongSender : &empty), own) << std::hex << code;
  }
  EXPECT_NE(testing::internal::GetCapturedStderr().find("CallMessenger: Wrong sender ID."), std::string::npos);
  EXPECT_EQ(receiver.calls, expect.calls);
}

TEST(LineMessengersTest, EachTalksToCallControl) {
  ExpectDialogue<Cas>("Cas");
  ExpectDialogue<Fxo>("Fxo");
  ExpectDialogue<Isdn>("Isdn");
  ExpectDialogue<CmCs>("CmCs");
}

TEST(LineMessengersTest, BodiesMatchTheirGoldenLayout) {
  Cas cas;
  Sent& fromCas = cas.Capture();
  Fxo fxo;
  Sent& fromFxo = fxo.Capture();
  ASSERT_TRUE(cas.CasEventRaise(5, "X") && fxo.GenerateFlash(kId, nullptr));
  EXPECT_EQ(Hex(fromCas[0].second), Hex(N("00 00 00 01") + B("58") +     // the text comes first
                                        N("00 00 00 00 00 00 00 05") +  // then the call id
                                        N("00 00 00 00")));             // sender: 0
  EXPECT_EQ(Hex(fromFxo[0].second), Hex(N("01 02 03 04 05 06 07 08") +
                                        N("00 00 00 00") + N("00 00 00 00") +  // extra: 0, 0
                                        N("00 00 00 01")));                    // sender: FXO
}

// Call control and an analogue-line process on channel 4.
TEST(LineMessengersTest, FxoDialogueCrossesProcesses) {
  Notes expect;
  expect.Note("PartyState", true, PROTOCOL_FXO);
  expect.Note("Ringing", kId, OneStream(), CEP{}, PROTOCOL_FXO);
  {
    Fxo scratch;  // gone before call control takes the channel
    scratch.Capture();
    scratch.SendOwn(expect);
  }
  Fxo control;
  ExpectFromPeer(control, expect.calls, [] { return std::make_unique<Fxo>(); }, [](Fxo& line) {
    Notes ignored;
    line.Ringing(kId, OneStream(), nullptr);
    line.SendOwn(ignored);
  });
}

}  // namespace
