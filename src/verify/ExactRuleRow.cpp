#include "verify/ExactRuleRow.h"

namespace Verify::Exact {

using Naxel::RangeSetType;

namespace {

/// A packet that can be, as like to `packet` as its rule lets it be.
Packet madePossible(Packet packet, RuleHull const& hull) {
  auto const asksFor = [&](RangeSetType type) { return hull.of(type).first > 0; };
  if (asksFor(RangeSetType::icmp)) packet.proto = Packet::icmpProtocol(packet.af);
  if (asksFor(RangeSetType::srcPort) || asksFor(RangeSetType::dstPort))
    for (uint16_t const proto : Packet::portProtocols)
      if (!packet.hasPortProtocol() && hull.of(RangeSetType::proto).first <= proto &&
          proto <= hull.of(RangeSetType::proto).last)
        packet.proto = proto;
  bool const isFirst = !packet.isLaterFragment();
  if (!isFirst || !packet.hasPortProtocol()) packet.sport = packet.dport = 0;
  if (!isFirst || !packet.isIcmp()) packet.icmpType = 0;
  if (!isFirst || packet.proto != Packet::protoTcp) packet.syn = packet.ack = packet.rst = false;
  return packet;
}

}  // namespace

RuleRow::RuleRow(Naxel::AclConfig const& acl, Among among)
    : among_(among),
      packets_(among == Among::all ? Bdd(true) : possiblePackets(familyOf(acl))),
      oracle_(acl),
      source_(acl, 1),
      functions_(familyOf(acl)),
      out_(acl.ruleById().size()) {
  rule_.reserve(acl.ruleById().size());
  for (auto const& [index, config] : acl.ruleById())
    rule_.push_back({index, config.get(), RuleHull(config->ruleFilter().get(), familyOf(acl)), {}});
}

Bdd const& RuleRow::matched(size_t place) {
  Rule& rule = rule_[place];
  if (!rule.matched) {
    auto const& filter = rule.config->ruleFilter();
    rule.matched = filter ? functions_.matched(*filter) & packets_ : packets_;
  }
  return *rule.matched;
}

std::optional<Packet> RuleRow::drawn(size_t place) {
  auto packet = source_.inside(place);
  if (!packet) return packet;
  RuleHull const& hull = rule_[place].hull;
  // What few rules look at is 0 where it may be: people read the packet.
  for (RangeSetType const type : {RangeSetType::fragment, RangeSetType::length, RangeSetType::dscp})
    if (hull.of(type).first == 0) packet->valueIs(type, 0);
  return among_ == Among::all ? *packet : madePossible(*packet, hull);
}

}  // namespace Verify::Exact
