#include "output/RuleText.h"

#include "output/RuleView.h"
#include "output/Verdicts.h"
#include "verify/Packet.h"

#include <algorithm>
#include <array>
#include <optional>

namespace NaxelTool {

namespace {

using Naxel::RangeSetType;

/// Members of a list, or ranges, that are shown before the rest is counted.
constexpr size_t shownPrefixes = 3;
constexpr size_t shownRanges = 8;

/// The ICMP of the other family has no name: who reads it thinks of his own.
std::string protocolName(uint32_t number, std::optional<Lumox::AddressFamily> af) {
  if (number == 1 && af != Lumox::ipv6()) return "icmp";
  if (number == 58 && af != Lumox::ipv4()) return "icmp6";
  switch (number) {
    case 6: return "tcp";
    case 17: return "udp";
    case 132: return "sctp";
    default: return "proto " + std::to_string(number);
  }
}

std::string protocolText(IntervalSet const& set, bool asksForFlags,
                         std::optional<Lumox::AddressFamily> af) {
  if (set.empty()) return asksForFlags ? "tcp" : "ip";
  auto const one = onlyValue(set);
  return one ? protocolName(*one, af) : "proto " + valuesText(set);
}

/// That of the first prefix of either list, if there is one.
std::optional<Lumox::AddressFamily> familyIn(Naxel::RuleFilter const& filter) {
  for (auto const* list : {filter.source().get(), filter.destination().get()})
    for (auto const* prefixes :
         {list ? &list->addr() : nullptr, list ? &list->exceptAddr() : nullptr})
      if (prefixes && !prefixes->empty()) return prefixes->begin()->af();
  return std::nullopt;
}

/// As it is or, if it could be taken for something else, in quotes.
std::string listName(std::string const& name) {
  bool const isWord = !name.empty() && name != "any" &&
                      std::all_of(name.begin(), name.end(),
                                  [](char c) {
                                    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                                           (c >= '0' && c <= '9') || c == '_' || c == '-' ||
                                           c == '.';
                                  }) &&
                      !(name[0] >= '0' && name[0] <= '9');
  return isWord ? name : '"' + name + '"';
}

std::string prefixesText(Naxel::IpPrefixList::PrefixColl const& prefixes) {
  auto const all = sorted(prefixes);
  if (all.size() == 1) return Mox::valueToStrep(all.front());
  std::string out = "{";
  for (size_t i = 0; i < all.size() && i < shownPrefixes; ++i)
    out += (i ? " " : "") + Mox::valueToStrep(all[i]);
  if (all.size() > shownPrefixes)
    out += " ... (" + std::to_string(all.size() - shownPrefixes) + " more)";
  return out + "}";
}

std::string sideText(Naxel::IpPrefixList const* list, IntervalSet const& ports,
                     NamedLists const& names) {
  std::string out = list ? listText(*list, names) : "any";
  if (ports.empty()) return out;
  bool const isBare = out.find_first_of(": ") == std::string::npos || out.ends_with('}');
  return (isBare ? out : "[" + out + "]") + ":" + valuesText(ports);
}

}  // namespace

std::string valuesText(IntervalSet const& set) {
  std::string out;
  for (size_t i = 0; i < set.size() && i < shownRanges; ++i)
    out += (i ? "," : "") + rangeText(set[i]);
  if (set.size() > shownRanges)
    out += ",... (" + std::to_string(set.size() - shownRanges) + " more)";
  return out;
}

std::string listText(Naxel::IpPrefixList const& list, NamedLists const& names) {
  if (std::string const* const name = names.nameOf(list)) return listName(*name);
  return prefixesText(list.addr()) +
         (list.exceptAddrs() ? " except " + prefixesText(list.exceptAddr()) : "");
}

std::string patternText(Naxel::RuleFilter const* filter, NamedLists const& lists) {
  if (!filter) return "ip any > any";
  std::array<IntervalSet, Naxel::rangeFieldCount> values;
  filter->forEachRangeColl([&](RangeSetType type, auto const& ranges) {
    values[static_cast<size_t>(type)] = valuesOf(ranges);
  });
  auto const of = [&](RangeSetType type) -> IntervalSet const& {
    return values[static_cast<size_t>(type)];
  };
  std::string out =
      protocolText(of(RangeSetType::proto), filter->matchTcpInit() || filter->matchTcpEstablished(),
                   familyIn(*filter));
  out += " " + sideText(filter->source().get(), of(RangeSetType::srcPort), lists) + " > " +
         sideText(filter->destination().get(), of(RangeSetType::dstPort), lists);
  if (filter->matchTcpInit()) out += " init";
  if (filter->matchTcpEstablished()) out += " established";
  constexpr std::array<std::pair<RangeSetType, char const*>, 4> rest = {
      {{RangeSetType::icmp, "type"},
       {RangeSetType::length, "len"},
       {RangeSetType::dscp, "dscp"},
       {RangeSetType::fragment, "frag"}}};
  for (auto const& [type, name] : rest)
    if (!of(type).empty()) out += std::string(" ") + name + " " + valuesText(of(type));
  return out;
}

std::string ruleText(Naxel::RuleConfig const& rule, NamedLists const& lists) {
  return text(rule.action()) + "  " + patternText(rule.ruleFilter().get(), lists);
}

std::string ruleName(RuleSet const& rules, Naxel::AclConfig const& acl, Naxel::AceIndex rule) {
  auto const config = acl.ruleById(rule);
  std::string out = numberAndName(rule, config ? config->name() : "");
  if (std::string const from = rules.originText(acl.name(), rule); !from.empty())
    out += " (" + from + ")";
  return out;
}

}  // namespace NaxelTool
