#pragma once

/// Few cubes that match the places of a set and nothing else that is in use.
///
/// Idea. Codes that nobody has are don't-cares, so a cube may hold any of them. From one place on, a cube
/// is joined with the nearest place for which the smallest cube around both holds nothing foreign, as long
/// as there is one; then the next cube begins at a place that is left. At the end cubes are joined with each other.
/// Sets of up to seven places are covered exactly, by trying
/// which places can be one cube; large sets first join halves bit by bit, which takes no pairs of places.
///
/// Example, width 3, places 000 and 011, with 001 in use by others and 010 free: one cube would have to be 0xx
/// and hold 001, so it takes two. With 110 in use instead it is 0xx.
///
/// Cost. Places times width to halve large sets; then the square of what is left, of which only the
/// nearest eight are looked at closely. A look at a cube of 2^k codes takes 2^(k-6) words.

#include "mox/Export.h"
#include "naxel/encoder/compact/Cube.h"

#include <span>

namespace Naxel::Compact {

class NAXEL_EXPORT CubeCover {
 public:
  explicit CubeCover(unsigned bits) : bits_(bits), own_(bits) {}

  /// Covers `places`, which are disjoint and in `used`. `exactly` small sets, where it is worth the time.
  std::vector<Cube> cover(CodeMap const& used, std::span<Cube const> places, bool exactly);
  /// A measure of the work so far that depends on the input alone.
  uint64_t steps() const { return steps_; }

 private:
  bool isOwn(CodeMap const& used, Cube c) const {
    steps_ += stepsOfLook(c);
    return !used.meetsOutside(c, own_);
  }
  std::vector<Cube> halved(CodeMap const& used, std::span<Cube const> places) const;
  std::vector<Cube> greedy(CodeMap const& used, std::span<Cube const> places) const;
  std::vector<Cube> exact(CodeMap const& used, std::span<Cube const> places) const;

  unsigned bits_;
  CodeMap own_;
  mutable uint64_t steps_ = 0;
};

}  // namespace Naxel::Compact
