/// Rule files as they lie on the disk: plain or gzip, with or without a byte order mark, of a format
/// that their first character tells.

#include "Readers.h"
#include "input/InputFile.h"
#include "input/RuleFiles.h"

#include <sstream>
#include <sys/mman.h>
#include <unistd.h>

using namespace NaxelTool;

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  // A file in memory that has a path.
  static int const file = memfd_create("rules", 0);
  static std::string const path = "/proc/self/fd/" + std::to_string(file);
  Fuzz::expect(ftruncate(file, 0) == 0 && pwrite(file, data, size, 0) == static_cast<ssize_t>(size),
               "no file");
  std::string content;
  RuleSet rules(Obel::ChipId(0));
  std::ostringstream remarks;
  Diagnostics diagnostics(remarks);
  if (!Fuzz::takes(
          {}, Fuzz::Place::none, [&] { content = readInput(path); }, path))
    return 0;
  try {
    readRuleFiles({path}, {}, rules, diagnostics);
    Fuzz::checkRules(rules);
  } catch (RejectedInput const&) {
    Fuzz::expect(remarks.str().starts_with(path + ":"), "no reason: " + remarks.str());
  }
  return 0;
}
