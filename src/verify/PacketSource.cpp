#include "verify/PacketSource.h"

#include "verify/RuleOracle.h"

#include <algorithm>

namespace Verify {

using Naxel::RangeSetType;

namespace {

constexpr size_t protoAt = static_cast<size_t>(RangeSetType::proto);

template <class T>
void sortUnique(std::vector<T>& v) {
  std::sort(v.begin(), v.end());
  v.erase(std::unique(v.begin(), v.end()), v.end());
}

}  // namespace

PacketSource::PacketSource(Naxel::AclConfig const& acl, uint64_t seed) : random_(seed) {
  gather(acl);
  finish();
}

PacketSource::PacketSource(Naxel::AclConfigColl const& acls, uint64_t seed) : random_(seed) {
  for (auto const& [name, acl] : acls.acl()) gather(*acl);
  finish();
}

void PacketSource::gather(Naxel::AclConfig const& acl) {
  Lumox::AddressFamily const af = familyOf(acl);
  seen_[static_cast<size_t>(af)] = true;
  for (auto const& [index, config] : acl.ruleById()) {
    Rule& rule = rule_.emplace_back();
    rule.af = af;
    Naxel::RuleFilter const* const filter = config->ruleFilter().get();
    if (!filter) continue;
    rule.address = {AddressSet(filter->source().get(), af),
                    AddressSet(filter->destination().get(), af)};
    rule.tcpInit = filter->matchTcpInit();
    rule.tcpEstablished = filter->matchTcpEstablished();
    filter->forEachRangeColl([&](RangeSetType type, auto const& ranges) {
      uint32_t const bound = Naxel::rangeField(type).bound();
      for (auto const& r : ranges)
        // Rules that a kick refuses may stand here as well; what they name is no place to look for packets.
        if (r.rangeStart() <= r.rangeEnd() && r.rangeEnd() <= bound)
          rule.value[static_cast<size_t>(type)].push_back(
              {static_cast<uint16_t>(r.rangeStart()), static_cast<uint16_t>(r.rangeEnd())});
    });
    gatherCorners(*filter, rule);
  }
}

void PacketSource::gatherCorners(Naxel::RuleFilter const& filter, Rule const& rule) {
  Pool& to = pool(rule.af);
  unsigned const bits = addressBits(rule.af);
  for (size_t side = 0; side < 2; ++side) {
    auto const& list = side == 0 ? filter.source() : filter.destination();
    if (!list) continue;
    for (auto const* prefixes : {&list->addr(), &list->exceptAddr()}) {
      for (auto const& p : *prefixes) {
        if (p.af() != rule.af) continue;
        Interval const i = intervalOf(p);
        Address const last = i.last & networkMask(bits);
        for (Address a : {i.first, last, previousAddress(i.first, bits), nextAddress(last, bits)})
          to.address[side].push_back(a);
      }
    }
  }
  for (size_t type = 0; type < rule.value.size(); ++type) {
    uint32_t const bound = Naxel::rangeFields[type].bound();
    for (Span const& s : rule.value[type])
      // Tables go wrong by one: at the ends of ranges and right beside them.
      for (int v : {s.first - 1, int{s.first}, int{s.last}, s.last + 1})
        if (v >= 0 && v <= static_cast<int>(bound))
          to.value[type].push_back(static_cast<uint16_t>(v));
  }
}

void PacketSource::finish() {
  for (Pool& p : pool_) {
    for (auto& side : p.address) sortUnique(side);
    for (auto& values : p.value) sortUnique(values);
  }
}

Packet PacketSource::next() {
  drawnFrom_.reset();
  if (rule_.empty() || random_.oneIn(16)) {
    // Values without regard to the rules; half of the time of the other family than the ACLs have.
    bool const other = seen_[0] != seen_[1] && random_.oneIn(2);
    bool const six = seen_[0] == seen_[1] ? random_.oneIn(2) : seen_[1] != other;
    return fromCorners(six ? Lumox::ipv6() : Lumox::ipv4());
  }
  size_t const strategy = random_.below(8);
  if (strategy < 5) {
    drawnFrom_ = random_.below(rule_.size());
    if (auto packet = inside(*drawnFrom_)) {
      for (size_t changes = strategy < 2 ? 0 : strategy - 1; changes > 0; --changes)
        alterOne(*packet);
      return *packet;
    }
  }
  drawnFrom_ = random_.below(rule_.size());
  Lumox::AddressFamily const af = rule_[*drawnFrom_].af;
  return strategy == 7 ? fromSeveralRules(af) : fromCorners(af);
}

std::optional<Packet> PacketSource::inside(size_t at) {
  Rule const& rule = rule_[at];
  Packet packet;
  packet.af = rule.af;
  auto const src = addressInside(rule.af, 0, rule.address[0]);
  auto const dst = addressInside(rule.af, 1, rule.address[1]);
  // A list may hold no address at all.
  if (!src || !dst) return std::nullopt;
  packet.src = *src;
  packet.dst = *dst;
  for (RangeSetType type : Naxel::allRangeSetTypes()) {
    auto const& spans = rule.value[static_cast<size_t>(type)];
    if (spans.empty()) {
      packet.valueIs(type, anyValue(rule.af, type));
      continue;
    }
    Span const& s = random_.of(spans);
    uint64_t const where = random_.below(4);
    packet.valueIs(type, where == 0   ? s.first
                         : where == 1 ? s.last
                                      : static_cast<uint16_t>(random_.between(s.first, s.last)));
  }
  if (!flagsInside(rule, packet)) return std::nullopt;
  return packet;
}

/// Flags that the rule wants force the protocol, if the rule lets it be TCP.
bool PacketSource::flagsInside(Rule const& rule, Packet& packet) {
  flags(packet);
  if (!rule.tcpInit && !rule.tcpEstablished) return true;
  auto const& protos = rule.value[protoAt];
  bool const tcp = protos.empty() || std::any_of(protos.begin(), protos.end(), [](Span const& s) {
                     return s.first <= Packet::protoTcp && Packet::protoTcp <= s.last;
                   });
  if (!tcp) return false;
  packet.proto = Packet::protoTcp;
  if (rule.tcpInit) {
    packet.syn = true;
    packet.ack = false;
    // SYN without ACK opens a connection, so a rule that wants both kinds is met with RST alone.
    packet.rst = packet.rst || rule.tcpEstablished;
  } else if (!packet.tcpEstablished()) {
    (random_.oneIn(2) ? packet.ack : packet.rst) = true;
  }
  return true;
}

std::optional<Address> PacketSource::addressInside(Lumox::AddressFamily af, size_t side,
                                                   AddressSet const& list) {
  if (list.any()) return anyAddress(af, side);
  if (list.addr().empty()) return std::nullopt;
  unsigned const bits = addressBits(af);
  // Most lists hold most of what their prefixes cover. Where chance does not meet an address the ends are
  // tried one by one below, so that none is a proof that there is none.
  for (int attempt = 0; attempt < 8; ++attempt) {
    Interval const& in = random_.of(list.addr());
    uint64_t const where = random_.below(4);
    Address a = randomAddress(af, in);
    if (where == 0) a = in.first;
    if (where == 1) a = in.last & networkMask(bits);
    // Just outside an except prefix, where that is still inside.
    if (where == 2 && !list.except().empty()) {
      Interval const& out = random_.of(list.except());
      a = random_.oneIn(2) ? previousAddress(out.first, bits)
                           : nextAddress(out.last & networkMask(bits), bits);
    }
    if (list.contains(a)) return a;
  }
  // What is left over begins at a prefix or behind an except prefix.
  for (Interval const& i : list.addr())
    if (list.contains(i.first)) return i.first;
  for (Interval const& i : list.except()) {
    Address const behind = nextAddress(i.last & networkMask(bits), bits);
    if (list.contains(behind)) return behind;
  }
  return std::nullopt;
}

Address PacketSource::randomAddress(Lumox::AddressFamily af, Interval in) {
  Address const host = in.first ^ in.last;
  Address const a{in.first.hi | (random_.next() & host.hi),
                  in.first.lo | (random_.next() & host.lo)};
  return a & networkMask(addressBits(af));
}

Address PacketSource::anyAddress(Lumox::AddressFamily af, size_t side) {
  auto const& corners = pool(af).address[side];
  if (!corners.empty() && !random_.oneIn(4)) return random_.of(corners);
  return randomAddress(af, {{0, 0}, {~uint64_t{0}, ~uint64_t{0}}});
}

uint16_t PacketSource::anyValue(Lumox::AddressFamily af, RangeSetType type) {
  auto const& corners = pool(af).value[static_cast<size_t>(type)];
  if (!corners.empty() && !random_.oneIn(3)) return random_.of(corners);
  static constexpr std::array<uint16_t, 4> common = {6, 17, 1, 58};
  if (type == RangeSetType::proto && !random_.oneIn(4)) return common[random_.below(4)];
  if (random_.oneIn(3)) return 0;  // as of a packet that lacks the field
  return static_cast<uint16_t>(random_.next() & Naxel::rangeField(type).bound());
}

/// Flags of any kind, on packets of other protocols too: there they mean nothing.
void PacketSource::flags(Packet& packet) {
  uint64_t const bits = random_.below(8);
  packet.syn = bits & 1;
  packet.ack = bits & 2;
  packet.rst = bits & 4;
}

/// Gives one field another value: a corner, a random one or a neighbour of its own.
void PacketSource::alterOne(Packet& packet) {
  size_t const sides = Naxel::rangeFieldCount;
  size_t const field = random_.below(sides + 3);
  if (field == sides + 2) return flags(packet);
  if (field >= sides) {
    Address& a = field == sides ? packet.src : packet.dst;
    unsigned const bits = addressBits(packet.af);
    if (random_.oneIn(3))
      a = random_.oneIn(2) ? previousAddress(a, bits) : nextAddress(a, bits);
    else
      a = anyAddress(packet.af, field - sides);
    return;
  }
  auto const type = static_cast<RangeSetType>(field);
  int const step = random_.oneIn(2) ? 1 : -1;
  packet.valueIs(type, random_.oneIn(3) ? static_cast<uint16_t>(packet.value(type) + step)
                                        : anyValue(packet.af, type));
}

Packet PacketSource::fromCorners(Lumox::AddressFamily af) {
  Packet packet;
  packet.af = af;
  packet.src = anyAddress(af, 0);
  packet.dst = anyAddress(af, 1);
  for (RangeSetType type : Naxel::allRangeSetTypes()) packet.valueIs(type, anyValue(af, type));
  flags(packet);
  return packet;
}

/// Each field inside a rule of its own, all of one family.
Packet PacketSource::fromSeveralRules(Lumox::AddressFamily af) {
  Packet packet = fromCorners(af);
  for (size_t field = 0; field < Naxel::rangeFieldCount + 2; ++field) {
    size_t const at = random_.below(rule_.size());
    // The field keeps the corner that it has.
    if (rule_[at].af != af) continue;
    if (field < 2) {
      if (auto const a = addressInside(af, field, rule_[at].address[field]))
        (field == 0 ? packet.src : packet.dst) = *a;
    } else if (auto const& spans = rule_[at].value[field - 2]; !spans.empty()) {
      Span const& s = random_.of(spans);
      packet.valueIs(static_cast<RangeSetType>(field - 2),
                     static_cast<uint16_t>(random_.between(s.first, s.last)));
    }
  }
  return packet;
}

}  // namespace Verify
