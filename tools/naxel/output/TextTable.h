#pragma once

/// Aligned columns of text for the terminal.

#include <ostream>
#include <string>
#include <vector>

namespace NaxelTool {

/// The first row is the heading. Columns are as wide as their longest cell; `left` columns from the
/// left are set flush left, the others flush right.
void printTable(std::ostream& out, std::vector<std::vector<std::string>> const& rows, size_t left);

/// With that many digits behind the point.
std::string fixed(double value, int digits);

}  // namespace NaxelTool
