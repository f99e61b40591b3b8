#include "naxel/control/StageControllerTypes.h"

namespace Naxel {

Mox::AttributeTable const& StageControllerConfig::attributeTable() const {
  static Mox::AttributeTable const table =
      Mox::joinTables(StageConfig::attributeTable(),
                      {Mox::attribute<&StageControllerConfig::kickRequest_>("kickRequest")});
  return table;
}

Mox::AttributeTable const& StageControllerStatus::attributeTable() const {
  static Mox::AttributeTable const table = Mox::joinTables(
      StageStatus::attributeTable(),
      {Mox::attribute<&StageControllerStatus::lastFailedStage_>("lastFailedStage")});
  return table;
}

}  // namespace Naxel
