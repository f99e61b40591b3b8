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
/// places or occur twice do not cancel. `contents` are the content hashes of the rules of each ACL, by place.
AggregatorWorkingSet digestAcls(std::vector<AclWalk> const& acls,
                                std::vector<std::vector<uint64_t>> const& contents,
                                uint32_t enabledCombos);

}  // namespace Naxel
