#pragma once

/// The lines of one list of an ASA while they are read: by position, counted from 1 over entries and remarks.

#include "input/text/Words.h"

#include <cstdint>
#include <string_view>
#include <vector>

namespace NaxelTool {

class PositionedList {
 public:
  struct Line {
    Words words{};  ///< from "permit" or "deny" on, or behind "remark"
    bool isRemark = false;
    bool standard = false;          ///< has a destination only
    bool ipv6 = false;              ///< of a list that is of IPv6 alone
    std::vector<Words> expanded{};  ///< what a listing says that the line stands for, one by one
    uint64_t number = 0;            ///< its position; that of the listing if some are missing there
  };

  PositionedList(std::string_view named, Place head) : name(named), place(head) {}

  std::string_view name;
  Place place;
  size_t lastLine = 0;

  size_t entries() const { return entries_; }
  /// The last line that came to the end; null if there is none.
  Line* last() {
    return chunks_.empty() || chunks_.back().empty() ? nullptr : &chunks_.back().back();
  }
  /// Puts a line at a position, or with 0 at the end. Cost: that of a thousand lines, and one step for every
  /// thousand lines of the list.
  void lineIs(uint64_t position, Line line);
  /// Takes the first entry away that says the same; false if there is none. Cost: all lines.
  bool entryDel(Words words);

  /// Calls `f` for each line in order, with its number.
  template <class F>
  void forEach(F f) const {
    uint64_t position = 0;
    for (auto const& chunk : chunks_)
      for (Line const& line : chunk) f(line, inserted_ ? ++position : line.number);
  }

 private:
  static constexpr size_t chunkSize = 1024;

  // Pieces of at most twice the size, so that a line comes between others without moving all of them.
  std::vector<std::vector<Line>> chunks_;
  size_t lines_ = 0;
  size_t entries_ = 0;
  bool inserted_ = false;  // lines have moved
};

}  // namespace NaxelTool
