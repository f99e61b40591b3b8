#pragma once

/// The rules that a driver has to keep, by the short names that docs/driver-guide.md has for them. Each says what
/// it demands in words; a breach cites one.

#include <array>
#include <cstdint>
#include <string_view>

namespace Naxel::Testing {

enum class Rule : uint8_t {
  answerAll,
  answerEvery,
  answerId,
  answerState,
  answerAlike,
  acquireKeeps,
  acquireReserves,
  acquireReleases,
  acquireConsistent,
  loadSucceeds,
  loadFinishes,
  loadedInForce,
  hitlessUndisturbed,
  revertRestores,
  policyConfirmed,
  policyInForce,
  policyAsAsked,
  policyCovers,
  restartTables,
  restartRequest,
  restartPolicy,
  outputUnchanged,
  configUntouched,
  writeAcl,
  writeEntries,
  writeTable,
  lookupPrefix,
  lookupRange,
  lookupCombination,
  lookupSides,
  lookupMissZero,
  lookupMiss,
  lookupRaw,
  lookupMask,
  lookupFlags,
  lookupFamily,
  lookupOrder,
  lookupAction,
  lookup
};

struct RuleText {
  Rule rule;
  std::string_view name;     ///< "answer-id"
  std::string_view demands;  ///< a sentence without its full stop
};

/// In the order of the enumeration.
extern std::array<RuleText, 39> const allRules;
inline RuleText const& textOf(Rule rule) { return allRules[static_cast<size_t>(rule)]; }

}  // namespace Naxel::Testing
