#include "input/ConfigDbRule.h"

#include "input/RuleSet.h"

#include <algorithm>
#include <charconv>
#include <set>
#include <stdexcept>

namespace NaxelTool::ConfigDb {

using Naxel::RangeSetType;

namespace {

struct ValueAndMask {
  uint32_t value = 0;
  uint32_t mask = 0;
};

class RuleReader {
 public:
  RuleReader(JsonFile const& file, JsonNode const& node, Families families)
      : file_(file), node_(node) {
    out_.entry.families = families;
  }

  RuleFields read() {
    bool priority = false;
    std::set<std::string> names;
    for (JsonMember const& m : file_.object(node_, "a rule", {})) {
      std::string const name = upper(m.name);
      if (!names.insert(name).second) file_.fail(m.at(), "duplicate field '" + m.name + "'");
      if (name == "PRIORITY") {
        out_.priority = number(m.value, name, UINT32_MAX);
        priority = true;
      } else {
        readField(name, m);
      }
    }
    if (!priority) file_.fail(node_, "the rule has no PRIORITY");
    if (!verdict_)
      throw UnsupportedError(file_.path(), node_.at(),
                             "the rule has no PACKET_ACTION, so no verdict");
    if (out_.entry.families.none())
      throw NeverMatches(file_.path(), node_.at(), "no IP packet matches the rule");
    if (!keepToFirstFragments(out_.entry.rule))
      throw NeverMatches(file_.path(), node_.at(), "no packet matches the rule");
    return std::move(out_);
  }

  Families familiesLeft() {
    Families left;
    if (!node_.members()) return {false, false};
    for (JsonMember const& m : *node_.members()) try {
        left = left & familiesOf(upper(m.name), m.value);
      } catch (InputError const&) {
        // Told when the rule is read.
      }
    return left;
  }

 private:
  /// Of the packets that a field leaves.
  Families familiesOf(std::string_view name, JsonNode const& value) {
    if (name == "IP_TYPE") return familiesOfIpType(value);
    if (name == "ETHER_TYPE") {
      uint64_t const type = number(value, name, 0xffff);
      return {type == 0x0800, type == 0x86dd};
    }
    auto const isOneOf = [&](std::initializer_list<std::string_view> names) {
      return std::find(names.begin(), names.end(), name) != names.end();
    };
    return {!isOneOf({"SRC_IPV6", "DST_IPV6", "NEXT_HEADER", "ICMPV6_TYPE", "ICMPV6_CODE"}),
            !isOneOf({"SRC_IP", "DST_IP", "ICMP_TYPE", "ICMP_CODE"})};
  }

  void readField(std::string const& name, JsonMember const& m) {
    RuleDraft& rule = out_.entry.rule;
    JsonNode const& value = m.value;
    if (name == "IP_TYPE" || name == "ETHER_TYPE") {
      // What is of neither family is matched by no IP packet.
      out_.entry.families = out_.entry.families & familiesOf(name, value);
      return;
    }
    needFamily(familiesOf(name, value), value);
    if (name == "PACKET_ACTION") return readAction(value);
    if (name == "SRC_IP" || name == "SRC_IPV6")
      return readAddress(value, name == "SRC_IP", rule.source, sourceSaid_);
    if (name == "DST_IP" || name == "DST_IPV6")
      return readAddress(value, name == "DST_IP", rule.destination, destinationSaid_);
    if (name == "IP_PROTOCOL" || name == "NEXT_HEADER")
      return narrow(RangeSetType::proto, {one(number(value, name, 255))}, value);
    if (name == "L4_SRC_PORT" || name == "L4_SRC_PORT_RANGE")
      return narrow(RangeSetType::srcPort, {ports(value, name)}, value);
    if (name == "L4_DST_PORT" || name == "L4_DST_PORT_RANGE")
      return narrow(RangeSetType::dstPort, {ports(value, name)}, value);
    if (name == "ICMP_TYPE" || name == "ICMPV6_TYPE")
      return narrow(RangeSetType::icmp, {one(number(value, name, 255))}, value);
    if (name == "DSCP") return readDscp(value);
    if (name == "TCP_FLAGS") return readTcpFlags(value);
    throw UnsupportedError(
        file_.path(), m.at(), "a rule cannot say '" + m.name + "'",
        didYouMean(name,
                   {"SRC_IP", "DST_IP", "SRC_IPV6", "DST_IPV6", "IP_TYPE", "ETHER_TYPE",
                    "IP_PROTOCOL", "NEXT_HEADER", "L4_SRC_PORT", "L4_DST_PORT", "L4_SRC_PORT_RANGE",
                    "L4_DST_PORT_RANGE", "TCP_FLAGS", "PACKET_ACTION", "PRIORITY"}));
  }

