#pragma once

/// One complete output for one chip: the transform tables that turn a packet's field values into
/// labels, the ACL entries that match on those labels, and the widths that both were compiled for.
/// Filled by the loader and never changed once it has been handed to PDConfig, so that a driver may
/// keep reading it: nothing that can be reached from a constant output can be written.

#include "mox/Entity.h"
#include "mox/FlatSet.h"
#include "mox/InlineSet.h"
#include "mox/OrderedMap.h"
#include "naxel/loader/HwCapability.h"
#include "naxel/loader/PDTypes.h"
#include "naxel/types/Action.h"

#include <array>
#include <optional>
#include <span>

namespace Naxel {

/// One transform table: entries in ascending order of their keys. What it keeps besides is none of a driver's concern.
template <class Entry, class Key>
class PDXformEntryColl : public Mox::Entity, public KeepsSets {
 public:
  using Coll = Mox::SortedVector<Entry, Mox::KeyIsKey>;

  Coll const& entry() const { return entry_; }
  /// The entry of that key, or null.
  Entry const* entry(Key const& key) const { return entry_.find(key); }
  void entryIs(Entry const& e) { entry_.insert(e); }
  /// Takes over all entries at once, in any order.
  void entryIs(std::vector<Entry> all) { entry_.adopt(std::move(all)); }
  void entryDel(Key const& key) { entry_.erase(key); }
  void entryDelAll() { entry_.clear(); }

  Mox::AttributeTable const& attributeTable() const override {
    static Mox::AttributeTable const table = {Mox::attribute<&PDXformEntryColl::entry_>("entry")};
    return table;
  }

 private:
  Coll entry_;
};

class NAXEL_EXPORT PDPrefixXformEntryColl
    : public PDXformEntryColl<PDPrefixXformEntry, Lumox::IpGenPrefix> {
 public:
  std::string_view fwkType() const override { return "Naxel::PDPrefixXformEntryColl"; }
};
class NAXEL_EXPORT PDRangeXformEntryColl
    : public PDXformEntryColl<PDRangeXformEntry, RangeSetElem> {
 public:
  std::string_view fwkType() const override { return "Naxel::PDRangeXformEntryColl"; }
};
class NAXEL_EXPORT PDComboEntryColl : public PDXformEntryColl<PDComboEntry, EncodedComboLabel> {
 public:
  std::string_view fwkType() const override { return "Naxel::PDComboEntryColl"; }
};

/// The TCAM entries of one rule, all with the rule's action. No entry means that the rule matches
/// nothing. Outputs of several kicks share the rules that did not change: once a rule is part of an
/// output it is replaced, never edited.
class NAXEL_EXPORT PDAclRule : public Mox::Entity {
 public:
  explicit PDAclRule(AceIndex aceIndex) : aceIndex_(aceIndex) {}
  std::string_view fwkType() const override { return "Naxel::PDAclRule"; }
  Mox::AttributeTable const& attributeTable() const override;

  AceIndex aceIndex() const { return aceIndex_; }
  NaxelActionValue const& action() const { return action_; }
  void actionIs(NaxelActionValue const& v) { action_ = v; }

  using Filters = Mox::InlineSet<PDAclFilter, 1>;
  Filters const& filter() const { return filter_; }
  size_t filters() const { return filter_.size(); }
  bool filterHas(PDAclFilter const& f) const { return filter_.contains(f); }
  void filterIs(PDAclFilter const& f) { filter_.insert(f); }
  /// Takes over all entries at once, in any order.
  void filterIs(std::span<PDAclFilter const> all) { filter_.adopt(all); }
  void filterDel(PDAclFilter const& f) { filter_.erase(f); }
  void filterDelAll() { filter_.clear(); }

