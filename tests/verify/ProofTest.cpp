/// The proof over random configurations, and over outputs that somebody has tampered with: what it
/// says of them is held against the comparison of verdicts packet by packet, both ways.
///
/// A failing run prints its seed; NAXEL_SEED=n runs that seed alone, NAXEL_SEEDS=n the first n.

#include "command/Verify.h"
#include "input/JsonConfigReader.h"
#include "mox/Trace.h"
#include "support/Thinning.h"
#include "support/Vocabulary.h"
#include "support/World.h"
#include "verify/Agreement.h"
#include "verify/ExactProof.h"
#include "verify/NaiveLookup.h"
#include "verify/Random.h"
#include "verify/RuleOracle.h"

#include <cstdlib>
#include <functional>
#include <map>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Test {
namespace {

using namespace Naxel;
using Verify::Claim;
using Verify::Proof;
using Verify::prove;
using namespace NaxelTool;
using Verify::KeyLayout;
using Verify::MissYields;

/// A compiled configuration of up to three small ACLs.
struct Compiled {
  explicit Compiled(SeededDice& dice) {
    drawAcls(dice, *world.acls);
    drawWidths(dice, *world.capability, dice.oneIn(3));
    // Most narrow label spaces are overfull. What differs in a wide one is how labels are combined.
    NaxelProgress progress = world.kick();
    if (progress != NaxelProgress::naxelFinishedSuccess) {
      drawWidths(dice, *world.capability, true);
      progress = world.kick();
    }
    EXPECT_EQ(progress, NaxelProgress::naxelFinishedSuccess) << world.failureText();
    layout = KeyLayout::of(world.tables());
  }

  World world;
  KeyLayout layout;
};

bool allSeeds() {
  return !std::getenv("NAXEL_SEED") && !std::getenv("NAXEL_SEEDS") && thinning() == 1;
}

/// Calls `run` with one seed after the other until one fails.
void forSeeds(uint64_t count, std::function<void(SeededDice&)> const& run) {
  auto const silence = Mox::traceSinkIs({});
  char const* const only = std::getenv("NAXEL_SEED");
  char const* const all = std::getenv("NAXEL_SEEDS");
  uint64_t const first = only ? std::strtoull(only, nullptr, 10) : 1;
  count = all ? std::strtoull(all, nullptr, 10) : count / thinning();
  for (uint64_t seed = first; seed < first + (only ? 1 : count); ++seed) {
    SCOPED_TRACE("NAXEL_SEED=" + std::to_string(seed));
    SeededDice dice(seed);
    run(dice);
    if (testing::Test::HasFailure()) break;
  }
  Mox::traceSinkIs(silence);
}

TEST(Proof, HoldsForRandomConfigurations) {
  size_t entries = 0;
  size_t combinations = 0;
  forSeeds(1000, [&](SeededDice& dice) {
    Compiled const c(dice);
    for (Claim claim : {Claim::eachRule, Claim::firstMatch}) {
      Proof const proof = prove(*c.world.acls, c.world.tables(), c.layout, claim);
      EXPECT_EQ(proof.difference, "") << dump(c.world.tables());
      entries += proof.entries;
    }
    for (ComboLabelSetType type : allComboLabelSetTypes())
      combinations += c.world.tables().comboColl(type)->entry().size();
  });
  RecordProperty("entries", std::to_string(entries));
  if (allSeeds()) {
    EXPECT_GT(entries, 5000u);
    EXPECT_GT(combinations, 1000u);
  }
}

Mox::Ptr<PDData> copyOf(PDData const& data) {
  auto const copy = pDDataFactory(data.hwCapability());
  for (PrefixXformKey const& key : PrefixXformKey::all())
    copy->pdPrefixXformEntryCollIs(key).entryIs(data.pdPrefixXformEntryColl(key)->entry().items());
  for (RangeSetType type : allRangeSetTypes())
    copy->rangeCollIs(type).entryIs(data.rangeColl(type)->entry().items());
  for (ComboLabelSetType type : allComboLabelSetTypes())
    copy->comboCollIs(type).entryIs(data.comboColl(type)->entry().items());
  for (auto const& [key, acl] : data.pdAclColl()->pdAcl()) {
    auto const to = copy->pdAclCollIs().pdAclIs(key);
    for (auto const& [index, rule] : acl->rule()) {
      to->ruleIs(index)->actionIs(rule->action());
      for (PDAclFilter const& entry : rule->filter()) to->ruleIs(index)->filterIs(entry);
    }
  }
  return copy;
}

/// Changes one thing of an output; says false if there is nothing of the kind.
class Tampering {
 public:
  Tampering(SeededDice& dice, PDData& data) : dice_(dice), data_(data) {
    for (auto const& [key, constant] : data.pdAclColl()->pdAcl()) {
      auto const acl = data.pdAclCollIs().pdAclIs(key);
      for (auto const& [index, rule] : constant->rule())
        rules_.push_back({acl.get(), acl->ruleIs(index).get()});
    }
  }

