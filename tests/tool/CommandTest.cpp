// The program as its users run it: output, exit codes, files.

#include "input/Errors.h"
#include "support/CommandRun.h"

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <zlib.h>

namespace {

using Test::Call;

class Command : public Test::CommandRun {};

// The documents show whole outputs, and are compared with the program; here is what they leave out.
TEST_F(Command, CodeAndMessageOfEveryOutcome) {
  write("a", "naxel-rules", R"("acls":[{"name":"a","af":"ipv4","rules":[]}])");
  write("three", "naxel-rules", R"("acls":[{"name":"a","af":"ipv4","rules":[
    {"index":1,"name":"x","source":["1.0.0.0/8"]},{"index":2,"name":"y","source":["2.0.0.0/8"]},
    {"index":3,"name":"z","source":["3.0.0.0/8"]}]}])");
  write("tags", "naxel-rules",
        R"("acls":[{"name":"<script>\"&","af":"ipv4","rules":[{"index":1,"name":"</td>"}]}])");
  write("late", "naxel-rules", R"("acls":[{"name":"a","af":"ipv4","rules":[
    {"index":20,"name":"second","action":{"dropEnabled":true,"tc":3,"setTcEnabled":true}},
    {"index":10,"name":"never","source":{"except":["10.0.0.0/8"]}}]}])");
  write("part", "ip access-list extended P\n permit tcp any any ttl gt 3\n permit ip any any\n");
  write("seven", "naxel-chip", R"("chipId":7,"rangeXformWidth":{"dstPort":4,"srcPort":0},
                        "comboXformWidth":{"ipv6SrcDstPrefix":5})");
  write("hitful", "naxel-chip", R"("permitDuringUpdate":true,"softChip":{"forceHitful":true})");
  write("narrow", "naxel-chip", R"("prefixXformWidth":{"ipv4Src":1})");
  write("small", "naxel-chip",
        R"("chipId":9,"softChip":{"capacity":{"v4Source":2},"answerAfterTicks":3})");
  write("blank", " \n\n");
  write("text", "\n  permit ip any any\n");
  write("set",
        "@1.0.0.0/8 0.0.0.0/0 0 : 65535 0 : 65535 0x00/0x00\n"
        "@0.0.0.0/0 0.0.0.0/0 0 : 65535 0 : 65535 0x00/0x00\n");
  write("trace", "# drawn from the first rule\n16777216 1 2 3 6 0\n33554432 1 2 3 6 0 0\n");
  write("refuses", "naxel-chip", R"("softChip":{"refuseTable":"v4Source","refuseAcquires":1})");
  write("wide", "naxel-rules", R"("acls":[{"name":"a\u001b[31m","af":"ipv4","rules":[
    {"index":1,"name":"x\ny","dport":"1-30000","sport":"1-30000"}]}])");
  write("left", "naxel-rules", R"("acls":[{"name":"a","af":"ipv4","rules":[{"index":1,"name":"x",
    "source":{"addr":["10.0.0.0/8"],"except":["10.0.0.0/17"]},"sport":"1-9","proto":[6,17]}]}])");
  write("right", "naxel-rules", R"("acls":[{"name":"a","af":"ipv4","rules":[{"index":1,"name":"y",
    "source":["10.0.0.0/16"],"destination":["10.3.0.0/16"],"sport":"5-20","dscp":7,
    "action":{"dropEnabled":true}}]}])");
  write("table", "old");
  write("page.html", "");
  write(".err", "");
  write(".out", "");
  auto const before = files();

  Call const calls[] = {
    {"compile --chip hitful three", 0, "", "hitful, policy permitAll while loading; loaded\n"},
    {"compile --json --chip seven late", 0, "",
     R"("chip":7,
 "source":{"read":2,"compiled":2,"reported":0,"leftOut":0},
 "kick":{"progress":"naxelFinishedSuccess","message":"","count":1},
 "widths":{"prefix":{"ipv4Src":16,"ipv4Dst":16,"ipv6Src":16,"ipv6Dst":16},"range":{"dstPort":4},"combo":{"ipv6SrcDstPrefix":5}},)"},
    {"compile --json late", 0, "", R"(
    {"index":10,"name":"never","action":{"dropEnabled":false,"logEnabled":false,"dscp":0,"setDscpEnabled":false,"tc":8,"setTcEnabled":false,"sflowEnabled":false},"entries":[]},
    {"index":20,"name":"second","action":{"dropEnabled":true,"logEnabled":false,"dscp":0,"setDscpEnabled":false,"tc":3,"setTcEnabled":true,"sflowEnabled":false},"entries":[
     {}]}]}]}}
)"},
    {"verify --packets 3000 --chip ex/combo-chip.json ex/edge.json ex/branch.rules", 0,
     "ex/branch.rules: note[unused-flags]: 5 rules carry flags that are not used\n",
     "\nedge-in6: "},
    {"classify --src 192.0.2.9 --dst 203.0.113.5 --acl edge-out ex/edge.json", 0, "",
     "\n\nedge-out: rule 50 'rest': drop, sflow\n"},
    {"check late", 1, "*",
     "error[matches-nothing]: rule 10 'never' of 'a' matches no packet: its source has no address: "
     "there are only except prefixes\n"},
    {"check --only idle-action,redundant late", 1, "*",
     "rule 20 'second' of 'a' sets a traffic class on packets that it drops\n"},
    {"check --ignore idle-action,matches-nothing late", 0, "",
     "nothing found in 2 rules of 1 ACL;"},
    {"check --only shadowed,covred late", 2,
     "naxel: error[usage]: there is no finding 'covred'; did you mean 'covered'?\n"},
    {"search --want drop --in 'ip 11.0.0.0/8 > any' late", 0, "",
     "a: proto 0 11.0.0.0 > 0.0.0.0\n"},
    {"search --in 'ip any > any' late", 1, "*", "drop, set tc 3  rule 20 'second' (late:"},
    {"search --effort 1 --want drop three", 3, "*", "a: undecided, the effort did not suffice\n"},
    {"search --want rule:x late", 2, "naxel: error[unknown-rule]: --want: there is no rule 'x'\n"},
    {"search --want rule:edge.json:33 ex/edge.json", 0, "",
     "permit  rule 60 'web' (ex/edge.json:33)"},
    // What was left out is told by whatever answers for the rest.
    {"check --skip-unsupported part", 0, "*",
     "1 of 2 entries is left out: the verdicts are not those of the source\nnothing found in 2 "
     "rules "
     "of 1 ACL; packets reach 1 of them, and not 1 end that is implied\n"},
    {"check --json --skip-unsupported part", 0, "*", ",\"leftOut\":1,"},
    {"search --want drop --skip-unsupported part", 1, "*", "1 of 2 entries is left out: "},
    {"explain --src 1.1.1.1 --dst 1.1.1.1 --skip-unsupported part", 0, "*",
     "1 of 2 entries is left out: "},
    {"search --want no late", 2, "naxel: error[usage]: there is no verdict 'no'; *"},
    {"search --acl b late", 2, "naxel: error[usage]: there is no ACL 'b'*"},
    {"search --in 'ip ::/0 > any' late", 2,
     "naxel: error[usage]: no ACL is of the family of these packets\n"},
    {"classify --packets trace set", 1, "*",
     "trace:3: set: rule 1 'r1': permit (set:2); the trace says: rule 0 or before it\n"},
    {"classify --packets trace --packets - --acl edge-in ex/edge.json", 1, "*",
     "total: 2 packets read, 2 classified, 0 left out, 0 differences\n"},
    {"classify --json --packet 'a: udp 1.2.3.4:53 > 1.2.3.4:53' a", 0, "",
     "\"verdicts\":[\n  {\"acl\":\"a\",\"verdict\":\"none\"}],\n \"leftOut\":0,\n "
     "\"differences\":0}\n"},
    {"classify --packets text a", 2,
     "text:2:3: error[unknown-protocol]: there is no protocol 'permit'\n    2 |   permit ip any "
     "any\n"
     "      |   ^~~~~~ other protocols than tcp, udp, sctp and icmp are written 'proto N'\n"},
    {"classify --packets - -", 2, "naxel: error[usage]: standard input can be read only once\n"},
    {"classify --packets trace --packet-format pcap a", 2,
     "trace: error[capture]: unknown file format\n"},
    {"classify --packets trace --src ::1 a", 2, "*"},
    {"compile none", 2, "none: error[input]: No such file or directory\n"},
    {"compile -o t .", 2, "naxel: error[usage]: --output names one file, and a folder has many\n"},
    {"compile --dump t .", 2,
     "naxel: error[usage]: --dump names one file, and a folder has many\n"},
    {"compile . - <three", 2,
     "naxel: error[usage]: standard input cannot be read for each file of a folder\n"},
    {"compile --jobs 2 three", 2,
     "naxel: error[usage]: --jobs, --timeout and --resume are about folders of rule files\n"},
    // A packet in the command line is told like one in a file, and so is a rule that there is not.
    {"explain --packet 'a: tcp 1.2.3.4:1 > 1.2.3.4' a", 2,
     "--packet:1:20: error[port]: the port is missing\n    1 | a: tcp 1.2.3.4:1 > 1.2.3.4\n"
     "      |                    ^~~~~~~ write ADDRESS:PORT\n"},
    {"explain --packet '' a", 2, "naxel: error[usage]: --packet: the value is empty\n*"},
    {"explain --packet ' # ' a", 2, "--packet:1:1: error[syntax]: there is no packet\n"},
    {"explain --src 1.1.1.1 --dst 1.1.1.1 --why-not sshd ex/edge.json", 2,
     "naxel: error[unknown-rule]: --why-not: there is no rule 'sshd'\n  help: did you mean "
     "'ssh'?\n"},
    {"explain --src 1.1.1.1 --dst 1.1.1.1 --why-not edge.json:25 ex/edge.json", 2,
     "naxel: error[unknown-rule]: --why-not: there is no rule 'edge.json:25'\n"
     "  help: the rule before it stands at ex/edge.json:24\n"},
    {"compile blank", 2, "blank: error[input]: the file is empty\n"},
    {"compile text", 2,
     "text:2:3: error[input]: rules begin with '@' (ClassBench) or '{' (JSON), or have a "
     "line that begins an access list\n"},
    {"compile --format classbench text", 2,
     "text:2: error[syntax]: expected '@' before 'permit ip any any'\n"},
    {"compile --chip a a", 2, "a:1:11: error[input]: 'schema' must be \"naxel-chip\"\n"},
    {"compile -o no/where a", 2,
     "no/where: error[output]: cannot be written: No such file or directory\n"},
    {"classify --src 1.2.3 --dst 1.2.3.4 a", 2, "naxel: error[usage]: '1.2.3' is not an address\n"},
    {"classify --src ::1 --dst 1.2.3.4 a", 2,
     "naxel: error[usage]: the addresses are of different families\n"},
    {"classify --src 1.2.3.4 --dst 1.2.3.4 --acl b a", 2,
     "naxel: error[usage]: there is no ACL 'b'\n"},
    {"compile --json none", 2,
     R"({"schema":"naxel-message","version":1,"severity":"error","code":"input","text":)"
     R"("No such file or directory","file":"none"})"
     "\n"},
    {"compile --color=always none", 2,
     "\x1b[1mnone:\x1b[0m \x1b[1;31merror[input]:\x1b[0m No such file or directory\n"},
    // Numbers are decimal or begin with 0x; choices go by name, options by their whole name.
    {"classify --src 1.1.1.1 --dst 1.1.1.1 --dport 0443 --dscp 0x3f a", 0, "", "0 > 443 dscp 63"},
    {"classify --src 1.1.1.1 --dst 1.1.1.1 --dscp 64 a", 2,
     "naxel: error[usage]: --dscp: '64' is not a whole number from 0 to 63\n*"},
    {"verify --packets 18446744073709551616 a", 2, "naxel: error[usage]: --packets: '184*"},
    {"verify --packets -1 a", 2, "naxel: error[usage]: --packets: '-1' is not*"},
    {"verify --seed 1e3 a", 2, "naxel: error[usage]: --seed: '1e3' is not*"},
    {"verify --seed 0x a", 2, "naxel: error[usage]: --seed: '0x' is not*"},
    {"compile --max-input 1T a", 2, "naxel: error[usage]: --max-input: '1T' is not a number of*"},
    {"compile --format 7 a", 2, "naxel: error[usage]: --format: '7' is none of auto|classbench|*"},
    {"compile --format jsn a", 2, "naxel: error[usage]: --format: 'jsn' is none of*"},
    {"compile --color=\"$(printf '\\033[2J')\" a", 2,
     "naxel: error[usage]: --color: '\\x1b[2J' is none of*"},
    {"complie a", 2,
     "naxel: error[usage]: there is no command 'complie'\n  help: did you mean 'compile'?\n"},
    {"brew a", 2,
     "naxel: error[usage]: there is no command 'brew'\n  help: 'naxel --help' lists the "
     "commands\n"},
    {"compile --fromat json a", 2,
     "naxel: error[usage]: there is no option '--fromat'\n  help: did you mean '--format'?\n"},
    {"gen a", 2, "naxel: error[usage]: 'a' is one argument too many\n*"},
    {"", 2, "naxel: error[usage]: no command is given\n*"},
    {"--version", 0, "", "naxel "},
    // Empty names are those of shell variables that are not set.
    {"compile", 2, "naxel: error[usage]: no rule files are given; - is standard input\n"},
    {"compile a ''", 2, "naxel: error[usage]: the name of a rule file is empty\n"},
    {"compile -o '' a", 2, "naxel: error[usage]: --output: the value is empty\n*"},
    {"compile --output= a", 2, "naxel: error[usage]: --output: the value is empty\n"},
    // Limits.
    {"compile - <three", 0, "", "\na    ipv4 "},
    {"compile --chip - - <three", 2, "naxel: error[usage]: standard input can be read only once\n"},
    {"compile --max-input 99 three", 2,
     "three: error[input]: holds more than 99 bytes, the most that --max-input allows\n"},
    {"compile /proc/self/mem", 5, "/proc/self/mem: error[input]: Input/output error\n"},
    {"compile --max-input 10M /dev/zero", 2,
     "/dev/zero: error[input]: holds more than 10485760 bytes, the most that --max-input allows\n"},
    {"gen --style groups --lists 100000 --list-size 100000 -o t", 2,
     "naxel: error[usage]: 10000000000 prefixes take*"},
    // Names from files steer no terminal and forge no line.
    {"compile wide", 0, "", "\na\\x1b[31m  ipv4 "},
    {"classify --src 1.1.1.1 --dst 1.1.1.1 --dport 5 --sport 5 wide", 0, "",
     "\na\\x1b[31m: rule 1 'x\\x0ay': permit\n"},
    // Files that are inputs are not written over, by whatever name.
    {"compile -o three three", 2,
     "three: error[output]: is an input as well, and would be written over\n"},
    {"compile -o ./three - <three", 2, "./three: error[output]: is an input*"},
    {"compile -o seven --chip seven three", 2, "seven: error[output]: is an input*"},
    {"verify three >>three", 2, "standard output: error[output]: is an input*"},
    {"compile --json three >/dev/full", 5, "*"},
    {"compile -o /dev/full three", 5,
     "/dev/full: error[output]: cannot be written: No space left on device\n"},
    {"compile -o /dev/stdout three", 0, "", R"({"schema":"naxel-tables")"},
    {"compile --quiet three", 0, ""},
    // What every stage has published, also of a kick that has failed.
    {"compile --dump - three", 0, "",
     "\nacls.acl['a'].ruleById[1] = see acls.acl['a'].ruleByName['x']\n"},
    {"compile --dump - --chip narrow three", 3, "*",
     "\nprefixXform ipv4 src: status.status = finishedFailed\n"},
    {"compile --dump - -o /dev/null three", 0, "",
     "\nprefixEncoder ipv4 src: status.plainToEncodedLabel[3] = "},
    {"compile --dump - -o - three", 2,
     "naxel: error[usage]: the tables and --dump would go to the same place\n"},
    {"compile --dump x -o x three", 2,
     "naxel: error[usage]: the tables and --dump would go to the same place\n"},
    {"compile --dump three three", 2, "three: error[output]: is an input*"},
    // Nothing is written over, and nothing is left behind.
    {"compile -o table --chip narrow three", 3,
     "naxel: error[does-not-fit]: Naxel failed at stagePrefixXform on chip 0\n"
     "naxel: error[does-not-fit]: ipv4Src: IPv4 source address: 3 disjoint pieces needed, label "
     "width 1 has labels for 1\n"
     "  help: its width is a 'prefixXformWidth' of the chip description\n"
     "three:2:5: note[does-not-fit]: rule 1 'x' of 'a' has 1 prefixes there\n*"},
    {"compile -o table --max-entries 2 three", 3,
     "naxel: error[does-not-fit]: Naxel failed at stageRuleExpander on chip 0\n"
     "naxel: error[does-not-fit]: at least 1 entries needed for rule 1 'x' of 'a', 1 for rule 2 "
     "'y' "
     "of 'a', 1 for rule 3 'z' of 'a'; 3 in all, at most 2 are made\n"
     "  help: --max-entries sets another limit\n"
     "three:2:5: note[does-not-fit]: rule 1 'x' of 'a' stands here\n*"},
    {"compile -o table --chip small three", 3,
     "naxel: error[does-not-fit]: Naxel failed at stageLoader on chip 9\n"
     "naxel: error[does-not-fit]: the driver refused resources for IPv4 source prefixes\n"
     "naxel: error[does-not-fit]: v4Source: 3 entries needed, 2 available\n"},
    // The same said by those who are asked for it.
    {"cost --chip narrow three", 3, "",
     "ipv4Src: IPv4 source address: 3 disjoint pieces needed, "
     "label width 1 has labels for 1; 2 is enough for prefixXformWidth.ipv4Src\n"},
    {"cost --chip small three", 3, "", "\n  v4Source: 3 entries needed, 2 available\n"},
    {"cost --chip refuses three", 0, "", "\nthey fit into the chip\n"},
    {"report --quiet -o page.html three", 0, ""},
    {"report three", 2, "naxel: error[usage]: no file is given to write to; -o FILE.html\n"},
    {"report -o three three", 2, "three: error[output]: is an input*"},
    {"report -o a --against a three", 2, "a: error[output]: is an input*"},
    {"report -o page.html --against '' three", 2,
     "naxel: error[usage]: --against: the name of a rule file is empty\n"},
    {"report -o page.html --against - -", 2,
     "naxel: error[usage]: standard input can be read only once\n"},
    {"report -o - wide", 0, "", "<td>a\\x1b[31m 1 &#39;x\\x0ay&#39;<small>permit"},
    {"report -o - tags", 0, "", "<td>&lt;script&gt;&quot;&amp;</td>"},
    {"whatif --vary prefixXformWidth=1 three", 3, "", "the rules fit into 0 of 1 chips\n"},
    {"whatif --vary prefixXformWidth=1,2 --max-points 1 three", 2,
     "naxel: error[usage]: the grid has 2 chips, more than --max-points 1\n"},
    {"whatif --vary prefix=1 three", 2,
     "naxel: error[usage]: a chip's description has no member 'prefix' that*"},
    // What the chip was told to refuse is not told as a lack of room.
    {"compile -o table --chip refuses three", 4,
     "naxel: error[refused]: Naxel failed at stageLoader on chip 0\n"
     "naxel: error[refused]: the driver refused resources for IPv4 source prefixes\n"
     "naxel: error[refused]: v4Source: refused by order of the chip's options\n"},
