#pragma once

/// The boundary between library and driver, one pair of entities per chip: the library writes
/// PDConfig, the driver writes PDStatus.
///
/// Contract.
///
/// Requests. The library sets `currPDData` (what it offers) and `prevPDData` (what was last asked
/// to be loaded; empty at first), then writes `pdResourceConfig`. The driver answers in the status
/// of every table, with the request's id: to `acquire` that it has found resources for all of the
/// new output, `hitless` if the change will not disturb traffic, `hitful` if it will, `failed` if
/// it has none; to `load` `loaded`, once `currPDData` is in force (`failed` ends the process:
/// resources were acquired); to `revert` `reverted`, once `currPDData`, which is the previous
/// output again, is completely in force. It may answer at once, from within the write, or any time
/// later, table by table in any order, with answers to older requests in between. `hitless` and
/// `hitful` are answered alike for all tables of one request; any table may answer `failed`. The
/// table for TCP flags is never filled; whether it is answered for does not matter. A new `acquire`
/// supersedes an `acquire` or `revert` that has not been answered; a `load` is not abandoned: the
/// driver finishes it before it answers the acquire.
///
/// Policy. `PDConfig::globalAclControl` other than `doNotApply` stands in for all ACLs. The driver
/// confirms a value by writing the same into PDStatus, possibly only after a newer kick has begun.
/// At most one change is outstanding at any time.
///
/// Lookup. Each prefix table is searched for the longest prefix, each range table for the range
/// that contains the value, each combination table for the pair of labels. A value that no entry
/// covers has no label and matches only entries whose mask for that field is 0; a chip that must
/// yield some value on a miss yields the highest of the width, 2^w - 1, which no entry's masks
/// cover. A field without label width is matched by its raw value; the parser supplies 0 for a
/// field that the packet lacks. In every ACL the first entry in order decides.

#include "mox/Entity.h"
#include "mox/OrderedMap.h"
#include "naxel/loader/PDData.h"
#include "obel/ChipId.h"

namespace Naxel {

/// Written by the library.
class NAXEL_EXPORT PDConfig : public Mox::Entity {
 public:
  class NAXEL_EXPORT Notifiee : public Mox::Notifiee {
   public:
    virtual void onPrevPDData() {}
    virtual void onCurrPDData() {}
    virtual void onGlobalAclControl() {}
    virtual void onPdResourceConfig() {}
  };

  explicit PDConfig(Obel::ChipId chipId) : chipId_(chipId) {}
  std::string_view fwkType() const override { return "Naxel::PDConfig"; }
  Mox::AttributeTable const& attributeTable() const override;

  Obel::ChipId chipId() const { return chipId_; }
  Mox::Ptr<PDData const> const& prevPDData() const { return prevPDData_; }
  void prevPDDataIs(Mox::Ptr<PDData const> v) {
    attrIs(prevPDData_, std::move(v), &Notifiee::onPrevPDData);
  }
  Mox::Ptr<PDData const> const& currPDData() const { return currPDData_; }
  void currPDDataIs(Mox::Ptr<PDData const> v) {
    attrIs(currPDData_, std::move(v), &Notifiee::onCurrPDData);
  }
  GlobalAclControl globalAclControl() const { return globalAclControl_; }
  void globalAclControlIs(GlobalAclControl v) {
    attrIs(globalAclControl_, v, &Notifiee::onGlobalAclControl);
  }
  /// The current request; id 0.0 before the first one.
  ResourceConfig const& pdResourceConfig() const { return pdResourceConfig_; }
  void pdResourceConfigIs(ResourceConfig const& v) {
    attrIs(pdResourceConfig_, v, &Notifiee::onPdResourceConfig);
  }

