#include "naxel/loader/PDData.h"

#include "mox/Assert.h"

#include <atomic>

namespace Naxel {

namespace {

/// What an output holds, for whoever fills it: it was made to be written, and is constant for those who
/// read it.
template <class T>
Mox::Ptr<T> written(Mox::Ptr<T const> const& p) {
  return Mox::Ptr<T>(const_cast<T*>(p.get()));
}

}  // namespace

Mox::AttributeTable const& PDAclRule::attributeTable() const {
  static Mox::AttributeTable const table = {Mox::attribute<&PDAclRule::aceIndex_>("aceIndex"),
                                            Mox::attribute<&PDAclRule::action_>("action"),
                                            Mox::attribute<&PDAclRule::filter_>("filter")};
  return table;
}

Mox::AttributeTable const& PDAclRuleColl::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&PDAclRuleColl::typeKey_>("typeKey"),
      Mox::attribute<&PDAclRuleColl::rule_>("rule"),
      Mox::derivedAttribute<&PDAclRuleColl::numFilters>("numFilters")};
  return table;
}

PDAclRule const* PDAclRuleColl::rule(AceIndex index) const {
  auto const* item = rule_.get(index);
  return item ? item->get() : nullptr;
}

Mox::Ptr<PDAclRule> PDAclRuleColl::ruleIs(AceIndex index) {
  numFilters_.reset();
  // For an output that is still being filled: a rule that others may already read is replaced, never edited.
  if (auto const* item = rule_.get(index)) return written(*item);
  auto made = Mox::makePtr<PDAclRule>(index);
  rule_.set(index, made);
  return made;
}

size_t PDAclRuleColl::numFilters() const {
  if (numFilters_) return *numFilters_;
  size_t n = 0;
  for (auto const& [index, rule] : rule_) n += rule->filters();
  return n;
}

Mox::AttributeTable const& PDAclColl::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&PDAclColl::pdAcl_>("pdAcl"),
      Mox::derivedAttribute<&PDAclColl::numFilters>("numFilters")};
  return table;
}

Mox::Ptr<PDAclRuleColl> PDAclColl::pdAclIs(PDAclKey const& key) {
  return written(Mox::lookupOrMake(pdAcl_, key, [&]() -> Mox::Ptr<PDAclRuleColl const> {
    return Mox::makePtr<PDAclRuleColl>(key);
  }));
}

size_t PDAclColl::numFilters() const {
  size_t n = 0;
  for (auto const& [key, acl] : pdAcl_) n += acl->numFilters();
  return n;
}

namespace {

uint64_t nextInstance() {
  static std::atomic<uint64_t> count{0};  // pipelines of several threads share the numbering
  return ++count;
}

}  // namespace

PDData::PDData(Mox::Ptr<ChipHwCapability const> hwCapability)
    : instance_(nextInstance()),
      hwCapability_(std::move(hwCapability)),
      pdAclColl_(Mox::makePtr<PDAclColl>()) {
  MOX_ASSERT(hwCapability_);
  for (PrefixXformKey const& key : PrefixXformKey::all())
    prefix_.set(key, Mox::makePtr<PDPrefixXformEntryColl>());
  for (auto& coll : combo_) coll = Mox::makePtr<PDComboEntryColl>();
  for (auto& coll : range_) coll = Mox::makePtr<PDRangeXformEntryColl>();
}

Mox::AttributeTable const& PDData::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&PDData::prefix_>("pdPrefixXformEntryColl"),
      Mox::attribute<&PDData::pdV4PrefixComboEntryColl>("pdV4PrefixComboEntryColl"),
      Mox::attribute<&PDData::pdV6PrefixComboEntryColl>("pdV6PrefixComboEntryColl"),
      Mox::attribute<&PDData::pdPortComboEntryColl>("pdPortComboEntryColl"),
      Mox::attribute<&PDData::pdSrcPortXformEntryColl>("pdSrcPortXformEntryColl"),
      Mox::attribute<&PDData::pdDstPortXformEntryColl>("pdDstPortXformEntryColl"),
      Mox::attribute<&PDData::pdIcmpXformEntryColl>("pdIcmpXformEntryColl"),
      Mox::attribute<&PDData::pdProtocolXformEntryColl>("pdProtocolXformEntryColl"),
      Mox::attribute<&PDData::pdLengthXformEntryColl>("pdLengthXformEntryColl"),
      Mox::attribute<&PDData::pdFragmentXformEntryColl>("pdFragmentXformEntryColl"),
      Mox::attribute<&PDData::pdDscpXformEntryColl>("pdDscpXformEntryColl"),
      Mox::attribute<&PDData::pdTcpFlagsXformEntryColl>("pdTcpFlagsXformEntryColl"),
      Mox::attribute<&PDData::pdAclColl>("pdAclColl"),
      Mox::attribute<&PDData::hwCapability_>("hwCapability"),
      Mox::attribute<&PDData::labelCode_>("labelCode")};
  return table;
}

PDPrefixXformEntryColl& PDData::pdPrefixXformEntryCollIs(PrefixXformKey const& key) {
  return *written(*prefix_.get(key));
}

PDRangeXformEntryColl& PDData::rangeCollIs(RangeSetType type) { return *written(rangeColl(type)); }

PDComboEntryColl& PDData::comboCollIs(ComboLabelSetType type) { return *written(comboColl(type)); }

Mox::Ptr<PDData> pDDataFactory() {
  return pDDataFactory(Mox::makePtr<ChipHwCapability>(Obel::ChipId()));
}

Mox::Ptr<PDData> pDDataFactory(Mox::Ptr<ChipHwCapability const> hwCapability) {
  return Mox::makePtr<PDData>(std::move(hwCapability));
}

}  // namespace Naxel
