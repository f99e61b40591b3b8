#include "Chip.h"

namespace TwoBank {

namespace {

using namespace Naxel;

// The labels, or raw values, that the tables make of a packet, by field of the entry. On a miss there is none,
// which only mask 0 matches.
using Key = std::array<std::optional<uint32_t>, labelFieldCount + 1>;

std::optional<uint32_t>& at(Key& key, TcamFieldType field) {
  return key[static_cast<size_t>(field)];
}

std::optional<uint32_t> longest(Bank const& bank, bool source, Lumox::IpGenPrefix const& address) {
  auto const table = bank.prefix.find(PrefixXformKey(address.af(), source));
  std::optional<uint32_t> label;
  if (table == bank.prefix.end()) return label;
  // A prefix stands in front of the longer ones below it, so the last hit is the longest.
  for (auto const& [prefix, value] : table->second)
    if (prefix.contains(address)) label = value.value();
  return label;
}

std::optional<uint32_t> pairLabel(Bank const& bank, ComboLabelSetType type,
                                  std::optional<uint32_t> a, std::optional<uint32_t> b) {
  if (!a || !b || !bank.widths->comboEnabled(type)) return {};
  auto const& table = bank.combo[static_cast<size_t>(type)];
  auto const hit = table.find(
      {EncodedLabel(static_cast<uint16_t>(*a)), EncodedLabel(static_cast<uint16_t>(*b))});
  return hit == table.end() ? std::nullopt : std::optional<uint32_t>(hit->second.value());
}

Key keyOf(Bank const& bank, Packet const& p) {
  using enum TcamFieldType;
  Key key;
  at(key, tcamFieldTypeSrcIp) = longest(bank, true, p.source);
  at(key, tcamFieldTypeDstIp) = longest(bank, false, p.destination);
  for (RangeField const& f : rangeFields) {
    auto const i = static_cast<size_t>(f.type);
    if (bank.widths->rangeXformWidth(f.type) == 0) {
      at(key, f.tcamField) = p.field[i];
      continue;
    }
    for (auto const& [range, label] : bank.range[i])
      if (range.first() <= p.field[i] && p.field[i] <= range.last())
        at(key, f.tcamField) = label.value();
  }
  at(key, tcamFieldTypeSrcDstIp) =
      pairLabel(bank,
                p.source.af() == Lumox::ipv4() ? ComboLabelSetType::ipv4SrcDstPrefix
                                               : ComboLabelSetType::ipv6SrcDstPrefix,
                at(key, tcamFieldTypeSrcIp), at(key, tcamFieldTypeDstIp));
  at(key, tcamFieldTypeSrcDstPort) =
      pairLabel(bank, ComboLabelSetType::srcDstL4Port, at(key, tcamFieldTypeSrcPort),
                at(key, tcamFieldTypeDstPort));
  return key;
}

bool hits(PDAclFilter const& entry, Key& key, Packet const& p) {
  for (TcamFieldType const f : allLabelFields()) {
    EncodedLabelWithMask const& want = entry.labelField(f);
    if (want.mask().value() != 0 && !(at(key, f) && want.matches(*at(key, f)))) return false;
  }
  bool const tcp = p.field[static_cast<size_t>(RangeSetType::proto)] == 6;
  if (entry.matchTcpInit() && !(tcp && p.syn && !p.ack)) return false;
  return !entry.matchTcpEstablished() || (tcp && (p.ack || p.rst));
}

}  // namespace

std::optional<NaxelActionValue> Chip::decide(std::string const& acl, Packet const& packet) const {
  if (policy != GlobalAclControl::doNotApply) {
    NaxelActionValue all;
    all.dropEnabledIs(policy == GlobalAclControl::denyAll);
    return all;
  }
  Bank const& bank = this->bank[active];
  if (!bank.widths) return {};
  Key key = keyOf(bank, packet);
  PDAclKey const name(packet.source.af(), acl);
  for (auto i = bank.tcam.lower_bound({name, AceIndex(), PDAclFilter()});
       i != bank.tcam.end() && std::get<PDAclKey>(i->first) == name; ++i)
    if (hits(std::get<PDAclFilter>(i->first), key, packet)) return i->second;
  return {};
}

}  // namespace TwoBank
