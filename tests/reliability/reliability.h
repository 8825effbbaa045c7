// The soak case's names for the shared helpers of support/process.h.
#pragma once

#include "support/process.h"

namespace reliability {
using test::kAddressSanitizer;
using test::kEmulated;
using test::Watchdog;
}  // namespace reliability
