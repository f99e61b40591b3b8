#pragma once

/// Which rule of an ACL a packet ought to hit, straight from the configuration. This is the
/// reference that the chip's tables are held against; it shares nothing with the code that compiles
/// them.

#include "naxel/types/AclConfig.h"
#include "verify/AddressSet.h"
#include "verify/FirstMatchIndex.h"
#include "verify/Packet.h"

#include <array>
#include <optional>
#include <vector>

namespace Verify {

/// The family of an ACL: the configured one, else that of a prefix in any of its rules, else IPv4.
Lumox::AddressFamily familyOf(Naxel::AclConfig const& acl);

/// True if the packet fulfils every constraint of the filter. Reads the entities as they are; slow.
bool matches(Naxel::RuleFilter const& filter, Packet const& packet);

/// The first rule of the ACL that matches; none for a packet of the other family. Reads the
/// entities as they are; for many packets use a RuleOracle.
std::optional<Naxel::AceIndex> firstMatch(Naxel::AclConfig const& acl, Packet const& packet);

/// True if no kick can take these rules: some rule says what no packet field can, an index of a rule that is
/// not there, a range that ends before it starts or beyond its field, addresses of two families in one ACL.
bool isMistaken(Naxel::AclConfigColl const& acls);

/// Rules of an ACL from one index to another.
struct RuleSpan {
  Naxel::AceIndex first;
  Naxel::AceIndex last;
  /// One rule alone.
  RuleSpan(Naxel::AceIndex only) : first(only), last(only) {}
  RuleSpan(Naxel::AceIndex from, Naxel::AceIndex to) : first(from), last(to) {}
  bool has(Naxel::AceIndex rule) const { return !(rule < first) && !(last < rule); }
};

/// The same over a copy of the rules, for many packets against many rules.
///
/// Every rule is checked constraint by constraint, as above. Which rules are checked at all is cut
/// down by a few bytes of the packet: four of each address, the protocol and the high byte of the
/// destination port. A rule is passed over only if none of its prefixes or ranges has that byte. Few rules are
/// checked one by one, without what an index takes of memory.
class RuleOracle {
 public:
  /// Copies what it needs; later changes of `acl` go unnoticed.
  explicit RuleOracle(Naxel::AclConfig const& acl);

  Lumox::AddressFamily af() const { return af_; }
  size_t rules() const { return rule_.size(); }
  std::optional<Naxel::AceIndex> firstMatch(Packet const& packet) const {
    return firstMatch(packet, std::nullopt);
  }
  /// As if the ACL did not have the rules `without`.
  std::optional<Naxel::AceIndex> firstMatch(Packet const& packet,
                                            std::optional<RuleSpan> const& without) const;
  /// The place of the first rule that matches, in the order of the indexes and counted from 0, as if the
  /// rules whose places are true in `out` were not there.
  std::optional<size_t> firstPlace(Packet const& packet, std::vector<bool> const& out) const;

 private:
  struct Range {
    uint32_t first;
    uint32_t last;
  };
  struct Rule {
    Naxel::AceIndex index;
    AddressSet source;
    AddressSet destination;
    std::array<std::vector<Range>, Naxel::rangeFieldCount> range;
    bool tcpInit = false;
    bool tcpEstablished = false;
    bool matches(Packet const& packet) const;
  };

  /// The place of the first rule that matches and that `accept(place)` takes.
  template <class Accept>
  std::optional<size_t> first(Packet const& packet, Accept accept) const;
  static Rule compile(Naxel::AceIndex index, Naxel::RuleConfig const& rule,
                      Lumox::AddressFamily af);
  std::array<unsigned, 4> indexedBytes() const;
  void indexList(size_t dimension, size_t item, AddressSet const& list);
  void indexRange(size_t dimension, size_t item, std::vector<Range> const& ranges, unsigned shift);

  Lumox::AddressFamily af_;
  std::vector<Rule> rule_;
  FirstMatchIndex index_;
};

}  // namespace Verify
