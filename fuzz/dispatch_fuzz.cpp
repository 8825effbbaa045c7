// (code, body) fed to the dispatcher of every messenger. The first byte
// picks the messenger, the next four are the code (host order), the rest is
// the body. Every handler is overridden and re-encodes all it was given, so
// the sanitizers see each decoded value. Beyond what they catch:
// - the call-control family: a message with a code of the class or of one of
//   its bases, or with a body too short or a sender out of range, is
//   consumed (true), any other is not, so that a subclass may take it; a
//   malformed body is reported once and reaches no handler, a well-formed
//   one is reported nowhere and reaches exactly the handler of its code with
//   the body's sender; SPMGMessenger's registration bridge passes an empty
//   configuration and the confirmed user on;
// - CSIPTrunkMessenger consumes codes 0 to 2 only, each into its handler;
// - the body passed to a dispatcher is left as it was (decoding works on a
//   copy);
// - AnalyzerMessenger is fed through its receive loop, as from a channel:
//   each handler sees the received bytes with zeros behind them up to
//   kAnalyzerReadableBytes, and a SIP message's text length cut to the text
//   received;
// - an online/offline notice with the same body, through the receive loop,
//   reaches the party-state handler once (in the call-control family only
//   with a 4-byte channel id, mapped to the sender kind).
// With FUZZ_SEED_DIR set the target writes its seed corpus there, one body
// per code made by each messenger's own send operations, and exits.
//
// A new messenger is one more probe below (a subclass overriding its
// handlers, and its sends) and one more entry in kTargets.
#include <sched.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <string>
#include <utility>
#include <vector>

#include "analyzer_messenger.h"
#include "call_messenger.h"
#include "line_messengers.h"
#include "messaging/messenger.h"
#include "sip_messengers.h"
#include "sip_trunk_messenger.h"
#include "tests/support/capturing_link.h"

namespace {

using CallId = unsigned long long;
using Media = std::list<MediaParams>;
using CP = CallParams;
using CEP = CallExtraParams;
using PT = ProtocolType;

constexpr int kNone = -1;  // no handler ran; no sender passed

[[noreturn]] void Fail(char const* messenger, int code, char const* what) {
  std::fprintf(stderr, "%s, code %#x: %s\n", messenger, static_cast<unsigned>(code), what);
  std::abort();
}

// A value as it travels (codec.h and the records' own operators).
template <typename T>
std::string Encoded(T const& value) {
  std::string bytes;
  bytes << value;
  return bytes;
}

// Bytes a handler got by pointer, to be read in full.
struct Raw {
  void const* data;
  std::size_t size;
};

// What the handlers of one messenger saw for one input.
struct Tally {
  char const* name;
  std::vector<int> handled;         // codes whose handler ran, in order
  std::vector<std::string> fields;  // the last handler's arguments, each re-encoded
  int sender = kNone;               // the last ProtocolType a handler got
  int reports = 0;
  std::uint32_t sum = 0;            // every byte of every argument
  std::string element;  // one list element at a time, capacity kept

