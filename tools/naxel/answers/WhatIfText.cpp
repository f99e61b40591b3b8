#include "answers/WhatIf.h"
#include "input/Diagnostics.h"
#include "output/TextTable.h"

#include <algorithm>
#include <numeric>

#include <nlohmann/json.hpp>

namespace NaxelTool {

namespace {

using Cells = std::vector<std::string>;

/// The last part of each path: the tables would be too wide with all of them.
std::string shortName(std::string const& path) {
  std::string out;
  std::string_view rest = path;
  for (;;) {
    size_t const end = rest.find('+');
    std::string_view const one = rest.substr(0, end);
    out += (out.empty() ? "" : "+") + std::string(one.substr(one.rfind('.') + 1));
    if (end == std::string_view::npos) return out;
    rest.remove_prefix(end + 1);
  }
}

void printPoints(WhatIfReport const& report, std::vector<size_t> const& places, size_t shown,
                 bool fit, std::ostream& out) {
  if (places.empty()) return;
  Cells head;
  head.reserve(report.grid.axes().size() + 3);
  for (GridAxis const& axis : report.grid.axes()) head.push_back(shortName(axis.name));
  size_t const left = fit ? 0 : head.size() + 1;
  for (char const* const name : {"entries", "rows", "bits"})
    if (fit) head.emplace_back(name);
  if (!fit) head.emplace_back("what breaks first");
  std::vector<Cells> rows = {std::move(head)};
  for (size_t i = 0; i < places.size() && i < shown; ++i) {
    WhatIfPoint const& point = report.points[places[i]];
    Cells row;
    row.reserve(point.values.size() + 3);
    for (size_t axis = 0; axis < point.values.size(); ++axis)
      row.push_back(report.grid.axes()[axis].members.front()->text(point.values[axis]));
    if (fit) {
      row.insert(row.end(), {std::to_string(*point.entries), std::to_string(point.rows),
                             std::to_string(point.bits)});
    } else {
      row.push_back(printable(point.lacks.front()));
      if (point.lacks.size() > 1)
        row.back() += " (and " + std::to_string(point.lacks.size() - 1) + " more)";
    }
    rows.push_back(std::move(row));
  }
  out << '\n';
  printTable(out, rows, left);
  if (places.size() > shown) out << "... " << places.size() - shown << " more; --all shows them\n";
}

}  // namespace

void print(WhatIfReport const& report, size_t shown, std::ostream& out) {
  std::vector<size_t> fitting;
  std::vector<size_t> others;
  for (size_t i = 0; i < report.points.size(); ++i)
    (report.points[i].fits() ? fitting : others).push_back(i);
  std::ranges::stable_sort(fitting, [&](size_t a, size_t b) {
    // The one that is called the cheapest has won ties by what is not shown.
    if (report.points[a].bits == report.points[b].bits)
      return std::pair(report.points[a].rows, a != report.cheapest) <
             std::pair(report.points[b].rows, b != report.cheapest);
    return report.points[a].bits < report.points[b].bits;
  });
  out << "the rules fit into " << fitting.size() << " of " << report.points.size() << " chips\n";
  if (report.cheapest) {
    WhatIfPoint const& best = report.points[*report.cheapest];
    out << "the cheapest by bits in all tables (" << best.bits << "):\n";
    for (size_t i = 0; i < report.grid.axes().size(); ++i)
      out << "  " << report.grid.axes()[i].name << " "
          << report.grid.axes()[i].members.front()->text(best.values[i]) << '\n';
  }
  printPoints(report, fitting, shown, true, out);
  printPoints(report, others, shown, false, out);
}

void printJson(WhatIfReport const& report, std::ostream& out) {
  using Json = nlohmann::ordered_json;
  Json json{{"schema", "naxel-whatif"},  {"version", 1},          {"kicks", report.kicks},
            {"leftOut", report.leftOut}, {"axes", Json::array()}, {"points", Json::array()}};
  for (GridAxis const& axis : report.grid.axes()) json["axes"].push_back(axis.name);
  for (WhatIfPoint const& point : report.points) {
    Json item{{"values", Json::array()}, {"fits", point.fits()}};
    for (size_t i = 0; i < point.values.size(); ++i)
      item["values"].push_back(report.grid.axes()[i].members.front()->text(point.values[i]));
    if (!point.fits()) item["lacks"] = point.lacks;
    if (point.entries) {
      item["entries"] = *point.entries;
      item["rows"] = point.rows;
      item["bits"] = point.bits;
    }
    json["points"].push_back(std::move(item));
  }
  if (report.cheapest) json["cheapest"] = *report.cheapest;
  out << json.dump(1, ' ', true, Json::error_handler_t::replace) << '\n';
}

}  // namespace NaxelTool
