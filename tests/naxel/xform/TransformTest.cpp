/// The transforms: how overlapping sets are cut into disjoint pieces, on written examples.

#include "mox/Trace.h"
#include "naxel/types/NaxelTrace.h"
#include "naxel/xform/NaxelComboLabelSplitSm.h"
#include "naxel/xform/NaxelPrefixXformSm.h"
#include "naxel/xform/NaxelRangeSplitSm.h"
#include "naxel/xform/PieceGroups.h"
#include "support/Vocabulary.h"
#include "support/World.h"

#include <algorithm>
#include <bit>
#include <map>
#include <set>

#include <gtest/gtest.h>

using namespace Naxel;
using Lumox::IpGenPrefix;
using Test::World;

namespace {

/// A chip that labels every field in full width, without combinations.
void labelEverything(World& w) {
  for (RangeSetType t : allRangeSetTypes()) w.capability->rangeXformWidthIs(t, 16);
}

Mox::Ptr<GenSetIpRule> setRule(World const& w, std::string const& name) {
  return w.root->aggregatorStatus()->aclGenSetIpRuleList("a")->genSetIpRule(name);
}

auto const sourceOf = [](GenSetIpRule const& r) { return r.source(); };
auto const sportOf = [](GenSetIpRule const& r) { return r.sport(); };

/// " A:1,2 B:2" for the label lists of the rules' sets.
template <class KeyOf>
std::string lists(World const& w, XformStatus const& status, KeyOf keyOf) {
  std::map<std::string, std::string> out;
  for (auto const& rule : w.root->aggregatorStatus()->aclGenSetIpRuleList("a")->genSetIpRule()) {
    auto const* list = status.plainLabelListMap()->plainLabelList(keyOf(*rule));
    for (size_t i = 0; list && i < list->label().size(); ++i)
      out[rule->name()] += (i ? "," : "") + Mox::valueToStrep(list->label()[i]);
    out[rule->name()] += "";
  }
  std::string text;
  for (auto const& [name, list] : out) text += " " + name + ":" + list;
  return text;
}

struct Cut {
  char const* rules;
  char const* wanted;
};

std::string prefixPieces(World const& w, PrefixXformKey const& key) {
  auto const status = w.root->prefixXformStatus(key);
  std::string out;
  for (auto const& [p, label] : status->prefixToLabelMap())
    out += Mox::valueToStrep(p) + "=" + Mox::valueToStrep(label) + " ";
  return out + "|" + lists(w, *status, sourceOf);
}

std::string rangePieces(World const& w, RangeSetType type = RangeSetType::srcPort) {
  auto const status = w.root->rangeSplitStatus(type);
  std::string out;
  for (auto const& [e, label] : status->rangeToPlainLabelMap())
    out += std::to_string(e.first()) + "-" + std::to_string(e.last()) + "=" +
           Mox::valueToStrep(label) + " ";
  return out + "|" + lists(w, *status, sportOf);
}

/// Lines traced at level 0 while it lives.
class Failures {
 public:
  Failures() {
    old_ = Mox::traceSinkIs([this](auto const&, int, std::string const& t) { text += t + "\n"; });
  }
  ~Failures() { Mox::traceSinkIs(old_); }
  std::string text;

 private:
  Mox::TraceSink old_;
};

}  // namespace

