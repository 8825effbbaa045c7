#include "call_messenger.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <deque>
#include <memory>
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
using test::N;

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
  explicit Probe(int channel) : CallMessenger(channel, nullptr, 32768) {}
  // On a capturing link that it owns, sending as `type`.
  Probe(ProtocolType type, CapturingLink* link) : CallMessenger(9, link, 32768), link_(link) {
    mProtocolType = type;
  }
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

  bool OnMakeCall(CallParams const& a, CallParams const& b, CallId const& c, Media const& d, std::string const& e,
                  CallExtraParams const& f, CallAttachment const& g, ProtocolType p) override {
    return Note("MakeCall", a, b, c, d, e, f, g, p);
  }
  bool OnRinging(CallId const& a, Media const& b, CallExtraParams const& c, ProtocolType p) override {
    return Note("Ringing", a, b, c, p);
  }
  bool OnAccept(CallId const& a, Media const& b, CallExtraParams const& c, CallAttachment const& d,
                ProtocolType p) override {
    return Note("Accept", a, b, c, d, p);
  }
  bool OnDone(CallId const& a, Media const& b, CallExtraParams const& c, ProtocolType p) override {
    return Note("Done", a, b, c, p);
  }
  bool OnCloseCall(CallId const& a, CallExtraParams const& b, std::string const& c, ProtocolType p) override {
    return Note("CloseCall", a, b, c, p);
  }
  bool OnReportError(CallId const& a, CallErrorCode b, CallExtraParams const& c, std::string const& d,
                     ProtocolType p) override {
    return Note("ReportError", a, b, c, d, p);
  }
  bool OnChangeMedia(CallId const& a, Media const& b, CallExtraParams const& c, ProtocolType p) override {
    return Note("ChangeMedia", a, b, c, p);
  }
  bool OnOfferMedia(CallId const& a, Media const& b, CallExtraParams const& c, ProtocolType p) override {
    return Note("OfferMedia", a, b, c, p);
  }
  bool OnAnswerMedia(CallId const& a, Media const& b, CallExtraParams const& c, ProtocolType p) override {
    return Note("AnswerMedia", a, b, c, p);
  }
  bool OnCallTransfer(CallId const& a, CallParams const& b, CallExtraParams const& c, ProtocolType p) override {
    return Note("CallTransfer", a, b, c, p);
  }
  bool OnCallForward(CallId const& a, std::list<CallParams> const& b, CallExtraParams const& c,
                     ProtocolType p) override {
    return Note("CallForward", a, b, c, p);
  }
  bool OnUpdateUserInfo(CallId const& a, CallParams const& b, CallExtraParams const& c, ProtocolType p) override {
    return Note("UpdateUserInfo", a, b, c, p);
  }
  bool OnRequestMedia(CallId const& a, CallParams const& b, CallExtraParams const& c, ProtocolType p) override {
    return Note("RequestMedia", a, b, c, p);
  }
  bool OnResponseMedia(CallId const& a, Media const& b, CallExtraParams const& c, ProtocolType p) override {
    return Note("ResponseMedia", a, b, c, p);
  }
  bool OnInCallRefer(CallId const& a, CallParams const& b, CallId const& c, CallExtraParams const& d,
                     ProtocolType p) override {
    return Note("InCallRefer", a, b, c, d, p);
  }
  bool OnIsAcceptRefer(CallId const& a, unsigned long b, CallExtraParams const& c, ProtocolType p) override {
    return Note("IsAcceptRefer", a, b, c, p);
  }
  bool OnReferResponse(CallId const& a, ReferResponseType b, ProtocolType p) override {
    return Note("ReferResponse", a, b, p);
  }
  bool OnPartyStateChanged(bool online, ProtocolType p) override { return Note("PartyState", online, p); }

 private:
  std::unique_ptr<CapturingLink> link_;
};

CallParams Party(char const* user, char const* host) {
  CallParams p;
  p.user = user;
  p.host = host;
  p.displayName = std::string("Name\0with zero", 14);
  p.port = 0xA1B2C3D4;
  return p;
}

