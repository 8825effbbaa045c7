// Texts and records in bodies: golden layouts on both byte orders, and what a
// short or forged body leaves behind.
#include <gtest/gtest.h>

#include <vpnutils.h>

#include <functional>
#include <vector>

#include "support/golden.h"

using namespace test;

TEST(TextCodec, LengthThenBytesWithZerosKept) {
  std::string body = "xy";  // appends after what is there
  body << std::string("ab\0c", 4) << std::string();
  EXPECT_EQ(Hex(B("78 79") + W("00000004") + B("61 62 00 63") + W("00000000")), Hex(body));
  EXPECT_GE(body.capacity(), 512u);
  body.erase(0, 2);
  std::string first = "old", second = "old";
  body >> first >> second;
  EXPECT_EQ(std::string("ab\0c", 4), first);
  EXPECT_EQ("", second);
  EXPECT_TRUE(body.empty());
  std::string self = "hi";
  self << self;
  EXPECT_EQ(Hex(B("68 69") + Text("hi")), Hex(self));
}

TEST(TextCodec, TruncatedOrForgedLengthLeavesTargetAndEmptiesBody) {
  for (std::string body : {B("00 00 00"),                     // short prefix
                           W("00000005") + B("61 62 63 64"),  // one byte missing
                           W("FFFFFFFF") + B("61 62")}) {     // forged length
    std::string text = "kept";
    body >> text;
    EXPECT_EQ("kept", text) << Hex(body);
    EXPECT_TRUE(body.empty());
  }
}

namespace {

MediaParams const kMedia = SampleMedia();

CallStatistics const kStatistics = [] {
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
}();

}  // namespace

// Each record followed by a byte that must stay: it consumes exactly its own.
TEST(RecordCodec, LayoutsRoundTrip) {
  std::string body;
  (body << kMedia) += 'z';
  EXPECT_EQ(Hex(SampleMediaBytes() + B("7A")), Hex(body));
  MediaParams media;
  body >> media;
  EXPECT_EQ(kMedia, media);
  EXPECT_EQ("z", body);
  body.clear();
  (body << kStatistics) += 'z';
  EXPECT_EQ(Hex(W("01020304 0506 0708") + W("090A0B0C 0D0E 0F10 1112") +  // tx, rx
                W("13141516 1718191A") + Text("F1") + W("00000003 00003840 0002") + B("7A")),  // jitter, delay, fax
            Hex(body));
  CallStatistics statistics;
  body >> statistics;
  EXPECT_EQ(kStatistics, statistics);
  EXPECT_EQ("z", body);
  body.clear();  // a default record is all zeros and empty texts
  body << MediaParams() << CallStatistics();
  EXPECT_EQ(Hex(std::string(28 + 40, '\0')), Hex(body));
}

TEST(RecordCodec, EqualityComparesEveryFieldIncludingTheFax) {
  using S = CallStatistics;
  std::vector<std::function<void(S&)>> changes = {
      [](S& s) { ++s.txPackets; },     [](S& s) { ++s.txCodec; },           [](S& s) { ++s.txPacketSize; },
      [](S& s) { ++s.rxPackets; },     [](S& s) { ++s.rxCodec; },           [](S& s) { ++s.rxPacketSize; },
      [](S& s) { ++s.rxPacketsLost; }, [](S& s) { ++s.rxJitter; },          [](S& s) { ++s.rxMaxDelay; },
      [](S& s) { ++s.fax.pages; },     [](S& s) { s.fax.remoteId += "x"; }, [](S& s) { ++s.fax.bitRate; },
      [](S& s) { ++s.fax.badLines; }};
  for (std::size_t i = 0; i < changes.size(); ++i) {
    S changed = kStatistics;
    changes[i](changed);
    EXPECT_NE(kStatistics, changed) << "field " << i;
  }
}

TEST(RecordCodec, TruncationKeepsTheFieldsNotReached) {
  std::string body;
  body << kMedia;
  body.resize(4 + 4 + 8 + 4 + 6);  // cuts the address text short
  MediaParams target, expected = kMedia;
  target.address = expected.address = "keep";
  target.port = expected.port = 1;
  target.packetTime = expected.packetTime = 2;
  target.direction = expected.direction = 3;
  body >> target;
  EXPECT_EQ(expected, target);  // the fields before the address reached
  EXPECT_TRUE(body.empty());
}
