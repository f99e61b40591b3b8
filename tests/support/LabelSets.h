#pragma once

/// Sets of plain labels as a transform would publish them, made from a seed; what they cost once
/// encoded, and what they must cost at least.

#include "naxel/encoder/EncoderTypes.h"
#include "naxel/genset/GenSet.h"

#include <cstdint>
#include <map>
#include <vector>

namespace Test {

struct LabelSets {
  struct Set {
    std::vector<uint32_t> labels;  // ascending, from 1 on
    uint32_t uses = 1;
  };
  std::vector<Set> sets;  // the key of a set is its place, from 1 on

  Mox::Ptr<Naxel::EncoderConfig> config() const;
  Mox::Ptr<Naxel::GenSetUsageInfo> usage() const;
};

/// Numbers that depend on the seed alone, on every platform.
class SmallRandom {
 public:
  explicit SmallRandom(uint64_t seed) : state_(seed) {}
  uint32_t below(uint32_t n);

 private:
  uint64_t state_;
};

/// In all of these, pieces of the same sets share one label, labels are numbered in the order of the
/// pieces, and a set is used by 1 to 9 rules.

/// Prefix lists each of which lies within another or beside it: from `pieces` on, a list is cut at
/// random into up to `fanout` parts, each a list itself, until there are `sets`.
LabelSets nestedSets(uint64_t seed, uint32_t sets, uint32_t pieces, uint32_t fanout);

/// Prefix lists of `members` prefixes each, chosen at random from `pool`.
LabelSets sharingSets(uint64_t seed, uint32_t sets, uint32_t members, uint32_t pool);

/// Lists of `ranges` port ranges each, none longer than `longest`.
LabelSets portSets(uint64_t seed, uint32_t sets, uint32_t ranges, uint32_t longest);

/// The sets of both, over labels of their own.
LabelSets mixed(LabelSets const& a, LabelSets const& b);

/// What encoding costs: the sum over all sets of uses times value/mask pairs.
struct EncodedCost {
  uint64_t ascending = 0;  // were the new labels of each set handed out in ascending order
  uint64_t joined = 0;     // or as joinOrder has them
  uint64_t reached = 0;
  /// The sum of least costs: a set of whose labels `placed` stand already and `fresh` are new takes
  /// a pair for each binary one of `placed` and one more for the block of the new ones, or a pair
  /// for each binary one of both together, the new ones rounded up to a power of two.
  uint64_t least = 0;
  std::map<uint32_t, uint32_t> values;  // of the labels, as they were reached
};
EncodedCost encodedCost(LabelSets const& sets, uint32_t bitWidth);

}  // namespace Test
