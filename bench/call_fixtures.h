// The records of a SIP call set-up between an extension and a trunk, as the
// messenger benchmarks send them.
#ifndef LIBMESSAGING_BENCH_CALL_FIXTURES_H_
#define LIBMESSAGING_BENCH_CALL_FIXTURES_H_

#include <list>
#include <string>

#include "call_records.h"

namespace bench {

inline CallParams Party(char const* user, char const* display, char const* tag, char const* host,
                        char const* contact, char const* session, char const* line, char const* auth) {
  CallParams p;
  p.user = user;
  p.displayName = display;
  p.number = user;
  p.tag = tag;
  p.host = host;
  p.contact = contact;
  p.sessionId = session;
  p.line = line;
  p.authUser = auth;
  p.port = 5060;
  return p;
}

inline MediaParams Media(int type, int payload, char const* codec, unsigned rate, unsigned short port) {
  MediaParams m;
  m.type = type;
  m.payloadType = payload;
  m.codec = codec;
  m.clockRate = rate;
  m.address = "192.0.2.10";
  m.port = port;
  m.packetTime = 20;
  m.direction = MediaParams::kSend | MediaParams::kReceive;
  return m;
}

inline CallParams Caller() {
  return Party("2001", "Reception Desk", "as6f1c0e2d", "192.0.2.10", "sip:2001@192.0.2.10:5060",
               "a84b4c76e66710@192.0.2.10", "SIP-1", "2001");
}

inline CallParams Callee() { return Party("0049301234567", "", "", "sip.example.net", "", "", "TRUNK-2", ""); }

inline std::list<MediaParams> AnswerMedia() {
  return {Media(MediaParams::kAudio, 0, "PCMU", 8000, 40000),
          Media(MediaParams::kAudio, 101, "telephone-event", 8000, 40000)};
}

// Lines of a large offer, taken in turn when a Ringing is grown.
inline MediaParams OfferLine(unsigned i) {
  switch (i % 7) {
    case 0: return Media(MediaParams::kAudio, 0, "PCMU", 8000, 40000);
    case 1: return Media(MediaParams::kAudio, 8, "PCMA", 8000, 40000);
    case 2: return Media(MediaParams::kAudio, 9, "G722", 8000, 40000);
    case 3: return Media(MediaParams::kAudio, 18, "G729", 8000, 40000);
    case 4: return Media(MediaParams::kAudio, 101, "telephone-event", 8000, 40000);
    case 5: return Media(MediaParams::kVideo, 96, "H264", 90000, 40002);
    default: return Media(MediaParams::kImage, 0, "t38", 0, 40004);
  }
}

// An SDP-sized free text of exactly `length` bytes.
inline std::string SdpText(std::size_t length) {
  static char const kSdp[] =
      "v=0\r\no=2001 8000 8000 IN IP4 192.0.2.10\r\ns=call\r\nc=IN IP4 192.0.2.10\r\nt=0 0\r\n"
      "m=audio 40000 RTP/AVP 0 8 9 18 101\r\na=rtpmap:101 telephone-event/8000\r\na=ptime:20\r\n";
  std::string text;
  while (text.size() < length) text += kSdp;
  text.resize(length);
  return text;
}

}  // namespace bench

#endif  // LIBMESSAGING_BENCH_CALL_FIXTURES_H_