 private:
  AceIndex aceIndex_;
  NaxelActionValue action_;
  Filters filter_;
};

/// One ACL. Rule order is TCAM priority order: the first matching rule wins.
class NAXEL_EXPORT PDAclRuleColl : public Mox::Entity {
 public:
  explicit PDAclRuleColl(PDAclKey typeKey) : typeKey_(std::move(typeKey)) {}
  std::string_view fwkType() const override { return "Naxel::PDAclRuleColl"; }
  Mox::AttributeTable const& attributeTable() const override;

  using RuleColl = Mox::FlatMap<AceIndex, Mox::Ptr<PDAclRule const>>;

  PDAclKey const& typeKey() const { return typeKey_; }
  RuleColl const& rule() const { return rule_; }
  PDAclRule const* rule(AceIndex index) const;
  bool ruleHas(AceIndex index) const { return rule_.contains(index); }
  /// The rule of that index, made if absent; O(1) behind the last one.
  Mox::Ptr<PDAclRule> ruleIs(AceIndex index);
  /// Takes over finished rules under their indexes in place of all that there are, with the number of their entries.
  void ruleIs(RuleColl all, size_t filters) {
    rule_ = std::move(all);
    numFilters_ = filters;
  }
  void ruleDel(AceIndex index) { change().erase(index); }
  void ruleDelAll() { change().clear(); }
  /// Number of TCAM entries of all rules; O(1) where they were taken over.
  size_t numFilters() const;

 private:
  RuleColl& change() {
    numFilters_.reset();
    return rule_;
  }

  PDAclKey typeKey_;
  RuleColl rule_;
  std::optional<size_t> numFilters_;
};

/// All ACLs.
class NAXEL_EXPORT PDAclColl : public Mox::Entity {
 public:
  std::string_view fwkType() const override { return "Naxel::PDAclColl"; }
  Mox::AttributeTable const& attributeTable() const override;

  using AclColl = Mox::OrderedMap<PDAclKey, Mox::Ptr<PDAclRuleColl const>>;

  AclColl const& pdAcl() const { return pdAcl_; }
  Mox::Ptr<PDAclRuleColl const> pdAcl(PDAclKey const& key) const {
    return Mox::lookup(pdAcl_, key);
  }
  bool pdAclHas(PDAclKey const& key) const { return pdAcl_.contains(key); }
  /// The ACL of that key, made if absent.
  Mox::Ptr<PDAclRuleColl> pdAclIs(PDAclKey const& key);
  /// Takes over a finished ACL, which outputs may share, in place of the one of that key.
  void pdAclIs(PDAclKey const& key, Mox::Ptr<PDAclRuleColl const> acl) {
    pdAcl_.set(key, std::move(acl));
  }
  void pdAclDel(PDAclKey const& key) { pdAcl_.erase(key); }
  void pdAclDelAll() { pdAcl_.clear(); }
  /// Number of TCAM entries of all ACLs.
  size_t numFilters() const;

 private:
  AclColl pdAcl_;
};

class NAXEL_EXPORT PDData : public Mox::Entity {
 public:
  using PrefixColls = Mox::OrderedMap<PrefixXformKey, Mox::Ptr<PDPrefixXformEntryColl const>>;
  using ConstRangeColl = Mox::Ptr<PDRangeXformEntryColl const>;
  using ConstComboColl = Mox::Ptr<PDComboEntryColl const>;

  /// Every table exists from the start, empty. `hwCapability` must not change any more.
  explicit PDData(Mox::Ptr<ChipHwCapability const> hwCapability);
  std::string_view fwkType() const override { return "Naxel::PDData"; }
  Mox::AttributeTable const& attributeTable() const override;

  /// Number of this object among all outputs of the process; its identity in texts.
  uint64_t instance() const { return instance_; }

  /// The label widths that the output was compiled for, which say what its numbers mean: whether a field
  /// holds labels or raw values, and which label a miss yields. The agent's own ChipHwCapability may have
  /// changed since. Outputs of other widths are different ones, also where all entries are the same.
  Mox::Ptr<ChipHwCapability const> const& hwCapability() const { return hwCapability_; }