  void Reset() {
    handled.clear();
    fields.clear();
    sender = kNone;
    reports = 0;
  }
  template <typename... Fields>
  int Note(int code, Fields const&... values) {
    handled.push_back(code);
    fields.clear();
    (Keep(values), ...);
    return 0;
  }
  template <typename T>
  void Keep(T const& value) {
    Fold(Encoded(value));
  }
  // A list is kept as its count, its elements only summed. A forged count
  // makes up to 64 KB worth of copies of the last element: encoding them in one
  // piece could pass the fuzzer's allocation limit where the decoded list
  // does not, and encoding each would cost ten times the decoding. So an
  // element equal to the one before is read by the comparison alone.
  template <typename T>
  void Keep(std::list<T> const& items) {
    T const* previous = nullptr;
    for (T const& item : items) {
      if (!previous || !(item == *previous)) {
        element.clear();
        element << item;
        Sum(element);
      }
      previous = &item;
    }
    Keep(static_cast<unsigned>(items.size()));
  }
  void Keep(PT value) {
    sender = value;
    Keep<PT>(value);
  }
  void Keep(Raw const& raw) { Fold(std::string(static_cast<char const*>(raw.data), raw.size)); }
  void Fold(std::string const& bytes) {
    Sum(bytes);
    fields.push_back(bytes);
  }
  void Sum(std::string const& bytes) {
    for (char c : bytes) sum = sum * 31 + static_cast<unsigned char>(c);
  }
  void Require(bool ok, int code, char const* what) const {
    if (!ok) Fail(name, code, what);
  }
  // Exactly the handler of `code` ran (or none, kNone).
  void RequireRan(int code, int handler, char const* what) const {
    Require(handled == (handler == kNone ? std::vector<int>{} : std::vector<int>{handler}), code, what);
  }
};

// Keeps what the send operations write, the raw form (the analyser's) too,
// and serves one message to the next read, as a channel would to a loop.
class FeedLink : public test::CapturingLink {
 public:
  using CapturingLink::Read;
  using CapturingLink::Write;
  unsigned Write(int const* code, char const* data, unsigned size) override {
    sent.emplace_back(*code, std::string(data, size));
    return size + 4;
  }
  unsigned Read(int* code, std::string* body, bool) override {
    if (!pending) return 0;
    pending = false;
    *code = next.first;
    *body = next.second;
    return static_cast<unsigned>(body->size()) + 4;
  }

  bool pending = false;
  std::pair<int, std::string> next;
};

// A messenger whose queue is the FeedLink instead of its own channel.
template <typename Base>
class Probe : public Base, public Tally {
 public:
  template <typename... Args>
  explicit Probe(char const* messenger, Args... args) : Base(args...) {
    name = messenger;
    delete this->mQueue;
    this->mQueue = new CyclicMessageQueue(0, "/bin/ping", 32768, &link);
  }
  ~Probe() override {
    delete this->mQueue;  // before the link goes
    this->mQueue = nullptr;
  }

  // Passes (code, body) through the receive loop, as read from a channel.
  void Receive(int code, std::string const& body) {
    link.next = {code, body};
    link.pending = true;
    Require(this->ProcessMessageFromQueue(1) && !link.pending, code, "the loop did not take the message");
  }
  // The direct dispatcher: consumed, reported and handled as it should, the
  // body left alone.
  void Dispatch(int code, std::string const& body, bool mine, bool malformed) {
    std::string const original = body;
    bool const consumed = this->DispatchMessage(&code, &body);
    Require(body == original, code, "the body was changed");
    Require(consumed == (mine || malformed), code, "consumed a code it does not own, or the reverse");
    Require(reports == (malformed ? 1 : 0), code, "reported a well-formed message, or not a malformed one");
    RequireRan(code, mine && !malformed ? code : kNone, "the wrong handlers ran");
  }
  // An online/offline notice with this body through the loop; `ran` says
  // whether the handler must run, `expected` the sender it must get.
  void PartyState(int code, std::string const& body, bool ran, int expected) {
    Reset();
    int const notice = code & 1 ? kPeerOfflineCode : kPeerOnlineCode;
    Receive(notice, body);
    RequireRan(code, ran ? notice : kNone, "party state: handlers");
    Require(!ran || sender == expected, code, "party state: sender kind");
  }
  template <typename... Fields>
  int PartyNote(bool online, Fields const&... values) {
    return Note(online ? kPeerOnlineCode : kPeerOfflineCode, online, values...);
  }

  FeedLink link;
};

// One set of sample values for every send operation.
struct Sample {
  CP from, to;
  Media media;
  CEP extra{1, 2};
  CallAttachment attachment{0, 1, "x"};
  PackageParam package{"dialog", "application/xml", "<dialog/>"};
  AlertInfo alert{true, "urn:alert:tone"};
  CallId id = 0x0102030405060708ULL;
  std::list<std::string> items{"line 1", "line 2"};

