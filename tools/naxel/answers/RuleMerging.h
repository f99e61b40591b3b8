#pragma once

/// Neighbouring rules of one action as one rule with a longer list or with more ranges.

#include "naxel/types/AclConfig.h"

#include <functional>
#include <string>
#include <vector>

namespace NaxelTool {

struct MergedRule {
  Naxel::AceIndex rule;  ///< is gone
  Naxel::AceIndex into;  ///< has its packets now
  std::string field;     ///< in which the two differed
};

/// Neighbours with the same number were one entry in their source.
using EntryOf = std::function<uint64_t(Naxel::AceIndex)>;
/// Rules that nothing is merged into, and that are merged into nothing.
using StaysAlone = std::function<bool(Naxel::AceIndex)>;

/// Merges each entry into the one before it where both have as many rules, all of one action, and these differ in
/// one field alone: in the prefixes of a side, or in the ranges of a field. What is left of several keeps indexes,
/// names and place of the first one. Without `entryOf` each rule is an entry. Returns what has gone, by
/// index. Lists cost what they hold, a field the ranges that it comes to for each rule merged.
std::vector<MergedRule> mergeNeighbours(Naxel::AclConfig& acl, EntryOf const& entryOf = nullptr,
                                        StaysAlone const& staysAlone = nullptr);

}  // namespace NaxelTool
