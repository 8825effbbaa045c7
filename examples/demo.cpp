// The appliance in miniature: a call-control process and a signalling process
// share one channel and exchange a request and its answer; each side prints
// what it sees, including the channel's own online and offline notices.
//
// Run it in a private IPC namespace (./run demo does): channel keys are fixed.
#include <libmessaging.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

namespace {

constexpr int kChannel = 20;
constexpr int kOnline = static_cast<int>(0x80000000u);
constexpr int kOffline = static_cast<int>(0x80000001u);
constexpr int kGetLineState = 1;
constexpr int kLineState = 2;

int ChannelIdOf(std::string body) {
  int id = -1;
  body >> id;
  return id;
}

void Say(char const* who, std::string const& what) {
  std::printf("%-12s %s\n", who, what.c_str());
  std::fflush(stdout);
}

int Signalling(int go) {
  char token;
  if (read(go, &token, 1) != 1) return 1;
  CyclicMessageQueue queue(kChannel, "/bin/ping", 32768, nullptr);
  if (!queue) return 2;
  int code = kGetLineState;
  std::string body;
  body << 7;  // line number
  // The first write announces this end; call control is already waiting.
  while (!queue.SendMessage(&code, &body)) usleep(1000);
  Say("signalling", "-> GetLineState(line 7)");
  std::string answer;
  if (!queue.GetMessage(&code, &answer) || code != kLineState) return 3;
  int line = 0;
  std::string state;
  answer >> line >> state;
  Say("signalling", "<- LineState(line " + std::to_string(line) + ", \"" + state + "\")");
  Say("signalling", "leaving");
  return 0;  // the queue's destructor sends the offline notice
}

std::string IpcObjectsLeft() {
  std::string left;
  for (char const* kind : {"shm", "sem", "msg"}) {
    std::ifstream in(std::string("/proc/sysvipc/") + kind);
    std::string line;
    std::getline(in, line);
    while (std::getline(in, line)) left += std::string(kind) + " ";
  }
  return left.empty() ? "none" : left;
}

}  // namespace

int main() {
  int go[2];
  if (pipe(go) != 0) return 1;
  pid_t child = fork();
  if (child == 0) {
    close(go[1]);
    _exit(Signalling(go[0]));
  }
  close(go[0]);
  int rc = 0;
  {
    CyclicMessageQueue queue(kChannel, "/bin/ping", 32768, nullptr);
    if (!queue) {
      std::fprintf(stderr, "call control: channel failed: %s\n", CyclicMessageQueue::GetLastError().c_str());
      return 1;
    }
    Say("callcontrol", "channel " + std::to_string(kChannel) + " up, waiting for the signalling process");
    // Reading announces this end online before the peer exists, so the peer
    // will greet us with an online notice when it arrives.
    int code = 0;
    std::string body;
    queue.PeekMessage(&code, &body);
    if (write(go[1], "g", 1) != 1) return 1;
    for (bool done = false; !done;) {
      if (!queue.GetMessage(&code, &body)) {
        rc = 1;
        break;
      }
      if (code == kOnline) {
        Say("callcontrol", "<- online notice (channel " + std::to_string(ChannelIdOf(body)) + ")");
      } else if (code == kOffline) {
        Say("callcontrol", "<- offline notice (channel " + std::to_string(ChannelIdOf(body)) + ")");
        done = true;
      } else if (code == kGetLineState) {
        int line = 0;
        body >> line;
        Say("callcontrol", "<- GetLineState(line " + std::to_string(line) + ")");
        std::string answer;
        answer << line << std::string("idle");
        int reply = kLineState;
        queue.SendMessage(&reply, &answer);
        Say("callcontrol", "-> LineState(line " + std::to_string(line) + ", \"idle\")");
      }
    }
  }
  int status = 0;
  waitpid(child, &status, 0);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) rc = 1;
  Say("demo", std::string("IPC objects left: ") + IpcObjectsLeft());
  return rc;
}
