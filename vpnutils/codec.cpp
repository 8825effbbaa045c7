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

namespace {

constexpr std::size_t kInitialBodyReserve = 512;

// Grows `body` by `length` bytes and returns the offset of the new tail.
std::size_t Extend(std::string& body, std::size_t length) {
  if (body.capacity() < kInitialBodyReserve) body.reserve(kInitialBodyReserve);
  std::size_t at = body.size();
  body.resize(at + length);
  return at;
}

template <typename Wire, typename T>
void PutField(std::string& body, T value) {
  Wire wire = static_cast<Wire>(value);
  std::size_t at = Extend(body, sizeof wire);
  std::memcpy(&body[at], &wire, sizeof wire);
}

template <typename Wire, typename T>
void TakeField(std::string& body, T& value) {
  Wire wire;
  if (body.size() < sizeof wire) {
    body.clear();
    return;
  }
  std::memcpy(&wire, body.data(), sizeof wire);
  body.erase(0, sizeof wire);
  value = static_cast<T>(wire);
}

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
  return a.type == b.type && a.payloadType == b.payloadType && a.codec == b.codec &&
         a.clockRate == b.clockRate && a.address == b.address && a.port == b.port &&
         a.packetTime == b.packetTime && a.direction == b.direction;
}

bool operator!=(MediaParams const& a, MediaParams const& b) { return !(a == b); }

std::string& operator<<(std::string& body, MediaParams const& media) {
  PutField<std::int32_t>(body, media.type);
  PutField<std::int32_t>(body, media.payloadType);
  body << media.codec;
  PutField<std::uint32_t>(body, media.clockRate);
  body << media.address;
  PutField<std::uint16_t>(body, media.port);
  PutField<std::uint16_t>(body, media.packetTime);
  PutField<std::uint32_t>(body, media.direction);
  return body;
}

std::string& operator>>(std::string& body, MediaParams& media) {
  TakeField<std::int32_t>(body, media.type);
  TakeField<std::int32_t>(body, media.payloadType);
  body >> media.codec;
  TakeField<std::uint32_t>(body, media.clockRate);
  body >> media.address;
  TakeField<std::uint16_t>(body, media.port);
  TakeField<std::uint16_t>(body, media.packetTime);
  TakeField<std::uint32_t>(body, media.direction);
  return body;
}

bool operator==(FaxStatistics const& a, FaxStatistics const& b) {
  return a.remoteId == b.remoteId && a.pages == b.pages && a.bitRate == b.bitRate &&
         a.badLines == b.badLines;
}

bool operator!=(FaxStatistics const& a, FaxStatistics const& b) { return !(a == b); }

std::string& operator<<(std::string& body, FaxStatistics const& fax) {
  body << fax.remoteId;
  PutField<std::uint32_t>(body, fax.pages);
  PutField<std::uint32_t>(body, fax.bitRate);
  PutField<std::uint16_t>(body, fax.badLines);
  return body;
}

std::string& operator>>(std::string& body, FaxStatistics& fax) {
  body >> fax.remoteId;
  TakeField<std::uint32_t>(body, fax.pages);
  TakeField<std::uint32_t>(body, fax.bitRate);
  TakeField<std::uint16_t>(body, fax.badLines);
  return body;
}

bool operator==(CallStatistics const& a, CallStatistics const& b) {
  return a.txPackets == b.txPackets && a.txCodec == b.txCodec && a.txPacketSize == b.txPacketSize &&
         a.rxPackets == b.rxPackets && a.rxCodec == b.rxCodec && a.rxPacketSize == b.rxPacketSize &&
         a.rxPacketsLost == b.rxPacketsLost && a.rxJitter == b.rxJitter &&
         a.rxMaxDelay == b.rxMaxDelay && a.fax == b.fax;
}

bool operator!=(CallStatistics const& a, CallStatistics const& b) { return !(a == b); }

std::string& operator<<(std::string& body, CallStatistics const& statistics) {
  PutField<std::uint32_t>(body, statistics.txPackets);
  PutField<std::uint16_t>(body, statistics.txCodec);
  PutField<std::uint16_t>(body, statistics.txPacketSize);
  PutField<std::uint32_t>(body, statistics.rxPackets);
  PutField<std::uint16_t>(body, statistics.rxCodec);
  PutField<std::uint16_t>(body, statistics.rxPacketSize);
  PutField<std::uint16_t>(body, statistics.rxPacketsLost);
  PutField<std::uint32_t>(body, statistics.rxJitter);
  PutField<std::uint32_t>(body, statistics.rxMaxDelay);
  return body << statistics.fax;
}

std::string& operator>>(std::string& body, CallStatistics& statistics) {
  TakeField<std::uint32_t>(body, statistics.txPackets);
  TakeField<std::uint16_t>(body, statistics.txCodec);
  TakeField<std::uint16_t>(body, statistics.txPacketSize);
  TakeField<std::uint32_t>(body, statistics.rxPackets);
  TakeField<std::uint16_t>(body, statistics.rxCodec);
  TakeField<std::uint16_t>(body, statistics.rxPacketSize);
  TakeField<std::uint16_t>(body, statistics.rxPacketsLost);
  TakeField<std::uint32_t>(body, statistics.rxJitter);
  TakeField<std::uint32_t>(body, statistics.rxMaxDelay);
  return body >> statistics.fax;
}
