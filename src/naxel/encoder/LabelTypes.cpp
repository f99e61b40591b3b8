#include "naxel/encoder/LabelTypes.h"

namespace Naxel {

Mox::AttributeTable const& PlainLabelList::attributeTable() const {
  static Mox::AttributeTable const table = {Mox::attribute<&PlainLabelList::key_>("key"),
                                            Mox::attribute<&PlainLabelList::label_>("label")};
  return table;
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

Mox::AttributeTable const& EncodedLabelRangeList::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&EncodedLabelRangeList::key_>("key"),
      Mox::attribute<&EncodedLabelRangeList::encLabelRange_>("encLabelRange")};
  return table;
}

}  // namespace Naxel
