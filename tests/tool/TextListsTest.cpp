// What the readers make of access lists as text, and what they say about what they cannot read.

#include "input/text/AsaReader.h"
#include "input/text/Dialect.h"
#include "input/text/IosReader.h"
#include "support/Pieces.h"

#include <algorithm>
#include <sstream>

#include <gtest/gtest.h>

namespace NaxelTool {
namespace {

std::string membersOf(Mox::Ptr<Naxel::IpPrefixList> const& list) {
  if (!list) return "any";
  std::vector<Lumox::IpGenPrefix> all(list->addr().begin(), list->addr().end());
  std::sort(all.begin(), all.end());
  std::ostringstream out;
  for (size_t i = 0; i < all.size(); ++i) out << (i ? "," : "") << all[i];
  return out.str();
}

/// "A: 10 permit any > 10.0.0.0/8 proto 6 dport 80; 11 10-2 ..." with the name of a rule where it is not
/// the index, and a line for each list.
std::string dumpLists(RuleSet const& rules) {
  std::ostringstream out;
  for (auto const& [name, acl] : rules.acls()->acl()) {
    out << (out.tellp() ? " | " : "") << name << (acl->af() == Lumox::ipv6() ? " v6:" : ":");
    for (auto const& [index, rule] : acl->ruleById()) {
      Naxel::RuleFilter const& f = *rule->ruleFilter();
      std::string const number = std::to_string(index.value());
      out << ' ' << number << (rule->name() == number ? "" : " " + rule->name())
          << (rule->action().dropEnabled() ? " deny " : " permit ") << membersOf(f.source()) << '>'
          << membersOf(f.destination());
      f.forEachRangeColl([&](Naxel::RangeSetType type, auto const& ranges) {
        for (auto const& r : ranges) {
          out << ' ' << Naxel::rangeField(type).name << ' ' << r.rangeStart();
          if (r.rangeEnd() != r.rangeStart()) out << '-' << r.rangeEnd();
        }
      });
      out << (f.matchTcpInit() ? " init" : "") << (f.matchTcpEstablished() ? " est" : "")
          << (rule->action().logEnabled() ? " log;" : ";");
    }
  }
  return out.str();
}

struct ReadText {
  std::string lists;
  std::string said;
  ReadCounts counts;
};

ReadText readText(RuleReader reader, std::string text, ReadOptions const& options) {
  for (size_t at = 0; (at = text.find("\\n", at)) != text.npos;) text.replace(at, 2, "\n");
  RuleSet rules(Obel::ChipId(0));
  std::ostringstream said;
  Diagnostics diagnostics(said);
  RuleReading reading("f", text, options, rules, diagnostics);
  reader(reading);
  EXPECT_EQ(reading.counts().read, reading.counts().compiled + reading.counts().reported);
  return {dumpLists(rules), said.str(), reading.counts()};
}

/// One case per row, "TEXT => LISTS"; "\n" in a text is the end of a line, and in front of each stands
/// `before`. Nothing is said about any of them but notes.
void expectLists(RuleReader reader, std::string const& before, ReadOptions const& options,
                 std::string_view rows) {
  for (std::string const& row : ::Test::pieces(rows, "\n")) {
    SCOPED_TRACE(row);
    auto const cells = ::Test::pieces(row, " => ");
    ReadText const read = readText(reader, before + cells[0], options);
    EXPECT_EQ(read.lists, cells.at(1));
    EXPECT_EQ(read.said.find("error["), std::string::npos) << read.said;
    EXPECT_EQ(read.said.find("warning["), std::string::npos) << read.said;
  }
}

/// The same for "TEXT => LINE:COLUMN: SEVERITY[CODE]: MESSAGE", of which the beginning of what is said first
/// and is no note must agree.
void expectSaid(RuleReader reader, std::string const& before, std::string_view rows) {
  for (std::string const& row : ::Test::pieces(rows, "\n")) {
    SCOPED_TRACE(row);
    auto const cells = ::Test::pieces(row, " => ");
    ReadText const read = readText(reader, before + cells[0], {});
    std::string first;
    for (std::string const& line : ::Test::pieces(read.said, "\n"))
      if (first.empty() && line.starts_with("f:") && line.find(": note[") == line.npos)
        first = line;
    EXPECT_EQ(first.substr(0, cells.at(1).size() + 2), "f:" + cells[1]);
  }
}

ReadOptions const bare = {.implicitEnd = false, .plainFragments = true};
ReadOptions const noEnd = {.implicitEnd = false};
std::string const head = "ip access-list extended A\n ";

TEST(IosText, ReadsEntries) {
  expectLists(readIos, head, bare, R"(permit ip any any => A: 10 permit any>any;
deny   ip host 1.2.3.4 10.0.0.0 0.255.255.255 log => A: 10 deny 1.2.3.4/32>10.0.0.0/8 log;
permit ip 10.1.2.3/8 9.9.9.9 => A: 10 permit 10.0.0.0/8>9.9.9.9/32;
permit ip 1.2.3.4 255.255.255.255 any => A: 10 permit any>any;
permit ip 10.0.4.1 0.0.3.0 10.0.0.0 0.1.0.255 => A: 10 permit 10.0.4.1/32,10.0.5.1/32,10.0.6.1/32,10.0.7.1/32>10.0.0.0/24,10.1.0.0/24;
permit tcp any eq 20 21 any neq www => A: 10 permit any>any sport 20-21 dport 0-79 dport 81-65535 proto 6;
permit udp any lt 1 any gt 65534 => A: 10 permit any>any sport 0 dport 65535 proto 17;
permit udp any range snmp 162 any eq syslog log-input => A: 10 permit any>any sport 161-162 dport 514 proto 17 log;
permit tcp any any range 0 65535 => A: 10 permit any>any proto 6 fragment 0;
permit tcp any any established => A: 10 permit any>any proto 6 est;
permit tcp any any match-all +syn -ack => A: 10 permit any>any proto 6 init;
permit icmp any any echo => A: 10 permit any>any icmpType 8 proto 1;
permit icmp any any echo-reply => A: 10 permit any>any icmpType 0 proto 1 fragment 0;
deny icmp any any unreachable log => A: 10 deny any>any icmpType 3 proto 1 log;
permit 50 any any dscp ef => A: 10 permit any>any proto 50 dscp 46;
permit ospf any any precedence internet => A: 10 permit any>any proto 89 dscp 48-55;
permit ip any any fragments => A: 10 permit any>any fragment 1-8191;
permit ip any any packet-length lt 100 => A: 10 permit any>any length 0-99;
permit ip any any log MYWORD => A: 10 permit any>any log;
permit tcp any any reflect BACK timeout 30 => A: 10 permit any>any proto 6;)");
  expectLists(
      readIos, "", bare,
      R"(access-list 7 remark permit any\naccess-list 7 permit 1.2.3.4\naccess-list 7 deny any log => 7: 10 permit 1.2.3.4/32>any; 20 deny any>any log;
access-list 1999 permit 10.0.0.0 0.0.0.255 => 1999: 10 permit 10.0.0.0/24>any;
access-list 2000 permit ip any any\naccess-list 700 permit 0000.0000.0000 => 2000: 10 permit any>any;
ipv6 access-list B\n permit icmp 2001:DB8::/32 any nd-ns\n permit udp any eq 53 host ::1 => B v6: 10 permit 2001:db8::/32>any icmpType 135 proto 58; 20 permit any>::1/128 sport 53 proto 17;
ipv4 access-list X\n 10 permit ipv4 any any icmp-off => X: 10 permit any>any;
ip access-list N\n permit tcp any any eq 0\nipv6 access-list N\n permit ipv6 any any => N: 10 permit any>any dport 0 proto 6 fragment 0; | N-v6 v6: 10 permit any>any;)");
}

TEST(IosText, KeepsTheOrderOfNumbersAndObeysWhatTakesEntriesAway) {
  expectLists(
      readIos, head, noEnd,
      R"(permit ip any any\n 5 deny 1 any any\n deny 2 any any => A: 5 deny any>any proto 1; 10 permit any>any; 20 deny any>any proto 2;
7 permit 2 any any\n 8 permit udp any any eq 1\n 9 permit 3 any any => A: 7 permit any>any proto 2; 8 permit any>any dport 1 proto 17; 9 8-2 permit any>any proto 17 fragment 1-8191; 10 9 permit any>any proto 3;
4294967295 permit 2 any any\n permit 3 any any => A: 0 4294967295 permit any>any proto 2; 1 4294967305 permit any>any proto 3;
permit 2 any any\n permit  3 any any\n no permit 3  any any\n no 10\n permit 4 any any => A: 10 permit any>any proto 4;
permit 2 any any\nno ip access-list extended A\nip access-list standard A\n permit any => A: 10 permit any>any;
permit 2 any any\naccess-list 101 permit 3 any any\nno access-list 101 permit 9 any any\nip access-list extended A\n permit 4 any any => A: 10 permit any>any proto 2; 20 permit any>any proto 4;)");
  // Where entries of one number replace each other, and remarks have numbers.
  expectLists(
      readIos, "ip access-list A\n statistics per-entry\n ", noEnd,
      R"(10 permit 2 any any\n 20 remark x\n permit 3 any any\n 10 deny 4 any any => A: 10 deny any>any proto 4; 30 permit any>any proto 3;
10 permit 2 any any\n no 10\n 20 permit 3 any any => A: 20 permit any>any proto 3;)");
  expectSaid(
      readIos, head,
      R"(10 permit 2 any any\n 10 permit 3 any any => 3:5: error[duplicate-number]: number 10 is that of line 2 already
no 10 => 2:5: warning[nothing-to-take-away]: the list has no such entry)");
}

TEST(IosText, SaysWhatFragmentsMeetAndHowListsEnd) {
  std::string const nxos = "ip access-list A\\n fragments permit-all\\n ";
  std::string const eos = "ip access-list A\\n counters per-entry\\n ";
  expectLists(
      readIos, "", {},
      head.substr(0, head.size() - 2) +
          R"(\n permit tcp any any eq 80 => A: 10 permit any>any dport 80 proto 6; 11 10-2 permit any>any proto 6 fragment 1-8191; 12 implicit-deny deny any>any;
ip access-list extended A\n deny icmp any any echo\n permit ip host 1.1.1.1 any => A: 10 deny any>any icmpType 8 proto 1 fragment 0; 20 permit 1.1.1.1/32>any; 21 implicit-deny deny any>any;
ip access-list extended A\n permit tcp host 1.1.1.1 any established dscp 0 => A: 10 permit 1.1.1.1/32>any proto 6 dscp 0 est; 11 10-2 permit 1.1.1.1/32>any proto 6 fragment 1-8191 dscp 0; 12 implicit-deny deny any>any;
)" + nxos +
          R"(permit udp any any gt 9 => A: 10 permit any>any dport 10-65535 proto 17; 11 10-2 permit any>any proto 17 fragment 1-8191; 12 fragments-permit-all permit any>any fragment 1-8191; 13 implicit-deny deny any>any;
)" + eos +
          R"(permit udp any any lt 9 => A: 10 permit any>any dport 0-8 proto 17 fragment 0; 11 implicit-deny deny any>any;
ipv6 access-list B\n permit udp any any lt 9 => B v6: 10 permit any>any dport 0-8 proto 17 fragment 0; 11 implicit-nd-na permit any>any icmpType 136 proto 58; 12 implicit-nd-ns permit any>any icmpType 135 proto 58; 13 implicit-deny deny any>any;
feature x\nipv6 access-list B\n permit 6 any any => B v6: 10 permit any>any proto 6; 11 implicit-deny deny any>any;)");
  // A head without a kind is NX-OS's where nothing else tells, or what the user says.
  expectLists(readIos, "ip access-list A\n permit udp any any lt 9", noEnd,
              " => A: 10 permit any>any dport 0-8 proto 17; 11 10-2 permit any>any proto 17 "
              "fragment 1-8191;");
  expectLists(readIos, "ip access-list A\n permit udp any any lt 9",
              {.implicitEnd = false, .dialect = Dialect::eos},
              " => A: 10 permit any>any dport 0-8 proto 17 fragment 0;");
  expectLists(
      readIos, "feature x\nipv6 access-list B\n permit 6 any any", {.ndPermits = true},
      " => B v6: 10 permit any>any proto 6; 11 implicit-nd-na permit any>any icmpType 136 proto "
      "58; "
      "12 implicit-nd-ns permit any>any icmpType 135 proto 58; 13 implicit-deny deny any>any;");
}