Media TwoStreams() {
  MediaParams audio;
  audio.type = MediaParams::kAudio;
  audio.codec = "PCMA";
  audio.address = "10.0.0.7";
  audio.port = 40000;
  MediaParams video = audio;
  video.type = MediaParams::kVideo;
  video.port = 40002;
  return {audio, video};
}

// Sends every message of the protocol once, with values that differ from
// the defaults in every field, and returns what the receiving handlers must
// see (sender kind `p`).
std::vector<std::string> SendDialogue(CallMessenger& m, ProtocolType p) {
  Probe expect(p, new CapturingLink);  // only its Note() is used
  CallParams from = Party("alice", "a.example"), to = Party("bob", "");
  CallId const id = 0x0102030405060708ULL, other = 0x1112131415161718ULL;
  Media const media = TwoStreams();
  CallExtraParams extra{7, 0xFFFFFFFF};
  CallAttachment attachment{3, 4, std::string("x\0y", 3)};
  std::list<CallParams> targets{from, to};
  std::string const text("text\0with zero", 14);
  CallExtraParams const none{};
  CallAttachment const noAttachment{};

  EXPECT_TRUE(m.MakeCall(from, to, id, media, text, &extra, &attachment));
  expect.Note("MakeCall", from, to, id, media, text, extra, attachment, p);
  EXPECT_TRUE(m.Ringing(id, media, nullptr));
  expect.Note("Ringing", id, media, none, p);
  EXPECT_TRUE(m.Accept(id, Media{}, &extra, nullptr));
  expect.Note("Accept", id, Media{}, extra, noAttachment, p);
  EXPECT_TRUE(m.ChangeMedia(id, media, &extra));
  expect.Note("ChangeMedia", id, media, extra, p);
  EXPECT_TRUE(m.OfferMedia(id, media, &extra));
  expect.Note("OfferMedia", id, media, extra, p);
  EXPECT_TRUE(m.AnswerMedia(id, media, nullptr));
  expect.Note("AnswerMedia", id, media, none, p);
  EXPECT_TRUE(m.ResponseMedia(id, media, &extra));
  expect.Note("ResponseMedia", id, media, extra, p);
  EXPECT_TRUE(m.CallTransfer(id, to, &extra));
  expect.Note("CallTransfer", id, to, extra, p);
  EXPECT_TRUE(m.CallForward(id, targets, nullptr));
  expect.Note("CallForward", id, targets, none, p);
  EXPECT_TRUE(m.UpdateUserInfo(id, from, &extra));
  expect.Note("UpdateUserInfo", id, from, extra, p);
  EXPECT_TRUE(m.RequestMedia(id, to, &extra));
  expect.Note("RequestMedia", id, to, extra, p);
  EXPECT_TRUE(m.InCallRefer(id, to, other, extra));
  expect.Note("InCallRefer", id, to, other, extra, p);
  EXPECT_TRUE(m.IsAcceptRefer(id, 0x89ABCDEFul, extra));
  expect.Note("IsAcceptRefer", id, 0x89ABCDEFul, extra, p);
  EXPECT_TRUE(m.ReferResponse(id, REFER_FAILED, extra));
  expect.Note("ReferResponse", id, REFER_FAILED, p);
  EXPECT_TRUE(m.ReportError(id, CALL_ERROR_BUSY, &extra, ""));
  expect.Note("ReportError", id, CALL_ERROR_BUSY, extra, std::string(), p);
  EXPECT_TRUE(m.Done(id, media, &extra));
  expect.Note("Done", id, media, extra, p);
  EXPECT_TRUE(m.CloseCall(id, nullptr, text));
  expect.Note("CloseCall", id, none, text, p);
  return expect.calls;
}

TEST(CallMessengerTest, EveryMessageArrivesWithEveryField) {
  auto* link = new CapturingLink;
  Probe sender(PROTOCOL_SIP, link), receiver(PROTOCOL_DEFAULT, new CapturingLink);
  std::vector<std::string> expected = SendDialogue(sender, PROTOCOL_SIP);
  ASSERT_EQ(link->sent.size(), 17u);
  for (auto& message : link->sent) EXPECT_TRUE(receiver.DispatchMessage(&message.first, &message.second));
  EXPECT_EQ(receiver.calls, expected);
}

