#include "packets/PacketText.h"

#include "lumox/Ip6Addr.h"
#include "mox/Assert.h"
#include "packets/PacketLine.h"
#include "verify/RuleOracle.h"

#include <array>

namespace NaxelTool {

namespace {

using Verify::Packet;

constexpr uint16_t anyIcmp = 256;  // stands for the protocol of the family

struct Protocol {
  std::string_view name;
  uint16_t number;
};
constexpr std::array<Protocol, 4> protocols = {
    {{"tcp", Packet::protoTcp}, {"udp", 17}, {"sctp", 132}, {"icmp", anyIcmp}}};

/// Flags that no rule looks at may be said, and mean nothing.
struct Flag {
  std::string_view name;
  bool Packet::*member;
};
constexpr std::array<Flag, 8> flags = {{{"syn", &Packet::syn},
                                        {"ack", &Packet::ack},
                                        {"rst", &Packet::rst},
                                        {"fin", nullptr},
                                        {"psh", nullptr},
                                        {"urg", nullptr},
                                        {"ece", nullptr},
                                        {"cwr", nullptr}}};

struct Number {
  std::string_view name;
  Naxel::RangeSetType type;
};
constexpr std::array<Number, 4> numbers = {{{"len", Naxel::RangeSetType::length},
                                            {"dscp", Naxel::RangeSetType::dscp},
                                            {"frag", Naxel::RangeSetType::fragment},
                                            {"type", Naxel::RangeSetType::icmp}}};

template <class Rows>
auto const* rowOf(Rows const& rows, std::string_view name) {
  for (auto const& row : rows)
    if (row.name == name) return &row;
  return static_cast<decltype(&rows[0])>(nullptr);
}

template <class... Rows>
std::string suggestion(std::string_view word, Rows const&... rows) {
  std::vector<std::string_view> names;
  auto const add = [&](auto const& all) {
    for (auto const& row : all) names.push_back(row.name);
  };
  (add(rows), ...);
  return didYouMean(word, names);
}

std::string inQuotes(std::string_view text) { return "'" + std::string(text) + "'"; }

/// One line, from left to right.
class PacketLineParser {
 public:
  PacketLineParser(PacketLine& line, PacketReading const& reading)
      : line_(line), reading_(reading), acls_(reading.acls()) {}

  FilePacket parse() {
    aclName();
    protocol();
    Endpoint const source = endpoint("source address");
    LineWord const arrow = line_.next("'>' behind the source");
    if (arrow.text != ">") throw LineError(arrow, "syntax", "expected '>' between the addresses");
    Endpoint const destination = endpoint("destination address");
    if (source.af != destination.af)
      throw LineError(destination.word, "family", "the addresses are of different families");
    Packet& p = out_.packet;
    p.af = source.af;
    p.src = source.address;
    p.dst = destination.address;
    if (p.proto == anyIcmp) p.proto = Packet::icmpProtocol(p.af);
    while (!line_.atEnd()) option(line_.next("option"));
    ports(source, destination);
    kindOfPacket();
    checkFamily();
    return std::move(out_);
  }

 private:
  struct Endpoint {
    LineWord word;
    Lumox::AddressFamily af = Lumox::ipv4();
    Verify::Address address;
    std::optional<uint16_t> port;
  };

  /// "NAME:" or "\"NAME\":" in front.
  void aclName() {
    LineWord word = line_.peek();
    if (word.text.starts_with('"')) {
      word = line_.quoted(':');
    } else if (word.text.ends_with(':')) {
      word = line_.next("ACL");
      word.text.remove_suffix(1);
    } else {
      return;
    }
    out_.acl = word.text;
    aclWord_ = word;
    if (acls_.aclHas(out_.acl)) return;
    std::vector<std::string_view> names;
    if (reading_.shows())
      for (auto const& [name, acl] : acls_.acl()) names.push_back(name);
    throw LineError(word, "unknown-acl", "there is no ACL " + inQuotes(word.text),
                    didYouMean(word.text, names));
  }