#if NAXEL_EXACT_PROOF
    {"diff three three", 0, "", "no packet is treated differently\n\nrows "},
    {"diff -q three three", 0, "", ""},
    {"diff --no-rows left right", 1, "",
     "\n     both  match proto 6,17 10.0.128.0/17:5-9 > 10.3.0.0/16 dscp 7\n"},
    {"diff three a", 1, "*", "3 changes in 1 of 1 ACL: 3 permit -> no rule\n"},
    {"diff --acl a=edge-in three ex/edge.json --no-rows", 1, "*",
     "ACL 'edge-in6' stands in the new rules only"},
    {"diff --chip narrow a three", 3, "*", "the new rules do not fit this chip:\n  ipv4Src: "},
    {"diff --chip narrow three a", 1, "*", "the old rules do not fit this chip:\n"},
    {"diff --effort 1 --no-rows three late", 1, "*",
     "rules that differ were not looked at in full"},
    {"diff three", 2,
     "naxel: error[usage]: two rule sets are compared: the old one and the new one\n"},
    {"diff --acl a three three", 2, "naxel: error[usage]: --acl: 'a' is not OLD=NEW\n"},
    {"diff --acl b=a three three", 2,
     "naxel: error[usage]: --acl: the old rules have no ACL 'b'\n"},
    {"diff - -", 2, "naxel: error[usage]: standard input can be read only once\n"},
    // The page has what diff finds, and the exit code says whether the rules fit, not whether they differ.
    {"report -o - --against three three", 0, "",
     "<p>Against three. No packet is treated differently.</p>"},
    {"report -o - --against three a", 0, "*",
     "<td>permit -&gt; no rule<small>a</small></td><td class=t data-l=\"old rule\">rule 1 "
     "&#39;x&#39; (three:2)"},
    {"report -o - --chip narrow --against a three", 3, "*",
     "the new rules do not fit this chip.</p>"},
    {"prune set", 0, "", "1 of 2 rules can go; proved for every packet\n"},
    {"prune --to ios three", 2, "*"},
    {"prune --json late", 0, "", "\"why\":\"matches-nothing\""},
    {"prune --json --to json three", 2, "*"},
    {"prune -o table three", 2,
     "naxel: error[usage]: --output needs --to, which says what to write\n"},
    {"verify --exact --packets 0 ex/edge.json", 0, "", "every packet: 3 ACLs, 27 rules, "},
