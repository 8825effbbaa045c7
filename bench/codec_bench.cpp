// Codec and messenger-layer micro-benchmarks, in one process: what encoding
// and decoding a body costs, and what a whole MakeCall costs from the send
// operation to the handler when the transport is a plain copy.
//
//   codec_bench [--tsv FILE] [Google Benchmark flags]
//
// Decoding consumes its input, so every decode starts from a fresh copy of
// the body, as the messenger's dispatch does. The "allocations" counter is
// operator new calls per iteration.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <list>
#include <map>
#include <string>
#include <vector>

#include "bench.h"
#include "call_fixtures.h"
#include "call_messenger.h"
#include "messaging/messenger.h"

namespace {

using bench::Allocations;

// Every benchmark: repetitions summarised by median, minimum and maximum.
void Repeated(benchmark::internal::Benchmark* b) {
  b->Repetitions(5)->ReportAggregatesOnly(true)->MinTime(0.05);
  b->ComputeStatistics("min", [](std::vector<double> const& v) { return *std::min_element(v.begin(), v.end()); });
  b->ComputeStatistics("max", [](std::vector<double> const& v) { return *std::max_element(v.begin(), v.end()); });
}

void CountAllocations(benchmark::State& state, std::uint64_t before) {
  state.counters["allocations"] =
      benchmark::Counter(static_cast<double>(Allocations() - before) / static_cast<double>(state.iterations()));
}

// The MakeCall fields of a call set-up, its free text grown to make the body
// `size` bytes (0: no text).
struct MakeCallFields {
  CallParams from = bench::Caller();
  CallParams to = bench::Callee();
  unsigned long long callId = 0x00C0FFEE00000001ull;
  std::list<MediaParams> media = bench::AnswerMedia();
  std::string text;
  CallExtraParams extra;
  CallAttachment attachment;

