#pragma once

/// What may be wrong in a chip whose packets do not meet what they should: models of usual mistakes, each told
/// by whether it explains everything that was seen.

#include "naxel/testing/DriverConformance.h"
#include "verify/MatchKey.h"

#include <span>

namespace Naxel::Testing {

/// A packet, what it should meet, and what it has met.
struct Observation {
  PDAclKey key;
  Verify::Packet packet;
  Verify::Verdict want;
  Met met;
};

/// True if a packet that ought to meet this verdict may have met that, as far as the chip tells.
bool agrees(Met const& met, Verify::Verdict const& verdict);

struct Diagnosis {
  Rule rule = Rule::lookup;
  std::string words;  ///< "as if ...", a clause; empty where nothing explains it
  std::optional<PDTable> table;
};

/// Which mistake explains all observations over the output in force. `earlier` are outputs that were in force
/// before, the last one last.
Diagnosis diagnose(PDData const& inForce, std::span<Mox::Ptr<PDData const> const> earlier,
                   std::vector<Observation> const& all);

}  // namespace Naxel::Testing
