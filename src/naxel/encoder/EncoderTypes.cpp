#include "naxel/encoder/EncoderTypes.h"

#include "naxel/loader/PDData.h"

namespace Naxel {

Mox::AttributeTable const& PrefixXformLoaderInfo::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&PrefixXformLoaderInfo::prefixToLabelMap_>("prefixToLabelMap")};
  return table;
}

Mox::AttributeTable const& RangeSplitLoaderInfo::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&RangeSplitLoaderInfo::rangeToEncodedLabelMap_>("rangeToEncodedLabelMap")};
  return table;
}

Mox::AttributeTable const& ComboLabelLoaderInfo::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&ComboLabelLoaderInfo::encComboToEncodedLabelMap_>(
          "encComboToEncodedLabelMap")};
  return table;
}

Mox::AttributeTable const& EncoderStatus::attributeTable() const {
  static Mox::AttributeTable const table =
      Mox::joinTables(StageStatus::attributeTable(),
                      {Mox::attribute<&EncoderStatus::plainToEncodedLabel_>("plainToEncodedLabel"),
                       Mox::attribute<&EncoderStatus::encodedLabelList_>("encodedLabelList"),
                       Mox::attribute<&EncoderStatus::labelCode_>("labelCode"),
                       Mox::attribute<&EncoderStatus::encodedAfresh_>("encodedAfresh")});
  return table;
}

EncodedLabelWithMaskList const* EncoderStatus::encodedLabelList(GenSetKey key) const {
  auto const* item = encodedLabelList_.get(key);
  return item ? item->get() : nullptr;
}

Mox::Ptr<EncoderStatus> encoderStatusFactory() { return Mox::makePtr<EncoderStatus>(); }

EncoderConfig::EncoderConfig(Mox::Ptr<XformStatus const> xform) : xformStatus_(std::move(xform)) {}

EncoderConfig::~EncoderConfig() = default;

void EncoderConfig::basisIs(Mox::Ptr<PDData const> v, uint64_t repairRows) {
  basis_ = std::move(v);
  repairRows_ = repairRows;
}

Mox::AttributeTable const& EncoderConfig::attributeTable() const {
  static Mox::AttributeTable const table = Mox::joinTables(
      StageConfig::attributeTable(), {Mox::attribute<&EncoderConfig::xformStatus_>("xformStatus"),
                                      Mox::attribute<&EncoderConfig::labelCode_>("labelCode"),
                                      Mox::attribute<&EncoderConfig::basis_>("basis"),
                                      Mox::attribute<&EncoderConfig::repairRows_>("repairRows")});
  return table;
}

Mox::Ptr<EncoderConfig> encoderConfigFactory(Mox::Ptr<XformStatus const> xformStatus) {
  return Mox::makePtr<EncoderConfig>(std::move(xformStatus));
}

Mox::AttributeTable const& RangeEncoderConfig::attributeTable() const {
  static Mox::AttributeTable const table =
      Mox::joinTables(EncoderConfig::attributeTable(),
                      {Mox::attribute<&RangeEncoderConfig::aggregatorInfo_>("aggregatorInfo")});
  return table;
}

Mox::AttributeTable const& ComboLabelEncoderConfig::attributeTable() const {
  static Mox::AttributeTable const table =
      Mox::joinTables(EncoderConfig::attributeTable(),
                      {Mox::attribute<&ComboLabelEncoderConfig::srcEncStatus_>("srcEncStatus"),
                       Mox::attribute<&ComboLabelEncoderConfig::dstEncStatus_>("dstEncStatus")});
  return table;
}

}  // namespace Naxel
