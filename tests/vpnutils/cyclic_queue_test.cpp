// CyclicQueue: order, the ring's end, full and too-small cases, blocking.
#include <gtest/gtest.h>

#include <vpnutils.h>

#include <atomic>
#include <string>
#include <thread>

namespace {

constexpr unsigned long H = CyclicQueue::kHeaderSize;

unsigned long Send(CyclicQueue& queue, long code, std::string const& data) {
  return queue.SendMessage(code, data.data(), data.size());
}

// The next message as "code:bytes", or "none".
std::string Next(CyclicQueue& queue) {
  char buffer[128];
  long code = -1;
  unsigned long n = queue.PeekMessage(&code, buffer, sizeof buffer);
  return n == 0 ? "none" : std::to_string(code) + ":" + std::string(buffer, n);
}

}  // namespace

TEST(CyclicQueue, KeepsOrderAndBytesAcrossTheRingEnd) {
  // An odd capacity makes headers and data split at ever-changing offsets.
  CyclicQueue queue(3 * H + 37);
  for (int i = 0; i < 400; ++i) {
    std::string a(1 + i % 13, static_cast<char>('a' + i % 26));
    std::string b(1 + i % 7, static_cast<char>(i % 3));  // zero bytes too
    ASSERT_EQ(a.size(), Send(queue, i, a));
    ASSERT_EQ(b.size(), Send(queue, -i, b));
    ASSERT_EQ(std::to_string(i) + ":" + a, Next(queue));
    ASSERT_EQ(std::to_string(-i) + ":" + b, Next(queue));
  }
  EXPECT_EQ("none", Next(queue));
}

TEST(CyclicQueue, RefusesWholeMessagesThatDoNotFit) {
  CyclicQueue queue(2 * (H + 10));
  EXPECT_EQ(0u, Send(queue, 1, std::string(2 * (H + 10) - H + 1, 'x')));  // largest + 1
  EXPECT_EQ(0u, queue.SendMessage(1, "x", 0));  // empty is refused
  EXPECT_EQ(0u, queue.SendMessage(1, nullptr, 3));
  EXPECT_EQ(10u, Send(queue, 1, "0123456789"));
  EXPECT_EQ(10u, Send(queue, 2, "abcdefghij"));
  EXPECT_EQ(0u, Send(queue, 3, "z"));
  EXPECT_EQ("1:0123456789", Next(queue));
  EXPECT_EQ(0u, Send(queue, 4, "abcdefghijk"));  // one byte too many
  EXPECT_EQ(10u, Send(queue, 5, "ABCDEFGHIJ"));
  EXPECT_EQ("2:abcdefghij", Next(queue));
  EXPECT_EQ("5:ABCDEFGHIJ", Next(queue));
  EXPECT_EQ("none", Next(queue));
  CyclicQueue largest(100);
  EXPECT_EQ(100 - H, Send(largest, 1, std::string(100 - H, 'y')));
}

TEST(CyclicQueue, TooSmallBufferDropsTheMessageAndZeroFills) {
  CyclicQueue queue(256);
  Send(queue, 7, "hello");
  Send(queue, 8, "next");
  char buffer[4] = {'Z', 'Z', 'Z', 'Z'};
  long code = 0;
  EXPECT_EQ(0u, queue.GetMessage(&code, nullptr, 10));  // nothing consumed
  EXPECT_EQ(0u, queue.GetMessage(&code, buffer, 3));
  EXPECT_EQ(7, code);
  EXPECT_EQ(std::string("\0\0\0Z", 4), std::string(buffer, 4));
  EXPECT_EQ("8:next", Next(queue));
}

TEST(CyclicQueue, BlockedGetIsWokenBySender) {
  CyclicQueue queue(256);
  std::atomic<bool> done(false);
  std::string got;
  std::thread reader([&] {
    char buffer[16];
    long code = 0;
    unsigned long n = queue.GetMessage(&code, buffer, sizeof buffer);
    got = std::to_string(code) + ":" + std::string(buffer, n);
    done = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(done);
  Send(queue, 42, "wake");
  reader.join();
  EXPECT_EQ("42:wake", got);
}
