#pragma once

/// The checks that a configuration must pass before the aggregator touches anything.

#include "naxel/genset/AclWalk.h"

#include <functional>
#include <optional>
#include <string>

namespace Naxel {

/// Something in the configuration that cannot be compiled.
struct ConfigError {
  enum class Kind : uint8_t {
    unusable,         ///< a kick fails
    emptySource,      ///< a source list without any member: a kick ends the process
    emptyDestination  ///< so too
  };
  Kind kind = Kind::unusable;
  std::string acl;   ///< its name; empty for what is about the chip
  std::string rule;  ///< its name; empty for what is about the whole ACL
  std::string text;  ///< in words, with ACL and rule in front
};

/// Family of an ACL: the one that the agent set, else that of the prefixes of its rules (indexed or
/// not), else IPv4. Only meaningful for an ACL that passes checkAcls().
Lumox::AddressFamily aclFamily(AclConfig const& acl);

/// Tells of every error of an ACL: ranges (ends in order and within the field), the families of all prefixes,
/// the agreement of `ruleById` with `ruleByName`, lists without members. `tell` returns false to hear no more.
void findErrors(AclWalk const& acl, std::function<bool(ConfigError)> const& tell);

/// The first reason why the ACLs cannot be compiled, naming ACL and rule; none if they can. Traces at
/// level 1 where a family has to be assumed. Aborts on a prefix list without any member, which the agent
/// must never leave in the configuration.
std::optional<std::string> checkAcls(std::vector<AclWalk> const& acls);

}  // namespace Naxel
