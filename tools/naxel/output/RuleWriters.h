#pragma once

/// Rules in the formats that they are converted to. What a format cannot say is told as an error with the
/// place in the source, and the rest is written; whoever calls looks at the errors before he uses it.

#include "input/Diagnostics.h"
#include "input/RuleSet.h"

#include <ostream>

namespace NaxelTool {

struct WriteOptions {
  /// Only what the format's own definition has, without our additions.
  bool strict = false;
  /// The end that a format implies counts. Without, a list says nothing about packets that no rule of it
  /// matches, and is to be read so again.
  bool implicitEnd = true;
  /// Entries that look at layer 4 say nothing special about later fragments, and are to be read so again.
  bool plainFragments = false;
};

/// Our own JSON, which can say everything.
void writeRulesAsJson(std::ostream& out, RuleSet const& rules);

/// OpenConfig's JSON. What its definitions lack goes under names of our own, or is an error.
void writeRulesAsOpenConfig(std::ostream& out, RuleSet const& rules, WriteOptions const& options,
                            Diagnostics& diagnostics);

/// Text of the IOS family.
void writeRulesAsIos(std::ostream& out, RuleSet const& rules, WriteOptions const& options,
                     Diagnostics& diagnostics);

}  // namespace NaxelTool
