/// Generic sets, key groups, counts of use, and their deduplication over kicks.

#include "naxel/genset/NaxelAggregatorSm.h"
#include "naxel/xform/NaxelComboLabelResolverSm.h"
#include "support/Handshake.h"

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

std::string keysOf(GenSetKeyGroup const& g) {
  std::string out;
  for (GenSetKey k : g.keyGroup()) out += (out.empty() ? "" : " ") + Mox::valueToStrep(k);
  return out;
}
/// Equal both ways with equal hashes, or unequal both ways.
void expectSame(Mox::Ptr<Dedupable> const& a, Mox::Ptr<Dedupable> const& b, bool same) {
  EXPECT_EQ(a->isEqual(b), same);
  EXPECT_EQ(b->isEqual(a), same);
  EXPECT_EQ(a->hash() == b->hash(), same);
  EXPECT_FALSE(a->isEqual(nullptr));
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
  expectSame(rangeSet(1, {{1, 2}, {5, 9}}), rangeSet(2, {{5, 9}, {1, 2}}), true);
  expectSame(rangeSet(1, {}), rangeSet(2, {}), true);
  expectSame(rangeSet(1, {{1, 2}}), rangeSet(1, {{1, 2}}, RangeSetType::dstPort), false);
  expectSame(rangeSet(1, {{1, 2}}), rangeSet(1, {{1, 2}, {3, 3}}), false);
  expectSame(rangeSet(1, {{1, 4}, {2, 3}}), rangeSet(1, {{1, 3}, {2, 4}}), false);
  expectSame(comboSet(1, {{1, 2}, {2, 1}}), comboSet(2, {{2, 1}, {1, 2}}), true);
  expectSame(comboSet(1, {{1, 2}}), comboSet(1, {{2, 1}}), false);
  expectSame(comboSet(1, {}), comboSet(1, {}, ComboLabelSetType::ipv4SrcDstPrefix), false);
  expectSame(group({1, 2}), group({2, 1, 2}), true);
  expectSame(group({1, 2}), group({1, 2, 3}), false);
  expectSame(group({1, 4}), group({2, 3}), false);
  EXPECT_FALSE(rangeSet(1, {})->isEqual(comboSet(1, {})));
  EXPECT_FALSE(group({})->isEqual(rangeSet(1, {})));
  // A record whose list has gone equals none, itself included.
  auto const list = makePtr<IpPrefixList>();
  auto const record = prefixListDedupFactory(list);
  auto const gone = prefixListDedupFactory(nullptr);
  expectSame(record, prefixListDedupFactory(list->copy()), true);
  EXPECT_FALSE(record->isEqual(gone) || gone->isEqual(record) || gone->isEqual(gone));
  EXPECT_FALSE(record->isEqual(group({})) || record->isEqual(nullptr));
  EXPECT_EQ(gone->hash() + gone->place(), 0u);
  EXPECT_FALSE(list->isEqual(Mox::Ptr<Dedupable const>(group({}))));

  auto const a = group<RangeSetKeyGroup>({1, 2});
  auto const b = group<RangeSetKeyGroup>({2, 1});
  a->rangeElemIs(RangeSetElem(1, 2));
  expectSame(a, b, true);
  expectSame(a, group({1, 2}), true);
}

TEST(Sets, StringValueShowsTwoMembersAndCountsTheRest) {
  PrefixSet set{GenSetKey(7)};
  EXPECT_EQ(set.stringValue(), " Key: 7");
  set.exceptPrefixIs(Mox::valueFromText<Lumox::IpGenPrefix>("10.1.0.0/16"));
  EXPECT_EQ(set.stringValue(), " Key: 7, Except: 10.1.0.0/16");
  for (uint32_t i : {10, 11, 12, 13, 14}) set.prefixIs(Lumox::IpGenPrefix::v4(i << 24, 8));
  EXPECT_EQ(set.stringValue(), " Key: 7: 10.0.0.0/8, 11.0.0.0/8 and 3 more, Except: 10.1.0.0/16");
  EXPECT_EQ(rangeSet(2, {{1, 1}, {3, 4}})->stringValue(), " Key: 2, type:srcPort: 1-1, 3-4");
  EXPECT_EQ(comboSet(3, {{1, 2}, {3, 4}, {5, 6}})->stringValue(),
            " Key: 3, type:srcDstL4Port: <1, 2>, <3, 4> and 1 more");
}

