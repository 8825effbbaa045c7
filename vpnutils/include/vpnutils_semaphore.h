// A lock shared by every process of the host, named by a file and a number.
#ifndef VPNUTILS_VPNUTILS_SEMAPHORE_H_
#define VPNUTILS_VPNUTILS_SEMAPHORE_H_

#include <sys/types.h>

#include <atomic>

// A binary System V semaphore used as a mutual-exclusion lock between
// processes: Semaphore(36, "/bin/ls") in one process and in another name the
// same lock (key ftok(path, key)).
//
// The first process to construct it creates the set and sets it free; the set
// then outlives every process until Remove is called. Holding is undone by
// the kernel when the holder exits or is killed, so a crashed holder cannot
// leave the lock taken, and a set whose creator died before setting it free is
// recognised and rebuilt. If the set is removed while objects still use it,
// the next Lock or TryLock attaches to (or creates) a fresh one.
//
// The lock is not recursive: locking it twice from one process blocks. Only
// the process that locked through an object can unlock through it. Failures
// print "Semaphore: ..." with the system's error text on stderr and return
// false; nothing throws. An object may be shared by the threads of a process.
class Semaphore {
 public:
  Semaphore(int key, char const* path);
  // Releases the lock if this object holds it in this process; never removes
  // the set, which other processes may be using.
  ~Semaphore();

  Semaphore(Semaphore const&) = delete;
  Semaphore& operator=(Semaphore const&) = delete;

  // Waits as long as it takes; true when the lock is held.
  bool Lock();
  // Waits at most timeoutMs milliseconds (a negative value waits forever);
  // false on timeout, without a message.
  bool Lock(int timeoutMs);
  // Never waits; false, without a message, when another holder has it.
  bool TryLock();
  // Releases a lock taken through this object by this process; otherwise
  // does nothing, so a stray Unlock cannot let two holders in.
  void Unlock();

  // Removes the set from the system and detaches this object (operator bool
  // turns false). Meant for tearing down: a process still using the lock
  // will attach to a fresh set on its next Lock, and one waiting in Lock
  // when the set goes is let into that fresh set at once. True when the set
  // was removed.
  bool Remove();
  // Removes the set named by (key, path) if there is one; true when no such
  // set exists afterwards.
  static bool Remove(int key, char const* path);

  // True when the set was found or created.
  operator bool() const;

 private:
  bool Attach();
  bool Acquire(bool wait, int timeoutMs);

  key_t mKey;              // -1 when ftok failed
  std::atomic<int> mId;    // -1 when not attached
  std::atomic<pid_t> mHolder;  // process that holds the lock through us, or 0
};

#endif  // VPNUTILS_VPNUTILS_SEMAPHORE_H_