 private:
  Obel::ChipId chipId_;
  Mox::Ptr<PDData const> prevPDData_;
  Mox::Ptr<PDData const> currPDData_;
  GlobalAclControl globalAclControl_ = GlobalAclControl::doNotApply;
  ResourceConfig pdResourceConfig_;
};
NAXEL_EXPORT Mox::Ptr<PDConfig> pDConfigFactory(Obel::ChipId chipId);

/// Written by the driver.
class NAXEL_EXPORT PDStatus : public Mox::Entity {
 public:
  class NAXEL_EXPORT Notifiee : public Mox::Notifiee {
   public:
    virtual void onGlobalAclControl() {}
    virtual void onPdPrefixXformEntryStatus(PrefixXformKey const&) {}
    virtual void onPdV4PrefixComboEntryStatus() {}
    virtual void onPdV6PrefixComboEntryStatus() {}
    virtual void onPdPortComboEntryStatus() {}
    virtual void onPdSrcPortXformEntryStatus() {}
    virtual void onPdDstPortXformEntryStatus() {}
    virtual void onPdIcmpXformEntryStatus() {}
    virtual void onPdProtocolXformEntryStatus() {}
    virtual void onPdLengthXformEntryStatus() {}
    virtual void onPdFragmentXformEntryStatus() {}
    virtual void onPdDscpXformEntryStatus() {}
    virtual void onPdTcpFlagsXformEntryStatus() {}
    virtual void onPdAclRuleEntryStatus() {}
  };

  explicit PDStatus(Obel::ChipId chipId) : chipId_(chipId) {}
  std::string_view fwkType() const override { return "Naxel::PDStatus"; }
  Mox::AttributeTable const& attributeTable() const override;

  Obel::ChipId chipId() const { return chipId_; }
  /// The policy in force.
  GlobalAclControl globalAclControl() const { return globalAclControl_; }
  void globalAclControlIs(GlobalAclControl v) {
    attrIs(globalAclControl_, v, &Notifiee::onGlobalAclControl);
  }

  Mox::OrderedMap<PrefixXformKey, ResourceStatus> const& pdPrefixXformEntryStatus() const {
    return prefix_;
  }
  void pdPrefixXformEntryStatusIs(PrefixXformKey const& key, ResourceStatus const& v) {
    itemSet(prefix_, key, v, &Notifiee::onPdPrefixXformEntryStatus);
  }
  void pdPrefixXformEntryStatusDel(PrefixXformKey const& key) {
    itemDel(prefix_, key, &Notifiee::onPdPrefixXformEntryStatus);
  }

  ResourceStatus const& pdV4PrefixComboEntryStatus() const { return combo_[0]; }
  void pdV4PrefixComboEntryStatusIs(ResourceStatus const& v) {
    attrIs(combo_[0], v, &Notifiee::onPdV4PrefixComboEntryStatus);
  }
  ResourceStatus const& pdV6PrefixComboEntryStatus() const { return combo_[1]; }
  void pdV6PrefixComboEntryStatusIs(ResourceStatus const& v) {
    attrIs(combo_[1], v, &Notifiee::onPdV6PrefixComboEntryStatus);
  }
  ResourceStatus const& pdPortComboEntryStatus() const { return combo_[2]; }
  void pdPortComboEntryStatusIs(ResourceStatus const& v) {
    attrIs(combo_[2], v, &Notifiee::onPdPortComboEntryStatus);
  }
  ResourceStatus const& pdSrcPortXformEntryStatus() const { return range_[0]; }
  void pdSrcPortXformEntryStatusIs(ResourceStatus const& v) {
    attrIs(range_[0], v, &Notifiee::onPdSrcPortXformEntryStatus);
  }
  ResourceStatus const& pdDstPortXformEntryStatus() const { return range_[1]; }
  void pdDstPortXformEntryStatusIs(ResourceStatus const& v) {
    attrIs(range_[1], v, &Notifiee::onPdDstPortXformEntryStatus);
  }
  ResourceStatus const& pdIcmpXformEntryStatus() const { return range_[2]; }
  void pdIcmpXformEntryStatusIs(ResourceStatus const& v) {
    attrIs(range_[2], v, &Notifiee::onPdIcmpXformEntryStatus);
  }
  ResourceStatus const& pdProtocolXformEntryStatus() const { return range_[3]; }
  void pdProtocolXformEntryStatusIs(ResourceStatus const& v) {
    attrIs(range_[3], v, &Notifiee::onPdProtocolXformEntryStatus);
  }
  ResourceStatus const& pdLengthXformEntryStatus() const { return range_[4]; }
  void pdLengthXformEntryStatusIs(ResourceStatus const& v) {
    attrIs(range_[4], v, &Notifiee::onPdLengthXformEntryStatus);
  }
  ResourceStatus const& pdFragmentXformEntryStatus() const { return range_[5]; }
  void pdFragmentXformEntryStatusIs(ResourceStatus const& v) {
    attrIs(range_[5], v, &Notifiee::onPdFragmentXformEntryStatus);
  }
  ResourceStatus const& pdDscpXformEntryStatus() const { return range_[6]; }
  void pdDscpXformEntryStatusIs(ResourceStatus const& v) {
    attrIs(range_[6], v, &Notifiee::onPdDscpXformEntryStatus);
  }
  ResourceStatus const& pdTcpFlagsXformEntryStatus() const { return range_[7]; }
  void pdTcpFlagsXformEntryStatusIs(ResourceStatus const& v) {
    attrIs(range_[7], v, &Notifiee::onPdTcpFlagsXformEntryStatus);
  }
  ResourceStatus const& pdAclRuleEntryStatus() const { return acl_; }
  void pdAclRuleEntryStatusIs(ResourceStatus const& v) {
    attrIs(acl_, v, &Notifiee::onPdAclRuleEntryStatus);
  }

