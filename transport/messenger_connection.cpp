// MessengerExt: connecting a messenger to its channel with retries.
#include "messenger_connection.h"

#include <new>

#include "vpnutils_system.h"

namespace {

char const kPath[] = "/bin/ping";
constexpr unsigned kSize = 32768;

}  // namespace

MessengerExt::MessengerExt(int id) : mDefaultId(id), mQueue(nullptr) {}

MessengerExt::~MessengerExt() { Disconnect(); }

bool MessengerExt::Connect(unsigned attempts, int pause, int id) {
  if (id == 0 && mDefaultId == 0) return false;
  if (IsConnected()) return true;
  Disconnect();  // a queue whose channel has failed since
  int const channelId = id != 0 ? id : mDefaultId;
  for (unsigned attempt = 1; attempt <= attempts; ++attempt) {
    CyclicMessageQueue* queue =
        new (std::nothrow) CyclicMessageQueue(channelId, kPath, kSize, nullptr);
    if (queue && *queue) {
      mQueue = queue;
      return true;
    }
    // A refused attempt detaches at once: piled-up attachments would keep the
    // real last party from removing the channel.
    delete queue;
    if (attempt < attempts) Thread::Sleep(pause);
  }
  return false;
}

void MessengerExt::Disconnect() {
  delete mQueue;
  mQueue = nullptr;
}

bool MessengerExt::IsConnected() { return mQueue && *mQueue; }
