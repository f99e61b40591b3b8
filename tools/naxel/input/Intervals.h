#pragma once

/// Sets of values of up to 128 bits as sorted intervals, and the size of their minimal exact cover by
/// prefixes (value/mask pairs whose mask is a run of leading ones). That number is what a set costs in
/// a table that knows only prefixes.

#include "naxel/types/IpPrefixList.h"

#include <bit>
#include <cstdint>
#include <vector>

namespace NaxelTool {

__extension__ using Wide = unsigned __int128;

/// Inclusive.
struct Interval {
  Wide first = 0;
  Wide last = 0;

  friend bool operator==(Interval const&, Interval const&) = default;
};

/// Ascending, disjoint, and with a gap between any two.
using IntervalSet = std::vector<Interval>;

/// The union of any intervals.
IntervalSet united(std::vector<Interval> all);
/// What is in `from` and not in `what`.
IntervalSet without(IntervalSet const& from, IntervalSet const& what);

/// All values of `bits` bits are in the set.
bool isEverything(IntervalSet const& set, unsigned bits);
/// Least number of prefixes whose union is exactly the set: each interval takes the largest aligned
/// blocks from its start on. O(intervals * bits).
uint64_t coverSize(IntervalSet const& set, unsigned bits);

/// These prefixes, in their natural order.
std::vector<Lumox::IpGenPrefix> prefixesOf(IntervalSet const& set, Lumox::AddressFamily af);

/// The addresses that a prefix list matches, as numbers of bitsOf() bits. All prefixes of the list
/// are of one family.
IntervalSet addressesOf(Naxel::IpPrefixList const& list);
/// 32 or 128.
unsigned bitsOf(Lumox::AddressFamily af);

/// The values that a set of ranges contains.
template <class Ranges>
IntervalSet valuesOf(Ranges const& ranges) {
  std::vector<Interval> all;
  all.reserve(ranges.size());
  for (auto const& r : ranges) all.push_back({r.rangeStart(), r.rangeEnd()});
  return united(std::move(all));
}

}  // namespace NaxelTool
