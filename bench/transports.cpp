// The subjects that move raw messages: the protocol floor, the library's
// channel, and what an engineer would otherwise use on one Linux host.
//
// Capacity: the channel's segment is 32768 bytes, about 16 KB per direction,
// and every transport that has a byte or message-count knob gets the same
// 16 KB of payload per direction (pipe size, queue bytes, message count x
// message size). The socketpair keeps its default buffer: its accounting
// charges each packet the kernel's per-packet overhead, so 16 KB would hold a
// few dozen small messages against the channel's hundreds.
//
// Buffers are laid out so that nothing is copied twice: each endpoint owns its
// outgoing message in the form its send call takes (code and body contiguous
// where the call wants one buffer), and the driver stamps the body in place.
#include <errno.h>
#include <fcntl.h>
#include <mqueue.h>
#include <sched.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <boost/interprocess/ipc/message_queue.hpp>

#include "bench.h"
#include "transport.h"

namespace bench {

std::unique_ptr<Subject> MakeMessengerSubject();

namespace {

constexpr unsigned kChannelSize = 32768;
constexpr unsigned kPayloadPerDirection = 16384;
constexpr int kChannelId = 42;
constexpr int kOnlineCode = static_cast<int>(0x80000000u);
constexpr int kOfflineCode = static_cast<int>(0x80000001u);
constexpr double kRetryLimitSeconds = 5;

std::string Errno(char const* what) { return std::string(what) + ": " + std::strerror(errno); }

// Messages a queue with a message-count limit holds in 16 KB of payload.
long QueueDepth(unsigned size) {
  return std::max<long>(1, static_cast<long>(kPayloadPerDirection / (size + 4)));
}

// Retries a full shared-memory ring after a yield, as a writer that must not
// lose a message would; gives up only when the reader has been gone for
// seconds.
template <typename TrySend>
bool SendRetrying(Endpoint& ep, TrySend trySend, std::string* why) {
  if (trySend()) return true;
  double const give_up = Now() + kRetryLimitSeconds;
  do {
    ++ep.retries;
    sched_yield();
    if (trySend()) return true;
  } while ((ep.retries & 1023) != 0 || Now() < give_up);
  *why = "still full after retrying for seconds";
  return false;
}

// ---------------------------------------------------------------------------
// Protocol floor: the channel's mechanism and nothing else. One System V
// segment with the channel's header and two rings of the channel's size, one
// semaphore per direction counting frames; a write is copy, store position,
// one semop; a read is one semop, copy, store position. No mutex, flags,
// online checks, poller wake-up or error texts.

constexpr unsigned kHeader = 56;
constexpr unsigned kRing = (kChannelSize - kHeader) / 2;

std::uint32_t LoadAcquire(std::uint32_t const* word) { return __atomic_load_n(word, __ATOMIC_ACQUIRE); }
void StoreRelease(std::uint32_t* word, std::uint32_t value) { __atomic_store_n(word, value, __ATOMIC_RELEASE); }

class FloorEndpoint : public Endpoint {
 public:
  FloorEndpoint(char* base, int side, int sendSem, int receiveSem, unsigned size)
      : base_(base), sendSem_(sendSem), receiveSem_(receiveSem), out_(size, '\0') {
    std::uint32_t* words = reinterpret_cast<std::uint32_t*>(base);
    // Same header words as the channel: 8/12 first-to-second, 16/20 back.
    outRead_ = words + (side == 0 ? 2 : 4);
    outWrite_ = words + (side == 0 ? 3 : 5);
    inRead_ = words + (side == 0 ? 4 : 2);
    outRing_ = base + kHeader + (side == 0 ? 0 : kRing);
    inRing_ = base + kHeader + (side == 0 ? kRing : 0);
    in_.reserve(size);
  }
  ~FloorEndpoint() override { shmdt(base_); }

  char* OutBody() override { return &out_[0]; }

  bool Send(int code) override {
    return SendRetrying(*this, [this, code] { return TryWrite(code); }, &why_);
  }

