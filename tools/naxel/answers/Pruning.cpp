#include "answers/Pruning.h"

#include "answers/RuleMerging.h"
#include "input/Diagnostics.h"
#include "output/RuleText.h"
#include "session/Session.h"

#include <algorithm>
#include <map>
#include <numeric>
#include <stdexcept>

#if NAXEL_EXACT_PROOF
#include "verify/ConfigCopy.h"
#include "verify/ExactChanges.h"
#include "verify/ExactPruning.h"
#endif

namespace NaxelTool {

size_t Pruning::before() const {
  return std::accumulate(acls.begin(), acls.end(), size_t{0},
                         [](size_t n, PrunedAcl const& a) { return n + a.before; });
}
size_t Pruning::after() const {
  return std::accumulate(acls.begin(), acls.end(), size_t{0},
                         [](size_t n, PrunedAcl const& a) { return n + a.after; });
}

std::optional<size_t> entriesOf(Mox::Ptr<Naxel::AclConfigColl> const& acls, ChipSetup const& chip) {
  Session session(chip, acls);
  if (!session.kick()) return std::nullopt;
  return session.data().pdAclColl()->numFilters();
}

#if NAXEL_EXACT_PROOF

namespace {

using Naxel::AclConfig;

std::string doubtAbout(std::string const& acl, Verify::VerdictChanges const& found) {
  if (!found.all.empty())
    return "a packet of ACL '" + printable(acl) +
           "' would be treated differently: " + Verify::text(found.all.front().packet);
  return "the proof for ACL '" + printable(acl) + "' came to no end";
}

class AclPruning {
 public:
  AclPruning(RuleSet const& rules, AclConfig& acl, PruneOptions const& options, Pruning& out)
      : rules_(rules), acl_(acl), options_(options), out_(out) {}

  void run() {
    PrunedAcl sizes{acl_.name(), written(), 0};
    auto const original = Mox::makePtr<AclConfig>(acl_.name());
    Verify::copyAcl(acl_, *original);
    takeOut();
    if (options_.merge) merge();
    sizes.after = written();
    out_.acls.push_back(std::move(sizes));
    std::move(gone_.begin(), gone_.end(), std::back_inserter(out_.rules));
    uint64_t effort = options_.effort;
    Verify::VerdictChanges const found =
        Verify::verdictChanges(*original, acl_, Verify::Exact::Among::all, effort);
    if ((!found.all.empty() || found.rulesLeft) && out_.doubt.empty())
      out_.doubt = doubtAbout(acl_.name(), found);
  }

 private:
  bool isImplied(Naxel::AceIndex rule) const {
    RuleOrigin const* const origin = rules_.origin(acl_.name(), rule);
    return origin && origin->implied;
  }
  /// The rules that stand in the source.
  size_t written() const {
    size_t out = 0;
    for (auto const& [index, rule] : acl_.ruleById()) out += !isImplied(index);
    return out;
  }

  void takeOut() {
    uint64_t effort = options_.effort;
    // What was one entry stays one, or no format of entries could say what is left of it.
    Verify::SpareRules const spare =
        Verify::spareRules(acl_, effort, [&](Naxel::AceIndex rule) { return entryOf(rule); });
    out_.undecided += spare.undecided;
    // Others are named by what is there before anything goes.
    for (Verify::SpareRule const& s : spare.all) {
      if (isImplied(s.rule)) continue;
      constexpr PrunedRule::Why whys[] = {PrunedRule::Why::matchesNothing,
                                          PrunedRule::Why::decidesNothing,
                                          PrunedRule::Why::sameWithout};
      PrunedRule& gone = goes(s.rule, whys[static_cast<size_t>(s.why)]);
      gone.because.reserve(s.because.size());
      for (Naxel::AceIndex const other : s.because)
        gone.because.push_back(ruleName(rules_, acl_, other));
    }
    for (Verify::SpareRule const& s : spare.all) takeOut(s.rule);
  }

  void merge() {
    // What they say is put down before they are merged.
    std::map<Naxel::AceIndex, std::pair<std::string, std::string>> texts;
    for (auto const& [index, rule] : acl_.ruleById())
      texts[index] = {ruleName(rules_, acl_, index), ruleText(*rule, rules_.lists())};
    // One that is implied is no line of the source, so that a line less would not come of it.
    for (MergedRule const& m : mergeNeighbours(
             acl_, [&](Naxel::AceIndex rule) { return entryOf(rule); },
             [&](Naxel::AceIndex rule) { return isImplied(rule); })) {
      auto const& [name, text] = texts[m.rule];
      gone_.push_back({acl_.name(),
                       m.rule.value(),
                       PrunedRule::Why::merged,
                       name,
                       text,
                       {texts[m.into].first},
                       m.field});
    }
    std::sort(gone_.begin(), gone_.end(),
              [](PrunedRule const& a, PrunedRule const& b) { return a.index < b.index; });
  }

  PrunedRule& goes(Naxel::AceIndex rule, PrunedRule::Why why) {
    gone_.push_back({acl_.name(),
                     rule.value(),
                     why,
                     ruleName(rules_, acl_, rule),
                     ruleText(*acl_.ruleById(rule), rules_.lists()),
                     {},
                     {}});
    return gone_.back();
  }
  uint64_t entryOf(Naxel::AceIndex rule) const {
    RuleOrigin const* const origin = rules_.origin(acl_.name(), rule);
    return origin ? uint64_t{origin->file} << 32 | origin->entry : ~uint64_t{0} - rule.value();
  }
  void takeOut(Naxel::AceIndex rule) {
    std::string const name = acl_.ruleById(rule)->name();
    acl_.ruleByNameDel(name);
  }

  RuleSet const& rules_;
  AclConfig& acl_;
  PruneOptions const& options_;
  Pruning& out_;
  std::vector<PrunedRule> gone_;
};

}  // namespace

Pruning prune(RuleSet& rules, PruneOptions const& options) {
  // It outlives the diagrams, which give their nodes back to it.
  Verify::BddTable const table(Verify::Exact::variables, 60'000'000);
  Pruning out;
  for (auto const& [name, acl] : rules.acls()->acl()) AclPruning(rules, *acl, options, out).run();
  out.isProved = out.doubt.empty();
  return out;
}

std::string differenceOf(Naxel::AclConfigColl const& before, Naxel::AclConfigColl const& after,
                         uint64_t effort) {
  Verify::BddTable const table(Verify::Exact::variables, 60'000'000);
  for (auto const& [name, acl] : before.acl()) {
    auto const other = after.acl(name);
    if (!other) return "ACL '" + printable(name) + "' is not there";
    if (Verify::familyOf(*acl) != Verify::familyOf(*other))
      return "ACL '" + printable(name) + "' is of another family";
    uint64_t steps = effort;
    Verify::VerdictChanges const found =
        Verify::verdictChanges(*acl, *other, Verify::Exact::Among::all, steps);
    if (!found.all.empty() || found.rulesLeft) return doubtAbout(name, found);
  }
  return {};
}

#else

Pruning prune(RuleSet&, PruneOptions const&) {
  throw std::invalid_argument("this build cannot prune: it was made without the BDD library");
}
std::string differenceOf(Naxel::AclConfigColl const&, Naxel::AclConfigColl const&, uint64_t) {
  throw std::invalid_argument("this build cannot prune: it was made without the BDD library");
}

#endif

}  // namespace NaxelTool
