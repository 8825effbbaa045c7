// CyclicQueue: messages in a ring of bytes.
//
// A message is a header {long code; unsigned long length} followed by its
// bytes, written at mHead + mUsed and read at mHead; either part may wrap
// around the end of the ring. mUsed alone tells full from empty.
#include "vpnutils_cyclic_queue.h"

#include <cstdio>
#include <cstring>
#include <new>

namespace {

struct Header {
  long code;
  unsigned long length;
};
static_assert(sizeof(Header) == CyclicQueue::kHeaderSize, "header without padding");

}  // namespace

CyclicQueue::CyclicQueue(unsigned long size)
    : mRing(size ? new (std::nothrow) char[size] : nullptr), mCapacity(0), mHead(0), mUsed(0) {
  if (mRing != nullptr) {
    mCapacity = size;
  } else if (size != 0) {
    std::fprintf(stderr, "CyclicQueue: cannot allocate %lu bytes\n", size);
  }
}

CyclicQueue::~CyclicQueue() { delete[] mRing; }

void CyclicQueue::Put(void const* from, unsigned long length) {
  unsigned long at = (mHead + mUsed) % mCapacity;
  unsigned long first = mCapacity - at < length ? mCapacity - at : length;
  std::memcpy(mRing + at, from, first);
  std::memcpy(mRing, static_cast<char const*>(from) + first, length - first);
  mUsed += length;
}

void CyclicQueue::Get(void* to, unsigned long length) {
  unsigned long first = mCapacity - mHead < length ? mCapacity - mHead : length;
  std::memcpy(to, mRing + mHead, first);
  std::memcpy(static_cast<char*>(to) + first, mRing, length - first);
  Skip(length);
}

void CyclicQueue::Skip(unsigned long length) {
  mHead = (mHead + length) % mCapacity;
  mUsed -= length;
}

unsigned long CyclicQueue::SendMessage(long code, char const* data, unsigned long length) {
  if (data == nullptr || length == 0) return 0;
  {
    std::lock_guard<std::mutex> lock(mMutex);
    unsigned long free = mCapacity - mUsed;
    if (free < kHeaderSize || free - kHeaderSize < length) return 0;
    Header header = {code, length};
    Put(&header, sizeof header);
    Put(data, length);
  }
  mNotEmpty.notify_one();
  return length;
}

unsigned long CyclicQueue::Take(long* code, char* buffer, unsigned long size) {
  Header header;
  Get(&header, sizeof header);
  if (code != nullptr) *code = header.code;
  if (header.length > size) {
    Skip(header.length);
    std::memset(buffer, 0, size);
    return 0;
  }
  Get(buffer, header.length);
  return header.length;
}

unsigned long CyclicQueue::GetMessage(long* code, char* buffer, unsigned long size) {
  if (buffer == nullptr || size == 0) return 0;
  std::unique_lock<std::mutex> lock(mMutex);
  mNotEmpty.wait(lock, [this] { return mUsed != 0; });
  return Take(code, buffer, size);
}

unsigned long CyclicQueue::PeekMessage(long* code, char* buffer, unsigned long size) {
  if (buffer == nullptr || size == 0) return 0;
  std::lock_guard<std::mutex> lock(mMutex);
  if (mUsed == 0) return 0;
  return Take(code, buffer, size);
}
