/// The transforms: the pieces that overlapping sets are cut into, by the definition of a piece, and when there
/// are too many of them.

#include "naxel/xform/NaxelComboLabelSplitSm.h"
#include "naxel/xform/NaxelPrefixXformSm.h"
#include "naxel/xform/NaxelRangeSplitSm.h"
#include "naxel/xform/PairCut.h"
#include "naxel/xform/PrefixCut.h"
#include "support/Handshake.h"
#include "support/Vocabulary.h"

#include <algorithm>
#include <map>
#include <set>

namespace Test {
namespace {

using namespace Naxel;
using Lumox::IpGenPrefix;
using Keys = std::set<GenSetKey>;

/// What a cut says of its pieces: which sets hold each, one object for pieces of the same sets, and whether
/// they are within a limit.
template <class Item>
void expectPieces(std::map<Item, Keys> const& wanted, PieceCount const& counted, auto const& cut) {
  std::set<Keys> groups;
  PieceCount needed;
  for (auto const& [item, keys] : wanted)
    if (groups.insert(keys).second) ++needed.pieces, needed.memberships += keys.size();
  EXPECT_EQ(counted.pieces, needed.pieces);
  EXPECT_EQ(counted.memberships, needed.memberships);
  EXPECT_FALSE(cut(PieceCount{needed.pieces - 1, needed.memberships}));
  EXPECT_TRUE(!needed.memberships || !cut(PieceCount{needed.pieces, needed.memberships - 1}));
  auto const pieces = cut(needed);
  ASSERT_TRUE(pieces);
  std::map<Item, Keys> found;
  uint32_t labels = 0;
  for (auto const& [item, label] : pieces->items) {
    EXPECT_LE(label.value(), labels + 1) << "not in the order in which they come";
    labels = std::max(labels, label.value());
    Keys& keys = found[item];
    for (uint32_t set : pieces->groups.of(label.value())) keys.insert(GenSetKey(set * 3 + 1));
  }
  EXPECT_EQ(found, wanted);
  EXPECT_EQ(labels, groups.size());
}

/// Sets that come and go: what they make of the pieces before is what a cut makes of the sets that there are.
template <class Set, class Cut, class Change>
void expectChanged(Dice& dice, std::vector<Mox::Ptr<Set const>> const& sets, Cut cut,
                   Change change) {
  std::vector<Mox::Ptr<Set const>> then, now;
  uint64_t const kinds =
      dice.between(2, 9);  // the third and all behind it are there before and after
  for (auto const& set : sets) {
    uint64_t const kind = dice.below(kinds);
    if (kind != 0) then.push_back(set);
    if (kind != 1) now.push_back(set);
  }
  PieceCount const any{1 << 20, 1 << 20};
  auto const old = *cut(then, any);
  SetChanges<Set> const changes(then, now);
  auto const added = *cut(changes.added, any);
  auto const wanted = *cut(now, any);
  auto const found = *change(old, changes, added, any);
  EXPECT_EQ(found.items, wanted.items);
  EXPECT_EQ(found.groups, wanted.groups);
  if constexpr (requires { old.namings; }) {
    EXPECT_EQ(found.namings, wanted.namings);
  }
  if constexpr (requires { old.cuts; }) {
    EXPECT_EQ(found.cuts, wanted.cuts);
  }
  PieceCount const needed{wanted.groups.size(), wanted.groups.memberships()};
  EXPECT_TRUE(change(old, changes, added, needed));
  EXPECT_TRUE(!needed.pieces ||
              !change(old, changes, added, {needed.pieces - 1, needed.memberships}));
  EXPECT_TRUE(!needed.memberships ||
              !change(old, changes, added, {needed.pieces, needed.memberships - 1}));
}

TEST(Transform, APieceIsWhatTheSameSetsHold) {
  SeededDice dice(1);
  Vocabulary words(dice);
  for (int round = 0; round < 120 && !testing::Test::HasFailure(); ++round) {
    SCOPED_TRACE(round);
    auto const af = round % 2 ? Lumox::ipv6() : Lumox::ipv4();
    // Sets that hold everything, so that the change from piece to piece is small against a group.
    size_t const wide = round % 8 < 2 ? 80 : 0;
    PrefixSets prefixSets;
    RangeSets rangeSets;
    PairSets pairSets;
    std::map<IpGenPrefix, Keys> byPrefix;
    std::map<RangeSetElem, Keys> byRange;
    std::map<GenCombo, Keys> byPair;
    for (uint64_t left = wide + dice.between(1, 20); left > 0; --left) {
      GenSetKey const key(prefixSets.size() * 3 + 1);
      auto const prefixes = Mox::makePtr<PrefixSet>(key);
      auto const ranges = Mox::makePtr<RangeSet>(key, RangeSetType::srcPort);
      auto const pairs = Mox::makePtr<ComboLabelSet>(key, ComboLabelSetType::srcDstL4Port);
      auto const rule = Mox::makePtr<RuleConfig>("r");
      fillFilter(*rule,
                 prefixSets.size() < wide
                     ? "src " + std::string(round % 2 ? "::/0" : "0.0.0.0/0") + " sport 0-65535"
                     : "src " + words.list(af) + " sport " + words.ranges(65535));
      for (IpGenPrefix const& p : rule->ruleFilter()->source()->addr())
        prefixes->prefixIs(p.masked()), byPrefix[p.masked()];
      for (IpGenPrefix const& p : rule->ruleFilter()->source()->exceptAddr())
        prefixes->exceptPrefixIs(p.masked()), byPrefix[p.masked()];
      for (auto const& r : rule->ruleFilter()->sportRange())
        ranges->rangeIs({r.rangeStart(), r.rangeEnd()});
      auto const label = [&] { return PlainLabel(static_cast<uint32_t>(dice.between(1, 4))); };
      for (uint64_t n = dice.between(1, 9); n > 0; --n) {
        GenCombo const pair(label(), label());
        pairs->comboLabelIs(pair);
        byPair[pair].insert(key);
      }
      prefixSets.push_back(prefixes);
      rangeSets.push_back(ranges);
      pairSets.push_back(pairs);
    }

    auto const within = [](IpGenPrefix const& inner, Mox::FlatSet<IpGenPrefix> const& outer) {
      return std::ranges::any_of(outer, [&](auto const& p) { return p.contains(inner); });
    };
    for (auto& [prefix, keys] : byPrefix)
      for (auto const& set : prefixSets)
        if (within(prefix, set->prefix()) && !within(prefix, set->exceptPrefix()))
          keys.insert(set->key());
    expectPieces(byPrefix, countPrefixPieces(prefixSets),
                 [&](PieceCount const& limit) { return cutPrefixes(prefixSets, limit); });

    // A range of pieces ends where a set ends or begins, or two ranges of one that only touch.
    auto const holds = [](auto const& set, uint32_t first, uint32_t last) {
      return std::ranges::any_of(
          set->range(), [&](auto const& r) { return r.first() <= first && last <= r.last(); });
    };
    for (uint32_t first = 0, v = 0, next = 0; v < 65536; v = next) {
      next = v == 20 ? 65500 : v + 1;  // no end is drawn from between
      Keys keys;
      bool ends = false;
      for (auto const& set : rangeSets) {
        if (holds(set, v, v)) keys.insert(set->key());
        ends = ends || ((holds(set, v, v) || holds(set, next, next)) && !holds(set, v, next));
      }
      if (!ends) continue;
      if (!keys.empty()) byRange[{first, v}] = keys;
      first = next;
    }
    expectPieces(byRange, countRangePieces(rangeSets),
                 [&](PieceCount const& limit) { return sweepRanges(rangeSets, limit); });
    expectPieces(byPair, countPairPieces(pairSets),
                 [&](PieceCount const& limit) { return cutPairs(pairSets, limit); });

    for (int again = 0; again < 3; ++again) {
      expectChanged(dice, prefixSets, cutPrefixes,
                    [](auto& old, auto& sets, auto& added, PieceCount const& limit) {
                      return changePrefixes(
                          {old.items, old.namings, old.groups, sets.removed, added, sets.moves},
                          limit);
                    });
      expectChanged(
          dice, rangeSets,
          [](RangeSets const& all, PieceCount const& limit) { return sweepRanges(all, limit); },
          [](auto& old, auto& sets, auto& added, PieceCount const& limit) {
            return changeRanges({old.items, old.cuts, old.groups, sets.removed, added, sets.moves},
                                limit);
          });
      expectChanged(dice, pairSets, cutPairs,
                    [](auto& old, auto& sets, auto& added, PieceCount const& limit) {
                      return changePairs({old.items, old.groups, added, sets.moves}, limit);
                    });
    }
  }
}

TEST(Transform, AWidthHoldsAllButOneOfItsValuesAndThenFailsEveryTime) {
  struct Case {
    char const* machine;
    char const* field;  // N for the number of a rule
  };
  PrefixXformKey const source(Lumox::ipv4(), true);
  auto const ports = ComboLabelSetType::srcDstL4Port;
  Case const cases[] = {{"PrefixXformSm(ipv4, src)", " src 1N.0.0.0/8"},
                        {"RangeSplitSm(dscp)", " dscp N"},
                        {"ComboLabelSplitSm(srcDstL4Port)", " sport 1 dport N"}};
  for (Case const& c : cases)
    for (uint32_t width = 1; width <= 3; ++width) {
      SCOPED_TRACE(std::string(c.machine) + " " + std::to_string(width));
      Traced const traced;
      World w;
      setWidths(w, Chip::labels, 16);
      auto const widthIs = [&](uint32_t n) {
        w.capability->prefixXformWidthIs(source, n);
        w.capability->rangeXformWidthIs(RangeSetType::dscp, n);
        w.capability->comboXformWidthIs(ports, n);
      };
      auto const addRule = [&](size_t number) {
        std::string const n = std::to_string(number);
        std::string field = c.field;
        w.rules("a " + n + " r" + n + field.replace(field.find('N'), 1, n));
      };
      XformSmBase* const machines[] = {w.root->prefixXformSm(source).get(),
                                       w.root->rangeSplitSm(RangeSetType::dscp).get(),
                                       w.root->comboLabelSplitSm(ports).get()};
      XformSmBase& machine = *machines[&c - cases];
      auto const expectRefusal = [&](std::string const& reason) {
        EXPECT_EQ(w.kick(), failure);
        EXPECT_NE(w.failureText().find(": " + reason), std::string::npos) << w.failureText();
        EXPECT_TRUE(machine.xformStatus()->outputUnusable());
      };
      size_t const limit = (size_t{1} << width) - 1;
      std::string const all = std::to_string(limit);
      widthIs(width);
      for (size_t i = 0; i < limit; ++i) addRule(i);
      EXPECT_EQ(w.kick(), success) << w.failureText();
      addRule(limit);
      for (auto status : {StageStatusType::finishedFailed, StageStatusType::finishedSkipped}) {
        expectRefusal(std::to_string(limit + 1) + " disjoint pieces needed, label width " +
                      std::to_string(width) + " has labels for " + all);
        EXPECT_EQ(machine.status()->status(), status);
      }
      EXPECT_EQ(traced.count(std::string(c.machine) +
                             "::doStartKick: Generated too many disjoint sets : " + all),
                1);
      widthIs(width + 1);
      EXPECT_EQ(w.kick(), success) << w.failureText();
      widthIs(width);
      EXPECT_EQ(w.kick(), failure);
      w.acls->acl("a")->ruleByNameDel("r0");
      EXPECT_EQ(w.kick(), success) << w.failureText();
      machine.membershipLimitIs(limit - 1);
      expectRefusal(all + " labels needed by " + all + " lists that overlap in " + all);
      machine.membershipLimitIs(limit);
      EXPECT_EQ(w.kick(), success) << w.failureText();
    }
}

}  // namespace
}  // namespace Test
