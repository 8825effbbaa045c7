// Shared pieces of the reliability suite: a watchdog per case, both ends of a
// channel in one process with a third mapping for poking header words, and
// the host facts that scale the heavier cases down.
#pragma once

#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include <cstdint>
#include <memory>
#include <string>

#include "transport.h"

namespace reliability {

// Cross builds run under user-mode emulation, some fifty times slower; the
// exhaustive and iterated cases sample there instead.
#if defined(__powerpc__)
constexpr bool kEmulated = true;
#else
constexpr bool kEmulated = false;
#endif

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kAddressSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kAddressSanitizer = true;
#else
constexpr bool kAddressSanitizer = false;
#endif
#else
constexpr bool kAddressSanitizer = false;
#endif

constexpr int kOnline = static_cast<int>(0x80000000u);
constexpr int kOffline = static_cast<int>(0x80000001u);

// Ends the whole test process (SIGALRM) when a case hangs; the private IPC
// namespace dies with it.
class Watchdog {
 public:
  explicit Watchdog(unsigned seconds) { alarm(seconds); }
  ~Watchdog() { alarm(0); }
};

inline int SegmentKey(int id) { return ftok("/bin/ping", id); }
// The semaphore counting frames written by the first party (trigger A) and
// by the second (trigger B).
inline int FirstToSecondKey(int id) { return ftok("/bin/ping", 0x7FFFFFFF - id); }
inline int SecondToFirstKey(int id) { return ftok("/bin/ping", static_cast<int>(0x80000000u + id)); }
// -1 when the set does not exist.
inline int SemValue(int key) {
  int set = semget(key, 1, 0);
  return set == -1 ? -1 : semctl(set, 0, GETVAL);
}
inline int AttachCount(int id) {
  shmid_ds status;
  int segment = shmget(SegmentKey(id), 0, 0);
  return segment == -1 || shmctl(segment, IPC_STAT, &status) != 0 ? -1 : int(status.shm_nattch);
}

// Both parties of channel `id` in this process, online, with the first
// party's online notice consumed, plus a mapping of the segment for header
// words. Close() drops the mapping first, so that the last party still sees
// itself as the last one attached and removes everything.
class Pair {
 public:
  Pair(int id, unsigned size) {
    first.reset(new CyclicSharedMemory(id, "/bin/ping", size));
    second.reset(new CyclicSharedMemory(id, "/bin/ping", size));
    if (!*first || !*second) return;
    std::string body;
    first->Read(nullptr, &body, false);
    second->Read(nullptr, &body, false);
    first->Read(nullptr, &body, false);
    void* at = shmat(shmget(SegmentKey(id), 0, 0), nullptr, 0);
    if (at != reinterpret_cast<void*>(-1)) base = static_cast<char*>(at);
  }
  ~Pair() { Close(); }
  void Close() {
    if (base) shmdt(base);
    base = nullptr;
    first.reset();
    second.reset();
  }
  bool ok() const { return base != nullptr; }
  std::uint32_t Word(unsigned offset) const {
    return *reinterpret_cast<std::uint32_t const*>(base + offset);
  }
  void SetWord(unsigned offset, std::uint32_t value) {
    *reinterpret_cast<std::uint32_t*>(base + offset) = value;
  }

  std::unique_ptr<CyclicSharedMemory> first, second;
  char* base = nullptr;
};

}  // namespace reliability
