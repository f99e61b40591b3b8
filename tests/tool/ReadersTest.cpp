// What the readers make of rule files, and the errors they report.

#include "input/ChipReader.h"
#include "input/ClassBenchReader.h"
#include "input/JsonConfigReader.h"

#include <sstream>

#include <gtest/gtest.h>

namespace NaxelTool {
namespace {

template <class Coll>
std::string dumpRanges(std::string const& name, Coll const& coll) {
  std::string out;
  for (auto const& r : coll) {
    out += out.empty() ? " " + name + "{" : " ";
    out += std::to_string(r.rangeStart());
    if (r.rangeEnd() != r.rangeStart()) out += "-" + std::to_string(r.rangeEnd());
  }
  return out.empty() ? out : out + "}";
}

std::string dumpList(std::string const& name, Mox::Ptr<Naxel::IpPrefixList> const& list) {
  if (!list) return "";
  std::string out = " " + name + "{";
  for (auto const& p : list->addr()) out += Mox::valueToStrep(p) + " ";
  for (auto const& p : list->exceptAddr()) out += "-" + Mox::valueToStrep(p) + " ";
  out.back() = '}';
  return out;
}

/// One line per rule, in the order of evaluation.
std::string dump(RuleSet const& rules) {
  std::ostringstream out;
  for (auto const& [name, acl] : rules.acls()->acl()) {
    out << name << " " << *acl->af() << "\n";
    for (auto const& [index, rule] : acl->ruleById()) {
      Naxel::RuleFilter const& f = *rule->ruleFilter();
      Naxel::NaxelActionValue const& a = rule->action();
      out << index << " " << rule->name() << dumpList("src", f.source())
          << dumpList("dst", f.destination()) << dumpRanges("sport", f.sportRange())
          << dumpRanges("dport", f.dportRange()) << dumpRanges("icmp", f.icmpType())
          << dumpRanges("proto", f.proto()) << dumpRanges("len", f.length())
          << dumpRanges("frag", f.fragment()) << dumpRanges("dscp", f.dscp())
          << (f.matchTcpInit() ? " init" : "") << (f.matchTcpEstablished() ? " est" : "")
          << (rule->continueRule() ? " continue" : "");
      if (a != Naxel::NaxelActionValue())
        out << " =>" << (a.dropEnabled() ? " drop" : "") << (a.logEnabled() ? " log" : "")
            << " dscp " << a.dscp() << (a.setDscpEnabled() ? "!" : "") << " tc " << a.tc()
            << (a.setTcEnabled() ? "!" : "") << (a.sflowEnabled() ? " sflow" : "");
      out << "\n";
    }
  }
  return out.str();
}

std::string acls(std::string const& text) {
  return R"({"schema":"naxel-rules","version":1,"acls":)" + text + "}";
}

TEST(JsonConfig, SaysEverythingThatARuleCan) {
  RuleSet rules(Obel::ChipId(0));
  readJsonConfig("f", R"({"schema":"naxel-rules","version":1,
    "prefixLists":{"n":{"addr":["10.0.0.1/8"],"except":["10.1.0.0/16"]},"any":["0.0.0.0/1","128.0.0.0/1"]},
    "acls":[
     {"name":"z","af":"ipv6","rules":[{"index":4294967294,"name":"x y","source":["2001:DB8::/32"]}]},
     {"name":"a","af":"ipv4","rules":[
      {"index":7,"name":"all","source":"n","destination":{"except":["1.2.3.4/32"]},"sport":[80,"90-99"],
       "dport":"0-65534","icmpType":255,"proto":[6],"length":"64-1500","fragment":8191,"dscp":["0-1",63],
       "matchTcpInit":true,"matchTcpEstablished":true,"continueRule":true,
       "action":{"dropEnabled":true,"logEnabled":true,"dscp":63,"setDscpEnabled":true,"tc":0,
                 "setTcEnabled":true,"sflowEnabled":true}},
      {"index":0,"name":"any","source":"any","destination":["1.2.3.4/0"],"sport":["0-9","10-65535"],
       "icmpType":"0-255","fragment":"0-8191","dscp":["0-31","32-63"],"matchTcpInit":false,"action":{}}]}]})",
                 rules);
  EXPECT_EQ(dump(rules),
            "a ipv4\n"
            "0 any\n"
            "7 all src{10.0.0.1/8 -10.1.0.0/16} dst{-1.2.3.4/32} sport{80 90-99} dport{0-65534} "
            "icmp{255} proto{6} len{64-1500} frag{8191} dscp{0-1 63} init est continue => drop log "
            "dscp 63! tc 0! sflow\n"
            "z ipv6\n"
            "4294967294 x y src{2001:db8::/32}\n");
}

