#pragma once

/// Counts the value/mask pairs that LabelMerger makes of single values, without making them.
///
/// Idea. A pair is known by the lowest of its values and by the bits that it ignores (its don't-care bits).
/// Two pairs differ in one bit alone if their lowest values do and they ignore the same bits. So one word per
/// value, the ignored bits of the pair that begins there, holds the whole state: at each bit, from the lowest
/// on, every pair looks at the word of its partner, and the upper one of two that join goes.
///
/// Cost. Values times bits at worst, about twice the values where they form aligned blocks. One word
/// for each value of the width.

#include "mox/Export.h"

#include <cstdint>
#include <span>
#include <vector>

namespace Naxel {

class NAXEL_EXPORT PairCounter {
 public:
  /// For values below 2^`bitWidth`, which is 0 to 16.
  explicit PairCounter(uint32_t bitWidth) : bitWidth_(bitWidth) {}

  /// A pair: the lowest of its values, and the bits that it ignores.
  struct Pair {
    uint16_t lowest;
    uint16_t ignored;
  };

  /// The number of pairs for `values` and the pairs `blocks`, in any order. None may match what
  /// another does.
  uint32_t count(std::span<uint16_t const> values, std::span<Pair const> blocks = {});
  /// The pairs themselves, in no particular order. Stand until the next call.
  std::span<Pair const> merge(std::span<uint16_t const> values, std::span<Pair const> blocks = {});

 private:
  /// Where no pair begins. A pair that ignores all sixteen bits has no partner to be told from.
  static constexpr uint16_t none = 0xffff;

  /// Leaves the pairs in front of `pairs_` and what they ignore in place. Returns how many there are.
  size_t join(std::span<uint16_t const> values, std::span<Pair const> blocks);

  uint32_t bitWidth_;
  std::vector<uint16_t> ignored_;  // made when it is first needed: it is larger than most fields
  std::vector<uint16_t> pairs_;    // the lowest value of each
  std::vector<Pair> merged_;
};

}  // namespace Naxel
