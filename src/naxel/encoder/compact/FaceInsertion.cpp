#include "mox/Hash.h"
#include "naxel/encoder/compact/CubeCover.h"
#include "naxel/encoder/compact/Faces.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <utility>

/// Insertion. Items are placed one by one, those first that are tied most to what is placed, each at the
/// cheapest of some hundred codes: free ones inside the cubes of its sets, one bit beside them, where the
/// cubes of several of its sets come closest, and a few by a counter. The price of a code is the weight of the foreign
/// sets whose cubes match it, which have to be covered anew, and of the item's own sets that need one more
/// cube for it; where a cube grows instead, it costs a little for each bit, because a cube takes the codes that it
/// holds from all others. The weight of the sets that match a code is kept in an array.
///
/// What comes out depends much on the order and on what growing costs, so small problems are begun several times
/// with different ones, and the best is kept. The smallest ones are then improved by moves: an item
/// is taken out and put in again, and the result kept if the price is less or hardly more, the less so the later
/// ("threshold accepting", Dueck and Scheuer 1990).
///
/// Large items go first: as long as items do not grow, an aligned place of the right size is free for each.
///
/// Cost. About a hundred looks at codes for an item, each of which looks at the words of a few cubes that are in use.

namespace Naxel::Compact {

namespace {

constexpr size_t setsLookedAt = 8;
constexpr size_t cubesLookedAt = 4;
constexpr unsigned codesByCounter = 8;
constexpr size_t setsGrown = 32;

/// How often a problem is begun: so many items in all.
constexpr size_t itemsBegun = 1600;
/// What a bit costs by which a cube grows, as a part of the set's weight, in turn; the first is the best for most.
constexpr std::array<uint64_t, 7> growthParts = {16, 24, 8, 64, 256, 12, 32};
/// How items are tied to what is placed, in turn.
struct Ties {
  bool byItems;   // with each item of a set, not with the first only
  bool byShares;  // the weight of a set shared out over its items
};
constexpr std::array<Ties, 5> tiesOf = {Ties{true, true}, Ties{true, true}, Ties{false, false},
                                        Ties{true, false}, Ties{false, true}};

/// Bound of the work, in looks at words of codes: so many steps, so many for each of the first members of all sets,
/// and so many for each item.
constexpr uint64_t stepsAtLeast = 400'000;
constexpr uint64_t stepsPerMember = 400;
constexpr uint64_t manyMembers = 5000;
constexpr uint64_t stepsPerItem = 60;
/// How many times that many steps are taken in a hurry.
constexpr uint64_t stepsOfHurry = 6;

/// From so many items on a set ties its items once only.
constexpr size_t largeSet = 32;

/// Families of so few sets are improved by moves, for each item so many.
constexpr uint32_t fewSets = 64;
constexpr uint32_t movesPerItem = 30;
constexpr uint64_t stepsOfMoves = 400'000;
constexpr uint32_t maxMoves = 1200;
/// They are begun anew until so many steps have been taken.
constexpr uint64_t stepsOfStarts = 100'000;
/// By which part of the least price a move may make it worse at first.
constexpr uint64_t worsePart = 50;

using Cubes = std::vector<Cube>;

class Insertion {
 public:
  Insertion(FaceProblem const& problem, size_t start);
  /// False where the price comes to `limit` before all items are placed, or where it takes too long. Beyond so many steps
  /// hardly more than free codes are looked for.
  bool insertAll(uint64_t limit, uint64_t mostSteps);
  void improve();
  uint64_t steps() const { return steps_ + cover_.steps(); }
  uint64_t price() const { return price_; }
  Faces take() { return {std::move(places_), std::move(cubes_), price_, problem_.bits}; }

 private:
  /// A set of the item at hand that has items placed.
  struct Own {
    uint32_t set;
    bool matches = false;  // the code at hand
  };

