// The messenger layer over the same channel: MakeCall one way, Ringing
// answered by Accept for the round trip, with the records a SIP call set-up
// carries. Bodies are brought to the case's exact size the way real ones
// grow: MakeCall by its free text (an SDP-sized blob), Ringing by more media
// lines, Accept by its attachment.
//
// The receive loop is BeginMessageLoop's, one message at a time (the library
// loop returns only when reading fails, and a case must end): GetMessage into
// a reused string, then DoPartyStateChanged or DispatchMessage. Dispatch is
// wrapped to check each body's code and exact length before the library
// decodes it; the handlers check the sequence stamps (call id, extra context,
// the text's tail).
#include <sched.h>
#include <unistd.h>

#include <cstring>
#include <list>
#include <memory>
#include <string>

#include "bench.h"
#include "call_fixtures.h"
#include "call_messenger.h"

namespace bench {

namespace {

constexpr int kMessengerChannelId = 43;
constexpr unsigned kMessengerSize = 32768;
constexpr unsigned long long kCallBase = 0x00C0FFEE00000000ull;
constexpr int kMakeCallCode = 0x00, kCloseCallCode = 0x01, kRingingCode = 0x03, kAcceptCode = 0x04,
              kDoneCode = 0x09;
constexpr int kOnlineCode = static_cast<int>(0x80000000u);
constexpr int kOfflineCode = static_cast<int>(0x80000001u);

// What a call set-up between a SIP extension and a trunk carries.
struct Fixtures {
  CallParams from = Caller();
  CallParams to = Callee();
  std::list<MediaParams> answer = AnswerMedia();
  std::list<MediaParams> offer;  // Ringing: grown to the case's size
  std::string text;              // MakeCall: grown to the case's size
  CallAttachment attachment;     // Accept: grown to the case's size
  CallExtraParams extra;
  unsigned makeCallBase = 0, ringingBase = 0, acceptBase = 0;  // sizes with nothing grown

  Fixtures() {
    extra.flags = 1;
    attachment.kind = 2;
    attachment.reference = 7;
    std::string body;
    body << from << to << kCallBase;
    PackTemplate(body, answer);
    body << std::string() << extra << attachment << PROTOCOL_DEFAULT;
    makeCallBase = static_cast<unsigned>(body.size());
    ringingBase = 8 + 4 + 8 + 4;  // call id, media count, extra, sender
    body.clear();
    body << kCallBase;
    PackTemplate(body, answer);
    body << extra << attachment << PROTOCOL_DEFAULT;
    acceptBase = static_cast<unsigned>(body.size());
  }

  // Each grown part gets the sequence stamp in its last 4 bytes.
  bool Grow(unsigned size) {
    if (size >= makeCallBase + 4) text = SdpText(size - makeCallBase);
    offer.clear();
    unsigned used = ringingBase;
    for (unsigned i = 0;; ++i) {
      MediaParams const line = OfferLine(i);
      unsigned const cost = 28 + static_cast<unsigned>(line.codec.size() + line.address.size());
      if (used + cost > size) break;
      offer.push_back(line);
      used += cost;
    }
    if (offer.size() >= 2) offer.back().codec.append(size - used, ';');
    if (size >= acceptBase + 4) attachment.data.assign(size - acceptBase, '#');
    return true;
  }
};

void Stamp(std::string& s, std::uint32_t seq) { std::memcpy(&s[s.size() - 4], &seq, 4); }
bool Stamped(std::string const& s, std::uint32_t seq) {
  std::uint32_t got;
  if (s.size() < 4) return false;
  std::memcpy(&got, s.data() + s.size() - 4, 4);
  return got == seq;
}

class BenchMessenger : public CallMessenger {
 public:
  BenchMessenger(Fixtures& f, unsigned size, RoleResult* r)
      : CallMessenger(kMessengerChannelId, nullptr, kMessengerSize), f_(f), size_(size), r_(r) {
    body_.reserve(size + 64);
  }
  CyclicMessageQueue* queue() { return mQueue; }

