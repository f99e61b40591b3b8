#pragma once

/// An output as text, for messages and for comparing two of them.

#include "naxel/loader/PDData.h"

#include <string>

namespace Verify {

/// Terse: per table its entries, per ACL its rules with their entries, e.g.
///   ipv4 src: 10.0.0.0/8=0 10.1.0.0/16=65535
///   dstPort: 80-443=0
///   acl edge ipv4 10: source=0/65535 dport=0/4095
/// Empty for an output without ACLs.
std::string dump(Naxel::PDData const& data);
/// Everything that an output says: its dump, and the action of every rule.
std::string full(Naxel::PDData const& data);

}  // namespace Verify
