// soak [seconds] [seed] [poller]: two processes exchange random messages both
// ways over one channel for that long (default 60 s) and print one line:
// messages each way, losses against overflows, reads by mode, and the largest
// growth of resident memory. Party a's receiver mixes blocking reads and
// peeks; party b's does the same with poller "none", or waits in a poller
// throughout with "b" (the default); "a" swaps the two. Exits 1 on any
// failure. Run it in a private IPC namespace (unshare --ipc): the channel's
// keys are fixed.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "soak.h"

int main(int argc, char** argv) {
  soak::Options options;
  options.seconds = 60;
  if (argc > 1) options.seconds = std::atof(argv[1]);
  if (argc > 2) options.seed = static_cast<unsigned>(std::strtoul(argv[2], nullptr, 0));
  char const* poller = argc > 3 ? argv[3] : "b";
  options.pollerParty = std::strcmp(poller, "a") == 0 ? 0 : std::strcmp(poller, "b") == 0 ? 1 : -1;
  if (options.seconds <= 0 || argc > 4 || (options.pollerParty < 0 && std::strcmp(poller, "none") != 0)) {
    std::fprintf(stderr, "usage: %s [seconds] [seed] [a|b|none]\n", argv[0]);
    return 2;
  }
  soak::Result result = soak::Run(options);
  std::printf("%s\n", result.Summary().c_str());
  return result.ok ? 0 : 1;
}
