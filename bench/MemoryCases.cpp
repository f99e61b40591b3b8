/// What a kick needs of memory: the peak of the first kick above what the process held when the
/// configuration stood, per rule. Each set has a process of its own.

#include "Apart.h"
#include "Cases.h"
#include "Pipeline.h"
#include "input/ChipReader.h"

#include <cstdio>
#include <fstream>
#include <malloc.h>
#include <stdexcept>

namespace Bench {

namespace {

/// A line of /proc/self/status, in bytes.
double statusBytes(std::string const& name) {
  std::ifstream in("/proc/self/status");
  for (std::string word; in >> word;) {
    if (word != name + ":") continue;
    double kilobytes = 0;
    in >> kilobytes;
    return kilobytes * 1024;
  }
  return 0;
}

struct Memory {
  double configuration = 0;                ///< resident before the kick
  double peak = 0;                         ///< during the kick
  double after = 0;                        ///< resident with the tables in force
  char failure[160] = "the process died";  ///< empty after success
};

Memory measure(RuleSource const& source) {
  Memory out;
  double const empty = statusBytes("VmRSS");
  auto const acls = build(source);
  Pipeline pipeline(acls, NaxelTool::defaultChip().capability);
  malloc_trim(0);
  std::ofstream("/proc/self/clear_refs") << 5;  // the peak counts from here
  double const before = statusBytes("VmRSS");
  pipeline.kick();
  out.configuration = before - empty;
  out.peak = statusBytes("VmHWM") - before;
  out.after = statusBytes("VmRSS") - before;
  out.failure[0] = 0;
  return out;
}

Memory measureApart(RuleSource const& source) {
  malloc_trim(0);
  Memory out;
  runApart(out, [&](Memory& memory) {
    try {
      memory = measure(source);
    } catch (std::exception const& e) {
      std::snprintf(memory.failure, sizeof memory.failure, "%s", e.what());
    }
  });
  if (*out.failure) throw std::runtime_error(out.failure);
  return out;
}

}  // namespace

void addMemoryCases(std::vector<RuleSource> const& sources) {
  for (RuleSource const& source : sources)
    addCase("memory", source.name, 1, [source](benchmark::State& state) {
      Memory const memory = measureApart(source);
      auto const rules = static_cast<double>(source.rules);
      state.counters["rules"] = rules;
      state.counters["configuration"] = memory.configuration / rules;
      state.counters["peak"] = memory.peak / rules;
      state.counters["after"] = memory.after / rules;
      return 0.0;
    });
}

}  // namespace Bench
