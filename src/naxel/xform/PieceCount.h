#pragma once

/// How many pieces sets are cut into, and how large they are.

#include <cstddef>

namespace Naxel {

/// Distinct pieces, and the sets that they lie in, counted for each piece.
struct PieceCount {
  size_t pieces = 0;
  size_t memberships = 0;
};

/// Whether either is more than allowed.
inline bool exceeds(PieceCount const& needed, PieceCount const& limit) {
  return needed.pieces > limit.pieces || needed.memberships > limit.memberships;
}

}  // namespace Naxel