TEST(Sets, KeyGroupOperationsAreThoseOfSets) {
  auto const g = group({5, 1});
  g->addToKeyGroup(*group({3, 5, 9}));
  EXPECT_EQ(keysOf(*g), "1 3 5 9");
  g->removeFromKeyGroup(*group({2, 3, 9}));
  EXPECT_EQ(keysOf(*g), "1 5");
  g->addToKeyGroup(*g);
  EXPECT_EQ(keysOf(*g), "1 5");
  g->removeFromKeyGroup(*g);
  EXPECT_EQ(g->keyGroups(), 0u);
}

TEST(Sets, RememberedHashesFollowEveryChange) {
  RuleConfig rule("r");
  auto const filter = rule.ruleFilterIs();
  auto const list = Mox::makePtr<IpPrefixList>();
  std::set<uint64_t> seen = {rule.contentHash()};
  RuleStamps last = rule.stamps();
  auto const expectNew = [&](auto const& what) {
    EXPECT_TRUE(seen.insert(rule.contentHash()).second) << what;
    EXPECT_NE(std::exchange(last, rule.stamps()), rule.stamps()) << what;
    EXPECT_EQ(last, rule.stamps());
  };
  NaxelActionValue drop;
  drop.dropEnabledIs(true);
  rule.actionIs(drop), expectNew("action");
  for (RangeSetType type : allRangeSetTypes()) filter->rangeIs(type, 6, 6), expectNew(type);
  filter->matchTcpInitIs(true), expectNew("init");
  filter->matchTcpEstablishedIs(true), expectNew("established");
  filter->sourceIs(list), expectNew("an empty list");
  list->addrIs(Lumox::IpGenPrefix::v4(10u << 24, 8)), expectNew("a prefix");
  list->exceptAddrIs(Lumox::IpGenPrefix::v4(11u << 24, 8)), expectNew("an except prefix");
  EXPECT_TRUE(filter->rangesValid() && list->families().only(Lumox::ipv4()));

  uint64_t const before = rule.contentHash();
  auto const copy = list->copy();
  list->addrIs(Lumox::IpGenPrefix::v6(1, 2, 128));
  filter->dscpIs(DscpRange(7, 6));
  expectNew("a prefix behind a copy");
  EXPECT_FALSE(filter->rangesValid() || list->families().only(Lumox::ipv4()));
  EXPECT_EQ(copy->addrs(), 1u) << "copies part when one of them changes";
  list->addrDel(Lumox::IpGenPrefix::v6(1, 2, 128));
  filter->dscpDel(DscpRange(7, 6));
  EXPECT_EQ(rule.contentHash(), before);
  EXPECT_TRUE(copy->isEqual(list) && filter->rangesValid());
}

