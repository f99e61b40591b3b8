/// The oracle on rules as text, and the packets that are made from rules.

#include "support/Output.h"
#include "support/World.h"
#include "verify/PacketSource.h"
#include "verify/RuleOracle.h"

#include <algorithm>
#include <map>

#include <gtest/gtest.h>

namespace Verify {
namespace {

using Naxel::AceIndex;
using Naxel::AclConfigColl;
using Naxel::RangeSetType;

/// The ACL "a" of rules in the form of Test::addRules(), without the ACL's name.
Mox::Ptr<Naxel::AclConfig> aclOf(std::vector<std::string> const& rules) {
  auto const coll = Mox::makePtr<AclConfigColl>(Obel::ChipId(0));
  coll->aclIs("a");
  uint32_t index = 0;
  for (std::string const& rule : rules) {
    index += 10;
    auto const at = std::to_string(index);
    Test::addRules(*coll, "a " + at + " r" + at + " " + rule);
  }
  return coll->acl("a");
}

struct PacketText {
  Packet packet;
  explicit PacketText(std::string const& addresses, std::string const& rest = {}) {
    size_t const gap = addresses.find(' ');
    packet = packetOf(addresses.substr(0, gap), addresses.substr(gap + 1));
    std::istringstream in(rest);
    for (std::string key; in >> key;) {
      if (key == "syn")
        packet.syn = true;
      else if (key == "ack")
        packet.ack = true;
      else if (key == "rst")
        packet.rst = true;
      else {
        unsigned v = 0;
        in >> v;
        packet.valueIs(*Mox::instanceFromText<RangeSetType>(key), static_cast<uint16_t>(v));
      }
    }
  }
};

TEST(RuleOracle, TheFirstRuleWhoseConstraintsAllHoldDecides) {
  struct Case {
    char const* name;
    std::vector<std::string> rules;
    PacketText packet;
    uint32_t rule;  // 0: none
  };
  std::string const net = "10.1.2.3 20.0.0.1";
  for (Case const& c : std::initializer_list<Case>{
           {"no rules", {}, PacketText(net), 0},
           {"no filter", {""}, PacketText(net), 10},
           {"order", {"src 11.0.0.0/8", "src 10.0.0.0/8", ""}, PacketText(net), 20},
           {"host bits", {"src 10.9.9.9/8"}, PacketText(net), 10},
           {"destination", {"dst 10.0.0.0/8", "dst 20.0.0.0/24"}, PacketText(net), 20},
           {"except", {"src 10.0.0.0/8,!10.1.0.0/16", "src 10.0.0.0/8"}, PacketText(net), 20},
           {"outside except", {"src 10.0.0.0/8,!10.2.0.0/16"}, PacketText(net), 10},
           {"except beats longer", {"src 10.1.2.0/24,!10.1.0.0/16"}, PacketText(net), 0},
           {"only excepts", {"src !11.0.0.0/8"}, PacketText(net), 0},
           {"nested", {"src 10.1.2.3/32,10.0.0.0/8,10.1.0.0/16"}, PacketText(net), 10},
           {"/0", {"src 0.0.0.0/0 dst 0.0.0.0/0"}, PacketText("255.255.255.255 0.0.0.0"), 10},
           {"range start", {"dport 80-90"}, PacketText(net, "dstPort 80"), 10},
           {"range end", {"dport 80-90"}, PacketText(net, "dstPort 90"), 10},
           {"before range", {"dport 80-90"}, PacketText(net, "dstPort 79"), 0},
           {"behind range", {"dport 80-90"}, PacketText(net, "dstPort 91"), 0},
           {"byte border", {"dport 255-256"}, PacketText(net, "dstPort 256"), 10},
           {"second range", {"sport 1,7-9"}, PacketText(net, "srcPort 8"), 10},
           {"wrong side", {"sport 8"}, PacketText(net, "dstPort 8"), 0},
           {"all fields",
            {"icmp 1 proto 2 len 3 frag 4 dscp 5"},
            PacketText(net, "icmp 1 proto 2 length 3 fragment 4 dscp 5"),
            10},
           {"one field wrong",
            {"icmp 1 proto 2 len 3 frag 4 dscp 5"},
            PacketText(net, "icmp 1 proto 2 length 3 fragment 4 dscp 6"),
            0},
           {"init", {"est", "init"}, PacketText(net, "proto 6 syn"), 20},
           {"init with reset", {"est", "init"}, PacketText(net, "proto 6 syn rst"), 10},
           {"established", {"init", "est"}, PacketText(net, "proto 6 syn ack"), 20},
           {"both flags", {"init est"}, PacketText(net, "proto 6 syn rst"), 10},
           {"one of both", {"init est"}, PacketText(net, "proto 6 syn"), 0},
           {"flags in UDP", {"init", "est", "proto 17"}, PacketText(net, "proto 17 syn ack"), 30},
           {"no flags wanted", {"proto 6"}, PacketText(net, "proto 6 syn"), 10},
           {"other family", {"src 10.0.0.0/8", ""}, PacketText(":: ::"), 0},
           {"assumed family", {"proto 6"}, PacketText(":: ::", "proto 6"), 0},
           {"family of a later rule", {"", "src !2001::/16"}, PacketText(":: ::"), 10},
           {"IPv6",
            {"src 2001:db8::/33", "src 2001:db8:8000::/33"},
            PacketText("2001:db8:8000::1 ::"),
            20},
       }) {
    SCOPED_TRACE(c.name);
    auto const acl = aclOf(c.rules);
    std::optional<AceIndex> const wanted = c.rule ? std::optional(AceIndex(c.rule)) : std::nullopt;
    EXPECT_EQ(firstMatch(*acl, c.packet.packet), wanted);
    EXPECT_EQ(RuleOracle(*acl).firstMatch(c.packet.packet), wanted);
  }
}

TEST(RuleOracle, TheConfiguredFamilyGoesBeforeThatOfThePrefixes) {
  auto const acl = aclOf({"proto 6"});
  acl->afIs(Lumox::ipv6());
  EXPECT_EQ(firstMatch(*acl, PacketText(":: ::", "proto 6").packet), AceIndex(10));
  EXPECT_EQ(RuleOracle(*acl).firstMatch(PacketText("1.1.1.1 1.1.1.1", "proto 6").packet),
            std::nullopt);
}

/// Rules over a small universe, so that they overlap in every way.
std::vector<std::string> randomRules(Random& random, size_t count, bool six) {
  auto const prefix = [&] {
    std::string const part = std::to_string(random.below(3));
    std::string const host = std::to_string(random.below(2));
    if (six) {
      static char const* const lengths[] = {"/0", "/17", "/40", "/64", "/71", "/128"};
      return "200" + part + ":" + part + "::" + host + lengths[random.below(6)];
    }
    static char const* const lengths[] = {"/0", "/7", "/12", "/16", "/31", "/32"};
    return "1" + part + ".1" + part + ".0." + host + lengths[random.below(6)];
  };
  auto const list = [&] {
    std::string out = random.oneIn(12) ? "!" : "";
    out += prefix();
    while (random.oneIn(2)) out += (random.oneIn(2) ? ",!" : ",") + prefix();
    return out;
  };
  auto const ranges = [&](uint32_t bound) {
    std::string out;
    do {
      uint64_t const first = random.oneIn(2) ? random.below(5) : random.below(bound + 1);
      uint64_t const width = random.oneIn(2) ? random.below(3) : random.below(1 + bound / 2);
      uint64_t const last = std::min<uint64_t>(bound, first + width);
      out += (out.empty() ? "" : ",") + std::to_string(first) + "-" + std::to_string(last);
    } while (random.oneIn(3));
    return out;
  };
  std::vector<std::string> rules;
  for (size_t i = 0; i < count; ++i) {
    std::string rule;
    if (!random.oneIn(4)) rule += " src " + list();
    if (!random.oneIn(4)) rule += " dst " + list();
    for (Naxel::RangeField const& field : Naxel::rangeFields)
      if (random.oneIn(5)) rule += " " + std::string(field.name) + " " + ranges(field.bound());
    if (random.oneIn(8)) rule += " init";
    if (random.oneIn(8)) rule += " est";
    rules.push_back(rule);
  }
  return rules;
}

TEST(RuleOracle, TheIndexedOracleIsTheDirectOne) {
  for (uint64_t seed = 1; seed <= 6; ++seed) {
    SCOPED_TRACE(seed);
    Random random(seed);
    auto const acl = aclOf(randomRules(random, seed % 2 ? 150 : 40, seed % 3 == 0));
    RuleOracle const oracle(*acl);
    PacketSource source(*acl, seed);
    std::map<std::optional<AceIndex>, size_t> seen;
    for (int i = 0; i < 3000; ++i) {
      Packet const packet = source.next();
      auto const direct = firstMatch(*acl, packet);
      ASSERT_EQ(oracle.firstMatch(packet), direct) << packet;
      ++seen[direct];
    }
    EXPECT_GT(seen.size(), 10u);
  }
}

TEST(PacketSource, PacketsInsideARuleMatchItWhereverAnythingDoes) {
  Random random(7);
  auto rules = randomRules(random, 200, false);
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
    auto const rule = acl->ruleById(AceIndex(static_cast<uint32_t>(10 * i + 10)));
    for (int n = 0; n < 50; ++n) {
      auto const packet = source.inside(i);
      if (i < nothing.size()) {
        EXPECT_FALSE(packet);
      } else if (i < nothing.size() + hard.size()) {
        EXPECT_TRUE(packet);
      }
      bool const matched = matches(*rule->ruleFilterIs(), packet ? *packet : source.next());
      EXPECT_EQ(matched, packet.has_value());
      if (!packet) ++empty;
    }
  }
  EXPECT_LT(empty, 80u * 50);
}

}  // namespace
}  // namespace Verify
