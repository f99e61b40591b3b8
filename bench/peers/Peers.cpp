/// Times the first kick and librte_acl's build over the same rule sets, by turns in one process per
/// set, and prints how they compare.
///
///   naxel_bench_peers [-m MEGABYTES] [FILES...]
///
/// Without files: the sets of bench/RuleSource.h.

#include "Apart.h"
#include "DpdkAcl.h"
#include "Pipeline.h"
#include "RuleSource.h"
#include "input/ChipReader.h"
#include "naxel/types/NaxelTrace.h"
#include "output/TextTable.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <sys/resource.h>

namespace Bench {
namespace {

/// What a set's process tells its parent. A time of 0 means that there is none, for the reason given.
struct Outcome {
  double kick = 0;
  double peer = 0;
  size_t entries = 0;
  char kickFailure[160] = {};
  char peerFailure[160] = {};
};

double median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  size_t const middle = values.size() / 2;
  return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

/// Runs `sample`; keeps its seconds or the reason why there are none.
template <class Sample>
void take(std::vector<double>& to, char (&failure)[160], Sample sample) {
  if (*failure) return;
  try {
    to.push_back(sample());
  } catch (std::exception const& e) {
    std::snprintf(failure, sizeof failure, "%s", e.what());
  }
}

Outcome measure(RuleSource const& source, char const* program, unsigned megabytes) {
  Outcome out;
  std::vector<double> kicks;
  std::vector<double> peers;
  auto const capability = NaxelTool::defaultChip().capability;
  startDpdk(program, megabytes);
  size_t const runs = source.rules > 20000 ? 2 : source.rules > 2000 ? 3 : 5;
  for (size_t run = 0; run < runs; ++run) {
    auto const acls = build(source);
    take(kicks, out.kickFailure, [&] {
      Pipeline pipeline(acls, capability);
      double const seconds = pipeline.kick();
      out.entries = pipeline.entries();
      return seconds;
    });
    take(peers, out.peerFailure, [&] { return DpdkAcl(fiveTuples(*acls)).build(); });
  }
  out.kick = median(kicks);
  out.peer = median(peers);
  return out;
}

/// Measures in a process of its own, whose memory is limited: building may take more than there is.
Outcome measureApart(RuleSource const& source, char const* program, unsigned megabytes) {
  Outcome out;
  bool const complete = runApart(out, [&](Outcome& outcome) {
    // Half for what DPDK reserves, half for what it needs while it builds.
    rlim_t const bytes = rlim_t{megabytes} * 2 << 20;
    rlimit const limit{bytes, bytes};
    setrlimit(RLIMIT_AS, &limit);
    try {
      outcome = measure(source, program, megabytes);
    } catch (std::exception const& e) {
      std::snprintf(outcome.peerFailure, sizeof outcome.peerFailure, "%s", e.what());
    }
  });
  if (!complete)
    std::snprintf(out.peerFailure, sizeof out.peerFailure, "the process died while building");
  return out;
}

std::string milliseconds(double seconds) {
  return seconds > 0 ? NaxelTool::fixed(seconds * 1e3, 1) : "-";
}

int run(int argc, char** argv) {
  unsigned megabytes = 8192;
  std::vector<RuleSource> sources;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "-m") == 0 && i + 1 < argc)
      megabytes = static_cast<unsigned>(std::stoul(argv[++i]));
    else
      sources.push_back(fileSource(argv[i]));
  }
  if (sources.empty()) sources = allSources();
  // Only these consist of 5-tuples.
  std::erase_if(sources, [](RuleSource const& s) { return !s.text->starts_with('@'); });
  Naxel::naxelTrace().levelIs(-1);  // the table says why a kick failed

  std::vector<std::vector<std::string>> rows = {
      {"set", "rules", "entries", "kick ms", "rte_acl_build ms", "kick / build"}};
  std::vector<std::string> remarks;
  double logarithms = 0;
  size_t compared = 0;
  for (RuleSource const& source : sources) {
    std::cerr << source.name << "...\n";
    Outcome const out = measureApart(source, argv[0], megabytes);
    bool const both = out.kick > 0 && out.peer > 0;
    if (both) {
      logarithms += std::log(out.kick / out.peer);
      ++compared;
    }
    rows.push_back({source.name, std::to_string(source.rules), std::to_string(out.entries),
                    milliseconds(out.kick), milliseconds(out.peer),
                    both ? NaxelTool::fixed(out.kick / out.peer, 3) : "-"});
    for (char const* failure : {out.kickFailure, out.peerFailure})
      if (*failure) remarks.push_back(source.name + ": " + failure);
  }
  NaxelTool::printTable(std::cout, rows, 1);
  for (std::string const& remark : remarks) std::cout << remark << '\n';
  if (compared)
    std::cout << "geometric mean of kick / build over " << compared << " sets: "
              << NaxelTool::fixed(std::exp(logarithms / static_cast<double>(compared)), 3) << '\n';
  return 0;
}

}  // namespace
}  // namespace Bench

int main(int argc, char** argv) {
  try {
    return Bench::run(argc, argv);
  } catch (std::exception const& e) {
    std::cerr << "naxel_bench_peers: error: " << e.what() << '\n';
    return 2;
  }
}
