#include "naxel/genset/NaxelAggregatorTypes.h"

namespace Naxel {

Mox::AttributeTable const& AggregatorConfig::attributeTable() const {
  static Mox::AttributeTable const table =
      Mox::joinTables(StageConfig::attributeTable(),
                      {Mox::attribute<&AggregatorConfig::aclConfigColl_>("aclConfigColl")});
  return table;
}

Mox::Ptr<AggregatorConfig> aggregatorConfigFactory(Mox::Ptr<AclConfigColl const> aclConfigColl) {
  return Mox::makePtr<AggregatorConfig>(std::move(aclConfigColl));
}

Mox::AttributeTable const& PrefixAggregatorInfo::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&PrefixAggregatorInfo::prefixXformKey_>("prefixXformKey"),
      Mox::attribute<&PrefixAggregatorInfo::prefixSetColl_>("prefixSetColl")};
  return table;
}

Mox::Ptr<PrefixSet> PrefixAggregatorInfo::prefixSetCollIs(GenSetKey key) {
  return Mox::lookupOrMake(prefixSetColl_, key, [&] { return Mox::makePtr<PrefixSet>(key); });
}

Mox::AttributeTable const& RangeSplitAggregatorInfo::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&RangeSplitAggregatorInfo::setType_>("setType"),
      Mox::attribute<&RangeSplitAggregatorInfo::rangeSetColl_>("rangeSetColl")};
  return table;
}

Mox::Ptr<RangeSet> RangeSplitAggregatorInfo::rangeSetCollIs(GenSetKey key, RangeSetType type) {
  return Mox::lookupOrMake(rangeSetColl_, key, [&] { return Mox::makePtr<RangeSet>(key, type); });
}

Mox::AttributeTable const& GenSetIpRule::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&GenSetIpRule::name_>("name"),
      Mox::attribute<&GenSetIpRule::source_>("source"),
      Mox::attribute<&GenSetIpRule::destination_>("destination"),
      Mox::attribute<&GenSetIpRule::sport>("sport"),
      Mox::attribute<&GenSetIpRule::dport>("dport"),
      Mox::attribute<&GenSetIpRule::icmpType>("icmpType"),
      Mox::attribute<&GenSetIpRule::proto>("proto"),
      Mox::attribute<&GenSetIpRule::length>("length"),
      Mox::attribute<&GenSetIpRule::fragment>("fragment"),
      Mox::attribute<&GenSetIpRule::dscp>("dscp"),
      Mox::attribute<&GenSetIpRule::matchTcpInit_>("matchTcpInit"),
      Mox::attribute<&GenSetIpRule::matchTcpEstablished_>("matchTcpEstablished"),
      Mox::attribute<&GenSetIpRule::action_>("action")};
  return table;
}

Mox::Ptr<GenSetIpRule> const* GenSetIpRuleColl::find(std::string const& name) const {
  if (index_.empty() && !rules_.empty()) {
    // In the index when all of them are there: a partial one would hide rules.
    Mox::HashTable<Place, NameOfPlace> index;
    index.reserve(rules_.size());
    for (uint32_t place = 0; place < rules_.size(); ++place)
      index.insert({rules_[place].get(), place});
    index_ = std::move(index);
  }
  Place const* const known = index_.find(name);
  return known ? &rules_[known->place] : nullptr;
}

bool GenSetIpRuleColl::erase(std::string const& name) {
  Mox::Ptr<GenSetIpRule> const* const rule = find(name);
  if (!rule) return false;
  rules_.erase(rules_.begin() + (rule - rules_.data()));
  index_.clear();
  return true;
}

Mox::AttributeTable const& AclGenSetIpRuleList::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&AclGenSetIpRuleList::name_>("name"),
      Mox::attribute<&AclGenSetIpRuleList::af_>("af"),
      Mox::attribute<&AclGenSetIpRuleList::genSetIpRule_>("genSetIpRule"),
      Mox::attribute<&AclGenSetIpRuleList::genSetIpRuleById_>("genSetIpRuleById")};
  return table;
}

Mox::Ptr<GenSetIpRule> AclGenSetIpRuleList::genSetIpRuleIs(std::string const& name) {
  if (auto const* known = genSetIpRule_.find(name)) return *known;
  auto rule = Mox::makePtr<GenSetIpRule>(name);
  genSetIpRule_.add(rule);
  return rule;
}

void AggregatorStatus::handleInitialized() {
  for (PrefixXformKey const& key : PrefixXformKey::all())
    prefixInfo_.set(key, Mox::makePtr<PrefixAggregatorInfo>(key));
  for (RangeSetType type : allRangeSetTypes())
    rangeSplitInfo_.set(type, Mox::makePtr<RangeSplitAggregatorInfo>(type));
  genSetUsageInfo_ = Mox::makePtr<GenSetUsageInfo>();
  initialized_ = true;
}

Mox::AttributeTable const& AggregatorStatus::attributeTable() const {
  static Mox::AttributeTable const table = Mox::joinTables(
      StageStatus::attributeTable(),
      {Mox::attribute<&AggregatorStatus::prefixInfo_>("prefixInfo"),
       Mox::attribute<&AggregatorStatus::rangeSplitInfo_>("rangeSplitInfo"),
       Mox::attribute<&AggregatorStatus::aclGenSetIpRuleList_>("aclGenSetIpRuleList"),
       Mox::attribute<&AggregatorStatus::genSetUsageInfo_>("genSetUsageInfo"),
       Mox::attribute<&AggregatorStatus::initialized_>("initialized")});
  return table;
}

Mox::Ptr<AclGenSetIpRuleList> AggregatorStatus::aclGenSetIpRuleListIs(std::string const& name,
                                                                      Lumox::AddressFamily af) {
  return Mox::lookupOrMake(aclGenSetIpRuleList_, name,
                           [&] { return Mox::makePtr<AclGenSetIpRuleList>(name, af); });
}

}  // namespace Naxel
