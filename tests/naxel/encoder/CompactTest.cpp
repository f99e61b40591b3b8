/// The parts of the compact code against naive models, and its price against the least that there is.

#include "naxel/encoder/compact/CompactCode.h"
#include "naxel/encoder/compact/Crossing.h"
#include "naxel/encoder/compact/CubeCover.h"
#include "naxel/encoder/compact/Faces.h"
#include "support/LabelSets.h"
#include "support/Thinning.h"
#include "support/Vocabulary.h"

#include <algorithm>
#include <bit>
#include <map>
#include <numeric>
#include <set>
#include <unordered_map>

#include <gtest/gtest.h>

namespace Test {
namespace {

using namespace Naxel::Compact;
/// A set of up to 32 labels or codes, a bit each.
using Bits = uint32_t;
using Lists = std::vector<std::vector<uint32_t>>;

std::vector<uint32_t> membersOf(Bits set) {
  std::vector<uint32_t> out;
  for (; set; set &= set - 1) out.push_back(static_cast<uint32_t>(std::countr_zero(set)));
  return out;
}
Bits bitsOf(auto const& members) {
  Bits out = 0;
  for (uint32_t m : members) out |= Bits{1} << m;
  return out;
}
SetFamily familyOf(Lists const& lists) {
  SetFamily out;
  for (auto const& list : lists) {
    for (uint32_t m : list) out.add(m);
    out.end();
  }
  return out;
}
/// The codes of a cube of at most five bits.
Bits codesOf(Cube cube) {
  Bits out = 0;
  for (uint32_t code = 0; code < 32; ++code)
    if (((code ^ cube.value) & ~cube.free) == 0) out |= Bits{1} << code;
  return out;
}

/// The fewest cubes of a width that hold all of `blocks`, each as a whole, and none of `foreign`.
uint32_t fewestCubes(std::vector<Bits> const& blocks, Bits foreign, uint32_t width) {
  uint32_t const full = (1u << width) - 1;
  std::set<Bits> held;  // which blocks one cube can hold, a bit each
  for (uint32_t free = 0; free <= full; ++free)
    for (uint32_t value = 0; value <= full; ++value) {
      if (value & free) continue;
      Bits const codes = codesOf({static_cast<uint16_t>(value), static_cast<uint16_t>(free)});
      Bits holds = 0;
      for (size_t i = 0; i < blocks.size(); ++i)
        if (!(blocks[i] & ~codes)) holds |= Bits{1} << i;
      if (holds && !(codes & foreign)) held.insert(holds);
    }
  std::vector<Bits> largest;
  for (Bits h : held)
    if (std::ranges::none_of(held, [h](Bits o) { return o != h && !(h & ~o); }))
      largest.push_back(h);
  // One cube more each time, from the lowest block that is left on.
  std::vector<Bits> left = {static_cast<Bits>((uint64_t{1} << blocks.size()) - 1)};
  for (uint32_t cubes = 0;; ++cubes) {
    std::set<Bits> next;
    for (Bits l : left) {
      if (!l) return cubes;
      for (Bits h : largest)
        if (h & l & -l) next.insert(l & ~h);
    }
    left.assign(next.begin(), next.end());
  }
}

/// Of each set the first one that is tied to it by crossing.
std::vector<uint32_t> componentsOf(std::vector<Bits> const& sets) {
  std::vector<uint32_t> out(sets.size());
  std::iota(out.begin(), out.end(), 0u);
  for (bool changed = true; changed;) {
    changed = false;
    for (size_t a = 0; a < sets.size(); ++a)
      for (size_t b = 0; b < sets.size(); ++b) {
        Bits const both = sets[a] & sets[b];
        if (!both || both == sets[a] || both == sets[b] || out[a] <= out[b]) continue;
        out[a] = out[b];
        changed = true;
      }
  }
  return out;
}

TEST(CrossingTree, IsThatOfTheNaiveModel) {
  SeededDice dice(1);
  for (uint64_t round = 0; round < 3000; round += thinning()) {
    auto const n = static_cast<uint32_t>(dice.between(2, 14));
    std::set<Bits> drawn;
    for (uint64_t k = dice.between(1, 9); k > 0; --k) {
      // Some within others, and runs as well as choices.
      Bits set = (Bits{1} << n) - 1;
      if (!drawn.empty() && dice.oneIn(2)) set = dice.of(std::vector(drawn.begin(), drawn.end()));
      set &= dice.oneIn(2) ? static_cast<Bits>(dice.below(Bits{1} << n))
                           : ((Bits{1} << dice.between(1, n)) - 1) & ~Bits{0} << dice.below(n);
      if (std::popcount(set) > 1) drawn.insert(set);
    }
    std::vector<Bits> sets(drawn.begin(), drawn.end());
    std::ranges::stable_sort(sets, std::greater(), [](Bits s) { return std::popcount(s); });
    std::vector<uint32_t> const wanted = componentsOf(sets);
    Lists lists;
    for (Bits s : sets) lists.push_back(membersOf(s));
    CrossingTree const tree = crossingTree(familyOf(lists), n);

    // Of each atom all labels, those of the components below it included.
    std::vector<Bits> whole(tree.labels.size()), unions(tree.components());
    for (uint32_t a = 0; a < whole.size(); ++a) whole[a] = bitsOf(tree.labels[a]);
    for (uint32_t c = tree.components(); c-- > 0;) {
      for (uint32_t a : tree.atoms[c]) {
        ASSERT_EQ(unions[c] & whole[a], 0u);
        unions[c] |= whole[a];
      }
      ASSERT_LT(tree.parent[c], whole.size());
      ASSERT_EQ(whole[tree.parent[c]] & unions[c], 0u);
      whole[tree.parent[c]] |= unions[c];
    }
    ASSERT_EQ(whole[0], (Bits{1} << n) - 1);
    std::vector<uint32_t> componentOf(whole.size(), SetFamily::none);
    std::set<uint32_t> classes;
    size_t members = 0;
    for (uint32_t c = 0; c < tree.components(); ++c) {
      uint32_t const parent = componentOf[tree.parent[c]];
      ASSERT_TRUE(tree.parent[c] == 0 || parent < c) << round;
      for (uint32_t a : tree.atoms[c]) componentOf[a] = c;
      ASSERT_TRUE(std::ranges::binary_search(tree.children[tree.parent[c]], c));
      // One class of sets, all of it, and its atoms.
      classes.insert(wanted[tree.sets[c][0]]);
      std::map<Bits, Bits> atoms;  // by the sets that hold them
      for (uint32_t l : membersOf(unions[c])) {
        Bits in = 0;
        for (uint32_t s : tree.sets[c]) in |= (sets[s] >> l & 1) << s;
        atoms[in] |= Bits{1} << l;
      }
      std::set<Bits> expected, made;
      for (auto const& [in, atom] : atoms) expected.insert(atom);
      for (uint32_t a : tree.atoms[c]) made.insert(whole[a]);
      ASSERT_EQ(made, expected) << round;
      ASSERT_FALSE(atoms.contains(0));
      for (uint32_t s : tree.sets[c]) ASSERT_EQ(wanted[s], wanted[tree.sets[c][0]]);
      members += tree.sets[c].size();
      // It hangs as low as it can: no set between it and the atom.
      for (uint32_t s = 0; s < sets.size(); ++s) {
        if (wanted[s] != wanted[tree.sets[c][0]] && !(unions[c] & ~sets[s])) {
          ASSERT_FALSE(whole[tree.parent[c]] & ~sets[s]) << round;
        }
      }
    }
    ASSERT_EQ(members, sets.size());
    ASSERT_EQ(classes.size(), tree.components()) << round;
  }
}

TEST(CrossingTree, SplitsAndNestsAsInItsExample) {
  CrossingTree const tree =
      crossingTree(familyOf({{0, 1, 2, 3, 4, 5}, {1, 2, 3}, {3, 4}, {1, 2}}), 6);
  ASSERT_EQ(tree.components(), 3u);
  EXPECT_EQ(tree.sets[1].size(), 2u);
  EXPECT_EQ(tree.atoms[1].size(), 3u);
  EXPECT_EQ(bitsOf(tree.labels[tree.atoms[2][0]]), 0b110u);
  EXPECT_EQ(bitsOf(tree.labels[tree.parent[1]]), 0b100001u);
}

/// Covers places among codes in use; checks that the cubes hold them and nothing foreign.
std::vector<Cube> coverOf(std::vector<Cube> const& places, Bits used, uint32_t width,
                          bool exactly) {
  CodeMap map(width);
  for (uint32_t code : membersOf(used)) map.insert({static_cast<uint16_t>(code), 0});
  CubeCover cover(width);
  std::vector<Cube> const cubes = cover.cover(map, places, exactly);
  Bits own = 0, held = 0;
  for (Cube p : places) own |= codesOf(p);
  for (Cube c : cubes) held |= codesOf(c);
  EXPECT_EQ(own & ~held, 0u);
  EXPECT_EQ(held & used & ~own, 0u);
  EXPECT_EQ(cover.cover(map, places, exactly), cubes) << "nothing is left behind";
  return cubes;
}

TEST(CubeCover, TakesTheFewestCubesForSmallSetsAndHardlyMoreForOthers) {
  EXPECT_EQ(coverOf({{0, 0}, {3, 0}}, 0b1011, 3, true).size(), 2u);
  EXPECT_EQ(coverOf({{0, 0}, {3, 0}}, 0b1001001, 3, true), (std::vector<Cube>{{0, 3}}));
  SeededDice dice(1);
  uint64_t least = 0, quick = 0;
  for (uint64_t round = 0; round < 2000; round += thinning()) {
    auto const width = static_cast<uint32_t>(dice.between(1, 5));
    Bits used = 0;
    std::vector<Cube> places;
    std::vector<Bits> blocks;
    bool const small = round % 2 == 0;
    // Code by code, or block by block.
    for (uint32_t code = 0; code < 1u << width;) {
      auto const bits = static_cast<unsigned>(
          dice.below(1u + static_cast<unsigned>(std::min<int>(std::countr_zero(code | 1u << width),
                                                              static_cast<int>(width) - 1))));
      Cube const block = blockCube(code, bits);
      code += 1u << bits;
      if (dice.oneIn(3)) continue;
      used |= codesOf(block);
      if (dice.oneIn(2) || (small && places.size() == 7)) continue;
      places.push_back(block);
      blocks.push_back(codesOf(block));
    }
    if (places.empty()) continue;
    Bits own = 0;
    for (Bits b : blocks) own |= b;
    uint32_t const fewest = fewestCubes(blocks, used & ~own, width);
    if (small) {
      ASSERT_EQ(coverOf(places, used, width, true).size(), fewest) << round;
    }
    size_t const found = coverOf(places, used, width, false).size();
    ASSERT_GE(found, fewest);
    least += fewest;
    quick += found;
    if (HasFailure()) return;
  }
  EXPECT_LE(quick * 1000, least * 1005) << quick << " for " << least;
}

TEST(CubeCover, HalvesLargeSets) {
  // All codes whose lowest bit is not set, and those of the upper half, of ten bits.
  CodeMap used(10);
  std::vector<Cube> places;
  for (uint16_t code = 0; code < 1024; ++code) {
    used.insert({code, 0});
    if (!(code & 1) || code >= 512) places.push_back({code, 0});
  }
  EXPECT_EQ(CubeCover(10).cover(used, places, false).size(), 2u);
}

/// Items of one code that are picked by attributes of so many values each: a set for each value of each
/// attribute, and for each two values of the first two.
FaceProblem attributes(std::vector<uint32_t> const& values, unsigned bits) {
  FaceProblem problem;
  problem.bits = bits;
  uint32_t items = 1;
  for (uint32_t v : values) items *= v;
  problem.items.assign(items, 0);
  auto const add = [&](auto holds) {
    for (uint32_t i = 0; i < items; ++i)
      if (holds(i)) problem.sets.add(i);
    problem.sets.end();
    problem.weights.push_back(1024);
  };
  uint32_t below = 1;
  for (uint32_t v : values) {
    for (uint32_t k = 0; k < v; ++k) add([&](uint32_t i) { return i / below % v == k; });
    below *= v;
  }
  uint32_t const two = values[0] * values[1];
  for (uint32_t k = 0; k < two; k += 3) add([&](uint32_t i) { return i % two == k; });
  return problem;
}

TEST(FacesByLayers, GiveGroupsByAttributesACubeEach) {
  for (auto const& [values, bits] : {std::pair{std::vector<uint32_t>{2, 2}, 2u},
                                     {{3, 4}, 4u},
                                     {{5, 7}, 6u},
                                     {{4, 4, 4}, 6u},
                                     {{3, 5, 6}, 8u},
                                     {{2, 3, 4, 5}, 8u},
                                     {{16, 16}, 8u},
                                     {{20, 30}, 10u}}) {
    FaceProblem problem = attributes(values, bits);
    auto const faces = facesByLayers(problem);
    ASSERT_TRUE(faces) << values.size() << " attributes in " << bits;
    EXPECT_EQ(faces->price, problem.leastPrice());
    // Where every code is somebody's, the highest one cannot be kept.
    problem.reservesLast = true;
    EXPECT_EQ(facesByLayers(problem).has_value(), problem.items.size() < 1u << bits);
  }
}

TEST(CompactCode, FillsUpWhatNests) {
  Code const code = compactCode(familyOf({{0, 1, 2}, {0, 1}}), {1, 1}, 3, 3);
  EXPECT_EQ(code.codes, (std::vector<uint16_t>{0, 1, 2}));
  EXPECT_EQ(code.cubes, (std::vector<CubeList>{{{0, 3}}, {{0, 1}}}));
}

/// The least price of families, all weights 1: every assignment of codes to labels is gone through, apart from
/// those that cannot be less than the best one so far. Codes that nobody has may be matched, the highest may not.
class LeastPrice {
 public:
  explicit LeastPrice(uint32_t width) : width_(width) {}

