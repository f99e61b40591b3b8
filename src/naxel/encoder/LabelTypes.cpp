#include "naxel/encoder/LabelTypes.h"

#include "mox/Assert.h"

namespace Naxel {

Mox::AttributeTable const& PlainLabelList::attributeTable() const {
  static Mox::AttributeTable const table = {Mox::attribute<&PlainLabelList::key_>("key"),
                                            Mox::attribute<&PlainLabelList::label_>("label")};
  return table;
}

PlainLabelList::Own& PlainLabelList::own() {
  contentHash_.reset();
  if (!own_) {
    auto own = std::make_unique<Own>();
    own->adopt({label_.begin(), label_.end()});
    own_ = std::move(own);
  }
  return *own_;
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
  return item ? *item : nullptr;
}

PlainLabelList& PlainLabelListMap::plainLabelListIs(GenSetKey key) {
  if (auto* known = plainLabelList_.get(key)) return **known;
  PlainLabelList* const list = &lists_.emplace_back(key);
  plainLabelList_.set(key, list);
  return *list;
}

void PlainLabelListMap::plainLabelListsAre(std::span<GenSetKey const> keys,
                                           std::span<uint32_t const> ends,
                                           std::vector<PlainLabel> labels) {
  MOX_ASSERT(lists_.empty() && keys.size() == ends.size());
  labels_ = std::move(labels);
  std::span<PlainLabel const> const all(labels_);
  std::vector<std::pair<GenSetKey, PlainLabelList*>> byKey;
  byKey.reserve(keys.size());
  for (size_t i = 0, from = 0; i < keys.size(); from = ends[i++])
    if (ends[i] > from)
      byKey.emplace_back(keys[i], &lists_.emplace_back(keys[i], all.subspan(from, ends[i] - from)));
  plainLabelList_.adopt(std::move(byKey));
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
