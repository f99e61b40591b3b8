/// Content that was made to have the hash of other content, and content that is written again: what
/// is the same is told by what it says alone.

#include "naxel/encoder/NaxelLabelEncoderSm.h"
#include "naxel/genset/KeyGroupInterner.h"
#include "naxel/genset/NaxelAggregatorSm.h"
#include "support/Fresh.h"

#include <array>
#include <bitset>
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
  for (Chip chip : allChips)
    for (bool inPlace : {true, false})
      for (std::string const more : {"", "edge 20 b src 10.0.0.0/8\ncore 5 c src 21.13.73.15/32"}) {
        World w("edge 10 a src " + one + " dst 20.0.0.0/8 drop\n" + more);
        setWidths(w, chip);
        expectSeen(w, [&] {
          auto const filter = w.rule("edge", "a")->ruleFilter();
          auto const list = listOf(other);
          if (!inPlace) return filter->sourceIs(list);
          filter->source()->addrDelAll();
          for (auto const& p : list->addr()) filter->source()->addrIs(p);
        });
      }
  // Side by side they are two, also when they change places.
  World w("edge 10 a src " + one + " drop\nedge 20 b src " + other);
  expectSeen(w, [&] {
    w.rule("edge", "a")->ruleFilter()->sourceIs(listOf(other));
    w.rule("edge", "b")->ruleFilter()->sourceIs(listOf(one));
  });
}

TEST(CollisionTest, ASubsetOfTheRulesThatCancelsInTheDigestHasChanged) {
  World w;
  std::vector<Mox::Ptr<RuleConfig>> rules;
  for (size_t i = 0; i < 65; ++i) {
    std::string const n = std::to_string(i);
    w.rules("edge " + n + " r" + n + " dport " + n);
    rules.push_back(w.rule("edge", "r" + n));
  }
  auto const flip = [&](size_t i) {
    NaxelActionValue action = rules[i]->action();
    action.dropEnabledIs(!action.dropEnabled());
    rules[i]->actionIs(action);
  };
  // The digest before its last step, which can be taken back.
  auto const sum = [&] {
    uint64_t const hash = w.root->aggregatorSm()->doBuildWorkingSet().workingSetHash();
    auto const half = [](uint32_t h) {
      h *= 0x3fff8001u;  // the inverse of 2^15 + 1
      h ^= h >> 11 ^ h >> 22;
      return uint64_t{h * 0x38e38e39u};  // the inverse of 9
    };
    return half(static_cast<uint32_t>(hash >> 32)) << 32 | half(static_cast<uint32_t>(hash));
  };
  // Among 65 differences of 64 bits some cancel: elimination.
  std::vector<std::pair<uint64_t, std::bitset<65>>> basis;
  uint64_t const before = sum();
  while (basis.empty() || basis.back().first != 0) {
    flip(basis.size());
    std::pair row(sum() ^ before, std::bitset<65>().set(basis.size()));
    flip(basis.size());
    for (auto const& [bits, flipped] : basis)
      if ((row.first ^ bits) < row.first) row = {row.first ^ bits, row.second ^ flipped};
    basis.push_back(row);
  }
  expectSeen(w, [&] {
    for (size_t i = 0; i < rules.size(); ++i)
      if (basis.back().second[i]) flip(i);
  });
}

/// The first two numbers for which `make(n)` makes objects of one hash.
template <class Make>
std::array<uint32_t, 2> collide(Make make) {
  std::unordered_map<uint32_t, uint32_t> seen;
  for (uint32_t n = 1;; ++n) {
    auto const [at, isNew] = seen.emplace(make(n)->hash(), n);
    if (!isNew) return {at->second, n};
  }
}

L4PortRange rangeOf(uint32_t n) { return {n % 50000, 50000 + n / 50000}; }

Mox::Ptr<RangeSet> rangeSetOf(uint32_t n) {
  auto set = Mox::makePtr<RangeSet>(GenSetKey(n), RangeSetType::srcPort);
  set->rangeIs(RangeSetElem(rangeOf(n).rangeStart(), rangeOf(n).rangeEnd()));
  return set;
}

TEST(CollisionTest, ObjectsOfOneHashAreNotShared) {
  auto const expectApart = [](auto make) {
    auto const [n, m] = collide(make);
    EXPECT_NE(make(n)->place(), make(m)->place());
    Deduper deduper;
    auto const first = deduper.addObj(make(n));
    EXPECT_NE(deduper.addObj(make(m)), first);
    EXPECT_EQ(deduper.addObj(make(n)), first);
    EXPECT_EQ(deduper.dedupedHash().size(), 1u) << "no collision";
  };
  expectApart(rangeSetOf);
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
  // Even of one place.
  KeyGroupInterner interner;
  auto const first = interner.intern({GenSetKey(1)}, Mox::KeyedSetHash());
  EXPECT_NE(interner.intern({GenSetKey(2)}, Mox::KeyedSetHash()), first);
  EXPECT_EQ(interner.intern({GenSetKey(1)}, Mox::KeyedSetHash()), first);
}

