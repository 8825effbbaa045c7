// Body codec of texts and records.
//
// Numbers are copied in the host's byte order at the width of each field's
// declared type, which is the layout the messaging codec gives the same C++
// types; this library cannot use that codec, which sits above it.
#include "vpnutils_codec.h"
#include "vpnutils_records.h"

#include <cstdint>
#include <cstring>
#include <limits>
#include <tuple>
#include <type_traits>

namespace {

constexpr std::size_t kInitialBodyReserve = 512;

void Reserve(std::string& body) {
  if (body.capacity() < kInitialBodyReserve) body.reserve(kInitialBodyReserve);
}

// Numbers travel at the width of their declared type (every record field is
// a fixed-width type); texts and nested records use their own operators.
template <typename T>
std::enable_if_t<std::is_arithmetic<T>::value> Put(std::string& body, T value) {
  Reserve(body);
  body.append(reinterpret_cast<char const*>(&value), sizeof value);
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

// Encoding and comparison read through the field lists, which are written
// for mutable records.
template <typename Record>
Record& Mutable(Record const& record) {
  return const_cast<Record&>(record);
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
  Reserve(body);
  body.append(reinterpret_cast<char const*>(&prefix), sizeof prefix);
  // text.data() is read after the prefix went in and `length` before: `body
  // << body` then copies the original bytes, which stay at the front.
  body.append(text.data(), length);
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
  return Fields(Mutable(a), kTie) == Fields(Mutable(b), kTie);
}
bool operator!=(MediaParams const& a, MediaParams const& b) { return !(a == b); }
std::string& operator<<(std::string& body, MediaParams const& media) {
  return Fields(Mutable(media), Encoder(body));
}
std::string& operator>>(std::string& body, MediaParams& media) {
  return Fields(media, Decoder(body));
}

bool operator==(FaxStatistics const& a, FaxStatistics const& b) {
  return Fields(Mutable(a), kTie) == Fields(Mutable(b), kTie);
}
bool operator!=(FaxStatistics const& a, FaxStatistics const& b) { return !(a == b); }
std::string& operator<<(std::string& body, FaxStatistics const& fax) {
  return Fields(Mutable(fax), Encoder(body));
}
std::string& operator>>(std::string& body, FaxStatistics& fax) {
  return Fields(fax, Decoder(body));
}

bool operator==(CallStatistics const& a, CallStatistics const& b) {
  return Fields(Mutable(a), kTie) == Fields(Mutable(b), kTie);
}
bool operator!=(CallStatistics const& a, CallStatistics const& b) { return !(a == b); }
std::string& operator<<(std::string& body, CallStatistics const& statistics) {
  return Fields(Mutable(statistics), Encoder(body));
}
std::string& operator>>(std::string& body, CallStatistics& statistics) {
  return Fields(statistics, Decoder(body));
}
