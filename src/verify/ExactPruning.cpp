#include "verify/ExactPruning.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <set>
#include <stdexcept>

namespace Verify {

using Exact::RuleRow;
using Naxel::AceIndex;

namespace {

/// Packets that are drawn from a rule before anything is proved.
constexpr int drawnFromSpare = 24;
/// Explanations of more rules than these are not made smaller.
constexpr size_t reducibleReasons = 32;

class SpareSearch {
 public:
  SpareSearch(Naxel::AclConfig const& acl, uint64_t& effort)
      : row_(acl, Exact::Among::all), effort_(effort) {}

  SpareRules run(EntryOf const& entryOf) {
    SpareRules out;
    for (size_t end = row_.size(); end > 0;) {
      size_t first = end - 1;
      while (entryOf && first > 0 && areOne(entryOf, first - 1, end - 1)) --first;
      lookAt(first, end, out);
      end = first;
    }
    std::reverse(out.all.begin(), out.all.end());
    return out;
  }

 private:
  /// Whether a packet of the rule `place` that gets to `decider` without it is treated differently.
  bool isMissed(size_t place, size_t decider) const {
    if (decider == RuleRow::none) return true;
    return decider > place && !(*row_.action(decider) == *row_.action(place));
  }

  /// Rules of different actions are never one: what is asked of them speaks of one action.
  bool areOne(EntryOf const& entryOf, size_t a, size_t b) const {
    return entryOf(row_.index(a)) == entryOf(row_.index(b)) && *row_.action(a) == *row_.action(b);
  }

  /// Leaves the rules from `first` to before `end` out if all of them are spare together. A packet that several
  /// of them match is asked about with each, to the same end: their action is one.
  void lookAt(size_t first, size_t end, SpareRules& out) {
    std::vector<SpareRule> spare;
    bool stay = false;
    for (size_t i = first; i < end; ++i) {
      row_.leaveOutIs(i, true);
      stay = stay || row_.config(i).continueRule();
    }
    isUndecided_ = false;
    for (size_t i = end; i-- > first && !stay;) {
      auto found = examine(i);
      stay = !found;
      if (found) spare.push_back(std::move(*found));
    }
    if (stay) {
      for (size_t i = first; i < end; ++i) row_.leaveOutIs(i, false);
      out.undecided += isUndecided_ ? end - first : 0;
      return;
    }
    std::move(spare.begin(), spare.end(), std::back_inserter(out.all));
  }

  /// Why the rule, which is left out, is spare; none if it is not, or if that cannot be told.
  std::optional<SpareRule> examine(size_t place) try {
    Bdd region = row_.matched(place);
    if (region.isFalse()) return SpareRule{row_.index(place), SpareRule::Why::matchesNothing, {}};
    for (int i = 0; i < drawnFromSpare; ++i)
      if (auto const packet = row_.drawn(place))
        if (isMissed(place, row_.decider(*packet)) && row_.matches(place, *packet))
          return std::nullopt;
    std::set<size_t> before;
    std::set<size_t> behind;
    while (!region.isFalse()) {
      if (effort_ == 0) {
        isUndecided_ = true;
        return std::nullopt;
      }
      --effort_;
      size_t const decider = row_.decider(Exact::packetOf(row_.af(), region.somePoint()));
      if (isMissed(place, decider)) return std::nullopt;
      (decider < place ? before : behind).insert(decider);
      region =
          region - (decider < place ? row_.matched(decider) : takenOver(region, place, decider));
    }
    return explained(place, before, behind);
  } catch (std::runtime_error const&) {
    // The table of the diagrams is full.
    isUndecided_ = true;
    effort_ = 0;
    return std::nullopt;
  }

  /// What the rule behind matches in the region, without what a rule of another action in between takes.
  Bdd takenOver(Bdd const& region, size_t place, size_t behind) {
    Bdd out = region & row_.matched(behind);
    for (size_t i = place + 1; i < behind; ++i)
      if (!row_.isLeftOut(i) && isMissed(place, i) && row_.hull(i).meets(row_.hull(place)) &&
          row_.hull(i).meets(row_.hull(behind)))
        out = out - row_.matched(i);
    return out;
  }

  SpareRule explained(size_t place, std::set<size_t> const& before,
                      std::set<size_t> const& behind) {
    bool const decides = !behind.empty();
    std::set<size_t> const& rules = decides ? behind : before;
    std::vector<size_t> all(rules.begin(), rules.end());
    // Rules behind do it only where none before does, so there is nothing to choose from.
    if (!decides) leaveOnlyNeeded(row_.matched(place), all);
    SpareRule out{row_.index(place),
                  decides ? SpareRule::Why::sameWithout : SpareRule::Why::decidesNothing,
                  {}};
    out.because.reserve(all.size());
    for (size_t const i : all) out.because.push_back(row_.index(i));
    return out;
  }

  void leaveOnlyNeeded(Bdd const& region, std::vector<size_t>& rules) {
    if (rules.size() > reducibleReasons) return;
    for (size_t at = rules.size(); at-- > 0;) {
      Bdd rest = region;
      for (size_t i = 0; i < rules.size(); ++i)
        if (i != at) rest = rest - row_.matched(rules[i]);
      if (rest.isFalse()) rules.erase(rules.begin() + static_cast<ptrdiff_t>(at));
    }
  }

  RuleRow row_;
  uint64_t& effort_;
  bool isUndecided_ = false;
};

}  // namespace

SpareRules spareRules(Naxel::AclConfig const& acl, uint64_t& effort, EntryOf const& entryOf) {
  return SpareSearch(acl, effort).run(entryOf);
}

}  // namespace Verify