  bool Receive(int* code, char const** body, unsigned* size) override {
    sembuf take = {0, -1, 0};
    while (semop(receiveSem_, &take, 1) != 0) {
      if (errno == EINTR) continue;
      why_ = Errno("semop");
      return false;
    }
    std::uint32_t at = *inRead_;
    std::uint32_t header[2];
    Get(at, header, 8);
    in_.resize(header[1]);
    Get((at + 8) % kRing, &in_[0], header[1]);
    StoreRelease(inRead_, (at + 8 + header[1]) % kRing);
    *code = static_cast<int>(header[0]);
    *body = in_.data();
    *size = static_cast<unsigned>(in_.size());
    return true;
  }

  std::string Why() const override { return why_; }

 private:
  bool TryWrite(int code) {
    std::uint32_t const length = static_cast<std::uint32_t>(out_.size());
    std::uint32_t const reader = LoadAcquire(outRead_);
    std::uint32_t const at = *outWrite_;
    std::uint32_t const used = at >= reader ? at - reader : kRing - reader + at;
    if (8 + length > kRing - 1 - used) return false;
    std::uint32_t const header[2] = {static_cast<std::uint32_t>(code), length};
    Put(at, header, 8);
    Put((at + 8) % kRing, out_.data(), length);
    StoreRelease(outWrite_, (at + 8 + length) % kRing);
    sembuf raise = {0, 1, 0};
    if (semop(sendSem_, &raise, 1) == 0) return true;
    why_ = Errno("semop");
    return false;
  }

  void Put(std::uint32_t at, void const* data, unsigned n) {
    unsigned const first = std::min(n, kRing - at);
    std::memcpy(outRing_ + at, data, first);
    std::memcpy(outRing_, static_cast<char const*>(data) + first, n - first);
  }
  void Get(std::uint32_t at, void* data, unsigned n) const {
    unsigned const first = std::min(n, kRing - at);
    std::memcpy(data, inRing_ + at, first);
    std::memcpy(static_cast<char*>(data) + first, inRing_, n - first);
  }

  char* base_;
  int sendSem_, receiveSem_;
  std::uint32_t *outRead_, *outWrite_, *inRead_;
  char *outRing_, *inRing_;
  std::string out_, in_;
  std::string why_;
};

class FloorSubject : public Subject {
 public:
  char const* Name() const override { return "floor"; }
  char const* Label() const override { return "protocol floor"; }

  bool Prepare(RunSettings const&) override {
    segment_ = shmget(IPC_PRIVATE, kChannelSize, IPC_CREAT | 0600);
    sems_[0] = semget(IPC_PRIVATE, 1, IPC_CREAT | 0600);
    sems_[1] = semget(IPC_PRIVATE, 1, IPC_CREAT | 0600);
    if (segment_ == -1 || sems_[0] == -1 || sems_[1] == -1) return false;
    for (int sem : sems_)
      if (semctl(sem, 0, SETVAL, 0) != 0) return false;
    return true;  // a new segment is zero: both rings empty at offset 0
  }

  void Release() override {
    if (segment_ != -1) shmctl(segment_, IPC_RMID, nullptr);
    for (int& sem : sems_)
      if (sem != -1) semctl(sem, 0, IPC_RMID);
    segment_ = sems_[0] = sems_[1] = -1;
  }

 protected:
  std::unique_ptr<Endpoint> Open(int side, RunSettings const& s, std::string* why) override {
    void* base = shmat(segment_, nullptr, 0);
    if (base == reinterpret_cast<void*>(-1)) {
      *why = Errno("shmat");
      return nullptr;
    }
    return std::unique_ptr<Endpoint>(
        new FloorEndpoint(static_cast<char*>(base), side, sems_[side], sems_[1 - side], s.size));
  }

 private:
  int segment_ = -1;
  int sems_[2] = {-1, -1};  // [side] counts the frames that side wrote
};

// ---------------------------------------------------------------------------
// The library's channel, through CyclicMessageQueue with string bodies: the
// writer's body string is written in place, the reader's string is reused,
// so after the first message neither side should allocate.

class ChannelEndpoint : public Endpoint {
 public:
  explicit ChannelEndpoint(unsigned size)
      : queue_(kChannelId, "/bin/ping", kChannelSize, nullptr), out_(size, '\0') {
    in_.reserve(size);
    // The first read announces this end; whatever it takes is a notice.
    int code = 0;
    if (queue_ && queue_.PeekMessage(&code, &in_)) ++notices;
  }
  bool valid() const { return static_cast<bool>(queue_); }

