#include "naxel/loader/PDTable.h"

#include "naxel/loader/PDConfig.h"
#include "naxel/loader/PDData.h"

namespace Naxel {

namespace {

// The first tables stand in the order of PrefixXformKey::all().
PrefixXformKey const& prefixKey(PDTable t) { return PrefixXformKey::all()[static_cast<size_t>(t)]; }
ComboLabelSetType comboType(PDTable t) {
  return static_cast<ComboLabelSetType>(static_cast<size_t>(t) -
                                        static_cast<size_t>(PDTable::v4PrefixCombo));
}
/// The TCP flags stand behind the last real type.
RangeSetType rangeType(PDTable t) {
  return static_cast<RangeSetType>(static_cast<size_t>(t) - static_cast<size_t>(PDTable::srcPort));
}

}  // namespace

std::array<PDTable, pdTableCount> const& allPDTables() {
  static std::array<PDTable, pdTableCount> const tables = [] {
    std::array<PDTable, pdTableCount> all{};
    for (size_t i = 0; i < pdTableCount; ++i) all[i] = static_cast<PDTable>(i);
    return all;
  }();
  return tables;
}

std::string tableTitle(PDTable table) {
  if (isRangeTable(table)) return rangeField(rangeType(table)).values;
  switch (table) {
    case PDTable::v4Source: return "IPv4 source prefixes";
    case PDTable::v4Destination: return "IPv4 destination prefixes";
    case PDTable::v6Source: return "IPv6 source prefixes";
    case PDTable::v6Destination: return "IPv6 destination prefixes";
    case PDTable::v4PrefixCombo: return "IPv4 address combinations";
    case PDTable::v6PrefixCombo: return "IPv6 address combinations";
    case PDTable::portCombo: return "port combinations";
    case PDTable::tcpFlags: return "TCP flags";
    default: return "ACL entries";
  }
}

ResourceStatus tableStatus(PDStatus const& status, PDTable t) {
  if (t == PDTable::aclEntries) return status.pdAclRuleEntryStatus();
  if (t == PDTable::tcpFlags) return status.pdTcpFlagsXformEntryStatus();
  if (isPrefixTable(t)) {
    ResourceStatus const* const answer = status.pdPrefixXformEntryStatus().get(prefixKey(t));
    return answer ? *answer : ResourceStatus();
  }
  if (isComboTable(t)) return status.comboStatus(comboType(t));
  return status.rangeStatus(rangeType(t));
}

void tableStatusIs(PDStatus& status, PDTable t, ResourceStatus const& answer) {
  if (t == PDTable::aclEntries) return status.pdAclRuleEntryStatusIs(answer);
  if (t == PDTable::tcpFlags) return status.pdTcpFlagsXformEntryStatusIs(answer);
  if (isPrefixTable(t)) return status.pdPrefixXformEntryStatusIs(prefixKey(t), answer);
  if (isComboTable(t)) return status.comboStatusIs(comboType(t), answer);
  status.rangeStatusIs(rangeType(t), answer);
}

size_t tableEntries(PDData const& data, PDTable t) {
  if (t == PDTable::aclEntries) return data.pdAclColl()->numFilters();
  if (isPrefixTable(t)) return data.pdPrefixXformEntryColl(prefixKey(t))->entry().size();
  if (isComboTable(t)) return data.comboColl(comboType(t))->entry().size();
  return data.rangeColl(rangeType(t))->entry().size();
}

}  // namespace Naxel
