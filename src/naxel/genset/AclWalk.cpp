#include "naxel/genset/AclWalk.h"

namespace Naxel {

AclWalk::AclWalk(AclConfig const& acl) : acl_(&acl) {
  named_.reserve(acl.ruleByName().size());
  stamps_.reserve(acl.ruleByName().size());
  for (auto const& [name, rule] : acl.ruleByName()) {
    named_.push_back(rule.get());
    stamps_.push_back(rule->stamps());
  }

  // Agents mostly fill both collections in the same order, so the search begins behind the rule found
  // last; the first rule that is not there makes a table of all.
  Mox::HashMap<RuleConfig const*, uint32_t> places;
  uint32_t next = 0;
  auto const placeOf = [&](RuleConfig const* rule) {
    if (next < named_.size() && named_[next] == rule) return next++;
    if (places.empty()) {
      places.reserve(named_.size());
      for (uint32_t i = 0; i < named_.size(); ++i) places.set(named_[i], i);
    }
    uint32_t const* place = places.get(rule);
    if (!place) return none;
    next = *place + 1;
    return *place;
  };
  indexed_.reserve(acl.ruleById().size());
  acl.ruleById().forEach([&](auto const& item) {
    indexed_.push_back({item.first, placeOf(item.second.get()), item.second.get()});
  });
}

std::vector<AclWalk> walkAcls(AclConfigColl const& coll) {
  std::vector<AclWalk> walks;
  walks.reserve(coll.acl().size());
  for (auto const& [name, acl] : coll.acl()) walks.emplace_back(*acl);
  return walks;
}

}  // namespace Naxel
