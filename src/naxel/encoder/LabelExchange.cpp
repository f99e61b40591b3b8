#include "naxel/encoder/LabelExchange.h"

#include <algorithm>
#include <bit>

namespace Naxel {

LabelExchange::LabelExchange(std::span<uint32_t const> owner, PairCounter& counter)
    : owner_(owner), counter_(counter) {}

void LabelExchange::add(uint32_t owned, std::span<uint16_t const> labels,
                        std::span<PairCounter::Pair const> blocks, uint64_t weight) {
  auto count = static_cast<uint32_t>(labels.size());
  for (PairCounter::Pair const& block : blocks) count += 1u << std::popcount(block.ignored);
  auto const least = static_cast<uint32_t>(std::popcount(count));
  sets_.push_back({owned, static_cast<uint32_t>(labels_.size()),
                   static_cast<uint32_t>(blocks_.size()), least, weight});
  labels_.insert(labels_.end(), labels.begin(), labels.end());
  blocks_.insert(blocks_.end(), blocks.begin(), blocks.end());
  leastPrice_ += weight * least;
}

std::span<uint16_t const> LabelExchange::labelsOf(size_t set) const {
  size_t const end = set + 1 < sets_.size() ? sets_[set + 1].labelsFrom : labels_.size();
  return std::span(labels_).subspan(sets_[set].labelsFrom, end - sets_[set].labelsFrom);
}

std::span<PairCounter::Pair const> LabelExchange::blocksOf(size_t set) const {
  size_t const end = set + 1 < sets_.size() ? sets_[set + 1].blocksFrom : blocks_.size();
  return std::span(blocks_).subspan(sets_[set].blocksFrom, end - sets_[set].blocksFrom);
}

std::span<uint16_t const> LabelExchange::valuesOf(size_t set, std::span<uint16_t const> values) {
  scratch_.clear();
  for (uint16_t label : labelsOf(set)) scratch_.push_back(values[label]);
  return scratch_;
}

uint64_t LabelExchange::priceOf(std::span<uint16_t const> values) {
  uint64_t price = 0;
  for (size_t s = 0; s < sets_.size(); ++s) {
    sets_[s].pairs = counter_.count(valuesOf(s, values), blocksOf(s));
    price += sets_[s].weight * sets_[s].pairs;
  }
  return price;
}

void LabelExchange::indexSets() {
  setsOfFrom_.assign(owner_.size() + 1, 0);
  for (uint16_t label : labels_) ++setsOfFrom_[label + size_t{1}];
  for (size_t i = 0; i < owner_.size(); ++i) setsOfFrom_[i + 1] += setsOfFrom_[i];
  setsOf_.resize(labels_.size());
  std::vector<uint32_t> to(setsOfFrom_.begin(), setsOfFrom_.end() - 1);
  for (uint32_t s = 0; s < sets_.size(); ++s)
    for (uint16_t label : labelsOf(s)) setsOf_[to[label]++] = s;
}

uint64_t LabelExchange::improve(std::vector<uint16_t>& values, uint64_t maxSteps) {
  uint64_t price = priceOf(values);
  if (price == leastPrice_) return price;
  lastStep_ = counter_.steps() + steps_ + maxSteps;
  indexSets();
  labelAt_.assign(size_t{1} << 16, noLabel);
  for (uint32_t label = 0; label < values.size(); ++label) labelAt_[values[label]] = label;
  seen_.assign(sets_.size(), 0);
  for (bool improved = true; improved && !exhausted();) {
    improved = false;
    for (uint32_t s = 0; s < sets_.size() && !exhausted(); ++s)
      if (sets_[s].pairs > sets_[s].least && improveSet(s, values)) improved = true;
  }
  price = 0;
  for (Set const& set : sets_) price += set.weight * set.pairs;
  return price;
}

bool LabelExchange::improveSet(uint32_t set, std::vector<uint16_t>& values) {
  std::vector<PairCounter::Pair> pairs;
  auto const refresh = [&] {
    auto const found = counter_.merge(valuesOf(set, values), blocksOf(set));
    pairs.assign(found.begin(), found.end());
    std::sort(pairs.begin(), pairs.end(), [](auto const& a, auto const& b) {
      return a.ignored != b.ignored ? a.ignored < b.ignored : a.lowest < b.lowest;
    });
  };
  refresh();
  bool improved = false;
  for (size_t i = 0; i < pairs.size() && !exhausted(); ++i) {
    if (!improvePair(set, pairs[i], pairs, values)) continue;
    improved = true;
    if (sets_[set].pairs == sets_[set].least) break;
    refresh();
  }
  return improved;
}

bool LabelExchange::improvePair(uint32_t set, PairCounter::Pair moved,
                                std::span<PairCounter::Pair const> pairs,
                                std::vector<uint16_t>& values) {
  uint32_t const label = labelAt_[moved.lowest];
  if (label == noLabel || owner_[label] == sets_[set].owned) return false;
  auto const fewerIgnored = [](auto const& a, auto const& b) { return a.ignored < b.ignored; };
  auto const [from, to] = std::equal_range(pairs.begin(), pairs.end(), moved, fewerIgnored);
  for (auto const& fixed : std::span(from, to)) {
    if (fixed.lowest == moved.lowest) continue;
    if (++steps_; exhausted()) return false;
    for (uint32_t bit = 1; bit < labelAt_.size(); bit <<= 1) {
      if (moved.ignored & bit) continue;
      auto const place = static_cast<uint16_t>(fixed.lowest ^ bit);
      uint32_t const other = labelAt_[place];
      if (other == noLabel || owner_[other] != owner_[label]) continue;
      if (tryExchange(set, moved, static_cast<uint16_t>(place ^ moved.lowest), values)) return true;
    }
  }
  return false;
}

bool LabelExchange::collectExchange(PairCounter::Pair pair, uint16_t difference) {
  moves_.clear();
  uint32_t const first = labelAt_[pair.lowest];
  uint32_t const ignored = pair.ignored;
  for (uint32_t bits = ignored;; bits = (bits - 1) & ignored) {
    uint32_t const a = labelAt_[pair.lowest | bits];
    uint32_t const b = labelAt_[(pair.lowest | bits) ^ difference];
    if (a == noLabel || b == noLabel || owner_[a] != owner_[first] || owner_[b] != owner_[first])
      return false;
    moves_.emplace_back(static_cast<uint16_t>(a), static_cast<uint16_t>(b));
    if (bits == 0) return true;
  }
}

void LabelExchange::exchange(std::vector<uint16_t>& values) {
  for (auto const& [a, b] : moves_) {
    std::swap(values[a], values[b]);
    std::swap(labelAt_[values[a]], labelAt_[values[b]]);
  }
}

bool LabelExchange::tryExchange(uint32_t set, PairCounter::Pair pair, uint16_t difference,
                                std::vector<uint16_t>& values) {
  if (!collectExchange(pair, difference)) return false;
  ++trial_;
  affected_.clear();
  auto const affect = [&](uint32_t s) {
    if (seen_[s] == trial_) return;
    seen_[s] = trial_;
    affected_.push_back(s);
  };
  affect(set);
  for (auto const& [a, b] : moves_)
    for (uint32_t label : {uint32_t{a}, uint32_t{b}})
      for (uint32_t i = setsOfFrom_[label]; i < setsOfFrom_[label + 1]; ++i) affect(setsOf_[i]);
  steps_ += affected_.size() + moves_.size();
  // Of a set that is not yet counted one pair is hoped for; without hope the trial ends.
  auto const hope = [&](Set const& s) {
    return s.pairs > s.least ? static_cast<int64_t>(s.weight) : int64_t{0};
  };
  int64_t gain = 0;
  for (uint32_t s : affected_) gain += hope(sets_[s]);
  exchange(values);
  newPairs_.clear();
  for (uint32_t s : affected_) {
    Set const& old = sets_[s];
    newPairs_.push_back(counter_.count(valuesOf(s, values), blocksOf(s)));
    gain += static_cast<int64_t>(old.weight) * (int64_t{old.pairs} - newPairs_.back()) - hope(old);
    bool const worse = newPairs_.size() == 1 && newPairs_[0] >= old.pairs;
    if (worse || gain <= 0) {
      exchange(values);
      return false;
    }
  }
  for (size_t i = 0; i < affected_.size(); ++i) sets_[affected_[i]].pairs = newPairs_[i];
  return true;
}

}  // namespace Naxel
