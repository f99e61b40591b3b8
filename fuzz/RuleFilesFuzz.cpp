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
  auto const format = RuleFormat::automatic;
  if (Fuzz::takes(
          {}, Fuzz::Place::none, [&] { content = readInput(path); }, path) &&
      Fuzz::takes(
          content, Fuzz::Place::none,
          [&] { readRuleFiles({path}, format, FlagsMode::ignore, rules, remarks); }, path))
    Fuzz::checkRules(rules);
  return 0;
}
