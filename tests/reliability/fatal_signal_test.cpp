// A process with two channels takes a fatal signal while idle, while its
// main thread waits in a read, and while another of its threads is inside
// Write holding the write mutex. Whatever the state, it must die by that same
// signal within 5 s; its peer gets the offline message unless the mutex was
// held (the handler then gives up on the message rather than hang); the
// channel it had alone is removed, the shared one is left to the peer.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <ostream>
#include <memory>
#include <string>

#include "reliability.h"
#include "support/ipc.h"
#include "support/process.h"
#include "transport/sysv.h"

namespace {

using reliability::kOffline;
using reliability::kOnline;

constexpr int kShared = 20;
constexpr int kAlone = 21;
constexpr unsigned kSize = 4096;

enum State { kIdle, kWaitingRead, kWriteHeld };
char const* const kStateNames[] = {"Idle", "WaitingRead", "WriteHeld"};

std::unique_ptr<CyclicSharedMemory> Open(int id) {
  std::unique_ptr<CyclicSharedMemory> channel(new CyclicSharedMemory(id, "/bin/ping", kSize));
  channel->Create();
  return channel;
}

// Set in the victim only.
test::Pipe* gReport;
thread_local bool tWriter = false;
int ReportingSemOp(int id, sembuf* op) {
  if (op->sem_op < 0 && !(op->sem_flg & IPC_NOWAIT)) gReport->Send(2);  // about to block
  if (op->sem_op > 0 && tWriter) {  // inside Write, with the mutex held
    gReport->Send(2);
    for (;;) pause();
  }
  return kRealSysVCalls.SemOp(id, op);
}

void BlockFatalSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (int s : {SIGTERM, SIGINT, SIGABRT}) sigaddset(&set, s);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

// Faults for real (no raise) when told to. Written through a page without
// access rather than a null pointer, which the undefined-behaviour checker
// would catch first.
void* Crasher(void* arg) {
  BlockFatalSignals();
  int v;
  static_cast<test::Pipe*>(arg)->Receive(&v, 60);
  void* page = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  *static_cast<int volatile*>(page) = 1;
  return nullptr;
}

void* Writer(void* arg) {
  BlockFatalSignals();
  tWriter = true;
  int code = 1;
  std::string body = "never counted";
  static_cast<CyclicSharedMemory*>(arg)->Write(&code, &body);
  return nullptr;
}

int Victim(State state, test::Pipe& report, test::Pipe& crash) {
  int null = open("/dev/null", O_WRONLY);
  dup2(null, 2);
  auto shared = Open(kShared);
  auto alone = Open(kAlone);
  std::string body;
  shared->Read(nullptr, &body, false);
  alone->Read(nullptr, &body, false);
  report.Send(1);
  int code = 0;
  if (!shared->Read(&code, &body, true) || code != kOnline) return 1;
  pthread_t thread;
  pthread_create(&thread, nullptr, Crasher, &crash);
  gReport = &report;
  sysv.SemOp = ReportingSemOp;
  switch (state) {
    case kIdle:
      report.Send(2);
      break;
    case kWaitingRead:
      shared->Read(&code, &body, true);
      break;
    case kWriteHeld:
      pthread_create(&thread, nullptr, Writer, shared.get());
      break;
  }
  for (;;) pause();
}

struct Case {
  int signal;
  State state;
};

void PrintTo(Case const& c, std::ostream* out) {
  *out << sigabbrev_np(c.signal) << " " << kStateNames[c.state];
}

class FatalSignalTest : public testing::TestWithParam<Case> {};

TEST_P(FatalSignalTest, DiesBySameSignalAfterCleaningUp) {
  reliability::Watchdog watchdog(60);
  Case const c = GetParam();
  test::Pipe report, crash;
  pid_t victim = test::Spawn([&] { return Victim(c.state, report, crash); });
  int v;
  ASSERT_TRUE(report.Receive(&v));
  auto channel = Open(kShared);
  std::string body;
  channel->Read(nullptr, &body, false);
  ASSERT_TRUE(report.Receive(&v)) << test::Wait(victim, 1).Describe();
  if (c.state == kWaitingRead) usleep(50000);  // from "about to block" to blocked
  if (c.signal == SIGSEGV)
    crash.Send(1);
  else
    kill(victim, c.signal);
  test::ChildResult result = test::Wait(victim, 5);
  bool const bySignal = result.signaled && result.signal == c.signal;
  if (c.signal == SIGSEGV && reliability::kAddressSanitizer && !bySignal) {
    // The handler restores AddressSanitizer's own SIGSEGV handler and raises
    // again; that one reports and exits (or aborts, with abort_on_error)
    // instead of dying by the signal. The clean-up checked below ran first.
    EXPECT_TRUE(result.exited ? result.code == 1 : result.signaled && result.signal == SIGABRT)
        << result.Describe();
  } else {
    EXPECT_TRUE(bySignal) << result.Describe();
  }

  int code = 0;
  bool message = test::WaitUntil([&] { return channel->Read(&code, &body, false) != 0; },
                                 c.state == kWriteHeld ? 0.3 : 5);
  if (c.state == kWriteHeld) {
    EXPECT_FALSE(message) << "code " << code;
  } else {
    EXPECT_TRUE(message && code == kOffline) << "code " << code;
  }
  EXPECT_FALSE(channel->IsPartyOnline());
  EXPECT_EQ(1, test::CountSegments()) << test::DescribeIpcObjects();  // the shared one
  EXPECT_EQ(2, test::CountSemaphoreSets()) << test::DescribeIpcObjects();
}

std::vector<Case> AllCases() {
  std::vector<Case> cases;
  for (int signal : {SIGTERM, SIGINT, SIGABRT, SIGSEGV})
    for (State state : {kIdle, kWaitingRead, kWriteHeld}) cases.push_back({signal, state});
  return cases;
}

INSTANTIATE_TEST_SUITE_P(Matrix, FatalSignalTest, testing::ValuesIn(AllCases()),
                         [](testing::TestParamInfo<Case> const& info) {
                           return std::string(sigabbrev_np(info.param.signal)) + "_" +
                                  kStateNames[info.param.state];
                         });

}  // namespace
