// CyclicSharedMemory: one end of a channel between two processes.
//
// Segment layout (32-bit words in host byte order; offsets from the start):
//   0  party flags: 0x000000FF first attached, 0x0000FF00 second attached,
//                   0x00FF0000 first online,   0xFF000000 second online
//   4  segment size (set by the first party)
//   8  read position, first-to-second buffer     (moved by the second party)
//  12  write position, first-to-second buffer    (moved by the first party)
//  16  read position, second-to-first buffer     (moved by the first party)
//  20  write position, second-to-first buffer    (moved by the second party)
//  24  first party's process id    28  first party's thread id
//  32  second party's poller: main-event key  36  per-queue event key
//  40  first party's poller:  main-event key  44  per-queue event key
//  48  first party's object handle  52  second party's object handle
//  56  data: first-to-second buffer [56, 56+H), second-to-first [56+H, 56+2H)
//      where H = (size - 56) / 2.
//
// Frame: code (4) | body length L (4) | body (L) | gap (4, never written).
// Positions are segment offsets. A read position stands 4 bytes before the
// next frame; a buffer is empty when read position + 4 == write position.
// A frame whose header would start within 7 bytes of the buffer end starts
// at the buffer start instead; otherwise a body that does not fit before the
// end continues at the start. After an unwrapped body that ends within 3
// bytes of the end, the next frame starts at start + 4.
//
// Each buffer has one writing and one reading process and no lock between
// them: the writer copies the frame, then stores its write position, then
// raises the direction's semaphore; the reader trusts the semaphore count and
// never compares positions. The only word each side reads from the other is
// the peer's position, so those loads and stores are acquire/release: the
// reader must have copied a frame out before the writer can see the space
// as free (32-bit PowerPC reorders a load after a later store).
#include <errno.h>
#include <sched.h>
#include <time.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include "transport.h"
#include "transport/handle_registry.h"
#include "transport/sysv.h"
#include "transport/trigger_origin.h"

std::list<std::pair<int, CyclicSharedMemory*> > CyclicSharedMemory::mHandleMap;
int CyclicSharedMemory::mObjCounter = 0;
int CyclicSharedMemory::mPID = GetPID();
namespace {
// Room for any of the channel's texts with a system reason, so that the first
// refusal on a busy channel ("Memory overflow error.") does not allocate on
// the write path either.
std::string InitialErrorText() {
  std::string text;
  text.reserve(160);
  text.assign("No errors");
  return text;
}
}  // namespace

std::string CyclicSharedMemory::mMemoryErrorMessage(InitialErrorText());

