// Every body decoder on arbitrary bytes: the first byte picks the decoder,
// the rest is the body. Beyond what the sanitizers catch:
// - what was decoded encodes to bytes that decode to the same value, and
//   that encoding is stable;
// - a decoder that stopped short of the end of the body consumed exactly
//   the encoding of what it produced: nothing skipped, nothing invented
//   (records holding a boolean excepted: any non-zero byte reads as true);
// - nothing allocates without bound (run.sh sets -malloc_limit_mb).
// With FUZZ_SEED_DIR set the target writes its seed corpus there, a few
// encoded sample values per decoder, and exits.
//
// A new record type is one more line in Decoders().
#include <call_records.h>
#include <codec.h>

#include "tests/support/golden.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <string>
#include <type_traits>
#include <vector>

namespace {

enum class Sample : int { kNone = 0, kSome = 7 };

// Larger than any message: the messengers' channels hold 32,768 bytes.
constexpr std::size_t kLargestBody = 32768;

template <typename T>
void Put(std::string& body, T const& value) {
  body << value;
}
template <typename T>
void Put(std::string& body, std::list<T> const& list) {
  PackTemplate(body, list);
}
template <typename T>
void Put(std::string& body, std::vector<T> const& vector) {
  PackTemplate(body, vector);
}
template <typename T>
void Take(std::string& body, T& value) {
  body >> value;
}
template <typename T>
void Take(std::string& body, std::list<T>& list) {
  UnpackTemplate(body, list);
}
template <typename T>
void Take(std::string& body, std::vector<T>& vector) {
  UnpackTemplate(body, vector);
}

// Whether a T has one encoding per value: not when it holds a bool, which
// reads any non-zero byte as true.
template <typename T>
constexpr bool kCanonical = true;
template <>
constexpr bool kCanonical<bool> = false;
template <>
constexpr bool kCanonical<RegisterParams> = false;
template <>
constexpr bool kCanonical<AlertInfo> = false;
template <>
constexpr bool kCanonical<std::list<RegisterParams> > = false;

[[noreturn]] void Fail(char const* decoder, char const* what) {
  std::fprintf(stderr, "%s: %s\n", decoder, what);
  std::abort();
}

template <typename T>
void Check(char const* name, std::string body) {
  std::string const input = body;
  T value{};
  Take(body, value);
  std::string encoded;
  Put(encoded, value);
  // A forged count yields copies up to the decoding bound, an encoding far
  // beyond what any channel carries; decoding that again (each field erases
  // from the front) would only time the harness.
  if (encoded.size() > kLargestBody) return;
  std::string again = encoded;
  T second{};
  Take(again, second);
  if (!(second == value)) Fail(name, "the encoding of a decoded value decodes to another value");
  if (!again.empty()) Fail(name, "decoding an encoding left bytes over");
  std::string twice;
  Put(twice, second);
  if (twice != encoded) Fail(name, "encoding is not stable");
  if (!body.empty() && kCanonical<T> && input.compare(0, input.size() - body.size(), encoded) != 0)
    Fail(name, "consumed bytes differ from the encoding of the decoded value");
}

template <typename T>
struct IsSequence : std::false_type {};
template <typename T>
struct IsSequence<std::list<T> > : std::true_type {};
template <typename T>
struct IsSequence<std::vector<T> > : std::true_type {};

struct Decoder {
  char const* name;
  void (*check)(char const*, std::string);
  bool sequence;
  std::vector<std::string> seeds;
};

template <typename T>
Decoder Make(char const* name, std::vector<T> const& samples) {
  Decoder decoder = {name, &Check<T>, IsSequence<T>::value, {}};
  for (T const& sample : samples) {
    std::string body;
    Put(body, sample);
    decoder.seeds.push_back(body);
  }
  return decoder;
}

CallParams Party() {
  CallParams party;
  party.user = "alice";
  party.displayName = "Alice";
  party.number = "1001";
  party.host = "192.0.2.1";
  party.line = "sip1";
  party.port = 5060;
  return party;
}

CallStatistics Statistics() {
  CallStatistics statistics;
  statistics.txPackets = 1500;
  statistics.rxPackets = 1490;
  statistics.rxPacketsLost = 10;
  statistics.rxJitter = 3;
  statistics.fax.remoteId = "+1 555 0100";
  statistics.fax.pages = 2;
  return statistics;
}

std::vector<Decoder> const& Decoders() {
  static std::vector<Decoder> const table = {
      Make<bool>("bool", {false, true}),
      Make<char>("char", {'a'}),
      Make<unsigned char>("unsigned char", {0xFE}),
      Make<unsigned short>("unsigned short", {0x1234}),
      Make<int>("int", {-2, 1}),
      Make<unsigned int>("unsigned int", {0x80000001u}),
      Make<long>("long", {-1L}),
      Make<unsigned long>("unsigned long", {0x87654321UL}),
      Make<unsigned long long>("unsigned long long", {0x0102030405060708ULL}),
      Make<Sample>("enumeration", {Sample::kSome}),
      Make<std::string>("text", {std::string(), std::string("hello\0world", 11)}),
      Make<MediaParams>("MediaParams", {MediaParams(), test::SampleMedia()}),
      Make<FaxStatistics>("FaxStatistics", {Statistics().fax}),
      Make<CallStatistics>("CallStatistics", {CallStatistics(), Statistics()}),
      Make<std::list<std::string> >("list of texts", {{}, {"a", "", "bc"}}),
      Make<std::list<unsigned long> >("list of unsigned long", {{1, 2, 3}}),
      Make<std::list<unsigned long long> >("list of call ids", {{0xFFFFFFFFFFFFFFFFULL}}),
      Make<std::list<MediaParams> >("list of MediaParams", {{test::SampleMedia(), MediaParams()}}),
      Make<std::vector<CallStatistics> >("vector of CallStatistics", {{Statistics()}}),
      Make<CallParams>("CallParams", {CallParams(), Party()}),
      Make<RegisterParams>("RegisterParams", {RegisterParams()}),
      Make<CallExtraParams>("CallExtraParams", {CallExtraParams{3, 0xFFFFFFFFUL}}),
      Make<PackageParam>("PackageParam", {PackageParam{"dialog", "application/dialog-info+xml", "<x/>"}}),
      Make<CallAttachment>("CallAttachment", {CallAttachment(), CallAttachment{1, 2, "data"}}),
      Make<AlertInfo>("AlertInfo", {AlertInfo{true, "<http://192.0.2.1/ring>"}}),
      Make<std::list<CallParams> >("list of CallParams", {{Party(), CallParams()}}),
      Make<std::list<RegisterParams> >("list of RegisterParams", {{RegisterParams()}}),
  };
  return table;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  char const* dir = std::getenv("FUZZ_SEED_DIR");
  if (!dir) return 0;
  std::vector<Decoder> const& decoders = Decoders();
  for (std::size_t i = 0; i < decoders.size(); ++i) {
    for (std::size_t k = 0; k < decoders[i].seeds.size(); ++k) {
      std::string path = std::string(dir) + "/" + std::to_string(i) + "-" + std::to_string(k);
      std::FILE* file = std::fopen(path.c_str(), "wb");
      if (!file) return 1;
      std::fputc(static_cast<int>(i), file);
      std::fwrite(decoders[i].seeds[k].data(), 1, decoders[i].seeds[k].size(), file);
      std::fclose(file);
    }
  }
  std::exit(0);
}

// The first byte picks the decoder. A sequence's count is cut to the number
// of bytes that follow it: a forged count costs the bound's worth of copies,
// some hundred times an ordinary input, and the fuzzer would spend its time
// there rather than in the element decoders. Forged counts are fed once per
// run instead, on the first call (under the run's allocation limits): every
// sequence seed with its count set to the largest value.
extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::vector<Decoder> const& decoders = Decoders();
  static bool forged = false;
  if (!forged) {
    forged = true;
    for (Decoder const& decoder : decoders) {
      if (!decoder.sequence) continue;
      for (std::string body : decoder.seeds) {
        std::memset(&body[0], 0xFF, 4);
        decoder.check(decoder.name, body);
      }
    }
  }
  if (size == 0) return 0;
  Decoder const& decoder = decoders[data[0] % decoders.size()];
  std::string body(reinterpret_cast<char const*>(data) + 1, size - 1);
  if (decoder.sequence && body.size() >= 4) {
    std::uint32_t count;
    std::memcpy(&count, body.data(), 4);
    if (count > body.size() - 4) count = static_cast<std::uint32_t>(body.size() - 4);
    std::memcpy(&body[0], &count, 4);
  }
  decoder.check(decoder.name, body);
  return 0;
}