  explicit MakeCallFields(unsigned size) {
    std::size_t const base = Body().size();
    if (size > base) text = bench::SdpText(size - base);
  }
  std::string Body() const {
    std::string body = MakeBody(from, to, callId, media, text, extra, attachment);
    body << PROTOCOL_DEFAULT;
    return body;
  }
};

void BM_EncodeCallParams(benchmark::State& state) {
  CallParams const p = bench::Caller();
  std::string body;
  body.reserve(kInitialBodyReserve);
  std::uint64_t const before = Allocations();
  for (auto _ : state) {
    body.clear();
    body << p;
    benchmark::DoNotOptimize(body.data());
  }
  CountAllocations(state, before);
  state.SetLabel(std::to_string(body.size()) + " B");
}
BENCHMARK(BM_EncodeCallParams)->Apply(Repeated);

void BM_DecodeCallParams(benchmark::State& state) {
  std::string encoded;
  encoded << bench::Caller();
  std::uint64_t const before = Allocations();
  for (auto _ : state) {
    std::string body(encoded);
    CallParams p;
    body >> p;
    benchmark::DoNotOptimize(p.user.data());
  }
  CountAllocations(state, before);
}
BENCHMARK(BM_DecodeCallParams)->Apply(Repeated);

// MakeBody is the library's own send helper: a fresh body reserved to 512
// bytes, then one append per field.
void BM_EncodeMakeCall(benchmark::State& state) {
  MakeCallFields const f(static_cast<unsigned>(state.range(0)));
  std::uint64_t const before = Allocations();
  std::size_t size = 0;
  for (auto _ : state) {
    std::string body = MakeBody(f.from, f.to, f.callId, f.media, f.text, f.extra, f.attachment);
    size = body.size();
    benchmark::DoNotOptimize(body.data());
  }
  CountAllocations(state, before);
  state.SetLabel(std::to_string(size + 4) + " B body");
}
BENCHMARK(BM_EncodeMakeCall)->Arg(0)->Arg(1024)->Arg(4096)->Apply(Repeated);

// Deliver is the library's own receive helper: private copy of the body,
// value-initialised targets, decode field by field from the front.
void BM_DecodeMakeCall(benchmark::State& state) {
  MakeCallFields const f(static_cast<unsigned>(state.range(0)));
  std::string const body = f.Body();
  std::uint64_t const before = Allocations();
  for (auto _ : state) {
    Deliver<CallParams, CallParams, unsigned long long, std::list<MediaParams>, std::string, CallExtraParams,
            CallAttachment>(body, [](auto&... fields) { (benchmark::DoNotOptimize(&fields), ...); });
  }
  CountAllocations(state, before);
  state.SetLabel(std::to_string(body.size()) + " B body");
}
BENCHMARK(BM_DecodeMakeCall)->Arg(0)->Arg(1024)->Arg(4096)->Apply(Repeated);

void BM_EncodeList64(benchmark::State& state) {
  std::list<unsigned long> list;
  for (unsigned long i = 0; i < 64; ++i) list.push_back(i * 7919);
  std::string body;
  body.reserve(kInitialBodyReserve);
  std::uint64_t const before = Allocations();
  for (auto _ : state) {
    body.clear();
    PackTemplate(body, list);
    benchmark::DoNotOptimize(body.data());
  }
  CountAllocations(state, before);
  state.SetLabel("64 x unsigned long, " + std::to_string(body.size()) + " B");
}
BENCHMARK(BM_EncodeList64)->Apply(Repeated);

void BM_DecodeList64(benchmark::State& state) {
  std::list<unsigned long> list;
  for (unsigned long i = 0; i < 64; ++i) list.push_back(i * 7919);
  std::string encoded;
  PackTemplate(encoded, list);
  std::uint64_t const before = Allocations();
  for (auto _ : state) {
    std::string body(encoded);
    std::list<unsigned long> out;
    UnpackTemplate(body, out);
    benchmark::DoNotOptimize(out.size());
  }
  CountAllocations(state, before);
  state.SetLabel("64 x unsigned long");
}
BENCHMARK(BM_DecodeList64)->Apply(Repeated);

void BM_EncodeMediaList64(benchmark::State& state) {
  std::list<MediaParams> list;
  for (unsigned i = 0; i < 64; ++i) list.push_back(bench::OfferLine(i));
  std::string body;
  body.reserve(kInitialBodyReserve);
  std::uint64_t const before = Allocations();
  for (auto _ : state) {
    body.clear();
    PackTemplate(body, list);
    benchmark::DoNotOptimize(body.data());
  }
  CountAllocations(state, before);
  state.SetLabel("64 x MediaParams, " + std::to_string(body.size()) + " B");
}
BENCHMARK(BM_EncodeMediaList64)->Apply(Repeated);

void BM_DecodeMediaList64(benchmark::State& state) {
  std::list<MediaParams> list;
  for (unsigned i = 0; i < 64; ++i) list.push_back(bench::OfferLine(i));
  std::string encoded;
  PackTemplate(encoded, list);
  std::uint64_t const before = Allocations();
  for (auto _ : state) {
    std::string body(encoded);
    std::list<MediaParams> out;
    UnpackTemplate(body, out);
    benchmark::DoNotOptimize(out.size());
  }
  CountAllocations(state, before);
  state.SetLabel("64 x MediaParams");
}
BENCHMARK(BM_DecodeMediaList64)->Apply(Repeated);

// A Link that hands the last written message back: the messenger layer with
// the transport reduced to one copy into a reused string.
class LoopbackLink : public Link {
 public:
  bool Create() override { return true; }
  unsigned Write(int const* code, std::string const* body) override {
    code_ = code ? *code : 0;
    body_.assign(*body);
    return static_cast<unsigned>(body->size() + 4);
  }
  unsigned Read(int* code, std::string* body, bool) override {
    if (code) *code = code_;
    body->assign(body_);
    return static_cast<unsigned>(body_.size() + 4);
  }
  unsigned Write(int const*, char const*, unsigned) override { return 0; }
  unsigned Read(int*, char*, unsigned, bool) override { return 0; }
  void Error(char const*) override {}
  bool ResetBuffers() override { return true; }
  bool IsPartyOnline() const override { return true; }
  bool IsQueueEmpty() const override { return true; }
  operator bool() const override { return true; }

