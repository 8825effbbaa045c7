// Multi-process test helpers.
//
// A child runs one role and reports through its exit status: 0 for success,
// and a distinct small number for each step that can fail, so that the
// parent's assertion names the step. Every wait has a deadline: a hung child
// is killed and reported instead of hanging the suite.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

namespace test {

// Forks; the child runs `role` and leaves with _exit(its result) without
// running the parent's atexit handlers or test teardown.
pid_t Spawn(const std::function<int()>& role);

struct ChildResult {
  bool exited = false;    // left through exit/_exit
  int code = -1;          // exit status when exited
  bool signaled = false;  // ended by a signal
  int signal = 0;
  bool timed_out = false;  // still running at the deadline (it was SIGKILLed)
  std::string Describe() const;
};

// Waits for `pid` at most `seconds`; kills it with SIGKILL past the deadline.
ChildResult Wait(pid_t pid, double seconds = 20.0);

// Spawn + Wait, for the common case.
ChildResult Run(const std::function<int()>& role, double seconds = 20.0);

// Polls `condition` every millisecond for at most `seconds`; used to let a
// peer get ahead (never to hide a race: the condition is what is checked).
bool WaitUntil(const std::function<bool()>& condition, double seconds = 10.0);

// A pipe used to hand small facts (or just a "go") between parent and child.
class Pipe {
 public:
  Pipe();
  ~Pipe();
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  void Send(int value);                            // writes 4 bytes
  bool Receive(int* value, double seconds = 20.0);  // false on timeout or EOF
  void CloseRead();
  void CloseWrite();

 private:
  int fd_[2];
};

}  // namespace test
