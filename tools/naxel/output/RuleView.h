#pragma once

/// A rule as those who write rules look at it, and names for the lists that it refers to.

#include "input/Intervals.h"
#include "input/RuleSet.h"

#include <array>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace NaxelTool {

struct RuleView {
  RuleView(RuleSet const& rules, Naxel::AclConfig const& ofAcl, Naxel::AceIndex at,
           Naxel::RuleConfig const& config);

  Naxel::AclConfig const& acl;
  Naxel::AceIndex index;
  Naxel::RuleConfig const& rule;
  RuleOrigin const* origin;           ///< null where nothing is known
  Naxel::IpPrefixList const* source;  ///< null where it does not matter
  Naxel::IpPrefixList const* destination;
  bool tcpInit = false;
  bool tcpEstablished = false;
  std::array<IntervalSet, Naxel::rangeFieldCount>
      values;  ///< empty where the field does not matter

  IntervalSet const& of(Naxel::RangeSetType type) const {
    return values[static_cast<size_t>(type)];
  }
  /// Nothing but the family is asked for.
  bool matchesAll() const;
  /// Ports, ICMP type or TCP flags are asked for.
  bool looksAtLayer4() const;
  /// They are, and packets that lack all of them match, since what a packet lacks counts as 0.
  bool matchesZeros() const;
  /// The action is to drop or to permit, and at most to log besides.
  bool isPlainVerdict() const;
  std::string const& description() const;
  /// The description, or else the name where it says more than a number.
  std::string const& about() const;
};

/// Says that the target cannot express something about a rule, at the rule's place in its source.
void cannotSay(RuleSet const& rules, RuleView const& rule, std::string const& what,
               std::string const& help, Diagnostics& diagnostics);

/// All rules of an ACL in order.
std::vector<RuleView> viewsOf(RuleSet const& rules, Naxel::AclConfig const& acl);

/// The prefixes in their natural order.
std::vector<Lumox::IpGenPrefix> sorted(Naxel::IpPrefixList::PrefixColl const& prefixes);

/// "7" or "7-9".
std::string rangeText(Interval const& range);
/// One value, or nothing where there are more or none.
std::optional<uint32_t> onlyValue(IntervalSet const& set);

/// Names for lists, each once: what they are called in their source, else made ones. Lists without a name
/// that hold the same share one.
class ListNames {
 public:
  /// Names are made as `stem`-1, `stem`-2, ...
  ListNames(NamedLists const& known, std::string stem) : known_(known), stem_(std::move(stem)) {}

  std::string const& nameOf(Naxel::IpPrefixList const& list);
  /// Those that were asked for, by name.
  std::map<std::string, Naxel::IpPrefixList const*> const& all() const { return list_; }

 private:
  NamedLists const& known_;
  std::string stem_;
  std::map<std::string, Naxel::IpPrefixList const*> list_;
  std::unordered_map<Naxel::IpPrefixList const*, std::string> name_;
  std::map<std::string, std::string> byContent_;
  size_t made_ = 0;
};

}  // namespace NaxelTool
