/// Holds docs/labels.md against the library: every fenced block of the document that has a name of
/// its own is compiled or computed here.

#include "naxel/encoder/CostModel.h"
#include "support/Output.h"
#include "support/World.h"
#include "verify/NaiveLookup.h"

#include <fstream>
#include <map>
#include <memory>
#include <set>
#include <sstream>

#include <gtest/gtest.h>

namespace Test {
namespace {

using namespace Naxel;

struct Block {
  std::string name;
  std::string text;
  size_t line = 0;
};

std::vector<Block> blocksOf(std::string const& path) {
  std::ifstream in(path);
  std::vector<Block> blocks;
  bool inside = false;
  size_t number = 0;
  for (std::string line; std::getline(in, line);) {
    ++number;
    if (line.starts_with("```")) {
      inside = !inside;
      if (inside) blocks.push_back({line.substr(3), {}, number});
    } else if (inside) {
      blocks.back().text += line + "\n";
    }
  }
  return blocks;
}

/// The widths of the example, one per line; addresses have one bit where nothing is said.
void widthsAre(ChipHwCapability& capability, std::string const& text) {
  for (auto const& key : PrefixXformKey::all()) capability.prefixXformWidthIs(key, 1);
  std::istringstream in(text);
  std::string field, side;
  for (uint32_t width = 0; in >> field;) {
    bool const prefix = field == "ipv4" && in >> side;
    in >> width;
    auto const type = Mox::instanceFromText<RangeSetType>(field);
    auto const combo = Mox::instanceFromText<ComboLabelSetType>(field);
    if (prefix)
      capability.prefixXformWidthIs({Lumox::ipv4(), side == "src"}, width);
    else if (type)
      capability.rangeXformWidthIs(*type, width);
    else if (combo)
      capability.comboXformWidthIs(*combo, width);
    else
      ADD_FAILURE() << field;
  }
}

/// What the blocks say of one transformed field, by their names.
using Said = std::map<std::string, std::ostringstream>;
void describe(Said& out, std::string const& field, NaxelRootSm const& root,
              Mox::Ptr<XformStatus> const& xform, EncoderStatus const& encoder, auto const& items,
              GenSetKey (GenSetIpRule::*setOf)() const) {
  auto const aggregated = root.aggregatorStatus();
  // A set has the name of the first rule that uses it.
  std::map<GenSetKey, std::string> names;
  for (auto const& [index, rule] : aggregated->aclGenSetIpRuleList("edge")->genSetIpRuleById())
    names.try_emplace((*rule.*setOf)(), field + " " + rule->name());
  for (auto const& [item, label] : items) {
    out["pieces"] << field << " " << item << ": " << label << " {";
    char const* gap = "";
    for (auto const& [key, list] : xform->plainLabelListMap()->plainLabelList())
      if (list->labelHas(label))
        out["pieces"] << std::exchange(gap, " ") << names.at(key).substr(field.size() + 1);
    out["pieces"] << "}\n";
  }
  RefCntCostModel const order(encoderConfigFactory(xform), aggregated->genSetUsageInfo());
  for (auto const& visit : order.visits()) {
    auto const& labels = visit.list->label();
    out["sets"] << names.at(visit.list->key()) << ": labels";
    for (PlainLabel label : labels) out["sets"] << " " << label;
    out["sets"] << ", used " << visit.uses << ", cost " << visit.uses * labels.size() << "\n";
  }
  out["encoded"] << field << ":";
  for (auto const& [plain, label] : encoder.plainToEncodedLabel())
    out["encoded"] << " " << plain << "->" << label;
  out["encoded"] << "\n";
  for (auto const& [key, list] : encoder.encodedLabelList()) {
    out["pairs"] << names.at(key) << ":";
    for (auto const& pair : list->encLabelAndMask())
      out["pairs"] << " " << pair.label() << "/" << pair.mask();
    out["pairs"] << "\n";
  }
}

/// Completes a line "SOURCE proto P dport D" with the labels found and the rule that matches.
std::string lookup(PDData const& tables, std::string const& question) {
  std::istringstream in(question);
  std::string address, word;
  unsigned proto = 0, dport = 0;
  in >> address >> word >> proto >> word >> dport;
  Verify::Packet packet = Verify::packetOf(address);
  packet.valueIs(RangeSetType::proto, static_cast<uint16_t>(proto));
  packet.valueIs(RangeSetType::dstPort, static_cast<uint16_t>(dport));
  PDAclKey const acl(Lumox::ipv4(), "edge");
  auto const layout = Verify::KeyLayout::of(tables);
  auto const labels = Verify::naiveLabels(tables, layout, packet);
  auto const verdict = Verify::naiveLookup(tables, layout, acl, packet);
  // A chip that yields the highest label on a miss must come to the same rule.
  auto const other = Verify::KeyLayout::of(tables, Verify::MissYields::highest);
  EXPECT_EQ(Verify::naiveLookup(tables, other, acl, packet), verdict);
  auto const label = [&](Verify::Field field) {
    return labels[field] ? std::to_string(*labels[field]) : "none";
  };
  return question + ": source " + label(Verify::Fields::source) + ", dport " +
         label(Verify::Fields::dport) + ", rule " + Mox::valueToStrep(verdict.rule) + "\n";
}

/// What a block of that name says of a compiled world; nothing if no such block is known.
std::string computed(World const& world, Block const& block) {
  if (block.name == "tables") return dump(world.tables());
  Said out;
  std::istringstream in(block.text);
  if (block.name == "lookups")
    for (std::string line; std::getline(in, line);)
      out["lookups"] << lookup(world.tables(), line.substr(0, line.find(':')));
  PrefixXformKey const key(Lumox::ipv4(), true);
  auto const prefixes = world.root->prefixXformStatus(key);
  auto const ranges = world.root->rangeSplitStatus(RangeSetType::dstPort);
  std::vector<std::pair<std::string, PlainLabel>> stretches;
  for (auto const& [range, label] : ranges->rangeToPlainLabelMap())
    stretches.emplace_back(std::to_string(range.first()) + "-" + std::to_string(range.last()),
                           label);
  describe(out, "source", *world.root, prefixes, *world.root->prefixEncoderStatus(key),
           prefixes->prefixToLabelMap(), &GenSetIpRule::source);
  describe(out, "dport", *world.root, ranges,
           *world.root->rangeEncoderStatus(RangeSetType::dstPort), stretches, &GenSetIpRule::dport);
  return out[block.name].str();
}

TEST(LabelsDocument, EveryBlockIsWhatTheLibraryComputes) {
  std::unique_ptr<World> world;
  std::set<std::string> checked;
  for (Block const& block : blocksOf(NAXEL_SOURCE_DIR "/docs/labels.md")) {
    SCOPED_TRACE("docs/labels.md:" + std::to_string(block.line) + ": " + block.name);
    checked.insert(block.name);
    if (block.name == "rules") {
      world = std::make_unique<World>(block.text);
    } else if (block.name == "widths") {
      widthsAre(*world->capability, block.text);
      ASSERT_EQ(world->kick(), NaxelProgress::naxelFinishedSuccess) << world->failureText();
    } else if (!block.name.empty()) {
      EXPECT_EQ(block.text, computed(*world, block));
    }
  }
  for (char const* name :
       {"rules", "widths", "pieces", "sets", "encoded", "pairs", "tables", "lookups"})
    EXPECT_TRUE(checked.contains(name)) << name;
}

}  // namespace
}  // namespace Test