  std::vector<uint32_t> order() const;
  Cube block(uint32_t item, uint32_t code) const { return blockCube(code, problem_.items[item]); }
  /// The cubes of the set that match the code; they may overlap.
  uint64_t matches(uint32_t set, uint32_t code) const {
    uint64_t n = 0;
    for (Cube c : cubes_[set]) n += c.contains({static_cast<uint16_t>(code), 0});
    return n;
  }
  void gatherOwn(uint32_t item);
  void changeOwn(void (CodeMap::*change)(Cube));
  void collectCodes(uint32_t item);
  void collectBeside(Cube cube, unsigned size);
  void collectFree(Cube cube, unsigned size, unsigned looks, unsigned wanted);
  Cube towardsOthers(size_t own, Cube cube) const;
  std::optional<unsigned> growth(size_t own, Cube block) const;
  uint64_t priceAt(uint32_t item, uint32_t code, uint64_t enough);
  uint16_t bestCode(uint32_t item, std::optional<uint16_t> except = {});
  uint16_t someCode(uint32_t item);
  void put(uint32_t item, uint16_t code);
  void moveOnce(uint32_t item, uint64_t worse);
  void cover(uint32_t set);
  void cubesAre(uint32_t set, Cubes cubes);

  FaceProblem const& problem_;
  SetFamily setsOf_;
  uint64_t growthPart_;
  Ties ties_;
  uint64_t counter_;
  CodeMap used_;
  CubeCover cover_;
  std::vector<uint64_t> matched_;  // for each code the weight of the cubes that match it
  std::vector<uint16_t> places_;
  std::vector<bool> placed_;
  std::vector<Cubes> cubes_;
  std::vector<Cube> hulls_;  // around the cubes of each set
  uint64_t price_ = 0;
  mutable uint64_t steps_ = 0;
  bool hurries_ = false;
  std::vector<Own> own_;          // the heaviest first
  std::vector<CodeMap> ownMaps_;  // the codes of the first of them
  std::vector<Cube> blocks_;
  std::vector<uint16_t> codes_;  // to look at
  CodeMap listed_;               // those of them that are there already
  std::vector<std::pair<uint32_t, Cubes>>* log_ = nullptr;
};

Insertion::Insertion(FaceProblem const& problem, size_t start)
    : problem_(problem),
      setsOf_(problem.sets.transposed(static_cast<uint32_t>(problem.items.size()))),
      growthPart_(growthParts[start % growthParts.size()]),
      ties_(tiesOf[start % tiesOf.size()]),
      counter_(uint64_t{start} << 32),
      used_(problem.bits),
      cover_(problem.bits),
      matched_(size_t{1} << problem.bits),
      places_(problem.items.size()),
      placed_(problem.items.size()),
      cubes_(problem.sets.size()),
      hulls_(problem.sets.size()),
      listed_(problem.bits) {
  if (problem.reservesLast) used_.insert({static_cast<uint16_t>((1u << problem.bits) - 1), 0});
}

/// What comes next: by size, and within it by what ties an item to those before. A binary heap that knows
/// where each item is, since an item is tied many times before its turn comes.
class Queue {
 public:
  struct Rank {
    uint8_t size;
    uint64_t ties;
    uint64_t weight;
    auto operator<=>(Rank const&) const = default;
  };

  explicit Queue(std::vector<Rank> ranks) : ranks_(std::move(ranks)), heap_(ranks_.size()) {
    std::iota(heap_.begin(), heap_.end(), 0u);
    std::ranges::stable_sort(heap_, [this](uint32_t a, uint32_t b) { return before(a, b); });
    at_ = heap_;
    for (uint32_t p = 0; p < heap_.size(); ++p) at_[heap_[p]] = p;
  }
  bool empty() const { return heap_.empty(); }
  bool has(uint32_t item) const { return at_[item] != SetFamily::none; }
  void tie(uint32_t item, uint64_t ties) {
    ranks_[item].ties += ties;
    uint32_t p = at_[item];
    for (; p && before(item, heap_[(p - 1) / 2]); p = (p - 1) / 2) put(p, heap_[(p - 1) / 2]);
    put(p, item);
  }
  uint32_t pop() {
    uint32_t const first = heap_[0];
    at_[first] = SetFamily::none;
    uint32_t const last = heap_.back();
    heap_.pop_back();
    if (heap_.empty()) return first;
    uint32_t p = 0;
    for (uint32_t child = 1; child < heap_.size(); child = 2 * p + 1) {
      if (child + 1 < heap_.size() && before(heap_[child + 1], heap_[child])) ++child;
      if (!before(heap_[child], last)) break;
      put(p, heap_[child]);
      p = child;
    }
    put(p, last);
    return first;
  }