#else
    {"verify --exact --packets 0 a", 2,
     "naxel: error[usage]: this build cannot prove: it was made without the BDD library\n"},
#endif
  };
  for (Call const& c : calls) expectCall(c);
  EXPECT_EQ(expectCall({"verify --quiet --packets 10 three", 0, ""}), "");
  EXPECT_EQ(read("table"), "old");
  EXPECT_EQ(files(), before) << "something was left behind";
}

// As the GNU binary utilities do with their --output.
TEST_F(Command, OutputKeepsModeLinksAndNames) {
  write("table", "old");
  write("page.html", "");
  expectCall({"compile -o new ex/edge.json", 0, "", "ACL "});
  std::string const tables = read("new");
  EXPECT_TRUE(nlohmann::json::accept(tables));
  struct Case {
    char const* before;
    char const* output;
    char const* holds;  // besides the output, what shows that the file is the same
  };
  Case const cases[] = {
      {"echo old >t; chmod 751 t", "t", "[ $(stat -c %a t) = 751 ] && [ $(umask) = 0022 ]"},
      {"umask 077", "t", "[ $(stat -c %a t) = 600 ]"},
      {"echo old >kept; ln kept t", "t", "cmp t kept"},
      {"seq 99999 >kept; ln kept t", "t", "cmp t kept"},
      {"mkdir d; echo old >d/t; ln -s d/t link", "link", "[ -L link ] && cmp d/t link"},
      {"mkdir d; ln -s missing d/a; ln -s d/a t", "t",
       "[ -L t ] && [ -L d/a ] && [ -f d/missing ]"},
      {"mkfifo t; cat t >got & cat /dev/null", "t", "wait; [ -p t ] && cmp got ../new"},
      {"exec 3>got", "/dev/fd/3", "cmp got ../new; ln -s got /dev/fd/3 2>/dev/null; cp got t"},
      {"cat /dev/null", "- >t", "cmp t ../new"},
      {"cat /dev/null", "/dev/stdout >t", "cmp t ../new"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.before);
    std::string const output = c.output;
    std::string const file =
        output.starts_with("/dev/fd") ? "got" : output.substr(output.find('>') + 1);
    EXPECT_EQ(
        shell("umask 022; mkdir w && cd w && " + std::string(c.before) +
              "\n$N compile --quiet ../ex/edge.json -o " + output + " && " + c.holds +
              " && { [ -p " + file + " ] || cmp " + file + " ../new; } && ! ls -A | grep naxel-"),
        0);
    shell("rm -rf w");
  }
}

