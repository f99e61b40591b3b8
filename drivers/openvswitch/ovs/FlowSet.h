#pragma once

/// The flows that a bridge should hold, and the difference to what it holds.

#include "ovs/Translation.h"

#include <string>
#include <vector>

namespace NaxelOvs {

/// In natural order, each key of table, priority and match once.
using FlowSet = std::vector<Flow>;

/// A translation with priorities for its rules, most of them those that the same flows have in `present`.
/// `refusal` is set where an ACL has more rules than there are priorities: rules side by side of equal actions may
/// share one then, and are no longer told apart; "ACL edge has 70000 ..." if that is not enough.
NAXEL_EXPORT FlowSet ranked(Translation const& translation, Layout const& layout,
                            FlowSet const& present, std::string& refusal);

struct FlowChanges {
  std::vector<Flow const*> del;     ///< of what is there
  std::vector<Flow const*> add;     ///< of what should be
  std::vector<Flow const*> change;  ///< of what should be: other actions under a key that is there

  size_t size() const { return del.size() + add.size() + change.size(); }
};

/// Both in natural order. What it refers to are elements of both.
NAXEL_EXPORT FlowChanges changes(FlowSet const& present, FlowSet const& wanted);

/// One line per flow, as ovs-ofctl add-flows takes them.
NAXEL_EXPORT std::string text(FlowSet const& flows);

}  // namespace NaxelOvs
