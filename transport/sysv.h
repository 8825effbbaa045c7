// Every System V IPC and signal call the transport makes goes through this
// table, so that tests can make one of them fail (EINTR, EIDRM, ENOSPC...) by
// replacing an entry and restoring it afterwards. Production code never
// changes it. The entries are thin: one system call each, errno as the
// system left it.
#ifndef LIBMESSAGING_TRANSPORT_SYSV_H_
#define LIBMESSAGING_TRANSPORT_SYSV_H_

#include <signal.h>
#include <stddef.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/types.h>

struct SysVCalls {
  key_t (*Ftok)(char const* path, int id);
  int (*ShmGet)(key_t key, size_t size, int flags);
  void* (*ShmAt)(int id);  // anywhere, read-write; (void*)-1 on failure
  int (*ShmDt)(void const* address);
  int (*ShmStat)(int id, shmid_ds* status);
  int (*ShmRemove)(int id);
  int (*SemGet)(key_t key, int flags);  // a set of one semaphore
  int (*SemOp)(int id, sembuf* op);     // one operation
  int (*SemSetValue)(int id, int value);
  int (*SemRemove)(int id);
  int (*SigAction)(int signal, struct sigaction const* action, struct sigaction* previous);
  int (*Raise)(int signal);
};

// The table in use, and the real calls (for restoring an entry).
extern SysVCalls sysv;
extern SysVCalls const kRealSysVCalls;

#endif  // LIBMESSAGING_TRANSPORT_SYSV_H_
