// Soak of one channel between two processes, both directions at once.
//
// Each process sends seeded random-sized messages, each carrying its
// sequence number, the number of sends the sender has lost to overflow so
// far, and a checksum; a receiving thread checks every message as it comes.
// A gap in the sequence must equal the growth of the carried overflow count:
// every loss is one the sender saw as a failed SendMessage while its peer was
// online. A receiver switches at random between the blocking GetMessage and
// the non-blocking PeekMessage; the receiver of the party named by
// pollerParty instead waits in a CyclicQueuePoller throughout and peeks once
// per report, and a report with no message behind it fails the run. At the
// end both sides stop, and with every message read each semaphore must be 0;
// then each side sends three more, and each semaphore must be 3. Resident
// memory is sampled from /proc/self/statm after a warm-up and must stay flat.
//
// Header-only so that the test suite compiles it in directly (the tools
// directory is not part of every build). Only the public interface is used.
#ifndef LIBMESSAGING_TOOLS_SOAK_H_
#define LIBMESSAGING_TOOLS_SOAK_H_

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <thread>

#include "queue_poller.h"
#include "transport.h"

namespace soak {

struct Options {
  double seconds = 10;
  unsigned seed = 1;
  int id = 77;
  unsigned size = 16384;      // two buffers of 8,164 bytes
  unsigned maxBody = 4000;
  // Allowed growth after the warm-up: pages of code and stacks first touched
  // late stay well below it, while a leak of even the smallest heap block
  // per message (32 bytes) is megabytes within seconds.
  long rssToleranceKb = 1024;
  bool enforceRss = true;
  // The party (0 = a, 1 = b) whose receiver is a poller; -1 for none.
  int pollerParty = -1;
};

// What one process saw; sent through a pipe to the coordinator.
struct PartyReport {
  std::uint64_t sent = 0;          // messages accepted by SendMessage
  std::uint64_t overflows = 0;     // refused while the peer was online
  std::uint64_t received = 0;      // data messages that checked out
  std::uint64_t gaps = 0;          // sequence numbers never received
  std::uint64_t byMode[3] = {0, 0, 0};  // received through GetMessage, PeekMessage, the poller
  long rssBaseKb = 0;
  long rssGrowthKb = 0;            // largest growth over the base
  char failure[200] = "";
};

struct Result {
  bool ok = false;
  std::string failure;
  PartyReport party[2];  // [0] first party (a), [1] second (b)
  double seconds = 0;

  std::string Summary() const {
    char line[512];
    std::snprintf(line, sizeof line,
                  "soak %.0f s: a->b %llu sent, %llu received, %llu lost = %llu overflows; "
                  "b->a %llu sent, %llu received, %llu lost = %llu overflows; "
                  "blocking/peek/poller reads %llu/%llu/%llu; max RSS growth %ld KB; %s%s",
                  seconds, ull(party[0].sent), ull(party[1].received), ull(party[1].gaps),
                  ull(party[0].overflows), ull(party[1].sent), ull(party[0].received),
                  ull(party[0].gaps), ull(party[1].overflows),
                  ull(party[0].byMode[0] + party[1].byMode[0]),
                  ull(party[0].byMode[1] + party[1].byMode[1]),
                  ull(party[0].byMode[2] + party[1].byMode[2]),
                  party[0].rssGrowthKb > party[1].rssGrowthKb ? party[0].rssGrowthKb
                                                              : party[1].rssGrowthKb,
                  ok ? "PASS" : "FAIL: ", failure.c_str());
    return line;
  }

