#pragma once

/// Sets of plain labels as a transform would publish them, made from a seed; what an encoder makes of
/// them, and what they must cost at least.

#include "naxel/encoder/EncoderTypes.h"
#include "naxel/genset/GenSet.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace Test {

struct LabelSet {
  std::vector<uint32_t> labels;  // ascending, from 1 on
  uint32_t uses = 1;
};
/// The key of a set is its place, from 1 on.
using LabelSets = std::vector<LabelSet>;

/// In all of these, pieces of the same sets share one label, labels are numbered in the order of the
/// pieces, and a set is used by 1 to 9 rules.

/// Prefix lists each of which lies within another or beside it: from `pieces` on, a list is cut at
/// random into up to `fanout` parts, each a list itself, until there are `sets`.
LabelSets nestedSets(uint64_t seed, uint32_t sets, uint32_t pieces, uint32_t fanout);
/// Prefix lists of `members` prefixes each, chosen at random from `pool`.
LabelSets sharingSets(uint64_t seed, uint32_t sets, uint32_t members, uint32_t pool);
/// Lists of `ranges` port ranges each, none longer than `longest`.
LabelSets portSets(uint64_t seed, uint32_t sets, uint32_t ranges, uint32_t longest);

/// What an encoder reads of them.
struct EncoderInput {
  explicit EncoderInput(LabelSets const& sets);
  Mox::Ptr<Naxel::RangeSplitStatus> xform;
  Mox::Ptr<Naxel::GenSetUsageInfo> usage = Mox::makePtr<Naxel::GenSetUsageInfo>();
};

/// What is wrong with the codes that an encoder has published for the lists of its transform; empty if nothing
/// is. Each label of a list must have a code of its own below the highest of the width, and the pairs of a list must
/// match, of the codes that labels have and the highest, those of its labels and no other. Not for raw
/// values, which have no labels.
std::string codeFault(Naxel::EncoderStatus const& status, Naxel::PlainLabelListMap const& lists,
                      uint32_t width);

/// What an encoder publishes. Cost is the sum over all sets of uses times value/mask pairs.
struct EncodedSets {
  bool fits = false;                    // nothing else is said of sets that do not
  std::string fault;                    // as of codeFault()
  std::map<uint32_t, uint16_t> values;  // of the labels
  std::vector<std::vector<Naxel::EncodedLabelWithMask>> pairs;
  uint64_t cost = 0;
  /// The sum of least costs. By the compact code a set takes a pair. By the aligned code, a set of whose labels
  /// `placed` stand already and `fresh` are new takes a pair for each binary one of `placed` and one more for the
  /// block of the new ones, or a pair for each binary one of both together, the new ones rounded up to
  /// a power of two.
  uint64_t least = 0;
};
/// By the compact code an encoder may have both; that it can change between them is seen to here.
EncodedSets encoded(LabelSets const& sets, uint32_t width,
                    Acl::LabelCode code = Acl::LabelCode::aligned);

}  // namespace Test
