// Message body encoding.
//
// A body is a std::string used as a byte buffer. Senders append fields with
// operator<<, receivers take them off the front with operator>> in the same
// order; there are no tags, lengths or versions inside a body. Values are
// copied in the host's byte order. Widths are fixed on every host, so a body
// built on a 64-bit development machine has the appliance's layout:
//
//   1 byte   bool (0 or 1), char, unsigned char
//   2 bytes  unsigned short
//   4 bytes  int, unsigned int, long, unsigned long, every enumeration
//   8 bytes  unsigned long long
//
// Texts, MediaParams and CallStatistics come with their operators from
// libvpnutils (a text is a 4-byte length and its bytes).
//
// Decoding never fails loudly: a body too short for a value leaves the target
// as it was and empties the body, so every later field keeps its initial
// value too. Receivers therefore decode into initialised targets.
#ifndef LIBMESSAGING_CODEC_H_
#define LIBMESSAGING_CODEC_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <list>
#include <string>
#include <type_traits>
#include <vector>

#include <vpnutils.h>

// The type a value travels as. long and unsigned long are 4 bytes on the wire
// even where the host's are 8; enumerations travel as 4-byte integers.
template <typename T, typename = void>
struct WireType {
  using type = T;
};
template <>
struct WireType<long> {
  using type = std::int32_t;
};
template <>
struct WireType<unsigned long> {
  using type = std::uint32_t;
};
template <typename T>
struct WireType<T, std::enable_if_t<std::is_enum<T>::value> > {
  static_assert(sizeof(T) == 4, "enumerations travel as 4 bytes");
  using type = T;
};

template <typename T>
constexpr bool IsFixedWidthValue = std::is_arithmetic<T>::value || std::is_enum<T>::value;

// Bodies are built by many small appends; one reservation up front keeps a
// typical message from reallocating on each of them.
constexpr std::size_t kInitialBodyReserve = 512;

// A sequence count is trusted, but no honest body can carry more elements than
// this: decoding stops at the bound.
constexpr unsigned kMaxSequenceElements = 65536;

// Elements that a count promises beyond the end of the body are made up as
// copies of the last one decoded, but only up to this many wire bytes of them
// per sequence. An honest body makes up nothing; without the limit a forged
// count behind one large element (65,536 copies of a 16 KB text) would ask a
// 32-bit receiver for more memory than it can address.
constexpr std::size_t kMaxMadeUpBytes = 65536;

template <typename T, typename = std::enable_if_t<IsFixedWidthValue<T> > >
std::string& operator<<(std::string& body, T const& value) {
  using Wire = typename WireType<T>::type;
  Wire wire = static_cast<Wire>(value);
  if (body.capacity() < kInitialBodyReserve) body.reserve(kInitialBodyReserve);
  body.append(reinterpret_cast<char const*>(&wire), sizeof(Wire));
  return body;
}

template <typename T, typename = std::enable_if_t<IsFixedWidthValue<T> > >
std::string& operator>>(std::string& body, T& value) {
  using Wire = typename WireType<T>::type;
  if (body.size() < sizeof(Wire)) {
    body.clear();
    return body;
  }
  Wire wire;
  std::memcpy(&wire, body.data(), sizeof(Wire));
  if constexpr (std::is_same<T, bool>::value) {
    value = reinterpret_cast<unsigned char const&>(wire) != 0;
  } else {
    value = static_cast<T>(wire);
  }
  body.erase(0, sizeof(Wire));
  return body;
}

// Sequences: a 4-byte unsigned count, then each element with its own
// operator<<. Lists and vectors share the layout.
template <typename Container>
std::string& PackSequence(std::string& body, Container const& items) {
  body << static_cast<unsigned int>(items.size());
  for (auto const& item : items) body << item;
  return body;
}

// Decoding reuses one scratch element without resetting it, so a count larger
// than the data yields copies of the last decoded element (up to the bounds).
template <typename Container>
std::string& UnpackSequence(std::string& body, Container& items) {
  unsigned int count = 0;
  body >> count;
  if (count > kMaxSequenceElements) count = kMaxSequenceElements;
  typename Container::value_type scratch{};
  if (!items.empty()) items.clear();
  std::size_t copySize = 0, madeUp = 0;
  while (items.size() < count) {
    if (body.empty()) {
      if (copySize == 0) {
        std::string copy;
        copy << scratch;
        copySize = copy.size();
      }
      madeUp += copySize;
      if (madeUp > kMaxMadeUpBytes) break;
    }
    body >> scratch;
    items.push_back(scratch);
  }
  return body;
}

template <typename T>
std::string& PackTemplate(std::string& body, std::list<T> const& list) {
  return PackSequence(body, list);
}
template <typename T>
std::string& PackTemplate(std::string& body, std::vector<T> const& vector) {
  return PackSequence(body, vector);
}
template <typename T>
std::string& UnpackTemplate(std::string& body, std::list<T>& list) {
  return UnpackSequence(body, list);
}
template <typename T>
std::string& UnpackTemplate(std::string& body, std::vector<T>& vector) {
  return UnpackSequence(body, vector);
}

#endif  // LIBMESSAGING_CODEC_H_
