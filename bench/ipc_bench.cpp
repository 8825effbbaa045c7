// ipc_bench: one-way throughput and round trip of the channel, the messenger
// layer and the alternatives, measured side by side in one run.
//
//   ipc_bench [--reps N] [--info-reps N] [--placements one,two,any]
//             [--subjects floor,channel,...] [--sizes 16,64,...] [--budget-ms MS]
//             [--cpu N] [--out DIR] [--work DIR] [--codec FILE] [--command TEXT]
//   ipc_bench --report RAW [--codec FILE] [--out DIR] [--work DIR]
//   ipc_bench --profile SUBJECT:METRIC:SIZE [--messages N]
//
// The whole process tree lives in a private IPC namespace. Every case forks
// two fresh processes, which report through a pipe; the parent checks after
// each case that nothing was left behind. Runs are interleaved subject by
// subject (floor, channel, messenger, pipe, ...) so that each is measured
// close in time to the floor.
#include <errno.h>
#include <fcntl.h>
#include <mqueue.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "bench.h"
#include "report.h"

namespace bench {
namespace {

constexpr double kCaseTimeoutSeconds = 60;

struct Options {
  int reps = 7;
  int infoReps = 3;
  std::vector<Placement> placements{Placement::kOneCpu, Placement::kTwoCpus, Placement::kUnpinned};
  std::vector<std::string> subjects;  // empty: all
  std::vector<unsigned> sizes{16, 64, 256, 1024, 4096};
  double budgetMs = 100;
  int cpu = -1;
  std::string out = ".";
  std::string work = ".";
  std::string codec;
  std::string command;
  std::string report;   // --report RAW
  std::string profile;  // --profile SUBJECT:METRIC:SIZE
  std::uint64_t messages = 20000;
};

std::vector<std::string> Split(std::string const& text, char by) {
  std::vector<std::string> parts;
  std::stringstream in(text);
  std::string part;
  while (std::getline(in, part, by))
    if (!part.empty()) parts.push_back(part);
  return parts;
}

bool Parse(int argc, char** argv, Options* o) {
  for (int i = 1; i < argc; ++i) {
    std::string const arg = argv[i];
    auto value = [&]() -> std::string {
      if (i + 1 >= argc) {
        std::fprintf(stderr, "%s needs a value\n", arg.c_str());
        std::exit(2);
      }
      return argv[++i];
    };
    if (arg == "--reps") {
      o->reps = std::atoi(value().c_str());
    } else if (arg == "--info-reps") {
      o->infoReps = std::atoi(value().c_str());
    } else if (arg == "--placements") {
      o->placements.clear();
      for (auto const& p : Split(value(), ',')) {
        if (p == "one") o->placements.push_back(Placement::kOneCpu);
        else if (p == "two") o->placements.push_back(Placement::kTwoCpus);
        else if (p == "any") o->placements.push_back(Placement::kUnpinned);
        else return false;
      }
    } else if (arg == "--subjects") {
      o->subjects = Split(value(), ',');
    } else if (arg == "--sizes") {
      o->sizes.clear();
      for (auto const& s : Split(value(), ',')) o->sizes.push_back(static_cast<unsigned>(std::atoi(s.c_str())));
    } else if (arg == "--budget-ms") {
      o->budgetMs = std::atof(value().c_str());
    } else if (arg == "--cpu") {
      o->cpu = std::atoi(value().c_str());
    } else if (arg == "--out") {
      o->out = value();
    } else if (arg == "--work") {
      o->work = value();
    } else if (arg == "--codec") {
      o->codec = value();
    } else if (arg == "--command") {
      o->command = value();
    } else if (arg == "--report") {
      o->report = value();
    } else if (arg == "--profile") {
      o->profile = value();
    } else if (arg == "--messages") {
      o->messages = std::strtoull(value().c_str(), nullptr, 10);
    } else {
      return false;
    }
  }
  for (unsigned size : o->sizes)
    if (size < 16 || size > 8000) return false;
  return o->reps > 0 && o->infoReps > 0 && o->budgetMs > 0;
}

std::string ReadFirstLine(char const* path, char const* prefix) {
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) {
    if (line.compare(0, std::strlen(prefix), prefix) != 0) continue;
    std::size_t colon = line.find(':');
    return colon == std::string::npos ? line : line.substr(line.find_first_not_of(" \t", colon + 1));
  }
  return "unknown";
}

std::string Machine() {
  utsname u;
  uname(&u);
  char text[512];
  std::snprintf(text, sizeof text, "%s, %ld CPUs, Linux %s %s", ReadFirstLine("/proc/cpuinfo", "model name").c_str(),
                sysconf(_SC_NPROCESSORS_ONLN), u.release, u.machine);
  return text;
}

std::string UtcNow() {
  time_t now = time(nullptr);
  tm t;
  gmtime_r(&now, &t);
  char text[64];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M UTC", &t);
  return text;
}

int CountLines(char const* path) {
  std::ifstream in(path);
  std::string line;
  int lines = 0;
  while (std::getline(in, line)) ++lines;
  return lines > 0 ? lines - 1 : 0;  // the first line is a header
}

// System V objects in this namespace (it is ours alone).
int IpcObjects() {
  return CountLines("/proc/sysvipc/shm") + CountLines("/proc/sysvipc/sem") + CountLines("/proc/sysvipc/msg");
}

// Removes every System V object of the namespace; only after a case failed.
void RemoveIpcObjects() {
  auto ids = [](char const* path) {
    std::vector<int> found;
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);
    while (std::getline(in, line)) {
      std::istringstream fields(line);
      long key = 0;
      int id = -1;
      fields >> key >> id;
      if (id >= 0) found.push_back(id);
    }
    return found;
  };
  for (int id : ids("/proc/sysvipc/shm")) shmctl(id, IPC_RMID, nullptr);
  for (int id : ids("/proc/sysvipc/sem")) semctl(id, 0, IPC_RMID);
  for (int id : ids("/proc/sysvipc/msg")) msgctl(id, IPC_RMID, nullptr);
}

