// Thread::Sleep and Utility::GenerateUniqueNumber.
#include "vpnutils_system.h"

#include <fcntl.h>
#include <pthread.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

void Thread::Sleep(int ms) {
  if (ms <= 0) return;
  struct timespec left;
  left.tv_sec = ms / 1000;
  left.tv_nsec = static_cast<long>(ms % 1000) * 1000000L;
  // nanosleep leaves the unslept time in `left` when a signal interrupts it.
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

// Unique numbers.
//
// A number is salt + sequence (mod 2^64). The sequence counts the calls of the
// process; the salt is 64 random bits drawn for the process. For a fixed salt
// the map from sequence to number is one-to-one, so a process repeats nothing
// before 2^64 calls; two processes collide only if their ranges of numbers
// overlap, a chance of about (n1 + n2) / 2^64 after n1 and n2 calls. A forked
// child inherits the salt and the sequence, and would repeat its parent's
// next numbers: the salt is therefore redrawn whenever getpid() changes.
// The sum that would be 0 is skipped.
//
// A mutex rather than an atomic guards the counter: 64-bit atomics on 32-bit
// PowerPC need libatomic, which the appliance does not ship. The fork
// handlers keep a child from inheriting the mutex locked by another thread.
namespace {

pthread_mutex_t gUniqueMutex = PTHREAD_MUTEX_INITIALIZER;
pid_t gSaltPid = 0;  // process the salt was drawn for; guarded by gUniqueMutex
unsigned long long gSalt = 0;      // guarded by gUniqueMutex
unsigned long long gSequence = 0;  // guarded by gUniqueMutex

void LockUnique() { pthread_mutex_lock(&gUniqueMutex); }
void UnlockUnique() { pthread_mutex_unlock(&gUniqueMutex); }
int const gForkHandlers = pthread_atfork(LockUnique, UnlockUnique, UnlockUnique);

// The finaliser of SplitMix64: spreads every input bit over the output, so
// weak entropy (a clock, a pid) still yields an unpredictable-looking salt.
unsigned long long Mix(unsigned long long x) {
  x ^= x >> 30;
  x *= 0xBF58476D1CE4E5B9ULL;
  x ^= x >> 27;
  x *= 0x94D049BB133111EBULL;
  return x ^ (x >> 31);
}

unsigned long long DrawSalt(pid_t pid) {
  unsigned long long random = 0;
  int fd = open("/dev/urandom", O_RDONLY | O_CLOEXEC);
  if (fd >= 0) {
    unsigned char* at = reinterpret_cast<unsigned char*>(&random);
    std::size_t got = 0;
    while (got < sizeof random) {
      ssize_t n = read(fd, at + got, sizeof random - got);
      if (n > 0) {
        got += static_cast<std::size_t>(n);
      } else if (n < 0 && errno == EINTR) {
        continue;
      } else {
        break;
      }
    }
    close(fd);
  }
  // Without /dev/urandom the clocks and the pid still differ between
  // processes; mixing them in always costs nothing.
  struct timespec now = {0, 0};
  clock_gettime(CLOCK_REALTIME, &now);
  unsigned long long stir = static_cast<unsigned long long>(now.tv_sec) * 1000000000ULL +
                            static_cast<unsigned long long>(now.tv_nsec);
  clock_gettime(CLOCK_MONOTONIC, &now);
  stir ^= Mix(static_cast<unsigned long long>(now.tv_nsec) ^
              (static_cast<unsigned long long>(pid) << 32));
  return random ^ Mix(stir);
}

}  // namespace

unsigned long long Utility::GenerateUniqueNumber() {
  (void)gForkHandlers;
  pid_t pid = getpid();
  LockUnique();
  if (pid != gSaltPid) {
    gSalt = DrawSalt(pid);
    gSaltPid = pid;
  }
  unsigned long long number;
  do {
    number = gSalt + ++gSequence;
  } while (number == 0);
  UnlockUnique();
  return number;
}