  static std::map<std::string, bool (Tampering::*)()> const& kinds() {
    static std::map<std::string, bool (Tampering::*)()> const all = {
        {"label of a prefix", &Tampering::prefixLabel},
        {"prefix lost", &Tampering::prefixLost},
        {"prefix longer", &Tampering::prefixLonger},
        {"label of a range", &Tampering::rangeLabel},
        {"range shorter", &Tampering::rangeShorter},
        {"label of a combination", &Tampering::comboLabel},
        {"combination lost", &Tampering::comboLost},
        {"label of an entry", &Tampering::entryLabel},
        {"mask of an entry", &Tampering::entryMask},
        {"flag of an entry", &Tampering::entryFlag},
        {"entry lost", &Tampering::entryLost},
        {"entries of two rules exchanged", &Tampering::entriesExchanged},
        {"action", &Tampering::action},
        {"rule lost", &Tampering::ruleLost},
        {"ACL of the other family", &Tampering::aclMoved}};
    return all;
  }

  bool prefixLabel() { return relabel(prefixes()); }
  bool prefixLost() { return lose(prefixes()); }
  bool prefixLonger() {
    auto& table = prefixes();
    if (table.entry().empty()) return false;
    auto const e = dice_.of(table.entry().items());
    auto const p = e.key();
    table.entryDel(p);
    uint8_t const longer = static_cast<uint8_t>(p.length() + 1);
    if (p.af() == Lumox::ipv4() && longer <= 32)
      table.entryIs({Lumox::IpGenPrefix::v4(p.address4(), longer), e.value()});
    if (p.af() == Lumox::ipv6() && longer <= 128)
      table.entryIs({Lumox::IpGenPrefix::v6(p.hi(), p.lo(), longer), e.value()});
    return true;
  }
  bool rangeLabel() { return relabel(ranges()); }
  bool rangeShorter() {
    auto& table = ranges();
    if (table.entry().empty()) return false;
    auto const e = dice_.of(table.entry().items());
    table.entryDel(e.key());
    if (e.key().first() < e.key().last())
      table.entryIs(
          {RangeSetElem(e.key().first(), static_cast<uint16_t>(e.key().last() - 1)), e.value()});
    return true;
  }
  bool comboLabel() { return relabel(combinations()); }
  bool comboLost() { return lose(combinations()); }
  bool entryLabel() {
    return changeEntry([&](PDAclFilter& f) {
      return changeField(f, [&](uint16_t label, uint16_t mask) {
        return EncodedLabelWithMask(static_cast<uint16_t>(label ^ lowBit(mask)), mask);
      });
    });
  }
  bool entryMask() {
    return changeEntry([&](PDAclFilter& f) {
      return changeField(f, [&](uint16_t label, uint16_t mask) {
        uint16_t const without = static_cast<uint16_t>(mask ^ lowBit(mask));
        return EncodedLabelWithMask(static_cast<uint16_t>(label & without), without);
      });
    });
  }
  bool entryFlag() {
    return changeEntry([&](PDAclFilter& f) {
      if (dice_.oneIn(2))
        f.matchTcpInitIs(!f.matchTcpInit());
      else
        f.matchTcpEstablishedIs(!f.matchTcpEstablished());
      return true;
    });
  }
  bool entryLost() {
    PDAclRule* const rule = someRule();
    if (!rule || rule->filters() == 0) return false;
    rule->filterDel(PDAclFilter(dice_.of(rule->filter().items())));
    return true;
  }
  bool entriesExchanged() {
    PDAclRule* const a = someRule();
    PDAclRule* const b = someRule();
    if (!a || a->filter() == b->filter()) return false;
    auto const entries = a->filter().items();
    a->filterIs(b->filter().items());
    b->filterIs(entries);
    return true;
  }
  bool action() {
    PDAclRule* const rule = someRule();
    if (!rule) return false;
    NaxelActionValue action = rule->action();
    action.tcIs(NaxelTrafficClass(3));
    rule->actionIs(action);
    return true;
  }
  bool ruleLost() {
    if (rules_.empty()) return false;
    auto const [acl, rule] = dice_.of(rules_);
    acl->ruleDel(rule->aceIndex());
    return true;
  }
  bool aclMoved() {
    PDAclKey const key = data_.pdAclColl()->pdAcl().begin()->first;
    data_.pdAclCollIs().pdAclDel(key);
    data_.pdAclCollIs().pdAclIs(
        {key.af() == Lumox::ipv4() ? Lumox::ipv6() : Lumox::ipv4(), key.aclName()});
    return true;
  }

