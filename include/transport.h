// The shared-memory transport: a two-way message channel between two
// processes of one host.
//
// A channel is one System V shared-memory segment holding a small header and
// two one-way cyclic byte buffers, plus one System V semaphore per direction
// whose value is the number of unread messages in that direction. A message is
// a 32-bit code and a byte string (which may hold zero bytes).
//
// The declarations below are a binary interface shared with processes built
// separately: the order of virtual operations and of data members must not
// change. Nothing here throws; failures are a 0/false result and a text on the
// standard error stream.
#ifndef LIBMESSAGING_TRANSPORT_H_
#define LIBMESSAGING_TRANSPORT_H_

#include <pthread.h>
#include <sys/sem.h>

#include <cstdint>
#include <list>
#include <string>
#include <utility>

// Identity of the caller, as the transport records it in a segment header.
// GetTID() is pthread_self() narrowed to 32 bits; it is only ever compared
// for equality with another GetTID() of the same process.
int GetPID();
unsigned GetTID();

// The name of the poller event on another platform; unused here, kept for the
// interface.
extern char const* WIN32_TROJAN_NAME;

// Abstract two-way message transport. CyclicSharedMemory is the one real
// implementation; results are the body length + 4 on success and 0 otherwise.
class Link {
 public:
  virtual ~Link();
  virtual bool Create() = 0;
  virtual unsigned Write(int const* code, std::string const* body) = 0;
  virtual unsigned Read(int* code, std::string* body, bool wait) = 0;
  virtual unsigned Write(int const* code, char const* data, unsigned size) = 0;
  virtual unsigned Read(int* code, char* buffer, unsigned size, bool wait) = 0;
  virtual void Error(char const* text) = 0;
  virtual bool ResetBuffers() = 0;
  virtual bool IsPartyOnline() const = 0;
  virtual bool IsQueueEmpty() const = 0;
  virtual operator bool() const = 0;
};

// A counting event between processes: one System V semaphore set with a
// single semaphore, named by a key. Destroying the object leaves the
// semaphore in the system; RemoveTrigger or WipeTrigger removes it.
// SetImpulse and WaitForImpulse may be called from several threads at once;
// nothing else may.
class Trigger {
 public:
  // Opens the set for ftok(path, id), creating it (count 0) when it is new.
  // An existing set keeps its count.
  Trigger(char const* path, int id);
  explicit Trigger(int key);
  ~Trigger();

  // Adds one. A set that vanished marks the object invalid.
  int SetImpulse();
  // Takes one: with wait, blocks until possible (an interrupting signal ends
  // the wait with an error report); without, fails silently at count 0.
  int WaitForImpulse(bool wait);
  int ResetTrigger();
  // Removes the set from the system; true at once for an invalid object.
  int RemoveTrigger();
  // Removes whatever set has this key; true when there is none. Silent.
  static int WipeTrigger(int key);
  operator bool() const;

  void ErrorEx(char const* text);
  bool FormatErrorMessageEx(char const* text);
  void ShowError() const;

  // Last error text of any trigger in the process; "No errors" at start.
  static std::string mTriggerErrorMessage;

 private:
  Trigger(Trigger const&) = delete;
  Trigger& operator=(Trigger const&) = delete;

  int mSetId;         // -1 = invalid
  sembuf* mRaiseOp;   // owned: {0, +1, 0}
  sembuf* mWaitOp;    // owned: {0, -1, 0 or IPC_NOWAIT}
};

// A process-local mutex (never shared between processes). When the mutex
// could not be initialised every operation is a no-op.
class MemoryMutex {
 public:
  MemoryMutex();
  ~MemoryMutex();
  void Lock();
  void Unlock();
  // Destroys the mutex but keeps the memory; destroying twice is accepted.
  void Destroy();