  Sample() {
    from.user = "alice";
    from.number = "1001";
    to.user = "bob";
    to.port = 2;
    media.resize(1);
    MediaParams& pcmu = media.front();
    pcmu.type = MediaParams::kAudio;
    pcmu.codec = "PCMU";
    pcmu.port = 4000;
  }
};

Sample const& S() {
  static Sample const sample;
  return sample;
}

// The call-control family: every handler of CallMessenger, the party state
// and the error reports. `own` lists the code ranges the subclasses add.
template <typename Base>
class CallProbe : public Probe<Base> {
 public:
  using Range = std::pair<unsigned, unsigned>;
  template <typename... Args>
  CallProbe(char const* messenger, std::vector<Range> own, Args... args)
      : Probe<Base>(messenger, args...), own_(std::move(own)) {}

  void Feed(int code, std::string const& body) {
    this->Reset();
    std::int32_t const word = body.size() >= 4 ? TrailingWord(body) : kNone;
    bool const malformed = body.size() < 4 || static_cast<std::uint32_t>(word) > 8;
    this->Dispatch(code, body, Owns(static_cast<unsigned>(code)), malformed);
    this->Require(this->sender == kNone || this->sender == word, code, "sender");
    if (!malformed && !this->handled.empty()) Check(code);
    int const kind = word >= 4 && word <= 11 ? word - 3 : 0;
    this->PartyState(code, body, body.size() >= 4, kind);
  }
  void SendAll() {
    Sample const& s = S();
    this->MakeCall(s.from, s.to, s.id, s.media, "hello", &s.extra, &s.attachment);
    this->CloseCall(s.id, nullptr, "bye");
    this->CallTransfer(s.id, s.to, &s.extra);
    this->Ringing(s.id, s.media, nullptr);
    this->Accept(s.id, s.media, &s.extra, nullptr);
    this->ChangeMedia(s.id, s.media, &s.extra);
    this->OfferMedia(s.id, s.media, &s.extra);
    this->AnswerMedia(s.id, s.media, &s.extra);
    this->ReportError(s.id, CALL_ERROR_BUSY, &s.extra, "busy");
    this->Done(s.id, s.media, &s.extra);
    this->CallForward(s.id, {s.from, s.to}, &s.extra);
    this->UpdateUserInfo(s.id, s.from, &s.extra);
    this->RequestMedia(s.id, s.from, &s.extra);
    this->ResponseMedia(s.id, s.media, &s.extra);
    this->InCallRefer(s.id, s.to, s.id + 1, s.extra);
    this->IsAcceptRefer(s.id, 1, s.extra);
    this->ReferResponse(s.id, REFER_ACCEPTED, s.extra);
    SendOwn(s);
  }

  int OnMakeCall(CP const& a, CP const& b, CallId const& c, Media const& d, std::string const& e, CEP const& f,
                 CallAttachment const& g, PT p) override {
    return this->Note(0x00, a, b, c, d, e, f, g, p);
  }
  int OnCloseCall(CallId const& a, CEP const& b, std::string const& c, PT p) override {
    return this->Note(0x01, a, b, c, p);
  }
  int OnCallTransfer(CallId const& a, CP const& b, CEP const& c, PT p) override { return this->Note(0x02, a, b, c, p); }
  int OnRinging(CallId const& a, Media const& b, CEP const& c, PT p) override { return this->Note(0x03, a, b, c, p); }
  int OnAccept(CallId const& a, Media const& b, CEP const& c, CallAttachment const& d, PT p) override {
    return this->Note(0x04, a, b, c, d, p);
  }
  int OnChangeMedia(CallId const& a, Media const& b, CEP const& c, PT p) override {
    return this->Note(0x05, a, b, c, p);
  }
  int OnOfferMedia(CallId const& a, Media const& b, CEP const& c, PT p) override {
    return this->Note(0x06, a, b, c, p);
  }
  int OnAnswerMedia(CallId const& a, Media const& b, CEP const& c, PT p) override {
    return this->Note(0x07, a, b, c, p);
  }
  int OnReportError(CallId const& a, CallErrorCode b, CEP const& c, std::string const& d, PT p) override {
    return this->Note(0x08, a, b, c, d, p);
  }
  int OnDone(CallId const& a, Media const& b, CEP const& c, PT p) override { return this->Note(0x09, a, b, c, p); }
  int OnCallForward(CallId const& a, std::list<CP> const& b, CEP const& c, PT p) override {
    return this->Note(0x0A, a, b, c, p);
  }
  int OnUpdateUserInfo(CallId const& a, CP const& b, CEP const& c, PT p) override {
    return this->Note(0x0B, a, b, c, p);
  }
  int OnRequestMedia(CallId const& a, CP const& b, CEP const& c, PT p) override { return this->Note(0x0C, a, b, c, p); }
  int OnResponseMedia(CallId const& a, Media const& b, CEP const& c, PT p) override {
    return this->Note(0x0D, a, b, c, p);
  }
  int OnInCallRefer(CallId const& a, CP const& b, CallId const& c, CEP const& d, PT p) override {
    return this->Note(0x0E, a, b, c, d, p);
  }
  int OnIsAcceptRefer(CallId const& a, unsigned long b, CEP const& c, PT p) override {
    return this->Note(0x0F, a, b, c, p);
  }
  int OnReferResponse(CallId const& a, ReferResponseType b, PT p) override { return this->Note(0x10, a, b, p); }
  int OnPartyStateChanged(bool online, PT p) override { return this->PartyNote(online, p); }
  void Error(char const*) override { ++this->reports; }

