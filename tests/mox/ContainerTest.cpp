// The collections against naive models, under random operations and allocations that fail.

#include "lumox/IpGenPrefix.h"
#include "mox/Chunked.h"
#include "mox/FlatSet.h"
#include "mox/Hash.h"
#include "mox/HashMap.h"
#include "mox/OrderedMap.h"
#include "support/AllocationFaults.h"
#include "support/Thinning.h"

#include <algorithm>
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

enum class Order { byKey, byInsertion };

/// Does the same to a map and to a plain list of what it ought to hand out. Some allocations of the map
/// fail; then it must be as it was.
template <class Map, class Key = uint32_t>
void expectEqualsModel(Order order, uint32_t seed, uint32_t keys, uint32_t operations) {
  namespace Faults = ::Test::AllocationFaults;
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  Map map;
  Items model;
  for (uint32_t i = 0; i < operations; ++i) {
    // Upward, downward, then anywhere.
    uint32_t const number = i < keys / 4   ? keys / 2 + i
                            : i < keys / 2 ? keys / 4 * 3 - i
                                           : random() % keys;
    uint32_t const value = random();
    Key const key{number};
    auto const at =
        order == Order::byKey
            ? std::lower_bound(model.begin(), model.end(), std::pair(number, uint32_t{0}))
            : std::find_if(model.begin(), model.end(), [&](auto& p) { return p.first == number; });
    bool const absent = at == model.end() || at->first != number;
    auto const* const held = std::as_const(map).get(key);
    ASSERT_EQ(held == nullptr, absent);
    ASSERT_TRUE(absent || *held == at->second);
    // Phases of growth and of shrinking, so that a map is rebuilt in both directions.
    bool const grows = i < keys / 2 || random() % 10 < (i * 16 / operations % 2 ? 3u : 7u);
    constexpr bool hasAt = requires { map.at(key); };
    bool toldRight = true;
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
    if (absent && grows)
      model.insert(at, {number, value});
    else if (grows)
      at->second = value;
    else if (!absent)
      model.erase(at);
    if (random() % 2000 == 0) {
      map.clear();
      model.clear();
    }
    ASSERT_EQ(map.size(), model.size());
    ASSERT_EQ(map.empty(), model.empty());
    if (keys < 100 || i % 500 == 0) {
      ASSERT_EQ(Items(map.begin(), map.end()), model);
    }
  }
  for (; !model.empty(); model.erase(model.begin())) {
    ASSERT_EQ(map.begin()->first, model[0].first);
    map.erase(Key{model[0].first});
  }
  EXPECT_TRUE(map.empty() && map.begin() == map.end());
}

TEST(Containers, MapsEqualTheirModelAndFailWithoutATrace) {
  expectEqualsModel<FlatMap<uint32_t, uint32_t>>(Order::byKey, 1, 60, 20000);
  expectEqualsModel<OrderedMap<uint32_t, uint32_t>>(Order::byKey, 2, 60, 20000);
  expectEqualsModel<HashMap<uint32_t, uint32_t>>(Order::byInsertion, 3, 40, 20000);
  expectEqualsModel<HashMap<uint32_t, uint32_t>>(Order::byInsertion, 4, 3, 20000);
  expectEqualsModel<HashMap<Crowded, uint32_t>, Crowded>(Order::byInsertion, 5, 25, 20000);
  expectEqualsModel<ChunkedMap<uint32_t, uint32_t>>(Order::byKey, 6, 9000, 20000);
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

/// Walks to the end while elements come, if they may, and go: what the walk stands on, given by the
/// element itself, and others around it.
template <class Set>
void expectWalkStaysOnItsWay(uint32_t largest, bool mayCome) {
  for (uint32_t seed = 1; seed <= 300; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    uint32_t const size = 1 + random() % largest;
    Set set;
    std::set<uint32_t> model;
    for (uint32_t i = 0; i < size; ++i) set.insert(i), model.insert(i);
    for (auto i = set.begin(); i != set.end();) {
      uint32_t const at = *i;
      if (random() % 2) model.erase(at), set.erase(*i);
      for (uint32_t n = random() % 6; n > 0; --n) {
        uint32_t const other = random() % size;
        if (mayCome && random() % 3 == 0)
          ASSERT_EQ(set.insert(other), model.insert(other).second);
        else
          ASSERT_EQ(set.erase(other), model.erase(other) == 1);
      }
      ++i;
      auto const next = model.upper_bound(at);
      ASSERT_EQ(i == set.end(), next == model.end());
      ASSERT_TRUE(next == model.end() || *i == *next);
    }
    for (uint32_t i = 0; i < size; ++i) ASSERT_EQ(set.erase(i), model.erase(i) == 1);
    EXPECT_TRUE(set.empty() && set.insert(5) && *set.begin() == 5);
  }
}

TEST(Containers, WhatComesAndGoesKeepsAWalkOnItsWay) {
  expectWalkStaysOnItsWay<HashSet<uint32_t>>(30, false);
  expectWalkStaysOnItsWay<ChunkedSet<uint32_t>>(1500 / ::Test::thinning(), true);
}

/// Counts how often an element is looked at.
struct Counting {
  static inline size_t looks = 0;
  static Lumox::IpGenPrefix const& key(Lumox::IpGenPrefix const& p) { return ++looks, p; }
};

TEST(Containers, KeysOfOnePublicHashStandApart) {
  constexpr uint64_t keys = 20000;
  HashTable<Lumox::IpGenPrefix, Counting> table;
  std::vector<Lumox::IpGenPrefix> order;
  for (uint64_t hi = 0; hi < keys; ++hi)
    order.push_back(Lumox::IpGenPrefix::v6(hi, 1 - (hi + 1) * 0xd6e8feb86659fd93u, 128));
  for (auto const& p : order) {
    ASSERT_EQ(p.hash64(), order[0].hash64()) << "no collision";
    table.insert(p);
  }
  for (auto const& p : order) ASSERT_TRUE(table.contains(p));
  EXPECT_LT(Counting::looks, 20 * keys);
  EXPECT_TRUE(std::equal(table.begin(), table.end(), order.begin(), order.end()));
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
