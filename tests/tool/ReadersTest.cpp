// What the readers make of rule files, and the errors they report.

#include "input/ChipReader.h"
#include "input/ClassBenchReader.h"
#include "input/JsonConfigReader.h"
#include "support/Pieces.h"

#include <sstream>
#include <tuple>

#include <gtest/gtest.h>

namespace NaxelTool {
namespace {

/// One line per rule, in the order of evaluation.
std::string dump(RuleSet const& rules) {
  std::ostringstream out;
  for (auto const& [name, acl] : rules.acls()->acl()) {
    out << name << " " << *acl->af() << "\n";
    for (auto const& [index, rule] : acl->ruleById()) {
      Naxel::RuleFilter const& f = *rule->ruleFilter();
      out << index << " " << rule->name();
      for (auto const& list : {f.source(), f.destination()})
        out << " "
            << (list ? list->attributeText("addr") + "-" + list->attributeText("exceptAddr") : "*");
      f.forEachRangeColl([&](Naxel::RangeSetType type, auto const& ranges) {
        for (auto const& r : ranges)
          out << " " << Naxel::rangeField(type).name << " " << r.rangeStart() << "-"
              << r.rangeEnd();
      });
      out << (f.matchTcpInit() ? " init" : "") << (f.matchTcpEstablished() ? " est" : "")
          << (rule->continueRule() ? " continue" : "");
      if (rule->action() != Naxel::NaxelActionValue()) out << " => " << rule->action();
      out << "\n";
    }
  }
  return out.str();
}

TEST(JsonConfig, SaysEverythingThatARuleCan) {
  RuleSet rules(Obel::ChipId(0));
  readRules(readJsonConfig, "f", R"({"schema":"naxel-rules","version":1,
    "prefixLists":{"n":{"addr":["10.0.0.1/8"],"except":["10.1.0.0/16"]},"any":["0.0.0.0/1","128.0.0.0/1"]},
    "acls":[
     {"name":"z","af":"ipv6","rules":[{"index":4294967294,"name":"x y","source":["2001:DB8::/32"]}]},
     {"name":"a","af":"ipv4","rules":[
      {"index":7,"name":"all","source":"n","destination":{"except":["1.2.3.4/32"]},"sport":[80,"90-99"],
       "dport":"0-65534","icmpType":255,"proto":[6],"length":"64-1500","fragment":8191,"dscp":["0-1",63],
       "matchTcpInit":true,"matchTcpEstablished":true,"continueRule":true,
       "action":{"dropEnabled":true,"logEnabled":true,"dscp":63,"setDscpEnabled":true,"tc":0,
                 "setTcEnabled":true,"sflowEnabled":true}},
      {"index":8,"name":"same","destination":"n"},
      {"index":0,"name":"any","source":"any","destination":["1.2.3.4/0"],"sport":["0-9","10-65535"],
       "icmpType":"0-255","fragment":"0-8191","dscp":["0-31","32-63"],"matchTcpInit":false,"action":{}}]}]})",
            rules);
  EXPECT_EQ(
      dump(rules),
      "a ipv4\n"
      "0 any * *\n"
      "7 all {10.0.0.1/8}-{10.1.0.0/16} {}-{1.2.3.4/32} sport 80-80 sport 90-99 dport 0-65534 "
      "icmpType "
      "255-255 proto 6-6 length 64-1500 fragment 8191-8191 dscp 0-1 dscp 63-63 init est continue "
      "=> "
      "Value('Naxel::NaxelActionValue', ** {'dropEnabled': true, 'logEnabled': true, 'dscp': 63, "
      "'setDscpEnabled': true, 'tc': 0, 'setTcEnabled': true, 'sflowEnabled': true})\n"
      "8 same * {10.0.0.1/8}-{10.1.0.0/16}\n"
      "z ipv6\n"
      "4294967294 x y {2001:db8::/32}-{} *\n");
}

