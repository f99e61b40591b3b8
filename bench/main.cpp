/// naxel_bench: takes the options of Google Benchmark, and prints its medians as tables.

#include "Cases.h"
#include "Report.h"
#include "naxel/types/NaxelTrace.h"

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>

namespace {

/// The files of the folder that the variable NAXEL_BENCH_PREFIXES names.
std::vector<std::string> prefixFiles() {
  std::vector<std::string> out;
  char const* const folder = std::getenv("NAXEL_BENCH_PREFIXES");
  if (!folder || !*folder) return out;
  for (auto const& entry : std::filesystem::directory_iterator(folder))
    if (entry.is_regular_file()) out.push_back(entry.path().string());
  std::sort(out.begin(), out.end());
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  try {
    Naxel::naxelTrace().levelIs(-1);  // the report says why a kick failed
    std::vector<Bench::RuleSource> const sources = Bench::allSources();
    Bench::addMemoryCases(sources);
    Bench::addKickCases(sources);
    std::vector<Bench::RuleSource> codeSources = sources;
    for (Bench::RuleSource& source : Bench::crossingSources())
      codeSources.push_back(std::move(source));
    Bench::addCodeCases(codeSources);
    Bench::addChangeCases(sources);
    Bench::addChurnCases(codeSources);
    Bench::addComboCases(sources);
    Bench::addListCases(prefixFiles());
    Bench::addCraftedCases();
    Bench::Report report;
    benchmark::RunSpecifiedBenchmarks(&report);
    benchmark::Shutdown();
    return 0;
  } catch (std::exception const& e) {
    std::cerr << "naxel_bench: error: " << e.what() << '\n';
    return 2;
  }
}