TEST_F(Command, SignalsLeaveNothingBehindAndAreSeen) {
  for (int const number : {1, 2, 15}) {
    std::string const signal = std::to_string(number);
    EXPECT_EQ(shell("env --default-signal $N gen --rules 1000000 -o t & p=$!\n"
                    "until ls -A | grep -q naxel-; do :; done\n"
                    "kill -" +
                    signal + " $p; wait $p"),
              128 + number);
    EXPECT_EQ(files(), (std::set<std::string>{"ex", "examples"}));
  }
  EXPECT_EQ(shell("$N gen --rules 100000 2>err | head -1 >out; cat err"), 0);
  EXPECT_EQ(read("err"), "") << "a filter that nobody listens to ends in silence";
  EXPECT_EQ(shell("mkfifo f; $N compile f 2>err & p=$!; exec 3>f; kill -ABRT $p; wait $p"), 70);
  EXPECT_EQ(read("err"), "naxel: error[internal]: a fault of the program\n");
#if !defined(__SANITIZE_ADDRESS__)  // which takes more than any such limit by itself
  EXPECT_EQ(shell("ulimit -v 200000; head -c 300M /dev/zero | $N compile - 2>err"), 70);
  EXPECT_EQ(read("err"), "naxel: error[memory]: out of memory\n");
#endif
}

