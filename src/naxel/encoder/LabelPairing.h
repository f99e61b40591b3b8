#pragma once

/// Arranges labels from single ones up by joining what is alike.
///
/// Idea. LabelMerger joins two pairs at a bit if they differ in that bit alone. So what two runs of
/// equal length save when they are laid side by side is known exactly: one pair for each that both
/// have in the same place with the same stars, times the weight of the share. Runs are joined two by
/// two, the best partners first, and again with the joined ones, until each length occurs once.
/// Turning a run around, which is adding the same bits without carry to all places in it, changes no
/// pairs within the run, but which of them meet a partner; so the saving is counted for each of the
/// first turns.
///
/// Example. Shares {a, d} and {b, c} of the labels a b c d: side by side a and d save one pair, b and
/// c one, all others none. The runs are ad and bc, and each share is one pair.
///
/// Bounds. Partners are sought in windows of the order that is given, 16 to 256 labels wide as the
/// number of steps allows, so the work is linear in the labels and for each share quadratic in its
/// pairs in one window.

#include "naxel/encoder/LabelArrangement.h"

#include <optional>

namespace Naxel {

/// The order that joining gives, partners being sought among neighbours in `base`; none if that
/// takes much more than `maxSteps` in the narrowest window. Adds the steps taken to `steps`.
NAXEL_EXPORT std::optional<LabelOrder> pairOrder(LabelGroup const& group, LabelOrder const& base,
                                                 uint64_t maxSteps, uint64_t& steps);

}  // namespace Naxel
