#include "naxel/loader/RowCounts.h"

#include "naxel/driver/TableDiff.h"

namespace Naxel {

namespace {

template <class Row>
RowCounts countsOf(RowChanges<Row> const& changes, size_t after) {
  size_t const written = changes.add.size() + changes.change.size();
  return {changes.add.size(), changes.del.size(), changes.change.size(), after - written};
}

RowCounts aclCounts(TableDiff const& diff, size_t after) {
  uint64_t added = 0;
  uint64_t deleted = 0;
  uint64_t changed = 0;
  for (AclChanges const& acl : diff.acl) {
    for (PDAclRule const* rule : acl.add) added += rule->filters();
    for (PDAclRule const* rule : acl.del) deleted += rule->filters();
    for (RuleChange const& c : acl.change) {
      added += c.add.size();
      deleted += c.del.size();
      if (c.newAction || diff.otherWidths) changed += c.after->filters() - c.add.size();
    }
  }
  return {added, deleted, changed, after - added - changed};
}

}  // namespace

TableRowCounts rowCounts(PDData const& before, PDData const& after) {
  TableDiff const diff(before, after);
  TableRowCounts out;
  for (PDTable table : allPDTables()) {
    size_t const rows = tableEntries(after, table);
    if (!rows && !tableEntries(before, table)) continue;
    auto const at = static_cast<size_t>(table);
    if (isPrefixTable(table))
      out.set(table, countsOf(*diff.prefix.get(PrefixXformKey::all()[at]), rows));
    else if (isComboTable(table))
      out.set(table, countsOf(diff.combo[at - static_cast<size_t>(PDTable::v4PrefixCombo)], rows));
    else if (isRangeTable(table))
      out.set(table, countsOf(diff.range[at - static_cast<size_t>(PDTable::srcPort)], rows));
    else
      out.set(table, aclCounts(diff, rows));
  }
  return out;
}

}  // namespace Naxel
