#pragma once

/// The control socket of ovs-vswitchd: commands of ovs-appctl, as JSON-RPC. It is there for waiting until cached
/// flows follow new tables, and for asking what a packet would meet.

#include "mox/Export.h"
#include "ovs/Socket.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace NaxelOvs {

/// A string as JSON, with its quotes.
NAXEL_EXPORT std::string jsonString(std::string_view text);
/// What a reply says: a text, or why there is none.
struct ControlReply {
  std::string result;
  std::string error;
};
/// Of the first whole reply in `bytes`; none where more has to come. `fault` is set where it is no reply.
NAXEL_EXPORT std::optional<ControlReply> readReply(std::string_view bytes, std::string& fault);

class NAXEL_EXPORT Control {
 public:
  /// Connects; throws SwitchError, as the call below does.
  Control(std::string const& path, std::chrono::milliseconds patience);
  /// The text that a command prints.
  std::string run(std::string const& command, std::vector<std::string> const& arguments);

  /// The same in two steps: asks, and then takes in what has come, without waiting; none where the reply is not there
  /// yet.
  void ask(std::string const& command, std::vector<std::string> const& arguments);
  std::optional<ControlReply> reply();

 private:
  /// What is there as a reply, if it is a whole one.
  std::optional<ControlReply> received();

  Socket socket_;
};

/// The control socket beside a bridge's management socket, from the process number that ovs-vswitchd writes there;
/// "" if it is not told.
NAXEL_EXPORT std::string controlPathBeside(std::string const& managementPath);

}  // namespace NaxelOvs
