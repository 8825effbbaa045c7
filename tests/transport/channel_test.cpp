// Channel lifecycle between real processes: who becomes which party, the
// online and offline notices, the chained signal handler and failed
// construction.
//
// Children are forked before the parent attaches anything: a fork inherits
// attachments, which would distort the attach counts the channel relies on.
#include <gtest/gtest.h>
#include <signal.h>

#include <cerrno>

#include "support/channel.h"
#include "support/process.h"
#include "transport/sysv.h"

namespace {

using namespace test;

constexpr int kId = 5;

TEST(ChannelTest, PartiesAnnounceTalkAndLeave) {
  Pipe go, joined;
  pid_t child = Spawn([&] {
    if (!go.Receive()) return 1;
    auto channel = Open(kId);
    if (!*channel) return 2;
    unsigned early = 1;  // the first party is not online yet: dropped without a report
    if (!Stderr([&] { early = Send(*channel, 1, "too early"); }).empty() || early != 0) return 3;
    joined.Send();
    if (Take(*channel, true) != "online 5") return 4;
    if (Take(*channel, true) != "77:hello") return 5;
    return Send(*channel, 78, "world") == 9 ? 0 : 6;  // leaving sends the offline notice
  });
  auto channel = Open(kId);
  go.Send();
  ASSERT_TRUE(joined.Receive());
  EXPECT_TRUE(channel->IsPartyOnline());  // known from the flags alone
  EXPECT_EQ("<none>", Take(*channel));    // announces; the early one was dropped
  EXPECT_EQ(9u, Send(*channel, 77, "hello"));
  EXPECT_EQ("78:world", Take(*channel, true));
  EXPECT_EQ("offline 5", Take(*channel, true));
  EXPECT_FALSE(channel->IsPartyOnline());
  EXPECT_TRUE(Wait(child).ok());
}

// (A stale segment nobody holds is taken over: the kill matrix's newcomers.)
TEST(ChannelTest, FirstPlaceIsRefilledAfterTheFirstLeaves) {
  Pipe go, joined;
  pid_t child = Spawn([&] {
    if (!go.Receive()) return 1;
    auto channel = Open(kId);
    Announce(*channel);
    joined.Send();
    if (Take(*channel, true) != "online 5") return 2;
    if (Take(*channel, true) != "offline 5") return 3;  // the first left
    joined.Send();  // a newcomer resets the buffers: read before it comes
    if (Take(*channel, true) != "online 5") return 4;  // and a new first came
    return Take(*channel, true) == "1:again" ? 0 : 5;
  });
  auto first = Open(kId);
  go.Send();
  ASSERT_TRUE(joined.Receive());
  Announce(*first);
  first.reset();  // only the second stays: the next comer takes first place
  ASSERT_TRUE(joined.Receive());
  first = Open(kId);
  ASSERT_TRUE(*first);
  Announce(*first);
  EXPECT_EQ(9u, Send(*first, 1, "again"));
  EXPECT_EQ("offline 5", Take(*first, true));
  EXPECT_TRUE(Wait(child).ok());
}

TEST(ChannelTest, FatalSignalGoesOnToThePreviousHandler) {
  if (CyclicSharedMemory::mObjCounter != 0)
    GTEST_SKIP() << "handlers were installed by an earlier case of this process";
  ChildResult result = test::Run([] {
    signal(SIGINT, [](int) { _exit(42); });
    auto channel = Open(kId);
    struct sigaction pipe;
    sigaction(SIGPIPE, nullptr, &pipe);
    if (pipe.sa_handler != SIG_IGN) return 1;
    raise(SIGINT);
    return 2;
  });
  EXPECT_EQ(42, result.code) << result.Describe();
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
  std::string const noSpace = "\n\rCreate Shared Memory error : No space left on device\r\n";
  std::string const failed = "\n\rConstructor failed error.\r\n";
  EXPECT_EQ("\n\rSize of shared memory must be at least 64 bytes error.\r\n" + failed + noSpace + failed + noSpace +
                failed,
            Stderr([] {
              { CyclicMessageQueue small(kId, "/bin/ping", 63, nullptr); }
              sysv.ShmGet = NoSpaceShmGet;
              { CyclicMessageQueue full(kId, "/bin/ping", 4096, nullptr); }
              { CyclicMessageQueue again(kId, "/bin/ping", 4096, nullptr); }
              sysv.ShmGet = kRealSysVCalls.ShmGet;
            }));
  EXPECT_EQ("Constructor failed error.", CyclicMessageQueue::GetLastError());
  auto channel = Open(kId);
  EXPECT_EQ("\n\rMemory overflow error.\r\n", Stderr([&] {
              channel->Error("Memory overflow");
              channel->Error("Memory overflow");
            }));
}

}  // namespace