TEST(CallMessengerTest, BodiesMatchTheirGoldenLayout) {
  auto* link = new CapturingLink;
  Probe m(PROTOCOL_FXO, link);
  ASSERT_TRUE(m.CloseCall(5, nullptr, ""));
  ASSERT_TRUE(m.ReferResponse(5, REFER_REJECTED, CallExtraParams{1, 2}));
  ASSERT_TRUE(m.Accept(5, Media{}, nullptr, nullptr));
  ASSERT_EQ(link->sent.size(), 3u);
  EXPECT_EQ(link->sent[0].first, 0x01);
  EXPECT_EQ(test::Hex(link->sent[0].second), test::Hex(N("00 00 00 00 00 00 00 05") +  // call id
                                                       N("00 00 00 00") + N("00 00 00 00") +  // extra: 0, 0
                                                       N("00 00 00 00") +              // empty text
                                                       N("00 00 00 01")));             // sender: FXO
  EXPECT_EQ(link->sent[1].first, 0x10);
  EXPECT_EQ(test::Hex(link->sent[1].second),
            test::Hex(N("00 00 00 00 00 00 00 05") + N("00 00 00 01") + N("00 00 00 01") + N("00 00 00 02") +
                      N("00 00 00 01")));
  EXPECT_EQ(link->sent[2].first, 0x04);
  EXPECT_EQ(test::Hex(link->sent[2].second),
            test::Hex(N("00 00 00 00 00 00 00 05") + N("00 00 00 00") +  // empty media list
                      N("00 00 00 00") + N("00 00 00 00") +              // extra: 0, 0
                      B("FF FF FF FF FF FF FF FF") + N("00 00 00 00") +  // attachment: -1, -1, ""
                      N("00 00 00 01")));
}

TEST(CallMessengerTest, MalformedBodiesAreConsumedWithTheirReport) {
  Probe m(PROTOCOL_DEFAULT, new CapturingLink);
  int ringing = 0x03;
  std::string shortBody("\0\0\0", 3);
  testing::internal::CaptureStderr();
  EXPECT_TRUE(m.DispatchMessage(&ringing, &shortBody));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "\n\rCallMessenger: Wrong message format, sender doesn't belong to CallMessenger's hierarchy.\r\n");

  for (char const* sender : {"00 00 00 09", "FF FF FF FF"}) {
    std::string wrongSender = N("00 00 00 00 00 00 00 05") + N(sender);
    testing::internal::CaptureStderr();
    EXPECT_TRUE(m.DispatchMessage(&ringing, &wrongSender));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "\n\rCallMessenger: Wrong sender ID.\r\n");
  }
  EXPECT_TRUE(m.calls.empty());

  // A body cut anywhere still reaches the handler, the missing fields at
  // their defaults.
  auto* link = new CapturingLink;
  Probe sender(PROTOCOL_SIP, link);
  SendDialogue(sender, PROTOCOL_SIP);
  std::string full = link->sent.front().second;
  int makeCall = 0x00;
  for (std::size_t cut = 4; cut < full.size(); cut += 7) {
    std::string part = full.substr(0, cut) + N("00 00 00 02");
    EXPECT_TRUE(m.DispatchMessage(&makeCall, &part));
  }
  EXPECT_EQ(m.calls.size(), (full.size() - 4 + 6) / 7);
}

TEST(CallMessengerTest, ForgedListCountStopsAtTheBound) {
  struct Counting : Probe {
    using Probe::Probe;
    std::size_t streams = 0;
    bool OnRinging(CallId const&, Media const& media, CallExtraParams const&, ProtocolType) override {
      streams = media.size();
      return true;
    }
  } m(PROTOCOL_DEFAULT, new CapturingLink);
  int ringing = 0x03;
  std::string forged = N("00 00 00 00 00 00 00 05") + N("FF FF FF FF") + N("00 00 00 00");
  EXPECT_TRUE(m.DispatchMessage(&ringing, &forged));
  EXPECT_EQ(m.streams, kMaxSequenceElements);
}