// POSIX shared memory and queues named by this driver (Boost's queues live
// in /dev/shm, outside the IPC namespace).
int NamedObjectsLeft() {
  std::string const prefix = "msgbench." + std::to_string(getpid()) + ".";
  int left = 0;
  for (int side = 0; side < 2; ++side) {
    std::string const mq = "/" + prefix + std::to_string(side);
    mqd_t q = mq_open(mq.c_str(), O_RDONLY);
    if (q != static_cast<mqd_t>(-1)) {
      mq_close(q);
      mq_unlink(mq.c_str());
      ++left;
    }
    std::string const shm = "/dev/shm/" + prefix + "boost" + std::to_string(side);
    if (access(shm.c_str(), F_OK) == 0) {
      unlink(shm.c_str());
      ++left;
    }
  }
  return left;
}

bool Pin(int cpu) {
  if (cpu < 0) return true;
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(cpu, &set);
  return sched_setaffinity(0, sizeof set, &set) == 0;
}

void Unpin() {
  cpu_set_t set;
  CPU_ZERO(&set);
  long const cpus = sysconf(_SC_NPROCESSORS_ONLN);
  for (long c = 0; c < cpus && c < CPU_SETSIZE; ++c) CPU_SET(static_cast<int>(c), &set);
  sched_setaffinity(0, sizeof set, &set);
}

struct Report {
  int side;
  RoleResult result;
};

