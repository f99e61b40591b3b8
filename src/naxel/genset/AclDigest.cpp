#include "naxel/genset/AclDigest.h"

#include "naxel/genset/AclCheck.h"
#include "naxel/genset/RuleFinder.h"

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

AggregatorWorkingSet digestAcls(AclConfigColl const& coll, uint32_t enabledCombos) {
  enum : uint64_t { combos = 1, wholeAcl, namedRule, indexedRule, strayRule };
  Accumulator sum;
  uint32_t rules = 0;
  sum.add(Mox::hashCombine(combos, enabledCombos));
  for (auto const& [name, acl] : coll.acl()) {
    uint64_t aclDigest = Mox::hashCombine(Mox::hashText(name), acl->af() ? 1 : 0);
    aclDigest = Mox::hashCombine(aclDigest, Mox::hashOf(aclFamily(*acl)));
    sum.add(Mox::hashCombine(wholeAcl, aclDigest));
    uint64_t const named = Mox::hashCombine(aclDigest, namedRule);
    uint64_t const indexed = Mox::hashCombine(aclDigest, indexedRule);
    uint64_t const stray = Mox::hashCombine(aclDigest, strayRule);
    std::vector<uint64_t> contents;
    contents.reserve(acl->ruleByName().size());
    for (auto const& [ruleName, rule] : acl->ruleByName()) {
      contents.push_back(rule->contentHash());
      sum.add(Mox::hashCombine(named, contents.back()));
    }
    rules += static_cast<uint32_t>(contents.size());
    RuleFinder finder(*acl);
    for (auto const& [index, rule] : acl->ruleById()) {
      // A rule that merely looks like the one of that name is another one, and is refused.
      uint32_t const at = finder.find(rule.get());
      bool const held = at != RuleFinder::none;
      uint64_t const place = Mox::hashCombine(held ? indexed : stray, index.value());
      sum.add(Mox::hashCombine(place, held ? contents[at] : rule ? rule->contentHash() : 0));
    }
  }
  return AggregatorWorkingSet(sum.finish(), static_cast<uint32_t>(coll.acl().size()), rules);
}

}  // namespace Naxel
