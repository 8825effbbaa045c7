// The messenger frame's helpers on a messenger in miniature: sends nested in
// sends, the receive loops' routing, and the no-allocation hot path.
#include "messaging/messenger.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <deque>
#include <list>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "call_records.h"

// Counts the allocations of the calling thread while enabled (>= 0). Every
// form is replaced so that allocation and release always pair up.
namespace {
thread_local long tAllocations = -1;
void* Allocate(std::size_t size) noexcept {
  if (tAllocations >= 0) ++tAllocations;
  return std::malloc(size ? size : 1);
}
void* AllocateOrThrow(std::size_t size) {
  if (void* p = Allocate(size)) return p;
  throw std::bad_alloc();
}
}  // namespace
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
void* operator new(std::size_t size) { return AllocateOrThrow(size); }
void* operator new[](std::size_t size) { return AllocateOrThrow(size); }
void* operator new(std::size_t size, std::nothrow_t const&) noexcept { return Allocate(size); }
void* operator new[](std::size_t size, std::nothrow_t const&) noexcept { return Allocate(size); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, std::nothrow_t const&) noexcept { std::free(p); }
void operator delete[](void* p, std::nothrow_t const&) noexcept { std::free(p); }

namespace {

using CallId = unsigned long long;

// What every protocol class does with the helpers, over an in-process queue.
struct Mini {
  std::deque<std::pair<int, std::string>> queue;
  std::vector<std::string> log;
  int forwards = 0;  // SendMessage sends this many nested notices first

  unsigned SendMessage(int const* code, std::string* body) {
    if (forwards > 0) {
      --forwards;
      Send(*this, 9, std::string("notice"), forwards);
    }
    queue.emplace_back(*code, *body);
    return static_cast<unsigned>(body->size()) + 4;
  }
  unsigned GetMessage(int* code, std::string* body) { return PeekMessage(code, body); }
  unsigned PeekMessage(int* code, std::string* body) {
    if (queue.empty()) return 0;
    *code = queue.front().first;
    body->assign(queue.front().second);
    queue.pop_front();
    return static_cast<unsigned>(body->size()) + 4;
  }
  bool Dispatch(int code, std::string const& body) {
    switch (code) {
      case 1:
        return Deliver<CallId, std::list<std::string>, CallExtraParams>(body, [&](auto& id, auto& texts, auto& e) {
          log.push_back(std::to_string(id) + "/" + std::to_string(texts.size()) + "/" + std::to_string(e.context));
        });
      case 9:
        return Deliver<std::string, int>(body, [&](auto& text, auto& n) { log.push_back(text + std::to_string(n)); });
      default:
        return false;
    }
  }
  auto Drain(int n) {
    return DrainMessages(
        *this, n, [this](int code, std::string const& body) { Dispatch(code, body); },
        [this](bool online, std::string const& body) {
          log.push_back((online ? "online " : "offline ") + std::to_string(TrailingWord(body)));
        });
  }
};

std::string ChannelId(int id) { return MakeBody(id); }

// A send made while another send's body is being handed over (an override of
// SendMessage that sends first) must not disturb the outer body, however
// deep the nesting goes.
TEST(MessengerFrame, NestedSendsKeepTheirOwnBodies) {
  Mini m;
  m.forwards = 12;  // deeper than the per-thread pool
  std::list<std::string> texts{"a", std::string(600, 'b')};
  ASSERT_EQ(Send(m, 1, 77ULL, texts, CallExtraParams{1, 2}), MakeBody(77ULL, texts, CallExtraParams{1, 2}).size() + 4);
  ASSERT_EQ(m.queue.size(), 13u);
  EXPECT_EQ(m.queue.back().second, MakeBody(77ULL, texts, CallExtraParams{1, 2}));
  EXPECT_TRUE(m.Drain(20));
  std::vector<std::string> expected;
  for (int n = 0; n < 12; ++n) expected.push_back("notice" + std::to_string(n));
  expected.push_back("77/2/2");
  EXPECT_EQ(m.log, expected);
}

TEST(MessengerFrame, LoopsRouteNoticesAndStop) {
  Mini m;
  m.queue.emplace_back(kPeerOnlineCode, ChannelId(7));
  Send(m, 1, 5ULL, std::list<std::string>{}, CallExtraParams{});
  m.queue.emplace_back(3, "not mine");
  m.queue.emplace_back(kPeerOfflineCode, ChannelId(7));
  Send(m, 9, std::string("last"), 1);

  EXPECT_FALSE(m.Drain(0));
  EXPECT_TRUE(m.Drain(2));
  EXPECT_EQ(m.log, (std::vector<std::string>{"online 7", "5/0/0"}));
  EXPECT_TRUE(m.Drain(10));  // stops at the first empty read
  EXPECT_FALSE(m.Drain(10));
  EXPECT_EQ(m.log, (std::vector<std::string>{"online 7", "5/0/0", "offline 7", "last1"}));

  Send(m, 9, std::string("blocking"), 2);
  EXPECT_FALSE(RunMessageLoop(
      m, [&m](int code, std::string const& body) { m.Dispatch(code, body); }, [](bool, std::string const&) {}));
  EXPECT_EQ(m.log.back(), "blocking2");
}

// Once warmed up, sending and receiving a message of scalars and short texts
// allocates nothing: bodies live in per-thread scratch strings.
TEST(MessengerFrame, WarmHotPathDoesNotAllocate) {
  struct Loopback {  // one message in flight, storage kept between messages
    int code = 0;
    std::string body;
    bool full = false;
    unsigned SendMessage(int const* c, std::string* b) {
      code = *c;
      body.assign(*b);
      full = true;
      return static_cast<unsigned>(b->size()) + 4;
    }
    unsigned PeekMessage(int* c, std::string* b) {
      if (!full) return 0;
      full = false;
      *c = code;
      b->assign(body);
      return static_cast<unsigned>(b->size()) + 4;
    }
  } link;
  CallId got = 0;
  auto roundTrip = [&](CallId id) {
    Send(link, 1, id, std::string("short"), CallExtraParams{1, 2}, std::list<CallId>{});
    return DrainMessages(
        link, 1,
        [&](int, std::string const& body) {
          Deliver<CallId, std::string, CallExtraParams, std::list<CallId>>(
              body, [&](auto& i, auto& text, auto&, auto&) { got = i + text.size(); });
        },
        [](bool, std::string const&) {});
  };
  ASSERT_TRUE(roundTrip(1));
  tAllocations = 0;
  bool handled = roundTrip(10);
  long allocations = tAllocations;
  tAllocations = -1;
  EXPECT_TRUE(handled);
  EXPECT_EQ(got, 15u);
  EXPECT_EQ(allocations, 0);
}

}  // namespace
