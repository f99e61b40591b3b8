#include "naxel/genset/AclEdit.h"

#include "naxel/genset/AclCheck.h"
#include "naxel/genset/RuleContent.h"

#include <algorithm>

namespace Naxel {

namespace {

constexpr uint32_t none = AclWalk::none;

/// The rules in the order of `ruleByName`, each told its place.
std::vector<RuleConfig const*> placedRules(AclConfig const& acl) {
  std::vector<RuleConfig const*> rules;
  rules.reserve(acl.ruleByName().size());
  acl.ruleByName().forEach([&](auto const& item) {
    item.second->walkPlaceIs(static_cast<uint32_t>(rules.size()));
    rules.push_back(item.second.get());
  });
  return rules;
}

void readIndexes(AclConfig const& acl, std::vector<RuleConfig const*> const& rules,
                 AclArrangement& arranged) {
  arranged.indexes.reserve(acl.ruleById().size());
  acl.ruleById().forEach([&](auto const& item) {
    uint32_t const place =
        placeIn(rules.size(), item.second.get(), [&](uint32_t at) { return rules[at]; });
    arranged.hasStrays = arranged.hasStrays || place == none;
    arranged.indexes.emplace_back(item.first, place);
  });
}

/// For each rule, where it stood; what has gone is added to the edit.
std::vector<uint32_t> placesBefore(std::vector<RuleConfig const*> const& rules, AclEdit& edit) {
  BuiltAcl const& built = *edit.built;
  auto const& old = built.list->genSetIpRule();
  std::vector<uint32_t> before(rules.size(), none);
  uint32_t next = 0;
  auto const isNext = [&](RuleConfig const& rule, RuleStamps const& stamps) {
    return built.stamps[next].rule == stamps.rule || old[next]->name() == rule.name();
  };
  for (size_t place = 0; place < rules.size(); ++place) {
    if (before[place] != none) continue;
    for (; next < old.size(); ++next) {
      if (isNext(*rules[place], edit.arranged->stamps[place])) {
        before[place] = next++;
        break;
      }
      auto const elsewhere = edit.acl->ruleByName(old[next]->name());
      if (elsewhere)
        before[elsewhere->walkPlace()] = next;
      else
        edit.gone.push_back(old[next]);
    }
  }
  for (; next < old.size(); ++next) edit.gone.push_back(old[next]);
  return before;
}

/// Whether all rules and indexes of the ACL are those that were compiled.
bool isAsBuilt(AclEdit const& edit) {
  AclArrangement const& now = *edit.arranged;
  auto const& indexed = edit.built->list->genSetIpRuleById();
  return edit.edits.empty() && edit.gone.empty() && !now.hasStrays &&
         std::equal(now.indexes.begin(), now.indexes.end(), indexed.begin(), indexed.end(),
                    [&](auto const& a, auto const& b) {
                      return a.first == b.first && now.rules[a.second] == b.second;
                    });
}

std::optional<AclEdit> arrangedEdit(AclEdit edit, AggregatorStatus const& status) {
  BuiltAcl& built = *edit.built;
  auto const& old = built.list->genSetIpRule();
  std::vector<RuleConfig const*> const rules = placedRules(*edit.acl);
  AclArrangement& now = edit.arranged.emplace();
  now.stamps.reserve(rules.size());
  for (RuleConfig const* rule : rules) now.stamps.push_back(rule->stamps());
  std::vector<uint32_t> const before = placesBefore(rules, edit);
  now.rules.reserve(rules.size());
  for (uint32_t place = 0; place < rules.size(); ++place) {
    uint32_t const at = before[place];
    bool const same = at != none && (now.stamps[place] == built.stamps[at] ||
                                     saysTheSame(status, *rules[place], edit.af, *old[at]));
    now.rules.push_back(same ? old[at] : nullptr);
    if (!same) edit.edits.push_back({place, rules[place], at == none ? nullptr : old[at]});
  }
  readIndexes(*edit.acl, rules, now);
  if (!isAsBuilt(edit)) return edit;
  // Learnt, so that the next look need not search. The list may be ordered anew: it holds the same rules.
  built.list->genSetIpRulesAre(std::move(now.rules));
  built.stamps = std::move(now.stamps);
  built.acl = edit.acl->stamp();
  return std::nullopt;
}

}  // namespace

bool AclEdit::isSound() const {
  return !(arranged && arranged->hasStrays) &&
         std::all_of(edits.begin(), edits.end(),
                     [&](RuleEdit const& e) { return Naxel::isSound(*e.config, af); });
}

AclEdit wholeAcl(AclConfig const& acl) {
  AclEdit edit;
  edit.acl = &acl;
  edit.af = aclFamily(acl);
  std::vector<RuleConfig const*> const rules = placedRules(acl);
  edit.edits.reserve(rules.size());
  for (uint32_t place = 0; place < rules.size(); ++place)
    edit.edits.push_back({place, rules[place], nullptr});
  AclArrangement& now = edit.arranged.emplace();
  now.rules.resize(rules.size());
  now.stamps.resize(rules.size());
  readIndexes(acl, rules, now);
  return edit;
}

std::optional<AclEdit> editOf(AclConfig const& acl, BuiltAcl& built,
                              AggregatorStatus const& status) {
  Lumox::AddressFamily const af = built.list->af();
  AclEdit edit;
  edit.acl = &acl;
  edit.af = edit.goneAf = af;
  edit.built = &built;
  if (acl.stamp() == built.acl) {
    // The same rules under the same names and indexes; what they say is told by stamps of their own.
    auto const& rules = built.list->genSetIpRule();
    uint32_t place = 0;
    acl.ruleByName().forEach([&](auto const& item) {
      RuleConfig const& rule = *item.second;
      RuleStamps const stamps = rule.stamps();
      if (stamps != built.stamps[place]) {
        // What is learnt here is true whatever the rest of the look comes to.
        if (saysTheSame(status, rule, af, *rules[place]))
          built.stamps[place] = stamps;
        else
          edit.edits.push_back({place, &rule, rules[place]});
      }
      ++place;
    });
    if (edit.edits.empty()) return std::nullopt;
  }
  if (aclFamily(acl) != af) {
    AclEdit whole = wholeAcl(acl);
    whole.gone.assign(built.list->genSetIpRule().begin(), built.list->genSetIpRule().end());
    whole.goneAf = af;
    return whole;
  }
  if (acl.stamp() == built.acl) return edit;
  return arrangedEdit(std::move(edit), status);
}

}  // namespace Naxel