TEST(JsonConfig, RulesShareANamedList) {
  RuleSet rules(Obel::ChipId(0));
  readJsonConfig("f", R"({"schema":"naxel-rules","version":1,"prefixLists":{"n":["10.0.0.0/8"]},
    "acls":[{"name":"a","af":"ipv4","rules":[{"index":1,"name":"r","source":"n"}]},
            {"name":"b","af":"ipv4","rules":[{"index":1,"name":"r","destination":"n"}]}]})",
                 rules);
  EXPECT_EQ(rules.acls()->acl("a")->ruleByName("r")->ruleFilter()->source(),
            rules.acls()->acl("b")->ruleByName("r")->ruleFilter()->destination());
}

struct BadCase {
  std::string text;
  char const* error;
};

template <class Read>
void expectErrors(std::vector<BadCase> const& cases, Read read) {
  for (BadCase const& c : cases) {
    SCOPED_TRACE(c.text);
    try {
      read(c.text);
      ADD_FAILURE() << "accepted, expected " << c.error;
    } catch (InputError const& e) {
      EXPECT_STREQ(e.what(), c.error);
    }
  }
}

std::string oneRule(std::string const& fields) {
  return acls("[{\"name\":\"a\",\"af\":\"ipv4\",\"rules\":[\n{\"index\":1,\"name\":\"r\"," +
              fields + "}]}]");
}