 private:
  friend class CyclicSharedMemory;
  MemoryMutex(MemoryMutex const&) = delete;
  MemoryMutex& operator=(MemoryMutex const&) = delete;
  // True when the mutex was free (or is unusable) and is now held.
  bool TryLock();

  pthread_mutex_t* mMutex;
};

// The writing side's handle on a peer poller's two events (its main event and
// the per-queue event of this channel), opened from the raw keys the poller
// published in the channel header.
class Trojan {
 public:
  Trojan(unsigned mainKey, unsigned queueKey);
  ~Trojan();
  // Raises the per-queue event, then the main event, re-creating an event
  // whose set was removed (the poller went away) and raising it again.
  bool Whisper();
  // Replaces the events whose keys changed; true when either did.
  bool CheckForUpdates(unsigned mainKey, unsigned queueKey);

 private:
  Trojan(Trojan const&) = delete;
  Trojan& operator=(Trojan const&) = delete;

  Trigger* mMainEvent;
  Trigger* mQueueEvent;
  int mMainKey;
  int mQueueKey;
};

// One end of a channel. The first process to construct a (path, id) becomes
// the first party and initialises the segment, the second joins it, a third is
// refused; the last to leave removes the segment and both semaphores. The
// first Read or Write announces this end online; from then on the peer gets
// the online message (code 0x80000000) and, at clean-up, the offline message
// (0x80000001), each with the 4-byte channel id as body.
//
// Within a process, Write calls are serialised by the write mutex and
// non-waiting Reads by the read mutex; waiting Reads take no mutex, so only
// one thread may wait on a channel at a time.
class CyclicSharedMemory : private Link {
  friend class CyclicMessageQueue;

 public:
  // Failures leave the object invalid (operator bool false) and are reported
  // through the error text; call Create() right after construction.
  CyclicSharedMemory(int id, char const* path, unsigned size);
  ~CyclicSharedMemory() override;

  // Registers the channel for clean-up on a fatal signal (the first channel
  // of the process installs the handlers). "Constructor failed" for an
  // invalid object.
  bool Create() override;
  // Returns body length + 4, or 0: invalid object, peer not online (silently:
  // nothing is ever queued for an absent peer), "Empty message", "Memory
  // overflow" (nothing is published; the message is lost). A null code
  // pointer sends code 0.
  unsigned Write(int const* code, std::string const* body) override;
  // Returns body length + 4 (4 for an empty body), or 0 when nothing could be
  // read. A null code pointer discards the code.
  unsigned Read(int* code, std::string* body, bool wait) override;
  unsigned Write(int const* code, char const* data, unsigned size) override;
  // A message longer than size is consumed, the buffer zero-filled and 0
  // returned ("Insufficient read buffer").
  unsigned Read(int* code, char* buffer, unsigned size, bool wait) override;
  void Error(char const* text) override;
  // Zeroes both semaphores; frames still in the buffers are forgotten.
  bool ResetBuffers() override;
  // True while both ends are attached and the peer has announced itself.
  bool IsPartyOnline() const override;
  // True when the peer has read everything this end wrote.
  bool IsQueueEmpty() const override;
  operator bool() const override;

  void Cleanup();
  void InformParty(bool online);
  void SpurOnTrojanHorse(unsigned length);
  void ResetReader(unsigned length);
  void ErrorEx(char const* text);
  bool FormatErrorMessage(char const* text);
  bool FormatErrorMessageEx(char const* text);
  void ShowError() const;
  static std::string& GetLastError();
  static void MemoryCleaner(int signal);

  // Valid channels of the process in order of Create (segment id, object).
  static std::list<std::pair<int, CyclicSharedMemory*> > mHandleMap;
  static int mObjCounter;
  static int mPID;
  static std::string mMemoryErrorMessage;