 private:
  static unsigned long long ull(std::uint64_t v) { return static_cast<unsigned long long>(v); }
};

namespace detail {

constexpr int kData = 1;
constexpr int kEnd = 2;    // body: the sender's final sent and overflow counts
constexpr int kProbe = 3;  // the quiescence check's messages
constexpr int kOnline = static_cast<int>(0x80000000u);
constexpr int kOffline = static_cast<int>(0x80000001u);
constexpr unsigned kHeader = 12;  // seq, overflows so far, checksum

// Coordinator steps. A party reports each when it has done it; from kDrained
// on it waits for the coordinator's go, given once both have reported the
// step before, so that neither side's probes or goodbye can reach a peer
// that is still counting.
enum Step { kConstructed = 1, kRunning, kDrained, kQuiet, kProbed, kCounted, kLeave };

inline double Now() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

inline void Pause(long microseconds) {
  timespec ts = {microseconds / 1000000, (microseconds % 1000000) * 1000};
  nanosleep(&ts, nullptr);
}

// A pipe of small fixed-size records with a deadline on reads.
class Channel {
 public:
  Channel() {
    if (pipe(fd_) != 0) fd_[0] = fd_[1] = -1;
  }
  ~Channel() {
    for (int fd : fd_)
      if (fd >= 0) close(fd);
  }
  bool Put(void const* data, std::size_t size) {
    char const* at = static_cast<char const*>(data);
    while (size) {
      ssize_t n = write(fd_[1], at, size);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) return false;
      at += n;
      size -= static_cast<std::size_t>(n);
    }
    return true;
  }
  bool Get(void* data, std::size_t size, double seconds) {
    char* at = static_cast<char*>(data);
    double deadline = Now() + seconds;
    while (size) {
      pollfd p = {fd_[0], POLLIN, 0};
      int left = static_cast<int>((deadline - Now()) * 1000);
      if (left < 0) return false;
      int r = poll(&p, 1, left);
      if (r < 0 && errno == EINTR) continue;
      if (r <= 0) return false;
      ssize_t n = read(fd_[0], at, size);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) return false;
      at += n;
      size -= static_cast<std::size_t>(n);
    }
    return true;
  }
  void CloseReading() { Close(0); }
  void CloseWriting() { Close(1); }
  bool PutStep(int step) { return Put(&step, sizeof step); }
  bool GetStep(int want, double seconds) {
    int step = 0;
    return Get(&step, sizeof step, seconds) && step == want;
  }

 private:
  void Close(int end) {
    if (fd_[end] >= 0) close(fd_[end]);
    fd_[end] = -1;
  }
  int fd_[2];
};

inline std::uint32_t Checksum(char const* data, std::size_t length) {
  std::uint32_t hash = 2166136261u;
  for (std::size_t i = 0; i < length; ++i) hash = (hash ^ static_cast<unsigned char>(data[i])) * 16777619u;
  return hash;
}

inline void PutWord(std::string& body, unsigned at, std::uint32_t value) {
  std::memcpy(&body[at], &value, 4);
}
inline std::uint32_t GetWord(std::string const& body, unsigned at) {
  std::uint32_t value;
  std::memcpy(&value, body.data() + at, 4);
  return value;
}

