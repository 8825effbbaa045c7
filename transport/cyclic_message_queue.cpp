#include <unistd.h>

#include <new>

#include "transport.h"

int GetPID() { return static_cast<int>(getpid()); }

// pthread_t is an address on some hosts; the transport only compares thread
// ids for equality, so the low 32 bits serve.
unsigned GetTID() { return static_cast<unsigned>(pthread_self()); }

Link::~Link() {}

CyclicMessageQueue::CyclicMessageQueue(int id, char const* path, unsigned size, Link* link)
    : mLink(link), mBorrowed(link != nullptr) {
  if (mLink) return;
  CyclicSharedMemory* channel = new (std::nothrow) CyclicSharedMemory(id, path, size);
  if (!channel) return;
  // An invalid channel stays as the link: its failure shows as operator bool
  // false, and Create() prints "Constructor failed".
  channel->Create();
  mLink = channel;
}

CyclicMessageQueue::~CyclicMessageQueue() {
  if (!mBorrowed) delete mLink;
  mLink = nullptr;
}

unsigned CyclicMessageQueue::SendMessage(int const* code, std::string const* body) {
  return mLink ? mLink->Write(code, body) : 0;
}

unsigned CyclicMessageQueue::GetMessage(int* code, std::string* body) {
  return mLink ? mLink->Read(code, body, true) : 0;
}

unsigned CyclicMessageQueue::PeekMessage(int* code, std::string* body) {
  return mLink ? mLink->Read(code, body, false) : 0;
}

unsigned CyclicMessageQueue::SendMessage(int const* code, char const* data, unsigned size) {
  return mLink ? mLink->Write(code, data, size) : 0;
}

unsigned CyclicMessageQueue::GetMessage(int* code, char* buffer, unsigned size) {
  return mLink ? mLink->Read(code, buffer, size, true) : 0;
}

unsigned CyclicMessageQueue::PeekMessage(int* code, char* buffer, unsigned size) {
  return mLink ? mLink->Read(code, buffer, size, false) : 0;
}

void CyclicMessageQueue::Error(char const* text) {
  if (mLink) mLink->Error(text);
}

bool CyclicMessageQueue::IsPartyOnline() const { return mLink && mLink->IsPartyOnline(); }

bool CyclicMessageQueue::IsQueueEmpty() const { return mLink && mLink->IsQueueEmpty(); }

bool CyclicMessageQueue::ResetBuffers() { return mLink && mLink->ResetBuffers(); }

CyclicMessageQueue::operator bool() const { return mLink && static_cast<bool>(*mLink); }

std::string const& CyclicMessageQueue::GetLastError() { return CyclicSharedMemory::GetLastError(); }
