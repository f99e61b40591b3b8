#include "ovs/Switch.h"

#include <algorithm>

namespace NaxelOvs {

namespace {

/// Beyond what a switch holds in memory.
constexpr size_t mostFlows = size_t{16} << 20;
/// How much is sent at a time.
constexpr size_t chunk = size_t{1} << 20;

std::string hexText(uint64_t v) {
  char out[24];
  std::snprintf(out, sizeof out, "0x%llx", static_cast<unsigned long long>(v));
  return out;
}

}  // namespace

Switch::Switch(std::string const& path, std::chrono::milliseconds patience)
    : patience_(patience), socket_(path, patience) {
  greet();
}

void Switch::greet() {
  send(MessageType::hello, {});
  Message const hello = receive();
  // Both sides speak the lower one of the versions that they name.
  if (hello.type == MessageType::error)
    throw SwitchError{"the switch does not speak OpenFlow 1.4: " + errorName(hello)};
  if (hello.type != MessageType::hello) throw SwitchError{"what answers speaks no OpenFlow"};
  if (hello.version < wireVersion)
    throw SwitchError{"the switch speaks OpenFlow 1." + std::to_string(hello.version - 1) +
                      " at most, and bundles need 1.4"};
  ask(MessageType::featuresRequest, {}, MessageType::featuresReply, "features");
}

uint32_t Switch::send(MessageType type, std::string const& body) {
  socket_.send(encode({wireVersion, type, ++lastXid_, body}));
  return lastXid_;
}

Message Switch::receive() {
  std::string fault;
  for (;;) {
    auto message = takeMessage(socket_.received(), fault);
    if (!fault.empty()) throw SwitchError{"the switch has sent " + fault};
    if (!message) {
      socket_.receive();
    } else if (message->type == MessageType::echoRequest) {
      socket_.send(encode({wireVersion, MessageType::echoReply, message->xid, message->body}));
    } else {
      return *message;
    }
  }
}

Message Switch::answer(uint32_t xid, MessageType type, char const* what) {
  for (;;) {
    Message message = receive();
    if (message.type == MessageType::error) {
      uint32_t const at = message.xid - firstOfBundle_;
      std::string const flow = at < bundled_.size() ? " to " + text(*bundled_[at]) : "";
      throw SwitchError{"the switch answers " + errorName(message) +
                        (flow.empty() ? " to the request of " + std::string(what) : flow)};
    }
    // Others tell of ports and flows of everybody.
    if (message.xid != xid) continue;
    if (message.type != type)
      throw SwitchError{"the switch answers the request of " + std::string(what) +
                        " by a message of another kind"};
    return message;
  }
}

Message Switch::ask(MessageType type, std::string const& body, MessageType answerType,
                    char const* what) {
  return answer(send(type, body), answerType, what);
}

FragmentMode Switch::fragmentMode() {
  FragmentMode mode{};
  uint16_t missLength = 0;
  if (!readConfig(
          ask(MessageType::getConfigRequest, {}, MessageType::getConfigReply, "its settings"), mode,
          missLength))
    throw SwitchError{"the switch does not tell its settings"};
  return mode;
}

void Switch::fragmentModeIs(FragmentMode mode) {
  FragmentMode before{};
  uint16_t missLength = 0;
  if (!readConfig(
          ask(MessageType::getConfigRequest, {}, MessageType::getConfigReply, "its settings"),
          before, missLength))
    throw SwitchError{"the switch does not tell its settings"};
  send(MessageType::setConfig, configBody(mode, missLength));
  if (fragmentMode() != mode)
    throw SwitchError{"the switch stays in the fragment mode " + text(before)};
}

std::array<uint32_t, 256> Switch::room() {
  std::array<uint32_t, 256> out{};
  uint32_t const xid = send(MessageType::multipartRequest, tableFeaturesBody());
  std::vector<TableRoom> rooms;
  for (bool more = true; more;) {
    rooms.clear();
    if (!readTables(answer(xid, MessageType::multipartReply, "its tables"), rooms, more))
      throw SwitchError{"the switch does not tell its tables"};
    for (TableRoom const& r : rooms) out[r.table] = r.flows;
  }
  return out;
}

FlowSet Switch::ownFlows(Layout const& layout) {
  FlowSet out;
  std::vector<ReportedFlow> part;
  for (unsigned stage = 0; stage < stageCount; ++stage) {
    uint8_t const table = layout.table(static_cast<Stage>(stage));
    uint32_t const xid = send(MessageType::multipartRequest, flowStatsBody(table));
    for (bool more = true; more;) {
      part.clear();
      if (!readFlows(answer(xid, MessageType::multipartReply, "its flows"), part, more))
        throw SwitchError{"the switch does not tell its flows"};
      for (ReportedFlow& flow : part) {
        if (flow.cookie != layout.cookie() || !flow.ours || flow.flow.table != table)
          throw SwitchError{"table " + std::to_string(table) +
                            " holds a flow of somebody else, of cookie " + hexText(flow.cookie) +
                            ": " + text(flow.flow)};
        out.push_back(std::move(flow.flow));
      }
      if (out.size() > mostFlows) throw SwitchError{"the switch tells of flows without end"};
    }
  }
  std::sort(out.begin(), out.end());
  return out;
}

size_t Switch::countOwn(Layout const& layout) {
  uint64_t flows = 0;
  for (unsigned stage = 0; stage < stageCount; ++stage) {
    Message const reply =
        ask(MessageType::multipartRequest,
            flowCountBody(layout.table(static_cast<Stage>(stage)), layout.cookie()),
            MessageType::multipartReply, "the number of its flows");
    if (!readCount(reply, flows))
      throw SwitchError{"the switch does not tell how many flows it has"};
  }
  return flows;
}

void Switch::apply(FlowChanges const& changes, uint64_t cookie) {
  if (changes.size() == 0) return;
  constexpr uint32_t bundle = 1;  // of this connection
  auto const step = [&](BundleStep s, char const* what) {
    ask(MessageType::bundleControl, bundleBody(bundle, s), MessageType::bundleControl, what);
  };
  step(BundleStep::open, "a new bundle");
  fill(bundle, changes, cookie);
  // It says nothing while it takes them over, which is some microseconds each.
  socket_.patienceIs(patience_ + std::chrono::milliseconds(changes.size()));
  step(BundleStep::commit, "the bundle's commit");
  ask(MessageType::barrierRequest, {}, MessageType::barrierReply, "a barrier");
}

void Switch::fill(uint32_t bundle, FlowChanges const& changes, uint64_t cookie) {
  firstOfBundle_ = lastXid_ + 1;
  bundled_.reserve(changes.size());
  std::string out;
  auto const add = [&](FlowCommand command, std::vector<Flow const*> const& flows) {
    for (Flow const* flow : flows) {
      uint32_t const xid = ++lastXid_;
      bundled_.push_back(flow);
      out += encode({wireVersion, MessageType::bundleAdd, xid,
                     bundleAddBody(bundle, xid, command, *flow, cookie)});
      if (out.size() < chunk) continue;
      socket_.send(out);
      out.clear();
    }
  };
  add(FlowCommand::deleteStrict, changes.del);
  add(FlowCommand::add, changes.change);
  add(FlowCommand::add, changes.add);
  socket_.send(out);
}

}  // namespace NaxelOvs
