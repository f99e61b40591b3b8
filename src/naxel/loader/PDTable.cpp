#include "naxel/loader/PDTable.h"

#include "naxel/loader/PDConfig.h"
#include "naxel/loader/PDData.h"

namespace Naxel {

namespace {

bool isPrefix(PDTable t) { return t <= PDTable::v6Destination; }
bool isCombo(PDTable t) { return t >= PDTable::v4PrefixCombo && t <= PDTable::portCombo; }
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
  static constexpr char const* titles[] = {"IPv4 source prefixes",
                                           "IPv4 destination prefixes",
                                           "IPv6 source prefixes",
                                           "IPv6 destination prefixes",
                                           "IPv4 address combinations",
                                           "IPv6 address combinations",
                                           "port combinations",
                                           "source ports",
                                           "destination ports",
                                           "ICMP types",
                                           "protocols",
                                           "lengths",
                                           "fragment offsets",
                                           "DSCP values",
                                           "TCP flags",
                                           "ACL entries"};
  return titles[static_cast<size_t>(table)];
}

ResourceStatus tableStatus(PDStatus const& status, PDTable t) {
  if (t == PDTable::aclEntries) return status.pdAclRuleEntryStatus();
  if (t == PDTable::tcpFlags) return status.pdTcpFlagsXformEntryStatus();
  if (isPrefix(t)) {
    ResourceStatus const* const answer = status.pdPrefixXformEntryStatus().get(prefixKey(t));
    return answer ? *answer : ResourceStatus();
  }
  if (isCombo(t)) return status.comboStatus(comboType(t));
  return status.rangeStatus(rangeType(t));
}

void tableStatusIs(PDStatus& status, PDTable t, ResourceStatus const& answer) {
  if (t == PDTable::aclEntries) return status.pdAclRuleEntryStatusIs(answer);
  if (t == PDTable::tcpFlags) return status.pdTcpFlagsXformEntryStatusIs(answer);
  if (isPrefix(t)) return status.pdPrefixXformEntryStatusIs(prefixKey(t), answer);
  if (isCombo(t)) return status.comboStatusIs(comboType(t), answer);
  status.rangeStatusIs(rangeType(t), answer);
}

size_t tableEntries(PDData const& data, PDTable t) {
  if (t == PDTable::aclEntries) return data.pdAclColl()->numFilters();
  if (isPrefix(t)) return data.pdPrefixXformEntryColl(prefixKey(t))->entry().size();
  if (isCombo(t)) return data.comboColl(comboType(t))->entry().size();
  return data.rangeColl(rangeType(t))->entry().size();
}

}  // namespace Naxel