  /// `known` can be reached. `kinds` says of each label in which sets it is, a bit each.
  uint32_t of(std::vector<Bits> kinds, uint32_t sets, uint32_t known) {
    // Labels of many sets first; equal ones side by side.
    std::ranges::sort(kinds, [](Bits a, Bits b) {
      return std::pair(std::popcount(a), a) > std::pair(std::popcount(b), b);
    });
    kinds_ = std::move(kinds);
    sets_ = sets;
    best_ = known;
    own_.assign(sets, 0);
    place(0, 0);
    return best_;
  }

 private:
  uint32_t cubesOf(Bits own, Bits used) {
    Bits const foreign = (used & ~own) | Bits{1} << ((1u << width_) - 1);
    auto const [at, isNew] = cubes_.try_emplace(uint64_t{own} << 32 | foreign, uint8_t{0});
    if (isNew) {
      std::vector<Bits> blocks;
      for (uint32_t code : membersOf(own)) blocks.push_back(Bits{1} << code);
      at->second = static_cast<uint8_t>(fewestCubes(blocks, foreign, width_));
    }
    return at->second;
  }

  void place(size_t label, Bits used) {
    if (best_ == sets_) return;
    // More labels can only make it more.
    uint32_t price = sets_;
    for (Bits own : own_) {
      price += std::max(cubesOf(own, used), 1u) - 1;
      if (price >= best_) return;
    }
    if (label == kinds_.size()) {
      best_ = price;
      return;
    }
    // Of equal labels, the later one has the higher code. Bits of the code can be exchanged, so those that no label
    // has told apart yet are set from the lowest one on.
    uint32_t const from = label && kinds_[label] == kinds_[label - 1] ? placedAt_.back() + 1 : 0;
    for (uint32_t code = from; code + 1 < 1u << width_; ++code) {
      if (used >> code & 1 || !isFirstOfItsKind(code)) continue;
      for (uint32_t s = 0; s < sets_; ++s)
        if (kinds_[label] >> s & 1) own_[s] |= Bits{1} << code;
      placedAt_.push_back(code);
      place(label + 1, used | Bits{1} << code);
      placedAt_.pop_back();
      for (Bits& own : own_) own &= ~(Bits{1} << code);
    }
  }

