#include "naxel/encoder/LabelLayout.h"

#include "mox/Assert.h"
#include "mox/Hash.h"
#include "naxel/encoder/LabelExchange.h"
#include "naxel/encoder/LabelPairing.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace Naxel {

namespace {

/// How many labels of shares are looked at at all. Beyond that the costliest sets decide alone.
constexpr size_t maxMembers = size_t{1} << 21;

/// Bounds of the searches, which take some nanoseconds per step: so many steps, and so many more for
/// each label of each set.
constexpr uint64_t searchSteps = 1'000'000;
constexpr uint64_t searchStepsPerLabel = 4;

}  // namespace

uint64_t LabelLayout::maxSteps() const { return searchSteps + searchStepsPerLabel * setLabels_; }

LabelLayout::LabelLayout(std::vector<Set> sets, uint32_t labelEnd, uint32_t bitWidth)
    : sets_(std::move(sets)), owner_(labelEnd, noOwner), number_(labelEnd), counter_(bitWidth) {
  newLabelsFrom_.reserve(sets_.size() + 1);
  uint32_t labels = 0;
  for (uint32_t i = 0; i < sets_.size(); ++i) {
    newLabelsFrom_.push_back(labels);
    for (PlainLabel l : sets_[i].labels) {
      if (owner_[l.value()] != noOwner) continue;
      owner_[l.value()] = i;
      number_[l.value()] = static_cast<uint16_t>(labels - newLabelsFrom_.back());
      ++labels;
    }
    setLabels_ += sets_[i].labels.size();
  }
  newLabelsFrom_.push_back(labels);
  MOX_ASSERT(labels <= 65536);
  values_.resize(labels);
  ascending_.resize(labels);
  blocksFrom_.reserve(sets_.size() + 1);
  blocksFrom_.push_back(0);
  collectShares();
}

void LabelLayout::collectShares() {
  struct Found {
    uint32_t owner;
    LabelShare share;
  };
  std::vector<Found> found;
  std::vector<uint32_t> count(sets_.size(), 0);  // by owner; then the end of its members
  std::vector<uint32_t> owners;
  sharesFrom_.assign(sets_.size() + 1, 0);
  for (uint32_t i = 0; i < sets_.size() && members_.size() < maxMembers; ++i) {
    Set const& set = sets_[i];
    if (set.uses == 0 || set.labels.size() < 2) continue;
    owners.clear();
    for (PlainLabel l : set.labels) {
      uint32_t const owner = owner_[l.value()];
      if (owner != i && count[owner]++ == 0) owners.push_back(owner);
    }
    for (uint32_t owner : owners) {
      uint32_t const size = count[owner];
      count[owner] = noOwner;
      // One label is one pair, and all of them are as many pairs in any order.
      if (size < 2 || size == newLabels(owner)) continue;
      auto const begin = static_cast<uint32_t>(members_.size());
      members_.resize(begin + size);
      found.push_back({owner, {begin, size, set.uses}});
      ++sharesFrom_[owner + 1];
      count[owner] = begin;
    }
    for (PlainLabel l : set.labels) {
      uint32_t const owner = owner_[l.value()];
      if (owner != i && count[owner] != noOwner) members_[count[owner]++] = number_[l.value()];
    }
    for (uint32_t owner : owners) count[owner] = 0;
  }
  for (size_t i = 0; i < sets_.size(); ++i) sharesFrom_[i + 1] += sharesFrom_[i];
  shares_.resize(found.size());
  std::vector<uint32_t> to(sharesFrom_.begin(), sharesFrom_.end() - 1);
  for (Found const& f : found) shares_[to[f.owner]++] = f.share;
}

std::span<LabelShare const> LabelLayout::sharesOf(size_t set) {
  std::span<LabelShare> const all(shares_.data() + sharesFrom_[set],
                                  sharesFrom_[set + 1] - sharesFrom_[set]);
  // Equal shares become one: the first in cost order takes the weight of the others.
  auto const labels = [&](uint32_t i) {
    return std::span(members_.data() + all[i].begin, all[i].size);
  };
  std::vector<uint32_t> sorted(all.size());
  for (uint32_t i = 0; i < all.size(); ++i) sorted[i] = i;
  std::sort(sorted.begin(), sorted.end(), [&](uint32_t a, uint32_t b) {
    if (all[a].size != all[b].size) return all[a].size < all[b].size;
    auto const x = labels(a);
    auto const y = labels(b);
    auto const [p, q] = std::mismatch(x.begin(), x.end(), y.begin());
    return p != x.end() ? *p < *q : a < b;
  });
  for (size_t i = 0, first = 0; i < sorted.size(); ++i) {
    if (i == first || !std::ranges::equal(labels(sorted[first]), labels(sorted[i]))) {
      first = i;
      continue;
    }
    all[sorted[first]].weight += all[sorted[i]].weight;
    all[sorted[i]].weight = 0;
  }
  auto const end =
      std::remove_if(all.begin(), all.end(), [](LabelShare const& s) { return s.weight == 0; });
  return {all.data(), static_cast<size_t>(end - all.begin())};
}