TEST(Transform, PrefixesAreCutAlongTheirTree) {
  Cut const cases[] = {
      {"a 1 A src 10.0.0.0/8", "10.0.0.0/8=1 | A:1"},
      {"a 1 A src 10.0.0.0/8\na 2 B src 10.1.0.0/16", "10.0.0.0/8=1 10.1.0.0/16=2 | A:1,2 B:2"},
      {"a 1 A src 10.0.0.0/8,!10.1.0.0/16", "10.0.0.0/8=1 10.1.0.0/16=2 | A:1"},
      {"a 1 A src 10.0.0.0/8,!10.1.0.0/16\na 2 B src 10.1.2.0/24",
       "10.0.0.0/8=1 10.1.0.0/16=2 10.1.2.0/24=3 | A:1 B:3"},
      {"a 1 A src 10.0.0.0/8,!10.1.0.0/16\na 2 B src 10.1.0.0/16",
       "10.0.0.0/8=1 10.1.0.0/16=2 | A:1 B:2"},
      {"a 1 A src 10.0.0.0/8\na 2 B src 10.0.0.0/8,!11.0.0.0/8",
       "10.0.0.0/8=1 11.0.0.0/8=2 | A:1 B:1"},
      {"a 1 A src 10.0.0.0/8\na 2 B src 12.0.0.0/8,10.0.0.0/8",
       "10.0.0.0/8=1 12.0.0.0/8=2 | A:1 B:1,2"},
      // Its own except prefix beats a prefix of the list at it, below it and above it.
      {"a 1 A src 10.0.0.0/8,10.1.2.0/24,!10.1.0.0/16",
       "10.0.0.0/8=1 10.1.0.0/16=2 10.1.2.0/24=2 | A:1"},
      {"a 1 A src 10.0.0.0/8,10.1.0.0/16,!10.1.0.0/16", "10.0.0.0/8=1 10.1.0.0/16=2 | A:1"},
      {"a 1 A src 10.1.0.0/16,!10.0.0.0/8", "10.0.0.0/8=1 10.1.0.0/16=1 | A:"},
      {"a 1 A src !10.0.0.0/8", "10.0.0.0/8=1 | A:"},
      // An except prefix within an except prefix of another set.
      {"a 1 A src 10.0.0.0/8,!10.1.0.0/16\na 2 B src 10.0.0.0/8,!10.1.2.0/24",
       "10.0.0.0/8=1 10.1.0.0/16=2 10.1.2.0/24=3 | A:1 B:1,2"},
      {"a 1 A src 10.1.2.3/8\na 2 B src 10.9.9.9/8,!10.9.9.9/16",
       "10.0.0.0/8=1 10.9.0.0/16=2 | A:1,2 B:1"},
      {"a 1 A src 0.0.0.0/0\na 2 B src 0.0.0.0/0,!255.255.255.255/32",
       "0.0.0.0/0=1 255.255.255.255/32=2 | A:1,2 B:1"}};
  for (auto const& [rules, wanted] : cases) {
    SCOPED_TRACE(rules);
    World w(rules);
    EXPECT_EQ(w.kick(), NaxelProgress::naxelFinishedSuccess);
    EXPECT_EQ(prefixPieces(w, {Lumox::ipv4(), true}), wanted);
  }
  World v6(
      "a 1 A src ::/0,!2001:db8::/32\n"
      "a 2 B src 2001:db8::1/128\n");
  v6.kick();
  EXPECT_EQ(prefixPieces(v6, {Lumox::ipv6(), true}),
            "::/0=1 2001:db8::/32=2 2001:db8::1/128=3 | A:1 B:3");
  EXPECT_TRUE(v6.root->prefixXformStatus({Lumox::ipv4(), true})->prefixToLabelMap().empty());
  auto const sm = v6.root->prefixXformSm({Lumox::ipv6(), true});
  EXPECT_FALSE(sm->prefixToGenSetGrp(Mox::valueFromText<IpGenPrefix>("2001::/16")));
  auto const trie = sm->trie();
  EXPECT_EQ(sm->trieIs(trie->name(), Lumox::ipv6()), trie);
  EXPECT_EQ(sm->trieIs("other", Lumox::ipv6())->size(), 0u);
  EXPECT_EQ(sm->trieIs("other", Lumox::ipv4())->af(), Lumox::ipv4());
}

