/// What a switch sends: messages one after the other, terms and instructions of its flows, replies of its control socket
/// and traces.

#include "Check.h"
#include "ovs/Control.h"
#include "ovs/Trace.h"
#include "ovs/Wire.h"

using namespace NaxelOvs;

namespace {

/// The one form of a match is a fixed point, and what is told as one value is among its terms.
void checkMatch(std::string const& bytes) {
  auto const match = canonicalMatch(bytes);
  if (!match) return;
  Fuzz::expect(canonicalMatch(*match) == match, "a match in one form has another one");
  Fuzz::expect(matchText(*match) == matchText(bytes), "the form of a match changes its text");
  for (MatchField const field : {MatchField::ethType, MatchField::ipProto, MatchField::reg0}) {
    Fuzz::expect(exactValue(*match, field) == exactValue(bytes, field),
                 "the form of a match changes its value");
  }
}

void checkInstructions(std::string const& bytes) {
  auto const instructions = canonicalInstructions(bytes);
  if (!instructions) return;
  Fuzz::expect(canonicalInstructions(*instructions) == instructions,
               "instructions in one form have another one");
  Fuzz::expectSame(instructionsText(*instructions), instructionsText(bytes), "the form");
}

/// Flows of ours survive the way there and back.
void checkFlow(ReportedFlow const& reported) {
  Fuzz::expect(!text(reported.flow).empty(), "a flow without a text");
  if (!reported.ours) return;
  checkMatch(reported.flow.match);
  if (canonicalInstructions(reported.flow.instructions) != reported.flow.instructions) return;
  bundleAddBody(1, 1, FlowCommand::add, reported.flow, reported.cookie);
}

void checkMessages(std::string bytes) {
  std::string fault;
  for (;;) {
    std::string const before = bytes;
    auto const message = takeMessage(bytes, fault);
    if (!message) {
      Fuzz::expectSame(before, bytes, "what no message was taken from");
      return;
    }
    Fuzz::expectSame(before, encode(*message) + bytes, "a message as it was sent");
    std::vector<ReportedFlow> flows;
    std::vector<TableRoom> rooms;
    uint64_t count = 0;
    FragmentMode mode{};
    uint16_t missLength = 0;
    bool more = false;
    if (readFlows(*message, flows, more))
      for (ReportedFlow const& flow : flows) checkFlow(flow);
    readTables(*message, rooms, more);
    readCount(*message, count);
    if (readConfig(*message, mode, missLength)) text(mode);
    errorName(*message);
    checkMatch(message->body);
    checkInstructions(message->body);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  std::string const content(data, data + size);
  checkMessages(content);
  checkMatch(content);
  checkInstructions(content);
  std::string fault;
  auto const reply = readReply(content, fault);
  Fuzz::expect(!reply || fault.empty(), "a reply with a fault");
  if (reply) readTrace(reply->result, {});
  readTrace(content, {});
  return 0;
}
