#pragma once

/// What the benchmarks have in common: how they are registered, and what names the report reads.
///
/// Every benchmark is named KIND/SET. Its time is that of one sample; what it measures besides are
/// counters, of which the report takes the medians like those of the times.

#include "RuleSource.h"

#include <functional>
#include <string>

#include <benchmark/benchmark.h>

namespace Bench {

/// Registers the benchmarks of each file. Those of memory must run first: what others have freed would
/// be used again without being counted.
void addMemoryCases(std::vector<RuleSource> const& sources);
void addKickCases(std::vector<RuleSource> const& sources);
void addChangeCases(std::vector<RuleSource> const& sources);
void addChurnCases(std::vector<RuleSource> const& sources);
void addCodeCases(std::vector<RuleSource> const& sources);
/// One list of all prefixes of a file; without files, of random prefixes.
void addListCases(std::vector<std::string> const& prefixFiles);
void addComboCases(std::vector<RuleSource> const& sources);
void addCraftedCases();

/// Registers KIND/SET with `samples` samples per repetition. `sample` returns the seconds that count;
/// where it throws, the benchmark ends with that reason.
void addCase(std::string const& kind, std::string const& set, int samples,
             std::function<double(benchmark::State&)> sample);

}  // namespace Bench
