/// ClassBench filter sets, read in both modes.

#include "Readers.h"
#include "input/ClassBenchReader.h"

using namespace NaxelTool;

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  std::string const text(data, data + size);
  auto const takes = [&](FlagsMode mode) {
    RuleSet rules(Obel::ChipId(0));
    bool const taken = Fuzz::takes(text, Fuzz::Place::line, [&] {
      readRules(readClassBench, "f", text, rules, {.flags = mode});
    });
    if (taken) Fuzz::checkRules(rules);
    return taken;
  };
  bool const loosely = takes(FlagsMode::ignore);
  if (takes(FlagsMode::strict)) Fuzz::expect(loosely, "strict flags take the file alone");
  return 0;
}
