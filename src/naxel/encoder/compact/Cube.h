#pragma once

/// Cubes of codes, and which codes are in use.
///
/// A cube is what one value/mask pair matches: the codes that agree with its value in all bits but the
/// don't-care bits. The words are those of two-level logic minimisation (Brayton et al., "Logic
/// Minimization Algorithms for VLSI Synthesis", 1984).

#include "mox/InlineVector.h"

#include <bit>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace Naxel::Compact {

/// How many bits are 1; std::popcount is a call where the processor may lack an instruction for it.
inline unsigned bitCount(uint16_t bits) {
  unsigned n = bits - (bits >> 1 & 0x5555u);
  n = (n & 0x3333u) + (n >> 2 & 0x3333u);
  n = (n + (n >> 4)) & 0x0f0fu;
  return (n + (n >> 8)) & 0x1fu;
}

struct Cube {
  uint16_t value = 0;  ///< 0 in the don't-care bits
  uint16_t free = 0;   ///< the don't-care bits

  bool contains(Cube c) const { return ((value ^ c.value) & ~free) == 0 && (c.free & ~free) == 0; }
  /// The number of codes, as a power of two.
  unsigned bits() const { return bitCount(free); }
  /// The same with further bits that do not matter.
  Cube freed(uint16_t more) const {
    return {static_cast<uint16_t>(value & ~more), static_cast<uint16_t>(free | more)};
  }
  /// The smallest cube that holds both.
  Cube joined(Cube c) const { return freed(static_cast<uint16_t>(c.free | (value ^ c.value))); }
  auto operator<=>(Cube const&) const = default;
};

/// The cubes of a set, of which most have one.
using CubeList = Mox::InlineVector<Cube, 4>;

/// The aligned block of 2^`bits` codes from `first` on.
inline Cube blockCube(uint32_t first, unsigned bits) {
  return {static_cast<uint16_t>(first), static_cast<uint16_t>((uint32_t{1} << bits) - 1)};
}

/// Calls `f(code)` for the lowest code of each aligned block of 2^`itemBits` codes in a cube, ascending, until it
/// says false.
template <class F>
void forEachCode(Cube cube, unsigned itemBits, F f) {
  uint32_t const high = cube.free >> itemBits << itemBits;
  uint32_t sub = 0;
  do {
    if (!f(cube.value | sub)) return;
    sub = (sub - high) & high;
  } while (sub);
}

/// What it takes to look which codes of a cube are in use: about the words that they lie in.
inline uint64_t stepsOfLook(Cube c) {
  return 1 + (uint64_t{1} << bitCount(static_cast<uint16_t>(c.free >> 6))) / 4;
}

/// A set of codes, a bit for each.
class CodeMap {
 public:
  explicit CodeMap(unsigned bits) : words_(((size_t{1} << bits) + 63) / 64) {}

  void insert(Cube c) {
    forEachWord(c, [this](size_t i, uint64_t mask) { return words_[i] |= mask, true; });
  }
  void erase(Cube c) {
    forEachWord(c, [this](size_t i, uint64_t mask) { return words_[i] &= ~mask, true; });
  }
  bool has(uint32_t code) const { return words_[code >> 6] >> (code & 63) & 1; }
  bool meets(Cube c) const {
    bool met = false;
    forEachWord(c, [&](size_t i, uint64_t mask) { return !(met = words_[i] & mask); });
    return met;
  }
  /// Whether the cube holds a code of this and not of `others`.
  bool meetsOutside(Cube c, CodeMap const& others) const {
    bool met = false;
    forEachWord(
        c, [&](size_t i, uint64_t mask) { return !(met = words_[i] & ~others.words_[i] & mask); });
    return met;
  }

  /// Calls `f(code)` for each code of this that a cube holds, ascending, until it says false.
  template <class F>
  void forEach(Cube c, F f) const {
    forEachWord(c, [&](size_t i, uint64_t mask) {
      for (uint64_t left = words_[i] & mask; left; left &= left - 1)
        if (!f(static_cast<uint32_t>(i << 6) + static_cast<uint32_t>(std::countr_zero(left))))
          return false;
      return true;
    });
  }

  /// Calls `f(code)` for the lowest code of each aligned block of 2^`size` codes of a cube of such blocks that holds
  /// none of this, ascending, until it says false or `looks` words, or blocks of more than a word, have been looked at.
  template <class F>
  void forEachFree(Cube c, unsigned size, unsigned looks, F f) const {
    if (size >= 6) {
      forEachCode(c, size, [&](uint32_t code) {
        return (meets(blockCube(code, size)) || f(code)) && --looks;
      });
      return;
    }
    uint64_t const blocks = inWord({c.value, static_cast<uint16_t>(c.free >> size << size)});
    forEachWord({c.value, c.free}, [&](size_t i, uint64_t) {
      uint64_t left = ~words_[i];
      for (unsigned b = 0; b < size; ++b) left &= left >> (1u << b);
      for (left &= blocks; left; left &= left - 1)
        if (!f(static_cast<uint32_t>(i << 6) + static_cast<uint32_t>(std::countr_zero(left))))
          return false;
      return --looks != 0;
    });
  }

 private:
  /// The cube's codes in each of its words.
  static uint64_t inWord(Cube c) {
    uint64_t mask = uint64_t{1} << (c.value & 63);
    for (unsigned b = 0; b < 6; ++b)
      if (c.free >> b & 1) mask |= mask << (1u << b);
    return mask;
  }
  template <class F>
  static void forEachWord(Cube c, F f) {
    uint64_t const mask = inWord(c);
    forEachCode({static_cast<uint16_t>(c.value >> 6), static_cast<uint16_t>(c.free >> 6)}, 0,
                [&](uint32_t word) { return f(word, mask); });
  }
  std::vector<uint64_t> words_;
};

}  // namespace Naxel::Compact
