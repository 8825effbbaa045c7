// Semaphore: a System V set of two semaphores: 0 is the lock (1 when free),
// 1 says the set is ready (1 once the creator has set the lock free).
//
// Creation race: semget creates a set with both at 0. Only the process whose
// IPC_CREAT|IPC_EXCL succeeded raises them, both in one atomic semop, so a
// ready set always has its lock initialised. Everyone else waits, at most
// kInitWaitMs, for the ready flag with a net-zero semop (-1 then +1 on it). A
// set still not ready after that belongs to a creator that died in between:
// it is removed and the race run again. Removing is safe even if the creator
// was only slow: its semop then fails with EIDRM and it starts over, and set
// ids are not reused at once, so a stale id cannot remove the set that
// replaced it. (sem_otime would serve as the flag on a real kernel, but
// qemu-user does not translate it for 32-bit PowerPC, where the tests run.)
//
// Every lock and unlock carries SEM_UNDO, so the kernel gives the lock back
// when a holder exits or is killed. The creator's first raise does not: it
// must outlive the creator.
#include "vpnutils_semaphore.h"

#include <sys/ipc.h>
#include <sys/sem.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

// The caller defines it (glibc does not); semctl reads its fourth argument
// as this union, and passing a plain int breaks on ABIs that pass unions
// differently, such as 32-bit PowerPC.
union semun {
  int val;
  struct semid_ds* buf;
  unsigned short* array;
};

// Every process of the appliance, whatever its user, takes the same locks.
constexpr int kPermissions = 0666;
constexpr int kInitWaitMs = 1000;
constexpr int kAttachAttempts = 5;
constexpr unsigned short kLockSem = 0;
constexpr unsigned short kReadySem = 1;
constexpr int kSetSize = 2;

void Report(char const* what) {
  int error = errno;
  std::fprintf(stderr, "Semaphore: %s failed: %s\n", what, std::strerror(error));
}

long long NowMs() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

int SemOp(int id, struct sembuf* ops, unsigned count) {
  int rc;
  do {
    rc = semop(id, ops, count);
  } while (rc != 0 && errno == EINTR);
  return rc;
}

int RemoveSet(int id) {
  union semun arg;
  arg.val = 0;
  return semctl(id, 0, IPC_RMID, arg);
}

enum class Readiness { kReady, kGone, kOrphan, kError };

Readiness WaitReady(int id) {
  long long deadline = NowMs() + kInitWaitMs;
  struct sembuf probe[2] = {{kReadySem, -1, 0}, {kReadySem, 1, 0}};
  for (;;) {
    long long left = deadline - NowMs();
    if (left < 0) left = 0;
    struct timespec limit;
    limit.tv_sec = static_cast<time_t>(left / 1000);
    limit.tv_nsec = static_cast<long>(left % 1000) * 1000000L;
    if (semtimedop(id, probe, 2, &limit) == 0) return Readiness::kReady;
    if (errno == EINTR) continue;
    if (errno == EAGAIN) return Readiness::kOrphan;
    if (errno == EIDRM || errno == EINVAL) return Readiness::kGone;
    Report("semop");
    return Readiness::kError;
  }
}

}  // namespace

Semaphore::Semaphore(int key, char const* path) : mKey(-1), mId(-1), mHolder(0) {
  mKey = ftok(path, key);
  if (mKey == -1) {
    int error = errno;
    std::fprintf(stderr, "Semaphore: ftok(%s, %d) failed: %s\n", path, key, std::strerror(error));
    return;
  }
  Attach();
}

Semaphore::~Semaphore() { Unlock(); }

