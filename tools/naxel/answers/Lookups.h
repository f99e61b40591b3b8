#pragma once

/// What the chip looks up for one packet: field by field what goes into a table, which of its entries
/// matches, and which label comes out; then the combinations of labels.

#include "naxel/loader/PDData.h"
#include "verify/MatchKey.h"
#include "verify/Packet.h"

#include <optional>
#include <string>
#include <vector>

namespace NaxelTool {

struct LookupStep {
  Verify::Field field;
  std::string input;              ///< "198.51.100.7", "443", "source 4, destination 1"
  bool raw = false;               ///< the field has no table: its value itself is compared
  std::string matched;            ///< "198.51.100.0/24", "8000-8099"; empty where nothing matches
  std::optional<uint16_t> label;  ///< what the match key has; none where nothing matches
};

/// The steps of all fields that have a place in the match key, combinations last. `labels` is what the chip
/// made of the packet with the same tables. Takes time in proportion to the tables.
std::vector<LookupStep> lookupsOf(Naxel::PDData const& data, Verify::Packet const& packet,
                                  Verify::Labels const& labels);

}  // namespace NaxelTool
