#include "naxel/encoder/CostModel.h"

#include "naxel/types/NaxelTrace.h"

#include <algorithm>

namespace Naxel {

Mox::AttributeTable const& GenSetCostModel::attributeTable() const {
  static Mox::AttributeTable const table = {Mox::attribute<&GenSetCostModel::setOrder>("setOrder")};
  return table;
}

GenSetCostModel::SetOrder GenSetCostModel::setOrder() const {
  SetOrder sets;
  for (Visit const& v : visits_)
    Mox::lookupOrMake(sets, v.order, [] {
      return genSetKeyGroupFactory();
    })->keyGroupIs(v.list->key());
  return sets;
}

Mox::Ptr<GenSetCostModel> genSetCostModelFactory() { return Mox::makePtr<GenSetCostModel>(); }

RefCntCostModel::RefCntCostModel(Mox::Ptr<EncoderConfig const> const& encoderConfig,
                                 Mox::Ptr<GenSetUsageInfo const> const& genSetUsageInfo) {
  handleInitialized(*encoderConfig,
                    usesOf(*encoderConfig->xformStatus()->plainLabelListMap(), *genSetUsageInfo));
}

RefCntCostModel::RefCntCostModel(Mox::Ptr<EncoderConfig const> const& encoderConfig,
                                 std::vector<uint32_t> const& uses) {
  handleInitialized(*encoderConfig, uses);
}

std::vector<uint32_t> usesOf(PlainLabelListMap const& sets, GenSetUsageInfo const& usage) {
  std::vector<uint32_t> all;
  all.reserve(sets.plainLabelList().size());
  for (auto const& [key, list] : sets.plainLabelList()) all.push_back(usage.refCountValue(key));
  return all;
}

void RefCntCostModel::handleInitialized(EncoderConfig const& config,
                                        std::vector<uint32_t> const& allUses) {
  if (auto line = trace(8))
    line << "RefCntCostModel::"
         << "handleInitialized";
  // What decides most comparisons stands in the element itself, so that sorting seldom follows the pointer
  // to the labels.
  struct Place {
    Visit visit;
    uint32_t labels;
    uint32_t first;
  };
  std::vector<Place> places;
  auto const& lists = config.xformStatus()->plainLabelListMap()->plainLabelList();
  places.reserve(lists.size());
  for (auto const& [key, list] : lists) {
    auto const labels = static_cast<uint32_t>(list->label().size());
    uint32_t const uses = allUses[places.size()];
    // The product may wrap round where uses times labels exceed four thousand million. That costs
    // compactness and never correctness.
    places.push_back(
        {{list, ~(uses * labels), uses}, labels, labels ? list->label().front().value() : 0});
  }
  std::sort(places.begin(), places.end(), [](Place const& a, Place const& b) {
    if (a.visit.order != b.visit.order) return a.visit.order < b.visit.order;
    if (a.labels != b.labels) return a.labels > b.labels;
    if (a.first != b.first) return a.first < b.first;
    auto const& labelsA = a.visit.list->label();
    auto const& labelsB = b.visit.list->label();
    // The lists are of equal size here, so neither ends before the other.
    auto const [i, j] = std::mismatch(labelsA.begin(), labelsA.end(), labelsB.begin());
    if (i != labelsA.end()) return *i < *j;
    return a.visit.list->key() < b.visit.list->key();
  });
  std::vector<Visit> visits;
  visits.reserve(places.size());
  for (Place const& place : places) visits.push_back(place.visit);
  visitsIs(std::move(visits), config.xformStatus()->plainLabelListMap());
}

}  // namespace Naxel
