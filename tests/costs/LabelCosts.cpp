/// How far the label layout of rule files is from the least that each set must cost by itself.
///
///   label_costs FILES...
///
/// Compiles each file for the default chip and prints, per field and in all, the sums of uses times
/// value/mask pairs: the least, and the one that was reached.

#include "input/ChipReader.h"
#include "input/InputFile.h"
#include "input/RuleFiles.h"
#include "output/TextTable.h"
#include "session/Session.h"
#include "support/LabelSets.h"

#include <iostream>

namespace {

using namespace Naxel;

bool report(std::string const& path) {
  NaxelTool::ChipSetup const chip = NaxelTool::defaultChip();
  NaxelTool::RuleSet rules(chip.capability->chipId());
  NaxelTool::readRuleFiles({path}, NaxelTool::RuleFormat::automatic, NaxelTool::FlagsMode::ignore,
                           rules, std::cerr);
  NaxelTool::Session session(chip, rules.acls());
  if (!session.kick()) {
    std::cerr << path << ": the rules do not fit\n";
    return false;
  }
  std::cout << NaxelTool::baseName(path) << "\n";
  std::vector<std::vector<std::string>> rows = {{"field", "least", "reached", "/ least"}};
  auto const print = [&](std::string const& field, uint64_t cheapest, uint64_t cost) {
    rows.push_back(
        {field, std::to_string(cheapest), std::to_string(cost),
         NaxelTool::fixed(static_cast<double>(cost) / static_cast<double>(cheapest), 3)});
  };
  NaxelRootSm const& root = session.root();
  uint64_t least = 0;
  uint64_t reached = 0;
  auto const add = [&](std::string const& field, XformStatus const& xform, uint32_t width) {
    Test::LabelSets sets;
    for (auto const& [key, list] : xform.plainLabelListMap()->plainLabelList()) {
      Test::LabelSet& set = sets.emplace_back();
      set.uses = root.aggregatorStatus()->genSetUsageInfo()->refCountValue(key);
      for (PlainLabel l : list->label()) set.labels.push_back(l.value());
    }
    if (width == 0 || sets.empty()) return;
    Test::EncodedSets const made = Test::encoded(sets, width);
    print(field, made.least, made.cost);
    least += made.least;
    reached += made.cost;
  };
  for (PrefixXformKey const& key : PrefixXformKey::all())
    add(NaxelTool::prefixKeyName(key), *root.prefixXformStatus(key),
        chip.capability->prefixXformWidth(key));
  for (RangeSetType const type : allRangeSetTypes())
    add(stringValue(type), *root.rangeSplitStatus(type), chip.capability->rangeXformWidth(type));
  if (least) print("all", least, reached);
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