  void readAction(JsonNode const& node) {
    std::string const action = upper(textOf(file_, node, "PACKET_ACTION"));
    if (action != "FORWARD" && action != "ACCEPT" && action != "DROP")
      throw UnsupportedError(file_.path(), node.at(),
                             "a rule cannot do '" + textOf(file_, node, "PACKET_ACTION") + "'",
                             didYouMean(action, {"FORWARD", "ACCEPT", "DROP"}));
    out_.entry.rule.action.dropEnabledIs(action == "DROP");
    verdict_ = true;
  }

  void readAddress(JsonNode const& node, bool v4, Mox::Ptr<Naxel::IpPrefixList>& side, bool& said) {
    if (said) file_.fail(node, "the rule names this side twice");
    said = true;
    try {
      Lumox::IpGenPrefix const prefix = prefixOrHostFromText(textOf(file_, node, "address"));
      if ((prefix.af() == Lumox::ipv4()) != v4)
        file_.fail(node, std::string("the address is not of ") + (v4 ? "ipv4" : "ipv6"));
      if (prefix.length() == 0) return;
      side = Mox::makePtr<Naxel::IpPrefixList>();
      side->addrIs(prefix);
    } catch (std::invalid_argument const& e) {
      file_.fail(node, e.what());
    }
  }

  /// A field of one family in a rule or a table of the other is a mistake.
  void needFamily(Families families, JsonNode const& node) {
    Families const before = out_.entry.families;
    out_.entry.families = before & families;
    if (out_.entry.families.none() && !before.none())
      file_.fail(node, "the address family is not that of the rest of the rule and its table");
  }

  Families familiesOfIpType(JsonNode const& node) {
    std::string const type = upper(textOf(file_, node, "IP_TYPE"));
    if (type == "ANY" || type == "IP") return {true, true};
    if (type == "IPV4" || type == "IPV4ANY" || type == "NON_IPV6") return {true, false};
    if (type == "IPV6" || type == "IPV6ANY" || type == "NON_IPV4") return {false, true};
    if (type != "NON_IP" && type != "ARP" && type != "ARP_REQUEST" && type != "ARP_REPLY")
      file_.fail(node, "there is no IP_TYPE '" + type + "'",
                 didYouMean(type, {"ANY", "IP", "IPV4", "IPV4ANY", "NON_IPV4", "IPV6", "IPV6ANY",
                                   "NON_IPV6", "NON_IP", "ARP"}));
    return {false, false};
  }

  void narrow(RangeSetType type, RuleDraft::Ranges const& ranges, JsonNode const& node) {
    RuleDraft::Ranges& all = out_.entry.rule.of(type);
    all = all.empty() ? ranges : common(all, ranges);
    if (all.empty())
      throw NeverMatches(file_.path(), node.at(), "the fields of the rule exclude each other");
  }

  void readDscp(JsonNode const& node) {
    ValueAndMask const want = valueAndMask(node, "DSCP", Naxel::DscpRange::bound);
    RuleDraft::Ranges values;
    for (uint32_t v = 0; v <= Naxel::DscpRange::bound; ++v)
      if ((v & want.mask) == (want.value & want.mask)) {
        if (!values.empty() && values.back().rangeEnd() + 1 == v)
          values.back().rangeEndIs(v);
        else
          values.emplace_back(v, v);
      }
    narrow(RangeSetType::dscp, values, node);
  }