namespace {

constexpr unsigned kMinimumSize = 64;
constexpr unsigned kHeaderSize = 56;
constexpr unsigned kFrameHeader = 8;  // code + length
constexpr unsigned kFrameGap = 4;
constexpr int kPermissions = 0666;

constexpr std::uint32_t kFirstAttached = 0x000000FFu;
constexpr std::uint32_t kSecondAttached = 0x0000FF00u;
constexpr std::uint32_t kFirstOnline = 0x00FF0000u;
constexpr std::uint32_t kSecondOnline = 0xFF000000u;
constexpr std::uint32_t kAttachedMask = 0x0000FFFFu;
constexpr std::uint32_t kBothAttached = kFirstAttached | kSecondAttached;

constexpr std::uint32_t kOnlineCode = 0x80000000u;
constexpr std::uint32_t kOfflineCode = 0x80000001u;

// Signals that clean up every channel of the process and then take their
// previous course: the previous action of each is kept at its index and
// restored before the signal is raised again.
constexpr int kCleanedSignals[] = {SIGTERM, SIGILL, SIGSEGV, SIGABRT, SIGFPE,
                                   SIGHUP,  SIGINT, SIGQUIT, SIGBUS, SIGTSTP};
constexpr int kIgnoredSignals[] = {SIGPIPE, SIGSYS, SIGTTIN, SIGTTOU, SIGXCPU, SIGXFSZ};
constexpr int kCleanedSignalCount = sizeof kCleanedSignals / sizeof kCleanedSignals[0];
struct sigaction gPreviousActions[kCleanedSignalCount];

// Set by the first call of MemoryCleaner, for the life of the process.
std::atomic<bool> gCleaning(false);
// While MemoryCleaner runs: the thread it interrupted (published by the
// release store of gInCleaner).
std::atomic<bool> gInCleaner(false);
pthread_t gCleanerThread;

// The two trigger keys: 0x7FFFFFFF - |id| and 0x80000000 + |id|, modulo 2^32
// (|INT_MIN| and the sums overflow int, so they are taken unsigned).
unsigned Magnitude(int id) {
  return id < 0 ? 0u - static_cast<unsigned>(id) : static_cast<unsigned>(id);
}
int FirstToSecondTriggerId(int id) { return static_cast<int>(0x7FFFFFFFu - Magnitude(id)); }
int SecondToFirstTriggerId(int id) { return static_cast<int>(0x80000000u + Magnitude(id)); }

std::uint32_t LoadAcquire(std::uint32_t const* word) {
  return __atomic_load_n(word, __ATOMIC_ACQUIRE);
}
void StoreRelease(std::uint32_t* word, std::uint32_t value) {
  __atomic_store_n(word, value, __ATOMIC_RELEASE);
}

// Objects whose construction failed, with the semaphores that construction
// created itself. Such an object detaches the segment it still holds and
// removes those semaphores when destroyed: a caller that retries a refused
// connection must not pile up attachments (they would keep the real last
// party from removing the channel) nor leave semaphores behind. Sets it only
// opened belong to the parties that made them and are left alone.
struct FailedConstruction {
  CyclicSharedMemory const* channel;
  bool createdFirstToSecond;
  bool createdSecondToFirst;
};
// Guards gFailed. Touched at construction and destruction only.
pthread_mutex_t gFailedLock = PTHREAD_MUTEX_INITIALIZER;
std::vector<FailedConstruction>* gFailed;  // never freed: static destructors may still need it

class FailedLock {
 public:
  FailedLock() { pthread_mutex_lock(&gFailedLock); }
  ~FailedLock() { pthread_mutex_unlock(&gFailedLock); }
};

void NoteFailedConstruction(FailedConstruction const& failure) {
  FailedLock lock;
  if (!gFailed) gFailed = new (std::nothrow) std::vector<FailedConstruction>;
  if (gFailed) gFailed->push_back(failure);
}

bool TakeFailedConstruction(CyclicSharedMemory const* channel, FailedConstruction* failure) {
  FailedLock lock;
  if (!gFailed) return false;
  for (auto it = gFailed->begin(); it != gFailed->end(); ++it) {
    if (it->channel != channel) continue;
    *failure = *it;
    gFailed->erase(it);
    return true;
  }
  return false;
}

}  // namespace

