#pragma once

/// Proves that the tables do what the rules say, for every packet rather than for many. Only in
/// builds that have the BDD library.
///
/// Both sides are made into boolean functions of all bits of a packet: the rules straight from the
/// configuration, the entries by what the contract of PDConfig.h says about lookups. A miss in a
/// table is taken both ways, as no label and as the highest label of the width.

#include "naxel/loader/PDData.h"
#include "naxel/types/AclConfig.h"
#include "verify/MatchKey.h"
#include "verify/Packet.h"

#include <optional>
#include <string>

namespace Verify {

enum class Claim {
  eachRule,   ///< the entries of every rule match exactly what the rule matches by itself
  firstMatch  ///< every packet hits an entry of the rule that decides; what others match is free
};

struct Proof {
  size_t acls = 0;
  size_t rules = 0;
  size_t entries = 0;
  /// The first difference, a sentence; empty if there is none.
  std::string difference;
  /// Where it lies, if it is one of packets.
  Naxel::PDAclKey acl;
  std::optional<Naxel::AceIndex> rule;
  std::optional<Packet> packet;
};

/// Rules, their order and actions, and by `claim` what they match. `layout` says how wide labels are;
/// what it says of misses does not matter. Throws std::runtime_error when it takes more than
/// `maxNodes` nodes of 20 bytes. One proof at a time in a process.
Proof prove(Naxel::AclConfigColl const& acls, Naxel::PDData const& data, KeyLayout const& layout,
            Claim claim = Claim::eachRule, int maxNodes = 60'000'000);

}  // namespace Verify
