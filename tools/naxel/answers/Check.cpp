#include "answers/Check.h"

#include "answers/RuleFaults.h"
#include "mox/Assert.h"

#include <algorithm>
#include <stdexcept>
#include <unordered_set>

#if NAXEL_EXACT_PROOF
#include "verify/ExactStudy.h"
#endif

namespace NaxelTool {

using Naxel::AceIndex;

std::vector<FindingKind> const& findingKinds() {
  static std::vector<FindingKind> const all = {
      {"conflict", Severity::error, "an earlier rule matches the same and does something else"},
      {"shadowed", Severity::error,
       "no packet reaches the rule, and an earlier one does something else"},
      {"matches-nothing", Severity::error, "there is no packet that the rule matches"},
      {"covered", Severity::warning, "no packet reaches the rule; the earlier ones do the same"},
      {"duplicate", Severity::warning, "an earlier rule matches the same and does the same"},
      {"empty-list", Severity::warning, "a named list has no address"},
      {"other-icmp", Severity::warning, "the rule asks for the ICMP of the other family"},
      {"idle-action", Severity::warning, "a part of the action does nothing"},
      {"undecided", Severity::warning, "the effort did not suffice"},
      {"redundant", Severity::note, "without the rule later ones do the same with its packets"},
      {"partly-shadowed", Severity::note,
       "no packet reaches a part of the entry, and an earlier rule does something else"},
      {"idle-value", Severity::note, "no packet has some value together with the rest"},
      {"any-protocol", Severity::note, "the rule asks for ports or types and for no protocol"},
      {"zero-port", Severity::note, "a range of ports from 0 on matches packets without ports"},
      {"unused-list", Severity::note, "no rule uses a named list"}};
  return all;
}

size_t CheckReport::count(Severity severity) const {
  return static_cast<size_t>(std::count_if(findings.begin(), findings.end(), [&](auto const& f) {
    return f.kind->severity == severity;
  }));
}

size_t CheckReport::rules() const {
  size_t out = 0;
  for (CheckedAcl const& acl : acls) out += acl.rules.size();
  return out;
}

size_t CheckReport::entries() const {
  size_t out = 0;
  for (CheckedAcl const& acl : acls) out += acl.entries;
  return out;
}

size_t CheckReport::reached() const {
  size_t out = 0;
  for (CheckedAcl const& acl : acls)
    for (CheckedRule const& rule : acl.rules) out += rule.reached == CheckedRule::Reached::yes;
  return out;
}

#if NAXEL_EXACT_PROOF

namespace {

using Verify::ExactStudy;
using Answer = ExactStudy::Answer;
using Reached = CheckedRule::Reached;

/// Most nodes of the decision diagrams, of 20 bytes each.
constexpr int diagramNodes = 30'000'000;
/// Most steps for one question.
constexpr uint64_t stepsOfQuestion = 20'000;

FindingKind const* kindOf(std::string_view code) {
  for (FindingKind const& kind : findingKinds())
    if (kind.code == code) return &kind;
  MOX_ASSERT(false);
  return nullptr;
}

/// Collects findings of the kinds that are wanted.
class FindingSink {
 public:
  FindingSink(CheckOptions const& options, std::vector<Finding>& out)
      : options_(options), out_(out) {}

  bool wants(std::string_view code) const { return !options_.leftOut.contains(code); }
  void add(std::string_view code, Finding finding) {
    if (!wants(code)) return;
    finding.kind = kindOf(code);
    out_.push_back(std::move(finding));
  }

 private:
  CheckOptions const& options_;
  std::vector<Finding>& out_;
};

/// The rules in a row that one entry of the source was made into, by their places.
struct EntryRules {
  size_t first = 0;
  size_t last = 0;
  bool implied = false;
  size_t size() const { return last - first + 1; }
};

bool isOneEntry(RuleView const& a, RuleView const& b) {
  return a.origin && b.origin && a.origin->file == b.origin->file &&
         a.origin->entry == b.origin->entry && !a.origin->implied && !b.origin->implied &&
         a.rule.action() == b.rule.action();
}

class AclCheck {
 public:
  AclCheck(RuleSet const& rules, Naxel::AclConfig const& acl, uint64_t& effort, FindingSink& sink)
      : set_(rules),
        effort_(effort),
        sink_(sink),
        rules_(viewsOf(rules, acl)),
        study_(acl, stepsOfQuestion) {
    for (size_t i = 0; i < rules_.size(); ++i) {
      bool const joins = i > 0 && isOneEntry(rules_[i - 1], rules_[i]);
      if (!joins) entries_.push_back({i, i, rules_[i].origin && rules_[i].origin->implied});
      entries_.back().last = i;
      entryOf_.push_back(entries_.size() - 1);
    }
  }

