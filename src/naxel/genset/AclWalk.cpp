#include "naxel/genset/AclWalk.h"

namespace Naxel {

AclWalk::AclWalk(AclConfig const& acl) : acl_(&acl) {
  named_.reserve(acl.ruleByName().size());
  acl.ruleByName().forEach([&](auto const& item) {
    item.second->walkPlaceIs(static_cast<uint32_t>(named_.size()));
    named_.push_back(item.second.get());
  });
  indexed_.reserve(acl.ruleById().size());
  acl.ruleById().forEach([&](auto const& item) {
    RuleConfig const* const rule = item.second.get();
    uint32_t const place = placeIn(named_.size(), rule, [&](uint32_t at) { return named_[at]; });
    indexed_.push_back({item.first, place, rule});
  });
}

std::vector<AclWalk> walkAcls(AclConfigColl const& coll) {
  std::vector<AclWalk> walks;
  walks.reserve(coll.acl().size());
  for (auto const& [name, acl] : coll.acl()) walks.emplace_back(*acl);
  return walks;
}

}  // namespace Naxel
