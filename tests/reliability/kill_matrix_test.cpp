// SIGKILL at random points of two parties' send/receive loops.
//
// Per iteration a seeded schedule picks the victims (the first party, the
// second, or both) and a delay into the loops. Then:
// - a survivor has seen only whole, in-order messages, still believes its
//   peer online (a crash leaves the peer's bytes set; there is no heartbeat),
//   and a newcomer is refused with "Third with ID 0x.. is redundant" while
//   it stays attached; when it leaves, nothing is left;
// - with both dead the segment is attached by nobody, so a newcomer takes it
//   over, a second joins, neither sees a frame of the dead, and when both
//   leave at the same moment (as at a shutdown, which signals every process
//   at once) nothing is left. Such a pair once each cleared its own attached
//   byte, each still counted two attachments, and each only detached: the
//   segment and both semaphores outlived them.
// The parent never attaches: a fork would inherit its attachments and skew
// the attach counts the channel relies on.
#include <gtest/gtest.h>
#include <signal.h>

#include <cstdio>
#include <random>

#include "support/channel.h"
#include "support/ipc.h"
#include "support/process.h"

namespace {

using test::kOffline;
using test::kOnline;
using test::Silence;

constexpr int kId = 0x2A;
constexpr unsigned kSize = 2048;  // small: the loops also run into overflow

// seq (4) | payload derived from seq and its length: a frame torn, mixed
// with another or out of order does not equal the message it claims to be.
std::string Message(std::uint32_t seq, unsigned length) {
  std::string body(4 + length, '\0');
  std::memcpy(&body[0], &seq, 4);
  for (unsigned i = 0; i < length; ++i) body[4 + i] = static_cast<char>(seq * 131 + i * 7 + length);
  return body;
}

// One party: construct, report, run the loop until told to stop (or
// killed), then as a survivor drain, report and wait to be told to leave.
int Party(test::Pipe& report, test::Pipe& command, unsigned seed) {
  Silence();
  CyclicMessageQueue queue(kId, "/bin/ping", kSize, nullptr);
  if (!queue) return 10;
  std::string body;
  std::mt19937 random(seed);
  std::uint32_t sent = 0, received = 0;
  // The first read announces this party, and may already bring the peer's
  // first message: a read that only announces would lose it.
  auto drain = [&] {
    int code = 0;
    while (queue.PeekMessage(&code, &body)) {
      if (code == kOnline) continue;
      if (code == kOffline) return 12;  // a SIGKILLed peer cannot say goodbye
      if (body.size() < 4 || body != Message(received, static_cast<unsigned>(body.size() - 4))) return 20;
      ++received;
    }
    return 0;
  };
  if (int bad = drain()) return bad;
  // Reported only now: the peer's attach must not race with this party's
  // announce (both change the party-flag word).
  report.Send(1);
  if (!test::WaitUntil([&] { return queue.IsPartyOnline(); })) return 11;
  report.Send(2);
  int v, code = 1;
  for (unsigned turn = 0; turn % 16 != 0 || !command.Receive(&v, 0); ++turn) {
    std::string message = Message(sent, random() % 200);
    sent += queue.SendMessage(&code, &message) != 0;
    if (int bad = drain()) return bad;
  }
  if (int bad = drain()) return bad;
  if (!queue.IsPartyOnline()) return 13;
  report.Send(3);
  report.Send(static_cast<int>(received));
  return command.Receive() ? 0 : 14;
}

// A newcomer on a stale segment: hello both ways, and nothing else. It leaves
// when `leave` reaches its end, which both newcomers see at once.
int Newcomer(int hello, int expected, test::Pipe& report, test::Pipe& leave) {
  Silence();
  leave.CloseWrite();
  CyclicMessageQueue queue(kId, "/bin/ping", kSize, nullptr);
  if (!queue) return 30;
  std::string body;
  int code = kOnline;
  bool got = queue.PeekMessage(&code, &body) != 0;  // announces; the hello may be here already
  report.Send(1);
  if (!test::WaitUntil([&] { return queue.IsPartyOnline(); })) return 31;
  std::string greeting = "hello";
  if (!queue.SendMessage(&hello, &greeting)) return 32;
  while (!got || code == kOnline) {
    if (!test::WaitUntil([&] { return queue.PeekMessage(&code, &body) != 0; }, 5)) return 33;
    got = true;
  }
  if (code != expected || body != greeting) return 34;
  report.Send(2);
  leave.Receive();
  return 0;
}

std::string Describe(char const* who, test::ChildResult const& r) { return std::string(who) + " " + r.Describe(); }

// Children still running when an iteration gives up are killed, so that a
// failed iteration cannot leave a loop spinning under the next ones.
struct Children {
  pid_t pids[4] = {-1, -1, -1, -1};
  ~Children() {
    for (pid_t pid : pids)
      if (pid > 0) test::Wait(pid, 0);
  }
  test::ChildResult Wait(int i, double seconds) {
    test::ChildResult r = test::Wait(pids[i], seconds);
    pids[i] = -1;
    return r;
  }
};

// "" on success, else what went wrong. Adds to *delivered what a survivor
// had received before and after its peer died.
std::string Iteration(unsigned seed, unsigned* delivered) {
  std::mt19937 random(seed);
  int const victims = static_cast<int>(random() % 3);  // 0 first, 1 second, 2 both
  unsigned const delay = random() % 10000;             // microseconds into the loops
  test::Pipe reports[2], commands[2];
  Children children;
  pid_t* parties = children.pids;
  int v;
  for (int i = 0; i < 2; ++i) {
    parties[i] = test::Spawn([&] { return Party(reports[i], commands[i], seed * 2 + i); });
    if (!reports[i].Receive(&v, 10) || v != 1) return "party " + std::to_string(i) + " did not construct";
  }
  for (int i = 0; i < 2; ++i)
    if (!reports[i].Receive(&v, 10) || v != 2) return "party " + std::to_string(i) + " never saw its peer";
  usleep(delay);
  for (int i = 0; i < 2; ++i) {
    if (victims != 2 && victims != i) continue;
    kill(parties[i], SIGKILL);
    test::ChildResult r = children.Wait(i, 10);
    if (!r.signaled || r.signal != SIGKILL) return Describe("victim", r);
    if (victims == 2 && i == 0) usleep(random() % 2000);
  }
  if (victims != 2) {
    int survivor = 1 - victims;
    commands[survivor].Send(1);
    if (!reports[survivor].Receive(&v, 10) || v != 3) return Describe("survivor", children.Wait(survivor, 1));
    if (reports[survivor].Receive(&v, 10)) *delivered += static_cast<unsigned>(v);
    test::ChildResult third = test::Run([] {
      Silence();
      CyclicSharedMemory channel(kId, "/bin/ping", kSize);
      if (channel) return 1;
      return CyclicSharedMemory::GetLastError() == "Third with ID 0x2a is redundant error." ? 0 : 2;
    });
    if (third.code != 0) return Describe("third party", third);
    if (test::AttachCount(kId) != 1) return "attachments left by the refused party";
    commands[survivor].Send(2);
    test::ChildResult r = children.Wait(survivor, 10);
    if (r.code != 0) return Describe("survivor", r);
  } else {
    if (test::AttachCount(kId) != 0) return "the dead are still attached";
    test::Pipe hellos[2], leave;
    for (int i = 0; i < 2; ++i) {  // the first takes the segment over before the second comes
      parties[2 + i] = test::Spawn([&] { return Newcomer(i + 1, 2 - i, hellos[i], leave); });
      if (!hellos[i].Receive(&v, 10)) return Describe("newcomer", children.Wait(2 + i, 1));
    }
    for (int i = 0; i < 2; ++i)
      if (!hellos[i].Receive(&v, 10)) return Describe("newcomer", children.Wait(2 + i, 1));
    leave.CloseWrite();
    for (int i = 0; i < 2; ++i) {
      test::ChildResult r = children.Wait(2 + i, 10);
      if (r.code != 0) return Describe("newcomer", r);
    }
  }
  std::string left = test::DescribeIpcObjects();
  return left.empty() ? "" : "left behind:\n" + left;
}

TEST(KillMatrixTest, SurvivorsAndNewcomersAfterSigkillAtRandomPoints) {
  unsigned const iterations = 200;
  test::Watchdog watchdog(240);
  unsigned failures = 0, delivered = 0;
  std::string first;
  for (unsigned i = 0; i < iterations; ++i) {
    std::string failure = Iteration(1000 + i, &delivered);
    if (failure.empty()) continue;
    if (++failures == 1) first = "seed " + std::to_string(1000 + i) + ": " + failure;
    test::RemoveAllIpcObjects();
  }
  std::printf("kill -9 matrix: %u iterations, %u failures, %u messages checked by survivors\n",
              iterations, failures, delivered);
  RecordProperty("iterations", static_cast<int>(iterations));
  RecordProperty("failures", static_cast<int>(failures));
  EXPECT_EQ(0u, failures) << "first: " << first;
  EXPECT_GT(delivered, iterations) << "the loops were not running when the victims died";
}

}  // namespace
