#include "verify/ExactStudy.h"

#include "mox/Assert.h"

#include <algorithm>
#include <set>
#include <stdexcept>

namespace Verify {

using Naxel::AceIndex;
using Naxel::RangeSetType;

namespace {

/// How many packets are drawn from a rule before anything is proved.
constexpr int drawnPackets = 24;
/// Explanations of more rules than these are not made smaller.
constexpr size_t reducible = 64;

Interval hullOf(AddressSet const& set) {
  if (set.any()) return {Address{}, Address{~uint64_t{0}, ~uint64_t{0}}};
  // An empty set meets nothing: the interval ends before it begins.
  if (set.addr().empty()) return {Address{~uint64_t{0}, ~uint64_t{0}}, Address{}};
  return {set.addr().front().first, set.addr().back().last};
}

}  // namespace

bool ExactStudy::Hull::meets(Hull const& other) const {
  for (size_t side = 0; side < 2; ++side)
    if (other.address[side].last < address[side].first ||
        address[side].last < other.address[side].first)
      return false;
  for (size_t type = 0; type < value.size(); ++type)
    if (other.value[type].second < value[type].first ||
        value[type].second < other.value[type].first)
      return false;
  return true;
}

ExactStudy::ExactStudy(Naxel::AclConfig const& acl, size_t steps, Packets among)
    : acl_(acl),
      af_(familyOf(acl)),
      steps_(steps),
      among_(among),
      packets_(among == Packets::all ? Bdd(true) : Exact::possiblePackets(af_)),
      oracle_(acl),
      source_(acl, 1),
      functions_(af_) {
  rule_.reserve(acl.ruleById().size());
  for (auto const& [index, config] : acl.ruleById()) {
    Rule& rule = rule_.emplace_back(Rule{index, config.get(), {}, std::nullopt});
    rule.hull.address = {hullOf({}), hullOf({})};
    for (size_t type = 0; type < rule.hull.value.size(); ++type)
      rule.hull.value[type] = {0, Naxel::rangeFields[type].bound()};
    Naxel::RuleFilter const* const filter = config->ruleFilter().get();
    if (!filter) continue;
    rule.hull.address = {hullOf(AddressSet(filter->source().get(), af_)),
                         hullOf(AddressSet(filter->destination().get(), af_))};
    filter->forEachRangeColl([&](RangeSetType type, auto const& ranges) {
      auto& hull = rule.hull.value[static_cast<size_t>(type)];
      if (!ranges.empty()) hull = {~uint32_t{0}, 0};
      for (auto const& r : ranges)
        hull = {std::min<uint32_t>(hull.first, r.rangeStart()),
                std::max<uint32_t>(hull.second, r.rangeEnd())};
    });
  }
}

size_t ExactStudy::placeOf(AceIndex rule) const {
  auto const at = std::lower_bound(rule_.begin(), rule_.end(), rule,
                                   [](Rule const& r, AceIndex i) { return r.index < i; });
  MOX_ASSERT(at != rule_.end() && at->index == rule);
  return static_cast<size_t>(at - rule_.begin());
}

Bdd const& ExactStudy::matchedAt(size_t place) {
  Rule& rule = rule_[place];
  if (!rule.matched)
    rule.matched = rule.config->ruleFilter() ? matched(*rule.config->ruleFilter()) : packets_;
  return *rule.matched;
}

Bdd const& ExactStudy::matched(AceIndex rule) { return matchedAt(placeOf(rule)); }

Packet ExactStudy::amongAsked(Rule const& rule, Packet packet) const {
  if (among_ == Packets::all) return packet;
  auto const hull = [&](RangeSetType type) { return rule.hull.value[static_cast<size_t>(type)]; };
  auto const asksFor = [&](RangeSetType type) { return hull(type).first > 0; };
  auto const mayBe = [&](uint16_t proto) {
    auto const [first, last] = hull(RangeSetType::proto);
    return first <= proto && proto <= last;
  };
  // What few rules look at is 0 where it may be: people read the packet.
  for (RangeSetType const type : {RangeSetType::fragment, RangeSetType::length, RangeSetType::dscp})
    if (!asksFor(type)) packet.valueIs(type, 0);
  if (asksFor(RangeSetType::icmp)) packet.proto = Packet::icmpProtocol(af_);
  if ((asksFor(RangeSetType::srcPort) || asksFor(RangeSetType::dstPort)) &&
      !packet.hasPortProtocol())
    for (uint16_t const proto : Packet::portProtocols)
      if (mayBe(proto) && !packet.hasPortProtocol()) packet.proto = proto;
  bool const isFirst = !packet.isLaterFragment();
  if (!isFirst || !packet.hasPortProtocol()) packet.sport = packet.dport = 0;
  if (!isFirst || !packet.isIcmp()) packet.icmpType = 0;
  if (!isFirst || packet.proto != Packet::protoTcp) packet.syn = packet.ack = packet.rst = false;
  return packet;
}

std::optional<Packet> ExactStudy::drawn(size_t place,
                                        std::function<bool(Packet const&)> const& hit) {
  for (int i = 0; i < drawnPackets; ++i) {
    auto const packet = source_.inside(place);
    if (!packet) return std::nullopt;
    Packet const asked = amongAsked(rule_[place], *packet);
    if (hit(asked)) return asked;
  }
  return std::nullopt;
}

Bdd ExactStudy::outOfTheWay(Bdd const& region, size_t place, Wanted const& wanted,
                            std::optional<RuleSpan> const& without, size_t from) {
  Bdd piece = region & matchedAt(place);
  for (size_t i = from; i < place; ++i)
    if (rule_[i].hull.meets(rule_[place].hull) && !(without && without->has(rule_[i].index)) &&
        wanted(rule_[i].index))
      piece = piece - matchedAt(i);
  return piece;
}

ExactStudy::Search ExactStudy::searchFrom(Bdd& region, Wanted const& wanted,
                                          std::optional<RuleSpan> const& without, size_t from) try {
  Search out;
  std::set<AceIndex> others;
  region = region & packets_;
  for (size_t step = 0; !region.isFalse(); ++step, ++stepsTaken_) {
    if (step == steps_) {
      out.found = Answer::undecided;
      break;
    }
    Packet const packet = Exact::packetOf(af_, region.somePoint());
    auto const decider = oracle_.firstMatch(packet, without);
    if (wanted(decider)) {
      out.found = Answer::yes;
      out.packet = packet;
      break;
    }
    if (decider) {
      others.insert(*decider);
      region = region - outOfTheWay(region, placeOf(*decider), wanted, without, from);
      continue;
    }
    // What no rule matches goes at once, and for good.
    MOX_ASSERT(!out.hitsNone);
    out.hitsNone = true;
    std::vector<Bdd> all;
    all.reserve(rule_.size());
    for (size_t i = 0; i < rule_.size(); ++i)
      if (!(without && without->has(rule_[i].index))) all.push_back(region & matchedAt(i));
    region = Bdd::anyOf(std::move(all));
  }
  out.others.assign(others.begin(), others.end());
  return out;
} catch (std::runtime_error const&) {
  // The table of the diagrams is full.
  return {Answer::undecided, std::nullopt, {}, false};
}

ExactStudy::Search ExactStudy::decidedBy(AceIndex rule) try {
  size_t const place = placeOf(rule);
  if (auto const packet =
          drawn(place, [&](Packet const& p) { return oracle_.firstMatch(p) == rule; }))
    return {Answer::yes, packet, {}, false};
  Bdd region = matchedAt(place);
  Search out = searchFrom(
      region, [&](auto const decider) { return decider == rule; }, std::nullopt, place);
  if (out.found == Answer::no) leaveOnlyNeeded(matchedAt(place), out.others);
  return out;
} catch (std::runtime_error const&) {
  return {Answer::undecided, std::nullopt, {}, false};
}

ExactStudy::Search ExactStudy::missedWithout(AceIndex rule, RuleSpan const& without) try {
  MOX_ASSERT(without.has(rule));
  size_t const place = placeOf(rule);
  Naxel::NaxelActionValue const& action = rule_[place].config->action();
  Wanted const differs = [&](std::optional<AceIndex> decider) {
    if (!decider) return true;
    return rule < *decider && !(rule_[placeOf(*decider)].config->action() == action);
  };
  auto const isMissed = [&](Packet const& p) {
    auto const with = oracle_.firstMatch(p);
    return with && without.has(*with) && differs(oracle_.firstMatch(p, without));
  };
  if (auto const packet = drawn(place, isMissed)) return {Answer::yes, packet, {}, false};
  Bdd region = matchedAt(place);
  return searchFrom(region, differs, without, place + 1);
} catch (std::runtime_error const&) {
  return {Answer::undecided, std::nullopt, {}, false};
}

void ExactStudy::leaveOnlyNeeded(Bdd const& region, std::vector<AceIndex>& rules) {
  if (rules.size() > reducible) return;
  // One that does it alone is the best explanation.
  for (AceIndex const rule : rules)
    if ((region - matched(rule)).isFalse()) {
      rules = {rule};
      return;
    }
  // The later ones go first: people look for the cause at the top.
  for (size_t at = rules.size(); at-- > 0;) {
    Bdd rest = region;
    for (size_t i = 0; i < rules.size(); ++i)
      if (i != at) rest = rest - matched(rules[i]);
    if (rest.isFalse()) rules.erase(rules.begin() + static_cast<ptrdiff_t>(at));
  }
}

}  // namespace Verify
