// The collections against models from the standard library under random operations.

#include "lumox/IpGenPrefix.h"
#include "mox/Chunked.h"
#include "mox/FlatSet.h"
#include "mox/Hash.h"
#include "mox/HashMap.h"
#include "mox/OrderedMap.h"
#include "support/Thinning.h"

#include <algorithm>
#include <iostream>
#include <map>
#include <random>
#include <set>

#include <gtest/gtest.h>

namespace Mox {
namespace {

/// Keys and values in the order in which a collection hands them out.
template <class Map>
std::vector<std::pair<uint32_t, uint32_t>> contents(Map const& map) {
  return {map.begin(), map.end()};
}
template <class Set>
std::vector<uint32_t> members(Set const& set) {
  return {set.begin(), set.end()};
}

TEST(Containers, SortedMapsEqualTheirModelAfterEveryOperation) {
  std::mt19937 random(1);
  FlatMap<uint32_t, uint32_t> flat;
  OrderedMap<uint32_t, uint32_t> ordered;
  std::map<uint32_t, uint32_t> model;
  for (int i = 0; i < 20000; ++i) {
    uint32_t const key = random() % 60;
    uint32_t const value = random() % 1000;
    switch (random() % 7) {
      case 0:
      case 1: {
        bool const absent = !model.contains(key);
        model[key] = value;
        ASSERT_EQ(flat.set(key, value), absent);
        ASSERT_EQ(ordered.set(key, value), absent);
        break;
      }
      case 2:
        model[key] += 1;
        flat.at(key) += 1;
        ordered.at(key) += 1;
        break;
      case 3:
      case 4: {
        bool const present = model.erase(key) > 0;
        ASSERT_EQ(flat.erase(key), present);
        ASSERT_EQ(ordered.erase(key), present);
        break;
      }
      case 5: {
        auto const at = model.find(key);
        ASSERT_EQ(flat.get(key) != nullptr, at != model.end());
        ASSERT_EQ(ordered.get(key) != nullptr, at != model.end());
        if (at == model.end()) break;
        ASSERT_EQ(*flat.get(key), at->second);
        ASSERT_EQ(*ordered.get(key), at->second);
        break;
      }
      default:
        if (random() % 200) break;
        model.clear();
        flat.clear();
        ordered.clear();
    }
    ASSERT_EQ(contents(flat), contents(model));
    ASSERT_EQ(contents(ordered), contents(model));
  }
}

TEST(Containers, OfSeveralElementsOfOneKeyTheFirstIsAdopted) {
  FlatMap<uint32_t, char> map;
  map.adopt({{2, 'a'}, {1, 'b'}, {2, 'c'}, {1, 'd'}});
  EXPECT_EQ(map.items(), (std::vector<std::pair<uint32_t, char>>{{1, 'b'}, {2, 'a'}}));
}

/// A key of which many have one place.
struct Crowded {
  uint32_t v = 0;
  uint64_t placeWord() const { return v % 3; }
  operator uint32_t() const { return v; }
  bool operator==(Crowded const& o) const { return v == o.v; }
};

template <class Key>
void hashMapAgainstModel(uint32_t seed, uint32_t keys) {
  std::mt19937 random(seed);
  HashMap<Key, uint32_t> map;
  std::vector<std::pair<uint32_t, uint32_t>> model;  // in the order of insertion
  for (int i = 0; i < 20000; ++i) {
    uint32_t const number = random() % keys;
    Key const key{number};
    auto at = model.begin();
    while (at != model.end() && at->first != number) ++at;
    bool const absent = at == model.end();
    // Phases of growth and of shrinking, so that the map is rebuilt in both directions.
    if (random() % 10 < (i / 700 % 2 ? 3u : 7u)) {
      uint32_t const value = random();
      ASSERT_EQ(map.set(key, value), absent);
      if (absent)
        model.emplace_back(number, value);
      else
        at->second = value;
    } else {
      ASSERT_EQ(map.erase(key), !absent);
      if (!absent) model.erase(at);
    }
    ASSERT_EQ(map.size(), model.size());
    ASSERT_EQ(map.empty(), model.empty());
    ASSERT_EQ(contents(map), model);
    Key const other{static_cast<uint32_t>(random() % keys)};
    auto const* value = std::as_const(map).get(other);
    auto const wanted = std::find_if(model.begin(), model.end(),
                                     [&](auto const& item) { return item.first == other; });
    ASSERT_EQ(value != nullptr, wanted != model.end());
    ASSERT_TRUE(!value || *value == wanted->second);
  }
}

TEST(Containers, HashMapsIterateInTheOrderOfInsertionWhateverWasDeleted) {
  hashMapAgainstModel<uint32_t>(3, 40);
  hashMapAgainstModel<uint32_t>(4, 3);
  hashMapAgainstModel<Crowded>(5, 25);
}

TEST(Containers, DeletionKeepsAWalkOverAHashSetOnItsWay) {
  for (uint32_t seed = 1; seed <= 300; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    uint32_t const size = 1 + random() % 30;
    HashSet<uint32_t> set;
    std::set<uint32_t> model;
    for (uint32_t i = 0; i < size; ++i) set.insert(i), model.insert(i);
    for (auto i = set.begin(); i != set.end();) {
      uint32_t const at = *i;
      // What the walk stands on, of which the key given is the element itself, and others around it.
      for (uint32_t n = random() % 6; n > 0; --n) {
        uint32_t const other = random() % size;
        ASSERT_EQ(set.erase(other), model.erase(other) == 1);
      }
      if (model.erase(at)) set.erase(*i);
      ++i;
      auto const next = model.upper_bound(at);
      ASSERT_EQ(i == set.end(), next == model.end());
      ASSERT_TRUE(next == model.end() || *i == *next);
    }
    EXPECT_TRUE(set.empty());
    EXPECT_TRUE(set.insert(5));
    EXPECT_EQ(members(set), std::vector<uint32_t>{5});
  }
}

TEST(Containers, ChunkedMapsAreOrderedWhateverIsInserted) {
  for (uint32_t const seed : {1u, 2u, 3u}) {
    std::mt19937 random(seed);
    ChunkedMap<uint32_t, uint32_t> map;
    std::map<uint32_t, uint32_t> model;
    // Upward, downward, then anywhere, with phases of shrinking.
    for (uint32_t i = 0; i < 6000; ++i) {
      uint32_t const key = i < 1000 ? 5000 + i : i < 2000 ? 5000 - i : random() % 9000;
      if (i < 2000 || random() % 10 < (i / 1500 % 2 ? 2u : 8u)) {
        ASSERT_EQ(map.set(key, i), model.insert_or_assign(key, i).second);
      } else {
        ASSERT_EQ(map.erase(key), model.erase(key) == 1);
      }
      ASSERT_EQ(map.size(), model.size());
      uint32_t const other = random() % 9000;
      auto const wanted = model.find(other);
      auto const* value = std::as_const(map).get(other);
      ASSERT_EQ(value != nullptr, wanted != model.end());
      ASSERT_TRUE(!value || *value == wanted->second);
      bool const same =
          i % 500 != 0 || std::equal(map.begin(), map.end(), model.begin(), model.end(),
                                     [](auto const& a, auto const& b) {
                                       return a.first == b.first && a.second == b.second;
                                     });
      ASSERT_TRUE(same);
    }
    while (!model.empty()) {
      ASSERT_EQ(map.begin()->first, model.begin()->first);
      map.erase(uint32_t{map.begin()->first});
      model.erase(model.begin());
    }
    EXPECT_TRUE(map.begin() == map.end() && map.empty());
  }
}

/// Counts how often an element is looked at.
struct Counting {
  static inline size_t looks = 0;
  template <class T>
  static T const& key(T const& v) {
    ++looks;
    return v;
  }
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