CyclicSharedMemory::CyclicSharedMemory(int id, char const* path, unsigned size)
    : mTriggerA(path, FirstToSecondTriggerId(id)),
      mTriggerB(path, SecondToFirstTriggerId(id)),
      mSegmentId(-1),
      mIsFirstParty(false),
      mRewindSuppressed(true),
      mAnnounced(false),
      mTrojan(nullptr),
      mId(id),
      mAttachAddress(nullptr),
      mPartyFlags(nullptr),
      mSegmentSize(nullptr),
      mReadPosFirstToSecond(nullptr),
      mWritePosFirstToSecond(nullptr),
      mReadPosSecondToFirst(nullptr),
      mWritePosSecondToFirst(nullptr),
      mFirstPartyPid(nullptr),
      mFirstPartyTid(nullptr),
      mSecondPollerMainKey(nullptr),
      mSecondPollerQueueKey(nullptr),
      mFirstPollerMainKey(nullptr),
      mFirstPollerQueueKey(nullptr),
      mFirstPartyHandle(nullptr),
      mSecondPartyHandle(nullptr),
      mBase(nullptr),
      mFirstToSecondStart(kHeaderSize),
      mSecondToFirstStart(kHeaderSize),
      mEnd(kHeaderSize) {
  FailedConstruction failure = {this, TriggerCreatedItsSet(&mTriggerA),
                                TriggerCreatedItsSet(&mTriggerB)};

  // The rest of the header, once the first party's place is claimed.
  auto initialiseHeader = [this, size] {
    __atomic_store_n(mSegmentSize, size, __ATOMIC_RELEASE);
    *mFirstPartyPid = static_cast<std::uint32_t>(mPID);
    *mFirstPartyTid = GetTID();
    for (std::uint32_t* word = mSecondPollerMainKey; word <= mSecondPartyHandle; ++word) *word = 0;
    mIsFirstParty = true;
  };

  auto setUp = [&] {
    if (size < kMinimumSize) {
      char text[64];
      std::snprintf(text, sizeof text, "Size of shared memory must be at least %d bytes",
                    static_cast<int>(kMinimumSize));
      Error(text);
      return;
    }
    key_t key = sysv.Ftok(path, id);
    if (key == -1) {
      ErrorEx("Create key");
      return;
    }
    bool created = false;
    int segment = sysv.ShmGet(key, size, 0);
    if (segment == -1) {
      if (errno != ENOENT) {
        ErrorEx("System create Shared Memory");
        return;
      }
      // Exclusive, so that of two ends starting at the same moment only one
      // believes it created the segment; the other joins what it finds.
      segment = sysv.ShmGet(key, size, IPC_CREAT | IPC_EXCL | kPermissions);
      if (segment == -1 && errno == EEXIST) {
        segment = sysv.ShmGet(key, size, 0);
      } else if (segment != -1) {
        created = true;
      }
      if (segment == -1) {
        ErrorEx("Create Shared Memory");
        return;
      }
    }
    void* address = sysv.ShmAt(segment);
    if (address == reinterpret_cast<void*>(-1)) {
      ErrorEx("Memory Attach");
      return;
    }
    mAttachAddress = address;
    // Alone on a segment we did not create: whatever the header said before
    // we looked, its owners are gone, and we take the first place whatever
    // the flags. The flags are read before the attach count, so that a claim
    // by an end attaching after the count changes them and defeats ours. A
    // creator does not force: its segment starts zeroed, and a joiner that
    // came before the creator attached may have claimed the place already.
    std::uint32_t const before = __atomic_load_n(static_cast<std::uint32_t*>(address), __ATOMIC_ACQUIRE);
    bool stale = false;
    if (!created) {
      shmid_ds status;
      if (sysv.ShmStat(segment, &status) == -1) {
        ErrorEx("Getting Memory status");
        return;
      }
      stale = status.shm_nattch == 1;
    }

    mBase = static_cast<char*>(address);
    std::uint32_t* words = static_cast<std::uint32_t*>(address);
    mPartyFlags = words + 0;
    mSegmentSize = words + 1;
    mReadPosFirstToSecond = words + 2;
    mWritePosFirstToSecond = words + 3;
    mReadPosSecondToFirst = words + 4;
    mWritePosSecondToFirst = words + 5;
    mFirstPartyPid = words + 6;
    mFirstPartyTid = words + 7;
    mSecondPollerMainKey = words + 8;
    mSecondPollerQueueKey = words + 9;
    mFirstPollerMainKey = words + 10;
    mFirstPollerQueueKey = words + 11;
    mFirstPartyHandle = words + 12;
    mSecondPartyHandle = words + 13;
    unsigned half = (size - kHeaderSize) / 2;
    mFirstToSecondStart = kHeaderSize;
    mSecondToFirstStart = kHeaderSize + half;
    mEnd = kHeaderSize + 2 * half;

    // Places are claimed by compare-and-swap on the flags word: of two ends
    // constructing at the same moment (a creator that has not attached yet
    // leaves a joiner alone on the segment), exactly one becomes the first
    // party. Every other update of the word is atomic too: an announce of
    // the peer may be rewriting it at the same time, and a lost update
    // leaves one end offline for good.
    auto claim = [this](std::uint32_t expected, std::uint32_t desired) {
      return __atomic_compare_exchange_n(mPartyFlags, &expected, desired, false, __ATOMIC_ACQ_REL,
                                         __ATOMIC_ACQUIRE);
    };
    // Taking over a first place that someone else left: its poller words
    // stay, the second party's poller still needs them.
    auto takeOverFirst = [this] {
      *mFirstPartyPid = static_cast<std::uint32_t>(mPID);
      *mFirstPartyTid = GetTID();
      mIsFirstParty = true;
    };
    bool placed = false;
    if (stale) {
      if (claim(before, kFirstAttached)) {
        initialiseHeader();
        placed = true;
      } else {
        // An end attached after we counted and has changed the word since.
        // A place whose bit was set before we looked and still is belongs to
        // nobody (only its owner clears a bit, and it had none): take it
        // rather than be refused as a third for good.
        std::uint32_t const now = __atomic_load_n(mPartyFlags, __ATOMIC_ACQUIRE);
        auto orphaned = [&](std::uint32_t place) { return (before & now & place) == place; };
        if (orphaned(kFirstAttached)) takeOverFirst();
        placed = mIsFirstParty || orphaned(kSecondAttached);
      }
    }
    while (!placed) {
      std::uint32_t const flags = __atomic_load_n(mPartyFlags, __ATOMIC_ACQUIRE);
      switch (flags & kAttachedMask) {
        case kFirstAttached:
          placed = claim(flags, flags | kSecondAttached);
          break;
        case kSecondAttached:  // the first party left
          if (claim(flags, flags | kFirstAttached)) {
            takeOverFirst();
            placed = true;
          }
          break;
        case kBothAttached: {
          char text[64];
          std::snprintf(text, sizeof text, "Third with ID %#x is redundant", static_cast<unsigned>(id));
          Error(text);
          return;
        }
        case 0:
          if (claim(flags, kFirstAttached)) {
            initialiseHeader();
            placed = true;
          }
          break;
        default:
          Error("Buffer type detect");
          return;
      }
    }
    mSegmentId = segment;

    // A first party that has just claimed its place may not have written
    // the size yet (a fresh segment holds 0 there).
    for (int wait = 0; !mIsFirstParty && wait < 1000 && __atomic_load_n(mSegmentSize, __ATOMIC_ACQUIRE) == 0; ++wait)
      sched_yield();
    if (!mIsFirstParty && *mSegmentSize != size) {
      Error("Different sizes of the Shared Memory");
      Cleanup();
      return;
    }
    *mReadPosFirstToSecond = mFirstToSecondStart;
    *mWritePosFirstToSecond = mFirstToSecondStart + kFrameGap;
    *mReadPosSecondToFirst = mSecondToFirstStart;
    *mWritePosSecondToFirst = mSecondToFirstStart + kFrameGap;
    if (!ResetBuffers()) {
      Error("Reset Buffers");
      Cleanup();
      return;
    }
    *(mIsFirstParty ? mFirstPartyHandle : mSecondPartyHandle) = RegisterChannelHandle(this);
  };

  setUp();
  if (mSegmentId == -1) NoteFailedConstruction(failure);
}

