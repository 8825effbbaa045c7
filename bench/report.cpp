// Figures of a session: the median of each subject x metric x size over its
// runs, with the spread, each set against the protocol floor measured in the
// same session; then the targets, the tables and the chart's data.
#include "report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>

namespace bench {

char const* PlacementKey(Placement p) {
  switch (p) {
    case Placement::kOneCpu: return "one-cpu";
    case Placement::kTwoCpus: return "two-cpus";
    case Placement::kUnpinned: return "unpinned";
  }
  return "?";
}

char const* PlacementLabel(Placement p) {
  switch (p) {
    case Placement::kOneCpu: return "both processes on one CPU";
    case Placement::kTwoCpus: return "one process per CPU (for information)";
    case Placement::kUnpinned: return "unpinned, placed by the scheduler (for information)";
  }
  return "?";
}

namespace {

struct MetricInfo {
  char const* key;
  char const* unit;
  bool higherIsBetter;
  bool ratio;  // set against the floor
};

MetricInfo const kMetrics[] = {
    {"msgs_per_s", "messages/s", true, true},
    {"MB_per_s", "MB/s of body", true, true},
    {"rtt_median_us", "us", false, true},
    {"rtt_p99_us", "us", false, true},
    {"retries_per_msg", "overflow retries per message", false, false},
    {"allocs_per_msg_sender", "operator new calls per message, writer", false, false},
    {"allocs_per_msg_receiver", "operator new calls per message, reader", false, false},
    {"allocs_per_rt_initiator", "operator new calls per round trip, initiator", false, false},
    {"allocs_per_rt_responder", "operator new calls per round trip, responder", false, false},
};

std::vector<std::pair<std::string, double> > Figures(Run const& r) {
  std::vector<std::pair<std::string, double> > f;
  RoleResult const& a = r.side[0];
  RoleResult const& b = r.side[1];
  double const n = std::max<double>(1, static_cast<double>(a.messages));
  if (r.metric == Metric::kThroughput) {
    double const rate = a.seconds > 0 ? a.messages / a.seconds : 0;
    f.emplace_back("msgs_per_s", rate);
    f.emplace_back("MB_per_s", rate * r.size / 1e6);
    f.emplace_back("retries_per_msg", a.retries / n);
    f.emplace_back("allocs_per_msg_sender", a.allocations / n);
    f.emplace_back("allocs_per_msg_receiver", b.allocations / n);
  } else {
    f.emplace_back("rtt_median_us", a.rttMedianUs);
    f.emplace_back("rtt_p99_us", a.rttP99Us);
    f.emplace_back("allocs_per_rt_initiator", a.allocations / n);
    f.emplace_back("allocs_per_rt_responder", b.allocations / n);
  }
  return f;
}

struct Figure {
  std::vector<double> runs;
  std::map<int, double> byRep;  // the same runs, by repetition
  double median = 0, min = 0, max = 0;
  bool valid() const { return !runs.empty(); }
  double spread() const { return median != 0 ? (max - min) / median * 100 : 0; }
};

std::string Key(Placement p, std::string const& subject, std::string const& metric, unsigned size) {
  return std::string(PlacementKey(p)) + "/" + subject + "/" + metric + "/" + std::to_string(size);
}

class Table {
 public:
  explicit Table(Session const& s) {
    for (Run const& r : s.runs) {
      if (!r.ok) continue;
      for (auto const& f : Figures(r)) {
        Figure& figure = figures_[Key(r.placement, r.subject, f.first, r.size)];
        figure.runs.push_back(f.second);
        figure.byRep[r.rep] = f.second;
      }
    }
    for (auto& entry : figures_) {
      Figure& f = entry.second;
      std::vector<double> v = f.runs;
      std::sort(v.begin(), v.end());
      f.min = v.front();
      f.max = v.back();
      f.median = v.size() % 2 ? v[v.size() / 2] : (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2;
    }
  }
  Figure const* Get(Placement p, std::string const& subject, std::string const& metric, unsigned size) const {
    auto it = figures_.find(Key(p, subject, metric, size));
    return it == figures_.end() ? nullptr : &it->second;
  }
  // The median over repetitions of subject / reference, each pair measured
  // back to back; NaN when no repetition has both. Pairing matters: a run's
  // figures move together with the machine's state (on these VMs a 4 KB
  // round trip falls into a fast or a slow mode from run to run, for the floor
  // as for everything else), and the ratio of two medians would compare runs
  // taken in different modes.
  double Ratio(Placement p, std::string const& subject, std::string const& reference, std::string const& metric,
               unsigned size) const {
    Figure const* a = Get(p, subject, metric, size);
    Figure const* b = Get(p, reference, metric, size);
    if (!a || !b) return NAN;
    std::vector<double> ratios;
    for (auto const& rep : a->byRep) {
      auto const other = b->byRep.find(rep.first);
      if (other != b->byRep.end() && other->second != 0) ratios.push_back(rep.second / other->second);
    }
    if (ratios.empty()) return NAN;
    std::sort(ratios.begin(), ratios.end());
    std::size_t const n = ratios.size();
    return n % 2 ? ratios[n / 2] : (ratios[n / 2 - 1] + ratios[n / 2]) / 2;
  }

 private:
  std::map<std::string, Figure> figures_;
};

std::string Num(double v) {
  char text[32];
  if (std::isnan(v)) return "-";
  double const a = std::fabs(v);
  if (a >= 1e6) std::snprintf(text, sizeof text, "%.2fM", v / 1e6);
  else if (a >= 1e4) std::snprintf(text, sizeof text, "%.0fk", v / 1e3);
  else if (a >= 1e3) std::snprintf(text, sizeof text, "%.2fk", v / 1e3);
  else if (a >= 100) std::snprintf(text, sizeof text, "%.0f", v);
  else if (a >= 10) std::snprintf(text, sizeof text, "%.1f", v);
  else std::snprintf(text, sizeof text, "%.2f", v);
  return text;
}

std::string Json(double v) {
  if (std::isnan(v) || std::isinf(v)) return "null";
  char text[32];
  std::snprintf(text, sizeof text, "%.6g", v);
  return text;
}

std::string Quote(std::string const& s) {
  std::string q = "\"";
  for (char c : s) {
    if (c == '"' || c == '\\') q += '\\';
    if (static_cast<unsigned char>(c) < 0x20) {
      q += ' ';
      continue;
    }
    q += c;
  }
  return q + "\"";
}

std::string SizeLabel(unsigned size) {
  return size >= 1024 && size % 1024 == 0 ? std::to_string(size / 1024) + " KB" : std::to_string(size) + " B";
}

struct Target {
  std::string name;
  bool holds;
  std::string detail;
};

char const* const kAlternatives[] = {"pipe", "seqpacket", "posixmq", "sysvmsg", "boost"};

std::vector<Target> Targets(Session const& s, Table const& t) {
  std::vector<Target> targets;
  Placement const one = Placement::kOneCpu;
  char text[512];
  auto worst = [&](char const* subject, char const* reference, char const* metric, bool atLeast, double bound,
                   std::vector<unsigned> const& sizes, Target* target) {
    std::string detail;
    target->holds = true;
    int measured = 0;
    for (unsigned size : sizes) {
      double r = t.Ratio(one, subject, reference, metric, size);
      if (std::isnan(r)) continue;
      ++measured;
      bool ok = atLeast ? r >= bound : r <= bound;
      if (!ok) target->holds = false;
      // Three decimals: a figure just below its bound must not print as the bound.
      std::snprintf(text, sizeof text, "%s%s x%.3f%s", detail.empty() ? "" : ", ", SizeLabel(size).c_str(), r,
                    ok ? "" : " (no)");
      detail += text;
    }
    if (measured == 0) {
      target->holds = false;
      detail = "not measured";
    }
    target->detail = detail;
  };

  Target t1{"CyclicMessageQueue one-way throughput >= 0.9x the protocol floor at every size", false, ""};
  worst("channel", "floor", "msgs_per_s", true, 0.9, s.sizes, &t1);
  targets.push_back(t1);

  Target t2{"CyclicMessageQueue round-trip median <= 1.1x the protocol floor at every size", false, ""};
  worst("channel", "floor", "rtt_median_us", false, 1.1, s.sizes, &t2);
  targets.push_back(t2);

  Target t3{"CallMessenger MakeCall throughput >= 0.7x the channel's at the same body size", false, ""};
  worst("messenger", "channel", "msgs_per_s", true, 0.7, s.sizes, &t3);
  targets.push_back(t3);

  Target t4{"CyclicMessageQueue round-trip median <= 1.2x the best of pipe, socketpair, POSIX mq, SysV msgq, "
            "Boost.Interprocess at 64 B and 1 KB",
            true, ""};
  int measured = 0;
  for (unsigned size : {64u, 1024u}) {
    Figure const* channel = t.Get(one, "channel", "rtt_median_us", size);
    double best = NAN;
    std::string bestName;
    for (char const* alt : kAlternatives) {
      Figure const* f = t.Get(one, alt, "rtt_median_us", size);
      if (f && (std::isnan(best) || f->median < best)) {
        best = f->median;
        bestName = alt;
      }
    }
    if (!channel || std::isnan(best)) continue;
    ++measured;
    double const r = channel->median / best;
    if (r > 1.2) t4.holds = false;
    std::snprintf(text, sizeof text, "%s%s: %.2f us vs %s %.2f us, x%.2f%s", t4.detail.empty() ? "" : "; ",
                  SizeLabel(size).c_str(), channel->median, bestName.c_str(), best, r, r > 1.2 ? " (no)" : "");
    t4.detail += text;
  }
  if (measured < 2) {
    t4.holds = false;
    t4.detail += measured ? " (one size not measured)" : "not measured";
  }
  targets.push_back(t4);

  // Allocation: every run of the channel, every placement.
  Target t5{"No allocation on the channel's hot path once the caller's string has capacity "
            "(operator new counted in the measured loops)",
            true, ""};
  std::uint64_t sent = 0, received = 0, roundTrips = 0, senderAllocs = 0, readerAllocs = 0, rtAllocs = 0,
                retries = 0;
  for (Run const& r : s.runs) {
    if (!r.ok || r.subject != "channel") continue;
    if (r.metric == Metric::kThroughput) {
      sent += r.side[0].messages;
      received += r.side[1].messages;
      senderAllocs += r.side[0].allocations;
      readerAllocs += r.side[1].allocations;
      retries += r.side[0].retries;
    } else {
      roundTrips += r.side[0].messages;
      rtAllocs += r.side[0].allocations + r.side[1].allocations;
    }
  }
  t5.holds = senderAllocs == 0 && readerAllocs == 0 && rtAllocs == 0 && sent + roundTrips > 0;
  std::snprintf(text, sizeof text,
                "%llu messages sent: %llu allocations by writers (%llu overflow retries); %llu received: %llu by "
                "readers; %llu round trips: %llu",
                static_cast<unsigned long long>(sent), static_cast<unsigned long long>(senderAllocs),
                static_cast<unsigned long long>(retries), static_cast<unsigned long long>(received),
                static_cast<unsigned long long>(readerAllocs), static_cast<unsigned long long>(roundTrips),
                static_cast<unsigned long long>(rtAllocs));
  t5.detail = text;
  targets.push_back(t5);
  return targets;
}

// One markdown table: rows are subjects, columns sizes; each cell the median
// and, where asked, its ratio to the reference subject.
void MdTable(std::ostream& md, Session const& s, Table const& t, Placement p, char const* metric,
             char const* reference) {
  md << "| |";
  for (unsigned size : s.sizes) md << " " << SizeLabel(size) << " |";
  md << "\n|---|";
  for (std::size_t i = 0; i < s.sizes.size(); ++i) md << "---:|";
  md << "\n";
  double worstSpread = 0;
  std::string worstAt;
  for (std::size_t i = 0; i < s.subjects.size(); ++i) {
    md << "| " << s.labels[i] << " |";
    for (unsigned size : s.sizes) {
      Figure const* f = t.Get(p, s.subjects[i], metric, size);
      if (!f) {
        md << " n/a |";
        continue;
      }
      md << " " << Num(f->median);
      if (reference) {
        double r = t.Ratio(p, s.subjects[i], reference, metric, size);
        char text[32];
        std::snprintf(text, sizeof text, " (x%.2f)", r);
        if (!std::isnan(r)) md << text;
      }
      md << " |";
      if (f->runs.size() > 1 && f->spread() > worstSpread) {
        worstSpread = f->spread();
        worstAt = s.labels[i] + " at " + SizeLabel(size);
      }
    }
    md << "\n";
  }
  if (!worstAt.empty()) {
    char text[64];
    std::snprintf(text, sizeof text, "%.0f%%", worstSpread);
    md << "\nLargest spread (max - min over median) in this table: " << text << ", " << worstAt << ".\n";
  }
  md << "\n";
}

void WriteChartData(Session const& s, Table const& t, std::string const& dir) {
  struct Plot {
    char const* file;
    char const* metric;
    bool ratio;
  } const plots[] = {{"throughput.dat", "msgs_per_s", false},
                     {"rtt.dat", "rtt_median_us", false},
                     {"throughput_ratio.dat", "msgs_per_s", true},
                     {"rtt_ratio.dat", "rtt_median_us", true}};
  for (Plot const& plot : plots) {
    std::ofstream out(dir + "/" + plot.file);
    out << "size";
    for (auto const& label : s.labels) out << "\t" << label;
    out << "\n";
    for (unsigned size : s.sizes) {
      out << size;
      for (auto const& subject : s.subjects) {
        double v = NAN;
        if (plot.ratio) {
          v = t.Ratio(Placement::kOneCpu, subject, "floor", plot.metric, size);
        } else if (Figure const* f = t.Get(Placement::kOneCpu, subject, plot.metric, size)) {
          v = f->median;
        }
        out << "\t";
        if (std::isnan(v)) out << "?";
        else out << v;
      }
      out << "\n";
    }
  }
  std::ofstream title(dir + "/chart-title.txt");
  title << "libmessaging and the alternatives, both processes on one CPU, " << s.date << "\n" << s.machine;
}

}  // namespace

bool WriteRaw(Session const& s, std::string const& path) {
  std::ofstream out(path);
  out << "#command\t" << s.command << "\n#machine\t" << s.machine << "\n#compiler\t" << s.compiler << "\n#date\t"
      << s.date << "\n#settings\t" << s.settings << "\n#cpus\t" << s.oneCpu << "\t" << s.cpuA << "\t" << s.cpuB
      << "\n#sizes";
  for (unsigned size : s.sizes) out << "\t" << size;
  out << "\n#subjects";
  for (std::size_t i = 0; i < s.subjects.size(); ++i) out << "\t" << s.subjects[i] << "=" << s.labels[i];
  out << "\n";
  for (Run const& r : s.runs) {
    out << static_cast<int>(r.placement) << "\t" << r.subject << "\t" << static_cast<int>(r.metric) << "\t" << r.size
        << "\t" << r.rep << "\t" << r.ok;
    for (RoleResult const& x : r.side)
      out << "\t" << x.messages << "\t" << x.seconds << "\t" << x.rttMedianUs << "\t" << x.rttP99Us << "\t"
          << x.retries << "\t" << x.allocations << "\t" << x.notices;
    out << "\t" << r.failure << "\n";
  }
  return static_cast<bool>(out);
}

bool ReadRaw(std::string const& path, Session* s) {
  std::ifstream in(path);
  if (!in) return false;
  std::string line;
  std::map<std::string, std::string> labels;
  while (std::getline(in, line)) {
    std::vector<std::string> f;
    std::stringstream fields(line);
    std::string field;
    while (std::getline(fields, field, '\t')) f.push_back(field);
    if (f.empty()) continue;
    if (f[0][0] == '#') {
      std::string const rest = f.size() > 1 ? line.substr(f[0].size() + 1) : "";
      if (f[0] == "#command") s->command = rest;
      if (f[0] == "#machine") s->machine = rest;
      if (f[0] == "#compiler") s->compiler = rest;
      if (f[0] == "#date") s->date = rest;
      if (f[0] == "#settings") s->settings = rest;
      if (f[0] == "#cpus" && f.size() == 4) {
        s->oneCpu = std::stoi(f[1]);
        s->cpuA = std::stoi(f[2]);
        s->cpuB = std::stoi(f[3]);
      }
      if (f[0] == "#sizes")
        for (std::size_t i = 1; i < f.size(); ++i) s->sizes.push_back(static_cast<unsigned>(std::stoul(f[i])));
      if (f[0] == "#subjects") {
        for (std::size_t i = 1; i < f.size(); ++i) {
          std::size_t eq = f[i].find('=');
          s->subjects.push_back(f[i].substr(0, eq));
          s->labels.push_back(f[i].substr(eq + 1));
          labels[s->subjects.back()] = s->labels.back();
        }
      }
      continue;
    }
    if (f.size() < 20) continue;
    Run r;
    r.placement = static_cast<Placement>(std::stoi(f[0]));
    r.subject = f[1];
    r.label = labels[r.subject];
    r.metric = static_cast<Metric>(std::stoi(f[2]));
    r.size = static_cast<unsigned>(std::stoul(f[3]));
    r.rep = std::stoi(f[4]);
    r.ok = f[5] == "1";
    for (int side = 0; side < 2; ++side) {
      std::size_t const b = 6 + side * 7;
      RoleResult& x = r.side[side];
      x.ok = r.ok;
      x.messages = std::stoull(f[b]);
      x.seconds = std::stod(f[b + 1]);
      x.rttMedianUs = std::stod(f[b + 2]);
      x.rttP99Us = std::stod(f[b + 3]);
      x.retries = std::stoull(f[b + 4]);
      x.allocations = std::stoull(f[b + 5]);
      x.notices = std::stoull(f[b + 6]);
    }
    r.failure = f.size() > 20 ? f[20] : "";
    s->runs.push_back(r);
  }
  return true;
}

bool ReadCodec(std::string const& path, std::vector<CodecFigure>* figures) {
  std::ifstream in(path);
  if (!in) return false;
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::stringstream fields(line);
    CodecFigure c;
    std::getline(fields, c.name, '\t');
    fields >> c.medianNs >> c.minNs >> c.maxNs >> c.allocations;
    if (fields) figures->push_back(c);
  }
  return true;
}

bool WriteReport(Session const& s, std::string const& outDir, std::string const& dataDir) {
  Table const t(s);
  std::vector<Target> const targets = Targets(s, t);
  Placement const placements[] = {Placement::kOneCpu, Placement::kTwoCpus, Placement::kUnpinned};

  // results.json
  std::ofstream js(outDir + "/results.json");
  js << "{\n  \"command\": " << Quote(s.command) << ",\n  \"machine\": " << Quote(s.machine)
     << ",\n  \"compiler\": " << Quote(s.compiler) << ",\n  \"date\": " << Quote(s.date)
     << ",\n  \"settings\": " << Quote(s.settings) << ",\n  \"cpus\": {\"one_cpu\": " << s.oneCpu
     << ", \"two_cpus\": [" << s.cpuA << ", " << s.cpuB << "]},\n  \"records\": [";
  bool first = true;
  for (Placement p : placements) {
    for (std::size_t i = 0; i < s.subjects.size(); ++i) {
      for (MetricInfo const& m : kMetrics) {
        for (unsigned size : s.sizes) {
          Figure const* f = t.Get(p, s.subjects[i], m.key, size);
          if (!f) continue;
          js << (first ? "\n" : ",\n") << "    {\"placement\": \"" << PlacementKey(p) << "\", \"transport\": \""
             << s.subjects[i] << "\", \"label\": " << Quote(s.labels[i]) << ", \"metric\": \"" << m.key
             << "\", \"unit\": " << Quote(m.unit) << ", \"size\": " << size << ", \"median\": " << Json(f->median)
             << ", \"min\": " << Json(f->min) << ", \"max\": " << Json(f->max)
             << ", \"spread_pct\": " << Json(f->spread());
          if (m.ratio) js << ", \"ratio_to_floor\": " << Json(t.Ratio(p, s.subjects[i], "floor", m.key, size));
          js << ", \"runs\": [";
          for (std::size_t k = 0; k < f->runs.size(); ++k) js << (k ? ", " : "") << Json(f->runs[k]);
          js << "]}";
          first = false;
        }
      }
    }
  }
  js << "\n  ],\n  \"codec\": [";
  for (std::size_t i = 0; i < s.codec.size(); ++i) {
    CodecFigure const& c = s.codec[i];
    js << (i ? ",\n" : "\n") << "    {\"name\": " << Quote(c.name) << ", \"median_ns\": " << Json(c.medianNs)
       << ", \"min_ns\": " << Json(c.minNs) << ", \"max_ns\": " << Json(c.maxNs)
       << ", \"allocations\": " << Json(c.allocations) << "}";
  }
  js << "\n  ],\n  \"targets\": [";
  for (std::size_t i = 0; i < targets.size(); ++i)
    js << (i ? ",\n" : "\n") << "    {\"target\": " << Quote(targets[i].name)
       << ", \"holds\": " << (targets[i].holds ? "true" : "false") << ", \"detail\": " << Quote(targets[i].detail)
       << "}";
  int failed = 0;
  js << "\n  ],\n  \"failed_runs\": [";
  for (Run const& r : s.runs) {
    if (r.ok) continue;
    js << (failed++ ? ",\n" : "\n") << "    {\"placement\": \"" << PlacementKey(r.placement)
       << "\", \"transport\": \"" << r.subject << "\", \"metric\": \""
       << (r.metric == Metric::kThroughput ? "throughput" : "rtt") << "\", \"size\": " << r.size
       << ", \"failure\": " << Quote(r.failure) << "}";
  }
  js << "\n  ]\n}\n";

  // results.md
  std::ofstream md(outDir + "/results.md");
  md << "# Benchmark results\n\n"
     << "- Command: `" << s.command << "`\n- Machine: " << s.machine << "\n- Compiler: " << s.compiler
     << "\n- Date: " << s.date << "\n- Settings: " << s.settings << "\n\n"
     << "Every figure is the median over its runs; each run forks two fresh processes and checks every message "
        "(code, length, three sequence stamps). Ratios (xN) are to the protocol floor: the median over "
        "repetitions of the ratio between the two runs of a repetition, which are taken back to back; absolute "
        "times drift between sessions on shared machines, the ratios much less.\n\n";
  if (failed) md << "**" << failed << " runs failed and are left out of every figure; see results.json.**\n\n";

  md << "## Targets (both processes on one CPU)\n\n| Target | Holds | Figures |\n|---|---|---|\n";
  for (Target const& target : targets)
    md << "| " << target.name << " | " << (target.holds ? "yes" : "**no**") << " | " << target.detail << " |\n";
  md << "\n";

  for (Placement p : placements) {
    if (!t.Get(p, "floor", "msgs_per_s", s.sizes.front()) && !t.Get(p, "channel", "msgs_per_s", s.sizes.front()))
      continue;
    md << "## " << PlacementLabel(p) << "\n\n";
    md << "### One-way throughput, messages/s (ratio to the floor)\n\n";
    MdTable(md, s, t, p, "msgs_per_s", "floor");
    md << "### One-way throughput, MB/s of body\n\n";
    MdTable(md, s, t, p, "MB_per_s", nullptr);
    md << "### Round trip, median, microseconds (ratio to the floor)\n\n";
    MdTable(md, s, t, p, "rtt_median_us", "floor");
    md << "### Round trip, 99th percentile, microseconds (ratio to the floor)\n\n";
    MdTable(md, s, t, p, "rtt_p99_us", "floor");
    if (p == Placement::kOneCpu) {
      md << "### Overflow retries per message (shared-memory writers yield and retry on a full ring)\n\n";
      MdTable(md, s, t, p, "retries_per_msg", nullptr);
      md << "### Allocations per message: writer / reader (throughput runs)\n\n";
      MdTable(md, s, t, p, "allocs_per_msg_sender", nullptr);
      MdTable(md, s, t, p, "allocs_per_msg_receiver", nullptr);
      md << "### Allocations per round trip: initiator / responder\n\n";
      MdTable(md, s, t, p, "allocs_per_rt_initiator", nullptr);
      MdTable(md, s, t, p, "allocs_per_rt_responder", nullptr);
    }
  }

  if (!s.codec.empty()) {
    md << "## Codec micro-benchmarks (one process, Google Benchmark, median of repetitions)\n\n"
       << "| Benchmark | ns | min | max | allocations |\n|---|---:|---:|---:|---:|\n";
    for (CodecFigure const& c : s.codec)
      md << "| " << c.name << " | " << Num(c.medianNs) << " | " << Num(c.minNs) << " | " << Num(c.maxNs) << " | "
         << Num(c.allocations) << " |\n";
    md << "\n";
  }

  WriteChartData(s, t, dataDir);
  bool all = true;
  for (Target const& target : targets) all = all && target.holds;
  return all;
}

}  // namespace bench
