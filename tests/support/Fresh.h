#pragma once

/// Comparison of a pipeline with a history against one without.

#include "support/World.h"

#include <functional>

#include <gtest/gtest.h>

namespace Test {

/// The output of a new pipeline for the same configuration and widths; empty if it fails.
std::string freshTables(World const& world);
/// Kicks; expects success, and the tables of a new pipeline.
void kickOk(World& world);
/// Kicks; expects a failure at `stage` with a reason that contains `text`, and that the tables stay.
void kickFails(World& world, Naxel::NaxelActiveStage stage, std::string const& text = {});

/// Label widths that a chip may have.
enum class Chip { raw, labels, combos };
inline constexpr Chip allChips[] = {Chip::raw, Chip::labels, Chip::combos};
void setWidths(World& world, Chip chip, uint8_t width = 8);

}  // namespace Test
