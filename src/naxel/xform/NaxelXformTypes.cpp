#include "naxel/xform/NaxelXformTypes.h"

namespace Naxel {

Mox::AttributeTable const& XformStatus::attributeTable() const {
  static Mox::AttributeTable const table =
      Mox::joinTables(StageStatus::attributeTable(),
                      {Mox::attribute<&XformStatus::plainLabelListMap_>("plainLabelListMap"),
                       Mox::attribute<&XformStatus::outputUnusable_>("outputUnusable")});
  return table;
}

Mox::Ptr<XformStatus> xformStatusFactory() { return Mox::makePtr<XformStatus>(); }

Mox::AttributeTable const& PrefixXformConfig::attributeTable() const {
  static Mox::AttributeTable const table =
      Mox::joinTables(StageConfig::attributeTable(),
                      {Mox::attribute<&PrefixXformConfig::key_>("key"),
                       Mox::attribute<&PrefixXformConfig::aggregatorInfo_>("aggregatorInfo")});
  return table;
}

Mox::AttributeTable const& PrefixXformStatus::attributeTable() const {
  static Mox::AttributeTable const table =
      Mox::joinTables(XformStatus::attributeTable(),
                      {Mox::attribute<&PrefixXformStatus::key_>("key"),
                       Mox::attribute<&PrefixXformStatus::prefixToLabelMap_>("prefixToLabelMap")});
  return table;
}

Mox::AttributeTable const& RangeSplitConfig::attributeTable() const {
  static Mox::AttributeTable const table =
      Mox::joinTables(StageConfig::attributeTable(),
                      {Mox::attribute<&RangeSplitConfig::key_>("key"),
                       Mox::attribute<&RangeSplitConfig::aggregatorInfo_>("aggregatorInfo")});
  return table;
}

Mox::AttributeTable const& RangeSplitStatus::attributeTable() const {
  static Mox::AttributeTable const table = Mox::joinTables(
      XformStatus::attributeTable(),
      {Mox::attribute<&RangeSplitStatus::key_>("key"),
       Mox::attribute<&RangeSplitStatus::rangeToPlainLabelMap_>("rangeToPlainLabelMap")});
  return table;
}

Mox::AttributeTable const& ComboLabelInfo::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&ComboLabelInfo::type_>("type"),
      Mox::attribute<&ComboLabelInfo::comboLabelSetColl_>("comboLabelSetColl"),
      Mox::attribute<&ComboLabelInfo::srcDstToComboMap_>("srcDstToComboMap")};
  return table;
}

Mox::Ptr<ComboLabelSet> ComboLabelInfo::comboLabelSetCollIs(GenSetKey key, ComboLabelSetType type) {
  return Mox::lookupOrMake(comboLabelSetColl_, key,
                           [&] { return Mox::makePtr<ComboLabelSet>(key, type); });
}

GenSetKey ComboLabelInfo::srcDstToComboMap(GenSetKeyPair const& pair) const {
  GenSetKey const* key = srcDstToComboMap_.get(pair);
  return key ? *key : GenSetKey();
}

Mox::AttributeTable const& ComboLabelResolverConfig::attributeTable() const {
  static Mox::AttributeTable const table =
      Mox::joinTables(StageConfig::attributeTable(),
                      {Mox::attribute<&ComboLabelResolverConfig::key_>("key"),
                       Mox::attribute<&ComboLabelResolverConfig::srcXform_>("srcXform"),
                       Mox::attribute<&ComboLabelResolverConfig::dstXform_>("dstXform"),
                       Mox::attribute<&ComboLabelResolverConfig::aggInfo_>("aggInfo")});
  return table;
}

Mox::AttributeTable const& ComboLabelResolverStatus::attributeTable() const {
  static Mox::AttributeTable const table = Mox::joinTables(
      StageStatus::attributeTable(),
      {Mox::attribute<&ComboLabelResolverStatus::key_>("key"),
       Mox::attribute<&ComboLabelResolverStatus::comboLabelInfo_>("comboLabelInfo"),
       Mox::attribute<&ComboLabelResolverStatus::genSetUsageInfo_>("genSetUsageInfo")});
  return table;
}

Mox::AttributeTable const& ComboLabelSplitConfig::attributeTable() const {
  static Mox::AttributeTable const table =
      Mox::joinTables(StageConfig::attributeTable(),
                      {Mox::attribute<&ComboLabelSplitConfig::key_>("key"),
                       Mox::attribute<&ComboLabelSplitConfig::comboLabelInfo_>("comboLabelInfo")});
  return table;
}

Mox::AttributeTable const& ComboLabelSplitStatus::attributeTable() const {
  static Mox::AttributeTable const table = Mox::joinTables(
      XformStatus::attributeTable(),
      {Mox::attribute<&ComboLabelSplitStatus::key_>("key"),
       Mox::attribute<&ComboLabelSplitStatus::comboToPlainLabelMap_>("comboToPlainLabelMap")});
  return table;
}

}  // namespace Naxel
