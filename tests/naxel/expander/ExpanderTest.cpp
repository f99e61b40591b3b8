/// From rules as text to the loaded tables.

#include "naxel/expander/NaxelRuleExpanderSm.h"
#include "support/Handshake.h"

#include <bit>

#include <gtest/gtest.h>

using namespace Naxel;
using Test::dump;
using Test::kickOk;
using Test::Traced;
using Test::World;

namespace {

constexpr uint8_t raw = 0;

}  // namespace

TEST(Expander, RulesBecomeEntries) {
  struct Case {
    char const* rules;
    uint8_t ranges, combos;
    char const* wanted;
  };
  Case const cases[] = {
      {"acl a", raw, 0, "acl a ipv4\n"},
      {"", raw, 0, ""},
      {"a 1 r", raw, 0, "acl a ipv4 1:\n"},
      {"a 4294967294 r drop", raw, 0, "acl a ipv4 4294967294: drop\n"},
      {"a 2 r drop\na 1 s init\na 3 t est init", raw, 0,
       "acl a ipv4 1: init\nacl a ipv4 2: drop\nacl a ipv4 3: init est\n"},
      {"a 1 r src 10.0.0.0/8 proto 6 init", raw, 0,
       "ipv4 src: 10.0.0.0/8=0\nacl a ipv4 1: source=0/255 proto=6/255 init\n"},
      // A value without a label is matched in the width of its field.
      {"a 1 r sport 80 icmp 8 proto 6-7 len 0-1023 frag 1 dscp 0,1,2-3\na 2 s dscp 32-63 proto "
       "0-255",
       raw, 0,
       "acl a ipv4 1: sport=80/65535 icmpType=8/255 proto=6/254 length=0/64512 fragment=1/8191 "
       "dscp=0/60\nacl a ipv4 2: dscp=32/32\n"},
      // The product of the pairs of all fields.
      {"a 1 r sport 1-2 dport 4-6", raw, 0,
       "acl a ipv4 1: sport=1/65535 dport=4/65534\nacl a ipv4 1: sport=1/65535 dport=6/65535\n"
       "acl a ipv4 1: sport=2/65535 dport=4/65534\nacl a ipv4 1: sport=2/65535 dport=6/65535\n"},
      // A list that holds nothing gives no entry, whatever else the rule says.
      {"a 1 r src !10.0.0.0/8 proto 6 drop\na 2 s proto 6", raw, 0,
       "ipv4 src: 10.0.0.0/8=255\nacl a ipv4 1: none\nacl a ipv4 2: proto=6/255\n"},
      {"a 1 r src 10.1.0.0/16,!10.0.0.0/8 dst 1.0.0.0/8", raw, 8,
       "ipv4 dst: 1.0.0.0/8=0\nipv4 src: 10.0.0.0/8=255 10.1.0.0/16=255\nacl a ipv4 1: none\n"},
      // Pairs of lists are matched through one label where the chip combines them.
      {"a 1 r src 10.0.0.0/8 dst 11.0.0.0/8 sport 1 dport 2\na 2 s src 10.0.0.0/8 dport 2", 8, 8,
       "ipv4 dst: 11.0.0.0/8=0\nipv4 src: 10.0.0.0/8=0\nsrcPort: 1-1=0\ndstPort: 2-2=0\n"
       "ipv4SrcDstPrefix: 0,0=0\nsrcDstL4Port: 0,0=0\n"
       "acl a ipv4 1: prefixCombo=0/255 portCombo=0/255\n"
       "acl a ipv4 2: source=0/255 dport=0/255\n"},
      // The combination that most rules use is placed first, whichever lists it is the product of.
      {"a 1 r sport 1 dport 5\na 2 s sport 7-8,8-9 dport 8\na 3 t sport 7-9 dport 8 drop", 4, 4,
       "srcPort: 1-1=0 7-9=1\ndstPort: 5-5=0 8-8=1\nsrcDstL4Port: 0,0=1 1,1=0\n"
       "acl a ipv4 1: portCombo=1/15\nacl a ipv4 2: portCombo=0/15\n"
       "acl a ipv4 3: portCombo=0/15 drop\n"},
      // Ports without labels cannot be combined and stay separate fields.
      {"a 1 r src 10.0.0.0/8 dst 11.0.0.0/8 sport 1 dport 2", raw, 8,
       "ipv4 dst: 11.0.0.0/8=0\nipv4 src: 10.0.0.0/8=0\nipv4SrcDstPrefix: 0,0=0\n"
       "acl a ipv4 1: prefixCombo=0/255 sport=1/65535 dport=2/65535\n"},
      {"af a ipv6\nacl b", raw, 0, "acl b ipv4\nacl a ipv6\n"},
      {"a 1 r src 2001:db8::/32,!2001:db8:1::/48 dst ::/0", raw, 8,
       "ipv6 dst: ::/0=0\nipv6 src: 2001:db8::/32=0 2001:db8:1::/48=255\n"
       "ipv6SrcDstPrefix: 0,0=0\nacl a ipv6 1: prefixCombo=0/255\n"},
      // The family may come from another rule, which need not stand at an index.
      {"a 1 r proto 6\na 2 s dst !2001:db8::/32", raw, 0,
       "ipv6 dst: 2001:db8::/32=255\nacl a ipv6 1: proto=6/255\nacl a ipv6 2: none\n"},
      // One except prefix serves two lists: the set's own label differs from the reserved one.
      {"a 1 r src 10.0.0.0/8,!10.1.0.0/16\na 2 s src 10.1.0.0/16", raw, 0,
       "ipv4 src: 10.0.0.0/8=0 10.1.0.0/16=1\n"
       "acl a ipv4 1: source=0/255\nacl a ipv4 2: source=1/255\n"}};
  for (Case const& c : cases) {
    SCOPED_TRACE(c.rules);
    World w(c.rules);
    for (auto const& key : PrefixXformKey::all()) w.capability->prefixXformWidthIs(key, 8);
    for (RangeSetType t : allRangeSetTypes()) w.capability->rangeXformWidthIs(t, c.ranges);
    for (ComboLabelSetType t : allComboLabelSetTypes())
      w.capability->comboXformWidthIs(t, c.combos);
    EXPECT_EQ(w.kick(), NaxelProgress::naxelFinishedSuccess) << w.failureText();
    EXPECT_EQ(dump(w.tables()), c.wanted);
  }
}

