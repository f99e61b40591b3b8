#include "naxel/genset/RuleContent.h"

#include "naxel/types/RuleHash.h"

namespace Naxel {

namespace {

/// The list that a set was built from, as it was then; null for no set and for one that is not there.
IpPrefixList const* listOf(AggregatorStatus const& status, PrefixXformKey const& key,
                           GenSetKey set) {
  if (!set) return nullptr;
  auto const known = status.prefixInfo(key)->prefixSetColl(set);
  return known ? known->prefixList().get() : nullptr;  // the set stays in its collection
}

}  // namespace

RuleFilter const& filterOf(RuleConfig const& rule) {
  static RuleFilter const none;
  return rule.ruleFilter() ? *rule.ruleFilter() : none;
}

bool saysTheSame(AggregatorStatus const& status, IpPrefixList const* list,
                 PrefixXformKey const& key, GenSetKey set) {
  if (!list || !set) return !list && !set;
  IpPrefixList const* const known = listOf(status, key, set);
  return known && known->isEqual(*list);
}

bool saysTheSame(AggregatorStatus const& status, RuleConfig const& config, Lumox::AddressFamily af,
                 GenSetIpRule const& rule) {
  RuleFilter const& filter = filterOf(config);
  if (config.name() != rule.name() || config.action() != rule.action() ||
      filter.matchTcpInit() != rule.matchTcpInit() ||
      filter.matchTcpEstablished() != rule.matchTcpEstablished())
    return false;
  if (!saysTheSame(status, filter.source().get(), PrefixXformKey(af, true), rule.source()) ||
      !saysTheSame(status, filter.destination().get(), PrefixXformKey(af, false),
                   rule.destination()))
    return false;
  bool same = true;
  filter.forEachRangeColl([&](RangeSetType type, auto const& ranges) {
    same = same && saysTheSame(status, ranges, type, rule.range(type));
  });
  return same;
}

uint64_t contentHash(AggregatorStatus const& status, Lumox::AddressFamily af,
                     GenSetIpRule const& rule) {
  FilterHash hash(rule.matchTcpInit(), rule.matchTcpEstablished());
  for (RangeSetType type : allRangeSetTypes())
    if (auto const set = status.rangeSplitInfo(type)->rangeSetColl(rule.range(type)))
      hash.ranges(
          type, set->range(), [](RangeSetElem const& e) { return e.first(); },
          [](RangeSetElem const& e) { return e.last(); });
  return ruleHash(rule.name(), rule.action(),
                  hash.finish(listOf(status, PrefixXformKey(af, true), rule.source()),
                              listOf(status, PrefixXformKey(af, false), rule.destination())));
}

}  // namespace Naxel
