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

// `value` encodes to `bytes`, and decoding `bytes` gives it back consuming
// exactly those bytes.
template <typename T>
void ExpectBothWays(T value, std::string const& bytes) {
  std::string body;
  body << value;
  EXPECT_EQ(Hex(bytes), Hex(body));
  T decoded{};
  body = bytes + "\x7F";
  body >> decoded;
  EXPECT_EQ(value, decoded) << Hex(bytes);
  EXPECT_EQ("\x7F", body);
}

}  // namespace

TEST(Codec, EachWidthOnTheWire) {
  ExpectBothWays(true, B("01"));
  ExpectBothWays(false, B("00"));
  ExpectBothWays('A', B("41"));
  ExpectBothWays(static_cast<unsigned char>(0xFE), B("FE"));
  ExpectBothWays(static_cast<unsigned short>(0x1234), N("12 34"));
  ExpectBothWays(-2, N("FF FF FF FE"));
  ExpectBothWays(0x80000001u, N("80 00 00 01"));
  ExpectBothWays(-1L, N("FF FF FF FF"));  // 4 bytes on 64-bit hosts too, sign-extended back
  ExpectBothWays(0x87654321UL, N("87 65 43 21"));
  ExpectBothWays(kPlainValue, N("01 02 03 04"));
  ExpectBothWays(Scoped::kNegative, N("FF FF FF FE"));
  ExpectBothWays(0x0102030405060708ULL, N("01 02 03 04 05 06 07 08"));
  std::string nonZero = B("02");
  bool flag = false;
  nonZero >> flag;
  EXPECT_TRUE(flag);  // any non-zero byte is true
}

TEST(Codec, FieldsFollowEachOtherInOneReservedBody) {
  std::string body;
  body << 1 << 2ULL;
  EXPECT_EQ(Hex(N("00 00 00 01") + N("00 00 00 00 00 00 00 02")), Hex(body));
  EXPECT_GE(body.capacity(), kInitialBodyReserve);
  char const* storage = body.data();
  while (body.size() + 4 <= kInitialBodyReserve) body << 0;
  EXPECT_EQ(storage, body.data()) << "a body within its reservation must not move";
}

TEST(Codec, ShortBodyLeavesTargetsAndEmptiesIt) {
  std::string body = B("00 00 01");
  int first = 7;
  unsigned long long second = 9;
  bool flag = true;
  body >> first >> second;
  EXPECT_TRUE(body.empty());
  body = B("01 02 03 04 05 06 07");
  body >> second >> flag;
  EXPECT_TRUE(body.empty());
  EXPECT_TRUE(first == 7 && second == 9u && flag);
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
  // A forged count makes up no more than the allowance of copies, instead of
  // 4G elements.
  std::vector<unsigned short> forged;
  body = N("FF FF FF FF");
  UnpackTemplate(body, forged);
  EXPECT_EQ(kMaxMadeUpBytes / 2, forged.size());
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
  EXPECT_EQ(Hex(N("00 00 00 02") + N("00 00 00 02") + B("61 62") + N("00 00 00 00") + B("7A")), Hex(fromList));
  EXPECT_EQ(fromList, fromVector);
  std::vector<std::string> decoded;
  UnpackTemplate(fromList, decoded);
  EXPECT_EQ((std::vector<std::string>{"ab", ""}), decoded);
  EXPECT_EQ("z", fromList);
}