void LabelLayout::place(size_t set, std::span<Block const> blocks) {
  MOX_ASSERT(blocksFrom_.size() == set + 1);
  uint32_t const from = newLabelsFrom_[set];
  uint32_t const count = newLabels(set);
  uint32_t placed = 0;
  for (Block const& block : blocks) {
    for (uint32_t v = block.start; v <= block.end && placed < count; ++v)
      ascending_[from + placed++] = static_cast<uint16_t>(v);
    for (uint32_t v = block.start; v <= block.end;) {
      uint32_t size = std::bit_floor(block.end - v + 1);
      if (v) size = std::min(size, v & -v);
      blocks_.push_back({static_cast<uint16_t>(v), static_cast<uint16_t>(size - 1)});
      v += size;
    }
  }
  MOX_ASSERT(placed == count);
  blocksFrom_.push_back(static_cast<uint32_t>(blocks_.size()));
  std::span<uint16_t const> const values = std::span(ascending_).subspan(from, count);
  if (sharesFrom_[set] == sharesFrom_[set + 1]) {
    std::copy(values.begin(), values.end(), values_.begin() + from);
    return;
  }
  LabelOrder const order = bestOrder({values, sharesOf(set), members_});
  for (uint32_t i = 0; i < count; ++i) values_[from + order[i]] = values[i];
}

LabelOrder LabelLayout::bestOrder(LabelGroup const& group) {
  LabelOrder best(group.labels());
  for (uint32_t i = 0; i < best.size(); ++i) best[i] = static_cast<uint16_t>(i);
  uint64_t const least = leastPriceOf(group);
  uint64_t price = priceOf(group, best, counter_);
  auto const consider = [&](LabelOrder order) {
    uint64_t const other = priceOf(group, order, counter_, price);
    if (other >= price) return;
    price = other;
    best = std::move(order);
  };
  if (price == least) return best;
  LabelOrder const ascending = best;
  LabelSplit const split(group);
  consider(joinOrder(group, split));
  if (price == least) return best;
  consider(splitOrder(group, split));
  if (price == least) return best;
  for (LabelOrder const* base : {&ascending, &split.order()})
    if (pairingSteps_ < maxSteps())
      if (auto order = pairOrder(group, *base, maxSteps() - pairingSteps_, pairingSteps_))
        consider(std::move(*order));
  return best;
}

std::vector<uint32_t> LabelLayout::firstOfEqualSets() const {
  std::vector<std::pair<uint64_t, uint32_t>> hashed;
  for (uint32_t i = 0; i < sets_.size(); ++i) {
    if (sets_[i].labels.size() < 2) continue;
    uint64_t hash = 0;
    for (PlainLabel l : sets_[i].labels) hash = Mox::mix64(hash ^ l.value());
    hashed.emplace_back(hash, i);
  }
  std::sort(hashed.begin(), hashed.end());
  // Lists that differ in spite of equal hashes are taken for different ones of their own.
  std::vector<uint32_t> first(sets_.size());
  for (uint32_t i = 0; i < first.size(); ++i) first[i] = i;
  for (size_t i = 1; i < hashed.size(); ++i)
    if (hashed[i].first == hashed[i - 1].first &&
        std::ranges::equal(sets_[hashed[i].second].labels, sets_[hashed[i - 1].second].labels))
      first[hashed[i].second] = first[hashed[i - 1].second];
  return first;
}

void LabelLayout::finish() {
  MOX_ASSERT(blocksFrom_.size() == sets_.size() + 1);
  exchangeLabels();
  // Whatever the search has done: each set's new labels have exactly the values that it was given.
  std::vector<uint32_t> ownerAt(size_t{1} << 16, noOwner);
  auto const forEachLabel = [&](auto f) {
    for (uint32_t set = 0; set < sets_.size(); ++set)
      for (uint32_t i = newLabelsFrom_[set]; i < newLabelsFrom_[set + 1]; ++i) f(set, i);
  };
  forEachLabel([&](uint32_t set, uint32_t i) { ownerAt[ascending_[i]] = set; });
  forEachLabel([&](uint32_t set, uint32_t i) {
    MOX_ASSERT(std::exchange(ownerAt[values_[i]], noOwner) == set);
  });
}

void LabelLayout::exchangeLabels() {
  if (setLabels_ > maxMembers) return;
  std::vector<uint32_t> const first = firstOfEqualSets();
  std::vector<uint64_t> weight(sets_.size(), 0);
  for (size_t i = 0; i < sets_.size(); ++i) weight[first[i]] += sets_[i].uses;
  std::vector<uint32_t> owner(values_.size());
  for (uint32_t i = 0; i < sets_.size(); ++i)
    std::fill(owner.begin() + newLabelsFrom_[i], owner.begin() + newLabelsFrom_[i + 1], i);
  LabelExchange exchange(owner, counter_);
  std::vector<uint16_t> others;
  for (uint32_t i = 0; i < sets_.size(); ++i) {
    size_t const old = sets_[i].labels.size() - newLabels(i);
    if (weight[i] == 0 || old == 0 || sets_[i].labels.size() == 1) continue;
    others.clear();
    for (PlainLabel l : sets_[i].labels)
      if (owner_[l.value()] != i) others.push_back(static_cast<uint16_t>(labelOf(l)));
    exchange.add(i, others,
                 std::span(blocks_).subspan(blocksFrom_[i], blocksFrom_[i + 1] - blocksFrom_[i]),
                 weight[i]);
  }
  uint64_t const price = exchange.priceOf(values_);
  if (price == exchange.leastPrice()) return;
  if (exchange.priceOf(ascending_) <= price) values_ = ascending_;
  exchange.improve(values_, maxSteps());
}

}  // namespace Naxel
