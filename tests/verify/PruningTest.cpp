/// Rules that can go, held against every packet of small worlds one by one.

#include "support/SmallPackets.h"
#include "verify/ExactPruning.h"

#include <gtest/gtest.h>

namespace Test {
namespace {

using Why = Verify::SpareRule::Why;

bool treatAlike(SmallAcl const& a, SmallAcl const& b) {
  return std::ranges::all_of(smallPackets(),
                             [&](auto const& p) { return a.outcome(p) == b.outcome(p); });
}

/// The rules without those at the places for which `isOut` holds.
template <class IsOut>
std::vector<std::string> without(std::vector<std::string> const& rules, IsOut isOut) {
  std::vector<std::string> out;
  for (size_t i = 0; i < rules.size(); ++i)
    if (!isOut(i)) out.push_back(rules[i]);
  return out;
}

TEST(ExactPruning, LeavesWhatDoesTheSameAndOfWhichNoSingleRuleCanGo) {
  Verify::BddTable const table(Verify::Exact::variables, 1'000'000);
  std::array<size_t, 3> spared{};
  for (uint64_t seed = 1; seed <= 600; ++seed) {
    SeededDice dice(seed);
    std::vector<std::string> rules;
    for (uint64_t n = dice.between(1, 8); n > 0; --n)
      rules.push_back(!rules.empty() && dice.oneIn(5) ? dice.of(rules) : smallRule(dice));
    std::string text;
    for (std::string const& r : rules) text += r + "\n";
    SCOPED_TRACE("seed " + std::to_string(seed) + "\n" + text);
    SmallAcl const before(rules);
    // Half of them in pairs that go together.
    bool const inPairs = seed % 2;
    uint64_t effort = 1'000'000;
    auto const found = Verify::spareRules(
        *before.acl, effort,
        inPairs ? [](Naxel::AceIndex i) { return uint64_t{i.value()} / 2; } : Verify::EntryOf());
    ASSERT_EQ(found.undecided, 0u);
    std::vector<bool> out(rules.size());
    for (Verify::SpareRule const& s : found.all) {
      out[s.rule.value()] = true;
      ++spared[static_cast<size_t>(s.why)];
      EXPECT_EQ(s.because.empty(), s.why == Why::matchesNothing);
      for (Naxel::AceIndex const other : s.because)
        EXPECT_EQ(s.why == Why::decidesNothing, other < s.rule) << s.rule;
      if (inPairs) continue;
      bool const decides = std::ranges::any_of(
          smallPackets(), [&](auto const& p) { return before.decider(p) == s.rule; });
      EXPECT_EQ(s.why == Why::sameWithout, decides);
    }
    std::vector<std::string> const left = without(rules, [&](size_t i) { return out[i]; });
    ASSERT_TRUE(treatAlike(before, SmallAcl(left)));
    for (size_t i = 0; i < left.size() && !inPairs; ++i)
      EXPECT_FALSE(treatAlike(before, SmallAcl(without(left, [&](size_t k) { return k == i; }))))
          << left[i];
  }
  for (size_t const n : spared) EXPECT_GT(n, 30u);
}

TEST(ExactPruning, OfEqualRulesTheFirstStays) {
  Verify::BddTable const table(Verify::Exact::variables, 1'000'000);
  SmallAcl const acl({" dport 5", " dport 5", " dport 5 drop", " dport 9", " dport 9"});
  uint64_t effort = 1000;
  auto const found = Verify::spareRules(*acl.acl, effort);
  std::vector<uint32_t> spared;
  for (Verify::SpareRule const& s : found.all) spared.push_back(s.rule.value());
  EXPECT_EQ(spared, (std::vector<uint32_t>{1, 2, 4}));
  // Without effort nothing is known, and nothing goes.
  effort = 0;
  auto const none = Verify::spareRules(*acl.acl, effort);
  EXPECT_TRUE(none.all.empty());
  EXPECT_EQ(none.undecided, 5u);
}

}  // namespace
}  // namespace Test
