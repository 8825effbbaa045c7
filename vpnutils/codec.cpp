// Body codec of texts and records.
//
// Numbers are copied in the host's byte order at the width of the wire type
// named at each call (PutField<std::uint32_t>, ...), which is the layout the
// messaging codec gives the same C++ types; this library cannot use that
// codec, which sits above it.
#include "vpnutils_codec.h"
#include "vpnutils_records.h"

#include <cstdint>
#include <cstring>
#include <limits>
#include <tuple>
#include <type_traits>

namespace {

constexpr std::size_t kInitialBodyReserve = 512;

// Grows `body` by `length` bytes and returns the offset of the new tail.
std::size_t Extend(std::string& body, std::size_t length) {
  if (body.capacity() < kInitialBodyReserve) body.reserve(kInitialBodyReserve);
  std::size_t at = body.size();
  body.resize(at + length);
  return at;
}

// Numbers travel at the width of their declared type (every record field is
// a fixed-width type); texts and nested records use their own operators.
template <typename T>
std::enable_if_t<std::is_arithmetic<T>::value> Put(std::string& body, T value) {
  std::size_t at = Extend(body, sizeof value);
  std::memcpy(&body[at], &value, sizeof value);
}

template <typename T>
std::enable_if_t<!std::is_arithmetic<T>::value> Put(std::string& body, T const& value) {
  body << value;
}

template <typename T>
std::enable_if_t<std::is_arithmetic<T>::value> Take(std::string& body, T& value) {
  if (body.size() < sizeof value) {
    body.clear();
    return;
  }
  std::memcpy(&value, body.data(), sizeof value);
  body.erase(0, sizeof value);
}

template <typename T>
std::enable_if_t<!std::is_arithmetic<T>::value> Take(std::string& body, T& value) {
  body >> value;
}

// Each record names its fields once, in wire order; encoding, decoding and
// comparison are all walks over that list.
template <typename Media, typename Visit>
decltype(auto) Fields(Media& m, Visit visit) {
  return visit(m.type, m.payloadType, m.codec, m.clockRate, m.address, m.port, m.packetTime,
               m.direction);
}

template <typename Fax, typename Visit>
decltype(auto) FaxFields(Fax& f, Visit visit) {
  return visit(f.remoteId, f.pages, f.bitRate, f.badLines);
}

template <typename Statistics, typename Visit>
decltype(auto) StatisticsFields(Statistics& s, Visit visit) {
  return visit(s.txPackets, s.txCodec, s.txPacketSize, s.rxPackets, s.rxCodec, s.rxPacketSize,
               s.rxPacketsLost, s.rxJitter, s.rxMaxDelay, s.fax);
}

auto Encoder(std::string& body) {
  return [&body](auto const&... fields) -> std::string& {
    (Put(body, fields), ...);
    return body;
  };
}

auto Decoder(std::string& body) {
  return [&body](auto&... fields) -> std::string& {
    (Take(body, fields), ...);
    return body;
  };
}

auto const kTie = [](auto const&... fields) { return std::tie(fields...); };

}  // namespace

std::string& operator<<(std::string& body, std::string const& text) {
  // A text cannot say it is longer than its prefix can count; on 32-bit hosts
  // the clamp never applies.
  std::size_t length = text.size();
  if (length > std::numeric_limits<std::uint32_t>::max()) length = std::numeric_limits<std::uint32_t>::max();
  std::uint32_t prefix = static_cast<std::uint32_t>(length);
  std::size_t at = Extend(body, sizeof prefix + length);
  std::memcpy(&body[at], &prefix, sizeof prefix);
  // text.data() is read after the resize: `body << body` then copies the
  // original bytes, which the resize kept in place at the front.
  if (length != 0) std::memcpy(&body[at + sizeof prefix], text.data(), length);
  return body;
}

std::string& operator>>(std::string& body, std::string& text) {
  std::uint32_t length;
  if (body.size() < sizeof length) {
    body.clear();
    return body;
  }
  std::memcpy(&length, body.data(), sizeof length);
  if (body.size() - sizeof length < length) {
    body.clear();
    return body;
  }
  text.assign(body, sizeof length, length);
  body.erase(0, sizeof length + length);
  return body;
}

bool operator==(MediaParams const& a, MediaParams const& b) {
  return Fields(a, kTie) == Fields(b, kTie);
}
bool operator!=(MediaParams const& a, MediaParams const& b) { return !(a == b); }
std::string& operator<<(std::string& body, MediaParams const& media) {
  return Fields(media, Encoder(body));
}
std::string& operator>>(std::string& body, MediaParams& media) {
  return Fields(media, Decoder(body));
}

bool operator==(FaxStatistics const& a, FaxStatistics const& b) {
  return FaxFields(a, kTie) == FaxFields(b, kTie);
}
bool operator!=(FaxStatistics const& a, FaxStatistics const& b) { return !(a == b); }
std::string& operator<<(std::string& body, FaxStatistics const& fax) {
  return FaxFields(fax, Encoder(body));
}
std::string& operator>>(std::string& body, FaxStatistics& fax) {
  return FaxFields(fax, Decoder(body));
}

bool operator==(CallStatistics const& a, CallStatistics const& b) {
  return StatisticsFields(a, kTie) == StatisticsFields(b, kTie);
}
bool operator!=(CallStatistics const& a, CallStatistics const& b) { return !(a == b); }
std::string& operator<<(std::string& body, CallStatistics const& statistics) {
  return StatisticsFields(statistics, Encoder(body));
}
std::string& operator>>(std::string& body, CallStatistics& statistics) {
  return StatisticsFields(statistics, Decoder(body));
}
