#include "naxel/types/AclConfig.h"

#include "naxel/types/RuleHash.h"

#include <utility>

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
  if (ruleFilter_) return ruleFilter_;
  // Made before the stamp is given up, so that a failure leaves the rule as it is.
  auto filter = Mox::makePtr<RuleFilter>();
  stamp_.renew();
  attrIs(ruleFilter_, std::move(filter), &Notifiee::onRuleFilter);
  return ruleFilter_;
}

void RuleConfig::ruleFilterDel() {
  if (!ruleFilter_) return;
  stamp_.renew();
  attrIs(ruleFilter_, Mox::Ptr<RuleFilter>(), &Notifiee::onRuleFilter);
}

void RuleConfig::actionIs(NaxelActionValue const& v) {
  if (action_ == v) return;
  stamp_.renew();
  attrIs(action_, v, &Notifiee::onAction);
}

uint64_t RuleConfig::contentHash() const {
  return ruleHash(name_, action_,
                  ruleFilter_ ? ruleFilter_->contentHash() : FilterHash().finish(nullptr, nullptr));
}

Mox::AttributeTable const& AclConfig::attributeTable() const {
  static Mox::AttributeTable const table = {Mox::attribute<&AclConfig::name_>("name"),
                                            Mox::attribute<&AclConfig::af_>("af"),
                                            Mox::attribute<&AclConfig::ruleByName_>("ruleByName"),
                                            Mox::attribute<&AclConfig::ruleById_>("ruleById")};
  return table;
}

void AclConfig::optionalAfIs(std::optional<Lumox::AddressFamily> af) {
  if (af_ == af) return;
  stamp_.renew();
  attrIs(af_, af, &Notifiee::onAf);
}

AclConfig::IndexesOf& AclConfig::indexesOf() {
  // Made at the first deletion of a rule: most agents never delete one, and pay nothing for it.
  if (indexesOf_) return *indexesOf_;
  IndexesOf all;
  all.reserve(ruleById_.size());
  for (auto const& [index, rule] : ruleById_) all.at(rule.get()).insert(index);
  return indexesOf_.emplace(std::move(all));
}

void AclConfig::indexIs(AceIndex index, std::optional<Mox::Ptr<RuleConfig>> rule) {
  // Where memory runs out on the way, the indexes by rule are gone, and made again when they are needed.
  std::optional<IndexesOf> indexes = std::exchange(indexesOf_, std::nullopt);
  Mox::Ptr<RuleConfig> const old = ruleById(index);
  bool const had = ruleByIdHas(index);
  stamp_.renew();
  rule ? ruleById_.set(index, *rule) : ruleById_.erase(index);
  if (indexes) {
    if (Mox::ChunkedSet<AceIndex>* const of = had ? indexes->get(old.get()) : nullptr) {
      of->erase(index);
      if (of->empty()) indexes->erase(old.get());
    }
    if (rule) indexes->at(rule->get()).insert(index);
    indexesOf_ = std::move(indexes);
  }
  notify(&Notifiee::onRuleById, index);
}

Mox::Ptr<RuleConfig> AclConfig::ruleByNameIs(std::string const& name) {
  return itemIs(ruleByName_, name, &Notifiee::onRuleByName, [&] {
    auto rule = Mox::makePtr<RuleConfig>(name);
    stamp_.renew();
    return rule;
  });
}

void AclConfig::ruleByNameDel(std::string const& name) {
  Mox::Ptr<RuleConfig> const rule = ruleByName(name);
  if (!rule) return;
  if (auto const* all = indexesOf().get(rule.get())) {
    // A copy, because every deletion below changes the set.
    auto const indexes = *all;
    for (AceIndex index : indexes) ruleByIdDel(index);
  }
  stamp_.renew();
  itemDel(ruleByName_, rule->name(), &Notifiee::onRuleByName);  // `name` may be gone by now
}

void AclConfig::ruleByNameDelAll() {
  // The indexes first, so that nobody finds one that refers to a rule which the ACL does not hold.
  ruleByIdDelAll();
  stamp_.renew();
  collDelAll(ruleByName_, &Notifiee::onRuleByName);
}

void AclConfig::ruleByIdIs(AceIndex index, Mox::Ptr<RuleConfig> rule) {
  if (ruleByIdHas(index) && ruleById(index) == rule) return;
  indexIs(index, std::move(rule));
}

void AclConfig::ruleByIdDel(AceIndex index) {
  if (ruleByIdHas(index)) indexIs(index, std::nullopt);
}

void AclConfig::ruleByIdDelAll() {
  std::vector<AceIndex> indexes;
  indexes.reserve(ruleById_.size());
  ruleById_.forEach([&](auto const& item) { indexes.push_back(item.first); });
  indexesOf_.reset();
  stamp_.renew();
  ruleById_.clear();
  // Told when all of them are gone: handlers read the present state.
  for (AceIndex index : indexes) notify(&Notifiee::onRuleById, index);
}

Mox::AttributeTable const& AclConfigColl::attributeTable() const {
  static Mox::AttributeTable const table = {Mox::attribute<&AclConfigColl::chipId_>("chipId"),
                                            Mox::attribute<&AclConfigColl::acl_>("acl")};
  return table;
}

Mox::Ptr<AclConfig> AclConfigColl::aclIs(std::string const& name) {
  return itemIs(acl_, name, &Notifiee::onAcl, [&] {
    auto acl = Mox::makePtr<AclConfig>(name);
    stamp_.renew();
    return acl;
  });
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
