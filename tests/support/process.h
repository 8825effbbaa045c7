// Multi-process test helpers.
//
// A child runs one role and reports through its exit status: 0 for success,
// and a distinct small number for each step that can fail, so that the
// parent's assertion names the step. Every wait has a deadline: a hung child
// is killed and reported instead of hanging the suite.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>
#include <unistd.h>

#include <functional>
#include <string>

namespace test {

// Cross builds run under user-mode emulation, some fifty times slower; the
// exhaustive and iterated cases sample there instead.
#if defined(__powerpc__)
constexpr bool kEmulated = true;
#else
constexpr bool kEmulated = false;
#endif

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kAddressSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kAddressSanitizer = true;
#else
constexpr bool kAddressSanitizer = false;
#endif
#else
constexpr bool kAddressSanitizer = false;
#endif

// Forks; the child runs `role` and leaves with _exit(its result) without
// running the parent's atexit handlers or test teardown.
pid_t Spawn(const std::function<int()>& role);

struct ChildResult {
  bool exited = false, signaled = false;
  bool timed_out = false;  // still running at the deadline (it was SIGKILLed)
  int code = -1, signal = 0;
  bool ok() const { return exited && code == 0; }
  std::string Describe() const;
};

// Waits for `pid` at most `seconds`; kills it with SIGKILL past the deadline.
ChildResult Wait(pid_t pid, double seconds = 20.0);
ChildResult Run(const std::function<int()>& role, double seconds = 20.0);  // Spawn + Wait

// Polls `condition` every millisecond for at most `seconds`; used to let a
// peer get ahead (never to hide a race: the condition is what is checked).
bool WaitUntil(const std::function<bool()>& condition, double seconds = 10.0);

// Sends this process's stderr to /dev/null: children whose expected failures
// would only clutter the log.
void Silence();

// What `action` wrote to stderr.
template <typename Action>
std::string Stderr(Action action) {
  testing::internal::CaptureStderr();
  action();
  return testing::internal::GetCapturedStderr();
}

// Ends the whole test process (SIGALRM) when a case hangs; the private IPC
// namespace dies with it.
struct Watchdog {
  explicit Watchdog(unsigned seconds) { alarm(seconds); }
  ~Watchdog() { alarm(0); }
};

// A pipe used to hand small facts (or just a "go") between parent and child.
class Pipe {
 public:
  Pipe();
  ~Pipe();
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  void Send(int value = 1);                         // writes 4 bytes
  bool Receive(int* value, double seconds = 20.0);  // false on timeout or EOF
  bool Receive(double seconds = 20.0) {
    int ignored;
    return Receive(&ignored, seconds);
  }
  void CloseRead();
  void CloseWrite();

 private:
  int fd_[2];
};

}  // namespace test
