// Frame layout in the cyclic buffers, with both ends in this process and a
// third mapping of the segment to read and poke header words.
#include <gtest/gtest.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include <memory>
#include <string>

#include "transport.h"
#include "transport/handle_registry.h"

namespace {

constexpr int kId = 7;
constexpr unsigned kStart = 56;  // first-to-second buffer
constexpr unsigned kWrite = 12, kRead = 8;

class FrameTest : public testing::Test {
 protected:
  // Size 1056: each buffer is 500 bytes, [56, 556) first-to-second.
  void Open(unsigned size = 1056) {
    first_.reset(new CyclicSharedMemory(kId, "/bin/ping", size));
    second_.reset(new CyclicSharedMemory(kId, "/bin/ping", size));
    ASSERT_TRUE(*first_ && *second_);
    end_ = kStart + (size - 56) / 2;
    std::string body;
    first_->Read(nullptr, &body, false);   // online, peer absent: no notice
    second_->Read(nullptr, &body, false);  // online: notice to the first
    first_->Read(nullptr, &body, false);  // the notice, when it fits
    peek_ = static_cast<char*>(shmat(shmget(ftok("/bin/ping", kId), 0, 0), nullptr, 0));
  }
  // The extra mapping goes first, or neither end would see itself as the
  // last one attached and remove the channel.
  void Close() {
    if (peek_) shmdt(peek_);
    peek_ = nullptr;
    first_.reset();
    second_.reset();
  }
  void TearDown() override { Close(); }
  unsigned Word(unsigned offset) { return *reinterpret_cast<unsigned*>(peek_ + offset); }
  void SetWord(unsigned offset, unsigned v) { *reinterpret_cast<unsigned*>(peek_ + offset) = v; }
  // Moves the empty first-to-second buffer so the next frame goes at `at`.
  void EmptyAt(unsigned at) {
    SetWord(kWrite, at);
    SetWord(kRead, at - 4);
  }
  int Pending() {
    return semctl(semget(ftok("/bin/ping", 0x7FFFFFFF - kId), 1, 0), 0, GETVAL);
  }
  unsigned Send(unsigned length, char fill = 'x', int code = 1) {
    std::string body(length, fill);
    return first_->Write(&code, &body);
  }
  std::string Receive(int* code = nullptr) {
    std::string body;
    return second_->Read(code, &body, false) ? body : "<none>";
  }

