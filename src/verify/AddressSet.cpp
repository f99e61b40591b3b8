#include "verify/AddressSet.h"

#include <algorithm>
#include <iterator>

namespace Verify {

namespace {

std::vector<Interval> widestOf(Naxel::IpPrefixList::PrefixColl const& prefixes,
                               Lumox::AddressFamily af) {
  std::vector<Interval> all;
  for (auto const& p : prefixes)
    // A prefix of the other family would be an interval of the same number line, and must not be taken for
    // one of this family.
    if (p.af() == af) all.push_back(intervalOf(p));
  // Two prefixes are disjoint or one lies in the other, so the wider one comes first and covers
  // what follows it.
  std::sort(all.begin(), all.end(), [](Interval const& a, Interval const& b) {
    return a.first != b.first ? a.first < b.first : b.last < a.last;
  });
  std::vector<Interval> widest;
  for (Interval const& i : all)
    if (widest.empty() || widest.back().last < i.first) widest.push_back(i);
  return widest;
}

bool within(std::vector<Interval> const& list, Address a) {
  auto const above = std::upper_bound(list.begin(), list.end(), a,
                                      [](Address v, Interval const& i) { return v < i.first; });
  return above != list.begin() && std::prev(above)->contains(a);
}

}  // namespace

AddressSet::AddressSet(Naxel::IpPrefixList const* list, Lumox::AddressFamily af)
    : any_(list == nullptr) {
  if (!list) return;
  addr_ = widestOf(list->addr(), af);
  except_ = widestOf(list->exceptAddr(), af);
}

bool AddressSet::contains(Address a) const {
  return any_ || (within(addr_, a) && !within(except_, a));
}

}  // namespace Verify
