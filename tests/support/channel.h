// Channels for tests: the keys and counts of a channel's objects, short forms
// of the raw calls, and both ends in one process with a third mapping of the
// segment for reading and poking header words.
#pragma once

#include <sys/sem.h>
#include <sys/shm.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "transport.h"

namespace test {

constexpr int kOnline = static_cast<int>(0x80000000u);
constexpr int kOffline = static_cast<int>(0x80000001u);

inline int SegmentKey(int id) { return ftok("/bin/ping", id); }
// The semaphores counting the frames written by the first party (trigger A)
// and by the second (trigger B).
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

inline std::unique_ptr<CyclicSharedMemory> Open(int id, unsigned size = 4096) {
  std::unique_ptr<CyclicSharedMemory> channel(new CyclicSharedMemory(id, "/bin/ping", size));
  channel->Create();
  return channel;
}
// The first non-waiting read announces this end (and may consume a message).
inline void Announce(CyclicSharedMemory& channel) {
  std::string body;
  channel.Read(nullptr, &body, false);
}
inline unsigned Send(CyclicSharedMemory& channel, int code, std::string const& body) {
  return channel.Write(&code, &body);
}
// One read as "code:body", "online <id>" / "offline <id>" for the notices, or
// "<none>".
inline std::string Take(CyclicSharedMemory& channel, bool wait = false) {
  int code = 0;
  std::string body;
  if (!channel.Read(&code, &body, wait)) return "<none>";
  if (code != kOnline && code != kOffline) return std::to_string(code) + ":" + body;
  int id = -1;
  if (body.size() == 4) std::memcpy(&id, body.data(), 4);
  return (code == kOnline ? "online " : "offline ") + std::to_string(id);
}

// Both parties of channel `id`, online, the first party's online notice
// consumed. Close() drops the extra mapping first, so that the last party
// still sees itself as the last one attached and removes everything.
struct Pair {
  Pair(int id, unsigned size) : first(new CyclicSharedMemory(id, "/bin/ping", size)),
                                second(new CyclicSharedMemory(id, "/bin/ping", size)) {
    if (!*first || !*second) return;
    Announce(*first);
    Announce(*second);
    Announce(*first);
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
  std::uint32_t Word(unsigned offset) const { return *reinterpret_cast<std::uint32_t const*>(base + offset); }
  void SetWord(unsigned offset, std::uint32_t value) { *reinterpret_cast<std::uint32_t*>(base + offset) = value; }
  std::unique_ptr<CyclicSharedMemory> first, second;
  char* base = nullptr;
};

}  // namespace test
