#pragma once

/// A flow that tells one state of our tables from the next, so that two agents that write into a bridge at the same
/// time never mix their flows.
///
/// Every bundle deletes the stamp that was read before the flows were, and adds another one which the switch takes
/// only where no other stamp stands. Where somebody has written since, his still does, and the switch refuses the
/// bundle as a whole.
///
/// A stamp is a number. It matches an Ethernet type that is reserved, and the bits of the number as 0 in a register:
/// two of them are two flows, and still match some of the same packets, which is what a switch goes by where a flow
/// asks to stand alone. What it does is what becomes of such packets anyhow.

#include "ovs/Layout.h"
#include "ovs/Wire.h"

namespace NaxelOvs {

/// Of a number other than 0; in the first of our tables.
Flow stampFlow(uint32_t number, Layout const& layout);
/// A random number for a new stamp. May throw what a random device throws.
uint32_t newStamp();
/// Whether a reported flow is a stamp, of whatever number.
bool isStamp(ReportedFlow const& flow, Layout const& layout);

}  // namespace NaxelOvs
