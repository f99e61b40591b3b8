#pragma once

/// What may stand in a script of the simulator besides the edits of naxel/testing/Edits.h.

#include "naxel/testing/Edits.h"
#include "support/SimChip.h"

#include <span>

namespace Test {

class Simulator;

/// One line of a script while it is played.
struct Event : Naxel::Testing::Edit {
  Simulator& simulator;
  SimChip& chip;  // of an event for all: any
};

using Verb = Naxel::Testing::Verb<Event>;
std::span<Verb const> allVerbs();

}  // namespace Test
