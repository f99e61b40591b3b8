#include "naxel/types/AclConfig.h"

namespace Naxel {

Mox::AttributeTable const& RuleConfig::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&RuleConfig::name_>("name"),
      Mox::attribute<&RuleConfig::ruleFilter_>("ruleFilter"),
      Mox::attribute<&RuleConfig::action_>("action"),
      Mox::attribute<&RuleConfig::continueRule_>("continueRule")};
  return table;
}

Mox::Ptr<RuleFilter> RuleConfig::ruleFilterIs() {
  if (!ruleFilter_) attrIs(ruleFilter_, Mox::makePtr<RuleFilter>(), &Notifiee::onRuleFilter);
  return ruleFilter_;
}

uint64_t RuleConfig::contentHash() const {
  if (!ownHash_) ownHash_ = Mox::hashCombine(Mox::hashText(name_), action_.hash64());
  return Mox::hashCombine(*ownHash_,
                          ruleFilter_ ? Mox::hashCombine(1, ruleFilter_->contentHash()) : 0);
}

Mox::AttributeTable const& AclConfig::attributeTable() const {
  static Mox::AttributeTable const table = {Mox::attribute<&AclConfig::name_>("name"),
                                            Mox::attribute<&AclConfig::af_>("af"),
                                            Mox::attribute<&AclConfig::ruleByName_>("ruleByName"),
                                            Mox::attribute<&AclConfig::ruleById_>("ruleById")};
  return table;
}

Mox::Ptr<RuleConfig> AclConfig::ruleByNameIs(std::string const& name) {
  return itemIs(ruleByName_, name, &Notifiee::onRuleByName,
                [&] { return Mox::makePtr<RuleConfig>(name); });
}

void AclConfig::ruleByNameDel(std::string const& name) {
  Mox::Ptr<RuleConfig> const rule = ruleByName(name);
  if (!rule) return;
  std::vector<AceIndex> indexes;
  for (auto const& [index, indexed] : ruleById_)
    if (indexed == rule) indexes.push_back(index);
  for (AceIndex index : indexes) ruleByIdDel(index);
  itemDel(ruleByName_, name, &Notifiee::onRuleByName);
}

void AclConfig::ruleByNameDelAll() {
  ruleByIdDelAll();
  collDelAll(ruleByName_, &Notifiee::onRuleByName);
}

void AclConfig::ruleByIdIs(AceIndex index, Mox::Ptr<RuleConfig> rule) {
  itemSet(ruleById_, index, std::move(rule), &Notifiee::onRuleById);
}

void AclConfig::ruleByIdDel(AceIndex index) { itemDel(ruleById_, index, &Notifiee::onRuleById); }
void AclConfig::ruleByIdDelAll() { collDelAll(ruleById_, &Notifiee::onRuleById); }

Mox::AttributeTable const& AclConfigColl::attributeTable() const {
  static Mox::AttributeTable const table = {Mox::attribute<&AclConfigColl::chipId_>("chipId"),
                                            Mox::attribute<&AclConfigColl::acl_>("acl")};
  return table;
}

Mox::Ptr<AclConfig> AclConfigColl::aclIs(std::string const& name) {
  return itemIs(acl_, name, &Notifiee::onAcl, [&] { return Mox::makePtr<AclConfig>(name); });
}

Mox::AttributeTable const& GlobalAclConfig::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&GlobalAclConfig::aclConfigColl_>("aclConfigColl")};
  return table;
}

Mox::Ptr<AclConfigColl> GlobalAclConfig::aclConfigCollIs(Obel::ChipId chip) {
  return itemIs(aclConfigColl_, chip, &Notifiee::onAclConfigColl,
                [&] { return Mox::makePtr<AclConfigColl>(chip); });
}

}  // namespace Naxel
