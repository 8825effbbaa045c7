// The queue facade without a link. (Borrowed links carry every messenger
// test; long random runs through a real channel are the soak's.)
#include <gtest/gtest.h>

#include <new>

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

TEST(QueueTest, QueueWithoutLinkAnswersZeroEverywhere) {
  gRefuseNothrowNew = true;
  CyclicMessageQueue queue(1, "/bin/ping", 32768, nullptr);
  gRefuseNothrowNew = false;
  int code = 0;
  std::string body = "abc";
  char buffer[4] = {};
  EXPECT_EQ(0u, queue.SendMessage(&code, &body) + queue.GetMessage(&code, &body) + queue.PeekMessage(&code, &body) +
                    queue.SendMessage(&code, buffer, 4) + queue.GetMessage(&code, buffer, 4) +
                    queue.PeekMessage(&code, buffer, 4));
  queue.Error("x");
  EXPECT_FALSE(queue || queue.IsPartyOnline() || queue.IsQueueEmpty() || queue.ResetBuffers());
}

}  // namespace
