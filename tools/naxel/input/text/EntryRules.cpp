#include "input/text/EntryRules.h"

#include <algorithm>
#include <map>
#include <tuple>

namespace NaxelTool {

namespace {

/// Indexes up to here are those of the source: behind them there is room for every rule.
constexpr uint64_t lastOwnIndex = 4'000'000'000;

/// One rule of an entry, without what all of them have in common.
struct RulePart {
  ServiceMatch service;
  bool flags = false;       // those of the entry
  ValueSet fragments = {};  // offsets
};

/// Services that differ in their destination ports only become one, so that a group of ports is one rule.
std::vector<ServiceMatch> distinctServices(std::vector<ServiceMatch> const& all) {
  if (all.size() < 2) return all;
  std::map<std::tuple<ValueSet, ValueSet, ValueSet>, std::vector<ServiceMatch const*>> byRest;
  for (ServiceMatch const& s : all) byRest[{s.protocols, s.sourcePorts, s.icmpTypes}].push_back(&s);
  std::vector<ServiceMatch> out;
  out.reserve(byRest.size());
  for (auto const& [key, same] : byRest) {
    ServiceMatch merged = *same.front();
    bool const open = std::any_of(same.begin(), same.end(), [](ServiceMatch const* s) {
      return s->destinationPorts.empty();
    });
    for (ServiceMatch const* const s : same)
      if (s != same.front())
        merged.destinationPorts.insert(merged.destinationPorts.end(), s->destinationPorts.begin(),
                                       s->destinationPorts.end());
    merged.destinationPorts = open ? ValueSet() : unitedValues(std::move(merged.destinationPorts));
    out.push_back(std::move(merged));
  }
  return out;
}

/// Whether the part matches packets that lack everything it looks at.
bool matchesZeros(RulePart const& part) {
  auto const open = [](ValueSet const& set) { return set.empty() || contains0(set); };
  return !part.flags && open(part.service.sourcePorts) && open(part.service.destinationPorts) &&
         open(part.service.icmpTypes);
}

std::vector<RulePart> partsOf(Entry const& entry, bool layered) {
  std::vector<RulePart> out;
  ValueSet const first = {{0, 0}};
  ValueSet const later = {{1, Naxel::FragmentRange::bound}};
  std::map<ValueSet, bool> seesFragments;  // by protocols: whether the first parts match them all
  for (ServiceMatch& s : distinctServices(entry.services)) {
    RulePart part{std::move(s), entry.established || entry.opening};
    bool const layer4 = part.flags || part.service.looksAtLayer4();
    if (entry.fragments)
      part.fragments = later;
    else if (layer4 && (layered ? !entry.permit : matchesZeros(part)))
      part.fragments = first;
    bool& sees = seesFragments[part.service.protocols];
    sees = sees || !layer4;
    out.push_back(std::move(part));
  }
  if (layered && entry.permit && !entry.fragments)
    for (auto const& [protocols, sees] : seesFragments)
      if (!sees) out.push_back({{protocols}, false, later});
  return out;
}

void rangesIs(Naxel::RuleFilter& filter, Naxel::RangeSetType type, ValueSet const& set) {
  if (isAllValues(set, Naxel::rangeField(type).bound())) return;
  for (auto const& [first, last] : set) filter.rangeIs(type, first, last);
}

void fill(Naxel::RuleConfig& rule, Entry const& entry, RulePart const& part,
          Lumox::AddressFamily af) {
  auto const& source = entry.source.of(af).list;
  auto const& destination = entry.destination.of(af).list;
  ServiceMatch const& s = part.service;
  using Type = Naxel::RangeSetType;
  Naxel::RuleFilter& filter = *rule.ruleFilterIs();
  if (source) filter.sourceIs(source);
  if (destination) filter.destinationIs(destination);
  rangesIs(filter, Type::proto, s.protocols);
  rangesIs(filter, Type::srcPort, s.sourcePorts);
  rangesIs(filter, Type::dstPort, s.destinationPorts);
  rangesIs(filter, Type::icmp, s.icmpTypes);
  rangesIs(filter, Type::fragment, part.fragments);
  rangesIs(filter, Type::dscp, entry.dscp);
  rangesIs(filter, Type::length, entry.length);
  filter.matchTcpEstablishedIs(part.flags && entry.established);
  filter.matchTcpInitIs(part.flags && entry.opening);
  Naxel::NaxelActionValue action;
  action.dropEnabledIs(!entry.permit);
  action.logEnabledIs(entry.log);
  rule.actionIs(action);
}

}  // namespace

void EntryRules::entryIs(std::vector<Entry> const& entries, uint64_t number, Word at,
                         std::string description) {
  RuleOrigin origin{0, at.place.at, entries_++, false, std::move(description)};
  std::optional<uint64_t> wanted;
  if (number <= lastOwnIndex) wanted = number;
  std::string const name = std::to_string(number);
  size_t made = 0;
  for (Entry const& entry : entries) {
    auto const parts = partsOf(entry, layered_);
    context_.countRules(parts.size() - (made ? 0 : 1), at);
    for (RulePart const& part : parts) {
      std::string const suffix = made ? "-" + std::to_string(made + 1) : "";
      fill(context_.reading.ruleIs(*acl_, wanted, name + suffix, origin), entry, part, *acl_->af());
      // A remark stands once, however many rules its entry becomes.
      origin.description.clear();
      wanted.reset();
      ++made;
    }
  }
}

Naxel::RuleFilter& EntryRules::endIs(std::string const& name, bool permit, Position at,
                                     bool implied, std::string description) {
  Naxel::RuleConfig& rule = context_.reading.ruleIs(
      *acl_, std::nullopt, name, {0, at, entries_++, implied, std::move(description)});
  Naxel::NaxelActionValue action;
  action.dropEnabledIs(!permit);
  rule.actionIs(action);
  return *rule.ruleFilterIs();
}

}  // namespace NaxelTool
