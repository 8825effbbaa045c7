#include <gtest/gtest.h>

#include <string>

#include "sip_messengers.h"

namespace {

// Every output of unpackServerParams as "op:second|bp:second|bo:second|
// flag:number|sp:second|urip|bnd", each preset ("?", flag 1, number 77) so
// that an output left alone shows.
std::string Unpack(std::string const& in) {
  std::string t[10] = {"?", "?", "?", "?", "?", "?", "?", "?", "?", "?"};
  bool flag = true;
  unsigned int number = 77;
  unpackServerParams(in, &t[0], &t[1], &t[2], &t[3], &t[4], &t[5], &flag, &number, &t[6], &t[7], &t[8], &t[9]);
  return t[0] + ":" + t[1] + "|" + t[2] + ":" + t[3] + "|" + t[4] + ":" + t[5] + "|" + (flag ? "1:" : "0:") +
         std::to_string(number) + "|" + t[6] + ":" + t[7] + "|" + t[8] + "|" + t[9];
}

TEST(ServerParamsTest, PackWritesThePresentItemsInOrderAndUnpackReadsThemBack) {
  std::string const host = "proxy.example", port = "5060", none = "", backup = "backup", uri = "sip:gw@example";
  bool const yes = true, no = false;
  unsigned int const most = 4294967295u;
  std::string out = "keep";
  packServerParams(out, &host, &port, &backup, nullptr, &backup, &none, &yes, &most, &host, &port, &uri, &backup);
  EXPECT_EQ(out, "keep[OP#proxy.example:5060][BP#backup][BO#backup][NP#1:4294967295][SP#proxy.example:5060]"
                 "[URIP#sip:gw@example][BND#backup]");
  EXPECT_EQ(Unpack(out), "proxy.example:5060|backup:?|backup:?|1:4294967295|proxy.example:5060|sip:gw@example|backup");
  // An empty main text drops its whole pair; the need-ping item needs only
  // its flag; a number without a flag writes nothing.
  out.clear();
  packServerParams(out, &none, &port, &host, &none, nullptr, &port, &no, nullptr, nullptr, nullptr, &none, nullptr);
  EXPECT_EQ(out, "[BP#proxy.example][NP#0]");
  out.clear();
  packServerParams(out, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &most, nullptr, nullptr,
                   nullptr, nullptr);
  EXPECT_EQ(out, "");
}

// Items are found anywhere; missing or unclosed ones leave their outputs
// alone. The reading side requires flag, ":", number and "]" of the need-ping
// item: what pack writes for a flag without a number reads back as false.
TEST(ServerParamsTest, UnpackFindsItemsAnywhereAndLeavesMissingOnesAlone) {
  char const* const rows[][2] = {
      {"", "?:?|?:?|?:?|0:77|?:?|?|?"},  // only the flag is always written
      {"[BND#lo][NP#0:5][OP#h:1]", "h:1|?:?|?:?|0:5|?:?|?|lo"},
      {"[OP#host][SP#a:b][URIP#sip:gw:5060]", "host:?|?:?|?:?|0:77|a:b|sip:gw:5060|?"},
      {"[OP#host:5060[URIP#sip:x", "?:?|?:?|?:?|0:77|?:?|?|?"},
      {"[NP#1:5]", "?:?|?:?|?:?|1:5|?:?|?|?"},
      {"[NP#1]", "?:?|?:?|?:?|0:77|?:?|?|?"},
      {"[NP#1:5", "?:?|?:?|?:?|0:77|?:?|?|?"},
      {"[NP#1:4294967296]", "?:?|?:?|?:?|1:0|?:?|?|?"},  // overflow stored as 0
  };
  for (auto const& row : rows) EXPECT_EQ(row[1], Unpack(row[0])) << row[0];
  std::string op;
  bool flag = true;
  unpackServerParams("[OP#h:1][NP#1:2]", &op, nullptr, nullptr, nullptr, nullptr, nullptr, &flag, nullptr, nullptr,
                     nullptr, nullptr, nullptr);
  EXPECT_EQ(op, "h");
  EXPECT_TRUE(flag);
}

TEST(ServerParamsTest, ItoadWritesDecimalDigits) {
  char buffer[11];
  EXPECT_EQ(itoad(0, buffer, false), buffer);
  EXPECT_STREQ(buffer, "0");
  EXPECT_EQ(itoad(4294967295u, buffer, true), buffer + 10);
  EXPECT_STREQ(buffer, "4294967295");
}

}  // namespace
