/// Holds docs/labels.md against the library: every fenced block of the document that has a name of
/// its own is compiled or computed here.

#include "naxel/encoder/CostModel.h"
#include "support/World.h"
#include "verify/NaiveLookup.h"

#include <algorithm>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <sstream>

#include <gtest/gtest.h>

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

/// The names of the sets of a side, which are those of the first rules that use them.
using Names = std::map<GenSetKey, std::string>;

std::string listOf(std::vector<std::string> const& items) {
  std::string out;
  for (auto const& item : items) out += (out.empty() ? "" : " ") + item;
  return out;
}

/// One transformed field of the example.
struct Side {
  std::string name;
  Names names;
  Mox::Ptr<XformStatus> xform;
  Mox::Ptr<EncoderStatus> encoder;
  std::function<void(std::function<void(std::string const&, PlainLabel)>)> forEachItem;

  std::string setsOf(PlainLabel label) const {
    std::vector<std::string> found;
    for (auto const& [key, list] : xform->plainLabelListMap()->plainLabelList())
      if (std::ranges::count(list->label(), label)) found.push_back(names.at(key));
    return "{" + listOf(found) + "}";
  }
};

class Example {
 public:
  explicit Example(std::string const& rules) : world_(rules) {}

  /// Sets the widths, one per line, and compiles.
  void widthsAre(std::string const& text) {
    for (auto const& key : PrefixXformKey::all()) world_.capability->prefixXformWidthIs(key, 1);
    std::istringstream in(text);
    for (std::string field, word; in >> field;) {
      unsigned width = 0;
      if (auto const type = Mox::instanceFromText<RangeSetType>(field)) {
        in >> width;
        world_.capability->rangeXformWidthIs(*type, static_cast<uint8_t>(width));
      } else if (auto const combo = Mox::instanceFromText<ComboLabelSetType>(field)) {
        in >> width;
        world_.capability->comboXformWidthIs(*combo, static_cast<uint8_t>(width));
      } else {
        in >> word >> width;
        world_.capability->prefixXformWidthIs(
            PrefixXformKey(*Mox::instanceFromText<Lumox::AddressFamily>(field), word == "src"),
            static_cast<uint8_t>(width));
      }
    }
    ASSERT_EQ(world_.kick(), NaxelProgress::naxelFinishedSuccess) << world_.failureText();
  }

  std::string pieces() const {
    std::string out;
    for (Side const& side : sides())
      side.forEachItem([&](std::string const& item, PlainLabel label) {
        out += side.name + " " + item + ": " + Mox::valueToStrep(label) + " " + side.setsOf(label) +
               "\n";
      });
    return out;
  }

  std::string sets() const {
    std::string out;
    auto const& usage = world_.root->aggregatorStatus()->genSetUsageInfo();
    for (Side const& side : sides()) {
      RefCntCostModel const order(encoderConfigFactory(side.xform), usage);
      for (auto const& visit : order.visits()) {
        GenSetKey const key = visit.list->key();
        auto const& labels = side.xform->plainLabelListMap()->plainLabelList(key)->label();
        uint32_t const used = usage->refCountValue(key);
        out += side.name + " " + side.names.at(key) + ": labels " + textOf(labels) + ", used " +
               std::to_string(used) + ", cost " + std::to_string(used * labels.size()) + "\n";
      }
    }
    return out;
  }

  std::string encoded() const {
    std::string out;
    for (Side const& side : sides()) {
      out += side.name + ":";
      for (auto const& [plain, label] : side.encoder->plainToEncodedLabel())
        out += " " + Mox::valueToStrep(plain) + "->" + Mox::valueToStrep(label);
      out += "\n";
    }
    return out;
  }

  std::string pairs() const {
    std::string out;
    for (Side const& side : sides())
      for (auto const& [key, list] : side.encoder->encodedLabelList()) {
        out += side.name + " " + side.names.at(key) + ":";
        for (auto const& pair : list->encLabelAndMask())
          out += " " + Mox::valueToStrep(pair.label()) + "/" + Mox::valueToStrep(pair.mask());
        out += "\n";
      }
    return out;
  }

  std::string tables() const { return Test::dump(world_.tables()); }