TEST(Sets, SweepingDeletesWhatNothingMarkedAndEmptiesTheIndex) {
  auto const info = makePtr<RangeSplitAggregatorInfo>(RangeSetType::srcPort);
  RangeDedupMarkAndSweeper sweeper(RangeSetType::srcPort, info, Obel::ChipId(4));
  for (uint64_t key : {1, 2}) {
    auto const set = info->rangeSetCollIs(GenSetKey(key), RangeSetType::srcPort);
    set->rangeIs(RangeSetElem(static_cast<uint16_t>(key), 9));
    EXPECT_EQ(sweeper.addDeduped(set), GenSetKey(key));
  }
  EXPECT_EQ(sweeper.addDeduped(rangeSet(3, {{2, 9}})), GenSetKey(2)) << "the set that was first";
  Traced const trace(6);
  sweeper.sweepUnmarked();
  EXPECT_EQ(info->rangeSetColl().size(), 2u);
  EXPECT_TRUE(sweeper.dedupedHash().empty());
  sweeper.unmarkAll();
  EXPECT_EQ(sweeper.addDeduped(rangeSet(4, {{1, 9}})), GenSetKey(1)) << "found again after a sweep";
  EXPECT_EQ(trace.lines.size(), 0u);
  for (int i = 0; i < 2; ++i) sweeper.sweepUnmarked();
  EXPECT_EQ(trace.lines, Log{"RangeDeduper(type=srcPort, chipId:4): Cleaning up key:2"});
  EXPECT_EQ(info->rangeSetColl().size(), 1u);
  EXPECT_EQ(sweeper.deduped().size(), 1u);
}