// Resident set in KB, read without allocating.
inline long ResidentKb() {
  int fd = open("/proc/self/statm", O_RDONLY);
  if (fd < 0) return 0;
  char text[128];
  ssize_t n = read(fd, text, sizeof text - 1);
  close(fd);
  if (n <= 0) return 0;
  text[n] = '\0';
  long size = 0, resident = 0;
  if (std::sscanf(text, "%ld %ld", &size, &resident) != 2) return 0;
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

inline int SemValue(int key) {
  int set = semget(key, 1, 0);
  return set == -1 ? -1 : semctl(set, 0, GETVAL);
}

// Keeps the first failure only.
inline void Fail(PartyReport& report, char const* format, unsigned long long a = 0,
                 unsigned long long b = 0) {
  if (!report.failure[0]) std::snprintf(report.failure, sizeof report.failure, format, a, b);
}

// Receive modes. Blocking and peek are switched at random. The poller is a
// receiver's only mode from the start (Party registers it before the peer
// can write): a poller that appears later makes the writer drop what is
// still unread, which this soak would rightly count as unexplained loss, and
// reading around it would leave reports without a message, which it counts
// as a fault.
enum Mode { kBlocking, kPeek, kPoller };

struct Receiver {
  CyclicMessageQueue* queue;
  CyclicQueuePoller* poller;  // null unless this receiver waits in it
  int channel;                // the id the poller must report
  PartyReport* report;
  unsigned seed;
  std::atomic<bool> done{false};

  void operator()() {
    Receive();
    done = true;
  }

  void Receive() {
    typedef unsigned long long ull;
    std::mt19937 random(seed);
    Mode mode = poller ? kPoller : kBlocking;
    std::string body;
    body.reserve(65536);
    std::uint32_t nextSeq = 0, lastOverflows = 0;
    for (;;) {
      if (mode != kPoller && random() % 512 == 0) mode = static_cast<Mode>(random() % 2);
      int code = 0;
      unsigned length = Read(mode, &code, &body);
      if (length == 0) {
        if (mode == kBlocking) return Fail(*report, "GetMessage failed");
        if (mode == kPoller) return Fail(*report, "the poller reported a message that was not there");
        Pause(100);
        continue;
      }
      if (code == kOnline) continue;
      if (code == kOffline) return Fail(*report, "the peer went offline before its end");
      if (code == kEnd && body.size() == 16) {
        std::uint64_t sent, overflows;
        std::memcpy(&sent, body.data(), 8);
        std::memcpy(&overflows, body.data() + 8, 8);
        // Sends lost after the last one received are gaps too.
        report->gaps += sent + overflows - nextSeq;
        if (overflows != report->gaps)
          return Fail(*report, "%llu sequence numbers missing, %llu overflows reported", ull(report->gaps),
                      ull(overflows));
        if (sent != report->received)
          return Fail(*report, "the peer sent %llu, %llu arrived", ull(sent), ull(report->received));
        return;
      }
      if (code != kData || body.size() < kHeader)
        return Fail(*report, "unexpected code %#llx, length %llu", static_cast<unsigned>(code), body.size());
      std::uint32_t seq = GetWord(body, 0), overflows = GetWord(body, 4);
      if (GetWord(body, 8) != Checksum(body.data() + kHeader, body.size() - kHeader))
        return Fail(*report, "message %llu corrupt", seq);
      if (seq < nextSeq || seq - nextSeq != overflows - lastOverflows)
        return Fail(*report, "message %llu where %llu was due: a loss without overflow, or a repeat", seq,
                    nextSeq);
      report->gaps += seq - nextSeq;
      nextSeq = seq + 1;
      lastOverflows = overflows;
      ++report->received;
      ++report->byMode[mode];
    }
  }

  unsigned Read(Mode mode, int* code, std::string* body) {
    if (mode == kBlocking) return queue->GetMessage(code, body);
    if (mode == kPeek) return queue->PeekMessage(code, body);
    int const id = poller->WaitForEvents();
    if (id != channel) {
      Fail(*report, "the poller's wait returned %llu", static_cast<unsigned>(id));
      return 0;
    }
    return queue->PeekMessage(code, body);
  }
};

// One process's part; returns its exit status.
inline int Party(Options const& options, int index, Channel& up, Channel& down, Channel& out) {
  typedef unsigned long long ull;
  // A forked child keeps the coordinator's load-time process id; a process
  // of the appliance is a program of its own, and a poller tells the two ends
  // of a channel apart by it.
  CyclicSharedMemory::mPID = TrojanRider::mPID = getpid();
  PartyReport report;
  auto finish = [&](int status) {
    out.Put(&report, sizeof report);
    return status;
  };
  auto abort = [&](int status, char const* format, ull a = 0, ull b = 0) {
    Fail(report, format, a, b);
    return finish(status);
  };
  CyclicMessageQueue queue(options.id, "/bin/ping", options.size, nullptr);
  if (!queue) return abort(10, "channel construction failed");
  // Registered before the peer can write to this party: the peer writes only
  // once this party is online, and with a poller registered only a write or
  // the poller's first wait announces it, not a read. It lives until this
  // party leaves (destroyed before the queue), past the peer's probes and,
  // when a leaves first, a's offline notice: a write to a removed poller
  // would re-create its event. b, leaving last, writes nothing to a.
  std::unique_ptr<CyclicQueuePoller> poller;
  if (options.pollerParty == index) {
    // Its main event must not share the key of the channel's event for a
    // first-party poller, ftok(TROJAN_MAIN_EVENT_PATH, channel id).
    poller.reset(new CyclicQueuePoller(options.id + 1));
    if (!poller->SelectQueue(options.id, "/bin/ping", true, true)) return abort(20, "SelectQueue failed");
  }
  if (index == 0) {
    // Alone on the channel, a send only announces this party (it is dropped
    // silently). Done before the peer is let in: its attach and this
    // announce both rewrite the party-flag word.
    int code = kProbe;
    std::string none;
    queue.SendMessage(&code, &none);
  }
  up.PutStep(kConstructed);
  // The second announces with the receiver's first read or wait, or its own
  // first send (a read made only to announce could swallow the peer's first
  // message).
  Receiver receiver;
  receiver.queue = &queue;
  receiver.poller = poller.get();
  receiver.channel = options.id;
  receiver.report = &report;
  receiver.seed = options.seed * 4 + static_cast<unsigned>(index) * 2 + 1;
  std::thread reading(std::ref(receiver));
  std::string body;
  body.reserve(options.maxBody + kHeader);
  double deadline = Now() + 10;
  while (!queue.IsPartyOnline()) {
    if (Now() > deadline) {
      Fail(report, "the peer never came online");
      finish(11);
      std::fflush(nullptr);
      _exit(11);  // the receiver may be blocked for good
    }
    Pause(1000);
  }
  up.PutStep(kRunning);

  std::mt19937 random(options.seed * 4 + static_cast<unsigned>(index) * 2);
  std::uint32_t seq = 0, fill = options.seed;
  unsigned phase = 0;
  bool burst = true;
  double const start = Now(), stop = start + options.seconds, warm = start + options.seconds / 10;
  for (std::uint64_t n = 0; Now() < stop && !receiver.done; ++n) {
    if (phase-- == 0) {  // bursts that outrun the reader, then calm stretches
      burst = !burst;
      phase = random() % (burst ? 300 : 2000);
    }
    unsigned r = random() % 100;
    unsigned length = r < 70 ? random() % 65 : r < 95 ? random() % 513 : random() % (options.maxBody + 1);
    body.resize(kHeader + length);
    for (unsigned i = 0; i < length; ++i) {
      fill = fill * 1103515245u + 12345u;
      body[kHeader + i] = static_cast<char>(fill >> 24);
    }
    PutWord(body, 0, seq);
    PutWord(body, 4, static_cast<std::uint32_t>(report.overflows));
    PutWord(body, 8, Checksum(body.data() + kHeader, length));
    int code = kData;
    if (queue.SendMessage(&code, &body)) {
      ++report.sent;
    } else if (queue.IsPartyOnline() && CyclicMessageQueue::GetLastError() == "Memory overflow error.") {
      ++report.overflows;
    } else {
      Fail(report, "a send failed other than by overflow");
      break;
    }
    ++seq;
    if (!burst && random() % 4 == 0) Pause(random() % 100);
    if (n % 1024 == 0) {
      long kb = ResidentKb();
      if (Now() < warm || report.rssBaseKb == 0)
        report.rssBaseKb = kb;
      else if (kb - report.rssBaseKb > report.rssGrowthKb)
        report.rssGrowthKb = kb - report.rssBaseKb;
    }
  }
  // The end message is retried: the reader may be behind.
  std::string end(16, '\0');
  std::memcpy(&end[0], &report.sent, 8);
  std::memcpy(&end[8], &report.overflows, 8);
  int code = kEnd;
  deadline = Now() + 10;
  while (!report.failure[0] && !queue.SendMessage(&code, &end)) {
    if (Now() > deadline) Fail(report, "the end message could not be sent");
    Pause(1000);
  }
  deadline = Now() + 20;
  while (!receiver.done) {
    if (Now() > deadline) {
      // A reader blocked for good cannot be joined; leave without unwinding.
      Fail(report, "the peer's end message never arrived");
      finish(12);
      std::fflush(nullptr);
      _exit(12);
    }
    Pause(1000);
  }
  reading.join();
  if (report.failure[0]) return finish(13);

  int const incoming = ftok("/bin/ping", index == 0 ? static_cast<int>(0x80000000u + options.id)
                                                     : 0x7FFFFFFF - options.id);
  up.PutStep(kDrained);
  if (!down.GetStep(kQuiet, 30)) return abort(14, "coordinator lost");
  if (SemValue(incoming) != 0 || !queue.IsQueueEmpty())
    return abort(15, "quiet, yet semaphore %llu and own queue empty %llu", ull(SemValue(incoming)),
                 queue.IsQueueEmpty());
  up.PutStep(kQuiet);
  if (!down.GetStep(kProbed, 30)) return abort(14, "coordinator lost");
  for (int i = 0; i < 3; ++i) {
    code = kProbe;
    std::string probe = "probe";
    if (!queue.SendMessage(&code, &probe)) return abort(16, "probe %llu refused", ull(i));
  }
  up.PutStep(kProbed);
  if (!down.GetStep(kCounted, 30)) return abort(14, "coordinator lost");
  if (SemValue(incoming) != 3) return abort(17, "3 frames unread, semaphore %llu", ull(SemValue(incoming)));
  for (int i = 0; i < 3; ++i)
    if (!queue.PeekMessage(&code, &body) || code != kProbe) return abort(18, "probe %llu lost", ull(i));
  if (SemValue(incoming) != 0) return abort(19, "all read, semaphore %llu", ull(SemValue(incoming)));
  up.PutStep(kCounted);
  if (!down.GetStep(kLeave, 30)) return abort(14, "coordinator lost");
  return finish(0);
}

}  // namespace detail

