// The appliance in miniature: one call-control process serves two signalling
// processes (a SIP line on channel 5, an FXO line on channel 4) from a single
// thread that sleeps in a CyclicQueuePoller until either channel has a
// message. Each signalling process sets up a call, talks, and hangs up; every
// message is printed as it is handled, with the channels' own online and
// offline notices.
//
// Run it in a private IPC namespace (./run demo does): channel keys are fixed.
#include <libmessaging.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <string>

namespace {

constexpr int kPollerId = 1;
constexpr int kSipChannel = 5;
constexpr int kFxoChannel = 4;

using CallId = unsigned long long;
using Media = std::list<MediaParams>;

char const* KindName(ProtocolType kind) {
  switch (kind) {
    case PROTOCOL_FXO: return "FXO";
    case PROTOCOL_SIP: return "SIP";
    default: return "line";
  }
}

std::string Party(CallParams const& p) { return p.host.empty() ? p.user : p.user + "@" + p.host; }

std::string Streams(Media const& media) {
  std::string text;
  for (MediaParams const& m : media) {
    if (!text.empty()) text += ", ";
    text += m.codec + " " + m.address + ":" + std::to_string(m.port);
  }
  return "[" + text + "]";
}

std::string Id(CallId id) {
  char text[24];
  std::snprintf(text, sizeof text, "%llx", id);
  return text;
}

void Say(std::string const& who, std::string const& what) {
  std::printf("%-14s %s\n", who.c_str(), what.c_str());
  std::fflush(stdout);
}

// Handlers that only print; each side overrides what it acts on.
class Printing : public CallMessenger {
 public:
  Printing(int channel, std::string name) : CallMessenger(channel, nullptr, 32768), name_(std::move(name)) {}

  int OnMakeCall(CallParams const& from, CallParams const& to, CallId const& id, Media const& media,
                  std::string const& text, CallExtraParams const&, CallAttachment const&, ProtocolType kind) override {
    Say(name_, "<- MakeCall  " + Id(id) + " " + Party(from) + " -> " + Party(to) + " " + Streams(media) + " \"" +
                   text + "\" from " + KindName(kind));
    return true;
  }
  int OnRinging(CallId const& id, Media const&, CallExtraParams const&, ProtocolType) override {
    Say(name_, "<- Ringing   " + Id(id));
    return true;
  }
  int OnAccept(CallId const& id, Media const& media, CallExtraParams const&, CallAttachment const&,
                ProtocolType) override {
    Say(name_, "<- Accept    " + Id(id) + " " + Streams(media));
    return true;
  }
  int OnDone(CallId const& id, Media const&, CallExtraParams const&, ProtocolType) override {
    Say(name_, "<- Done      " + Id(id));
    return true;
  }
  int OnCloseCall(CallId const& id, CallExtraParams const&, std::string const& text, ProtocolType) override {
    Say(name_, "<- CloseCall " + Id(id) + " \"" + text + "\"");
    return true;
  }
  int OnReportError(CallId const& id, CallErrorCode error, CallExtraParams const&, std::string const& text,
                     ProtocolType) override {
    Say(name_, "<- ReportError " + Id(id) + " " + std::to_string(error) + " \"" + text + "\"");
    return true;
  }
  int OnChangeMedia(CallId const& id, Media const& media, CallExtraParams const&, ProtocolType) override {
    Say(name_, "<- ChangeMedia " + Id(id) + " " + Streams(media));
    return true;
  }
  int OnPartyStateChanged(bool online, ProtocolType kind) override {
    Say(name_, std::string("<- ") + (online ? "online" : "offline") + " notice (" + KindName(kind) + " channel)");
    if (!online) gone = true;
    return true;
  }

  bool gone = false;

