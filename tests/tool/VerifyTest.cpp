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
    char const* name;
    std::function<void(Naxel::AclConfig&)> change;
    char const* rules;
    char const* tables;
  };
  auto const web = [](Naxel::AclConfig& acl) { return acl.ruleByName("web"); };
  Case const cases[] = {
      {"nothing", [](Naxel::AclConfig&) {}, "", ""},
      {"action",
       [&](Naxel::AclConfig& acl) {
         Naxel::NaxelActionValue drop;
         drop.dropEnabledIs(true);
         web(acl)->actionIs(drop);
       },
       "rule 10 'web': drop", "rule 10 'web': permit"},
      {"narrower",
       [&](Naxel::AclConfig& acl) {
         web(acl)->ruleFilter()->source()->exceptAddrIs(Lumox::IpGenPrefix::v4(0x0a000000, 9));
       },
       "no rule", "rule 10 'web': permit"},
      {"wider by one port",
       [&](Naxel::AclConfig& acl) {
         web(acl)->ruleFilter()->dportRangeIs({81, 81});
       },
       "rule 10 'web': permit", "no rule"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.name);
    RuleSet rules(Obel::ChipId(0));
    readJsonConfig("f", R"({"schema":"naxel-rules","version":1,"acls":[
      {"name":"a","af":"ipv4","rules":[{"index":10,"name":"web","source":["10.0.0.0/8"],"dport":80}]}]})",
                   rules);
    Session session(defaultChip(), rules.acls());
    ASSERT_TRUE(session.kick());
    c.change(*rules.acls()->acl("a"));
    std::ostringstream out;
    bool const same = *c.rules == 0;
    EXPECT_EQ(verify(session, 2000, 1, out), same) << out.str();
    if (same) continue;
    EXPECT_NE(out.str().find("\n  packet: ipv4 "), std::string::npos) << out.str();
    EXPECT_NE(out.str().find(std::string("\n  rules:  ") + c.rules + "\n  tables: " + c.tables +
                             "\n  labels: "),
              std::string::npos)
        << out.str();
  }
}

TEST(Classify, SaysWhereTablesAndRulesDiffer) {
  RuleSet rules(Obel::ChipId(0));
  readJsonConfig("f", R"({"schema":"naxel-rules","version":1,"acls":[
    {"name":"a","af":"ipv4","rules":[{"index":10,"name":"web","dport":80}]}]})",
                 rules);
  Session session(defaultChip(), rules.acls());
  ASSERT_TRUE(session.kick());
  rules.acls()->acl("a")->ruleByIdDel(Naxel::AceIndex(10));
  Verify::Packet packet;
  packet.dport = 80;
  std::ostringstream out;
  EXPECT_FALSE(classify(session, packet, "", out));
  EXPECT_NE(out.str().find("a: rule 10: permit\n  but the rules say: no rule\n"), std::string::npos)
      << out.str();
}

}  // namespace
}  // namespace NaxelTool
