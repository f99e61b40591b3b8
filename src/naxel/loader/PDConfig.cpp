#include "naxel/loader/PDConfig.h"

#include "mox/Assert.h"
#include "mox/KeepAlive.h"

namespace Naxel {

Mox::AttributeTable const& PDConfig::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&PDConfig::chipId_>("chipId"),
      Mox::attribute<&PDConfig::prevPDData_>("prevPDData"),
      Mox::attribute<&PDConfig::currPDData_>("currPDData"),
      Mox::attribute<&PDConfig::globalAclControl_>("globalAclControl"),
      Mox::attribute<&PDConfig::pdResourceConfig_>("pdResourceConfig")};
  return table;
}

PDConfig::PDConfig(Obel::ChipId chipId)
    : chipId_(chipId),
      prevPDData_(pDDataFactory(Mox::makePtr<ChipHwCapability>(chipId))),
      currPDData_(prevPDData_) {}

Mox::Ptr<PDData const> PDConfig::emptyOutput() const {
  return pDDataFactory(Mox::makePtr<ChipHwCapability>(chipId_));
}

void PDConfig::prevPDDataIs(Mox::Ptr<PDData const> v) {
  MOX_ASSERT(v);
  attrIs(prevPDData_, std::move(v), &Notifiee::onPrevPDData);
}

void PDConfig::currPDDataIs(Mox::Ptr<PDData const> v) {
  MOX_ASSERT(v);
  attrIs(currPDData_, std::move(v), &Notifiee::onCurrPDData);
}

void PDConfig::requestIs(Mox::Ptr<PDData const> prev, Mox::Ptr<PDData const> curr,
                         ResourceConfig const& request) {
  MOX_ASSERT(prev && curr);
  // Whoever is told below may drop the last reference to this entity.
  auto const alive = Mox::keepAlive(this);
  bool const newPrev = prevPDData_ != prev;
  bool const newCurr = currPDData_ != curr;
  bool const newRequest = pdResourceConfig_ != request;
  prevPDData_ = prev;
  currPDData_ = curr;
  pdResourceConfig_ = request;
  // A handler that writes a newer request has told everybody of it by the time it returns. To go on with
  // this one would have the others hear the older request last.
  auto const stands = [&] {
    return prevPDData_ == prev && currPDData_ == curr && pdResourceConfig_ == request;
  };
  if (newPrev) notify(&Notifiee::onPrevPDData);
  if (newCurr && stands()) notify(&Notifiee::onCurrPDData);
  if (newRequest && stands()) notify(&Notifiee::onPdResourceConfig);
}

Mox::Ptr<PDConfig> pDConfigFactory(Obel::ChipId chipId) { return Mox::makePtr<PDConfig>(chipId); }

Mox::AttributeTable const& PDStatus::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&PDStatus::chipId_>("chipId"),
      Mox::attribute<&PDStatus::globalAclControl_>("globalAclControl"),
      Mox::attribute<&PDStatus::prefix_>("pdPrefixXformEntryStatus"),
      Mox::attribute<&PDStatus::pdV4PrefixComboEntryStatus>("pdV4PrefixComboEntryStatus"),
      Mox::attribute<&PDStatus::pdV6PrefixComboEntryStatus>("pdV6PrefixComboEntryStatus"),
      Mox::attribute<&PDStatus::pdPortComboEntryStatus>("pdPortComboEntryStatus"),
      Mox::attribute<&PDStatus::pdSrcPortXformEntryStatus>("pdSrcPortXformEntryStatus"),
      Mox::attribute<&PDStatus::pdDstPortXformEntryStatus>("pdDstPortXformEntryStatus"),
      Mox::attribute<&PDStatus::pdIcmpXformEntryStatus>("pdIcmpXformEntryStatus"),
      Mox::attribute<&PDStatus::pdProtocolXformEntryStatus>("pdProtocolXformEntryStatus"),
      Mox::attribute<&PDStatus::pdLengthXformEntryStatus>("pdLengthXformEntryStatus"),
      Mox::attribute<&PDStatus::pdFragmentXformEntryStatus>("pdFragmentXformEntryStatus"),
      Mox::attribute<&PDStatus::pdDscpXformEntryStatus>("pdDscpXformEntryStatus"),
      Mox::attribute<&PDStatus::pdTcpFlagsXformEntryStatus>("pdTcpFlagsXformEntryStatus"),
      Mox::attribute<&PDStatus::pdAclRuleEntryStatus>("pdAclRuleEntryStatus"),
      Mox::attribute<&PDStatus::refusalReason_>("refusalReason")};
  return table;
}

Mox::Ptr<PDStatus> pDStatusFactory(Obel::ChipId chipId) { return Mox::makePtr<PDStatus>(chipId); }

void PDStatus::rangeStatusIs(RangeSetType type, ResourceStatus const& v) {
  using N = Notifiee;
  static constexpr std::array<void (N::*)(), rangeFieldCount + 1> handlers = {
      &N::onPdSrcPortXformEntryStatus, &N::onPdDstPortXformEntryStatus,
      &N::onPdIcmpXformEntryStatus,    &N::onPdProtocolXformEntryStatus,
      &N::onPdLengthXformEntryStatus,  &N::onPdFragmentXformEntryStatus,
      &N::onPdDscpXformEntryStatus,    &N::onPdTcpFlagsXformEntryStatus};
  auto const at = static_cast<size_t>(type);
  // The handlers stand in the order of the types, and that of the table for TCP flags behind them.
  if (at >= handlers.size()) MOX_ASSERT(false && "Unknown rangeSet type");
  attrIs(range_[at], v, handlers[at]);
}

void PDStatus::comboStatusIs(ComboLabelSetType type, ResourceStatus const& v) {
  using N = Notifiee;
  static constexpr std::array<void (N::*)(), 3> handlers = {&N::onPdV4PrefixComboEntryStatus,
                                                            &N::onPdV6PrefixComboEntryStatus,
                                                            &N::onPdPortComboEntryStatus};
  auto const at = static_cast<size_t>(type);
  if (at >= handlers.size()) MOX_ASSERT(false && "Unknown comboSet type");
  attrIs(combo_[at], v, handlers[at]);
}

Mox::AttributeTable const& GlobalPDConfig::attributeTable() const {
  static Mox::AttributeTable const table = {Mox::attribute<&GlobalPDConfig::pdConfig_>("pdConfig")};
  return table;
}

Mox::Ptr<GlobalPDConfig> globalPDConfigFactory() { return Mox::makePtr<GlobalPDConfig>(); }

Mox::AttributeTable const& GlobalPDStatus::attributeTable() const {
  static Mox::AttributeTable const table = {Mox::attribute<&GlobalPDStatus::pdStatus_>("pdStatus")};
  return table;
}

Mox::Ptr<GlobalPDStatus> globalPDStatusFactory() { return Mox::makePtr<GlobalPDStatus>(); }

}  // namespace Naxel
