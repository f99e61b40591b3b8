#include "answers/PacketSearch.h"

#include "answers/RuleTargets.h"

#include <algorithm>
#include <array>
#include <map>
#include <stdexcept>

#if NAXEL_EXACT_PROOF
#include "verify/ExactStudy.h"
#endif

namespace NaxelTool {

using Naxel::AceIndex;
using Outcome = SearchedAcl::Outcome;

namespace {

struct WantedWord {
  std::string_view name;
  WantedVerdict::Kind kind;
};
constexpr std::array<WantedWord, 7> wantedWords = {{{"permit", WantedVerdict::Kind::permit},
                                                    {"drop", WantedVerdict::Kind::drop},
                                                    {"none", WantedVerdict::Kind::noRule},
                                                    {"log", WantedVerdict::Kind::log},
                                                    {"dscp", WantedVerdict::Kind::setDscp},
                                                    {"tc", WantedVerdict::Kind::setTc},
                                                    {"sflow", WantedVerdict::Kind::sflow}}};

}  // namespace

WantedVerdict wantedFromText(std::string const& text) {
  if (text.starts_with("rule:") && text.size() > 5)
    return {WantedVerdict::Kind::rule, text.substr(5)};
  std::vector<std::string_view> names = {"rule:"};
  for (WantedWord const& word : wantedWords) {
    if (word.name == text) return {word.kind, {}};
    names.push_back(word.name);
  }
  std::string const hint = didYouMean(text, names);
  throw std::invalid_argument("there is no verdict '" + printable(text) + "'; " +
                              (hint.empty() ? "there are permit, drop, none, log, dscp, tc, sflow "
                                              "and rule:INDEX, rule:NAME or rule:FILE:LINE"
                                            : hint));
}

bool SearchReport::has(Outcome outcome) const {
  return std::any_of(acls.begin(), acls.end(),
                     [&](SearchedAcl const& acl) { return acl.outcome == outcome; });
}

#if NAXEL_EXACT_PROOF

namespace {

using Verify::Bdd;
using Verify::ExactStudy;

constexpr int searchNodes = 30'000'000;

bool hasAction(Naxel::NaxelActionValue const& action, WantedVerdict::Kind kind) {
  switch (kind) {
    case WantedVerdict::Kind::permit: return !action.dropEnabled();
    case WantedVerdict::Kind::drop: return action.dropEnabled();
    case WantedVerdict::Kind::log: return action.logEnabled();
    case WantedVerdict::Kind::setDscp: return action.setDscpEnabled();
    case WantedVerdict::Kind::setTc: return action.setTcEnabled();
    case WantedVerdict::Kind::sflow: return action.sflowEnabled();
    case WantedVerdict::Kind::noRule:
    case WantedVerdict::Kind::rule: break;
  }
  return false;
}

/// Whether the bounds leave room for packets of a family.
bool mayBeOf(SearchQuestion const& question, Lumox::AddressFamily af) {
  return question.in.empty() || std::any_of(question.in.begin(), question.in.end(),
                                            [&](Pattern const& p) { return !p.af || p.af == af; });
}

Bdd unionOf(std::vector<Pattern> const& patterns, ExactStudy& study) {
  Bdd all(false);
  for (Pattern const& p : patterns)
    if (!p.af || p.af == study.af()) all = all | study.matched(*p.filter);
  return all;
}

SearchedAcl searchAcl(Naxel::AclConfig const& acl, SearchQuestion const& question,
                      std::vector<AceIndex> const& rules) try {
  SearchedAcl out;
  out.name = acl.name();
  ExactStudy study(acl, static_cast<size_t>(question.effort));
  Bdd region = question.in.empty() ? study.packets() : unionOf(question.in, study);
  region = region - unionOf(question.notIn, study);
  if (region.isFalse()) {
    out.outcome = Outcome::outOfBounds;
    return out;
  }
  std::vector<std::optional<AceIndex>> seen;
  WantedVerdict::Kind const kind = question.wanted.kind;
  auto const isWanted = [&](std::optional<AceIndex> decider) {
    if (std::find(seen.begin(), seen.end(), decider) != seen.end()) return false;
    if (!decider) return kind == WantedVerdict::Kind::noRule;
    if (kind == WantedVerdict::Kind::rule)
      return std::find(rules.begin(), rules.end(), *decider) != rules.end();
    return hasAction(acl.ruleById(*decider)->action(), kind);
  };
  while (out.packets.size() < question.count) {
    uint64_t const taken = study.stepsTaken();
    study.stepsIs(static_cast<size_t>(question.effort - std::min(question.effort, taken)));
    ExactStudy::Search found = study.searchOn(region, isWanted);
    if (found.found == ExactStudy::Answer::yes) {
      auto const decider = study.oracle().firstMatch(*found.packet);
      out.packets.push_back({*found.packet, decider});
      seen.push_back(decider);
      continue;
    }
    out.isComplete = found.found == ExactStudy::Answer::no;
    if (!out.packets.empty()) break;
    out.outcome = out.isComplete ? Outcome::none : Outcome::undecided;
    out.takenBy = std::move(found.others);
    out.hitsNone = found.hitsNone;
    return out;
  }
  out.outcome = Outcome::found;
  return out;
} catch (std::runtime_error const&) {
  // The table of the diagrams is full.
  SearchedAcl out;
  out.name = acl.name();
  out.outcome = Outcome::undecided;
  return out;
}

}  // namespace

SearchReport searchPackets(RuleSet const& rules, SearchQuestion const& question) {
  auto const& acls = *rules.acls();
  if (!question.acl.empty() && !acls.aclHas(question.acl)) {
    std::vector<std::string_view> names;
    for (auto const& [name, acl] : acls.acl()) names.push_back(name);
    std::string const hint = didYouMean(question.acl, names);
    throw std::invalid_argument("there is no ACL '" + printable(question.acl) + "'" +
                                (hint.empty() ? "" : "; " + hint));
  }
  SearchReport out;
  bool const isRule = question.wanted.kind == WantedVerdict::Kind::rule;
  std::map<std::string, std::vector<AceIndex>> wanted;
  if (isRule)
    for (RuleTarget const& t : rulesNamed(question.wanted.rule, rules, question.acl))
      wanted[t.acl].push_back(t.rule);
  Verify::BddTable const table(Verify::Exact::variables, searchNodes);
  for (auto const& [name, acl] : acls.acl()) {
    if (!question.acl.empty() && name != question.acl) continue;
    if (isRule && !wanted.contains(name)) continue;
    if (mayBeOf(question, Verify::familyOf(*acl)))
      out.acls.push_back(searchAcl(*acl, question, wanted[name]));
  }
  if (out.acls.empty()) throw std::invalid_argument("no ACL is of the family of these packets");
  return out;
}

#else

SearchReport searchPackets(RuleSet const&, SearchQuestion const&) {
  throw std::invalid_argument("this build cannot search: it was made without the BDD library");
}

#endif

}  // namespace NaxelTool
