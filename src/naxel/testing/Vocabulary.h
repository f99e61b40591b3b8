#pragma once

/// Random pieces of configurations, drawn from so few values that rules, sets and edges collide.

#include "naxel/loader/HwCapability.h"
#include "naxel/types/AclConfig.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace Naxel::Testing {

/// Where choices come from: a seed, or the bytes that a fuzzer offers.
class Dice {
 public:
  explicit Dice(uint64_t seed);
  /// Two bytes a choice; every choice is 0 once they are used up.
  explicit Dice(std::span<uint8_t const> bytes);

  /// 0..n-1, for n > 0.
  uint64_t below(uint64_t n) { return below_(n); }
  uint64_t between(uint64_t first, uint64_t last) { return first + below(last - first + 1); }
  bool oneIn(uint64_t n) { return below(n) == 0; }
  template <class T>
  T const& of(std::vector<T> const& list) {
    return list[below(list.size())];
  }

 private:
  std::function<uint64_t(uint64_t)> below_;
};

/// Texts in the form that addRules() reads.
class Vocabulary {
 public:
  explicit Vocabulary(Dice& dice) : dice_(dice) {}

  /// Three bits below a fixed byte, cut at lengths 8 to 11, now and then with host bits, a single
  /// address or everything.
  std::string prefix(Lumox::AddressFamily af);
  /// Up to three prefixes and some exceptions, at least one of either.
  std::string list(Lumox::AddressFamily af);
  /// One to three ranges, low or close to the bound, often touching or overlapping.
  std::string ranges(uint32_t bound);
  /// Everything behind the name of a rule; perhaps nothing.
  std::string filter(Lumox::AddressFamily af);

 private:
  Dice& dice_;
};

/// Every width: up to 16 bits where there is room, else one to four; none for some ranges and combinations.
void drawWidths(Dice& dice, ChipHwCapability& capability, bool roomy, uint64_t room = 16);
/// One to three small ACLs of either family.
void drawAcls(Dice& dice, AclConfigColl& acls);

}  // namespace Naxel::Testing
