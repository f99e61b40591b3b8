// What the readers of OpenConfig, CONFIG_DB and our own JSON make of entries, one by one.

#include "input/ConfigDbReader.h"
#include "input/JsonConfigReader.h"
#include "input/OpenConfigReader.h"
#include "input/RuleFiles.h"
#include "output/RuleWriters.h"
#include "support/Pieces.h"

#include <sstream>

#include <gtest/gtest.h>

namespace NaxelTool {
namespace {

/// What a reader says, without the file and the help, and the rules that it makes, as our own JSON without
/// what all have; read = compiled + reported holds.
std::string madeOf(RuleReader reader, std::string const& text, ReadOptions const& options = {}) {
  RuleSet rules(Obel::ChipId(0));
  std::ostringstream said;
  Diagnostics diagnostics(said);
  RuleReading reading("f", text, options, rules, diagnostics);
  std::string out;
  try {
    reader(reading);
    settle(reading.counts(), rules, diagnostics);
  } catch (InputError const& e) {
    out = e.what();
  }
  ReadCounts const& counts = reading.counts();
  EXPECT_EQ(counts.read, counts.compiled + counts.reported) << text;
  for (std::string const& line : ::Test::pieces(said.str(), "\n"))
    if (line.starts_with("f:")) out += line.substr(2) + "\n";
  std::ostringstream json;
  writeRulesAsJson(json, rules);
  for (std::string line : ::Test::pieces(json.str(), "\n")) {
    while (line.ends_with("}") || line.ends_with("]") || line.ends_with(",")) line.pop_back();
    if (line.starts_with("   {\"index\":")) out += line.substr(12) + "\n";
    if (line.starts_with("  {\"name\":"))
      out += line.substr(10, line.find(",\"rules\"") - 10) + "\n";
  }
  return out;
}

struct Row {
  std::string text;
  std::string made;
};

/// One entry of an OpenConfig ACL with sets.
std::string openConfig(std::string const& fields, std::string const& type) {
  return R"({"defined-sets":{"ipv4-prefix-sets":{"ipv4-prefix-set":[{"name":"n","config":{"name":"n",
"prefix":["10.0.0.0/8","11.0.0.0/8"],"exclude-prefix":["10.1.0.0/16"]}}]},
"port-sets":{"port-set":[{"name":"p","config":{"port":[80,"90..95"],"exclude-port":[92]}}]}},
"openconfig-acl:acl":{"acl-sets":{"acl-set":[{"name":"a","config":{"type":"openconfig-acl:)" +
         type + R"("},"acl-entries":{"acl-entry":[
{"sequence-id":7,"actions":{"config":{"forwarding-action":"openconfig-acl:ACCEPT"}},)" +
         fields + "}]}}]}}}";
}

TEST(OpenConfig, EntriesOfAnAcl) {
  std::string const tcp = R"("ipv4":{"config":{"protocol":"IP_TCP"}},"transport":{"config":)";
  for (
      Row const& row : {
          Row{R"("ipv4":{"config":{"source-address":"1.2.3.4","destination-address":"0.0.0.0/0","dscp":46,"length":60}})",
              R"(7,"name":"7","source":["1.2.3.4/32"],"length":60,"dscp":46)"},
          {R"("ipv4":{"config":{"source-address-prefix-set":"n","dscp-set":[1,2,9]}})",
           R"(7,"name":"7","source":"n","dscp":["1-2",9)"},
          {tcp + R"({"destination-port-set":"p","source-port":"ANY"}})",
           R"(7,"name":"7","dport":[80,"90-91","93-95"],"proto":6)"},
          // Ports that may be absent do not decide.
          {tcp + R"({"destination-port":"0..1023"}})",
           R"(7,"name":"7","dport":"0-1023","proto":6,"fragment":0)"},
          {tcp + R"({"destination-port":"0..1023","source-port":53}})",
           R"(7,"name":"7","sport":53,"dport":"0-1023","proto":6)"},
          {tcp + R"({"destination-port":0,"detail-mode":"BUILTIN","builtin-detail":"FRAGMENT"}})",
           "note[never-matches]: later fragments have no ports and no ICMP type, so the entry "
           "matches none\n\"a\",\"af\":\"ipv4\""},
          {tcp + R"({"detail-mode":"BUILTIN","builtin-detail":"TCP_INITIAL"}})",
           R"(7,"name":"7","proto":6,"matchTcpInit":true)"},
          {tcp +
               R"({"explicit-tcp-flags":["TCP_RST","TCP_ACK"],"explicit-detail-match-mode":"ANY"}})",
           R"(7,"name":"7","proto":6,"matchTcpEstablished":true)"},
          {tcp + R"({"builtin-detail":"FRAGMENT"}})",
           "error[entry]: 'builtin-detail' needs the detail-mode BUILTIN"},
          {tcp + R"({"explicit-tcp-flags":["TCP_SYN"],"explicit-detail-match-mode":"ALL"}})",
           "error[unsupported]: a rule cannot say these TCP flags"},
          {R"("transport":{"config":{"destination-port":443}})",
           "note[protocol]: ports without a protocol"},
          {R"("transport":{"config":{"destination-port":443}})",
           R"("dport":443,"proto":[6,17,132)"},
          {R"("ipv4":{"icmpv4":{"config":{"type":"openconfig-icmpv4-types:ECHO"}}})",
           R"(7,"name":"7","icmpType":8,"proto":1)"},
          {R"("ipv4":{"icmpv4":{"config":{"type":"ECHO","code":"ECHO_NO_CODE"}}})",
           "error[unsupported]: a rule cannot say 'ICMP code'"},
          {R"("ipv4":{"config":{"fragment-offsets":[1,2,3]}})", R"("fragment":"1-3")"},
          {R"("ipv4":{"config":{"hop-limit":5}})",
           "error[unsupported]: a rule cannot say 'hop-limit'"},
          {R"("input-interface":{})", "error[unsupported]: a rule cannot say 'input-interface'"},
          {R"("ipv4":{"config":{"protocol":255}})",
           "error[entry]: 'protocol' must be a whole number from 0 to 254"},
          {R"("ipv4":{"config":{"protocol":"IP_TPC"}})",
           "error[entry]: there is no protocol 'IP_TPC'"},
          {tcp + R"({"source-port":"90..80"}})",
           "error[entry]: the port range starts at 90, above its end 80"},
          {tcp + R"({"source-port-set":"q"}})", "error[entry]: there is no port set 'q'"},
          {R"("ipv6":{"config":{"source-address":"::1/128"}})",
           "error[entry]: the address family is not that of the rest"},
          {R"("config":{"description":"why"},"naxel:match":{"length":"64-99","fragment":"0-8191"},)"
           R"("naxel:action":{"dropEnabled":true,"tc":3},"transport":{"config":{"source-port":0}})",
           R"(7,"name":"7","description":"why","sport":0,"proto":[6,17,132],"length":"64-99",)"
           R"("action":{"dropEnabled":true,"tc":3)"},
      }) {
    SCOPED_TRACE(row.text);
    std::string const made = madeOf(readOpenConfig, openConfig(row.text, "ACL_IPV4"));
    EXPECT_NE(made.find(row.made), std::string::npos) << made;
  }
  EXPECT_NE(madeOf(readOpenConfig, openConfig(R"("naxel:match":{"length":9})", "ACL_IPV4"),
                   {.strict = true})
                .find("a rule cannot say 'naxel:match'"),
            std::string::npos);
}

TEST(OpenConfig, FamiliesDialectsAndOrder) {
  std::string const verdict = R"("actions":{"config":{"forwarding-action":"REJECT"}})";
  // Both families in one ACL, later numbers first, and one entry too many.
  EXPECT_EQ(madeOf(readOpenConfig, R"([{"name":"m","type":"ACL_MIXED","acl-entries":{"acl-entry":[
{"sequence-id":9,"ipv6":{"config":{"protocol":58,"length":60}},)" +
                                       verdict + R"(},
{"sequence-id":3,"transport":{"config":{"source-port":5,"detail-mode":"BUILTIN","builtin-detail":"TCP_ESTABLISHED"}},)" +
                                       verdict + R"(},
{"sequence-id":3,)" + verdict + R"(},
{"sequence-id":4}]}}])"),
            "4:1: error[entry]: duplicate sequence-id 3 in ACL 'm'\n"
            "5:1: error[unsupported]: the entry has no forwarding-action\n"
            " note[reject]: 2 entries reject packets, which is read as a drop\n"
            R"("m","af":"ipv4")"
            "\n"
            R"(3,"name":"3","sport":5,"matchTcpEstablished":true,"action":{"dropEnabled":true)"
            "\n"
            R"("m-v6","af":"ipv6")"
            "\n"
            R"(3,"name":"3","sport":5,"matchTcpEstablished":true,"action":{"dropEnabled":true)"
            "\n"
            R"(9,"name":"9","proto":58,"length":100,"action":{"dropEnabled":true)"
            "\n");
  // The older dialect.
  std::string const drop = R"("actions":{"config":{"forwarding-action":"DROP"}})";
  std::string const old = R"({"acl":{"acl-sets":{"acl-set":{"o":{"acl-entries":{"acl-entry":{"1":{
"config":{"sequence-id":12},"ip":{"config":{"protocol":"0","source-ip-address":"1.0.0.0/8"}},
"transport":{"config":{"source-port":"0"}},)" +
                          verdict + R"(}}}},"stamp":"x"}}}})";
  std::string const made = madeOf(readOpenConfig, old);
  EXPECT_NE(
      made.find("\"o\",\"af\":\"ipv4\"\n"
                "12,\"name\":\"12\",\"source\":[\"1.0.0.0/8\"],\"action\":{\"dropEnabled\":true\n"
                "13,\"name\":\"implicit-deny\",\"action\":{\"dropEnabled\":true\n"),
      std::string::npos)
      << made;
  EXPECT_EQ(madeOf(readOpenConfig, old, {.implicitEnd = false}).find("implicit"),
            std::string::npos);
  // What is left out tells the family of its list as well, and 'IP_ICMP' goes by the family.
  EXPECT_EQ(madeOf(readOpenConfig, R"([{"name":"d","acl-entries":{"acl-entry":[
{"sequence-id":1,"l2":{"config":{"vlan-id":7,"ethertype":"ETHERTYPE_IPV4"}},)" +
                                       drop + R"(},
{"sequence-id":2,"ip":{"config":{"protocol":"IP_ICMP","source-ip-address":"::1"}},)" +
                                       drop + R"(},
{"sequence-id":3,"ip":{"config":{"protocol":"IP_ICMP"}},)" +
                                       drop + "}]}}]"),
            "2:34: error[unsupported]: a rule cannot say 'vlan-id'\n"
            "1:2: note[dialect]: the older dialect is read: numbers of 0 ask for nothing, and a "
            "list ends in a drop\n"
            "3:45: note[icmp]: 'IP_ICMP' is read as protocol 58, ICMPv6, in entries and lists of "
            "IPv6\n"
            "4:45: note[icmp]: 'IP_ICMP' is read as protocol 1, also in IPv6, in entries that name "
            "no family in lists of both\n"
            R"("d","af":"ipv4")"
            "\n"
            R"(3,"name":"3","proto":1,"action":{"dropEnabled":true)"
            "\n"
            R"(4,"name":"implicit-deny","action":{"dropEnabled":true)"
            "\n"
            R"("d-v6","af":"ipv6")"
            "\n"
            R"(2,"name":"2","source":["::1/128"],"proto":58,"action":{"dropEnabled":true)"
            "\n"
            R"(3,"name":"3","proto":1,"action":{"dropEnabled":true)"
            "\n"
            R"(4,"name":"implicit-deny","action":{"dropEnabled":true)"
            "\n");
  // A path, and one ACL by itself, whose places are those of the file.
  EXPECT_NE(madeOf(readOpenConfig,
                   "/acl/acl-sets/acl-set[name=x][type=ACL_IPV6]:\n{\n\"openconfig-acl:"
                   "acl-entries\":{\"acl-entry\":[\n{\"sequence-id\":1,\"q\":1}]}}")
                .find("4:18: error[unsupported]: a rule cannot say 'q'\n\"x\",\"af\":\"ipv6\""),
            std::string::npos);
  EXPECT_EQ(madeOf(readOpenConfig, "{}"), "f:1:1: error: there is no 'acl-set' in this file");
}

