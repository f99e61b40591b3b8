#pragma once

/// Pieces of an HTML page. Texts are escaped here and nowhere else: whoever writes a page hands them over as
/// they are.

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace NaxelTool {

/// With everything escaped that means something in HTML, or that would not be shown.
std::string htmlText(std::string_view text);
/// Digits in groups of three: "12,345".
std::string grouped(uint64_t number);

/// A cell of a table.
struct HtmlCell {
  std::string html;  ///< escaped already
  bool isNumber = false;

  static HtmlCell text(std::string_view text) { return {htmlText(text), false}; }
  /// With smaller lines below.
  static HtmlCell text(std::string_view text, std::vector<std::string> const& below);
  static HtmlCell number(uint64_t number) { return {grouped(number), true}; }
  static HtmlCell shown(std::string_view number) { return {htmlText(number), true}; }
  /// A bar of `part` in `all`, and another one behind it for comparison if `other` is not 0.
  static HtmlCell bar(uint64_t part, uint64_t all, uint64_t other = 0);
};

using HtmlRow = std::vector<HtmlCell>;

/// A table of which the first `open` rows are shown at once, the others up to `most` on demand; what is cut is
/// counted. The cells of a column are all numbers or none. On a narrow screen each row becomes a block of named
/// lines, headed by its first cell.
struct HtmlTable {
  std::vector<std::string> head;
  std::vector<HtmlRow> rows;
  size_t all = 0;  ///< rows that there are, at least as many as `rows`
  size_t open = 20;

  void write(std::ostream& out) const;

 private:
  void writeRows(std::ostream& out, size_t from, size_t to) const;
};

/// The head of the page with its style.
void writeHtmlHead(std::ostream& out, std::string_view title);

}  // namespace NaxelTool
