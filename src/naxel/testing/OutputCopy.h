#pragma once

/// Outputs that differ from a published one, table by table.

#include "naxel/loader/PDData.h"
#include "naxel/loader/PDTable.h"

#include <functional>

namespace Naxel::Testing {

/// A new output of the same widths that shares all tables.
Mox::Ptr<PDData> copyOf(PDData const& data);
/// Puts a table of another output in the place of this one's.
void tableFrom(PDData& to, PDTable table, PDData const& from);
/// The entries of a table, each as it is changed; those that are refused by false are left out. `nth` counts from 0.
void prefixesOf(PDData& data, PDTable table,
                std::function<bool(PDPrefixXformEntry&, size_t nth)> const& change);
void rangesOf(PDData& data, PDTable table,
              std::function<bool(PDRangeXformEntry&, size_t nth)> const& change);
void combosOf(PDData& data, PDTable table,
              std::function<bool(PDComboEntry&, size_t nth)> const& change);
void entriesOf(PDData& data,
               std::function<bool(PDAclKey const&, PDAclFilter&, size_t nth)> const& change);

PrefixXformKey const& prefixKeyOf(PDTable table);
RangeSetType rangeTypeOf(PDTable table);
ComboLabelSetType comboTypeOf(PDTable table);

}  // namespace Naxel::Testing
