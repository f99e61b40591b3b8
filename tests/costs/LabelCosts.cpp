/// How far the label layout of rule files is from the least that each set must cost by itself.
///
///   label_costs FILES...
///
/// Compiles each file for the default chip and prints, per field and in all, the sums of uses times
/// value/mask pairs: the least, and the one that was reached.

#include "input/ChipReader.h"
#include "input/InputFile.h"
#include "input/RuleFiles.h"
#include "session/Session.h"
#include "support/LabelSets.h"

#include <cstdio>
#include <iostream>

namespace {

using namespace Naxel;

Test::LabelSets labelSetsOf(XformStatus const& xform, GenSetUsageInfo const& usage) {
  Test::LabelSets out;
  for (auto const& [key, list] : xform.plainLabelListMap()->plainLabelList()) {
    Test::LabelSet& set = out.emplace_back();
    set.uses = usage.refCountValue(key);
    for (PlainLabel l : list->label()) set.labels.push_back(l.value());
  }
  return out;
}

void print(std::string const& field, uint64_t least, uint64_t reached) {
  std::printf("%-10s %9llu %9llu %8.3f\n", field.c_str(), static_cast<unsigned long long>(least),
              static_cast<unsigned long long>(reached),
              static_cast<double>(reached) / static_cast<double>(least));
}

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
  std::printf("%s\n%-10s %9s %9s %8s\n", NaxelTool::baseName(path).c_str(), "field", "least",
              "reached", "/ least");
  NaxelRootSm const& root = session.root();
  uint64_t least = 0;
  uint64_t reached = 0;
  auto const add = [&](std::string const& field, XformStatus const& xform, uint32_t width) {
    Test::LabelSets const sets = labelSetsOf(xform, *root.aggregatorStatus()->genSetUsageInfo());
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
