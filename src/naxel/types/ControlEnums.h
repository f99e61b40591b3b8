#pragma once

/// The enumerations of the control layer: kick requests, their progress, and the stages.

#include "mox/Enum.h"

#include <array>
#include <cstdint>
#include <ostream>
#include <string_view>

namespace Naxel {

/// What the agent asks for when it writes a new kick time.
enum class NaxelKickRequest : uint8_t { naxelStart, naxelCancel };

/// Where the last requested kick stands.
enum class NaxelProgress : uint8_t {
  naxelInitialized,
  naxelRunning,
  naxelCancelled,
  naxelFinishedSuccess,
  naxelFinishedFail
};

/// Answer of a stage to its current kick. `init`: not answered yet. `finishedSkipped`: nothing to
/// do, the output of the previous kick stands. `finishedNotEnabled`: switched off on this chip.
enum class StageStatusType : uint8_t {
  init,
  inProgress,
  finishedSuccess,
  finishedSkipped,
  finishedNotEnabled,
  finishedFailed,
  cancelled
};

/// The stages in the order in which a kick runs them; `stageInit` stands between kicks.
enum class NaxelActiveStage : uint8_t {
  stageInit,
  stageAggregator,
  stagePrefixXform,
  stageRangeSplit,
  stageComboLabelResolver,
  stageComboLabelSplit,
  stagePrefixEncoder,
  stageRangeEncoder,
  stageComboLabelEncoder,
  stageRuleExpander,
  stageLoader
};

/// Writes the name of any of the library's enumerations.
template <Mox::NamedEnum E>
std::ostream& operator<<(std::ostream& out, E e) {
  return out << Mox::stringValue(e);
}
using Mox::instanceFromNumber;
using Mox::instanceFromText;
using Mox::sequenceToValue;
using Mox::stringValue;
using Mox::valueToStrep;

}  // namespace Naxel

template <>
struct Mox::EnumNames<Naxel::NaxelKickRequest> {
  static constexpr std::array<std::string_view, 2> value = {"naxelStart", "naxelCancel"};
};
template <>
struct Mox::EnumNames<Naxel::NaxelProgress> {
  static constexpr std::array<std::string_view, 5> value = {
      "naxelInitialized", "naxelRunning", "naxelCancelled", "naxelFinishedSuccess",
      "naxelFinishedFail"};
};
template <>
struct Mox::EnumNames<Naxel::StageStatusType> {
  static constexpr std::array<std::string_view, 7> value = {
      "init",           "inProgress", "finishedSuccess", "finishedSkipped", "finishedNotEnabled",
      "finishedFailed", "cancelled"};
};
template <>
struct Mox::EnumNames<Naxel::NaxelActiveStage> {
  static constexpr std::array<std::string_view, 11> value = {"stageInit",
                                                             "stageAggregator",
                                                             "stagePrefixXform",
                                                             "stageRangeSplit",
                                                             "stageComboLabelResolver",
                                                             "stageComboLabelSplit",
                                                             "stagePrefixEncoder",
                                                             "stageRangeEncoder",
                                                             "stageComboLabelEncoder",
                                                             "stageRuleExpander",
                                                             "stageLoader"};
};
