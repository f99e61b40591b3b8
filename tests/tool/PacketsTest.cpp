// Packets as text, in traces and in captures, and what is left out of them.

#include "answers/PacketReport.h"
#include "packets/Capture.h"
#include "packets/Frame.h"
#include "packets/PacketText.h"
#include "packets/PacketTrace.h"
#include "support/Pieces.h"
#include "support/World.h"
#include "verify/Random.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

#include <gtest/gtest.h>

namespace NaxelTool {
namespace {

using Verify::Packet;
using PacketReader = void (*)(PacketReading&);

/// An IPv4 ACL "a", an IPv6 one "six" and one with a blank in its name.
Mox::Ptr<Naxel::AclConfigColl> someAcls() {
  auto const acls = Naxel::aclConfigCollFactory(Obel::ChipId(0));
  ::Test::addRules(*acls, "af a ipv4\naf six ipv6\n");
  acls->aclIs("b c")->afIs(Lumox::ipv6());
  return acls;
}

/// What a reader finds, one per row: packets as Verify::text() has them, with the ACL and the trace's rule; the
/// reasons of frames left out; errors.
std::vector<std::string> found(PacketReader read, std::string const& content,
                               std::string const& only = {}) {
  std::vector<std::string> rows;
  PacketSink sink;
  sink.take = [&](FilePacket const& p) {
    rows.push_back((p.acl.empty() ? "" : p.acl + ": ") + Verify::text(p.packet) +
                   (p.drawnFrom ? " rule " + std::to_string(*p.drawnFrom) : ""));
  };
  sink.leaveOut = [&](size_t number, std::string const& reason) {
    rows.push_back(std::to_string(number) + " " + reason);
  };
  std::ostringstream said;
  Diagnostics diagnostics(said);
  try {
    auto const acls = someAcls();
    PacketReading reading("f", content, *acls, only, diagnostics, sink);
    read(reading);
  } catch (InputError const& e) {
    rows.emplace_back(e.what());
  }
  if (auto const* const e = diagnostics.firstError())
    rows.push_back(InputError("f", e->place.at, e->text).what());
  return rows;
}

void expectRows(PacketReader read, std::string_view rows, std::string const& only = {}) {
  for (std::string const& row : ::Test::pieces(rows, "\n")) {
    SCOPED_TRACE(row);
    auto const cells = ::Test::pieces(row, " => ");
    EXPECT_EQ(found(read, cells.at(0), only), std::vector<std::string>{cells.at(1)});
  }
}

TEST(Packets, LinesOfTextSayAllThatRulesLookAt) {
  expectRows(
      readPacketText,
      R"(tcp 10.0.0.1:1024 > 10.0.0.2:443 syn len 60 dscp 46 => ipv4 10.0.0.1 > 10.0.0.2 proto 6 ports 1024 > 443 SYN length 60 dscp 46
  a:	udp 1.2.3.4:0x35 > 1.2.3.5:00053 # tcp => a: ipv4 1.2.3.4 > 1.2.3.5 proto 17 ports 53 > 53
six: sctp [2001:db8::1]:53 > [::2]:4000 => six: ipv6 2001:db8::1 > ::2 proto 132 ports 53 > 4000
"b c": icmp ::1 > ::2 type 128 => b c: ipv6 ::1 > ::2 proto 58 ports 0 > 0 icmp 128
icmp 1.1.1.1 > 2.2.2.2 frag 8191 => ipv4 1.1.1.1 > 2.2.2.2 proto 1 ports 0 > 0 fragment 8191
proto 6 1.1.1.1:1 > 2.2.2.2:2 ack rst fin => ipv4 1.1.1.1 > 2.2.2.2 proto 6 ports 1 > 2 ACK RST
proto 58 1.1.1.1 > 2.2.2.2 => ipv4 1.1.1.1 > 2.2.2.2 proto 58 ports 0 > 0
udp 1.1.1.1 > 2.2.2.2 dscp 63 frag 1 => ipv4 1.1.1.1 > 2.2.2.2 proto 17 ports 0 > 0 fragment 1 dscp 63
tpc 1.1.1.1:1 > 2.2.2.2:2 => f:1:1: error: there is no protocol 'tpc'
tcp 1.1.1.1:1 > 2.2.2.2 => f:1:17: error: the port is missing
tcp 1.1.1.1:1 2.2.2.2:2 => f:1:15: error: expected '>' between the addresses
tcp 1.1.1.1:1 > => f:1:16: error: there is no destination address
tcp 1.1.1.1:65536 > 2.2.2.2:2 => f:1:13: error: the port must be at most 65535
tcp 1.1.1.1:-1 > 2.2.2.2:2 => f:1:13: error: expected the port, a number, instead of '-1'
tcp 1.1.1:1 > 2.2.2.2:2 => f:1:5: error: '1.1.1' is not an address
tcp [1.1.1.1]:1 > 2.2.2.2:2 => f:1:5: error: only IPv6 addresses stand in brackets
tcp [::1]1 > [::1]:2 => f:1:5: error: expected ':' and a port behind ']'
tcp [::1]:1 > 2.2.2.2:2 => f:1:15: error: the addresses are of different families
proto 47 1.1.1.1:1 > 2.2.2.2:2 => f:1:10: error: only packets of TCP, UDP and SCTP have ports
proto 256 1.1.1.1 > 2.2.2.2 => f:1:7: error: the protocol must be at most 255
udp 1.1.1.1:1 > 2.2.2.2:2 syn => f:1:27: error: only packets of TCP have flags
tcp 1.1.1.1 > 2.2.2.2 frag 1 ack => f:1:30: error: a fragment with an offset has no flags
tcp 1.1.1.1:1 > 2.2.2.2:2 frag 1 => f:1:5: error: a fragment with an offset has no ports
icmp 1.1.1.1 > 2.2.2.2 => f:1:1: error: the ICMP type is missing
icmp 1.1.1.1 > 2.2.2.2 type 8 frag 2 => f:1:24: error: a fragment with an offset has no ICMP type
udp 1.1.1.1:1 > 2.2.2.2:2 type 8 => f:1:27: error: only packets of ICMP have a type
udp 1.1.1.1:1 > 2.2.2.2:2 len 9 len 9 => f:1:33: error: len is said twice
udp 1.1.1.1:1 > 2.2.2.2:2 dscp 64 => f:1:32: error: DSCP must be at most 63
udp 1.1.1.1:1 > 2.2.2.2:2 dscp => f:1:31: error: there is no DSCP
udp 1.1.1.1:1 > 2.2.2.2:2 ttl 1 => f:1:27: error: a packet has no 'ttl'
A: udp 1.1.1.1:1 > 2.2.2.2:2 => f:1:1: error: there is no ACL 'A'
six: udp 1.1.1.1:1 > 2.2.2.2:2 => f:1:1: error: ACL 'six' is of the other address family
"a udp 1.1.1.1:1 > 2.2.2.2:2 => f:1:1: error: the quote is not closed)");
}

TEST(Packets, TracesNumberTheRulesOfOneAcl) {
  expectRows(
      readPacketTrace,
      R"(16909060 4294967295 1 65535 17 9 => a: ipv4 1.2.3.4 > 255.255.255.255 proto 17 ports 1 > 65535 rule 9
0 0 7 8 6 369098752 275 => a: ipv4 0.0.0.0 > 0.0.0.0 proto 6 ports 7 > 8 SYN ACK RST rule 275
0 0 7 8 1 134217728 0 # echo => a: ipv4 0.0.0.0 > 0.0.0.0 proto 1 ports 7 > 8 icmp 8 rule 0
0 0 7 8 6 => f:1:10: error: there is no number of the rule
0 0 7 8 6 4 5 6 => f:1:15: error: expected the end of the line behind the rule
4294967296 0 7 8 6 4 => f:1:1: error: the source address must be at most 4294967295)");
  expectRows(readPacketTrace,
             "1 2 3 4 5 6 => f: error: a trace is of IPv4, and there is no such ACL to look at",
             "six");
}

// Frames as bytes, by an encoder of the test's own.

std::string be(uint64_t value, int bytes) {
  std::string out;
  for (int i = bytes - 1; i >= 0; --i) out += static_cast<char>(value >> 8 * i);
  return out;
}

bool withPorts(Packet const& p) { return p.proto == 6 || p.proto == 17 || p.proto == 132; }
bool withType(Packet const& p) { return p.proto == (p.af == Lumox::ipv4() ? 1 : 58); }

/// As much of the transport header as is looked at.
std::string transportOf(Packet const& p) {
  if (p.fragment) return "\xff\xff\xff\xff";
  std::string out = withPorts(p) ? be(p.sport, 2) + be(p.dport, 2) : "";
  if (p.proto == 6)
    out += be(0xffffffffffffffff, 8) + be(0x50, 1) +
           be(0xe9 | p.syn << 1 | p.rst << 2 | p.ack << 4, 1);
  return withType(p) ? be(p.icmpType, 1) : out;
}

std::string ip4Of(Packet const& p, size_t options, uint16_t flags) {
  return be(0x45 + options, 1) + be(p.dscp << 2 | 3, 1) + be(p.length, 2) + be(7, 2) +
         be(flags | p.fragment, 2) + be(64, 1) + be(p.proto, 1) + be(0xabcd, 2) +
         be(p.src.hi >> 32, 4) + be(p.dst.hi >> 32, 4) + std::string(4 * options, '\1') +
         transportOf(p);
}

/// The headers in between by their numbers, in order.
std::string ip6Of(Packet const& p, std::vector<int> const& headers) {
  std::string body;
  for (size_t i = 0; i < headers.size(); ++i) {
    uint64_t const next = i + 1 < headers.size() ? static_cast<uint64_t>(headers[i + 1]) : p.proto;
    if (headers[i] == 44)
      body += be(next, 1) + be(0xff, 1) + be(p.fragment << 3 | 1, 2) + be(9, 4);
    else if (headers[i] == 51)
      body += be(next, 1) + be(4, 1) + std::string(22, 'x');
    else
      body += be(next, 1) + be(1, 1) + std::string(14, 'x');
  }
  uint64_t const first = headers.empty() ? p.proto : static_cast<uint64_t>(headers[0]);
  return be(0x60000000 | uint64_t{p.dscp} << 22 | 0xfffff, 4) + be(p.length - 40u, 2) +
         be(first, 1) + be(64, 1) + be(p.src.hi, 8) + be(p.src.lo, 8) + be(p.dst.hi, 8) +
         be(p.dst.lo, 8) + body + transportOf(p);
}

/// Any packet that a frame can carry.
Packet anyPacket(Verify::Random& random) {
  Packet p;
  p.af = random.oneIn(2) ? Lumox::ipv4() : Lumox::ipv6();
  bool const four = p.af == Lumox::ipv4();
  p.src = {four ? random.next() << 32 : random.next(), four ? 0 : random.next()};
  p.dst = {four ? random.next() << 32 : random.next(), four ? 0 : random.next()};
  static constexpr uint16_t protocols[] = {6, 17, 132, 1, 58, 47, 59, 255};
  p.proto = protocols[random.below(8)];
  p.length = static_cast<uint16_t>(random.between(150, 65535));
  p.dscp = static_cast<uint16_t>(random.below(64));
  if (random.oneIn(4)) p.fragment = static_cast<uint16_t>(random.between(1, 8191));
  if (p.fragment) return p;
  if (withPorts(p)) {
    p.sport = static_cast<uint16_t>(random.next());
    p.dport = static_cast<uint16_t>(random.next());
  }
  if (withType(p)) p.icmpType = static_cast<uint16_t>(random.below(256));
  if (p.proto != 6) return p;
  p.syn = random.oneIn(2);
  p.ack = random.oneIn(2);
  p.rst = random.oneIn(2);
  return p;
}

std::string ipOf(Packet const& p, Verify::Random& random) {
  if (p.af == Lumox::ipv4())
    return ip4Of(p, random.below(11), static_cast<uint16_t>(random.below(8) << 13));
  std::vector<int> headers;
  for (int const h : {0, 60, 43, 44, 51, 60})
    if (h == 44 && p.fragment)
      headers.push_back(h);
    else if (random.oneIn(3) &&
             !(p.fragment && h != 0 && std::count(headers.begin(), headers.end(), 44)))
      headers.push_back(h);
  return ip6Of(p, headers);
}

/// The frame around a packet; none where the link layer cannot carry it.
std::optional<std::string> frameOf(int link, Packet const& p, Verify::Random& random) {
  bool const four = p.af == Lumox::ipv4();
  std::string const ip = ipOf(p, random);
  std::string const type = be(four ? 0x0800 : 0x86dd, 2);
  static uint64_t const families6[] = {10, 24, 28, 30};
  uint64_t const family = four ? 2 : families6[random.below(4)];
  std::string tags;
  for (uint64_t n = random.below(3); n > 0; --n)
    tags += be(random.oneIn(2) ? 0x8100 : 0x88a8, 2) + be(random.below(65536), 2);
  switch (link) {
    case 1: return std::string(12, 'm') + tags + type + ip + std::string(random.below(9), '\0');
    case 0: return (random.oneIn(2) ? be(family, 4) : be(family << 24, 4)) + ip;
    case 101: return ip;
    case 108: return be(family, 4) + ip;
    case 113: return std::string(14, 'c') + tags + type + ip;
    case 228: return four ? std::optional(ip) : std::nullopt;
    case 229: return four ? std::nullopt : std::optional(ip);
    case 276: return type + std::string(18, 'c') + ip;
    default: return std::nullopt;
  }
}

/// Captures in either byte order and both formats.
class CaptureWriter {
 public:
  CaptureWriter(bool little, bool next, uint64_t link) : little_(little), next_(next) {
    if (next)
      block(0x0a0d0d0a, u(0x1a2b3c4d, 4) + u(1, 2) + u(0, 2) + u(~uint64_t{0}, 8)) +=
          blockText(1, u(link, 2) + u(0, 2) + u(0, 4));
    else
      out = u(0xa1b2c3d4, 4) + u(2, 2) + u(4, 2) + u(0, 8) + u(65535, 4) + u(link, 4);
  }
  void frame(std::string const& bytes) {
    std::string const sizes = u(bytes.size(), 4) + u(bytes.size() + 1000, 4);
    if (next_)
      block(6, u(0, 12) + sizes + bytes + std::string((4 - bytes.size() % 4) % 4, '\0'));
    else
      out += u(1, 8) + sizes + bytes;
  }

