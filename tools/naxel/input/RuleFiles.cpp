#include "input/RuleFiles.h"

#include "input/ClassBenchReader.h"
#include "input/ConfigDbReader.h"
#include "input/InputFile.h"
#include "input/JsonConfigReader.h"
#include "input/OpenConfigReader.h"
#include "input/text/AsaReader.h"
#include "input/text/IosReader.h"

#include <algorithm>

namespace NaxelTool {

namespace {

/// The first character that is not blank; 0 if there is none.
char firstOf(std::string_view content) {
  size_t const first = content.find_first_not_of(" \t\r\n\v\f");
  return first == std::string_view::npos ? '\0' : content[first];
}

bool isClassBench(std::string_view content) { return firstOf(content) == '@'; }

/// Objects and lists, and a path before one.
bool isJsonText(std::string_view content) {
  char const first = firstOf(content);
  return first == '{' || first == '[' || first == '/';
}
/// Whether a file of ours says what it is. A text in quotes within a text would have backslashes.
bool namesOurSchema(std::string_view content) {
  size_t at = content.find("\"schema\"");
  if (at == std::string_view::npos) return false;
  at = content.find_first_not_of(" \t\r\n:", at + 8);
  return at != std::string_view::npos && content.substr(at).starts_with("\"naxel-");
}
bool isOpenConfig(std::string_view content) {
  return isJsonText(content) && looksLikeOpenConfig(content);
}
bool isConfigDb(std::string_view content) {
  return isJsonText(content) && looksLikeConfigDb(content);
}
bool isJson(std::string_view content) {
  return firstOf(content) == '{' &&
         (namesOurSchema(content) || (!isOpenConfig(content) && !isConfigDb(content)));
}

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
                   "rules begin with '@' (ClassBench) or '{' (JSON), or have a line that begins an "
                   "access list");
}

}  // namespace

std::vector<RuleFormatInfo> const& ruleFormats() {
  static std::vector<RuleFormatInfo> const all = {
      {RuleFormat::classBench, "classbench", "ClassBench filter sets", isClassBench,
       readClassBench},
      {RuleFormat::json, "json", "rules of naxel as JSON", isJson, readJsonConfig},
      {RuleFormat::openConfig, "openconfig", "OpenConfig ACLs as JSON", isOpenConfig,
       readOpenConfig},
      {RuleFormat::configDb, "configdb", "SONiC CONFIG_DB as JSON", isConfigDb, readConfigDb},
      {RuleFormat::asa, "asa", "access lists of an ASA", isAsaText, readAsa},
      {RuleFormat::ios, "ios", "access lists of IOS, NX-OS, EOS and IOS XR", isIosText, readIos},
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
      sum.leftOut += reading.counts().leftOut;
    } catch (InputError const& e) {
      if (e.code() != ExitCode::badInput) code = e.code();
      diagnostics.say({Severity::error, "input", path, {e.at()}, e.text(), e.help(), {}});
    }
  settle(sum, out, diagnostics);
  out.countsIs(sum);
  diagnostics.sayRest();
  if (diagnostics.firstError()) throw RejectedInput(code);
  return sum;
}

}  // namespace NaxelTool
