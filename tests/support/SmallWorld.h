#pragma once

/// ACLs whose rules tell so few values apart that every packet can be tried.

#include "support/Vocabulary.h"
#include "verify/RuleOracle.h"

#include <optional>
#include <string>
#include <vector>

namespace Test {

/// Up to seven rules of the IPv4 ACL "a" with the indexes 0, 3, 6, ..., as addRules() reads them, that
/// overlap, cover each other together and part again. Rules of layer 4 ask for ICMP types and fragments
/// as well.
std::string smallRules(Dice& dice, bool layer4);

/// Every combination of values that such rules tell apart: of all packets, where rules ask neither for
/// ICMP types nor for fragments, or of those that there can be.
std::vector<Verify::Packet> smallPackets(bool possible);

/// The first rule that matches but those that are left out, without any index.
std::optional<Naxel::AceIndex> slowDecider(Naxel::AclConfig const& acl,
                                           Verify::Packet const& packet,
                                           std::optional<Verify::RuleSpan> const& without = {});
bool slowMatch(Naxel::AclConfig const& acl, Naxel::AceIndex rule, Verify::Packet const& packet);
/// What becomes of a packet that the rule decides: 1 drop, 0 permit; -1 for none.
int outcomeOf(Naxel::AclConfig const& acl, std::optional<Naxel::AceIndex> decider);

}  // namespace Test