CyclicSharedMemory::~CyclicSharedMemory() {
  // By object, not by segment id: both ends of a channel may live in one
  // process, and an entry must never outlive its object (the signal handler
  // walks the list).
  for (auto it = mHandleMap.begin(); it != mHandleMap.end(); ++it) {
    if (it->second == this) {
      mHandleMap.erase(it);
      break;
    }
  }
  UnregisterChannelHandle(this);
  if (mSegmentId != -1) {
    Cleanup();
  } else {
    FailedConstruction failure;
    if (TakeFailedConstruction(this, &failure)) {
      if (mAttachAddress && sysv.ShmDt(mAttachAddress) != 0) ErrorEx("Memory Detach");
      mAttachAddress = nullptr;
      if (failure.createdFirstToSecond) mTriggerA.RemoveTrigger();
      if (failure.createdSecondToFirst) mTriggerB.RemoveTrigger();
    }
  }
}

bool CyclicSharedMemory::Create() {
  if (mSegmentId == -1) {
    Error("Constructor failed");
    return false;
  }
  mHandleMap.push_back(std::make_pair(mSegmentId, this));
  if (++mObjCounter == 1) {
    struct sigaction action;
    std::memset(&action, 0, sizeof action);
    sigfillset(&action.sa_mask);
    action.sa_flags = 0;
    action.sa_handler = MemoryCleaner;
    for (int i = 0; i < kCleanedSignalCount; ++i)
      sysv.SigAction(kCleanedSignals[i], &action, &gPreviousActions[i]);
    action.sa_handler = SIG_IGN;
    for (int signal : kIgnoredSignals) sysv.SigAction(signal, &action, nullptr);
  }
  return true;
}

