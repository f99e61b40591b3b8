#pragma once

/// The dialects of access lists as text: which systems write them, and in what they differ.

#include "lumox/AddressFamily.h"

#include <cstdint>
#include <string_view>

namespace NaxelTool {

/// Each has a bit of its own, so that tables of names can say which dialects know a name.
enum class Dialect : uint8_t { ios = 1, xr = 2, nxos = 4, eos = 8, asa = 16 };

std::string_view nameOf(Dialect dialect);

/// An entry with the number of another one takes its place; elsewhere it is refused.
constexpr bool replacesEntries(Dialect d) { return d == Dialect::nxos || d == Dialect::eos; }
/// A remark gets a number like an entry where its line has none.
constexpr bool numbersRemarks(Dialect d) { return d == Dialect::nxos || d == Dialect::eos; }
/// The documentation says what entries that look at layer 4 make of fragments that do not have it: a permit
/// lets them through, a deny passes them on.
constexpr bool definesFragments(Dialect d, Lumox::AddressFamily af) {
  return af == Lumox::ipv4() && d != Dialect::eos && d != Dialect::asa;
}
/// Lists of IPv6 end in permits of neighbour discovery.
constexpr bool endsInNdPermits(Dialect d) { return d == Dialect::ios || d == Dialect::xr; }
/// Behind an address in a group stands a wildcard, not a netmask.
constexpr bool groupsHaveWildcards(Dialect d) { return d == Dialect::nxos; }

struct FoundDialect {
  Dialect dialect = Dialect::ios;
  size_t line = 0;  ///< the first one that only this dialect has; 0 where none decided
};

/// The dialect of a configuration of the IOS family, by the first line that tells. Lists that are neither
/// "standard" nor "extended" are those of NX-OS where nothing else tells.
FoundDialect findDialect(std::string_view content);

}  // namespace NaxelTool
