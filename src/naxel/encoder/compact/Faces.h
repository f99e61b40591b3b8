#pragma once

/// The small problem that crossing sets make up, and the two ways to solve it.
///
/// Items, which are labels or blocks of them, get places in a space of codes so that each set of items is
/// matched by few cubes: the face embedding problem of logic synthesis, where a set that is one cube is a face
/// (De Micheli, "Optimal State Assignment for Finite State Machines", 1985; Villa and Sangiovanni-Vincentelli, NOVA,
/// 1990; Goldberg et al., "Theory and Algorithms for Face Hypercube Embedding", 1998).

#include "mox/Export.h"
#include "naxel/encoder/compact/Cube.h"
#include "naxel/encoder/compact/SetFamily.h"

#include <optional>

namespace Naxel::Compact {

struct FaceProblem {
  unsigned bits = 0;              ///< of the space, 1 to 16
  bool reservesLast = false;      ///< whether the highest code must stay free and in no cube
  std::vector<uint8_t> items;     ///< item i is an aligned block of 2^items[i] codes; largest first
  SetFamily sets;                 ///< of items, not empty
  std::vector<uint64_t> weights;  ///< what a cube of each set costs
  /// Which part of the work on a field may be spent on this problem, of 1,024.
  uint32_t effort = 1024;

  uint64_t leastPrice() const {
    uint64_t sum = 0;
    for (uint64_t w : weights) sum += w;
    return sum;
  }
};

struct Faces {
  std::vector<uint16_t> places;          ///< the lowest code of each item
  std::vector<std::vector<Cube>> cubes;  ///< of each set
  uint64_t price = 0;                    ///< the sum of cubes times weight
  unsigned bits = 0;                     ///< of the space
};

/// Covers each set over given places.
NAXEL_EXPORT Faces coveredFaces(FaceProblem const& problem, std::vector<uint16_t> places);

/// By layers, which suit sets that are picked by attributes; none where they need more bits.
NAXEL_EXPORT std::optional<Faces> facesByLayers(FaceProblem const& problem);

/// By insertion, which suits whatever crosses without a system; none where the price comes to `limit`, or where that
/// takes too long. It is begun `mostStarts` times at most.
NAXEL_EXPORT std::optional<Faces> facesByInsertion(FaceProblem const& problem, uint64_t limit,
                                                   size_t mostStarts = 16);

/// One item behind the other, which suits ranges; in Gray code, as `gray` says, where neighbours differ in one bit. None
/// where an item would come to lie on the code that must stay free, which in plain order does not happen.
NAXEL_EXPORT std::optional<Faces> facesInOrder(FaceProblem const& problem, bool gray);

}  // namespace Naxel::Compact
