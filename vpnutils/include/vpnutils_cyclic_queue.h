// A bounded message queue between the threads of one process.
#ifndef VPNUTILS_VPNUTILS_CYCLIC_QUEUE_H_
#define VPNUTILS_VPNUTILS_CYCLIC_QUEUE_H_

#include <condition_variable>
#include <mutex>

// Messages (a code and a non-empty byte string) in a ring of bytes allocated
// once at construction. Each message occupies kHeaderSize bytes plus its
// data, so the largest message an empty queue accepts is size - kHeaderSize.
// Senders never wait: a message that does not fit is refused whole. All
// operations may be called from any thread.
class CyclicQueue {
 public:
  static constexpr unsigned long kHeaderSize = sizeof(long) + sizeof(unsigned long);

  // A queue whose ring cannot be allocated refuses every message and says so
  // on stderr.
  explicit CyclicQueue(unsigned long size);
  ~CyclicQueue();

  CyclicQueue(CyclicQueue const&) = delete;
  CyclicQueue& operator=(CyclicQueue const&) = delete;

  // Queues a copy of `length` bytes under `code`. Returns `length`, or 0
  // when the message does not fit in the free space, or when it is empty
  // (length 0 or no data): a receiver could not tell an empty message from
  // nothing.
  unsigned long SendMessage(long code, char const* data, unsigned long length);

  // Waits until a message is queued, removes the oldest one, stores its code
  // in *code (when code is not null) and its bytes in `buffer`, and returns
  // its length. A message longer than `size` is still removed: the buffer is
  // filled with `size` zero bytes, *code is set and 0 is returned. A null
  // buffer or a size of 0 returns 0 at once and removes nothing.
  unsigned long GetMessage(long* code, char* buffer, unsigned long size);

  // As GetMessage, but returns 0 at once when the queue is empty.
  unsigned long PeekMessage(long* code, char* buffer, unsigned long size);

 private:
  unsigned long Take(long* code, char* buffer, unsigned long size);
  void Put(void const* from, unsigned long length);
  void Get(void* to, unsigned long length);
  void Skip(unsigned long length);

  std::mutex mMutex;  // guards every field below; mRing's bytes too
  std::condition_variable mNotEmpty;
  char* mRing;
  unsigned long mCapacity;
  unsigned long mHead;  // offset of the oldest message's header
  unsigned long mUsed;  // bytes held, headers included
};

#endif  // VPNUTILS_VPNUTILS_CYCLIC_QUEUE_H_
