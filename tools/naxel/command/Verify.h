#pragma once

/// Holds the loaded tables against the rules, packet by packet.

#include "session/Session.h"

#include <ostream>

namespace NaxelTool {

/// Draws `packets` packets from the rules of all ACLs and looks each up in every ACL, in the loaded
/// tables and in the rules evaluated in order; where there are more than 16 ACLs, in the one that it was drawn
/// from and in 15 others in turn. The rule that is hit and its action must agree. Prints one line per ACL and
/// one in all, with how many rules the packets reached, or the first difference. Returns true if there is
/// none.
bool verify(Session& session, uint64_t packets, uint64_t seed, std::ostream& out);

/// Proves that rules and tables agree for every packet, without drawing any. Prints one line, or the
/// first difference. Returns true if there is none. Throws std::invalid_argument in a build that
/// cannot prove.
bool verifyExactly(Session& session, std::ostream& out);

}  // namespace NaxelTool
