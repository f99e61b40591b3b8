/// ACLs in OpenConfig's JSON.

#include "Readers.h"
#include "input/OpenConfigReader.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  std::string const text(data, data + size);
  for (bool const skip : {false, true}) {
    NaxelTool::RuleSet rules(Obel::ChipId(0));
    NaxelTool::ReadOptions options;
    options.skipUnsupported = skip;
    if (Fuzz::reads(NaxelTool::readOpenConfig, text, Fuzz::Place::line, rules, options))
      Fuzz::checkRules(rules);
  }
  return 0;
}
