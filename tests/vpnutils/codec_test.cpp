// Texts and records in bodies: golden layouts on both byte orders, and what a
// short or forged body leaves behind.
#include <gtest/gtest.h>

#include <vpnutils.h>

#include <functional>
#include <vector>

#include "support/golden.h"

using test::B;
using test::Hex;
using test::N;

TEST(TextCodec, LengthThenBytesWithZerosKept) {
  std::string body = "xy";  // appends after what is there
  body << std::string("ab\0c", 4) << std::string();
  EXPECT_EQ(Hex(B("78 79") + N("00 00 00 04") + B("61 62 00 63") + N("00 00 00 00")), Hex(body));
  EXPECT_GE(body.capacity(), 512u);

  body.erase(0, 2);
  std::string first = "old", second = "old";
  body >> first >> second;
  EXPECT_EQ(std::string("ab\0c", 4), first);
  EXPECT_EQ("", second);
  EXPECT_TRUE(body.empty());

  std::string self = "hi";
  self << self;
  EXPECT_EQ(Hex(B("68 69") + N("00 00 00 02") + B("68 69")), Hex(self));
}

TEST(TextCodec, TruncatedOrForgedLengthLeavesTargetAndEmptiesBody) {
  for (std::string body : {B("00 00 00"),                 // short prefix
                           N("00 00 00 05") + B("61 62 63 64"),  // one byte missing
                           N("FF FF FF FF") + B("61 62")}) {     // forged length
    std::string text = "kept";
    body >> text;
    EXPECT_EQ("kept", text) << Hex(body);
    EXPECT_TRUE(body.empty());
  }
}

namespace {

MediaParams SampleMedia() {
  MediaParams media;
  media.type = MediaParams::kAudio;
  media.payloadType = 8;
  media.codec = "PCMA";
  media.clockRate = 8000;
  media.address = "10.0.0.2";
  media.port = 4000;
  media.packetTime = 20;
  media.direction = MediaParams::kSend | MediaParams::kReceive;
  return media;
}

CallStatistics SampleStatistics() {
  CallStatistics s;
  s.txPackets = 0x01020304;
  s.txCodec = 0x0506;
  s.txPacketSize = 0x0708;
  s.rxPackets = 0x090A0B0C;
  s.rxCodec = 0x0D0E;
  s.rxPacketSize = 0x0F10;
  s.rxPacketsLost = 0x1112;
  s.rxJitter = 0x13141516;
  s.rxMaxDelay = 0x1718191A;
  s.fax.remoteId = "F1";
  s.fax.pages = 3;
  s.fax.bitRate = 14400;
  s.fax.badLines = 2;
  return s;
}

}  // namespace

TEST(RecordCodec, MediaParamsLayout) {
  std::string body;
  body << SampleMedia();
  EXPECT_EQ(Hex(N("00 00 00 01")                             // type
                + N("00 00 00 08")                           // payloadType
                + N("00 00 00 04") + B("50 43 4D 41")        // codec "PCMA"
                + N("00 00 1F 40")                           // clockRate 8000
                + N("00 00 00 08") + B("31 30 2E 30 2E 30 2E 32")  // address
                + N("0F A0")                                 // port 4000
                + N("00 14")                                 // packetTime 20
                + N("00 00 00 03")),                         // direction
            Hex(body));
  MediaParams decoded;
  body >> decoded;
  EXPECT_EQ(SampleMedia(), decoded);
  EXPECT_TRUE(body.empty());

  std::string empty;  // a default record is all zeros and empty texts
  empty << MediaParams() << CallStatistics();
  EXPECT_EQ(Hex(std::string(28 + 40, '\0')), Hex(empty));
}

TEST(RecordCodec, CallStatisticsLayoutAndFaxPassThrough) {
  std::string body;
  body << SampleStatistics();
  body.push_back('z');  // whatever follows must stay
  EXPECT_EQ(Hex(N("01 02 03 04") + N("05 06") + N("07 08")                // tx
                + N("09 0A 0B 0C") + N("0D 0E") + N("0F 10") + N("11 12")  // rx
                + N("13 14 15 16") + N("17 18 19 1A")                      // jitter, delay
                + N("00 00 00 02") + B("46 31") + N("00 00 00 03")         // fax id, pages
                + N("00 00 38 40") + N("00 02")                            // rate, bad lines
                + B("7A")),
            Hex(body));
  CallStatistics decoded;
  body >> decoded;
  EXPECT_EQ(SampleStatistics(), decoded);
  EXPECT_EQ(B("7A"), body);  // consumed exactly its own bytes
}

TEST(RecordCodec, EqualityComparesEveryFieldIncludingTheFax) {
  std::vector<std::function<void(CallStatistics&)>> changes = {
      [](CallStatistics& s) { ++s.txPackets; },     [](CallStatistics& s) { ++s.txCodec; },
      [](CallStatistics& s) { ++s.txPacketSize; },  [](CallStatistics& s) { ++s.rxPackets; },
      [](CallStatistics& s) { ++s.rxCodec; },       [](CallStatistics& s) { ++s.rxPacketSize; },
      [](CallStatistics& s) { ++s.rxPacketsLost; }, [](CallStatistics& s) { ++s.rxJitter; },
      [](CallStatistics& s) { ++s.rxMaxDelay; },    [](CallStatistics& s) { s.fax.remoteId += "x"; },
      [](CallStatistics& s) { ++s.fax.pages; },     [](CallStatistics& s) { ++s.fax.bitRate; },
      [](CallStatistics& s) { ++s.fax.badLines; }};
  for (std::size_t i = 0; i < changes.size(); ++i) {
    CallStatistics changed = SampleStatistics();
    changes[i](changed);
    EXPECT_NE(SampleStatistics(), changed) << "field " << i;
  }
}

TEST(RecordCodec, TruncationKeepsTheFieldsNotReached) {
  std::string body;
  body << SampleMedia();
  body.resize(4 + 4 + 8 + 4 + 6);  // cuts the address text short
  MediaParams target;
  target.address = "keep";
  target.port = 1;
  target.packetTime = 2;
  target.direction = 3;
  body >> target;
  EXPECT_EQ(8000u, target.clockRate);  // reached
  EXPECT_EQ("PCMA", target.codec);
  EXPECT_EQ("keep", target.address);   // not reached
  EXPECT_EQ(1, target.port);
  EXPECT_EQ(2, target.packetTime);
  EXPECT_EQ(3u, target.direction);
  EXPECT_TRUE(body.empty());
}
