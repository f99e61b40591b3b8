#pragma once

/// What the aggregator reads and writes: its configuration, and the sets and rules that all later
/// stages work from.

#include "mox/Stamp.h"
#include "naxel/control/StageTypes.h"
#include "naxel/genset/GenSet.h"
#include "naxel/types/AclConfig.h"

#include <array>
#include <string>
#include <vector>

namespace Naxel {

/// Points the aggregator at the chip's ACL configuration.
class NAXEL_EXPORT AggregatorConfig : public StageConfig {
 public:
  explicit AggregatorConfig(Mox::Ptr<AclConfigColl const> coll) : aclConfigColl_(std::move(coll)) {}
  std::string_view fwkType() const override { return "Naxel::AggregatorConfig"; }
  Mox::AttributeTable const& attributeTable() const override;

  Mox::Ptr<AclConfigColl const> const& aclConfigColl() const { return aclConfigColl_; }

 private:
  Mox::Ptr<AclConfigColl const> aclConfigColl_;
};
NAXEL_EXPORT Mox::Ptr<AggregatorConfig> aggregatorConfigFactory(
    Mox::Ptr<AclConfigColl const> aclConfigColl);

/// All prefix sets of one family and side, in the order of insertion.
class NAXEL_EXPORT PrefixAggregatorInfo : public Mox::Entity {
 public:
  explicit PrefixAggregatorInfo(PrefixXformKey const& key) : prefixXformKey_(key) {}
  std::string_view fwkType() const override { return "Naxel::PrefixAggregatorInfo"; }
  Mox::AttributeTable const& attributeTable() const override;

  PrefixXformKey const& prefixXformKey() const { return prefixXformKey_; }
  Mox::HashMap<GenSetKey, Mox::Ptr<PrefixSet>> const& prefixSetColl() const {
    return prefixSetColl_;
  }
  Mox::Ptr<PrefixSet> prefixSetColl(GenSetKey key) const {
    return Mox::lookup(prefixSetColl_, key);
  }
  /// The set of that key, made without members if absent.
  Mox::Ptr<PrefixSet> prefixSetCollIs(GenSetKey key);
  /// Adds a set of a key that is not there.
  void prefixSetCollAdd(Mox::Ptr<PrefixSet> set) {
    GenSetKey const key = set->key();
    prefixSetColl_.insertAbsent({key, std::move(set)});
  }
  bool prefixSetCollHas(GenSetKey key) const { return prefixSetColl_.contains(key); }
  void prefixSetCollDel(GenSetKey key) { prefixSetColl_.erase(key); }
  void prefixSetCollDelAll() { prefixSetColl_.clear(); }

 private:
  PrefixXformKey prefixXformKey_;
  Mox::HashMap<GenSetKey, Mox::Ptr<PrefixSet>> prefixSetColl_;
};

/// All range sets of one type, in the order of insertion.
class NAXEL_EXPORT RangeSplitAggregatorInfo : public Mox::Entity {
 public:
  explicit RangeSplitAggregatorInfo(RangeSetType type) : setType_(type) {}
  std::string_view fwkType() const override { return "Naxel::RangeSplitAggregatorInfo"; }
  Mox::AttributeTable const& attributeTable() const override;

  RangeSetType setType() const { return setType_; }
  Mox::HashMap<GenSetKey, Mox::Ptr<RangeSet>> const& rangeSetColl() const { return rangeSetColl_; }
  Mox::Ptr<RangeSet> rangeSetColl(GenSetKey key) const { return Mox::lookup(rangeSetColl_, key); }
  /// The set of that key, made without members if absent.
  Mox::Ptr<RangeSet> rangeSetCollIs(GenSetKey key, RangeSetType type);
  bool rangeSetCollHas(GenSetKey key) const { return rangeSetColl_.contains(key); }
  void rangeSetCollDel(GenSetKey key) { rangeSetColl_.erase(key); }
  void rangeSetCollDelAll() { rangeSetColl_.clear(); }

