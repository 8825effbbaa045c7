// Turning the runs of one benchmark session into results.json, results.md
// and the chart's data files.
#ifndef LIBMESSAGING_BENCH_REPORT_H_
#define LIBMESSAGING_BENCH_REPORT_H_

#include <string>
#include <vector>

#include "bench.h"

namespace bench {

enum class Placement { kOneCpu, kTwoCpus, kUnpinned };
char const* PlacementKey(Placement p);
char const* PlacementLabel(Placement p);

// One case run: two fresh processes, one subject, one metric, one size.
struct Run {
  Placement placement;
  std::string subject;
  std::string label;
  Metric metric;
  unsigned size;
  int rep;
  bool ok;
  std::string failure;
  RoleResult side[2];
};

// One codec micro-benchmark, from codec_bench's table.
struct CodecFigure {
  std::string name;
  double medianNs, minNs, maxNs, allocations;
};

struct Session {
  std::string command;
  std::string machine;     // one line: CPU model, count, kernel
  std::string compiler;
  std::string date;        // UTC
  std::string settings;    // one line
  int oneCpu = 0, cpuA = 0, cpuB = 1;
  std::vector<std::string> subjects;  // keys in table order, floor first
  std::vector<std::string> labels;
  std::vector<unsigned> sizes;
  std::vector<Run> runs;
  std::vector<CodecFigure> codec;
};

// Raw runs as tab-separated lines, so a report can be made again later.
bool WriteRaw(Session const& s, std::string const& path);
bool ReadRaw(std::string const& path, Session* s);
bool ReadCodec(std::string const& path, std::vector<CodecFigure>* figures);

// Writes results.json and results.md into outDir and the chart's data files
// into dataDir. Returns whether every target held (the report says which).
bool WriteReport(Session const& s, std::string const& outDir, std::string const& dataDir);

}  // namespace bench

#endif  // LIBMESSAGING_BENCH_REPORT_H_
