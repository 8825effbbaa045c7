// The body codec: each width of the table on both byte orders, short bodies,
// and sequences with honest, short and forged counts.
#include <gtest/gtest.h>

#include <codec.h>

#include <list>
#include <vector>

#include "support/golden.h"

using test::B;
using test::Hex;
using test::N;

namespace {

enum Plain { kPlainValue = 0x01020304 };
enum class Scoped : int { kNegative = -2 };

template <typename T>
std::string Encode(T const& value) {
  std::string body;
  body << value;
  return body;
}

// Decodes a T from `bytes` and checks that exactly its bytes were consumed.
template <typename T>
T Decode(std::string bytes) {
  T value{};
  bytes += "\x7F";
  bytes >> value;
  EXPECT_EQ("\x7F", bytes);
  return value;
}

}  // namespace

TEST(Codec, EachWidthOnTheWire) {
  EXPECT_EQ(Hex(B("01")), Hex(Encode(true)));
  EXPECT_EQ(Hex(B("41")), Hex(Encode('A')));
  EXPECT_EQ(Hex(B("FE")), Hex(Encode(static_cast<unsigned char>(0xFE))));
  EXPECT_EQ(Hex(N("12 34")), Hex(Encode(static_cast<unsigned short>(0x1234))));
  EXPECT_EQ(Hex(N("FF FF FF FE")), Hex(Encode(-2)));
  EXPECT_EQ(Hex(N("80 00 00 01")), Hex(Encode(0x80000001u)));
  EXPECT_EQ(Hex(N("FF FF FF FF")), Hex(Encode(-1L)));  // 4 bytes on 64-bit hosts too
  EXPECT_EQ(Hex(N("87 65 43 21")), Hex(Encode(0x87654321UL)));
  EXPECT_EQ(Hex(N("01 02 03 04")), Hex(Encode(kPlainValue)));
  EXPECT_EQ(Hex(N("FF FF FF FE")), Hex(Encode(Scoped::kNegative)));
  EXPECT_EQ(Hex(N("01 02 03 04 05 06 07 08")), Hex(Encode(0x0102030405060708ULL)));

  EXPECT_TRUE(Decode<bool>(B("02")));  // any non-zero byte is true
  EXPECT_FALSE(Decode<bool>(B("00")));
  EXPECT_EQ('A', Decode<char>(B("41")));
  EXPECT_EQ(0xFE, Decode<unsigned char>(B("FE")));
  EXPECT_EQ(0x1234, Decode<unsigned short>(N("12 34")));
  EXPECT_EQ(-2, Decode<int>(N("FF FF FF FE")));
  EXPECT_EQ(0x80000001u, Decode<unsigned int>(N("80 00 00 01")));
  EXPECT_EQ(-1L, Decode<long>(N("FF FF FF FF")));  // sign-extended
  EXPECT_EQ(0x87654321UL, Decode<unsigned long>(N("87 65 43 21")));
  EXPECT_EQ(kPlainValue, Decode<Plain>(N("01 02 03 04")));
  EXPECT_EQ(Scoped::kNegative, Decode<Scoped>(N("FF FF FF FE")));
  EXPECT_EQ(0x0102030405060708ULL, Decode<unsigned long long>(N("01 02 03 04 05 06 07 08")));
}

TEST(Codec, FieldsFollowEachOtherInOneReservedBody) {
  std::string body;
  body << 1 << 2ULL;
  EXPECT_EQ(Hex(N("00 00 00 01") + N("00 00 00 00 00 00 00 02")), Hex(body));
  if (!test::HostIsLittleEndian()) {
    EXPECT_EQ(Hex(B("00 00 00 01 00 00 00 00 00 00 00 02")), Hex(body));
  }
  EXPECT_GE(body.capacity(), kInitialBodyReserve);
  char const* storage = body.data();
  while (body.size() + 4 <= kInitialBodyReserve) body << 0;
  EXPECT_EQ(storage, body.data()) << "a body within its reservation must not move";
}

TEST(Codec, ShortBodyLeavesTargetsAndEmptiesIt) {
  std::string body = B("00 00 01");
  int first = 7;
  unsigned long long second = 9;
  body >> first >> second;
  EXPECT_EQ(7, first);
  EXPECT_EQ(9u, second);
  EXPECT_TRUE(body.empty());

  body = B("01 02 03 04 05 06 07");
  body >> second;
  EXPECT_EQ(9u, second);
  EXPECT_TRUE(body.empty());

  bool flag = true;
  body >> flag;
  EXPECT_TRUE(flag);
}

TEST(Codec, SequenceCounts) {
  std::string body;
  PackTemplate(body, std::list<int>());
  EXPECT_EQ(Hex(N("00 00 00 00")), Hex(body));
  std::list<int> target = {5, 6};
  UnpackTemplate(body, target);
  EXPECT_TRUE(target.empty());

  // A count of 3 with one element's data: three copies of it.
  body = N("00 00 00 03") + N("00 00 00 2A");
  UnpackTemplate(body, target);
  EXPECT_EQ((std::list<int>{42, 42, 42}), target);

  // A forged count stops at the bound instead of allocating 4G elements.
  std::vector<unsigned short> forged;
  body = N("FF FF FF FF");
  UnpackTemplate(body, forged);
  EXPECT_EQ(kMaxSequenceElements, forged.size());
  EXPECT_TRUE(body.empty());

  // Too short for the count: an empty result.
  body = B("00 00");
  target = {1};
  UnpackTemplate(body, target);
  EXPECT_TRUE(target.empty());
}

TEST(Codec, ListAndVectorShareTheLayout) {
  std::string fromList, fromVector;
  PackTemplate(fromList, std::list<std::string>{"ab", ""}) << 'z';
  PackTemplate(fromVector, std::vector<std::string>{"ab", ""}) << 'z';
  EXPECT_EQ(Hex(N("00 00 00 02") + N("00 00 00 02") + B("61 62") + N("00 00 00 00") + B("7A")),
            Hex(fromList));
  EXPECT_EQ(fromList, fromVector);

  std::vector<std::string> decoded;
  UnpackTemplate(fromList, decoded);
  EXPECT_EQ((std::vector<std::string>{"ab", ""}), decoded);
  EXPECT_EQ("z", fromList);
}
