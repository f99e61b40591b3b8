#include "verify/ExactComparison.h"

#include "verify/ExactRules.h"
#include "verify/RuleOracle.h"

#include <map>
#include <vector>

namespace Verify {

using Naxel::AclConfig;
using Naxel::AclConfigColl;
using Naxel::NaxelActionValue;

namespace {

/// The rules of one ACL in order, as functions.
class FunctionRow {
 public:
  FunctionRow(AclConfig const& acl, Exact::RuleFunctions& functions) : functions_(functions) {
    rules_.reserve(acl.ruleById().size());
    for (auto const& [index, rule] : acl.ruleById()) rules_.push_back(rule.get());
  }

  size_t size() const { return rules_.size(); }
  NaxelActionValue const& action(size_t i) const { return rules_[i]->action(); }
  Bdd matched(size_t i) const {
    return rules_[i]->ruleFilter() ? functions_.matched(*rules_[i]->ruleFilter()) : Bdd(true);
  }

 private:
  std::vector<Naxel::RuleConfig const*> rules_;
  Exact::RuleFunctions& functions_;
};

/// What becomes of the packets that earlier rules leave over, by action.
struct Outcome {
  std::vector<NaxelActionValue> action;
  std::vector<Bdd> where;

  Bdd& of(NaxelActionValue const& a) {
    size_t i = 0;
    while (i < action.size() && !(action[i] == a)) ++i;
    if (i == action.size()) {
      action.push_back(a);
      where.emplace_back(false);
    }
    return where[i];
  }
};

class AclComparison {
 public:
  AclComparison(AclConfig const& first, AclConfig const& second, Exact::RuleFunctions& functions)
      : first_(first, functions), second_(second, functions) {}

  /// A packet that the two treat differently; false everywhere if there is none.
  Bdd difference() {
    while (i_ < first_.size() && j_ < second_.size())
      if (!step()) return rest();
    return rest();
  }

 private:
  /// Goes past a rule of each side, or past some in a row that together match what one of the other side
  /// does and that have its action. Returns false where they do not.
  bool step() {
    NaxelActionValue const& action = first_.action(i_);
    if (!(action == second_.action(j_))) return false;
    size_t i = i_ + 1;
    size_t j = j_ + 1;
    Bdd a = first_.matched(i_);
    Bdd b = second_.matched(j_);
    while (!(a == b)) {
      if ((b - a).isFalse() && j < second_.size() && second_.action(j) == action)
        b = b | second_.matched(j++);
      else if ((a - b).isFalse() && i < first_.size() && first_.action(i) == action)
        a = a | first_.matched(i++);
      else
        return false;
    }
    i_ = i;
    j_ = j;
    passed_.push_back(a);
    return true;
  }

  /// The rules that are left, against each other.
  Bdd rest() {
    if (i_ == first_.size() && j_ == second_.size()) return Bdd(false);
    Bdd const decided = Bdd::anyOf(std::move(passed_));
    Outcome a = outcome(first_, i_, decided);
    Outcome b = outcome(second_, j_, decided);
    for (NaxelActionValue const& action : b.action) a.of(action);
    for (NaxelActionValue const& action : a.action)
      if (Bdd where = a.of(action) ^ b.of(action); !where.isFalse()) return where;
    return Bdd(false);
  }

  static Outcome outcome(FunctionRow const& rules, size_t from, Bdd decided) {
    Outcome out;
    for (; from < rules.size(); ++from) {
      Bdd const matched = rules.matched(from) - decided;
      if (matched.isFalse()) continue;
      Bdd& where = out.of(rules.action(from));
      where = where | matched;
      decided = decided | matched;
    }
    return out;
  }

  FunctionRow first_;
  FunctionRow second_;
  size_t i_ = 0;
  size_t j_ = 0;
  std::vector<Bdd> passed_;
};

RulesDifference onlyIn(std::string const& acl, char const* which) {
  return {acl, std::string("stands in the ") + which + " rules only", {}, {}, {}};
}

}  // namespace

std::optional<RulesDifference> compareRules(AclConfigColl const& first, AclConfigColl const& second,
                                            int maxNodes) {
  // It outlives the functions, which give their nodes back to it.
  BddTable const table(Exact::variables, maxNodes);
  std::map<Lumox::AddressFamily, Exact::RuleFunctions> functions;
  for (auto const& [name, acl] : first.acl()) {
    auto const other = second.acl(name);
    if (!other) return onlyIn(name, "first");
    Lumox::AddressFamily const af = familyOf(*acl);
    if (af != familyOf(*other))
      return RulesDifference{name, "is of two address families", {}, {}, {}};
    auto& matched = functions.try_emplace(af, af).first->second;
    Bdd const where = AclComparison(*acl, *other, matched).difference();
    if (where.isFalse()) continue;
    Packet const packet = Exact::packetOf(af, where.somePoint());
    return RulesDifference{name, "treats a packet differently: " + text(packet), packet,
                           firstMatch(*acl, packet), firstMatch(*other, packet)};
  }
  for (auto const& [name, acl] : second.acl())
    if (!first.acl(name)) return onlyIn(name, "second");
  return std::nullopt;
}

}  // namespace Verify
