/// The oracle on rules as text, and the packets that are made from rules.

#include "support/Output.h"
#include "support/Vocabulary.h"
#include "support/World.h"
#include "verify/PacketSource.h"
#include "verify/RuleOracle.h"

#include <set>
#include <sstream>

#include <gtest/gtest.h>

namespace Verify {
namespace {

using Naxel::AceIndex;
using Naxel::RangeSetType;

/// The ACL "a" of rules in the form of Test::addRules(), without the ACL's name.
Mox::Ptr<Naxel::AclConfig> aclOf(std::vector<std::string> const& rules) {
  auto const coll = Mox::makePtr<Naxel::AclConfigColl>(Obel::ChipId(0));
  coll->aclIs("a");
  uint32_t index = 0;
  for (std::string const& rule : rules) {
    index += 10;
    auto const at = std::to_string(index);
    Test::addRules(*coll, "a " + at + " r" + at + " " + rule);
  }
  return coll->acl("a");
}

/// Rules over a small universe, so that they overlap in every way; few that match nearly everything.
std::vector<std::string> randomRules(uint64_t seed, size_t count, bool six) {
  Test::SeededDice dice(seed);
  Test::Vocabulary words(dice);
  auto const af = six ? Lumox::ipv6() : Lumox::ipv4();
  std::vector<std::string> rules(count);
  for (std::string& rule : rules) rule = "src " + words.list(af) + " " + words.filter(af);
  return rules;
}

/// "SOURCE DESTINATION" and then flags and fields with their values.
Packet packetFrom(std::string const& text) {
  std::istringstream in(text);
  std::string src, dst;
  in >> src >> dst;
  Packet packet = packetOf(src, dst);
  for (std::string word; in >> word;) {
    bool* const flag = word == "syn"   ? &packet.syn
                       : word == "ack" ? &packet.ack
                       : word == "rst" ? &packet.rst
                                       : nullptr;
    uint16_t value = 0;
    if (flag)
      *flag = true;
    else if (in >> value)
      packet.valueIs(*Mox::instanceFromText<RangeSetType>(word), value);
  }
  return packet;
}

TEST(RuleOracle, TheFirstRuleWhoseConstraintsAllHoldDecides) {
  struct Case {
    std::vector<std::string> rules;
    std::string packet;
    uint32_t rule;  // 0: none
  };
  std::string const net = "10.1.2.3 20.0.0.1";
  std::string const fields = "icmp 1 proto 2 len 3 frag 4 dscp 5";
  for (Case const& c : {
           Case{{}, net, 0},
           Case{{""}, net, 10},
           Case{{"src 11.0.0.0/8", "src 10.0.0.0/8", ""}, net, 20},
           Case{{"src 10.9.9.9/8"}, net, 10},
           Case{{"dst 10.0.0.0/8", "dst 20.0.0.0/24"}, net, 20},
           Case{{"src 10.0.0.0/8,!10.1.0.0/16", "src 10.0.0.0/8"}, net, 20},
           Case{{"src 10.0.0.0/8,!10.2.0.0/16"}, net, 10},
           Case{{"src 10.1.2.0/24,!10.1.0.0/16"}, net, 0},  // the longer prefix does not win
           Case{{"src !11.0.0.0/8"}, net, 0},
           Case{{"src 10.1.2.3/32,10.0.0.0/8,10.1.0.0/16"}, net, 10},
           Case{{"src 0.0.0.0/0 dst 0.0.0.0/0"}, "255.255.255.255 0.0.0.0", 10},
           Case{{"dport 80-90"}, net + " dstPort 80", 10},
           Case{{"dport 80-90"}, net + " dstPort 90", 10},
           Case{{"dport 80-90"}, net + " dstPort 79", 0},
           Case{{"dport 80-90"}, net + " dstPort 91", 0},
           Case{{"dport 255-256"}, net + " dstPort 256", 10},
           Case{{"sport 1,7-9"}, net + " srcPort 8", 10},
           Case{{"sport 8"}, net + " dstPort 8", 0},
           Case{{fields}, net + " icmp 1 proto 2 length 3 fragment 4 dscp 5", 10},
           Case{{fields}, net + " icmp 1 proto 2 length 3 fragment 4 dscp 6", 0},
           Case{{"est", "init"}, net + " proto 6 syn", 20},
           Case{{"est", "init"}, net + " proto 6 syn rst", 10},
           Case{{"init", "est"}, net + " proto 6 syn ack", 20},
           Case{{"init est"}, net + " proto 6 syn rst", 10},
           Case{{"init est"}, net + " proto 6 syn", 0},
           Case{{"init", "est", "proto 17"}, net + " proto 17 syn ack", 30},
           Case{{"proto 6"}, net + " proto 6 syn", 10},
           Case{{"src 10.0.0.0/8", ""}, ":: ::", 0},
           Case{{"proto 6"}, ":: :: proto 6", 0},  // without any prefix the family is IPv4
           Case{{"proto 6\naf a ipv6"}, ":: :: proto 6", 10},
           Case{{"proto 6\naf a ipv6"}, net + " proto 6", 0},
           Case{{"", "src !2001::/16"}, ":: ::", 10},
           Case{{"src 2001:db8::/33", "src 2001:db8:8000::/33"}, "2001:db8:8000::1 ::", 20},
       }) {
    SCOPED_TRACE(c.packet + " in " + testing::PrintToString(c.rules));
    auto const acl = aclOf(c.rules);
    Packet const packet = packetFrom(c.packet);
    std::optional<AceIndex> const wanted = c.rule ? std::optional(AceIndex(c.rule)) : std::nullopt;
    EXPECT_EQ(firstMatch(*acl, packet), wanted);
    EXPECT_EQ(RuleOracle(*acl).firstMatch(packet), wanted);
  }
}

TEST(RuleOracle, TheIndexedOracleIsTheDirectOne) {
  std::set<std::pair<uint64_t, std::optional<AceIndex>>> seen;
  for (uint64_t seed = 1; seed <= 12; ++seed) {
    SCOPED_TRACE(seed);
    auto const acl = aclOf(randomRules(seed, seed % 2 ? 150 : 40, seed % 3 == 0));
    RuleOracle const oracle(*acl);
    PacketSource source(*acl, seed);
    for (int i = 0; i < 2000; ++i) {
      Packet const packet = source.next();
      auto const direct = firstMatch(*acl, packet);
      ASSERT_EQ(oracle.firstMatch(packet), direct) << packet;
      seen.emplace(seed, direct);
    }
  }
  EXPECT_GT(seen.size(), 200u);
}

TEST(PacketSource, PacketsInsideARuleMatchItWhereverAnythingDoes) {
  auto rules = randomRules(7, 200, false);
  // What is left of these lists is hard to hit by chance.
  std::vector<std::string> const hard = {
      "src 10.0.0.0/8,!10.0.0.0/9,!10.128.0.0/10,!10.192.0.0/11,!10.224.0.0/32",
      "src 10.0.0.4/30,!10.0.0.4/31,!10.0.0.7/32", "src 0.0.0.0/0,!0.0.0.0/1,!128.0.0.0/2 init est",
      "proto 5-7 est sport 65535"};
  std::vector<std::string> const nothing = {
      "src !10.0.0.0/8", "src 10.0.0.0/8,!10.0.0.0/9,!10.128.0.0/9", "proto 17 init"};
  rules.insert(rules.begin(), hard.begin(), hard.end());
  rules.insert(rules.begin(), nothing.begin(), nothing.end());
  auto const acl = aclOf(rules);
  PacketSource source(*acl, 1);
  ASSERT_EQ(source.rules(), rules.size());
  size_t empty = 0;
  for (size_t i = 0; i < rules.size(); ++i) {
    SCOPED_TRACE(rules[i]);
    auto const rule = acl->ruleById(AceIndex(10 * i + 10));
    for (int n = 0; n < 50; ++n) {
      auto const packet = source.inside(i);
      EXPECT_TRUE(i >= nothing.size() + hard.size() || packet.has_value() == (i >= nothing.size()));
      bool const matched = matches(*rule->ruleFilterIs(), packet ? *packet : source.next());
      EXPECT_EQ(matched, packet.has_value());
      empty += !packet;
    }
  }
  EXPECT_LT(empty, 120u * 50);
}

}  // namespace
}  // namespace Verify