// Runs the soak in two child processes; this process only coordinates (it
// never attaches, so the children's attach counts are their own).
inline Result Run(Options const& options) {
  using namespace detail;
  Result result;
  result.seconds = options.seconds;
  // Per party: steps up, go-aheads down, the final report. Each process
  // keeps only its own ends, so a party that dies shows as end of file.
  Channel up[2], down[2], reports[2];
  pid_t children[2] = {-1, -1};
  auto fail = [&](std::string const& why) {
    if (result.failure.empty()) result.failure = why;
  };
  for (int i = 0; i < 2 && result.failure.empty(); ++i) {
    std::fflush(nullptr);
    children[i] = fork();
    if (children[i] == 0) {
      up[i].CloseReading();
      down[i].CloseWriting();
      reports[i].CloseReading();
      int status = Party(options, i, up[i], down[i], reports[i]);
      std::fflush(nullptr);
      _exit(status);
    }
    up[i].CloseWriting();
    down[i].CloseReading();
    reports[i].CloseWriting();
    // The first must have built the channel before the second comes.
    if (!up[i].GetStep(kConstructed, 20)) fail("party " + std::to_string(i) + " did not construct");
  }
  // Each step is awaited from both before either is told to go on.
  for (int step = kRunning; step <= kCounted && result.failure.empty(); ++step) {
    for (int i = 0; i < 2 && result.failure.empty(); ++i)
      if (!up[i].GetStep(step, step == kDrained ? options.seconds + 60 : 30))
        fail("party " + std::to_string(i) + " stopped before step " + std::to_string(step));
    if (step >= kDrained && step < kCounted && result.failure.empty())
      for (Channel& d : down) d.PutStep(step + 1);
  }
  // They leave one after the other: two parties leaving at the same moment
  // can each find the other still attached, and then neither removes the
  // channel (a case of its own in the reliability tests).
  for (int i = 0; i < 2; ++i) {
    if (children[i] <= 0) continue;
    if (result.failure.empty()) down[i].PutStep(kLeave);
    if (!reports[i].Get(&result.party[i], sizeof result.party[i], result.failure.empty() ? 30 : 2))
      fail("party " + std::to_string(i) + " sent no report");
    if (result.party[i].failure[0]) fail(std::string(i ? "b: " : "a: ") + result.party[i].failure);
    if (!result.failure.empty()) kill(children[i], SIGKILL);
    int status = 0;
    double deadline = Now() + 10;
    while (waitpid(children[i], &status, WNOHANG) == 0) {
      if (Now() > deadline) {
        kill(children[i], SIGKILL);
        waitpid(children[i], &status, 0);
        fail("party " + std::to_string(i) + " hung");
        break;
      }
      Pause(1000);
    }
    if (result.failure.empty() && (!WIFEXITED(status) || WEXITSTATUS(status) != 0))
      fail("party " + std::to_string(i) + " failed");
  }
  if (result.failure.empty()) {
    if (shmget(ftok("/bin/ping", options.id), 0, 0) != -1 ||
        semget(ftok("/bin/ping", 0x7FFFFFFF - options.id), 1, 0) != -1 ||
        semget(ftok("/bin/ping", static_cast<int>(0x80000000u + options.id)), 1, 0) != -1)
      fail("the channel's objects outlived both parties");
    for (PartyReport const& p : result.party)
      if (options.enforceRss && p.rssGrowthKb > options.rssToleranceKb)
        fail("resident memory grew by " + std::to_string(p.rssGrowthKb) + " KB");
    if (result.party[0].received == 0 || result.party[1].received == 0) fail("nothing got through");
  }
  result.ok = result.failure.empty();
  return result;
}

}  // namespace soak

#endif  // LIBMESSAGING_TOOLS_SOAK_H_
