#include "ovs/EntryFlows.h"

#include <algorithm>
#include <optional>

namespace NaxelOvs {

using Naxel::EncodedLabelWithMask;
using Naxel::PDAclFilter;
using Naxel::RangeSetType;
using Naxel::TcamFieldType;

namespace {

/// What a match asks of TCP flags.
struct FlagBits {
  uint16_t value;
  uint16_t mask;
};

/// The alternatives of an entry; none where it asks nothing.
std::vector<FlagBits> flagsOf(PDAclFilter const& entry) {
  constexpr uint16_t init = tcpSyn | tcpAck;
  if (entry.matchTcpInit() && entry.matchTcpEstablished())
    return {{tcpSyn | tcpRst, init | tcpRst}};
  if (entry.matchTcpInit()) return {{tcpSyn, init}};
  if (entry.matchTcpEstablished()) return {{tcpAck, tcpAck}, {tcpRst, tcpRst}};
  return {};
}

}  // namespace

EntryFlows::EntryFlows(Naxel::PDData const& data, Layout const& layout)
    : data_(data),
      layout_(layout),
      protocols_(labelPieces(data, RangeSetType::proto)),
      fragments_(labelPieces(data, RangeSetType::fragment)) {}

std::string EntryFlows::add(PDAclFilter const& entry, Lumox::AddressFamily af, uint32_t aclId,
                            std::vector<std::string>& to) const {
  // Nothing ever fills that field, so such an entry matches no packet.
  if (entry.headFragment().mask().value() != 0) return {};
  if (std::string fault = faultOf(entry, af); !fault.empty()) return fault;
  auto const bits = bitsOf(entry);
  auto const add = [&](std::optional<FlagBits> flags) {
    MatchBuilder match;
    match.add(MatchField::ethType, etherType(af));
    if (flags)
      match.add(MatchField::ipProto, 6).add(MatchField::tcpFlags, flags->value, flags->mask);
    for (unsigned i = 0; i < bits.size(); ++i)
      match.add(registerField(layout_.firstRegister + i), bits[i].value, bits[i].mask);
    to.push_back(match.add(registerField(layout_.aclSlot().reg), aclId).bytes());
  };
  auto const alternatives = flagsOf(entry);
  if (alternatives.empty()) add(std::nullopt);
  for (FlagBits const& flags : alternatives) add(flags);
  return {};
}

std::array<EntryFlows::Bits, registersUsed> EntryFlows::bitsOf(PDAclFilter const& entry) const {
  std::array<Bits, registersUsed> bits{};
  for (TcamFieldType field : Naxel::allLabelFields()) {
    EncodedLabelWithMask const& match = entry.labelField(field);
    if (match.mask().value() == 0) continue;
    Slot const slot = layout_.slot(field);
    Bits& to = bits[slot.reg - layout_.firstRegister];
    to.value |= slot.place(match.label().value());
    to.mask |= slot.place(match.mask().value());
  }
  return bits;
}

std::string EntryFlows::faultOf(PDAclFilter const& entry, Lumox::AddressFamily af) const {
  for (TcamFieldType field : Naxel::allLabelFields()) {
    EncodedLabelWithMask const& match = entry.labelField(field);
    if (match.mask().value() == 0) continue;
    if (std::string fault = fieldFault(field, match); !fault.empty()) return fault;
  }
  std::string fault = portFault(entry);
  return fault.empty() && af == Lumox::ipv6() ? laterFragmentFault(entry) : fault;
}

/// Behind the first one, a fragment of IPv6 shows the switch the number of its fragment header, whatever is in it.
std::string EntryFlows::laterFragmentFault(PDAclFilter const& entry) const {
  EncodedLabelWithMask const& proto = entry.proto();
  EncodedLabelWithMask const& offset = entry.labelField(TcamFieldType::tcamFieldTypeFragOffset);
  bool const laterAlone =
      offset.matches(labelAt(fragments_, 1)) && !offset.matches(labelAt(fragments_, 0));
  if (!laterAlone || proto.mask().value() == 0 || proto.matches(labelAt(protocols_, protoFragment)))
    return {};
  return "matches later fragments of IPv6 by their protocol, which Open vSwitch shows as " +
         std::to_string(protoFragment);
}

std::string EntryFlows::fieldFault(TcamFieldType field, EncodedLabelWithMask const& match) const {
  if (field == TcamFieldType::tcamFieldTypeLength)
    return "matches the length of packets, which Open vSwitch cannot";
  RangeSetType const type = Naxel::rangeTypeOf(field);
  if (type != RangeSetType::rangeSetMax && data_.hwCapability()->rangeXformWidth(type) == 0)
    return std::string("matches the ") + Naxel::rangeField(type).title +
           ", for which the chip's description has no label width";
  if (field != TcamFieldType::tcamFieldTypeFragOffset) return {};
  // All offsets but 0 are one thing to the switch.
  bool const first = match.matches(labelAt(fragments_, 1));
  for (LabelPiece const& piece : fragments_)
    if (piece.first > 1 && match.matches(piece.label) != first)
      return "matches some fragment offsets above 0 and not all, and Open vSwitch tells later "
             "fragments from others only";
  return {};
}

std::string EntryFlows::portFault(PDAclFilter const& entry) const {
  bool const ports = (entry.sport().mask().value() | entry.dport().mask().value() |
                      entry.portCombo().mask().value()) != 0;
  EncodedLabelWithMask const& proto = entry.proto();
  if (!ports || proto.mask().value() == 0) return {};
  auto const names = [&](uint16_t p) { return proto.matches(labelAt(protocols_, p)); };
  if (names(6) || names(17) || names(132)) return {};
  // DCCP and UDP-Lite. A protocol without ports has 0 there, in the switch as in the rules.
  for (uint16_t p : {33, 136})
    if (names(p))
      return "matches ports of protocol " + std::to_string(p) +
             ", and Open vSwitch reads those of TCP, UDP and SCTP only";
  return {};
}

std::string EntryFlows::faultOf(Naxel::NaxelActionValue const& action) const {
  if (action.setTcEnabled()) return "sets a traffic class, which Open vSwitch does not have";
  if (layout_.ignoreActions) return {};
  if (action.logEnabled()) return "logs, which Open vSwitch cannot; --ignore-actions leaves it out";
  if (action.sflowEnabled())
    return "samples to sFlow, which no flow of Open vSwitch can; --ignore-actions leaves it out";
  return {};
}

}  // namespace NaxelOvs