  CheckedAcl run() {
    CheckedAcl out{study_.acl().name(), entries_.size(), {}};
    out.rules.reserve(rules_.size());
    reach_.reserve(rules_.size());
    for (size_t i = 0; i < rules_.size(); ++i) {
      reach_.push_back(reachOf(i));
      out.rules.push_back({rules_[i].index, reach_[i].reached, reach_[i].witness});
    }
    for (EntryRules const& entry : entries_) {
      if (entry.implied) continue;
      checkReach(entry);
      if (isReached(entry)) checkRedundancy(entry);
      checkFaults(entry);
    }
    return out;
  }

 private:
  struct Reach {
    Reached reached;
    std::optional<Verify::Packet> witness;
    std::vector<AceIndex> others;
  };

  /// Answers a question with what is left of the effort.
  template <class Ask>
  ExactStudy::Search asked(Ask ask) {
    study_.stepsIs(static_cast<size_t>(std::min(effort_, stepsOfQuestion)));
    uint64_t const before = study_.stepsTaken();
    ExactStudy::Search out = ask();
    effort_ -= std::min(effort_, study_.stepsTaken() - before);
    return out;
  }

  Reach reachOf(size_t at) {
    AceIndex const index = rules_[at].index;
    ExactStudy::Search found = asked([&] { return study_.decidedBy(index); });
    if (found.found == Answer::yes) return {Reached::yes, found.packet, {}};
    if (found.found == Answer::undecided) return {Reached::undecided, {}, {}};
    if (study_.matchesNothing(index)) return {Reached::matchesNothing, {}, {}};
    return {Reached::no, {}, std::move(found.others)};
  }

  size_t placeOf(AceIndex index) const {
    return static_cast<size_t>(
        std::lower_bound(rules_.begin(), rules_.end(), index,
                         [](RuleView const& r, AceIndex i) { return r.index < i; }) -
        rules_.begin());
  }
  /// Of the rules of each entry the first, without those of `own`.
  std::vector<AceIndex> oneOfEach(std::set<AceIndex> const& rules, EntryRules const& own) const {
    std::vector<AceIndex> out;
    size_t last = entries_.size();
    for (AceIndex const rule : rules) {
      size_t const entry = entryOf_[placeOf(rule)];
      if (entry == last || &entries_[entry] == &own) continue;
      last = entry;
      out.push_back(rule);
    }
    return out;
  }

  Finding about(EntryRules const& entry, std::vector<AceIndex> rules, std::string text) const {
    Finding out;
    out.acl = study_.acl().name();
    out.place = set_.originText(out.acl, rules.front());
    out.rules = std::move(rules);
    out.entryRules = entry.size();
    out.text = std::move(text);
    return out;
  }

  void checkReach(EntryRules const& entry) {
    std::vector<AceIndex> undecided;
    std::vector<AceIndex> empty;
    std::vector<AceIndex> unreached;
    std::set<AceIndex> others;
    for (size_t i = entry.first; i <= entry.last; ++i) {
      AceIndex const index = rules_[i].index;
      if (reach_[i].reached == Reached::undecided) undecided.push_back(index);
      if (reach_[i].reached == Reached::matchesNothing) empty.push_back(index);
      if (reach_[i].reached != Reached::no) continue;
      unreached.push_back(index);
      others.insert(reach_[i].others.begin(), reach_[i].others.end());
    }
    if (!undecided.empty())
      sink_.add("undecided", about(entry, std::move(undecided),
                                   "may be reached or not: the effort did not suffice"));
    if (empty.size() == entry.size())
      return sink_.add(
          "matches-nothing",
          about(entry, std::move(empty), whyNothingMatches(rules_[entry.first], set_.lists())));
    auto const because = oneOfEach(others, entry);
    // Rules of one entry may cover one another.
    if (unreached.empty() || because.empty()) return;
    if (unreached.size() + empty.size() == entry.size())
      return addUnreached(entry, std::move(unreached), because);
    // That others do the same with a part of an entry is how formats make rules of entries.
    if (isSameAction(entry, because)) return;
    Finding part = about(entry, std::move(unreached),
                         because.size() == 1 ? "is never reached: an earlier rule takes all its "
                                               "packets and does something else"
                                             : "is never reached: earlier rules together take all "
                                               "its packets, and not all do the same");
    part.others = because;
    sink_.add("partly-shadowed", std::move(part));
  }

  void addUnreached(EntryRules const& entry, std::vector<AceIndex> rules,
                    std::vector<AceIndex> const& others) {
    bool const isSame = isSameAction(entry, others);
    bool const isTwin = others.size() == 1 && isTwinOf(entry, others.front());
    Finding finding = about(entry, std::move(rules), "");
    finding.others = others;
    std::string const does = isSame ? "does the same" : "does something else";
    if (isTwin)
      finding.text = "matches the same as an earlier rule, which " + does;
    else if (others.size() == 1)
      finding.text = "is never reached: an earlier rule takes all its packets and " + does;
    else
      finding.text = isSame ? "is never reached: earlier rules together take all its packets and "
                              "do the same"
                            : "is never reached: earlier rules together take all its packets, and "
                              "not all do the same";
    sink_.add(isTwin ? (isSame ? "duplicate" : "conflict") : (isSame ? "covered" : "shadowed"),
              std::move(finding));
  }