  bool isFirstOfItsKind(uint32_t code) const {
    for (uint32_t b = 0; b + 1 < width_; ++b) {
      if ((code >> b & 3) != 2) continue;  // the higher bit is set and the lower one is not
      bool const equal = std::ranges::all_of(
          placedAt_, [b](uint32_t c) { return (c >> b & 1) == (c >> (b + 1) & 1); });
      if (equal) return false;
    }
    return true;
  }

  uint32_t width_;
  std::vector<Bits> kinds_;
  uint32_t sets_ = 0;
  uint32_t best_ = 0;
  std::vector<Bits> own_;  // the codes of each set
  std::vector<uint32_t> placedAt_;
  std::unordered_map<uint64_t, uint8_t> cubes_;
};

std::string textOf(std::vector<Bits> const& kinds, uint32_t sets) {
  std::string out;
  for (uint32_t s = 0; s < sets; ++s) {
    out += s ? " {" : "{";
    for (size_t l = 0; l < kinds.size(); ++l)
      if (kinds[l] >> s & 1) out += (out.back() == '{' ? "" : " ") + std::to_string(l + 1);
    out += "}";
  }
  return out + " of " + std::to_string(kinds.size());
}

/// How far the compact code is from the least, in thousandths.
class Ratios {
 public:
  explicit Ratios(uint32_t width) : width_(width), least_(width) {}

