#include "naxel/xform/PieceOverlay.h"

#include "naxel/xform/PieceLabels.h"

#include <algorithm>

namespace Naxel {

PieceOverlay::PieceOverlay(PieceGroups const& old, PieceGroups const& added, SetMoves const& moves,
                           PieceCount const& limit)
    : old_(old),
      added_(added),
      moves_(moves),
      limit_(limit),
      left_(old.size() + 1),
      came_(added.size() + 1),
      alone_(old.size() + 1) {
  for (uint32_t label = 1; label <= added.size(); ++label) came_[label] = !added.of(label).empty();
  findLeft();
  // Mostly there are about as many as before.
  groups_.reserve(old.size() + added.size(), old.memberships() + added.memberships());
}

void PieceOverlay::findLeft() {
  bool const anyGone = std::ranges::find(moves_.old, SetMoves::gone) != moves_.old.end();
  auto const isGone = [&](uint32_t set) { return moves_.old[set] == SetMoves::gone; };
  // Both run over the sets that are left alone.
  auto const leavesTheSame = [&](uint32_t a, uint32_t b) {
    SetPlaces const x = old_.of(a);
    SetPlaces const y = old_.of(b);
    for (auto i = x.begin(), j = y.begin();; ++i, ++j) {
      while (i != x.end() && isGone(*i)) ++i;
      while (j != y.end() && isGone(*j)) ++j;
      if (i == x.end() || j == y.end()) return i == x.end() && j == y.end();
      if (*i != *j) return false;
    }
  };
  HashIndex found;
  if (anyGone) found.reserve(old_.size());
  for (uint32_t label = 1; label <= old_.size(); ++label) {
    SetPlaces const sets = old_.of(label);
    uint32_t& left = left_[label];
    left = sets.empty() ? 0 : label;
    if (!anyGone) continue;
    uint64_t hash = 0;
    bool any = false;
    for (uint32_t set : sets)
      if (!isGone(set)) {
        hash += hashOfSet(set);
        any = true;
      }
    left = any ? found.find(hash, [&](uint32_t known) { return leavesTheSame(known, label); }) : 0;
    if (!any || left) continue;
    left = label;
    found.add(hash, label);
  }
}

uint32_t PieceOverlay::make(uint32_t old, uint32_t added) {
  SetPlaces const come = added_.of(added);
  auto next = come.begin();
  for (uint32_t set : old_.of(old)) {
    uint32_t const place = moves_.old[set];
    if (place == SetMoves::gone) continue;
    for (; next != come.end() && moves_.added[*next] < place; ++next)
      groups_.add(moves_.added[*next]);
    groups_.add(place);
  }
  for (; next != come.end(); ++next) groups_.add(moves_.added[*next]);
  return groups_.close();
}

}  // namespace Naxel
