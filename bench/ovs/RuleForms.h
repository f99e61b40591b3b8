#pragma once

/// The flows that rules take without labels, as ovs-ofctl reads them: the ways in which address lists and port ranges
/// are brought into a switch otherwise.

#include "naxel/types/AclConfig.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Bench {

enum class RuleForm : uint8_t {
  plain,        ///< one flow for each source, destination and value/mask pair of ports
  conjunctive,  ///< per rule one flow for each of these alone, and one for their conjunction
};

/// How many flows the rules of an ACL take.
uint64_t countFlows(Naxel::AclConfig const& acl, RuleForm form);

/// The flows themselves, one a line, without priorities that repeat.
std::vector<std::string> flowsOf(Naxel::AclConfig const& acl, RuleForm form);

}  // namespace Bench
