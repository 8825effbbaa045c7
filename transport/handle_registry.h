// Process-local names for channel objects, as stored in the object-handle
// words of a segment header (offsets 48 and 52).
//
// A header word is 32 bits wide and an object address may not fit (64-bit
// hosts), so a channel publishes a token instead: a small number that maps
// back to the object only inside the process that registered it. Token 0
// means "none"; a token is never handed out again while its channel lives.
// A token read from a header written by another process (or a stale one)
// simply finds no object, or an unrelated live channel of this process.
#ifndef LIBMESSAGING_TRANSPORT_HANDLE_REGISTRY_H_
#define LIBMESSAGING_TRANSPORT_HANDLE_REGISTRY_H_

#include <cstdint>

class CyclicSharedMemory;

// A fresh token for `channel`; 0 when it could not be registered.
std::uint32_t RegisterChannelHandle(CyclicSharedMemory* channel);
// Forgets every token of `channel` (called by its destructor).
void UnregisterChannelHandle(CyclicSharedMemory const* channel);
// The live channel registered under `token`, or null. The poller of this
// process calls it with the word it found in the header.
CyclicSharedMemory* LookupChannelHandle(std::uint32_t token);

#endif  // LIBMESSAGING_TRANSPORT_HANDLE_REGISTRY_H_
