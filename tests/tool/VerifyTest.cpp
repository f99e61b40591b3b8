// That verification notices when tables and rules differ: the rules are changed behind a finished kick.

#include "command/Classify.h"
#include "command/Verify.h"
#include "input/JsonConfigReader.h"

#include <functional>
#include <sstream>

#include <gtest/gtest.h>

namespace NaxelTool {
namespace {

TEST(Verify, ReportsTheFirstDifference) {
  struct Case {
    char const* rules;
    char const* tables;
    std::function<void(Naxel::AclConfig&, Naxel::RuleConfig&)> change;
  };
  Case const cases[] = {
      {"rule 10 'web': permit", "rule 10 'web': permit", [](auto&, auto&) {}},
      {"rule 10 'web': drop", "rule 10 'web': permit",
       [](auto&, Naxel::RuleConfig& web) {
         Naxel::NaxelActionValue drop;
         drop.dropEnabledIs(true);
         web.actionIs(drop);
       }},
      {"rule 20 'rest': drop", "rule 10 'web': permit",
       [](auto&, Naxel::RuleConfig& web) {
         web.ruleFilter()->source()->exceptAddrIs(Lumox::IpGenPrefix::v4(0x0a000000, 9));
       }},
      {"rule 10 'web': permit", "no rule",
       [](auto&, Naxel::RuleConfig& web) {
         web.ruleFilter()->dportRangeIs({81, 81});
       }},
      {"rule 20 'rest': drop", "rule 10: permit",
       [](Naxel::AclConfig& acl, auto&) { acl.ruleByIdDel(Naxel::AceIndex(10)); }},
  };
  for (Case const& c : cases) {
    std::string const said = c.rules, found = c.tables;
    SCOPED_TRACE(said + ", " + found);
    RuleSet rules(Obel::ChipId(0));
    readJsonConfig("f", R"({"schema":"naxel-rules","version":1,"acls":[
      {"name":"a","af":"ipv4","rules":[
        {"index":10,"name":"web","source":["10.0.0.0/8"],"dport":80},
        {"index":20,"name":"rest","source":["10.0.0.0/8"],"dport":80,"action":{"dropEnabled":true}}]}]})",
                   rules);
    Session session(defaultChip(), rules.acls());
    ASSERT_TRUE(session.kick());
    auto const acl = rules.acls()->acl("a");
    c.change(*acl, *acl->ruleByName("web"));
    std::ostringstream out;
    EXPECT_EQ(verify(session, 2000, 1, out), said == found) << out.str();
    EXPECT_EQ(out.str().find("\n  packet: ipv4 ") == std::string::npos, said == found);
    std::string const difference = "\n  rules:  " + said + "\n  tables: " + found + "\n  labels: ";
    EXPECT_EQ(out.str().find(difference) == std::string::npos, said == found) << out.str();

    // One packet that each change but the wider ports concerns.
    Verify::Packet packet;
    packet.src = Verify::ipv4Address(0x0a000001);
    packet.dport = found == "no rule" ? 81 : 80;
    std::ostringstream why;
    EXPECT_EQ(classify(session, packet, "", why), said == found);
    std::string const answer = "a: " + found + "\n  " +
                               (said == found ? "because  source lies in 10.0.0.0/8\n"
                                              : "but the rules say: " + said + "\n");
    EXPECT_NE(why.str().find(answer), std::string::npos) << why.str();
  }
}

}  // namespace
}  // namespace NaxelTool
