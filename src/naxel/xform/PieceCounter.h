#pragma once

/// Counts distinct pieces beyond the number that can be used, for the message that says how many are
/// needed. A piece is told by the sum of hashOfSet() over its sets, so the count may be
/// one too low once in some million million runs; nothing else depends on it.

#include "naxel/xform/PieceCount.h"

#include <algorithm>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Naxel {

/// Takes 16 bytes for each piece that differs, and at most as many again meanwhile.
class PieceCounter {
 public:
  /// A piece that lies in `sets` many sets.
  void add(uint64_t group, size_t sets) {
    if (seen_.size() == seen_.capacity()) settle();
    seen_.push_back({group, sets});
  }
  /// Distinct pieces so far.
  PieceCount distinct() {
    settle();
    PieceCount count{seen_.size(), 0};
    for (Piece const& p : seen_) count.memberships += p.sets;
    return count;
  }

 private:
  struct Piece {
    uint64_t group;
    uint64_t sets;
    auto operator<=>(Piece const&) const = default;
  };
  void settle() {
    std::sort(seen_.begin(), seen_.end());
    seen_.erase(std::unique(seen_.begin(), seen_.end()), seen_.end());
    // At least half is left free, so that the next sort comes only after as many new pieces.
    if (seen_.size() * 2 > seen_.capacity()) seen_.reserve(seen_.size() * 2 + 1024);
  }

  std::vector<Piece> seen_;
};

}  // namespace Naxel
