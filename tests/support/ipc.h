// Helpers for tests that inspect or clean the (private) System V IPC namespace.
#pragma once

#include <string>

namespace test {

// One line per segment, semaphore set or message queue in this IPC namespace;
// empty when there is none.
std::string DescribeIpcObjects();
int CountSegments();
int CountSemaphoreSets();
void RemoveAllIpcObjects();

}  // namespace test
