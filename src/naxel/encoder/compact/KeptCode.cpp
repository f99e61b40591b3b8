#include "naxel/encoder/compact/KeptCode.h"

#include "mox/Assert.h"
#include "naxel/encoder/compact/CubeCover.h"
#include "naxel/encoder/compact/DistinctSets.h"

#include <algorithm>
#include <array>
#include <utility>

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
/// Bound of the work, in looks at words of codes, beyond which all is encoded afresh.
constexpr uint64_t placingSteps = 2'000'000;
constexpr uint64_t placingStepsPerMember = 100;
/// By how many bits a cube may grow for a code.
constexpr unsigned mostGrowth = 4;
/// How many sets are looked at for improvement, and how many of a set's labels are moved.
constexpr size_t setsImproved = 64;
constexpr size_t labelsMoved = 4;
/// In how many sets that were there the labels of one are looked for, in all.
constexpr uint64_t votesAtMost = 1'000'000;

using Cubes = std::vector<Cube>;

class Keeper {
 public:
  Keeper(SetFamily const& sets, std::vector<uint64_t> const& weights, LabelsInForce const& inForce,
         KeptSets const& kept, unsigned bits);
  bool run(uint64_t repairRows);
  Code take(SetFamily const& sets);

 private:
  /// The cubes that a set had before.
  struct Undo {
    uint32_t set;
    Cubes cubes;
  };

  uint32_t labels() const { return static_cast<uint32_t>(codes_.size()); }
  bool isPlaced(uint32_t label) const { return codes_[label] != SetFamily::none; }
  static Cube cubeOf(uint32_t code) { return {static_cast<uint16_t>(code), 0}; }
  bool has(uint32_t set, uint32_t label) const {
    return std::ranges::binary_search(setsOf_[label], set);
  }
  bool matches(uint32_t set, uint32_t code) const {
    return std::ranges::any_of(cubes_[set], [&](Cube c) { return c.contains(cubeOf(code)); });
  }
  std::vector<Cube> placesOf(uint32_t set) const;
  void findCubes();
  std::optional<size_t> mostAlike(std::vector<uint16_t> const& codes);
  void question(uint32_t set, KeptSets::Set const& was, std::vector<uint16_t> const& codes);
  bool giveHomes();
  bool isExhausted() const;
  std::optional<Cube> freeBlock(uint32_t set, unsigned size);
  std::optional<Cube> freeBlock(unsigned size);
  bool isFree(Cube block, uint64_t matched) const;
  uint64_t ownMatches(uint32_t label, uint32_t code) const;
  void collectCodes(uint32_t label);
  std::optional<Cube> grown(uint32_t set, uint32_t code, size_t& which) const;
  bool holdsOnlyOwn(uint32_t set, Cube cube) const;
  uint64_t priceAt(uint32_t label, uint32_t code, uint64_t enough) const;
  bool place(uint32_t label);
  void put(uint32_t label, uint32_t code);
  void isAt(uint32_t label, uint32_t code);
  void unplace(uint32_t label);
  void extend(uint32_t set, uint32_t code, Cubes& cubes);
  void cutOut(uint32_t set, uint32_t code);
  void cubesAre(uint32_t set, Cubes cubes);
  void improve(uint64_t rows);
  std::vector<uint32_t> labelsOfSmallest(uint32_t set) const;
  bool moveOut(uint32_t set, uint32_t label);
  std::pair<int64_t, uint64_t> gainOf(std::vector<Undo> const& log) const;
  bool improveSet(uint32_t set, uint64_t& rows);
  uint64_t rowsBetween(uint32_t set, Cubes const& a, Cubes const& b) const;

  DistinctSets distinct_;
  SetFamily setsOf_;
  LabelsInForce const& inForce_;
  KeptSets const& kept_;
  unsigned bits_;
  CubeCover cover_;
  CodeMap used_;
  CodeMap taken_;  // used, or in force, or reserved
  std::vector<uint32_t> codes_;
  std::vector<uint32_t> labelAt_;
  std::vector<uint64_t> matched_;  // for each code the weight of the sets that match it
  std::vector<Cubes> cubes_;
  std::vector<Cube> hulls_;
  CodeMap scratch_;  // empty between uses
  std::vector<uint32_t> questioned_;
  std::vector<uint32_t> candidates_;
  std::array<uint32_t, 17> freeFrom_{};  // below it no block of the size is free
  SetFamily keptAt_;                     // the sets before that have a code
  uint64_t votes_ = 0;
  mutable uint64_t steps_ = 0;
  bool priceOnly_ = false;  // rows do not count
  std::vector<Undo>* log_ = nullptr;
};