  void protocol() {
    protocolWord_ = line_.next("protocol");
    if (protocolWord_.text == "proto") {
      out_.packet.proto =
          static_cast<uint16_t>(numberFrom(line_.next("protocol"), 255, "the protocol"));
      return;
    }
    Protocol const* const known = rowOf(protocols, protocolWord_.text);
    if (!known) {
      std::string help = suggestion(protocolWord_.text, protocols);
      if (help.empty()) help = "other protocols than tcp, udp, sctp and icmp are written 'proto N'";
      throw LineError(protocolWord_, "unknown-protocol",
                      "there is no protocol " + inQuotes(protocolWord_.text), help);
    }
    out_.packet.proto = known->number;
  }

  /// "10.0.0.1", "10.0.0.1:80", "2001:db8::1", "[2001:db8::1]", "[2001:db8::1]:80".
  Endpoint endpoint(char const* what) {
    Endpoint out;
    out.word = line_.next(what);
    std::string_view address = out.word.text;
    std::optional<std::string_view> port;
    if (size_t const close = address.find(']');
        address.starts_with('[') && close != std::string_view::npos) {
      std::string_view const rest = address.substr(close + 1);
      if (!rest.empty() && rest[0] != ':')
        throw LineError(out.word, "syntax", "expected ':' and a port behind ']'");
      if (!rest.empty()) port = rest.substr(1);
      address = address.substr(1, close - 1);
      if (address.find(':') == std::string_view::npos)
        throw LineError(out.word, "syntax", "only IPv6 addresses stand in brackets");
    } else if (size_t const colon = address.find(':');
               colon != std::string_view::npos && colon == address.rfind(':')) {
      port = address.substr(colon + 1);
      address = address.substr(0, colon);
    }
    try {
      std::tie(out.af, out.address) = addressFromText(std::string(address.substr(0, 64)));
    } catch (std::invalid_argument const& e) {
      throw LineError(out.word, "address", e.what());
    }
    if (port)
      out.port = static_cast<uint16_t>(numberFrom(
          {*port, out.word.offset + out.word.text.size() - port->size()}, 65535, "the port"));
    return out;
  }

  void option(LineWord word) {
    if (Flag const* const flag = rowOf(flags, word.text)) {
      flagWord_ = word;
      if (flag->member) out_.packet.*flag->member = true;
      return;
    }
    Number const* const number = rowOf(numbers, word.text);
    if (!number)
      throw LineError(word, "unknown-option", "a packet has no " + inQuotes(word.text),
                      suggestion(word.text, flags, numbers));
    auto const at = static_cast<size_t>(number->type);
    if (said_[at]) throw LineError(word, "twice", std::string(word.text) + " is said twice");
    said_[at] = word;
    Naxel::RangeField const& field = Naxel::rangeField(number->type);
    out_.packet.valueIs(number->type, static_cast<uint16_t>(numberFrom(
                                          line_.next(field.title), field.bound(), field.title)));
  }

  bool isLaterFragment() const { return out_.packet.isLaterFragment(); }

  void ports(Endpoint const& source, Endpoint const& destination) {
    bool const wanted = out_.packet.hasPortProtocol() && !isLaterFragment();
    for (Endpoint const* side : {&source, &destination}) {
      if (wanted && !side->port)
        throw LineError(side->word, "port", "the port is missing",
                        side->af == Lumox::ipv4() ? "write ADDRESS:PORT" : "write [ADDRESS]:PORT");
      if (!wanted && side->port)
        throw LineError(side->word, "port",
                        isLaterFragment() ? "a fragment with an offset has no ports"
                                          : "only packets of TCP, UDP and SCTP have ports");
    }
    out_.packet.sport = source.port.value_or(0);
    out_.packet.dport = destination.port.value_or(0);
  }

  /// Flags and type belong to TCP and ICMP, and stand in the first fragment.
  void kindOfPacket() {
    Packet const& p = out_.packet;
    if (flagWord_ && (p.proto != Packet::protoTcp || isLaterFragment()))
      throw LineError(*flagWord_, "flags",
                      isLaterFragment() ? "a fragment with an offset has no flags"
                                        : "only packets of TCP have flags");
    auto const& type = said_[static_cast<size_t>(Naxel::RangeSetType::icmp)];
    bool const wanted = p.isIcmp() && !isLaterFragment();
    if (wanted && !type)
      throw LineError(protocolWord_, "icmp-type", "the ICMP type is missing", "add 'type N'");
    if (!wanted && type)
      throw LineError(*type, "icmp-type",
                      isLaterFragment() ? "a fragment with an offset has no ICMP type"
                                        : "only packets of ICMP have a type");
  }

