// TrojanRider and its facade CyclicQueuePoller: the waiting side of the
// poller wake-up (the writing side is Trojan, driven by every channel Write).
//
// Header words this file reads and writes (32-bit, host byte order):
//  24  first party's process id    28  first party's thread id
//  32  second party's poller: main-event key  36  per-queue event key
//  40  first party's poller:  main-event key  44  per-queue event key
//  48  first party's object handle  52  second party's object handle
//
// Counting: a writer raises the per-queue event, then the main event, once
// per message. A wait takes one main unit and then one unit of the first
// per-queue event that has any, so reports and messages stay one to one, and
// an early queue that keeps busy is always served first.
#include <cstdint>
#include <new>

#include "queue_poller.h"
#include "transport/handle_registry.h"
#include "transport/sysv.h"

char const* TROJAN_MAIN_EVENT_PATH = "/etc/passwd";
char const* TROJAN_SELF_EVENT_PATH = "/etc/services";

int TrojanRider::mPID = GetPID();

namespace {

constexpr std::size_t kHeaderSize = 64;  // the smallest segment a channel has
constexpr unsigned kFirstPartyPid = 6, kFirstPartyTid = 7;
constexpr unsigned kSecondPollerKeys = 8, kFirstPollerKeys = 10;
constexpr unsigned kFirstPartyHandle = 12, kSecondPartyHandle = 13;

class Locked {
 public:
  explicit Locked(MemoryMutex* mutex) : mMutex(mutex) {
    if (mMutex) mMutex->Lock();
  }
  ~Locked() {
    if (mMutex) mMutex->Unlock();
  }

 private:
  MemoryMutex* mMutex;
};

}  // namespace

TrojanRider::TrojanRider(int id)
    : mMainKey(sysv.Ftok(TROJAN_MAIN_EVENT_PATH, id)),
      mSelfAlerts(0),
      mAnnouncePending(true),
      mMainEvent(new (std::nothrow) Trigger(mMainKey)),
      mMutex(new (std::nothrow) MemoryMutex),
      mQueues(),
      mCursor(mQueues.end()) {
  if (mMainEvent) mMainEvent->ResetTrigger();
}

TrojanRider::~TrojanRider() {
  if (mMainEvent) mMainEvent->RemoveTrigger();
  delete mMainEvent;
  for (PollerData& queue : mQueues) delete queue.mEvent;
  delete mMutex;
}

int TrojanRider::Penetrate(int queueId, char const* path, bool select, bool anyThread) {
  key_t key = sysv.Ftok(path, queueId);
  if (key == -1) return 0;
  int segment = sysv.ShmGet(key, kHeaderSize, 0);
  if (segment == -1) return 0;
  void* address = sysv.ShmAt(segment);
  if (address == reinterpret_cast<void*>(-1)) return 0;
  std::uint32_t* words = static_cast<std::uint32_t*>(address);

  // Within one process both ends may be open, each driven by its own thread:
  // the thread that built the first party's object polls for it.
  bool first = words[kFirstPartyPid] == static_cast<std::uint32_t>(mPID) &&
               (anyThread || words[kFirstPartyTid] == GetTID());
  std::uint32_t* keys = words + (first ? kFirstPollerKeys : kSecondPollerKeys);

  int result = 0;
  if (select) {
    key_t queueKey = sysv.Ftok(first ? TROJAN_MAIN_EVENT_PATH : TROJAN_SELF_EVENT_PATH, queueId);
    Trigger* event = queueKey == -1 ? nullptr : new (std::nothrow) Trigger(queueKey);
    if (event) {
      // Whatever the writer counted for an earlier poller on this key is not
      // in step with our main event.
      event->ResetTrigger();
      CyclicSharedMemory* channel =
          LookupChannelHandle(words[first ? kFirstPartyHandle : kSecondPartyHandle]);
      bool announce;
      {
        Locked lock(mMutex);
        mQueues.push_back(PollerData{event, queueId, channel});
        keys[0] = static_cast<std::uint32_t>(mMainKey);
        keys[1] = static_cast<std::uint32_t>(queueKey);
        // Read under the lock: either the first wait sees this entry and
        // announces it, or we do.
        announce = !mAnnouncePending && channel;
      }
      if (announce) channel->InformParty(true);
      result = 1;
    }
    // No key or no memory: the segment is detached all the same, so that a
    // failed registration leaves no attachment that would keep the channel's
    // last party from removing it.
  } else {
    Locked lock(mMutex);
    keys[0] = 0;
    keys[1] = 0;
    for (mCursor = mQueues.begin(); mCursor != mQueues.end(); ++mCursor) {
      if (mCursor->mQueueId != queueId) continue;
      delete mCursor->mEvent;
      mQueues.erase(mCursor);
      result = 1;
      break;
    }
    mCursor = mQueues.end();
  }
  if (sysv.ShmDt(address) != 0) return 0;
  return result;
}

void TrojanRider::AnnounceOnce() {
  Locked lock(mMutex);
  if (!mAnnouncePending) return;
  mAnnouncePending = false;
  for (PollerData& queue : mQueues)
    if (queue.mChannel) queue.mChannel->InformParty(true);
}

int TrojanRider::WaitEvent() {
  AnnounceOnce();
  if (!mMainEvent || !mMainEvent->WaitForImpulse(true)) return 0;
  Locked lock(mMutex);
  if (mSelfAlerts > 0) {
    --mSelfAlerts;
    return -1;
  }
  int id = 0;
  for (mCursor = mQueues.begin(); mCursor != mQueues.end(); ++mCursor) {
    if (mCursor->mEvent->WaitForImpulse(false)) {
      id = mCursor->mQueueId;
      break;
    }
  }
  mCursor = mQueues.end();
  return id;
}

int TrojanRider::WaitEvent(int* ids, unsigned max) {
  if (!ids || max == 0) return 0;
  {
    Locked lock(mMutex);
    if (max < mQueues.size()) return 0;
  }
  AnnounceOnce();
  if (!mMainEvent || !mMainEvent->WaitForImpulse(true)) return 0;
  Locked lock(mMutex);
  if (mSelfAlerts > 0) {
    --mSelfAlerts;
    return -1;
  }
  unsigned stored = 0;
  for (mCursor = mQueues.begin(); mCursor != mQueues.end() && stored < max; ++mCursor) {
    if (!mCursor->mEvent->WaitForImpulse(false)) continue;
    // The writer raised the main event once per message too: the unit taken
    // by the wait pays for the first queue, each further queue pays its own.
    if (stored > 0) mMainEvent->WaitForImpulse(false);
    ids[stored++] = mCursor->mQueueId;
  }
  mCursor = mQueues.end();
  return static_cast<int>(stored);
}

bool TrojanRider::SelfAlert() {
  {
    Locked lock(mMutex);
    ++mSelfAlerts;
  }
  return mMainEvent && mMainEvent->SetImpulse();
}

CyclicQueuePoller::CyclicQueuePoller(int id) : mRider(new (std::nothrow) TrojanRider(id)) {}

CyclicQueuePoller::~CyclicQueuePoller() { delete mRider; }

int CyclicQueuePoller::SelectQueue(int queueId, char const* path, bool select, bool anyThread) {
  return mRider ? mRider->Penetrate(queueId, path, select, anyThread) : 0;
}

int CyclicQueuePoller::WaitForEvents() { return mRider ? mRider->WaitEvent() : 0; }

int CyclicQueuePoller::WaitForEvents(int* ids, unsigned max) {
  return mRider ? mRider->WaitEvent(ids, max) : 0;
}

bool CyclicQueuePoller::Release() { return mRider && mRider->SelfAlert(); }
