// Patterns of packets as text: what is written of a rule reads back as the same, and what is wrong is told
// at its place.

#include "output/RuleText.h"
#include "packets/PatternText.h"
#include "support/Vocabulary.h"
#include "support/World.h"
#include "verify/PacketSource.h"
#include "verify/RuleOracle.h"

#include <gtest/gtest.h>

namespace NaxelTool {
namespace {

TEST(Patterns, WhatIsWrittenReadsBackAsTheSame) {
  for (uint64_t seed = 1; seed <= 400; ++seed) {
    ::Test::SeededDice dice(seed);
    ::Test::Vocabulary words(dice);
    auto const af = dice.oneIn(2) ? Lumox::ipv4() : Lumox::ipv6();
    auto const acls = Naxel::aclConfigCollFactory(Obel::ChipId(0));
    ::Test::addRules(*acls, "a 1 r " + words.filter(af) + "\n");
    auto const acl = acls->acl("a");
    acl->afIs(af);
    auto const rule = acl->ruleByName("r");
    NamedLists lists;
    if (rule->ruleFilter() && rule->ruleFilter()->source() && dice.oneIn(2))
      lists.nameIs(rule->ruleFilter()->source(), dice.oneIn(2) ? "web-1" : "1 [odd]: name");
    std::string const text = patternText(rule->ruleFilter().get(), lists);
    SCOPED_TRACE(text);
    if (text.find(" ... (") != std::string::npos) {
      EXPECT_THROW(patternFromText(text, lists), LineError);
      continue;
    }
    Pattern const read = patternFromText(text, lists);
    EXPECT_EQ(patternText(read.filter.get(), lists), text);
    Verify::PacketSource source(*acl, seed);
    for (int i = 0; i < 100; ++i) {
      Verify::Packet const p = source.next();
      if (p.af != af) continue;
      EXPECT_EQ(Verify::matches(*read.filter, p), Verify::firstMatch(*acl, p).has_value()) << p;
    }
  }
}

TEST(Patterns, ReadAsPeopleWriteThem) {
  struct Case {
    char const* text;
    char const* meaning;  ///< as it is written, or from the column on what is wrong
  };
  NamedLists lists;
  auto const list = Mox::makePtr<Naxel::IpPrefixList>();
  list->addrIs(prefixFromText("10.0.0.0/8"));
  lists.nameIs(list, "web");
  for (Case const& c : {
           Case{"tcp  any\t> 10.0.0.1:https init", "tcp any > 10.0.0.1/32:443 init"},
           {"gre any > {10.0.0.1}", "proto 47 any > 10.0.0.1/32"},
           {"udp [web]:1-5,7 > \"web\" dscp ef", "udp web:1-5,7 > web dscp 46"},
           {"ip any except 10.0.0.0/8 > any", "ip 0.0.0.0/0 except 10.0.0.0/8 > any"},
           {"icmp6 [::/0 except {2001::/16 2002::/16}] > any type 1-4",
            "icmp6 ::/0 except {2001::/16 2002::/16} > any type 1-4"},
           {"tcp any > [2001:db8::1]:0x50", "tcp any > [2001:db8::1/128]:80"},
           {"proto 6,17 any > any frag 0", "proto 6,17 any > any frag 0"},
           {"", "1 there is no protocol"},
           {"tcp any", "8 there is no '>' behind the source"},
           {"tcp any any", "9 expected '>' between source and destination"},
           {"tcp any > wob", "11 there is no list 'wob'"},
           {"tcp any > 10.0.0.0/33", "11 "},
           {"tcp any > [10.0.0.0/8:80", "12 "},
           {"tcp any > {10.0.0.0/8", "22 expected '}'"},
           {"tcp any > [web except 10.0.0.0/9]", "12 only prefixes have exceptions, not lists"},
           {"tcp any > \"web", "11 the quote has no end"},
           {"tcp web > 2001::/16", "11 the addresses are of different families"},
           {"icmp any > 2001::/16", "1 the ICMP of IPv6 is written 'icmp6'"},
           {"tcp any > any:80-", "18 expected destination port, a number, instead of ''"},
           {"tcp any > any:80-79", "15 the range ends before it begins"},
           {"tcp any > any:65536", "15 destination port must be at most 65535"},
           {"tcp any > any len 1 len 2", "25 this is said twice"},
           {"tcp any > any syn", "15 packets are told apart by no 'syn'"},
       }) {
    SCOPED_TRACE(c.text);
    try {
      EXPECT_EQ(patternText(patternFromText(c.text, lists).filter.get(), lists), c.meaning);
    } catch (LineError const& e) {
      std::string const said = std::to_string(e.at().offset + 1) + " " + e.what();
      EXPECT_EQ(said.substr(0, std::string(c.meaning).size()), c.meaning);
    }
  }
}

}  // namespace
}  // namespace NaxelTool
