#include "support/ipc.h"

#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include <fstream>
#include <sstream>
#include <vector>

namespace test {
namespace {

// Ids of the objects listed in /proc/sysvipc/<kind>; the procfs view follows
// the IPC namespace of the reading process.
std::vector<int> ListIds(const char* kind, std::string* describe) {
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

}  // namespace

std::string DescribeIpcObjects() {
  std::string text;
  ListIds("shm", &text);
  ListIds("sem", &text);
  ListIds("msg", &text);
  return text;
}

int CountSegments() { return static_cast<int>(ListIds("shm", nullptr).size()); }
int CountSemaphoreSets() { return static_cast<int>(ListIds("sem", nullptr).size()); }

void RemoveAllIpcObjects() {
  for (int id : ListIds("shm", nullptr)) shmctl(id, IPC_RMID, nullptr);
  for (int id : ListIds("sem", nullptr)) semctl(id, 0, IPC_RMID);
  for (int id : ListIds("msg", nullptr)) msgctl(id, IPC_RMID, nullptr);
}

}  // namespace test
