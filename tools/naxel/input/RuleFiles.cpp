#include "input/RuleFiles.h"

#include "input/InputFile.h"
#include "input/JsonConfigReader.h"

namespace NaxelTool {

namespace {

RuleFormat formatOf(std::string const& path, std::string const& content) {
  size_t const first = content.find_first_not_of(" \t\r\n\v\f");
  if (first == std::string::npos) throw InputError(path, {}, "the file is empty");
  if (content[first] == '@') return RuleFormat::classBench;
  if (content[first] == '{') return RuleFormat::json;
  throw InputError(path, positionOf(content, first),
                   "rules begin with '@' (ClassBench) or '{' (JSON)");
}

}  // namespace

void readRuleFiles(std::vector<std::string> const& paths, RuleFormat format, FlagsMode flags,
                   RuleSet& out, std::ostream& remarks) {
  for (std::string const& path : paths) {
    std::string const content = readInput(path);
    if ((format == RuleFormat::automatic ? formatOf(path, content) : format) == RuleFormat::json) {
      readJsonConfig(path, content, out);
    } else if (size_t const unused = readClassBench(path, content, flags, out)) {
      remarks << path << ": note: " << unused << (unused == 1 ? " rule carries" : " rules carry")
              << " flags that are not used\n";
    }
  }
}

}  // namespace NaxelTool
