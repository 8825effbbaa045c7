// Test entry point shared by every suite.
//
// Each test process moves into a private System V IPC namespace before any
// test runs: channel keys are fixed (ftok of "/bin/ping"), so without this two
// cases running in parallel, or a live appliance on the same host, would meet
// in the same segments. After every case the namespace must be empty again;
// a case that leaves a segment, semaphore set or message queue behind fails
// the run, and the leftovers are removed so later cases start clean.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "support/ipc.h"

namespace {

struct LeftoverCheck : ::testing::EmptyTestEventListener {
  bool failed = false;
  void OnTestEnd(const ::testing::TestInfo& info) override {
    std::string left = test::DescribeIpcObjects();
    if (left.empty()) return;
    std::fprintf(stderr, "IPC objects left behind by %s.%s:\n%s", info.test_suite_name(), info.name(), left.c_str());
    test::RemoveAllIpcObjects();
    failed = true;
  }
};

}  // namespace

int main(int argc, char** argv) {
  if (unshare(CLONE_NEWIPC) != 0) {
    std::fprintf(stderr, "unshare(CLONE_NEWIPC): %s (the tests need root to get a private IPC namespace)\n",
                 std::strerror(errno));
    return 2;
  }
  struct stat st;
  if (stat("/bin/ping", &st) != 0) {
    std::fprintf(stderr, "/bin/ping is missing: channel keys are derived from it (install iputils-ping)\n");
    return 2;
  }
  ::testing::InitGoogleTest(&argc, argv);
  auto* check = new LeftoverCheck;
  ::testing::UnitTest::GetInstance()->listeners().Append(check);
  int rc = RUN_ALL_TESTS();
  return check->failed ? 1 : rc;
}
