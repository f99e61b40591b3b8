#pragma once

/// What differs between two outputs, table by table, as rows: for a driver that writes only that.
///
/// Rows are told by their keys: a prefix, a range, a pair of labels; a rule by its index. A row of both
/// outputs whose label differs is a change. Tables, ACLs and rules that did not change are mostly the same object in
/// both outputs, so most of them cost one comparison of pointers; the rest costs what it holds.
///
/// A chip that is written row by row while packets pass meets states that are neither of the two outputs: it
/// has to write them beside each other, or to answer `hitful`.

#include "naxel/loader/PDData.h"

#include <utility>
#include <vector>

namespace Naxel {

/// Changes to one table. What they refer to is part of the two outputs, and stays as long as those do.
template <class Row>
struct RowChanges {
  std::vector<Row const*> add;
  std::vector<Row const*> del;                            ///< of the output before
  std::vector<std::pair<Row const*, Row const*>> change;  ///< before, after; of equal keys

  /// A changed row counts once.
  size_t size() const { return add.size() + del.size() + change.size(); }
};

/// A rule that is in both outputs and does not say the same.
struct RuleChange {
  PDAclRule const* before;
  PDAclRule const* after;
  /// Entries that only one of them has. Those of both are in neither, and have to be written, too, where the action
  /// differs; so also where the widths do, although nothing else may.
  std::vector<PDAclFilter const*> add;
  std::vector<PDAclFilter const*> del;
  bool newAction = false;
};

struct AclChanges {
  PDAclKey key;
  bool isNew = false;   ///< all its rules are in `add`; there may be none
  bool isGone = false;  ///< all its rules are in `del`
  std::vector<PDAclRule const*> add;
  std::vector<PDAclRule const*> del;
  std::vector<RuleChange> change;
};

struct NAXEL_EXPORT TableDiff {
  /// Outputs of different widths differ in every row, whatever the rows say: their numbers mean other things. A row
  /// whose key is in both is a change there, also if it says the same.
  TableDiff(PDData const& before, PDData const& after);

  bool otherWidths;
  Mox::OrderedMap<PrefixXformKey, RowChanges<PDPrefixXformEntry>> prefix;
  std::array<RowChanges<PDRangeXformEntry>, rangeFieldCount> range;  ///< by type
  std::array<RowChanges<PDComboEntry>, 3> combo;                     ///< by type
  std::vector<AclChanges> acl;                                       ///< those that differ, by key

  /// Rows to write, add or delete in all, entries of rules counted one by one; a change is one row.
  size_t rows() const;
  /// Those of the ACLs among them.
  size_t aclRows() const;
};

}  // namespace Naxel
