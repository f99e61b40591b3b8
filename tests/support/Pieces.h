#pragma once

/// Tables of cases as text.

#include "naxel/testing/Pieces.h"

namespace Test {

using Naxel::Testing::pieces;

}  // namespace Test
