#include "answers/RuleMerging.h"

#include "input/Intervals.h"

#include <optional>
#include <unordered_set>

namespace NaxelTool {

namespace {

using Naxel::IpPrefixList;
using Naxel::RangeSetType;
using Naxel::RuleConfig;
using Naxel::RuleFilter;

/// A field in which two rules differ that can be one in it.
struct Difference {
  enum class Kind : uint8_t { none, source, destination, values };
  Kind kind = Kind::none;
  RangeSetType type = RangeSetType::rangeSetMax;

  std::string name() const {
    if (kind == Kind::values) return std::string(Naxel::rangeField(type).name);
    return kind == Kind::source ? "source" : "destination";
  }
  friend bool operator==(Difference const&, Difference const&) = default;
};

/// Null is a list of all addresses.
bool areEqual(Mox::Ptr<IpPrefixList> const& a, Mox::Ptr<IpPrefixList> const& b) {
  return a == b || (a && b && a->isEqual(*b));
}

/// Lists whose prefixes can stand in one list: the exceptions of both are those of the other.
bool areJoinable(IpPrefixList const* a, IpPrefixList const* b) {
  if (!a || !b || a->exceptAddrs() != b->exceptAddrs()) return false;
  for (auto const& p : a->exceptAddr())
    if (!b->exceptAddrHas(p)) return false;
  return true;
}

std::array<IntervalSet, Naxel::rangeFieldCount> valuesOfFields(RuleFilter const& filter) {
  std::array<IntervalSet, Naxel::rangeFieldCount> out;
  filter.forEachRangeColl([&](RangeSetType type, auto const& ranges) {
    out[static_cast<size_t>(type)] = valuesOf(ranges);
  });
  return out;
}

/// None where the rules differ in more than one field, or in what cannot be one.
std::optional<Difference> onlyDifference(RuleConfig const& a, RuleConfig const& b) {
  auto const& f = a.ruleFilter();
  auto const& g = b.ruleFilter();
  if (!f || !g || !(a.action() == b.action()) || a.continueRule() || b.continueRule() ||
      f->matchTcpInit() != g->matchTcpInit() ||
      f->matchTcpEstablished() != g->matchTcpEstablished())
    return std::nullopt;
  std::vector<Difference> all;
  auto const before = valuesOfFields(*f);
  auto const behind = valuesOfFields(*g);
  for (RangeSetType const type : Naxel::allRangeSetTypes()) {
    auto const at = static_cast<size_t>(type);
    if (before[at] == behind[at]) continue;
    // No ranges are all values.
    if (before[at].empty() || behind[at].empty()) return std::nullopt;
    all.push_back({Difference::Kind::values, type});
  }
  if (all.size() > 1) return std::nullopt;
  for (bool source : {true, false}) {
    auto const& one = source ? f->source() : f->destination();
    auto const& other = source ? g->source() : g->destination();
    if (areEqual(one, other)) continue;
    if (!all.empty() || !areJoinable(one.get(), other.get())) return std::nullopt;
    all.push_back({source ? Difference::Kind::source : Difference::Kind::destination});
  }
  return all.empty() ? Difference() : all.front();
}

class Merging {
 public:
  explicit Merging(Naxel::AclConfig& acl) : acl_(acl) {}

  std::vector<MergedRule> run(EntryOf const& entryOf) {
    std::vector<MergedRule> out;
    Entry const* last = nullptr;
    std::vector<Entry> const all = entries(entryOf);
    for (Entry const& entry : all) {
      auto const difference = last ? differenceOf(*last, entry) : std::nullopt;
      if (!difference || difference->kind == Difference::Kind::none) {
        last = &entry;
        continue;
      }
      for (size_t i = 0; i < entry.size(); ++i) {
        RuleFilter& to = *acl_.ruleById((*last)[i])->ruleFilter();
        auto const rule = acl_.ruleById(entry[i]);
        join(to, *rule->ruleFilter(), *difference);
        out.push_back({entry[i], (*last)[i], difference->name()});
        acl_.ruleByNameDel(std::string(rule->name()));
      }
    }
    return out;
  }

 private:
  using Entry = std::vector<Naxel::AceIndex>;

  std::vector<Entry> entries(EntryOf const& entryOf) const {
    std::vector<Entry> out;
    for (auto const& [index, rule] : acl_.ruleById()) {
      if (out.empty() || !entryOf || entryOf(out.back().back()) != entryOf(index))
        out.emplace_back();
      out.back().push_back(index);
    }
    return out;
  }

  /// The one field in which the rules of two entries differ, if they can be one in it.
  std::optional<Difference> differenceOf(Entry const& a, Entry const& b) const {
    if (a.size() != b.size()) return std::nullopt;
    Difference out;
    for (size_t i = 0; i < a.size(); ++i) {
      RuleConfig const& first = *acl_.ruleById(a[i]);
      if (!(first.action() == acl_.ruleById(a.front())->action())) return std::nullopt;
      auto const here = onlyDifference(first, *acl_.ruleById(b[i]));
      if (!here) return std::nullopt;
      if (here->kind == Difference::Kind::none) continue;
      if (out.kind != Difference::Kind::none && !(out == *here)) return std::nullopt;
      out = *here;
    }
    return out;
  }

  /// One of an entry's rules may be the same in both entries.
  void join(RuleFilter& to, RuleFilter const& from, Difference const& difference) {
    switch (difference.kind) {
      case Difference::Kind::none: return;
      case Difference::Kind::source:
        if (from.source()) to.sourceIs(joined(to.source(), *from.source()));
        return;
      case Difference::Kind::destination:
        if (from.destination()) to.destinationIs(joined(to.destination(), *from.destination()));
        return;
      case Difference::Kind::values: return joinValues(to, from, difference.type);
    }
  }

  /// Other rules may have the list as well, so that a copy of it grows.
  Mox::Ptr<IpPrefixList> joined(Mox::Ptr<IpPrefixList> const& to, IpPrefixList const& from) {
    if (to->isEqual(from)) return to;
    Mox::Ptr<IpPrefixList> out = own_.contains(to.get()) ? to : to->copy();
    own_.insert(out.get());
    for (auto const& p : from.addr()) out->addrIs(p);
    return out;
  }

  static void joinValues(RuleFilter& to, RuleFilter const& from, RangeSetType type) {
    auto const at = static_cast<size_t>(type);
    IntervalSet all = valuesOfFields(to)[at];
    IntervalSet const more = valuesOfFields(from)[at];
    all.insert(all.end(), more.begin(), more.end());
    std::vector<std::pair<uint32_t, uint32_t>> ranges;
    to.forEachRangeColl([&](RangeSetType of, auto const& coll) {
      if (of == type)
        for (auto const& r : coll) ranges.emplace_back(r.rangeStart(), r.rangeEnd());
    });
    for (auto const& [first, last] : ranges) to.rangeDel(type, first, last);
    for (Interval const& i : united(std::move(all)))
      to.rangeIs(type, static_cast<uint32_t>(i.first), static_cast<uint32_t>(i.last));
  }

  Naxel::AclConfig& acl_;
  std::unordered_set<IpPrefixList const*> own_;
};

}  // namespace

std::vector<MergedRule> mergeNeighbours(Naxel::AclConfig& acl, EntryOf const& entryOf) {
  return Merging(acl).run(entryOf);
}

}  // namespace NaxelTool
