#include "output/RuleView.h"

#include <algorithm>

namespace NaxelTool {

RuleView::RuleView(RuleSet const& rules, Naxel::AclConfig const& ofAcl, Naxel::AceIndex at,
                   Naxel::RuleConfig const& config)
    : acl(ofAcl),
      index(at),
      rule(config),
      origin(rules.origin(ofAcl.name(), at)),
      source(nullptr),
      destination(nullptr) {
  if (!rule.ruleFilter()) return;
  Naxel::RuleFilter const& filter = *rule.ruleFilter();
  source = filter.source().get();
  destination = filter.destination().get();
  tcpInit = filter.matchTcpInit();
  tcpEstablished = filter.matchTcpEstablished();
  filter.forEachRangeColl([&](Naxel::RangeSetType type, auto const& ranges) {
    values[static_cast<size_t>(type)] = valuesOf(ranges);
  });
}

bool RuleView::matchesAll() const {
  return !source && !destination && !tcpInit && !tcpEstablished &&
         std::all_of(values.begin(), values.end(), [](auto const& v) { return v.empty(); });
}

bool RuleView::isPlainVerdict() const {
  Naxel::NaxelActionValue plain;
  plain.dropEnabledIs(rule.action().dropEnabled());
  plain.logEnabledIs(rule.action().logEnabled());
  return rule.action() == plain;
}

std::string const& RuleView::description() const {
  static std::string const none;
  return origin ? origin->description : none;
}

std::string const& RuleView::about() const {
  static std::string const none;
  if (!description().empty()) return description();
  std::string_view name = rule.name();
  if (name.starts_with('r')) name.remove_prefix(1);
  bool const isNumber = name.find_first_not_of("0123456789-") == std::string_view::npos;
  return isNumber || (origin && origin->implied) ? none : rule.name();
}

bool RuleView::looksAtLayer4() const {
  return tcpInit || tcpEstablished || !of(Naxel::RangeSetType::srcPort).empty() ||
         !of(Naxel::RangeSetType::dstPort).empty() || !of(Naxel::RangeSetType::icmp).empty();
}

bool RuleView::matchesZeros() const {
  auto const open = [&](Naxel::RangeSetType type) {
    return of(type).empty() || of(type).front().first == 0;
  };
  return looksAtLayer4() && !tcpInit && !tcpEstablished && open(Naxel::RangeSetType::srcPort) &&
         open(Naxel::RangeSetType::dstPort) && open(Naxel::RangeSetType::icmp);
}

void cannotSay(RuleSet const& rules, RuleView const& rule, std::string const& what,
               std::string const& help, Diagnostics& diagnostics) {
  diagnostics.say({Severity::error,
                   "cannot-say",
                   rule.origin ? rules.files()[rule.origin->file] : std::string(),
                   {rule.origin ? rule.origin->at : Position()},
                   "rule " + std::to_string(rule.index.value()) + " '" + rule.rule.name() +
                       "' of ACL '" + rule.acl.name() + "': " + what,
                   help,
                   {}});
}

std::vector<RuleView> viewsOf(RuleSet const& rules, Naxel::AclConfig const& acl) {
  std::vector<RuleView> out;
  out.reserve(acl.ruleById().size());
  for (auto const& [index, rule] : acl.ruleById()) out.emplace_back(rules, acl, index, *rule);
  return out;
}

std::vector<Lumox::IpGenPrefix> sorted(Naxel::IpPrefixList::PrefixColl const& prefixes) {
  std::vector<Lumox::IpGenPrefix> out(prefixes.begin(), prefixes.end());
  std::sort(out.begin(), out.end());
  return out;
}

std::string rangeText(Interval const& range) {
  auto const number = [](Wide v) { return std::to_string(static_cast<uint64_t>(v)); };
  return range.first == range.last ? number(range.first)
                                   : number(range.first) + "-" + number(range.last);
}

std::optional<uint32_t> onlyValue(IntervalSet const& set) {
  if (set.size() != 1 || set[0].first != set[0].last) return std::nullopt;
  return static_cast<uint32_t>(set[0].first);
}

std::string const& ListNames::nameOf(Naxel::IpPrefixList const& list) {
  auto const [at, isNew] = name_.try_emplace(&list);
  if (!isNew) return at->second;
  std::string content;
  for (auto const* prefixes : {&list.addr(), &list.exceptAddr()}) {
    for (Lumox::IpGenPrefix const& p : sorted(*prefixes)) content += Mox::valueToStrep(p) + " ";
    content += "/";
  }
  std::string const* const known = known_.nameOf(list);
  auto const [same, isFirst] = byContent_.try_emplace((known ? *known : "") + "\n" + content);
  if (isFirst) {
    std::string name = known ? *known : stem_ + "-" + std::to_string(++made_);
    for (size_t n = 2; known && list_.contains(name); ++n) name = *known + "-" + std::to_string(n);
    while (!known && list_.contains(name)) name = stem_ + "-" + std::to_string(++made_);
    list_.emplace(name, &list);
    same->second = name;
  }
  return at->second = same->second;
}

}  // namespace NaxelTool
