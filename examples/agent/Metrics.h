#pragma once

/// What an operator watches, as a page that Prometheus scrapes.

#include "naxel/agent/Agent.h"

#include <iosfwd>
#include <vector>

namespace ExampleAgent {

/// What is known of a chip beside what its pipeline says.
struct ChipReport {
  Naxel::Pipeline const* pipeline;
  uint64_t rowsWritten;
};

/// Writes the page: counters of kicks by outcome, the last kick and its stages in seconds, rows of tables,
/// labels in use and what there are, the policy in force, and whether the chip is waited for.
void writeMetrics(std::ostream& out, std::vector<ChipReport> const& chips);

}  // namespace ExampleAgent
