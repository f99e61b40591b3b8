#pragma once

/// Holds the loaded tables against the rules, packet by packet.

#include "command/VerifyReport.h"
#include "session/Session.h"

#include <functional>
#include <ostream>

namespace NaxelTool {

/// Draws `packets` packets from the rules of all ACLs and looks each up in every ACL, in the loaded
/// tables and in the rules evaluated in order; where there are more than 16 ACLs, in the one that it was
/// drawn from and in 15 others in turn. The rule that is hit and its action must agree; the first difference
/// ends it. `tell` is called with the number of each packet.
VerifyReport verify(Session& session, uint64_t packets, uint64_t seed,
                    std::function<void(uint64_t)> const& tell = nullptr);
/// The same, printed as text. Returns true if there is no difference.
bool verify(Session& session, uint64_t packets, uint64_t seed, std::ostream& out);

/// Proves that rules and tables agree for every packet, without drawing any, and says so in the report.
/// Throws std::invalid_argument in a build that cannot prove.
void verifyExactly(Session& session, VerifyReport& to);
/// The same, printed as text. Returns true if there is no difference.
bool verifyExactly(Session& session, std::ostream& out);

}  // namespace NaxelTool
