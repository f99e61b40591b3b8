/// Generic sets, key groups, counts of use, and their deduplication over kicks.

#include "naxel/genset/NaxelAggregatorSm.h"
#include "naxel/xform/NaxelComboLabelResolverSm.h"
#include "support/Handshake.h"
#include "support/Vocabulary.h"

namespace Test {
namespace {

using namespace Naxel;
using Mox::makePtr;
using Elems = std::vector<std::pair<uint16_t, uint16_t>>;

Mox::Ptr<RangeSet> rangeSet(uint64_t key, Elems const& elems,
                            RangeSetType type = RangeSetType::srcPort) {
  auto set = makePtr<RangeSet>(GenSetKey(key), type);
  for (auto const& [first, last] : elems) set->rangeIs(RangeSetElem(first, last));
  return set;
}

Mox::Ptr<ComboLabelSet> comboSet(uint64_t key, Elems const& combos,
                                 ComboLabelSetType type = ComboLabelSetType::srcDstL4Port) {
  auto set = makePtr<ComboLabelSet>(GenSetKey(key), type);
  for (auto const& [src, dst] : combos) set->comboLabelIs({PlainLabel(src), PlainLabel(dst)});
  return set;
}

template <class G = GenSetKeyGroup>
Mox::Ptr<G> group(std::vector<uint64_t> const& keys) {
  auto g = makePtr<G>();
  for (uint64_t k : keys) g->keyGroupIs(GenSetKey(k));
  return g;
}

/// The source prefixes and the ports, each set with how many rules use it.
std::string setsOf(World const& w) {
  std::string out;
  auto const status = w.root->aggregatorStatus();
  auto const add = [&](auto const& sets) {
    for (auto const& [key, set] : sets)
      out +=
          set->stringValue() + " x" + std::to_string(status->genSetUsageInfo()->refCountValue(key));
  };
  add(status->prefixInfo({Lumox::ipv4(), true})->prefixSetColl());
  for (RangeSetType type : {RangeSetType::srcPort, RangeSetType::dstPort})
    add(status->rangeSplitInfo(type)->rangeSetColl());
  return out;
}

TEST(Sets, EqualContentIsEqualWhateverItsOrderAndKey) {
  auto const list = makePtr<IpPrefixList>(), other = makePtr<IpPrefixList>();
  other->exceptAddrIs(Lumox::IpGenPrefix());
  auto const withElem = group<RangeSetKeyGroup>({2, 1});
  withElem->rangeElemIs(RangeSetElem(1, 2));
  // Each row is of one content. A record whose list has gone equals none, itself included.
  std::vector<std::vector<Mox::Ptr<Dedupable>>> const rows = {
      {rangeSet(1, {{1, 2}, {5, 9}}), rangeSet(2, {{5, 9}, {1, 2}})},
      {rangeSet(1, {}), rangeSet(2, {})},
      {rangeSet(1, {{1, 2}}, RangeSetType::dstPort)},
      {rangeSet(1, {{1, 2}})},
      {rangeSet(1, {{1, 4}, {2, 3}})},
      {rangeSet(1, {{1, 3}, {2, 4}})},
      {comboSet(1, {{1, 2}, {2, 1}}), comboSet(2, {{2, 1}, {1, 2}})},
      {comboSet(1, {{1, 2}})},
      {comboSet(1, {{2, 1}})},
      {comboSet(1, {}), comboSet(1, {})},
      {comboSet(1, {}, ComboLabelSetType::ipv4SrcDstPrefix)},
      {group({1, 2}), group({2, 1, 2}), withElem},
      {group({1, 4})},
      {group({2, 3})},
      {prefixListDedupFactory(list), prefixListDedupFactory(list->copy())},
      {prefixListDedupFactory(other)},
      {prefixListDedupFactory(nullptr)}};
  for (auto const& row : rows)
    for (auto const& a : row) {
      EXPECT_FALSE(a->isEqual(nullptr));
      for (auto const& others : rows)
        for (auto const& b : others) {
          bool const same = &row == &others && &row != &rows.back();
          EXPECT_EQ(a->isEqual(b), same) << &row - &rows[0] << " " << &others - &rows[0];
          EXPECT_TRUE(!same || (a->hash() == b->hash() && a->place() == b->place()));
        }
    }
  auto const keys = group({5, 1});
  keys->addToKeyGroup(*group({3, 5, 9}));
  keys->removeFromKeyGroup(*group({2, 3}));
  EXPECT_TRUE(keys->isEqual(group({1, 5, 9})));
}

TEST(Sets, WhatIsRememberedOfARuleFollowsEveryChange) {
  RuleConfig rule("r");
  fillFilter(rule, "src 10.0.0.0/8,!11.0.0.0/8");
  auto const filter = rule.ruleFilter();
  auto const list = filter->source();
  uint64_t const before = rule.contentHash();
  EXPECT_TRUE(filter->rangesValid() && list->families().only(Lumox::ipv4()));
  auto const copy = list->copy();
  list->addrIs(Lumox::IpGenPrefix::v6(1, 2, 128));
  filter->dscpIs(DscpRange(7, 6));
  EXPECT_NE(rule.contentHash(), before);
  EXPECT_FALSE(filter->rangesValid() || list->families().only(Lumox::ipv4()));
  EXPECT_EQ(copy->addrs(), 1u) << "copies part when one of them changes";
  list->addrDel(Lumox::IpGenPrefix::v6(1, 2, 128));
  filter->dscpDel(DscpRange(7, 6));
  EXPECT_EQ(rule.contentHash(), before);
  EXPECT_TRUE(copy->isEqual(list) && filter->rangesValid());
}

TEST(Sets, ASetStaysUnderItsFirstKeyForAsLongAsEveryRunUsesIt) {
  auto const info = makePtr<RangeSplitAggregatorInfo>(RangeSetType::srcPort);
  RangeDedupMarkAndSweeper sweeper(RangeSetType::srcPort, info, Obel::ChipId(4));
  SeededDice dice(1);
  std::map<uint16_t, uint64_t> known;  // keys by content
  for (int run = 0; run < 60; ++run) {
    sweeper.unmarkAll();
    auto const before = known;
    std::map<uint64_t, uint32_t> uses;
    for (auto const& [content, key] : known) uses[key] = 0;
    for (uint64_t i = dice.below(8); i > 0; --i) {
      auto const content = static_cast<uint16_t>(dice.below(6));
      // Keys that neither rise with the content nor as objects come.
      uint64_t const key = known.emplace(content, 1 + dice.below(1u << 30)).first->second;
      if (before.contains(content) && dice.oneIn(2)) {
        sweeper.markKey(GenSetKey(key));
      } else if (!uses.contains(key)) {
        auto const set = info->rangeSetCollIs(GenSetKey(key), RangeSetType::srcPort);
        set->rangeIs(RangeSetElem(content, 9));
        EXPECT_EQ(sweeper.addDeduped(set), GenSetKey(key));
      } else {
        EXPECT_EQ(sweeper.addDeduped(rangeSet(7, {{content, 9}})), GenSetKey(key));
      }
      ++uses[key];
    }
    std::map<uint64_t, uint32_t> counted;
    sweeper.forEachUse([&](GenSetKey key, uint32_t n) { counted[key.value()] = n; });
    EXPECT_EQ(counted, uses);
    std::erase_if(known, [&](auto const& k) { return uses[k.second] == 0; });
    sweeper.sweepUnmarked();
    EXPECT_TRUE(sweeper.dedupedHash().empty()) << "positions have changed";
    EXPECT_EQ(sweeper.deduped().size(), known.size());
    EXPECT_EQ(info->rangeSetColl().size(), known.size());
    for (auto const& [content, key] : known) EXPECT_TRUE(info->rangeSetCollHas(GenSetKey(key)));
  }
  EXPECT_DEATH(sweeper.markKey(GenSetKey(4)), "place->key == key");
}

TEST(Sets, AWalkOverTheConfigurationMayDeleteWhatItStandsOn) {
  auto const expectEmptied = [](auto coll, auto del) {
    size_t const size = coll().size();
    ASSERT_GT(size, 255u);
    size_t seen = 0;
    for (auto const& item : coll()) {
      del(item);
      ++seen;
    }
    EXPECT_EQ(seen, size);
    EXPECT_TRUE(coll().empty());
  };
  auto const global = globalAclConfigFactory();
  auto const acls = global->aclConfigCollIs(Obel::ChipId(0));
  auto const acl = acls->aclIs("0");
  auto const filter = acl->ruleByNameIs("0")->ruleFilterIs();
  auto const list = filter->sourceIs();
  for (uint32_t i = 0; i < 320; ++i) {
    global->aclConfigCollIs(Obel::ChipId(static_cast<uint8_t>(i)));
    acls->aclIs(std::to_string(i));
    acl->ruleByIdIs(AceIndex(i), acl->ruleByNameIs(std::to_string(i)));
    list->addrIs(Lumox::IpGenPrefix::v4(i, 32));
    list->exceptAddrIs(Lumox::IpGenPrefix::v4(i, 32));
    filter->sportRangeIs({i, i});
  }
  auto const shared = list->copy();  // as a kick leaves it
#define EXPECT_EMPTIED(COLL, DEL) \
  expectEmptied(                  \
      [&]() -> auto& { return COLL; }, [&](auto& item) { DEL; })
  EXPECT_EMPTIED(list->addr(), list->addrDel(item));
  EXPECT_EMPTIED(list->exceptAddr(), list->exceptAddrDel(item));
  EXPECT_EMPTIED(filter->sportRange(), filter->sportRangeDel(item));
  EXPECT_EMPTIED(acl->ruleById(), acl->ruleByIdDel(item.first));
  EXPECT_EMPTIED(acl->ruleByName(), acl->ruleByNameDel(item.first));
  EXPECT_EMPTIED(acls->acl(), acls->aclDel(item.first));
  EXPECT_EMPTIED(global->aclConfigColl(), global->aclConfigCollDel(item.first));
}

TEST(Sets, AggregatorSharesSetsAndSpendsTheKeysOfDuplicates) {
  std::string const src = "src 10.0.0.0/8,11.0.0.0/8,12.0.0.0/8,!10.1.0.0/16 ";
  World w("a 10 r sport 80 " + src);
  std::string const both =
      " Key: 1: 10.0.0.0/8, 11.0.0.0/8 and 1 more, Except: 10.1.0.0/16 x2"
      " Key: 2, type:srcPort: 80-80 x";
  std::pair<std::string, std::string> const cases[] = {
      // Key 3 goes with a duplicate.
      {"src !10.1.0.0/16,12.0.0.0/8,11.0.0.0/8,10.0.0.0/8 sport 80 dport 1-2",
       "2 Key: 4, type:dstPort: 1-2 x1"},
      {src, "1"},
      {src + "dport 1-2", "1 Key: 7, type:dstPort: 1-2 x1"}};
  for (auto const& [rule, sets] : cases) {
    w.rules("b 10 r " + rule);
    w.kick();
    EXPECT_EQ(setsOf(w), both + sets);
  }
  auto const rule = w.root->aggregatorStatus()->aclGenSetIpRuleList("a")->genSetIpRule("r");
  EXPECT_EQ(rule->sport(), GenSetKey(2));
  EXPECT_FALSE(rule->dport());
}

/// What the aggregator says of each rule, by ACL and name, with sets by content, and by index; and for each set
/// how often it is used.
struct Published {
  std::map<std::string, std::pair<std::string, Mox::Ptr<GenSetIpRule>>> rules;
  std::string all, counts;
};

Published publishedBy(World const& w) {
  Published out;
  auto const status = w.root->aggregatorStatus();
  std::map<std::string, uint32_t> counts;
  auto const add = [&](std::string& text, std::string const& kind, auto const& sets,
                       GenSetKey key) {
    if (!key) return;
    std::string content = kind;
    for (char const* part : {"prefix", "exceptPrefix", "range"})
      for (Mox::Attribute const& a : sets->get(key)->get()->attributeTable())
        if (a.name == part) content += a.text(**sets->get(key));
    text += content;
    counts[content] = status->genSetUsageInfo()->refCountValue(key);
  };
  for (auto const& [acl, list] : status->aclGenSetIpRuleList()) {
    std::string const family = Mox::stringValue(list->af());
    out.all += acl + family;
    for (auto const& rule : list->genSetIpRule()) {
      std::string text = family + Mox::valueToStrep(rule->action());
      for (bool src : {true, false})
        add(text, src ? " src " : " dst ", &status->prefixInfo({list->af(), src})->prefixSetColl(),
            src ? rule->source() : rule->destination());
      for (RangeSetType type : allRangeSetTypes())
        add(text, " " + Mox::stringValue(type), &status->rangeSplitInfo(type)->rangeSetColl(),
            rule->range(type));
      out.rules[acl + " " + rule->name()] = {text, rule};
      EXPECT_EQ(list->genSetIpRule(rule->name()), rule);
    }
    for (auto const& [index, rule] : list->genSetIpRuleById()) {
      out.all += " " + Mox::valueToStrep(index) + rule->name();
      EXPECT_EQ(list->genSetIpRule(rule->name()), rule);
    }
  }
  for (auto const& [name, rule] : out.rules) out.all += "\n" + name + rule.first;
  for (ComboLabelSetType type : allComboLabelSetTypes())
    out.all += w.capability->comboEnabled(type) ? "+" : "-";
  for (auto const& [set, count] : counts) out.counts += set + " x" + std::to_string(count) + "\n";
  return out;
}

/// Writes something into a configuration of few rules over few sets.
void writeSomething(World& w, SeededDice& dice, Chip& chip) {
  static char const* const filters[] = {"src 10.0.0.0/8",
                                        "src 10.0.0.0/8 dst 11.0.0.0/8,!11.1.0.0/16 dport 80",
                                        "dst 12.0.0.0/8 dport 80 proto 6",
                                        "sport 1-9 dport 80 drop",
                                        "src 12.0.0.0/8 sport 1-9,20 init",
                                        ""};
  std::string const name(1, static_cast<char>('a' + dice.below(2)));
  auto const acl = w.acls->acl(name);
  AceIndex const index(dice.below(9));
  std::string const one(1, static_cast<char>('p' + dice.below(7)));
  std::string const text = name + " " + Mox::valueToStrep(index) + " " + one + " ";
  auto const rule = acl ? acl->ruleByName(one) : nullptr;
  uint64_t const what = dice.below(12);
  if (!rule || what < 3) return w.rules(text + filters[dice.below(std::size(filters))]);
  auto const other = acl->ruleByName(std::string(1, static_cast<char>('p' + dice.below(7))));
  auto const filter = rule->ruleFilterIs();
  NaxelActionValue action;
  switch (what) {
    case 3: return acl->ruleByNameDel(one);
    case 4: return acl->ruleByNameDel(one), w.rules(text + filters[dice.below(2)]);
    case 5: return acl->ruleByIdDel(index);
    case 6: return acl->ruleByIdIs(index, rule);
    case 7: return action.logEnabledIs(dice.oneIn(2)), rule->actionIs(action);
    case 8: return filter->rangeIs(RangeSetType::dscp, 1, 1);
    case 9:
      if (other && other->ruleFilter()) filter->destinationIs(other->ruleFilter()->source());
      return;
    case 10:
      if (filter->source())
        filter->source()->addrIs(Lumox::IpGenPrefix::v4(dice.below(2) << 24, 8));
      return;
    default:
      if (dice.oneIn(4)) return w.acls->aclDel(name);
      setWidths(w, chip = allChips[1 + dice.below(2)]);
  }
}

TEST(Sets, ARunCompilesWhatSaysSomethingElseAndKeepsAllOther) {
  for (uint64_t seed = 1; seed <= 12; ++seed) {
    SeededDice dice(seed);
    World w;
    Chip chip = Chip::combos;
    setWidths(w, chip);
    Published before;
    for (int kick = 0; kick < 30; ++kick) {
      SCOPED_TRACE(testing::Message() << seed << " " << kick);
      for (uint64_t i = dice.below(4); i > 0; --i) writeSomething(w, dice, chip);
      ASSERT_EQ(w.kick(), NaxelProgress::naxelFinishedSuccess) << w.failureText();
      World fresh;
      copyAcls(*w.acls, *fresh.acls);
      setWidths(fresh, chip);
      fresh.kick();
      Published const now = publishedBy(w), anew = publishedBy(fresh);
      ASSERT_EQ(now.all, anew.all);
      EXPECT_EQ(now.counts, anew.counts);
      EXPECT_EQ(w.root->aggregatorStatus()->status() == StageStatusType::finishedSkipped,
                kick > 0 && now.all == before.all);
      for (auto const& [name, rule] : now.rules) {
        auto const known = before.rules.find(name);
        if (known == before.rules.end()) continue;
        EXPECT_EQ(rule.first == known->second.first, rule.second == known->second.second) << name;
      }
      before = now;
    }
  }
}

TEST(SetsDeathTest, MisuseEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "fast");
  World w("a 10 r proto 6\nb 10 r proto 6");
  w.rule("b", "r")->ruleFilterIs()->destinationIs();
  EXPECT_DEATH(w.kick(), "destination->exceptAddrs\\(\\).*ACL 'b', rule 'r': the destination list");
  w.rule("a", "r")->ruleFilterIs()->sourceIs();
  EXPECT_DEATH(w.kick(), "source->exceptAddrs\\(\\).*ACL 'a', rule 'r': the source list");
}

}  // namespace
}  // namespace Test
