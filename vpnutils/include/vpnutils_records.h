// Media and call statistics records carried in message bodies.
//
// Each record is a plain value. Its operator<< appends the fields in
// declaration order (numbers at the width of their declared type, in the
// host's byte order; texts as in vpnutils_codec.h); its operator>> takes them
// off the front in the same order. Decoding goes field by field: when the body
// runs out, the field being read and every later one keep the values they had
// and the body is left empty. Receivers therefore decode into
// default-constructed records.
#ifndef VPNUTILS_VPNUTILS_RECORDS_H_
#define VPNUTILS_VPNUTILS_RECORDS_H_

#include <cstdint>
#include <string>

#include "vpnutils_codec.h"

// One media stream of a session description.
//
// Wire layout: type (4), payloadType (4), codec (text), clockRate (4),
// address (text), port (2), packetTime (2), direction (4).
struct MediaParams {
  // Values of `type`; 0 means not set.
  static constexpr int kAudio = 1;
  static constexpr int kVideo = 2;
  static constexpr int kImage = 3;  // fax relay
  // Bits of `direction`; 0 means inactive.
  static constexpr unsigned int kSend = 1;
  static constexpr unsigned int kReceive = 2;

  int type = 0;
  int payloadType = 0;          // RTP payload type number
  std::string codec;            // encoding name as negotiated, e.g. "PCMU"
  unsigned int clockRate = 0;   // Hz
  std::string address;          // connection address as text (IPv4, IPv6 or host)
  unsigned short port = 0;      // RTP port; RTCP uses port + 1
  unsigned short packetTime = 0;  // milliseconds of media per packet
  unsigned int direction = 0;   // kSend | kReceive
};

bool operator==(MediaParams const& a, MediaParams const& b);
bool operator!=(MediaParams const& a, MediaParams const& b);
std::string& operator<<(std::string& body, MediaParams const& media);
std::string& operator>>(std::string& body, MediaParams& media);

// Outcome of a fax relayed during a call.
//
// Wire layout: remoteId (text), pages (4), bitRate (4), badLines (2).
struct FaxStatistics {
  std::string remoteId;        // station identifier announced by the remote fax
  std::uint32_t pages = 0;     // pages transferred
  std::uint32_t bitRate = 0;   // last negotiated signalling rate, bit/s
  std::uint16_t badLines = 0;  // scan lines received with errors
};

bool operator==(FaxStatistics const& a, FaxStatistics const& b);
bool operator!=(FaxStatistics const& a, FaxStatistics const& b);
std::string& operator<<(std::string& body, FaxStatistics const& fax);
std::string& operator>>(std::string& body, FaxStatistics& fax);

// Media counters of one call leg, as shown on the line status page.
//
// Wire layout: txPackets (4), txCodec (2), txPacketSize (2), rxPackets (4),
// rxCodec (2), rxPacketSize (2), rxPacketsLost (2), rxJitter (4),
// rxMaxDelay (4), then fax as FaxStatistics.
struct CallStatistics {
  std::uint32_t txPackets = 0;      // RTP packets sent
  std::uint16_t txCodec = 0;        // payload type of the sent stream
  std::uint16_t txPacketSize = 0;   // payload bytes per sent packet
  std::uint32_t rxPackets = 0;      // RTP packets received
  std::uint16_t rxCodec = 0;        // payload type of the received stream
  std::uint16_t rxPacketSize = 0;   // payload bytes per received packet
  std::uint16_t rxPacketsLost = 0;  // packets missing from the received sequence
  std::uint32_t rxJitter = 0;       // interarrival jitter, milliseconds
  std::uint32_t rxMaxDelay = 0;     // largest delay seen, milliseconds
  FaxStatistics fax;
};

bool operator==(CallStatistics const& a, CallStatistics const& b);
bool operator!=(CallStatistics const& a, CallStatistics const& b);
std::string& operator<<(std::string& body, CallStatistics const& statistics);
std::string& operator>>(std::string& body, CallStatistics& statistics);

// Field lists, in wire order, for code that walks a record's fields (the
// operators above are such walks; a decoder that reads a body in place is
// another): Fields(record, visit) calls visit(field...).
template <typename Visit>
decltype(auto) Fields(MediaParams& m, Visit&& visit) {
  return visit(m.type, m.payloadType, m.codec, m.clockRate, m.address, m.port, m.packetTime, m.direction);
}
template <typename Visit>
decltype(auto) Fields(FaxStatistics& f, Visit&& visit) {
  return visit(f.remoteId, f.pages, f.bitRate, f.badLines);
}
template <typename Visit>
decltype(auto) Fields(CallStatistics& s, Visit&& visit) {
  return visit(s.txPackets, s.txCodec, s.txPacketSize, s.rxPackets, s.rxCodec, s.rxPacketSize, s.rxPacketsLost,
               s.rxJitter, s.rxMaxDelay, s.fax);
}

#endif  // VPNUTILS_VPNUTILS_RECORDS_H_
