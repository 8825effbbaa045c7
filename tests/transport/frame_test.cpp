// Frames in the cyclic buffers beyond their placement (which the model check
// in reliability/ sweeps): overflow, empty bodies, short read buffers and the
// handle words, with both ends in this process and a third mapping of the
// segment. (The poller words: queue_poller_test.)
#include <gtest/gtest.h>

#include "support/channel.h"
#include "support/process.h"
#include "transport/handle_registry.h"

namespace {

using namespace test;

constexpr int kId = 7;
constexpr unsigned kWrite = 12;  // first-to-second write position

struct FrameTest : testing::Test {
  Pair pair{kId, 1056};  // each buffer 500 bytes
  unsigned Write(unsigned length, char fill) { return Send(*pair.first, 1, std::string(length, fill)); }
};

TEST_F(FrameTest, OverflowPublishesNothingAndSparesEarlierFrames) {
  ASSERT_TRUE(pair.ok());
  unsigned sent = 0, position = 0;
  Stderr([&] {
    for (; Write(100, static_cast<char>('a' + sent)); ++sent) position = pair.Word(kWrite);
  });
  ASSERT_EQ(4u, sent);  // the fifth would split, and its tail meets the reader
  EXPECT_EQ("Memory overflow error.", CyclicSharedMemory::GetLastError());
  EXPECT_EQ(position, pair.Word(kWrite));
  EXPECT_EQ(4, SemValue(FirstToSecondKey(kId)));
  for (unsigned i = 0; i < sent; ++i)
    EXPECT_EQ("1:" + std::string(100, static_cast<char>('a' + i)), Take(*pair.second)) << i;
  EXPECT_EQ("<none>", Take(*pair.second));
  EXPECT_EQ(104u, Write(100, 'z'));  // drained: writing resumes, split over the end
  EXPECT_EQ("1:" + std::string(100, 'z'), Take(*pair.second));
}

TEST_F(FrameTest, EmptyBodiesAndShortReadBuffers) {
  CyclicSharedMemory& first = *pair.first;
  CyclicSharedMemory& second = *pair.second;
  std::string empty;
  int code = 9;
  EXPECT_EQ(4u, first.Write(&code, &empty));
  EXPECT_EQ(0u, first.Write(nullptr, &empty));
  EXPECT_EQ("Empty message error.", CyclicSharedMemory::GetLastError());
  EXPECT_EQ(0u, first.Write(&code, "", 0));  // raw form: silently nothing
  std::string body = "stale";
  code = 0;
  EXPECT_EQ(4u, second.Read(&code, &body, false));
  EXPECT_EQ(9, code);
  EXPECT_EQ("", body);
  ASSERT_EQ(10u, first.Write(nullptr, "abcdef", 6));
  ASSERT_EQ(7u, first.Write(nullptr, "ghi", 3));
  char buffer[5] = {'#', '#', '#', '#', '#'};
  EXPECT_EQ(0u, second.Read(nullptr, buffer, 5, false));
  EXPECT_EQ(std::string(5, '\0'), std::string(buffer, 5));
  EXPECT_EQ("Insufficient read buffer error.", CyclicSharedMemory::GetLastError());
  EXPECT_EQ(7u, second.Read(nullptr, buffer, 5, false));  // the long one is gone
  EXPECT_EQ("ghi", std::string(buffer, 3));
  EXPECT_TRUE(first.IsQueueEmpty());
}

TEST_F(FrameTest, HandleWordsNameTheirObjectsInThisProcess) {
  EXPECT_EQ(pair.first.get(), LookupChannelHandle(pair.Word(48)));
  EXPECT_EQ(pair.second.get(), LookupChannelHandle(pair.Word(52)));
  EXPECT_NE(pair.Word(48), pair.Word(52));
  unsigned gone = pair.Word(52);
  pair.second.reset();
  EXPECT_EQ(nullptr, LookupChannelHandle(gone));
  EXPECT_EQ(nullptr, LookupChannelHandle(0));
}

TEST(SmallestSegmentTest, HoldsNoFrame) {
  Pair pair(kId, 64);
  ASSERT_TRUE(pair.ok());
  int code = 1;
  EXPECT_EQ(0u, pair.first->Write(&code, "a", 1));
  EXPECT_EQ(0u, pair.second->Write(&code, "a", 1));
  EXPECT_EQ("Memory overflow error.", CyclicSharedMemory::GetLastError());
}

}  // namespace
