// The inter-process benchmark: what is measured, and how the two processes of
// a case meet. Every case forks two fresh processes (side 0 and side 1) from
// the driver; each opens its end of the subject, runs its role and reports a
// RoleResult through a pipe.
#ifndef LIBMESSAGING_BENCH_BENCH_H_
#define LIBMESSAGING_BENCH_BENCH_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace bench {

// Calls of the global operator new in this process so far (alloc_counter.cpp
// replaces it for the whole binary, the library's code included).
std::uint64_t Allocations();

// Monotonic time in seconds.
double Now();

enum class Metric { kThroughput, kRoundTrip };

// Settings that both sides of a case share.
struct RunSettings {
  unsigned size = 64;          // body bytes of every measured message
  double budgetSeconds = 0.04; // measured interval; 0 = run maxMessages
  std::uint64_t maxMessages = 200000;
  unsigned warmup = 500;       // messages or round trips before measuring
};

// What one side reports when its role is done. Plain data: it crosses a pipe.
struct RoleResult {
  int ok = 0;                     // 1 when every message checked out
  std::uint64_t messages = 0;     // measured messages or round trips
  double seconds = 0;             // measured interval (writer, initiator)
  double rttMedianUs = 0;
  double rttP99Us = 0;
  std::uint64_t retries = 0;      // sends retried after a full buffer
  std::uint64_t allocations = 0;  // operator new calls in the measured loop
  std::uint64_t notices = 0;      // channel online/offline messages passed over
  char failure[120] = {0};
};

void Fail(RoleResult* result, char const* format, ...) __attribute__((format(printf, 2, 3)));

// The two sides' private line: a byte each way for "opened" and "ready",
// outside anything measured.
class SidePipes {
 public:
  SidePipes();
  ~SidePipes();
  bool ok() const { return ok_; }
  // Called once in each child after the fork.
  void Choose(int side);
  // The parent's copies, once both children are running.
  void CloseAll();
  bool Signal();
  bool Wait();
  // Both sides: neither returns before the other has arrived.
  bool Barrier() { return Signal() && Wait(); }

 private:
  int fds_[4];  // [0,1] side 0 -> side 1, [2,3] side 1 -> side 0
  int in_ = -1, out_ = -1;
  bool ok_ = false;
};

// One end of a transport inside one child. Messages carry a code and a body
// of RunSettings::size bytes.
class Endpoint {
 public:
  virtual ~Endpoint() = default;
  // The next outgoing body, stamped in place between sends; its address does
  // not change for the endpoint's life.
  virtual char* OutBody() = 0;
  // Called once both sides have opened, before anything is sent: waits until
  // the other end can be written to.
  virtual bool Ready(std::string* why) {
    (void)why;
    return true;
  }
  // Queues OutBody() under `code`. A full buffer blocks in the kernel, or for
  // the shared-memory rings is retried after a sched_yield (counted in
  // retries). False on a failure that retrying cannot mend.
  virtual bool Send(int code) = 0;
  // Blocks for the next message; the view lasts until the next Receive.
  virtual bool Receive(int* code, char const** body, unsigned* size) = 0;
  // Why the last call failed.
  virtual std::string Why() const { return std::string(); }

  std::uint64_t retries = 0;
  std::uint64_t notices = 0;
};

// Something measured by the driver.
class Subject {
 public:
  virtual ~Subject() = default;
  virtual char const* Name() const = 0;   // short key: "floor", "channel", ...
  virtual char const* Label() const = 0;  // for tables and the chart
  virtual bool Supports(Metric, unsigned size) const {
    (void)size;
    return true;
  }
  // In the parent before the fork: kernel objects that both ends share.
  virtual bool Prepare(RunSettings const&) { return true; }
  // In the parent after both children ended: remove what Prepare made.
  virtual void Release() {}
  // In a child: open this side, meet the other side, run the role.
  virtual RoleResult Run(int side, Metric metric, RunSettings const& settings, SidePipes& pipes);

 protected:
  // Generic subjects open an Endpoint; side 0 opens before side 1 starts.
  virtual std::unique_ptr<Endpoint> Open(int side, RunSettings const& settings, std::string* why) {
    (void)side;
    (void)settings;
    *why = "not an endpoint subject";
    return nullptr;
  }
};

// The transports, floor first (every ratio is taken against it).
std::vector<std::unique_ptr<Subject> > MakeSubjects();

// The roles, shared by every Endpoint subject. Side 0 writes (throughput) or
// initiates (round trip).
void RunThroughputWriter(Endpoint& ep, RunSettings const& s, RoleResult* r);
void RunThroughputReader(Endpoint& ep, RunSettings const& s, RoleResult* r);
void RunRoundTripInitiator(Endpoint& ep, RunSettings const& s, RoleResult* r);
void RunRoundTripResponder(Endpoint& ep, RunSettings const& s, RoleResult* r);

// Median and 99th percentile of samples (reordered), in the samples' unit.
void Percentiles(std::vector<double>* samples, double* median, double* p99);

}  // namespace bench

#endif  // LIBMESSAGING_BENCH_BENCH_H_