  /// The label code that the agent had asked for. A driver needs to know nothing of it.
  Acl::LabelCode labelCode() const { return labelCode_; }
  void labelCodeIs(Acl::LabelCode v) { labelCode_ = v; }

  PrefixColls const& pdPrefixXformEntryColl() const { return prefix_; }
  Mox::Ptr<PDPrefixXformEntryColl const> pdPrefixXformEntryColl(PrefixXformKey const& key) const {
    return Mox::lookup(prefix_, key);
  }
  ConstComboColl const& pdV4PrefixComboEntryColl() const { return combo_[0]; }
  ConstComboColl const& pdV6PrefixComboEntryColl() const { return combo_[1]; }
  ConstComboColl const& pdPortComboEntryColl() const { return combo_[2]; }
  ConstRangeColl const& pdSrcPortXformEntryColl() const { return rangeColl(RangeSetType::srcPort); }
  ConstRangeColl const& pdDstPortXformEntryColl() const { return rangeColl(RangeSetType::dstPort); }
  ConstRangeColl const& pdIcmpXformEntryColl() const { return rangeColl(RangeSetType::icmp); }
  ConstRangeColl const& pdProtocolXformEntryColl() const { return rangeColl(RangeSetType::proto); }
  ConstRangeColl const& pdLengthXformEntryColl() const { return rangeColl(RangeSetType::length); }
  ConstRangeColl const& pdFragmentXformEntryColl() const {
    return rangeColl(RangeSetType::fragment);
  }
  ConstRangeColl const& pdDscpXformEntryColl() const { return rangeColl(RangeSetType::dscp); }
  /// Never filled.
  ConstRangeColl const& pdTcpFlagsXformEntryColl() const {
    return rangeColl(RangeSetType::rangeSetMax);
  }
  Mox::Ptr<PDAclColl const> pdAclColl() const { return pdAclColl_; }

  /// The same tables by the type of the field; the one for TCP flags stands behind the real types.
  ConstRangeColl const& rangeColl(RangeSetType type) const {
    return range_[static_cast<size_t>(type)];
  }
  ConstComboColl const& comboColl(ComboLabelSetType type) const {
    return combo_[static_cast<size_t>(type)];
  }

  /// The tables for whoever fills the output; the key must be one of the four.
  PDPrefixXformEntryColl& pdPrefixXformEntryCollIs(PrefixXformKey const& key);
  PDRangeXformEntryColl& rangeCollIs(RangeSetType type);
  PDComboEntryColl& comboCollIs(ComboLabelSetType type);
  PDAclColl& pdAclCollIs() { return *pdAclColl_; }
  /// Takes over a finished table, which outputs may share.
  void pdPrefixXformEntryCollIs(PrefixXformKey const& key,
                                Mox::Ptr<PDPrefixXformEntryColl const> table) {
    prefix_.set(key, std::move(table));
  }
  void rangeCollIs(RangeSetType type, ConstRangeColl table) {
    range_[static_cast<size_t>(type)] = std::move(table);
  }
  void comboCollIs(ComboLabelSetType type, ConstComboColl table) {
    combo_[static_cast<size_t>(type)] = std::move(table);
  }

 private:
  uint64_t instance_;
  Mox::Ptr<ChipHwCapability const> hwCapability_;
  PrefixColls prefix_;
  std::array<ConstComboColl, 3> combo_;
  std::array<ConstRangeColl, rangeFieldCount + 1> range_;
  Mox::Ptr<PDAclColl> pdAclColl_;
  Acl::LabelCode labelCode_ = Acl::LabelCode::aligned;
};
/// An empty output for the widths that a chip has by default.
NAXEL_EXPORT Mox::Ptr<PDData> pDDataFactory();
NAXEL_EXPORT Mox::Ptr<PDData> pDDataFactory(Mox::Ptr<ChipHwCapability const> hwCapability);

}  // namespace Naxel
