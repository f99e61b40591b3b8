#include "verify/RuleOracle.h"

#include <algorithm>

namespace Verify {

using Naxel::AceIndex;
using Naxel::AclConfig;
using Naxel::IpPrefixList;
using Naxel::RangeSetType;
using Naxel::RuleConfig;
using Naxel::RuleFilter;

namespace {

constexpr size_t fewRules = 32;

std::optional<Lumox::AddressFamily> familyOf(Mox::Ptr<IpPrefixList> const& list) {
  if (!list) return std::nullopt;
  for (auto const& p : list->addr()) return p.af();
  for (auto const& p : list->exceptAddr()) return p.af();
  return std::nullopt;
}

bool anyContains(IpPrefixList::PrefixColl const& prefixes, Lumox::AddressFamily af, Address a) {
  return std::any_of(prefixes.begin(), prefixes.end(), [&](Lumox::IpGenPrefix const& p) {
    return p.af() == af && intervalOf(p).contains(a);
  });
}

bool matches(Mox::Ptr<IpPrefixList> const& list, Lumox::AddressFamily af, Address a) {
  return !list || (anyContains(list->addr(), af, a) && !anyContains(list->exceptAddr(), af, a));
}

}  // namespace

Lumox::AddressFamily familyOf(AclConfig const& acl) {
  if (acl.af()) return *acl.af();
  for (auto const& [name, rule] : acl.ruleByName()) {
    if (!rule->ruleFilter()) continue;
    if (auto const af = familyOf(rule->ruleFilter()->source())) return *af;
    if (auto const af = familyOf(rule->ruleFilter()->destination())) return *af;
  }
  return Lumox::ipv4();
}

bool matches(RuleFilter const& filter, Packet const& packet) {
  if (!matches(filter.source(), packet.af, packet.src)) return false;
  if (!matches(filter.destination(), packet.af, packet.dst)) return false;
  if (filter.matchTcpInit() && !packet.tcpInit()) return false;
  if (filter.matchTcpEstablished() && !packet.tcpEstablished()) return false;
  bool allHold = true;
  filter.forEachRangeColl([&](RangeSetType type, auto const& ranges) {
    uint32_t const v = packet.value(type);
    bool holds = ranges.empty();
    for (auto const& r : ranges) holds = holds || (r.rangeStart() <= v && v <= r.rangeEnd());
    allHold = allHold && holds;
  });
  return allHold;
}

std::optional<AceIndex> firstMatch(AclConfig const& acl, Packet const& packet) {
  if (packet.af != familyOf(acl)) return std::nullopt;
  for (auto const& [index, rule] : acl.ruleById())
    if (!rule->ruleFilter() || matches(*rule->ruleFilter(), packet)) return index;
  return std::nullopt;
}

bool isMistaken(Naxel::AclConfigColl const& acls) {
  for (auto const& [name, acl] : acls.acl()) {
    for (auto const& [index, rule] : acl->ruleById())
      if (acl->ruleByName(rule->name()) != rule) return true;
    bool v4 = acl->af() == Lumox::ipv4();
    bool v6 = acl->af() == Lumox::ipv6();
    bool range = false;
    for (auto const& [ruleName, rule] : acl->ruleByName()) {
      if (!rule->ruleFilter()) continue;
      for (auto const& list : {rule->ruleFilter()->source(), rule->ruleFilter()->destination()})
        for (auto const* prefixes :
             {list ? &list->addr() : nullptr, list ? &list->exceptAddr() : nullptr})
          if (prefixes)
            for (auto const& p : *prefixes) (p.af() == Lumox::ipv4() ? v4 : v6) = true;
      rule->ruleFilter()->forEachRangeColl([&](RangeSetType type, auto const& ranges) {
        uint32_t const bound = Naxel::rangeField(type).bound();
        for (auto const& r : ranges)
          range = range || r.rangeStart() > r.rangeEnd() || r.rangeEnd() > bound;
      });
    }
    if (range || (v4 && v6)) return true;
  }
  return false;
}

RuleOracle::RuleOracle(AclConfig const& acl) : af_(familyOf(acl)) {
  rule_.reserve(acl.ruleById().size());
  for (auto const& [index, rule] : acl.ruleById()) rule_.push_back(compile(index, *rule, af_));

  // Four bytes of each address, the protocol, and the high byte of the destination port.
  bool const few = rule_.size() <= fewRules;
  index_ = FirstMatchIndex(rule_.size(), few ? 0 : 10);
  for (size_t i = 0; i < rule_.size() && !few; ++i) {
    indexList(0, i, rule_[i].source);
    indexList(4, i, rule_[i].destination);
    indexRange(8, i, rule_[i].range[static_cast<size_t>(RangeSetType::proto)], 0);
    indexRange(9, i, rule_[i].range[static_cast<size_t>(RangeSetType::dstPort)], 8);
  }
  index_.finish();
}

template <class Accept>
std::optional<size_t> RuleOracle::first(Packet const& packet, Accept accept) const {
  if (packet.af != af_) return std::nullopt;
  uint16_t query[10];
  auto const bytes = indexedBytes();
  for (size_t i = 0; i < 4; ++i) {
    query[i] = packet.src.byte(bytes[i]);
    query[4 + i] = packet.dst.byte(bytes[i]);
  }
  query[8] = packet.proto;
  query[9] = static_cast<uint16_t>(packet.dport >> 8);
  // The index only says which rules may match. Every one that it names is checked in full.
  size_t const item =
      index_.first(query, [&](size_t i) { return rule_[i].matches(packet) && accept(i); });
  return item == FirstMatchIndex::noItem ? std::nullopt : std::optional(item);
}

std::optional<AceIndex> RuleOracle::firstMatch(Packet const& packet,
                                               std::optional<RuleSpan> const& without) const {
  auto const place =
      first(packet, [&](size_t i) { return !without || !without->has(rule_[i].index); });
  return place ? std::optional(rule_[*place].index) : std::nullopt;
}

std::optional<size_t> RuleOracle::firstPlace(Packet const& packet,
                                             std::vector<bool> const& out) const {
  return first(packet, [&](size_t i) { return !out[i]; });
}

/// IPv6 prefixes tell networks apart behind the bytes that all of them share.
std::array<unsigned, 4> RuleOracle::indexedBytes() const {
  if (af_ == Lumox::ipv4()) return {0, 1, 2, 3};
  return {2, 3, 5, 7};
}

void RuleOracle::indexList(size_t dimension, size_t item, AddressSet const& list) {
  for (unsigned byte : indexedBytes()) {
    bool all = list.any();
    for (Interval const& i : list.addr()) {
      // Prefixes: the byte is fixed, free, or, where the prefix ends in it, a run of values.
      uint8_t const first = i.first.byte(byte);
      uint8_t const last = i.last.byte(byte);
      // The byte lies behind the prefix, so any value fits.
      if (first == 0 && last == 255) {
        all = true;
        break;
      }
      for (unsigned v = first; v <= last; ++v)
        index_.allow(dimension, item, static_cast<uint8_t>(v));
    }
    if (all) index_.allowAll(dimension, item);
    ++dimension;
  }
}

void RuleOracle::indexRange(size_t dimension, size_t item, std::vector<Range> const& ranges,
                            unsigned shift) {
  if (ranges.empty()) return index_.allowAll(dimension, item);
  for (Range const& r : ranges)
    for (uint32_t v = r.first >> shift; v <= std::min(r.last >> shift, 255u); ++v)
      index_.allow(dimension, item, static_cast<uint8_t>(v));
}

RuleOracle::Rule RuleOracle::compile(AceIndex index, RuleConfig const& rule,
                                     Lumox::AddressFamily af) {
  Rule out;
  out.index = index;
  if (!rule.ruleFilter()) return out;
  RuleFilter const& filter = *rule.ruleFilter();
  out.source = AddressSet(filter.source().get(), af);
  out.destination = AddressSet(filter.destination().get(), af);
  out.tcpInit = filter.matchTcpInit();
  out.tcpEstablished = filter.matchTcpEstablished();
  filter.forEachRangeColl([&](RangeSetType type, auto const& ranges) {
    for (auto const& r : ranges)
      out.range[static_cast<size_t>(type)].push_back({r.rangeStart(), r.rangeEnd()});
  });
  return out;
}

bool RuleOracle::Rule::matches(Packet const& packet) const {
  if (!source.contains(packet.src) || !destination.contains(packet.dst)) return false;
  if (tcpInit && !packet.tcpInit()) return false;
  if (tcpEstablished && !packet.tcpEstablished()) return false;
  for (size_t type = 0; type < range.size(); ++type) {
    if (range[type].empty()) continue;
    uint32_t const v = packet.value(static_cast<RangeSetType>(type));
    if (std::none_of(range[type].begin(), range[type].end(),
                     [&](Range const& r) { return r.first <= v && v <= r.last; }))
      return false;
  }
  return true;
}

}  // namespace Verify
