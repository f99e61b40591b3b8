#pragma once

/// One number per table.

#include "naxel/loader/PDTable.h"

#include <array>

namespace SoftChip {

using Table = Naxel::PDTable;

template <class T>
class PerTable {
 public:
  PerTable() = default;
  explicit PerTable(T v) { value_.fill(v); }
  T& operator[](Table t) { return value_[static_cast<size_t>(t)]; }
  T const& operator[](Table t) const { return value_[static_cast<size_t>(t)]; }

 private:
  std::array<T, Naxel::pdTableCount> value_{};
};

}  // namespace SoftChip
