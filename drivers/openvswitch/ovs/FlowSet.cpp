#include "ovs/FlowSet.h"

#include "ovs/Priorities.h"

#include <algorithm>
#include <map>
#include <string_view>
#include <unordered_map>

namespace NaxelOvs {

namespace {

/// Which priorities a match has in the switch, highest first, with any actions: another action changes the flow and
/// moves nobody.
class Present {
 public:
  Present(FlowSet const& flows, uint8_t table) {
    for (Flow const& flow : flows)
      if (flow.table == table && flow.priority > 0) byMatch_[flow.match].push_back(flow.priority);
  }
  /// The priority that most flows of a rule have; each flow of the switch counts once.
  std::optional<uint16_t> of(RuleFlows const& rule) {
    std::map<uint16_t, size_t> votes;
    for (std::string const& match : rule.matches) {
      auto const found = byMatch_.find(match);
      if (found == byMatch_.end() || found->second.empty()) continue;
      ++votes[found->second.front()];
      found->second.erase(found->second.begin());
    }
    auto const most =
        std::max_element(votes.begin(), votes.end(),
                         [](auto const& a, auto const& b) { return a.second < b.second; });
    if (most == votes.end()) return std::nullopt;
    return most->first;
  }

 private:
  std::unordered_map<std::string_view, std::vector<uint16_t>> byMatch_;
};

/// Rules side by side of equal actions as one.
std::vector<RuleFlows> merged(std::vector<RuleFlows> const& rules) {
  std::vector<RuleFlows> out;
  for (RuleFlows const& rule : rules) {
    if (out.empty() || out.back().instructions != rule.instructions) {
      out.push_back(rule);
      continue;
    }
    auto& matches = out.back().matches;
    matches.insert(matches.end(), rule.matches.begin(), rule.matches.end());
  }
  for (RuleFlows& rule : out) {
    std::sort(rule.matches.begin(), rule.matches.end());
    rule.matches.erase(std::unique(rule.matches.begin(), rule.matches.end()), rule.matches.end());
  }
  return out;
}

void rank(std::vector<RuleFlows> const& rules, uint8_t table, Present& present, FlowSet& to) {
  std::vector<RankItem> items;
  items.reserve(rules.size());
  for (RuleFlows const& rule : rules)
    items.push_back({present.of(rule), static_cast<uint32_t>(rule.matches.size())});
  auto const priorities = assignPriorities(items);
  for (size_t i = 0; i < rules.size(); ++i)
    for (std::string const& match : rules[i].matches)
      to.push_back({table, priorities[i], match, rules[i].instructions});
}

}  // namespace

FlowSet ranked(Translation const& translation, Layout const& layout, FlowSet const& present,
               std::string& refusal) {
  FlowSet out = translation.flows;
  uint8_t const table = layout.table(Stage::acl);
  Present known(present, table);
  for (AclFlows const& acl : translation.acls) {
    if (acl.rules.size() <= mostRanks) {
      rank(acl.rules, table, known, out);
      continue;
    }
    auto const shared = merged(acl.rules);
    if (shared.size() > mostRanks) {
      refusal = "ACL " + acl.name + " has " + std::to_string(acl.rules.size()) +
                " rules whose actions alternate " + std::to_string(shared.size() - 1) +
                " times, and Open vSwitch has " + std::to_string(mostRanks) + " priorities";
      return {};
    }
    rank(shared, table, known, out);
  }
  std::sort(out.begin(), out.end());
  return out;
}

FlowChanges changes(FlowSet const& present, FlowSet const& wanted) {
  FlowChanges out;
  auto was = present.begin();
  auto is = wanted.begin();
  auto const before = [](Flow const& a, Flow const& b) { return !a.sameKey(b) && a < b; };
  while (was != present.end() || is != wanted.end()) {
    if (is == wanted.end() || (was != present.end() && before(*was, *is))) {
      out.del.push_back(&*was++);
    } else if (was == present.end() || before(*is, *was)) {
      out.add.push_back(&*is++);
    } else {
      if (was->instructions != is->instructions) out.change.push_back(&*is);
      ++was;
      ++is;
    }
  }
  return out;
}

std::string text(FlowSet const& flows) {
  std::string out;
  for (Flow const& flow : flows) out += text(flow) + "\n";
  return out;
}

}  // namespace NaxelOvs
