#include "messaging/messenger.h"

#include <unistd.h>

#include <cerrno>
#include <string>

namespace {

// Deep enough for a handler that sends from inside a nested loop's handler;
// deeper nesting still works, with an allocation.
constexpr unsigned kScratchDepth = 8;
// A body larger than this (only possible on channels built with a large
// buffer) is not kept for the rest of the thread's life.
constexpr std::size_t kScratchKeep = 64 * 1024;

struct ScratchPool {
  std::string bodies[kScratchDepth];
  unsigned depth = 0;  // live ScratchBody objects of this thread, pooled or not
};

thread_local ScratchPool tScratch;

}  // namespace

ScratchBody::ScratchBody() : body_(&own_) {
  if (tScratch.depth < kScratchDepth) body_ = &tScratch.bodies[tScratch.depth];
  ++tScratch.depth;
  body_->clear();
}

ScratchBody::~ScratchBody() {
  --tScratch.depth;
  if (body_ != &own_ && body_->capacity() > kScratchKeep) std::string().swap(*body_);
}

std::string MessengerErrorText(char const* className, char const* text) {
  std::string line = className;
  line += ": ";
  line += text;
  return line;
}

void WriteMessengerError(char const* text) {
  std::string line = "\n\r";
  line += text;
  line += "\r\n";
  // One write, so that lines of two threads never interleave.
  for (std::size_t done = 0; done < line.size();) {
    ssize_t n = write(STDERR_FILENO, line.data() + done, line.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += static_cast<std::size_t>(n);
  }
}
