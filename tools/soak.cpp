// soak [seconds] [seed]: two processes exchange random messages both ways
// over one channel for that long (default 60 s) and print one line: messages
// each way, losses against overflows, and the largest growth of resident
// memory. Exits 1 on any failure. Run it in a private IPC namespace
// (unshare --ipc): the channel's keys are fixed.
#include <cstdio>
#include <cstdlib>

#include "soak.h"

int main(int argc, char** argv) {
  soak::Options options;
  options.seconds = 60;
  if (argc > 1) options.seconds = std::atof(argv[1]);
  if (argc > 2) options.seed = static_cast<unsigned>(std::strtoul(argv[2], nullptr, 0));
  if (options.seconds <= 0 || argc > 3) {
    std::fprintf(stderr, "usage: %s [seconds] [seed]\n", argv[0]);
    return 2;
  }
  soak::Result result = soak::Run(options);
  std::printf("%s\n", result.Summary().c_str());
  return result.ok ? 0 : 1;
}
