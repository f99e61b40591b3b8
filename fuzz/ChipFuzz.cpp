/// Chip descriptions, and a few rules compiled for the chips that they describe.

#include "Readers.h"
#include "input/ClassBenchReader.h"

using namespace NaxelTool;

namespace {

/// More prefixes and ranges than narrow labels and small tables hold.
constexpr char const* someRules =
    "@10.0.0.0/8 10.1.0.0/16 0 : 65535 80 : 90 0x06/0xff\n"
    "@10.1.0.0/16 10.2.0.0/15 1 : 9 85 : 99 0x11/0xff\n"
    "@10.1.2.0/24 0.0.0.0/0 5 : 5 443 : 443 0x06/0xff 0x0200/0x1200\n"
    "@0.0.0.0/0 10.1.0.0/16 0 : 65535 0 : 65535 0x00/0x00\n";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  std::string const text(data, data + size);
  ChipSetup chip;
  if (!Fuzz::takes(text, Fuzz::Place::column, [&] { chip = readChip("f", text); })) return 0;
  // A chip that answers at once; the others take their time by the clock on the wall.
  SoftChip::Options const& o = chip.softChip;
  if (o.answerAfterTicks || o.confirmPolicyAfterTicks || o.pace != SoftChip::Pace::together)
    return 0;
  RuleSet rules(chip.capability->chipId());
  readRules(readClassBench, "rules", someRules, rules, {.flags = FlagsMode::strict});
  Fuzz::compiles(chip, rules);
  return 0;
}
