#include "command/KickFailure.h"

namespace NaxelTool {

ExitCode sayKickFailure(Session const& session, RuleSet const&, Console& console) {
  std::string const& message = session.rootStatus().kickMessage();
  console.error("kick", message.empty() ? "the kick did not end" : message);
  for (std::string const& text : session.failureTexts()) console.error("kick", text);
  return ExitCode::noRoom;
}

}  // namespace NaxelTool