 private:
  bool before(uint32_t a, uint32_t b) const {
    return ranks_[a] > ranks_[b] || (ranks_[a] == ranks_[b] && a < b);
  }
  void put(uint32_t p, uint32_t item) {
    heap_[p] = item;
    at_[item] = p;
  }
  std::vector<Rank> ranks_;
  std::vector<uint32_t> heap_;
  std::vector<uint32_t> at_;
};

std::vector<uint32_t> Insertion::order() const {
  std::vector<Queue::Rank> ranks;
  for (uint32_t i = 0; i < problem_.items.size(); ++i) {
    ranks.push_back({problem_.items[i], 0, 0});
    for (uint32_t s : setsOf_[i]) ranks.back().weight += problem_.weights[s];
  }
  Queue queue(std::move(ranks));
  std::vector<bool> begun(problem_.sets.size(), false);
  std::vector<uint32_t> out;
  while (!queue.empty()) {
    out.push_back(queue.pop());
    for (uint32_t s : setsOf_[out.back()]) {
      // Each item of a large set would tie all others anew.
      auto const items = problem_.sets[s];
      if (begun[s] && (!ties_.byItems || items.size() > largeSet)) continue;
      begun[s] = true;
      uint64_t const ties = problem_.weights[s] / (ties_.byShares ? items.size() : 1);
      for (uint32_t i : items)
        if (queue.has(i)) queue.tie(i, ties);
    }
  }
  return out;
}

void Insertion::gatherOwn(uint32_t item) {
  own_.clear();
  for (uint32_t s : setsOf_[item])
    if (!cubes_[s].empty()) own_.push_back({s});
  std::ranges::stable_sort(own_, [this](Own const& a, Own const& b) {
    return problem_.weights[a.set] > problem_.weights[b.set];
  });
  while (ownMaps_.size() < std::min(own_.size(), setsGrown)) ownMaps_.emplace_back(problem_.bits);
  changeOwn(&CodeMap::insert);
}

/// The maps are empty between items.
void Insertion::changeOwn(void (CodeMap::*change)(Cube)) {
  for (size_t k = 0; k < std::min(own_.size(), setsGrown); ++k)
    for (uint32_t i : problem_.sets[own_[k].set]) {
      if (!placed_[i]) continue;
      (ownMaps_[k].*change)(block(i, places_[i]));
      ++steps_;
    }
}

void Insertion::collectFree(Cube cube, unsigned size, unsigned looks, unsigned wanted) {
  used_.forEachFree(cube, size, looks, [&](uint32_t code) {
    codes_.push_back(static_cast<uint16_t>(code));
    return --wanted != 0;
  });
}

void Insertion::collectBeside(Cube cube, unsigned size) {
  for (unsigned b = size; b < problem_.bits; ++b)
    if (!(cube.free >> b & 1))
      collectFree({static_cast<uint16_t>(cube.value ^ 1u << b), cube.free}, size, 2, 1);
}

/// The part of a cube that lies closest to cubes of the item's other sets, the heaviest first.
Cube Insertion::towardsOthers(size_t own, Cube cube) const {
  for (size_t other = 0; other < std::min(setsLookedAt, own_.size()); ++other) {
    if (other == own) continue;
    auto const distance = [&](Cube c) {
      return bitCount(static_cast<uint16_t>((c.value ^ cube.value) & ~(c.free | cube.free)));
    };
    Cube const near = *std::ranges::min_element(cubes_[own_[other].set], {}, distance);
    cube.value = static_cast<uint16_t>(cube.value | (near.value & cube.free & ~near.free));
    cube.free &= near.free;
  }
  return cube;
}

void Insertion::collectCodes(uint32_t item) {
  codes_.clear();
  unsigned const size = problem_.items[item];
  for (size_t k = 0; k < std::min(setsLookedAt, own_.size()); ++k) {
    Cubes const& cubes = cubes_[own_[k].set];
    for (size_t j = 0; j < std::min(cubesLookedAt, cubes.size()); ++j) {
      collectFree(cubes[j], size, 32, 2);
      collectBeside(cubes[j], size);
      // Where two cubes of the set might become one.
      if (j) collectFree(cubes[j].joined(cubes[j - 1]), size, 16, 1);
    }
    Cube const closest = towardsOthers(k, cubes[0]);
    collectFree(closest, size, 4, 1);
    collectBeside(closest, size);
  }
  uint32_t const slots = 1u << (problem_.bits - size);
  for (unsigned k = 0; k < codesByCounter; ++k)
    collectFree(blockCube(static_cast<uint32_t>(Mox::mix64(++counter_) % slots) << size, size),
                size, 1, 1);
  if (codes_.empty()) collectFree(blockCube(0, problem_.bits), size, ~0u, 1);
  // Each once; a code is a block of one here.
  size_t kept = 0;
  for (uint16_t code : codes_)
    if (Cube const c{code, 0}; !listed_.meets(c)) {
      listed_.insert(c);
      codes_[kept++] = code;
    }
  codes_.resize(kept);
  for (uint16_t code : codes_) listed_.erase({code, 0});
}

/// By how many bits a cube of a set of the item's has to grow to hold the block; none where none can.
std::optional<unsigned> Insertion::growth(size_t own, Cube block) const {
  Cube const* least = nullptr;
  unsigned bits = 17;
  for (Cube const& c : cubes_[own_[own].set]) {
    Cube const joined = c.joined(block);
    if (joined.bits() >= bits) continue;
    steps_ += stepsOfLook(joined);
    if (used_.meetsOutside(joined, ownMaps_[own])) continue;
    bits = joined.bits();
    least = &c;
  }
  if (!least) return std::nullopt;
  return bits - least->bits();
}

uint64_t Insertion::priceAt(uint32_t item, uint32_t code, uint64_t enough) {
  uint64_t price = matched_[code];
  for (Own& own : own_) {
    uint64_t const n = matches(own.set, code);
    own.matches = n;
    price -= n * problem_.weights[own.set];
  }
  Cube const at = block(item, code);
  for (size_t k = 0; k < std::min(own_.size(), setsGrown) && price <= enough; ++k) {
    if (own_[k].matches) continue;
    uint64_t const weight = problem_.weights[own_[k].set];
    auto const bits = growth(k, at);
    price += bits ? *bits * (weight / growthPart_) : weight;
  }
  return price;
}

/// A free code inside a cube of the item's heaviest set, or any.
uint16_t Insertion::someCode(uint32_t item) {
  unsigned const size = problem_.items[item];
  uint32_t heaviest = SetFamily::none;
  for (uint32_t s : setsOf_[item])
    if (!cubes_[s].empty() &&
        (heaviest == SetFamily::none || problem_.weights[s] > problem_.weights[heaviest]))
      heaviest = s;
  codes_.clear();
  if (heaviest != SetFamily::none) {
    collectFree(cubes_[heaviest][0], size, 8, 1);
    if (codes_.empty()) collectBeside(cubes_[heaviest][0], size);
  }
  if (codes_.empty()) collectFree(blockCube(0, problem_.bits), size, ~0u, 1);
  return *std::ranges::min_element(codes_, {}, [this](uint16_t code) { return matched_[code]; });
}

uint16_t Insertion::bestCode(uint32_t item, std::optional<uint16_t> except) {
  if (hurries_) return someCode(item);
  gatherOwn(item);
  collectCodes(item);
  steps_ += codes_.size();
  uint64_t least = ~uint64_t{0};
  uint16_t best = codes_.front();
  for (uint16_t code : codes_) {
    if (except == code) continue;
    uint64_t const price = priceAt(item, code, least);
    if (price > least || (price == least && code > best)) continue;
    least = price;
    best = code;
  }
  changeOwn(&CodeMap::erase);
  return best;
}

void Insertion::cubesAre(uint32_t set, Cubes cubes) {
  uint64_t const weight = problem_.weights[set];
  auto const add = [this](Cube cube, uint64_t by) {
    forEachCode(cube, 0, [&](uint32_t code) {
      matched_[code] += by;
      return true;
    });
  };
  for (Cube c : cubes_[set]) add(c, ~weight + 1);
  for (Cube c : cubes) add(c, weight);
  if (!cubes.empty()) hulls_[set] = cubes[0];
  for (Cube c : cubes) hulls_[set] = hulls_[set].joined(c);
  price_ += weight * cubes.size() - weight * cubes_[set].size();
  cubes_[set].swap(cubes);
  if (log_) log_->emplace_back(set, std::move(cubes));
}

void Insertion::cover(uint32_t set) {
  blocks_.clear();
  for (uint32_t i : problem_.sets[set])
    if (placed_[i]) blocks_.push_back(block(i, places_[i]));
  steps_ += blocks_.size();
  cubesAre(set, cover_.cover(used_, blocks_, !hurries_));
}

void Insertion::put(uint32_t item, uint16_t code) {
  places_[item] = code;
  placed_[item] = true;
  used_.insert(block(item, code));
  auto const own = setsOf_[item];
  uint64_t foreign = matched_[code];
  for (uint32_t s : own) foreign -= matches(s, code) * problem_.weights[s];
  if (foreign) steps_ += problem_.sets.size() / 16;
  for (uint32_t s = 0; foreign; ++s) {
    if (!hulls_[s].contains({code, 0}) || std::ranges::binary_search(own, s)) continue;
    uint64_t const n = matches(s, code);
    if (!n) continue;
    foreign -= n * problem_.weights[s];
    cover(s);
  }
  for (uint32_t s : own)
    if (!matches(s, code)) cover(s);
}

bool Insertion::insertAll(uint64_t limit, uint64_t mostSteps) {
  for (uint32_t item : order()) {
    if (price_ >= limit || steps() > mostSteps * stepsOfHurry) return false;
    hurries_ = steps() > mostSteps;
    put(item, bestCode(item));
  }
  hurries_ = false;
  for (uint32_t s = 0; s < problem_.sets.size(); ++s) cover(s);
  return true;
}

void Insertion::moveOnce(uint32_t item, uint64_t worse) {
  uint64_t const before = price_;
  uint16_t const code = places_[item];
  std::vector<std::pair<uint32_t, Cubes>> log;
  log_ = &log;
  used_.erase(block(item, code));
  placed_[item] = false;
  for (uint32_t s : setsOf_[item]) cover(s);
  put(item, bestCode(item, code));
  log_ = nullptr;
  if (price_ <= before + worse) return;
  used_.erase(block(item, places_[item]));
  for (; !log.empty(); log.pop_back()) cubesAre(log.back().first, std::move(log.back().second));
  places_[item] = code;
  used_.insert(block(item, code));
}

void Insertion::improve() {
  // Only the smallest ones: where one was, another of its size has a place, and no cube cuts it.
  auto const items = static_cast<uint32_t>(problem_.items.size());
  auto const smallest =
      static_cast<uint32_t>(std::ranges::count(problem_.items, problem_.items.back()));
  uint32_t const moves = std::min(maxMoves * problem_.effort / 1024, movesPerItem * items);
  uint64_t const least = problem_.leastPrice();
  uint64_t best = price_;
  std::vector<uint16_t> places = places_;
  uint64_t const most = stepsOfMoves * problem_.effort / 1024;
  uint64_t const from = steps();
  for (uint32_t m = 0; m < moves && best > least && steps() - from < most; ++m) {
    // What is left of the moves or of the steps, whichever is less.
    uint64_t const left =
        std::min(uint64_t{moves - m} * 1024 / moves, (most - (steps() - from)) * 1024 / most);
    moveOnce(items - 1 - static_cast<uint32_t>(Mox::mix64(++counter_) % smallest),
             least / worsePart * left / 1024);
    if (price_ >= best) continue;
    best = price_;
    places = places_;
  }
  if (price_ == best) return;
  Faces faces = coveredFaces(problem_, std::move(places));
  places_ = std::move(faces.places);
  cubes_ = std::move(faces.cubes);
  price_ = faces.price;
}

}  // namespace

std::optional<Faces> facesByInsertion(FaceProblem const& problem, uint64_t limit,
                                      size_t mostStarts) {
  std::optional<Insertion> best;
  size_t const starts =
      std::clamp<size_t>(itemsBegun * problem.effort / 1024 / problem.items.size(), 1, mostStarts);
  uint64_t const least = problem.leastPrice();
  uint64_t steps = stepsAtLeast +
                   stepsPerMember * std::min<uint64_t>(problem.sets.members(), manyMembers) +
                   stepsPerItem * problem.items.size();
  bool const few = problem.sets.size() <= fewSets;
  uint64_t const enough = few ? stepsOfStarts * problem.effort / 1024 : steps;
  uint64_t const all = steps;
  uint64_t longest = 0;
  for (size_t start = 0;
       start < starts && limit > least && (start == 0 || (steps > longest && all - steps < enough));
       ++start) {
    Insertion next(problem, start);
    bool const placed = next.insertAll(limit, steps);
    steps -= std::min(steps, next.steps());
    longest = std::max(longest, next.steps());
    if (!placed || next.price() >= limit) continue;
    limit = next.price();
    best.reset();
    best.emplace(std::move(next));
  }
  if (!best) return std::nullopt;
  if (mostStarts > 1 && few) best->improve();
  return best->take();
}

}  // namespace Naxel::Compact
