#pragma once

/// How the new labels of one set may be arranged over the values of its blocks. LabelLayout makes the problems
/// and takes the answer where it is cheaper than ascending order; docs/label-layout.md is the essay.

#include "naxel/encoder/PairCounter.h"

#include <cstdint>
#include <span>
#include <vector>

namespace Naxel {

/// What a later set takes of the labels to be arranged.
struct LabelShare {
  uint32_t begin;   // of its labels in LabelGroup::members
  uint32_t size;    // 2 or more, and less than all
  uint64_t weight;  // what a pair of it costs
};

/// One set's new labels, numbered from 0 in natural order, and who else has which of them.
struct LabelGroup {
  std::span<uint16_t const> values;    // of the blocks, as many as labels, in the order of hand-out
  std::span<LabelShare const> shares;  // in cost order, all different
  std::span<uint16_t const> members;   // ascending within a share

  uint32_t labels() const { return static_cast<uint32_t>(values.size()); }
  std::span<uint16_t const> of(LabelShare const& s) const {
    return members.subspan(s.begin, s.size);
  }
};

/// The labels in the order in which they get the values.
using LabelOrder = std::vector<uint16_t>;

/// The sum over all shares of weight times pairs; at least `enough`, if it is known not to be less.
NAXEL_EXPORT uint64_t priceOf(LabelGroup const& group, LabelOrder const& order,
                              PairCounter& counter, uint64_t enough = ~uint64_t{0});
/// What no order can go below: pairs do not overlap and match a power of two of values each, so n
/// values take as many as n has binary ones.
NAXEL_EXPORT uint64_t leastPriceOf(LabelGroup const& group);

/// From the smallest share up: runs of equal length that lie wholly inside the share are joined two
/// by two, as a binary counter carries, and in the end all runs follow one another by falling length.
NAXEL_EXPORT LabelOrder joinOrder(LabelGroup const& group);

}  // namespace Naxel
