#include "TextReaders.h"

#include "Readers.h"

namespace Fuzz {

using namespace NaxelTool;

namespace {

/// Whether the reader takes the text with these options.
bool takesWith(RuleReader reader, std::string const& text, ReadOptions const& options,
               ReadCounts& counts) {
  RuleSet rules(Obel::ChipId(0));
  bool const taken =
      takes(text, Place::none, [&] { counts = readRules(reader, "f", text, rules, options); });
  if (!taken) return false;
  expect(counts.read == counts.compiled + counts.reported && counts.leftOut <= counts.reported,
         "an entry is neither compiled nor reported");
  expect(options.skipErrors || !counts.leftOut, "an entry is left out in silence");
  checkRules(rules);
  return true;
}

}  // namespace

void checkTextReader(RuleReader reader, std::string const& text) {
  ReadCounts all;
  ReadCounts some;
  bool const taken = takesWith(reader, text, {}, all);
  bool const loosely = takesWith(reader, text,
                                 {.skipUnsupported = true,
                                  .skipErrors = true,
                                  .implicitEnd = false,
                                  .plainFragments = true,
                                  .ndPermits = true},
                                 some);
  expect(loosely || !taken, "leaving out more makes a file worse");
  if (taken)
    expect(all.read == some.read && !some.leftOut, "options change which entries there are");
}

}  // namespace Fuzz
