#include "naxel/genset/AclDigest.h"

#include "naxel/genset/AclCheck.h"
#include "naxel/genset/RuleContent.h"

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

/// The digest as it is put together.
class Digest {
 public:
  explicit Digest(uint32_t enabledCombos) { sum_.add(Mox::hashCombine(combos, enabledCombos)); }

  /// The parts that follow are of this ACL.
  void acl(std::string const& name, Lumox::AddressFamily af) {
    acl_ = Mox::hashCombine(Mox::hashText(name), Mox::hashOf(af));
    sum_.add(Mox::hashCombine(wholeAcl, acl_));
    ++acls_;
  }
  void rule(uint64_t content) {
    sum_.add(Mox::hashCombine(Mox::hashCombine(acl_, namedRule), content));
    ++rules_;
  }
  /// A rule under an index; one that the ACL does not hold is another one, however it looks.
  void indexed(AceIndex index, uint64_t content, bool held = true) {
    uint64_t const place = Mox::hashCombine(acl_, held ? indexedRule : strayRule);
    sum_.add(Mox::hashCombine(Mox::hashCombine(place, index.value()), content));
  }
  AggregatorWorkingSet finish() const { return {sum_.finish(), acls_, rules_}; }

 private:
  // Each kind of part is mixed with a number of its own, so that parts of different kinds with the same
  // content do not cancel in the exclusive or.
  enum : uint64_t { combos = 1, wholeAcl, namedRule, indexedRule, strayRule };
  Accumulator sum_;
  uint64_t acl_ = 0;
  uint32_t acls_ = 0;
  uint32_t rules_ = 0;
};

}  // namespace

AggregatorWorkingSet digestOf(AclConfigColl const& acls, uint32_t enabledCombos) {
  Digest digest(enabledCombos);
  for (AclWalk const& walk : walkAcls(acls)) {
    digest.acl(walk.acl().name(), aclFamily(walk.acl()));
    for (RuleConfig const* rule : walk.named()) digest.rule(rule->contentHash());
    for (AclWalk::Indexed const& i : walk.indexed())
      digest.indexed(i.index, i.rule ? i.rule->contentHash() : 0, i.place != AclWalk::none);
  }
  return digest.finish();
}

AggregatorWorkingSet digestOf(AggregatorStatus const& status, uint32_t enabledCombos) {
  Digest digest(enabledCombos);
  for (auto const& [name, list] : status.aclGenSetIpRuleList()) {
    digest.acl(name, list->af());
    for (auto const& rule : list->genSetIpRule())
      digest.rule(contentHash(status, list->af(), *rule));
    for (auto const& [index, rule] : list->genSetIpRuleById())
      digest.indexed(index, contentHash(status, list->af(), *rule));
  }
  return digest.finish();
}

}  // namespace Naxel
