// A user's program built against the installed package: it opens a channel
// through the umbrella header and exits 0 when the channel came up.
#include <libmessaging.h>

#include <cstdio>

int main() {
  CyclicMessageQueue queue(42, "/bin/ping", 32768, nullptr);
  if (!queue) {
    std::fprintf(stderr, "channel did not come up: %s\n", CyclicMessageQueue::GetLastError().c_str());
    return 1;
  }
  std::printf("consumer: channel 42 is up\n");
  return 0;
}
