#include "naxel/encoder/LabelTypes.h"

namespace Naxel {

Mox::AttributeTable const& PlainLabelList::attributeTable() const {
  static Mox::AttributeTable const table = {Mox::attribute<&PlainLabelList::key_>("key"),
                                            Mox::attribute<&PlainLabelList::label_>("label")};
  return table;
}

uint64_t PlainLabelList::contentHash() const {
  if (!contentHash_) {
    uint64_t hash = label_.size();
    for (PlainLabel l : label_) hash = Mox::hashCombine(hash, l.value());
    contentHash_ = hash;
  }
  return *contentHash_;
}

Mox::AttributeTable const& PlainLabelListMap::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&PlainLabelListMap::plainLabelList_>("plainLabelList")};
  return table;
}

PlainLabelList const* PlainLabelListMap::plainLabelList(GenSetKey key) const {
  auto const* item = plainLabelList_.get(key);
  return item ? item->get() : nullptr;
}

PlainLabelList& PlainLabelListMap::plainLabelListIs(GenSetKey key) {
  return *Mox::lookupOrMake(plainLabelList_, key,
                            [&] { return Mox::makePtr<PlainLabelList>(key); });
}

Mox::AttributeTable const& EncodedLabelWithMaskList::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&EncodedLabelWithMaskList::key_>("key"),
      Mox::attribute<&EncodedLabelWithMaskList::encLabelAndMask_>("encLabelAndMask")};
  return table;
}

uint64_t EncodedLabelWithMaskList::contentHash() const {
  if (!contentHash_) {
    uint64_t hash = encLabelAndMask_.size();
    for (EncodedLabelWithMask const& e : encLabelAndMask_)
      hash = Mox::hashCombine(hash, e.orderKey());
    contentHash_ = hash;
  }
  return *contentHash_;
}

Mox::AttributeTable const& EncodedLabelRangeList::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&EncodedLabelRangeList::key_>("key"),
      Mox::attribute<&EncodedLabelRangeList::encLabelRange_>("encLabelRange")};
  return table;
}

}  // namespace Naxel
