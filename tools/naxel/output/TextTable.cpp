#include "output/TextTable.h"

#include <algorithm>
#include <iomanip>
#include <sstream>

namespace NaxelTool {

void printTable(std::ostream& out, std::vector<std::vector<std::string>> const& rows, size_t left) {
  std::vector<size_t> width;
  for (auto const& row : rows) {
    width.resize(std::max(width.size(), row.size()));
    for (size_t i = 0; i < row.size(); ++i) width[i] = std::max(width[i], row[i].size());
  }
  for (auto const& row : rows) {
    std::string line;
    for (size_t i = 0; i < row.size(); ++i) {
      std::string const gap(width[i] - row[i].size(), ' ');
      line += (i ? "  " : "") + (i < left ? row[i] + gap : gap + row[i]);
    }
    line.erase(line.find_last_not_of(' ') + 1);
    out << line << '\n';
  }
}

std::string fixed(double value, int digits) {
  std::ostringstream out;
  out << std::fixed << std::setprecision(digits) << value;
  return out.str();
}

}  // namespace NaxelTool
