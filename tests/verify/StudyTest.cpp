/// What the study of an ACL says of each rule, held against every packet of small worlds one by one:
/// every combination of the values that its rules tell apart.

#include "support/Vocabulary.h"
#include "support/World.h"
#include "verify/ExactStudy.h"

#include <gtest/gtest.h>

namespace Test {
namespace {

using namespace Naxel;
using Answer = Verify::ExactStudy::Answer;

/// Few values for each field, so that rules overlap, cover each other together and part again.
std::string smallAcl(Dice& dice) {
  std::string out;
  uint64_t const rules = dice.between(2, 7);
  for (uint64_t i = 0; i < rules; ++i) {
    out += "a " + std::to_string(i * 3) + " r" + std::to_string(i);
    auto const prefixes = [&](char const* side) {
      if (dice.oneIn(3)) return;
      out += std::string(" ") + side + " " +
             dice.of<std::string>({"0.0.0.0/1", "128.0.0.0/1", "0.0.0.0/2", "64.0.0.0/2",
                                   "0.0.0.0/1,!64.0.0.0/2", "64.0.0.0/2,!64.0.0.0/2"});
    };
    prefixes("src");
    prefixes("dst");
    if (dice.oneIn(2))
      out += " dport " + dice.of<std::string>({"0-9", "10-65535", "5-20", "5", "21-65535"});
    if (dice.oneIn(2)) out += " proto " + dice.of<std::string>({"6", "17", "0-16", "7-255"});
    if (dice.oneIn(4)) out += dice.oneIn(2) ? " init" : " est";
    if (dice.oneIn(3)) out += " drop";
    out += "\n";
  }
  return out;
}

std::vector<Verify::Packet> allPackets() {
  std::vector<Verify::Packet> out;
  for (uint64_t const src : {0u, 1u, 2u})
    for (uint64_t const dst : {0u, 1u, 2u})
      for (uint16_t const dport : {0, 5, 6, 10, 21})
        for (uint16_t const proto : {0, 6, 7, 17, 18})
          for (unsigned flags = 0; flags < (proto == 6 ? 4u : 1u); ++flags) {
            Verify::Packet& p = out.emplace_back();
            p.src = {src << 62, 0};
            p.dst = {dst << 62, 0};
            p.dport = dport;
            p.proto = proto;
            p.syn = flags & 1;
            p.ack = flags & 2;
          }
  return out;
}

struct StudiedAcl {
  explicit StudiedAcl(std::string const& rules) : acls(aclConfigCollFactory(Obel::ChipId(0))) {
    addRules(*acls, rules);
    acl = acls->acl("a");
    acl->afIs(Lumox::ipv4());
  }
  std::optional<AceIndex> decider(Verify::Packet const& p, std::optional<AceIndex> without) const {
    for (auto const& [index, rule] : acl->ruleById())
      if (index != without && (!rule->ruleFilter() || Verify::matches(*rule->ruleFilter(), p)))
        return index;
    return std::nullopt;
  }

  Mox::Ptr<AclConfigColl> acls;
  Mox::Ptr<AclConfig> acl;
};

/// Which outcome a packet gets; -1: none.
int outcome(StudiedAcl const& s, std::optional<AceIndex> decider) {
  return decider ? s.acl->ruleById(*decider)->action().dropEnabled() : -1;
}

TEST(ExactStudy, AgreesWithEveryPacketOfSmallWorlds) {
  std::vector<Verify::Packet> const packets = allPackets();
  Verify::BddTable const table(Verify::Exact::variables, 1'000'000);
  size_t unreached = 0;
  size_t spare = 0;
  for (uint64_t seed = 1; seed <= 300; ++seed) {
    SeededDice dice(seed);
    std::string const rules = smallAcl(dice);
    SCOPED_TRACE("seed " + std::to_string(seed) + "\n" + rules);
    StudiedAcl const s(rules);
    Verify::ExactStudy study(*s.acl);
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
      }
      if (isMissed) {
        ASSERT_NE(outcome(s, s.decider(*missed.packet, std::nullopt)),
                  outcome(s, s.decider(*missed.packet, index)))
            << *missed.packet;
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