TEST(Transform, RangesAreCutAtTheirEnds) {
  Cut const cases[] = {
      {"a 1 A sport 1-10\na 2 B sport 5-20", "1-4=1 5-10=2 11-20=3 | A:1,2 B:2,3"},
      {"a 1 A sport 1-10\na 2 B sport 11-20", "1-10=1 11-20=2 | A:1 B:2"},
      {"a 1 A sport 1-10\na 2 B sport 10-20", "1-9=1 10-10=2 11-20=3 | A:1,2 B:2,3"},
      {"a 1 A sport 80", "80-80=1 | A:1"},
      {"a 1 A sport 0-65535", "0-65535=1 | A:1"},
      {"a 1 A sport 0-65535\na 2 B sport 65535\na 3 C sport 0",
       "0-0=1 1-65534=2 65535-65535=3 | A:1,2,3 B:3 C:1"},
      {"a 1 A sport 1-10,20-30", "1-10=1 20-30=1 | A:1"},
      {"a 1 A sport 1-10,5-20", "1-20=1 | A:1"},
      {"a 1 A sport 1-10,10-20", "1-20=1 | A:1"},
      {"a 1 A sport 1-10,1-20", "1-20=1 | A:1"},
      {"a 1 A sport 1-20,5-10,12-20", "1-20=1 | A:1"},
      {"a 1 A sport 1-10,11-20", "1-10=1 11-20=1 | A:1"},
      {"a 1 A sport 1-10,11-20\na 2 B sport 10-11", "1-9=1 10-10=2 11-11=2 12-20=1 | A:1,2 B:2"}};
  for (auto const& [rules, wanted] : cases) {
    SCOPED_TRACE(rules);
    World w;
    labelEverything(w);
    w.rules(rules);
    EXPECT_EQ(w.kick(), NaxelProgress::naxelFinishedSuccess);
    EXPECT_EQ(rangePieces(w), wanted);
  }
  World w("a 1 A sport 5-9");
  labelEverything(w);
  w.kick();
  auto const split = w.root->rangeSplitSm(RangeSetType::srcPort);
  EXPECT_EQ(split->rangePointInfoIs(5).start().size(), 1u);
  EXPECT_TRUE(split->rangePointInfoIs(7).start().empty());
  split->rangePointInfoDel(9);
  split->rangePointInfoDel(6);
  EXPECT_FALSE(split->rangePointInfoHas(9));
  EXPECT_FALSE(split->rangePointInfoHas(6));
  ASSERT_EQ(split->rangePointInfo().size(), 2u);
  EXPECT_EQ(split->rangePointInfo()[1].point(), 7u);
}

TEST(Transform, AChangedGroupHasTheKeysOfTheChange) {
  ::Test::SeededDice dice(1);
  for (uint64_t common : {0, 3, 64, 65, 200}) {
    PieceGroups groups;
    std::set<GenSetKey> keys;
    std::map<std::set<GenSetKey>, GenSetKeyGroup const*> known;
    for (uint64_t i = 0; i < common; ++i) keys.insert(GenSetKey(10 * i));
    PieceGroup group = groups.changed({}, {keys.begin(), keys.end()}, {});
    // Few keys come and go, so that most changes recur.
    for (int step = 0; step < 300; ++step) {
      PieceGroups::Keys more;
      PieceGroups::Keys less;
      for (uint64_t i = 0; i < 5; ++i) {
        GenSetKey const key(i < 3 ? 10 * i + 5 : 10 * i);
        if (dice.between(0, 3) > 0) continue;
        (keys.contains(key) ? less : more).push_back(key);
      }
      std::ranges::sort(more);
      std::ranges::sort(less);
      for (GenSetKey key : more) keys.insert(key);
      for (GenSetKey key : less) keys.erase(key);
      group = groups.changed(group, more, less);
      ASSERT_TRUE(std::ranges::equal(group.group->keyGroup(), keys)) << common;
      ASSERT_EQ(known.try_emplace(keys, group.group.get()).first->second, group.group.get());
    }
    EXPECT_GT(known.size(), 20u);
  }
}

