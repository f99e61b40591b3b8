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

uint64_t ruleDigest(RuleConfig const& rule) {
  uint64_t h = rule.ruleFilter() ? Mox::hashCombine(1, rule.ruleFilter()->contentHash()) : 0;
  h = Mox::hashCombine(h, rule.action().hash64());
  return Mox::hashCombine(h, Mox::hashText(rule.name()));
}

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
    for (auto const& [ruleName, rule] : acl->ruleByName()) {
      sum.add(Mox::hashCombine(Mox::hashCombine(aclDigest, namedRule), ruleDigest(*rule)));
      ++rules;
    }
    for (auto const& [index, rule] : acl->ruleById()) {
      // A rule that merely looks like the one of that name is another one, and is refused.
      bool const held = rule && acl->ruleByName(rule->name()) == rule;
      uint64_t const place = Mox::hashCombine(
          Mox::hashCombine(aclDigest, held ? indexedRule : strayRule), index.value());
      sum.add(Mox::hashCombine(place, rule ? ruleDigest(*rule) : 0));
    }
  }
  return AggregatorWorkingSet(sum.finish(), static_cast<uint32_t>(coll.acl().size()), rules);
}

}  // namespace Naxel