bool CyclicSharedMemory::LockWriter() {
  if (!gInCleaner.load(std::memory_order_acquire) || !pthread_equal(gCleanerThread, pthread_self())) {
    mWriteMutex.Lock();
    return true;
  }
  // The fatal-signal handler sends the offline message through Write, on
  // whatever thread the signal interrupted. If that thread was itself inside
  // Write, the mutex will never be released and waiting would hang the dying
  // process; a writer on another thread releases it within microseconds. So
  // the handler waits a short while and otherwise goes without the message.
  for (int attempt = 0; attempt < 100; ++attempt) {
    if (mWriteMutex.TryLock()) return true;
    timespec pause = {0, 1000000};
    nanosleep(&pause, nullptr);
  }
  return false;
}

unsigned CyclicSharedMemory::Write(int const* code, std::string const* body) {
  return WriteFrame(code, body ? body->data() : nullptr,
                    body ? static_cast<unsigned>(body->size()) : 0, body != nullptr);
}

// The raw form has no "Empty message": a missing or empty buffer is dropped
// silently, like a message for an absent peer.
unsigned CyclicSharedMemory::Write(int const* code, char const* data, unsigned size) {
  return WriteFrame(code, data, size, data != nullptr && size != 0);
}

unsigned CyclicSharedMemory::WriteFrame(int const* code, char const* data, unsigned length,
                                        bool present) {
  if (mSegmentId == -1) {
    Error("Invalid object");
    return 0;
  }
  if (!mAnnounced) {
    mAnnounced = true;
    InformParty(true);
  }
  if (!IsPartyOnline() || !present) return 0;
  if (!LockWriter()) return 0;
  if (length == 0 && !code) {
    mWriteMutex.Unlock();
    Error("Empty message");
    return 0;
  }
  unsigned const start = mIsFirstParty ? mFirstToSecondStart : mSecondToFirstStart;
  unsigned const end = mIsFirstParty ? mSecondToFirstStart : mEnd;
  std::uint32_t* writePosition = mIsFirstParty ? mWritePosFirstToSecond : mWritePosSecondToFirst;
  unsigned const reader =
      LoadAcquire(mIsFirstParty ? mReadPosFirstToSecond : mReadPosSecondToFirst);
  unsigned const writer = *writePosition;
  // Is there room for n bytes at p? Past the reader, the caller has already
  // made sure they fit before the end; before it, one byte must stay free.
  auto room = [reader](unsigned p, unsigned n) {
    return p > reader || static_cast<int>(reader - p - n) >= 1;
  };

  bool headerWrapped = end - writer <= 7;
  unsigned at = headerWrapped ? start : writer;
  bool fits = at > reader || reader - at >= 9;
  // A writer that has caught up from behind (its position before the
  // reader's) must not wrap: the reader's next frame is at the start, and
  // the distance test above, measured from the start, would let the new
  // header overwrite it.
  if (headerWrapped && writer <= reader) fits = false;

  unsigned bodyEnd = 0;
  bool split = false;
  if (fits) {
    std::int32_t codeWord = code ? *code : 0;
    std::uint32_t lengthWord = length;
    std::memcpy(mBase + at, &codeWord, 4);
    std::memcpy(mBase + at + 4, &lengthWord, 4);
    unsigned body = at + kFrameHeader;
    if (!headerWrapped && end - body < length) {
      unsigned head = end - body;
      unsigned tail = length - head;
      fits = room(body, head);
      if (fits) {
        std::memcpy(mBase + body, data, head);
        fits = room(start, tail);
      }
      if (fits) {
        std::memcpy(mBase + start, data + head, tail);
        bodyEnd = start + tail;
        split = true;
      }
    } else {
      fits = room(body, length);
      if (fits) {
        std::memcpy(mBase + body, data, length);
        bodyEnd = body + length;
      }
    }
  }
  if (fits) {
    if (!headerWrapped && !split && end - bodyEnd <= 3) bodyEnd = start;
    if (bodyEnd <= reader && reader - bodyEnd < 5) fits = false;
  }
  if (!fits) {
    mWriteMutex.Unlock();
    Error("Memory overflow");
    return 0;
  }
  StoreRelease(writePosition, bodyEnd + kFrameGap);
  if (!(mIsFirstParty ? mTriggerA : mTriggerB).SetImpulse()) {
    // An uncounted frame would be read in place of the next counted one
    // (the reader trusts the count, not the positions): take it back. Only
    // this writer reads the word, so withdrawing it is safe.
    StoreRelease(writePosition, writer);
    mWriteMutex.Unlock();
    return 0;
  }
  // Most readers never had a poller: then SpurOnTrojanHorse would change
  // nothing, and skipping the call is a sixteenth of a small write's
  // instructions.
  if (mTrojan || mRewindSuppressed || *(mIsFirstParty ? mSecondPollerMainKey : mFirstPollerMainKey) != 0)
    SpurOnTrojanHorse(length);
  mWriteMutex.Unlock();
  return length + 4;
}

