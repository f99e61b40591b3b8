// What check and search say of small worlds, held against every packet in them.

#include "answers/Check.h"
#include "answers/PacketSearch.h"
#include "output/RuleText.h"
#include "support/SmallWorld.h"
#include "support/World.h"
#include "verify/PacketSource.h"

#include <algorithm>
#include <map>

#include <gtest/gtest.h>

namespace NaxelTool {
namespace {

using Naxel::AceIndex;
using ::Test::outcomeOf;
using ::Test::SeededDice;
using ::Test::slowDecider;
using ::Test::slowMatch;
using Verify::Packet;
using Reached = CheckedRule::Reached;

/// A small ACL whose rules are gathered into entries of one or two.
struct CheckedWorld {
  explicit CheckedWorld(SeededDice& dice) : rules(Obel::ChipId(0)) {
    std::string const text = ::Test::smallRules(dice, true);
    ::Test::addRules(*rules.acls(), text);
    // Now and then the first rule once more, as it was or to drop.
    if (dice.oneIn(4))
      ::Test::addRules(*rules.acls(), "a 50 again" + text.substr(6, text.find('\n') - 6) +
                                          (dice.oneIn(2) ? " drop\n" : "\n"));
    acl = rules.acls()->acl("a");
    acl->afIs(Lumox::ipv4());
    uint32_t const file = rules.fileIs("f");
    uint32_t entry = 0;
    for (auto const& [index, rule] : acl->ruleById()) {
      RuleOrigin origin;
      origin.file = file;
      origin.entry = dice.oneIn(3) ? entry : ++entry;
      rules.originIs("a", index, origin);
      bool const joins = !entries.empty() && entryOf(entries.back().back()) == origin.entry &&
                         acl->ruleById(entries.back().back())->action() == rule->action();
      if (!joins) entries.emplace_back();
      entries.back().push_back(index);
    }
  }
  uint32_t entryOf(AceIndex rule) const { return rules.origin("a", rule)->entry; }
  std::vector<AceIndex> const& entryWith(AceIndex rule) const {
    return *std::ranges::find_if(
        entries, [&](auto const& e) { return std::ranges::find(e, rule) != e.end(); });
  }
  bool matches(std::vector<AceIndex> const& any, Packet const& p) const {
    return std::ranges::any_of(any, [&](AceIndex rule) { return slowMatch(*acl, rule, p); });
  }
  bool takes(std::vector<AceIndex> const& others, Packet const& p) const {
    return std::ranges::any_of(others,
                               [&](AceIndex other) { return matches(entryWith(other), p); });
  }