Keeper::Keeper(SetFamily const& sets, std::vector<uint64_t> const& weights,
               LabelsInForce const& inForce, KeptSets const& kept, unsigned bits)
    : distinct_(sets, weights, 1),
      setsOf_(distinct_.sets.transposed(static_cast<uint32_t>(inForce.codes.size()))),
      inForce_(inForce),
      kept_(kept),
      bits_(bits),
      cover_(bits),
      used_(bits),
      taken_(bits),
      codes_(inForce.codes),
      labelAt_(size_t{1} << bits, SetFamily::none),
      matched_(size_t{1} << bits),
      cubes_(distinct_.sets.size()),
      hulls_(distinct_.sets.size()),
      scratch_(bits) {
  Cube const last = cubeOf((1u << bits) - 1);
  used_.insert(last);
  taken_.insert(last);
  for (uint32_t l = 0; l < labels(); ++l) {
    if (!isPlaced(l)) continue;
    MOX_ASSERT(codes_[l] < last.value && labelAt_[codes_[l]] == SetFamily::none);
    used_.insert(cubeOf(codes_[l]));
    taken_.insert(cubeOf(codes_[l]));
    labelAt_[codes_[l]] = l;
  }
  for (uint16_t code : inForce.vacated) taken_.insert(cubeOf(code));
}

std::vector<Cube> Keeper::placesOf(uint32_t set) const {
  std::vector<Cube> places;
  for (uint32_t l : distinct_.sets[set])
    if (isPlaced(l)) places.push_back(cubeOf(codes_[l]));
  return places;
}

void Keeper::cubesAre(uint32_t set, Cubes cubes) {
  uint64_t const weight = distinct_.weights[set];
  // Cubes of a set may overlap, and each of their codes counts once.
  auto const add = [this](Cubes const& all, uint64_t by) {
    for (Cube c : all)
      forEachCode(c, 0, [&](uint32_t code) {
        if (!scratch_.meets(cubeOf(code))) matched_[code] += by;
        if (all.size() > 1) scratch_.insert(cubeOf(code));
        return true;
      });
    if (all.size() > 1)
      for (Cube c : all) scratch_.erase(c);
  };
  add(cubes_[set], ~weight + 1);
  add(cubes, weight);
  if (!cubes.empty()) hulls_[set] = cubes[0];
  for (Cube c : cubes) hulls_[set] = hulls_[set].joined(c);
  cubes_[set].swap(cubes);
  if (log_) log_->push_back({set, std::move(cubes)});
}

/// Of the sets before the one that has the most codes in common, if those are more than it takes to tell them apart.
std::optional<size_t> Keeper::mostAlike(std::vector<uint16_t> const& codes) {
  if (keptAt_.size() == 0) {
    SetFamily all;
    for (KeptSets::Set const& set : kept_.sets) {
      for (uint16_t code : set.codes) all.add(code);
      all.end();
    }
    keptAt_ = all.transposed(uint32_t{1} << bits_);
  }
  std::vector<uint32_t> votes;
  for (uint16_t code : codes) {
    // All that are asked count, also where nothing comes of it.
    votes_ += keptAt_[code].size();
    if (votes_ > votesAtMost) return std::nullopt;
    votes.insert(votes.end(), keptAt_[code].begin(), keptAt_[code].end());
  }
  std::ranges::sort(votes);
  std::optional<size_t> best;
  int64_t most = 0;
  for (size_t i = 0; i < votes.size();) {
    size_t const from = i;
    while (i < votes.size() && votes[i] == votes[from]) ++i;
    auto const common = static_cast<int64_t>(i - from);
    auto const size = static_cast<int64_t>(kept_.sets[votes[from]].codes.size());
    int64_t const score = 3 * common - size - static_cast<int64_t>(codes.size());
    if (score <= most) continue;
    most = score;
    best = votes[from];
  }
  return best;
}

/// Labels that have left the set or joined it.
void Keeper::question(uint32_t set, KeptSets::Set const& was, std::vector<uint16_t> const& codes) {
  auto const ask = [this](uint16_t code) {
    if (labelAt_[code] != SetFamily::none) questioned_.push_back(labelAt_[code]);
  };
  for (uint16_t code : was.codes)
    if (!std::ranges::binary_search(codes, code)) ask(code);
  for (Cube c : cubes_[set]) scratch_.insert(c);
  for (uint16_t code : codes)
    if (!scratch_.meets(cubeOf(code))) ask(code);
  for (Cube c : cubes_[set]) scratch_.erase(c);
}

void Keeper::findCubes() {
  std::vector<uint16_t> codes;
  for (uint32_t s = 0; s < distinct_.sets.size(); ++s) {
    codes.clear();
    for (uint32_t l : distinct_.sets[s])
      if (isPlaced(l)) codes.push_back(static_cast<uint16_t>(codes_[l]));
    std::ranges::sort(codes);
    if (codes.empty()) continue;
    auto const at = std::ranges::lower_bound(kept_.sets, codes, {}, &KeptSets::Set::codes);
    if (at != kept_.sets.end() && at->codes == codes) {
      cubesAre(s, at->cubes);
    } else if (codes.size() == 1) {
      cubesAre(s, {cubeOf(codes[0])});
    } else if (auto const alike = mostAlike(codes)) {
      cubesAre(s, kept_.sets[*alike].cubes);
      question(s, kept_.sets[*alike], codes);
    }
  }
  std::ranges::sort(questioned_);
  questioned_.erase(std::unique(questioned_.begin(), questioned_.end()), questioned_.end());
}

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
      cubesAre(s, cover_.cover(used_, places, true));
      continue;
    }
    auto const size = static_cast<unsigned>(std::bit_width(distinct_.sets[s].size() - 1));
    if (size >= bits_) continue;
    if (auto const block = freeBlock(s, size)) cubesAre(s, {*block});
  }
  return true;
}

