#pragma once

/// Sets of small numbers in two flat arrays, one behind the other.

#include <cstdint>
#include <span>
#include <vector>

namespace Naxel::Compact {

class SetFamily {
 public:
  uint32_t size() const { return static_cast<uint32_t>(from_.size() - 1); }
  std::span<uint32_t const> operator[](uint32_t set) const {
    return {members_.data() + from_[set], members_.data() + from_[set + 1]};
  }
  /// Members of all sets in all.
  size_t members() const { return members_.size(); }

  void add(uint32_t member) { members_.push_back(member); }
  /// Ends the set that the members since the last end make up.
  void end() { from_.push_back(members_.size()); }

  /// The sets that hold each of `n` numbers, ascending.
  SetFamily transposed(uint32_t n) const {
    SetFamily out;
    out.from_.assign(size_t{n} + 1, 0);
    for (uint32_t m : members_) ++out.from_[m + 1];
    for (uint32_t i = 0; i < n; ++i) out.from_[i + 1] += out.from_[i];
    out.members_.resize(members_.size());
    std::vector<size_t> to(out.from_.begin(), out.from_.end() - 1);
    for (uint32_t s = 0; s < size(); ++s)
      for (uint32_t m : (*this)[s]) out.members_[to[m]++] = s;
    return out;
  }

  /// The numbers 0 to n - 1 gathered by what `groupOf` says of them, in their order; `none` leaves one out.
  static constexpr uint32_t none = ~uint32_t{0};
  static SetFamily grouped(std::vector<uint32_t> const& groupOf, uint32_t groups) {
    SetFamily out;
    out.from_.assign(size_t{groups} + 1, 0);
    for (uint32_t g : groupOf)
      if (g != none) ++out.from_[g + 1];
    for (uint32_t i = 0; i < groups; ++i) out.from_[i + 1] += out.from_[i];
    out.members_.resize(out.from_.back());
    std::vector<size_t> to(out.from_.begin(), out.from_.end() - 1);
    for (uint32_t i = 0; i < groupOf.size(); ++i)
      if (groupOf[i] != none) out.members_[to[groupOf[i]]++] = i;
    return out;
  }

 private:
  std::vector<size_t> from_{0};
  std::vector<uint32_t> members_;
};

}  // namespace Naxel::Compact
