#pragma once

/// Shares the rows that a kick may write for improvement out over the fields, by what each takes above what it would
/// take encoded afresh.

#include "naxel/loader/PDData.h"

namespace Naxel {

class RepairShare {
 public:
  /// Of the output in force, null where nothing is kept; `rows` as ParamConfig::repairRows.
  RepairShare(Mox::Ptr<PDData const> basis, uint64_t rows);

  Mox::Ptr<PDData const> const& basis() const { return basis_; }
  /// For the field of a table of it.
  uint64_t rows(KeepsSets const& table) const;

 private:
  Mox::Ptr<PDData const> basis_;
  uint64_t rows_ = 0;
  uint64_t excess_ = 0;  // of all fields
};

}  // namespace Naxel
