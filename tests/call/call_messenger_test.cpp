// The call-control protocol: every body byte for byte, every field through
// dispatch, malformed and foreign input, a messenger without a queue, and the
// dialogue between two processes on a real channel.
#include "call_messenger.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <deque>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "messaging/messenger.h"
#include "support/golden.h"
#include "support/process.h"

namespace {

using CallId = unsigned long long;
using Media = std::list<MediaParams>;
using test::B;

// Numbers as the appliance lays them out: each space-separated token is one
// number, most significant byte first, its width given by its digits.
std::string W(char const* tokens) {
  std::istringstream in(tokens);
  std::string token, bytes;
  while (in >> token) bytes += test::N(token.c_str());
  return bytes;
}

// A text: 4-byte length, then the bytes.
std::string Text(std::string const& text) {
  char length[16];
  std::snprintf(length, sizeof length, "%08zX", text.size());
  return W(length) + text;
}

// Captures what a messenger sends instead of putting it on a channel.
class CapturingLink : public Link {
 public:
  std::deque<std::pair<int, std::string>> sent;
  bool Create() override { return true; }
  unsigned Write(int const* code, std::string const* body) override {
    sent.emplace_back(*code, *body);
    return static_cast<unsigned>(body->size()) + 4;
  }
  unsigned Read(int*, std::string*, bool) override { return 0; }
  unsigned Write(int const*, char const*, unsigned) override { return 0; }
  unsigned Read(int*, char*, unsigned, bool) override { return 0; }
  void Error(char const*) override {}
  bool ResetBuffers() override { return true; }
  bool IsPartyOnline() const override { return true; }
  bool IsQueueEmpty() const override { return sent.empty(); }
  operator bool() const override { return true; }
};

// Records every handler call as its name and the re-encoded values it got:
// two calls compare equal only if every decoded field does.
class Probe : public CallMessenger {
 public:
  // On a real channel.
  Probe(int channel, ProtocolType type) : CallMessenger(channel, nullptr, 32768) { mProtocolType = type; }
  // On a capturing link that it owns.
  Probe(ProtocolType type, CapturingLink* link) : CallMessenger(9, link, 32768), link_(link) { mProtocolType = type; }
  // As a messenger whose queue could not be allocated.
  void DropQueue() {
    delete mQueue;
    mQueue = nullptr;
  }

  std::vector<std::string> calls;
  template <typename... Fields>
  bool Note(char const* name, Fields const&... fields) {
    calls.push_back(std::string(name) + ":" + test::Hex(MakeBody(fields...)));
    return true;
  }

  using P = ProtocolType;
  using E = CallExtraParams;
  int OnMakeCall(CallParams const& a, CallParams const& b, CallId const& c, Media const& d, std::string const& e,
                  E const& f, CallAttachment const& g, P p) override {
    return Note("MakeCall", a, b, c, d, e, f, g, p);
  }
  int OnRinging(CallId const& a, Media const& b, E const& c, P p) override { return Note("Ringing", a, b, c, p); }
  int OnAccept(CallId const& a, Media const& b, E const& c, CallAttachment const& d, P p) override {
    return Note("Accept", a, b, c, d, p);
  }
  int OnDone(CallId const& a, Media const& b, E const& c, P p) override { return Note("Done", a, b, c, p); }
  int OnCloseCall(CallId const& a, E const& b, std::string const& c, P p) override {
    return Note("CloseCall", a, b, c, p);
  }
  int OnReportError(CallId const& a, CallErrorCode b, E const& c, std::string const& d, P p) override {
    return Note("ReportError", a, b, c, d, p);
  }
  int OnChangeMedia(CallId const& a, Media const& b, E const& c, P p) override {
    return Note("ChangeMedia", a, b, c, p);
  }
  int OnOfferMedia(CallId const& a, Media const& b, E const& c, P p) override {
    return Note("OfferMedia", a, b, c, p);
  }
  int OnAnswerMedia(CallId const& a, Media const& b, E const& c, P p) override {
    return Note("AnswerMedia", a, b, c, p);
  }
  int OnCallTransfer(CallId const& a, CallParams const& b, E const& c, P p) override {
    return Note("CallTransfer", a, b, c, p);
  }
  int OnCallForward(CallId const& a, std::list<CallParams> const& b, E const& c, P p) override {
    return Note("CallForward", a, b, c, p);
  }
  int OnUpdateUserInfo(CallId const& a, CallParams const& b, E const& c, P p) override {
    return Note("UpdateUserInfo", a, b, c, p);
  }
  int OnRequestMedia(CallId const& a, CallParams const& b, E const& c, P p) override {
    return Note("RequestMedia", a, b, c, p);
  }
  int OnResponseMedia(CallId const& a, Media const& b, E const& c, P p) override {
    return Note("ResponseMedia", a, b, c, p);
  }
  int OnInCallRefer(CallId const& a, CallParams const& b, CallId const& c, E const& d, P p) override {
    return Note("InCallRefer", a, b, c, d, p);
  }
  int OnIsAcceptRefer(CallId const& a, unsigned long b, E const& c, P p) override {
    return Note("IsAcceptRefer", a, b, c, p);
  }
  int OnReferResponse(CallId const& a, ReferResponseType b, P p) override { return Note("ReferResponse", a, b, p); }
  int OnPartyStateChanged(bool online, P p) override { return Note("PartyState", online, p); }

