#pragma once

/// Random prefixes that lie as those of real filters do: most below few others, and nested.

#include "lumox/IpGenPrefix.h"
#include "verify/Random.h"

#include <utility>
#include <vector>

namespace NaxelTool {

/// An infinite binary tree in which every node favours one of its two sides. Which one, and how much,
/// hangs on the seed and the way to the node alone, so walks keep meeting: short prefixes come to lie
/// above long ones. Prefixes are handled as their leading 64 bits, left-aligned.
class PrefixTree {
 public:
  /// The favoured side is taken in `least` percent of all cases or more, down to a depth of `knee`
  /// bits; below, both sides are nearly alike.
  PrefixTree(uint64_t seed, unsigned least, unsigned knee)
      : seed_(Mox::mix64(seed)), least_(least), knee_(knee) {}

  /// Walks from a node of depth `from` to one of depth `to`, at most 64.
  uint64_t extend(Verify::Random& random, uint64_t bits, unsigned from, unsigned to) const;

 private:
  uint64_t seed_;
  unsigned least_;
  unsigned knee_;
};

/// Values with weights.
template <class T>
class Weighted {
 public:
  Weighted(std::initializer_list<std::pair<T, unsigned>> choices) : choices_(choices) {
    for (auto const& [value, weight] : choices_) sum_ += weight;
  }
  T draw(Verify::Random& random) const {
    uint64_t at = random.below(sum_);
    for (auto const& [value, weight] : choices_) {
      if (at < weight) return value;
      at -= weight;
    }
    return choices_.back().first;
  }

 private:
  std::vector<std::pair<T, unsigned>> choices_;
  uint64_t sum_ = 0;
};

/// A member of a list that is not empty, the first ones more often: the first half three times as
/// often as the second.
template <class T>
T const& oftenEarly(Verify::Random& random, std::vector<T> const& list) {
  uint64_t const bound = random.below(list.size()) + 1;
  return list[random.below(bound)];
}

}  // namespace NaxelTool
