#include "analyzer_messenger.h"

#include <gtest/gtest.h>

#include "call/family_probe.h"

namespace {

using namespace test;
using Messages = std::vector<std::pair<int, std::string>>;

CallId const kId = 0x0102030405060708ULL;
std::string const kIdBytes = N("01 02 03 04 05 06 07 08");
unsigned short const kNoReply = 0;

// Captures raw sends; hands `inbox` to the receive loops as the channel does
// (copied into the loop's own buffer).
struct LoopbackLink : CapturingLink {
  Sent inbox;
  unsigned Write(int const* code, char const* data, unsigned size) override {
    sent.emplace_back(*code, std::string(data, size));
    return size + 4;
  }
  unsigned Read(int* code, std::string* body, bool) override {
    if (inbox.empty()) return 0;
    *code = inbox.front().first;
    body->assign(inbox.front().second);
    inbox.pop_front();
    return static_cast<unsigned>(body->size()) + 4;
  }
};

// The bytes an analyser walks over when it parses a MakeCall body: ten
// counted texts with a number after each five, the call id, the kind byte.
std::string WalkMakeCall(unsigned char const* body) {
  std::size_t at = 0;
  for (int text = 0; text < 10; ++text) at += 1 + body[at] + (text % 5 == 4 ? 4 : 0);
  return std::string(reinterpret_cast<char const*>(body), at + 8 + 1);
}

// Notes what each handler can read: MakeCall by its layout, RTP data and
// filters up to the terminating zero.
struct Analyzer : AnalyzerMessenger, Notes {
  explicit Analyzer(int channel) : AnalyzerMessenger(channel, nullptr) {}
  explicit Analyzer(LoopbackLink* link = new LoopbackLink) : AnalyzerMessenger(0, link), link_(link) {}
  LoopbackLink& link() { return *link_; }
  unsigned char const* lastFilter = nullptr;
  int OnPartyStateChanged(bool online) override { return Note("PartyState", online); }
  int OnMakeCall(unsigned char const* body) override { return Note("MakeCall", WalkMakeCall(body)); }
  int OnStartRTPStream(CallId const& id, unsigned char const* data) override {
    return Note("RTP", id, std::string(reinterpret_cast<char const*>(data)));
  }
  int OnConnect(CallId const& id) override { return Note("Connect", id); }
  int OnCloseCall(CallId const& id) override { return Note("CloseCall", id); }
  int OnEndCall(CallId const& id) override { return Note("EndCall", id); }
  int OnReportError(CallId const& id, AnalyzerErrorCode code) override { return Note("ReportError", id, code); }
  int OnSipMessage(CallId const& id, char const* text, unsigned short length, char kind, char* reply,
                    unsigned short replyLength) override {
    return Note("Sip", id, std::string(text, length), kind, reply == nullptr, replyLength);
  }
  int OnStartFilter(unsigned char const* filter) override {
    lastFilter = filter;
    return Note("Filter", std::string(reinterpret_cast<char const*>(filter)));
  }
  int OnStopFilter() override { return Note("StopFilter"); }
  std::unique_ptr<LoopbackLink> link_;
};

// Sends each code once, noting in `expect` what the receiving handlers must
// see; returns the golden bodies.
Messages SendAll(AnalyzerMessenger& m, Notes& expect) {
  unsigned char const rtp[] = {1, 2, 3};
  unsigned char filter[] = {'f', 'g', 'h'};
  std::string const makeCall = B("01 61  00  02 62 63  00  01 64") + N("11 22 33 44") +
                               B("01 65  01 66  00  02 67 68  01 69") + N("55 66 77 88") + kIdBytes + B("6B");
  EXPECT_TRUE(m.MakeCall("a", 1, nullptr, 0, "bc", 2, "", 0, "d", 1, 0x11223344ul, "e", 1, "f", 1, "", 0, "gh", 2,
                         "i", 1, 0x55667788ul, kId, 'k') &&
              expect.Note("MakeCall", makeCall));
  EXPECT_TRUE(m.CloseCall(kId) && expect.Note("CloseCall", kId));
  EXPECT_TRUE(m.Connect(kId) && expect.Note("Connect", kId));
  EXPECT_TRUE(m.StartRTPStream(kId, rtp, 3) && expect.Note("RTP", kId, std::string("\1\2\3")));
  EXPECT_TRUE(m.ReportError(kId, static_cast<AnalyzerErrorCode>(9)) && expect.Note("ReportError", kId, 9));
  EXPECT_TRUE(m.SendSipMessage(kId, "AB", 2, 'x') && expect.Note("Sip", kId, std::string("AB"), 'x', true, kNoReply));
  EXPECT_TRUE(m.StartFilter(filter, 3) && expect.Note("Filter", std::string("fgh")));
  EXPECT_TRUE(m.StopFilter() && expect.Note("StopFilter"));
  EXPECT_TRUE(m.EndCall(kId) && expect.Note("EndCall", kId));
  return {{0, makeCall},
          {1, kIdBytes},
          {2, kIdBytes},
          {3, kIdBytes + B("01 02 03")},
          {4, kIdBytes + N("00 00 00 09")},
          {5, kIdBytes + N("00 02") + B("41 42") + B("78")},  // 13 bytes
          {6, B("66 67 68")},
          {7, B("00")},
          {8, kIdBytes}};
}

// MakeCall with ten 255-byte texts: the longest body a layout describes.
std::string LongestMakeCall() {
  Analyzer m;
  std::string const text(255, 'z');
  char const* t = text.data();
  m.MakeCall(t, 255, t, 255, t, 255, t, 255, t, 255, 1, t, 255, t, 255, t, 255, t, 255, t, 255, 2, kId, 'k');
  return m.link().sent.empty() ? std::string() : m.link().sent.front().second;
}

TEST(AnalyzerMessengerTest, BodiesMatchTheirGoldenLayoutAndLengthsAreSixteenBits) {
  Analyzer m;
  Notes ignored;
  Messages golden = SendAll(m, ignored);
  std::vector<unsigned char> big(65536, 0xAB);
  ASSERT_TRUE(m.StartRTPStream(kId, big.data(), 65536 - 8 + 3));  // cut to 3 bytes
  golden.emplace_back(3, kIdBytes.substr(0, 3));
  ASSERT_TRUE(m.SendSipMessage(kId, reinterpret_cast<char const*>(big.data()), 65530, 'x'));  // to 5
  golden.emplace_back(5, kIdBytes.substr(0, 5));
  EXPECT_EQ(Messages(m.link().sent.begin(), m.link().sent.end()), golden);
  EXPECT_EQ(LongestMakeCall().size(), 10u * 255 + 27);
}

// DispatchMessage trusts each layout; the loop must make every cut or forged
// body safe to walk: what lies past the received bytes reads as zeros, and
// (under AddressSanitizer) nothing past the buffer is read.
TEST(AnalyzerMessengerTest, CutAndForgedBodiesReadZerosNotPastTheBuffer) {
  Analyzer receiver, sender;
  auto& inbox = receiver.link().inbox;
  std::string const longest = LongestMakeCall();
  // The longest walk a layout allows, asked for by a body 7 bytes short.
  inbox.emplace_back(0, longest.substr(0, longest.size() - 7));
  inbox.emplace_back(5, kIdBytes + N("FF FF") + B("61 62 63"));  // text length beyond the bytes
  Notes expect;
  expect.Note("MakeCall", longest.substr(0, longest.size() - 7) + std::string(7, '\0'));
  expect.Note("Sip", kId, std::string("abc"), '\0', true, kNoReply);
  // Every message whole, then every cut of it: stale bytes of a longer body would show.
  Notes ignored;
  Messages golden = SendAll(sender, ignored);
  inbox.insert(inbox.end(), golden.begin(), golden.end());
  for (auto& message : golden) {
    for (std::size_t n = 0; n < message.second.size(); ++n) {
      inbox.emplace_back(message.first, message.second.substr(0, n));
    }
  }
  std::size_t const count = inbox.size();
  ASSERT_TRUE(receiver.ProcessMessageFromQueue(1000));
  ASSERT_EQ(receiver.calls.size(), count);
  // Once warmed up, receiving does not allocate: each message lands in the
  // buffer of the one before.
  unsigned char const* buffer = receiver.lastFilter;
  inbox = {{6, "ab"}, {6, "c"}};
  ASSERT_TRUE(receiver.ProcessMessageFromQueue(2));
  EXPECT_EQ(buffer, receiver.lastFilter);
  EXPECT_EQ(receiver.calls[0], expect.calls[0]);
  EXPECT_EQ(receiver.calls[1], expect.calls[1]);
  std::string const& makeCall = golden[0].second;
  for (std::size_t n = 0; n < makeCall.size(); ++n) {
    std::string padded = makeCall.substr(0, n) + std::string(kAnalyzerReadableBytes, '\0');
    expect.Note("MakeCall", WalkMakeCall(reinterpret_cast<unsigned char const*>(padded.data())));
    EXPECT_EQ(receiver.calls[2 + golden.size() + n], expect.calls.back()) << "cut at " << n;
  }
}

// The analyser and call control on a real channel: every code arrives with
// every field; a later version's code 9 is consumed unanswered. The analyser
// leaves as soon as it has sent: what it wrote stays readable.
TEST(AnalyzerMessengerTest, MessagesCrossProcesses) {
  constexpr int kChannel = 30;
  Notes expect, sent;
  expect.Note("PartyState", true);
  Analyzer scratch;
  SendAll(scratch, expect);
  expect.Note("PartyState", false);
  Pipe ready;
  pid_t analyser = Spawn([&]() {
    if (!ready.Receive()) return 10;
    Analyzer m(kChannel);
    m.ProcessMessageFromQueue(1);  // announces this end
    if (!m.IsPartyOnline()) return 11;
    unsigned char later[] = {1, 2};
    bool const ok = SendAll(m, sent).size() == 9 && sent.calls.size() == 9 && m.SendMessage(9, later, 2);
    return ok ? 0 : 12;
  });
  Analyzer control(kChannel);
  EXPECT_FALSE(control.ProcessMessageFromQueue(1));  // announces this end
  ready.Send();
  EXPECT_TRUE(WaitUntil([&] {
    control.ProcessMessageFromQueue(10);
    return control.calls.size() >= expect.calls.size();
  }));
  ChildResult r = Wait(analyser);
  EXPECT_TRUE(r.ok()) << r.Describe();
  EXPECT_EQ(control.calls, expect.calls);
}

}  // namespace
