#include "naxel/control/StageSmColl.h"

namespace Naxel {

Mox::AttributeTable const& StageSmConfig::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&StageSmConfig::aggregatorConfig_>("aggregatorConfig"),
      Mox::attribute<&StageSmConfig::prefixXformConfig_>("prefixXformConfig"),
      Mox::attribute<&StageSmConfig::rangeSplitConfig_>("rangeSplitConfig"),
      Mox::attribute<&StageSmConfig::comboLabelResolverConfig_>("comboLabelResolverConfig"),
      Mox::attribute<&StageSmConfig::comboLabelSplitConfig_>("comboLabelSplitConfig"),
      Mox::attribute<&StageSmConfig::prefixEncoderConfig_>("prefixEncoderConfig"),
      Mox::attribute<&StageSmConfig::rangeEncoderConfig_>("rangeEncoderConfig"),
      Mox::attribute<&StageSmConfig::comboLabelEncoderConfig_>("comboLabelEncoderConfig"),
      Mox::attribute<&StageSmConfig::ruleExpanderConfig_>("ruleExpanderConfig"),
      Mox::attribute<&StageSmConfig::loaderConfig_>("loaderConfig")};
  return table;
}

Mox::AttributeTable const& StageSmStatus::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&StageSmStatus::aggregatorStatus_>("aggregatorStatus"),
      Mox::attribute<&StageSmStatus::prefixXformStatus_>("prefixXformStatus"),
      Mox::attribute<&StageSmStatus::rangeSplitStatus_>("rangeSplitStatus"),
      Mox::attribute<&StageSmStatus::comboLabelResolverStatus_>("comboLabelResolverStatus"),
      Mox::attribute<&StageSmStatus::comboLabelSplitStatus_>("comboLabelSplitStatus"),
      Mox::attribute<&StageSmStatus::prefixEncoderStatus_>("prefixEncoderStatus"),
      Mox::attribute<&StageSmStatus::rangeEncoderStatus_>("rangeEncoderStatus"),
      Mox::attribute<&StageSmStatus::comboLabelEncoderStatus_>("comboLabelEncoderStatus"),
      Mox::attribute<&StageSmStatus::ruleExpanderStatus_>("ruleExpanderStatus"),
      Mox::attribute<&StageSmStatus::loaderStatus_>("loaderStatus")};
  return table;
}

}  // namespace Naxel
