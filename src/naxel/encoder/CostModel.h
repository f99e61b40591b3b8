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

  /// Order value to the sets of that value; visited in ascending order.
  Mox::OrderedMap<uint32_t, Mox::Ptr<GenSetKeyGroup>> const& setOrder() const { return setOrder_; }
  /// All sets in the order of a visit, ties resolved.
  std::vector<GenSetKey> const& visitOrder() const { return visitOrder_; }
  /// For each set of the visit order, how many rules pay for one more pair of it.
  std::vector<uint32_t> const& visitUses() const { return visitUses_; }

 protected:
  void setOrderIs(uint32_t value, GenSetKey key);
  void visitOrderIs(std::vector<GenSetKey> v, std::vector<uint32_t> uses) {
    visitOrder_ = std::move(v);
    visitUses_ = std::move(uses);
  }

 private:
  Mox::OrderedMap<uint32_t, Mox::Ptr<GenSetKeyGroup>> setOrder_;
  std::vector<GenSetKey> visitOrder_;
  std::vector<uint32_t> visitUses_;
};
NAXEL_EXPORT Mox::Ptr<GenSetCostModel> genSetCostModelFactory();

/// Descending by reference count times number of plain labels. The order value is the complement of
/// that product in wrapping 32-bit arithmetic, which decides the order and nothing else. Ties: the
/// larger list first, then the lists in lexicographic order, so that the order depends on the
/// content of the sets and not on their keys; sets of equal lists stand in the order of their keys,
/// and are given the same pairs by the encoder.
class NAXEL_EXPORT RefCntCostModel : public GenSetCostModel {
 public:
  RefCntCostModel(Mox::Ptr<EncoderConfig const> const& encoderConfig,
                  Mox::Ptr<GenSetUsageInfo const> const& genSetUsageInfo);
  std::string_view fwkType() const override { return "Naxel::RefCntCostModel"; }

 private:
  void handleInitialized(EncoderConfig const& config, GenSetUsageInfo const& usage);
};

}  // namespace Naxel
