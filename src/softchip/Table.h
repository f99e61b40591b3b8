#pragma once

/// The tables for which the driver answers, one enumeration over all of them.

#include "mox/Enum.h"
#include "naxel/loader/PDConfig.h"

#include <array>

namespace SoftChip {

enum class Table : uint8_t {
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
  tcpFlags,
  aclEntries
};
inline constexpr size_t tableCount = 16;

/// One number per table.
template <class T>
class PerTable {
 public:
  PerTable() = default;
  explicit PerTable(T v) { value_.fill(v); }
  T& operator[](Table t) { return value_[static_cast<size_t>(t)]; }
  T const& operator[](Table t) const { return value_[static_cast<size_t>(t)]; }

 private:
  std::array<T, tableCount> value_{};
};

std::array<Table, tableCount> const& allTables();
inline bool isPrefixTable(Table t) { return t <= Table::v6Destination; }

/// How many entries of a table the output takes.
size_t entriesOf(Naxel::PDData const& data, Table table);
/// Writes the status of a table.
void statusIs(Naxel::PDStatus& to, Table table, Naxel::ResourceStatus const& status);
/// The status of a table; the default one for a prefix table that has none yet.
Naxel::ResourceStatus statusOf(Naxel::PDStatus const& from, Table table);

}  // namespace SoftChip

template <>
struct Mox::EnumNames<SoftChip::Table> {
  static constexpr std::array<std::string_view, 16> value = {
      "v4Source",  "v4Destination", "v6Source", "v6Destination", "v4PrefixCombo", "v6PrefixCombo",
      "portCombo", "srcPort",       "dstPort",  "icmp",          "proto",         "length",
      "fragment",  "dscp",          "tcpFlags", "aclEntries"};
};
