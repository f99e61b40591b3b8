#include "verify/ExactProof.h"

#include "verify/Bdd.h"
#include "verify/ExactRules.h"
#include "verify/ExactTables.h"
#include "verify/NaiveLookup.h"
#include "verify/RuleOracle.h"

#include <map>

namespace Verify {

using Lumox::AddressFamily;
using Naxel::PDAclKey;

namespace {

class Prover {
 public:
  Prover(Naxel::PDData const& data, KeyLayout const& layout, Claim claim)
      : data_(data), layout_(layout), claim_(claim) {}

  Proof run(Naxel::AclConfigColl const& acls) {
    std::map<PDAclKey, Naxel::AclConfig const*> wanted;
    for (auto const& [name, acl] : acls.acl())
      wanted.emplace(PDAclKey(familyOf(*acl), name), acl.get());
    // What is in the tables and in no rule would not be seen by a walk over the rules.
    for (auto const& [key, tables] : data_.pdAclColl()->pdAcl())
      if (!wanted.contains(key)) return differs(key, "stands in the tables only");
    for (AddressFamily af : {Lumox::ipv4(), Lumox::ipv6()}) {
      rules_.emplace(af);
      for (MissYields yields : {MissYields::nothing, MissYields::highest}) {
        layout_.missYields = yields;
        entries_.emplace(data_, layout_, af);
        for (auto const& [key, acl] : wanted)
          if (key.af() == af && !holds(key, *acl)) return proof_;
        // Nothing that was built would come out otherwise.
        if (!entries_->missMatters()) break;
      }
    }
    for (std::string const& breach : outputBreaches(data_, layout_, 1))
      proof_.difference = "the chip cannot be given these tables: " + breach;
    count(acls);
    return proof_;
  }

 private:
  Proof differs(PDAclKey const& key, std::string const& what,
                std::optional<Naxel::AceIndex> rule = std::nullopt, std::string const& name = "") {
    proof_.difference = "ACL " + key.aclName() + " ";
    if (rule) proof_.difference += "rule " + std::to_string(rule->value()) + " '" + name + "' ";
    proof_.difference += what;
    proof_.acl = key;
    proof_.rule = rule;
    return proof_;
  }

  bool holds(PDAclKey const& key, Naxel::AclConfig const& acl) {
    auto const tables = data_.pdAclColl()->pdAcl(key);
    if (!tables) {
      differs(key, "is not in the tables");
      return false;
    }
    for (auto const& [index, rule] : tables->rule()) {
      // The number of a rule is what its hits are counted under.
      if (acl.ruleByIdHas(index) && rule->aceIndex() == index) continue;
      differs(key, "stands in the tables only", index);
      return false;
    }
    Bdd decidedByRules;
    Bdd decidedByTables;
    for (auto const& [index, rule] : acl.ruleById()) {
      auto const differ = [&, &number = index, &config = *rule](std::string const& what) {
        differs(key, what, number, config.name());
        return false;
      };
      Naxel::PDAclRule const* const found = tables->rule(index);
      if (!found) return differ("is not in the tables");
      if (!(found->action() == rule->action())) return differ("has another action in the tables");
      Bdd want = rule->ruleFilter() ? rules_->matched(*rule->ruleFilter()) : Bdd(true);
      Bdd have = entries_->matched(*found);
      if (claim_ == Claim::firstMatch) {
        Bdd const all = want | decidedByRules;
        // What an earlier rule decides does not count for this one, on either side by its own order.
        want = want - decidedByRules;
        decidedByRules = all;
        Bdd const hit = have | decidedByTables;
        have = have - decidedByTables;
        decidedByTables = hit;
      }
      // Equal functions are one node, so the comparison of all packets costs a comparison of two numbers.
      if (want == have) continue;
      // A packet that a rule should match and does not is shown in preference to one that it matches and
      // should not.
      Bdd const missing = want - have;
      Bdd const where = missing.isFalse() ? have - want : missing;
      proof_.packet = Exact::packetOf(key.af(), where.somePoint());
      std::string const verb = claim_ == Claim::eachRule ? "match" : "decide";
      return differ(
          (missing.isFalse()
               ? "does not " + verb + ", but its entries do: "
               : verb + (verb.back() == 'h' ? "es" : "s") + ", but its entries do not: ") +
          text(*proof_.packet) +
          (layout_.missYields == MissYields::highest ? " (where a miss yields the highest label)"
                                                     : ""));
    }
    return true;
  }

  void count(Naxel::AclConfigColl const& acls) {
    proof_.acls = acls.acl().size();
    for (auto const& [name, acl] : acls.acl()) proof_.rules += acl->ruleById().size();
    proof_.entries = data_.pdAclColl()->numFilters();
  }

  Naxel::PDData const& data_;
  KeyLayout layout_;
  Claim claim_;
  std::optional<Exact::RuleFunctions> rules_;
  std::optional<Exact::EntryFunctions> entries_;
  Proof proof_;
};

}  // namespace

Proof prove(Naxel::AclConfigColl const& acls, Naxel::PDData const& data, KeyLayout const& layout,
            Claim claim, int maxNodes) {
  // It outlives the functions of the proof, which give their nodes back to it.
  BddTable const table(Exact::variables, maxNodes);
  return Prover(data, layout, claim).run(acls);
}

}  // namespace Verify
