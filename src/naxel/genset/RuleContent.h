#pragma once

/// What a rule says, told from the sets that it was compiled into.

#include "naxel/genset/NaxelAggregatorTypes.h"

#include <algorithm>

namespace Naxel {

/// Whether a list has the content that a set was built from; no list is as no set. The sets are those of the
/// aggregator's output, as in all of the following.
bool saysTheSame(AggregatorStatus const& status, IpPrefixList const* list,
                 PrefixXformKey const& key, GenSetKey set);

/// Whether ranges of a filter are those of a set; none are as no set.
template <class Ranges>
bool saysTheSame(AggregatorStatus const& status, Ranges const& ranges, RangeSetType type,
                 GenSetKey key) {
  if (ranges.empty() || !key) return ranges.empty() && !key;
  auto const set = status.rangeSplitInfo(type)->rangeSetColl(key);
  return set && ranges.size() == set->range().size() &&
         std::equal(ranges.begin(), ranges.end(), set->range().begin(),
                    [](auto const& r, RangeSetElem const& e) {
                      return r.rangeStart() == e.first() && r.rangeEnd() == e.last();
                    });
}

/// Whether a rule says what another one said when that was made of it.
bool saysTheSame(AggregatorStatus const& status, RuleConfig const& config, Lumox::AddressFamily af,
                 GenSetIpRule const& rule);

/// What RuleConfig::contentHash() was of the rule as it was compiled.
uint64_t contentHash(AggregatorStatus const& status, Lumox::AddressFamily af,
                     GenSetIpRule const& rule);

/// The filter of a rule; an empty one where it has none.
RuleFilter const& filterOf(RuleConfig const& rule);

}  // namespace Naxel
