#include "answers/RuleDemands.h"

#include "output/RuleText.h"
#include "output/RuleView.h"

#include <algorithm>

namespace NaxelTool {

namespace {

/// The longest prefix of a list that contains the address; null if none does.
Lumox::IpGenPrefix const* longestAround(Naxel::IpPrefixList::PrefixColl const& prefixes,
                                        Verify::Packet const& packet,
                                        Verify::Address const& address) {
  Lumox::IpGenPrefix const* longest = nullptr;
  for (Lumox::IpGenPrefix const& p : prefixes)
    if (p.af() == packet.af && p.containsAddress(address.hi, address.lo) &&
        (!longest || p.length() > longest->length()))
      longest = &p;
  return longest;
}

}  // namespace

RuleDemands::RuleDemands(Naxel::RuleConfig const& rule, Lumox::AddressFamily af,
                         NamedLists const& lists) {
  if (!rule.ruleFilter()) return;
  Naxel::RuleFilter const& filter = *rule.ruleFilter();
  addSide(Kind::source, filter.source(), af, lists);
  addSide(Kind::destination, filter.destination(), af, lists);
  filter.forEachRangeColl([&](Naxel::RangeSetType type, auto const& ranges) {
    if (ranges.empty()) return;
    IntervalSet values = valuesOf(ranges);
    std::string wanted = valuesText(values);
    demand_.push_back({.kind = Kind::range,
                       .field = std::string(Naxel::rangeField(type).name),
                       .wanted = std::move(wanted),
                       .type = type,
                       .values = std::move(values)});
  });
  if (filter.matchTcpInit())
    demand_.push_back(
        {.kind = Kind::tcpInit, .field = "matchTcpInit", .wanted = "SYN without ACK"});
  if (filter.matchTcpEstablished())
    demand_.push_back(
        {.kind = Kind::tcpEstablished, .field = "matchTcpEstablished", .wanted = "ACK or RST"});
}

void RuleDemands::addSide(Kind kind, Mox::Ptr<Naxel::IpPrefixList> const& list,
                          Lumox::AddressFamily af, NamedLists const& lists) {
  if (!list) return;
  demand_.push_back({.kind = kind,
                     .field = kind == Kind::source ? "source" : "destination",
                     .wanted = listText(*list, lists),
                     .list = list,
                     .addresses = Verify::AddressSet(list.get(), af)});
}

bool RuleDemands::isMet(Demand const& d, Verify::Packet const& packet) {
  switch (d.kind) {
    case Kind::source: return d.addresses.contains(packet.src);
    case Kind::destination: return d.addresses.contains(packet.dst);
    case Kind::tcpInit: return packet.tcpInit();
    case Kind::tcpEstablished: return packet.tcpEstablished();
    case Kind::range: break;
  }
  uint16_t const value = packet.value(d.type);
  auto const above = std::upper_bound(d.values.begin(), d.values.end(), Wide{value},
                                      [](Wide v, Interval const& i) { return v < i.first; });
  return above != d.values.begin() && std::prev(above)->last >= value;
}

uint64_t RuleDemands::unmet(Verify::Packet const& packet) const {
  uint64_t out = 0;
  for (size_t i = 0; i < demand_.size(); ++i)
    if (!isMet(demand_[i], packet)) out |= uint64_t{1} << i;
  return out;
}

std::string RuleDemands::had(size_t i, Verify::Packet const& packet) const {
  Demand const& d = demand_[i];
  switch (d.kind) {
    case Kind::source: return Verify::addressText(packet.af, packet.src);
    case Kind::destination: return Verify::addressText(packet.af, packet.dst);
    case Kind::range: return std::to_string(packet.value(d.type));
    case Kind::tcpInit:
    case Kind::tcpEstablished: break;
  }
  if (packet.proto != Verify::Packet::protoTcp) return "no TCP";
  std::string flags;
  for (auto const& [set, name] :
       {std::pair(packet.syn, "SYN"), std::pair(packet.ack, "ACK"), std::pair(packet.rst, "RST")})
    if (set) flags += (flags.empty() ? "" : " ") + std::string(name);
  return flags.empty() ? "no flags" : flags;
}

std::string RuleDemands::unmetText(size_t i) const {
  Demand const& d = demand_[i];
  bool const isFlag = d.kind == Kind::tcpInit || d.kind == Kind::tcpEstablished;
  if (isFlag) return "the TCP flags are not " + d.wanted;
  return d.field + (d.list ? " is not in " : " is not ") + d.wanted;
}

std::string RuleDemands::text(size_t i, Verify::Packet const& packet) const {
  Demand const& d = demand_[i];
  switch (d.kind) {
    case Kind::source:
    case Kind::destination: return sideText(d, packet);
    case Kind::range: return rangeFieldText(d, packet);
    case Kind::tcpInit:
      return packet.tcpInit() ? "it opens a TCP connection"
                              : "it opens no TCP connection, it has " + had(i, packet);
    case Kind::tcpEstablished: break;
  }
  return packet.tcpEstablished() ? "it belongs to a TCP connection"
                                 : "it belongs to no TCP connection, it has " + had(i, packet);
}

std::string RuleDemands::sideText(Demand const& d, Verify::Packet const& packet) {
  Verify::Address const& address = d.kind == Kind::source ? packet.src : packet.dst;
  std::string const head = d.field + " " + Verify::addressText(packet.af, address);
  auto const* const around = longestAround(d.list->addr(), packet, address);
  if (!around) {
    size_t const prefixes = d.list->addrs();
    return head + (prefixes > 1 ? " lies in none of the " + std::to_string(prefixes) +
                                      " prefixes of " + d.wanted
                                : " does not lie in " + d.wanted);
  }
  std::string out = head + " lies in " + Mox::valueToStrep(*around);
  if (auto const* const except = longestAround(d.list->exceptAddr(), packet, address))
    return out + ", but is excepted by " + Mox::valueToStrep(*except);
  if (size_t const excepts = d.list->exceptAddrs())
    out += excepts == 1 ? " and not in the except prefix"
                        : " and in none of " + std::to_string(excepts) + " except prefixes";
  return out;
}

std::string RuleDemands::rangeFieldText(Demand const& d, Verify::Packet const& packet) {
  uint16_t const value = packet.value(d.type);
  std::string const number = std::to_string(value);
  if (!isMet(d, packet)) return d.field + " is " + number + ", not " + d.wanted;
  if (d.wanted == number) return d.field + " is " + number;
  return d.field + " " + number + " lies in " + d.wanted;
}

std::vector<FieldCheck> checksOf(RuleDemands const& demands, Verify::Packet const& packet,
                                 bool met) {
  std::vector<FieldCheck> out;
  uint64_t const unmet = demands.unmet(packet);
  for (size_t i = 0; i < demands.size(); ++i)
    if ((unmet >> i & 1) == uint64_t{!met})
      out.push_back(
          {demands.field(i), demands.wanted(i), demands.had(i, packet), demands.text(i, packet)});
  return out;
}

}  // namespace NaxelTool
