#pragma once

/// All answers about a set of rules as one page of HTML that needs no other file and no scripts, in the light or dark
/// colours of whoever reads it. Long tables are cut, and say what they leave out, so that a page of 10,000 rules
/// stays small.

#include "answers/Costs.h"

#include <ostream>
#include <string>
#include <vector>

namespace NaxelTool {

/// A table of texts; whatever they hold, they are shown as text.
struct ReportSection {
  std::string title;
  std::string about;  ///< a sentence above the table
  std::vector<std::string> head;
  std::vector<std::vector<std::string>> rows;
};

struct ReportPage {
  std::string title;
  std::vector<std::string> files;
  ReadCounts source;
  CostReport costs;
  std::vector<ReportSection> sections;  ///< shown behind the costs
};

void writeReport(ReportPage const& page, std::ostream& out);

}  // namespace NaxelTool
