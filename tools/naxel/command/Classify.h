#pragma once

/// Looks one packet up and says why it gets the verdict that it gets.

#include "session/Session.h"

#include <ostream>
#include <string>

namespace NaxelTool {

/// Reads an IPv4 or IPv6 address; throws std::invalid_argument with a text for the user.
std::pair<Lumox::AddressFamily, Verify::Address> addressFromText(std::string const& text);

/// Prints the labels of the packet and, for each ACL of its family, the rule that decides, what in the
/// rule the packet fulfils, and the entry that it hits. `acl` limits this to one ACL if it is not
/// empty. Returns false if tables and rules disagree.
bool classify(Session& session, Verify::Packet const& packet, std::string const& acl,
              std::ostream& out);

}  // namespace NaxelTool