  /// The same statuses by the type of the field.
  ResourceStatus const& rangeStatus(RangeSetType type) const {
    return range_[static_cast<size_t>(type)];
  }
  ResourceStatus const& comboStatus(ComboLabelSetType type) const {
    return combo_[static_cast<size_t>(type)];
  }
  void rangeStatusIs(RangeSetType type, ResourceStatus const& v);
  void comboStatusIs(ComboLabelSetType type, ResourceStatus const& v);

 private:
  Obel::ChipId chipId_;
  GlobalAclControl globalAclControl_ = GlobalAclControl::doNotApply;
  Mox::OrderedMap<PrefixXformKey, ResourceStatus> prefix_;
  std::array<ResourceStatus, 3> combo_;
  std::array<ResourceStatus, 8> range_;
  ResourceStatus acl_;
};

/// The outputs of all chips.
class NAXEL_EXPORT GlobalPDConfig : public Mox::Entity {
 public:
  class NAXEL_EXPORT Notifiee : public Mox::Notifiee {
   public:
    virtual void onPdConfig(Obel::ChipId const&) {}
  };
  std::string_view fwkType() const override { return "Naxel::GlobalPDConfig"; }
  Mox::AttributeTable const& attributeTable() const override;

  Mox::OrderedMap<Obel::ChipId, Mox::Ptr<PDConfig>> const& pdConfig() const { return pdConfig_; }
  Mox::Ptr<PDConfig> pdConfigIs(Obel::ChipId chip) {
    return itemIs(pdConfig_, chip, &Notifiee::onPdConfig, [&] { return pDConfigFactory(chip); });
  }
  void pdConfigDel(Obel::ChipId chip) { itemDel(pdConfig_, chip, &Notifiee::onPdConfig); }
  void pdConfigDelAll() { collDelAll(pdConfig_, &Notifiee::onPdConfig); }

 private:
  Mox::OrderedMap<Obel::ChipId, Mox::Ptr<PDConfig>> pdConfig_;
};
NAXEL_EXPORT Mox::Ptr<GlobalPDConfig> globalPDConfigFactory();

/// The driver's answers for all chips.
class NAXEL_EXPORT GlobalPDStatus : public Mox::Entity {
 public:
  class NAXEL_EXPORT Notifiee : public Mox::Notifiee {
   public:
    virtual void onPdStatus(Obel::ChipId const&) {}
  };
  std::string_view fwkType() const override { return "Naxel::GlobalPDStatus"; }
  Mox::AttributeTable const& attributeTable() const override;

  Mox::OrderedMap<Obel::ChipId, Mox::Ptr<PDStatus>> const& pdStatus() const { return pdStatus_; }
  Mox::Ptr<PDStatus> pdStatusIs(Obel::ChipId chip) {
    return itemIs(pdStatus_, chip, &Notifiee::onPdStatus,
                  [&] { return Mox::makePtr<PDStatus>(chip); });
  }
  void pdStatusDel(Obel::ChipId chip) { itemDel(pdStatus_, chip, &Notifiee::onPdStatus); }
  void pdStatusDelAll() { collDelAll(pdStatus_, &Notifiee::onPdStatus); }

 private:
  Mox::OrderedMap<Obel::ChipId, Mox::Ptr<PDStatus>> pdStatus_;
};

}  // namespace Naxel
