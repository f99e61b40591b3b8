// The collections against naive models, under random operations and allocations that fail.

#include "lumox/IpGenPrefix.h"
#include "mox/Chunked.h"
#include "mox/FlatSet.h"
#include "mox/Hash.h"
#include "mox/HashMap.h"
#include "mox/InlineSet.h"
#include "mox/OrderedMap.h"
#include "mox/SmallSet.h"
#include "support/AllocationFaults.h"
#include "support/Thinning.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <map>
#include <random>
#include <set>

#include <gtest/gtest.h>

namespace Mox {
namespace {

using Items = std::vector<std::pair<uint32_t, uint32_t>>;

/// A key of which many have one place.
struct Crowded {
  uint32_t v = 0;
  uint64_t placeWord() const { return v % 3; }
  operator uint32_t() const { return v; }
  bool operator==(Crowded const& o) const { return v == o.v; }
};

/// A number with another one that takes no part in the order.
struct Cell {
  uint32_t first = 0;
  uint32_t second = 0;
  bool operator==(Cell const& o) const { return first == o.first; }
  bool operator<(Cell const& o) const { return first < o.first; }
  operator std::pair<uint32_t, uint32_t>() const { return {first, second}; }
};
/// A small set as a map.
struct SmallMap : SmallSet<Cell> {
  uint32_t const* get(uint32_t key) const {
    Cell const* const cell = find({key});
    return cell ? &cell->second : nullptr;
  }
  uint32_t* get(uint32_t key) { return const_cast<uint32_t*>(std::as_const(*this).get(key)); }
  bool set(uint32_t key, uint32_t value) {
    if (uint32_t* const known = get(key)) return *known = value, false;
    return insert({key, value});
  }
  bool erase(uint32_t key) { return SmallSet::erase({key}); }
};

/// Ordered by key, with walks that survive nothing or any change; or by insertion, with walks that survive
/// deletions.
enum class Kind { sorted, chunked, hashed };

/// Does the same to a map and to a plain list of what it ought to hand out, while a walk goes over the map
/// that may be on its way through what is changed. Some allocations of the map fail; then it must be as
/// it was.
template <class Map, class Key = uint32_t>
void expectEqualsModel(Kind kind, uint32_t keys) {
  namespace Faults = ::Test::AllocationFaults;
  SCOPED_TRACE(keys);
  constexpr uint32_t operations = 20000;
  std::mt19937 random(keys);
  Map map;
  Items model;
  auto walker = map.begin();
  bool walks = false;
  uint32_t walked = 0;  // the key that the walk has come to
  size_t passed = 0;    // the place in the model behind it
  for (uint32_t i = 0; i < operations; ++i) {
    if (walks ? random() % 2 : kind != Kind::sorted) {
      if (!walks) passed = 0;
      walks ? ++walker : walker = map.begin();
      walks = passed < model.size();
      ASSERT_EQ(walker != map.end(), walks);
      if (walks) {
        walked = model[passed++].first;
        ASSERT_EQ(walker->first, walked);
      }
    }
    // Upward, downward, then anywhere, and often close to where the walk is.
    uint32_t const number = i < keys / 4   ? keys / 2 + i
                            : i < keys / 2 ? keys / 4 * 3 - i
                            : random() % 4 == 0
                                ? std::min<uint32_t>(walked + random() % 2, keys - 1)
                                : random() % keys;
    uint32_t const value = random();
    auto const at =
        kind != Kind::hashed
            ? std::lower_bound(model.begin(), model.end(), std::pair(number, uint32_t{0}))
            : std::find_if(model.begin(), model.end(), [&](auto& p) { return p.first == number; });
    auto const place = static_cast<size_t>(at - model.begin());
    bool const absent = at == model.end() || at->first != number;
    Key const own{number};
    Key const& key =
        !absent && place == 0 ? map.begin()->first : own;  // perhaps that of the element
    auto const* const held = std::as_const(map).get(key);
    ASSERT_EQ(held == nullptr, absent);
    ASSERT_TRUE(absent || *held == at->second);
    // Phases of growth and of shrinking, so that a map is rebuilt in both directions, and without insertions.
    bool const grows =
        i < keys / 2 || (i / 64 % 4 && random() % 10 < (i * 16 / operations % 2 ? 3u : 7u));
    constexpr bool hasAt = requires { map.at(key); };
    bool toldRight = true;
    if (absent && grows && kind != Kind::chunked) walks = false;
    Faults::failAt(random() % 4);
    try {
      Faults::Scope const counted(true);
      if (!grows)
        toldRight = map.erase(key) != absent;
      else if (!absent && value % 2)
        *map.get(key) = value;
      else if (value % 3 || !hasAt)
        toldRight = map.set(key, value) == absent;
      else if constexpr (hasAt)
        map.at(key) = value;
    } catch (std::bad_alloc const&) {
      ASSERT_EQ(Items(map.begin(), map.end()), model);
      continue;
    }
    ASSERT_TRUE(toldRight);
    if (absent && grows) {
      model.insert(at, {number, value});
      passed += number <= walked;
    } else if (grows) {
      at->second = value;
    } else if (!absent) {
      model.erase(at);
      passed -= place < passed;
    }
    if (random() % 2000 == 0) {
      map.clear();
      model.clear();
      walks = false;
    }
    ASSERT_EQ(map.size(), model.size());
    ASSERT_EQ(map.empty(), model.empty());
    if (keys < 100 || i % 500 == 0) {
      ASSERT_EQ(Items(map.begin(), map.end()), model);
    }
  }
  for (; !model.empty(); model.erase(model.begin())) {
    ASSERT_EQ(map.begin()->first, model[0].first);
    map.erase(map.begin()->first);
  }
  EXPECT_TRUE(map.empty() && map.begin() == map.end());
}

TEST(Containers, MapsEqualTheirModelAndFailWithoutATrace) {
  expectEqualsModel<FlatMap<uint32_t, uint32_t>>(Kind::sorted, 60);
  expectEqualsModel<OrderedMap<uint32_t, uint32_t>>(Kind::sorted, 60);
  expectEqualsModel<HashMap<Crowded, uint32_t>, Crowded>(Kind::hashed, 25);
  for (uint32_t keys : {3, 40, 200})
    expectEqualsModel<HashMap<uint32_t, uint32_t>>(Kind::hashed, keys);
  for (uint32_t keys : {60, 1500, 9000})
    expectEqualsModel<ChunkedMap<uint32_t, uint32_t>>(Kind::chunked, keys);
  for (uint32_t keys : {3, 1500}) expectEqualsModel<SmallMap>(Kind::chunked, keys);
}

TEST(Containers, OfSeveralElementsOfOneKeyTheFirstIsAdopted) {
  std::mt19937 random(1);
  Items items;
  for (uint32_t i = 0; i < 200; ++i) items.emplace_back(random() % 60, i);
  std::map<uint32_t, uint32_t> const model(items.begin(), items.end());
  FlatMap<uint32_t, uint32_t> map;
  map.adopt(items);
  EXPECT_EQ(map.items(), Items(model.begin(), model.end()));
}

TEST(Containers, ASetInItsObjectEqualsItsModel) {
  std::mt19937 random(1);
  std::array<InlineSet<uint32_t, 2>, 2> sets;
  std::array<std::set<uint32_t>, 2> models;
  for (uint32_t i = 0; i < 20000; ++i) {
    size_t const at = random() % 2;
    uint32_t const value = random() % (i / 500 % 2 ? 40 : 4);
    std::vector<uint32_t> many(value % 6);
    for (uint32_t& v : many) v = random() % 40;
    unsigned const what = random() % 8;
    if (what == 0) {
      sets[at].adopt(many);
      models[at] = {many.begin(), many.end()};
    } else if (what == 1) {
      sets[at] = sets[1 - at];
      models[at] = models[1 - at];
    } else if (what == 2) {
      std::swap(sets[0], sets[1]);
      std::swap(models[0], models[1]);
    } else if (what < 5) {
      ASSERT_EQ(sets[at].insert(value), models[at].insert(value).second);
    } else {
      ASSERT_EQ(sets[at].erase(value), models[at].erase(value) > 0);
    }
    for (size_t s : {0, 1})
      ASSERT_EQ(sets[s].items(), std::vector<uint32_t>(models[s].begin(), models[s].end())) << i;
    ASSERT_EQ(sets[at].contains(value), models[at].contains(value));
    ASSERT_EQ(sets[0] == sets[1], models[0] == models[1]);
  }
}

/// Counts how often an element is looked at.
struct Counting {
  static inline size_t looks = 0;
  static Lumox::IpGenPrefix const& key(Lumox::IpGenPrefix const& p) { return ++looks, p; }
};

TEST(Containers, KeysOfOnePublicHashStandApart) {
  constexpr uint64_t keys = 20000;
  HashTable<Lumox::IpGenPrefix, Counting> table;
  for (bool filled : {false, true})
    for (uint64_t hi = 0; hi < keys; ++hi) {
      auto const p = Lumox::IpGenPrefix::v6(hi, 1 - (hi + 1) * 0xd6e8feb86659fd93u, 128);
      if (!filled) table.insert(p);
      ASSERT_EQ(p.hash64(), table.begin()->hash64()) << "no collision";
      ASSERT_TRUE(table.contains(p));
    }
  EXPECT_LT(Counting::looks, 30 * keys);
}

TEST(Containers, WhatStandsFirstOrNextIsDeletedAgainAndAgain) {
  // By the square of the size this would not end in the time of a test.
  size_t const size = 1000000 / ::Test::thinning();
  for (ptrdiff_t kept : {0, 1}) {
    HashSet<uint64_t> set;
    for (size_t i = 0; i < size; ++i) set.insert(i);
    for (size_t i = static_cast<size_t>(kept); i < size; ++i) {
      ASSERT_EQ(*std::next(set.begin(), kept), i);
      set.erase(i);
    }
  }
}

TEST(ContainersDeathTest, TheSecretCanBeSetBeforeItsFirstUseAndDecidesPlacesAlone) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (uint64_t k : {1, 2}) {
    uint64_t const place = KeyedHash(HashSecret{k, 5}).text("key").finish();
    EXPECT_EXIT(
        {
          hashSecretIs({k, 5});
          HashSet<std::string> set;
          for (int i = 0; i < 40; ++i) set.insert(std::to_string(i * 7 % 40));
          std::cerr << placeOf(std::string("key"));
          for (std::string const& s : set) std::cerr << ' ' << s;
          std::_Exit(0);
        },
        testing::ExitedWithCode(0), std::to_string(place) + " 0 7 14 21 28 35 2 9 .* 26 33$");
  }
  GTEST_FLAG_SET(death_test_style, "fast");
  hashSecret();
  EXPECT_DEATH(hashSecretIs({1, 2}), "the secret of the hash tables is in use");
}

TEST(Containers, HashesAreTheSameOnEveryMachine) {
  // SipHash-1-3 of nothing, under the key 00 01 02 ... 0f.
  HashSecret const secret{0x0706050403020100u, 0x0f0e0d0c0b0a0908u};
  EXPECT_EQ(KeyedHash(secret).text("").finish(), 0xabac0158050fc4dcu);
  EXPECT_EQ(mix64(0), 0xe220a8397b1dcdafu);
  EXPECT_EQ(OneAtATime().byte('a').finish(), 0xca2e9442u);
}

}  // namespace
}  // namespace Mox
