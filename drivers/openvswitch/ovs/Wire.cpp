#include "ovs/Wire.h"

#include "ovs/Bytes.h"

namespace NaxelOvs {

namespace {

constexpr uint16_t multipartFlow = 1;
constexpr uint16_t multipartAggregate = 2;
constexpr uint16_t multipartTableFeatures = 12;
constexpr uint16_t moreFollow = 1;
constexpr uint32_t any = 0xffffffff;
constexpr uint16_t atomicAndOrdered = 3;
constexpr uint16_t checkOverlap = 2;

void putMatch(std::string& out, std::string_view match) {
  size_t const start = out.size();
  put<uint16_t>(out, 1);  // OXM
  put<uint16_t>(out, static_cast<uint16_t>(4 + match.size()));
  out += match;
  padTo8(out, start);
}

std::string multipart(uint16_t type) {
  std::string out;
  put<uint16_t>(out, type);
  putZeros(out, 6);
  return out;
}

std::string flowMod(FlowCommand command, Flow const& flow, uint64_t cookie, bool alone) {
  bool const deletes = command == FlowCommand::deleteStrict;
  std::string out;
  put<uint64_t>(out, cookie);
  // Which bits of the cookie have to be the same. With all of them Open vSwitch looks through all flows of that cookie
  // for each deletion; with one less it finds the flow by its match.
  put<uint64_t>(out, deletes ? ~uint64_t{0} >> 1 : 0);
  put<uint8_t>(out, flow.table);
  put<uint8_t>(out, static_cast<uint8_t>(command));
  putZeros(out, 4);  // it stays until it is deleted
  put<uint16_t>(out, flow.priority);
  put<uint32_t>(out, any);  // buffer
  put<uint32_t>(out, any);  // out_port, of deletions
  put<uint32_t>(out, any);  // out_group
  put<uint16_t>(out, alone ? checkOverlap : 0);
  putZeros(out, 2);  // importance
  putMatch(out, flow.match);
  if (!deletes) out += flow.instructions;
  return out;
}

/// The parts of a reply that comes in several; none where it is not of that type.
std::optional<Reader> multipartReader(Message const& reply, uint16_t type, bool& more) {
  Reader in(reply.body);
  uint16_t const got = in.get<uint16_t>();
  more = in.get<uint16_t>() & moreFollow;
  in.skip(4);
  if (reply.type != MessageType::multipartReply || in.failed() || got != type) return std::nullopt;
  return in;
}

bool readFlow(Reader in, ReportedFlow& to) {
  to.flow.table = in.get<uint8_t>();
  in.skip(9);  // padding and duration
  to.flow.priority = in.get<uint16_t>();
  uint32_t const timeouts = in.get<uint32_t>();
  in.skip(6);  // flags, importance and padding
  to.cookie = in.get<uint64_t>();
  in.skip(16);  // counters
  uint16_t const type = in.get<uint16_t>();
  uint16_t const length = in.get<uint16_t>();
  if (in.failed() || type != 1 || length < 4) return false;
  std::string_view const terms = in.bytes(length - 4u);
  in.skip((8 - length % 8) % 8);
  if (in.failed()) return false;
  auto match = canonicalMatch(terms);
  auto instructions = canonicalInstructions(in.rest());
  to.ours = match && timeouts == 0;
  to.flow.match = match ? *match : std::string(terms);
  to.flow.instructions = instructions ? *instructions : std::string(in.rest());
  return true;
}

}  // namespace

std::string text(FragmentMode mode) {
  switch (mode) {
    case FragmentMode::normal: return "normal";
    case FragmentMode::drop: return "drop";
    case FragmentMode::reassemble: return "reassemble";
    case FragmentMode::nxMatch: return "nx-match";
  }
  return "of number " + std::to_string(static_cast<unsigned>(mode));
}

std::string encode(Message const& message) {
  std::string out;
  put<uint8_t>(out, message.version);
  put<uint8_t>(out, static_cast<uint8_t>(message.type));
  put<uint16_t>(out, static_cast<uint16_t>(wireHeader + message.body.size()));
  put<uint32_t>(out, message.xid);
  return out + message.body;
}

std::optional<Message> takeMessage(std::string& bytes, std::string& fault) {
  if (bytes.size() < wireHeader) return std::nullopt;
  Reader in(bytes);
  Message message;
  message.version = in.get<uint8_t>();
  message.type = static_cast<MessageType>(in.get<uint8_t>());
  uint16_t const length = in.get<uint16_t>();
  message.xid = in.get<uint32_t>();
  if (length < wireHeader) {
    fault = "a message of " + std::to_string(length) + " bytes, which is less than its head";
    return std::nullopt;
  }
  if (bytes.size() < length) return std::nullopt;
  message.body = in.bytes(length - wireHeader);
  bytes.erase(0, length);
  return message;
}

std::string helloBody() {
  std::string out;
  put<uint16_t>(out, 1);  // a bitmap of versions
  put<uint16_t>(out, 8);
  put<uint32_t>(out, uint32_t{1} << wireVersion);
  return out;
}

std::string configBody(FragmentMode mode, uint16_t missLength) {
  std::string out;
  put<uint16_t>(out, static_cast<uint16_t>(mode));
  put<uint16_t>(out, missLength);
  return out;
}

namespace {

/// A request about the flows of a table, of one cookie or, with mask 0, of any.
std::string flowsBody(uint16_t type, uint8_t table, uint64_t cookie, uint64_t mask) {
  std::string out = multipart(type);
  put<uint8_t>(out, table);
  putZeros(out, 3);
  put<uint32_t>(out, any);  // out_port
  put<uint32_t>(out, any);  // out_group
  putZeros(out, 4);
  put<uint64_t>(out, cookie);
  put<uint64_t>(out, mask);
  putMatch(out, {});
  return out;
}

}  // namespace

std::string flowStatsBody(uint8_t table) { return flowsBody(multipartFlow, table, 0, 0); }
std::string flowCountBody(uint8_t table, uint64_t cookie) {
  return flowsBody(multipartAggregate, table, cookie, ~uint64_t{0});
}

std::string tableFeaturesBody() { return multipart(multipartTableFeatures); }

std::string bundleBody(uint32_t bundle, BundleStep step) {
  std::string out;
  put<uint32_t>(out, bundle);
  put<uint16_t>(out, static_cast<uint16_t>(step));
  put<uint16_t>(out, atomicAndOrdered);
  return out;
}

std::string bundleAddBody(uint32_t bundle, uint32_t xid, FlowCommand command, Flow const& flow,
                          uint64_t cookie, bool alone) {
  std::string out;
  put<uint32_t>(out, bundle);
  putZeros(out, 2);
  put<uint16_t>(out, atomicAndOrdered);
  return out +
         encode({wireVersion, MessageType::flowMod, xid, flowMod(command, flow, cookie, alone)});
}

bool readFlows(Message const& reply, std::vector<ReportedFlow>& to, bool& more) {
  auto in = multipartReader(reply, multipartFlow, more);
  if (!in) return false;
  while (!in->rest().empty()) {
    uint16_t const length = in->get<uint16_t>();
    if (length < 2) return false;
    std::string_view const one = in->bytes(length - 2u);
    ReportedFlow flow;
    if (in->failed() || !readFlow(Reader(one), flow)) return false;
    to.push_back(std::move(flow));
  }
  return true;
}

bool readCount(Message const& reply, uint64_t& to) {
  bool more = false;
  auto in = multipartReader(reply, multipartAggregate, more);
  if (!in) return false;
  in->skip(16);  // packets and bytes
  to += in->get<uint32_t>();
  return !in->failed();
}

bool readTables(Message const& reply, std::vector<TableRoom>& to, bool& more) {
  auto in = multipartReader(reply, multipartTableFeatures, more);
  if (!in) return false;
  while (!in->rest().empty()) {
    uint16_t const length = in->get<uint16_t>();
    if (length < 2) return false;
    Reader one(in->bytes(length - 2u));
    TableRoom room{one.get<uint8_t>(), 0};
    one.skip(5 + 32 + 8 + 8 + 4);  // padding, name, metadata and capabilities
    room.flows = one.get<uint32_t>();
    if (in->failed() || one.failed()) return false;
    to.push_back(room);
  }
  return true;
}

bool readConfig(Message const& reply, FragmentMode& mode, uint16_t& missLength) {
  Reader in(reply.body);
  mode = static_cast<FragmentMode>(in.get<uint16_t>() & 3);
  missLength = in.get<uint16_t>();
  return reply.type == MessageType::getConfigReply && !in.failed();
}

}  // namespace NaxelOvs
