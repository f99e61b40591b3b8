/// Changes between two ACLs, held against every packet of small worlds one by one.

#include "support/SmallPackets.h"
#include "verify/ExactAlignment.h"
#include "verify/ExactChanges.h"

#include <set>

#include <gtest/gtest.h>

namespace Test {
namespace {

using Verify::Exact::Among;
using DeciderPair = std::pair<std::optional<Naxel::AceIndex>, std::optional<Naxel::AceIndex>>;

/// Every pair of deciders that differ in what they do, and no other, each with a packet that shows it.
void expectAllChanges(std::vector<std::string> const& before, std::vector<std::string> const& after,
                      Among among) {
  SmallAcl const a(before);
  SmallAcl const b(after);
  std::set<DeciderPair> expected;
  for (Verify::Packet const& p : smallPackets())
    if ((among == Among::all || p.isPossible()) && a.outcome(p) != b.outcome(p))
      expected.emplace(a.decider(p), b.decider(p));
  uint64_t effort = 1'000'000;
  auto const found = Verify::verdictChanges(*a.acl, *b.acl, among, effort);
  EXPECT_EQ(found.rulesLeft, 0u);
  std::set<DeciderPair> pairs;
  for (Verify::VerdictChange const& c : found.all) {
    EXPECT_TRUE(pairs.emplace(c.before, c.after).second);
    EXPECT_EQ(a.decider(c.packet), c.before) << c.packet;
    EXPECT_EQ(b.decider(c.packet), c.after) << c.packet;
    EXPECT_TRUE(among == Among::all || c.packet.isPossible()) << c.packet;
  }
  EXPECT_EQ(pairs, expected);
}

std::string textOf(std::vector<std::string> const& rules) {
  std::string out;
  for (std::string const& r : rules) out += r + "\n";
  return out;
}

TEST(ExactChanges, AreThoseOfEveryPacketForAllPairsOfRuleSets) {
  Verify::BddTable const table(Verify::Exact::variables, 1'000'000);
  std::vector<std::string> rules;
  for (char const* side : {"", " src 0.0.0.0/1", " src 64.0.0.0/2"})
    for (char const* port : {"", " dport 5-20"})
      for (char const* action : {"", " drop"}) rules.push_back(std::string(side) + port + action);
  std::vector<std::vector<std::string>> sets = {{}};
  for (std::string const& r : rules) sets.push_back({r});
  for (std::string const& r : rules)
    for (std::string const& s : rules) sets.push_back({r, s});
  // One of seven pairs, and over all pairs of sets each second set.
  for (size_t i = 0; i < sets.size() * sets.size(); i += 7) {
    auto const& a = sets[i / sets.size()];
    auto const& b = sets[i % sets.size()];
    SCOPED_TRACE(textOf(a) + "---\n" + textOf(b));
    expectAllChanges(a, b, i % 2 ? Among::all : Among::possible);
    if (HasFailure()) return;
  }
}

TEST(ExactChanges, AreThoseOfEveryPacketAfterAnyEdits) {
  Verify::BddTable const table(Verify::Exact::variables, 1'000'000);
  for (uint64_t seed = 1; seed <= 600; ++seed) {
    SeededDice dice(seed);
    std::vector<std::string> before;
    for (uint64_t n = dice.between(1, 7); n > 0; --n) before.push_back(smallRule(dice));
    std::vector<std::string> after = before;
    for (uint64_t edits = dice.below(4); edits > 0; --edits) {
      auto const at = static_cast<ptrdiff_t>(dice.below(after.size() + 1));
      bool const isThere = at < static_cast<ptrdiff_t>(after.size());
      switch (dice.below(4)) {
        case 0: after.insert(after.begin() + at, smallRule(dice)); break;
        case 1:
          if (isThere) after.erase(after.begin() + at);
          break;
        case 2:
          if (isThere) after[static_cast<size_t>(at)] = smallRule(dice);
          break;
        default:
          if (isThere) std::swap(after[static_cast<size_t>(at)], after.back());
      }
    }
    SCOPED_TRACE("seed " + std::to_string(seed) + "\n" + textOf(before) + "---\n" + textOf(after));
    expectAllChanges(before, after, seed % 2 ? Among::all : Among::possible);
    if (HasFailure()) return;
  }
}

TEST(ExactChanges, RulesThatSayTheSameInOtherWordsArePaired) {
  Verify::BddTable const table(Verify::Exact::variables, 1'000'000);
  SmallAcl const a({" src 10.0.0.0/8", " dport 1-9", " dport 7 drop", " proto 6", " drop"});
  SmallAcl const b({" proto 6", " src 10.0.0.0/9,10.128.0.0/9", " dport 1-4,5-9", " drop"});
  Verify::Exact::RuleRow before(*a.acl, Among::possible);
  Verify::Exact::RuleRow after(*b.acl, Among::possible);
  Verify::Exact::Alignment const all(before, after);
  EXPECT_EQ(all.alone(0), (std::vector<size_t>{2, 3}));
  EXPECT_EQ(all.alone(1), std::vector<size_t>{0});
  // The last rule may decide what the third did, the first two never do.
  EXPECT_FALSE(all.isPossible(0, 2, 2));
  EXPECT_TRUE(all.isPossible(0, 2, 3));
}

TEST(ExactChanges, SayWhereTheirEffortEnds) {
  Verify::BddTable const table(Verify::Exact::variables, 1'000'000);
  std::vector<std::string> before;
  std::vector<std::string> after;
  for (int i = 0; i < 50; ++i) {
    before.push_back(" proto 6 dport " + std::to_string(i * 100) + "-" +
                     std::to_string(i * 100 + 150));
    after.push_back(" src 0.0.0.0/" + std::to_string(i % 30 + 1) + " drop");
  }
  SmallAcl const a(before);
  SmallAcl const b(after);
  uint64_t effort = 500;
  auto const some = Verify::verdictChanges(*a.acl, *b.acl, Among::possible, effort);
  EXPECT_GT(some.rulesLeft, 0u);
  EXPECT_EQ(effort, 0u);
  effort = 1'000'000;
  auto const all = Verify::verdictChanges(*a.acl, *b.acl, Among::possible, effort);
  EXPECT_EQ(all.rulesLeft, 0u);
  EXPECT_GT(all.all.size(), some.all.size());
}

}  // namespace
}  // namespace Test
