/// First kicks by both label codes, one after the other in the same sample.

#include "Cases.h"
#include "Pipeline.h"
#include "input/ChipReader.h"

namespace Bench {

namespace {

double bothCodes(RuleSource const& source, benchmark::State& state) {
  auto const measure = [&](Acl::LabelCode code) {
    auto const acls = build(source);
    Pipeline pipeline(acls, NaxelTool::defaultChip().capability);
    pipeline.labelCodeIs(code);
    double const seconds = pipeline.kick();
    return std::pair(seconds, static_cast<double>(pipeline.entries()));
  };
  auto const [alignedSeconds, alignedEntries] = measure(Acl::LabelCode::aligned);
  auto const [seconds, entries] = measure(Acl::LabelCode::compact);
  auto const rules = static_cast<double>(source.rules);
  state.counters["rules"] = rules;
  state.counters["alignedPerRule"] = alignedEntries / rules;
  state.counters["perRule"] = entries / rules;
  state.counters["aligned"] = alignedSeconds * 1e3;
  state.counters["ratio"] = seconds / alignedSeconds;
  return seconds;
}

}  // namespace

void addCodeCases(std::vector<RuleSource> const& sources) {
  for (RuleSource const& source : sources)
    addCase("codes", source.name, 1,
            [source](benchmark::State& state) { return bothCodes(source, state); });
}

}  // namespace Bench
