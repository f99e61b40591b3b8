#include "naxel/control/RootTypes.h"

namespace Naxel {

Mox::AttributeTable const& RootConfig::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&RootConfig::chipId_>("chipId"),
      Mox::attribute<&RootConfig::naxelKickRequest_>("naxelKickRequest"),
      Mox::timeAttribute<&RootConfig::naxelKickTime_>("naxelKickTime")};
  return table;
}

Mox::AttributeTable const& RootStatus::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&RootStatus::chipId_>("chipId"),
      Mox::attribute<&RootStatus::kickCount_>("kickCount"),
      Mox::timeAttribute<&RootStatus::kickTime_>("kickTime"),
      Mox::attribute<&RootStatus::kickProgress_>("kickProgress"),
      Mox::attribute<&RootStatus::kickMessage_>("kickMessage")};
  return table;
}

}  // namespace Naxel
