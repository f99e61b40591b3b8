#pragma once

/// Makes whole sets cheaper by exchanging labels, once every label has a value.
///
/// Idea. Each set is arranged by itself, so a later set that has labels of several of them is one or
/// more pairs in each, although LabelMerger joins pairs wherever they differ in one bit alone. So
/// for two pairs of a set with the same stars, the labels of the one change places with those that
/// would make the two join, if these belong to the same set; the exchange stands if the sum over all
/// sets falls.
///
/// Example. A set has the values 1 and 6, of different blocks, 4 to 7 the second. If 6 and 5 change
/// places, it is one pair: 1 and 5 differ in one bit.
///
/// Invariants. A label stays within the values of its owner, the first set that has it. The price
/// only falls.
///
/// Bounds. The steps that the counter of pairs and the search take are counted, and the search ends
/// with the number allowed, or when a whole round has found nothing.

#include "naxel/encoder/PairCounter.h"

#include <cstdint>
#include <span>
#include <vector>

namespace Naxel {

class NAXEL_EXPORT LabelExchange {
 public:
  /// `owner` says for each label, numbered from 0, to which set it belongs.
  LabelExchange(std::span<uint32_t const> owner, PairCounter& counter);

  /// Adds a set: `owned` by which number it owns labels, the labels that it does not own, the blocks
  /// of those that it does, and what a pair of it costs.
  void add(uint32_t owned, std::span<uint16_t const> labels,
           std::span<PairCounter::Pair const> blocks, uint64_t weight);

  /// The price of these values of the labels.
  uint64_t priceOf(std::span<uint16_t const> values);
  /// What no values can go below.
  uint64_t leastPrice() const { return leastPrice_; }
  /// Exchanges until nothing is gained or `maxSteps` are taken; returns the price then.
  uint64_t improve(std::vector<uint16_t>& values, uint64_t maxSteps);

 private:
  struct Set {
    uint32_t owned;
    uint32_t labelsFrom;
    uint32_t blocksFrom;
    uint32_t least;
    uint64_t weight;
    uint32_t pairs = 0;
  };

  std::span<uint16_t const> labelsOf(size_t set) const;
  std::span<PairCounter::Pair const> blocksOf(size_t set) const;
  std::span<uint16_t const> valuesOf(size_t set, std::span<uint16_t const> values);
  void indexSets();
  bool improveSet(uint32_t set, std::vector<uint16_t>& values);
  bool improvePair(uint32_t set, PairCounter::Pair moved, std::span<PairCounter::Pair const> pairs,
                   std::vector<uint16_t>& values);
  bool tryExchange(uint32_t set, PairCounter::Pair pair, uint16_t difference,
                   std::vector<uint16_t>& values);
  bool collectExchange(PairCounter::Pair pair, uint16_t difference);
  void exchange(std::vector<uint16_t>& values);
  bool exhausted() const { return counter_.steps() + steps_ >= lastStep_; }

  static constexpr uint32_t noLabel = ~uint32_t{0};

  std::span<uint32_t const> owner_;
  PairCounter& counter_;
  std::vector<Set> sets_;
  std::vector<uint16_t> labels_;
  std::vector<PairCounter::Pair> blocks_;
  uint64_t leastPrice_ = 0;
  std::vector<uint32_t> setsOf_;      // of each label, one after another
  std::vector<uint32_t> setsOfFrom_;  // of each label, and the end
  std::vector<uint32_t> labelAt_;     // of each value
  std::vector<uint16_t> scratch_;
  std::vector<std::pair<uint16_t, uint16_t>> moves_;  // labels that change places
  std::vector<uint32_t> affected_;
  std::vector<uint32_t> seen_;  // the number of the trial that has last seen a set
  std::vector<uint32_t> newPairs_;
  uint32_t trial_ = 0;
  uint64_t steps_ = 0;
  uint64_t lastStep_ = 0;
};

}  // namespace Naxel