 private:
  PDPrefixXformEntryColl& prefixes() {
    std::vector<PDPrefixXformEntryColl*> all;
    for (PrefixXformKey const& key : PrefixXformKey::all())
      all.push_back(&data_.pdPrefixXformEntryCollIs(key));
    return someOf(all);
  }
  PDRangeXformEntryColl& ranges() {
    std::vector<PDRangeXformEntryColl*> all;
    for (RangeSetType type : allRangeSetTypes()) all.push_back(&data_.rangeCollIs(type));
    return someOf(all);
  }
  PDComboEntryColl& combinations() {
    std::vector<PDComboEntryColl*> all;
    for (ComboLabelSetType type : allComboLabelSetTypes()) all.push_back(&data_.comboCollIs(type));
    return someOf(all);
  }
  /// One that has entries, if there is one.
  template <class Table>
  Table& someOf(std::vector<Table*> tables) {
    std::vector<Table*> filled;
    for (Table* table : tables)
      if (!table->entry().empty()) filled.push_back(table);
    return *dice_.of(filled.empty() ? tables : filled);
  }
  template <class Table>
  bool relabel(Table& table) {
    if (table.entry().empty()) return false;
    auto const e = dice_.of(table.entry().items());
    uint16_t const label = static_cast<uint16_t>(e.value().value() ^ 1);
    table.entryIs({e.key(), EncodedLabel(label)});
    return true;
  }
  template <class Table>
  bool lose(Table& table) {
    if (table.entry().empty()) return false;
    auto const key = dice_.of(table.entry().items()).key();
    table.entryDel(key);
    return true;
  }

  PDAclRule* someRule() { return rules_.empty() ? nullptr : dice_.of(rules_).second; }
  bool changeEntry(std::function<bool(PDAclFilter&)> const& change) {
    PDAclRule* const rule = someRule();
    if (!rule || rule->filters() == 0) return false;
    PDAclFilter const before = dice_.of(rule->filter().items());
    PDAclFilter after = before;
    if (!change(after)) return false;
    rule->filterDel(before);
    rule->filterIs(after);
    return true;
  }
  template <class Change>
  bool changeField(PDAclFilter& f, Change change) {
    std::vector<TcamFieldType> constrained;
    for (TcamFieldType field : allLabelFields())
      if (f.labelField(field).mask().value() != 0) constrained.push_back(field);
    if (constrained.empty()) return false;
    TcamFieldType const field = dice_.of(constrained);
    auto const& match = f.labelField(field);
    f.labelFieldIs(field, change(match.label().value(), match.mask().value()));
    return true;
  }
  static uint16_t lowBit(uint16_t mask) { return static_cast<uint16_t>(mask & -mask); }

