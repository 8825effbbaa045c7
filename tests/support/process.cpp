#include "support/process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>

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
  if (timed_out) return "timed out (killed)";
  if (exited) return "exited with " + std::to_string(code);
  return signaled ? "killed by signal " + std::to_string(signal) : "unknown status";
}

ChildResult Wait(pid_t pid, double seconds) {
  ChildResult result;
  if (pid <= 0) return result;
  double deadline = Now() + seconds;
  int status = 0;
  for (pid_t r; (r = waitpid(pid, &status, WNOHANG)) != pid; usleep(1000)) {
    if (r < 0 && errno != EINTR) return result;
    if (Now() > deadline) {
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
      result.timed_out = true;
      return result;
    }
  }
  result.exited = WIFEXITED(status);
  result.code = result.exited ? WEXITSTATUS(status) : -1;
  result.signaled = WIFSIGNALED(status);
  result.signal = result.signaled ? WTERMSIG(status) : 0;
  return result;
}

ChildResult Run(const std::function<int()>& role, double seconds) { return Wait(Spawn(role), seconds); }

bool WaitUntil(const std::function<bool()>& condition, double seconds) {
  for (double deadline = Now() + seconds; !condition(); usleep(1000))
    if (Now() > deadline) return false;
  return true;
}

void Silence() {
  int null = open("/dev/null", O_WRONLY);
  dup2(null, 2);
  close(null);
}

Pipe::Pipe() {
  if (pipe(fd_) != 0) fd_[0] = fd_[1] = -1;
}

Pipe::~Pipe() {
  CloseRead();
  CloseWrite();
}

void Pipe::Send(int value) {
  while (write(fd_[1], &value, sizeof value) < 0 && errno == EINTR) {
  }
}

bool Pipe::Receive(int* value, double seconds) {
  pollfd p{fd_[0], POLLIN, 0};
  for (double deadline = Now() + seconds;;) {
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
