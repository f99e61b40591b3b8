#include "naxel/encoder/compact/CompactCode.h"

#include "mox/Assert.h"
#include "naxel/encoder/compact/Crossing.h"
#include "naxel/encoder/compact/CubeCover.h"
#include "naxel/encoder/compact/DistinctSets.h"
#include "naxel/encoder/compact/Faces.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace Naxel::Compact {

namespace {

/// How many components are asked whether bits that are left over help them, and up to how many bits more.
constexpr size_t componentsWithMore = 16;
constexpr unsigned moreBits = 8;
/// Families of more members are covered in one order only.
constexpr size_t largeFamily = 20'000;
/// Components of so few items are tried in fewer bits than they could have, in so many widths more than they need.
constexpr size_t fewItems = 64;
constexpr unsigned bitsTried = 4;

/// Calls `f(bits)` for the blocks that make up a room, the largest first.
template <class F>
void forEachPiece(uint32_t room, F f) {
  for (; room; room ^= std::bit_floor(room)) f(static_cast<unsigned>(std::bit_width(room)) - 1);
}

/// The room of the fewest blocks that holds `content` and is no larger than `most`.
uint32_t fewestPieces(uint32_t content, uint32_t most) {
  uint32_t room = content;
  while (room & (room - 1)) {
    uint32_t const rounded = room + (room & -room);
    if (rounded > most) break;
    room = rounded;
  }
  return room;
}

/// What a quick look finds in so many bits, if all sets are faces there.
std::optional<Faces> allFaces(FaceProblem problem, unsigned bits) {
  problem.reservesLast = problem.reservesLast && bits == problem.bits;
  problem.bits = bits;
  uint64_t const least = problem.leastPrice();
  std::optional<Faces> faces = facesByLayers(problem);
  if (!faces || faces->price > least) faces = facesByInsertion(problem, least + 1, 1);
  if (faces && faces->price > least) faces.reset();
  return faces;
}

/// By the cheapest way; the items must fit in the space.
Faces bestFaces(FaceProblem const& problem) {
  std::optional<Faces> layers = facesByLayers(problem);
  if (layers && layers->price == problem.leastPrice()) return std::move(*layers);
  Faces best = *facesInOrder(problem, false);
  auto const consider = [&](std::optional<Faces> faces) {
    if (faces && faces->price < best.price) best = std::move(*faces);
  };
  // Where layers do better than one order, sets are no ranges, and the other does not suit them either.
  if (layers && layers->price < best.price)
    consider(std::move(layers));
  else if (problem.sets.members() <= largeFamily)
    consider(facesInOrder(problem, true));
  consider(facesByInsertion(problem, best.price));
  return best;
}

class Layout {
 public:
  Layout(SetFamily const& sets, std::vector<uint64_t> const& weights, uint32_t n, unsigned bits);
  Code take() { return std::move(code_); }

 private:
  /// An aligned block in which contents of an atom lie.
  struct Piece {
    unsigned bits;
    uint32_t first;
  };
  using Pieces = std::vector<Piece>;

  bool isSingle(uint32_t c) const { return tree_.sets[c].size() == 1; }
  uint32_t content(uint32_t atom) const {
    auto sum = static_cast<uint32_t>(tree_.labels[atom].size());
    for (uint32_t c : tree_.children[atom]) sum += room_[c];
    return sum;
  }
  uint32_t fullRoom(uint32_t c) const;
  void measure();
  void giveRoom();
  void takeRoom(uint64_t priceOfCode);
  uint64_t priceOfPieces(uint32_t c, uint32_t room) const;
  uint64_t priceOfPieces() const;
  void shareAll(uint32_t most);
  void share(uint32_t atom, uint32_t most);
  void giveMoreBits();
  bool widen(uint32_t c, unsigned more);
  void placeRoot();
  void placeIn(uint32_t c);
  void fill(uint32_t atom, Pieces const& pieces);
  /// A problem, and what its items and sets are.
  struct Shared {
    FaceProblem problem;
    std::vector<std::pair<unsigned, uint32_t>> items;  // bits and atom; atom 0 for what lies beside
    std::vector<uint32_t> sets;
  };
  Shared problemOf(std::vector<uint32_t> const& components, unsigned bits, uint32_t others,
                   bool reservesLast);
  Pieces solve(std::vector<uint32_t> const& components, Piece space, uint32_t others,
               bool reservesLast);
  void listAtoms();
  void coverAll(SetFamily const& sets);
  void solveFlat();