bool Keeper::isExhausted() const {
  return steps_ + cover_.steps() > placingSteps + placingStepsPerMember * setsOf_.members();
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
    Cubes const& cubes = cubes_[own[k]];
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
void Keeper::extend(uint32_t set, uint32_t code, Cubes& cubes) {
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
  cubes.resize(kept);
}

uint64_t Keeper::rowsBetween(uint32_t set, Cubes const& a, Cubes const& b) const {
  auto const missing = [](Cubes const& from, Cubes const& in) {
    return static_cast<uint64_t>(
        std::ranges::count_if(from, [&](Cube c) { return std::ranges::find(in, c) == in.end(); }));
  };
  return (missing(a, b) + missing(b, a)) * DistinctSets::usesOf(distinct_.weights[set]);
}

/// Has a set match a code no longer that another set's label has taken.
void Keeper::cutOut(uint32_t set, uint32_t code) {
  Cubes cubes = cubes_[set];
  std::erase_if(cubes, [&](Cube c) { return c.contains(cubeOf(code)); });
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
    Cubes whole = cover_.cover(used_, places, true);
    auto const price = [&](Cubes const& to) {
      return rowsBetween(set, cubes_[set], to) +
             (priceOfMore - 1) * to.size() * DistinctSets::usesOf(distinct_.weights[set]);
    };
    if (price(whole) < price(cubes)) cubes = std::move(whole);
  }
  cubesAre(set, std::move(cubes));
}

void Keeper::isAt(uint32_t label, uint32_t code) {
  codes_[label] = code;
  labelAt_[code] = label;
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
    Cubes cubes = cubes_[s];
    extend(s, code, cubes);
    cubesAre(s, std::move(cubes));
  }
}

void Keeper::unplace(uint32_t label) {
  used_.erase(cubeOf(codes_[label]));
  labelAt_[codes_[label]] = SetFamily::none;
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

bool Keeper::run(uint64_t repairRows) {
  findCubes();
  std::vector<uint32_t> fresh;
  for (uint32_t l = 0; l < labels(); ++l)
    if (!isPlaced(l)) fresh.push_back(l);
  if (2 * (fresh.size() + questioned_.size()) > labels()) return false;
  for (uint32_t l : questioned_) unplace(l);
  if (!giveHomes()) return false;
  for (uint32_t l : questioned_)
    if (!place(l)) return false;
  for (uint32_t l : fresh)
    if (!place(l)) return false;
  for (uint32_t s = 0; s < cubes_.size(); ++s)
    if (cubes_[s].empty()) cubesAre(s, cover_.cover(used_, placesOf(s), true));
  improve(repairRows);
  return true;
}

/// The costliest sets first, until they cost no more than after an encoding afresh or until so many rows change.
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
  if (costly.size() > setsImproved) costly.resize(setsImproved);
  for (auto const& [excess, s] : costly) {
    if (price.excess() == 0 || isExhausted()) return;
    size_t const before = cubes_[s].size();
    if (improveSet(s, rows))
      price.now.cubes -= DistinctSets::usesOf(distinct_.weights[s]) * (before - cubes_[s].size());
  }
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
  Cubes cubes = cubes_[set];
  std::erase_if(cubes, [&](Cube c) {
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
  Cubes whole = cover_.cover(used_, placesOf(set), true);
  if (whole.size() < cubes_[set].size()) {
    uint64_t const changed = rowsBetween(set, cubes_[set], whole);
    if (changed > rows) return false;
    rows -= changed;
    cubesAre(set, std::move(whole));
    return true;
  }
  std::vector<uint32_t> const moved = labelsOfSmallest(set);
  if (moved.empty()) return false;
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
  return false;
}

Code Keeper::take(SetFamily const& sets) {
  Code code;
  for (uint32_t c : codes_) code.codes.push_back(static_cast<uint16_t>(c));
  code.cubes.reserve(sets.size());
  for (uint32_t s = 0; s < sets.size(); ++s) code.cubes.push_back(cubes_[distinct_.of[s]]);
  return code;
}

}  // namespace

std::optional<Code> keptCode(SetFamily const& sets, std::vector<uint64_t> const& weights,
                             LabelsInForce const& inForce, KeptSets const& kept, unsigned bits,
                             uint64_t repairRows) {
  Keeper keeper(sets, weights, inForce, kept, bits);
  if (!keeper.run(repairRows)) return std::nullopt;
  return keeper.take(sets);
}

}  // namespace Naxel::Compact
