#pragma once

/// What the packets of files came to, in words or as JSON.

#include "answers/FileClassifier.h"

#include <ostream>

namespace NaxelTool {

struct FileReport {
  bool each = false;  ///< one line for every packet and ACL besides the counts
  bool json = false;
  bool all = false;  ///< every rule in the table of hits, however many there are
};

/// Runs the classifier and writes the report as it comes: every verdict if asked for, all differences
/// between tables and rules up to a few, and in any case how often rules were hit, which never,
/// why the rules that were asked for did not decide, how many packets were read, and which were left out for what
/// reason. Returns false if there is any finding: a
/// difference, or a header of a trace that is decided later than by the rule it was drawn from.
bool classifyFiles(FileClassifier& classifier, RuleSet const& rules, PacketFiles const& files,
                   FileReport const& report, std::ostream& out, Diagnostics& diagnostics);

}  // namespace NaxelTool