  bool isSameAction(EntryRules const& entry, std::vector<AceIndex> const& others) const {
    return std::all_of(others.begin(), others.end(), [&](AceIndex other) {
      return rules_[placeOf(other)].rule.action() == rules_[entry.first].rule.action();
    });
  }

  bool isTwinOf(EntryRules const& entry, AceIndex other) {
    return matchedBy(entry) == matchedBy(entries_[entryOf_[placeOf(other)]]);
  }
  Verify::Bdd matchedBy(EntryRules const& entry) {
    Verify::Bdd all(false);
    for (size_t i = entry.first; i <= entry.last; ++i) all = all | study_.matched(rules_[i].index);
    return all;
  }

  bool isReached(EntryRules const& entry) const {
    for (size_t i = entry.first; i <= entry.last; ++i)
      if (reach_[i].reached == Reached::yes) return true;
    return false;
  }

  void checkFaults(EntryRules const& entry) {
    if (reach_[entry.first].reached == Reached::matchesNothing) return;
    // The rules of an entry differ in what their format makes of it, not in what was written.
    for (RuleFault& fault : faultsOf(rules_[entry.first]))
      sink_.add(fault.code, about(entry, {rules_[entry.first].index}, std::move(fault.text)));
  }

  void checkRedundancy(EntryRules const& entry) {
    if (!sink_.wants("redundant")) return;
    Verify::RuleSpan const all(rules_[entry.first].index, rules_[entry.last].index);
    std::set<AceIndex> others;
    std::vector<AceIndex> rules;
    bool isUndecided = false;
    for (size_t i = entry.first; i <= entry.last; ++i) {
      AceIndex const index = rules_[i].index;
      ExactStudy::Search const missed = asked([&] { return study_.missedWithout(index, all); });
      if (missed.found == Answer::yes) return;
      isUndecided |= missed.found == Answer::undecided;
      rules.push_back(index);
      for (AceIndex const other : missed.others)
        if (all.last < other) others.insert(other);
    }
    if (isUndecided)
      return sink_.add("undecided", about(entry, std::move(rules),
                                          "may be redundant or not: the effort did not suffice"));
    Finding finding = about(entry, std::move(rules), "can be taken out: ");
    finding.others = oneOfEach(others, entry);
    // Where only rules that are never reached would do the same, these are the ones to go.
    if (std::none_of(finding.others.begin(), finding.others.end(),
                     [&](AceIndex other) { return isReached(entries_[entryOf_[placeOf(other)]]); }))
      return;
    finding.text += finding.others.size() == 1 ? "a later rule does the same with its packets"
                                               : "later rules do the same with its packets";
    sink_.add("redundant", std::move(finding));
  }

  RuleSet const& set_;
  uint64_t& effort_;
  FindingSink& sink_;
  std::vector<RuleView> rules_;
  std::vector<EntryRules> entries_;
  std::vector<size_t> entryOf_;  // by place
  std::vector<Reach> reach_;     // by place
  ExactStudy study_;
};

void checkLists(RuleSet const& rules, FindingSink& sink) {
  std::unordered_set<Naxel::IpPrefixList const*> used;
  for (auto const& [name, acl] : rules.acls()->acl())
    for (auto const& [ruleName, rule] : acl->ruleByName())
      if (auto const& filter = rule->ruleFilter())
        used.insert({filter->source().get(), filter->destination().get()});
  for (auto const& [name, list] : rules.lists().all()) {
    Finding finding;
    finding.list = name;
    finding.place = rules.files()[list.file];
    if (list.at.line) finding.place += ":" + std::to_string(list.at.line);
    if (addressesOf(*list.list).empty()) {
      finding.text = "has no address: its except prefixes take all";
      sink.add("empty-list", finding);
    }
    // A rule leaves out a list of everything, so that nobody knows whether it is used.
    if (used.contains(list.list.get()) || list.everything) continue;
    finding.text = "is used by no rule";
    sink.add("unused-list", std::move(finding));
  }
}

}  // namespace

CheckReport check(RuleSet const& rules, CheckOptions const& options) {
  CheckReport out;
  FindingSink sink(options, out.findings);
  Verify::BddTable const table(Verify::Exact::variables, diagramNodes);
  uint64_t effort = options.effort;
  for (auto const& [name, acl] : rules.acls()->acl()) {
    options.tell(name);
    out.acls.push_back(AclCheck(rules, *acl, effort, sink).run());
  }
  checkLists(rules, sink);
  std::stable_sort(out.findings.begin(), out.findings.end(),
                   [](Finding const& a, Finding const& b) { return a.kind < b.kind; });
  return out;
}

#else

CheckReport check(RuleSet const&, CheckOptions const&) {
  throw std::invalid_argument("this build cannot check: it was made without the BDD library");
}

#endif

}  // namespace NaxelTool