 private:
  RangeSetType setType_;
  Mox::HashMap<GenSetKey, Mox::Ptr<RangeSet>> rangeSetColl_;
};

/// One rule with every list replaced by the key of its shared set; key 0 does not constrain.
class NAXEL_EXPORT GenSetIpRule : public Mox::Entity {
 public:
  explicit GenSetIpRule(std::string name) : name_(std::move(name)) {}
  std::string_view fwkType() const override { return "Naxel::GenSetIpRule"; }
  Mox::AttributeTable const& attributeTable() const override;

  std::string const& name() const { return name_; }
  GenSetKey source() const { return source_; }
  void sourceIs(GenSetKey v) { source_ = v; }
  GenSetKey destination() const { return destination_; }
  void destinationIs(GenSetKey v) { destination_ = v; }
  GenSetKey sport() const { return range(RangeSetType::srcPort); }
  void sportIs(GenSetKey v) { rangeIs(RangeSetType::srcPort, v); }
  GenSetKey dport() const { return range(RangeSetType::dstPort); }
  void dportIs(GenSetKey v) { rangeIs(RangeSetType::dstPort, v); }
  GenSetKey icmpType() const { return range(RangeSetType::icmp); }
  void icmpTypeIs(GenSetKey v) { rangeIs(RangeSetType::icmp, v); }
  GenSetKey proto() const { return range(RangeSetType::proto); }
  void protoIs(GenSetKey v) { rangeIs(RangeSetType::proto, v); }
  GenSetKey length() const { return range(RangeSetType::length); }
  void lengthIs(GenSetKey v) { rangeIs(RangeSetType::length, v); }
  GenSetKey fragment() const { return range(RangeSetType::fragment); }
  void fragmentIs(GenSetKey v) { rangeIs(RangeSetType::fragment, v); }
  GenSetKey dscp() const { return range(RangeSetType::dscp); }
  void dscpIs(GenSetKey v) { rangeIs(RangeSetType::dscp, v); }
  /// The range set of a field; the accessors above by type.
  GenSetKey range(RangeSetType type) const { return range_[static_cast<size_t>(type)]; }
  void rangeIs(RangeSetType type, GenSetKey v) { range_[static_cast<size_t>(type)] = v; }
  bool matchTcpInit() const { return matchTcpInit_; }
  void matchTcpInitIs(bool v) { matchTcpInit_ = v; }
  bool matchTcpEstablished() const { return matchTcpEstablished_; }
  void matchTcpEstablishedIs(bool v) { matchTcpEstablished_ = v; }
  NaxelActionValue const& action() const { return action_; }
  void actionIs(NaxelActionValue const& v) { action_ = v; }

  /// The two sets that a combination of that type stands for.
  GenSetKeyPair comboPair(ComboLabelSetType type) const {
    return type == ComboLabelSetType::srcDstL4Port ? GenSetKeyPair(sport(), dport())
                                                   : GenSetKeyPair(source_, destination_);
  }

 private:
  std::string name_;
  GenSetKey source_;
  GenSetKey destination_;
  std::array<GenSetKey, rangeFieldCount> range_;
  bool matchTcpInit_ = false;
  bool matchTcpEstablished_ = false;
  NaxelActionValue action_;
};

/// The rules of one ACL by name, in the order of the configuration. The first search by a name makes an index,
/// which the next change drops.
class NAXEL_EXPORT GenSetIpRuleColl {
 public:
  using value_type = Mox::Ptr<GenSetIpRule>;
  using Key = std::string;
  using const_iterator = std::vector<value_type>::const_iterator;
  using iterator = const_iterator;

  const_iterator begin() const noexcept { return rules_.begin(); }
  const_iterator end() const noexcept { return rules_.end(); }
  size_t size() const noexcept { return rules_.size(); }
  bool empty() const noexcept { return rules_.empty(); }
  value_type const& operator[](size_t place) const noexcept { return rules_[place]; }
  /// The rule of that name, or null.
  value_type const* find(std::string const& name) const;
  bool contains(std::string const& name) const { return find(name) != nullptr; }