  // One turn of the message loop: false when reading failed.
  bool Pump() {
    if (!mQueue || mQueue->GetMessage(&code_, &body_) == 0) {
      Fail(r_, "GetMessage failed: %s", CyclicMessageQueue::GetLastError().c_str());
      return false;
    }
    if (code_ == kOnlineCode || code_ == kOfflineCode) {
      ++r_->notices;
      DoPartyStateChanged(code_ == kOnlineCode, &body_);
    } else {
      DispatchMessage(&code_, &body_);
    }
    return r_->ok != 0;
  }

  bool DispatchMessage(int const* code, std::string const* body) override {
    bool const sized = *code == kMakeCallCode || *code == kRingingCode || *code == kAcceptCode;
    if (sized && body->size() != size_) {
      Fail(r_, "code %#x: body of %zu bytes, expected %u", static_cast<unsigned>(*code), body->size(), size_);
      return true;
    }
    if (*code != expectCode_ && *code != kCloseCallCode && *code != kDoneCode) {
      Fail(r_, "code %#x, expected %#x", static_cast<unsigned>(*code), static_cast<unsigned>(expectCode_));
      return true;
    }
    return CallMessenger::DispatchMessage(code, body);
  }

  // A send that found the ring full is retried after a yield, like the
  // channel's writer.
  template <typename SendOnce>
  bool Retry(SendOnce send) {
    if (send()) return true;
    double const give_up = Now() + 5;
    do {
      ++r_->retries;
      sched_yield();
      if (send()) return true;
    } while ((r_->retries & 1023) != 0 || Now() < give_up);
    Fail(r_, "send still refused after retrying for seconds: %s", CyclicMessageQueue::GetLastError().c_str());
    return false;
  }

  bool SendMakeCall(std::uint64_t seq) {
    f_.extra.context = static_cast<unsigned long>(seq);
    Stamp(f_.text, static_cast<std::uint32_t>(seq));
    unsigned long long const id = kCallBase + seq;
    return Retry([&] { return MakeCall(f_.from, f_.to, id, f_.answer, f_.text, &f_.extra, nullptr); });
  }
  bool SendRinging(std::uint64_t seq) {
    f_.extra.context = static_cast<unsigned long>(seq);
    unsigned long long const id = kCallBase + seq;
    return Retry([&] { return Ringing(id, f_.offer, &f_.extra); });
  }
  bool SendAccept(std::uint64_t seq) {
    f_.extra.context = static_cast<unsigned long>(seq);
    Stamp(f_.attachment.data, static_cast<std::uint32_t>(seq));
    unsigned long long const id = kCallBase + seq;
    return Retry([&] { return Accept(id, f_.answer, &f_.extra, &f_.attachment); });
  }
  bool SendClose(std::uint64_t seq) {
    unsigned long long const id = kCallBase + seq;
    return Retry([&] { return CloseCall(id, nullptr, std::string()); });
  }
  bool SendDone(std::uint64_t seq) {
    unsigned long long const id = kCallBase + seq;
    return Retry([&] { return Done(id, f_.answer, nullptr); });
  }

  int OnMakeCall(CallParams const& from, CallParams const& to, unsigned long long const& callId,
                  std::list<MediaParams> const& media, std::string const& text, CallExtraParams const& extra,
                  CallAttachment const& attachment, ProtocolType) override {
    if (callId != kCallBase + seq_ || extra.context != static_cast<unsigned long>(seq_) ||
        text.size() != f_.text.size() || !Stamped(text, static_cast<std::uint32_t>(seq_)) ||
        from.contact != f_.from.contact || to.user != f_.to.user || media.size() != f_.answer.size() ||
        attachment.kind != -1) {
      Fail(r_, "MakeCall %llu arrived with other values", static_cast<unsigned long long>(seq_));
      return false;
    }
    ++seq_;
    return true;
  }
  int OnRinging(unsigned long long const& callId, std::list<MediaParams> const& media,
                 CallExtraParams const& extra, ProtocolType) override {
    if (callId != kCallBase + seq_ || extra.context != static_cast<unsigned long>(seq_) ||
        media.size() != f_.offer.size() || media.back().codec != f_.offer.back().codec) {
      Fail(r_, "Ringing %llu arrived with other values", static_cast<unsigned long long>(seq_));
      return false;
    }
    ++seq_;
    return true;
  }
  int OnAccept(unsigned long long const& callId, std::list<MediaParams> const& media,
                CallExtraParams const& extra, CallAttachment const& attachment, ProtocolType) override {
    if (callId != kCallBase + seq_ || extra.context != static_cast<unsigned long>(seq_) ||
        media.size() != f_.answer.size() || attachment.data.size() != f_.attachment.data.size() ||
        !Stamped(attachment.data, static_cast<std::uint32_t>(seq_))) {
      Fail(r_, "Accept %llu arrived with other values", static_cast<unsigned long long>(seq_));
      return false;
    }
    ++seq_;
    return true;
  }
  int OnDone(unsigned long long const& callId, std::list<MediaParams> const&, CallExtraParams const&,
              ProtocolType) override {
    done_ = callId;
    ++dones_;
    return true;
  }
  int OnCloseCall(unsigned long long const& callId, CallExtraParams const&, std::string const&,
                   ProtocolType) override {
    closed_ = callId;
    ++closes_;
    return true;
  }
  int OnReportError(unsigned long long const&, CallErrorCode, CallExtraParams const&, std::string const&,
                     ProtocolType) override {
    return false;
  }
  int OnChangeMedia(unsigned long long const&, std::list<MediaParams> const&, CallExtraParams const&,
                     ProtocolType) override {
    return false;
  }