unsigned CyclicSharedMemory::Read(int* code, std::string* body, bool wait) {
  return ReadFrame(code, body, nullptr, 0, wait, body != nullptr);
}

unsigned CyclicSharedMemory::Read(int* code, char* buffer, unsigned size, bool wait) {
  return ReadFrame(code, nullptr, buffer, size, wait, buffer != nullptr && size != 0);
}

unsigned CyclicSharedMemory::ReadFrame(int* code, std::string* body, char* buffer, unsigned size,
                                       bool wait, bool present) {
  if (mSegmentId == -1) {
    Error("Invalid object");
    return 0;
  }
  if (!present) return 0;
  if (!mAnnounced) {
    mAnnounced = true;
    // With a poller registered, the poller announces the channel when it
    // starts waiting.
    if (*(mIsFirstParty ? mFirstPollerMainKey : mSecondPollerMainKey) == 0) InformParty(true);
  }
  if (!wait) mReadMutex.Lock();
  if (!(mIsFirstParty ? mTriggerB : mTriggerA).WaitForImpulse(wait)) {
    if (!wait) mReadMutex.Unlock();
    return 0;
  }
  unsigned const start = mIsFirstParty ? mSecondToFirstStart : mFirstToSecondStart;
  unsigned const end = mIsFirstParty ? mEnd : mSecondToFirstStart;
  std::uint32_t* readPosition = mIsFirstParty ? mReadPosSecondToFirst : mReadPosFirstToSecond;

  unsigned header = *readPosition + kFrameGap;
  bool headerWrapped = end - header < kFrameHeader;
  if (headerWrapped) header = start;
  std::int32_t codeWord;
  std::uint32_t length;
  std::memcpy(&codeWord, mBase + header, 4);
  std::memcpy(&length, mBase + header + 4, 4);
  if (code) *code = codeWord;

  char* target = buffer;
  bool fits = true;
  if (body) {
    body->resize(length);
    target = &(*body)[0];
  } else if (length > size) {
    fits = false;
  }
  unsigned from = header + kFrameHeader;
  unsigned next;
  if (!headerWrapped && end - from < length) {
    unsigned head = end - from;
    if (fits) {
      std::memcpy(target, mBase + from, head);
      std::memcpy(target + head, mBase + start, length - head);
    }
    next = start + (length - head);
  } else {
    if (fits) std::memcpy(target, mBase + from, length);
    next = from + length;
    if (!headerWrapped && end - next <= 3) next = start;
  }
  StoreRelease(readPosition, next);
  if (!wait) mReadMutex.Unlock();
  if (!fits) {
    Error("Insufficient read buffer");
    std::memset(buffer, 0, size);
    return 0;
  }
  return length + 4;
}