TEST(IosText, ReadsWhatDevicesShow) {
  expectLists(
      readIos, "", bare,
      R"(Standard IP access list 9\n    20 permit 10.0.10.0, wildcard bits 0.0.0.255 (20 matches)\n    10 deny   1.2.3.4 log => 9: 10 deny 1.2.3.4/32>any log; 20 permit 10.0.10.0/24>any;
Extended IP access list B\n    10 permit tcp any any log (tag = established)\n    20 permit 1 any any [match=7]\n    30 permit 2 any any [match 7 packets, 0:00:01 ago] => B: 10 permit any>any proto 6 log; 20 permit any>any proto 1; 30 permit any>any proto 2;
IPv6 access list C\n    permit tcp any any eq bgp (8 matches) sequence 20\n    permit 7 any any sequence 10 => C v6: 10 permit any>any proto 7; 20 permit any>any dport 179 proto 6;
IP access list D\n        10 permit 7 any any\nMAC access list M\n        10 permit any any 0x8840\nIP access list D2\n        10 permit 8 any any => D: 10 permit any>any proto 7; | D2: 10 permit any>any proto 8;
IP Access List E [readonly]\n        counters per-entry\n        10 permit 7 any any\n\n        Total rules configured: 1 => E: 10 permit any>any proto 7;
banner motd ^C\nip access-list extended FAKE\n permit ip any any\n^C\nip access-list extended A\n deny 7 any any\nroute-map permit\n permit ip any any => A: 10 deny any>any proto 7;
mac access-list M\n 10 permit any any\nip access-list extended A\n deny 7 any any\nexit\npermit 8 any any => A: 10 deny any>any proto 7;)");
}