  std::uint64_t seq_ = 0;      // next expected stamp
  int expectCode_ = kMakeCallCode;
  std::uint64_t dones_ = 0, closes_ = 0;
  unsigned long long done_ = 0, closed_ = 0;

 private:
  Fixtures& f_;
  unsigned size_;
  RoleResult* r_;
  int code_ = 0;
  std::string body_;
};

bool PumpUntil(BenchMessenger& m, std::uint64_t const& counter, std::uint64_t want) {
  while (counter < want)
    if (!m.Pump()) return false;
  return true;
}

__attribute__((noinline)) bool MeasuredMakeCalls(BenchMessenger& m, RunSettings const& s, std::uint64_t* seq) {
  double const deadline = Now() + s.budgetSeconds;
  std::uint64_t const limit = *seq + s.maxMessages;
  for (;;) {
    for (unsigned k = 0; k < 32; ++k) {
      if (!m.SendMakeCall(*seq)) return false;
      if (++*seq == limit) return true;
    }
    if (s.budgetSeconds > 0 && Now() >= deadline) return true;
  }
}

__attribute__((noinline)) bool MeasuredDispatch(BenchMessenger& m) {
  std::uint64_t const closes = m.closes_;
  while (m.closes_ == closes)
    if (!m.Pump()) return false;
  return true;
}

__attribute__((noinline)) bool MeasuredRingingAccept(BenchMessenger& m, RunSettings const& s, std::uint64_t* seq,
                                                     std::vector<double>* samples) {
  double const deadline = Now() + s.budgetSeconds;
  std::uint64_t const limit = *seq + s.maxMessages;
  while (*seq < limit) {
    double const begin = Now();
    if (!m.SendRinging(*seq) || !PumpUntil(m, m.seq_, *seq + 1)) return false;
    double const end = Now();
    samples->push_back((end - begin) * 1e6);
    ++*seq;
    if (s.budgetSeconds > 0 && end >= deadline) break;
  }
  return true;
}

__attribute__((noinline)) bool MeasuredAnswers(BenchMessenger& m, RoleResult* r) {
  for (;;) {
    std::uint64_t const answered = m.seq_, closes = m.closes_;
    if (!m.Pump()) return false;
    if (m.closes_ != closes) return true;
    if (m.seq_ != answered && !m.SendAccept(answered)) return false;
    if (!r->ok) return false;
  }
}

class MessengerSubject : public Subject {
 public:
  char const* Name() const override { return "messenger"; }
  char const* Label() const override { return "CallMessenger"; }

  bool Supports(Metric metric, unsigned size) const override {
    Fixtures f;
    return metric == Metric::kThroughput ? size >= f.makeCallBase + 4
                                         : size >= f.acceptBase + 4 && size >= f.ringingBase + 2 * 42;
  }