 private:
  std::unique_ptr<CapturingLink> link_;
};

// The handler calls that `notes` would record.
std::vector<std::string> Expect(std::function<void(Probe&)> const& notes) {
  Probe p(PROTOCOL_DEFAULT, new CapturingLink);
  notes(p);
  return p.calls;
}

// ---- Golden bodies, one per code, sent as an FXO line (sender kind 1).

CallParams Party() {
  CallParams p;
  p.user = "u";
  p.host = "h";
  p.port = 7;
  return p;
}
std::string const kFiveEmptyTexts = Text("") + Text("") + Text("") + Text("") + Text("");
std::string const kParty = Text("u") + Text("") + Text("") + Text("") + Text("h") + kFiveEmptyTexts + W("00000007");
std::string const kNoParty = kFiveEmptyTexts + kFiveEmptyTexts + W("00000000");

Media OneStream() {
  MediaParams m;
  m.type = MediaParams::kAudio;
  m.payloadType = 8;
  m.codec = "PCMA";
  m.clockRate = 8000;
  m.port = 4000;
  m.packetTime = 20;
  m.direction = MediaParams::kSend | MediaParams::kReceive;
  return {m};
}
std::string const kOneStream = W("00000001") +  // count
                               W("00000001 00000008") + Text("PCMA") + W("00001F40") + Text("") +
                               W("0FA0 0014 00000003");
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
       [](CallMessenger& m) { return m.MakeCall(Party(), CallParams(), 5, OneStream(), "hi", nullptr, &attachment); },
       kParty + kNoParty + kId + kOneStream + Text("hi") + kNoExtra + W("00000001 00000002") + Text("z")},
      {0x01, [](CallMessenger& m) { return m.CloseCall(5, nullptr, ""); }, kId + kNoExtra + Text("")},
      {0x02, [](CallMessenger& m) { return m.CallTransfer(5, Party(), &kExtra); }, kId + kParty + kExtraBytes},
      {0x03, [](CallMessenger& m) { return m.Ringing(5, Media{}, nullptr); }, kId + kNoStreams + kNoExtra},
      {0x04, [](CallMessenger& m) { return m.Accept(5, OneStream(), &kExtra, nullptr); },
       kId + kOneStream + kExtraBytes + kNoAttachment},
      {0x05, [](CallMessenger& m) { return m.ChangeMedia(5, OneStream(), nullptr); }, kId + kOneStream + kNoExtra},
      {0x06, [](CallMessenger& m) { return m.OfferMedia(5, Media{}, &kExtra); }, kId + kNoStreams + kExtraBytes},
      {0x07, [](CallMessenger& m) { return m.AnswerMedia(5, OneStream(), &kExtra); }, kId + kOneStream + kExtraBytes},
      {0x08, [](CallMessenger& m) { return m.ReportError(5, CALL_ERROR_BUSY, nullptr, "e"); },
       kId + W("00000001") + kNoExtra + Text("e")},
      {0x09, [](CallMessenger& m) { return m.Done(5, Media{}, nullptr); }, kId + kNoStreams + kNoExtra},
      {0x0A,
       [](CallMessenger& m) {
         return m.CallForward(5, {Party(), CallParams()}, nullptr);
       },
       kId + W("00000002") + kParty + kNoParty + kNoExtra},
      {0x0B, [](CallMessenger& m) { return m.UpdateUserInfo(5, Party(), nullptr); }, kId + kParty + kNoExtra},
      {0x0C, [](CallMessenger& m) { return m.RequestMedia(5, CallParams(), &kExtra); }, kId + kNoParty + kExtraBytes},
      {0x0D, [](CallMessenger& m) { return m.ResponseMedia(5, OneStream(), nullptr); }, kId + kOneStream + kNoExtra},
      {0x0E, [](CallMessenger& m) { return m.InCallRefer(5, Party(), 6, kExtra); },
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
    auto* link = new CapturingLink;
    Probe m(PROTOCOL_FXO, link);
    ASSERT_TRUE(row.send(m)) << row.code;
    ASSERT_EQ(link->sent.size(), 1u);
    EXPECT_EQ(link->sent[0].first, row.code);
    EXPECT_EQ(test::Hex(link->sent[0].second), test::Hex(row.body + W("00000001"))) << "code " << row.code;
  }
}