TEST(IosText, ReadsGroups) {
  expectLists(
      readIos, "", bare,
      R"(ip access-list extended A\n permit ip object-group G any\nobject-group network G\n host 1.1.1.1\n 10.0.0.0 255.0.0.0\n range 2.0.0.0 2.0.0.2\n group-object H\nobject-group network H\n description x\n 3.0.0.0/8 => A: 10 permit 1.1.1.1/32,2.0.0.0/31,2.0.0.2/32,3.0.0.0/8,10.0.0.0/8>any;
object-group ip address G\n 10 host 1.1.1.1\n 20 2.0.0.0 0.0.0.255\nobject-group ip port P\n 10 eq 80\n 20 range 90 99\nip access-list A\n permit tcp addrgroup G any portgroup P => A: 10 permit 1.1.1.1/32,2.0.0.0/24>any dport 80 dport 90-99 proto 6;
object-group network ipv4 G\n 1.0.0.0/8\nobject-group port P\n neq 5\nipv4 access-list A\n permit tcp net-group G port-group P any => A: 10 permit 1.0.0.0/8>any sport 0-4 sport 6-65535 proto 6 fragment 0;
object-group network G\n any\n host 1.1.1.1\n no  any\n any\nip access-list extended A\n permit ip object-group G any => A: 10 permit any>any;)");
  // Services: only the destination ports are united. The rule for later fragments comes once per protocol.
  expectLists(readIos,
              "object-group service S\n tcp eq 80\n tcp 443\n tcp source gt 9 eq 1\n udp\n esp\n "
              "icmp echo\n tcp-udp eq domain\n"
              "ip access-list extended A\n permit object-group S any any",
              noEnd,
              " => A: 10 permit any>any icmpType 8 proto 1; 11 10-2 permit any>any dport 80 dport "
              "443 proto 6; "
              "12 10-3 permit any>any sport 10-65535 dport 1 proto 6; 13 10-4 permit any>any dport "
              "53 proto 6 proto 17; "
              "14 10-5 permit any>any proto 17; 15 10-6 permit any>any proto 50; 16 10-7 permit "
              "any>any proto 1 fragment 1-8191; "
              "17 10-8 permit any>any proto 6 fragment 1-8191; 18 10-9 permit any>any proto 6 "
              "proto 17 fragment 1-8191;");
  std::string const use = "ip access-list extended A\n permit ip object-group G any\n";
  expectSaid(readIos, use, R"( => 2:25: error[unknown-group]: there is no group 'G'
object-group network G => 2:25: error[empty-group]: group 'G' cannot be used: it is empty
object-group network G\n group-object H\nobject-group network H\n group-object G => 2:25: error[group-cycle]: group 'G' cannot be used: line 6: 'G' contains itself
object-group network G\n group-object H => 2:25: error[unknown-group]: group 'G' cannot be used: line 4: there is no group 'H'
object-group network G\n group-object => 2:25: error[syntax]: group 'G' cannot be used: line 4: the name of a group is missing
object-group network G\n 10.0.0.0 0.255.255.255 => 4:11: warning[other-mask]: '0.255.255.255' looks like a wildcard
object-group network G\n host ::1 => 2:9: error[syntax]: an address is not one of IPv4, as the list is)");
}

