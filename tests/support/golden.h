// Golden bodies written as the appliance (big-endian) lays them out.
//
// N("00 00 00 01") is one number field, most significant byte first; on a
// little-endian host its bytes are reversed, which is what the codec's
// host-order copy produces there. W("00000001 0005") is one number per
// token, its width given by its digits. B("61 62") is raw bytes (text
// contents), never reversed; Text("ab") a counted text. Hex() renders a body
// for readable failure messages.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>

#include "vpnutils_records.h"

namespace test {

inline std::string B(char const* hex) {
  std::string digits, bytes;
  for (char const* at = hex; *at; ++at)
    if (*at != ' ') digits += *at;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
    bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
  return bytes;
}

inline bool HostIsLittleEndian() {
  std::uint16_t one = 1;
  unsigned char first;
  std::memcpy(&first, &one, 1);
  return first == 1;
}

inline std::string N(char const* hex) {
  std::string bytes = B(hex);
  if (HostIsLittleEndian()) bytes.assign(bytes.rbegin(), bytes.rend());
  return bytes;
}

inline std::string W(char const* tokens) {
  std::istringstream in(tokens);
  std::string token, bytes;
  while (in >> token) bytes += N(token.c_str());
  return bytes;
}

inline std::string Text(std::string const& text) {
  char length[16];
  std::snprintf(length, sizeof length, "%08zX", text.size());
  return W(length) + text;
}

inline std::string Hex(std::string const& bytes) {
  std::string out;
  char pair[4];
  for (unsigned char c : bytes) {
    std::snprintf(pair, sizeof pair, "%02X ", c);
    out += pair;
  }
  return out;
}

// A media record with every field set, and its bytes.
inline MediaParams SampleMedia() {
  MediaParams m;
  m.type = MediaParams::kAudio;
  m.payloadType = 8;
  m.codec = "PCMA";
  m.clockRate = 8000;
  m.address = "10.0.0.2";
  m.port = 4000;
  m.packetTime = 20;
  m.direction = MediaParams::kSend | MediaParams::kReceive;
  return m;
}
// type, payloadType, codec, clockRate, address, port, packetTime, direction
inline std::string SampleMediaBytes() {
  return W("00000001 00000008") + Text("PCMA") + W("00001F40") + Text("10.0.0.2") + W("0FA0 0014 00000003");
}

}  // namespace test