TEST(JsonConfig, ReportsWhatIsWrongAndWhere) {
  std::string const a = R"({"name":"a","af":"ipv4","rules":)";
  expectErrors(
      {
          // The file.
          {"",
           "f:1:1: error: syntax error while parsing value - unexpected end of input; expected "
           "'[', '{', or a literal"},
          {"{\n \"schema\": \"naxel-rules\",\n}",
           "f:3:1: error: syntax error while parsing object key - unexpected '}'; expected string "
           "literal"},
          {"{\"schema\":\"naxel-rules\",\"version\":1,\"acls\":[]} x",
           "f:1:48: error: syntax error while parsing value - invalid literal; expected end of "
           "input"},
          {"[]", "f:1:1: error: the file must be an object"},
          {R"({"version":1,"acls":[]})", "f:1:1: error: field 'schema' is missing"},
          {R"({"schema":"naxel-chip","version":1})",
           "f:1:11: error: 'schema' must be \"naxel-rules\""},
          {R"({"schema":"naxel-rules","version":2,"acls":[]})",
           "f:1:35: error: 'version' must be 1"},
          {R"({"schema":"naxel-rules","version":1})", "f:1:1: error: field 'acls' is missing"},
          {R"({"schema":"naxel-rules","version":1,"acl":[]})",
           "f:1:37: error: unknown field 'acl'"},
          {R"({"schema":"naxel-rules","version":1,"acls":[],)"
           "\n"
           R"("acls":[]})",
           "f:2:1: error: duplicate field 'acls'"},
          {acls(std::string(40, '[')), "f:1:75: error: too deeply nested"},
          // ACLs and rules.
          {acls(R"([{"name":"a","rules":[]}])"), "f:1:45: error: field 'af' is missing"},
          {acls(R"([{"name":"a","af":"IPv4","rules":[]}])"),
           "f:1:62: error: 'af' must be \"ipv4\" or \"ipv6\""},
          {acls(R"([{"name":"","af":"ipv4","rules":[]}])"),
           "f:1:53: error: 'name' must be a text that is not empty"},
          {acls("[" + a + "[]},\n" + a + "[]}]"), "f:2:9: error: duplicate ACL 'a'"},
          {acls("[" + a + R"([{"name":"r"}]}])"), "f:1:78: error: field 'index' is missing"},
          {acls("[" + a + R"([{"index":4294967295,"name":"r"}]}])"),
           "f:1:87: error: 'index' must be a whole number from 0 to 4294967294"},
          {acls("[" + a +
                R"([{"index":1,"name":"r"},)"
                "\n"
                R"({"index":1,"name":"s"}]}])"),
           "f:2:10: error: duplicate rule index 1"},
          {acls("[" + a +
                R"([{"index":1,"name":"r"},)"
                "\n"
                R"({"index":2,"name":"r"}]}])"),
           "f:2:19: error: duplicate rule name 'r'"},
          {oneRule(R"("sorce":"x")"), "f:2:23: error: unknown field 'sorce'"},
          {oneRule(R"("matchTcpInit":1)"), "f:2:38: error: 'matchTcpInit' must be true or false"},
          // Prefixes.
          {oneRule(R"("source":"n")"), "f:2:32: error: there is no prefix list 'n'"},
          {oneRule(R"("source":[])"),
           "f:2:32: error: 'prefix list' is empty; leave the field out where it does not matter"},
          {oneRule(R"("source":{})"), "f:2:32: error: the prefix list is empty"},
          {oneRule(R"("source":{"addr":[],"except":["1.0.0.0/8"]})"),
           "f:2:40: error: 'addr' is empty; leave the field out where it does not matter"},
          {oneRule(R"("source":["10.0.0.0/33"])"),
           "f:2:33: error: '10.0.0.0/33' is not a prefix: the length is beyond 32"},
          {oneRule(R"("source":["::/129"])"),
           "f:2:33: error: '::/129' is not a prefix: the length is beyond 128"},
          {oneRule(R"("source":["10.0.0.0"])"),
           "f:2:33: error: '10.0.0.0' is not a prefix: the length is missing"},
          {oneRule(R"("source":["10.0.0/8"])"), "f:2:33: error: '10.0.0/8' is not a prefix"},
          {oneRule(R"("source":["10.0.0.0/+8"])"), "f:2:33: error: '10.0.0.0/+8' is not a prefix"},
          {oneRule(R"("source":["10.0.0.0/8","::/0"])"),
           "f:2:46: error: both address families in one prefix list"},
          {oneRule(R"("source":{"addr":["10.0.0.0/8"],"except":["::/0"]})"),
           "f:2:65: error: both address families in one prefix list"},
          {oneRule(R"("destination":["::/0"])"),
           "f:2:37: error: the prefixes are of ipv6, the ACL is of ipv4"},
          // Ranges and numbers.
          {oneRule(R"("dport":[])"),
           "f:2:31: error: 'dport' is empty; leave the field out where it does not matter"},
          {oneRule(R"("dport":[80,"20-10"])"),
           "f:2:35: error: 'dport': the range starts at 20, above its end 10"},
          {oneRule(R"("dport":65536)"), "f:2:31: error: 'dport' goes from 0 to 65535"},
          {oneRule(R"("proto":"0-256")"), "f:2:31: error: 'proto' goes from 0 to 255"},
          {oneRule(R"("icmpType":256)"), "f:2:34: error: 'icmpType' goes from 0 to 255"},
          {oneRule(R"("length":65536)"), "f:2:32: error: 'length' goes from 0 to 65535"},
          {oneRule(R"("fragment":8192)"), "f:2:34: error: 'fragment' goes from 0 to 8191"},
          {oneRule(R"("dscp":64)"), "f:2:30: error: 'dscp' goes from 0 to 63"},
          {oneRule(R"("dport":"4294967376")"),
           "f:2:31: error: 'dport' takes numbers and texts such as \"10-20\""},
          {oneRule(R"("dport":"80-18446744073709551616")"),
           "f:2:31: error: 'dport' takes numbers and texts such as \"10-20\""},
          {oneRule(R"("dport":-1)"),
           "f:2:31: error: 'dport' takes numbers and texts such as \"10-20\""},
          {oneRule(R"("dport":8.0e1)"),
           "f:2:31: error: 'dport' takes numbers and texts such as \"10-20\""},
          {oneRule(R"("action":{"tc":9})"),
           "f:2:38: error: 'tc' must be a whole number from 0 to 8"},
          {oneRule(R"("action":{"dscp":64})"),
           "f:2:40: error: 'dscp' must be a whole number from 0 to 63"},
          {oneRule(R"("action":{"drop":true})"), "f:2:33: error: unknown field 'drop'"},
      },
      [](std::string const& text) {
        RuleSet rules(Obel::ChipId(0));
        readJsonConfig("f", text, rules);
      });
}

TEST(RuleSet, OneNameInTwoFilesNamesBoth) {
  RuleSet rules(Obel::ChipId(0));
  readClassBench("x/a", "", FlagsMode::ignore, rules);
  expectErrors({{acls("[{\"name\":\"a\",\"af\":\"ipv6\",\"rules\":[]}]"),
                 "f:1:53: error: ACL 'a' stands in x/a already"}},
               [&](std::string const& text) { readJsonConfig("f", text, rules); });
}

