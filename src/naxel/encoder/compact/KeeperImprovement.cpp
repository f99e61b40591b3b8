/// Makes those sets cheaper that cost the most.

#include "naxel/encoder/compact/Keeper.h"

namespace Naxel::Compact {

namespace {

/// How many sets are looked at for improvement, how many of those that resist are tried again, and how many of a set's
/// labels are moved.
constexpr size_t setsImproved = 64;
constexpr size_t triesAgain = 1;
constexpr size_t labelsMoved = 4;

}  // namespace

/// The costliest sets first, and then a few of those that resist, until they cost no more than after an encoding afresh or
/// until so many rows change.
void Keeper::improve(uint64_t rows) {
  KeptSets price;
  price.fresh = kept_.fresh;
  std::vector<std::pair<uint64_t, uint32_t>> costly;
  for (uint32_t s = 0; s < cubes_.size(); ++s) {
    uint64_t const uses = DistinctSets::usesOf(distinct_.weights[s]);
    price.now.uses += uses;
    price.now.cubes += uses * cubes_[s].size();
    if (uses && cubes_[s].size() > 1) costly.emplace_back(uses * (cubes_[s].size() - 1), s);
  }
  std::ranges::sort(costly, [](auto const& a, auto const& b) {
    return a.first != b.first ? a.first > b.first : a.second < b.second;
  });
  auto const improved = [&](uint32_t s) {
    size_t const before = cubes_[s].size();
    if (!improveSet(s, rows)) return false;
    price.now.cubes -= DistinctSets::usesOf(distinct_.weights[s]) * (before - cubes_[s].size());
    return true;
  };
  auto const isDone = [&] { return price.excess() == 0 || isExhausted(); };
  std::vector<uint32_t> resisting;
  for (size_t i = 0; i < costly.size() && !isDone(); ++i) {
    uint32_t const s = costly[i].second;
    if (resists_[s])
      resisting.push_back(s);
    else if (i < setsImproved)
      improved(s);
  }
  for (size_t i = 0; i < std::min(triesAgain, resisting.size()) && !isDone(); ++i)
    improved(resisting[triedAgain_++ % resisting.size()]);
}

/// The labels of the set's smallest cube, if they are few.
std::vector<uint32_t> Keeper::labelsOfSmallest(uint32_t set) const {
  std::vector<uint32_t> least;
  size_t fewest = labelsMoved + 1;
  for (Cube c : cubes_[set]) {
    std::vector<uint32_t> inside;
    used_.forEach(c, [&](uint32_t code) {
      inside.push_back(labelAt_[code]);
      return inside.size() < fewest;
    });
    if (inside.size() >= fewest) continue;
    fewest = inside.size();
    least = std::move(inside);
  }
  return least;
}

/// Takes a label out of the set's cubes and places it anew. False, and nothing has changed, where it was the last one.
bool Keeper::moveOut(uint32_t set, uint32_t label) {
  uint32_t const code = codes_[label];
  unplace(label);
  CubeList cubes = cubes_[set];
  cubes.eraseIf([&](Cube c) {
    bool empty = true;
    used_.forEach(c, [&](uint32_t) { return empty = false; });
    return empty;
  });
  if (cubes.empty()) {
    isAt(label, code);
    return false;
  }
  cubesAre(set, std::move(cubes));
  return place(label);
}

/// What has been gained since, in cubes for each use, and how many rows that writes.
std::pair<int64_t, uint64_t> Keeper::gainOf(std::vector<Undo> const& log) const {
  std::vector<uint32_t> seen;
  int64_t gain = 0;
  uint64_t written = 0;
  for (Undo const& u : log) {
    // What a set had at first.
    if (std::ranges::find(seen, u.set) != seen.end()) continue;
    seen.push_back(u.set);
    auto const uses = static_cast<int64_t>(DistinctSets::usesOf(distinct_.weights[u.set]));
    gain +=
        uses * (static_cast<int64_t>(u.cubes.size()) - static_cast<int64_t>(cubes_[u.set].size()));
    written += rowsBetween(u.set, u.cubes, cubes_[u.set]);
  }
  return {gain, written};
}

/// Covers the set anew, or moves the labels of its smallest cube into the others, where that saves cubes in all.
bool Keeper::improveSet(uint32_t set, uint64_t& rows) {
  CubeList whole(cover_.cover(used_, placesOf(set), true));
  if (whole.size() < cubes_[set].size()) {
    uint64_t const changed = rowsBetween(set, cubes_[set], whole);
    // Not because of the set, but because of the rows that are left.
    if (changed > rows) return false;
    rows -= changed;
    cubesAre(set, std::move(whole));
    return true;
  }
  std::vector<uint32_t> const moved = labelsOfSmallest(set);
  if (moved.empty()) {
    resists_[set] = true;
    return false;
  }
  std::vector<bool> const resisted = resists_;
  std::vector<Undo> log;
  std::vector<uint32_t> const before = codes_;
  log_ = &log;
  priceOnly_ = true;
  bool placed = true;
  uint64_t relabelled = 0;
  for (size_t i = 0; i < moved.size() && placed; ++i) {
    placed = moveOut(set, moved[i]);
    if (codes_[moved[i]] != inForce_.codes[moved[i]]) relabelled += inForce_.rows[moved[i]];
  }
  priceOnly_ = false;
  log_ = nullptr;
  auto const [gain, written] = gainOf(log);
  if (placed && gain > 0 && written + relabelled <= rows) {
    rows -= written + relabelled;
    return true;
  }
  for (uint32_t l : moved)
    if (isPlaced(l)) unplace(l);
  for (uint32_t l : moved) isAt(l, before[l]);
  for (; !log.empty(); log.pop_back()) cubesAre(log.back().set, std::move(log.back().cubes));
  resists_ = resisted;
  resists_[set] = !placed || gain <= 0;
  return false;
}

}  // namespace Naxel::Compact
