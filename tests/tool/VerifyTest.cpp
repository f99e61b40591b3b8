// That verification notices when tables and rules differ: the rules are changed behind a finished kick.

#include "answers/Explanation.h"
#include "command/Verify.h"
#include "session/Session.h"
#include "support/World.h"

#include <sstream>

#include <gtest/gtest.h>

namespace NaxelTool {
namespace {

TEST(Verify, ReportsTheFirstDifference) {
  struct Case {
    char const* web;  ///< the filter that the rule gets; none deletes the rule
    std::string rules, tables;
  };
  for (Case const& c : {
           Case{"src 10.0.0.0/8 dport 80", "rule 10 'web': permit", "rule 10 'web': permit"},
           {"src 10.0.0.0/8 dport 80 drop", "rule 10 'web': drop", "rule 10 'web': permit"},
           {"src 10.0.0.0/8,!10.0.0.0/9 dport 80", "rule 20 'rest': drop", "rule 10 'web': permit"},
           {"src 10.0.0.0/8 dport 80-81", "rule 10 'web': permit", "no rule"},
           {"", "rule 20 'rest': drop", "rule 10: permit"},
       }) {
    SCOPED_TRACE(c.web);
    bool const same = c.rules == c.tables;
    auto const acls = Naxel::aclConfigCollFactory(Obel::ChipId(0));
    ::Test::addRules(*acls,
                     "a 10 web src 10.0.0.0/8 dport 80\na 20 rest src 10.0.0.0/8 dport 80 drop\n");
    Session session(defaultChip(), acls);
    ASSERT_TRUE(session.kick());
    ::Test::fillFilter(*acls->acl("a")->ruleByName("web"), c.web);
    if (!*c.web) acls->acl("a")->ruleByIdDel(Naxel::AceIndex(10));
    std::ostringstream out;
    EXPECT_EQ(verify(session, 2000, 1, out), same);
    EXPECT_EQ(out.str().find("\n  packet: ipv4 ") == std::string::npos, same);
    std::string const difference =
        "\n  rules:  " + c.rules + "\n  tables: " + c.tables + "\n  labels: ";
    EXPECT_EQ(out.str().find(difference) == std::string::npos, same) << out.str();

    // One packet that each change but the wider ports concerns.
    Verify::Packet packet;
    packet.src = Verify::ipv4Address(0x0a000001);
    packet.dport = c.tables == "no rule" ? 81 : 80;
    std::ostringstream why;
    RuleSet const none(Obel::ChipId(0));
    PacketExplanation const explanation = explainPacket(session, none, packet, "", {});
    EXPECT_EQ(explanation.differences(), same ? 0u : 1u);
    print(why, explanation, none);
    EXPECT_NE(why.str().find("a: " + c.tables + "\n" +
                             (same ? "  rule     permit  ip 10.0.0.0/8 > any:80\n"
                                     "  because  source 10.0.0.1 lies in 10.0.0.0/8\n"
                                   : "  but the rules say: " + c.rules + "\n")),
              std::string::npos)
        << why.str();
  }
}

TEST(Verify, LooksAtEveryOneOfManyAcls) {
  auto const acls = Naxel::aclConfigCollFactory(Obel::ChipId(0));
  for (int i = 10; i < 60; ++i) {
    std::string const acl = "a" + std::to_string(i);
    ::Test::addRules(*acls,
                     acl + " 1 x src 10." + std::to_string(i) + ".0.0/16\n" + acl + " 2 y drop\n");
  }
  Session session(defaultChip(), acls);
  ASSERT_TRUE(session.kick());
  std::ostringstream out;
  EXPECT_TRUE(verify(session, 3000, 1, out));
  EXPECT_NE(out.str().find("total: 3000 packets, 0 differences, 100 of 100 rules reached\n"),
            std::string::npos)
      << out.str();
  ::Test::fillFilter(*acls->acl("a37")->ruleByName("x"), "src 10.37.0.0/17");
  EXPECT_FALSE(verify(session, 3000, 1, out));
}

}  // namespace
}  // namespace NaxelTool