 private:
  CyclicSharedMemory(CyclicSharedMemory const&) = delete;
  CyclicSharedMemory& operator=(CyclicSharedMemory const&) = delete;
  // Takes the write mutex; false only inside the fatal-signal handler when
  // the mutex stays held (by the thread the signal interrupted).
  bool LockWriter();
  // The shared part of both Write forms, under the write mutex from LockWriter.
  unsigned WriteFrame(int const* code, char const* data, unsigned length, bool present);
  // The shared part of both Read forms: into *body, or else into buffer.
  unsigned ReadFrame(int* code, std::string* body, char* buffer, unsigned size, bool wait,
                     bool present);

  Trigger mTriggerA;  // counts frames of the first-to-second buffer
  Trigger mTriggerB;  // counts frames of the second-to-first buffer
  MemoryMutex mWriteMutex;  // guards the outgoing write position, mTrojan, mRewindSuppressed
  MemoryMutex mReadMutex;   // guards the incoming read position (non-waiting reads)
  int mSegmentId;  // -1 = invalid
  bool mIsFirstParty;
  bool mRewindSuppressed;
  bool mAnnounced;
  Trojan* mTrojan;  // owned; set while the peer has a poller registered
  int mId;
  void* mAttachAddress;
  // Header words, each a 32-bit unsigned in host byte order.
  std::uint32_t* mPartyFlags;           // offset 0
  std::uint32_t* mSegmentSize;          // 4
  std::uint32_t* mReadPosFirstToSecond;   // 8
  std::uint32_t* mWritePosFirstToSecond;  // 12
  std::uint32_t* mReadPosSecondToFirst;   // 16
  std::uint32_t* mWritePosSecondToFirst;  // 20
  std::uint32_t* mFirstPartyPid;        // 24
  std::uint32_t* mFirstPartyTid;        // 28
  std::uint32_t* mSecondPollerMainKey;  // 32
  std::uint32_t* mSecondPollerQueueKey; // 36
  std::uint32_t* mFirstPollerMainKey;   // 40
  std::uint32_t* mFirstPollerQueueKey;  // 44
  std::uint32_t* mFirstPartyHandle;     // 48: process-local token, not an address
  std::uint32_t* mSecondPartyHandle;    // 52
  char* mBase;
  unsigned mFirstToSecondStart;  // always 56
  unsigned mSecondToFirstStart;  // 56 + H
  unsigned mEnd;                 // 56 + 2H
};

// The message-queue facade that messengers own or derive from. It owns the
// CyclicSharedMemory it builds, or borrows a Link that the caller built and
// Created. Every operation returns 0/false (or does nothing) without a link.
class CyclicMessageQueue {
 public:
  // With a link: borrows it, nothing else. Without: builds and Creates
  // CyclicSharedMemory(id, path, size) and owns it.
  CyclicMessageQueue(int id, char const* path, unsigned size, Link* link);
  virtual ~CyclicMessageQueue();
  virtual unsigned SendMessage(int const* code, std::string const* body);
  // Blocks until a message is there; 0 when the wait failed.
  virtual unsigned GetMessage(int* code, std::string* body);
  // Never blocks; 0 when nothing is pending.
  virtual unsigned PeekMessage(int* code, std::string* body);
  virtual unsigned SendMessage(int const* code, char const* data, unsigned size);
  virtual unsigned GetMessage(int* code, char* buffer, unsigned size);
  virtual unsigned PeekMessage(int* code, char* buffer, unsigned size);
  virtual void Error(char const* text);
  virtual bool IsPartyOnline() const;
  virtual bool IsQueueEmpty() const;
  virtual bool ResetBuffers();
  virtual operator bool() const;

  // The process's last transport error text.
  static std::string const& GetLastError();

 private:
  CyclicMessageQueue(CyclicMessageQueue const&) = delete;
  CyclicMessageQueue& operator=(CyclicMessageQueue const&) = delete;

  Link* mLink;      // null when construction failed
  bool mBorrowed;   // true: the caller owns mLink
};

#endif  // LIBMESSAGING_TRANSPORT_H_
