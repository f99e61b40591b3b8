#include "naxel/encoder/CostModel.h"

#include "naxel/types/NaxelTrace.h"

#include <algorithm>

namespace Naxel {

Mox::AttributeTable const& GenSetCostModel::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&GenSetCostModel::setOrder_>("setOrder")};
  return table;
}

void GenSetCostModel::setOrderIs(uint32_t value, GenSetKey key) {
  Mox::Ptr<GenSetKeyGroup> const& group =
      Mox::lookupOrMake(setOrder_, value, [&] { return genSetKeyGroupFactory(); });
  group->keyGroupIs(key);
}

Mox::Ptr<GenSetCostModel> genSetCostModelFactory() { return Mox::makePtr<GenSetCostModel>(); }

RefCntCostModel::RefCntCostModel(Mox::Ptr<EncoderConfig const> const& encoderConfig,
                                 Mox::Ptr<GenSetUsageInfo const> const& genSetUsageInfo) {
  handleInitialized(*encoderConfig, *genSetUsageInfo);
}

void RefCntCostModel::handleInitialized(EncoderConfig const& config, GenSetUsageInfo const& usage) {
  if (auto line = trace(8))
    line << "RefCntCostModel::"
         << "handleInitialized";
  struct Place {
    uint32_t order;
    uint32_t uses;
    PlainLabelList const* list;
  };
  std::vector<Place> places;
  for (auto const& [key, list] : config.xformStatus()->plainLabelListMap()->plainLabelList()) {
    auto const labels = static_cast<uint32_t>(list->label().size());
    uint32_t const uses = usage.refCountValue(key);
    places.push_back({~(uses * labels), uses, list.get()});
  }
  std::sort(places.begin(), places.end(), [](Place const& a, Place const& b) {
    if (a.order != b.order) return a.order < b.order;
    auto const& labelsA = a.list->label();
    auto const& labelsB = b.list->label();
    if (labelsA.size() != labelsB.size()) return labelsA.size() > labelsB.size();
    auto const [i, j] = std::mismatch(labelsA.begin(), labelsA.end(), labelsB.begin());
    if (i != labelsA.end()) return *i < *j;
    return a.list->key() < b.list->key();
  });
  std::vector<GenSetKey> order;
  std::vector<uint32_t> uses;
  order.reserve(places.size());
  uses.reserve(places.size());
  for (Place const& place : places) {
    setOrderIs(place.order, place.list->key());
    order.push_back(place.list->key());
    uses.push_back(place.uses);
  }
  visitOrderIs(std::move(order), std::move(uses));
}

}  // namespace Naxel
