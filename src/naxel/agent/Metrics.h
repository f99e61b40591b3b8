#pragma once

/// What a pipeline knows of its kicks, its labels and its tables, as values: for the page that an agent's
/// operator watches. `Pipeline::metrics()` takes them.

#include "acl/ParamConfig.h"
#include "mox/Text.h"
#include "naxel/loader/RowCounts.h"
#include "naxel/types/ControlEnums.h"

#include <array>
#include <map>
#include <string>
#include <vector>

namespace Naxel {

inline constexpr size_t stageCount = Mox::EnumNames<NaxelActiveStage>::value.size();
inline constexpr size_t kickEndCount = 4;  ///< values of KickEnd

struct StageMetrics {
  /// Of the machine's steady clock, all keys of the stage together. That of the loader contains the waiting for the
  /// driver.
  Mox::Seconds seconds = 0;
  std::map<StageStatusType, size_t> outcome;  ///< how many keys of the stage have ended how
};

/// How many labels a field has handed out.
struct LabelUse {
  std::string field;   ///< "ipv4Src", "dstPort", "srcDstL4Port"
  unsigned width = 0;  ///< in bits; 0 where the field is matched by its raw value
  size_t used = 0;
  Acl::LabelCode code = Acl::LabelCode::aligned;  ///< means nothing without a width

  /// How many there are. The highest one stays free: a chip may yield it on a miss.
  size_t available() const { return (size_t{1} << width) - 1; }
};

struct Metrics {
  /// Kicks that have ended, by KickEnd, since the pipeline was made. Those that pipeline.kick() has requested.
  std::array<uint64_t, kickEndCount> kicks{};
  Mox::Seconds kickSeconds =
      0;  ///< of the last one that has ended, from kick() on, by the steady clock
  Mox::Seconds allKickSeconds = 0;  ///< of all of them
  /// Of the last kick that was requested, by stage; a stage that it did not come to has no outcome.
  std::array<StageMetrics, stageCount> stages;
  /// By field: prefixes, ranges, and those combinations that the chip makes.
  std::vector<LabelUse> labels;
  /// Rows of output(), by PDTable.
  std::array<size_t, pdTableCount> tableRows{};
  /// By which rows the output that was last loaded differs from the one before.
  TableRowCounts changes;
};

}  // namespace Naxel
