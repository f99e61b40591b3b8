#pragma once

/// What filters match as functions of all bits of a packet, straight from the configuration. Shares
/// nothing with the code that compiles rules, nor with ExactTables but the variables.

#include "naxel/types/RuleFilter.h"
#include "verify/Bdd.h"
#include "verify/ExactBits.h"

#include <map>
#include <utility>

namespace Verify::Exact {

class RuleFunctions {
 public:
  /// For packets of one family. Lists must not change as long as the object lives.
  explicit RuleFunctions(Lumox::AddressFamily af) : af_(af) {}

  Bdd matched(Naxel::RuleFilter const& filter);

 private:
  Bdd list(Naxel::IpPrefixList const* list, bool source);
  Bdd prefixes(Naxel::IpPrefixList::PrefixColl const& coll, bool source) const;

  Lumox::AddressFamily af_;
  std::map<std::pair<Naxel::IpPrefixList const*, bool>, Bdd> list_;  // true: as a source
};

/// Where Packet::isPossible() holds.
Bdd possiblePackets(Lumox::AddressFamily af);

/// What the flags of rules and entries ask of a packet.
Bdd flagsMatched(bool tcpInit, bool tcpEstablished);

}  // namespace Verify::Exact
