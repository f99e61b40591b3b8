#include "naxel/xform/PieceLabels.h"

#include "mox/Hash.h"
#include "mox/KeyedHash.h"

#include <algorithm>

namespace Naxel {

SetPlaces PieceGroups::open(uint32_t base, SetPlaces more, SetPlaces less) {
  size_t const sets = of(base).size() + more.size();
  size_t const begin = members_.size();
  // All at once, so that the group of `base` stays where it is meanwhile.
  if (members_.capacity() < begin + sets) members_.reserve(std::max(begin + sets, 2 * begin));
  SetPlaces kept = of(base);
  if (less.empty()) {
    members_.resize(begin + sets);
    std::ranges::merge(kept, more, members_.begin() + static_cast<std::ptrdiff_t>(begin));
  } else {
    auto const isKept = [&](uint32_t set) { return !std::ranges::binary_search(less, set); };
    auto at = more.begin();
    for (uint32_t set : kept) {
      if (!isKept(set)) continue;
      for (; at != more.end() && *at < set; ++at) members_.push_back(*at);
      members_.push_back(set);
    }
    members_.insert(members_.end(), at, more.end());
  }
  return SetPlaces(members_).subspan(begin);
}

void HashIndex::reserve(size_t n) {
  size_t capacity = 16;
  while (capacity < 2 * n) capacity *= 2;
  if (capacity <= slots_.size()) return;
  std::vector<Slot> old(capacity);
  old.swap(slots_);
  for (Slot const& slot : old)
    if (slot.number) place(slot);
}

uint64_t hashOfSet(uint32_t place) {
  Mox::HashSecret const& secret = Mox::hashSecret();
  return Mox::mix64(secret.k0 + place) ^ secret.k1;
}

void PieceLabels::reserve(size_t pieces) {
  groups_.reserve(pieces, pieces);
  labels_.reserve(pieces);
}

PieceLabels::Piece PieceLabels::changed(Piece const& base, SetPlaces more, SetPlaces less) {
  // The same sets as the piece before.
  if (base.label && more.empty() && less.empty()) return base;
  Piece result = base;
  for (uint32_t set : more) result.hash += hashOfSet(set);
  for (uint32_t set : less) result.hash -= hashOfSet(set);
  result.label = labelOf(result.hash, base.label, more, less);
  return result;
}

uint32_t PieceLabels::labelOf(uint64_t hash, uint32_t base, SetPlaces more, SetPlaces less) {
  bool const large = groups_.of(base).size() > smallSize;
  uint64_t const stepHash = hash ^ Mox::mix64(base);
  if (large) {
    uint32_t const known = stepOf_.find(stepHash, [&](uint32_t number) {
      Step const& step = steps_[number - 1];
      SetPlaces const all(changes_);
      return step.base == base &&
             std::ranges::equal(all.subspan(step.more, step.less - step.more), more) &&
             std::ranges::equal(all.subspan(step.less, step.end - step.less), less);
    });
    if (known) return steps_[known - 1].label;
  }
  SetPlaces const sets = groups_.open(base, more, less);
  // The content is compared, whatever the hash says: groups of equal hash that differ must not become one.
  uint32_t label = labels_.find(
      hash, [&](uint32_t known) { return std::ranges::equal(groups_.of(known), sets); });
  if (label) {
    groups_.drop();
  } else {
    label = groups_.close();
    labels_.add(hash, label);
  }
  // Without this, a piece of a large group would cost the size of the group each time that it recurs.
  if (large) remember(stepHash, base, more, less, label);
  return label;
}

void PieceLabels::remember(uint64_t hash, uint32_t base, SetPlaces more, SetPlaces less,
                           uint32_t label) {
  auto const at = [&] { return static_cast<uint32_t>(changes_.size()); };
  Step step{base, at(), 0, 0, label};
  changes_.insert(changes_.end(), more.begin(), more.end());
  step.less = at();
  changes_.insert(changes_.end(), less.begin(), less.end());
  step.end = at();
  steps_.push_back(step);
  stepOf_.add(hash, static_cast<uint32_t>(steps_.size()));
}

}  // namespace Naxel