TEST_F(Command, ColourIsForTerminals) {
  // A terminal of its own for each call; without the program that makes one there is nothing to see.
  if (shell("command -v script >.out") != 0) GTEST_SKIP();
  auto const said = [&](std::string const& setting, std::string const& line) {
    shell("unset NO_COLOR; export TERM=xterm " + setting + "; script -qec \"'$N' " + line +
          "\" /dev/null </dev/null >.out 2>&1");
    return read(".out");
  };
  std::string const red = "\x1b[1;31merror[input]:";
  EXPECT_NE(said("", "compile none").find(red), std::string::npos);
  EXPECT_NE(said("NO_COLOR=", "compile none").find(red), std::string::npos);
  for (char const* setting : {"NO_COLOR=1", "TERM=dumb"})
    EXPECT_EQ(said(setting, "compile none").find('\x1b'), std::string::npos) << setting;
  EXPECT_EQ(said("", "compile --color=never none").find('\x1b'), std::string::npos);
  EXPECT_EQ(said("", "compile --json none").find('\x1b'), std::string::npos);
}

TEST(ExitCodes, TheManualHasThemAll) {
  std::string rows;
  for (NaxelTool::ExitCode const code : NaxelTool::allExitCodes())
    rows += "| " + std::to_string(static_cast<int>(code)) + " | " +
            std::string(NaxelTool::meaningOf(code)) + " |\n";
  std::ifstream in(NAXEL_SOURCE_DIR "/docs/manual.md");
  std::string const manual = (std::ostringstream() << in.rdbuf()).str();
  EXPECT_NE(manual.find("| code | meaning |\n|---|---|\n" + rows + "\n"), std::string::npos)
      << rows;
}

