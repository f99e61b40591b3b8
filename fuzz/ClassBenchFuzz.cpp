/// ClassBench filter sets, read in both modes.

#include "Readers.h"
#include "input/ClassBenchReader.h"

using namespace NaxelTool;

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  std::string const content(data, data + size);
  auto const takes = [&](FlagsMode mode, size_t& unused) {
    RuleSet rules(Obel::ChipId(0));
    bool const taken =
        Fuzz::takes("f", content, Fuzz::Place::line, [&](auto const& file, auto const& text) {
          unused = readClassBench(file, text, mode, rules);
        });
    if (taken) Fuzz::checkRules(rules);
    return taken;
  };
  size_t ignored = 0;
  size_t unused = 0;
  bool const loosely = takes(FlagsMode::ignore, ignored);
  if (takes(FlagsMode::strict, unused)) {
    Fuzz::expect(loosely, "only strict flags take the file");
    Fuzz::expect(unused == 0, "strict flags left some unused");
  }
  return 0;
}
