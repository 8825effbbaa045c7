// Sleeping and unique numbers.
#ifndef VPNUTILS_VPNUTILS_SYSTEM_H_
#define VPNUTILS_VPNUTILS_SYSTEM_H_

class Thread {
 public:
  // Suspends the calling thread for at least `ms` milliseconds, resuming
  // after signals until the time is spent. Returns at once when ms <= 0.
  static void Sleep(int ms);
};

class Utility {
 public:
  // A non-zero 64-bit number that this process has not returned before, and
  // that another process is very unlikely to return (see utility.cpp for the
  // layout). Thread-safe; a forked child gets numbers of its own.
  static unsigned long long GenerateUniqueNumber();
};

#endif  // VPNUTILS_VPNUTILS_SYSTEM_H_
