#pragma once

/// Compares an output with the rules packet by packet, over whole products of field values.
///
/// For each field it takes every value at which the rules or the tables can change their mind: the
/// ends of all prefixes and ranges that either side names, and their neighbours. So between two
/// neighbouring values neither side changes, and a comparison over all combinations covers every
/// packet there is. Values that no rule and no entry tells apart are one class. What a value does is
/// kept as two rows of bits, the rules and the entries that it lets through; a packet's verdicts are
/// the first bits that are left in all its rows.
///
/// Lookup follows the contract in PDConfig.h and shares nothing with the code that compiles the
/// tables, nor with the software chip's lookup.

#include "naxel/loader/PDData.h"
#include "naxel/types/AclConfig.h"
#include "verify/MatchKey.h"

#include <string>
#include <vector>

namespace Test {

struct GridResult {
  /// Packets whose verdicts were compared.
  uint64_t packets = 0;
  /// False if there were more combinations than `budget`, so that some were drawn at random.
  bool complete = true;
  /// What differs, a sentence each; at most a few.
  std::vector<std::string> differences;
};

/// Compares all ACLs of the configuration and the output: the same ACLs, rules, order and actions,
/// and for every class of packets the same verdict. At most `budget` packets per ACL.
GridResult compareVerdicts(Naxel::AclConfigColl const& acls, Naxel::PDData const& data,
                           Verify::KeyLayout const& layout, uint64_t budget, uint64_t seed = 1);

}  // namespace Test
