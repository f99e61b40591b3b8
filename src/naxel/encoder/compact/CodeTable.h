#pragma once

/// A value for each code, of which most have none of their own.
///
/// Values stand in pages of 64 codes, and a page is made when one of its codes is written: a table of 16 bits costs what
/// is written in it, and not half a megabyte of zeros.

#include "naxel/encoder/compact/Cube.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Naxel::Compact {

template <class T>
class CodeTable {
 public:
  /// `absent` is the value of codes that are not written.
  CodeTable(unsigned bits, T absent)
      : absent_(absent),
        page_(((size_t{1} << bits) + pageSize - 1) / pageSize),
        values_(pageSize, absent) {}

  T operator[](uint32_t code) const {
    return values_[size_t{page_[code / pageSize]} * pageSize + code % pageSize];
  }
  /// For a write at once.
  T& at(uint32_t code) { return *run(code); }
  /// Adds to the values of all codes of a cube.
  void add(Cube cube, T by) {
    // Most cubes are blocks, whose codes lie beside each other.
    auto const low = static_cast<unsigned>(
        std::min<int>(std::countr_one(cube.free), std::countr_zero(pageSize)));
    forEachCode(cube, low, [&](uint32_t code) {
      T* const first = run(code);
      for (T* v = first; v != first + (size_t{1} << low); ++v) *v += by;
      return true;
    });
  }

 private:
  static constexpr uint32_t pageSize = 64;
  /// The value of a code, behind which those of its page follow.
  T* run(uint32_t code) {
    uint16_t& page = page_[code / pageSize];
    if (page == 0) {
      page = static_cast<uint16_t>(values_.size() / pageSize);
      values_.resize(values_.size() + pageSize, absent_);
    }
    return &values_[size_t{page} * pageSize + code % pageSize];
  }

  T absent_;
  std::vector<uint16_t> page_;  // of each 64 codes; 0 is of those that have none
  std::vector<T> values_;
};

}  // namespace Naxel::Compact
