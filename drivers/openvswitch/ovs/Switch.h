#pragma once

/// A conversation with one bridge by OpenFlow 1.4 over its management socket: what it is and holds, and changes as
/// one bundle. Each object is one connection; it is made, used and thrown away, which leaves nothing behind to keep
/// alive or to take up again.
///
/// Every call may throw SwitchError, after which the connection is of no more use. No call lasts longer than the
/// switch keeps talking and our patience beyond that.

#include "ovs/FlowSet.h"
#include "ovs/Socket.h"
#include "ovs/Wire.h"

#include <array>
#include <deque>
#include <functional>
#include <optional>

namespace NaxelOvs {

class Switch {
 public:
  /// Connects and agrees on the version, with a patience of its own.
  Switch(std::string const& path, std::chrono::milliseconds patience,
         std::chrono::milliseconds greeting);
  Switch(std::string const& path, std::chrono::milliseconds patience)
      : Switch(path, patience, patience) {}

  FragmentMode fragmentMode();
  void fragmentModeIs(FragmentMode mode);
  /// How many flows each of all tables may hold.
  std::array<uint32_t, 256> room();
  /// The flows of our tables in natural order, without the stamp. A flow of somebody else there is told as a
  /// SwitchError.
  FlowSet ownFlows(Layout const& layout);
  /// How many flows of ours the bridge holds, without the stamp.
  size_t countOwn(Layout const& layout);
  /// All or nothing: deletes, then changes and adds. Does not return before they are in force for every packet that
  /// the switch has not seen yet. The switch refuses them where another one has written since ownFlows() was asked.
  void apply(FlowChanges const& changes, Layout const& layout);

 private:
  void greet();
  /// The next error of what has come on a connection that is broken.
  std::optional<Message> lastWords();
  uint32_t send(MessageType type, std::string const& body);
  Message receive();
  /// The answer to a request; an error to it is thrown, as is anything else that carries its number.
  Message answer(uint32_t xid, MessageType type, char const* what);
  Message ask(MessageType type, std::string const& body, MessageType answerType, char const* what);
  struct Settings {
    FragmentMode mode{};
    uint16_t missLength = 0;
  };
  Settings settings();
  void fill(uint32_t bundle, FlowChanges const& changes, Layout const& layout);

  std::chrono::milliseconds const patience_;
  Socket socket_;
  uint32_t lastXid_ = 0;
  /// The flows of the bundle by the numbers of their messages, for errors.
  uint32_t firstOfBundle_ = 0;
  std::vector<Flow const*> bundled_;
  std::vector<Flow> stamps_;  // that were read; one at most, unless somebody has tampered with them
  Flow newStamp_;
};

}  // namespace NaxelOvs
