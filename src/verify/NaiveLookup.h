#pragma once

/// Lookup by reading an output from its first entry to its last: slow, and plainly what the
/// contract says. The chip's own lookup is held against it.

#include "naxel/loader/PDData.h"
#include "verify/MatchKey.h"
#include "verify/Packet.h"

#include <string>
#include <vector>

namespace Verify {

/// What the packet's match key would hold.
Labels naiveLabels(Naxel::PDData const& data, KeyLayout const& layout, Packet const& packet);

/// True if the entry matches a packet with these labels.
bool matches(Naxel::PDAclFilter const& entry, Labels const& labels, Packet const& packet);

/// The first matching entry of the ACL.
/// None where the ACL is not there or is of the other family. Policies are no part of an output, and not
/// looked at.
Verdict naiveLookup(Naxel::PDData const& data, KeyLayout const& layout, Naxel::PDAclKey const& acl,
                    Packet const& packet);

/// Where an output is not what a chip of this layout can be given, a sentence each, at most
/// `limit`: a label or mask that is wider than its field, ranges of one table that overlap, an
/// entry that constrains a field without width, or that matches the highest label of a field, which
/// is what a miss may yield.
std::vector<std::string> outputBreaches(Naxel::PDData const& data, KeyLayout const& layout,
                                        size_t limit = 10);

}  // namespace Verify