TEST(IosText, TellsWhatItCannotUse) {
  expectSaid(readIos, head,
             R"(permit tcp any any eq htttp => 2:24: error[unknown-port]: there is no port 'htttp'
permit tcp any any eq gnmi => 2:24: error[unknown-port]: there is no port 'gnmi'
permit tcp any any eq 65536 => 2:24: error[syntax]: a port is at most 65535
permit tcp any any lt 0 => 2:24: error[syntax]: no port is less than 0
permit tcp any any gt 65535 => 2:24: error[syntax]: no port is greater than 65535
permit tcp any any range 5 4 => 2:27: error[syntax]: the range starts at 5, above its end 4
permit ip any any eq 5 => 2:20: error[syntax]: ports stand with tcp, udp or sctp only
permit tpc any any => 2:9: error[unknown-protocol]: there is no protocol 'tpc'
permit 0 any any => 2:9: error[unsupported]: rules cannot match protocol 0
permit 256 any any => 2:9: error[syntax]: a protocol is at most 255
permit ip any => 2:15: error[syntax]: an address is missing
permit ip 10.0.0.0 0.255.255.255 => 2:34: error[syntax]: an address is missing
permit ip 010.0.0.1 any => 2:12: error[unknown-address]: '010.0.0.1' is not an address
permit ip 10.0.0.0/33 any => 2:12: error[unknown-address]: '10.0.0.0/33' is not a prefix
permit ip 10.0.0.0 255.255.255.0 any => 2:21: warning[other-mask]: '255.255.255.0' looks like a netmask
permit ip 10.0.0.0 0.255.129.0 any => 2:21: error[unsupported]: rules cannot match '0.255.129.0'
permit ip ::1/128 any => 2:9: error[syntax]: an address is not one of IPv4
permit tcp any any syn => 2:21: error[unsupported]: rules cannot match the TCP flag 'syn' alone
permit tcp any any established psh => 2:33: error[unsupported]: rules cannot match the TCP flag 'psh'
permit tcp any any match-all +syn => 2:31: error[unsupported]: rules cannot match these TCP flags
permit udp any any established => 2:21: error[syntax]: TCP flags stand with tcp only
permit tcp any any eq 80 fragments => 2:27: error[syntax]: an entry with 'fragments'
permit icmp any any port-unreachable => 2:22: error[unsupported]: rules cannot match an ICMP code
permit icmp any any 3 4 => 2:24: error[unsupported]: rules cannot match an ICMP code
permit igmp any any host-query => 2:22: error[unsupported]: rules cannot match IGMP types
permit ip any any ttl eq 5 => 2:20: error[unsupported]: rules cannot match 'ttl'
permit ip any any time-range T => 2:20: error[unsupported]: rules cannot match 'time-range'
permit ip any any sunshine => 2:20: error[unknown-option]: 'sunshine' is not known
permit tcp any any log syn => 2:25: error[unsupported]: rules cannot match the TCP flag 'syn'
evaluate BACK => 2:2: error[unsupported]: rules cannot match 'evaluate'
prmit ip any any => 2:2: error[unknown-line]: 'prmit' begins no entry
 => 1:25: warning[empty-list]: list 'A' has no entries
permit ip any any\nip access-list standard A => 3:25: error[list-kind]: list 'A' is a standard list and an)");
}