/// Two pairs of source port ranges over which the chained hash of a filter is one value: first ranges
/// whose running hashes differ by no more than second ranges can make up for.
std::array<std::vector<L4PortRange>, 2> rangesOfOneHash() {
  uint64_t const begin = Mox::hashCombine(0, Mox::hashCombine(3, 2));
  std::unordered_map<uint32_t, std::pair<uint64_t, L4PortRange>> seen;
  for (uint32_t n = 0;; ++n) {
    L4PortRange const first(n % 8192, 8192 + n / 8192);
    uint64_t const hash = (Mox::hashCombine(begin, first.orderKey()) + 1) * 0xd6e8feb86659fd93u;
    auto const upperHalves = static_cast<uint32_t>(hash >> 48 << 16 | (hash >> 16 & 0xffff));
    auto const [at, isNew] = seen.try_emplace(upperHalves, hash, first);
    if (isNew) continue;
    uint64_t const difference = at->second.first - hash;
    auto const ends = static_cast<int32_t>(difference);
    auto const starts = static_cast<int32_t>((difference - static_cast<uint64_t>(ends)) >> 32);
    int32_t const start = 8192 + std::max(0, -starts), end = 65535 - std::max(0, ends);
    if (start > end || start + starts > end + ends) continue;
    auto const second = [&](int32_t s, int32_t e) {
      return L4PortRange(static_cast<uint32_t>(start + s), static_cast<uint32_t>(end + e));
    };
    return {{{at->second.second, second(0, 0)}, {first, second(starts, ends)}}};
  }
}

TEST(CollisionTest, RangesOfTheSameHashAreOthers) {
  auto const chained = rangesOfOneHash();
  auto const [n, m] = collide(rangeSetOf);
  for (Chip chip : allChips) {
    World w("edge 10 a dport 80 drop\nedge 20 b dport 80");
    setWidths(w, chip);
    auto const rangesAre = [&](char const* rule, std::vector<L4PortRange> const& ranges) {
      auto const filter = w.rule("edge", rule)->ruleFilter();
      filter->sportRangeDelAll();
      for (auto const& r : ranges) filter->sportRangeIs(r);
    };
    rangesAre("a", chained[0]);
    expectSeen(w, [&] { rangesAre("a", chained[1]); });
    for (auto const& [a, b] : {std::pair(n, m), std::pair(m, n)}) {
      rangesAre("a", {rangeOf(a)});
      rangesAre("b", {rangeOf(b)});
      kickOk(w);
    }
  }
}

TEST(CollisionTest, CountsOfUseOfTheSameHashAreOthers) {
  // How often each of three sets is used: the first one more often than the last, and less often.
  using Uses = std::array<uint32_t, 3>;
  std::unordered_map<uint32_t, Uses> seen;
  Uses one{}, other{};
  for (uint32_t n = 0; one[0] <= one[2] || other[0] >= other[2]; ++n) {
    other = {1 + n % 64, 1 + n / 64 % 64, 1 + n / 4096};
    Mox::OneAtATime hash;
    for (uint32_t u : other) hash.word(Mox::foldHash(Mox::mix64(u)));
    one = seen.emplace(hash.finish(), other).first->second;
  }
  World w;
  w.capability->rangeXformWidthIs(RangeSetType::dstPort, 8);
  std::vector<uint64_t> hashes;
  for (Uses const& uses : {one, other}) {
    w.acls->aclDelAll();
    for (uint32_t set = 0, i = 0; set < uses.size(); ++set)
      for (uint32_t const end = i + uses[set]; i < end; ++i) {
        std::string const n = std::to_string(i);
        w.rules("edge " + n + " r" + n + " dport " + std::to_string(set));
      }
    kickOk(w);
    auto const encoder = w.root->rangeEncoderSm(RangeSetType::dstPort);
    hashes.push_back(encoder->doBuildWorkingSetHash());
  }
  EXPECT_EQ(hashes[0], hashes[1]) << "no collision";
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
      {true, [](W& w, A&, F&, F&) { w.acls->aclDelAll(), w.rules(two), w.rules(one); }},
      {false, [](W& w, A&, F&, F&) { w.acls->aclDelAll(), w.rules(two); }},
      {true, [](W& w, A&, F&, F&) { w.rules("af core ipv4"); }},
      {false, [](W& w, A&, F&, F&) { w.rules("af core ipv6"); }}};
  for (Edit const& edit : edits) {
    SCOPED_TRACE(&edit - edits);
    World w(std::string(one) + two);
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
  for (char const* text : {"",
                           "src 10.0.0.0/8",
                           "dst 10.0.0.0/8",
                           "src !10.0.0.0/8",
                           "sport 6",
                           "dport 6",
                           "icmp 6",
                           "proto 6",
                           "len 6",
                           "frag 6",
                           "dscp 6",
                           "dscp 6-7",
                           "dscp 6,7",
                           "init",
                           "est",
                           "init est",
                           "est drop",
                           "est log",
                           "est tc=3",
                           "est tc=4",
                           "sport 1 dport 2",
                           "sport 2 dport 1"})
    for (bool same : {false, true}) {
      SCOPED_TRACE(text);
      w.rules(std::string("edge 10 r ") + text);
      expectSkips(w, same);
    }
}

}  // namespace
}  // namespace Test
