#pragma once

/// All answers about a set of rules as one page of HTML that needs no other file and no scripts, in the light or dark
/// colours of whoever reads it. Long tables are cut, and say what they leave out, so that a page of 10,000 rules
/// stays small.

#include "answers/Changes.h"
#include "answers/Costs.h"

#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace NaxelTool {

/// A text, and smaller lines below it.
struct ReportCell {
  std::string text;
  std::vector<std::string> below = {};
};

/// A table of texts; whatever they hold, they are shown as text.
struct ReportSection {
  std::string title;
  std::string about;  ///< a sentence above the table
  std::vector<std::string> head;
  std::vector<std::vector<ReportCell>> rows;
};

/// What becomes different when the rules of a page come after older ones.
struct ReportChanges {
  std::vector<std::string> files;  ///< of the older rules
  Changes changes;
};

struct ReportPage {
  std::string title;
  std::vector<std::string> files;
  ReadCounts source;
  CostReport costs;
  std::vector<ReportSection> sections;  ///< shown behind the costs
  std::optional<ReportChanges> since;   ///< shown before them
};

/// The size of what is open at once in a long table, and of what is there at all.
constexpr size_t openReportRows = 20;
constexpr size_t mostReportRows = 500;

/// The part of the page that is about changes.
void writeChanges(ReportChanges const& since, std::ostream& out);
void writeReport(ReportPage const& page, std::ostream& out);

}  // namespace NaxelTool
