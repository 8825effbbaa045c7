#include "messaging/messenger.h"

#include <unistd.h>

#include <cerrno>
#include <string>

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
