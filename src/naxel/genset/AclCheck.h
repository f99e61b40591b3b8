#pragma once

/// The checks that a configuration must pass before the aggregator touches anything.

#include "naxel/genset/AclWalk.h"

#include <functional>
#include <optional>
#include <string>

namespace Naxel {

/// Family of an ACL: the one that the agent set, else that of the prefixes of its rules (indexed or
/// not), else IPv4. Only meaningful for an ACL that passes checkAcls().
Lumox::AddressFamily aclFamily(AclConfig const& acl);

/// Whether a rule says nothing that cannot be compiled in an ACL of that family. O(members).
bool isSound(RuleConfig const& rule, Lumox::AddressFamily af);

/// Tells at level 1 of the trace where a family has to be assumed, because an ACL names no address.
void traceFamily(AclConfig const& acl);

/// Tells of every error of an ACL: ranges (ends in order and within the field), the families of all prefixes,
/// the agreement of `ruleById` with `ruleByName`, lists without members. `tell` returns false to hear no
/// more. It neither fails nor aborts itself. O(rules).
void findErrors(AclWalk const& acl, std::function<bool(ConfigError)> const& tell);

/// The first reason why the ACLs cannot be compiled, naming ACL and rule; none if they can. Aborts on a prefix
/// list without any member, which the agent must never leave in the configuration.
std::optional<std::string> checkAcls(std::vector<AclWalk> const& acls);

}  // namespace Naxel
