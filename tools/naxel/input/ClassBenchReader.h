#pragma once

/// Reader of ClassBench filter sets: one rule per line,
///
///   @10.0.0.0/8  192.0.2.0/24  0 : 65535  80 : 80  0x06/0xFF  0x0000/0x0200
///
/// source, destination, source ports, destination ports, protocol and mask, and optionally the
/// flags and their mask. Rules are permits; what matches everything is left unconstrained.

#include "input/RuleSet.h"

#include <string>

namespace NaxelTool {

enum class FlagsMode {
  ignore,  ///< read the lines as 5-tuples
  strict   ///< use the flags that a rule can say, refuse the others
};

/// Adds an IPv4 ACL named after the file, whose rule i, counted from 0 over the lines that are not
/// blank, is named "r<i>" and has index i. Returns how many rules carried flags that were not used.
/// Throws InputError.
size_t readClassBench(std::string const& path, std::string const& content, FlagsMode mode,
                      RuleSet& out);

}  // namespace NaxelTool
