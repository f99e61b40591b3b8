#pragma once

/// Random pieces of configurations.

#include "naxel/testing/Vocabulary.h"

namespace Test {

using Naxel::Testing::Dice;
using Naxel::Testing::drawAcls;
using Naxel::Testing::drawWidths;
using Naxel::Testing::Vocabulary;
using SeededDice = Dice;

}  // namespace Test
