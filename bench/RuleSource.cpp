#include "RuleSource.h"

#include "generate/Generate.h"
#include "input/ClassBenchReader.h"
#include "input/InputFile.h"
#include "input/JsonConfigReader.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <tuple>

namespace Bench {

namespace {

std::string shortNumber(size_t n) {
  return n % 1000 ? std::to_string(n) : std::to_string(n / 1000) + "k";
}

/// The first `rules` rules of a ClassBench set.
RuleSource cut(RuleSource const& source, size_t rules) {
  size_t end = 0;
  size_t taken = 0;
  for (; taken < rules && end < source.text->size(); ++taken) {
    size_t const newline = source.text->find('\n', end);
    end = newline == std::string::npos ? source.text->size() : newline + 1;
  }
  return {source.name + ":" + shortNumber(taken),
          std::make_shared<std::string>(source.text->substr(0, end)), taken};
}

template <class Generate, class Options>
RuleSource generated(std::string const& name, Generate generate, Options const& options) {
  std::ostringstream out;
  generate(out, options);
  return {name + ":" + shortNumber(options.rules),
          std::make_shared<std::string const>(std::move(out).str()), options.rules};
}

}  // namespace

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
  size_t const whole = out.size();
  for (size_t i = 0; i < whole; ++i)
    if (out[i].rules >= 55000)
      for (size_t const rules : {1000, 10000, 30000, 60000}) out.push_back(cut(out[i], rules));
  return out;
}

std::vector<RuleSource> generatedSources() {
  using NaxelTool::FilterStyle;
  std::vector<RuleSource> out;
  for (uint32_t const rules : {1000u, 10000u, 30000u, 60000u}) {
    for (auto const& [name, style] :
         {std::pair("acl", FilterStyle::acl), std::pair("fw", FilterStyle::fw),
          std::pair("ipc", FilterStyle::ipc)}) {
      NaxelTool::FilterSetOptions options;
      options.style = style;
      options.rules = rules;
      out.push_back(generated(name, NaxelTool::generateFilterSet, options));
    }
    NaxelTool::ObjectGroupOptions options;
    options.rules = rules;
    options.lists = rules / 10;
    options.acls = 4;
    out.push_back(generated("groups", NaxelTool::generateObjectGroups, options));
  }
  return out;
}

std::vector<RuleSource> crossingSources() {
  using NaxelTool::Overlap;
  std::vector<RuleSource> out;
  NaxelTool::ObjectGroupOptions options;
  options.rules = 10000;
  options.acls = 4;
  for (auto const& [name, overlap] :
       {std::pair("nested", Overlap::nested), std::pair("mixed", Overlap::mixed),
        std::pair("crossing", Overlap::crossing)})
    for (uint32_t const lists : {20u, 200u, 1000u}) {
      options.overlap = overlap;
      options.lists = lists;
      out.push_back(generated(name + std::string("-") + std::to_string(lists),
                              NaxelTool::generateObjectGroups, options));
    }
  return out;
}

std::vector<RuleSource> allSources() {
  char const* const folder = std::getenv("NAXEL_BENCH_SETS");
  return folder && *folder ? folderSources(folder) : generatedSources();
}

Mox::Ptr<Naxel::AclConfigColl> build(RuleSource const& source) {
  NaxelTool::RuleSet rules(Obel::ChipId(0));
  if (source.text->starts_with('@'))
    NaxelTool::readRules(NaxelTool::readClassBench, source.name, *source.text, rules);
  else
    NaxelTool::readRules(NaxelTool::readJsonConfig, source.name, *source.text, rules);
  return rules.acls();
}

}  // namespace Bench