TEST(CallMessengerTest, RegisterParamsIsCallParamsThenItsFlag) {
  EXPECT_EQ(test::Hex(MakeBody(RegisterParams(Party(), true))), test::Hex(kParty + B("01")));
  std::string body = kParty + B("00") + kNoParty + B("01");
  std::list<RegisterParams> users;
  std::string counted = W("00000002") + body;
  UnpackTemplate(counted, users);
  EXPECT_EQ(users, (std::list<RegisterParams>{RegisterParams(Party()), RegisterParams(CallParams(), true)}));
  EXPECT_TRUE(counted.empty());
}

// ---- Dispatch.

// Sends every message once, with values that differ from the defaults in
// every field (texts holding zero bytes, empty and non-empty lists), and
// returns the handler calls a receiver must make (sender kind `p`).
std::vector<std::string> SendDialogue(CallMessenger& m, ProtocolType p) {
  CallParams from = Party(), to = Party();
  from.displayName = std::string("Name\0with zero", 14);
  to.user = "bob";
  to.host.clear();
  to.port = 0xA1B2C3D4;
  CallId const id = 0x0102030405060708ULL, other = 0x1112131415161718ULL;
  Media media = OneStream();
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
  return Expect([&](Probe& e) {
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
  Probe m(PROTOCOL_DEFAULT, new CapturingLink);
  int ringing = 0x03;
  std::string shortBody("\0\0\0", 3);
  testing::internal::CaptureStderr();
  EXPECT_TRUE(m.DispatchMessage(&ringing, &shortBody));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "\n\rCallMessenger: Wrong message format, sender doesn't belong to CallMessenger's hierarchy.\r\n");

  for (char const* sender : {"00000009", "FFFFFFFF"}) {
    std::string wrongSender = kId + W(sender);
    testing::internal::CaptureStderr();
    EXPECT_TRUE(m.DispatchMessage(&ringing, &wrongSender));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "\n\rCallMessenger: Wrong sender ID.\r\n");
  }
  EXPECT_TRUE(m.calls.empty());

  // Fields missing from a short body arrive at their defaults; here the
  // trailing sender kind is read as the low half of the id.
  std::string idOnly = W("00000008 00000008");
  EXPECT_TRUE(m.DispatchMessage(&ringing, &idOnly));
  EXPECT_EQ(m.calls, Expect([](Probe& e) {
              e.Note("Ringing", 0x0000000800000008ULL, Media{}, CallExtraParams{}, PROTOCOL_CMCS);
            }));

  // A body cut anywhere, even inside a record or a text, still reaches the
  // handler.
  auto* link = new CapturingLink;
  Probe sender(PROTOCOL_SIP, link);
  SendDialogue(sender, PROTOCOL_SIP);
  m.calls.clear();
  std::size_t cuts = 0;
  for (auto& message : link->sent) {
    for (std::size_t cut = 1; cut < message.second.size(); cut += 5, ++cuts) {
      std::string part = message.second.substr(0, cut) + W("00000002");
      EXPECT_TRUE(m.DispatchMessage(&message.first, &part));
    }
  }
  EXPECT_EQ(m.calls.size(), cuts);

  // A forged count stops at the bound instead of allocating without limit.
  struct Counting : Probe {
    using Probe::Probe;
    std::size_t streams = 0;
    int OnRinging(CallId const&, Media const& media, E const&, P) override { return (streams = media.size()) != 0; }
  } counting(PROTOCOL_DEFAULT, new CapturingLink);
  std::string forged = kId + W("FFFFFFFF 00000000");
  EXPECT_TRUE(counting.DispatchMessage(&ringing, &forged));
  EXPECT_EQ(counting.streams, kMaxSequenceElements);
}

