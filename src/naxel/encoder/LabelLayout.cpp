#include "naxel/encoder/LabelLayout.h"

#include "mox/Assert.h"

#include <algorithm>
#include <numeric>

namespace Naxel {

namespace {

/// How many labels of shares are looked at at all. Beyond that the costliest sets decide alone.
constexpr size_t maxMembers = size_t{1} << 21;

}  // namespace

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
  }
  newLabelsFrom_.push_back(labels);
  MOX_ASSERT(labels <= 65536);
  values_.resize(labels);
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
  uint32_t const from = newLabelsFrom_[set];
  uint32_t const count = newLabels(set);
  uint32_t placed = 0;
  for (Block const& block : blocks) {
    for (uint32_t v = block.start; v <= block.end && placed < count; ++v)
      values_[from + placed++] = static_cast<uint16_t>(v);
  }
  MOX_ASSERT(placed == count);
  if (sharesFrom_[set] == sharesFrom_[set + 1]) return;
  std::vector<uint16_t> const values(values_.begin() + from, values_.begin() + from + count);
  LabelOrder const order = bestOrder({values, sharesOf(set), members_});
  for (uint32_t i = 0; i < count; ++i) values_[from + order[i]] = values[i];
}

LabelOrder LabelLayout::bestOrder(LabelGroup const& group) {
  LabelOrder ascending(group.labels());
  std::iota(ascending.begin(), ascending.end(), uint16_t{0});
  uint64_t const price = priceOf(group, ascending, counter_);
  if (price == leastPriceOf(group)) return ascending;
  LabelOrder joined = joinOrder(group);
  return priceOf(group, joined, counter_, price) < price ? joined : ascending;
}

}  // namespace Naxel