/// One error per row, "TEXT => PLACE error: MESSAGE"; a text stands between `before` and `after`, and "\n"
/// in it is the end of a line.
template <class Read>
void expectErrors(Read read, std::string const& before, std::string const& after,
                  std::string_view rows) {
  for (std::string const& row : ::Test::pieces(rows, "\n")) {
    SCOPED_TRACE(row);
    auto const cells = ::Test::pieces(row, " => ");
    std::string text = cells[0];
    for (size_t at = 0; (at = text.find("\\n")) != text.npos;) text.replace(at, 2, "\n");
    try {
      read(before + text + after);
      ADD_FAILURE() << "accepted";
    } catch (InputError const& e) {
      EXPECT_EQ(e.what(), "f:" + cells.at(1));
    }
  }
}

TEST(JsonConfig, ReportsWhatIsWrongAndWhere) {
  auto const read = [](std::string const& text) {
    RuleSet rules(Obel::ChipId(0));
    readRules(readJsonConfig, "f", text, rules);
  };
  expectErrors(
      read, "", "",
      R"( => 1:1: error: syntax error while parsing value - unexpected end of input; expected '[', '{', or a literal
{\n "schema": "naxel-rules",\n} => 3:1: error: syntax error while parsing object key - unexpected '}'; expected string literal
{"version":1,"acls":[]} => 1:1: error: field 'schema' is missing
{"schema":"naxel-chip","version":1} => 1:11: error: 'schema' must be "naxel-rules"
{"schema":"naxel-rules","version":2,"acls":[]} => 1:35: error: 'version' must be 1
{"schema":"naxel-rules","version":1,"acls":[],\n"acls":[]} => 2:1: error: duplicate field 'acls')");
  // ACLs and rules.
  std::string const file = R"({"schema":"naxel-rules","version":1,"acls":[)"
                           "\n";
  expectErrors(read, file, "]}", std::string(40, '[') + R"( => 2:31: error: too deeply nested
{"name":"a","af":"IPv4","rules":[]} => 2:18: error: 'af' must be "ipv4" or "ipv6"
{"name":"","af":"ipv4","rules":[]} => 2:9: error: 'name' must be a text that is not empty
{"name":"a","af":"ipv4","rules":[]},\n{"name":"a","af":"ipv4","rules":[]} => 3:9: error: duplicate ACL 'a')");
  std::string const acl = file + R"({"name":"a","af":"ipv4","rules":[{"index":1,"name":"r"},)"
                                 "\n";
  expectErrors(
      read, acl, "]}]}",
      R"({"index":4294967295,"name":"s"} => 3:10: error: 'index' must be a whole number from 0 to 4294967294
{"index":1,"name":"s"} => 3:10: error: duplicate rule index 1
{"index":2,"name":"r"} => 3:19: error: duplicate rule name 'r')");
  // Fields.
  expectErrors(read, acl + R"({"index":2,"name":"s",)", "}]}]}",
               R"("sorce":"x" => 3:23: error: unknown field 'sorce'
"matchTcpInit":1 => 3:38: error: 'matchTcpInit' must be true or false
"source":"n" => 3:32: error: there is no prefix list 'n'
"source":[] => 3:32: error: 'prefix list' is empty; leave the field out where it does not matter
"source":{} => 3:32: error: the prefix list is empty
"source":["10.0.0.0/33"] => 3:33: error: '10.0.0.0/33' is not a prefix: the length is beyond 32
"source":["10.0.0.0"] => 3:33: error: '10.0.0.0' is not a prefix: the length is missing
"source":["10.0.0/8"] => 3:33: error: '10.0.0/8' is not a prefix
"source":["10.0.0.0/8","::/0"] => 3:46: error: both address families in one prefix list
"source":{"addr":["10.0.0.0/8"],"except":["::/0"]} => 3:65: error: both address families in one prefix list
"destination":["::/1"] => 3:37: error: the prefixes are of ipv6, the ACL is of ipv4
"dport":[80,"20-10"] => 3:35: error: 'dport': the range starts at 20, above its end 10
"proto":"0-256" => 3:31: error: 'proto' goes from 0 to 255
"fragment":8192 => 3:34: error: 'fragment' goes from 0 to 8191
"dport":"80-18446744073709551616" => 3:31: error: 'dport' takes numbers and texts such as "10-20"
"dport":8.0e1 => 3:31: error: 'dport' takes numbers and texts such as "10-20"
"action":{"tc":9} => 3:38: error: 'tc' must be a whole number from 0 to 8)");
}