TEST(IosText, LeavesEntriesOutAndSaysHowMany) {
  ReadText const read =
      readText(readIos,
               "ip access-list extended A\n permit ip any any ttl 5\n permit ip any any\n"
               " permit tcp any any eq nosuch\n remark last",
               {.skipUnsupported = true, .skipErrors = true});
  EXPECT_EQ(read.lists, "A: 20 permit any>any; 21 implicit-deny deny any>any;");
  EXPECT_EQ(read.counts.read, 3u);
  EXPECT_EQ(read.counts.leftOut, 2u);
  EXPECT_EQ(read.said.find("error["), std::string::npos) << read.said;
}

std::string const v9 = "ASA Version 9.0(3)\n";
std::string const v8 = "ASA Version 8.0(2)\n";

TEST(AsaText, ReadsEntries) {
  std::string const list = "access-list A extended ";
  expectLists(
      readAsa, v8 + list, bare,
      R"(permit tcp any host 1.2.3.4 eq https => A: 1 permit any>1.2.3.4/32 dport 443 proto 6;
permit udp 10.0.0.0 255.0.0.0 eq radius 1.0.0.0 255.255.255.0 range 1 2 log => A: 1 permit 10.0.0.0/8>1.0.0.0/24 sport 1645 dport 1-2 proto 17 log;
deny icmp any 0.0.0.0 0.0.0.0 unreachable log warnings interval 1 => A: 1 deny any>any icmpType 3 proto 1 log;
permit ip any any log disable => A: 1 permit any>any;
permit tcp any any lt 9 (hitcnt=5) 0x1a2b3c4d => A: 1 permit any>any dport 0-8 proto 6 fragment 0;
permit ip host web any\nname 1.2.3.4 web description x => A: 1 permit 1.2.3.4/32>any;
permit ip host inactive any inactive\naccess-list A permit 9 any any => A: 2 permit any>any proto 9;
permit ip any any\naccess-list A line 1 remark first\naccess-list A line 2 extended deny 9 any any\naccess-list A deny 8 any any => A: 2 deny any>any proto 9; 3 permit any>any; 4 deny any>any proto 8;
permit ip any any\nclear configure access-list A\naccess-list A standard permit host 1.1.1.1 => A: 1 permit any>1.1.1.1/32;
permit ip any any\naccess-list A extended deny 9 any any\nno access-list A extended permit ip any any => A: 1 deny any>any proto 9;)");
  // What "any" means, and lists of both families.
  expectLists(
      readAsa, "", {},
      R"(ASA Version 9.1(1)\naccess-list A extended permit icmp any any\naccess-list A extended deny tcp any any eq 1 => A: 1 permit any>any proto 1; 2 deny any>any dport 1 proto 6; 3 implicit-deny deny any>any; | A-v6 v6: 2 deny any>any dport 1 proto 6; 3 implicit-deny deny any>any;
access-list A extended permit ip any any => A: 1 permit any>any; 2 implicit-deny deny any>any;
access-list A extended permit ip any6 host ::1 => A v6: 1 permit any>::1/128; 2 implicit-deny deny any>any;
access-list A extended permit ip any any\naccess-list A extended permit ip any4 any4 => A: 1 permit any>any; 2 permit any>any; 3 implicit-deny deny any>any; | A-v6 v6: 1 permit any>any; 2 implicit-deny deny any>any;
ASA Version 8.4\nipv6 access-list A permit icmp6 any any echo\naccess-list B extended deny ip any any => A v6: 1 permit any>any icmpType 128 proto 58; 2 implicit-deny deny any>any; | B: 1 deny any>any; 2 implicit-deny deny any>any;)");
}