  void add(std::vector<Bits> const& kinds, uint32_t sets) {
    LabelSets lists(sets);
    for (size_t l = 0; l < kinds.size(); ++l) {
      auto const label = static_cast<uint32_t>(l + 1);
      for (uint32_t s : membersOf(kinds[l])) lists[s].labels.push_back(label);
      // One of its own, so that it has a code.
      if (!kinds[l]) lists.push_back({{label}, 0});
    }
    EncodedSets const made = encoded(lists, width_, Acl::LabelCode::compact);
    ASSERT_EQ(made.fault, "") << textOf(kinds, sets);
    auto const reached = static_cast<uint32_t>(made.cost);
    uint32_t const least = least_.of(kinds, sets, reached);
    uint64_t const ratio = reached * 1000 / least;
    ++families_;
    missed_ += reached > least;
    sum_ += ratio;
    if (ratio <= worst_) return;
    worst_ = ratio;
    worstText_ = textOf(kinds, sets) + ": least " + std::to_string(least) + ", reached " +
                 std::to_string(reached);
  }

  /// At most so many thousandths.
  void expect(uint64_t mean, uint64_t worst) const {
    testing::Test::RecordProperty("families", static_cast<int>(families_));
    testing::Test::RecordProperty("mean", static_cast<int>(sum_ / families_));
    testing::Test::RecordProperty("worst", static_cast<int>(worst_));
    EXPECT_LE(worst_, worst) << worstText_;
    if (thinning() > 1) return;
    EXPECT_LE(sum_, mean * families_) << families_ << " families, " << missed_ << " not the least";
  }

