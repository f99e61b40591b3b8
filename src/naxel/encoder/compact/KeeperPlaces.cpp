/// Codes for labels: where there are free ones, what each costs, and what changes once one is taken.

#include "naxel/encoder/compact/Keeper.h"

namespace Naxel::Compact {

namespace {

/// How many of an item's sets, of a set's cubes and of a cube's free codes are looked at.
constexpr size_t ownSetsTried = 6;
constexpr size_t cubesTried = 4;
constexpr unsigned codesTried = 256;
constexpr unsigned wordsTried = 256;
/// A label without a place in its sets gets a block of so many bits for what comes after it, if there is one.
constexpr unsigned ownBits = 4;
/// Sets of so many labels are also covered as a whole when one of their cubes is lost.
constexpr size_t smallSet = 64;
/// What a cube more costs, now and ever after, in rows written for each use; what one costs that changes; and what a
/// foreign one costs that has to be split.
constexpr uint64_t priceOfMore = 4;
constexpr uint64_t priceOfGrowth = 2;
constexpr uint64_t priceOfSplit = 5;
/// By how many bits a cube may grow for a code.
constexpr unsigned mostGrowth = 4;

}  // namespace

/// Whether all codes of a block are free and match as much and no more.
bool Keeper::isFree(Cube block, uint64_t matched) const {
  steps_ += stepsOfLook(block);
  if (taken_.meets(block)) return false;
  bool free = true;
  forEachCode(block, 0, [&](uint32_t code) { return free = matched_[code] == matched; });
  return free;
}

std::optional<Cube> Keeper::freeBlock(unsigned size) {
  for (uint32_t& from = freeFrom_[size]; from < uint32_t{1} << bits_; from += uint32_t{1} << size)
    if (Cube const block = blockCube(from, size); isFree(block, 0)) return block;
  return std::nullopt;
}

/// A free block for a set, inside all that hold it.
std::optional<Cube> Keeper::freeBlock(uint32_t set, unsigned size) {
  auto const own = distinct_.sets[set];
  uint64_t matched = 0;
  uint32_t smallest = SetFamily::none;
  for (uint32_t s : setsOf_[own[0]]) {
    if (s >= set || cubes_[s].empty()) continue;
    steps_ += 1 + distinct_.sets[s].size() / 8;
    if (!std::ranges::includes(distinct_.sets[s], own)) continue;
    matched += distinct_.weights[s];
    smallest = s;
  }
  if (smallest == SetFamily::none) return freeBlock(size);
  std::optional<Cube> found;
  for (Cube c : cubes_[smallest]) {
    ++steps_;
    if (found || c.bits() < size || (c.free & blockCube(0, size).free) != blockCube(0, size).free)
      continue;
    taken_.forEachFree(c, size, wordsTried, [&](uint32_t code) {
      if (Cube const block = blockCube(code, size); isFree(block, matched)) found = block;
      return !found;
    });
  }
  return found;
}

/// Cubes for the sets that have none from before: around the labels that are placed, or a free block. False where that
/// takes too long.
bool Keeper::giveHomes() {
  for (uint32_t s = 0; s < distinct_.sets.size(); ++s) {
    if (!cubes_[s].empty()) continue;
    if (isExhausted()) return false;
    std::vector<Cube> const places = placesOf(s);
    if (!places.empty()) {
      cubesAre(s, CubeList(cover_.cover(used_, places, true)));
      continue;
    }
    auto const size = static_cast<unsigned>(std::bit_width(distinct_.sets[s].size() - 1));
    if (size >= bits_) continue;
    if (auto const block = freeBlock(s, size)) cubesAre(s, {*block});
  }
  return true;
}

uint64_t Keeper::ownMatches(uint32_t label, uint32_t code) const {
  uint64_t sum = 0;
  for (uint32_t s : setsOf_[label])
    if (matches(s, code)) sum += distinct_.weights[s];
  return sum;
}

void Keeper::collectCodes(uint32_t label) {
  candidates_.clear();
  if (inForce_.codes[label] != SetFamily::none) candidates_.push_back(inForce_.codes[label]);
  uint64_t all = 0;
  for (uint32_t s : setsOf_[label])
    if (!cubes_[s].empty()) all += distinct_.weights[s];
  auto const own = setsOf_[label];
  bool perfect = false;
  auto const look = [&](Cube cube, unsigned words, unsigned wanted) {
    unsigned codes = codesTried;
    taken_.forEachFree(cube, 0, words, [&](uint32_t code) {
      // In all sets of the label and in no other.
      perfect = matched_[code] == all && ownMatches(label, code) == all;
      if (perfect) candidates_.push_back(code);
      if (!perfect && wanted) {
        candidates_.push_back(code);
        --wanted;
      }
      return !perfect && --codes;
    });
  };
  // Small sets come last.
  size_t sets = 0;
  for (size_t k = own.size(); k-- > 0 && sets < ownSetsTried && !perfect;) {
    CubeList const& cubes = cubes_[own[k]];
    if (cubes.empty()) continue;
    ++sets;
    for (size_t j = 0; j < std::min(cubesTried, cubes.size()) && !perfect; ++j) {
      look(cubes[j], wordsTried, 2);
      for (unsigned b = 0; b < bits_ && !perfect; ++b)
        if (!(cubes[j].free >> b & 1))
          look({static_cast<uint16_t>(cubes[j].value ^ 1u << b), cubes[j].free}, 2, 1);
    }
  }
  if (perfect) return;
  // What is in no set needs no room.
  for (unsigned size = own.empty() ? 0 : std::min(ownBits, bits_); size != ~0u; --size)
    if (auto const block = freeBlock(size)) {
      candidates_.push_back(block->value);
      break;
    }
  if (candidates_.empty()) look(blockCube(0, bits_), ~0u, 1);
}

bool Keeper::holdsOnlyOwn(uint32_t set, Cube cube) const {
  bool only = true;
  used_.forEach(cube, [&](uint32_t code) {
    return only = labelAt_[code] != SetFamily::none && has(set, labelAt_[code]);
  });
  return only;
}

/// The smallest cube that one of a set's grows to if it is to hold the code.
std::optional<Cube> Keeper::grown(uint32_t set, uint32_t code, size_t& which) const {
  std::optional<Cube> best;
  steps_ += cubes_[set].size() / 8;
  for (size_t i = 0; i < cubes_[set].size(); ++i) {
    Cube const joined = cubes_[set][i].joined(cubeOf(code));
    if (best ? joined.bits() >= best->bits() : joined.bits() > cubes_[set][i].bits() + mostGrowth)
      continue;
    steps_ += stepsOfLook(joined);
    // The code itself is not in use yet, or already the set's.
    if (!holdsOnlyOwn(set, joined)) continue;
    best = joined;
    which = i;
  }
  return best;
}

uint64_t Keeper::priceAt(uint32_t label, uint32_t code, uint64_t enough) const {
  uint64_t price = priceOfSplit * (matched_[code] - ownMatches(label, code));
  if (!priceOnly_ && code != inForce_.codes[label])
    price += DistinctSets::weightOf(inForce_.rows[label]);
  for (uint32_t s : setsOf_[label]) {
    if (price > enough) break;
    if (cubes_[s].empty() || matches(s, code)) continue;
    uint64_t const weight = distinct_.weights[s];
    size_t which = 0;
    auto const cube = grown(s, code, which);
    price += weight * (cube ? priceOfGrowth : priceOfMore);
    if (cube) price += weight / 16 * (cube->bits() - cubes_[s][which].bits());
  }
  return price;
}

/// Has a set match one more of its codes.
void Keeper::extend(uint32_t set, uint32_t code, CubeList& cubes) {
  size_t which = 0;
  cubes_[set].swap(cubes);
  auto const cube = grown(set, code, which);
  cubes_[set].swap(cubes);
  if (!cube) return cubes.push_back(cubeOf(code));
  cubes[which] = *cube;
  Cube const whole = *cube;
  size_t kept = 0;
  for (size_t i = 0; i < cubes.size(); ++i)
    if (i == which || !whole.contains(cubes[i])) cubes[kept++] = cubes[i];
  cubes.shrink(kept);
}

uint64_t Keeper::rowsBetween(uint32_t set, CubeList const& a, CubeList const& b) const {
  auto const missing = [](CubeList const& from, CubeList const& in) {
    return static_cast<uint64_t>(
        std::ranges::count_if(from, [&](Cube c) { return std::ranges::find(in, c) == in.end(); }));
  };
  return (missing(a, b) + missing(b, a)) * DistinctSets::usesOf(distinct_.weights[set]);
}

/// Has a set match a code no longer that another set's label has taken.
void Keeper::cutOut(uint32_t set, uint32_t code) {
  CubeList cubes = cubes_[set];
  cubes.eraseIf([&](Cube c) { return c.contains(cubeOf(code)); });
  std::vector<Cube> const places = placesOf(set);
  steps_ += places.size() / 8;
  for (Cube c : cubes) scratch_.insert(c);
  std::vector<Cube> lost = places;
  std::erase_if(lost, [this](Cube place) { return scratch_.meets(place); });
  for (Cube c : cubes) scratch_.erase(c);
  for (Cube place : lost) {
    steps_ += cubes.size() / 8;
    if (std::ranges::none_of(cubes, [&](Cube c) { return c.contains(place); }))
      extend(set, place.value, cubes);
  }
  if (places.size() <= smallSet) {
    CubeList whole(cover_.cover(used_, places, true));
    auto const price = [&](CubeList const& to) {
      return rowsBetween(set, cubes_[set], to) +
             (priceOfMore - 1) * to.size() * DistinctSets::usesOf(distinct_.weights[set]);
    };
    if (price(whole) < price(cubes)) cubes = std::move(whole);
  }
  cubesAre(set, std::move(cubes));
}

void Keeper::isAt(uint32_t label, uint32_t code) {
  codes_[label] = code;
  labelAt_.at(code) = label;
  used_.insert(cubeOf(code));
  taken_.insert(cubeOf(code));
}

void Keeper::put(uint32_t label, uint32_t code) {
  isAt(label, code);
  if (matched_[code] != ownMatches(label, code)) {
    steps_ += cubes_.size() / 16;
    for (uint32_t s = 0; s < cubes_.size(); ++s)
      if (hulls_[s].contains(cubeOf(code)) && matches(s, code) && !has(s, label)) cutOut(s, code);
  }
  for (uint32_t s : setsOf_[label]) {
    if (cubes_[s].empty() || matches(s, code)) continue;
    CubeList cubes = cubes_[s];
    extend(s, code, cubes);
    cubesAre(s, std::move(cubes));
  }
}

void Keeper::unplace(uint32_t label) {
  used_.erase(cubeOf(codes_[label]));
  labelAt_.at(codes_[label]) = SetFamily::none;
  // In force or not, it is nobody else's in this round.
  codes_[label] = SetFamily::none;
}

bool Keeper::place(uint32_t label) {
  collectCodes(label);
  for (uint32_t s : setsOf_[label]) steps_ += candidates_.size() * (1 + cubes_[s].size() / 8);
  if (candidates_.empty() || isExhausted()) return false;
  uint64_t least = ~uint64_t{0};
  uint32_t best = 0;
  std::ranges::sort(candidates_);
  candidates_.erase(std::unique(candidates_.begin(), candidates_.end()), candidates_.end());
  for (uint32_t code : candidates_) {
    uint64_t const price = priceAt(label, code, least);
    if (price >= least) continue;
    least = price;
    best = code;
  }
  put(label, best);
  return true;
}

}  // namespace Naxel::Compact