TEST(ConfigDb, Rules) {
  for (
      Row const& row : {
          Row{R"("SRC_IP":"1.2.3.4","DST_IP":"0.0.0.0/0","IP_PROTOCOL":"6","L4_DST_PORT":"0x50","DSCP":46)",
              R"(0,"name":"r","source":["1.2.3.4/32"],"dport":80,"proto":6,"dscp":46)"},
          {R"("L4_SRC_PORT_RANGE":"0-1028","IP_PROTOCOL":17)",
           R"("sport":"0-1028","proto":17,"fragment":0)"},
          {R"("TCP_FLAGS":"0x02/0x12")", R"("proto":6,"matchTcpInit":true)"},
          {R"("TCP_FLAGS":"0x10/0x10")", "error[unsupported]: a rule cannot say these TCP flags"},
          {R"("DSCP":"8/0x38")", R"("dscp":"8-15")"},
          {R"("ICMP_TYPE":"8")", R"("icmpType":8,"proto":1)"},
          {R"("ICMPV6_TYPE":135,"ETHER_TYPE":"34525")",
           "\"t\",\"af\":\"ipv6\"\n0,\"name\":\"r\",\"icmpType\":135,\"proto\":58"},
          {R"("ICMP_TYPE":"8","ICMP_CODE":"0")", "a rule cannot say 'ICMP_CODE'"},
          {R"("IP_TYPE":"ARP")", "note[never-matches]: no IP packet matches the rule"},
          {R"("SRC_IP":"1.0.0.0/8","ETHER_TYPE":"0x86dd")", "note[never-matches]"},
          {R"("IP_TYPE":"IPv4ANY","SRC_IPV6":"::1")",
           "error[entry]: the address family is not that of the rest"},
          {R"("IP_PROTOCOL":"6","NEXT_HEADER":"17")", "the fields of the rule exclude each other"},
          {R"("SCR_IP":"1.0.0.0/8")", "error[unsupported]: a rule cannot say 'SCR_IP'"},
          {R"("L4_SRC_PORT":"80-90")", "'L4_SRC_PORT' must be one port"},
          {R"("L4_SRC_PORT_RANGE":"80")", "'L4_SRC_PORT_RANGE' must be a text such as"},
          {R"("L4_DST_PORT":"010x")", "'L4_DST_PORT' must be a whole number from 0 to 65535"},
          {R"("packet_action":"REDIRECT:Ethernet0")", "duplicate field 'packet_action'"},
      }) {
    SCOPED_TRACE(row.text);
    std::string const made =
        madeOf(readConfigDb, R"({"ACL_RULE":{"t|r":{"PRIORITY":"5","PACKET_ACTION":"FORWARD",)" +
                                 row.text + "}}}");
    EXPECT_NE(made.find(row.made), std::string::npos) << made;
  }
}

