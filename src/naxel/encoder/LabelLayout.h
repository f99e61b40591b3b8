#pragma once

/// Which new label of a set gets which value of its blocks. docs/label-layout.md is the essay.
///
/// Sets are placed in cost order. Each is arranged by itself, in ascending order or by joined runs, for
/// the sake of the sets after it that have some of its labels. The result depends on the sets and blocks
/// alone.

#include "naxel/encoder/LabelArrangement.h"
#include "naxel/encoder/LabelTypes.h"

namespace Naxel {

class NAXEL_EXPORT LabelLayout {
 public:
  /// A set as it stands in cost order: its labels, ascending, and how many rules use it.
  struct Set {
    std::span<PlainLabel const> labels;
    uint32_t uses;
  };
  /// The values from `start` to `end`.
  struct Block {
    uint32_t start;
    uint32_t end;
  };

  /// `sets` are in cost order and together have at most 65,536 labels, all below `labelEnd`. The
  /// labels must outlive the layout.
  LabelLayout(std::vector<Set> sets, uint32_t labelEnd, uint32_t bitWidth);

  /// Says where the labels go that no set before this one has. Each set is placed once, in order;
  /// the first values of the blocks, as many as there are labels, are handed out.
  void place(size_t set, std::span<Block const> blocks);
  std::span<PlainLabel const> labels(size_t set) const { return sets_[set].labels; }
  /// How many labels of the set no set before it has.
  uint32_t newLabels(size_t set) const { return newLabelsFrom_[set + 1] - newLabelsFrom_[set]; }
  bool hasValue(PlainLabel l) const { return owner_[l.value()] != noOwner; }
  /// The value of a label of any set.
  uint16_t valueOf(PlainLabel l) const { return values_[labelOf(l)]; }
  /// The first set that has the label.
  uint32_t ownerOf(PlainLabel l) const { return owner_[l.value()]; }

 private:
  /// Labels are numbered by owner, and for one owner in natural order.
  uint32_t labelOf(PlainLabel l) const {
    return newLabelsFrom_[owner_[l.value()]] + number_[l.value()];
  }
  void collectShares();
  std::span<LabelShare const> sharesOf(size_t set);
  LabelOrder bestOrder(LabelGroup const& group);
  static constexpr uint32_t noOwner = ~uint32_t{0};

  std::vector<Set> sets_;
  std::vector<uint32_t> owner_;          // of each plain label
  std::vector<uint16_t> number_;         // of each plain label among the new labels of its owner
  std::vector<uint32_t> newLabelsFrom_;  // of each set, and the end
  std::vector<LabelShare> shares_;       // in the labels of each set, one after another
  std::vector<uint32_t> sharesFrom_;     // of each set, and the end
  std::vector<uint16_t> members_;
  std::vector<uint16_t> values_;  // of the labels
  PairCounter counter_;
};

}  // namespace Naxel
