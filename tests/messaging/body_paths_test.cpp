// Messengers encode a body in one sized pass and decode it through a cursor,
// while the exported operators append and erase field by field. The two must
// agree byte for byte and value for value, also on every truncation of a
// body and on a forged sequence count.
#include <gtest/gtest.h>

#include <list>
#include <string>
#include <tuple>

#include "call_records.h"
#include "messaging/messenger.h"
#include "support/golden.h"

namespace {

using Media = std::list<MediaParams>;
using Body = std::tuple<CallParams, unsigned long long, Media, std::string, CallExtraParams, RegisterParams, bool,
                        CallStatistics>;

Body Sample() {
  CallParams party;
  party.user = "alice";
  party.info = std::string("with\0zero", 9);
  party.port = 5060;
  MediaParams audio;
  audio.type = MediaParams::kAudio;
  audio.codec = "PCMU";
  audio.address = "192.0.2.1";
  audio.port = 4000;
  MediaParams video = audio;
  video.codec = "a codec name longer than the short-string buffer";
  CallStatistics statistics;
  statistics.rxJitter = 7;
  statistics.fax.remoteId = "+1 555";
  return Body{party, 0x0102030405060708ULL, Media{audio, video}, std::string(40, 'x'), CallExtraParams{1, 2},
              RegisterParams(party, true), true, statistics};
}

std::string ByOperators(Body const& b) {
  std::string body;
  body << std::get<0>(b) << std::get<1>(b);
  PackTemplate(body, std::get<2>(b));
  body << std::get<3>(b) << std::get<4>(b) << std::get<5>(b) << std::get<6>(b) << std::get<7>(b);
  return body;
}

Body DecodeByOperators(std::string body) {
  Body b{};
  body >> std::get<0>(b) >> std::get<1>(b);
  UnpackTemplate(body, std::get<2>(b));
  body >> std::get<3>(b) >> std::get<4>(b) >> std::get<5>(b) >> std::get<6>(b) >> std::get<7>(b);
  return b;
}

Body DecodeInPlace(std::string const& body) {
  Body b{};
  Deliver<CallParams, unsigned long long, Media, std::string, CallExtraParams, RegisterParams, bool, CallStatistics>(
      body, [&b](auto&... f) { b = Body{f...}; });
  return b;
}

TEST(BodyPaths, EncodersAgree) {
  Body const b = Sample();
  std::apply([&](auto const&... f) { EXPECT_EQ(test::Hex(ByOperators(b)), test::Hex(MakeBody(f...))); }, b);
}

TEST(BodyPaths, DecodersAgreeOnEveryTruncation) {
  std::string const whole = ByOperators(Sample());
  for (std::size_t length = 0; length <= whole.size(); ++length) {
    std::string const body = whole.substr(0, length);
    EXPECT_TRUE(DecodeInPlace(body) == DecodeByOperators(body)) << "first " << length << " bytes";
  }
  EXPECT_TRUE(DecodeInPlace(whole) == Sample());
}

TEST(BodyPaths, ForgedCountYieldsTheSameBoundedCopies) {
  // An honest count costs the made-up allowance nothing, however long the list.
  Media const many(kMaxSequenceElements, MediaParams());
  Body const honest = DecodeInPlace(MakeBody(CallParams(), 0ULL, many));
  EXPECT_EQ(many, std::get<2>(honest));

  std::string body = MakeBody(CallParams(), 0ULL, 70000u);  // a media count far beyond the data
  body << MediaParams();
  Body const inPlace = DecodeInPlace(body);
  EXPECT_EQ(1 + kMaxMadeUpBytes / 28, std::get<2>(inPlace).size());  // 28 bytes: an empty MediaParams
  EXPECT_TRUE(inPlace == DecodeByOperators(body));
}

}  // namespace
