#pragma once

/// The allocator of encoded labels.
///
/// Every plain label of an encoder needs a value of `encodeBitWidth` bits, such that each set, the union of
/// its labels, can be matched by few value/mask pairs. Sets are taken in cost order. The labels of a set that
/// no earlier set has brought go into blocks (LabelBlocks.h); labels that an earlier set brought stay where
/// they are and enter as single values. Which of the new labels gets which value of the blocks is for
/// LabelLayout to say.
///
/// Example, width 4, sets A = {1, 2, 3} and then B = {3, 4, 5}: three new labels of A take the
/// block 0-3 (one spare value, 3), B keeps 2 for label 3 and takes the block 4-5 for its new ones.
/// A is one pair (0/1100), B two: (2/1111) and (4/1110).
///
/// The values of a block beyond the labels of its set are carried by no piece, so the set's masks may
/// match them.

#include "mox/HashMap.h"
#include "naxel/encoder/CostModel.h"
#include "naxel/encoder/EncoderTypes.h"
#include "naxel/encoder/LabelLayout.h"
#include "obel/Bitmap.h"

#include <memory>

namespace Naxel {

/// What one encoding run gives: whether the labels fit, and each set's encoded labels as ranges.
class NAXEL_EXPORT EncodedLabelAllocStatus : public Mox::Entity {
 public:
  using RangeListMap = Mox::HashMap<GenSetKey, Mox::Ptr<EncodedLabelRangeList>>;
  std::string_view fwkType() const override { return "Naxel::EncodedLabelAllocStatus"; }
  Mox::AttributeTable const& attributeTable() const override;

  StageStatusType status() const { return status_; }
  void statusIs(StageStatusType v) { status_ = v; }
  /// The range list of each set, put together for the caller.
  RangeListMap keyToEncLabelList() const;
  /// The ranges of the sets, in the order in which they were placed.
  size_t sets() const { return keys_.size(); }
  GenSetKey key(size_t set) const { return keys_[set]; }
  std::span<EncodedLabelRange const> ranges(size_t set) const {
    size_t const from = set == 0 ? 0 : ends_[set - 1];
    return std::span(ranges_).subspan(from, ends_[set] - from);
  }
  /// Makes room for the sets that are to come.
  void reserve(size_t sets);
  /// Adds a range to the set that comes next.
  void rangeIs(EncodedLabel first, EncodedLabel last) { ranges_.emplace_back(first, last); }
  /// Ends that set.
  void setIs(GenSetKey key);

 private:
  StageStatusType status_ = StageStatusType::init;
  std::vector<GenSetKey> keys_;
  std::vector<EncodedLabelRange> ranges_;  // of all sets
  std::vector<size_t> ends_;               // of each among them
};

class LabelBlocks;

/// Does its whole work while it is constructed; read the results from the two statuses.
class NAXEL_EXPORT EncodedLabelAllocator : public Mox::Entity {
 public:
  /// `encodeBitWidth` is 1 to 16. `reservedAtTop` values at the top of the space are given to no
  /// set.
  EncodedLabelAllocator(uint32_t encodeBitWidth, Mox::Ptr<EncoderConfig const> encoderConfig,
                        Mox::Ptr<GenSetCostModel const> costModel,
                        Mox::Ptr<EncoderStatus> encoderStatus,
                        Mox::Ptr<EncodedLabelAllocStatus> encLabelAllocStatus,
                        uint32_t reservedAtTop = 0);
  ~EncodedLabelAllocator() override;
  std::string_view fwkType() const override { return "Naxel::EncodedLabelAllocator"; }
  Mox::AttributeTable const& attributeTable() const override;

  uint32_t encodeBitWidth() const { return encodeBitWidth_; }
  /// Taken values.
  Obel::Bitmap const& encLabelBitMap() const;
  /// Values that may still be spent on filling blocks up to a power of two.
  uint32_t extraLabelCnt() const;
  void extraLabelCntIs(uint32_t n);
  void extraLabelCntDec(uint32_t n);
  /// Number of different plain labels of all sets.
  uint64_t labelsNeeded() const { return labelsNeeded_; }

 private:
  void handleInitialized();
  /// Allocates the labels of the set at a place of the visit order that no earlier set has, of which
  /// there are `allocLabelCnt`, in blocks behind those that there are.
  void doAllocateLabels(size_t place, uint32_t allocLabelCnt, LabelLayout& layout,
                        std::vector<LabelLayout::Block>& blocks);
  Mox::Ptr<Obel::Bitmap> const& bitmap() const;
  /// Publishes the ranges of that set: its blocks and the values of its other labels.
  void publishRanges(size_t place, LabelLayout const& layout,
                     std::span<LabelLayout::Block const> blocks);
  void publish(LabelLayout const& layout, uint32_t largest);

  uint32_t encodeBitWidth_;
  Mox::Ptr<EncoderConfig const> encoderConfig_;
  Mox::Ptr<GenSetCostModel const> costModel_;
  Mox::Ptr<EncoderStatus> encoderStatus_;
  Mox::Ptr<EncodedLabelAllocStatus> encLabelAllocStatus_;
  uint32_t reservedAtTop_;
  std::unique_ptr<LabelBlocks> blocks_;
  uint64_t labelsNeeded_ = 0;
};
NAXEL_EXPORT Mox::Ptr<EncodedLabelAllocator> encodedLabelAllocatorFactory(
    uint32_t encodeBitWidth, Mox::Ptr<EncoderConfig const> encoderConfig,
    Mox::Ptr<GenSetCostModel const> costModel, Mox::Ptr<EncoderStatus> encoderStatus,
    Mox::Ptr<EncodedLabelAllocStatus> encLabelAllocStatus, uint32_t reservedAtTop = 0);

}  // namespace Naxel