  bool Ready(std::string* why) override {
    double const give_up = Now() + 5;
    while (!queue_.IsPartyOnline()) {
      if (Now() > give_up) {
        *why = "the peer never came online";
        return false;
      }
      usleep(100);
    }
    return true;
  }

  char* OutBody() override { return &out_[0]; }

  bool Send(int code) override {
    return SendRetrying(*this, [this, code] { return queue_.SendMessage(&code, &out_) != 0; }, &why_);
  }

  bool Receive(int* code, char const** body, unsigned* size) override {
    for (;;) {
      if (queue_.GetMessage(code, &in_) == 0) {
        why_ = CyclicMessageQueue::GetLastError();
        return false;
      }
      if (*code != kOnlineCode && *code != kOfflineCode) break;
      ++notices;
    }
    *body = in_.data();
    *size = static_cast<unsigned>(in_.size());
    return true;
  }

  std::string Why() const override { return why_; }

 private:
  CyclicMessageQueue queue_;
  std::string out_, in_;
  std::string why_;
};

class ChannelSubject : public Subject {
 public:
  char const* Name() const override { return "channel"; }
  char const* Label() const override { return "CyclicMessageQueue"; }

 protected:
  std::unique_ptr<Endpoint> Open(int, RunSettings const& s, std::string* why) override {
    std::unique_ptr<ChannelEndpoint> ep(new ChannelEndpoint(s.size));
    if (!ep->valid()) {
      *why = CyclicMessageQueue::GetLastError();
      return nullptr;
    }
    return std::unique_ptr<Endpoint>(ep.release());
  }
};

// ---------------------------------------------------------------------------
// Pipe pair: a byte stream, so frames carry code and length; the reader reads
// as much as is there and takes frames off its buffer, as a careful stream
// reader does (one read may bring many messages).

ssize_t WriteAll(int fd, char const* data, size_t n) {
  size_t done = 0;
  while (done < n) {
    ssize_t k = write(fd, data + done, n - done);
    if (k < 0 && errno == EINTR) continue;
    if (k <= 0) return -1;
    done += static_cast<size_t>(k);
  }
  return static_cast<ssize_t>(done);
}

class PipeEndpoint : public Endpoint {
 public:
  PipeEndpoint(int readFd, int writeFd, unsigned size)
      : readFd_(readFd), writeFd_(writeFd), out_(8 + size), in_(65536 + 8 + size) {
    std::uint32_t length = size;
    std::memcpy(&out_[4], &length, 4);
  }
  char* OutBody() override { return &out_[8]; }

  bool Send(int code) override {
    std::memcpy(&out_[0], &code, 4);
    if (WriteAll(writeFd_, out_.data(), out_.size()) >= 0) return true;
    why_ = Errno("write");
    return false;
  }

  bool Receive(int* code, char const** body, unsigned* size) override {
    for (;;) {
      size_t const have = end_ - begin_;
      if (have >= 8) {
        std::uint32_t length;
        std::memcpy(&length, &in_[begin_ + 4], 4);
        if (have >= 8 + length) {
          std::memcpy(code, &in_[begin_], 4);
          *body = &in_[begin_ + 8];
          *size = length;
          begin_ += 8 + length;
          return true;
        }
      }
      if (begin_ > 0) {
        std::memmove(&in_[0], &in_[begin_], have);
        begin_ = 0;
        end_ = have;
      }
      ssize_t n = read(readFd_, &in_[end_], in_.size() - end_);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) {
        why_ = n == 0 ? std::string("end of file") : Errno("read");
        return false;
      }
      end_ += static_cast<size_t>(n);
    }
  }

  std::string Why() const override { return why_; }

 private:
  int readFd_, writeFd_;
  std::vector<char> out_, in_;
  size_t begin_ = 0, end_ = 0;
  std::string why_;
};

class PipeSubject : public Subject {
 public:
  char const* Name() const override { return "pipe"; }
  char const* Label() const override { return "pipe pair"; }