TEST(ConfigDb, TablesShapesAndPriorities) {
  EXPECT_EQ(
      madeOf(readConfigDb, R"({"x":{"ACL_RULE":{"t|low":{"PRIORITY":"1","PACKET_ACTION":"DROP"},
"t|b":{"PRIORITY":"20","PACKET_ACTION":"FORWARD"},
"t|a":{"PRIORITY":"20","PACKET_ACTION":"FORWARD","SRC_IPV6":"::1"},
"t|none":{"PRIORITY":"2","PACKET_ACTION":"REDIRECT:Ethernet0"},
"m|q":{"PRIORITY":"2","PACKET_ACTION":"DROP"},
"bad":{},
"t|b":{"PRIORITY":"19","PACKET_ACTION":"DROP"}},
"ACL_TABLE":{"m":{"type":"mirror"},
"t":{"type":"L3V6","policy_desc":"d","ports":["E"]}}}})"),
      "6:1: error[entry]: 'bad' does not name a table and a rule\n"
      "2:1: error[unsupported]: rule 't|b' stands again in line 7: only one of the two can count\n"
      "8:14: note[skipped-table]: table 'm' is of type MIRROR, not about packets that are "
      "forwarded: 1 rule is left out\n"
      "4:42: error[unsupported]: a rule cannot do 'REDIRECT:Ethernet0'\n"
      "9:38: note[bindings]: what tables are bound to is not read\n"
      "\"t\",\"af\":\"ipv6\",\"description\":\"d\"\n"
      "0,\"name\":\"a\",\"source\":[\"::1/128\"\n"
      "1,\"name\":\"b\",\"action\":{\"dropEnabled\":true\n"
      "2,\"name\":\"low\",\"action\":{\"dropEnabled\":true\n");
  // A list of operations; equal priorities go by name, with a warning.
  EXPECT_EQ(
      madeOf(
          readConfigDb,
          R"([{"ACL_RULE_TABLE:t:z":{"priority":5,"packet_action":"drop","src_ip":"1.0.0.0/8"},"OP":"SET"},
{"ACL_RULE_TABLE:t:y":{"priority":5,"packet_action":"forward"},"OP":"SET"},
{"ACL_RULE_TABLE:t:x":{"priority":6,"packet_action":"forward"},"OP":"SET"},
{"ACL_RULE_TABLE:t:x":{},"OP":"DEL"}])"),
      "3:2: note[deleted]: rule 't:x' is deleted further on\n"
      "4:2: note[deleted]: the object deletes rule 't:x'\n"
      "1:3: warning[same-priority]: rules 'y' and 'z' of table 't' have the same PRIORITY 5: which "
      "of them decides is undefined; they are read in the order of names\n"
      "\"t\",\"af\":\"ipv4\"\n0,\"name\":\"y\"\n"
      "1,\"name\":\"z\",\"source\":[\"1.0.0.0/8\"],\"action\":{\"dropEnabled\":true\n");
}

