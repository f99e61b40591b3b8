/// Kicks over configurations that load a single stage: one prefix list of many prefixes, many port
/// ranges, and combinations of prefixes. Beside the first two runs a yardstick by turns, so that their
/// ratio says something on any machine.

#include "Cases.h"
#include "Pipeline.h"
#include "input/ChipReader.h"
#include "input/InputFile.h"
#include "mox/Chunked.h"
#include "mox/OrderedMap.h"
#include "verify/Random.h"

#include <algorithm>
#include <set>
#include <sstream>

namespace Bench {

namespace {

using Naxel::NaxelActiveStage;
using Verify::Random;

Mox::Ptr<Naxel::RuleFilter> addRule(Naxel::AclConfig& acl, uint32_t index) {
  auto const rule = acl.ruleByNameIs("r" + std::to_string(index));
  acl.ruleByIdIs(Naxel::AceIndex(index), rule);
  return rule->ruleFilterIs();
}

/// Prefixes of the lengths that routing tables are made of, many of them within others.
std::vector<Lumox::IpGenPrefix> drawPrefixes(size_t count) {
  Random random(count);
  std::set<Lumox::IpGenPrefix> out;
  while (out.size() < count) {
    auto const length = static_cast<uint8_t>(random.oneIn(2) ? 24 : random.between(12, 28));
    auto const address = static_cast<uint32_t>(random.next());
    out.insert(Lumox::IpGenPrefix::v4(address, length).masked());
  }
  return {out.begin(), out.end()};
}

/// The prefixes of a text file with one in each line.
std::vector<Lumox::IpGenPrefix> readPrefixes(std::string const& path) {
  std::set<Lumox::IpGenPrefix> out;
  std::istringstream lines(NaxelTool::readInput(path));
  for (std::string line; std::getline(lines, line);)
    if (line.find('/') != std::string::npos) out.insert(NaxelTool::prefixFromText(line).masked());
  return {out.begin(), out.end()};
}

/// Neither side of the comparison gets them in their natural order.
void shuffle(std::vector<Lumox::IpGenPrefix>& prefixes) {
  Random random(1);
  for (size_t i = prefixes.size(); i > 1; --i)
    std::swap(prefixes[i - 1], prefixes[random.below(i)]);
}

void addPrefixListCase(std::string const& name, std::vector<Lumox::IpGenPrefix> prefixes) {
  shuffle(prefixes);
  addCase("list", name, 1, [prefixes](benchmark::State& state) {
    auto const acls = Mox::makePtr<Naxel::AclConfigColl>(Obel::ChipId(0));
    auto const acl = acls->aclIs("list");
    acl->afIs(prefixes.front().af());
    auto const filter = addRule(*acl, 1);
    for (Lumox::IpGenPrefix const& p : prefixes) filter->sourceIs()->addrIs(p);
    Pipeline pipeline(acls, NaxelTool::defaultChip().capability);
    double const seconds = pipeline.kick();

    double const start = threadSeconds();
    std::set<Lumox::IpGenPrefix> set;
    for (Lumox::IpGenPrefix const& p : prefixes) set.insert(p);
    benchmark::DoNotOptimize(set);
    double const beside = threadSeconds() - start;

    double const transform = pipeline.stageSeconds(NaxelActiveStage::stagePrefixXform);
    state.counters["size"] = static_cast<double>(prefixes.size());
    state.counters["transform"] = transform * 1e3;
    state.counters["beside"] = beside * 1e3;
    state.counters["ratio"] = transform / beside;
    state.counters["kickRatio"] = seconds / beside;
    return seconds;
  });
}

/// 10,000 ranges of 1 to 64 ports in 200 sets, as destination ports of 200 rules.
void addPortRangeCase() {
  constexpr size_t ranges = 10000;
  constexpr uint32_t sets = 200;
  addCase("ranges", "10k in 200 sets", 1, [](benchmark::State& state) {
    Random random(7);
    std::vector<uint32_t> ends;
    auto const acls = Mox::makePtr<Naxel::AclConfigColl>(Obel::ChipId(0));
    auto const acl = acls->aclIs("ranges");
    for (uint32_t i = 0; i < sets; ++i) {
      auto const filter = addRule(*acl, i);
      for (size_t n = 0; n < ranges / sets; ++n) {
        auto const length = static_cast<uint32_t>(random.between(1, 64));
        auto const first = static_cast<uint32_t>(random.below(65537 - length));
        filter->dportRangeIs({first, first + length - 1});
        ends.push_back(first);
        ends.push_back(first + length - 1);
      }
    }
    auto const capability = Mox::makePtr<Naxel::ChipHwCapability>(Obel::ChipId(0));
    capability->rangeXformWidthIs(Naxel::RangeSetType::dstPort, 16);
    Pipeline pipeline(acls, capability);
    double const seconds = pipeline.kick();

    double const start = threadSeconds();
    std::sort(ends.begin(), ends.end());
    benchmark::DoNotOptimize(ends.data());
    double const beside = threadSeconds() - start;

    double const transform = pipeline.stageSeconds(NaxelActiveStage::stageRangeSplit);
    state.counters["size"] = static_cast<double>(ranges);
    state.counters["transform"] = transform * 1e3;
    state.counters["beside"] = beside * 1e3;
    state.counters["ratio"] = transform / beside;
    state.counters["kickRatio"] = seconds / beside;
    return seconds;
  });
}

/// The rules of an ACL by index, put in at random and walked as kicks walk them, beside a tree.
void addWalkCase() {
  constexpr size_t rules = 10000;
  constexpr int walks = 200;
  addCase("walk", "10k rules", 1, [](benchmark::State& state) {
    Random random(3);
    Mox::ChunkedMap<uint32_t, uint64_t> chunked;
    Mox::OrderedMap<uint32_t, uint64_t> tree;
    while (chunked.size() < rules) {
      auto const index = static_cast<uint32_t>(random.next());
      chunked.set(index, index);
      tree.set(index, index);
    }
    auto const walk = [](auto const& map) {
      double const start = threadSeconds();
      uint64_t sum = 0;
      for (int i = 0; i < walks; ++i)
        for (auto const& [index, rule] : map) sum += rule;
      benchmark::DoNotOptimize(sum);
      return (threadSeconds() - start) / walks;
    };
    double const seconds = walk(chunked);
    double const beside = walk(tree);
    state.counters["size"] = static_cast<double>(rules);
    state.counters["beside"] = beside * 1e3;
    state.counters["ratio"] = seconds / beside;
    return seconds;
  });
}

void addComboCase(RuleSource const& source) {
  addCase("combo", source.name, 1, [source](benchmark::State& state) {
    auto const acls = build(source);
    auto const capability = Mox::makePtr<Naxel::ChipHwCapability>(Obel::ChipId(0));
    capability->rangeXformWidthIs(Naxel::RangeSetType::srcPort, 12);
    capability->rangeXformWidthIs(Naxel::RangeSetType::dstPort, 12);
    capability->comboXformWidthIs(Naxel::ComboLabelSetType::ipv4SrcDstPrefix, 16);
    Pipeline pipeline(acls, capability);
    double const seconds = pipeline.kick();
    state.counters["rules"] = static_cast<double>(source.rules);
    state.counters["entries"] = static_cast<double>(pipeline.entries());
    for (auto const stage :
         {NaxelActiveStage::stageComboLabelResolver, NaxelActiveStage::stageComboLabelSplit,
          NaxelActiveStage::stageComboLabelEncoder})
      state.counters[Naxel::stringValue(stage)] = pipeline.stageSeconds(stage) * 1e3;
    return seconds;
  });
}

}  // namespace

void addListCases(std::vector<std::string> const& prefixFiles) {
  for (std::string const& file : prefixFiles)
    addPrefixListCase(NaxelTool::baseName(file), readPrefixes(file));
  if (prefixFiles.empty())
    for (size_t const count : {1000, 10000, 30000, 111000})
      addPrefixListCase(std::to_string(count / 1000) + "k prefixes", drawPrefixes(count));
  addPortRangeCase();
  addWalkCase();
}

void addComboCases(std::vector<RuleSource> const& sources) {
  for (RuleSource const& source : sources)
    if (source.rules <= 12000) addComboCase(source);
}

}  // namespace Bench
