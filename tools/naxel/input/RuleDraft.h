#pragma once

/// A rule as a reader has understood it, before it has a place in an ACL: some formats tell only by all
/// entries together in which order they stand and for which address families.

#include "naxel/types/AclConfig.h"

#include <array>
#include <vector>

namespace NaxelTool {

struct RuleDraft {
  using Ranges = std::vector<Naxel::Range>;

  Mox::Ptr<Naxel::IpPrefixList> source;  ///< null where it does not matter or matches all
  Mox::Ptr<Naxel::IpPrefixList> destination;
  std::array<Ranges, Naxel::rangeFieldCount> ranges;  ///< empty where the field does not matter
  bool tcpInit = false;
  bool tcpEstablished = false;
  Naxel::NaxelActionValue action;
  bool continueRule = false;

  Ranges& of(Naxel::RangeSetType type) { return ranges[static_cast<size_t>(type)]; }
  Ranges const& of(Naxel::RangeSetType type) const { return ranges[static_cast<size_t>(type)]; }
  void valueIs(Naxel::RangeSetType type, uint32_t value) { of(type) = {{value, value}}; }

  /// Writes it into a rule that says nothing yet. Ranges that contain every value are left out.
  void fill(Naxel::RuleConfig& rule) const;
};

/// An entry that looks at ports or ICMP types must not be decided by their absence: what a packet lacks
/// counts as 0, so that one whose values all contain 0 would match every later fragment. It gets offset 0.
/// Returns false where that leaves nothing to match.
bool keepToFirstFragments(RuleDraft& draft);

/// The values that are in both: at most as many ranges as the product of the two numbers.
RuleDraft::Ranges common(RuleDraft::Ranges const& a, RuleDraft::Ranges const& b);

}  // namespace NaxelTool
