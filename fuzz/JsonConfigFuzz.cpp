/// Rule files as JSON.

#include "Readers.h"
#include "input/JsonConfigReader.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  NaxelTool::RuleSet rules(Obel::ChipId(0));
  if (Fuzz::takes("f", std::string(data, data + size), Fuzz::Place::column,
                  [&](auto const& file, auto const& text) { readJsonConfig(file, text, rules); }))
    Fuzz::checkRules(rules);
  return 0;
}
