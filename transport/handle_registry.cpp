#include "transport/handle_registry.h"

#include <pthread.h>

#include <map>
#include <new>

namespace {

// Guards gHandles and gNextToken. Registration happens at channel
// construction and destruction only, never on the message path.
pthread_mutex_t gLock = PTHREAD_MUTEX_INITIALIZER;
std::map<std::uint32_t, CyclicSharedMemory*>* gHandles;
std::uint32_t gNextToken = 1;

class Guard {
 public:
  Guard() { pthread_mutex_lock(&gLock); }
  ~Guard() { pthread_mutex_unlock(&gLock); }
};

}  // namespace

std::uint32_t RegisterChannelHandle(CyclicSharedMemory* channel) {
  Guard guard;
  // Allocated on first use and never freed: a channel destroyed by a static
  // destructor after this file's statics must still find the map.
  if (!gHandles) gHandles = new (std::nothrow) std::map<std::uint32_t, CyclicSharedMemory*>;
  if (!gHandles || gHandles->size() >= 0xFFFFFFFEu) return 0;
  // Skip 0 and tokens still in use once the counter has wrapped.
  while (gNextToken == 0 || gHandles->count(gNextToken)) ++gNextToken;
  std::uint32_t token = gNextToken++;
  (*gHandles)[token] = channel;
  return token;
}

void UnregisterChannelHandle(CyclicSharedMemory const* channel) {
  Guard guard;
  if (!gHandles) return;
  for (auto it = gHandles->begin(); it != gHandles->end();) {
    if (it->second == channel)
      it = gHandles->erase(it);
    else
      ++it;
  }
}

CyclicSharedMemory* LookupChannelHandle(std::uint32_t token) {
  Guard guard;
  if (!gHandles || token == 0) return nullptr;
  auto it = gHandles->find(token);
  return it == gHandles->end() ? nullptr : it->second;
}
