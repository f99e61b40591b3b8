#pragma once

/// The pipeline's input: per chip a collection of ACLs, per ACL its rules by name and in evaluation
/// order. The agent writes these entities at any time, on the activity thread; a change takes
/// effect at the next kick, which finds whatever has changed since the one before. The library never
/// writes them.
///
/// A walk over a collection of the configuration may delete what it stands on.
///
/// Every list, filter, rule and ACL has a stamp of what it holds (mox/Stamp.h), by which a kick tells
/// what has not changed since the one before; and the process counts all changes, so that after none it need not
/// look at all (ConfigStamp.h).

#include "lumox/AddressFamily.h"
#include "mox/Chunked.h"
#include "mox/HashMap.h"
#include "mox/OrderedMap.h"
#include "naxel/types/Action.h"
#include "naxel/types/RuleFilter.h"
#include "obel/ChipId.h"

#include <optional>
#include <string>

namespace Naxel {

/// The stamps of everything that a rule says, those of its lists included. Equal ones are the same
/// rule.
struct RuleStamps {
  Mox::Stamp rule = 0;
  Mox::Stamp filter = 0;  // 0 where there is none, as are the next two
  Mox::Stamp source = 0;
  Mox::Stamp destination = 0;
  friend bool operator==(RuleStamps const&, RuleStamps const&) = default;
};

/// Something in the configuration that cannot be compiled.
struct ConfigError {
  enum class Kind : uint8_t {
    unusable,         ///< a kick fails
    emptySource,      ///< a source list without any member: a kick ends the process
    emptyDestination  ///< so too
  };
  Kind kind = Kind::unusable;
  std::string acl;   ///< its name; empty for what is about the chip
  std::string rule;  ///< its name; empty for what is about the whole ACL
  std::string text;  ///< in words, with ACL and rule in front
};

/// One rule: what it matches and what it does then.
class NAXEL_EXPORT RuleConfig : public Mox::Entity {
 public:
  class NAXEL_EXPORT Notifiee : public Mox::Notifiee {
   public:
    virtual void onRuleFilter() {}
    virtual void onAction() {}
    virtual void onContinueRule() {}
  };

  explicit RuleConfig(std::string name) : name_(std::move(name)) {}
  std::string_view fwkType() const override { return "Naxel::RuleConfig"; }
  Mox::AttributeTable const& attributeTable() const override;

  std::string const& name() const { return name_; }
  /// Null when the rule matches every packet.
  Mox::Ptr<RuleFilter> const& ruleFilter() const { return ruleFilter_; }
  /// Creates the filter, or returns the one there is.
  Mox::Ptr<RuleFilter> ruleFilterIs();
  void ruleFilterDel();
  NaxelActionValue const& action() const { return action_; }
  void actionIs(NaxelActionValue const& v);
  /// Held with the rule; nothing in the pipeline reads it.
  bool continueRule() const { return continueRule_; }
  void continueRuleIs(bool v) { attrIs(continueRule_, v, &Notifiee::onContinueRule); }

  RuleStamps stamps() const {
    RuleStamps all;
    all.rule = stamp_.get();
    if (!ruleFilter_) return all;
    all.filter = ruleFilter_->stamp();
    if (auto const& list = ruleFilter_->source()) all.source = list->stamp();
    if (auto const& list = ruleFilter_->destination()) all.destination = list->stamp();
    return all;
  }
  /// 64-bit hash of name, action and filter, public as that of a list. No filter counts as an empty one.
  uint64_t contentHash() const;
  /// Where a walk over the rules has found this one. It means something to that walk alone, which makes sure
  /// that this rule stands there: any other one may have written it since.
  uint32_t walkPlace() const { return walkPlace_; }
  void walkPlaceIs(uint32_t place) const { walkPlace_ = place; }

 private:
  std::string name_;
  ConfigStamp stamp_;  // of name and action, and which filter
  Mox::Ptr<RuleFilter> ruleFilter_;
  NaxelActionValue action_;
  bool continueRule_ = false;
  mutable uint32_t walkPlace_ = 0;
};

/// One ACL. A rule takes part in matching under each index that refers to it.
class NAXEL_EXPORT AclConfig : public Mox::Entity {
 public:
  class NAXEL_EXPORT Notifiee : public Mox::Notifiee {
   public:
    virtual void onAf() {}
    virtual void onRuleByName(std::string const&) {}
    virtual void onRuleById(AceIndex const&) {}
  };

  explicit AclConfig(std::string name) : name_(std::move(name)) {}
  std::string_view fwkType() const override { return "Naxel::AclConfig"; }
  Mox::AttributeTable const& attributeTable() const override;

  std::string const& name() const { return name_; }

  /// Family of the ACL. Absent by default: then it is that of the prefixes in its rules, and IPv4
  /// where there are none. Set it for an IPv6 ACL whose rules name no address.
  std::optional<Lumox::AddressFamily> af() const { return af_; }
  void afIs(Lumox::AddressFamily af) { optionalAfIs(af); }
  void afDel() { optionalAfIs(std::nullopt); }