  RuleSet rules;
  Mox::Ptr<Naxel::AclConfig> acl;
  std::vector<std::vector<AceIndex>> entries;
};

/// What all packets say of an entry.
struct EntryTruth {
  size_t nothing = 0;    ///< rules that match none
  size_t unreached = 0;  ///< others that decide none
  bool isReached = false;
  bool isSpare = false;  ///< it is reached, and no outcome changes without it
};

/// Holds who is reached and by which packet against all packets.
EntryTruth truthOf(CheckedWorld const& world, std::vector<AceIndex> const& entry,
                   std::map<AceIndex, CheckedRule> const& checked,
                   std::vector<Packet> const& packets) {
  auto const& acl = *world.acl;
  EntryTruth out;
  for (AceIndex const rule : entry) {
    bool const matches =
        std::ranges::any_of(packets, [&](auto const& p) { return slowMatch(acl, rule, p); });
    bool const decides =
        std::ranges::any_of(packets, [&](auto const& p) { return slowDecider(acl, p) == rule; });
    CheckedRule const& found = checked.at(rule);
    EXPECT_EQ(found.reached, decides   ? Reached::yes
                             : matches ? Reached::no
                                       : Reached::matchesNothing);
    EXPECT_EQ(found.witness.has_value(), decides);
    if (found.witness) {
      EXPECT_TRUE(found.witness->isPossible() && slowDecider(acl, *found.witness) == rule)
          << *found.witness;
    }
    out.nothing += !matches;
    out.unreached += matches && !decides;
  }
  out.isReached = out.nothing + out.unreached < entry.size();
  Verify::RuleSpan const all(entry.front(), entry.back());
  out.isSpare =
      out.isReached && std::ranges::all_of(packets, [&](Packet const& p) {
        return outcomeOf(acl, slowDecider(acl, p)) == outcomeOf(acl, slowDecider(acl, p, all));
      });
  return out;
}

/// Holds what was found about one entry against all packets; returns the code of what is said about its being
/// reached.
std::string holdEntry(CheckedWorld const& world, std::vector<AceIndex> const& entry,
                      std::map<AceIndex, CheckedRule> const& checked,
                      std::vector<Finding> const& findings, std::vector<Packet> const& packets) {
  auto const& acl = *world.acl;
  EntryTruth const truth = truthOf(world, entry, checked, packets);
  Verify::RuleSpan const all(entry.front(), entry.back());
  bool saysSpare = false;
  std::string code;
  for (Finding const& f : findings) {
    if (f.rules.empty() || std::ranges::find(entry, f.rules.front()) == entry.end()) continue;
    std::string_view const kind = f.kind->code;
    if (f.others.empty() && kind != "matches-nothing") continue;
    if (kind == "redundant")
      saysSpare = true;
    else
      code = kind;
    if (kind == "partly-shadowed" || kind == "matches-nothing") continue;
    // Whatever is the cause takes all packets of the entry, and does what the kind says.
    bool const isSame = std::ranges::all_of(f.others, [&](AceIndex other) {
      return acl.ruleById(other)->action() == acl.ruleById(entry.front())->action();
    });
    EXPECT_EQ(isSame, kind == "covered" || kind == "duplicate" || kind == "redundant") << kind;
    for (Packet const& p : packets) {
      auto const decider = slowDecider(acl, p);
      if (kind == "redundant" ? decider && all.has(*decider) : world.matches(entry, p)) {
        EXPECT_TRUE(world.takes(f.others, p)) << kind << " " << p;
      }
    }
    bool const isTwin =
        f.others.size() == 1 && std::ranges::all_of(packets, [&](Packet const& p) {
          return world.matches(entry, p) == world.matches(world.entryWith(f.others.front()), p);
        });
    if (kind != "redundant") {
      EXPECT_EQ(isTwin, kind == "duplicate" || kind == "conflict") << kind;
    }
  }
  // One that only rules which are never reached could stand in for is not told.
  bool hasHeirs = false;
  bool hasIdleHeirs = false;
  for (Packet const& p : packets) {
    auto const decider = slowDecider(acl, p);
    auto const heir = slowDecider(acl, p, all);
    if (!decider || !all.has(*decider) || !heir) continue;
    bool const isIdle = std::ranges::none_of(world.entryWith(*heir), [&](AceIndex rule) {
      return checked.at(rule).reached == Reached::yes;
    });
    (isIdle ? hasIdleHeirs : hasHeirs) = true;
  }
  EXPECT_TRUE(!saysSpare || (truth.isSpare && hasHeirs));
  EXPECT_TRUE(saysSpare || !truth.isSpare || hasIdleHeirs);
  EXPECT_EQ(code == "matches-nothing", truth.nothing == entry.size()) << code;
  bool const saysUnreached =
      !code.empty() && code != "matches-nothing" && code != "partly-shadowed";
  EXPECT_EQ(saysUnreached, !truth.isReached && truth.unreached > 0) << code;
  if (code == "partly-shadowed") {
    EXPECT_TRUE(truth.isReached && truth.unreached > 0);
  }
  return code.empty() && saysSpare ? "redundant" : code;
}

TEST(Check, AgreesWithEveryPacketOfSmallWorlds) {
  std::vector<Packet> const packets = ::Test::smallPackets(true);
  std::map<std::string, size_t> seen;
  for (uint64_t seed = 1; seed <= 500; ++seed) {
    SeededDice dice(seed);
    CheckedWorld const world(dice);
    CheckReport const report = check(world.rules, {});
    std::string text = "seed " + std::to_string(seed);
    for (auto const& [index, rule] : world.acl->ruleById())
      text += "\n" + std::to_string(world.entryOf(index)) + ": " + std::to_string(index.value()) +
              " " + ruleText(*rule, world.rules.lists());
    SCOPED_TRACE(text);
    std::map<AceIndex, CheckedRule> checked;
    for (CheckedRule const& rule : report.acls.at(0).rules) checked.emplace(rule.index, rule);
    ASSERT_EQ(report.entries(), world.entries.size());
    for (auto const& entry : world.entries) {
      SCOPED_TRACE(entry.front().value());
      ++seen[holdEntry(world, entry, checked, report.findings, packets)];
      if (::testing::Test::HasFailure()) return;
    }
  }
  for (char const* code : {"conflict", "shadowed", "covered", "duplicate", "matches-nothing",
                           "redundant", "partly-shadowed"})
    EXPECT_GT(seen[code], 3u) << code;
}

TEST(Check, SaysWhatItsEffortLeavesOpen) {
  RuleSet rules(Obel::ChipId(0));
  ::Test::addRules(*rules.acls(), "a 1 r1 dport 1-9\na 2 r2 dport 3-5 drop\n");
  CheckOptions options;
  options.effort = 0;
  CheckReport const report = check(rules, options);
  ASSERT_EQ(report.findings.size(), 3u);
  EXPECT_EQ(report.findings[0].kind->code, "undecided");
  EXPECT_EQ(report.findings[0].rules.front(), AceIndex(2));
  options.leftOut = {"undecided"};
  EXPECT_EQ(check(rules, options).findings.size(), 2u) << "ports of any protocol";
}

TEST(Search, AgreesWithEveryPacketOfSmallWorlds) {
  using Outcome = SearchedAcl::Outcome;
  std::vector<Packet> const packets = ::Test::smallPackets(true);
  std::map<Outcome, size_t> seen;
  for (uint64_t seed = 1; seed <= 300; ++seed) {
    SeededDice dice(seed);
    RuleSet rules(Obel::ChipId(0));
    ::Test::addRules(*rules.acls(), ::Test::smallRules(dice, true));
    auto const acl = rules.acls()->acl("a");
    acl->afIs(Lumox::ipv4());
    auto const bounds = Naxel::aclConfigCollFactory(Obel::ChipId(0));
    ::Test::addRules(*bounds, ::Test::smallRules(dice, true));
    SearchQuestion question;
    for (auto const& [name, rule] : bounds->acl("a")->ruleByName())
      if (uint64_t const use = rule->ruleFilter() ? dice.below(5) : 4; use < 3)
        (use < 2 ? question.in : question.notIn).push_back({rule->ruleFilter(), std::nullopt});
    constexpr std::array<char const*, 4> wants = {"permit", "drop", "none", "rule:3"};
    std::string const want = wants[dice.below(wants.size())];
    question.wanted = wantedFromText(want);
    question.count = dice.oneIn(2) ? 1 : 100;
    SCOPED_TRACE("seed " + std::to_string(seed) + " " + want);

    std::set<std::optional<AceIndex>> wanted;
    std::set<std::optional<AceIndex>> deciders;
    auto const isIn = [&](Packet const& p) {
      auto const any = [&](std::vector<Pattern> const& all) {
        return std::ranges::any_of(all,
                                   [&](Pattern const& m) { return Verify::matches(*m.filter, p); });
      };
      return (question.in.empty() || any(question.in)) && !any(question.notIn);
    };
    auto const isWanted = [&](std::optional<AceIndex> decider) {
      if (want == "rule:3") return decider == AceIndex(3);
      int const outcome = outcomeOf(*acl, decider);
      return outcome == (want == "none" ? -1 : want == "drop" ? 1 : 0);
    };
    for (Packet const& p : packets) {
      if (!isIn(p)) continue;
      auto const decider = slowDecider(*acl, p);
      deciders.insert(decider);
      if (isWanted(decider)) wanted.insert(decider);
    }
    SearchedAcl const found = searchPackets(rules, question).acls.at(0);
    ++seen[found.outcome];
    ASSERT_EQ(found.outcome, deciders.empty() ? Outcome::outOfBounds
                             : wanted.empty() ? Outcome::none
                                              : Outcome::found);
    ASSERT_EQ(found.packets.size(), std::min(question.count, wanted.size()));
    for (FoundPacket const& f : found.packets) {
      ASSERT_TRUE(f.packet.isPossible() && isIn(f.packet)) << f.packet;
      ASSERT_EQ(slowDecider(*acl, f.packet), f.rule) << f.packet;
      ASSERT_EQ(wanted.erase(f.rule), 1u);
    }
    ASSERT_TRUE(!found.isComplete || wanted.empty());
    if (found.outcome != Outcome::none) continue;
    for (Packet const& p : packets) {
      if (!isIn(p)) continue;
      bool const isTaken = std::ranges::any_of(
          found.takenBy, [&](AceIndex rule) { return slowMatch(*acl, rule, p); });
      ASSERT_TRUE(isTaken || (found.hitsNone && !slowDecider(*acl, p))) << p;
    }
  }
  for (Outcome const outcome : {Outcome::found, Outcome::none, Outcome::outOfBounds})
    EXPECT_GT(seen[outcome], 15u);
}

}  // namespace
}  // namespace NaxelTool