TEST(CallMessengerTest, FrameRulesOutsideTheCodeTable) {
  Probe m(PROTOCOL_DEFAULT, new CapturingLink);
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
  EXPECT_EQ(m.calls, Expect([](Probe& e) {
              e.Note("PartyState", true, PROTOCOL_FXO);
              e.Note("PartyState", true, static_cast<ProtocolType>(4));
              e.Note("PartyState", true, PROTOCOL_CMCS);
              e.Note("PartyState", false, PROTOCOL_DEFAULT);
            }));

  EXPECT_NE(m.GenerateCallID(), m.GenerateCallID());
}

TEST(CallMessengerTest, WithoutAQueueEveryOperationReports) {
  Probe m(PROTOCOL_DEFAULT, new CapturingLink);
  m.DropQueue();
  std::string const line = "\n\rCallMessenger: No transport queue.\r\n";
  std::string expected;
  testing::internal::CaptureStderr();
  for (Golden const& row : GoldenBodies()) {
    EXPECT_FALSE(row.send(m)) << row.code;
    expected += line;
  }
  EXPECT_FALSE(m.ProcessMessageFromQueue(1));
  EXPECT_FALSE(m.BeginMessageLoop());
  EXPECT_FALSE(m.IsPartyOnline());
  EXPECT_FALSE(m.IsQueueEmpty());
  EXPECT_FALSE(m.ResetQueue());
  EXPECT_FALSE(static_cast<bool>(m));
  for (int i = 0; i < 6; ++i) expected += line;
  EXPECT_EQ(testing::internal::GetCapturedStderr(), expected);
}

// ---- Two processes on a real call-control channel: each side sends the
// whole dialogue and checks every field of what the other sent. Channel 5
// reports its peer as sender kind 2.

TEST(CallMessengerTest, DialogueCrossesProcesses) {
  constexpr int kChannel = 5;
  test::Pipe ready, done;
  pid_t signalling = test::Spawn([&]() {
    int go = 0;
    if (!ready.Receive(&go)) return 10;
    Probe m(kChannel, PROTOCOL_SIP);
    if (!m) return 11;
    m.ProcessMessageFromQueue(1);  // announces this end; call control is online already
    if (!m.IsPartyOnline()) return 12;
    std::vector<std::string> expected = SendDialogue(m, PROTOCOL_DEFAULT);
    if (expected.empty()) return 13;
    if (!test::WaitUntil([&] {
          m.ProcessMessageFromQueue(20);
          return m.calls.size() >= expected.size();
        }))
      return 14;
    if (m.calls != expected) return 15;
    return done.Receive(&go) ? 0 : 16;  // stay until call control has read everything
  });

  Probe control(kChannel, PROTOCOL_DEFAULT);
  ASSERT_TRUE(static_cast<bool>(control));
  EXPECT_FALSE(control.ProcessMessageFromQueue(1));  // announces this end
  ready.Send(1);
  ASSERT_TRUE(test::WaitUntil([&] { return control.IsPartyOnline(); }));
  Probe scratch(PROTOCOL_DEFAULT, new CapturingLink);
  std::vector<std::string> expected = Expect([](Probe& e) { e.Note("PartyState", true, PROTOCOL_SIP); });
  for (auto& call : SendDialogue(scratch, PROTOCOL_SIP)) expected.push_back(call);
  ASSERT_EQ(SendDialogue(control, PROTOCOL_DEFAULT).size(), 17u);

  ASSERT_TRUE(test::WaitUntil([&] {
    control.ProcessMessageFromQueue(20);
    return control.calls.size() >= expected.size();
  }));
  EXPECT_EQ(control.calls, expected);
  done.Send(1);
  test::ChildResult r = test::Wait(signalling);
  EXPECT_TRUE(r.exited && r.code == 0) << r.Describe();
  ASSERT_TRUE(test::WaitUntil([&] {
    control.ProcessMessageFromQueue(1);
    return control.calls.size() > expected.size();
  }));
  EXPECT_EQ(control.calls.back(), Expect([](Probe& e) { e.Note("PartyState", false, PROTOCOL_SIP); }).back());
}

}  // namespace