  bool Prepare(RunSettings const&) override {
    if (pipe2(fds_[0], O_CLOEXEC) != 0 || pipe2(fds_[1], O_CLOEXEC) != 0) return false;
    for (auto& p : fds_) fcntl(p[1], F_SETPIPE_SZ, static_cast<int>(kPayloadPerDirection));
    return true;
  }
  void Release() override {
    for (auto& p : fds_) {
      for (int& fd : p) {
        if (fd >= 0) close(fd);
        fd = -1;
      }
    }
  }

 protected:
  std::unique_ptr<Endpoint> Open(int side, RunSettings const& s, std::string*) override {
    return std::unique_ptr<Endpoint>(new PipeEndpoint(fds_[1 - side][0], fds_[side][1], s.size));
  }

 private:
  int fds_[2][2] = {{-1, -1}, {-1, -1}};  // [side] carries what that side writes
};

// ---------------------------------------------------------------------------
// Unix-domain SOCK_SEQPACKET socketpair: one packet per message.

class PacketEndpoint : public Endpoint {
 public:
  PacketEndpoint(int fd, unsigned size) : fd_(fd), out_(4 + size), in_(4 + size + 64) {}
  char* OutBody() override { return &out_[4]; }

  bool Send(int code) override {
    std::memcpy(&out_[0], &code, 4);
    for (;;) {
      ssize_t n = send(fd_, out_.data(), out_.size(), MSG_NOSIGNAL);
      if (n == static_cast<ssize_t>(out_.size())) return true;
      if (n < 0 && errno == EINTR) continue;
      why_ = Errno("send");
      return false;
    }
  }

  bool Receive(int* code, char const** body, unsigned* size) override {
    for (;;) {
      ssize_t n = recv(fd_, in_.data(), in_.size(), 0);
      if (n < 0 && errno == EINTR) continue;
      if (n < 4 || n == static_cast<ssize_t>(in_.size())) {
        why_ = n < 0 ? Errno("recv") : std::string("short or oversized packet");
        return false;
      }
      std::memcpy(code, in_.data(), 4);
      *body = in_.data() + 4;
      *size = static_cast<unsigned>(n - 4);
      return true;
    }
  }

  std::string Why() const override { return why_; }

 private:
  int fd_;
  std::vector<char> out_, in_;
  std::string why_;
};

class PacketSubject : public Subject {
 public:
  char const* Name() const override { return "seqpacket"; }
  char const* Label() const override { return "socketpair SEQPACKET"; }
  bool Prepare(RunSettings const&) override {
    return socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, fds_) == 0;
  }
  void Release() override {
    for (int& fd : fds_) {
      if (fd >= 0) close(fd);
      fd = -1;
    }
  }

 protected:
  std::unique_ptr<Endpoint> Open(int side, RunSettings const& s, std::string*) override {
    return std::unique_ptr<Endpoint>(new PacketEndpoint(fds_[side], s.size));
  }

 private:
  int fds_[2] = {-1, -1};
};

// ---------------------------------------------------------------------------
// POSIX message queues, one per direction. The namespace's msg_max (10 by
// default) would cap the queue far below 16 KB of small messages; the limit
// belongs to the driver's private IPC namespace, so it is raised there.

bool AllowQueueDepth(long depth) {
  char const* const path = "/proc/sys/fs/mqueue/msg_max";
  FILE* in = std::fopen(path, "r");
  long current = 0;
  if (in) {
    if (std::fscanf(in, "%ld", &current) != 1) current = 0;
    std::fclose(in);
  }
  if (current >= depth) return true;
  FILE* out = std::fopen(path, "w");
  if (!out) return false;
  bool const ok = std::fprintf(out, "%ld\n", depth) > 0;
  return std::fclose(out) == 0 && ok;
}

class PosixQueueEndpoint : public Endpoint {
 public:
  PosixQueueEndpoint(mqd_t in, mqd_t out, unsigned size) : in_(in), out_(out), outBuf_(4 + size), inBuf_(4 + size) {}
  char* OutBody() override { return &outBuf_[4]; }

  bool Send(int code) override {
    std::memcpy(&outBuf_[0], &code, 4);
    while (mq_send(out_, outBuf_.data(), outBuf_.size(), 0) != 0) {
      if (errno == EINTR) continue;
      why_ = Errno("mq_send");
      return false;
    }
    return true;
  }

