/// How far the label codes of rule files are from one value/mask pair for each use of a set.
///
///   label_costs FILES...
///
/// Compiles each file for the default chip and prints, per field and in all, the uses of sets and the sums of
/// uses times value/mask pairs by either code.

#include "input/ChipReader.h"
#include "input/InputFile.h"
#include "input/RuleFiles.h"
#include "output/TextTable.h"
#include "session/Session.h"
#include "support/LabelSets.h"

#include <array>
#include <iostream>

namespace {

using namespace Naxel;

bool report(std::string const& path) {
  NaxelTool::ChipSetup const chip = NaxelTool::defaultChip();
  NaxelTool::RuleSet rules(chip.capability->chipId());
  NaxelTool::Diagnostics diagnostics(std::cerr);
  NaxelTool::readRuleFiles({path}, {}, rules, diagnostics);
  NaxelTool::Session session(chip, rules.acls());
  if (!session.kick()) {
    std::cerr << path << ": the rules do not fit\n";
    return false;
  }
  std::cout << NaxelTool::baseName(path) << "\n";
  std::vector<std::vector<std::string>> rows = {{"field", "uses", "aligned", "compact"}};
  auto const print = [&](std::string const& field, auto const& sums) {
    rows.push_back({field});
    for (uint64_t sum : sums) rows.back().push_back(std::to_string(sum));
  };
  NaxelRootSm const& root = session.root();
  std::array<uint64_t, 3> all{};
  auto const add = [&](std::string const& field, XformStatus const& xform, uint32_t width) {
    Test::LabelSets sets;
    for (auto const& [key, list] : xform.plainLabelListMap()->plainLabelList()) {
      Test::LabelSet& set = sets.emplace_back();
      set.uses = root.aggregatorStatus()->genSetUsageInfo()->refCountValue(key);
      for (PlainLabel l : list->label()) set.labels.push_back(l.value());
    }
    if (width == 0 || sets.empty()) return;
    Test::EncodedSets const compact = Test::encoded(sets, width, Acl::LabelCode::compact);
    std::array const sums = {compact.least, Test::encoded(sets, width).cost, compact.cost};
    print(field, sums);
    for (size_t i = 0; i < sums.size(); ++i) all[i] += sums[i];
  };
  for (PrefixXformKey const& key : PrefixXformKey::all())
    add(NaxelTool::prefixKeyName(key), *root.prefixXformStatus(key),
        chip.capability->prefixXformWidth(key));
  for (RangeSetType const type : allRangeSetTypes())
    add(stringValue(type), *root.rangeSplitStatus(type), chip.capability->rangeXformWidth(type));
  print("all", all);
  NaxelTool::printTable(std::cout, rows, 1);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  bool fine = true;
  try {
    for (int i = 1; i < argc; ++i) fine = report(argv[i]) && fine;
  } catch (std::exception const& e) {
    std::cerr << "label_costs: " << e.what() << "\n";
    return 2;
  }
  return fine ? 0 : 3;
}
