#pragma once

/// What the switch says that it would do with a packet (ofproto/trace), as far as it is about our tables.

#include "ovs/Control.h"
#include "ovs/Layout.h"

#include <optional>
#include <string>
#include <string_view>

namespace NaxelOvs {

struct Traced {
  /// How the packet leaves our tables; none where it does not come there, or meets no flow of ours.
  std::optional<Exit> exit;
  /// The priority of the flow of the last table that decided; none where an earlier one did, as a policy does.
  std::optional<uint16_t> priority;
  std::optional<unsigned> dscp;  ///< that it gets
};

/// Reads a trace. None where it is none.
NAXEL_EXPORT std::optional<Traced> readTrace(std::string_view text, Layout const& layout);

}  // namespace NaxelOvs