  /// Takes over rules of different names.
  void adopt(std::vector<value_type> rules) {
    rules_ = std::move(rules);
    index_.clear();
  }
  /// Puts a rule in the place of the one of its name.
  void replaceAt(size_t place, value_type rule) {
    rules_[place] = std::move(rule);
    index_.clear();
  }
  /// Adds a rule of a name that is not there.
  void add(value_type rule) {
    rules_.push_back(std::move(rule));
    index_.clear();
  }
  bool erase(std::string const& name);
  void clear() noexcept {
    rules_.clear();
    index_.clear();
  }

 private:
  struct Place {
    GenSetIpRule const* rule = nullptr;
    uint32_t place = 0;
  };
  struct NameOfPlace {
    static std::string const& key(Place const& p) { return p.rule->name(); }
  };
  std::vector<value_type> rules_;
  mutable Mox::HashTable<Place, NameOfPlace> index_;  // empty or of all rules
};

/// The rules of one ACL.
class NAXEL_EXPORT AclGenSetIpRuleList : public Mox::Entity {
 public:
  AclGenSetIpRuleList(std::string name, Lumox::AddressFamily af)
      : name_(std::move(name)), af_(af) {}
  std::string_view fwkType() const override { return "Naxel::AclGenSetIpRuleList"; }
  Mox::AttributeTable const& attributeTable() const override;

  std::string const& name() const { return name_; }
  Lumox::AddressFamily af() const { return af_; }
  using RuleColl = GenSetIpRuleColl;
  RuleColl const& genSetIpRule() const { return genSetIpRule_; }
  Mox::Ptr<GenSetIpRule> genSetIpRule(std::string const& name) const {
    auto const* rule = genSetIpRule_.find(name);
    return rule ? *rule : nullptr;
  }
  /// The rule of that name, made if absent.
  Mox::Ptr<GenSetIpRule> genSetIpRuleIs(std::string const& name);
  bool genSetIpRuleHas(std::string const& name) const { return genSetIpRule_.contains(name); }
  void genSetIpRuleDel(std::string const& name) { genSetIpRule_.erase(name); }
  void genSetIpRuleDelAll() { genSetIpRule_.clear(); }
  /// All rules at once, in the place of those that were there.
  void genSetIpRulesAre(std::vector<Mox::Ptr<GenSetIpRule>> rules) {
    genSetIpRule_.adopt(std::move(rules));
  }
  /// Puts a rule in the place of the one of its name, which stands at `place`.
  void genSetIpRuleReplace(size_t place, Mox::Ptr<GenSetIpRule> rule) {
    genSetIpRule_.replaceAt(place, std::move(rule));
  }

  using RuleByIdColl = Mox::FlatMap<AceIndex, Mox::Ptr<GenSetIpRule>>;
  /// In rule order.
  RuleByIdColl const& genSetIpRuleById() const { return genSetIpRuleById_; }
  void genSetIpRuleByIdIs(AceIndex index, Mox::Ptr<GenSetIpRule> rule) {
    genSetIpRuleById_.set(index, std::move(rule));
  }
  /// All at once, in the place of those that were there.
  void genSetIpRuleByIdsAre(RuleByIdColl all) { genSetIpRuleById_ = std::move(all); }
  /// Puts a rule in the place of another one, by position.
  void genSetIpRuleByIdReplace(size_t at, Mox::Ptr<GenSetIpRule> rule) {
    genSetIpRuleById_.valueAt(at) = std::move(rule);
  }
  bool genSetIpRuleByIdHas(AceIndex index) const { return genSetIpRuleById_.contains(index); }
  void genSetIpRuleByIdDel(AceIndex index) { genSetIpRuleById_.erase(index); }
  void genSetIpRuleByIdDelAll() { genSetIpRuleById_.clear(); }

 private:
  std::string name_;
  Lumox::AddressFamily af_;
  RuleColl genSetIpRule_;
  RuleByIdColl genSetIpRuleById_;
};

/// The aggregator's output. The infos exist for every key from the start and are never replaced.
class NAXEL_EXPORT AggregatorStatus : public StageStatus {
 public:
  AggregatorStatus() { handleInitialized(); }
  std::string_view fwkType() const override { return "Naxel::AggregatorStatus"; }
  Mox::AttributeTable const& attributeTable() const override;

