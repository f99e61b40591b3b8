#pragma once

/// The addresses that a rule names for one side.

#include "naxel/types/IpPrefixList.h"
#include "verify/Address.h"

#include <vector>

namespace Verify {

/// Contains an address that lies in one interval of `addr` and in none of `except`. Within each of
/// the two lists the intervals are disjoint and ascend, so a test costs O(log n).
class AddressSet {
 public:
  /// All addresses.
  AddressSet() = default;
  /// Those of a list; all if it is null. Prefixes of the other family count for nothing.
  AddressSet(Naxel::IpPrefixList const* list, Lumox::AddressFamily af);

  bool any() const { return any_; }
  std::vector<Interval> const& addr() const { return addr_; }
  std::vector<Interval> const& except() const { return except_; }
  bool contains(Address a) const;

 private:
  bool any_ = true;
  std::vector<Interval> addr_;
  std::vector<Interval> except_;
};

}  // namespace Verify