TEST(CallMessengerTest, FrameRulesOutsideTheCodeTable) {
  Probe m(PROTOCOL_DEFAULT, new CapturingLink);
  int subclassCode = 0x11, negative = -5;
  std::string body = N("00 00 00 00");
  EXPECT_FALSE(m.DispatchMessage(&subclassCode, &body));
  EXPECT_FALSE(m.DispatchMessage(&negative, &body));
  EXPECT_FALSE(m.ProcessMessageFromQueue(0));

  std::string channel7 = N("00 00 00 07"), channel12 = N("00 00 00 0C"), shortBody("ab");
  EXPECT_TRUE(m.DoPartyStateChanged(true, &channel7));
  EXPECT_TRUE(m.DoPartyStateChanged(false, &channel12));
  EXPECT_FALSE(m.DoPartyStateChanged(true, &shortBody));
  Probe expect(PROTOCOL_DEFAULT, new CapturingLink);
  expect.Note("PartyState", true, PROTOCOL_ISDN);
  expect.Note("PartyState", false, PROTOCOL_DEFAULT);
  EXPECT_EQ(m.calls, expect.calls);

  EXPECT_NE(m.GenerateCallID(), m.GenerateCallID());

  m.DropQueue();
  testing::internal::CaptureStderr();
  EXPECT_FALSE(m.Ringing(1, Media{}, nullptr));
  EXPECT_FALSE(m.ProcessMessageFromQueue(1));
  EXPECT_FALSE(m.BeginMessageLoop());
  EXPECT_FALSE(m.IsPartyOnline());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "\n\rCallMessenger: No transport queue.\r\n"
                                                    "\n\rCallMessenger: No transport queue.\r\n"
                                                    "\n\rCallMessenger: No transport queue.\r\n"
                                                    "\n\rCallMessenger: No transport queue.\r\n");
}

// Call control and a SIP signalling process on a real channel: the whole
// dialogue crosses, then the signalling side leaves and call control sees
// it go offline.
TEST(CallMessengerTest, DialogueCrossesProcesses) {
  constexpr int kChannel = 5;  // a call-control channel: sender kind 2
  test::Pipe ready, done;
  pid_t signalling = test::Spawn([&]() {
    int go = 0;
    if (!ready.Receive(&go)) return 10;
    Probe m(kChannel);
    if (!m) return 11;
    // The first send announces this end; call control is online already.
    m.ProcessMessageFromQueue(1);
    if (!m.IsPartyOnline()) return 12;
    CallMessenger& base = m;
    std::vector<std::string> expected = SendDialogue(base, PROTOCOL_DEFAULT);
    if (expected.size() != 17) return 13;
    return done.Receive(&go) ? 0 : 14;  // stay until call control has read everything
  });

  Probe control(kChannel);
  ASSERT_TRUE(static_cast<bool>(control));
  EXPECT_FALSE(control.ProcessMessageFromQueue(1));  // announces this end
  ready.Send(1);
  Probe expect(PROTOCOL_DEFAULT, new CapturingLink);
  expect.Note("PartyState", true, PROTOCOL_SIP);
  {
    Probe scratch(PROTOCOL_DEFAULT, new CapturingLink);
    for (auto& call : SendDialogue(scratch, PROTOCOL_DEFAULT)) expect.calls.push_back(call);
  }
  ASSERT_TRUE(test::WaitUntil([&] {
    control.ProcessMessageFromQueue(20);
    return control.calls.size() >= expect.calls.size();
  }));
  EXPECT_EQ(control.calls, expect.calls);
  done.Send(1);
  test::ChildResult r = test::Wait(signalling);
  EXPECT_TRUE(r.exited && r.code == 0) << r.Describe();
  ASSERT_TRUE(test::WaitUntil([&] {
    control.ProcessMessageFromQueue(1);
    return control.calls.size() > expect.calls.size();
  }));
  EXPECT_EQ(control.calls.back(), [] {
    Probe p(PROTOCOL_DEFAULT, new CapturingLink);
    p.Note("PartyState", false, PROTOCOL_SIP);
    return p.calls.back();
  }());
}

}  // namespace
