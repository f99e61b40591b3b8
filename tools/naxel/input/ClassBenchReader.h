#pragma once

/// Reader of ClassBench filter sets: one rule per line,
///
///   @10.0.0.0/8  192.0.2.0/24  0 : 65535  80 : 80  0x06/0xFF  0x0000/0x0200
///
/// source, destination, source ports, destination ports, protocol and mask, and optionally the
/// flags and their mask. Rules are permits; what matches everything is left unconstrained.

#include "input/RuleReading.h"

namespace NaxelTool {

/// Adds an IPv4 ACL named after the file, whose rule i, counted from 0 over the lines that are not
/// blank, is named "r<i>" and has index i. Notes how many rules carried flags that were not used.
void readClassBench(RuleReading& reading);

}  // namespace NaxelTool
