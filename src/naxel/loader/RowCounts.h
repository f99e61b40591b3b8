#pragma once

/// How many rows of a table one output differs in from the one before: what a driver has to write.

#include "mox/OrderedMap.h"
#include "mox/Value.h"
#include "naxel/loader/PDTable.h"

namespace Naxel {

class NAXEL_EXPORT RowCounts : public Mox::ValueType<RowCounts> {
 public:
  static constexpr std::string_view typeName = "Naxel::RowCounts";
  RowCounts() = default;
  RowCounts(uint64_t added, uint64_t deleted, uint64_t changed, uint64_t kept)
      : added_(added), deleted_(deleted), changed_(changed), kept_(kept) {}
  explicit RowCounts(Mox::TextCursor& c) { Mox::TextForm<RowCounts>::read(c, *this); }

  uint64_t added() const { return added_; }
  uint64_t deleted() const { return deleted_; }
  /// Rows of equal keys: transform entries that yield another label, ACL entries with another action.
  uint64_t changed() const { return changed_; }
  uint64_t kept() const { return kept_; }

  static constexpr auto fields() {
    return std::make_tuple(
        Mox::field("added", &RowCounts::added_), Mox::field("deleted", &RowCounts::deleted_),
        Mox::field("changed", &RowCounts::changed_), Mox::field("kept", &RowCounts::kept_));
  }

 private:
  uint64_t added_ = 0;
  uint64_t deleted_ = 0;
  uint64_t changed_ = 0;
  uint64_t kept_ = 0;
};

/// Of the tables that have rows in either output, by table. Rules that are the same objects cost a comparison
/// each, all else what it holds.
using TableRowCounts = Mox::OrderedMap<PDTable, RowCounts>;
NAXEL_EXPORT TableRowCounts rowCounts(PDData const& before, PDData const& after);

}  // namespace Naxel
