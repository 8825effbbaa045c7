#include "transport/sysv.h"

namespace {

// glibc leaves the definition to the caller. semctl reads its fourth
// argument as this union; an int in its place is read wrongly on ABIs that
// pass unions differently from ints, such as 32-bit PowerPC.
union semun {
  int val;
  struct semid_ds* buf;
  unsigned short* array;
};

key_t RealFtok(char const* path, int id) { return ftok(path, id); }
int RealShmGet(key_t key, size_t size, int flags) { return shmget(key, size, flags); }
void* RealShmAt(int id) { return shmat(id, nullptr, 0); }
int RealShmDt(void const* address) { return shmdt(address); }
int RealShmStat(int id, shmid_ds* status) { return shmctl(id, IPC_STAT, status); }
int RealShmRemove(int id) { return shmctl(id, IPC_RMID, nullptr); }
int RealSemGet(key_t key, int flags) { return semget(key, 1, flags); }
int RealSemOp(int id, sembuf* op) { return semop(id, op, 1); }

int RealSemSetValue(int id, int value) {
  semun arg;
  arg.val = value;
  return semctl(id, 0, SETVAL, arg);
}

int RealSemRemove(int id) {
  semun arg;
  arg.val = 0;
  return semctl(id, 0, IPC_RMID, arg);
}

int RealSigAction(int signal, struct sigaction const* action, struct sigaction* previous) {
  return sigaction(signal, action, previous);
}

int RealRaise(int signal) { return raise(signal); }

}  // namespace

// Both are brace-initialised from function names, so they are filled in
// before any constructor of any library runs (constant initialisation).
#define REAL_SYSV_CALLS                                                                   \
  {                                                                                       \
    RealFtok, RealShmGet, RealShmAt, RealShmDt, RealShmStat, RealShmRemove, RealSemGet,   \
        RealSemOp, RealSemSetValue, RealSemRemove, RealSigAction, RealRaise               \
  }
SysVCalls const kRealSysVCalls = REAL_SYSV_CALLS;
SysVCalls sysv = REAL_SYSV_CALLS;
#undef REAL_SYSV_CALLS
