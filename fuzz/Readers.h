#pragma once

/// What every reader of the tool owes whoever gives it a text: it either takes it, or it throws an
/// InputError that is one line and names a place in the text.

#include "Check.h"
#include "input/ChipReader.h"
#include "input/RuleReading.h"

#include <functional>

namespace Fuzz {

/// How much of the place an error has to name.
enum class Place { none, line, column };

/// True if `read` takes the text, which it knows as the file "f" or by the name given. Any other exception than
/// an InputError ends the run.
bool takes(std::string const& text, Place place, std::function<void()> const& read,
           std::string const& file = "f");

/// The same for a reader of rules, which besides says what became of each entry. The rules go to `rules`.
bool reads(NaxelTool::RuleReader reader, std::string const& text, Place place,
           NaxelTool::RuleSet& rules, NaxelTool::ReadOptions const& options = {});

/// What a reader took must compile: whatever a kick would refuse is for the reader to report. For small rule sets
/// only.
void checkRules(NaxelTool::RuleSet const& rules);

/// Compiles the rules for the chip and shows the tables some packets. Returns false if the kick
/// failed, which it must explain.
bool compiles(NaxelTool::ChipSetup const& chip, NaxelTool::RuleSet const& rules);

}  // namespace Fuzz
