#pragma once

/// Digest of an ACL configuration.

#include "naxel/genset/AclWalk.h"
#include "naxel/genset/NaxelAggregatorTypes.h"

namespace Naxel {

/// Digest of everything in the configuration that the compiled rules depend on, independent of the order in
/// which it is walked. It is a public function of the rules: configurations that differ in their digests
/// differ, but different ones of equal digests can be computed. `enabledCombos` has a bit for each
/// combination type that the chip matches through one label. Each ACL, each rule and each index enters as one
/// mixed 64-bit value that includes the ACL's name and the place of every field, so that parts which change
/// places or occur twice do not cancel. O(members).
AggregatorWorkingSet digestOf(AclConfigColl const& acls, uint32_t enabledCombos);
/// The same of the rules that a run has compiled, as they were then.
AggregatorWorkingSet digestOf(AggregatorStatus const& status, uint32_t enabledCombos);

}  // namespace Naxel
