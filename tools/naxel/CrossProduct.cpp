#include "CrossProduct.h"

#include "Intervals.h"

#include <type_traits>

namespace NaxelTool {

namespace {
constexpr uint64_t most = ~uint64_t{0};

uint64_t product(uint64_t a, uint64_t b) {
  uint64_t out = 0;
  return __builtin_mul_overflow(a, b, &out) ? most : out;
}
uint64_t sum(uint64_t a, uint64_t b) {
  uint64_t out = 0;
  return __builtin_add_overflow(a, b, &out) ? most : out;
}
}  // namespace

uint64_t CrossProduct::entries(Naxel::RuleConfig const& rule) {
  Mox::Ptr<Naxel::RuleFilter> const& filter = rule.ruleFilter();
  if (!filter) return 1;
  uint64_t out = 1;
  for (Mox::Ptr<Naxel::IpPrefixList> const& list : {filter->source(), filter->destination()})
    if (list) out = product(out, listSize(*list));
  filter->forEachRangeColl([&](auto const& ranges) {
    using Range = typename std::remove_cvref_t<decltype(ranges)>::value_type;
    if (!ranges.empty()) out = product(out, coverSize(valuesOf(ranges), rangeBits<Range>()));
  });
  return out;
}

uint64_t CrossProduct::entries(Naxel::AclConfig const& acl) {
  uint64_t out = 0;
  for (auto const& [index, rule] : acl.ruleById()) out = sum(out, entries(*rule));
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
