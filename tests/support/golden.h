// Golden bodies written as the appliance (big-endian) lays them out.
//
// N("00 00 00 01") is one number field, most significant byte first; on a
// little-endian host its bytes are reversed, which is what the codec's
// host-order copy produces there. B("61 62") is raw bytes (text contents),
// never reversed. Hex() renders a body for readable failure messages.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

namespace test {

inline std::string B(char const* hex) {
  std::string bytes;
  int high = -1;
  for (char const* at = hex; *at; ++at) {
    char c = *at;
    int digit = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10
                : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
    if (digit < 0) continue;
    if (high < 0) {
      high = digit;
    } else {
      bytes.push_back(static_cast<char>(high * 16 + digit));
      high = -1;
    }
  }
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

inline std::string Hex(std::string const& bytes) {
  std::string out;
  char pair[4];
  for (unsigned char c : bytes) {
    std::snprintf(pair, sizeof pair, "%02X ", c);
    out += pair;
  }
  return out;
}

}  // namespace test