  std::unique_ptr<CyclicSharedMemory> first_, second_;
  char* peek_ = nullptr;
  unsigned end_ = 0;
};

TEST_F(FrameTest, FreshBufferTakesExactlyOneFullFrame) {
  Open();
  EXPECT_EQ(488u, Send(484));
  EXPECT_EQ(end_, Word(kWrite));
  EXPECT_EQ(std::string(484, 'x'), Receive());
  for (unsigned length = 485; length <= 489; ++length) {
    SCOPED_TRACE(length);
    Close();  // fresh buffers for each size
    Open();
    EXPECT_EQ(0u, Send(length));
    EXPECT_EQ("Memory overflow error.", CyclicSharedMemory::GetLastError());
    EXPECT_EQ(kStart + 4, Word(kWrite));
    EXPECT_EQ(0, Pending());
  }
}

TEST_F(FrameTest, HeaderWrapsSevenBytesBeforeEndButNotEight) {
  Open();
  EmptyAt(end_ - 7);
  ASSERT_EQ(14u, Send(10, 'a', 42));
  EXPECT_EQ(42, static_cast<int>(Word(kStart)));
  EXPECT_EQ(10u, Word(kStart + 4));
  EXPECT_EQ(kStart + 8 + 10 + 4, Word(kWrite));
  int code = 0;
  EXPECT_EQ(std::string(10, 'a'), Receive(&code));
  EXPECT_EQ(42, code);

  EmptyAt(end_ - 8);
  ASSERT_EQ(14u, Send(10, 'b', 43));
  EXPECT_EQ(43, static_cast<int>(Word(end_ - 8)));
  EXPECT_EQ(std::string(10, 'b'), std::string(peek_ + kStart, 10));  // body at the start
  EXPECT_EQ(kStart + 10 + 4, Word(kWrite));
  EXPECT_EQ(std::string(10, 'b'), Receive(&code));
  EXPECT_EQ(43, code);
}

TEST_F(FrameTest, BodyEndingThreeBytesBeforeEndSendsNextFrameToStart) {
  Open();
  EmptyAt(end_ - 16);
  ASSERT_EQ(9u, Send(5));  // body ends at end - 3
  EXPECT_EQ(kStart + 4, Word(kWrite));
  EXPECT_EQ(8u, Send(4, 'y'));
  EXPECT_EQ(std::string(5, 'x'), Receive());
  EXPECT_EQ(std::string(4, 'y'), Receive());

  EmptyAt(end_ - 17);
  ASSERT_EQ(9u, Send(5));  // ends at end - 4: stays
  EXPECT_EQ(end_, Word(kWrite));
  EXPECT_EQ(std::string(5, 'x'), Receive());
}

TEST_F(FrameTest, OverflowPublishesNothingAndSparesEarlierFrames) {
  Open();
  unsigned sent = 0;
  unsigned position = 0;
  while (Send(100, static_cast<char>('a' + sent))) {
    ++sent;
    position = Word(kWrite);
  }
  ASSERT_EQ(4u, sent);  // the fifth would split, and its tail meets the reader
  EXPECT_EQ(position, Word(kWrite));
  EXPECT_EQ(4, Pending());
  for (unsigned i = 0; i < sent; ++i) EXPECT_EQ(std::string(100, static_cast<char>('a' + i)), Receive());
  EXPECT_EQ("<none>", Receive());
  EXPECT_EQ(104u, Send(100, 'z'));  // drained: writing resumes, split over the end
  EXPECT_EQ(std::string(100, 'z'), Receive());
}

// The writer, one frame behind the reader, stood within 7 bytes of the end
// while the reader's next frame was header-wrapped at the start: wrapping the
// new header to the start overwrote that unread frame.
TEST_F(FrameTest, HeaderWrapOverwritesUnreadFrame) {
  Open();
  EmptyAt(end_ - 1);
  ASSERT_EQ(14u, Send(10, 'p'));  // wrapped to the start; reader at end - 5
  ASSERT_EQ(464u, Send(460, 'q'));  // fills up to end - 10
  ASSERT_EQ(end_ - 6, Word(kWrite));
  EXPECT_EQ(0u, Send(1, 'r'));
  EXPECT_EQ(std::string(10, 'p'), Receive());
  EXPECT_EQ(std::string(460, 'q'), Receive());
  EXPECT_EQ("<none>", Receive());
}

TEST_F(FrameTest, EmptyBodiesAndShortReadBuffers) {
  Open();
  std::string empty;
  int code = 9;
  EXPECT_EQ(4u, first_->Write(&code, &empty));
  EXPECT_EQ(0u, first_->Write(nullptr, &empty));
  EXPECT_EQ("Empty message error.", CyclicSharedMemory::GetLastError());
  EXPECT_EQ(0u, first_->Write(&code, "", 0));  // raw form: silently nothing
  code = 0;
  std::string body = "stale";
  EXPECT_EQ(4u, second_->Read(&code, &body, false));
  EXPECT_EQ(9, code);
  EXPECT_EQ("", body);

  ASSERT_EQ(10u, first_->Write(nullptr, "abcdef", 6));
  ASSERT_EQ(7u, first_->Write(nullptr, "ghi", 3));
  char buffer[5] = {'#', '#', '#', '#', '#'};
  EXPECT_EQ(0u, second_->Read(nullptr, buffer, 5, false));
  EXPECT_EQ(std::string(5, '\0'), std::string(buffer, 5));
  EXPECT_EQ("Insufficient read buffer error.", CyclicSharedMemory::GetLastError());
  EXPECT_EQ(7u, second_->Read(nullptr, buffer, 5, false));  // the long one is gone
  EXPECT_EQ("ghi", std::string(buffer, 3));
  EXPECT_TRUE(first_->IsQueueEmpty());
}

int Count(int key) { return semctl(semget(key, 1, 0), 0, GETVAL); }

TEST_F(FrameTest, WritesWakeThePeersPollerAndANewPollerSeesOnlyTheLatest) {
  Open();
  constexpr int kMain = 0x6100, kQueue = 0x6101, kNewQueue = 0x6102;
  SetWord(32, kMain);  // the second party's poller registers
  SetWord(36, kQueue);
  Send(3, 'a');
  Send(3, 'b');
  EXPECT_EQ(2, Count(kMain));
  EXPECT_EQ(2, Count(kQueue));
  SetWord(36, kNewQueue);  // and registers again: older frames are dropped
  Send(3, 'c');
  EXPECT_EQ(-1, semget(kQueue, 1, 0));
  EXPECT_EQ(1, Count(kNewQueue));
  EXPECT_EQ(1, Pending());
  EXPECT_EQ("ccc", Receive());
  EXPECT_EQ("<none>", Receive());
  testing::internal::CaptureStderr();
  Close();  // the offline notice re-creates the main event the test wipes below
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(-1, semget(kNewQueue, 1, 0));  // the last party wipes per-queue events
  Trigger::WipeTrigger(kMain);             // the poller's own
}

TEST_F(FrameTest, HandleWordsNameTheirObjectsInThisProcess) {
  Open();
  EXPECT_EQ(first_.get(), LookupChannelHandle(Word(48)));
  EXPECT_EQ(second_.get(), LookupChannelHandle(Word(52)));
  EXPECT_NE(Word(48), Word(52));
  unsigned gone = Word(52);
  second_.reset();
  EXPECT_EQ(nullptr, LookupChannelHandle(gone));
  EXPECT_EQ(nullptr, LookupChannelHandle(0));
}

TEST_F(FrameTest, SmallestSegmentHoldsNoFrame) {
  Open(64);
  int code = 1;
  EXPECT_EQ(0u, first_->Write(&code, "a", 1));
  EXPECT_EQ(0u, second_->Write(&code, "a", 1));
  EXPECT_EQ("Memory overflow error.", CyclicSharedMemory::GetLastError());
}

}  // namespace
