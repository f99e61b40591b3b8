/// naxel_bench: takes the options of Google Benchmark, and prints its medians as tables.

#include "Cases.h"
#include "Report.h"

#include <exception>
#include <iostream>

namespace {

/// Each set as it is, and those of about 60,000 rules and more cut to smaller sizes besides.
std::vector<Bench::RuleSource> withCuts(std::vector<Bench::RuleSource> sources) {
  size_t const whole = sources.size();
  for (size_t i = 0; i < whole; ++i)
    if (sources[i].rules >= 55000)
      for (size_t const rules : {1000, 10000, 30000, 60000})
        sources.push_back(Bench::cut(sources[i], rules));
  return sources;
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  try {
    Bench::addKickCases(withCuts(Bench::allSources()));
    Bench::Report report;
    benchmark::RunSpecifiedBenchmarks(&report);
    benchmark::Shutdown();
    return 0;
  } catch (std::exception const& e) {
    std::cerr << "naxel_bench: error: " << e.what() << '\n';
    return 2;
  }
}
