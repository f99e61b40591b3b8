#pragma once

/// Looks one packet up and says why it gets the verdict that it gets.

#include "input/RuleSet.h"
#include "session/Session.h"

#include <ostream>
#include <string>

namespace NaxelTool {

/// Prints the labels of the packet and, for each ACL of its family, the rule that decides, where it stands
/// in its file, what in the rule the packet fulfils, and the entry that it hits. `acl` limits this to one ACL if it is not
/// empty. With `json` it is all one JSON object. Returns false if tables and rules disagree.
bool classify(Session& session, RuleSet const& rules, Verify::Packet const& packet,
              std::string const& acl, bool json, std::ostream& out);

}  // namespace NaxelTool
