// The poller across processes: one report per message in registration order,
// self alerts, the array form, a poller replaced under a running writer and a
// poller process that is killed and restarted, and both ends of a channel in
// one process.
//
// Children are forked before the parent attaches anything (a fork inherits
// attachments). Writes go after a handshake; nothing relies on timing.
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <map>
#include <thread>
#include <vector>

#include "queue_poller.h"
#include "support/channel.h"
#include "support/process.h"

namespace {

using namespace test;

constexpr int kRider = 200;
char const kPath[] = "/bin/ping";

// A forked child keeps the test process's load-time process id. A real
// process of the appliance is a program of its own, so each role takes its
// own id, or the poller could not tell the processes apart.
void BecomeProcess() { CyclicSharedMemory::mPID = TrojanRider::mPID = getpid(); }

key_t MainKey(int rider) { return ftok("/etc/passwd", rider); }

unsigned HeaderWord(int id, unsigned offset) {
  void* at = shmat(shmget(SegmentKey(id), 0, 0), nullptr, 0);
  unsigned word = *reinterpret_cast<unsigned*>(static_cast<char*>(at) + offset);
  shmdt(at);
  return word;
}

// A child process holding the first-party ends of `ids`. Write(i, n) makes it
// write n messages, code the channel's id and body k counting per channel
// from 1, to ids[i] once the peer is online; it leaves on Leave() or when the
// object goes.
struct Writer {
  explicit Writer(std::vector<int> ids) {
    pid = Spawn([this, ids] {
      BecomeProcess();
      std::vector<std::unique_ptr<CyclicSharedMemory>> channels;
      for (int id : ids) {
        channels.push_back(Open(id));
        if (!*channels.back()) return 1;
        Announce(*channels.back());  // nobody to tell yet
      }
      ack.Send();
      std::vector<int> sent(ids.size(), 0);
      for (int command; commands.Receive(&command, 60) && command != 0;) {
        int index = command >> 16, written = 0;
        CyclicSharedMemory& channel = *channels[index];
        if (!WaitUntil([&] { return channel.IsPartyOnline(); })) return 2;
        for (int k = 0; k < (command & 0xFFFF); ++k)
          written += Send(channel, ids[index], std::to_string(++sent[index])) != 0;
        ack.Send(written);
      }
      return 0;
    });
    ready = ack.Receive();
  }
  ~Writer() { Leave(); }
  bool Write(int index, int count) {
    commands.Send(index << 16 | count);
    int written;
    return ack.Receive(&written) && written == count;
  }
  int Leave() {
    if (pid == 0) return -1;
    commands.Send(0);
    ChildResult result = Wait(pid);
    pid = 0;
    return result.exited ? result.code : 100;
  }
  Pipe commands, ack;
  pid_t pid = 0;
  bool ready = false;
};

TEST(QueuePollerTest, OneReportPerMessageInRegistrationOrderAndReleaseFromAnotherThread) {
  Writer w21({21}), w22({22}), w23({23});
  ASSERT_TRUE(w21.ready && w22.ready && w23.ready);
  std::map<int, std::unique_ptr<CyclicSharedMemory>> ends;
  CyclicQueuePoller poller(kRider);
  for (int id : {23, 21, 22}) {  // priority follows registration, not ids
    ends[id] = Open(id);
    ASSERT_EQ(1, poller.SelectQueue(id, kPath, true, false));
  }
  ASSERT_TRUE(poller.Release());
  ASSERT_EQ(-1, poller.WaitForEvents());  // and the ends are announced
  ASSERT_TRUE(w21.Write(0, 3) && w22.Write(0, 3) && w23.Write(0, 3));
  std::vector<std::string> served;
  std::atomic<int> reports(0);
  std::thread waiter([&] {
    for (int released = 0; released < 2; ++reports) {
      int id = poller.WaitForEvents();
      served.push_back(id == -1 ? "-1" : ends.count(id) ? Take(*ends[id]) : "?" + std::to_string(id));
      released += id == -1;
    }
  });
  bool allServed = WaitUntil([&] { return reports == 9; });
  EXPECT_TRUE(poller.Release());
  EXPECT_TRUE(poller.Release());
  waiter.join();
  EXPECT_TRUE(allServed);
  EXPECT_EQ((std::vector<std::string>{"23:1", "23:2", "23:3", "21:1", "21:2", "21:3", "22:1",
                                      "22:2", "22:3", "-1", "-1"}),
            served);
  EXPECT_EQ(0, SemValue(MainKey(kRider)));
  EXPECT_EQ(0, w21.Leave() + w22.Leave() + w23.Leave());
}

TEST(QueuePollerTest, ArrayFormTakesEveryBusyQueueOnceAndNeedsRoomForAll) {
  Writer writer({31, 32, 33});
  ASSERT_TRUE(writer.ready);
  std::map<int, std::unique_ptr<CyclicSharedMemory>> ends;
  for (int id : {31, 32, 33}) ends[id] = Open(id);
  CyclicQueuePoller poller(kRider);
  EXPECT_EQ(0, poller.SelectQueue(34, kPath, true, false));  // no such segment
  ASSERT_EQ(1, poller.SelectQueue(31, kPath, true, false));
  ASSERT_EQ(1, poller.SelectQueue(32, kPath, true, false));
  EXPECT_EQ(static_cast<unsigned>(MainKey(kRider)), HeaderWord(31, 32));  // second party's pair
  EXPECT_EQ(static_cast<unsigned>(ftok("/etc/services", 31)), HeaderWord(31, 36));
  EXPECT_EQ(0u, HeaderWord(31, 40) | HeaderWord(31, 44));
  int ids[3] = {0, 0, 0};
  poller.Release();
  EXPECT_EQ(-1, poller.WaitForEvents(ids, 2));
  ASSERT_EQ(1, poller.SelectQueue(33, kPath, true, false));  // announced at once: the writer can write
  poller.Release();
  EXPECT_EQ(0, poller.WaitForEvents(ids, 2));  // no room for three: no wait, nothing taken
  EXPECT_EQ(0, poller.WaitForEvents(nullptr, 3));
  EXPECT_EQ(-1, poller.WaitForEvents(ids, 3));
  ASSERT_TRUE(writer.Write(2, 1) && writer.Write(0, 2));
  ASSERT_EQ(2, poller.WaitForEvents(ids, 3));
  EXPECT_EQ(31, ids[0]);
  EXPECT_EQ(33, ids[1]);
  EXPECT_EQ(1, SemValue(MainKey(kRider)));  // one unit per message taken: one left, for 31
  ASSERT_EQ(1, poller.WaitForEvents(ids, 3));
  EXPECT_EQ(31, ids[0]);
  EXPECT_EQ("31:1", Take(*ends[31]));
  EXPECT_EQ("31:2", Take(*ends[31]));
  EXPECT_EQ("33:1", Take(*ends[33]));
  CyclicQueuePoller stranger(kRider + 1);
  EXPECT_EQ(0, stranger.SelectQueue(31, kPath, false, false));  // never its queue
  EXPECT_EQ(0u, HeaderWord(31, 32) | HeaderWord(31, 36));       // but the pair is cleared
  // Register again, so that the last party finds the key and wipes the event.
  EXPECT_EQ(1, poller.SelectQueue(31, kPath, true, false));
  EXPECT_EQ(1, poller.SelectQueue(32, kPath, false, false));
  EXPECT_EQ(0, writer.Leave());
  // 32's event was dropped with its key pair: nobody else knows it now.
  Trigger::WipeTrigger(ftok("/etc/services", 32));
}

TEST(QueuePollerTest, ReplacedPollerGetsOnlyTheLatestMessage) {
  Writer writer({41});
  ASSERT_TRUE(writer.ready);
  auto end = Open(41);
  std::unique_ptr<CyclicQueuePoller> old(new CyclicQueuePoller(kRider));
  ASSERT_EQ(1, old->SelectQueue(41, kPath, true, false));
  old->Release();
  ASSERT_EQ(-1, old->WaitForEvents());
  ASSERT_TRUE(writer.Write(0, 2));
  EXPECT_EQ(41, old->WaitForEvents());
  EXPECT_EQ(41, old->WaitForEvents());
  EXPECT_EQ("41:1", Take(*end));
  EXPECT_EQ("41:2", Take(*end));
  old.reset();
  ASSERT_TRUE(writer.Write(0, 2));          // still raising the old poller's events
  EXPECT_EQ(2, SemValue(MainKey(kRider)));  // which the writer brought back
  CyclicQueuePoller poller(kRider + 1);
  ASSERT_EQ(1, poller.SelectQueue(41, kPath, true, false));
  ASSERT_TRUE(writer.Write(0, 1));
  EXPECT_EQ(-1, semget(MainKey(kRider), 1, 0));  // the writer noticed the change
  EXPECT_EQ(41, poller.WaitForEvents());
  EXPECT_EQ("41:5", Take(*end));  // 3 and 4 were dropped with the old poller
  EXPECT_EQ("<none>", Take(*end));
  EXPECT_EQ(0, writer.Leave());
}

TEST(QueuePollerTest, KilledPollerProcessIsReplacedWithoutStaleReports) {
  constexpr int kId = 51;
  Pipe go, goAgain, ready, got;
  pid_t victim = Spawn([&] {
    BecomeProcess();
    if (!go.Receive()) return 1;
    auto end = Open(kId);
    CyclicQueuePoller poller(kRider);
    if (poller.SelectQueue(kId, kPath, true, false) != 1) return 2;
    poller.Release();
    if (poller.WaitForEvents() != -1) return 3;
    ready.Send();
    for (;;) got.Send(poller.WaitForEvents() == kId && Take(*end) == "51:1");
  });
  pid_t successor = Spawn([&] {
    BecomeProcess();
    if (!goAgain.Receive(60)) return 1;
    CyclicQueuePoller poller(kRider);  // same id: finds the dead one's event
    if (SemValue(MainKey(kRider)) != 0) return 2;
    auto end = Open(kId);  // a fresh channel: this end is the first party
    if (poller.SelectQueue(kId, kPath, true, false) != 1) return 3;
    if (HeaderWord(kId, 40) != static_cast<unsigned>(MainKey(kRider))) return 4;
    poller.Release();
    if (poller.WaitForEvents() != -1) return 5;
    ready.Send();
    if (poller.WaitForEvents() != kId || Take(*end) != "online 51") return 6;
    if (poller.WaitForEvents() != kId || Take(*end) != "51:4") return 7;
    return SemValue(MainKey(kRider)) == 0 ? 0 : 8;
  });
  auto writer = Open(kId);
  Announce(*writer);
  go.Send();
  ASSERT_TRUE(ready.Receive());
  ASSERT_TRUE(Send(*writer, kId, "1"));
  int v;
  ASSERT_TRUE(got.Receive(&v) && v == 1);
  kill(victim, SIGKILL);
  ASSERT_TRUE(Wait(victim).signaled);
  EXPECT_TRUE(Send(*writer, kId, "2") && Send(*writer, kId, "3"));  // nobody can tell it died
  EXPECT_EQ(2, SemValue(MainKey(kRider)));
  writer.reset();  // the last one out wipes the dead poller's queue event
  goAgain.Send();
  ASSERT_TRUE(ready.Receive());
  writer = Open(kId);
  ASSERT_TRUE(*writer);
  EXPECT_TRUE(Send(*writer, kId, "4"));
  ChildResult result = Wait(successor);
  EXPECT_TRUE(result.ok()) << result.Describe();
}

TEST(QueuePollerTest, BothEndsInOneProcessEachThreadPollsItsOwnEnd) {
  constexpr int kId = 61, kAlone = 62;
  auto first = Open(kId);  // built by this thread
  auto alone = Open(kAlone);
  CyclicQueuePoller mine(kRider), theirs(kRider + 1), any(kRider + 2);
  std::unique_ptr<CyclicSharedMemory> second;
  int selected[3] = {0, 0, 0};
  std::thread([&] {
    second = Open(kId);
    selected[0] = theirs.SelectQueue(kId, kPath, true, false);
    selected[1] = any.SelectQueue(kAlone, kPath, true, true);
    selected[2] = any.SelectQueue(kAlone, kPath, true, false);
  }).join();
  ASSERT_EQ(1, selected[0] & selected[1] & selected[2]);
  ASSERT_EQ(1, mine.SelectQueue(kId, kPath, true, false));
  // Each end's own pair of keys: its poller's main event and its queue event.
  EXPECT_EQ((std::vector<unsigned>{unsigned(MainKey(kRider)), unsigned(ftok("/etc/passwd", kId)),
                                   unsigned(MainKey(kRider + 1)), unsigned(ftok("/etc/services", kId)),
                                   unsigned(ftok("/etc/passwd", kAlone)), unsigned(ftok("/etc/services", kAlone))}),
            (std::vector<unsigned>{HeaderWord(kId, 40), HeaderWord(kId, 44), HeaderWord(kId, 32), HeaderWord(kId, 36),
                                   HeaderWord(kAlone, 44), HeaderWord(kAlone, 36)}));
  mine.Release();
  theirs.Release();
  ASSERT_EQ(-1, mine.WaitForEvents());
  ASSERT_EQ(-1, theirs.WaitForEvents());  // its end's notice wakes mine
  ASSERT_TRUE(Send(*first, 1, "a") && Send(*second, 1, "b"));
  EXPECT_EQ(kId, theirs.WaitForEvents());
  EXPECT_EQ("1:a", Take(*second));
  EXPECT_EQ(kId, mine.WaitForEvents());
  EXPECT_EQ("online 61", Take(*first));
  EXPECT_EQ(kId, mine.WaitForEvents());
  EXPECT_EQ("1:b", Take(*first));
  second.reset();
  first.reset();
}

}  // namespace