  void readTcpFlags(JsonNode const& node) {
    constexpr uint32_t syn = 0x02;
    constexpr uint32_t ack = 0x10;
    constexpr uint32_t tcp = 6;
    ValueAndMask const want = valueAndMask(node, "TCP_FLAGS", 0xff);
    if (want.mask != (syn | ack) || (want.value & want.mask) != syn)
      throw UnsupportedError(file_.path(), node.at(), "a rule cannot say these TCP flags",
                             "0x02/0x12, SYN without ACK, can be said");
    out_.entry.rule.tcpInit = true;
    narrow(RangeSetType::proto, {{tcp, tcp}}, node);
  }

  /// "value/mask", or a value of which every bit counts.
  ValueAndMask valueAndMask(JsonNode const& node, std::string_view what, uint32_t max) {
    std::string const text = textOf(file_, node, what);
    size_t const slash = text.find('/');
    ValueAndMask out;
    out.value = static_cast<uint32_t>(number(text.substr(0, slash), node, what, max));
    out.mask = slash == std::string::npos
                   ? max
                   : static_cast<uint32_t>(number(text.substr(slash + 1), node, what, max));
    return out;
  }

  static Naxel::Range one(uint64_t value) {
    return {static_cast<uint32_t>(value), static_cast<uint32_t>(value)};
  }

  /// A number, or "first-last" in the fields of ranges.
  Naxel::Range ports(JsonNode const& node, std::string const& name) {
    std::string const text = textOf(file_, node, name);
    size_t const dash = text.find('-');
    if (!name.ends_with("_RANGE")) {
      if (dash != std::string::npos)
        file_.fail(node, "'" + name + "' must be one port", "ranges are for '" + name + "_RANGE'");
      return one(number(text, node, name, Naxel::L4PortRange::bound));
    }
    if (dash == std::string::npos)
      file_.fail(node, "'" + name + "' must be a text such as \"80-90\"");
    uint64_t const first = number(text.substr(0, dash), node, name, Naxel::L4PortRange::bound);
    uint64_t const last = number(text.substr(dash + 1), node, name, Naxel::L4PortRange::bound);
    if (first > last)
      file_.fail(node, "the port range starts at " + std::to_string(first) + ", above its end " +
                           std::to_string(last));
    return {static_cast<uint32_t>(first), static_cast<uint32_t>(last)};
  }

  uint64_t number(JsonNode const& node, std::string_view what, uint64_t max) {
    return number(textOf(file_, node, what), node, what, max);
  }
  /// Decimal, or hexadecimal where it says 0x.
  uint64_t number(std::string_view text, JsonNode const& node, std::string_view what,
                  uint64_t max) {
    std::string_view digits = text;
    bool const hex = digits.starts_with("0x") || digits.starts_with("0X");
    if (hex) digits.remove_prefix(2);
    uint64_t value = 0;
    auto const [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), value, hex ? 16 : 10);
    if (error != std::errc() || end != digits.data() + digits.size() || value > max)
      file_.fail(node, "'" + std::string(what) + "' must be a whole number from 0 to " +
                           std::to_string(max));
    return value;
  }

  JsonFile const& file_;
  JsonNode const& node_;
  RuleFields out_;
  bool verdict_ = false;
  bool sourceSaid_ = false;
  bool destinationSaid_ = false;
};

}  // namespace

RuleFields readRule(JsonFile const& file, JsonNode const& node, Families families) {
  return RuleReader(file, node, families).read();
}

Families familiesLeft(JsonFile const& file, JsonNode const& node) {
  return RuleReader(file, node, Families()).familiesLeft();
}

std::string textOf(JsonFile const& file, JsonNode const& node, std::string_view what) {
  if (node.number()) return std::to_string(*node.number());
  return file.text(node, what);
}

std::string upper(std::string_view text) {
  std::string out(text);
  for (char& c : out)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return out;
}

}  // namespace NaxelTool::ConfigDb