  RoleResult Run(int side, Metric metric, RunSettings const& s, SidePipes& pipes) override {
    RoleResult r;
    r.ok = 1;
    Fixtures f;
    f.Grow(s.size);
    if (side == 1 && !pipes.Wait()) {
      Fail(&r, "side 0 never opened");
      return r;
    }
    std::unique_ptr<BenchMessenger> m(new BenchMessenger(f, s.size, &r));
    if (side == 0) pipes.Signal();
    if (!*m) {
      Fail(&r, "messenger: %s", CyclicMessageQueue::GetLastError().c_str());
      return r;
    }
    m->ProcessMessageFromQueue(1);  // announces this end
    double const give_up = Now() + 5;
    while (!m->IsPartyOnline()) {
      if (Now() > give_up) {
        Fail(&r, "the peer never came online");
        return r;
      }
      usleep(100);
    }
    if (!pipes.Barrier()) {
      Fail(&r, "the other side is gone");
      return r;
    }
    if (metric == Metric::kThroughput && side == 0) MakeCalls(*m, s, &r);
    if (metric == Metric::kThroughput && side == 1) TakeCalls(*m, s, &r);
    if (metric == Metric::kRoundTrip && side == 0) Ring(*m, s, &r);
    if (metric == Metric::kRoundTrip && side == 1) Answer(*m, s, &r);
    // One end leaves after the other: the channel is removed by whichever
    // end finds itself the last one attached.
    if (side == 1) {
      m.reset();
      pipes.Signal();
    } else {
      pipes.Wait();
      m.reset();
    }
    return r;
  }

 private:
  static void MakeCalls(BenchMessenger& m, RunSettings const& s, RoleResult* r) {
    std::uint64_t seq = 0;
    for (; seq < s.warmup; ++seq)
      if (!m.SendMakeCall(seq)) return;
    if (!PumpUntil(m, m.dones_, 1)) return;
    std::uint64_t const allocations = Allocations(), retries = r->retries;
    double const begin = Now();
    if (!MeasuredMakeCalls(m, s, &seq)) return;
    if (!m.SendClose(seq) || !PumpUntil(m, m.dones_, 2)) return;
    r->seconds = Now() - begin;
    r->messages = seq - s.warmup;
    r->retries -= retries;
    r->allocations = Allocations() - allocations;
    if (m.done_ != kCallBase + seq) Fail(r, "the reader counted other MakeCalls than were sent");
  }

  static void TakeCalls(BenchMessenger& m, RunSettings const& s, RoleResult* r) {
    m.expectCode_ = kMakeCallCode;
    if (!PumpUntil(m, m.seq_, s.warmup) || !m.SendDone(m.seq_)) return;
    std::uint64_t const allocations = Allocations();
    if (!MeasuredDispatch(m)) return;
    r->allocations = Allocations() - allocations;
    r->messages = m.seq_ - s.warmup;
    if (m.closed_ != kCallBase + m.seq_) Fail(r, "end marker says another count than the MakeCalls received");
    m.SendDone(m.seq_);
  }

  static void Ring(BenchMessenger& m, RunSettings const& s, RoleResult* r) {
    m.expectCode_ = kAcceptCode;
    std::uint64_t seq = 0;
    for (; seq < s.warmup; ++seq)
      if (!m.SendRinging(seq) || !PumpUntil(m, m.seq_, seq + 1)) return;
    std::vector<double> samples;
    samples.reserve(s.maxMessages);
    std::uint64_t const allocations = Allocations();
    double const begin = Now();
    if (!MeasuredRingingAccept(m, s, &seq, &samples)) return;
    r->seconds = Now() - begin;
    r->allocations = Allocations() - allocations;
    r->messages = samples.size();
    if (!m.SendClose(seq)) return;
    Percentiles(&samples, &r->rttMedianUs, &r->rttP99Us);
  }

  static void Answer(BenchMessenger& m, RunSettings const& s, RoleResult* r) {
    m.expectCode_ = kRingingCode;
    while (m.seq_ < s.warmup) {
      std::uint64_t const answered = m.seq_;
      if (!m.Pump()) return;
      if (m.seq_ != answered && !m.SendAccept(answered)) return;
    }
    std::uint64_t const allocations = Allocations();
    if (!MeasuredAnswers(m, r)) return;
    r->allocations = Allocations() - allocations;
    r->messages = m.seq_ - s.warmup;
    if (m.closed_ != kCallBase + m.seq_) Fail(r, "end marker says another count than the Ringings answered");
  }
};

}  // namespace

std::unique_ptr<Subject> MakeMessengerSubject() { return std::unique_ptr<Subject>(new MessengerSubject); }

}  // namespace bench
