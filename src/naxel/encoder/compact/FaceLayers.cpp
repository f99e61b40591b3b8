#include "naxel/encoder/compact/Faces.h"

#include <algorithm>
#include <limits>
#include <numeric>

/// Layers. A layer is a family of disjoint sets: some bits of the code say which of them an item lies in, or that it
/// lies in none. Each of them is a face then, whatever the other bits are, and so is what several layers
/// together pick out: where one layer holds the sets of an application and another those of a site, a set
/// of both costs nothing more. What is left of the code, the residue, tells apart items that have the same place in all
/// layers. The layer that brings the most weight for its bits comes first; its family is an independent set of the
/// sets that share items, gathered greedily by weight over conflicts from several starts.
///
/// Example. Four hosts, {1 2} {3 4} and {1 3} {2 4}: two layers of two sets, one bit each, since all hosts lie in a
/// set of either; every host and every set is a face, and no residue is left.
///
/// Cost. For each layer, as many passes over all members as there are starts, and members times sets / 64 for the
/// conflicts; families beyond a bound are left to insertion.

namespace Naxel::Compact {

namespace {

constexpr size_t starts = 12;
/// Which part of the weight the first layer must make faces where there are more sets than a few.
constexpr uint64_t leastPart = 16;
constexpr uint32_t smallFamily = 256;
/// Of the conflicts, in words.
constexpr size_t maxWork = size_t{1} << 19;

unsigned bitsFor(uint64_t values) { return static_cast<unsigned>(std::bit_width(values - 1)); }

/// Sorts by falling rank, and by number where that is equal.
template <class Rank>
void rank(std::vector<uint32_t>& sets, Rank rankOf) {
  std::vector<std::pair<uint64_t, uint32_t>> ranked;
  ranked.reserve(sets.size());
  for (uint32_t s : sets) ranked.emplace_back(~rankOf(s), s);
  std::ranges::sort(ranked);
  for (size_t i = 0; i < sets.size(); ++i) sets[i] = ranked[i].second;
}

class Layers {
 public:
  explicit Layers(FaceProblem const& problem)
      : problem_(problem),
        cell_(problem.items.size(), 0),
        values_(problem.items.size(), 0),
        setsOf_(problem.sets.transposed(static_cast<uint32_t>(problem.items.size()))) {
    for (uint32_t s = 0; s < problem.sets.size(); ++s) open_.push_back(s);
  }
  std::optional<Faces> solve();

 private:
  struct Family {
    std::vector<uint32_t> sets;
    unsigned bits = 0;
    unsigned residue = 0;  // afterwards
    uint64_t score = 0;
  };
  void findConflicts();
  uint64_t likeness(uint32_t a, uint32_t b) const;
  Family gather(std::span<uint32_t const> order);
  uint64_t largestCell(std::vector<uint32_t> const& sets);
  bool apply(Family const& family);
  bool isFace(uint32_t set) const;

