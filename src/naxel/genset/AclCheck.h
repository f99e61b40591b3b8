#pragma once

/// The checks that a configuration must pass before the aggregator touches anything.

#include "naxel/genset/AclWalk.h"

#include <optional>
#include <string>

namespace Naxel {

/// Family of an ACL: the one that the agent set, else that of the prefixes of its rules (indexed or
/// not), else IPv4. Only meaningful for an ACL that passes checkAcls().
Lumox::AddressFamily aclFamily(AclConfig const& acl);

/// The first reason why the ACLs cannot be compiled, naming ACL and rule; none if they can. Looks
/// at every range (ends in order and within the field), at the families of all prefixes, and at the
/// agreement of `ruleById` with `ruleByName`. Traces at level 1 where a family has to be assumed.
/// Aborts on a prefix list without any member, which the agent must never leave in the
/// configuration.
std::optional<std::string> checkAcls(std::vector<AclWalk> const& acls);

}  // namespace Naxel
