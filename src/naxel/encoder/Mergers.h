#pragma once

/// From ranges of encoded labels to value/mask pairs, and from pairs to fewer pairs.

#include "naxel/encoder/LabelTypes.h"

namespace Naxel {

class PairCounter;

/// Covers ranges of encoded labels by value/mask pairs.
class NAXEL_EXPORT RangeMerger : public Mox::Entity {
 public:
  /// Fills `labelMask` with pairs of `bitWidth` bits.
  RangeMerger(uint32_t bitWidth, Mox::Ptr<EncodedLabelWithMaskList> labelMask)
      : bitWidth_(bitWidth), labelMask_(std::move(labelMask)) {}
  std::string_view fwkType() const override { return "Naxel::RangeMerger"; }
  Mox::AttributeTable const& attributeTable() const override;

  uint32_t bitWidth() const { return bitWidth_; }
  Mox::Ptr<EncodedLabelWithMaskList> const& labelMask() const { return labelMask_; }
  /// Adds the maximal aligned blocks that cover exactly the labels `start` to `end`, from the low
  /// end on: 5 to 12 gives 5, 6-7, 8-11 and 12. At most twice the width many.
  void doMergeRange(uint32_t start, uint32_t end);

 private:
  uint32_t bitWidth_;
  Mox::Ptr<EncodedLabelWithMaskList> labelMask_;
};
NAXEL_EXPORT Mox::Ptr<RangeMerger> rangeMergerFactory(uint32_t bitWidth,
                                                      Mox::Ptr<EncodedLabelWithMaskList> labelMask);

/// Joins pairs that match the same labels into fewer, while it is constructed: from the lowest bit
/// on, two pairs that differ in that bit alone become one that ignores it. Greedy, so the result
/// need not be the smallest; it always matches exactly the labels of the input.
class NAXEL_EXPORT LabelMerger : public Mox::Entity {
 public:
  /// With `scratch`, one for that width that many mergers use in turn, pairs that are disjoint
  /// aligned blocks are joined without sorting them at every bit; the result is the same.
  LabelMerger(uint32_t bitWidth, Mox::Ptr<EncodedLabelWithMaskList const> inLabelMask,
              Mox::Ptr<EncodedLabelWithMaskList> outLabelMask, PairCounter* scratch = nullptr);
  std::string_view fwkType() const override { return "Naxel::LabelMerger"; }
  Mox::AttributeTable const& attributeTable() const override;

  uint32_t bitWidth() const { return bitWidth_; }
  Mox::Ptr<EncodedLabelWithMaskList const> const& inLabelMask() const { return inLabelMask_; }
  /// The merged pairs, complete once this object is made.
  Mox::Ptr<EncodedLabelWithMaskList> const& outLabelMask() const { return outLabelMask_; }

 private:
  void handleInitialized(PairCounter* scratch);

  uint32_t bitWidth_;
  Mox::Ptr<EncodedLabelWithMaskList const> inLabelMask_;
  Mox::Ptr<EncodedLabelWithMaskList> outLabelMask_;
};
NAXEL_EXPORT Mox::Ptr<LabelMerger> labelMergerFactory(
    uint32_t bitWidth, Mox::Ptr<EncodedLabelWithMaskList const> inLabelMask,
    Mox::Ptr<EncodedLabelWithMaskList> outLabelMask);

}  // namespace Naxel