  unsigned bits_;
  DistinctSets distinct_;
  CrossingTree tree_;
  std::vector<uint32_t> componentOf_;  // of each atom; SetFamily::none of the outermost
  std::vector<uint32_t> labels_;  // of each component with all below it: what it takes at least
  std::vector<uint64_t> weight_;  // of each component with all below it
  std::vector<uint32_t> first_;   // of each atom with all below it: its lowest label
  std::vector<uint32_t> room_;    // of each component
  std::vector<unsigned>
      faceBits_;  // of each component, where so many are known to make all its sets faces
  uint64_t crossingWeight_ = 0;  // of all sets that cross
  std::vector<uint32_t> full_;   // that it could use
  std::vector<bool> loose_;      // of each component: whether its atoms have no block in common
  std::vector<Pieces> pieces_;   // of each component that has blocks of its own
  std::vector<Pieces> atomPieces_;
  std::vector<std::vector<uint32_t>> atomsOf_;  // of each set that crosses others
  std::vector<std::vector<uint32_t>> itemsOf_;  // of each atom of the problem at hand
  std::vector<std::vector<Cube>>
      cubes_;  // of each distinct set, where they are found before the end
  Code code_;
};

Layout::Layout(SetFamily const& sets, std::vector<uint64_t> const& weights, uint32_t n,
               unsigned bits)
    : bits_(bits),
      distinct_(sets, weights, 2),
      tree_(crossingTree(distinct_.sets, n)),
      componentOf_(tree_.labels.size(), SetFamily::none),
      pieces_(tree_.components()),
      atomPieces_(tree_.labels.size()),
      atomsOf_(distinct_.sets.size()),
      itemsOf_(tree_.labels.size()),
      cubes_(distinct_.sets.size()) {
  MOX_ASSERT(n < uint32_t{1} << bits);
  for (uint32_t c = 0; c < tree_.components(); ++c)
    for (uint32_t a : tree_.atoms[c]) componentOf_[a] = c;
  code_.codes.resize(n);
  listAtoms();
  measure();
  giveRoom();
  placeRoot();
  for (uint32_t c = 0; c < tree_.components(); ++c) placeIn(c);
  coverAll(sets);
}

void Layout::listAtoms() {
  for (uint32_t a = 0; a < tree_.labels.size(); ++a)
    first_.push_back(tree_.labels[a].empty() ? SetFamily::none : tree_.labels[a].front());
  for (uint32_t c = tree_.components(); c-- > 0;)
    for (uint32_t a : tree_.atoms[c])
      first_[tree_.parent[c]] = std::min(first_[tree_.parent[c]], first_[a]);
  first_[0] = 0;
  std::vector<uint32_t> innermost(code_.codes.size());
  for (uint32_t a = 0; a < tree_.labels.size(); ++a)
    for (uint32_t l : tree_.labels[a]) innermost[l] = a;
  std::vector<uint32_t> seen(tree_.labels.size(), SetFamily::none);
  for (uint32_t c = 0; c < tree_.components(); ++c) {
    if (isSingle(c)) continue;
    for (uint32_t s : tree_.sets[c])
      for (uint32_t l : distinct_.sets[s])
        // Up to the component's own atom, or to where another label has passed.
        for (uint32_t a = innermost[l]; std::exchange(seen[a], s) != s;
             a = tree_.parent[componentOf_[a]])
          if (componentOf_[a] == c) {
            atomsOf_[s].push_back(a);
            break;
          }
  }
}

/// The room in which no set takes more cubes than it must, given that of what lies inside.
uint32_t Layout::fullRoom(uint32_t c) const {
  uint32_t sum = 0;
  for (uint32_t a : tree_.atoms[c]) sum += std::bit_ceil(content(a));
  return std::bit_ceil(sum);
}

void Layout::measure() {
  uint32_t const n = tree_.components();
  labels_.assign(n, 0);
  weight_.assign(n, 0);
  room_.assign(n, 0);
  loose_.assign(n, false);
  faceBits_.assign(n, 0);
  // From the innermost ones on.
  for (uint32_t c = n; c-- > 0;) {
    for (uint32_t s : tree_.sets[c]) weight_[c] += distinct_.weights[s];
    if (!isSingle(c)) crossingWeight_ += weight_[c];
    for (uint32_t a : tree_.atoms[c]) {
      labels_[c] += static_cast<uint32_t>(tree_.labels[a].size());
      for (uint32_t child : tree_.children[a]) {
        labels_[c] += labels_[child];
        weight_[c] += weight_[child];
      }
    }
    // More than that has no place anyway; nested rounding could double it without end.
    room_[c] = std::min(fullRoom(c), uint32_t{1} << 17);
  }
}

void Layout::giveRoom() {
  uint32_t const most = (uint32_t{1} << bits_) - 1;
  if (content(0) <= most) return giveMoreBits();
  // What a code must be worth, as low as it can be.
  full_ = room_;
  uint64_t const dearest = uint64_t{1} << 33;  // times any room it fits in a word
  uint64_t low = 0;
  uint64_t high = dearest;
  while (low + 1 < high) {
    uint64_t const middle = low + (high - low) / 2;
    takeRoom(middle);
    (content(0) <= most ? high : low) = middle;
  }
  // Prices are of whole blocks, so the lowest one that fits need not be the best: what rounding has left over then
  // goes to what lies inside, by another measure.
  std::vector<uint32_t> best = labels_;
  uint64_t least = ~uint64_t{0};
  for (uint64_t price = high; price < dearest; price *= 4) {
    takeRoom(price);
    if (content(0) > most) continue;
    shareAll(most);
    uint64_t const pieces = priceOfPieces();
    if (pieces >= least) continue;
    least = pieces;
    best = room_;
  }
  room_ = std::move(best);
  for (uint32_t c = 0; c < tree_.components(); ++c)
    loose_[c] = !isSingle(c) && !std::has_single_bit(room_[c]);
}

/// Hands out what is left over everywhere, from the outermost on.
void Layout::shareAll(uint32_t most) {
  share(0, most);
  for (uint32_t c = 0; c < tree_.components(); ++c)
    for (uint32_t a : tree_.atoms[c]) {
      if (isSingle(c))
        share(a, room_[c]);
      else if (room_[c] >= full_[c])
        for (uint32_t child : tree_.children[a]) room_[child] = full_[child];
    }
}

/// What a component takes for its sets, by the blocks of its room. Sets that cross need more without a block in
/// common, however many blocks their room has.
uint64_t Layout::priceOfPieces(uint32_t c, uint32_t room) const {
  uint64_t own = 0;
  for (uint32_t s : tree_.sets[c]) own += distinct_.weights[s];
  return own * static_cast<uint64_t>(isSingle(c)                 ? std::popcount(room)
                                     : std::has_single_bit(room) ? 1
                                                                 : 2);
}

uint64_t Layout::priceOfPieces() const {
  uint64_t sum = 0;
  for (uint32_t c = 0; c < tree_.components(); ++c) sum += priceOfPieces(c, room_[c]);
  return sum;
}

/// Has each component take the room in which its sets' pieces and its codes cost least together, from the innermost
/// one on. A set without a block takes a piece for each binary one of its room.
void Layout::takeRoom(uint64_t priceOfCode) {
  for (uint32_t c = tree_.components(); c-- > 0;) {
    uint32_t sum = 0;
    for (uint32_t a : tree_.atoms[c]) sum += content(a);
    uint64_t least = ~uint64_t{0};
    for (uint32_t room = sum;; room += room & -room) {
      uint64_t const price = priceOfPieces(c, room) + priceOfCode * room;
      if (price < least) {
        least = price;
        room_[c] = room;
      }
      if (std::has_single_bit(room)) break;
    }
  }
}

/// Hands out what an atom has more room than its contents take: the components with the most weight for a code
/// more come first.
void Layout::share(uint32_t atom, uint32_t most) {
  uint32_t const taken = content(atom);
  MOX_ASSERT(taken <= most);
  uint32_t left = most - taken;
  if (left == 0) return;
  std::vector<uint32_t> order(tree_.children[atom].begin(), tree_.children[atom].end());
  std::erase_if(order, [this](uint32_t c) { return room_[c] >= full_[c]; });
  auto const more = [&](uint32_t c) { return uint64_t{full_[c]} - room_[c]; };
  std::ranges::stable_sort(order, [&](uint32_t a, uint32_t b) {
    return (weight_[a] >> 8) * more(b) > (weight_[b] >> 8) * more(a);
  });
  for (uint32_t c : order) {
    uint32_t const before = room_[c];
    if (more(c) <= left)
      room_[c] = full_[c];
    else if (isSingle(c))
      room_[c] = fewestPieces(room_[c], room_[c] + left);
    left -= room_[c] - before;
  }
}

/// Whether all still fits if the component has so many bits more; if so it has them.
bool Layout::widen(uint32_t c, unsigned more) {
  std::vector<std::pair<uint32_t, uint32_t>> before;
  auto const set = [&](uint32_t at, uint32_t room) {
    before.emplace_back(at, room_[at]);
    room_[at] = room;
  };
  set(c, room_[c] << more);
  while (tree_.parent[c] != 0) {
    c = componentOf_[tree_.parent[c]];
    uint32_t const room = fullRoom(c);
    if (room > room_[c]) set(c, room);
  }
  if (content(0) < uint32_t{1} << bits_) return true;
  for (; !before.empty(); before.pop_back()) room_[before.back().first] = before.back().second;
  return false;
}

void Layout::giveMoreBits() {
  auto const own = [this](uint32_t c) {
    uint64_t sum = 0;
    for (uint32_t s : tree_.sets[c]) sum += distinct_.weights[s];
    return sum;
  };
  std::vector<std::pair<uint64_t, uint32_t>> heaviest;
  for (uint32_t c = 0; c < tree_.components(); ++c)
    if (!isSingle(c)) heaviest.emplace_back(~own(c), c);
  std::sort(heaviest.begin(), heaviest.end());
  if (heaviest.size() > componentsWithMore) heaviest.resize(componentsWithMore);
  for (auto const& [weight, c] : heaviest) {
    auto const now = static_cast<unsigned>(std::countr_zero(room_[c]));
    unsigned more = std::min(moreBits, bits_ - now);
    if (tree_.atoms[c].size() <= fewItems) {
      FaceProblem const problem = problemOf({c}, now + more + 1, 0, false).problem;
      for (unsigned bits = now; bits <= std::min(now + more, now + bitsTried) && !faceBits_[c];
           ++bits)
        if (allFaces(problem, bits)) {
          faceBits_[c] = bits;
          more = bits - now;
        }
    }
    while (more && (uint64_t{room_[c]} << more >> bits_ || !widen(c, more))) --more;
  }
}

void Layout::fill(uint32_t atom, Pieces const& pieces) {
  struct Block {
    unsigned bits;
    Pieces* of;
  };
  std::vector<Block> blocks;
  for (uint32_t c : tree_.children[atom]) {
    if (!loose_[c]) {
      forEachPiece(room_[c], [&](unsigned bits) { blocks.push_back({bits, &pieces_[c]}); });
    } else if (atom != 0) {  // there they have been placed
      for (uint32_t a : tree_.atoms[c])
        forEachPiece(content(a), [&](unsigned bits) { blocks.push_back({bits, &atomPieces_[a]}); });
    }
  }
  std::stable_sort(blocks.begin(), blocks.end(),
                   [](Block const& a, Block const& b) { return a.bits > b.bits; });
  auto piece = pieces.begin();
  uint32_t taken = 0;
  auto const next = [&](unsigned bits) {
    if (piece != pieces.end() && taken == uint32_t{1} << piece->bits) {
      ++piece;
      taken = 0;
    }
    MOX_ASSERT(piece != pieces.end() && bits <= piece->bits);
    uint32_t const first = piece->first + taken;
    taken += uint32_t{1} << bits;
    return first;
  };
  for (Block const& b : blocks) b.of->push_back({b.bits, next(b.bits)});
  for (uint32_t l : tree_.labels[atom]) code_.codes[l] = static_cast<uint16_t>(next(0));
}

/// The atoms of components as items of one problem, each as one block where there is room for rounding. `others`
/// codes are for what lies beside them.
Layout::Shared Layout::problemOf(std::vector<uint32_t> const& components, unsigned bits,
                                 uint32_t others, bool reservesLast) {
  Shared shared;
  FaceProblem& problem = shared.problem;
  problem.bits = bits;
  problem.reservesLast = reservesLast;
  uint64_t rounded = others;
  for (uint32_t c : components)
    for (uint32_t a : tree_.atoms[c]) rounded += std::bit_ceil(content(a));
  bool const rounds = rounded <= (uint64_t{1} << bits) - reservesLast;
  auto& items = shared.items;
  forEachPiece(others, [&](unsigned b) { items.emplace_back(b, 0); });
  for (uint32_t c : components)
    for (uint32_t a : tree_.atoms[c]) {
      uint32_t const room = content(a);
      forEachPiece(rounds ? std::bit_ceil(room) : room,
                   [&](unsigned b) { items.emplace_back(b, a); });
    }
  std::ranges::stable_sort(items, [this](auto const& a, auto const& b) {
    return a.first != b.first ? a.first > b.first : first_[a.second] < first_[b.second];
  });
  for (uint32_t i = 0; i < items.size(); ++i) {
    problem.items.push_back(static_cast<uint8_t>(items[i].first));
    itemsOf_[items[i].second].push_back(i);
  }
  for (uint32_t c : components)
    for (uint32_t s : tree_.sets[c]) {
      shared.sets.push_back(s);
      problem.weights.push_back(distinct_.weights[s]);
      for (uint32_t a : atomsOf_[s])
        for (uint32_t i : itemsOf_[a]) problem.sets.add(i);
      problem.sets.end();
    }
  for (auto const& [b, a] : items) itemsOf_[a].clear();
  return shared;
}

/// Solves components that share a space. Returns where in it there is room for what lies beside them.
Layout::Pieces Layout::solve(std::vector<uint32_t> const& components, Piece space, uint32_t others,
                             bool reservesLast) {
  auto [problem, items, sets] = problemOf(components, space.bits, others, reservesLast);
  uint64_t weight = 0;
  for (uint64_t w : problem.weights) weight += w;
  problem.effort = static_cast<uint32_t>((weight << 10) / (crossingWeight_ + 1));
  std::optional<Faces> known;
  if (others == 0 && components.size() == 1)
    if (unsigned const bits = faceBits_[components[0]]; bits && bits <= space.bits)
      known = allFaces(problem, bits);
  Faces faces = known ? std::move(*known) : bestFaces(problem);
  auto const at = [&](uint16_t code) { return static_cast<uint16_t>(space.first + code); };
  for (size_t k = 0; k < sets.size(); ++k) {
    for (Cube& c : faces.cubes[k]) c.value = at(c.value);
    cubes_[sets[k]] = std::move(faces.cubes[k]);
  }
  Pieces beside;
  for (uint32_t i = 0; i < items.size(); ++i)
    (items[i].second ? atomPieces_[items[i].second] : beside)
        .push_back({items[i].first, at(faces.places[i])});
  return beside;
}

void Layout::placeRoot() {
  // Components without a block, and one that can have everything, share the whole space with the rest.
  std::vector<uint32_t> shared;
  uint32_t others = content(0);
  for (uint32_t c : tree_.children[0]) {
    // Half of the space is the most that a block can be.
    bool const large = !isSingle(c) && room_[c] == uint32_t{1} << (bits_ - 1);
    if (!loose_[c] && !large) continue;
    loose_[c] = true;
    others -= room_[c];
    shared.push_back(c);
  }
  Piece const whole{bits_, 0};
  if (shared.empty()) return fill(0, {whole});
  fill(0, solve(shared, whole, others, true));
}

void Layout::placeIn(uint32_t c) {
  if (isSingle(c)) {
    fill(tree_.atoms[c][0], pieces_[c]);
    return;
  }
  if (!loose_[c]) {
    MOX_ASSERT(pieces_[c].size() == 1);
    solve({c}, pieces_[c][0], 0, false);
  }
  for (uint32_t a : tree_.atoms[c]) fill(a, atomPieces_[a]);
}

/// All labels and sets as one problem, where that comes out cheaper than block by block: a component may then use codes
/// that a block beside it leaves empty.
void Layout::solveFlat() {
  FaceProblem problem;
  problem.bits = bits_;
  problem.reservesLast = true;
  problem.items.assign(code_.codes.size(), 0);
  problem.sets = distinct_.sets;
  problem.weights = distinct_.weights;
  uint64_t price = 0;
  for (uint32_t s = 0; s < cubes_.size(); ++s) price += problem.weights[s] * cubes_[s].size();
  if (price == problem.leastPrice()) return;
  if (std::optional<Faces> faces = facesByInsertion(problem, price)) {
    code_.codes = std::move(faces->places);
    cubes_ = std::move(faces->cubes);
  }
}

void Layout::coverAll(SetFamily const& sets) {
  CodeMap used(bits_);
  used.insert({static_cast<uint16_t>((uint32_t{1} << bits_) - 1), 0});
  for (uint16_t code : code_.codes) used.insert({code, 0});
  CubeCover cover(bits_);
  std::vector<Cube> places;
  for (uint32_t c = 0; c < tree_.components(); ++c)
    for (uint32_t s : tree_.sets[c]) {
      if (!cubes_[s].empty()) continue;
      places.clear();
      if (isSingle(c)) {
        for (Piece const& p : pieces_[c]) places.push_back(blockCube(p.first, p.bits));
      } else {
        for (uint32_t a : atomsOf_[s])
          for (Piece const& p : atomPieces_[a]) places.push_back(blockCube(p.first, p.bits));
      }
      cubes_[s] = cover.cover(used, places, true);
    }
  if (code_.codes.size() <= fewItems && distinct_.sets.size() <= fewItems) solveFlat();
  code_.cubes.reserve(sets.size());
  for (uint32_t s = 0; s < sets.size(); ++s) {
    if (distinct_.of[s] != SetFamily::none)
      code_.cubes.emplace_back(cubes_[distinct_.of[s]]);
    else
      code_.cubes.emplace_back().push_back({code_.codes[sets[s][0]], 0});
  }
}

}  // namespace

Code compactCode(SetFamily const& sets, std::vector<uint64_t> const& weights, uint32_t n,
                 unsigned bits) {
  return Layout(sets, weights, n, bits).take();
}

}  // namespace Naxel::Compact
