#include "naxel/encoder/Mergers.h"

#include "mox/Assert.h"
#include "naxel/encoder/PairMerge.h"
#include "naxel/types/NaxelTrace.h"

namespace Naxel {

Mox::AttributeTable const& RangeMerger::attributeTable() const {
  static Mox::AttributeTable const table = {Mox::attribute<&RangeMerger::bitWidth_>("bitWidth"),
                                            Mox::attribute<&RangeMerger::labelMask_>("labelMask")};
  return table;
}

void RangeMerger::doMergeRange(uint32_t start, uint32_t end) {
  if (auto line = trace(8))
    line << "RangeMerger::"
         << "doMergeRange"
         << " start: " << start << ", end: " << end;
  MOX_ASSERT(bitWidth());
  MOX_ASSERT(end >= start);
  coverRange(bitWidth_, start, end,
             [this](EncodedLabelWithMask const& pair) { labelMask_->encLabelAndMaskIs(pair); });
}

Mox::Ptr<RangeMerger> rangeMergerFactory(uint32_t bitWidth,
                                         Mox::Ptr<EncodedLabelWithMaskList> labelMask) {
  return Mox::makePtr<RangeMerger>(bitWidth, std::move(labelMask));
}

LabelMerger::LabelMerger(uint32_t bitWidth, Mox::Ptr<EncodedLabelWithMaskList const> inLabelMask,
                         Mox::Ptr<EncodedLabelWithMaskList> outLabelMask, PairCounter* scratch)
    : bitWidth_(bitWidth),
      inLabelMask_(std::move(inLabelMask)),
      outLabelMask_(std::move(outLabelMask)) {
  handleInitialized(scratch);
}

Mox::AttributeTable const& LabelMerger::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&LabelMerger::bitWidth_>("bitWidth"),
      Mox::attribute<&LabelMerger::inLabelMask_>("inLabelMask"),
      Mox::attribute<&LabelMerger::outLabelMask_>("outLabelMask")};
  return table;
}

void LabelMerger::handleInitialized(PairCounter* scratch) {
  if (auto line = trace(8))
    line << "LabelMerger::"
         << "handleInitialized"
         << " bitWidth: " << bitWidth_;
  outLabelMask_->encLabelAndMaskIs(
      mergedPairs(bitWidth_, inLabelMask_->encLabelAndMask(), scratch));
}

Mox::Ptr<LabelMerger> labelMergerFactory(uint32_t bitWidth,
                                         Mox::Ptr<EncodedLabelWithMaskList const> inLabelMask,
                                         Mox::Ptr<EncodedLabelWithMaskList> outLabelMask) {
  return Mox::makePtr<LabelMerger>(bitWidth, std::move(inLabelMask), std::move(outLabelMask));
}

}  // namespace Naxel
