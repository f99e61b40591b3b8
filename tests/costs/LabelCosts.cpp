/// How far the label layout of rule files is from the least that each set must cost by itself.
///
///   label_costs FILES...
///
/// Compiles each file for the default chip and prints, per field and in all, the sums of uses times
/// value/mask pairs: the least, those of the two plain orders, and the one that was reached.

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
    Test::LabelSets::Set set;
    set.uses = usage.refCountValue(key);
    for (PlainLabel l : list->label()) set.labels.push_back(l.value());
    out.sets.push_back(std::move(set));
  }
  return out;
}

void print(std::string const& field, Test::EncodedCost const& cost) {
  auto const best = std::min(cost.ascending, cost.joined);
  std::printf(
      "%-10s %9llu %9llu %9llu %9llu %8.3f %8.3f\n", field.c_str(),
      static_cast<unsigned long long>(cost.least), static_cast<unsigned long long>(cost.ascending),
      static_cast<unsigned long long>(cost.joined), static_cast<unsigned long long>(cost.reached),
      static_cast<double>(cost.reached) / static_cast<double>(cost.least),
      static_cast<double>(cost.reached) / static_cast<double>(best));
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
  std::printf("%s\n%-10s %9s %9s %9s %9s %8s %8s\n", NaxelTool::baseName(path).c_str(), "field",
              "least", "ascending", "joined", "reached", "/ least", "/ best");
  NaxelRootSm const& root = session.root();
  Test::EncodedCost all;
  auto const add = [&](std::string const& field, XformStatus const& xform, uint32_t width) {
    Test::LabelSets const sets = labelSetsOf(xform, *root.aggregatorStatus()->genSetUsageInfo());
    if (width == 0 || sets.sets.empty()) return;
    Test::EncodedCost const cost = encodedCost(sets, width);
    print(field, cost);
    all.least += cost.least;
    all.ascending += cost.ascending;
    all.joined += cost.joined;
    all.reached += cost.reached;
  };
  for (PrefixXformKey const& key : PrefixXformKey::all())
    add(NaxelTool::prefixKeyName(key), *root.prefixXformStatus(key),
        session.capability().prefixXformWidth(key));
  for (RangeSetType const type : allRangeSetTypes())
    add(stringValue(type), *root.rangeSplitStatus(type),
        session.capability().rangeXformWidth(type));
  if (all.least) print("all", all);
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