// A screen is 80 columns wide; an example is a whole line that can be copied.
TEST_F(Command, HelpFitsAScreenAndItsExampleWorks) {
  std::vector<std::string> commands = {""};
  for (size_t i = 0; i < commands.size(); ++i) {
    SCOPED_TRACE(commands[i]);
    std::string const help = expectCall({commands[i] + " --help", 0, ""});
    EXPECT_LE(std::count(help.begin(), help.end(), '\n'), 52);
    EXPECT_TRUE(std::all_of(help.begin(), help.end(),
                            [](char c) { return c == '\n' || (c >= ' ' && c < 0x7f); }));
    std::istringstream lines(help);
    std::string example;
    for (std::string line; std::getline(lines, line);) {
      if (line.starts_with("  naxel "))
        example = line.substr(8);
      else if (i == 0 && line.size() > 3 && line.starts_with("  ") && line[2] != '-')
        commands.push_back(line.substr(2, line.find(' ', 2) - 2));
      else
        EXPECT_LE(line.size(), 80u) << line;
    }
    expectCall({example, commands[i] == "diff" ? 1 : 0, "*"});  // it shows that there are changes
  }
  EXPECT_GE(commands.size(), 5u);
}

TEST_F(Command, EqualInputGivesEqualBytesPackedOrNot) {
  std::string const compile = "compile --json --chip ex/combo-chip.json ex/edge.json ";
  std::string const first = expectCall({compile + "ex/branch.rules", 0, "*"});
  std::string const set = read("ex/branch.rules");
  gzFile const packed = gzopen((directory_ / "branch.rules.gz").c_str(), "wb");
  gzwrite(packed, set.data(), static_cast<unsigned>(set.size()));
  gzclose(packed);
  EXPECT_EQ(expectCall({compile + "-o t branch.rules.gz", 0, "*"}), "");
  EXPECT_EQ(read("t"), first);
  std::string const bytes = read("branch.rules.gz");
  write("cut.gz", bytes.substr(0, bytes.size() / 2));
  EXPECT_EQ(shell("head -c 20M /dev/zero | gzip >bomb.gz && [ $(stat -c %s bomb.gz) -lt 30000 ]"),
            0);
  expectCall(
      {"compile --max-input 1M bomb.gz", 2,
       "bomb.gz: error[input]: holds more than 1048576 bytes, the most that --max-input allows\n"});
  expectCall(
      {"compile cut.gz", 2, "cut.gz: error[input]: unexpected end of the compressed data\n"});
  expectCall(
      {"compile branch.rules.gz ex/branch.rules", 2,
       "branch.rules.gz: note[unused-flags]: 5 rules carry flags that are not used\n"
       "ex/branch.rules: error[input]: ACL 'branch.rules' stands in branch.rules.gz already\n"});
}

