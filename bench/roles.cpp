// The two roles of every case, written once for all Endpoint subjects.
//
// A body carries three stamps of its sequence number (head, middle, tail, each
// differently encoded) over a fixed fill, and the code is derived from the
// sequence too, so a lost, repeated, reordered or torn message fails the case
// instead of counting.
#include <errno.h>
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "bench.h"

namespace bench {

namespace {

constexpr int kAckCode = 0x7001;
constexpr int kEndCode = 0x7002;
constexpr unsigned kSendsBetweenClockReads = 32;

int DataCode(std::uint64_t seq) { return 0x1000 + static_cast<int>(seq % 251); }
int ReplyCode(std::uint64_t seq) { return 0x4000 + static_cast<int>(seq % 251); }

unsigned Middle(unsigned size) { return (size / 2) & ~3u; }

void Fill(char* body, unsigned size) {
  for (unsigned i = 0; i < size; ++i) body[i] = static_cast<char>('a' + i % 23);
}

inline void Stamp(char* body, unsigned size, std::uint64_t seq) {
  std::uint32_t head = static_cast<std::uint32_t>(seq);
  std::uint32_t middle = head ^ 0x5A5A5A5Au;
  std::uint32_t tail = ~head;
  std::memcpy(body, &head, 4);
  std::memcpy(body + Middle(size), &middle, 4);
  std::memcpy(body + size - 4, &tail, 4);
}

inline bool Stamped(char const* body, unsigned length, unsigned size, std::uint64_t seq) {
  if (length != size) return false;
  std::uint32_t head, middle, tail;
  std::memcpy(&head, body, 4);
  std::memcpy(&middle, body + Middle(size), 4);
  std::memcpy(&tail, body + size - 4, 4);
  std::uint32_t want = static_cast<std::uint32_t>(seq);
  return head == want && middle == (want ^ 0x5A5A5A5Au) && tail == ~want;
}

// Receives one message that must be (code, seq); reports what was wrong.
bool Expect(Endpoint& ep, int code, unsigned size, std::uint64_t seq, RoleResult* r) {
  int got = 0;
  char const* body = nullptr;
  unsigned length = 0;
  if (!ep.Receive(&got, &body, &length)) {
    Fail(r, "receive failed at message %llu: %s", static_cast<unsigned long long>(seq), ep.Why().c_str());
    return false;
  }
  if (got != code) {
    Fail(r, "message %llu: code %#x, expected %#x", static_cast<unsigned long long>(seq),
         static_cast<unsigned>(got), static_cast<unsigned>(code));
    return false;
  }
  if (!Stamped(body, length, size, seq)) {
    Fail(r, "message %llu: length %u or stamps wrong (size %u)", static_cast<unsigned long long>(seq),
         length, size);
    return false;
  }
  return true;
}

bool SendStamped(Endpoint& ep, int code, unsigned size, std::uint64_t seq, RoleResult* r) {
  Stamp(ep.OutBody(), size, seq);
  if (ep.Send(code)) return true;
  Fail(r, "send failed at message %llu: %s", static_cast<unsigned long long>(seq), ep.Why().c_str());
  return false;
}

// The measured loops are functions of their own so that callgrind can count
// exactly them (--toggle-collect).
__attribute__((noinline)) bool MeasuredSendLoop(Endpoint& ep, RunSettings const& s, std::uint64_t* seq,
                                                double deadline, RoleResult* r) {
  std::uint64_t const limit = *seq + s.maxMessages;
  for (;;) {
    for (unsigned k = 0; k < kSendsBetweenClockReads; ++k) {
      if (!SendStamped(ep, DataCode(*seq), s.size, *seq, r)) return false;
      ++*seq;
      if (*seq == limit) return true;
    }
    if (s.budgetSeconds > 0 && Now() >= deadline) return true;
  }
}

__attribute__((noinline)) bool MeasuredReceiveLoop(Endpoint& ep, RunSettings const& s, std::uint64_t* seq,
                                                   RoleResult* r) {
  for (;;) {
    int code = 0;
    char const* body = nullptr;
    unsigned length = 0;
    if (!ep.Receive(&code, &body, &length)) {
      Fail(r, "receive failed at message %llu: %s", static_cast<unsigned long long>(*seq), ep.Why().c_str());
      return false;
    }
    if (code == kEndCode) {
      if (!Stamped(body, length, s.size, *seq)) {
        Fail(r, "end marker says another count than the %llu messages received",
             static_cast<unsigned long long>(*seq));
        return false;
      }
      return true;
    }
    if (code != DataCode(*seq) || !Stamped(body, length, s.size, *seq)) {
      Fail(r, "message %llu: code %#x, length %u: lost, reordered or torn", static_cast<unsigned long long>(*seq),
           static_cast<unsigned>(code), length);
      return false;
    }
    ++*seq;
  }
}

__attribute__((noinline)) bool MeasuredRoundTrips(Endpoint& ep, RunSettings const& s, std::uint64_t* seq,
                                                  std::vector<double>* samples, RoleResult* r) {
  double const deadline = Now() + s.budgetSeconds;
  std::uint64_t const limit = *seq + s.maxMessages;
  while (*seq < limit) {
    double const begin = Now();
    if (!SendStamped(ep, DataCode(*seq), s.size, *seq, r)) return false;
    if (!Expect(ep, ReplyCode(*seq), s.size, *seq, r)) return false;
    double const end = Now();
    samples->push_back((end - begin) * 1e6);
    ++*seq;
    if (s.budgetSeconds > 0 && end >= deadline) break;
  }
  return true;
}

__attribute__((noinline)) bool MeasuredResponses(Endpoint& ep, RunSettings const& s, std::uint64_t* seq,
                                                 RoleResult* r) {
  for (;;) {
    int code = 0;
    char const* body = nullptr;
    unsigned length = 0;
    if (!ep.Receive(&code, &body, &length)) {
      Fail(r, "receive failed at request %llu: %s", static_cast<unsigned long long>(*seq), ep.Why().c_str());
      return false;
    }
    if (code == kEndCode) {
      if (Stamped(body, length, s.size, *seq)) return true;
      Fail(r, "end marker says another count than the %llu requests answered",
           static_cast<unsigned long long>(*seq));
      return false;
    }
    if (code != DataCode(*seq) || !Stamped(body, length, s.size, *seq)) {
      Fail(r, "request %llu: code %#x, length %u: lost, reordered or torn", static_cast<unsigned long long>(*seq),
           static_cast<unsigned>(code), length);
      return false;
    }
    if (!SendStamped(ep, ReplyCode(*seq), s.size, *seq, r)) return false;
    ++*seq;
  }
}

}  // namespace

double Now() {
  timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

void Fail(RoleResult* result, char const* format, ...) {
  result->ok = 0;
  va_list args;
  va_start(args, format);
  std::vsnprintf(result->failure, sizeof result->failure, format, args);
  va_end(args);
}

void Percentiles(std::vector<double>* samples, double* median, double* p99) {
  *median = *p99 = 0;
  if (samples->empty()) return;
  auto& v = *samples;
  std::size_t const m = v.size() / 2;
  std::nth_element(v.begin(), v.begin() + m, v.end());
  *median = v[m];
  std::size_t const p = std::min(v.size() - 1, static_cast<std::size_t>(v.size() * 0.99));
  std::nth_element(v.begin(), v.begin() + p, v.end());
  *p99 = v[p];
}

SidePipes::SidePipes() {
  ok_ = pipe2(fds_, O_CLOEXEC) == 0 && pipe2(fds_ + 2, O_CLOEXEC) == 0;
}

SidePipes::~SidePipes() {
  for (int fd : fds_)
    if (fd >= 0) close(fd);
}

void SidePipes::Choose(int side) {
  out_ = side == 0 ? fds_[1] : fds_[3];
  in_ = side == 0 ? fds_[2] : fds_[0];
  // Only this side's two ends stay open, so a side that dies shows as end of
  // file to the other instead of a hang.
  for (int& fd : fds_) {
    if (fd != out_ && fd != in_ && fd >= 0) close(fd);
    if (fd != out_ && fd != in_) fd = -1;
  }
}

void SidePipes::CloseAll() {
  for (int& fd : fds_) {
    if (fd >= 0) close(fd);
    fd = -1;
  }
}

bool SidePipes::Signal() {
  char byte = 1;
  for (;;) {
    ssize_t n = write(out_, &byte, 1);
    if (n == 1) return true;
    if (n < 0 && errno == EINTR) continue;
    return false;
  }
}

bool SidePipes::Wait() {
  char byte = 0;
  for (;;) {
    ssize_t n = read(in_, &byte, 1);
    if (n == 1) return true;
    if (n < 0 && errno == EINTR) continue;
    return false;
  }
}

RoleResult Subject::Run(int side, Metric metric, RunSettings const& s, SidePipes& pipes) {
  RoleResult r;
  r.ok = 1;
  std::string why;
  // The second side opens only once the first has: two ends constructing at
  // the same instant is not what is being measured.
  if (side == 1 && !pipes.Wait()) {
    Fail(&r, "side 0 never opened");
    return r;
  }
  std::unique_ptr<Endpoint> ep = Open(side, s, &why);
  if (side == 0) pipes.Signal();
  if (!ep) {
    Fail(&r, "open: %s", why.c_str());
    return r;
  }
  if (!ep->Ready(&why)) {
    Fail(&r, "connect: %s", why.c_str());
    return r;
  }
  Fill(ep->OutBody(), s.size);
  if (!pipes.Barrier()) {
    Fail(&r, "the other side is gone");
    return r;
  }
  if (metric == Metric::kThroughput) {
    if (side == 0)
      RunThroughputWriter(*ep, s, &r);
    else
      RunThroughputReader(*ep, s, &r);
  } else {
    if (side == 0)
      RunRoundTripInitiator(*ep, s, &r);
    else
      RunRoundTripResponder(*ep, s, &r);
  }
  r.notices = ep->notices;
  // One end leaves after the other: a channel is removed by whichever end
  // finds itself the last one attached.
  if (side == 1) {
    ep.reset();
    pipes.Signal();
  } else {
    pipes.Wait();
    ep.reset();
  }
  return r;
}

void RunThroughputWriter(Endpoint& ep, RunSettings const& s, RoleResult* r) {
  std::uint64_t seq = 0;
  for (; seq < s.warmup; ++seq)
    if (!SendStamped(ep, DataCode(seq), s.size, seq, r)) return;
  if (!Expect(ep, kAckCode, s.size, seq, r)) return;
  std::uint64_t const allocations = Allocations();
  std::uint64_t const retries = ep.retries;
  double const begin = Now();
  if (!MeasuredSendLoop(ep, s, &seq, begin + s.budgetSeconds, r)) return;
  if (!SendStamped(ep, kEndCode, s.size, seq, r)) return;
  if (!Expect(ep, kAckCode, s.size, seq, r)) return;
  r->seconds = Now() - begin;
  r->messages = seq - s.warmup;
  r->retries = ep.retries - retries;
  r->allocations = Allocations() - allocations;
}

void RunThroughputReader(Endpoint& ep, RunSettings const& s, RoleResult* r) {
  std::uint64_t seq = 0;
  for (; seq < s.warmup; ++seq)
    if (!Expect(ep, DataCode(seq), s.size, seq, r)) return;
  if (!SendStamped(ep, kAckCode, s.size, seq, r)) return;
  std::uint64_t const allocations = Allocations();
  if (!MeasuredReceiveLoop(ep, s, &seq, r)) return;
  r->allocations = Allocations() - allocations;
  r->messages = seq - s.warmup;
  SendStamped(ep, kAckCode, s.size, seq, r);
}

void RunRoundTripInitiator(Endpoint& ep, RunSettings const& s, RoleResult* r) {
  std::uint64_t seq = 0;
  for (; seq < s.warmup; ++seq)
    if (!SendStamped(ep, DataCode(seq), s.size, seq, r) || !Expect(ep, ReplyCode(seq), s.size, seq, r)) return;
  std::vector<double> samples;
  samples.reserve(s.maxMessages);
  std::uint64_t const allocations = Allocations();
  double const begin = Now();
  if (!MeasuredRoundTrips(ep, s, &seq, &samples, r)) return;
  r->seconds = Now() - begin;
  r->allocations = Allocations() - allocations;
  r->messages = samples.size();
  r->retries = ep.retries;
  if (!SendStamped(ep, kEndCode, s.size, seq, r)) return;
  Percentiles(&samples, &r->rttMedianUs, &r->rttP99Us);
}

void RunRoundTripResponder(Endpoint& ep, RunSettings const& s, RoleResult* r) {
  std::uint64_t seq = 0;
  for (; seq < s.warmup; ++seq)
    if (!Expect(ep, DataCode(seq), s.size, seq, r) || !SendStamped(ep, ReplyCode(seq), s.size, seq, r)) return;
  std::uint64_t const allocations = Allocations();
  if (!MeasuredResponses(ep, s, &seq, r)) return;
  r->allocations = Allocations() - allocations;
  r->messages = seq - s.warmup;
}

}  // namespace bench
