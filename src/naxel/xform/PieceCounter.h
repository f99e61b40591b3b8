#pragma once

/// Counts distinct pieces beyond the number that can be used, for the message that says how many are
/// needed. A piece is told by a hash of 64 bits under the secret of the process, so the count may be
/// one too low once in some million million runs; nothing else depends on it.

#include "mox/KeyedHash.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace Naxel {

/// Takes eight bytes for each piece that differs, and at most as many again meanwhile.
class PieceCounter {
 public:
  void add(Mox::KeyedSetHash const& group) { add(group.value()); }
  void add(uint64_t group) {
    if (seen_.size() == seen_.capacity()) settle();
    seen_.push_back(group);
  }
  /// Number of distinct pieces so far.
  size_t distinct() {
    settle();
    return seen_.size();
  }

 private:
  void settle() {
    std::sort(seen_.begin(), seen_.end());
    seen_.erase(std::unique(seen_.begin(), seen_.end()), seen_.end());
    if (seen_.size() * 2 > seen_.capacity()) seen_.reserve(seen_.size() * 2 + 1024);
  }

  std::vector<uint64_t> seen_;
};

}  // namespace Naxel
