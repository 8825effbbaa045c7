// The queue facade: borrowed and missing links, and a long run of random
// messages through a small channel between two processes.
#include <gtest/gtest.h>
#include <unistd.h>

#include <new>
#include <random>
#include <string>

#include "support/process.h"
#include "transport.h"

namespace {
bool gRefuseNothrowNew = false;
}  // namespace

// The queue allocates its channel with nothrow new; refusing it is the only
// way to get a queue without a link.
void* operator new(std::size_t size, std::nothrow_t const&) noexcept {
  if (gRefuseNothrowNew) return nullptr;
  try {
    return ::operator new(size);
  } catch (...) {
    return nullptr;
  }
}

namespace {

class FakeLink : public Link {
 public:
  explicit FakeLink(bool* destroyed) : destroyed_(destroyed) {}
  ~FakeLink() override { *destroyed_ = true; }
  bool Create() override { return true; }
  unsigned Write(int const*, std::string const* body) override { return body->size() + 4; }
  unsigned Read(int*, std::string*, bool wait) override { return wait ? 1 : 2; }
  unsigned Write(int const*, char const*, unsigned) override { return 0; }
  unsigned Read(int*, char*, unsigned, bool) override { return 0; }
  void Error(char const*) override {}
  bool ResetBuffers() override { return true; }
  bool IsPartyOnline() const override { return true; }
  bool IsQueueEmpty() const override { return true; }
  operator bool() const override { return true; }

 private:
  bool* destroyed_;
};

TEST(QueueTest, BorrowedLinkIsUsedButNotDestroyed) {
  bool destroyed = false;
  FakeLink link(&destroyed);
  {
    CyclicMessageQueue queue(1, "/bin/ping", 32768, &link);
    std::string body = "abc";
    EXPECT_EQ(7u, queue.SendMessage(nullptr, &body));
    EXPECT_EQ(1u, queue.GetMessage(nullptr, &body));  // waits
    EXPECT_EQ(2u, queue.PeekMessage(nullptr, &body));
    EXPECT_TRUE(queue);
  }
  EXPECT_FALSE(destroyed);
}

TEST(QueueTest, QueueWithoutLinkAnswersZeroEverywhere) {
  gRefuseNothrowNew = true;
  CyclicMessageQueue queue(1, "/bin/ping", 32768, nullptr);
  gRefuseNothrowNew = false;
  int code = 0;
  std::string body = "abc";
  char buffer[4] = {};
  EXPECT_EQ(0u, queue.SendMessage(&code, &body));
  EXPECT_EQ(0u, queue.GetMessage(&code, &body));
  EXPECT_EQ(0u, queue.PeekMessage(&code, &body));
  EXPECT_EQ(0u, queue.SendMessage(&code, buffer, 4));
  EXPECT_EQ(0u, queue.GetMessage(&code, buffer, 4));
  EXPECT_EQ(0u, queue.PeekMessage(&code, buffer, 4));
  queue.Error("x");
  EXPECT_FALSE(queue || queue.IsPartyOnline() || queue.IsQueueEmpty() || queue.ResetBuffers());
}

std::string Body(unsigned n, unsigned length) {
  std::string body(length, '\0');
  for (unsigned i = 0; i < length; ++i) body[i] = static_cast<char>(n * 31 + i);
  return body;
}

// Random sizes up to 300 bytes through 500-byte buffers: frames wrap at
// every possible offset, headers included, while the writer keeps hitting
// overflow and retrying.
TEST(QueueTest, RandomMessagesSurviveManyWrapArounds) {
  constexpr int kId = 9;
  constexpr unsigned kMessages = 3000;
  test::Pipe go;
  pid_t child = test::Spawn([&] {
    int v;
    if (!go.Receive(&v)) return 1;
    CyclicMessageQueue queue(kId, "/bin/ping", 1056, nullptr);
    std::string body;
    queue.PeekMessage(nullptr, &body);
    if (!test::WaitUntil([&] { return queue.IsPartyOnline(); })) return 2;
    std::mt19937 random(1234);
    for (unsigned n = 0; n < kMessages; ++n) {
      body = Body(n, random() % 301);
      int code = static_cast<int>(n);
      if (!test::WaitUntil([&] { return queue.SendMessage(&code, &body) != 0; })) return 3;
    }
    return 0;
  });
  CyclicMessageQueue queue(kId, "/bin/ping", 1056, nullptr);
  go.Send(1);
  std::mt19937 random(1234);
  testing::internal::CaptureStderr();  // the writer's overflow report
  for (unsigned n = 0; n < kMessages; ++n) {
    int code = 0;
    std::string body;
    do {
      ASSERT_NE(0u, queue.GetMessage(&code, &body)) << n;
    } while (code == static_cast<int>(0x80000000u));
    ASSERT_EQ(static_cast<int>(n), code);
    ASSERT_EQ(Body(n, random() % 301), body) << n;
  }
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(0, test::Wait(child).code);
}

}  // namespace
