#pragma once

/// In which order the sets of an encoder receive their labels. Sets placed first get the most
/// compact blocks, so those that cost the most TCAM entries come first.

#include "naxel/encoder/EncoderTypes.h"

namespace Naxel {

/// An order of sets.
class NAXEL_EXPORT GenSetCostModel : public Mox::Entity {
 public:
  std::string_view fwkType() const override { return "Naxel::GenSetCostModel"; }
  Mox::AttributeTable const& attributeTable() const override;

  /// A set in the order.
  struct Visit {
    PlainLabelList const* list;  // of the transform's output, which is kept as long as the order
    uint32_t order;              // the order value
    uint32_t uses;               // how many rules pay for one more pair of the set
  };
  using SetOrder = Mox::OrderedMap<uint32_t, Mox::Ptr<GenSetKeyGroup>>;

  /// Order value to the sets of that value, visited in ascending order; put together for the caller.
  SetOrder setOrder() const;
  /// All sets in the order of a visit, ties resolved.
  std::vector<Visit> const& visits() const { return visits_; }

 protected:
  /// `lists` are those that the visits refer to.
  void visitsIs(std::vector<Visit> v, Mox::Ptr<PlainLabelListMap const> lists) {
    visits_ = std::move(v);
    lists_ = std::move(lists);
  }

 private:
  Mox::Ptr<PlainLabelListMap const> lists_;
  std::vector<Visit> visits_;
};
NAXEL_EXPORT Mox::Ptr<GenSetCostModel> genSetCostModelFactory();
/// How many rules use each set of a transform, in the order of the sets.
std::vector<uint32_t> usesOf(PlainLabelListMap const& sets, GenSetUsageInfo const& usage);

/// Descending by reference count times number of plain labels. The order value is the complement of
/// that product in wrapping 32-bit arithmetic, which decides the order and nothing else. Ties: the
/// larger list first, then the lists in lexicographic order, so that the order depends on the
/// content of the sets and not on their keys; sets of equal lists stand in the order of their keys,
/// and are given the same pairs by the encoder.
class NAXEL_EXPORT RefCntCostModel : public GenSetCostModel {
 public:
  RefCntCostModel(Mox::Ptr<EncoderConfig const> const& encoderConfig,
                  Mox::Ptr<GenSetUsageInfo const> const& genSetUsageInfo);
  /// With the counts of the sets, in their order, for who knows them.
  RefCntCostModel(Mox::Ptr<EncoderConfig const> const& encoderConfig,
                  std::vector<uint32_t> const& uses);
  std::string_view fwkType() const override { return "Naxel::RefCntCostModel"; }

 private:
  void handleInitialized(EncoderConfig const& config, std::vector<uint32_t> const& allUses);
};

}  // namespace Naxel
