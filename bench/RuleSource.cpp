#include "RuleSource.h"

#include "ClassBenchReader.h"
#include "InputFile.h"
#include "JsonConfigReader.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <tuple>

namespace Bench {

RuleSource fileSource(std::string const& path) {
  auto const text = std::make_shared<std::string const>(NaxelTool::readInput(path));
  auto const rules = std::count(text->begin(), text->end(), '@');
  return {NaxelTool::baseName(path), text, static_cast<size_t>(rules)};
}

std::vector<RuleSource> folderSources(std::string const& folder) {
  std::vector<RuleSource> out;
  for (auto const& entry : std::filesystem::directory_iterator(folder)) {
    if (!entry.is_regular_file()) continue;
    RuleSource source = fileSource(entry.path().string());
    if (source.text->starts_with('@')) out.push_back(std::move(source));
  }
  std::sort(out.begin(), out.end(), [](RuleSource const& a, RuleSource const& b) {
    return std::tie(a.rules, a.name) < std::tie(b.rules, b.name);
  });
  return out;
}

std::vector<RuleSource> allSources() {
  char const* const folder = std::getenv("NAXEL_BENCH_SETS");
  return folder && *folder ? folderSources(folder) : std::vector<RuleSource>();
}

RuleSource cut(RuleSource const& source, size_t rules) {
  size_t end = 0;
  size_t taken = 0;
  for (; taken < rules && end < source.text->size(); ++taken) {
    size_t const newline = source.text->find('\n', end);
    end = newline == std::string::npos ? source.text->size() : newline + 1;
  }
  return {source.name + ":" + std::to_string(taken),
          std::make_shared<std::string>(source.text->substr(0, end)), taken};
}

Mox::Ptr<Naxel::AclConfigColl> build(RuleSource const& source) {
  NaxelTool::RuleSet rules(Obel::ChipId(0));
  if (source.text->starts_with('@'))
    NaxelTool::readClassBench(source.name, *source.text, NaxelTool::FlagsMode::ignore, rules);
  else
    NaxelTool::readJsonConfig(source.name, *source.text, rules);
  return rules.acls();
}

}  // namespace Bench