void CyclicSharedMemory::Error(char const* text) {
  if (FormatErrorMessage(text)) ShowError();
}

bool CyclicSharedMemory::ResetBuffers() {
  if (mSegmentId == -1) {
    Error("Invalid object");
    return false;
  }
  if (!mTriggerA.ResetTrigger() || !mTriggerB.ResetTrigger()) return false;
  mRewindSuppressed = true;
  return true;
}

bool CyclicSharedMemory::IsPartyOnline() const {
  if (mSegmentId == -1) return false;
  std::uint32_t flags = *mPartyFlags;
  if ((flags & kAttachedMask) != kBothAttached) return false;
  return (flags & (mIsFirstParty ? kSecondOnline : kFirstOnline)) != 0;
}

bool CyclicSharedMemory::IsQueueEmpty() const {
  // An invalid object answers like a queue without a link.
  if (mSegmentId == -1) return false;
  if (mIsFirstParty) return LoadAcquire(mReadPosFirstToSecond) + 4 == *mWritePosFirstToSecond;
  return LoadAcquire(mReadPosSecondToFirst) + 4 == *mWritePosSecondToFirst;
}

CyclicSharedMemory::operator bool() const { return mSegmentId != -1; }

void CyclicSharedMemory::InformParty(bool online) {
  if (mSegmentId == -1) return;
  std::uint32_t const mine = mIsFirstParty ? kFirstOnline : kSecondOnline;
  if (((*mPartyFlags & mine) != 0) == online) return;
  if (online)
    __atomic_fetch_or(mPartyFlags, mine, __ATOMIC_ACQ_REL);
  else
    __atomic_fetch_and(mPartyFlags, ~mine, __ATOMIC_ACQ_REL);
  if ((*mPartyFlags & kAttachedMask) != kBothAttached) return;
  int code = static_cast<int>(online ? kOnlineCode : kOfflineCode);
  std::string body(reinterpret_cast<char const*>(&mId), sizeof mId);
  Write(&code, &body);
}

void CyclicSharedMemory::SpurOnTrojanHorse(unsigned length) {
  unsigned mainKey = mIsFirstParty ? *mSecondPollerMainKey : *mFirstPollerMainKey;
  unsigned queueKey = mIsFirstParty ? *mSecondPollerQueueKey : *mFirstPollerQueueKey;
  if (mainKey == 0 || queueKey == 0) {
    delete mTrojan;
    mTrojan = nullptr;
    mRewindSuppressed = false;
    return;
  }
  // A poller that is new to this writer has not counted what is already in
  // the buffer; it is told of the frame just written only.
  bool newPoller = true;
  if (!mTrojan) {
    mTrojan = new (std::nothrow) Trojan(mainKey, queueKey);
  } else {
    newPoller = mTrojan->CheckForUpdates(mainKey, queueKey);
  }
  if (newPoller && !mRewindSuppressed) ResetReader(length);
  if (mTrojan) mTrojan->Whisper();
  mRewindSuppressed = false;
}

void CyclicSharedMemory::ResetReader(unsigned length) {
  Trigger& own = mIsFirstParty ? mTriggerA : mTriggerB;
  unsigned const start = mIsFirstParty ? mFirstToSecondStart : mSecondToFirstStart;
  unsigned const end = mIsFirstParty ? mSecondToFirstStart : mEnd;
  unsigned const frame = length + kFrameHeader + kFrameGap;
  own.ResetTrigger();
  unsigned bodyEnd = *(mIsFirstParty ? mWritePosFirstToSecond : mWritePosSecondToFirst) - kFrameGap;
  unsigned reader = bodyEnd - frame;
  if (bodyEnd - start < frame) {
    reader = end + (bodyEnd - start) - frame;
    if ((end - 4) - reader < 4) reader = start;
  }
  StoreRelease(mIsFirstParty ? mReadPosFirstToSecond : mReadPosSecondToFirst, reader);
  own.SetImpulse();
}

