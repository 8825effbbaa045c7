// The call-control protocol: every body byte for byte, every field through
// dispatch, malformed and foreign input, a messenger without a queue, and the
// dialogue between two processes on a real channel.
#include "call_messenger.h"

#include <gtest/gtest.h>

#include "call/family_probe.h"

namespace {

using namespace test;

CapturingLink gPlaceholder;  // Capture() replaces the queue built on it at once

struct Call : Probe<CallMessenger> {
  // On real channel `channel`, or capturing its sends.
  Call(PT type, int channel) : Probe(channel, nullptr, 32768) { mProtocolType = type; }
  explicit Call(PT type) : Probe(9, &gPlaceholder, 32768) {
    mProtocolType = type;
    Capture();
  }
};

// The handler calls that `notes` would record.
std::vector<std::string> Expect(std::function<void(Notes&)> const& notes) {
  Notes n;
  notes(n);
  return n.calls;
}

// ---- Golden bodies, one per code, sent as an FXO line (sender kind 1).

CallParams const kUser = [] {
  CallParams p;
  p.user = "u";
  p.host = "h";
  p.port = 7;
  return p;
}();
std::string const kFiveEmptyTexts = Text("") + Text("") + Text("") + Text("") + Text("");
std::string const kParty = Text("u") + Text("") + Text("") + Text("") + Text("h") + kFiveEmptyTexts + W("00000007");
std::string const kNoParty = kFiveEmptyTexts + kFiveEmptyTexts + W("00000000");

Media const kStream = {SampleMedia()};
std::string const kOneStream = W("00000001") + SampleMediaBytes();  // count, record
std::string const kNoStreams = W("00000000");

CallExtraParams const kExtra{1, 0xFFFFFFFF};
std::string const kExtraBytes = W("00000001 FFFFFFFF");
std::string const kNoExtra = W("00000000 00000000");
std::string const kNoAttachment = B("FFFFFFFF FFFFFFFF") + Text("");
std::string const kId = W("0000000000000005");

struct Golden {
  int code;
  std::function<bool(CallMessenger&)> send;
  std::string body;  // without the trailing sender kind
};

std::vector<Golden> const& GoldenBodies() {
  static CallAttachment const attachment{1, 2, "z"};
  static std::vector<Golden> const rows = {
      {0x00,
       [](CallMessenger& m) { return m.MakeCall(kUser, CallParams(), 5, kStream, "hi", nullptr, &attachment); },
       kParty + kNoParty + kId + kOneStream + Text("hi") + kNoExtra + W("00000001 00000002") + Text("z")},
      {0x01, [](CallMessenger& m) { return m.CloseCall(5, nullptr, ""); }, kId + kNoExtra + Text("")},
      {0x02, [](CallMessenger& m) { return m.CallTransfer(5, kUser, &kExtra); }, kId + kParty + kExtraBytes},
      {0x03, [](CallMessenger& m) { return m.Ringing(5, Media{}, nullptr); }, kId + kNoStreams + kNoExtra},
      {0x04, [](CallMessenger& m) { return m.Accept(5, kStream, &kExtra, nullptr); },
       kId + kOneStream + kExtraBytes + kNoAttachment},
      {0x05, [](CallMessenger& m) { return m.ChangeMedia(5, kStream, nullptr); }, kId + kOneStream + kNoExtra},
      {0x06, [](CallMessenger& m) { return m.OfferMedia(5, Media{}, &kExtra); }, kId + kNoStreams + kExtraBytes},
      {0x07, [](CallMessenger& m) { return m.AnswerMedia(5, kStream, &kExtra); }, kId + kOneStream + kExtraBytes},
      {0x08, [](CallMessenger& m) { return m.ReportError(5, CALL_ERROR_BUSY, nullptr, "e"); },
       kId + W("00000001") + kNoExtra + Text("e")},
      {0x09, [](CallMessenger& m) { return m.Done(5, Media{}, nullptr); }, kId + kNoStreams + kNoExtra},
      {0x0A, [](CallMessenger& m) { return m.CallForward(5, {kUser, CallParams()}, nullptr); },
       kId + W("00000002") + kParty + kNoParty + kNoExtra},
      {0x0B, [](CallMessenger& m) { return m.UpdateUserInfo(5, kUser, nullptr); }, kId + kParty + kNoExtra},
      {0x0C, [](CallMessenger& m) { return m.RequestMedia(5, CallParams(), &kExtra); }, kId + kNoParty + kExtraBytes},
      {0x0D, [](CallMessenger& m) { return m.ResponseMedia(5, kStream, nullptr); }, kId + kOneStream + kNoExtra},
      {0x0E, [](CallMessenger& m) { return m.InCallRefer(5, kUser, 6, kExtra); },
       kId + kParty + W("0000000000000006") + kExtraBytes},
      {0x0F, [](CallMessenger& m) { return m.IsAcceptRefer(5, 0xFFFFFFFFul, kExtra); },
       kId + W("FFFFFFFF") + kExtraBytes},  // unsigned long: 4 bytes on every host
      {0x10, [](CallMessenger& m) { return m.ReferResponse(5, REFER_REJECTED, kExtra); },
       kId + W("00000001") + kExtraBytes},
  };
  return rows;
}

TEST(CallMessengerTest, EveryCodeHasItsGoldenBody) {
  for (Golden const& row : GoldenBodies()) {
    Call m(PROTOCOL_FXO);
    ASSERT_TRUE(row.send(m)) << row.code;
    ASSERT_EQ(m.sent().size(), 1u);
    EXPECT_EQ(m.sent()[0].first, row.code);
    EXPECT_EQ(Hex(m.sent()[0].second), Hex(row.body + W("00000001"))) << "code " << row.code;
  }
}

TEST(CallMessengerTest, RegisterParamsIsCallParamsThenItsFlag) {
  EXPECT_EQ(Hex(MakeBody(RegisterParams(kUser, true))), Hex(kParty + B("01")));
  std::string body = kParty + B("00") + kNoParty + B("01");
  std::list<RegisterParams> users;
  std::string counted = W("00000002") + body;
  UnpackTemplate(counted, users);
  EXPECT_EQ(users, (std::list<RegisterParams>{RegisterParams(kUser), RegisterParams(CallParams(), true)}));
  EXPECT_TRUE(counted.empty());
}

// ---- Dispatch.

// Sends every message once, with values that differ from the defaults in
// every field (texts holding zero bytes, empty and non-empty lists), and
// returns the handler calls a receiver must make (sender kind `p`).
std::vector<std::string> SendDialogue(CallMessenger& m, ProtocolType p) {
  CallParams from = kUser, to = kUser;
  from.displayName = std::string("Name\0with zero", 14);
  to.user = "bob";
  to.host.clear();
  to.port = 0xA1B2C3D4;
  CallId const id = 0x0102030405060708ULL, other = 0x1112131415161718ULL;
  Media media = kStream;
  media.push_back(media.front());
  media.back().type = MediaParams::kVideo;
  media.back().address = "10.0.0.7";
  CallAttachment attachment{3, 4, std::string("x\0y", 3)};
  std::list<CallParams> targets{from, to};
  std::string const text("text\0with zero", 14);
  CallExtraParams const none{};
  bool sent =
      m.MakeCall(from, to, id, media, text, &kExtra, &attachment) && m.Ringing(id, media, nullptr) &&
      m.Accept(id, Media{}, &kExtra, nullptr) && m.ChangeMedia(id, media, &kExtra) &&
      m.OfferMedia(id, media, &kExtra) && m.AnswerMedia(id, media, nullptr) && m.ResponseMedia(id, media, &kExtra) &&
      m.CallTransfer(id, to, &kExtra) && m.CallForward(id, targets, nullptr) && m.UpdateUserInfo(id, from, &kExtra) &&
      m.RequestMedia(id, to, &kExtra) && m.InCallRefer(id, to, other, kExtra) &&
      m.IsAcceptRefer(id, 0x89ABCDEFul, kExtra) && m.ReferResponse(id, REFER_FAILED, kExtra) &&
      m.ReportError(id, CALL_ERROR_BUSY, &kExtra, "") && m.Done(id, media, &kExtra) && m.CloseCall(id, nullptr, text);
  if (!sent) return {};
  return Expect([&](Notes& e) {
    e.Note("MakeCall", from, to, id, media, text, kExtra, attachment, p);
    e.Note("Ringing", id, media, none, p);
    e.Note("Accept", id, Media{}, kExtra, CallAttachment{}, p);
    e.Note("ChangeMedia", id, media, kExtra, p);
    e.Note("OfferMedia", id, media, kExtra, p);
    e.Note("AnswerMedia", id, media, none, p);
    e.Note("ResponseMedia", id, media, kExtra, p);
    e.Note("CallTransfer", id, to, kExtra, p);
    e.Note("CallForward", id, targets, none, p);
    e.Note("UpdateUserInfo", id, from, kExtra, p);
    e.Note("RequestMedia", id, to, kExtra, p);
    e.Note("InCallRefer", id, to, other, kExtra, p);
    e.Note("IsAcceptRefer", id, 0x89ABCDEFul, kExtra, p);
    e.Note("ReferResponse", id, REFER_FAILED, p);  // its extra params are not passed on
    e.Note("ReportError", id, CALL_ERROR_BUSY, kExtra, std::string(), p);
    e.Note("Done", id, media, kExtra, p);
    e.Note("CloseCall", id, none, text, p);
  });
}

TEST(CallMessengerTest, MalformedBodiesAreConsumedWithTheirReport) {
  Call m(PROTOCOL_DEFAULT);
  int ringing = 0x03;
  std::string shortBody("\0\0\0", 3);
  EXPECT_EQ(Stderr([&] { EXPECT_TRUE(m.DispatchMessage(&ringing, &shortBody)); }),
            "\n\rCallMessenger: Wrong message format, sender doesn't belong to CallMessenger's hierarchy.\r\n");
  for (char const* sender : {"00000009", "FFFFFFFF"}) {
    std::string wrongSender = kId + W(sender);
    EXPECT_EQ(Stderr([&] { EXPECT_TRUE(m.DispatchMessage(&ringing, &wrongSender)); }),
              "\n\rCallMessenger: Wrong sender ID.\r\n");
  }
  EXPECT_TRUE(m.calls.empty());
  // Fields missing from a short body arrive at their defaults; here the
  // trailing sender kind is read as the low half of the id.
  std::string idOnly = W("00000008 00000008");
  EXPECT_TRUE(m.DispatchMessage(&ringing, &idOnly));
  EXPECT_EQ(m.calls, Expect([](Notes& e) { e.Note("Ringing", 0x0000000800000008ULL, Media{}, CEP{}, PROTOCOL_CMCS); }));
  // A body cut anywhere, even inside a record or a text, still reaches the
  // handler.
  Call sender(PROTOCOL_SIP);
  SendDialogue(sender, PROTOCOL_SIP);
  m.calls.clear();
  std::size_t cuts = 0;
  for (auto& message : sender.sent()) {
    for (std::size_t cut = 1; cut < message.second.size(); cut += 5, ++cuts) {
      std::string part = message.second.substr(0, cut) + W("00000002");
      EXPECT_TRUE(m.DispatchMessage(&message.first, &part));
    }
  }
  EXPECT_EQ(m.calls.size(), cuts);  // (a forged count: messaging/body_paths_test)
}

TEST(CallMessengerTest, FrameRulesOutsideTheCodeTable) {
  Call m(PROTOCOL_DEFAULT);
  int subclassCode = 0x11, negative = -5;
  std::string body = W("00000000");
  EXPECT_FALSE(m.DispatchMessage(&subclassCode, &body));
  EXPECT_FALSE(m.DispatchMessage(&negative, &body));
  EXPECT_FALSE(m.ProcessMessageFromQueue(0));
  std::string channel4 = W("00000004"), channel7 = W("00000007"), channel11 = W("0000000B"), channel12 = W("0000000C"),
              shortBody("ab");
  EXPECT_TRUE(m.DoPartyStateChanged(true, &channel4));
  EXPECT_TRUE(m.DoPartyStateChanged(true, &channel7));
  EXPECT_TRUE(m.DoPartyStateChanged(true, &channel11));
  EXPECT_TRUE(m.DoPartyStateChanged(false, &channel12));
  EXPECT_FALSE(m.DoPartyStateChanged(true, &shortBody));
  EXPECT_EQ(m.calls, Expect([](Notes& e) {
              e.Note("PartyState", true, PROTOCOL_FXO);
              e.Note("PartyState", true, static_cast<ProtocolType>(4));
              e.Note("PartyState", true, PROTOCOL_CMCS);
              e.Note("PartyState", false, PROTOCOL_DEFAULT);
            }));
  EXPECT_NE(m.GenerateCallID(), m.GenerateCallID());
}

TEST(CallMessengerTest, WithoutAQueueEveryOperationReports) {
  Call m(PROTOCOL_DEFAULT);
  m.DropQueue();
  std::string expected;
  for (std::size_t i = 0; i < GoldenBodies().size() + 6; ++i) expected += "\n\rCallMessenger: No transport queue.\r\n";
  EXPECT_EQ(Stderr([&] {
              for (Golden const& row : GoldenBodies()) EXPECT_FALSE(row.send(m)) << row.code;
              EXPECT_FALSE(m.ProcessMessageFromQueue(1) || m.BeginMessageLoop() || m.IsPartyOnline() ||
                           m.IsQueueEmpty() || m.ResetQueue() || static_cast<bool>(m));
            }),
            expected);
}

// ---- Two processes on a real call-control channel: each side sends the
// whole dialogue and checks every field of what the other sent. Channel 5
// reports its peer as sender kind 2.

TEST(CallMessengerTest, DialogueCrossesProcesses) {
  constexpr int kChannel = 5;
  Call scratch(PROTOCOL_DEFAULT);
  std::vector<std::string> expected = Expect([](Notes& e) { e.Note("PartyState", true, PROTOCOL_SIP); });
  for (auto& call : SendDialogue(scratch, PROTOCOL_SIP)) expected.push_back(call);
  Pipe ready, done;
  pid_t signalling = Spawn([&]() {
    if (!ready.Receive()) return 10;
    Call m(PROTOCOL_SIP, kChannel);
    m.ProcessMessageFromQueue(1);  // announces this end; call control is online already
    if (!m.IsPartyOnline()) return 11;
    std::vector<std::string> fromControl = SendDialogue(m, PROTOCOL_DEFAULT);
    if (fromControl.empty()) return 12;
    bool all = WaitUntil([&] {
      m.ProcessMessageFromQueue(20);
      return m.calls.size() >= fromControl.size();
    });
    if (!all || m.calls != fromControl) return 13;
    return done.Receive() ? 0 : 14;  // stay until call control has read everything
  });
  Call control(PROTOCOL_DEFAULT, kChannel);  // after the fork, which would inherit its attachment
  ASSERT_TRUE(static_cast<bool>(control));
  EXPECT_FALSE(control.ProcessMessageFromQueue(1));  // announces this end
  ready.Send();
  ASSERT_TRUE(WaitUntil([&] { return control.IsPartyOnline(); }));
  ASSERT_EQ(SendDialogue(control, PROTOCOL_DEFAULT).size(), 17u);
  ASSERT_TRUE(WaitUntil([&] {
    control.ProcessMessageFromQueue(20);
    return control.calls.size() >= expected.size();
  }));
  EXPECT_EQ(control.calls, expected);
  done.Send();
  ChildResult r = Wait(signalling);
  EXPECT_TRUE(r.ok()) << r.Describe();
  ASSERT_TRUE(WaitUntil([&] {
    control.ProcessMessageFromQueue(1);
    return control.calls.size() > expected.size();
  }));
  EXPECT_EQ(control.calls.back(), Expect([](Notes& e) { e.Note("PartyState", false, PROTOCOL_SIP); }).back());
}

}  // namespace
