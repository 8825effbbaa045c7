// (code, body) fed to the dispatcher of every messenger. The first byte
// picks the messenger, the next four are the code (host order), the rest is
// the body. Beyond what the sanitizers catch:
// - a message with a base code, or with a body too short or a sender out of
//   range, is consumed (true) and a code above the base range is not, so
//   that a subclass may take it;
// - a malformed body is reported once and reaches no handler; a well-formed
//   one is reported nowhere and reaches exactly the handler of its code;
// - the body passed in is left as it was (decoding works on a copy);
// - the online/offline path takes any body and maps the channel id to the
//   sender kind.
// With FUZZ_SEED_DIR set the target writes its seed corpus there, one body
// per code made by the messenger's own send operations, and exits.
//
// A new messenger is one more entry in Targets(): a subclass that records
// which handler ran, and its seeds.
#include <call_messenger.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace {

using Message = std::pair<int, std::string>;

[[noreturn]] void Fail(char const* messenger, int code, char const* what) {
  std::fprintf(stderr, "%s, code %#x: %s\n", messenger, static_cast<unsigned>(code), what);
  std::abort();
}

// A borrowed link that keeps what the send operations give it; dispatching
// never touches it.
class CaptureLink : public Link {
 public:
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
  bool IsQueueEmpty() const override { return true; }
  operator bool() const override { return true; }

  std::vector<Message> sent;
};

// Records which pure handler ran (the defaulted ones do nothing) and what
// was reported.
class Call : public CallMessenger {
 public:
  explicit Call(Link* link) : CallMessenger(9, link, 32768) {}

  int OnMakeCall(CallParams const&, CallParams const&, unsigned long long const&,
                  std::list<MediaParams> const&, std::string const&, CallExtraParams const&,
                  CallAttachment const&, ProtocolType sender) override {
    return Ran(0x00, sender);
  }
  int OnRinging(unsigned long long const&, std::list<MediaParams> const&, CallExtraParams const&,
                 ProtocolType sender) override {
    return Ran(0x03, sender);
  }
  int OnAccept(unsigned long long const&, std::list<MediaParams> const&, CallExtraParams const&,
                CallAttachment const&, ProtocolType sender) override {
    return Ran(0x04, sender);
  }
  int OnDone(unsigned long long const&, std::list<MediaParams> const&, CallExtraParams const&,
              ProtocolType sender) override {
    return Ran(0x09, sender);
  }
  int OnCloseCall(unsigned long long const&, CallExtraParams const&, std::string const&,
                   ProtocolType sender) override {
    return Ran(0x01, sender);
  }
  int OnReportError(unsigned long long const&, CallErrorCode, CallExtraParams const&, std::string const&,
                     ProtocolType sender) override {
    return Ran(0x08, sender);
  }
  int OnChangeMedia(unsigned long long const&, std::list<MediaParams> const&, CallExtraParams const&,
                     ProtocolType sender) override {
    return Ran(0x05, sender);
  }
  int OnPartyStateChanged(bool, ProtocolType sender) override { return Ran(-1, sender); }
  void Error(char const*) override { ++reports; }

  bool Ran(int code, ProtocolType sender) {
    handled.push_back(code);
    this->sender = sender;
    return true;
  }

  std::vector<int> handled;
  ProtocolType sender = PROTOCOL_DEFAULT;
  int reports = 0;
};

void FeedCall(int code, std::string const& body) {
  static char const kName[] = "CallMessenger";
  CaptureLink link;
  Call call(&link);
  std::string const original = body;
  bool const consumed = call.DispatchMessage(&code, &body);
  if (body != original) Fail(kName, code, "the body was changed");
  std::uint32_t sender = 0;
  if (body.size() >= 4) std::memcpy(&sender, body.data() + body.size() - 4, 4);
  bool const malformed = body.size() < 4 || sender > 8;
  bool const base = static_cast<unsigned>(code) <= 0x10;
  if (consumed != (malformed || base)) Fail(kName, code, "consumed a code it does not own, or the reverse");
  if (call.reports != (malformed ? 1 : 0))
    Fail(kName, code, "reported a well-formed message, or not a malformed one");
  bool const pure = !malformed && (code == 0x00 || code == 0x01 || code == 0x03 || code == 0x04 ||
                                   code == 0x05 || code == 0x08 || code == 0x09);
  if (call.handled != (pure ? std::vector<int>{code} : std::vector<int>{}))
    Fail(kName, code, "the wrong handlers ran");
  if (pure && static_cast<std::uint32_t>(call.sender) != sender) Fail(kName, code, "sender");

  call.handled.clear();
  bool const changed = call.DoPartyStateChanged(code & 1, &body);
  if (changed != (body.size() >= 4)) Fail(kName, code, "party state: result");
  if (changed) {
    std::int32_t id;
    std::memcpy(&id, body.data() + body.size() - 4, 4);
    int const expected = id >= 4 && id <= 11 ? id - 3 : 0;
    if (call.handled.size() != 1 || call.sender != expected) Fail(kName, code, "party state: sender kind");
  }
}

std::vector<Message> CallSeeds() {
  CaptureLink link;
  Call call(&link);
  CallParams from, to;
  from.user = "alice";
  from.number = "1001";
  to.user = "bob";
  to.port = 2;
  MediaParams pcmu;
  pcmu.type = MediaParams::kAudio;
  pcmu.codec = "PCMU";
  pcmu.address = "192.0.2.1";
  pcmu.port = 4000;
  std::list<MediaParams> media = {pcmu};
  CallExtraParams extra{1, 2};
  CallAttachment attachment{0, 1, "x"};
  unsigned long long const id = 0x0102030405060708ULL;
  call.MakeCall(from, to, id, media, "hello", &extra, &attachment);
  call.CloseCall(id, nullptr, "bye");
  call.CallTransfer(id, to, &extra);
  call.Ringing(id, media, nullptr);
  call.Accept(id, media, &extra, nullptr);
  call.ChangeMedia(id, media, &extra);
  call.OfferMedia(id, media, &extra);
  call.AnswerMedia(id, media, &extra);
  call.ReportError(id, CALL_ERROR_BUSY, &extra, "busy");
  call.Done(id, media, &extra);
  call.CallForward(id, {from, to}, &extra);
  call.UpdateUserInfo(id, from, &extra);
  call.RequestMedia(id, from, &extra);
  call.ResponseMedia(id, media, &extra);
  call.InCallRefer(id, to, id + 1, extra);
  call.IsAcceptRefer(id, 1, extra);
  call.ReferResponse(id, REFER_ACCEPTED, extra);
  return link.sent;
}

struct Target {
  char const* name;
  void (*feed)(int code, std::string const& body);
  std::vector<Message> (*seeds)();
};

Target const kTargets[] = {
    {"CallMessenger", FeedCall, CallSeeds},
};
constexpr std::size_t kTargetCount = sizeof kTargets / sizeof kTargets[0];

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  char const* dir = std::getenv("FUZZ_SEED_DIR");
  if (!dir) return 0;
  for (std::size_t t = 0; t < kTargetCount; ++t) {
    std::vector<Message> const seeds = kTargets[t].seeds();
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
