#include "naxel/control/StageTypes.h"

namespace Naxel {

Mox::AttributeTable const& StageConfig::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::timeAttribute<&StageConfig::kickTime_>("kickTime")};
  return table;
}

Mox::AttributeTable const& StageStatus::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::timeAttribute<&StageStatus::kickTime_>("kickTime"),
      Mox::attribute<&StageStatus::status_>("status"),
      Mox::attribute<&StageStatus::failureText_>("failureText"),
      Mox::attribute<&StageStatus::caution_>("caution"),
      Mox::attribute<&StageStatus::progress_>("progress")};
  return table;
}

}  // namespace Naxel