Run RunCase(Subject& subject, Placement placement, Metric metric, RunSettings const& settings, int rep,
            Session const& session, int log) {
  Run run;
  run.placement = placement;
  run.subject = subject.Name();
  run.label = subject.Label();
  run.metric = metric;
  run.size = settings.size;
  run.rep = rep;
  run.ok = false;

  if (!subject.Prepare(settings)) {
    run.failure = std::string("prepare: ") + std::strerror(errno);
    subject.Release();
    return run;
  }
  SidePipes pipes;
  int results[2];
  if (!pipes.ok() || pipe2(results, O_CLOEXEC) != 0) {
    run.failure = "pipe";
    subject.Release();
    return run;
  }
  std::fflush(nullptr);
  pid_t pids[2] = {-1, -1};
  for (int side = 0; side < 2; ++side) {
    pids[side] = fork();
    if (pids[side] == 0) {
      close(results[0]);
      if (log >= 0) dup2(log, STDERR_FILENO);
      int cpu = -1;
      if (placement == Placement::kOneCpu) cpu = session.oneCpu;
      if (placement == Placement::kTwoCpus) cpu = side == 0 ? session.cpuA : session.cpuB;
      Report report;
      report.side = side;
      pipes.Choose(side);
      if (!Pin(cpu)) {
        Fail(&report.result, "sched_setaffinity: %s", std::strerror(errno));
      } else {
        report.result = subject.Run(side, metric, settings, pipes);
      }
      ssize_t written = write(results[1], &report, sizeof report);
      _exit(written == static_cast<ssize_t>(sizeof report) && report.result.ok ? 0 : 3);
    }
  }
  close(results[1]);
  pipes.CloseAll();

  int got = 0;
  bool seen[2] = {false, false};
  double const give_up = Now() + kCaseTimeoutSeconds;
  while (got < 2 && Now() < give_up) {
    pollfd p = {results[0], POLLIN, 0};
    if (poll(&p, 1, 200) <= 0) continue;
    Report report;
    ssize_t n = read(results[0], &report, sizeof report);
    if (n == 0) break;  // both children closed the pipe
    if (n != static_cast<ssize_t>(sizeof report) || report.side < 0 || report.side > 1) continue;
    run.side[report.side] = report.result;
    seen[report.side] = true;
    ++got;
  }
  close(results[0]);
  bool timedOut = got < 2 && Now() >= give_up;
  for (pid_t pid : pids) {
    if (pid <= 0) continue;
    if (timedOut) kill(pid, SIGKILL);
    int status = 0;
    waitpid(pid, &status, 0);
  }
  subject.Release();

  if (timedOut) {
    run.failure = "timed out";
  } else if (!seen[0] || !seen[1]) {
    run.failure = "a side died without a report";
  } else if (!run.side[0].ok || !run.side[1].ok) {
    run.failure = std::string("side ") + (run.side[0].ok ? "1: " : "0: ") +
                  (run.side[0].ok ? run.side[1].failure : run.side[0].failure);
  } else if (metric == Metric::kThroughput && run.side[0].messages != run.side[1].messages) {
    run.failure = "the reader counted another number of messages than the writer sent";
  } else {
    run.ok = true;
  }
  int const leftover = IpcObjects() + NamedObjectsLeft();
  if (leftover != 0) {
    RemoveIpcObjects();
    run.ok = false;
    run.failure += (run.failure.empty() ? "" : "; ") + std::to_string(leftover) + " IPC objects left behind";
  }
  return run;
}

std::string Describe(Run const& run) {
  char text[256];
  if (!run.ok) {
    std::snprintf(text, sizeof text, "FAILED: %s", run.failure.c_str());
  } else if (run.metric == Metric::kThroughput) {
    double const rate = run.side[0].messages / run.side[0].seconds;
    std::snprintf(text, sizeof text, "%10.0f msg/s %8.1f MB/s  retries/msg %.3f  allocs/msg %.2f + %.2f", rate,
                  rate * run.size / 1e6, double(run.side[0].retries) / run.side[0].messages,
                  double(run.side[0].allocations) / run.side[0].messages,
                  double(run.side[1].allocations) / run.side[1].messages);
  } else {
    std::snprintf(text, sizeof text, "rtt median %8.2f us  p99 %8.2f us  (%llu round trips)  allocs/rt %.2f + %.2f",
                  run.side[0].rttMedianUs, run.side[0].rttP99Us, static_cast<unsigned long long>(run.side[0].messages),
                  double(run.side[0].allocations) / run.side[0].messages,
                  double(run.side[1].allocations) / std::max<std::uint64_t>(1, run.side[1].messages));
  }
  return text;
}

