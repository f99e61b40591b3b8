#pragma once

/// Whether tables do what the rules say, by the best means that the build has.

#include "naxel/loader/PDData.h"
#include "naxel/types/AclConfig.h"

#include <cstdint>
#include <string>

namespace Verify {

/// The first difference, a sentence; empty if there is none. Proved for every packet where there is the BDD
/// library (see ExactProof.h), otherwise by sample.
std::string firstDifference(Naxel::AclConfigColl const& acls, Naxel::PDData const& data,
                            uint64_t seed = 1);

/// The same of the rules, their actions, and so many packets of a PacketSource in every ACL: which rule they
/// hit by the naive lookup, with either reading of a miss.
std::string sampledDifference(Naxel::AclConfigColl const& acls, Naxel::PDData const& data,
                              uint64_t seed, size_t packets = 500);

}  // namespace Verify