TEST(AsaText, ReadsObjectsAndGroups) {
  std::string const groups =
      "object network O\\n subnet 10.0.0.0 255.0.0.0\\n nat (a,b) dynamic interface\\n"
      "object-group network N\\n description x\\n network-object host 1.1.1.1\\n network-object "
      "object O\\n"
      " network-object 2.0.0.0 255.255.255.0\\nobject-group network M\\n group-object N\\n"
      "object service Q\\n service tcp source eq 9 destination range 1 2\\n"
      "object-group service S\\n service-object tcp destination eq https\\n service-object udp\\n"
      " service-object object Q\\n service-object icmp echo\\n"
      "object-group service P tcp-udp\\n port-object eq domain\\n port-object range 5 6\\n"
      "object-group protocol T\\n protocol-object udp\\n protocol-object tcp\\n"
      "object-group icmp-type I\\n icmp-object echo\\n icmp-object 3\\naccess-list A extended "
      "permit ";
  std::string const members = "1.1.1.1/32,2.0.0.0/24,10.0.0.0/8";
  expectLists(
      readAsa, v8 + groups, bare,
      "ip object O object-group M => A: 1 permit 10.0.0.0/8>" + members + ";\n" +
          "tcp any object-group P object-group N object-group P => A: 1 permit any>" + members +
          " sport 5-6 sport 53 dport 5-6 dport 53 proto 6;\n" +
          "object-group T any object-group N eq domain => A: 1 permit any>" + members +
          " dport 53 proto 6 proto 17;\n" +
          "icmp any any object-group I => A: 1 permit any>any icmpType 3 icmpType 8 proto 1;\n" +
          "object Q any any => A: 1 permit any>any sport 9 dport 1-2 proto 6;\n" +
          "object-group S any any => A: 1 permit any>any icmpType 8 proto 1; 2 1-2 permit any>any "
          "dport "
          "443 proto 6; 3 1-3 permit any>any sport 9 dport 1-2 proto 6; 4 1-4 permit any>any proto "
          "17;");
  // A listing expands what a line stands for, also where it lacks the groups.
  expectLists(
      readAsa, v8, bare,
      R"(access-list A; 3 elements; name hash: 0x1\naccess-list A line 1 extended permit tcp object-group X any (hitcnt=1) 0x1\n  access-list A line 1 extended permit tcp host 1.1.1.1 any (hitcnt=1) 0x2\n  access-list A line 1 extended permit tcp host 1.1.1.2 any (hitcnt=0) 0x3\naccess-list A line 5 extended deny ip any any (hitcnt=0) 0x4 => A: 1 permit 1.1.1.1/32>any proto 6; 2 1-2 permit 1.1.1.2/32>any proto 6; 5 deny any>any;)");
}