 protected:
  // The sends of the subclass's own codes.
  virtual void SendOwn(Sample const&) {}
  // Further checks of a well-formed message that reached its handler.
  virtual void Check(int) {}

 private:
  bool Owns(unsigned code) const {
    if (code <= 0x10) return true;
    for (Range const& range : own_)
      if (code >= range.first && code <= range.second) return true;
    return false;
  }

  std::vector<Range> own_;
};

class Call : public CallProbe<CallMessenger> {
 public:
  Call() : CallProbe("CallMessenger", {}, 9, nullptr, 32768) {}
};

class Cas : public CallProbe<CasMessenger> {
 public:
  Cas() : CallProbe("CasMessenger", {{0x100, 0x100}, {0x200, 0x200}}, 20) {}
  int OnConfigChanged(CfgChangeType a, std::list<std::string> const& b, PT p) override { return Note(0x100, a, b, p); }
  int OnCasEventRaise(CallId const& a, std::string const& b) override { return Note(0x200, a, b); }

 protected:
  void SendOwn(Sample const& s) override {
    ConfigChanged(CFG_CHANGE_LINES, s.items);
    CasEventRaise(s.id, "seized");
  }
};

class Fxo : public CallProbe<FxoMessenger> {
 public:
  Fxo() : CallProbe("FxoMessenger", {{0x100, 0x101}}) {}
  int OnConfigChanged(CfgChangeType a, std::list<std::string> const& b, PT p) override { return Note(0x100, a, b, p); }
  int OnGenerateFlash(CallId const& a, CEP const& b, PT p) override { return Note(0x101, a, b, p); }

 protected:
  void SendOwn(Sample const& s) override {
    ConfigChanged(CFG_CHANGE_TIMERS, s.items);
    GenerateFlash(s.id, &s.extra);
  }
};

class Isdn : public CallProbe<IsdnMessenger> {
 public:
  Isdn() : CallProbe("IsdnMessenger", {{0x100, 0x100}}, 21) {}
  int OnConfigChanged(CfgChangeType a, std::list<std::string> const& b, PT p) override { return Note(0x100, a, b, p); }

 protected:
  void SendOwn(Sample const& s) override { ConfigChanged(CFG_CHANGE_ROUTES, s.items); }
};

// The additional-information pair, on CmCsMessenger and on the SIP side.
template <typename Base>
class AddInfoProbe : public CallProbe<Base> {
 public:
  using CallProbe<Base>::CallProbe;
  int OnRaiseAddInfo(CallId const& a, RaiseAddInfoType const& b, CP const& c, CP const& d, PackageParam const& e,
                     CEP const& f, PT p) override {
    return this->Note(raise_, a, b, c, d, e, f, p);
  }
  int OnAcceptRaiseAddInfo(CallId const& a, CEP const& b, PT p) override { return this->Note(raise_ + 1, a, b, p); }

