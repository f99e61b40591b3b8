#pragma once

/// What every reader of the tool owes whoever gives it a text: it either takes it, or it throws an
/// InputError that is one line and names a place in the text.

#include "Check.h"
#include "input/Errors.h"

#include <string>

namespace NaxelTool {
class RuleSet;
struct ChipSetup;
}  // namespace NaxelTool

namespace Fuzz {

/// How much of the place an error has to name.
enum class Place { none, line, column };

/// Checks the message of an InputError about `text`, which was read under the name `file`.
void checkError(NaxelTool::InputError const& error, std::string const& file,
                std::string const& text, Place place);

/// True if `read(file, text)` takes the text. Any other exception than an InputError ends the run.
template <class Read>
bool takes(std::string const& file, std::string const& text, Place place, Read read) {
  try {
    read(file, text);
    return true;
  } catch (NaxelTool::InputError const& e) {
    checkError(e, file, text, place);
    return false;
  }
}

/// What the rules say, as a file of ours with everything in natural order.
std::string jsonOf(NaxelTool::RuleSet const& rules);
/// The same of a chip.
std::string jsonOf(NaxelTool::ChipSetup const& chip);

/// What a reader took must survive being written and read again, and must compile: whatever a kick
/// would refuse is for the reader to report. Kicks for small rule sets only.
void checkRules(NaxelTool::RuleSet const& rules);

/// Compiles the rules for the chip and shows the tables some packets. Returns false if the kick
/// failed, which it must explain.
bool compiles(NaxelTool::ChipSetup const& chip, NaxelTool::RuleSet const& rules);

}  // namespace Fuzz