TEST(Expander, WhatMultipliesBeyondBoundsIsRefusedAndForgotten) {
  // 4100 labels on either side of a pair, and 2^71 raw entries: no two values of even parity join.
  World labels, unlabelled("a 10 r\na 20 s proto 6\na 30 t dport 1-65534");
  auto const filter = unlabelled.rule("a", "r")->ruleFilterIs();
  for (uint32_t i = 0; i < 65536; ++i) {
    std::string const n = std::to_string(i);
    if (i < 4100) labels.rules("a " + n + " r" + n + " sport " + n + " dport " + n);
    if (std::popcount(i) % 2) continue;
    filter->sportRangeIs({i, i});
    filter->dportRangeIs({i, i});
    filter->lengthIs({i, i});
    if (i < 8192) filter->fragmentIs({i, i});
    if (i < 256) filter->icmpTypeIs({i, i});
    if (i < 256) filter->protoIs({i, i});
  }
  labels.rules("a 5000 all sport 0-4099 dport 0-4099");
  for (RangeSetType type : {RangeSetType::srcPort, RangeSetType::dstPort})
    labels.capability->rangeXformWidthIs(type, 16);
  labels.capability->comboXformWidthIs(ComboLabelSetType::srcDstL4Port, 16);
  for (auto const& [world, reason] :
       {std::pair(&labels, "rule 5000 'all' of 'a' alone has 16,810,000"),
        std::pair(&unlabelled,
                  "at least 18,446,744,073,709,551,615 entries needed for rule 10 'r' of 'a', "
                  "30 for rule 30 't' of 'a', 1 for rule 20 's' of 'a'")}) {
    EXPECT_EQ(world->kick(), NaxelProgress::naxelFinishedFail);
    EXPECT_NE(world->failureText().find(reason), std::string::npos) << world->failureText();
    world->acls->aclDelAll();
    world->rules("b 10 r sport 1 dport 2-3");
    EXPECT_EQ(world->kick(), NaxelProgress::naxelFinishedSuccess) << world->failureText();
  }
}

TEST(Expander, TheEntriesOfAllRulesTogetherAreBounded) {
  Traced const quiet;
  World w(
      "edge 10 wide sport 1-65534 dport 1-65534\nedge 20 narrow proto 6\n"
      "core 5 middle sport 1-65534\ncore 6 small dport 1024-65535\n");
  for (uint64_t limit : {937, 936, 1, 937}) {
    w.params->entryLimitIs(limit);
    EXPECT_EQ(w.kick() == NaxelProgress::naxelFinishedSuccess, limit == 937);
    EXPECT_EQ(w.tables().pdAclColl()->numFilters(), 937u);
    if (limit != 936) continue;
    EXPECT_EQ(w.failureText(),
              "at least 900 entries needed for rule 10 'wide' of 'edge', 30 for rule 5 'middle' of "
              "'core', 6 for rule 6 'small' of 'core'; 937 in all, at most 936 are made");
  }
}

TEST(Expander, ARuleStandsUnderEachOfItsIndexes) {
  World w("edge 1 web proto 6\nedge 2 dns proto 17\n");
  auto const acl = w.acls->acl("edge");
  acl->ruleByIdIs(AceIndex(3), acl->ruleByName("web"));
  kickOk(w);
  EXPECT_EQ(dump(w.tables()),
            "acl edge ipv4 1: proto=6/255\nacl edge ipv4 2: proto=17/255\n"
            "acl edge ipv4 3: proto=6/255\n");
  acl->ruleByIdDel(AceIndex(2));
  acl->ruleByNameDel("web");
  kickOk(w);
  EXPECT_EQ(dump(w.tables()), "acl edge ipv4\n") << "a rule without an index has no entries";
}

TEST(Expander, ASetThatItsTransformHasNotAnsweredForIsNotTakenForOneThatCoversNothing) {
  Traced const quiet;
  World w("edge 10 a src 10.0.0.0/8,!10.0.0.0/8");
  kickOk(w);
  PrefixXformKey const source(Lumox::ipv4(), true);
  auto const config = w.root->ruleExpanderConfig();
  w.root->prefixXformStatus(source)->statusIs(StageStatusType::inProgress);
  config->kickTimeIs(config->kickTime() + 1);
  auto const status = w.root->ruleExpanderStatus();
  EXPECT_EQ(status->status(), StageStatusType::finishedFailed);
  EXPECT_NE(status->failureText().find("there are none for its set"), std::string::npos)
      << status->failureText();
}
