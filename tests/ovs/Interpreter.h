#pragma once

/// What a switch does with a packet, by reading flows from the first to the last. It shares no code with those who
/// write them.

#include "ovs/FlowSet.h"
#include "verify/Packet.h"

#include <optional>
#include <string>

namespace Test {

/// The text of the instructions by which a packet leaves the tables; "lost" where no flow takes it on.
std::string interpret(NaxelOvs::FlowSet const& flows, NaxelOvs::Layout const& layout,
                      Verify::Packet const& packet, uint32_t inPort);

}  // namespace Test