std::string const tuple = "@1.0.0.0/8\t2.0.0.0/8\t0 : 65535\t80 : 80\t";

TEST(ClassBench, ReadsRulesAndLeavesOutWhatDoesNotMatter) {
  RuleSet rules(Obel::ChipId(0));
  std::string const text = "\n@0.0.0.0/0 9.8.7.6/0 0 : 65535 0:65535 0x06/0x00\r\n \n" + tuple +
                           "0x06/0xff\t0x0200/0x1200\t\n" + tuple + "0x01/0xFF 0x0800/0xff00\n" +
                           tuple + "0x11/0xFF\t0x1234/0x0000";
  EXPECT_EQ(readClassBench("d/set.gz", text, FlagsMode::ignore, rules), 2u);
  EXPECT_EQ(readClassBench("strict", text, FlagsMode::strict, rules), 0u);
  EXPECT_EQ(dump(rules),
            "set ipv4\n"
            "0 r0\n"
            "1 r1 src{1.0.0.0/8} dst{2.0.0.0/8} dport{80} proto{6}\n"
            "2 r2 src{1.0.0.0/8} dst{2.0.0.0/8} dport{80} proto{1}\n"
            "3 r3 src{1.0.0.0/8} dst{2.0.0.0/8} dport{80} proto{17}\n"
            "strict ipv4\n"
            "0 r0\n"
            "1 r1 src{1.0.0.0/8} dst{2.0.0.0/8} dport{80} proto{6} init\n"
            "2 r2 src{1.0.0.0/8} dst{2.0.0.0/8} dport{80} icmp{8} proto{1}\n"
            "3 r3 src{1.0.0.0/8} dst{2.0.0.0/8} dport{80} proto{17}\n");
}

TEST(ClassBench, ReportsWhatIsWrongAndWhere) {
  expectErrors(
      {
          {"x", "f:1: error: expected '@' before 'x'"},
          {"@1.0.0.0/8", "f:1: error: expected a prefix at the end of the line"},
          {"\n\n@1.0.0.0/33 2.0.0.0/8",
           "f:3: error: '1.0.0.0/33' is not a prefix: the length is beyond 32"},
          {"@::/0 2.0.0.0/8", "f:1: error: the prefix is not of IPv4"},
          {"@1.0.0.0/8 2.0.0.0/8 5 : 4", "f:1: error: the port range starts at 5, above its end 4"},
          {"@1.0.0.0/8 2.0.0.0/8 0 : 65536",
           "f:1: error: the number must be at most 65535 before '65536'"},
          {"@1.0.0.0/8 2.0.0.0/8 -1 : 5", "f:1: error: expected a number before '-1 : 5'"},
          {"@1.0.0.0/8 2.0.0.0/8 1 - 5", "f:1: error: expected ':' before '- 5'"},
          {tuple, "f:1: error: expected a number that begins with 0x at the end of the line"},
          {tuple + "0x06/0x0f", "f:1: error: the protocol mask must be 0x00 or 0xff"},
          {tuple + "0x106/0xff", "f:1: error: the number must be at most 255 before '106/0xff'"},
          {tuple + "0x06/0xff 0x0000/0x10000",
           "f:1: error: the number must be at most 65535 before '10000'"},
          {tuple + "0x06/0xff 0x0000/0x0000 permit",
           "f:1: error: expected the end of the line before 'permit'"},
          {tuple + "0x06/0xff\n" + tuple + "0x06/0xff 0x0000/0x0200",
           "f:2: error: a rule cannot say these flags"},
          {tuple + "0x11/0xff 0x0200/0x1200", "f:1: error: a rule cannot say these flags"},
          {tuple + "0x06/0x00 0x0200/0x1200", "f:1: error: a rule cannot say these flags"},
          {tuple + "0x01/0xff 0x0801/0xff00", "f:1: error: a rule cannot say these flags"},
      },
      [](std::string const& text) {
        RuleSet rules(Obel::ChipId(0));
        readClassBench("f", text, FlagsMode::strict, rules);
      });
}