 protected:
  void SendOwn(Sample const& s) override {
    this->RaiseAddInfo(s.id, ADD_INFO_NOTIFY, s.from, s.to, s.package, s.extra);
    this->AcceptRaiseAddInfo(s.id, s.extra);
  }
  int raise_ = 0x54;
};

class CmCs : public AddInfoProbe<CmCsMessenger> {
 public:
  CmCs() : AddInfoProbe("CmCsMessenger", {{0x154, 0x155}}) { raise_ = 0x154; }
};

// SipBaseMessenger's handlers; the two that SPMGMessenger bridges run its
// bridge after noting.
template <typename Base>
class SipBaseProbe : public AddInfoProbe<Base> {
 public:
  template <typename... Args>
  SipBaseProbe(char const* messenger, std::vector<std::pair<unsigned, unsigned>> own, Args... args)
      : AddInfoProbe<Base>(messenger, (own.push_back({0x50, 0x55}), own), args...) {}
  int OnRegisterUser(RegisterParams const& a, RegisterParams const& b, PT p) override {
    return this->Note(0x50, a, b, p);
  }
  int OnRegisterUsers(std::list<RegisterParams> const& a, PT p) override {
    this->Note(0x51, a, p);
    return Base::OnRegisterUsers(a, p);
  }
  int OnConfirmRegister(CP const& a, CEP const& b, bool c, PT p) override {
    this->Note(0x52, a, b, c, p);
    return Base::OnConfirmRegister(a, b, c, p);
  }
  int OnMakeReferCall(CP const& a, CP const& b, CallId const& c, Media const& d, CallId const& e,
                      std::string const& f, CEP const& g, PT p) override {
    return this->Note(0x53, a, b, c, d, e, f, g, p);
  }

 protected:
  void SendOwn(Sample const& s) override {
    AddInfoProbe<Base>::SendOwn(s);
    this->RegisterUser(RegisterParams(s.from, false), RegisterParams(s.from, true));
    this->RegisterUsers({RegisterParams(s.from, true), RegisterParams(s.to, false)});
    this->ConfirmRegister(s.from, s.extra, true);
    this->MakeReferCall(s.from, s.to, s.id, s.media, s.id + 1, "refer", s.extra);
  }
};

class SipBase : public SipBaseProbe<SipBaseMessenger> {
 public:
  SipBase() : SipBaseProbe("SipBaseMessenger", {}, 22, nullptr, 32768) {}
};

class Sip : public SipBaseProbe<SipMessenger> {
 public:
  Sip() : SipBaseProbe("SipMessenger", {{0x60, 0x63}}, nullptr, 23) {}
  int OnConfigChanged(CfgChangeType a, std::list<std::string> const& b, PT p) override { return Note(0x60, a, b, p); }
  int OnIMUserSet(std::list<CP> const& a) override { return Note(0x61, a); }
  int OnIMRequest(CallId const& a, CP const& b, CP const& c, PackageParam const& d, CEP const& e) override {
    return Note(0x62, a, b, c, d, e);
  }
  int OnIMResponse(CallId const& a, long b, CallErrorCode c, CEP const& d) override { return Note(0x63, a, b, c, d); }

 protected:
  void SendOwn(Sample const& s) override {
    SipBaseProbe::SendOwn(s);
    ConfigChanged(CFG_CHANGE_USERS, s.items);
    IMUserSet({s.from, s.to});
    IMRequest(s.id, s.from, s.to, s.package, s.extra);
    IMResponse(s.id, 200, CALL_ERROR_NONE, s.extra);
  }
};

class Spmg : public SipBaseProbe<SPMGMessenger> {
 public:
  Spmg() : SipBaseProbe("SPMGMessenger", {{0x80, 0x81}}, 24) {}
  int OnVMIndication(std::string const& a, unsigned long b, unsigned long c, PT p) override {
    return Note(0x80, a, b, c, p);
  }
  int OnMakeAlertCall(CP const& a, CP const& b, CallId const& c, Media const& d, AlertInfo const& e, CEP const& f,
                      PT p) override {
    return Note(0x81, a, b, c, d, e, f, p);
  }
  // The bridge: a configuration that is always empty, and the user and flag
  // of the confirmation (fields 0 and 2 of what OnConfirmRegister noted).
  int OnSetConfiguration(std::list<CP> const& users, PT p) override {
    bridged_ = users.empty() && p == sender;
    return 0;
  }
  int OnUserActivated(CP const& user, bool activated, PT p) override {
    bridged_ = fields.size() == 4 && fields[0] == Encoded(user) && fields[2] == Encoded(activated) && p == sender;
    return 0;
  }

