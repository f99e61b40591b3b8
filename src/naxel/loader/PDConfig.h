#pragma once

/// The boundary between library and driver, one pair of entities per chip: the library writes
/// PDConfig, the driver writes PDStatus.
///
/// Contract.
///
/// Requests. The library sets `currPDData` (what it offers), `prevPDData` (what was last asked to be
/// loaded; empty at first) and `pdResourceConfig` together. The driver answers in the status of every
/// table, with the request's id: to `acquire` that it has found resources for all of the new output,
/// `hitless` if the change will not disturb traffic, `hitful` if it will, `failed` if it has none; to
/// `load` `loaded`, once `currPDData` is in force (`failed` ends the process: resources were acquired);
/// to `revert` `reverted`, once `currPDData`, which is the previous output again, is completely in
/// force. It may answer at once, from within the write, or any time later, table by table in any order,
/// with answers to older requests in between. `hitless` and `hitful` are answered alike for all tables
/// of one request; any table may answer `failed`, with a reason in words in `refusalReason`. The table
/// for TCP flags is never filled; whether it is answered for does not matter. A new `acquire` supersedes
/// an `acquire` or `revert` that is not answered, and releases what an earlier `acquire` reserved and
/// was never loaded, whether it was answered or not; a `load` is not abandoned: the driver finishes it
/// before it answers the acquire.
///
/// Restarts. `currPDData` and `prevPDData` are never null; a pair that has been in use is told by a
/// `requestId` other than 0. A library that starts over such a pair goes on from what stands there. So
/// does a driver: it takes as in force `prevPDData` while the request is an `acquire`, else
/// `currPDData`, and works off a request that is not answered and a policy that is not confirmed. It may
/// announce its answers anew, with the values that they had.
///
/// Policy. `PDConfig::globalAclControl` other than `doNotApply` stands in for all ACLs. The driver
/// confirms a value by writing the same into PDStatus, possibly only after a newer kick has begun.
/// At most one change is outstanding at any time, but for a library that starts over a pair in use: it
/// may take back a change of the one before it that is not confirmed, by writing the value that PDStatus
/// reports. The driver then drops that change, or finishes it first, confirms it, and goes by what
/// stands in PDConfig then, before it begins a load or a revert. A driver may put a policy in force by
/// itself, when it starts or later, and say so in PDStatus: it drops a change that is not confirmed, and
/// the library writes that policy into PDConfig, which asks for nothing. It stands until a load has
/// succeeded. No policy is lifted before the output that should be in force is.
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
#include "naxel/loader/PDTable.h"
#include "obel/ChipId.h"