TEST(Chip, ReadsWidthsAndBehaviour) {
  ChipSetup const chip = readChip("f", R"({"schema":"naxel-chip","version":1,"chipId":255,
    "prefixXformWidth":{"ipv6Dst":1},"rangeXformWidth":{"icmp":16,"dscp":0},
    "comboXformWidth":{"srcDstL4Port":3},"tcpFlagsXformSupported":true,"tcpFlagsXformWidth":0,
    "permitDuringUpdate":true,
    "softChip":{"capacity":{"tcpFlags":0,"aclEntries":9},"answerAfterTicks":4,"pace":"oneByOne",
      "order":"reversed","tcpFlags":"never","staleAnswers":true,"confirmPolicyAfterTicks":2,
      "forceHitful":true,"refuseTable":"icmp","refuseAcquires":5,"missYields":"highest"}})");
  Naxel::ChipHwCapability const& c = *chip.capability;
  EXPECT_EQ(c.chipId(), Obel::ChipId(255));
  EXPECT_EQ(c.prefixXformWidth({Lumox::ipv6(), false}), 1);
  EXPECT_EQ(c.prefixXformWidth({Lumox::ipv6(), true}), 16);
  EXPECT_EQ(c.rangeXformWidth(Naxel::RangeSetType::icmp), 16);
  EXPECT_EQ(c.rangeXformWidth(Naxel::RangeSetType::srcPort), 0);
  EXPECT_EQ(c.comboXformWidth(Naxel::ComboLabelSetType::srcDstL4Port), 3);
  EXPECT_TRUE(c.tcpFlagsXformSupported());
  EXPECT_EQ(c.tcpFlagsXformWidth(), 0);
  EXPECT_TRUE(chip.permitDuringUpdate);
  SoftChip::Options const& o = chip.softChip;
  EXPECT_EQ(o.capacity[SoftChip::Table::tcpFlags], 0u);
  EXPECT_EQ(o.capacity[SoftChip::Table::aclEntries], 9u);
  EXPECT_EQ(o.capacity[SoftChip::Table::icmp], ~size_t{0});
  EXPECT_EQ(o.answerAfterTicks, 4u);
  EXPECT_EQ(o.pace, SoftChip::Pace::oneByOne);
  EXPECT_EQ(o.order, SoftChip::AnswerOrder::reversed);
  EXPECT_EQ(o.tcpFlags, SoftChip::TcpFlagsAnswer::never);
  EXPECT_TRUE(o.staleAnswers);
  EXPECT_EQ(o.confirmPolicyAfterTicks, 2u);
  EXPECT_TRUE(o.forceHitful);
  EXPECT_EQ(o.refuseTable, SoftChip::Table::icmp);
  EXPECT_EQ(o.refuseAcquires, 5u);
  EXPECT_EQ(o.missYields, Verify::MissYields::highest);
}

TEST(Chip, ReportsWhatIsWrongAndWhere) {
  auto const chip = [](std::string const& fields) {
    return R"({"schema":"naxel-chip","version":1,)"
           "\n" +
           fields + "}";
  };
  expectErrors(
      {
          {chip(R"("prefixXformWidth":{"ipv4Src":0})"),
           "f:2:31: error: 'ipv4Src' must be a whole number from 1 to 16"},
          {chip(R"("prefixXformWidth":{"ipv4Src":17})"),
           "f:2:31: error: 'ipv4Src' must be a whole number from 1 to 16"},
          {chip(R"("prefixXformWidth":{"ipv5Src":8})"), "f:2:21: error: unknown field 'ipv5Src'"},
          {chip(R"("rangeXformWidth":{"srcPort":17})"),
           "f:2:30: error: 'srcPort' must be a whole number from 0 to 16"},
          {chip(R"("rangeXformWidth":{"rangeSetMax":1})"),
           "f:2:20: error: unknown field 'rangeSetMax'"},
          {chip(R"("comboXformWidth":{"srcDstL4Port":-1})"),
           "f:2:35: error: 'srcDstL4Port' must be a whole number from 0 to 16"},
          {chip(R"("tcpFlagsXformWidth":17)"),
           "f:2:22: error: 'tcpFlagsXformWidth' must be a whole number from 0 to 16"},
          {chip(R"("softChip":{"pace":"slow"})"),
           "f:2:20: error: 'pace' must be one of \"together\", \"oneByOne\""},
          {chip(R"("softChip":{"capacity":{"acl":1}})"), "f:2:25: error: unknown field 'acl'"},
          {chip(R"("softChip":{"refuseTable":"acl"})"),
           "f:2:27: error: 'refuseTable' must name a table"},
      },
      [](std::string const& text) { readChip("f", text); });
}

}  // namespace
}  // namespace NaxelTool
