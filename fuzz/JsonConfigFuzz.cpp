/// Rule files as JSON.

#include "Readers.h"
#include "input/JsonConfigReader.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  std::string const text(data, data + size);
  NaxelTool::RuleSet rules(Obel::ChipId(0));
  if (Fuzz::reads(NaxelTool::readJsonConfig, text, Fuzz::Place::column, rules))
    Fuzz::checkRules(rules);
  return 0;
}
