#pragma once

/// The tables of an output, one enumeration over all of them: what the driver answers for, one by one.

#include "mox/Enum.h"
#include "mox/Export.h"

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
inline constexpr size_t pdTableCount = 16;

/// In the order above.
NAXEL_EXPORT std::array<PDTable, pdTableCount> const& allPDTables();
/// The table in words, "destination ports".
NAXEL_EXPORT std::string tableTitle(PDTable table);

/// The answer of a table; the default one for a prefix table that has none yet.
NAXEL_EXPORT ResourceStatus tableStatus(PDStatus const& status, PDTable table);
NAXEL_EXPORT void tableStatusIs(PDStatus& status, PDTable table, ResourceStatus const& answer);
/// How many entries of a table an output takes.
NAXEL_EXPORT size_t tableEntries(PDData const& data, PDTable table);

}  // namespace Naxel

template <>
struct Mox::EnumNames<Naxel::PDTable> {
  static constexpr std::array<std::string_view, 16> value = {
      "v4Source",  "v4Destination", "v6Source", "v6Destination", "v4PrefixCombo", "v6PrefixCombo",
      "portCombo", "srcPort",       "dstPort",  "icmp",          "proto",         "length",
      "fragment",  "dscp",          "tcpFlags", "aclEntries"};
};