TEST(JsonConfig, NamesTextsAndListsOfOtherFiles) {
  std::string const start = R"({"$schema":"s","schema":"naxel-rules","version":1,)";
  EXPECT_EQ(madeOf(readJsonConfig,
                   start + R"("acls":[{"name":"a","af":"ipv4","description":"all","rules":[
{"index":1,"name":"x","description":"d","proto":["tcp","IPv6-ICMP"],"dport":["https","8000-8099",53],"dscp":"AF41"},
{"index":2,"name":"y","dport":"htps"},
{"index":3,"name":"z","prot":6},
{"index":3,"name":"w","source":"lst"}]}],
"prefixLists":{"list":{"description":"e","addr":["1.0.0.0/8"]},"bad":["x"]}})"),
            "6:71: error[json]: 'x' is not a prefix: the length is missing\n"
            "3:31: error[json]: 'dport': there is no destination port 'htps'\n"
            "4:23: error[json]: unknown field 'prot'\n"
            "5:32: error[prefix-list]: there is no prefix list 'lst'\n"
            "\"a\",\"af\":\"ipv4\",\"description\":\"all\"\n"
            "1,\"name\":\"x\",\"description\":\"d\",\"dport\":[53,443,\"8000-8099\"],\"proto\":[6,"
            "58],\"dscp\":34\n"
            "3,\"name\":\"w\"\n");
  // A list may stand in a later file, and only in one.
  RuleSet rules(Obel::ChipId(0));
  std::ostringstream said;
  Diagnostics diagnostics(said);
  std::string const lists = start + R"("prefixLists":{"n":["1.0.0.0/8"]},"acls":[]})";
  std::string const user =
      start + R"("acls":[{"name":"a","af":"ipv4","rules":[{"index":1,"name":"r","source":"n"}]}]})";
  ReadCounts counts;
  for (auto const& [path, text] :
       {std::pair("user", &user), {"lists", &lists}, {"again", &lists}}) {
    RuleReading reading(path, *text, {}, rules, diagnostics);
    readJsonConfig(reading);
    counts = reading.counts();
  }
  settle(counts, rules, diagnostics);
  EXPECT_TRUE(said.str().starts_with(
      "again:1:66: error[json]: prefix list 'n' stands in lists:1 already\n"))
      << said.str();
  EXPECT_EQ(rules.acls()->acl("a")->ruleByName("r")->ruleFilter()->source()->addrs(), 1u);
}

TEST(RuleFiles, TellsJsonFormatsByTheirContent) {
  for (auto const& [text, name] :
       {std::pair("{\"schema\":\"naxel-rules\",\"x\":\"acl-sets\"}", "json"),
        {"{}", "json"},
        {"[{\"acl-entries\":{}}]", "openconfig"},
        {"/acl\n{\"openconfig-acl:acl-entries\":{}}", "openconfig"},
        {"{\"a\":{\"ACL_RULE\":{}}}", "configdb"},
        {"[{\"ACL_RULE_TABLE:t:r\":{}}]", "configdb"},
        {"[]", "none"},
        {"@acl-set", "classbench"}}) {
    RuleFormatInfo const* const found = formatOf(text);
    EXPECT_EQ(found ? found->name : "none", std::string_view(name)) << text;
  }
}

}  // namespace
}  // namespace NaxelTool