  /// Completes lines "SOURCE proto P dport D" with the labels found and the rule that matches.
  std::string lookups(std::string const& text) const {
    std::string out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
      std::istringstream words(line.substr(0, line.find(':')));
      std::string address, word;
      unsigned proto = 0, dport = 0;
      words >> address >> word >> proto >> word >> dport;
      Verify::Packet packet;
      packet.src =
          Verify::ipv4Address(Mox::valueFromText<Lumox::IpGenPrefix>(address + "/32").address4());
      packet.proto = static_cast<uint8_t>(proto);
      packet.dport = static_cast<uint16_t>(dport);
      out += line.substr(0, line.find(':')) + ": " + outcome(packet) + "\n";
    }
    return out;
  }

 private:
  static std::string textOf(auto const& labels) {
    std::vector<std::string> items;
    for (PlainLabel label : labels) items.push_back(Mox::valueToStrep(label));
    return listOf(items);
  }

  std::string outcome(Verify::Packet const& packet) const {
    using Verify::Field;
    PDAclKey const acl(Lumox::ipv4(), "edge");
    auto const layout = Verify::KeyLayout::of(world_.tables());
    auto const labels = Verify::naiveLabels(world_.tables(), layout, packet);
    auto const verdict = Verify::naiveLookup(world_.tables(), layout, acl, packet);
    // A chip that yields the highest label on a miss must come to the same rule.
    auto const other = Verify::KeyLayout::of(world_.tables(), Verify::MissYields::highest);
    EXPECT_EQ(Verify::naiveLookup(world_.tables(), other, acl, packet), verdict);
    auto const show = [&](Field field) {
      return labels[field] ? std::to_string(*labels[field]) : std::string("none");
    };
    return "source " + show(Verify::Fields::source) + ", dport " + show(Verify::Fields::dport) +
           ", rule " + Mox::valueToStrep(verdict.rule);
  }

  std::vector<Side> sides() const {
    PrefixXformKey const prefixKey(Lumox::ipv4(), true);
    auto const prefixes = world_.root->prefixXformStatus(prefixKey);
    auto const ranges = world_.root->rangeSplitStatus(RangeSetType::dstPort);
    Side source{"source", {}, prefixes, world_.root->prefixEncoderStatus(prefixKey), {}};
    source.forEachItem = [=](auto f) {
      for (auto const& [prefix, label] : prefixes->prefixToLabelMap())
        f(Mox::valueToStrep(prefix), label);
    };
    Side dport{"dport", {}, ranges, world_.root->rangeEncoderStatus(RangeSetType::dstPort), {}};
    dport.forEachItem = [=](auto f) {
      for (auto const& [range, label] : ranges->rangeToPlainLabelMap())
        f(std::to_string(range.first()) + "-" + std::to_string(range.last()), label);
    };
    for (auto const& [index, rule] :
         world_.root->aggregatorStatus()->aclGenSetIpRuleList("edge")->genSetIpRuleById()) {
      source.names.try_emplace(rule->source(), rule->name());
      dport.names.try_emplace(rule->dport(), rule->name());
    }
    return {source, dport};
  }

  Test::World world_;
};

TEST(LabelsDocument, EveryBlockIsWhatTheLibraryComputes) {
  std::unique_ptr<Example> example;
  std::map<std::string, int> checked;
  for (Block const& block : blocksOf(NAXEL_SOURCE_DIR "/docs/labels.md")) {
    SCOPED_TRACE("docs/labels.md:" + std::to_string(block.line) + ": " + block.name);
    ++checked[block.name];
    if (block.name == "rules") example = std::make_unique<Example>(block.text);
    if (block.name == "rules" || block.name.empty()) continue;
    ASSERT_TRUE(example) << "a block before the rules that it belongs to";
    if (block.name == "widths")
      ASSERT_NO_FATAL_FAILURE(example->widthsAre(block.text));
    else if (block.name == "pieces")
      EXPECT_EQ(block.text, example->pieces());
    else if (block.name == "sets")
      EXPECT_EQ(block.text, example->sets());
    else if (block.name == "encoded")
      EXPECT_EQ(block.text, example->encoded());
    else if (block.name == "pairs")
      EXPECT_EQ(block.text, example->pairs());
    else if (block.name == "tables")
      EXPECT_EQ(block.text, example->tables());
    else if (block.name == "lookups")
      EXPECT_EQ(block.text, example->lookups(block.text));
    else
      ADD_FAILURE() << "a block of a kind that nothing checks";
  }
  for (char const* name :
       {"rules", "widths", "pieces", "sets", "encoded", "pairs", "tables", "lookups"})
    EXPECT_GT(checked[name], 0) << "no block " << name;
}

}  // namespace
