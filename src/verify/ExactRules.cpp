#include "verify/ExactRules.h"

#include <algorithm>
#include <array>
#include <compare>
#include <span>

namespace Verify::Exact {

using Naxel::IpPrefixList;
using Naxel::RangeSetType;

namespace {

Bdd notBelow(Bits bits, uint32_t limit) {
  // No value of the field is as large.
  if (limit >> bits.count) return Bdd(false);
  Bdd f(true);
  // From the last bit up, which adds one node on top of what is there.
  for (int i = bits.count - 1; i >= 0; --i, limit >>= 1)
    f = limit & 1 ? Bdd::choice(bits.first + i, f, Bdd(false))
                  : Bdd::choice(bits.first + i, Bdd(true), f);
  return f;
}

Bdd notAbove(Bits bits, uint32_t limit) {
  if (limit >> bits.count) return Bdd(true);
  Bdd f(true);
  for (int i = bits.count - 1; i >= 0; --i, limit >>= 1)
    f = limit & 1 ? Bdd::choice(bits.first + i, f, Bdd(true))
                  : Bdd::choice(bits.first + i, Bdd(false), f);
  return f;
}

struct Prefix {
  Address address;
  int length;
  auto operator<=>(Prefix const&) const = default;
};

/// All prefixes agree in the first `depth` bits. They are sorted, so that the shortest of those that
/// begin where all begin comes first.
Bdd tree(Bits bits, int depth, std::span<Prefix const> all) {
  if (all.empty()) return Bdd(false);
  // The shortest prefix covers all that are left.
  if (all.front().length <= depth) return Bdd(true);
  auto const isZero = [&](Prefix const& p) {
    return !(p.address.byte(static_cast<unsigned>(depth) / 8) >> (7 - depth % 8) & 1);
  };
  size_t const zeros =
      static_cast<size_t>(std::partition_point(all.begin(), all.end(), isZero) - all.begin());
  Bdd const low = tree(bits, depth + 1, all.first(zeros));
  Bdd const high = tree(bits, depth + 1, all.subspan(zeros));
  return Bdd::choice(bits.first + depth, high, low);
}

}  // namespace

Bdd RuleFunctions::matched(Naxel::RuleFilter const& filter) {
  std::array<Bdd, Naxel::rangeFieldCount> values;
  filter.forEachRangeColl([&](RangeSetType type, auto const& ranges) {
    Bits const bits = bitsOf(type);
    Bdd any(ranges.empty());
    for (auto const& r : ranges)
      any = any | (notBelow(bits, r.rangeStart()) & notAbove(bits, r.rangeEnd()));
    values[static_cast<size_t>(type)] = any;
  });
  // From the last variable up.
  Bdd all = list(filter.source().get(), true);
  all = list(filter.destination().get(), false) & all;
  for (size_t at = rangeOrder.size(); at-- > 0;)
    all = values[static_cast<size_t>(rangeOrder[at])] & all;
  return flagsMatched(filter.matchTcpInit(), filter.matchTcpEstablished()) & all;
}

Bdd RuleFunctions::list(IpPrefixList const* list, bool source) {
  if (!list) return Bdd(true);
  auto const [at, isNew] = list_.try_emplace({list, source});
  if (isNew) at->second = prefixes(list->addr(), source) - prefixes(list->exceptAddr(), source);
  return at->second;
}

Bdd RuleFunctions::prefixes(IpPrefixList::PrefixColl const& coll, bool source) const {
  std::vector<Prefix> all;
  for (Lumox::IpGenPrefix const& p : coll)
    if (p.af() == af_) all.push_back({intervalOf(p).first, p.length()});
  std::sort(all.begin(), all.end());
  return tree(bitsOf(af_, source), 0, all);
}

Bdd possiblePackets(Lumox::AddressFamily af) {
  auto const is = [](RangeSetType type, uint32_t value) {
    return notBelow(bitsOf(type), value) & notAbove(bitsOf(type), value);
  };
  Bdd const first = is(RangeSetType::fragment, 0);
  Bdd const tcp = is(RangeSetType::proto, Packet::protoTcp);
  Bdd ports(false);
  for (uint16_t const proto : Packet::portProtocols) ports = ports | is(RangeSetType::proto, proto);
  Bdd const noPorts = is(RangeSetType::srcPort, 0) & is(RangeSetType::dstPort, 0);
  Bdd const flags = Bdd::variable(syn) | Bdd::variable(ack) | Bdd::variable(rst);
  return (noPorts | (first & ports)) &
         (is(RangeSetType::icmp, 0) | (first & is(RangeSetType::proto, Packet::icmpProtocol(af)))) &
         ((Bdd(true) - flags) | (first & tcp));
}

Bdd flagsMatched(bool tcpInit, bool tcpEstablished) {
  if (!tcpInit && !tcpEstablished) return Bdd(true);
  Bits const proto = bitsOf(RangeSetType::proto);
  Bdd all = notBelow(proto, Packet::protoTcp) & notAbove(proto, Packet::protoTcp);
  if (tcpInit) all = all & (Bdd::variable(syn) - Bdd::variable(ack));
  if (tcpEstablished) all = all & (Bdd::variable(ack) | Bdd::variable(rst));
  return all;
}

}  // namespace Verify::Exact
