/// Content that was made to have the hash of other content, and content that is written again: what
/// is the same is told by what it says alone.

#include "naxel/genset/NaxelAggregatorSm.h"
#include "naxel/xform/PieceLabels.h"
#include "support/Fresh.h"

#include <array>
#include <numeric>
#include <set>
#include <sstream>
#include <unordered_map>

namespace Test {
namespace {

using namespace Naxel;

Mox::Ptr<IpPrefixList> listOf(std::string const& prefixes) {
  RuleConfig rule("r");
  fillFilter(rule, "src " + prefixes);
  return rule.ruleFilter()->source();
}

/// Changes a configuration into one of the same digest, and expects a kick to see it.
template <class Change>
void expectSeen(World& w, Change change) {
  kickOk(w);
  auto const before = w.root->aggregatorSm()->doBuildWorkingSet();
  std::string const tables = full(w.tables());
  change();
  ASSERT_EQ(w.root->aggregatorSm()->doBuildWorkingSet(), before) << "no collision";
  kickOk(w);
  EXPECT_NE(full(w.tables()), tables);
}

TEST(CollisionTest, AListOfTheSameHashIsAnotherList) {
  std::string const one = "10.3.237.125/32,11.7.62.210/32";
  std::string const other = "20.22.164.50/32,21.13.73.15/32";
  std::string const exceptOne = "0.0.0.0/0,!10.3.237.125/32,!11.7.62.210/32";
  std::string const exceptOther = "0.0.0.0/0,!20.22.164.50/32,!21.13.73.15/32";
  for (auto const& change : {std::pair{one, other}, {exceptOne, exceptOther}})
    for (Chip chip : allChips)
      for (bool inPlace : {true, false})
        for (std::string const more :
             {"", "edge 20 b src 10.0.0.0/8\ncore 5 c src 21.13.73.15/32"}) {
          World w("edge 10 a src " + change.first + " dst 20.0.0.0/8 drop\n" + more);
          setWidths(w, chip);
          expectSeen(w, [&] {
            auto const filter = w.rule("edge", "a")->ruleFilter();
            auto const list = listOf(change.second);
            if (!inPlace) return filter->sourceIs(list);
            auto const source = filter->source();
            source->addrDelAll(), source->exceptAddrDelAll();
            for (auto const& p : list->addr()) source->addrIs(p);
            for (auto const& p : list->exceptAddr()) source->exceptAddrIs(p);
          });
        }
  // Side by side they are two, also when they change places.
  World w("edge 10 a src " + one + " drop\nedge 20 b src " + other);
  expectSeen(w, [&] {
    w.rule("edge", "a")->ruleFilter()->sourceIs(listOf(other));
    w.rule("edge", "b")->ruleFilter()->sourceIs(listOf(one));
  });
}

TEST(CollisionTest, ObjectsOfOneHashAreNotShared) {
  auto const expectApart = [](auto make) {
    std::unordered_map<uint32_t, uint32_t> seen;
    uint32_t m = 1;
    while (seen.emplace(make(m)->hash(), m).second) ++m;
    uint32_t const n = seen.at(make(m)->hash());
    EXPECT_NE(make(n)->place(), make(m)->place());
    Deduper deduper;
    auto const first = deduper.addObj(make(n));
    EXPECT_NE(deduper.addObj(make(m)), first);
    EXPECT_EQ(deduper.addObj(make(n)), first);
    EXPECT_EQ(deduper.dedupedHash().size(), 1u) << "no collision";
  };
  expectApart([](uint32_t n) {
    auto set = Mox::makePtr<RangeSet>(GenSetKey(n), RangeSetType::srcPort);
    set->rangeIs(
        RangeSetElem(static_cast<uint16_t>(n % 50000), static_cast<uint16_t>(50000 + n / 50000)));
    return set;
  });
  expectApart([](uint32_t n) {
    auto set = Mox::makePtr<ComboLabelSet>(GenSetKey(n), ComboLabelSetType::srcDstL4Port);
    set->comboLabelIs(GenCombo(PlainLabel(n), PlainLabel(n)));
    return set;
  });
  expectApart([](uint32_t n) {
    auto group = genSetKeyGroupFactory();
    group->keyGroupIs(GenSetKey(n));
    return group;
  });
  // Even of one hash, small groups and such as steps are remembered for.
  PieceLabels labels({100, 1000});
  std::vector<uint32_t> wide(100);
  std::iota(wide.begin(), wide.end(), 10u);
  for (uint32_t const base : {0u, labels.labelOf(0, 0, wide, {})})
    for (int again = 0; again < 2; ++again)
      for (uint32_t set = 0; set < 5; ++set)
        EXPECT_EQ(labels.labelOf(0, base, std::array{set}, {}), (base ? 7 : 2) + set);
}

/// A list of other content, where it can be had at the address of the old one.
void replaceAtItsAddress(RuleFilter& filter) {
  IpPrefixList const* const old = filter.source().get();
  filter.sourceDel();
  std::vector<Mox::Ptr<IpPrefixList>> tried;
  do tried.push_back(listOf("99.0.0.0/8"));
  while (tried.back().get() != old && tried.size() < 100);
  filter.sourceIs(tried.back());
}

void expectSkips(World& w, bool skips) {
  kickOk(w);
  EXPECT_EQ(w.root->aggregatorStatus()->status() == StageStatusType::finishedSkipped, skips);
}

TEST(CollisionTest, WhatIsWrittenAgainIsSkippedOnlyWhereItSaysTheSame) {
  static constexpr char one[] = "edge 10 one src 10.0.0.0/8 dst 20.0.0.0/8 sport 5 dport 80\n";
  static constexpr char two[] = "edge 20 two src 30.0.0.0/8 dport 443 drop\ncore 5 three proto 6";
  using W = World;
  using A = AclConfig;
  using F = RuleFilter;
  struct Edit {
    bool same;
    void (*write)(W&, A&, F& one, F& two);
  };
  Edit const edits[] = {
      {true, [](W&, A&, F& f, F&) { f.sourceIs(listOf("10.0.0.0/8")); }},
      {false, [](W&, A&, F& f, F&) { f.sourceIs(listOf("!10.0.0.0/8")); }},
      {false, [](W&, A&, F& f, F&) { replaceAtItsAddress(f); }},
      {false, [](W&, A&, F& f, F& g) { f.sourceIs(g.source()); }},
      {false, [](W&, A&, F& f, F& g) { f.sourceIs(g.source()), g.sourceIs(listOf("10.0.0.0/8")); }},
      {true, [](W& w, A& acl, F&, F&) { acl.ruleByNameDel("one"), w.rules(one); }},
      {false, [](W& w, A& acl, F&, F&) { acl.ruleByNameDel("one"), w.rules("edge 10 one"); }},
      {false, [](W&, A& acl, F&, F&) { acl.ruleByIdIs(AceIndex(10), acl.ruleByName("two")); }},
      {false, [](W&, A& acl, F&, F&) { acl.ruleByIdIs(AceIndex(9), acl.ruleByName("two")); }},
      {false,
       [](W&, A& acl, F&, F&) {
         acl.ruleByIdIs(AceIndex(11), acl.ruleById(AceIndex(10)));
         acl.ruleByIdDel(AceIndex(10));
       }},
      {true, [](W& w, A&, F&, F&) { w.acls->aclDelAll(), w.rules(two), w.rules(one); }},
      {false, [](W& w, A&, F&, F&) { w.acls->aclDelAll(), w.rules(two); }},
      {true, [](W& w, A&, F&, F&) { w.rules("af core ipv4"); }},
      {false, [](W& w, A&, F&, F&) { w.rules("af core ipv6"); }}};
  for (Edit const& edit : edits) {
    SCOPED_TRACE(&edit - edits);
    World w(one);
    w.rules(two);
    setWidths(w, Chip::combos);
    kickOk(w);
    edit.write(w, *w.acls->acl("edge"), *w.rule("edge", "one")->ruleFilter(),
               *w.rule("edge", "two")->ruleFilter());
    expectSkips(w, edit.same);
    expectSkips(w, true);
  }
}

TEST(CollisionTest, EveryFieldOfARuleIsLookedAt) {
  World w;
  std::istringstream texts(
      ";src 10.0.0.0/8;dst 10.0.0.0/8;src !10.0.0.0/8;sport 6;dport 6;icmp 6;proto 6;len 6;frag 6;"
      "dscp 6;dscp 6-7;dscp 6,7;init;est;init est;est drop;est log;est tc=3;est tc=4;"
      "sport 1 dport 2;sport 2 dport 1");
  std::set<uint64_t> hashes;
  for (std::string text; std::getline(texts, text, ';');)
    for (bool same : {false, true}) {
      SCOPED_TRACE(text);
      w.rules("edge 10 r " + text);
      expectSkips(w, same);
      EXPECT_NE(hashes.insert(w.rule("edge", "r")->contentHash()).second, same);
    }
}

}  // namespace
}  // namespace Test