  SeededDice& dice_;
  PDData& data_;
  std::vector<std::pair<PDAclRuleColl*, PDAclRule*>> rules_;
};

/// The entries of a rule match a packet although the rule does not, or the other way round.
bool differs(RuleConfig const& rule, PDAclRule const& entries, PDData const& data, KeyLayout layout,
             Verify::Packet const& packet) {
  bool const want = !rule.ruleFilter() || Verify::matches(*rule.ruleFilter(), packet);
  for (MissYields yields : {MissYields::nothing, MissYields::highest}) {
    layout.missYields = yields;
    auto const labels = Verify::naiveLabels(data, layout, packet);
    bool have = false;
    for (PDAclFilter const& entry : entries.filter())
      have = have || Verify::matches(entry, labels, packet);
    if (want != have) return true;
  }
  return false;
}

/// The packet gets the verdict of another rule than the one that decides.
bool differs(AclConfig const& acl, PDData const& data, KeyLayout layout,
             Verify::Packet const& packet) {
  auto const want = Verify::firstMatch(acl, packet);
  PDAclKey const key(Verify::familyOf(acl), acl.name());
  for (MissYields yields : {MissYields::nothing, MissYields::highest}) {
    layout.missYields = yields;
    auto const have = Verify::naiveLookup(data, layout, key, packet);
    if ((have.kind == Verify::Verdict::Kind::rule ? std::optional(have.rule) : std::nullopt) !=
        want)
      return true;
  }
  return false;
}

TEST(Proof, FindsWhatWasTamperedWithAndNothingElse) {
  std::map<std::string, std::pair<unsigned, unsigned>> found;  // by rule, by first match
  forSeeds(250, [&](SeededDice& dice) {
    Compiled const c(dice);
    for (auto const& [name, tamper] : Tampering::kinds()) {
      SCOPED_TRACE(name);
      auto const data = copyOf(c.world.tables());
      Tampering tampering(dice, *data);
      if (!(tampering.*tamper)()) continue;
      Proof const each = prove(*c.world.acls, *data, c.layout);
      Proof const first = prove(*c.world.acls, *data, c.layout, Claim::firstMatch);
      found[name].first += !each.difference.empty();
      found[name].second += !first.difference.empty();
      // A packet that is named makes the difference.
      if (each.packet) {
        auto const acl = c.world.acls->acl(each.acl.aclName());
        EXPECT_TRUE(differs(*acl->ruleById(*each.rule),
                            *data->pdAclColl()->pdAcl(each.acl)->rule(*each.rule), *data, c.layout,
                            *each.packet))
            << each.difference;
      }
      if (first.packet) {
        EXPECT_TRUE(
            differs(*c.world.acls->acl(first.acl.aclName()), *data, c.layout, *first.packet))
            << first.difference;
        EXPECT_NE(each.difference, "");
      }
      // What single packets show, the proof finds as well.
      if (!Verify::sampledDifference(*c.world.acls, *data, dice.below(1000), 200).empty()) {
        EXPECT_NE(first.difference, "");
      }
      if (HasFailure()) return;
    }
  });
  if (!allSeeds()) return;
  for (auto const& [name, tamper] : Tampering::kinds()) {
    EXPECT_GT(found[name].first, 20u) << name;
    EXPECT_GT(found[name].second, 20u) << name;
  }
}

TEST(Proof, SaysWhatIsMissingAndWhere) {
  World world(
      "edge 10 web  src 10.0.0.0/8,!10.1.0.0/16 proto 6 dport 80,443\n"
      "edge 20 rest src 10.0.0.0/9 drop\n");
  world.capability->rangeXformWidthIs(RangeSetType::dstPort, 4);
  ASSERT_EQ(world.kick(), NaxelProgress::naxelFinishedSuccess);
  KeyLayout const layout = KeyLayout::of(world.tables());
  Proof const whole = prove(*world.acls, world.tables(), layout);
  EXPECT_EQ(whole.difference, "");
  EXPECT_EQ(whole.acls, 1u);
  EXPECT_EQ(whole.rules, 2u);
  EXPECT_EQ(whole.entries, world.tables().pdAclColl()->numFilters());

  // The rules are changed behind the finished kick.
  struct Case {
    char const* rule;
    char const* difference;
  };
  Case const cases[] = {
      {"edge 10 web src 10.0.0.0/8,!10.1.0.0/16 proto 6 dport 80,443,8080",
       "ACL edge rule 10 'web' matches, but its entries do not: "
       "ipv4 10.0.0.0 > 0.0.0.0 proto 6 ports 0 > 8080"},
      {"edge 10 web src 10.0.0.0/8,!10.1.0.0/16,!10.1.2.3/32 proto 6 dport 80,443", ""},
      {"edge 10 web src 10.0.0.0/8,!10.1.0.0/16,!10.9.8.7/32 proto 6 dport 80,443",
       "ACL edge rule 10 'web' does not match, but its entries do: "
       "ipv4 10.9.8.7 > 0.0.0.0 proto 6 ports 0 > 80"},
      {"edge 10 web src 10.0.0.0/8,!10.1.0.0/16 proto 6 dport 80,443 init",
       "ACL edge rule 10 'web' does not match, but its entries do: "
       "ipv4 10.0.0.0 > 0.0.0.0 proto 6 ports 0 > 80"},
      {"edge 10 web src 10.0.0.0/8,!10.1.0.0/16 proto 6 dport 80,443 drop",
       "ACL edge rule 10 'web' has another action in the tables"},
      {"edge 15 other src 10.0.0.0/8", "ACL edge rule 15 'other' is not in the tables"},
      {"more 10 web", "ACL more is not in the tables"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.rule);
    World changed;
    changed.rules("edge 10 web  src 10.0.0.0/8,!10.1.0.0/16 proto 6 dport 80,443\n");
    changed.rules("edge 20 rest src 10.0.0.0/9 drop\n");
    changed.rules(c.rule);
    EXPECT_EQ(prove(*changed.acls, world.tables(), layout).difference, c.difference);
  }
}

// A shadowed rule may match what it likes without changing the verdict of any packet.
TEST(Proof, FirstMatchLeavesShadowedRulesAlone) {
  World world(
      "edge 10 all\n"
      "edge 20 web dport 80\n");
  ASSERT_EQ(world.kick(), NaxelProgress::naxelFinishedSuccess);
  KeyLayout const layout = KeyLayout::of(world.tables());
  world.rules("edge 20 web dport 81\n");
  EXPECT_NE(prove(*world.acls, world.tables(), layout).difference, "");
  EXPECT_EQ(prove(*world.acls, world.tables(), layout, Claim::firstMatch).difference, "");
}

TEST(Proof, SaysWhenItRunsOutOfNodesAndCanBeRepeated) {
  World world;
  Verify::Random random(1);
  auto const rule = world.acls->aclIs("edge")->ruleByNameIs("list");
  world.acls->acl("edge")->ruleByIdIs(AceIndex(10), rule);
  for (int i = 0; i < 5000; ++i)
    rule->ruleFilterIs()->sourceIs()->addrIs(
        Lumox::IpGenPrefix::v4(static_cast<uint32_t>(random.next()), 32));
  ASSERT_EQ(world.kick(), NaxelProgress::naxelFinishedSuccess);
  KeyLayout const layout = KeyLayout::of(world.tables());
  try {
    prove(*world.acls, world.tables(), layout, Claim::eachRule, 40000);
    FAIL();
  } catch (std::runtime_error const& e) {
    EXPECT_THAT(e.what(), testing::StartsWith("the proof needs more BDD nodes than it may have"));
  }
  EXPECT_EQ(prove(*world.acls, world.tables(), layout).difference, "");
}

TEST(Proof, VerifyPrintsIt) {
  RuleSet rules(Obel::ChipId(0));
  readJsonConfig("f", R"({"schema":"naxel-rules","version":1,"acls":[
    {"name":"a","af":"ipv4","rules":[{"index":10,"name":"web","dport":80}]}]})",
                 rules);
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
            "  labels: icmpType 0 proto 0 length 0 fragment 0 dscp 0\n");
}

}  // namespace
}  // namespace Test
