// Channel lifecycle between real processes: who becomes which party, the
// online and offline notices, refusal of a third party, take-over of a stale
// segment, and the clean-up on a fatal signal.
//
// Children are forked before the parent attaches anything: a fork inherits
// attachments, which would distort the attach counts the channel relies on.
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/shm.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

#include "support/ipc.h"
#include "support/process.h"
#include "transport.h"
#include "transport/sysv.h"

namespace {

constexpr int kId = 5;
constexpr unsigned kSize = 4096;
constexpr int kOnline = static_cast<int>(0x80000000u);
constexpr int kOffline = static_cast<int>(0x80000001u);

std::unique_ptr<CyclicSharedMemory> Open(int id = kId, unsigned size = kSize) {
  std::unique_ptr<CyclicSharedMemory> channel(new CyclicSharedMemory(id, "/bin/ping", size));
  channel->Create();
  return channel;
}

std::string IdBody(int id) { return std::string(reinterpret_cast<char const*>(&id), 4); }

// Blocking read of one message; "code:body".
std::string Next(CyclicSharedMemory& channel) {
  int code = 0;
  std::string body;
  if (!channel.Read(&code, &body, true)) return "<failed>";
  if (code == kOnline || code == kOffline)
    return std::string(code == kOnline ? "online" : "offline") + (body == IdBody(kId) ? "" : "?");
  return std::to_string(code) + ":" + body;
}

unsigned Send(CyclicSharedMemory& channel, int code, std::string const& body) {
  return channel.Write(&code, &body);
}

int AttachCount() {
  shmid_ds status;
  int segment = shmget(ftok("/bin/ping", kId), 0, 0);
  return segment == -1 || shmctl(segment, IPC_STAT, &status) != 0 ? -1 : int(status.shm_nattch);
}

TEST(ChannelTest, PartiesAnnounceTalkAndLeave) {
  test::Pipe go, joined;
  pid_t child = test::Spawn([&] {
    int v;
    if (!go.Receive(&v)) return 1;
    auto channel = Open();
    if (!*channel) return 2;
    testing::internal::CaptureStderr();
    unsigned early = Send(*channel, 1, "too early");  // first party not online yet
    if (early != 0 || !testing::internal::GetCapturedStderr().empty()) return 3;
    joined.Send(1);
    if (Next(*channel) != "online") return 4;
    if (Next(*channel) != "77:hello") return 5;
    if (Send(*channel, 78, "world") != 9) return 6;
    return 0;  // leaving sends the offline notice
  });
  auto channel = Open();
  go.Send(1);
  int v;
  ASSERT_TRUE(joined.Receive(&v));
  EXPECT_TRUE(channel->IsPartyOnline());  // known from the flags alone
  std::string body;
  EXPECT_EQ(0u, channel->Read(nullptr, &body, false));  // announces; the early one was dropped
  EXPECT_TRUE(channel->IsPartyOnline());
  EXPECT_EQ(9u, Send(*channel, 77, "hello"));
  EXPECT_EQ("78:world", Next(*channel));
  EXPECT_EQ("offline", Next(*channel));
  EXPECT_FALSE(channel->IsPartyOnline());
  EXPECT_EQ(0, test::Wait(child).code);
}

TEST(ChannelTest, RefusedThirdPartiesLeaveNoAttachmentBehind) {
  test::Pipe go, joined, leave;
  pid_t child = test::Spawn([&] {
    int v;
    if (!go.Receive(&v)) return 1;
    auto channel = Open();
    joined.Send(1);
    return leave.Receive(&v) && *channel ? 0 : 2;
  });
  auto channel = Open();
  go.Send(1);
  int v;
  ASSERT_TRUE(joined.Receive(&v));
  CyclicSharedMemory::mMemoryErrorMessage = "No errors";
  for (int attempt = 0; attempt < 3; ++attempt) {
    testing::internal::CaptureStderr();
    {
      CyclicMessageQueue third(kId, "/bin/ping", kSize, nullptr);
      EXPECT_FALSE(third);
    }
    EXPECT_EQ("\n\rThird with ID 0x5 is redundant error.\r\n\n\rConstructor failed error.\r\n",
              testing::internal::GetCapturedStderr());
    EXPECT_EQ(2, AttachCount());
  }
  leave.Send(1);
  EXPECT_EQ(0, test::Wait(child).code);
  channel.reset();  // the real last party removes everything
  EXPECT_EQ("", test::DescribeIpcObjects());
}

TEST(ChannelTest, KilledOwnerSegmentIsTakenOverAndFirstPlaceIsRefilled) {
  // A first party dies without clean-up: flags still say attached and online.
  test::ChildResult killed = test::Run([] {
    auto channel = Open();
    std::string body;
    channel->Read(nullptr, &body, false);
    raise(SIGKILL);
    return 1;
  });
  ASSERT_TRUE(killed.signaled) << killed.Describe();
  ASSERT_EQ(0, AttachCount());

  test::Pipe go, joined, leave;
  pid_t child = test::Spawn([&] {
    int v;
    if (!go.Receive(&v)) return 1;
    auto channel = Open();
    if (!*channel) return 2;
    std::string body;
    channel->Read(nullptr, &body, false);
    joined.Send(1);
    if (Next(*channel) != "online") return 3;
    if (Next(*channel) != "offline") return 4;  // the first left
    joined.Send(2);  // a newcomer resets the buffers: read before it comes
    if (Next(*channel) != "online") return 5;   // and a new first came
    if (Next(*channel) != "1:again") return 6;
    return 0;
  });
  auto first = Open();
  ASSERT_TRUE(*first);  // took the stale segment over
  go.Send(1);
  int v;
  ASSERT_TRUE(joined.Receive(&v));
  std::string body;
  first->Read(nullptr, &body, false);
  first.reset();  // only the second stays: the next comer takes first place
  ASSERT_TRUE(joined.Receive(&v));
  first = Open();
  ASSERT_TRUE(*first);
  first->Read(nullptr, &body, false);
  EXPECT_EQ(9u, Send(*first, 1, "again"));
  EXPECT_EQ("offline", Next(*first));
  EXPECT_EQ(0, test::Wait(child).code);
}

TEST(ChannelTest, FatalSignalCleansEveryChannelAndDiesBySignal) {
  test::Pipe ready;
  pid_t child = test::Spawn([&] {
    auto shared = Open();
    auto alone = Open(kId + 1);
    std::string body;
    shared->Read(nullptr, &body, false);
    ready.Send(1);
    if (Next(*shared) != "online") return 1;
    ready.Send(2);
    for (;;) pause();
  });
  int v;
  ASSERT_TRUE(ready.Receive(&v));
  auto channel = Open();
  std::string body;
  channel->Read(nullptr, &body, false);
  ASSERT_TRUE(ready.Receive(&v));
  kill(child, SIGTERM);
  test::ChildResult result = test::Wait(child, 5);
  EXPECT_TRUE(result.signaled && result.signal == SIGTERM) << result.Describe();
  EXPECT_EQ("offline", Next(*channel));
  EXPECT_EQ(1, test::CountSegments());  // the child's own channel is gone
  EXPECT_EQ(2, test::CountSemaphoreSets());
}

TEST(ChannelTest, FatalSignalGoesOnToThePreviousHandler) {
  if (CyclicSharedMemory::mObjCounter != 0)
    GTEST_SKIP() << "handlers were installed by an earlier case of this process";
  test::ChildResult result = test::Run([] {
    signal(SIGINT, [](int) { _exit(42); });
    auto channel = Open();
    struct sigaction pipe;
    sigaction(SIGPIPE, nullptr, &pipe);
    if (pipe.sa_handler != SIG_IGN) return 1;
    raise(SIGINT);
    return 2;
  });
  EXPECT_EQ(42, result.code) << result.Describe();
}

// Holds the write mutex of the channel forever: the raise inside Write never
// returns.
test::Pipe* gInside;
int StuckSemOp(int id, sembuf* op) {
  if (op->sem_op <= 0) return kRealSysVCalls.SemOp(id, op);
  gInside->Send(1);
  for (;;) pause();
}

TEST(ChannelTest, FatalSignalDuringWriteDeadlocksCleanup) {
  test::Pipe opened, ready, inside;
  gInside = &inside;
  pid_t child = test::Spawn([&] {
    auto channel = Open();
    std::string body;
    channel->Read(nullptr, &body, false);
    opened.Send(1);
    int v;
    if (!ready.Receive(&v) || !channel->IsPartyOnline()) return 1;
    sigset_t term;
    sigemptyset(&term);
    sigaddset(&term, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &term, nullptr);  // the signal must hit the writer
    pthread_t writer;
    pthread_create(&writer, nullptr, [](void* arg) -> void* {
      sigset_t term;
      sigemptyset(&term);
      sigaddset(&term, SIGTERM);
      pthread_sigmask(SIG_UNBLOCK, &term, nullptr);
      sysv.SemOp = StuckSemOp;
      int code = 1;
      std::string body = "stuck";
      static_cast<CyclicSharedMemory*>(arg)->Write(&code, &body);
      return nullptr;
    }, channel.get());
    pthread_join(writer, nullptr);
    return 2;
  });
  int v;
  ASSERT_TRUE(opened.Receive(&v));
  auto channel = Open();
  std::string body;
  channel->Read(nullptr, &body, false);
  ready.Send(1);
  ASSERT_TRUE(inside.Receive(&v));
  kill(child, SIGTERM);
  test::ChildResult result = test::Wait(child, 5);
  EXPECT_TRUE(result.signaled && result.signal == SIGTERM) << result.Describe();
  EXPECT_FALSE(channel->IsPartyOnline());
}

int NoSpaceShmGet(key_t key, size_t size, int flags) {
  if (flags & IPC_CREAT) {
    errno = ENOSPC;
    return -1;
  }
  return kRealSysVCalls.ShmGet(key, size, flags);
}

TEST(ChannelTest, FailedConstructionReportsOnceAndLeavesNothing) {
  CyclicSharedMemory::mMemoryErrorMessage = "No errors";
  testing::internal::CaptureStderr();
  { CyclicMessageQueue small(kId, "/bin/ping", 63, nullptr); }
  sysv.ShmGet = NoSpaceShmGet;
  { CyclicMessageQueue full(kId, "/bin/ping", kSize, nullptr); }
  { CyclicMessageQueue again(kId, "/bin/ping", kSize, nullptr); }
  sysv.ShmGet = kRealSysVCalls.ShmGet;
  EXPECT_EQ(
      "\n\rSize of shared memory must be at least 64 bytes error.\r\n"
      "\n\rConstructor failed error.\r\n"
      "\n\rCreate Shared Memory error : No space left on device\r\n"
      "\n\rConstructor failed error.\r\n"
      "\n\rCreate Shared Memory error : No space left on device\r\n"
      "\n\rConstructor failed error.\r\n",
      testing::internal::GetCapturedStderr());
  EXPECT_EQ("Constructor failed error.", CyclicMessageQueue::GetLastError());

  auto channel = Open();
  testing::internal::CaptureStderr();
  channel->Error("Memory overflow");
  channel->Error("Memory overflow");
  EXPECT_EQ("\n\rMemory overflow error.\r\n", testing::internal::GetCapturedStderr());
}

}  // namespace