bool Semaphore::Attach() {
  for (int attempt = 0; attempt < kAttachAttempts; ++attempt) {
    int id = semget(mKey, kSetSize, IPC_CREAT | IPC_EXCL | kPermissions);
    if (id >= 0) {
      struct sembuf ready[2] = {{kLockSem, 1, 0}, {kReadySem, 1, 0}};
      if (SemOp(id, ready, 2) == 0) {
        mId = id;
        return true;
      }
      if (errno == EIDRM || errno == EINVAL) continue;
      Report("semop");
      return false;
    }
    if (errno != EEXIST) {
      Report("semget");
      return false;
    }
    id = semget(mKey, kSetSize, 0);
    if (id < 0) {
      if (errno == ENOENT) continue;
      Report("semget");
      return false;
    }
    switch (WaitReady(id)) {
      case Readiness::kReady:
        mId = id;
        return true;
      case Readiness::kGone:
        continue;
      case Readiness::kOrphan:
        RemoveSet(id);  // fails harmlessly if another waiter got there first
        continue;
      case Readiness::kError:
        return false;
    }
  }
  std::fprintf(stderr, "Semaphore: set of key %#x kept vanishing while being set up\n",
               static_cast<unsigned>(mKey));
  return false;
}

bool Semaphore::Acquire(bool wait, int timeoutMs) {
  if (mKey == -1) {
    std::fprintf(stderr, "Semaphore: no semaphore set\n");
    return false;
  }
  long long deadline = wait && timeoutMs >= 0 ? NowMs() + timeoutMs : 0;
  bool reattached = false;
  for (;;) {
    int id = mId.load();
    int rc;
    if (id < 0) {
      rc = -1;
      errno = EIDRM;
    } else if (!wait) {
      struct sembuf op = {kLockSem, -1, SEM_UNDO | IPC_NOWAIT};
      rc = semop(id, &op, 1);
    } else if (timeoutMs < 0) {
      struct sembuf op = {kLockSem, -1, SEM_UNDO};
      rc = semop(id, &op, 1);
    } else {
      long long left = deadline - NowMs();
      if (left < 0) left = 0;
      struct timespec limit;
      limit.tv_sec = static_cast<time_t>(left / 1000);
      limit.tv_nsec = static_cast<long>(left % 1000) * 1000000L;
      struct sembuf op = {kLockSem, -1, SEM_UNDO};
      rc = semtimedop(id, &op, 1, &limit);
    }
    if (rc == 0) {
      mHolder = getpid();
      return true;
    }
    if (errno == EINTR) continue;
    if (errno == EAGAIN) return false;  // held elsewhere, or the time is up
    if ((errno == EIDRM || errno == EINVAL) && !reattached) {
      reattached = true;
      mId.compare_exchange_strong(id, -1);
      if (mId.load() < 0 && !Attach()) return false;
      continue;
    }
    Report("semop");
    return false;
  }
}

bool Semaphore::Lock() { return Acquire(true, -1); }

bool Semaphore::Lock(int timeoutMs) { return Acquire(true, timeoutMs); }

bool Semaphore::TryLock() { return Acquire(false, 0); }

void Semaphore::Unlock() {
  pid_t self = getpid();
  if (!mHolder.compare_exchange_strong(self, 0)) return;
  int id = mId.load();
  struct sembuf release = {kLockSem, 1, SEM_UNDO};
  // A set removed meanwhile took the lock with it.
  if (id >= 0 && SemOp(id, &release, 1) != 0 && errno != EIDRM && errno != EINVAL) Report("semop");
}

bool Semaphore::Remove() {
  int id = mId.exchange(-1);
  mHolder = 0;
  if (id < 0) {
    std::fprintf(stderr, "Semaphore: no semaphore set\n");
    return false;
  }
  if (RemoveSet(id) != 0) {
    Report("semctl(IPC_RMID)");
    return false;
  }
  return true;
}

bool Semaphore::Remove(int key, char const* path) {
  key_t ipcKey = ftok(path, key);
  if (ipcKey == -1) {
    int error = errno;
    std::fprintf(stderr, "Semaphore: ftok(%s, %d) failed: %s\n", path, key, std::strerror(error));
    return false;
  }
  int id = semget(ipcKey, 0, 0);
  if (id < 0) {
    if (errno == ENOENT) return true;
    Report("semget");
    return false;
  }
  if (RemoveSet(id) != 0 && errno != EIDRM && errno != EINVAL) {
    Report("semctl(IPC_RMID)");
    return false;
  }
  return true;
}

Semaphore::operator bool() const { return mId.load() >= 0; }
