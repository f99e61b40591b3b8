#include "verify/RuleHull.h"

#include <algorithm>

namespace Verify {

namespace {

Interval hullOfList(Naxel::IpPrefixList const* list, Lumox::AddressFamily af) {
  AddressSet const set(list, af);
  if (set.any()) return {Address{}, Address{~uint64_t{0}, ~uint64_t{0}}};
  // An empty set meets nothing: the interval ends before it begins.
  if (set.addr().empty()) return {Address{~uint64_t{0}, ~uint64_t{0}}, Address{}};
  return {set.addr().front().first, set.addr().back().last};
}

}  // namespace

RuleHull::RuleHull(Naxel::RuleFilter const* filter, Lumox::AddressFamily af)
    : address{hullOfList(filter ? filter->source().get() : nullptr, af),
              hullOfList(filter ? filter->destination().get() : nullptr, af)} {
  for (size_t type = 0; type < value.size(); ++type)
    value[type] = {0, Naxel::rangeFields[type].bound()};
  if (!filter) return;
  filter->forEachRangeColl([&](Naxel::RangeSetType type, auto const& ranges) {
    if (ranges.empty()) return;
    Span span{~uint32_t{0}, 0};
    for (auto const& r : ranges)
      span = {std::min<uint32_t>(span.first, r.rangeStart()),
              std::max<uint32_t>(span.last, r.rangeEnd())};
    value[static_cast<size_t>(type)] = span;
  });
}

bool RuleHull::meets(RuleHull const& other) const {
  for (size_t side = 0; side < address.size(); ++side)
    if (other.address[side].last < address[side].first ||
        address[side].last < other.address[side].first)
      return false;
  for (size_t type = 0; type < value.size(); ++type)
    if (other.value[type].last < value[type].first || value[type].last < other.value[type].first)
      return false;
  return true;
}

}  // namespace Verify
