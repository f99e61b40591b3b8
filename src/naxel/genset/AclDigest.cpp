#include "naxel/genset/AclDigest.h"

#include "naxel/genset/AclCheck.h"

namespace Naxel {

namespace {

/// Two 32-bit accumulators, fed with exclusive or from the two halves of mixed values.
class Accumulator {
 public:
  void add(uint64_t mixed) {
    high_ ^= static_cast<uint32_t>(mixed >> 32);
    low_ ^= static_cast<uint32_t>(mixed);
  }
  uint64_t finish() const { return uint64_t{finish(high_)} << 32 | finish(low_); }

 private:
  static uint32_t finish(uint32_t h) {
    h += h << 3;
    h ^= h >> 11;
    return h + (h << 15);
  }
  uint32_t high_ = 0;
  uint32_t low_ = 0;
};

}  // namespace

AggregatorWorkingSet digestAcls(std::vector<AclWalk> const& acls,
                                std::vector<std::vector<uint64_t>> const& contents,
                                uint32_t enabledCombos) {
  // Each kind of part is mixed with a number of its own, so that parts of different kinds with the same
  // content do not cancel in the exclusive or.
  enum : uint64_t { combos = 1, wholeAcl, namedRule, indexedRule, strayRule };
  Accumulator sum;
  size_t rules = 0;
  sum.add(Mox::hashCombine(combos, enabledCombos));
  for (size_t a = 0; a < acls.size(); ++a) {
    AclWalk const& walk = acls[a];
    AclConfig const& acl = walk.acl();
    uint64_t aclDigest = Mox::hashCombine(Mox::hashText(acl.name()), acl.af() ? 1 : 0);
    aclDigest = Mox::hashCombine(aclDigest, Mox::hashOf(aclFamily(acl)));
    sum.add(Mox::hashCombine(wholeAcl, aclDigest));
    uint64_t const named = Mox::hashCombine(aclDigest, namedRule);
    uint64_t const indexed = Mox::hashCombine(aclDigest, indexedRule);
    uint64_t const stray = Mox::hashCombine(aclDigest, strayRule);
    for (uint64_t content : contents[a]) sum.add(Mox::hashCombine(named, content));
    rules += contents[a].size();
    for (AclWalk::Indexed const& i : walk.indexed()) {
      // A rule that merely looks like the one of that name is another one, and is refused.
      bool const held = i.place != AclWalk::none;
      uint64_t const place = Mox::hashCombine(held ? indexed : stray, i.index.value());
      uint64_t const content = held ? contents[a][i.place] : i.rule ? i.rule->contentHash() : 0;
      sum.add(Mox::hashCombine(place, content));
    }
  }
  return AggregatorWorkingSet(sum.finish(), static_cast<uint32_t>(acls.size()),
                              static_cast<uint32_t>(rules));
}

}  // namespace Naxel
