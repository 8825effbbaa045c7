// Lazy connection of a messenger to its channel.
#ifndef LIBMESSAGING_MESSENGER_CONNECTION_H_
#define LIBMESSAGING_MESSENGER_CONNECTION_H_

#include "transport.h"

// A base for messengers that attach to their channel ("/bin/ping", 32768
// bytes) when they need it, retrying while the channel cannot be set up,
// instead of failing once at construction. Not polymorphic: a messenger
// derives from it next to its primary base and sends through mQueue.
//
// Connected means only that this process holds a valid end of the channel;
// whether the peer is there is IsPartyOnline's business. Not thread-safe: the
// thread that drives the messenger connects and disconnects it.
//
// The declarations below are a binary interface: the order of data members
// must not change.
class MessengerExt {
 public:
  // `id` is the channel id used when Connect is given 0. Nothing is attached.
  explicit MessengerExt(int id);
  ~MessengerExt();

  // Tries up to `attempts` times to build and Create the channel `id` (the
  // default id when 0), sleeping `pause` milliseconds (Thread::Sleep) between
  // attempts but not after the last. True at once when already connected;
  // false at once when both ids are 0 or attempts is 0. Each failed attempt
  // leaves the channel's own error text on the standard error stream ("Third
  // with ID 0x5 is redundant error." while both ends are held elsewhere);
  // Connect adds none.
  bool Connect(unsigned attempts, int pause, int id);
  // Leaves the channel (the peer gets the offline message if it was online).
  void Disconnect();
  bool IsConnected();

 protected:
  int mDefaultId;
  CyclicMessageQueue* mQueue;  // owned; null while disconnected

 private:
  MessengerExt(MessengerExt const&) = delete;
  MessengerExt& operator=(MessengerExt const&) = delete;
};

#endif  // LIBMESSAGING_MESSENGER_CONNECTION_H_
