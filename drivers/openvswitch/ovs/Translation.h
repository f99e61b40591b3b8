#pragma once

/// An output as flows. A function over values that knows no switch: what cannot be said in flows is refused here,
/// in words, before anything is touched.
///
/// Every label table becomes a table of flows that load the label into its place; a value that no entry covers
/// loads the highest label of the width, which nothing but mask 0 matches. Fields that a switch can mask (addresses
/// and ports) take one flow per prefix, ports one per protocol that has them; all others take one per value. The
/// value that most packets would get anyhow costs nothing, because a flow of lowest priority yields it.
///
/// A packet that lacks a field counts as having 0 there: what is no TCP, UDP or SCTP gets the label of port 0.
/// Ports, ICMP types and TCP flags of later fragments are 0 as well, in the switch as in the rules.

#include "naxel/loader/PDData.h"
#include "ovs/Layout.h"

#include <string>
#include <vector>

namespace NaxelOvs {

/// The flows of one rule, which differ in their matches only.
struct RuleFlows {
  std::string instructions;
  std::vector<std::string> matches;  ///< at least one, different ones
};

/// An ACL in the order of its rules. Rules without flows are left out.
struct AclFlows {
  uint32_t id = 0;  ///< what the entry table loads for it
  std::string name;
  std::vector<RuleFlows> rules;
};

struct Translation {
  /// Why there is none, for the operator; "" if there is one.
  std::string refusal;
  std::vector<Flow> flows;     ///< all whose priorities do not depend on other rules
  std::vector<AclFlows> acls;  ///< those that are bound, by key
};

/// O(what the output holds). The layout must have no fault.
NAXEL_EXPORT Translation translate(Naxel::PDData const& data, Layout const& layout);

/// The one flow that stands in for all rules; `doNotApply` has none.
NAXEL_EXPORT std::vector<Flow> policyFlows(Naxel::GlobalAclControl policy, Layout const& layout);

/// Widths for this kind of chip: labels for every field, as wide as they can be.
NAXEL_EXPORT void setWidths(Naxel::ChipHwCapability& capability);

}  // namespace NaxelOvs
