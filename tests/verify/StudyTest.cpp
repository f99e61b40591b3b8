/// What the study of an ACL says of each rule, held against every packet of small worlds one by one:
/// every combination of the values that its rules tell apart.

#include "support/SmallWorld.h"
#include "support/World.h"
#include "verify/ExactStudy.h"

#include <gtest/gtest.h>

namespace Test {
namespace {

using namespace Naxel;
using Answer = Verify::ExactStudy::Answer;

struct StudiedAcl {
  explicit StudiedAcl(std::string const& rules) : acls(aclConfigCollFactory(Obel::ChipId(0))) {
    addRules(*acls, rules);
    acl = acls->acl("a");
    acl->afIs(Lumox::ipv4());
  }
  std::optional<AceIndex> decider(Verify::Packet const& p,
                                  std::optional<Verify::RuleSpan> const& without) const {
    return slowDecider(*acl, p, without);
  }

  Mox::Ptr<AclConfigColl> acls;
  Mox::Ptr<AclConfig> acl;
};

int outcome(StudiedAcl const& s, std::optional<AceIndex> decider) {
  return outcomeOf(*s.acl, decider);
}

TEST(ExactStudy, AgreesWithEveryPacketOfSmallWorlds) {
  using Packets = Verify::ExactStudy::Packets;
  std::vector<Verify::Packet> const all = smallPackets(false);
  std::vector<Verify::Packet> const possible = smallPackets(true);
  Verify::BddTable const table(Verify::Exact::variables, 1'000'000);
  size_t unreached = 0;
  size_t spare = 0;
  size_t spareTogether = 0;
  for (uint64_t seed = 1; seed <= 400; ++seed) {
    auto const& packets = seed % 2 ? all : possible;
    SeededDice dice(seed);
    std::string const rules = smallRules(dice, seed % 2 == 0);
    SCOPED_TRACE("seed " + std::to_string(seed) + "\n" + rules);
    StudiedAcl const s(rules);
    Verify::ExactStudy study(*s.acl, 20'000, seed % 2 ? Packets::all : Packets::possible);
    for (auto const& [index, rule] : s.acl->ruleById()) {
      SCOPED_TRACE(index.value());
      bool matches = false;
      bool decides = false;
      bool isMissed = false;
      for (Verify::Packet const& p : packets) {
        matches |= !rule->ruleFilter() || Verify::matches(*rule->ruleFilter(), p);
        auto const with = s.decider(p, std::nullopt);
        decides |= with == index;
        isMissed |= outcome(s, with) != outcome(s, s.decider(p, index));
      }
      auto const reach = study.decidedBy(index);
      auto const missed = study.missedWithout(index);
      ASSERT_EQ(study.matchesNothing(index), !matches);
      ASSERT_EQ(reach.found, decides ? Answer::yes : Answer::no);
      ASSERT_EQ(missed.found, isMissed ? Answer::yes : Answer::no);
      if (decides) {
        ASSERT_EQ(s.decider(*reach.packet, std::nullopt), index) << *reach.packet;
        ASSERT_TRUE(seed % 2 || reach.packet->isPossible()) << *reach.packet;
      }
      if (isMissed) {
        ASSERT_NE(outcome(s, s.decider(*missed.packet, std::nullopt)),
                  outcome(s, s.decider(*missed.packet, index)))
            << *missed.packet;
        ASSERT_TRUE(seed % 2 || missed.packet->isPossible()) << *missed.packet;
      }
      unreached += matches && !decides;
      spare += decides && !isMissed;
      if (decides || !matches) continue;
      // The rules that are named do it together, and none of them for nothing.
      for (size_t left = 0; left <= reach.others.size(); ++left) {
        bool const covers = std::ranges::all_of(packets, [&, rule = rule](Verify::Packet const& p) {
          if (rule->ruleFilter() && !Verify::matches(*rule->ruleFilter(), p)) return true;
          for (size_t i = 0; i < reach.others.size(); ++i) {
            auto const& filter = s.acl->ruleById(reach.others[i])->ruleFilter();
            if (i != left && (!filter || Verify::matches(*filter, p))) return true;
          }
          return false;
        });
        ASSERT_EQ(covers, left == reach.others.size()) << "without the " << left << "th";
      }
    }
    // Two neighbours of the same action are taken out together.
    for (auto i = s.acl->ruleById().begin(); i != s.acl->ruleById().end(); ++i) {
      auto const next = std::next(i);
      if (next == s.acl->ruleById().end()) break;
      if (!((*i).second->action() == (*next).second->action())) continue;
      Verify::RuleSpan const both((*i).first, (*next).first);
      bool const isMissed = std::ranges::any_of(packets, [&](Verify::Packet const& p) {
        return outcome(s, s.decider(p, std::nullopt)) != outcome(s, s.decider(p, both));
      });
      bool const found = study.missedWithout(both.first, both).found == Answer::yes ||
                         study.missedWithout(both.last, both).found == Answer::yes;
      ASSERT_EQ(found, isMissed) << both.first.value();
      spareTogether += !isMissed;
    }
    // Any region and any wanted outcome: what is found is one, and what is not found is nowhere.
    int const want = static_cast<int>(dice.below(3)) - 1;
    auto const region = dice.of(packets);
    Verify::Bdd cube(true);
    bool const anySource = dice.oneIn(2);
    for (int bit = 0; bit < 2 && !anySource; ++bit) {
      int const v = Verify::Exact::bitsOf(Lumox::ipv4(), true).first + bit;
      auto const one = Verify::Bdd::variable(v);
      cube = cube & (region.src.hi >> (63 - bit) & 1 ? one : Verify::Bdd(true) - one);
    }
    auto const found =
        study.search(cube, [&](auto const decider) { return outcome(s, decider) == want; });
    bool const isThere = std::ranges::any_of(packets, [&](Verify::Packet const& p) {
      return (anySource || p.src == region.src) && outcome(s, s.decider(p, std::nullopt)) == want;
    });
    ASSERT_EQ(found.found, isThere ? Answer::yes : Answer::no) << want;
    if (isThere) {
      ASSERT_EQ(outcome(s, s.decider(*found.packet, std::nullopt)), want);
    }
  }
  EXPECT_GT(unreached, 100u);
  EXPECT_GT(spare, 30u);
  EXPECT_GT(spareTogether, 30u);
}

TEST(ExactStudy, SaysWhereItsEffortEnds) {
  std::string rules;
  for (int i = 0; i < 16; ++i)
    rules += "a " + std::to_string(i) + " r" + std::to_string(i) + " dport " +
             std::to_string(i * 4096) + "-" + std::to_string(i * 4096 + 4095) + "\n";
  StudiedAcl const s(rules + "a 16 last\n");
  Verify::BddTable const table(Verify::Exact::variables, 1'000'000);
  EXPECT_EQ(Verify::ExactStudy(*s.acl, 15).decidedBy(AceIndex(16)).found, Answer::undecided);
  auto const all = Verify::ExactStudy(*s.acl, 16).decidedBy(AceIndex(16));
  EXPECT_EQ(all.found, Answer::no);
  EXPECT_EQ(all.others.size(), 16u);
}

}  // namespace
}  // namespace Test