TEST_F(Command, ConvertedRulesAreReadAgainAndProved) {
  write("set", "@1.0.0.0/8\t2.0.0.0/8\t0 : 65535\t80 : 80\t0x06/0xff\n");
  std::string const tables = expectCall({"compile ex/edge.json", 0, "", "ACL "});
  for (std::string const target : {"json", "openconfig"}) {
    expectCall({"convert --to " + target + " -o again ex/edge.json", 0, ""});
    expectCall({"verify --exact --packets 1000 again", 0, "", "0 differences"});
    // What is written for rules of the target itself is the same again.
    expectCall({"convert --to " + target + " -o third again", 0, ""});
    expectCall({"compile third", 0, "", tables.substr(0, tables.find("labels "))});
  }
  expectCall({"convert --to ios -o plain --no-implicit --fragments=plain set", 0, ""});
  expectCall({"verify --exact --no-implicit --fragments=plain plain", 0, "*", "0 differences"});
  write("kept", "before");
  expectCall({"convert --to ios -o kept set", 2, "set:1: error[cannot-say]: ACL 'set': *"});
  EXPECT_EQ(read("kept"), "before");
  expectCall({"convert --to json -o set set", 2, "*"});
  expectCall({"convert set", 2, "naxel: error[usage]: --to is required\n*"});
}

}  // namespace
