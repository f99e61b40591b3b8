#pragma once

/// What another chip setting would save, estimated from the number of pairs of each set as they are.

#include "session/Session.h"

#include <string>

namespace NaxelTool {

/// One sentence on the setting that would save most, or nothing where none would save a fifth of the entries: labels
/// for a field that is matched by raw values, no combination where its sets take more pairs than those of its two
/// sides, the compact code where the chip has the aligned one.
std::string advice(Session const& session);

}  // namespace NaxelTool
