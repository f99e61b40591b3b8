#include "naxel/encoder/PairMerge.h"

#include <algorithm>
#include <iterator>

namespace Naxel {

namespace {

/// A pair in plain numbers.
struct Pair {
  uint16_t label;
  uint16_t mask;
  auto operator<=>(Pair const&) const = default;
};
using Pairs = std::vector<Pair>;

void sortUnique(Pairs& pairs) {
  std::sort(pairs.begin(), pairs.end());
  pairs.erase(std::unique(pairs.begin(), pairs.end()), pairs.end());
}

/// Merges pairs of `bitWidth` bits; input and output are sets, in any order.
Pairs mergePairs(uint32_t bitWidth, Pairs in) {
  if (bitWidth == 0 || in.size() <= 1) return in;
  Pairs x;     // bit 0 is ignored
  Pairs one;   // bit 0 must be 1
  Pairs zero;  // bit 0 must be 0
  for (Pair const& p : in) {
    Pair const reduced{static_cast<uint16_t>(p.label >> 1), static_cast<uint16_t>(p.mask >> 1)};
    (!(p.mask & 1) ? x : p.label & 1 ? one : zero).push_back(reduced);
  }
  // Given back before the recursion, which would keep the input of every level otherwise.
  Pairs(std::move(in)).clear();
  for (Pairs* list : {&one, &zero}) sortUnique(*list);
  // What stands in both differs in bit 0 alone.
  std::set_intersection(one.begin(), one.end(), zero.begin(), zero.end(), std::back_inserter(x));
  Pairs onlyOne;
  Pairs onlyZero;
  std::set_difference(one.begin(), one.end(), zero.begin(), zero.end(),
                      std::back_inserter(onlyOne));
  std::set_difference(zero.begin(), zero.end(), one.begin(), one.end(),
                      std::back_inserter(onlyZero));
  sortUnique(x);

  Pairs out;
  auto const rebuild = [&](Pairs const& merged, uint16_t labelBit, uint16_t maskBit) {
    for (Pair const& p : merged)
      out.push_back({static_cast<uint16_t>(p.label << 1 | labelBit),
                     static_cast<uint16_t>(p.mask << 1 | maskBit)});
  };
  rebuild(mergePairs(bitWidth - 1, std::move(x)), 0, 0);
  rebuild(mergePairs(bitWidth - 1, std::move(onlyOne)), 1, 1);
  rebuild(mergePairs(bitWidth - 1, std::move(onlyZero)), 0, 1);
  return out;
}

uint32_t fullMask(uint32_t bitWidth) { return (uint32_t{1} << bitWidth) - 1; }

/// Whether the pairs, in the order of their labels, are aligned blocks that do not overlap.
/// A pair with other ignored bits than the lowest, or two pairs that overlap, are not told apart by their
/// lowest value.
bool areDisjointBlocks(uint32_t bitWidth, std::span<EncodedLabelWithMask const> pairs) {
  uint32_t free = 0;  // the first value behind the pairs so far
  for (EncodedLabelWithMask const& e : pairs) {
    uint32_t const ignored = ~uint32_t{e.mask().value()} & fullMask(bitWidth);
    if (ignored & (ignored + 1)) return false;
    if (e.label().value() < free || (e.label().value() & ignored)) return false;
    free = e.label().value() + ignored + 1;
  }
  // A block of all values would have no value for "no pair begins here".
  return free <= fullMask(bitWidth);
}

}  // namespace

std::vector<EncodedLabelWithMask> mergedPairs(uint32_t bitWidth,
                                              std::span<EncodedLabelWithMask const> in,
                                              PairCounter* scratch) {
  uint32_t const full = fullMask(bitWidth);
  std::vector<EncodedLabelWithMask> out;
  if (scratch && areDisjointBlocks(bitWidth, in)) {
    std::vector<PairCounter::Pair> blocks;
    blocks.reserve(in.size());
    for (EncodedLabelWithMask const& e : in)
      blocks.push_back({e.label().value(), static_cast<uint16_t>(~e.mask().value() & full)});
    std::span<PairCounter::Pair const> const merged = scratch->merge({}, blocks);
    out.reserve(merged.size());
    for (PairCounter::Pair const& p : merged)
      out.emplace_back(p.lowest, static_cast<uint16_t>(~p.ignored & full));
    return out;
  }
  Pairs pairs;
  pairs.reserve(in.size());
  for (EncodedLabelWithMask const& e : in) pairs.push_back({e.label().value(), e.mask().value()});
  for (Pair const& p : mergePairs(bitWidth, std::move(pairs))) out.emplace_back(p.label, p.mask);
  return out;
}

}  // namespace Naxel
