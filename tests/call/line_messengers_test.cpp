#include "line_messengers.h"

#include <gtest/gtest.h>

#include <algorithm>

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
  int OnCasEventRaise(IdRef id, TextRef e) override { return Note("CasEventRaise", id, e); }
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
  int OnRaiseAddInfo(IdRef a, RaiseAddInfoType const& b, PartyRef c, PartyRef d, PackageParam const& e, ExtraRef f,
                      PT p) override {
    return Note("RaiseAddInfo", a, b, c, d, e, f, p);
  }
  int OnAcceptRaiseAddInfo(IdRef a, ExtraRef b, PT p) override { return Note("AcceptRaiseAddInfo", a, b, p); }
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
  Fxo fxo;
  Sent &fromCas = cas.Capture(), &fromFxo = fxo.Capture();
  ASSERT_TRUE(cas.CasEventRaise(5, "X") && fxo.GenerateFlash(kId, nullptr));
  EXPECT_EQ(Hex(fromCas[0].second), Hex(Text("X") + W("0000000000000005 00000000")));  // text, id, sender 0
  EXPECT_EQ(Hex(fromFxo[0].second), Hex(W("0102030405060708 00000000 00000000 00000001")));  // extra 0, 0; FXO
}

}  // namespace