  std::string out;

 private:
  std::string u(uint64_t value, int bytes) const {
    std::string text = be(value, bytes);
    if (little_) std::reverse(text.begin(), text.end());
    return text;
  }
  std::string blockText(uint64_t type, std::string const& body) const {
    return u(type, 4) + u(body.size() + 12, 4) + body + u(body.size() + 12, 4);
  }
  std::string& block(uint64_t type, std::string const& body) {
    return out += blockText(type, body);
  }

  bool little_;
  bool next_;
};

/// The same packet as a line of text.
std::string lineOf(Packet const& p) {
  auto const side = [&](Verify::Address a, unsigned port) {
    bool const four = p.af == Lumox::ipv4();
    std::string const text = (four ? Lumox::IpGenPrefix::v4(static_cast<uint32_t>(a.hi >> 32), 32)
                                   : Lumox::IpGenPrefix::v6(a.hi, a.lo, 128))
                                 .addressText();
    if (!withPorts(p) || p.fragment) return text;
    return (four ? text : "[" + text + "]") + ":" + std::to_string(port);
  };
  std::string out = "proto " + std::to_string(p.proto) + " " + side(p.src, p.sport) + " > " +
                    side(p.dst, p.dport) + " len " + std::to_string(p.length) + " dscp " +
                    std::to_string(p.dscp);
  if (p.fragment) out += " frag " + std::to_string(p.fragment);
  if (withType(p) && !p.fragment) out += " type " + std::to_string(p.icmpType);
  return out + (p.syn ? " syn" : "") + (p.ack ? " ack" : "") + (p.rst ? " rst" : "") + "\n";
}

TEST(Packets, CapturesAndTextOfTheSamePacketsAgree) {
  Verify::Random random(7);
  for (int const link : {0, 1, 101, 108, 113, 228, 229, 276})
    for (int const kind : {0, 1, 2, 3}) {
      SCOPED_TRACE(std::to_string(link) + " " + std::to_string(kind));
      CaptureWriter capture(kind & 1, kind & 2, static_cast<uint64_t>(link));
      std::string text;
      std::vector<std::string> packets;
      while (packets.size() < 100) {
        Packet const p = anyPacket(random);
        auto const frame = frameOf(link, p, random);
        if (!frame) continue;
        packets.push_back(Verify::text(p));
        text += lineOf(p);
        capture.frame(*frame);
      }
      EXPECT_TRUE(isCapture(capture.out) && !isCapture(text));
      EXPECT_EQ(found(readCapture, capture.out), packets);
      EXPECT_EQ(found(readPacketText, text), packets);
      // Whoever ends a capture by force cuts the last frame off.
      packets.back() = "100 cut off by the end of the file";
      EXPECT_EQ(found(readCapture, capture.out.substr(0, capture.out.size() - 1)), packets);
    }
}

// Frames that end in the last byte that is needed, and before it.
TEST(Packets, AFrameIsEitherWholeOrLeftOut) {
  Verify::Random random(3);
  for (int i = 0; i < 300; ++i) {
    Packet const p = anyPacket(random);
    std::string frame = *frameOf(101, p, random);
    // The length covers no more than what is looked at, so that it is the packet itself that ends.
    auto const decoded = [&](std::string const& bytes) {
      return decodeFrame(LinkLayer::rawIp,
                         {reinterpret_cast<uint8_t const*>(bytes.data()), bytes.size()});
    };
    ASSERT_EQ(Verify::text(decoded(frame).packet), Verify::text(p));
    if (p.fragment || transportOf(p).empty()) continue;
    for (size_t size = 0; size < frame.size(); ++size)
      ASSERT_EQ(decoded(frame.substr(0, size)).outcome, FrameOutcome::cutShort) << size;
    bool const four = p.af == Lumox::ipv4();
    frame.replace(four ? 2 : 4, 2, be(frame.size() - (four ? 0 : 40) - 1, 2));
    EXPECT_EQ(decoded(frame + "padding").outcome, FrameOutcome::endsEarly);
  }
}

TEST(Packets, FramesThatAreNoPacketsSayWhy) {
  Packet p;
  p.proto = 17;
  p.length = 100;
  Packet six = p;
  six.af = Lumox::ipv6();
  Packet later = six;
  later.fragment = 5;
  Packet whole = six;
  whole.length = 40;
  std::string const mac(12, 'm');
  std::string const ip = ip4Of(p, 0, 0);
  auto const with = [](std::string text, size_t at, char byte) {
    text[at] = byte;
    return text;
  };
  struct Case {
    LinkLayer link;
    std::string frame;
    char const* reason;
  };
  Case const cases[] = {
      {LinkLayer::ethernet, mac + "\x08\x06", "not IP (ARP)"},
      {LinkLayer::ethernet, mac + "\x81", "captured too short for the headers that rules look at"},
      {LinkLayer::ethernet, mac + be(0x8100, 2) + be(1, 2) + be(0x8847, 2), "not IP (MPLS)"},
      {LinkLayer::ethernet, mac + be(0x05dc, 2) + ip, "not IP (IEEE 802.2)"},
      {LinkLayer::linuxCooked, std::string(14, 'c') + be(0xbeef, 2), "not IP (EtherType 0xbeef)"},
      {LinkLayer::familyNumber, be(2 << 24, 4) + ip, "not IP (another address family)"},
      {LinkLayer::ethernet, mac + be(0x86dd, 2) + ip + std::string(40, 'x'), "broken IP header"},
      {LinkLayer::rawIp, with(ip, 0, 0x44), "broken IP header"},
      {LinkLayer::rawIp, with(ip, 0, 0x55), "broken IP header"},
      {LinkLayer::rawIp, with(ip, 3, 19), "broken IP header"},
      {LinkLayer::rawIp, with(ip, 3, 23), "ends before the headers that rules look at"},
      {LinkLayer::rawIp, ip6Of(six, {60, 0}), "broken IP header"},
      {LinkLayer::rawIp, ip6Of(six, {44, 44}), "broken IP header"},
      {LinkLayer::rawIp, ip6Of(later, {44, 60}), "later fragment that does not say its protocol"},
      {LinkLayer::rawIp, ip6Of(whole, {0}), "longer than 65535 bytes"},
      {LinkLayer::rawIp, with(with(ip6Of(six, {}), 4, '\xff'), 5, '\xff'),
       "longer than 65535 bytes"},
      {LinkLayer::rawIp, with(ip6Of(six, {60}), 41, '\xff'),
       "ends before the headers that rules look at"},
  };
  for (Case const& c : cases)
    EXPECT_EQ(reasonText(decodeFrame(
                  c.link, {reinterpret_cast<uint8_t const*>(c.frame.data()), c.frame.size()})),
              c.reason);
  CaptureWriter other(true, false, 9);
  EXPECT_TRUE(
      found(readCapture, other.out).at(0).starts_with("f: error: frames of link layer PPP"));
  CaptureWriter wrong(true, false, 1);
  wrong.frame(mac + "\x08\x06");
  wrong.out += std::string(16, '\x7f') + "rest";
  EXPECT_EQ(found(readCapture, wrong.out).at(1).substr(0, 18), "f: error: frame 2:");
  EXPECT_EQ(found(readCapture, ""), std::vector<std::string>{"f: error: the file is empty"});
}

TEST(Packets, EveryVerdictIsHeldAgainstTheRules) {
  auto const path =
      std::filesystem::temp_directory_path() / ("naxel-packets-" + std::to_string(getpid()));
  std::ofstream(path)
      << "tcp 10.0.0.1:1 > 1.1.1.1:80\nudp [::1]:1 > [::1]:2\ntcp 11.0.0.1:1 > 1.1.1.1:80\n";
  RuleSet rules(Obel::ChipId(0));
  ::Test::addRules(*rules.acls(),
                   "a 10 web src 10.0.0.0/8 dport 80\na 20 rest src 10.0.0.0/7 drop\na 30 more\n");
  Session session(defaultChip(), rules.acls());
  ASSERT_TRUE(session.kick());
  PacketFiles const files({path.string()}, PacketFormat::automatic, 1000);
  std::filesystem::remove(path);
  std::ostringstream said;
  Diagnostics diagnostics(said);
  std::vector<RuleTarget> asked;
  auto const run = [&](FileReport const& report) {
    FileClassifier classifier(session, rules, files, "", asked);
    std::ostringstream out;
    bool const good = classifyFiles(classifier, rules, files, report, out, diagnostics);
    return (good ? "good\n" : "bad\n") + out.str();
  };
  EXPECT_EQ(
      run({}),
      "good\nACL  name  from  rule  hits\na    web           10     1\na    rest          20     "
      "1\n"
      "a    more          30     0\n\na: 2 packets, 2 matched a rule, 2 of 3 rules hit, 1 never\n"
      "total: 3 packets read, 2 classified, 1 left out, 0 differences\n"
      "left out: 1 of IPv6, without an ACL for it\n");
  asked = {{"a", Naxel::AceIndex(10)}, {"a", Naxel::AceIndex(30)}};
  std::string const why = run({});
  EXPECT_EQ(why.substr(std::min(why.size(), why.find("\nwhy not"))),
            "\nwhy not rule 10 'web' of a: it decides 1 of 2 packets\n"
            "because                      packets  percent  this alone\n"
            "source is not in 10.0.0.0/8        1     50.0           1\n"
            "\nwhy not rule 30 'more' of a: it decides 0 of 2 packets\n"
            "because                      packets  percent  this alone\n"
            "rule 10 'web' comes before         1     50.0\n"
            "rule 20 'rest' comes before        1     50.0\n");
  asked.clear();
  rules.acls()->acl("a")->ruleByIdDel(Naxel::AceIndex(10));
  std::string const bad = run({});
  EXPECT_NE(bad.find(":1: a: rule 10: permit; the rules say: rule 20 'rest': drop\n"), bad.npos)
      << bad;
  EXPECT_TRUE(bad.starts_with("bad\n") && bad.find(", 1 differences\n") != bad.npos) << bad;
}

}  // namespace
}  // namespace NaxelTool
