#pragma once

/// The least box around what a rule matches: an interval of each address and of each field.

#include "naxel/types/RuleFilter.h"
#include "verify/AddressSet.h"

#include <array>

namespace Verify {

struct RuleHull {
  struct Span {
    uint32_t first;
    uint32_t last;
  };
  std::array<Interval, 2> address;  ///< source, destination
  std::array<Span, Naxel::rangeFieldCount> value;

  /// Of a filter, or of all packets where it is null. A filter that matches nothing has a box that meets none.
  RuleHull(Naxel::RuleFilter const* filter, Lumox::AddressFamily af);

  Span of(Naxel::RangeSetType type) const { return value[static_cast<size_t>(type)]; }
  /// Rules whose boxes do not meet match no packet both.
  bool meets(RuleHull const& other) const;
};

}  // namespace Verify
