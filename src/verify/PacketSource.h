#pragma once

/// Packets that are likely to tell a right table from a wrong one: near the edges of what the rules
/// name, inside single rules, across several of them, and in between.

#include "naxel/types/AclConfig.h"
#include "verify/AddressSet.h"
#include "verify/Packet.h"
#include "verify/Random.h"

#include <array>
#include <optional>
#include <vector>

namespace Verify {

/// A sequence of packets that depends on the seed and the rules only. The rules are copied; later
/// changes of the configuration go unnoticed.
///
/// A value's corners are the ends of every prefix, except prefix and range that any rule names for
/// the field, and the values next to these ends on both sides. Corners are kept per family.
class PacketSource {
 public:
  PacketSource(Naxel::AclConfig const& acl, uint64_t seed);
  PacketSource(Naxel::AclConfigColl const& acls, uint64_t seed);

  /// The next packet of the mix.
  Packet next();

  /// The rule that the last packet of the mix was drawn from, or the first of several; none for a packet that
  /// regards no rule.
  std::optional<size_t> drawnFrom() const { return drawnFrom_; }

  /// Number of rules, in the order of the ACLs' names and within an ACL by index.
  size_t rules() const { return rule_.size(); }
  /// A packet that rule `rule` matches, earlier rules aside; none if nothing matches it.
  std::optional<Packet> inside(size_t rule);

  /// The corners of a side (true: source) and of a field, ascending.
  std::vector<Address> const& corners(Lumox::AddressFamily af, bool source) const {
    return pool(af).address[source ? 0 : 1];
  }
  std::vector<uint16_t> const& corners(Lumox::AddressFamily af, Naxel::RangeSetType type) const {
    return pool(af).value[static_cast<size_t>(type)];
  }

 private:
  struct Span {
    uint16_t first;
    uint16_t last;
  };
  struct Rule {
    Lumox::AddressFamily af;
    std::array<AddressSet, 2> address;  // source, destination
    std::array<std::vector<Span>, Naxel::rangeFieldCount> value;
    bool tcpInit = false;
    bool tcpEstablished = false;
  };
  struct Pool {
    std::array<std::vector<Address>, 2> address;
    std::array<std::vector<uint16_t>, Naxel::rangeFieldCount> value;
  };

  Pool& pool(Lumox::AddressFamily af) { return pool_[static_cast<size_t>(af)]; }
  Pool const& pool(Lumox::AddressFamily af) const { return pool_[static_cast<size_t>(af)]; }

  void gather(Naxel::AclConfig const& acl);
  void finish();
  void gatherCorners(Naxel::RuleFilter const& filter, Rule const& rule);

  Address randomAddress(Lumox::AddressFamily af, Interval within);
  Address anyAddress(Lumox::AddressFamily af, size_t side);
  uint16_t anyValue(Lumox::AddressFamily af, Naxel::RangeSetType type);
  std::optional<Address> addressInside(Lumox::AddressFamily af, size_t side,
                                       AddressSet const& list);
  void flags(Packet& packet);
  bool flagsInside(Rule const& rule, Packet& packet);
  void alterOne(Packet& packet);
  Packet fromCorners(Lumox::AddressFamily af);
  Packet fromSeveralRules(Lumox::AddressFamily af);

  Random random_;
  std::vector<Rule> rule_;
  std::array<Pool, 2> pool_;  // by family
  bool seen_[2] = {false, false};
  std::optional<size_t> drawnFrom_;
};

}  // namespace Verify