TEST(Transform, TheReasonOfARefusalSaysHowMuchIsNeeded) {
  Failures const quiet;
  ::Test::SeededDice dice(1);
  ::Test::Vocabulary words(dice);
  PrefixXformKey const key(Lumox::ipv4(), true);
  auto const ports = RangeSetType::srcPort;
  auto const pairs = ComboLabelSetType::ipv4SrcDstPrefix;
  int refused = 0;
  for (int round = 0; round < 60; ++round) {
    World w;
    for (uint64_t i = 0, rules = dice.between(2, 20); i < rules; ++i)
      w.rules("a " + std::to_string(i) + " r" + std::to_string(i) + " src " +
              words.list(Lumox::ipv4()) + " dst " + words.list(Lumox::ipv4()) + " sport " +
              words.ranges(65535));
    auto const expectRefusal = [&](size_t needed, char const* what) {
      EXPECT_EQ(w.kick(), NaxelProgress::naxelFinishedFail);
      std::string const number = ": " + std::to_string(needed) + what;
      EXPECT_NE(w.failureText().find(number), std::string::npos) << number << w.failureText();
      ++refused;
    };
    // The wide chip first, which tells the numbers; then the widest one that is too narrow, and limits.
    auto const expectNumbers = [&](auto widthIs, auto labels, XformSmBase& sm) {
      widthIs(16);
      ASSERT_EQ(w.kick(), NaxelProgress::naxelFinishedSuccess) << w.failureText();
      std::set<PlainLabel> pieces;
      for (auto const& [item, label] : labels()) pieces.insert(label);
      if (pieces.size() < 2) return;
      size_t memberships = 0;
      for (auto const& [set, list] : sm.xformStatus()->plainLabelListMap()->plainLabelList())
        memberships += list->label().size();
      sm.membershipLimitIs(memberships - 1);
      expectRefusal(memberships, " labels needed");
      sm.membershipLimitIs(memberships);
      EXPECT_EQ(w.kick(), NaxelProgress::naxelFinishedSuccess) << w.failureText();
      widthIs(static_cast<uint32_t>(std::bit_width(pieces.size())) - 1);
      expectRefusal(pieces.size(), " disjoint pieces needed");
      widthIs(16);
    };
    expectNumbers([&](uint32_t n) { w.capability->prefixXformWidthIs(key, n); },
                  [&] { return w.root->prefixXformStatus(key)->prefixToLabelMap(); },
                  *w.root->prefixXformSm(key));
    expectNumbers([&](uint32_t n) { w.capability->rangeXformWidthIs(ports, n); },
                  [&] { return w.root->rangeSplitStatus(ports)->rangeToPlainLabelMap(); },
                  *w.root->rangeSplitSm(ports));
    expectNumbers([&](uint32_t n) { w.capability->comboXformWidthIs(pairs, n); },
                  [&] { return w.root->comboLabelSplitStatus(pairs)->comboToPlainLabelMap(); },
                  *w.root->comboLabelSplitSm(pairs));
  }
  EXPECT_GT(refused, 300);
}

TEST(Transform, EqualProductsAndRepeatedPairsShareOneCombination) {
  World w;
  labelEverything(w);
  auto const type = ComboLabelSetType::srcDstL4Port;
  w.capability->comboXformWidthIs(type, 8);
  w.rules(
      "a 1 A sport 1-10,5-20 dport 5\n"
      "a 2 B sport 1-20 dport 5\n"
      "a 3 C sport 1-20 dport 5\n"
      "a 4 D sport 1-20\n"
      "b 1 A sport 1-20 dport 6\n");
  w.kick();
  auto const status = w.root->comboLabelResolverStatus(type);
  auto const info = status->comboLabelInfo();
  auto const comboOf = [&](char const* name) {
    return info->srcDstToComboMap(setRule(w, name)->comboPair(type));
  };
  EXPECT_TRUE(comboOf("A"));
  EXPECT_EQ(comboOf("A"), comboOf("B"));
  EXPECT_FALSE(comboOf("D"));
  EXPECT_EQ(status->genSetUsageInfo()->refCountValue(comboOf("A")), 3u);
  EXPECT_EQ(info->comboLabelSetColl().size(), 2u);
  auto const split = w.root->comboLabelSplitSm(type);
  for (auto const& [combo, label] : split->comboLabelStatus().comboToPlainLabelMap())
    EXPECT_TRUE(split->comboLabelToGenSetGrpMap(combo));
  EXPECT_FALSE(split->comboLabelToGenSetGrpMap(GenCombo(PlainLabel(99), PlainLabel(1))));
  GenSetKey const kept = comboOf("A");
  w.rules("b 1 A sport 1-20\n");
  w.kick();
  EXPECT_EQ(comboOf("A"), kept);
  EXPECT_EQ(info->comboLabelSetColl().size(), 1u);
  w.capability->comboXformWidthIs(type, 0);
  w.kick();
  EXPECT_EQ(status->status(), StageStatusType::finishedNotEnabled);
  EXPECT_FALSE(comboOf("A"));
  EXPECT_TRUE(info->comboLabelSetColl().empty());
}