TEST(Sets, ARecordIsMarkedBeforeItHasASet) {
  PrefixXformKey const key(Lumox::ipv4(), true);
  auto const info = makePtr<PrefixAggregatorInfo>(key);
  PrefixDedupMarkAndSweeper sweeper(key, info, Obel::ChipId(4));
  auto const recordOf = [](uint32_t address) {
    auto const list = ipPrefixListFactory();
    list->addrIs(Lumox::IpGenPrefix::v4(address, 32));
    return prefixListDedupFactory(list);
  };
  auto const record = recordOf(1);
  sweeper.addObj(recordOf(2));
  EXPECT_TRUE(sweeper.deduped().empty());
  EXPECT_EQ(sweeper.addDeduped(record), GenSetKey());
  record->prefixSetIs(info->prefixSetCollIs(GenSetKey(7)));
  for (bool used : {true, true, false}) {
    EXPECT_EQ(sweeper.deduped().size(), 1u);
    sweeper.sweepUnmarked();
    EXPECT_TRUE(info->prefixSetCollHas(GenSetKey(7)));
    sweeper.unmarkAll();
    GenSetKey const marked = used ? sweeper.addDeduped(recordOf(1)) : GenSetKey(7);
    EXPECT_EQ(marked, GenSetKey(7));
  }
  sweeper.sweepUnmarked();
  EXPECT_FALSE(info->prefixSetCollHas(GenSetKey(7)) || !sweeper.deduped().empty());
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

TEST(Sets, ObjectsAreMarkedByKeyInWhateverOrderTheyCame) {
  auto const info = makePtr<RangeSplitAggregatorInfo>(RangeSetType::srcPort);
  RangeDedupMarkAndSweeper sweeper(RangeSetType::srcPort, info, Obel::ChipId(4));
  for (uint16_t key : {7, 3, 900, 5}) sweeper.addDeduped(rangeSet(key, {{key, key}}));
  sweeper.sweepUnmarked();
  sweeper.unmarkAll();
  for (uint64_t key : {900, 3, 900, 7}) sweeper.markKey(GenSetKey(key));
  std::map<uint64_t, uint32_t> uses;
  sweeper.forEachUse([&](GenSetKey key, uint32_t n) { uses[key.value()] = n; });
  EXPECT_EQ(uses, (std::map<uint64_t, uint32_t>{{3, 1}, {5, 0}, {7, 1}, {900, 2}}));
  EXPECT_DEATH(sweeper.markKey(GenSetKey(4)), "place != none");
}

TEST(Sets, AggregatorSharesSetsAndSpendsTheKeysOfDuplicates) {
  World w("a 10 r src 10.0.0.0/8,11.0.0.0/8 sport 80");
  std::string const prefixes = " Key: 1: 10.0.0.0/8, 11.0.0.0/8 x2";
  std::string const source = " Key: 2, type:srcPort: 80-80 x";
  for (auto const& [rules, sets] :
       {std::pair(
            "b 10 r src 11.0.0.0/8,10.0.0.0/8 sport 80 dport 1-2",  // key 3 goes with a duplicate
            prefixes + source + "2 Key: 4, type:dstPort: 1-2 x1"),
        std::pair("b 10 r src 10.0.0.0/8,11.0.0.0/8", prefixes + source + "1"),
        std::pair("b 10 r src 10.0.0.0/8,11.0.0.0/8 dport 1-2",
                  prefixes + source + "1 Key: 7, type:dstPort: 1-2 x1")}) {
    w.rules(rules);
    w.kick();
    EXPECT_EQ(setsOf(w), sets);
  }
  auto const rule = w.root->aggregatorStatus()->aclGenSetIpRuleList("a")->genSetIpRule("r");
  EXPECT_EQ(rule->sport(), GenSetKey(2));
  EXPECT_FALSE(rule->dport());
}

TEST(Sets, ADeduperIsNotMadeAgainWithOtherArguments) {
  World const w;
  auto const status = w.root->aggregatorStatus();
  auto& sm = *w.root->aggregatorSm();
  PrefixXformKey const key(Lumox::ipv4(), true);
  auto const type = RangeSetType::proto;
  auto const info = status->prefixInfo(key);
  sm.rangeDeduperIs(type, status->rangeSplitInfo(type), w.chipId);
  EXPECT_EQ(sm.prefixDeduperIs(key, info, w.chipId), sm.prefixDeduperIs(key, info, w.chipId));
  std::pair<std::function<void()>, std::string> const cases[] = {
      {[&] { sm.prefixDeduperIs(key, info, Obel::ChipId(2)); },
       "_chipId has a different value of 2 than the current value of 0 not allowed"},
      {[&] { sm.prefixDeduperIs(key, makePtr<PrefixAggregatorInfo>(key), w.chipId); },
       "_prefixAggInfo has a different value of "},
      {[&] { sm.rangeDeduperIs(type, makePtr<RangeSplitAggregatorInfo>(type), w.chipId); },
       "_rangeSplitAggInfo has a different value of "}};
  for (auto const& [make, text] : cases) {
    try {
      make();
      ADD_FAILURE() << text;
    } catch (Mox::NameInUseError const& e) {
      EXPECT_TRUE(std::string(e.what()).starts_with(
          "Reinstantiating the pointer interface where constructor parameter attribute " + text))
          << e.what();
    }
  }
}

TEST(SetsDeathTest, MisuseEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "fast");
  auto const prefixes = makePtr<PrefixSet>(GenSetKey(1));
  auto const ranges = rangeSet(2, {});
  EXPECT_DEATH(prefixes->hash(), "false && \"Not implemented\"");
  EXPECT_DEATH(prefixes->isEqual(prefixes), "false && \"Not implemented\"");
  Obel::ChipId const chip(0);
  PrefixXformKey const key(Lumox::ipv4(), true);
  PrefixDedupMarkAndSweeper const ofPrefixes(key, makePtr<PrefixAggregatorInfo>(key), chip);
  EXPECT_DEATH(ofPrefixes.getGenSetKey(*ranges), "prefixListDedup");
  RangeDedupMarkAndSweeper const ofRanges(RangeSetType::icmp, nullptr, chip);
  EXPECT_DEATH(ofRanges.getGenSetKey(*prefixes), "rangeSet");
  ComboLabelDedupMarkAndSweeper const ofCombos(ComboLabelSetType::srcDstL4Port, nullptr, chip);
  EXPECT_DEATH(ofCombos.getGenSetKey(*ranges), "comboSet");

  World w("a 10 r proto 6\nb 10 r proto 6");
  w.rule("b", "r")->ruleFilterIs()->destinationIs();
  EXPECT_DEATH(w.kick(), "destination->exceptAddrs\\(\\).*ACL 'b', rule 'r': the destination list");
  w.rule("a", "r")->ruleFilterIs()->sourceIs();
  EXPECT_DEATH(w.kick(), "source->exceptAddrs\\(\\).*ACL 'a', rule 'r': the source list");
}

}  // namespace
}  // namespace Test
