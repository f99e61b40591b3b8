#include "answers/RuleFaults.h"

#include "verify/Packet.h"
#include "verify/RuleOracle.h"

#include <algorithm>

namespace NaxelTool {

namespace {

using Naxel::RangeSetType;
using Verify::Packet;

bool has(IntervalSet const& set, Wide value) {
  return std::any_of(set.begin(), set.end(),
                     [&](Interval const& i) { return i.first <= value && value <= i.last; });
}
/// Only values above 0 will do.
bool isNonzero(IntervalSet const& set) { return !set.empty() && set.front().first > 0; }

std::string protocolsText(IntervalSet const& set) {
  std::string out = "proto ";
  for (size_t i = 0; i < set.size(); ++i) out += (i ? "," : "") + rangeText(set[i]);
  return out;
}

/// What a rule asks for of packets of certain protocols.
struct Needs {
  explicit Needs(RuleView const& rule)
      : protocols(rule.of(RangeSetType::proto)),
        af(Verify::familyOf(rule.acl)),
        ports(isNonzero(rule.of(RangeSetType::srcPort)) ||
              isNonzero(rule.of(RangeSetType::dstPort))),
        type(isNonzero(rule.of(RangeSetType::icmp))),
        flags(rule.tcpInit || rule.tcpEstablished) {}

  IntervalSet const& protocols;  // empty: all
  Lumox::AddressFamily af;
  bool ports;
  bool type;
  bool flags;

  uint16_t icmp() const { return Packet::icmpProtocol(af); }
  uint16_t otherIcmp() const {
    return Packet::icmpProtocol(af == Lumox::ipv4() ? Lumox::ipv6() : Lumox::ipv4());
  }
  bool mayBe(uint16_t protocol) const { return protocols.empty() || has(protocols, protocol); }
  /// The protocols that have all of it.
  IntervalSet fitting() const {
    std::vector<Interval> out;
    if (type) {
      if (!ports && !flags) out.push_back({icmp(), icmp()});
    } else if (flags) {
      out.push_back({Packet::protoTcp, Packet::protoTcp});
    } else if (ports) {
      for (uint16_t const p : Packet::portProtocols) out.push_back({p, p});
    }
    return united(std::move(out));
  }
  /// "ports", what it is that few protocols have.
  char const* what() const { return type ? "ICMP types" : flags ? "TCP flags" : "ports"; }
};

std::string whyEmpty(Naxel::IpPrefixList const* list, char const* side, NamedLists const& lists) {
  if (!list || !addressesOf(*list).empty()) return {};
  std::string out = std::string("its ") + side;
  if (std::string const* const name = lists.nameOf(*list)) out += ", '" + *name + "',";
  return out + (list->addrs() ? " has no address: the except prefixes take all"
                              : " has no address: there are only except prefixes");
}

void addIdleValues(RuleView const& rule, std::vector<RuleFault>& out) {
  Needs const needs(rule);
  if (!needs.ports && !needs.type && !needs.flags) return;
  if (needs.protocols.empty()) {
    if (!needs.flags)
      out.push_back({"any-protocol", std::string("asks for ") + needs.what() +
                                         " and for no protocol: it matches " +
                                         (needs.type ? "ICMP" : "TCP, UDP and SCTP")});
  } else if (auto const idle = without(needs.protocols, needs.fitting()); !idle.empty()) {
    out.push_back({"idle-value", std::string("asks for ") + needs.what() + ", which packets of " +
                                     protocolsText(idle) + " do not have"});
  }
  if (IntervalSet const& fragment = rule.of(RangeSetType::fragment);
      !fragment.empty() && fragment.back().last > 0)
    out.push_back({"idle-value", std::string("asks for ") + needs.what() +
                                     ", which fragments behind the first do not have"});
}

void addZeroPort(RuleView const& rule, std::vector<RuleFault>& out) {
  bool const asks =
      !rule.of(RangeSetType::srcPort).empty() || !rule.of(RangeSetType::dstPort).empty();
  if (!asks || !rule.matchesZeros()) return;
  IntervalSet const& protocols = rule.of(RangeSetType::proto);
  std::vector<Interval> all;
  all.reserve(Packet::portProtocols.size());
  for (uint16_t const p : Packet::portProtocols) all.push_back({p, p});
  if (protocols.empty() || !without(protocols, united(std::move(all))).empty())
    out.push_back({"zero-port",
                   "has ports that begin with 0, which packets without ports have "
                   "as well: it matches other protocols than TCP, UDP and SCTP"});
}

void addIdleActions(RuleView const& rule, std::vector<RuleFault>& out) {
  Naxel::NaxelActionValue const& action = rule.rule.action();
  auto const add = [&](std::string text) { out.push_back({"idle-action", std::move(text)}); };
  bool const hasTc = action.tc().value() != Naxel::NaxelTrafficClass::null;
  if (hasTc && !action.setTcEnabled())
    add("has a traffic class and does not set it: setTcEnabled is off");
  if (!hasTc && action.setTcEnabled()) add("sets a traffic class and has none");
  if (action.dscp().value() != 0 && !action.setDscpEnabled())
    add("has a code point and does not set it: setDscpEnabled is off");
  if (action.dropEnabled() && (action.setTcEnabled() || action.setDscpEnabled()))
    add(std::string("sets a ") + (action.setTcEnabled() ? "traffic class" : "code point") +
        " on packets that it drops");
}

std::string whyNone(RuleView const& rule, NamedLists const& lists) {
  if (std::string why = whyEmpty(rule.source, "source", lists); !why.empty()) return why;
  if (std::string why = whyEmpty(rule.destination, "destination", lists); !why.empty()) return why;
  Needs const needs(rule);
  std::string const asks = std::string("it asks for ") + needs.what();
  if (!needs.ports && !needs.type && !needs.flags) return "it asks for what no packet has";
  if (needs.type && (needs.ports || needs.flags))
    return std::string("it asks for ICMP types and ") + (needs.ports ? "ports" : "TCP flags") +
           ", which no packet has both";
  if (isNonzero(rule.of(RangeSetType::fragment)))
    return asks + " of fragments behind the first, which have none";
  if (needs.type && !needs.mayBe(needs.icmp()) && needs.mayBe(needs.otherIcmp()))
    return asks + " of proto " + std::to_string(needs.otherIcmp()) + " in an ACL of " +
           (needs.af == Lumox::ipv4() ? "IPv4" : "IPv6") + ", whose ICMP is proto " +
           std::to_string(needs.icmp());
  return asks + ", which packets of " + protocolsText(needs.protocols) + " do not have";
}

}  // namespace

std::string whyNothingMatches(RuleView const& rule, NamedLists const& lists) {
  return "matches no packet: " + whyNone(rule, lists);
}

std::vector<RuleFault> faultsOf(RuleView const& rule) {
  std::vector<RuleFault> out;
  Needs const needs(rule);
  if (auto const only = onlyValue(needs.protocols); only == needs.otherIcmp())
    out.push_back({"other-icmp", "asks for proto " + std::to_string(*only) +
                                     ", which is the ICMP "
                                     "of the other family: here it is " +
                                     std::to_string(needs.icmp())});
  addIdleValues(rule, out);
  addZeroPort(rule, out);
  addIdleActions(rule, out);
  return out;
}

}  // namespace NaxelTool
