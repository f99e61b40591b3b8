#include "verify/Agreement.h"

#include "verify/NaiveLookup.h"
#include "verify/PacketSource.h"
#include "verify/RuleOracle.h"

#ifdef NAXEL_EXACT_PROOF
#include "verify/ExactProof.h"
#endif

namespace Verify {

using namespace Naxel;

namespace {

/// The ACLs and rules of the tables are those of the configuration.
std::string differentRules(AclConfigColl const& acls, PDAclColl const& tables) {
  for (auto const& [name, acl] : acls.acl()) {
    auto const compiled = tables.pdAcl(PDAclKey(familyOf(*acl), name));
    if (!compiled) return name + " is not in the tables";
    for (auto const& [index, rule] : acl->ruleById()) {
      PDAclRule const* const found = compiled->rule(index);
      std::string const what = name + " rule " + std::to_string(index.value());
      if (!found) return what + " is not in the tables";
      if (found->action() != rule->action()) return what + " has another action in the tables";
    }
    if (compiled->rule().size() != acl->ruleById().size())
      return name + " has more rules in the tables";
  }
  return tables.pdAcl().size() == acls.acl().size() ? "" : "ACLs stand in the tables only";
}

}  // namespace

std::string sampledDifference(AclConfigColl const& acls, PDData const& data, uint64_t seed,
                              size_t packets) {
  std::string rules = differentRules(acls, *data.pdAclColl());
  if (!rules.empty()) return rules;
  for (auto const& [name, acl] : acls.acl()) {
    RuleOracle const oracle(*acl);
    PacketSource source(*acl, seed);
    PDAclKey const key(oracle.af(), name);
    for (size_t i = 0; i < packets; ++i) {
      Packet const packet = source.next();
      auto const want = oracle.firstMatch(packet);
      for (MissYields yields : {MissYields::nothing, MissYields::highest}) {
        Verdict const have = naiveLookup(data, KeyLayout::of(data, yields), key, packet);
        if ((have.kind == Verdict::Kind::rule) == want.has_value() &&
            have.rule == want.value_or(have.rule))
          continue;
        return name + ": " + text(packet) + ": rules say " +
               (want ? "rule " + std::to_string(want->value()) : "none") + ", tables say " +
               text(have);
      }
    }
  }
  auto const breaches = outputBreaches(data, KeyLayout::of(data), 1);
  return breaches.empty() ? "" : breaches.front();
}

std::string firstDifference(AclConfigColl const& acls, PDData const& data, uint64_t seed) {
#ifdef NAXEL_EXACT_PROOF
  static_cast<void>(seed);
  return prove(acls, data, KeyLayout::of(data)).difference;
#else
  return sampledDifference(acls, data, seed);
#endif
}

}  // namespace Verify