  bool Receive(int* code, char const** body, unsigned* size) override {
    for (;;) {
      ssize_t n = mq_receive(in_, inBuf_.data(), inBuf_.size(), nullptr);
      if (n < 0 && errno == EINTR) continue;
      if (n < 4) {
        why_ = Errno("mq_receive");
        return false;
      }
      std::memcpy(code, inBuf_.data(), 4);
      *body = inBuf_.data() + 4;
      *size = static_cast<unsigned>(n - 4);
      return true;
    }
  }

  std::string Why() const override { return why_; }

 private:
  mqd_t in_, out_;
  std::vector<char> outBuf_, inBuf_;
  std::string why_;
};

class PosixQueueSubject : public Subject {
 public:
  char const* Name() const override { return "posixmq"; }
  char const* Label() const override { return "POSIX mq"; }

  bool Prepare(RunSettings const& s) override {
    mq_attr attr;
    std::memset(&attr, 0, sizeof attr);
    attr.mq_maxmsg = QueueDepth(s.size);
    attr.mq_msgsize = static_cast<long>(s.size + 4);
    if (!AllowQueueDepth(attr.mq_maxmsg)) return false;
    for (int side = 0; side < 2; ++side) {
      names_[side] = "/msgbench." + std::to_string(getpid()) + "." + std::to_string(side);
      mq_unlink(names_[side].c_str());
      queues_[side] = mq_open(names_[side].c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0600, &attr);
      if (queues_[side] == static_cast<mqd_t>(-1)) return false;
    }
    return true;
  }

  void Release() override {
    for (int side = 0; side < 2; ++side) {
      if (queues_[side] != static_cast<mqd_t>(-1)) mq_close(queues_[side]);
      if (!names_[side].empty()) mq_unlink(names_[side].c_str());
      queues_[side] = static_cast<mqd_t>(-1);
      names_[side].clear();
    }
  }

 protected:
  std::unique_ptr<Endpoint> Open(int side, RunSettings const& s, std::string*) override {
    return std::unique_ptr<Endpoint>(new PosixQueueEndpoint(queues_[1 - side], queues_[side], s.size));
  }

 private:
  mqd_t queues_[2] = {static_cast<mqd_t>(-1), static_cast<mqd_t>(-1)};  // [side] carries its writes
  std::string names_[2];
};

// ---------------------------------------------------------------------------
// System V message queues, one per direction.

class SysVQueueEndpoint : public Endpoint {
 public:
  SysVQueueEndpoint(int in, int out, unsigned size)
      : in_(in), out_(out), size_(size), outBuf_(Words(size)), inBuf_(Words(size)) {
    outBuf_[0] = 1;  // mtype
  }
  char* OutBody() override { return Text(outBuf_) + 4; }

  bool Send(int code) override {
    std::memcpy(Text(outBuf_), &code, 4);
    while (msgsnd(out_, outBuf_.data(), 4 + size_, 0) != 0) {
      if (errno == EINTR) continue;
      why_ = Errno("msgsnd");
      return false;
    }
    return true;
  }

  bool Receive(int* code, char const** body, unsigned* size) override {
    for (;;) {
      ssize_t n = msgrcv(in_, inBuf_.data(), 4 + size_, 0, 0);
      if (n < 0 && errno == EINTR) continue;
      if (n < 4) {
        why_ = Errno("msgrcv");
        return false;
      }
      std::memcpy(code, Text(inBuf_), 4);
      *body = Text(inBuf_) + 4;
      *size = static_cast<unsigned>(n - 4);
      return true;
    }
  }

  std::string Why() const override { return why_; }

 private:
  // struct msgbuf: a long, then the text.
  static size_t Words(unsigned size) { return 2 + (4 + size + sizeof(long) - 1) / sizeof(long); }
  static char* Text(std::vector<long>& buf) { return reinterpret_cast<char*>(buf.data() + 1); }

  int in_, out_;
  unsigned size_;
  std::vector<long> outBuf_, inBuf_;
  std::string why_;
};

class SysVQueueSubject : public Subject {
 public:
  char const* Name() const override { return "sysvmsg"; }
  char const* Label() const override { return "System V msgq"; }

