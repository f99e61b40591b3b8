#include "ovs/Switch.h"

#include "ovs/Stamp.h"

#include <algorithm>
#include <cstdio>

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

std::string foreignTongue(Message const& error) {
  return "the switch does not speak OpenFlow 1.4: " + errorName(error);
}

}  // namespace

Switch::Switch(std::string const& path, std::chrono::milliseconds patience,
               std::chrono::milliseconds greeting)
    : patience_(patience), socket_(path, greeting) {
  greet();
  socket_.patienceIs(patience);
}

void Switch::greet() {
  send(MessageType::hello, helloBody());
  Message const hello = receive();
  if (hello.type == MessageType::error) throw SwitchError{foreignTongue(hello)};
  if (hello.type != MessageType::hello) throw SwitchError{"what answers speaks no OpenFlow"};
  // It names the highest one that it speaks.
  if (hello.version < wireVersion)
    throw SwitchError{"the switch speaks OpenFlow 1." + std::to_string(hello.version - 1) +
                      " at most, and bundles need 1.4"};
  try {
    ask(MessageType::featuresRequest, {}, MessageType::featuresReply, "features");
  } catch (SwitchError const&) {
    // Where no version of its is ours, it says so and closes the connection, which may be what we see first.
    if (auto const said = lastWords()) throw SwitchError{foreignTongue(*said)};
    throw;
  }
}

std::optional<Message> Switch::lastWords() {
  try {
    socket_.take();
  } catch (SwitchError const&) {
  }
  std::string fault;
  while (auto message = takeMessage(socket_.received(), fault))
    if (message->type == MessageType::error) return message;
  return std::nullopt;
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
      if (at < bundled_.size() && bundled_[at] == &newStamp_)
        throw SwitchError{"somebody else has written into our tables at the same time (" +
                          errorName(message) + ")"};
      if (errorName(message).starts_with("OFPHFC_")) throw SwitchError{foreignTongue(message)};
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

Switch::Settings Switch::settings() {
  Settings out;
  if (!readConfig(
          ask(MessageType::getConfigRequest, {}, MessageType::getConfigReply, "its settings"),
          out.mode, out.missLength))
    throw SwitchError{"the switch does not tell its settings"};
  return out;
}

FragmentMode Switch::fragmentMode() { return settings().mode; }

void Switch::fragmentModeIs(FragmentMode mode) {
  Settings const before = settings();
  send(MessageType::setConfig, configBody(mode, before.missLength));
  if (fragmentMode() != mode)
    throw SwitchError{"the switch stays in the fragment mode " + text(before.mode)};
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
  // Read with the first table, so that whatever changes while we read is told from what we have read.
  stamps_.clear();
  for (unsigned stage = 0; stage < stageCount; ++stage) {
    uint8_t const table = layout.table(static_cast<Stage>(stage));
    uint32_t const xid = send(MessageType::multipartRequest, flowStatsBody(table));
    for (bool more = true; more;) {
      part.clear();
      if (!readFlows(answer(xid, MessageType::multipartReply, "its flows"), part, more))
        throw SwitchError{"the switch does not tell its flows"};
      for (ReportedFlow& flow : part) {
        if (isStamp(flow, layout)) {
          stamps_.push_back(std::move(flow.flow));
          continue;
        }
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

void Switch::apply(FlowChanges const& changes, Layout const& layout) {
  if (changes.size() == 0) return;
  constexpr uint32_t bundle = 1;  // of this connection
  auto const step = [&](BundleStep s, char const* what) {
    ask(MessageType::bundleControl, bundleBody(bundle, s), MessageType::bundleControl, what);
  };
  step(BundleStep::open, "a new bundle");
  fill(bundle, changes, layout);
  // It says nothing while it takes them over, which is some microseconds each.
  socket_.patienceIs(patience_ + std::chrono::milliseconds(changes.size()));
  // Only where the end is confirmed without an error before is the bundle whole. A switch keeps the rest of one of which
  // it has refused a message, and begins another one where it has dropped the first for having idled; a commit that does
  // not wait for these errors puts a part in force.
  step(BundleStep::close, "the bundle's end");
  step(BundleStep::commit, "the bundle's commit");
  ask(MessageType::barrierRequest, {}, MessageType::barrierReply, "a barrier");
  socket_.patienceIs(patience_);
}

void Switch::fill(uint32_t bundle, FlowChanges const& changes, Layout const& layout) {
  firstOfBundle_ = lastXid_ + 1;
  bundled_.clear();
  bundled_.reserve(changes.size() + stamps_.size() + 1);
  std::string out;
  auto const add = [&](FlowCommand command, Flow const& flow, uint64_t cookie, bool alone = false) {
    uint32_t const xid = ++lastXid_;
    bundled_.push_back(&flow);
    out += encode({wireVersion, MessageType::bundleAdd, xid,
                   bundleAddBody(bundle, xid, command, flow, cookie, alone)});
    if (out.size() < chunk) return;
    socket_.send(out);
    out.clear();
  };
  for (Flow const& stamp : stamps_) add(FlowCommand::deleteStrict, stamp, layout.stampCookie());
  newStamp_ = stampFlow(newStamp(), layout);
  add(FlowCommand::add, newStamp_, layout.stampCookie(), true);
  for (Flow const* flow : changes.del) add(FlowCommand::deleteStrict, *flow, layout.cookie());
  for (auto const* flows : {&changes.change, &changes.add})
    for (Flow const* flow : *flows) add(FlowCommand::add, *flow, layout.cookie());
  socket_.send(out);
}

}  // namespace NaxelOvs
