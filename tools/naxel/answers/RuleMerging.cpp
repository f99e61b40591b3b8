#include "answers/RuleMerging.h"

#include "input/Intervals.h"

#include <optional>
#include <span>

namespace NaxelTool {

namespace {

using Naxel::AceIndex;
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

using FieldValues = std::array<IntervalSet, Naxel::rangeFieldCount>;

FieldValues valuesOfFields(RuleFilter const& filter) {
  FieldValues out;
  filter.forEachRangeColl([&](RangeSetType type, auto const& ranges) {
    out[static_cast<size_t>(type)] = valuesOf(ranges);
  });
  return out;
}

/// None where the rules differ in more than one field, or in what cannot be one.
/// `before` are the values of `a`.
std::optional<Difference> onlyDifference(RuleConfig const& a, FieldValues const& before,
                                         RuleConfig const& b) {
  auto const& f = a.ruleFilter();
  auto const& g = b.ruleFilter();
  if (!f || !g || !(a.action() == b.action()) || a.continueRule() || b.continueRule() ||
      f->matchTcpInit() != g->matchTcpInit() ||
      f->matchTcpEstablished() != g->matchTcpEstablished())
    return std::nullopt;
  std::vector<Difference> all;
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
  Merging(Naxel::AclConfig& acl, StaysAlone const& staysAlone)
      : acl_(acl), staysAlone_(staysAlone) {}

  std::vector<MergedRule> run(EntryOf const& entryOf) {
    std::vector<MergedRule> out;
    std::vector<Entry> const all = entries(entryOf);
    if (all.empty()) return out;
    begin(all.front());
    for (Entry const& entry : std::span(all).subspan(1)) {
      auto difference = differenceOf(*first_, entry);
      if (!joined_.empty() && !staysInField(difference)) {
        // As one rule it may still differ from the next one in another field alone.
        join();
        difference = differenceOf(*first_, entry);
      }
      if (!difference || (joined_.empty() && difference->kind == Difference::Kind::none)) {
        begin(entry);
        continue;
      }
      if (joined_.empty()) field_ = *difference;
      for (size_t i = 0; i < entry.size(); ++i) {
        auto const rule = acl_.ruleById(entry[i]);
        joined_.push_back(rule->ruleFilter());
        out.push_back({entry[i], (*first_)[i], field_.name()});
        acl_.ruleByNameDel(std::string(rule->name()));
      }
    }
    join();
    return out;
  }

 private:
  using Entry = std::vector<AceIndex>;

  bool isAlone(AceIndex rule) const { return staysAlone_ && staysAlone_(rule); }

  std::vector<Entry> entries(EntryOf const& entryOf) const {
    std::vector<Entry> out;
    for (auto const& [index, rule] : acl_.ruleById()) {
      if (out.empty() || !entryOf || isAlone(index) || entryOf(out.back().back()) != entryOf(index))
        out.emplace_back();
      out.back().push_back(index);
    }
    return out;
  }

  /// The one field in which the rules of two entries differ, if they can be one in it.
  std::optional<Difference> differenceOf(Entry const& a, Entry const& b) const {
    if (a.size() != b.size() || isAlone(a.front()) || isAlone(b.front())) return std::nullopt;
    Difference out;
    for (size_t i = 0; i < a.size(); ++i) {
      RuleConfig const& first = *acl_.ruleById(a[i]);
      if (!(first.action() == acl_.ruleById(a.front())->action())) return std::nullopt;
      auto const here = onlyDifference(first, values_[i], *acl_.ruleById(b[i]));
      if (!here) return std::nullopt;
      if (here->kind == Difference::Kind::none) continue;
      if (out.kind != Difference::Kind::none && !(out == *here)) return std::nullopt;
      out = *here;
    }
    return out;
  }

  bool staysInField(std::optional<Difference> const& difference) const {
    return difference && (difference->kind == Difference::Kind::none || *difference == field_);
  }
  void begin(Entry const& entry) {
    first_ = &entry;
    noteValues();
  }
  void noteValues() {
    values_.clear();
    values_.reserve(first_->size());
    for (AceIndex const rule : *first_) {
      auto const& filter = acl_.ruleById(rule)->ruleFilter();
      values_.push_back(filter ? valuesOfFields(*filter) : FieldValues());
    }
  }

  /// Gives the rules of the first entry what those that have been joined to them match: all at once, for what
  /// one of them has is small beside what they have together.
  void join() {
    if (joined_.empty()) return;
    for (size_t i = 0; i < first_->size(); ++i) {
      RuleFilter& to = *acl_.ruleById((*first_)[i])->ruleFilter();
      if (field_.kind == Difference::Kind::values)
        joinValues(to, i);
      else
        joinAddresses(to, i, field_.kind == Difference::Kind::source);
    }
    joined_.clear();
    noteValues();
  }

  /// Other rules may have the list as well, so that a copy of it grows.
  void joinAddresses(RuleFilter& to, size_t at, bool isSource) {
    auto const& list = isSource ? to.source() : to.destination();
    if (!list) return;
    Mox::Ptr<IpPrefixList> const all = list->copy();
    for (; at < joined_.size(); at += first_->size()) {
      RuleFilter const& from = *joined_[at];
      for (auto const& p : (isSource ? from.source() : from.destination())->addr()) all->addrIs(p);
    }
    // One of an entry's rules may be the same in all of them, and then keeps the list that others share.
    if (all->isEqual(*list)) return;
    if (isSource)
      to.sourceIs(all);
    else
      to.destinationIs(all);
  }

  void joinValues(RuleFilter& to, size_t at) {
    RangeSetType const type = field_.type;
    auto const field = static_cast<size_t>(type);
    IntervalSet all = values_[at][field];
    for (size_t i = at; i < joined_.size(); i += first_->size()) {
      IntervalSet const more = valuesOfFields(*joined_[i])[field];
      all.insert(all.end(), more.begin(), more.end());
    }
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
  StaysAlone const& staysAlone_;
  /// The entry that others are joined to, its values by rule and field, and the field in which they differ.
  Entry const* first_ = nullptr;
  std::vector<FieldValues> values_;
  Difference field_;
  std::vector<Mox::Ptr<RuleFilter>> joined_;  // of each entry as many as it has rules
};

}  // namespace

std::vector<MergedRule> mergeNeighbours(Naxel::AclConfig& acl, EntryOf const& entryOf,
                                        StaysAlone const& staysAlone) {
  return Merging(acl, staysAlone).run(entryOf);
}

}  // namespace NaxelTool