  bool Prepare(RunSettings const&) override {
    for (int& q : queues_) {
      q = msgget(IPC_PRIVATE, IPC_CREAT | 0600);
      if (q == -1) return false;
      msqid_ds status;
      if (msgctl(q, IPC_STAT, &status) != 0) return false;
      status.msg_qbytes = kPayloadPerDirection;
      if (msgctl(q, IPC_SET, &status) != 0) return false;
    }
    return true;
  }
  void Release() override {
    for (int& q : queues_) {
      if (q != -1) msgctl(q, IPC_RMID, nullptr);
      q = -1;
    }
  }

 protected:
  std::unique_ptr<Endpoint> Open(int side, RunSettings const& s, std::string*) override {
    return std::unique_ptr<Endpoint>(new SysVQueueEndpoint(queues_[1 - side], queues_[side], s.size));
  }

 private:
  int queues_[2] = {-1, -1};
};

// ---------------------------------------------------------------------------
// Boost.Interprocess message_queue (POSIX shared memory, a process-shared
// mutex and condition variables), one per direction.

namespace bip = boost::interprocess;

class BoostQueueEndpoint : public Endpoint {
 public:
  BoostQueueEndpoint(std::string const& in, std::string const& out, unsigned size)
      : in_(bip::open_only, in.c_str()), out_(bip::open_only, out.c_str()), outBuf_(4 + size), inBuf_(4 + size) {}
  char* OutBody() override { return &outBuf_[4]; }

  bool Send(int code) override {
    std::memcpy(&outBuf_[0], &code, 4);
    try {
      out_.send(outBuf_.data(), outBuf_.size(), 0);
      return true;
    } catch (bip::interprocess_exception const& e) {
      why_ = e.what();
      return false;
    }
  }

  bool Receive(int* code, char const** body, unsigned* size) override {
    try {
      bip::message_queue::size_type received = 0;
      unsigned priority = 0;
      in_.receive(inBuf_.data(), inBuf_.size(), received, priority);
      if (received < 4) {
        why_ = "short message";
        return false;
      }
      std::memcpy(code, inBuf_.data(), 4);
      *body = inBuf_.data() + 4;
      *size = static_cast<unsigned>(received - 4);
      return true;
    } catch (bip::interprocess_exception const& e) {
      why_ = e.what();
      return false;
    }
  }

  std::string Why() const override { return why_; }

 private:
  bip::message_queue in_, out_;
  std::vector<char> outBuf_, inBuf_;
  std::string why_;
};

class BoostQueueSubject : public Subject {
 public:
  char const* Name() const override { return "boost"; }
  char const* Label() const override { return "Boost.Interprocess mq"; }

  bool Prepare(RunSettings const& s) override {
    try {
      for (int side = 0; side < 2; ++side) {
        names_[side] = "msgbench." + std::to_string(getpid()) + ".boost" + std::to_string(side);
        bip::message_queue::remove(names_[side].c_str());
        bip::message_queue queue(bip::create_only, names_[side].c_str(),
                                 static_cast<bip::message_queue::size_type>(QueueDepth(s.size)), s.size + 4);
      }
      return true;
    } catch (bip::interprocess_exception const&) {
      return false;
    }
  }
  void Release() override {
    for (auto& name : names_) {
      if (!name.empty()) bip::message_queue::remove(name.c_str());
      name.clear();
    }
  }

 protected:
  std::unique_ptr<Endpoint> Open(int side, RunSettings const& s, std::string* why) override {
    try {
      return std::unique_ptr<Endpoint>(new BoostQueueEndpoint(names_[1 - side], names_[side], s.size));
    } catch (bip::interprocess_exception const& e) {
      *why = e.what();
      return nullptr;
    }
  }

 private:
  std::string names_[2];  // [side] carries what that side writes
};

}  // namespace

std::vector<std::unique_ptr<Subject> > MakeSubjects() {
  std::vector<std::unique_ptr<Subject> > subjects;
  subjects.emplace_back(new FloorSubject);
  subjects.emplace_back(new ChannelSubject);
  subjects.push_back(MakeMessengerSubject());
  subjects.emplace_back(new PipeSubject);
  subjects.emplace_back(new PacketSubject);
  subjects.emplace_back(new PosixQueueSubject);
  subjects.emplace_back(new SysVQueueSubject);
  subjects.emplace_back(new BoostQueueSubject);
  return subjects;
}

}  // namespace bench
