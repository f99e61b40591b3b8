#pragma once

/// The label tables of an output as flows; what they do stands at the head of Translation.h.

#include "naxel/loader/PDData.h"
#include "ovs/Layout.h"
#include "ovs/PieceCover.h"

#include <vector>

namespace NaxelOvs {

/// The label of each value of a field, from 0 to its bound; what no entry covers has the highest one.
std::vector<LabelPiece> labelPieces(Naxel::PDData const& data, Naxel::RangeSetType type);
/// The label of one value.
uint16_t labelAt(std::vector<LabelPiece> const& pieces, uint16_t value);

/// All tables from `source` to `dscp`, for packets of these families.
std::vector<Flow> labelFlows(Naxel::PDData const& data, Layout const& layout,
                             std::vector<Lumox::AddressFamily> const& families);

}  // namespace NaxelOvs
