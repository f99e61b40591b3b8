#pragma once

/// Reading all rule files of a run.

#include "input/RuleReading.h"

#include <string>
#include <string_view>
#include <vector>

namespace NaxelTool {

/// A format of rule files. The table of them is what `--format` offers.
struct RuleFormatInfo {
  RuleFormat format;
  std::string_view name;         ///< as `--format` takes it
  std::string_view description;  ///< a few words
  /// Whether a text is of this format, by what stands in it; asked in the order of the table.
  bool (*looksLike)(std::string_view content);
  RuleReader read;
};

std::vector<RuleFormatInfo> const& ruleFormats();

/// The format of a text; null where none takes it.
RuleFormatInfo const* formatOf(std::string_view content);

/// Reads the files in order into one configuration. All that is wrong with them goes to `diagnostics`;
/// throws RejectedInput at the end if any of it is an error. Returns what became of the entries of all
/// files together.
ReadCounts readRuleFiles(std::vector<std::string> const& paths, ReadOptions const& options,
                         RuleSet& out, Diagnostics& diagnostics);

}  // namespace NaxelTool
