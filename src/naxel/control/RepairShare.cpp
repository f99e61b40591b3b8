#include "naxel/control/RepairShare.h"

#include "acl/ParamConfig.h"
#include "naxel/encoder/compact/KeptCode.h"

#include <algorithm>
#include <bit>

namespace Naxel {

RepairShare::RepairShare(Mox::Ptr<PDData const> basis, uint64_t rows) : basis_(std::move(basis)) {
  if (!basis_) return;
  uint64_t rules = 0;
  for (auto const& [key, acl] : basis_->pdAclColl()->pdAcl()) rules += acl->rule().size();
  uint64_t const entries = basis_->pdAclColl()->numFilters();
  rows_ = rows == Acl::ParamConfig::defaultRepairRows ? entries / 200 : std::min(rows, entries);
  // A pair of a set that changes is one row in each rule, times the pairs of the rule's other fields.
  if (entries > rules) rows_ = rows_ * rules / entries;
  auto const add = [this](KeepsSets const& table) {
    if (table.keptSets()) excess_ += table.keptSets()->excess();
  };
  for (auto const& [key, table] : basis_->pdPrefixXformEntryColl()) add(*table);
  for (RangeSetType type : allRangeSetTypes()) add(*basis_->rangeColl(type));
  for (ComboLabelSetType type : allComboLabelSetTypes()) add(*basis_->comboColl(type));
}

uint64_t RepairShare::rows(KeepsSets const& table) const {
  if (!table.keptSets() || !excess_) return 0;
  // Of the share the highest bits will do.
  int const shift = std::max(0, static_cast<int>(std::bit_width(excess_)) - 31);
  return rows_ * (table.keptSets()->excess() >> shift) / (excess_ >> shift);
}

}  // namespace Naxel
