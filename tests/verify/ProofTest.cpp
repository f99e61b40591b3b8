/// The proof over random configurations and over outputs that somebody has tampered with: what it
/// says of them is held against the comparison of verdicts packet by packet, both ways.
///
/// A failing run prints its seed; NAXEL_SEED=n runs that seed alone, NAXEL_SEEDS=n the first n.

#include "command/Verify.h"
#include "input/RuleSet.h"
#include "mox/Trace.h"
#include "support/Thinning.h"
#include "support/Vocabulary.h"
#include "support/World.h"
#include "verify/Agreement.h"
#include "verify/ExactProof.h"
#include "verify/NaiveLookup.h"
#include "verify/RuleOracle.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <functional>
#include <map>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Test {
namespace {

using namespace Naxel;
using namespace NaxelTool;
using Verify::Claim;
using Verify::KeyLayout;
using Verify::MissYields;
using Verify::Proof;
using Verify::prove;

/// Replaces an entry of one of the tables by what `change` makes of it, if anything.
bool changeTable(Dice& dice, PDData& data, auto change) {
  std::vector<std::function<void()>> all;
  auto const offer = [&](auto& table) {
    if (!table.entry().empty())
      all.push_back([&] {
        auto const entry = dice.of(table.entry().items());
        table.entryDel(entry.key());
        if (auto const changed = change(entry)) table.entryIs(*changed);
      });
  };
  for (auto const& key : PrefixXformKey::all()) offer(data.pdPrefixXformEntryCollIs(key));
  for (RangeSetType type : allRangeSetTypes()) offer(data.rangeCollIs(type));
  for (ComboLabelSetType type : allComboLabelSetTypes()) offer(data.comboCollIs(type));
  if (!all.empty()) dice.of(all)();
  return !all.empty();
}
auto const relabelled = [](auto const& e) {
  return std::optional(std::decay_t<decltype(e)>(
      e.key(), EncodedLabel(static_cast<uint16_t>(e.value().value() ^ 1))));
};
auto const gone = [](auto const& e) { return std::optional<std::decay_t<decltype(e)>>(); };
struct Smaller {
  std::optional<PDPrefixXformEntry> operator()(PDPrefixXformEntry const& e) const {
    auto const p = e.key();
    bool const four = p.af() == Lumox::ipv4();
    auto const length = static_cast<uint8_t>(p.length() + 1);
    if (length > (four ? 32 : 128)) return std::nullopt;
    return PDPrefixXformEntry(four ? Lumox::IpGenPrefix::v4(p.address4(), length)
                                   : Lumox::IpGenPrefix::v6(p.hi(), p.lo(), length),
                              e.value());
  }
  std::optional<PDRangeXformEntry> operator()(PDRangeXformEntry const& e) const {
    if (e.key().first() == e.key().last()) return std::nullopt;
    return PDRangeXformEntry(RangeSetElem(e.key().first(), e.key().last() - 1u), e.value());
  }
  std::optional<PDComboEntry> operator()(PDComboEntry const&) const { return std::nullopt; }
};

enum class Change { label, mask, flag, all };
/// Changes an entry of any rule: one bit of it, if a field is looked at, or the whole.
bool changeEntry(Dice& dice, PDData& data, Change change) {
  std::vector<PDAclRule*> rules;
  for (auto const& [key, acl] : data.pdAclColl()->pdAcl())
    for (auto const& [index, rule] : acl->rule())
      if (rule->filters()) rules.push_back(data.pdAclCollIs().pdAclIs(key)->ruleIs(index).get());
  if (rules.empty()) return false;
  PDAclRule* const rule = dice.of(rules);
  PDAclFilter entry = dice.of(rule->filter().items());
  rule->filterDel(PDAclFilter(entry));
  if (change == Change::all) return true;
  std::vector<TcamFieldType> compared;
  for (TcamFieldType field : allLabelFields())
    if (entry.labelField(field).mask().value() != 0) compared.push_back(field);
  if (change == Change::flag) {
    bool const init = dice.oneIn(2);
    entry.matchTcpInitIs(entry.matchTcpInit() != init);
    entry.matchTcpEstablishedIs(entry.matchTcpEstablished() == init);
  } else if (!compared.empty()) {
    TcamFieldType const field = dice.of(compared);
    unsigned label = entry.labelField(field).label().value();
    unsigned mask = entry.labelField(field).mask().value();
    unsigned const lowest = mask & -mask;
    if (change == Change::mask) mask ^= lowest;
    label = (label ^ lowest) & mask;
    entry.labelFieldIs(field, {static_cast<uint16_t>(label), static_cast<uint16_t>(mask)});
  }
  rule->filterIs(entry);
  return true;
}

/// Changes one thing of an output; says false if there is nothing of the kind.
struct Tampering {
  char const* name;
  bool (*act)(Dice&, PDData&);
};
Tampering const tamperings[] = {
    {"label in a table", [](Dice& d, PDData& t) { return changeTable(d, t, relabelled); }},
    {"lost from a table", [](Dice& d, PDData& t) { return changeTable(d, t, gone); }},
    {"smaller key", [](Dice& d, PDData& t) { return changeTable(d, t, Smaller()); }},
    {"label of an entry", [](Dice& d, PDData& t) { return changeEntry(d, t, Change::label); }},
    {"mask of an entry", [](Dice& d, PDData& t) { return changeEntry(d, t, Change::mask); }},
    {"flag of an entry", [](Dice& d, PDData& t) { return changeEntry(d, t, Change::flag); }},
    {"entry lost", [](Dice& d, PDData& t) { return changeEntry(d, t, Change::all); }}};

/// Whether the packet that the proof names makes the difference that it speaks of.
bool differs(AclConfigColl const& acls, PDData const& data, KeyLayout layout, Proof const& proof,
             Claim claim) {
  auto const acl = acls.acl(proof.acl.aclName());
  Verify::Packet const& packet = *proof.packet;
  bool found = false;
  for (MissYields yields : {MissYields::nothing, MissYields::highest}) {
    layout.missYields = yields;
    if (claim == Claim::firstMatch) {
      auto const have = Verify::naiveLookup(data, layout, proof.acl, packet);
      bool const hit = have.kind == Verify::Verdict::Kind::rule;
      found |= Verify::firstMatch(*acl, packet) != (hit ? std::optional(have.rule) : std::nullopt);
      continue;
    }
    auto const& filter = acl->ruleById(*proof.rule)->ruleFilter();
    auto const labels = Verify::naiveLabels(data, layout, packet);
    bool const have = std::ranges::any_of(
        data.pdAclColl()->pdAcl(proof.acl)->rule(*proof.rule)->filter(),
        [&](PDAclFilter const& entry) { return Verify::matches(entry, labels, packet); });
    found |= have != (!filter || Verify::matches(*filter, packet));
  }
  return found;
}

TEST(Proof, HoldsForRandomConfigurationsAndFindsWhatWasTamperedWith) {
  auto const silence = Mox::traceSinkIs({});
  char const* const only = std::getenv("NAXEL_SEED");
  char const* const all = std::getenv("NAXEL_SEEDS");
  uint64_t const first = only ? std::strtoull(only, nullptr, 10) : 1;
  uint64_t const count = all ? std::strtoull(all, nullptr, 10) : only ? 1 : 1200 / thinning();
  size_t entries = 0;
  size_t combinations = 0;
  std::map<std::string, std::array<unsigned, 2>> found;  // by claim
  for (uint64_t seed = first; seed < first + count && !HasFailure(); ++seed) {
    SeededDice dice(seed);
    World world;
    drawAcls(dice, *world.acls);
    drawWidths(dice, *world.capability, dice.oneIn(3));
    // Most narrow label spaces are overfull. What differs in a wide one is how labels are combined.
    if (world.kick() != NaxelProgress::naxelFinishedSuccess) {
      drawWidths(dice, *world.capability, true);
      ASSERT_EQ(world.kick(), NaxelProgress::naxelFinishedSuccess) << world.failureText();
    }
    // The world ends with this round, so its tables may be changed in place.
    auto& tables = const_cast<PDData&>(world.tables());
    KeyLayout layout = KeyLayout::of(tables);
    Tampering const& tampering = tamperings[seed % std::size(tamperings)];
    SCOPED_TRACE("NAXEL_SEED=" + std::to_string(seed) + " " + tampering.name);
    for (Claim claim : {Claim::eachRule, Claim::firstMatch}) {
      Proof const proof = prove(*world.acls, tables, layout, claim);
      EXPECT_EQ(proof.difference, "") << dump(tables);
      entries += proof.entries;
    }
    for (ComboLabelSetType type : allComboLabelSetTypes())
      combinations += tables.comboColl(type)->entry().size();
    if (!tampering.act(dice, tables)) continue;
    std::string difference;
    for (Claim claim : {Claim::eachRule, Claim::firstMatch}) {
      Proof const proof = prove(*world.acls, tables, layout, claim);
      // What changes the verdict of a packet changes what some rule matches.
      EXPECT_TRUE(proof.difference.empty() || claim == Claim::eachRule || !difference.empty());
      difference = proof.difference;
      found[tampering.name][claim == Claim::firstMatch] += !difference.empty();
      EXPECT_TRUE(!proof.packet || differs(*world.acls, tables, layout, proof, claim))
          << difference;
    }
    // What samples show, the proof of verdicts finds as well.
    EXPECT_TRUE(!difference.empty() ||
                Verify::sampledDifference(*world.acls, tables, dice.below(1000), 200).empty());
  }
  Mox::traceSinkIs(silence);
  if (only || all || thinning() != 1) return;
  EXPECT_GT(entries, 6000u);
  EXPECT_GT(combinations, 1000u);
  for (auto const& [name, times] : found) {
    EXPECT_GT(times[0], 20u) << name;
    EXPECT_GT(times[1], 20u) << name;
  }
}

TEST(Proof, SaysWhatIsMissingAndWhere) {
  std::string const web = "edge 10 web src 10.0.0.0/8,!10.1.0.0/16";
  std::string const tcp = " proto 6 dport 80,443";
  std::string const rest = "\nedge 20 rest src 10.0.0.0/9 drop\n";
  World world(web + tcp + rest);
  world.capability->rangeXformWidthIs(RangeSetType::dstPort, 4);
  ASSERT_EQ(world.kick(), NaxelProgress::naxelFinishedSuccess);
  KeyLayout const layout = KeyLayout::of(world.tables());
  EXPECT_EQ(prove(*world.acls, world.tables(), layout).difference, "");

  // Other rules than those that were compiled.
  std::string const missing = "matches, but its entries do not: ";
  std::string const wrong = "does not match, but its entries do: ";
  for (auto const& [rules, difference] : std::map<std::string, std::string>{
           {web + tcp + ",8080" + rest,
            "rule 10 'web' " + missing + "ipv4 10.0.0.0 > 0.0.0.0 proto 6 ports 0 > 8080"},
           {web + ",!10.1.2.3/32" + tcp + rest, ""},
           {web + ",!10.9.8.7/32" + tcp + rest,
            "rule 10 'web' " + wrong + "ipv4 10.9.8.7 > 0.0.0.0 proto 6 ports 0 > 80"},
           {web + tcp + " init" + rest,
            "rule 10 'web' " + wrong + "ipv4 10.0.0.0 > 0.0.0.0 proto 6 ports 0 > 80"},
           {web + tcp + " drop" + rest, "rule 10 'web' has another action in the tables"},
           {web + tcp + rest + "edge 15 other src 10.0.0.0/8",
            "rule 15 'other' is not in the tables"},
           {web + tcp, "rule 20 '' stands in the tables only"},
           {"af edge ipv6\nedge 10 web", "stands in the tables only"}}) {
    SCOPED_TRACE(rules);
    EXPECT_EQ(prove(*World(rules).acls, world.tables(), layout).difference,
              (difference.empty() ? "" : "ACL edge ") + difference);
  }
  EXPECT_EQ(prove(*World(web + tcp + rest + "more 10 web").acls, world.tables(), layout).difference,
            "ACL more is not in the tables");
  // An entry that matches nothing but the highest label.
  PDAclFilter entry;
  entry.dportIs({15, 15});
  auto& tables = const_cast<PDData&>(world.tables());
  tables.pdAclCollIs().pdAclIs({Lumox::ipv4(), "edge"})->ruleIs(AceIndex(10))->filterIs(entry);
  EXPECT_EQ(
      prove(*world.acls, tables, layout).difference,
      "ACL edge rule 10 'web' " + wrong +
          "ipv4 0.0.0.0 > 0.0.0.0 proto 0 ports 0 > 0 (where a miss yields the highest label)");
}

TEST(Proof, SaysWhenItRunsOutOfNodesAndCanBeRepeated) {
  SeededDice dice(1);
  World world;
  auto const rule = world.acls->aclIs("edge")->ruleByNameIs("list");
  world.acls->acl("edge")->ruleByIdIs(AceIndex(10), rule);
  for (int i = 0; i < 5000; ++i)
    rule->ruleFilterIs()->sourceIs()->addrIs(
        Lumox::IpGenPrefix::v4(static_cast<uint32_t>(dice.below(uint64_t{1} << 32)), 32));
  ASSERT_EQ(world.kick(), NaxelProgress::naxelFinishedSuccess);
  KeyLayout const layout = KeyLayout::of(world.tables());
  EXPECT_THAT([&] { prove(*world.acls, world.tables(), layout, Claim::eachRule, 40000); },
              testing::ThrowsMessage<std::runtime_error>(
                  testing::StartsWith("the proof needs more BDD nodes than it may have")));
  EXPECT_EQ(prove(*world.acls, world.tables(), layout).difference, "");
}

TEST(Proof, VerifyPrintsIt) {
  RuleSet rules(Obel::ChipId(0));
  addRules(*rules.acls(), "a 10 web dport 80");
  Session session(defaultChip(), rules.acls());
  ASSERT_TRUE(session.kick());
  std::ostringstream out;
  EXPECT_TRUE(verifyExactly(session, out));
  EXPECT_EQ(out.str(), "proved for every packet: 1 ACL, 1 rule, 1 entry, 0 differences\n");
  out.str("");
  rules.acls()->acl("a")->ruleByName("web")->ruleFilter()->dportRangeIs({81, 81});
  EXPECT_FALSE(verifyExactly(session, out));
  EXPECT_EQ(out.str(),
            "difference: ACL a rule 10 'web' matches, but its entries do not: "
            "ipv4 0.0.0.0 > 0.0.0.0 proto 0 ports 0 > 81\n"
            "  rules:  rule 10 'web': permit\n"
            "  tables: no rule\n"
            "  labels: icmpType 0 proto 0 length 0 dscp 0\n");
}

}  // namespace
}  // namespace Test
