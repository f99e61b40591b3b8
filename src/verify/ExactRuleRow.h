#pragma once

/// The rules of one ACL in their order, each as what it matches, and who decides a packet among them. A
/// rule can be left out, and then neither decides nor counts.

#include "verify/Bdd.h"
#include "verify/ExactRules.h"
#include "verify/PacketSource.h"
#include "verify/RuleHull.h"
#include "verify/RuleOracle.h"

#include <optional>
#include <vector>

namespace Verify::Exact {

/// About which packets a question is.
enum class Among : uint8_t {
  all,
  possible  ///< Packet::isPossible()
};

class RuleRow {
 public:
  /// What stands for a rule where there is none.
  static constexpr size_t none = ~size_t{0};

  /// There must be a BddTable, which outlives the row, as must the rules, which must not change.
  RuleRow(Naxel::AclConfig const& acl, Among among);

  size_t size() const { return rule_.size(); }
  Lumox::AddressFamily af() const { return oracle_.af(); }
  Naxel::AceIndex index(size_t place) const { return rule_[place].index; }
  Naxel::RuleConfig const& config(size_t place) const { return *rule_[place].config; }
  RuleHull const& hull(size_t place) const { return rule_[place].hull; }
  /// Null for none.
  Naxel::NaxelActionValue const* action(size_t place) const {
    return place == none ? nullptr : &rule_[place].config->action();
  }
  /// The packets in question that a rule matches by itself. Throws std::runtime_error when the table of
  /// diagrams is full.
  Bdd const& matched(size_t place);

  bool isLeftOut(size_t place) const { return out_[place]; }
  void leaveOutIs(size_t place, bool out) { out_[place] = out; }
  /// The first rule that matches and is not left out, or none.
  size_t decider(Packet const& packet) const {
    return oracle_.firstPlace(packet, out_).value_or(none);
  }
  /// Whether the rule by itself matches the packet, by its filter as it stands; slow.
  bool matches(size_t place, Packet const& packet) const {
    auto const& filter = rule_[place].config->ruleFilter();
    return !filter || Verify::matches(*filter, packet);
  }

  /// One of the packets in question that the rule is likely to match, near the edges of what it says; no
  /// packet where the rule can be seen to match nothing.
  std::optional<Packet> drawn(size_t place);

 private:
  struct Rule {
    Naxel::AceIndex index;
    Naxel::RuleConfig const* config;
    RuleHull hull;
    std::optional<Bdd> matched;
  };

  Among among_;
  Bdd packets_;
  RuleOracle oracle_;
  PacketSource source_;
  RuleFunctions functions_;
  std::vector<Rule> rule_;
  std::vector<bool> out_;
};

}  // namespace Verify::Exact