void CyclicSharedMemory::Cleanup() {
  if (mSegmentId == -1) return;
  InformParty(false);
  std::uint32_t const mine = mIsFirstParty ? kFirstAttached : kSecondAttached;
  std::uint32_t const peer = mIsFirstParty ? kSecondAttached : kFirstAttached;
  // Of two parties leaving at once exactly one finds the other's byte
  // already clear, and removes the channel even if the other has not
  // detached yet; counting attachments alone, each could see the other
  // still attached and neither would remove it.
  bool const peerGone = (__atomic_fetch_and(mPartyFlags, ~mine, __ATOMIC_ACQ_REL) & peer) == 0;
  shmid_ds status;
  if (sysv.ShmStat(mSegmentId, &status) == -1) {
    ErrorEx("Getting Memory status");
    return;
  }
  // Alone attached with the peer's byte still set: the peer died without
  // clean-up. With its byte clear it has just left, and removes the channel.
  bool const last = peerGone || (status.shm_nattch == 1 && (__atomic_load_n(mPartyFlags, __ATOMIC_ACQUIRE) & peer) != 0);
  if (last) {
    if (!mTriggerA.RemoveTrigger() || !mTriggerB.RemoveTrigger()) {
      ErrorEx("Triggers Remove");
      return;
    }
    unsigned const pollerQueueKeys[] = {*mSecondPollerQueueKey, *mFirstPollerQueueKey};
    for (unsigned key : pollerQueueKeys)
      if (key != 0) Trigger::WipeTrigger(static_cast<int>(key));
    if (sysv.ShmDt(mAttachAddress) != 0) {
      ErrorEx("Memory Detach");
      return;
    }
    mAttachAddress = nullptr;
    // Past the detach the header is gone, so the object is finished even if
    // the removal fails; it must not touch the segment again.
    if (sysv.ShmRemove(mSegmentId) != 0) ErrorEx("Memory Remove");
  } else {
    if (sysv.ShmDt(mAttachAddress) != 0) {
      ErrorEx("Memory Detach");
      return;
    }
    mAttachAddress = nullptr;
  }
  mWriteMutex.Destroy();
  mReadMutex.Destroy();
  mSegmentId = -1;
  delete mTrojan;
  mTrojan = nullptr;
}

void CyclicSharedMemory::ErrorEx(char const* text) {
  if (FormatErrorMessageEx(text)) ShowError();
}

// A writer refused for overflow retries in a tight loop; repeating the last
// text must cost neither an allocation nor a write to stderr.
bool CyclicSharedMemory::FormatErrorMessage(char const* text) {
  static char const kSuffix[] = " error.";
  std::size_t const length = std::strlen(text);
  std::string& last = mMemoryErrorMessage;
  if (last.size() == length + sizeof kSuffix - 1 && last.compare(0, length, text) == 0 &&
      last.compare(length, std::string::npos, kSuffix) == 0)
    return false;
  last.assign(text, length).append(kSuffix);
  return true;
}

bool CyclicSharedMemory::FormatErrorMessageEx(char const* text) {
  char const* reason = std::strerror(errno);  // before anything can touch errno
  std::string message = std::string(text) + " error" + " : " + reason;
  if (message == mMemoryErrorMessage) return false;
  mMemoryErrorMessage = message;
  return true;
}

void CyclicSharedMemory::ShowError() const {
  std::fprintf(stderr, "\n\r%s\r\n", mMemoryErrorMessage.c_str());
}

std::string& CyclicSharedMemory::GetLastError() { return mMemoryErrorMessage; }

void CyclicSharedMemory::MemoryCleaner(int signal) {
  if (gCleaning.exchange(true)) return;
  int index = 0;
  while (index < kCleanedSignalCount && kCleanedSignals[index] != signal) ++index;
  if (index == kCleanedSignalCount) return;
  gCleanerThread = pthread_self();
  gInCleaner.store(true, std::memory_order_release);
  for (auto const& entry : mHandleMap)
    if (*entry.second) entry.second->Cleanup();
  gInCleaner.store(false);
  sysv.SigAction(signal, &gPreviousActions[index], nullptr);
  sysv.Raise(signal);
}