 private:
  uint32_t width_;
  LeastPrice least_;
  uint64_t families_ = 0;
  uint64_t missed_ = 0;
  uint64_t sum_ = 0;
  uint64_t worst_ = 0;
  std::string worstText_;
};

/// Whether the sets differ and have two labels or more each.
bool isFamily(std::vector<Bits> const& kinds, uint32_t sets) {
  std::set<Bits> all;
  for (uint32_t s = 0; s < sets; ++s) {
    Bits set = 0;
    for (size_t l = 0; l < kinds.size(); ++l) set |= (kinds[l] >> s & 1) << l;
    if (std::popcount(set) < 2 || !all.insert(set).second) return false;
  }
  return true;
}

/// Calls `f` for the labels of every family of so many sets, up to the names of labels and sets.
void forEachFamily(uint32_t sets, uint32_t labels, auto f) {
  std::vector<std::vector<Bits>> renamed;  // a label's sets, by each order of the sets
  std::vector<uint32_t> names(sets);
  std::iota(names.begin(), names.end(), 0u);
  do {
    renamed.emplace_back();
    for (Bits kind = 0; kind < 1u << sets; ++kind) {
      Bits to = 0;
      for (uint32_t s : membersOf(kind)) to |= Bits{1} << names[s];
      renamed.back().push_back(to);
    }
  } while (std::ranges::next_permutation(names).found);
  std::vector<Bits> kinds;  // ascending
  auto const isFirst = [&] {
    return std::ranges::all_of(renamed, [&](auto const& to) {
      std::vector<Bits> other;
      for (Bits kind : kinds) other.push_back(to[kind]);
      std::ranges::sort(other);
      return kinds <= other;
    });
  };
  auto const extend = [&](auto const& self, Bits from) -> void {
    if (isFamily(kinds, sets) && isFirst()) f(kinds);
    if (kinds.size() == labels) return;
    for (Bits kind = from; kind < 1u << sets; ++kind) {
      kinds.push_back(kind);
      self(self, kind);
      kinds.pop_back();
    }
  };
  extend(extend, 0);
}

TEST(CompactCode, FamiliesOfThreeBitsAreCloseToTheLeast) {
  Ratios ratios(3);
  uint64_t count = 0;
  for (uint32_t sets = 1; sets <= 4; ++sets)
    forEachFamily(sets, 7, [&](std::vector<Bits> const& kinds) {
      if (count++ % (4 * thinning()) == 0) ratios.add(kinds, sets);
    });
  ratios.expect(1022, 1500);
}

TEST(CompactCode, FamiliesOfFourBitsAreCloseToTheLeast) {
  Ratios ratios(4);
  SeededDice dice(3);
  for (uint64_t round = 0; round < 60; round += thinning()) {
    auto const sets = static_cast<uint32_t>(dice.between(2, 5));
    std::vector<Bits> kinds;
    do {
      kinds.assign(dice.between(4, 12), 0);
      for (Bits& kind : kinds)
        for (uint32_t s = 0; s < sets; ++s)
          if (dice.oneIn(3)) kind |= Bits{1} << s;
    } while (!isFamily(kinds, sets));
    ratios.add(kinds, sets);
  }
  ratios.expect(1035, 1500);
}

}  // namespace
}  // namespace Test
