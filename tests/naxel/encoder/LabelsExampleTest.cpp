/// Holds docs/labels.md against the library: every fenced block of the document that has a name of
/// its own is compiled or computed here.

#include "naxel/encoder/CostModel.h"
#include "support/Output.h"
#include "support/World.h"
#include "verify/NaiveLookup.h"

#include <fstream>
#include <map>
#include <memory>
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
  for (std::string line; std::getline(in, line);) {
    size_t const gap = line.rfind(' ');
    std::string const field = line.substr(0, gap);
    auto const width = std::stoul(line.substr(gap));
    if (auto const type = Mox::instanceFromText<RangeSetType>(field)) {
      capability.rangeXformWidthIs(*type, width);
    } else if (auto const combo = Mox::instanceFromText<ComboLabelSetType>(field)) {
      capability.comboXformWidthIs(*combo, width);
    } else {
      EXPECT_TRUE(field == "ipv4 src" || field == "ipv4 dst") << field;
      capability.prefixXformWidthIs({Lumox::ipv4(), field == "ipv4 src"}, width);
    }
  }
}

/// One transformed field of the example. Its sets have the names of the first rules that use them.
struct Side {
  std::string name;
  Mox::Ptr<XformStatus> xform;
  Mox::Ptr<EncoderStatus> encoder;
  std::map<GenSetKey, std::string> names = {};
  std::vector<std::pair<std::string, PlainLabel>> items = {};
};

std::vector<Side> sidesOf(NaxelRootSm const& root) {
  PrefixXformKey const key(Lumox::ipv4(), true);
  auto const prefixes = root.prefixXformStatus(key);
  auto const ranges = root.rangeSplitStatus(RangeSetType::dstPort);
  Side source{"source", prefixes, root.prefixEncoderStatus(key)};
  Side dport{"dport", ranges, root.rangeEncoderStatus(RangeSetType::dstPort)};
  for (auto const& [prefix, label] : prefixes->prefixToLabelMap())
    source.items.emplace_back(Mox::valueToStrep(prefix), label);
  for (auto const& [range, label] : ranges->rangeToPlainLabelMap())
    dport.items.emplace_back(std::to_string(range.first()) + "-" + std::to_string(range.last()),
                             label);
  for (auto const& [index, rule] :
       root.aggregatorStatus()->aclGenSetIpRuleList("edge")->genSetIpRuleById()) {
    source.names.try_emplace(rule->source(), rule->name());
    dport.names.try_emplace(rule->dport(), rule->name());
  }
  return {source, dport};
}

void writePieces(std::ostream& out, Side const& side) {
  for (auto const& [item, label] : side.items) {
    std::string sets;
    for (auto const& [key, list] : side.xform->plainLabelListMap()->plainLabelList())
      if (list->labelHas(label)) sets += (sets.empty() ? "" : " ") + side.names.at(key);
    out << side.name << " " << item << ": " << label << " {" << sets << "}\n";
  }
}

void writeSets(std::ostream& out, Side const& side, Mox::Ptr<GenSetUsageInfo const> const& usage) {
  RefCntCostModel const order(encoderConfigFactory(side.xform), usage);
  for (auto const& visit : order.visits()) {
    out << side.name << " " << side.names.at(visit.list->key()) << ": labels";
    for (PlainLabel label : visit.list->label()) out << " " << label;
    out << ", used " << visit.uses << ", cost " << visit.uses * visit.list->label().size() << "\n";
  }
}

void writeEncoded(std::ostream& out, Side const& side) {
  out << side.name << ":";
  for (auto const& [plain, label] : side.encoder->plainToEncodedLabel())
    out << " " << plain << "->" << label;
  out << "\n";
}

void writePairs(std::ostream& out, Side const& side) {
  for (auto const& [key, list] : side.encoder->encodedLabelList()) {
    out << side.name << " " << side.names.at(key) << ":";
    for (auto const& pair : list->encLabelAndMask())
      out << " " << pair.label() << "/" << pair.mask();
    out << "\n";
  }
}

/// Completes a line "SOURCE proto P dport D" with the labels found and the rule that matches.
void writeLookup(std::ostream& out, PDData const& tables, std::string const& question) {
  std::istringstream in(question);
  std::string address, word;
  unsigned proto = 0;
  Verify::Packet packet;
  in >> address;
  packet = Verify::packetOf(address);
  in >> word >> proto >> word >> packet.dport;
  packet.proto = static_cast<uint8_t>(proto);
  PDAclKey const acl(Lumox::ipv4(), "edge");
  auto const layout = Verify::KeyLayout::of(tables);
  auto const labels = Verify::naiveLabels(tables, layout, packet);
  auto const verdict = Verify::naiveLookup(tables, layout, acl, packet);
  // A chip that yields the highest label on a miss must come to the same rule.
  auto const other = Verify::KeyLayout::of(tables, Verify::MissYields::highest);
  EXPECT_EQ(Verify::naiveLookup(tables, other, acl, packet), verdict);
  auto const show = [&](Verify::Field field) {
    return labels[field] ? std::to_string(*labels[field]) : std::string("none");
  };
  out << question << ": source " << show(Verify::Fields::source) << ", dport "
      << show(Verify::Fields::dport) << ", rule " << verdict.rule << "\n";
}

/// What a block of that name says of a compiled world; nothing if no such block is known.
std::string computed(World const& world, Block const& block) {
  std::ostringstream out;
  if (block.name == "tables") return dump(world.tables());
  if (block.name == "lookups") {
    std::istringstream in(block.text);
    for (std::string line; std::getline(in, line);)
      writeLookup(out, world.tables(), line.substr(0, line.find(':')));
  }
  for (Side const& side : sidesOf(*world.root)) {
    if (block.name == "pieces") writePieces(out, side);
    if (block.name == "sets")
      writeSets(out, side, world.root->aggregatorStatus()->genSetUsageInfo());
    if (block.name == "encoded") writeEncoded(out, side);
    if (block.name == "pairs") writePairs(out, side);
  }
  return out.str();
}

TEST(LabelsDocument, EveryBlockIsWhatTheLibraryComputes) {
  std::unique_ptr<World> world;
  std::map<std::string, int> checked;
  for (Block const& block : blocksOf(NAXEL_SOURCE_DIR "/docs/labels.md")) {
    SCOPED_TRACE("docs/labels.md:" + std::to_string(block.line) + ": " + block.name);
    ++checked[block.name];
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
    EXPECT_GT(checked[name], 0) << "no block " << name;
}

}  // namespace
}  // namespace Test