 protected:
  void SendOwn(Sample const& s) override {
    SipBaseProbe::SendOwn(s);
    VMIndication("alice", 2, 5);
    MakeAlertCall(s.from, s.to, s.id, s.media, s.alert, s.extra);
    SetConfiguration({s.from, s.to});
    ConfigurationChanged(s.from, s.to);
  }
  void Check(int code) override {
    Require(bridged_ == (code == 0x51 || code == 0x52), code, "registration bridge");
    bridged_ = false;
  }

 private:
  bool bridged_ = false;
};

class Trunk : public Probe<CSIPTrunkMessenger> {
 public:
  Trunk() : Probe("CSIPTrunkMessenger") {}

  void Feed(int code, std::string const& body) {
    Reset();
    Dispatch(code, body, static_cast<unsigned>(code) <= 2, false);
    PartyState(code, body, true, kNone);
  }
  void SendAll() {
    Sample const& s = S();
    SetUsersList({s.from, s.to}, true, false);
    ChangeUserParams(s.from, s.to, true);
    ConfirmUserState(s.from, true, 7, false);
  }

  int OnSetUsersList(std::list<CP> const& a, bool b, bool c) override { return Note(0, a, b, c); }
  int OnChangeUserParams(CP const& a, CP const& b, bool c) override { return Note(1, a, b, c); }
  int OnConfirmUserState(CP const& a, bool b, unsigned long c, bool d) override { return Note(2, a, b, c, d); }
  int OnPartyStateChanged(bool const& online) override { return PartyNote(online); }
};

// Its handlers note what they can read: a call id, a number, and whatever a
// pointer reaches, up to kAnalyzerReadableBytes from the body's start.
class Analyzer : public Probe<AnalyzerMessenger> {
 public:
  Analyzer() : Probe("AnalyzerMessenger", 25, nullptr) {}

  void Feed(int code, std::string const& body) {
    if (IsPartyStateCode(code)) return;  // the loop routes those elsewhere
    Reset();
    Receive(code, body);
    // The body as the loop must lay it out.
    std::string wire = body;
    wire.resize(std::max<std::size_t>(body.size() + 1, kAnalyzerReadableBytes));
    std::string const all = wire.substr(0, kAnalyzerReadableBytes), id = wire.substr(0, 8);
    std::vector<std::string> expected;
    switch (static_cast<unsigned>(code)) {
      case 0:
      case 6:
        expected = {all};
        break;
      case 1:
      case 2:
      case 8:
        expected = {id};
        break;
      case 3:
        expected = {id, all.substr(8)};
        break;
      case 4:
        expected = {id, wire.substr(8, 4)};
        break;
      case 5: {
        unsigned short length;
        std::memcpy(&length, &wire[8], 2);
        length = static_cast<unsigned short>(std::min<std::size_t>(length, body.size() > 10 ? body.size() - 10 : 0));
        expected = {id, wire.substr(10, length), Encoded(length), wire.substr(10 + length, 1)};
        break;
      }
    }
    RequireRan(code, static_cast<unsigned>(code) <= 8 ? code : kNone, "the wrong handlers ran");
    Require(fields == expected, code, "a handler saw other bytes than received, or not zeros behind them");
    PartyState(code, body, true, kNone);
  }
  void SendAll() {
    Sample const& s = S();
    MakeCall("alice", 5, "1001", 4, nullptr, 0, "bob", 3, "", 0, 7, "x", 1, nullptr, 0, "host", 4, "tag", 3,
             "line", 4, 9, s.id, 'a');
    CloseCall(s.id);
    Connect(s.id);
    unsigned char rtp[16] = {0x80, 0, 0, 1};
    StartRTPStream(s.id, rtp, sizeof rtp);
    ReportError(s.id, ANALYZER_ERROR_NO_STREAM);
    SendSipMessage(s.id, "INVITE sip:bob", 14, 'r');
    unsigned char filter[] = "udp port 5060";
    StartFilter(filter, sizeof filter - 1);
    StopFilter();
    EndCall(s.id);
  }

