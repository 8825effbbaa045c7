#include "support/process.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace test {
namespace {

double Now() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

}  // namespace

pid_t Spawn(const std::function<int()>& role) {
  std::fflush(nullptr);
  pid_t pid = fork();
  if (pid == 0) {
    int rc = role();
    std::fflush(nullptr);
    _exit(rc);
  }
  return pid;
}

std::string ChildResult::Describe() const {
  char text[96];
  if (timed_out)
    std::snprintf(text, sizeof text, "timed out (killed)");
  else if (exited)
    std::snprintf(text, sizeof text, "exited with %d", code);
  else if (signaled)
    std::snprintf(text, sizeof text, "killed by signal %d", signal);
  else
    std::snprintf(text, sizeof text, "unknown status");
  return text;
}

ChildResult Wait(pid_t pid, double seconds) {
  ChildResult result;
  if (pid <= 0) return result;
  double deadline = Now() + seconds;
  int status = 0;
  for (;;) {
    pid_t r = waitpid(pid, &status, WNOHANG);
    if (r == pid) break;
    if (r < 0 && errno != EINTR) return result;
    if (Now() > deadline) {
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
      result.timed_out = true;
      return result;
    }
    usleep(1000);
  }
  if (WIFEXITED(status)) {
    result.exited = true;
    result.code = WEXITSTATUS(status);
  } else if (WIFSIGNALED(status)) {
    result.signaled = true;
    result.signal = WTERMSIG(status);
  }
  return result;
}

ChildResult Run(const std::function<int()>& role, double seconds) { return Wait(Spawn(role), seconds); }

bool WaitUntil(const std::function<bool()>& condition, double seconds) {
  double deadline = Now() + seconds;
  while (!condition()) {
    if (Now() > deadline) return false;
    usleep(1000);
  }
  return true;
}

Pipe::Pipe() {
  if (pipe(fd_) != 0) fd_[0] = fd_[1] = -1;
}

Pipe::~Pipe() {
  CloseRead();
  CloseWrite();
}

void Pipe::Send(int value) {
  ssize_t n;
  do {
    n = write(fd_[1], &value, sizeof value);
  } while (n < 0 && errno == EINTR);
}

bool Pipe::Receive(int* value, double seconds) {
  pollfd p{fd_[0], POLLIN, 0};
  double deadline = Now() + seconds;
  for (;;) {
    int left_ms = static_cast<int>((deadline - Now()) * 1000);
    if (left_ms < 0) return false;
    int r = poll(&p, 1, left_ms);
    if (r < 0 && errno == EINTR) continue;
    if (r <= 0) return false;
    ssize_t n = read(fd_[0], value, sizeof *value);
    if (n < 0 && errno == EINTR) continue;
    return n == static_cast<ssize_t>(sizeof *value);
  }
}

void Pipe::CloseRead() {
  if (fd_[0] >= 0) close(fd_[0]);
  fd_[0] = -1;
}

void Pipe::CloseWrite() {
  if (fd_[1] >= 0) close(fd_[1]);
  fd_[1] = -1;
}

}  // namespace test
