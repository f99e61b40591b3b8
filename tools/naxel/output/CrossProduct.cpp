#include "output/CrossProduct.h"

#include "input/Intervals.h"
#include "mox/Bounded.h"

namespace NaxelTool {

using Mox::boundedProduct;

uint64_t CrossProduct::entries(Naxel::RuleConfig const& rule) {
  Mox::Ptr<Naxel::RuleFilter> const& filter = rule.ruleFilter();
  if (!filter) return 1;
  uint64_t out = 1;
  for (Mox::Ptr<Naxel::IpPrefixList> const& list : {filter->source(), filter->destination()})
    if (list) out = boundedProduct(out, listSize(*list));
  filter->forEachRangeColl([&](Naxel::RangeSetType type, auto const& ranges) {
    if (!ranges.empty())
      out = boundedProduct(out, coverSize(valuesOf(ranges), Naxel::rangeField(type).bits));
  });
  return out;
}

uint64_t CrossProduct::entries(Naxel::AclConfig const& acl) {
  uint64_t out = 0;
  for (auto const& [index, rule] : acl.ruleById()) out = Mox::boundedSum(out, entries(*rule));
  return out;
}

uint64_t CrossProduct::listSize(Naxel::IpPrefixList const& list) {
  auto const [at, isNew] = listSize_.try_emplace(&list, 0);
  if (isNew) {
    unsigned const bits = list.addr().empty() ? 32 : bitsOf(list.addr().begin()->af());
    at->second = coverSize(addressesOf(list), bits);
  }
  return at->second;
}

}  // namespace NaxelTool