  int code_ = 0;
  std::string body_;
};

class CountingMessenger : public CallMessenger {
 public:
  explicit CountingMessenger(Link* link) : CallMessenger(200, link, 32768) {}
  int OnMakeCall(CallParams const&, CallParams const&, unsigned long long const& callId,
                  std::list<MediaParams> const&, std::string const&, CallExtraParams const&,
                  CallAttachment const&, ProtocolType) override {
    last = callId;
    return true;
  }
  int OnRinging(unsigned long long const&, std::list<MediaParams> const&, CallExtraParams const&,
                 ProtocolType) override {
    return true;
  }
  int OnAccept(unsigned long long const&, std::list<MediaParams> const&, CallExtraParams const&,
                CallAttachment const&, ProtocolType) override {
    return true;
  }
  int OnDone(unsigned long long const&, std::list<MediaParams> const&, CallExtraParams const&,
              ProtocolType) override {
    return true;
  }
  int OnCloseCall(unsigned long long const&, CallExtraParams const&, std::string const&, ProtocolType) override {
    return true;
  }
  int OnReportError(unsigned long long const&, CallErrorCode, CallExtraParams const&, std::string const&,
                     ProtocolType) override {
    return true;
  }
  int OnChangeMedia(unsigned long long const&, std::list<MediaParams> const&, CallExtraParams const&,
                     ProtocolType) override {
    return true;
  }
  unsigned long long last = 0;
};

// Send operation, SendMessage, queue, copy, DispatchMessage, handler.
void BM_MessengerMakeCall(benchmark::State& state) {
  MakeCallFields const f(static_cast<unsigned>(state.range(0)));
  LoopbackLink link;
  CountingMessenger sender(&link), receiver(&link);
  std::uint64_t const before = Allocations();
  for (auto _ : state) {
    sender.MakeCall(f.from, f.to, f.callId, f.media, f.text, &f.extra, nullptr);
    receiver.DispatchMessage(&link.code_, &link.body_);
    benchmark::DoNotOptimize(receiver.last);
  }
  CountAllocations(state, before);
  state.SetLabel(std::to_string(link.body_.size()) + " B body");
}
BENCHMARK(BM_MessengerMakeCall)->Arg(0)->Arg(1024)->Arg(4096)->Apply(Repeated);

// Console output as usual; the medians, minima and maxima of the
// repetitions also go to a table for the report.
class TableReporter : public benchmark::ConsoleReporter {
 public:
  struct Row {
    double median = 0, min = 0, max = 0, allocations = 0;
  };
  void ReportRuns(std::vector<Run> const& runs) override {
    for (Run const& run : runs) {
      if (run.run_type != Run::RT_Aggregate) continue;
      std::string name = run.run_name.function_name;
      if (!run.run_name.args.empty()) name += "/" + run.run_name.args;
      if (!run.report_label.empty()) name += " (" + run.report_label + ")";
      Row& row = rows_[name];
      if (order_.empty() || order_.back() != name) order_.push_back(name);
      double const ns = run.GetAdjustedCPUTime();
      if (run.aggregate_name == "median") {
        row.median = ns;
        auto it = run.counters.find("allocations");
        if (it != run.counters.end()) row.allocations = it->second.value;
      }
      if (run.aggregate_name == "min") row.min = ns;
      if (run.aggregate_name == "max") row.max = ns;
    }
    ConsoleReporter::ReportRuns(runs);
  }
  bool Write(std::string const& path) const {
    std::ofstream out(path);
    out << "#name\tmedian_ns\tmin_ns\tmax_ns\tallocations\n";
    for (auto const& name : order_) {
      Row const& r = rows_.at(name);
      out << name << "\t" << r.median << "\t" << r.min << "\t" << r.max << "\t" << r.allocations << "\n";
    }
    return static_cast<bool>(out);
  }

 private:
  std::map<std::string, Row> rows_;
  std::vector<std::string> order_;
};

}  // namespace

int main(int argc, char** argv) {
  std::string tsv;
  std::vector<char*> args;
  for (int i = 0; i < argc; ++i) {
    if (std::strcmp(argv[i], "--tsv") == 0 && i + 1 < argc) {
      tsv = argv[++i];
      continue;
    }
    args.push_back(argv[i]);
  }
  int count = static_cast<int>(args.size());
  benchmark::Initialize(&count, args.data());
  if (benchmark::ReportUnrecognizedArguments(count, args.data())) return 2;
  TableReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  if (!tsv.empty() && !reporter.Write(tsv)) {
    std::fprintf(stderr, "cannot write %s\n", tsv.c_str());
    return 1;
  }
  return 0;
}