TEST(AsaText, TellsWhatItCannotUse) {
  expectSaid(
      readAsa, v9 + "access-list A extended ",
      R"(permit ip 10.0.0.0 0.255.255.255 any => 2:43: warning[other-mask]: '0.255.255.255' looks like a wildcard
permit ip 10.0.0.0 any => 2:43: error[syntax]: a netmask is missing before 'any'
permit ip host nobody any => 2:39: error[unknown-address]: 'nobody' is not an address
permit ip host web any\nname 1.x.3.4 web => 2:39: error[unknown-address]: 'web' stands for '1.x.3.4', which is not
permit ip interface outside any => 2:34: error[unsupported]: rules cannot match 'interface'
permit ip user a any any => 2:34: error[unsupported]: rules cannot match 'user'
permit tcp any any eq 80 time-range T => 2:49: error[unsupported]: rules cannot match 'time-range'
permit tcp any any eq sqlnet => 2:46: error[unknown-port]: there is no port 'sqlnet'
permit ip object-group G any => 2:47: error[unknown-group]: there is no group 'G'
permit tcp any object-group G any\nobject-group service G udp\n port-object eq 1 => 2:52: error[group-kind]: group 'G' is not one of ports
permit ip host 1.1.1.1 host ::1 => 2:31: error[syntax]: source, destination and protocol have no
permit ip object G any\nobject network G\n fqdn v4 a.b => 2:41: error[unsupported]: group 'G' cannot be used: line 4: rules)");
  ReadText const off = readText(
      readAsa, v9 + "access-list A extended permit foo inactive\naccess-list A permit 9 any4 any4",
      {});
  EXPECT_EQ(off.lists, "A: 2 permit any>any proto 9; 3 implicit-deny deny any>any;");
  EXPECT_EQ(off.counts.reported, 1u);
  EXPECT_EQ(off.counts.leftOut, 0u);
}

