// The objects of the (private) System V IPC namespace, as /proc/sysvipc
// lists them: its view follows the namespace of the reading process.
#pragma once

#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace test {

// Ids of the objects of one kind ("shm", "sem", "msg"), each described as a
// line in *describe when given.
inline std::vector<int> ListIpcIds(char const* kind, std::string* describe = nullptr) {
  std::vector<int> ids;
  std::ifstream in(std::string("/proc/sysvipc/") + kind);
  std::string line;
  std::getline(in, line);  // column titles
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    long key = 0;
    int id = -1;
    if (!(fields >> key >> id)) continue;
    ids.push_back(id);
    if (describe) *describe += std::string(kind) + ": " + line + "\n";
  }
  return ids;
}

// One line per segment, semaphore set or message queue; empty when there is
// none.
inline std::string DescribeIpcObjects() {
  std::string text;
  for (char const* kind : {"shm", "sem", "msg"}) ListIpcIds(kind, &text);
  return text;
}

inline int CountSegments() { return static_cast<int>(ListIpcIds("shm").size()); }
inline int CountSemaphoreSets() { return static_cast<int>(ListIpcIds("sem").size()); }

inline void RemoveAllIpcObjects() {
  for (int id : ListIpcIds("shm")) shmctl(id, IPC_RMID, nullptr);
  for (int id : ListIpcIds("sem")) semctl(id, 0, IPC_RMID);
  for (int id : ListIpcIds("msg")) msgctl(id, IPC_RMID, nullptr);
}

}  // namespace test
