// Waiting on several channels at once.
//
// A thread that serves several channels sleeps in a CyclicQueuePoller until
// one of them has a message (or until another thread of its process wakes
// it), then drains the reported channel with a non-waiting read. The poller
// owns one main event semaphore and, per watched channel, one per-queue event
// semaphore; it publishes their keys in the channel's segment header, and the
// peer's writes raise both through its Trojan. Nothing is polled.
//
// The declarations below are a binary interface: the order of data members
// must not change.
#ifndef LIBMESSAGING_QUEUE_POLLER_H_
#define LIBMESSAGING_QUEUE_POLLER_H_

#include <list>

#include "transport.h"

// Key paths of the poller's semaphores: the main event and the per-queue
// events of channels on which the poller acts for the first party use
// ftok(TROJAN_MAIN_EVENT_PATH, ...); per-queue events of channels on which it
// acts for the second party use ftok(TROJAN_SELF_EVENT_PATH, queue id).
extern char const* TROJAN_MAIN_EVENT_PATH;
extern char const* TROJAN_SELF_EVENT_PATH;

// One watched channel.
struct PollerData {
  Trigger* mEvent;                // owned; its semaphore outlives it
  int mQueueId;                   // the channel's int id
  CyclicSharedMemory* mChannel;   // this process's end, or null when it has none
};

// The waiting side of the wake-up. Reached through CyclicQueuePoller; see
// there for the contracts.
//
// Thread safety: one thread waits (WaitEvent); any thread may call SelfAlert
// and Penetrate. mMutex guards mSelfAlerts, mAnnouncePending, mQueues,
// mCursor and this rider's key words in the channel headers.
class TrojanRider {
 public:
  // Opens or creates the main event from ftok(TROJAN_MAIN_EVENT_PATH, id) and
  // zeroes it: units left there by an earlier rider with the same id (one that
  // died, for instance) are not reported.
  explicit TrojanRider(int id);
  // Removes the main event's semaphore. Per-queue semaphores stay until the
  // last party leaves their channel, and the key words stay in the headers.
  ~TrojanRider();

  int Penetrate(int queueId, char const* path, bool select, bool anyThread);
  int WaitEvent();
  int WaitEvent(int* ids, unsigned max);
  bool SelfAlert();

  // The process id, taken when the library is loaded.
  static int mPID;

 private:
  TrojanRider(TrojanRider const&) = delete;
  TrojanRider& operator=(TrojanRider const&) = delete;
  // Announces every watched channel online, once, on the first wait.
  void AnnounceOnce();

  int mMainKey;
  unsigned mSelfAlerts;
  bool mAnnouncePending;  // no wait has happened yet
  Trigger* mMainEvent;    // owned
  MemoryMutex* mMutex;    // owned
  std::list<PollerData> mQueues;  // in registration order = service priority
  std::list<PollerData>::iterator mCursor;
};

// Waits on several channels of this process at once.
//
// A watched channel is announced online by the first wait, not by its own
// first read (an early read must not let the peer write before the poller
// counts its writes); channels registered after the first wait are announced
// at registration. Register a channel before its peer first writes to it: the
// peer that first sees a poller, or sees the poller replaced, drops whatever
// it had written and not yet read, keeping only its latest frame.
//
// One thread waits; any thread of the process may Release it or change the
// watched set. A channel object must outlive its registration (the poller
// keeps a pointer to it for the announcement).
class CyclicQueuePoller {
 public:
  // `id` names the main event: two pollers alive at once need distinct ids.
  explicit CyclicQueuePoller(int id);
  ~CyclicQueuePoller();

  // Watches (select true) or stops watching (select false) the channel
  // (path, queueId), whose segment must exist. The poller acts for this
  // process's end: the second party when the first party is another process;
  // otherwise the first party if anyThread, or if the calling thread is the
  // one that constructed the first party's object, and the second party if
  // not. Returns 1 when a queue was added or removed, else 0, silently. A
  // queue may be registered twice; unregistering removes the first entry but
  // always clears the header's key words.
  int SelectQueue(int queueId, char const* path, bool select, bool anyThread);

  // Blocks until an event and returns the id of the first registered channel
  // that has a message, -1 for a Release, or 0 when the wait failed (an
  // interrupting signal, for example) or no channel claimed the event. Each
  // report stands for one message: read one message per report.
  int WaitForEvents();
  // As above, but stores in ids the id of every channel that has a message,
  // in registration order, each once per call (read one message from each),
  // and returns how many. Returns 0 at once, without waiting, when ids is
  // null or max is smaller than the number of watched channels.
  int WaitForEvents(int* ids, unsigned max);

  // Makes one wait return -1, before any channel is served; alerts add up.
  // False when the main event could not be raised.
  bool Release();

 private:
  CyclicQueuePoller(CyclicQueuePoller const&) = delete;
  CyclicQueuePoller& operator=(CyclicQueuePoller const&) = delete;

  TrojanRider* mRider;  // owned; null when it could not be allocated
};

#endif  // LIBMESSAGING_QUEUE_POLLER_H_
