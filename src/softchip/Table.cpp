#include "softchip/Table.h"

namespace SoftChip {

using Naxel::ComboLabelSetType;
using Naxel::PrefixXformKey;
using Naxel::RangeSetType;

namespace {

PrefixXformKey const& prefixKey(Table t) { return PrefixXformKey::all()[static_cast<size_t>(t)]; }
bool isCombo(Table t) { return t >= Table::v4PrefixCombo && t <= Table::portCombo; }
ComboLabelSetType comboType(Table t) {
  return static_cast<ComboLabelSetType>(static_cast<size_t>(t) -
                                        static_cast<size_t>(Table::v4PrefixCombo));
}
/// The TCP flags stand behind the last real type.
RangeSetType rangeType(Table t) {
  return static_cast<RangeSetType>(static_cast<size_t>(t) - static_cast<size_t>(Table::srcPort));
}

}  // namespace

std::array<Table, tableCount> const& allTables() {
  static std::array<Table, tableCount> const tables = [] {
    std::array<Table, tableCount> all{};
    for (size_t i = 0; i < tableCount; ++i) all[i] = static_cast<Table>(i);
    return all;
  }();
  return tables;
}

size_t entriesOf(Naxel::PDData const& data, Table t) {
  if (t == Table::aclEntries) return data.pdAclColl()->numFilters();
  if (isPrefixTable(t)) return data.pdPrefixXformEntryColl(prefixKey(t))->entry().size();
  if (isCombo(t)) return data.comboColl(comboType(t))->entry().size();
  return data.rangeColl(rangeType(t))->entry().size();
}

void statusIs(Naxel::PDStatus& to, Table t, Naxel::ResourceStatus const& status) {
  if (t == Table::aclEntries) return to.pdAclRuleEntryStatusIs(status);
  if (t == Table::tcpFlags) return to.pdTcpFlagsXformEntryStatusIs(status);
  if (isPrefixTable(t)) return to.pdPrefixXformEntryStatusIs(prefixKey(t), status);
  if (isCombo(t)) return to.comboStatusIs(comboType(t), status);
  to.rangeStatusIs(rangeType(t), status);
}

Naxel::ResourceStatus statusOf(Naxel::PDStatus const& from, Table t) {
  if (t == Table::aclEntries) return from.pdAclRuleEntryStatus();
  if (isPrefixTable(t)) {
    auto const* const status = from.pdPrefixXformEntryStatus().get(prefixKey(t));
    return status ? *status : Naxel::ResourceStatus();
  }
  if (isCombo(t)) return from.comboStatus(comboType(t));
  return from.rangeStatus(rangeType(t));
}

}  // namespace SoftChip