  int OnMakeCall(unsigned char const* body) override { return Note(0, Whole(body)); }
  int OnStartRTPStream(CallId const& a, unsigned char const* data) override {
    return Note(3, a, Raw{data, kAnalyzerReadableBytes - 8});
  }
  int OnConnect(CallId const& a) override { return Note(2, a); }
  int OnCloseCall(CallId const& a) override { return Note(1, a); }
  int OnEndCall(CallId const& a) override { return Note(8, a); }
  int OnReportError(CallId const& a, AnalyzerErrorCode b) override { return Note(4, a, b); }
  int OnSipMessage(CallId const& a, char const* text, unsigned short length, char kind, char* reply,
                   unsigned short replyLength) override {
    Require(!reply && replyLength == 0, 5, "a reply buffer was passed");
    return Note(5, a, Raw{text, length}, length, kind);
  }
  int OnStartFilter(unsigned char const* filter) override { return Note(6, Whole(filter)); }
  int OnStopFilter() override { return Note(7); }
  int OnPartyStateChanged(bool online) override { return PartyNote(online); }

 private:
  static Raw Whole(unsigned char const* body) { return Raw{body, kAnalyzerReadableBytes}; }
};

// One probe of each kind, made at first use: the constructors of most
// messengers build a channel of their own before the probe swaps it out.
template <typename P>
P& Instance() {
  static P probe;
  return probe;
}
template <typename P>
void Feed(int code, std::string const& body) {
  Instance<P>().Feed(code, body);
}
template <typename P>
test::Sent Seeds() {
  P& probe = Instance<P>();
  probe.link.sent.clear();
  probe.SendAll();
  return std::move(probe.link.sent);
}

struct Target {
  void (*feed)(int code, std::string const& body);
  test::Sent (*seeds)();
};

Target const kTargets[] = {
    {Feed<Call>, Seeds<Call>},   {Feed<Cas>, Seeds<Cas>},         {Feed<Fxo>, Seeds<Fxo>},
    {Feed<Isdn>, Seeds<Isdn>},   {Feed<CmCs>, Seeds<CmCs>},       {Feed<SipBase>, Seeds<SipBase>},
    {Feed<Sip>, Seeds<Sip>},     {Feed<Spmg>, Seeds<Spmg>},       {Feed<Trunk>, Seeds<Trunk>},
    {Feed<Analyzer>, Seeds<Analyzer>},
};
constexpr std::size_t kTargetCount = sizeof kTargets / sizeof kTargets[0];

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // The messengers' own channels, built and dropped at construction, stay
  // out of the host's IPC namespace (run.sh starts the fuzzing run in a
  // private one, but not the seed run).
  unshare(CLONE_NEWIPC);
  char const* dir = std::getenv("FUZZ_SEED_DIR");
  if (!dir) return 0;
  for (std::size_t t = 0; t < kTargetCount; ++t) {
    auto const seeds = kTargets[t].seeds();
    for (std::size_t k = 0; k < seeds.size(); ++k) {
      std::string path = std::string(dir) + "/" + std::to_string(t) + "-" + std::to_string(k);
      std::FILE* file = std::fopen(path.c_str(), "wb");
      if (!file) return 1;
      std::fputc(static_cast<int>(t), file);
      std::fwrite(&seeds[k].first, 1, 4, file);
      std::fwrite(seeds[k].second.data(), 1, seeds[k].second.size(), file);
      std::fclose(file);
    }
  }
  std::exit(0);
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  if (size < 5) return 0;
  int code;
  std::memcpy(&code, data + 1, 4);
  kTargets[data[0] % kTargetCount].feed(code, std::string(reinterpret_cast<char const*>(data) + 5, size - 5));
  return 0;
}
