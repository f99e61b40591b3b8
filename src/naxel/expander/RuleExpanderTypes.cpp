#include "naxel/expander/RuleExpanderTypes.h"

namespace Naxel {

Mox::AttributeTable const& RuleExpanderConfig::attributeTable() const {
  using C = RuleExpanderConfig;
  static Mox::AttributeTable const table =
      Mox::joinTables(StageConfig::attributeTable(),
                      {Mox::attribute<&C::aggregatorStatus_>("aggregatorStatus"),
                       Mox::attribute<&C::comboLabelInfo_>("comboLabelInfo"),
                       Mox::attribute<&C::prefixEncoderStatus_>("prefixEncoderStatus"),
                       Mox::attribute<&C::rangeEncoderStatus_>("rangeEncoderStatus"),
                       Mox::attribute<&C::comboLabelEncoderStatus_>("comboLabelEncoderStatus")});
  return table;
}

Mox::AttributeTable const& RuleExpanderStatus::attributeTable() const {
  static Mox::AttributeTable const table = Mox::joinTables(
      StageStatus::attributeTable(),
      {Mox::attribute<&RuleExpanderStatus::ruleExpanderLoaderInfo_>("ruleExpanderLoaderInfo")});
  return table;
}

}  // namespace Naxel