#include <string>

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

  /// Both outputs are empty.
  explicit PDConfig(Obel::ChipId chipId);
  std::string_view fwkType() const override { return "Naxel::PDConfig"; }
  Mox::AttributeTable const& attributeTable() const override;

  Obel::ChipId chipId() const { return chipId_; }
  /// Never null, as is the next.
  Mox::Ptr<PDData const> const& prevPDData() const { return prevPDData_; }
  void prevPDDataIs(Mox::Ptr<PDData const> v);
  void prevPDDataDel() { prevPDDataIs(emptyOutput()); }
  Mox::Ptr<PDData const> const& currPDData() const { return currPDData_; }
  void currPDDataIs(Mox::Ptr<PDData const> v);
  void currPDDataDel() { currPDDataIs(emptyOutput()); }
  /// The policy that is asked for, or that the driver has put in force by itself. It is confirmed once
  /// PDStatus names the same.
  GlobalAclControl globalAclControl() const { return globalAclControl_; }
  void globalAclControlIs(GlobalAclControl v) {
    attrIs(globalAclControl_, v, &Notifiee::onGlobalAclControl);
  }
  void globalAclControlDel() { globalAclControlIs(GlobalAclControl::doNotApply); }
  /// The current request; id 0.0 before the first one.
  ResourceConfig const& pdResourceConfig() const { return pdResourceConfig_; }
  void pdResourceConfigIs(ResourceConfig const& v) {
    attrIs(pdResourceConfig_, v, &Notifiee::onPdResourceConfig);
  }
  void pdResourceConfigDel() { pdResourceConfigIs(ResourceConfig()); }

  /// Sets outputs and request together, so that whoever is told of one of them finds all three, and then
  /// tells of each that differs, in this order. Whoever writes them within that has the last word.
  void requestIs(Mox::Ptr<PDData const> prev, Mox::Ptr<PDData const> curr,
                 ResourceConfig const& request);

 private:
  Mox::Ptr<PDData const> emptyOutput() const;

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
    virtual void onPdPrefixXformEntryStatus(PrefixXformKey const&) { onTableStatus(); }
    virtual void onPdV4PrefixComboEntryStatus() { onTableStatus(); }
    virtual void onPdV6PrefixComboEntryStatus() { onTableStatus(); }
    virtual void onPdPortComboEntryStatus() { onTableStatus(); }
    virtual void onPdSrcPortXformEntryStatus() { onTableStatus(); }
    virtual void onPdDstPortXformEntryStatus() { onTableStatus(); }
    virtual void onPdIcmpXformEntryStatus() { onTableStatus(); }
    virtual void onPdProtocolXformEntryStatus() { onTableStatus(); }
    virtual void onPdLengthXformEntryStatus() { onTableStatus(); }
    virtual void onPdFragmentXformEntryStatus() { onTableStatus(); }
    virtual void onPdDscpXformEntryStatus() { onTableStatus(); }
    virtual void onPdTcpFlagsXformEntryStatus() { onTableStatus(); }
    virtual void onPdAclRuleEntryStatus() { onTableStatus(); }
    /// The answer of any table, unless the handler for that table is overridden.
    virtual void onTableStatus() {}
    virtual void onRefusalReason(PDTable const&) {}
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

  /// The answers of the prefix tables. A key that is absent has not been answered; the other tables have an
  /// answer from the start, whose id 0 answers nothing.
  Mox::OrderedMap<PrefixXformKey, ResourceStatus> const& pdPrefixXformEntryStatus() const {
    return prefix_;
  }
  /// Writes wake the library within the call; when this one returns another request may stand, here as with
  /// every other status.
  void pdPrefixXformEntryStatusIs(PrefixXformKey const& key, ResourceStatus const& v) {
    itemSet(prefix_, key, v, &Notifiee::onPdPrefixXformEntryStatus);
  }
  void pdPrefixXformEntryStatusDel(PrefixXformKey const& key) {
    itemDel(prefix_, key, &Notifiee::onPdPrefixXformEntryStatus);
  }

  ResourceStatus const& pdV4PrefixComboEntryStatus() const {
    return comboStatus(ComboLabelSetType::ipv4SrcDstPrefix);
  }
  void pdV4PrefixComboEntryStatusIs(ResourceStatus const& v) {
    comboStatusIs(ComboLabelSetType::ipv4SrcDstPrefix, v);
  }
  ResourceStatus const& pdV6PrefixComboEntryStatus() const {
    return comboStatus(ComboLabelSetType::ipv6SrcDstPrefix);
  }
  void pdV6PrefixComboEntryStatusIs(ResourceStatus const& v) {
    comboStatusIs(ComboLabelSetType::ipv6SrcDstPrefix, v);
  }
  ResourceStatus const& pdPortComboEntryStatus() const {
    return comboStatus(ComboLabelSetType::srcDstL4Port);
  }
  void pdPortComboEntryStatusIs(ResourceStatus const& v) {
    comboStatusIs(ComboLabelSetType::srcDstL4Port, v);
  }
  ResourceStatus const& pdSrcPortXformEntryStatus() const {
    return rangeStatus(RangeSetType::srcPort);
  }
  void pdSrcPortXformEntryStatusIs(ResourceStatus const& v) {
    rangeStatusIs(RangeSetType::srcPort, v);
  }
  ResourceStatus const& pdDstPortXformEntryStatus() const {
    return rangeStatus(RangeSetType::dstPort);
  }
  void pdDstPortXformEntryStatusIs(ResourceStatus const& v) {
    rangeStatusIs(RangeSetType::dstPort, v);
  }
  ResourceStatus const& pdIcmpXformEntryStatus() const { return rangeStatus(RangeSetType::icmp); }
  void pdIcmpXformEntryStatusIs(ResourceStatus const& v) { rangeStatusIs(RangeSetType::icmp, v); }
  ResourceStatus const& pdProtocolXformEntryStatus() const {
    return rangeStatus(RangeSetType::proto);
  }
  void pdProtocolXformEntryStatusIs(ResourceStatus const& v) {
    rangeStatusIs(RangeSetType::proto, v);
  }
  ResourceStatus const& pdLengthXformEntryStatus() const {
    return rangeStatus(RangeSetType::length);
  }
  void pdLengthXformEntryStatusIs(ResourceStatus const& v) {
    rangeStatusIs(RangeSetType::length, v);
  }
  ResourceStatus const& pdFragmentXformEntryStatus() const {
    return rangeStatus(RangeSetType::fragment);
  }
  void pdFragmentXformEntryStatusIs(ResourceStatus const& v) {
    rangeStatusIs(RangeSetType::fragment, v);
  }
  ResourceStatus const& pdDscpXformEntryStatus() const { return rangeStatus(RangeSetType::dscp); }
  void pdDscpXformEntryStatusIs(ResourceStatus const& v) { rangeStatusIs(RangeSetType::dscp, v); }
  ResourceStatus const& pdTcpFlagsXformEntryStatus() const {
    return rangeStatus(RangeSetType::rangeSetMax);
  }
  void pdTcpFlagsXformEntryStatusIs(ResourceStatus const& v) {
    rangeStatusIs(RangeSetType::rangeSetMax, v);
  }
  ResourceStatus const& pdAclRuleEntryStatus() const { return acl_; }
  void pdAclRuleEntryStatusIs(ResourceStatus const& v) {
    attrIs(acl_, v, &Notifiee::onPdAclRuleEntryStatus);
  }

  /// Why a table refuses, in words for the operator, without its name; empty where none is given. The
  /// driver writes it before the `failed` that it is about; a reason of a table that does not refuse is
  /// ignored.
  std::string refusalReason(PDTable table) const {
    std::string const* const reason = refusalReason_.get(table);
    return reason ? *reason : std::string();
  }
  void refusalReasonIs(PDTable table, std::string reason) {
    itemSet(refusalReason_, table, std::move(reason), &Notifiee::onRefusalReason);
  }
  void refusalReasonDel(PDTable table) {
    itemDel(refusalReason_, table, &Notifiee::onRefusalReason);
  }
  void refusalReasonDelAll() { collDelAll(refusalReason_, &Notifiee::onRefusalReason); }

  /// The same statuses by the type of the field; the table for TCP flags stands behind the real types.
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
  std::array<ResourceStatus, rangeFieldCount + 1> range_;
  ResourceStatus acl_;
  Mox::OrderedMap<PDTable, std::string> refusalReason_;
};
NAXEL_EXPORT Mox::Ptr<PDStatus> pDStatusFactory(Obel::ChipId chipId);

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
  Mox::Ptr<PDConfig> pdConfig(Obel::ChipId chip) const { return Mox::lookup(pdConfig_, chip); }
  bool pdConfigHas(Obel::ChipId chip) const { return pdConfig_.contains(chip); }
  /// The chip's entity, made if absent.
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
  Mox::Ptr<PDStatus> pdStatus(Obel::ChipId chip) const { return Mox::lookup(pdStatus_, chip); }
  bool pdStatusHas(Obel::ChipId chip) const { return pdStatus_.contains(chip); }
  /// The chip's entity, made if absent.
  Mox::Ptr<PDStatus> pdStatusIs(Obel::ChipId chip) {
    return itemIs(pdStatus_, chip, &Notifiee::onPdStatus, [&] { return pDStatusFactory(chip); });
  }
  void pdStatusDel(Obel::ChipId chip) { itemDel(pdStatus_, chip, &Notifiee::onPdStatus); }
  void pdStatusDelAll() { collDelAll(pdStatus_, &Notifiee::onPdStatus); }

 private:
  Mox::OrderedMap<Obel::ChipId, Mox::Ptr<PDStatus>> pdStatus_;
};

NAXEL_EXPORT Mox::Ptr<GlobalPDStatus> globalPDStatusFactory();

}  // namespace Naxel