  FaceProblem const& problem_;
  std::vector<uint32_t> open_;    // sets that are no faces yet
  std::vector<uint32_t> cell_;    // of each item: equal places in all layers
  std::vector<uint16_t> values_;  // of each item: its places in all layers, one behind the other
  uint32_t cells_ = 1;
  unsigned layerBits_ = 0;
  unsigned residue_ = 0;
  std::vector<uint16_t> masks_;  // of each layer in a value
  SetFamily setsOf_;
  std::vector<uint64_t> conflicts_;  // a row of bits for each set
  size_t words_ = 0;                 // of a row
  std::vector<uint32_t> taken_;
  std::vector<std::pair<uint64_t, uint32_t>> keys_;
};

/// Which open sets share items, and the open sets by weight over conflicts, the best first.
void Layers::findConflicts() {
  words_ = (problem_.sets.size() + 63) / 64;
  conflicts_.assign(words_ * problem_.sets.size(), 0);
  std::vector<bool> isOpen(problem_.sets.size(), false);
  for (uint32_t s : open_) isOpen[s] = true;
  std::vector<uint64_t> of(words_);
  for (uint32_t item = 0; item < problem_.items.size(); ++item) {
    std::fill(of.begin(), of.end(), 0);
    for (uint32_t s : setsOf_[item])
      if (isOpen[s]) of[s / 64] |= uint64_t{1} << s % 64;
    for (uint32_t s : setsOf_[item])
      if (isOpen[s])
        for (size_t w = 0; w < words_; ++w) conflicts_[s * words_ + w] |= of[w];
  }
  rank(open_, [this](uint32_t s) {
    uint64_t conflicts = 0;
    for (size_t w = 0; w < words_; ++w)
      conflicts += static_cast<uint64_t>(std::popcount(conflicts_[s * words_ + w]));
    return ((problem_.weights[s] + 1) << 16) / (conflicts + 1);
  });
}

/// How alike two sets are: what shares items with both, as a part of what does with either.
uint64_t Layers::likeness(uint32_t a, uint32_t b) const {
  uint64_t both = 0;
  uint64_t either = 0;
  for (size_t w = 0; w < words_; ++w) {
    uint64_t const x = conflicts_[a * words_ + w];
    uint64_t const y = conflicts_[b * words_ + w];
    both += static_cast<uint64_t>(std::popcount(x & y));
    either += static_cast<uint64_t>(std::popcount(x | y));
  }
  return (both << 16) / (either + 1);
}

uint64_t Layers::largestCell(std::vector<uint32_t> const& sets) {
  taken_.assign(problem_.items.size(), 0);
  for (uint32_t k = 0; k < sets.size(); ++k)
    for (uint32_t item : problem_.sets[sets[k]]) taken_[item] = k + 1;
  keys_.clear();
  for (uint32_t item = 0; item < cell_.size(); ++item)
    keys_.emplace_back(uint64_t{cell_[item]} << 32 | taken_[item],
                       uint32_t{1} << problem_.items[item]);
  std::sort(keys_.begin(), keys_.end());
  uint64_t largest = 0;
  for (size_t i = 0; i < keys_.size();) {
    uint64_t sum = 0;
    size_t j = i;
    for (; j < keys_.size() && keys_[j].first == keys_[i].first; ++j) sum += keys_[j].second;
    largest = std::max(largest, sum);
    i = j;
  }
  return largest;
}

/// The sets that are disjoint from all before them.
Layers::Family Layers::gather(std::span<uint32_t const> order) {
  Family family;
  std::vector<bool> taken(problem_.items.size(), false);
  uint64_t weight = 0;
  size_t members = 0;
  for (uint32_t s : order) {
    auto const items = problem_.sets[s];
    if (std::ranges::any_of(items, [&](uint32_t i) { return taken[i]; })) continue;
    for (uint32_t i : items) taken[i] = true;
    members += items.size();
    family.sets.push_back(s);
    weight += problem_.weights[s];
  }
  // Where everything lies in a set of the family, no value for "none" is needed.
  bool const whole = members == problem_.items.size();
  family.bits = bitsFor(family.sets.size() + (whole ? 0 : 1));
  family.residue = bitsFor(largestCell(family.sets));
  // Counted in halves of a bit, with one for nothing.
  unsigned const now = family.bits + family.residue;
  family.score = (weight << 6) / (now > residue_ ? 2 * (now - residue_) + 1 : 1);
  return family;
}

bool Layers::isFace(uint32_t set) const {
  auto const items = problem_.sets[set];
  uint16_t varies = 0;
  for (uint32_t i : items) varies |= static_cast<uint16_t>(values_[i] ^ values_[items[0]]);
  // A layer counts as a whole.
  uint16_t fixed = 0;
  for (uint16_t mask : masks_)
    if (!(varies & mask)) fixed |= mask;
  size_t inside = 0;
  for (uint32_t i = 0; i < values_.size(); ++i)
    inside += !((values_[i] ^ values_[items[0]]) & fixed);
  return inside == items.size();
}

bool Layers::apply(Family const& family) {
  largestCell(family.sets);
  bool const whole = std::none_of(taken_.begin(), taken_.end(), [](uint32_t t) { return t == 0; });
  std::vector<std::pair<uint64_t, uint32_t>> keys;
  for (uint32_t i = 0; i < cell_.size(); ++i)
    keys.emplace_back(uint64_t{cell_[i]} << 32 | taken_[i], i);
  std::sort(keys.begin(), keys.end());
  cells_ = 0;
  for (size_t i = 0; i < keys.size(); ++i) {
    if (i && keys[i].first != keys[i - 1].first) ++cells_;
    cell_[keys[i].second] = cells_;
  }
  ++cells_;
  for (uint32_t i = 0; i < values_.size(); ++i)
    values_[i] |= static_cast<uint16_t>((taken_[i] - whole) << layerBits_);
  masks_.push_back(static_cast<uint16_t>(((1u << family.bits) - 1) << layerBits_));
  layerBits_ += family.bits;
  size_t const before = open_.size();
  std::erase_if(open_, [this](uint32_t s) { return isFace(s); });
  return open_.size() < before;
}

std::optional<Faces> Layers::solve() {
  size_t const words = (open_.size() + 63) / 64;
  if ((problem_.sets.members() + open_.size()) * words > maxWork) return std::nullopt;
  while (!open_.empty()) {
    findConflicts();
    residue_ = bitsFor(largestCell({}));
    Family best;
    auto const consider = [&](std::span<uint32_t const> order) {
      Family family = gather(order);
      if (layerBits_ + family.bits + family.residue > problem_.bits) return;
      if (family.bits == 0 || family.score <= best.score) return;
      best = std::move(family);
    };
    consider(open_);
    std::vector<uint32_t> heaviest = open_;
    rank(heaviest, [this](uint32_t s) { return problem_.weights[s]; });
    std::vector<uint32_t> order = open_;
    for (size_t k = 0; k < std::min(starts, heaviest.size()); ++k) {
      rank(order,
           [&](uint32_t s) { return s == heaviest[k] ? ~uint64_t{0} : likeness(s, heaviest[k]); });
      consider(order);
    }
    if (best.sets.empty() || !apply(best)) break;
    // Sets without a system have few in common that are disjoint.
    uint64_t left = 0;
    for (uint32_t s : open_) left += problem_.weights[s];
    uint64_t const all = problem_.leastPrice();
    if (masks_.size() == 1 && problem_.sets.size() > smallFamily && left > all - all / leastPart)
      return std::nullopt;
  }
  unsigned const residue = bitsFor(largestCell({}));
  if (layerBits_ + residue > problem_.bits) return std::nullopt;
  std::vector<uint32_t> next(cells_, 0);
  std::vector<uint16_t> places;
  uint32_t const last = (1u << problem_.bits) - 1;
  for (uint32_t i = 0; i < values_.size(); ++i) {
    uint32_t const place = uint32_t{values_[i]} << residue | next[cell_[i]];
    next[cell_[i]] += uint32_t{1} << problem_.items[i];
    if (problem_.reservesLast && place + (uint32_t{1} << problem_.items[i]) > last)
      return std::nullopt;
    places.push_back(static_cast<uint16_t>(place));
  }
  return coveredFaces(problem_, std::move(places));
}

}  // namespace

std::optional<Faces> facesByLayers(FaceProblem const& problem) { return Layers(problem).solve(); }

}  // namespace Naxel::Compact
