#pragma once

/// A rule in one line, in the notation of packets:
///
///   permit, log  tcp 198.51.100.0/24 > {203.0.113.17/32 203.0.113.32/28}:443,8000-8100 init
///   drop  ip any > servers

#include "input/Intervals.h"
#include "input/RuleSet.h"

#include <string>

namespace NaxelTool {

/// What a filter matches, as above without the action: the protocols, then both sides with their ports
/// as far as they matter, then what else it asks for: "init", "established", "type 8", "len 60-100",
/// "dscp 46", "frag 1-8191". A list goes by its name where it has one; of others the first few
/// prefixes are shown. Null matches everything.
std::string patternText(Naxel::RuleFilter const* filter, NamedLists const& lists);

/// Values as a rule has them, "80,443,8000-8099"; of many the first few.
std::string valuesText(IntervalSet const& set);
/// A list of prefixes by its name, or its first few prefixes.
std::string listText(Naxel::IpPrefixList const& list, NamedLists const& names);

/// "permit, log  tcp any > 203.0.113.17/32:443".
std::string ruleText(Naxel::RuleConfig const& rule, NamedLists const& lists);

/// How messages and reports name a rule: "rule 20 'spoofed' (edge.json:24)"; the place is left out
/// where none is known, and a name that is the index.
std::string ruleName(RuleSet const& rules, Naxel::AclConfig const& acl, Naxel::AceIndex rule);

}  // namespace NaxelTool