// Small files that come to very much, or would take very long.
TEST(TextLists, StayWithinTheirMeansOnCraftedFiles) {
  std::string const use = "ip access-list extended A\n permit ip object-group G0 any\n";
  std::string chain = use;
  std::string doubling = use;
  std::string wild = "ip access-list extended A\n";
  std::string same = "ip access-list extended A\n";
  std::string front = v8;
  for (int i = 0; i < 5000; ++i) {
    std::string const n = std::to_string(i);
    std::string const next = " group-object G" + std::to_string(i + 1) + "\n";
    chain += "object-group network G" + n + "\n" + next + " host 10.0.0.1\n";
    if (i < 100) doubling += "object-group network G" + n + "\n" + next + next;
    wild += " permit ip 10.0.0." + n +
            " 0.255.0.0 any\n permit ip 10.0.0.0 85.85.85.0 10.0.0.0 0.255.0.0\n";
    same += " permit " + std::to_string(i % 255 + 1) + " host 1.1.1.1 any\n";
    front += "access-list A line 1 extended permit ip any any\n";
  }
  chain += "object-group network G5000\n host 1.1.1.1\n";
  doubling += "object-group network G100\n host 1.1.1.1\n";
  for (int i = 0; i < 5000; ++i)
    same += " no permit " + std::to_string(i % 255 + 1) + " host 1.1.1.1 any\n";
  ReadOptions const skip = {.skipUnsupported = true, .skipErrors = true};
  EXPECT_NE(readText(readIos, chain, skip).said.find("warning[too-large]"), std::string::npos);
  EXPECT_NE(readText(readIos, doubling, skip).said.find("warning[too-large]"), std::string::npos);
  EXPECT_NE(readText(readIos, wild, skip).said.find("unsupported"), std::string::npos);
  EXPECT_EQ(readText(readIos, same, skip).counts.read, 5000u);
  EXPECT_EQ(readText(readAsa, front, skip).counts.compiled, 5000u);
  EXPECT_NE(readText(readIos, use + std::string(10'000'000, 'x'), skip).said.size(), 0u);
}

}  // namespace
}  // namespace NaxelTool