  Mox::HashMap<std::string, Mox::Ptr<RuleConfig>> const& ruleByName() const { return ruleByName_; }
  Mox::Ptr<RuleConfig> ruleByName(std::string const& name) const {
    return Mox::lookup(ruleByName_, name);
  }
  bool ruleByNameHas(std::string const& name) const { return ruleByName_.contains(name); }
  /// Creates the rule, or returns the one of that name.
  Mox::Ptr<RuleConfig> ruleByNameIs(std::string const& name);
  /// Deletes the rule together with the indexes that refer to it. O(1) on average; the first deletion
  /// looks through all indexes.
  void ruleByNameDel(std::string const& name);
  /// Deletes all rules, and all indexes before them.
  void ruleByNameDelAll();

  /// The rules in evaluation order.
  Mox::ChunkedMap<AceIndex, Mox::Ptr<RuleConfig>> const& ruleById() const { return ruleById_; }
  Mox::Ptr<RuleConfig> ruleById(AceIndex index) const { return Mox::lookup(ruleById_, index); }
  bool ruleByIdHas(AceIndex index) const { return ruleById_.contains(index); }
  /// Puts a rule of `ruleByName` at an index, in place of what was there.
  void ruleByIdIs(AceIndex index, Mox::Ptr<RuleConfig> rule);
  void ruleByIdDel(AceIndex index);
  void ruleByIdDelAll();

  /// Stamp of the family, and of which rules there are under which names and indexes; not of what the
  /// rules say.
  Mox::Stamp stamp() const { return stamp_.get(); }

 private:
  /// At which indexes each rule stands.
  using IndexesOf = Mox::HashMap<RuleConfig const*, Mox::ChunkedSet<AceIndex>>;
  void optionalAfIs(std::optional<Lumox::AddressFamily> af);
  IndexesOf& indexesOf();
  /// Puts a rule at an index, or with none empties it.
  void indexIs(AceIndex index, std::optional<Mox::Ptr<RuleConfig>> rule);

  std::string name_;
  ConfigStamp stamp_;
  std::optional<IndexesOf> indexesOf_;  // none before the first rule is deleted
  std::optional<Lumox::AddressFamily> af_;
  Mox::HashMap<std::string, Mox::Ptr<RuleConfig>> ruleByName_;
  Mox::ChunkedMap<AceIndex, Mox::Ptr<RuleConfig>> ruleById_;
};

/// The ACLs of one chip.
class NAXEL_EXPORT AclConfigColl : public Mox::Entity {
 public:
  class NAXEL_EXPORT Notifiee : public Mox::Notifiee {
   public:
    virtual void onAcl(std::string const&) {}
  };

  explicit AclConfigColl(Obel::ChipId chipId) : chipId_(chipId) {}
  std::string_view fwkType() const override { return "Naxel::AclConfigColl"; }
  Mox::AttributeTable const& attributeTable() const override;

  Obel::ChipId chipId() const { return chipId_; }

  /// By name, in the order of the names.
  Mox::ChunkedMap<std::string, Mox::Ptr<AclConfig>> const& acl() const { return acl_; }
  Mox::Ptr<AclConfig> acl(std::string const& name) const { return Mox::lookup(acl_, name); }
  bool aclHas(std::string const& name) const { return acl_.contains(name); }
  /// Creates the ACL, or returns the one of that name.
  Mox::Ptr<AclConfig> aclIs(std::string const& name);
  void aclDel(std::string const& name) {
    stamp_.renew();
    itemDel(acl_, name, &Notifiee::onAcl);
  }
  void aclDelAll() {
    stamp_.renew();
    collDelAll(acl_, &Notifiee::onAcl);
  }

 private:
  Obel::ChipId chipId_;
  ConfigStamp stamp_;  // of which ACLs there are
  Mox::ChunkedMap<std::string, Mox::Ptr<AclConfig>> acl_;
};

inline Mox::Ptr<AclConfigColl> aclConfigCollFactory(Obel::ChipId chipId) {
  return Mox::makePtr<AclConfigColl>(chipId);
}

/// The ACLs of all chips of an agent.
class NAXEL_EXPORT GlobalAclConfig : public Mox::Entity {
 public:
  class NAXEL_EXPORT Notifiee : public Mox::Notifiee {
   public:
    virtual void onAclConfigColl(Obel::ChipId const&) {}
  };

  std::string_view fwkType() const override { return "Naxel::GlobalAclConfig"; }
  Mox::AttributeTable const& attributeTable() const override;

  Mox::ChunkedMap<Obel::ChipId, Mox::Ptr<AclConfigColl>> const& aclConfigColl() const {
    return aclConfigColl_;
  }
  Mox::Ptr<AclConfigColl> aclConfigColl(Obel::ChipId chip) const {
    return Mox::lookup(aclConfigColl_, chip);
  }
  bool aclConfigCollHas(Obel::ChipId chip) const { return aclConfigColl_.contains(chip); }
  Mox::Ptr<AclConfigColl> aclConfigCollIs(Obel::ChipId chip);
  void aclConfigCollDel(Obel::ChipId chip) {
    itemDel(aclConfigColl_, chip, &Notifiee::onAclConfigColl);
  }
  void aclConfigCollDelAll() { collDelAll(aclConfigColl_, &Notifiee::onAclConfigColl); }

 private:
  Mox::ChunkedMap<Obel::ChipId, Mox::Ptr<AclConfigColl>> aclConfigColl_;
};
inline Mox::Ptr<GlobalAclConfig> globalAclConfigFactory() {
  return Mox::makePtr<GlobalAclConfig>();
}

}  // namespace Naxel
