#pragma once

/// The tables of an output, one enumeration over all of them: what the driver answers for, one by one.

#include "mox/Enum.h"
#include "mox/Export.h"
#include "naxel/types/MatchFields.h"

#include <array>
#include <cstdint>
#include <string>

namespace Naxel {

class PDData;
class PDStatus;
class ResourceStatus;

enum class PDTable : uint8_t {
  v4Source,
  v4Destination,
  v6Source,
  v6Destination,
  v4PrefixCombo,
  v6PrefixCombo,
  portCombo,
  srcPort,
  dstPort,
  icmp,
  proto,
  length,
  fragment,
  dscp,
  tcpFlags,  ///< never filled; whether it is answered for does not matter
  aclEntries
};
inline constexpr size_t pdTableCount = rangeFieldCount + 9;
static_assert(static_cast<size_t>(PDTable::aclEntries) + 1 == pdTableCount);

/// In the order above.
NAXEL_EXPORT std::array<PDTable, pdTableCount> const& allPDTables();
/// What kind of table one is; those for TCP flags and for the entries are of none.
constexpr bool isPrefixTable(PDTable t) { return t <= PDTable::v6Destination; }
constexpr bool isComboTable(PDTable t) {
  return t >= PDTable::v4PrefixCombo && t <= PDTable::portCombo;
}
constexpr bool isRangeTable(PDTable t) { return t >= PDTable::srcPort && t < PDTable::tcpFlags; }
/// The table in words, "destination ports".
NAXEL_EXPORT std::string tableTitle(PDTable table);

/// The answer of a table; the default one for a prefix table that has none yet.
NAXEL_EXPORT ResourceStatus tableStatus(PDStatus const& status, PDTable table);
/// Writes the answer of a table, which wakes the library if it differs: when this returns, another request
/// may stand.
NAXEL_EXPORT void tableStatusIs(PDStatus& status, PDTable table, ResourceStatus const& answer);
/// How many entries of a table an output takes.
NAXEL_EXPORT size_t tableEntries(PDData const& data, PDTable table);

}  // namespace Naxel

template <>
struct Mox::EnumNames<Naxel::PDTable> {
  static constexpr auto value = [] {
    std::array<std::string_view, Naxel::pdTableCount> names = {
        "v4Source",      "v4Destination", "v6Source", "v6Destination",
        "v4PrefixCombo", "v6PrefixCombo", "portCombo"};
    size_t at = static_cast<size_t>(Naxel::PDTable::srcPort);
    for (Naxel::RangeField const& f : Naxel::rangeFields) names[at++] = f.typeName;
    names[at++] = "tcpFlags";
    names[at] = "aclEntries";
    return names;
  }();
};
