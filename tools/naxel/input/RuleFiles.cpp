#include "input/RuleFiles.h"

#include "input/ClassBenchReader.h"
#include "input/InputFile.h"
#include "input/JsonConfigReader.h"

#include <algorithm>

namespace NaxelTool {

namespace {

/// The first character that is not blank; 0 if there is none.
char firstOf(std::string_view content) {
  size_t const first = content.find_first_not_of(" \t\r\n\v\f");
  return first == std::string_view::npos ? '\0' : content[first];
}

bool isClassBench(std::string_view content) { return firstOf(content) == '@'; }
bool isJson(std::string_view content) { return firstOf(content) == '{'; }

/// The format to read a file by. Throws InputError.
RuleFormatInfo const& formatFor(std::string const& path, std::string const& content,
                                RuleFormat wanted) {
  auto const& all = ruleFormats();
  auto const named = std::find_if(all.begin(), all.end(),
                                  [&](RuleFormatInfo const& f) { return f.format == wanted; });
  if (named != all.end()) return *named;
  size_t const first = content.find_first_not_of(" \t\r\n\v\f");
  if (first == std::string::npos) throw InputError(path, {}, "the file is empty");
  if (RuleFormatInfo const* const found = formatOf(content)) return *found;
  throw InputError(path, positionOf(content, first),
                   "rules begin with '@' (ClassBench) or '{' (JSON)");
}

}  // namespace

std::vector<RuleFormatInfo> const& ruleFormats() {
  static std::vector<RuleFormatInfo> const all = {
      {RuleFormat::classBench, "classbench", "ClassBench filter sets", isClassBench,
       readClassBench},
      {RuleFormat::json, "json", "rules of naxel as JSON", isJson, readJsonConfig},
  };
  return all;
}

RuleFormatInfo const* formatOf(std::string_view content) {
  auto const& all = ruleFormats();
  auto const found = std::find_if(all.begin(), all.end(),
                                  [&](RuleFormatInfo const& f) { return f.looksLike(content); });
  return found == all.end() ? nullptr : &*found;
}

ReadCounts readRuleFiles(std::vector<std::string> const& paths, ReadOptions const& options,
                         RuleSet& out, Diagnostics& diagnostics) {
  ReadCounts sum;
  ExitCode code = ExitCode::badInput;
  for (std::string const& path : paths) try {
      std::string const content = readInput(path, options.maxInput);
      RuleReading reading(path, content, options, out, diagnostics);
      formatFor(path, content, options.format).read(reading);
      sum.read += reading.counts().read;
      sum.compiled += reading.counts().compiled;
      sum.reported += reading.counts().reported;
    } catch (InputError const& e) {
      if (e.code() != ExitCode::badInput) code = e.code();
      diagnostics.say({Severity::error, "input", path, {e.at()}, e.text(), {}, {}});
    }
  diagnostics.sayRest();
  if (diagnostics.firstError()) throw RejectedInput(code);
  return sum;
}

}  // namespace NaxelTool