  Mox::Ptr<PrefixAggregatorInfo> prefixInfo(PrefixXformKey const& key) const {
    return Mox::lookup(prefixInfo_, key);
  }
  Mox::Ptr<RangeSplitAggregatorInfo> rangeSplitInfo(RangeSetType type) const {
    return Mox::lookup(rangeSplitInfo_, type);
  }
  /// By ACL name; every ACL of the configuration has its list, also one without rules.
  Mox::OrderedMap<std::string, Mox::Ptr<AclGenSetIpRuleList>> const& aclGenSetIpRuleList() const {
    return aclGenSetIpRuleList_;
  }
  Mox::Ptr<AclGenSetIpRuleList> aclGenSetIpRuleList(std::string const& name) const {
    return Mox::lookup(aclGenSetIpRuleList_, name);
  }
  /// The list of that ACL, made without rules if absent. One that is there keeps its family.
  Mox::Ptr<AclGenSetIpRuleList> aclGenSetIpRuleListIs(std::string const& name,
                                                      Lumox::AddressFamily af);
  void aclGenSetIpRuleListIs(Mox::Ptr<AclGenSetIpRuleList> list) {
    stamp_ = Mox::newStamp();
    std::string const name = list->name();
    aclGenSetIpRuleList_.set(name, std::move(list));
  }
  bool aclGenSetIpRuleListHas(std::string const& name) const {
    return aclGenSetIpRuleList_.contains(name);
  }
  void aclGenSetIpRuleListDel(std::string const& name) {
    if (aclGenSetIpRuleList_.erase(name)) stamp_ = Mox::newStamp();
  }
  void aclGenSetIpRuleListDelAll() {
    aclGenSetIpRuleList_.clear();
    stamp_ = Mox::newStamp();
  }
  /// Drawn anew with every run that makes the rule lists anew: equal stamps are the same lists.
  Mox::Stamp stamp() const { return stamp_; }
  /// Direct uses of each set: fields matched through a combination do not count.
  Mox::Ptr<GenSetUsageInfo> const& genSetUsageInfo() const { return genSetUsageInfo_; }
  bool initialized() const { return initialized_; }

 private:
  void handleInitialized();

  Mox::OrderedMap<PrefixXformKey, Mox::Ptr<PrefixAggregatorInfo>> prefixInfo_;
  Mox::OrderedMap<RangeSetType, Mox::Ptr<RangeSplitAggregatorInfo>> rangeSplitInfo_;
  Mox::OrderedMap<std::string, Mox::Ptr<AclGenSetIpRuleList>> aclGenSetIpRuleList_;
  Mox::Ptr<GenSetUsageInfo> genSetUsageInfo_;
  Mox::Stamp stamp_ = Mox::newStamp();
  bool initialized_ = false;
};

/// Digest of a configuration. Equal configurations have equal digests; it does not depend on the
/// order in which the configuration is walked.
class AggregatorWorkingSet : public Mox::ValueType<AggregatorWorkingSet> {
 public:
  static constexpr std::string_view typeName = "Naxel::AggregatorWorkingSet";
  AggregatorWorkingSet() = default;
  AggregatorWorkingSet(uint64_t hash, uint32_t acls, uint32_t rules)
      : workingSetHash_(hash), aclCount_(acls), ruleCount_(rules) {}
  explicit AggregatorWorkingSet(Mox::TextCursor& c) {
    Mox::TextForm<AggregatorWorkingSet>::read(c, *this);
  }

  uint64_t workingSetHash() const { return workingSetHash_; }
  uint32_t aclCount() const { return aclCount_; }
  uint32_t ruleCount() const { return ruleCount_; }

  static constexpr auto fields() {
    return std::make_tuple(Mox::field("workingSetHash", &AggregatorWorkingSet::workingSetHash_),
                           Mox::field("aclCount", &AggregatorWorkingSet::aclCount_),
                           Mox::field("ruleCount", &AggregatorWorkingSet::ruleCount_));
  }

 private:
  uint64_t workingSetHash_ = 0;
  uint32_t aclCount_ = 0;
  uint32_t ruleCount_ = 0;
};

}  // namespace Naxel
