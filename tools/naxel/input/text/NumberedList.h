#pragma once

/// The entries of one list of the IOS family while its lines are read: in the order of their numbers, and with
/// what later lines replace or take away.

#include "input/text/Words.h"
#include "lumox/AddressFamily.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace NaxelTool {

class NumberedList {
 public:
  struct Line {
    Words words{};  ///< from "permit" or "deny" on, or behind "remark"
    bool isRemark = false;
    std::vector<Words> remarks{};  ///< in front of an entry, where remarks have no numbers
  };

  NumberedList(std::string_view named, Lumox::AddressFamily family, bool isStandard, Place head)
      : name(named), af(family), standard(isStandard), place(head) {}

  std::string_view name;
  Lumox::AddressFamily af;
  bool standard;
  Place place;  ///< of the head, or of the first entry where there is none
  size_t lastLine = 0;
  std::optional<bool> restOfFragments;  ///< permitted or denied behind all entries
  size_t restLine = 0;                  ///< which says so

  std::map<uint64_t, Line> const& lines() const { return lines_; }
  size_t entries() const { return entries_; }
  /// Those behind the last entry.
  std::vector<Words> const& pendingRemarks() const { return pending_; }

  /// The number that a line gets which has none.
  uint64_t nextNumber() const { return lines_.empty() ? 10 : lines_.rbegin()->first + 10; }
  /// The line that has this number.
  Line const* line(uint64_t number) const;
  /// Puts a line in its place; the number must be free.
  void lineIs(uint64_t number, Line line);
  void lineDel(uint64_t number);
  /// Keeps a remark for the entry that comes next.
  void remarkIs(Words remark) { pending_.push_back(remark); }

  /// The number of the entry that says the same, if there is one. The first call looks at all entries.
  std::optional<uint64_t> sameEntry(Words words);

 private:
  std::map<uint64_t, Line> lines_;
  std::vector<Words> pending_;
  size_t entries_ = 0;
  std::optional<std::unordered_multimap<std::string, uint64_t>> numbers_;  // by sameText()
};

/// The remarks as one text, a line each.
std::string descriptionOf(std::vector<Words> const& remarks);

}  // namespace NaxelTool
