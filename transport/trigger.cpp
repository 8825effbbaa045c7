// Trigger (one System V semaphore as a counting event), MemoryMutex and the
// writer's side of a poller wake-up, Trojan.
#include <errno.h>

#include <cstdio>
#include <cstring>
#include <new>

#include "transport.h"
#include "transport/sysv.h"
#include "transport/trigger_origin.h"

char const* WIN32_TROJAN_NAME = "This is trojan trigger, not for legal use!";

std::string Trigger::mTriggerErrorMessage("No errors");

namespace {

constexpr int kPermissions = 0666;

struct Construction {
  Trigger const* trigger;
  bool created;
};

// The two most recent constructions of this thread. A channel builds its two
// triggers back to back, so both are still here when its constructor body
// runs; an older entry at a reused address is always overwritten first.
thread_local Construction tRecent[2];

void NoteConstruction(Trigger const* trigger, bool created) {
  tRecent[0] = tRecent[1];
  tRecent[1] = Construction{trigger, created};
}

sembuf* NewOperation(short operation) {
  sembuf* op = new (std::nothrow) sembuf;
  if (op) {
    op->sem_num = 0;
    op->sem_op = operation;
    op->sem_flg = 0;
  }
  return op;
}

// Creates the set (reporting *created) or opens the existing one; -1 on
// failure, reported through `self`.
int OpenSet(Trigger* self, key_t key, bool* created) {
  *created = false;
  int id = sysv.SemGet(key, IPC_CREAT | IPC_EXCL | kPermissions);
  if (id != -1) {
    *created = true;
    return id;
  }
  if (errno == EEXIST) id = sysv.SemGet(key, 0);
  if (id == -1) self->ErrorEx("Getting trigger");
  return id;
}

}  // namespace

bool TriggerCreatedItsSet(Trigger const* trigger) {
  for (Construction const& c : tRecent)
    if (c.trigger == trigger) return c.created;
  return false;
}

Trigger::Trigger(char const* path, int id)
    : mSetId(-1), mRaiseOp(NewOperation(1)), mWaitOp(NewOperation(-1)) {
  bool created = false;
  key_t key = sysv.Ftok(path, id);
  if (key == -1) {
    ErrorEx("Create trigger key");
  } else {
    mSetId = OpenSet(this, key, &created);
    if (created) ResetTrigger();
  }
  NoteConstruction(this, created);
}

Trigger::Trigger(int key) : mSetId(-1), mRaiseOp(NewOperation(1)), mWaitOp(NewOperation(-1)) {
  bool created = false;
  mSetId = OpenSet(this, static_cast<key_t>(key), &created);
  if (created) ResetTrigger();
  NoteConstruction(this, created);
}

Trigger::~Trigger() {
  delete mRaiseOp;
  delete mWaitOp;
}

int Trigger::SetImpulse() {
  if (mRaiseOp && sysv.SemOp(mSetId, mRaiseOp) == 0) return true;
  if (!mRaiseOp) errno = ENOMEM;
  if (errno == EINVAL || errno == EIDRM) mSetId = -1;
  ErrorEx("SetImpulse");
  return false;
}

int Trigger::WaitForImpulse(bool wait) {
  if (!mWaitOp) return false;
  // A private copy: threads may wait with and without IPC_NOWAIT at once.
  sembuf op = *mWaitOp;
  op.sem_flg = wait ? 0 : IPC_NOWAIT;
  for (;;) {
    if (sysv.SemOp(mSetId, &op) == 0) return true;
    if (!wait) return false;
    if (errno != EAGAIN) break;
  }
  ErrorEx("WaitForImpulse");
  return false;
}

int Trigger::ResetTrigger() {
  if (sysv.SemSetValue(mSetId, 0) == 0) return true;
  ErrorEx("ResetTrigger");
  return false;
}

int Trigger::RemoveTrigger() {
  if (mSetId == -1) return true;
  if (sysv.SemRemove(mSetId) != 0) {
    ErrorEx("RemoveTrigger");
    return false;
  }
  mSetId = -1;
  return true;
}

int Trigger::WipeTrigger(int key) {
  int id = sysv.SemGet(static_cast<key_t>(key), 0);
  if (id == -1) return errno == ENOENT;
  return sysv.SemRemove(id) == 0;
}

Trigger::operator bool() const { return mSetId != -1; }

void Trigger::ErrorEx(char const* text) {
  int error = errno;
  if (FormatErrorMessageEx(text)) ShowError();
  // Callers go on to report the same failure in their own words.
  errno = error;
}

bool Trigger::FormatErrorMessageEx(char const* text) {
  char const* reason = std::strerror(errno);  // before anything can touch errno
  std::string message = std::string(text) + " error" + " : " + reason;
  if (message == mTriggerErrorMessage) return false;
  mTriggerErrorMessage = message;
  return true;
}

void Trigger::ShowError() const { std::fprintf(stderr, "\n%s\n", mTriggerErrorMessage.c_str()); }

MemoryMutex::MemoryMutex() : mMutex(new (std::nothrow) pthread_mutex_t) {
  if (mMutex && pthread_mutex_init(mMutex, nullptr) != 0) {
    delete mMutex;
    mMutex = nullptr;
  }
}

MemoryMutex::~MemoryMutex() {
  Destroy();
  delete mMutex;
  mMutex = nullptr;
}

void MemoryMutex::Lock() {
  if (mMutex) pthread_mutex_lock(mMutex);
}

void MemoryMutex::Unlock() {
  if (mMutex) pthread_mutex_unlock(mMutex);
}

bool MemoryMutex::TryLock() { return !mMutex || pthread_mutex_trylock(mMutex) == 0; }

void MemoryMutex::Destroy() {
  if (mMutex) pthread_mutex_destroy(mMutex);
}

Trojan::Trojan(unsigned mainKey, unsigned queueKey)
    : mMainEvent(new (std::nothrow) Trigger(static_cast<int>(mainKey))),
      mQueueEvent(new (std::nothrow) Trigger(static_cast<int>(queueKey))),
      mMainKey(static_cast<int>(mainKey)),
      mQueueKey(static_cast<int>(queueKey)) {}

Trojan::~Trojan() {
  delete mMainEvent;
  delete mQueueEvent;
}

namespace {

// A poller that went away removed its sets; raising them again from the key
// brings them back, so a poller that restarts on the same keys finds the
// count of what was written meanwhile.
bool Raise(Trigger** event, int key) {
  if (*event && ((*event)->SetImpulse() || **event)) return true;
  delete *event;
  *event = new (std::nothrow) Trigger(key);
  return *event && (*event)->SetImpulse();
}

Trigger* Replace(Trigger* event, int key) {
  if (event) event->RemoveTrigger();
  delete event;
  return new (std::nothrow) Trigger(key);
}

}  // namespace

bool Trojan::Whisper() {
  bool queueRaised = Raise(&mQueueEvent, mQueueKey);
  bool mainRaised = Raise(&mMainEvent, mMainKey);
  return queueRaised && mainRaised;
}

bool Trojan::CheckForUpdates(unsigned mainKey, unsigned queueKey) {
  bool changed = false;
  if (static_cast<int>(mainKey) != mMainKey) {
    mMainKey = static_cast<int>(mainKey);
    mMainEvent = Replace(mMainEvent, mMainKey);
    changed = true;
  }
  if (static_cast<int>(queueKey) != mQueueKey) {
    mQueueKey = static_cast<int>(queueKey);
    mQueueEvent = Replace(mQueueEvent, mQueueKey);
    changed = true;
  }
  return changed;
}
