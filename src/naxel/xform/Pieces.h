#pragma once

/// Disjoint pieces as a transform works with them: flat. Sets are numbers, their places among the sets that
/// are cut, by ascending key; and groups of sets are the labels of the pieces.

#include "naxel/genset/GenSetTypes.h"

#include <cstdint>
#include <span>
#include <utility>
#include <vector>

namespace Naxel {

/// Places of sets.
using SetPlaces = std::span<uint32_t const>;

/// The sets that make up each distinct piece, by its label: 1, 2, 3, ... Four bytes for each set of a group.
class PieceGroups {
 public:
  /// How many there are, and how many sets are in them.
  size_t size() const { return ends_.size() - 1; }
  size_t memberships() const { return members_.size(); }
  /// The sets of a label; none of label 0. Ends with the next change.
  SetPlaces of(uint32_t label) const {
    size_t const from = label == 0 ? 0 : ends_[label - 1];
    return SetPlaces(members_).subspan(from, ends_[label] - from);
  }
  void reserve(size_t groups, size_t memberships) {
    ends_.reserve(groups + 1);
    members_.reserve(memberships);
  }

  /// Opens a group of the sets of `base`, with `more`, none of which it has, and without `less`, all of which it
  /// has; all ascending. Refers to that group, which close() labels or drop() takes back.
  SetPlaces open(uint32_t base, SetPlaces more, SetPlaces less);
  /// Adds a set behind those of the group that close() labels.
  void add(uint32_t set) { members_.push_back(set); }
  uint32_t close() {
    ends_.push_back(static_cast<uint32_t>(members_.size()));
    return static_cast<uint32_t>(size());
  }
  void drop() { members_.resize(ends_.back()); }
  friend bool operator==(PieceGroups const&, PieceGroups const&) = default;

 private:
  std::vector<uint32_t> members_;
  std::vector<uint32_t> ends_{0};  // by label
};

/// Pieces in natural order, each with the label of the sets that it lies in. Labels are numbered in the order
/// in which the pieces bring them.
template <class Item>
struct Pieces {
  std::vector<std::pair<Item, PlainLabel>> items;
  PieceGroups groups;
};

}  // namespace Naxel
