#pragma once

/// Reading all rule files of a run.

#include "input/ClassBenchReader.h"
#include "input/RuleSet.h"

#include <ostream>
#include <string>
#include <vector>

namespace NaxelTool {

enum class RuleFormat {
  automatic,  ///< by the first character that is not blank: '@' or '{'
  classBench,
  json
};

/// Reads the files in order into one configuration. Remarks for the user go to `remarks`. Throws
/// InputError.
void readRuleFiles(std::vector<std::string> const& paths, RuleFormat format, FlagsMode flags,
                   RuleSet& out, std::ostream& remarks);

}  // namespace NaxelTool