std::string const tuple = "@1.0.0.0/8\t2.0.0.0/8\t0 : 65535\t80 : 80\t";

TEST(ClassBench, ReadsRulesAndLeavesOutWhatDoesNotMatter) {
  RuleSet rules(Obel::ChipId(0));
  std::string const text = "\n@0.0.0.0/0 9.8.7.6/0 0 : 65535 0:65535 0x06/0x00\r\n \n" + tuple +
                           "0x06/0xff\t0x0200/0x1200\t\n" + tuple + "0x01/0xFF 0x0800/0xff00\n" +
                           tuple + "0x11/0xFF\t0x1234/0x0000";
  std::ostringstream said;
  Diagnostics diagnostics(said);
  RuleReading loosely("d/set.gz", text, {}, rules, diagnostics);
  readClassBench(loosely);
  EXPECT_EQ(said.str(), "d/set.gz: note[unused-flags]: 2 rules carry flags that are not used\n");
  readRules(readClassBench, "strict", text, rules, {.flags = FlagsMode::strict});
  std::string const lists = " {1.0.0.0/8}-{} {2.0.0.0/8}-{} dport 80-80 ";
  auto const dumped = [&](std::string const& name, char const* tcp, char const* icmp) {
    return name + " ipv4\n0 r0 * *\n1 r1" + lists + "proto 6-6" + tcp + "\n2 r2" + lists + icmp +
           "proto 1-1\n3 r3" + lists + "proto 17-17\n";
  };
  std::string const read = dumped("set", "", "") + dumped("strict", " init", "icmpType 8-8 ");
  EXPECT_EQ(dump(rules), read);
  // What no rule can say is left out where that is asked for, and keeps its number.
  ReadCounts const counts = readRules(readClassBench, "without",
                                      tuple + "0x11/0xFF 0x0200/0x1200\n" + tuple + "0x00/0x00",
                                      rules, {.flags = FlagsMode::strict, .skipUnsupported = true});
  EXPECT_EQ(dump(rules), read + "without ipv4\n1 r1" + lists.substr(0, lists.size() - 1) + "\n");
  EXPECT_EQ(counts.leftOut, 1u);
}

TEST(ClassBench, ReportsWhatIsWrongAndWhere) {
  auto const read = [](std::string const& text) {
    RuleSet rules(Obel::ChipId(0));
    readRules(readClassBench, "f", text, rules, {.flags = FlagsMode::strict});
  };
  expectErrors(read, "", "", R"(x => 1: error: expected '@' before 'x'
@1.0.0.0/8 => 1: error: expected a prefix at the end of the line
\n\n@1.0.0.0/33 2.0.0.0/8 => 3: error: '1.0.0.0/33' is not a prefix: the length is beyond 32
@::/0 2.0.0.0/8 => 1: error: the prefix is not of IPv4
@1.0.0.0/8 2.0.0.0/8 5 : 4 => 1: error: the port range starts at 5, above its end 4
@1.0.0.0/8 2.0.0.0/8 0 : 65536 => 1: error: the number must be at most 65535 before '65536'
@1.0.0.0/8 2.0.0.0/8 1 - 5 => 1: error: expected ':' before '- 5')");
  expectErrors(read, tuple + "0x06/0xff\n" + tuple, "",
               R"( => 2: error: expected a number that begins with 0x at the end of the line
0x06/0x0f => 2: error: the protocol mask must be 0x00 or 0xff
0x106/0xff => 2: error: the number must be at most 255 before '106/0xff'
0x06/0xff 0x0000/0x0000 permit => 2: error: expected the end of the line before 'permit'
0x06/0xff 0x0000/0x0200 => 2: error: a rule cannot say the flags 0x0000/0x0200 of protocol 0x06/0xff
0x11/0xff 0x0200/0x1200 => 2: error: a rule cannot say the flags 0x0200/0x1200 of protocol 0x11/0xff
0x06/0x00 0x0200/0x1200 => 2: error: a rule cannot say the flags 0x0200/0x1200 of protocol 0x06/0x00
0x01/0xff 0x0801/0xff00 => 2: error: a rule cannot say the flags 0x0801/0xff00 of protocol 0x01/0xff)");
}