TEST(Transform, AWidthHoldsAllButOneOfItsValuesAndThenFailsEveryTime) {
  struct Case {
    char const* machine;
    char const* field;
    char const* value[8];
    StageStatus const& (*statusOf)(World const&);
    void (*widthIs)(World&, uint8_t);
  };
  PrefixXformKey static const v4(Lumox::ipv4(), true);
  Case const cases[] = {
      {"PrefixXformSm(ipv4, src)",
       "src",
       {"10.0.0.0/8", "11.0.0.0/8", "12.0.0.0/8", "13.0.0.0/8", "14.0.0.0/8", "15.0.0.0/8",
        "16.0.0.0/8", "17.0.0.0/8"},
       [](World const& w) -> StageStatus const& { return *w.root->prefixXformStatus(v4); },
       [](World& w, uint8_t n) { w.capability->prefixXformWidthIs(v4, n); }},
      {"RangeSplitSm(dscp)",
       "dscp",
       {"1", "2", "3", "4", "5", "6", "7", "8"},
       [](World const& w) -> StageStatus const& {
         return *w.root->rangeSplitStatus(RangeSetType::dscp);
       },
       [](World& w, uint8_t n) { w.capability->rangeXformWidthIs(RangeSetType::dscp, n); }}};
  for (Case const& c : cases)
    for (uint8_t width = 1; width <= 3; ++width) {
      SCOPED_TRACE(std::string(c.machine) + " " + std::to_string(width));
      Failures failures;
      World w;
      c.widthIs(w, width);
      size_t const limit = (size_t{1} << width) - 1;
      auto const rule = [&](size_t i) {
        return "a " + std::to_string(i) + " r" + std::to_string(i) + " " + c.field + " " +
               c.value[i] + "\n";
      };
      for (size_t i = 0; i < limit; ++i) w.rules(rule(i));
      EXPECT_EQ(w.kick(), NaxelProgress::naxelFinishedSuccess);
      EXPECT_EQ(failures.text, "");
      w.kick();
      EXPECT_EQ(c.statusOf(w).status(), StageStatusType::finishedSkipped);
      w.rules(rule(limit));
      for (int again = 0; again < 3; ++again) {
        failures.text.clear();
        EXPECT_EQ(w.kick(), NaxelProgress::naxelFinishedFail);
        bool const first = again == 0;
        EXPECT_EQ(c.statusOf(w).status(),
                  first ? StageStatusType::finishedFailed : StageStatusType::finishedSkipped);
        EXPECT_EQ(failures.text.find(std::string(c.machine) +
                                     "::doStartKick: Generated too many disjoint sets : " +
                                     std::to_string(limit) + "\n") != std::string::npos,
                  first)
            << failures.text;
        EXPECT_NE(w.failureText().find(std::to_string(limit + 1)), std::string::npos)
            << w.failureText();
        EXPECT_TRUE(dynamic_cast<XformStatus const&>(c.statusOf(w)).outputUnusable());
      }
      c.widthIs(w, static_cast<uint8_t>(width + 1));
      EXPECT_EQ(w.kick(), NaxelProgress::naxelFinishedSuccess) << w.failureText();
      c.widthIs(w, width);
      EXPECT_EQ(w.kick(), NaxelProgress::naxelFinishedFail);
      w.acls->acl("a")->ruleByNameDel("r0");
      EXPECT_EQ(w.kick(), NaxelProgress::naxelFinishedSuccess) << w.failureText();
    }
}