  void checkFamily() const {
    if (out_.acl.empty()) return;
    if (Verify::familyOf(*acls_.acl(out_.acl)) != out_.packet.af)
      throw LineError(aclWord_, "family",
                      "ACL " + inQuotes(out_.acl) + " is of the other address family");
  }

  PacketLine& line_;
  PacketReading const& reading_;
  Naxel::AclConfigColl const& acls_;
  FilePacket out_;
  LineWord aclWord_;
  LineWord protocolWord_;
  std::optional<LineWord> flagWord_;
  std::array<std::optional<LineWord>, Naxel::rangeFieldCount> said_;
};

}  // namespace

std::string packetLine(Packet const& p) {
  MOX_ASSERT(p.isPossible());
  Protocol const* known = nullptr;
  for (Protocol const& row : protocols)
    if (row.number == p.proto || (row.number == anyIcmp && p.isIcmp())) known = &row;
  std::string out = known ? std::string(known->name) : "proto " + std::to_string(p.proto);
  bool const isV6 = p.af == Lumox::ipv6();
  auto const side = [&](Verify::Address const& a, uint16_t port) {
    std::string address = Verify::addressText(p.af, a);
    if (!p.hasPortProtocol() || p.isLaterFragment()) return address;
    return (isV6 ? "[" + address + "]" : address) + ":" + std::to_string(port);
  };
  out += " " + side(p.src, p.sport) + " > " + side(p.dst, p.dport);
  for (Flag const& flag : flags)
    if (flag.member && p.*flag.member) out += " " + std::string(flag.name);
  for (Number const& number : numbers) {
    uint16_t const value = p.value(number.type);
    bool const mustBeSaid =
        number.type == Naxel::RangeSetType::icmp && p.isIcmp() && !p.isLaterFragment();
    if (value || mustBeSaid) out += " " + std::string(number.name) + " " + std::to_string(value);
  }
  return out;
}

void readPacketText(PacketReading& reading) {
  forEachLine(reading, [&](PacketLine& line, size_t number) {
    FilePacket packet = PacketLineParser(line, reading).parse();
    packet.number = number;
    reading.take(packet);
  });
}

FilePacket packetFromText(std::string const& text, Naxel::AclConfigColl const& acls,
                          std::string const& source, Diagnostics& diagnostics) {
  std::optional<FilePacket> found;
  size_t errors = diagnostics.count(Severity::error);
  PacketSink sink;
  PacketReading* read = nullptr;
  sink.take = [&](FilePacket const& packet) {
    if (found) read->error({{packet.number, 1}}, "syntax", "one packet is wanted, not several");
    found = packet;
  };
  PacketReading reading(source, text, acls, {}, diagnostics, std::move(sink));
  read = &reading;
  readPacketText(reading);
  errors = diagnostics.count(Severity::error) - errors;
  if (!found && !errors) reading.error({{1, 1}}, "syntax", "there is no packet");
  if (!found || errors) throw RejectedInput();
  return *found;
}

std::pair<Lumox::AddressFamily, Verify::Address> addressFromText(std::string const& text) {
  try {
    if (text.find(':') != std::string::npos) {
      auto const a = Mox::valueFromText<Lumox::Ip6Addr>(text);
      return {Lumox::ipv6(), {a.hi(), a.lo()}};
    }
    Mox::TextCursor cursor(text);
    uint32_t const a = Lumox::readIp4(cursor);
    cursor.expectEnd();
    return {Lumox::ipv4(), Verify::ipv4Address(a)};
  } catch (Mox::ParseError const&) {
  } catch (Mox::RangeError const&) {
  }
  throw std::invalid_argument("'" + text + "' is not an address");
}

}  // namespace NaxelTool