int Profile(Options const& o, std::vector<std::unique_ptr<Subject> >& subjects, Session const& session) {
  std::vector<std::string> profile = Split(o.profile, ':');
  if (profile.size() != 3) return 2;
  Metric const metric = profile[1] == "rtt" ? Metric::kRoundTrip : Metric::kThroughput;
  RunSettings settings;
  settings.size = static_cast<unsigned>(std::atoi(profile[2].c_str()));
  settings.budgetSeconds = 0;  // a fixed count: instruction counts repeat exactly
  settings.maxMessages = o.messages;
  settings.warmup = 200;
  for (auto& subject : subjects) {
    if (profile[0] != subject->Name()) continue;
    if (!subject->Supports(metric, settings.size)) {
      std::fprintf(stderr, "%s has no %s case at %u bytes\n", subject->Name(), profile[1].c_str(), settings.size);
      return 2;
    }
    Run run = RunCase(*subject, Placement::kOneCpu, metric, settings, 0, session, -1);
    std::printf("%s %s %u: %s\n", subject->Name(), profile[1].c_str(), settings.size, Describe(run).c_str());
    return run.ok ? 0 : 1;
  }
  std::fprintf(stderr, "no subject %s\n", profile[0].c_str());
  return 2;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  using namespace bench;
  Options o;
  if (!Parse(argc, argv, &o)) {
    std::fprintf(stderr, "usage: see the head of bench/ipc_bench.cpp\n");
    return 2;
  }
  Session session;
  if (!o.report.empty()) {
    if (!ReadRaw(o.report, &session)) return 1;
    if (!o.codec.empty()) ReadCodec(o.codec, &session.codec);
    return WriteReport(session, o.out, o.work) ? 0 : 1;
  }

  if (unshare(CLONE_NEWIPC) != 0) {
    std::fprintf(stderr, "unshare(CLONE_NEWIPC): %s (run as root)\n", std::strerror(errno));
    return 2;
  }
  if (access("/bin/ping", F_OK) != 0) {
    std::fprintf(stderr, "/bin/ping is missing: channel keys are derived from it\n");
    return 2;
  }
  Unpin();
  long const cpus = sysconf(_SC_NPROCESSORS_ONLN);
  session.oneCpu = o.cpu >= 0 ? o.cpu : static_cast<int>(cpus - 1);
  session.cpuA = 0;
  session.cpuB = cpus > 1 ? 1 : 0;

  std::vector<std::unique_ptr<Subject> > all = MakeSubjects();
  std::vector<Subject*> subjects;
  for (auto& s : all) {
    bool wanted = o.subjects.empty();
    for (auto const& name : o.subjects) wanted = wanted || name == s->Name();
    if (wanted) subjects.push_back(s.get());
  }
  if (!o.profile.empty()) return Profile(o, all, session);

  session.command = o.command;
  if (session.command.empty())
    for (int i = 0; i < argc; ++i) session.command += (i ? " " : "") + std::string(argv[i]);
  session.machine = Machine();
  session.compiler = std::string("g++ ") + __VERSION__;
  session.date = UtcNow();
  for (Subject* s : subjects) {
    session.subjects.push_back(s->Name());
    session.labels.push_back(s->Label());
  }
  session.sizes = o.sizes;
  char settings[256];
  std::snprintf(settings, sizeof settings,
                "%d runs per figure on one CPU (cpu %d), %d on two CPUs and unpinned; %.0f ms measured per run; "
                "channel segment 32768 bytes",
                o.reps, session.oneCpu, o.infoReps, o.budgetMs);
  session.settings = settings;

  std::string const logPath = o.work + "/ipc_bench-children.log";
  int log = open(logPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  int failures = 0;
  double const started = Now();
  for (Placement placement : o.placements) {
    if (placement == Placement::kTwoCpus && cpus < 2) continue;
    int const reps = placement == Placement::kOneCpu ? o.reps : o.infoReps;
    for (unsigned size : o.sizes) {
      for (Metric metric : {Metric::kThroughput, Metric::kRoundTrip}) {
        for (int rep = 0; rep < reps; ++rep) {
          for (Subject* subject : subjects) {
            if (!subject->Supports(metric, size)) continue;
            RunSettings s;
            s.size = size;
            s.budgetSeconds = o.budgetMs / 1000;
            s.maxMessages = metric == Metric::kThroughput ? 5000000 : 200000;
            s.warmup = metric == Metric::kThroughput ? 2000 : 300;
            Run run = RunCase(*subject, placement, metric, s, rep, session, log);
            std::printf("%-8s %-10s %-3s %5u #%d  %s\n", PlacementKey(placement), subject->Name(),
                        metric == Metric::kThroughput ? "tp" : "rtt", size, rep, Describe(run).c_str());
            if (!run.ok) ++failures;
            session.runs.push_back(run);
          }
        }
      }
    }
  }
  if (log >= 0) close(log);
  std::printf("%zu runs in %.0f s, %d failed\n", session.runs.size(), Now() - started, failures);

  WriteRaw(session, o.work + "/ipc_bench-raw.tsv");
  if (!o.codec.empty() && !ReadCodec(o.codec, &session.codec))
    std::fprintf(stderr, "could not read the codec figures from %s\n", o.codec.c_str());
  WriteReport(session, o.out, o.work);
  return failures == 0 ? 0 : 1;
}