 protected:
  std::string name_;
};

MediaParams Stream(char const* codec, char const* address, unsigned short port) {
  MediaParams m;
  m.type = MediaParams::kAudio;
  m.codec = codec;
  m.address = address;
  m.port = port;
  m.direction = MediaParams::kSend | MediaParams::kReceive;
  return m;
}

// Call control: answers every call it is offered and confirms every hang-up.
class CallControl : public Printing {
 public:
  CallControl(int channel, char const* name) : Printing(channel, name) {}
  int OnMakeCall(CallParams const& from, CallParams const& to, CallId const& id, Media const& media,
                  std::string const& text, CallExtraParams const& extra, CallAttachment const& attachment,
                  ProtocolType kind) override {
    Printing::OnMakeCall(from, to, id, media, text, extra, attachment, kind);
    Media answer{Stream(media.empty() ? "PCMU" : media.front().codec.c_str(), "192.168.0.1", 30000)};
    Ringing(id, Media{}, nullptr);
    Say(name_, "-> Ringing   " + Id(id));
    Accept(id, answer, nullptr, nullptr);
    Say(name_, "-> Accept    " + Id(id) + " " + Streams(answer));
    return true;
  }
  int OnCloseCall(CallId const& id, CallExtraParams const& extra, std::string const& text,
                   ProtocolType kind) override {
    Printing::OnCloseCall(id, extra, text, kind);
    Done(id, Media{}, nullptr);
    Say(name_, "-> Done      " + Id(id));
    return true;
  }
};

// A signalling process: places one call, waits for the answer, hangs up.
class Signalling : public Printing {
 public:
  Signalling(int channel, ProtocolType kind, char const* name) : Printing(channel, name) { mProtocolType = kind; }
  int OnAccept(CallId const& id, Media const& media, CallExtraParams const& extra, CallAttachment const& attachment,
                ProtocolType kind) override {
    Printing::OnAccept(id, media, extra, attachment, kind);
    CloseCall(id, nullptr, "normal clearing");
    Say(name_, "-> CloseCall " + Id(id) + " \"normal clearing\"");
    return true;
  }
  int OnDone(CallId const& id, Media const& media, CallExtraParams const& extra, ProtocolType kind) override {
    Printing::OnDone(id, media, extra, kind);
    finished = true;
    return true;
  }
  bool finished = false;
};

int RunSignalling(int channel, ProtocolType kind, char const* name, char const* caller, unsigned short port,
                  int go) {
  char token;
  if (read(go, &token, 1) != 1) return 1;
  Signalling line(channel, kind, name);
  if (!line) return 2;
  CallParams from, to;
  from.user = caller;
  from.host = kind == PROTOCOL_SIP ? "sip.example" : "";
  to.user = "200";
  CallId id = line.GenerateCallID();
  Media offer{Stream("PCMA", "192.168.0.20", port)};
  // The first send announces this end; call control is already waiting.
  if (!line.MakeCall(from, to, id, offer, "incoming", nullptr, nullptr)) return 3;
  Say(name, "-> MakeCall  " + Id(id) + " " + Party(from) + " -> " + Party(to) + " " + Streams(offer));
  for (int ms = 0; !line.finished && ms < 10000; ++ms)
    if (!line.ProcessMessageFromQueue(8)) usleep(1000);
  Say(name, "leaving");
  return line.finished ? 0 : 4;  // the messenger's destructor sends the offline notice
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
  pid_t sip = fork();
  if (sip == 0) _exit(RunSignalling(kSipChannel, PROTOCOL_SIP, "sip line", "alice", 40000, go[0]));
  pid_t fxo = fork();
  if (fxo == 0) _exit(RunSignalling(kFxoChannel, PROTOCOL_FXO, "fxo line", "0123456", 40010, go[0]));
  int rc = 0;
  {
    CallControl sipSide(kSipChannel, "callcontrol"), fxoSide(kFxoChannel, "callcontrol");
    if (!sipSide || !fxoSide) {
      std::fprintf(stderr, "call control: channels failed: %s\n", CyclicMessageQueue::GetLastError().c_str());
      return 1;
    }
    // Reading announces this end online, so that the lines' first messages
    // are not dropped as sent to an absent peer.
    sipSide.ProcessMessageFromQueue(1);
    fxoSide.ProcessMessageFromQueue(1);
    // One thread serves both channels: the poller wakes it when either has a
    // message and says which.
    CyclicQueuePoller poller(kPollerId);
    poller.SelectQueue(kSipChannel, "/bin/ping", true, false);
    poller.SelectQueue(kFxoChannel, "/bin/ping", true, false);
    std::map<int, CallControl*> byChannel{{kSipChannel, &sipSide}, {kFxoChannel, &fxoSide}};
    Say("callcontrol", "serving channels 5 (SIP) and 4 (FXO) with one poller");
    if (write(go[1], "gg", 2) != 2) return 1;
    while (!(sipSide.gone && fxoSide.gone)) {
      int channel = poller.WaitForEvents();
      if (channel <= 0) {
        rc = 1;
        break;
      }
      byChannel[channel]->ProcessMessageFromQueue(1);
    }
    // The queues stay registered: the last party to leave a channel removes
    // the poller's per-queue semaphore with it, which unregistering first
    // would prevent.
  }
  for (pid_t child : {sip, fxo}) {
    int status = 0;
    waitpid(child, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) rc = 1;
  }
  Say("demo", std::string("IPC objects left: ") + IpcObjectsLeft());
  return rc;
}
