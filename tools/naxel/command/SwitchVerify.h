#pragma once

/// Holds what a bridge does against the rules, packet by packet: the switch itself is asked.

#include "command/VerifyReport.h"
#include "naxel/types/AclConfig.h"
#include "ovs/SwitchDriver.h"
#include "verify/Packet.h"

#include <functional>

namespace NaxelTool {

/// A packet as ofproto/trace reads it, in front of `more`, such as ",in_port=1". A packet of offset 0 may be a first
/// fragment.
std::string traceText(Verify::Packet const& packet, bool firstFragment);

/// Draws `packets` packets from the rules, asks the switch what it would do with each in each ACL, and compares. The
/// first difference ends it. Packets that no parser hands on, such as ports without a protocol that has them, are
/// drawn anew, and later fragments of IPv6 have the protocol that a switch shows there. Throws SwitchError.
VerifyReport verifySwitch(Mox::Ptr<Naxel::AclConfigColl> const& acls,
                          NaxelOvs::DriverOptions const& options, uint64_t packets, uint64_t seed,
                          std::function<void(uint64_t)> const& tell = nullptr);

}  // namespace NaxelTool
