#include "answers/Changes.h"

#include "input/Diagnostics.h"
#include "output/RuleText.h"
#include "output/Verdicts.h"

#include <algorithm>
#include <map>
#include <stdexcept>

#if NAXEL_EXACT_PROOF
#include "verify/ExactChanges.h"
#endif

namespace NaxelTool {

std::vector<std::string> const& changeTitles() {
  static std::vector<std::string> const all = {
      "drop -> permit",  "no rule -> permit", "drop -> no rule", "permit -> drop",
      "no rule -> drop", "permit -> no rule", "other actions"};
  return all;
}

#if NAXEL_EXACT_PROOF

namespace {

using Naxel::AclConfig;

class ComparedSets {
 public:
  ComparedSets(RuleSet const& before, RuleSet const& after, ChangeOptions const& options)
      : before_(before), after_(after), effort_(options.effort) {
    for (auto const& [name, acl] : before.acls()->acl()) newName_[name] = name;
    for (auto const& [old, name] : options.pairs) {
      if (!before.acls()->acl(old)) noAcl(old, "old");
      if (!after.acls()->acl(name)) noAcl(name, "new");
      newName_[old] = name;
    }
    pairSingles();
  }

  Changes run() {
    // It outlives the diagrams, which give their nodes back to it.
    Verify::BddTable const table(Verify::Exact::variables, 60'000'000);
    std::vector<std::string> seen;
    for (auto const& [old, name] : newName_) {
      auto const a = before_.acls()->acl(old);
      auto const b = after_.acls()->acl(name);
      if (!b) {
        out_.acls.push_back({AclChange::Kind::onlyBefore, old, a->ruleById().size()});
        continue;
      }
      if (std::find(seen.begin(), seen.end(), name) != seen.end())
        throw std::invalid_argument("--acl: the new ACL '" + printable(name) +
                                    "' is the partner of two old ones");
      seen.push_back(name);
      if (Verify::familyOf(*a) != Verify::familyOf(*b))
        out_.acls.push_back({AclChange::Kind::otherFamily, old, a->ruleById().size()});
      else
        compare(*a, *b);
    }
    std::sort(seen.begin(), seen.end());
    for (auto const& [name, acl] : after_.acls()->acl())
      if (!std::binary_search(seen.begin(), seen.end(), name))
        out_.acls.push_back({AclChange::Kind::onlyAfter, name, acl->ruleById().size()});
    std::stable_sort(out_.packets.begin(), out_.packets.end(),
                     [](auto const& a, auto const& b) { return a.kind < b.kind; });
    return std::move(out_);
  }

 private:
  [[noreturn]] static void noAcl(std::string const& name, char const* which) {
    throw std::invalid_argument("--acl: the " + std::string(which) + " rules have no ACL '" +
                                printable(name) + "'");
  }

  /// Where each side has one ACL, and both are of one family, they are meant to be the same one.
  void pairSingles() {
    auto const& a = before_.acls()->acl();
    auto const& b = after_.acls()->acl();
    if (a.size() != 1 || b.size() != 1) return;
    auto const& [old, first] = *a.begin();
    auto const& [name, second] = *b.begin();
    if (newName_[old] == name || Verify::familyOf(*first) != Verify::familyOf(*second)) return;
    newName_[old] = name;
    out_.renamed.emplace_back(old, name);
  }

  void compare(AclConfig const& a, AclConfig const& b) {
    Verify::VerdictChanges const found =
        Verify::verdictChanges(a, b, Verify::Exact::Among::possible, effort_);
    ++out_.aclsCompared;
    out_.aclsEqual += found.all.empty() && found.rulesLeft == 0;
    out_.rulesOnlyBefore += found.rulesOnlyBefore;
    out_.rulesOnlyAfter += found.rulesOnlyAfter;
    out_.rulesLeft += found.rulesLeft;
    for (Verify::VerdictChange const& c : found.all) {
      auto const old = actionOf(a, c.before);
      auto const now = actionOf(b, c.after);
      out_.packets.push_back({static_cast<size_t>(Verify::changeKind(old, now)),
                              {a.name(), b.name()},
                              decidingRule(before_, a, c.before),
                              decidingRule(after_, b, c.after),
                              c.packet});
    }
  }

  static Naxel::NaxelActionValue const* actionOf(AclConfig const& acl,
                                                 std::optional<Naxel::AceIndex> rule) {
    return rule ? &acl.ruleById(*rule)->action() : nullptr;
  }
  std::shared_ptr<DecidingRule const> decidingRule(RuleSet const& rules, AclConfig const& acl,
                                                   std::optional<Naxel::AceIndex> index) {
    auto& known = deciding_[{&acl, index}];
    if (known) return known;
    DecidingRule rule{index, "no rule", {}, {}, {}};
    if (index) {
      auto const config = acl.ruleById(*index);
      rule = {index, ruleName(rules, acl, *index), ruleText(*config, rules.lists()),
              text(config->action()), config->ruleFilter()};
    }
    return known = std::make_shared<DecidingRule const>(std::move(rule));
  }

  RuleSet const& before_;
  RuleSet const& after_;
  uint64_t effort_;
  std::map<std::string, std::string> newName_;  // by the old one
  std::map<std::pair<AclConfig const*, std::optional<Naxel::AceIndex>>,
           std::shared_ptr<DecidingRule const>>
      deciding_;
  Changes out_;
};

}  // namespace

Changes changesOf(RuleSet const& before, RuleSet const& after, ChangeOptions const& options) {
  Changes out = ComparedSets(before, after, options).run();
  out.names = after.lists();
  return out;
}

#else

Changes changesOf(RuleSet const&, RuleSet const&, ChangeOptions const&) {
  throw std::invalid_argument(
      "this build cannot compare rules: it was made without the BDD library");
}

#endif

}  // namespace NaxelTool