std::string const chipFile = R"({"schema":"naxel-chip","version":1,)"
                             "\n";

TEST(Chip, ReadsWidthsAndBehaviour) {
  ChipSetup const chip = readChip("f", chipFile + R"("chipId":255,
    "prefixXformWidth":{"ipv6Dst":1},"rangeXformWidth":{"icmp":16,"dscp":0},
    "comboXformWidth":{"srcDstL4Port":3},"tcpFlagsXformSupported":true,"tcpFlagsXformWidth":0,
    "permitDuringUpdate":true,
    "softChip":{"capacity":{"tcpFlags":0,"aclEntries":9},"answerAfterTicks":4,"pace":"oneByOne",
      "order":"reversed","tcpFlags":"never","staleAnswers":true,"confirmPolicyAfterTicks":2,
      "forceHitful":true,"refuseTable":"icmp","refuseAcquires":5,"missYields":"highest"}})");
  Naxel::ChipHwCapability const& c = *chip.capability;
  EXPECT_EQ(std::tuple(c.chipId().value(), c.prefixXformWidth({Lumox::ipv6(), false}),
                       c.rangeXformWidth(Naxel::RangeSetType::icmp), c.rangeXformWidth().size(),
                       c.comboXformWidth(Naxel::ComboLabelSetType::srcDstL4Port),
                       c.tcpFlagsXformSupported(), c.tcpFlagsXformWidth()),
            std::tuple(255, 1, 16, 2u, 3, true, 0));
  SoftChip::Options const& o = chip.softChip;
  using SoftChip::Table;
  EXPECT_EQ(std::tuple(o.capacity[Table::tcpFlags], o.capacity[Table::aclEntries],
                       o.capacity[Table::icmp], o.answerAfterTicks, o.confirmPolicyAfterTicks,
                       o.refuseAcquires, o.refuseTable),
            std::tuple(0u, 9u, ~size_t{0}, 4u, 2u, 5u, Table::icmp));
  EXPECT_EQ(std::tuple(o.pace, o.order, o.tcpFlags, o.missYields),
            std::tuple(SoftChip::Pace::oneByOne, SoftChip::AnswerOrder::reversed,
                       SoftChip::TcpFlagsAnswer::never, Verify::MissYields::highest));
  EXPECT_TRUE(o.staleAnswers && o.forceHitful && chip.permitDuringUpdate);
}

TEST(Chip, ReportsWhatIsWrongAndWhere) {
  expectErrors(
      [](std::string const& text) { readChip("f", text); }, chipFile, "}",
      R"("prefixXformWidth":{"ipv4Src":0} => 2:31: error: 'ipv4Src' must be a whole number from 1 to 16
"prefixXformWidth":{"ipv5Src":8} => 2:21: error: unknown field 'ipv5Src'
"rangeXformWidth":{"srcPort":17} => 2:30: error: 'srcPort' must be a whole number from 0 to 16
"rangeXformWidth":{"rangeSetMax":1} => 2:20: error: unknown field 'rangeSetMax'
"comboXformWidth":{"srcDstL4Port":-1} => 2:35: error: 'srcDstL4Port' must be a whole number from 0 to 16
"softChip":{"pace":"slow"} => 2:20: error: 'pace' must be one of "together", "oneByOne"
"softChip":{"capacity":{"acl":1}} => 2:25: error: unknown field 'acl'
"softChip":{"refuseTable":"acl"} => 2:27: error: 'refuseTable' must name a table)");
}

}  // namespace
}  // namespace NaxelTool
