#pragma once

/// Ordered map over a balanced tree, iterated in ascending order of the key. For keyed members that
/// are few or come and go at random; values keep their place in memory until they are deleted.

#include <cstddef>
#include <map>
#include <utility>

namespace Mox {

template <class K, class V>
class OrderedMap {
 public:
  using Key = K;
  using mapped_type = V;
  using value_type = std::pair<K const, V>;
  using const_iterator = typename std::map<K, V>::const_iterator;
  using iterator = const_iterator;

  const_iterator begin() const noexcept { return map_.begin(); }
  const_iterator end() const noexcept { return map_.end(); }
  size_t size() const noexcept { return map_.size(); }
  bool empty() const noexcept { return map_.empty(); }
  bool contains(K const& key) const { return map_.contains(key); }

  /// The value under `key`, or null.
  V const* get(K const& key) const {
    auto const i = map_.find(key);
    return i != map_.end() ? &i->second : nullptr;
  }
  V* get(K const& key) {
    auto const i = map_.find(key);
    return i != map_.end() ? &i->second : nullptr;
  }
  /// The value under `key`, default-constructed and inserted if absent.
  V& at(K const& key) { return map_[key]; }
  /// Inserts or overwrites; O(1) behind the last key. Returns true if the key was absent.
  bool set(K const& key, V value) {
    size_t const before = map_.size();
    // The hint makes filling in ascending order cost O(1) an element; a key that belongs elsewhere is
    // searched for.
    map_.insert_or_assign(map_.end(), key, std::move(value));
    return map_.size() != before;
  }
  bool erase(K const& key) { return map_.erase(key) > 0; }
  void clear() noexcept { map_.clear(); }

  friend bool operator==(OrderedMap const& a, OrderedMap const& b) { return a.map_ == b.map_; }

 private:
  std::map<K, V> map_;
};

/// The pointer under `key`, or null: for maps whose values are Ptrs.
template <class Map>
auto lookup(Map const& map, typename Map::Key const& key) -> typename Map::mapped_type {
  auto const* item = map.get(key);
  return item ? *item : nullptr;
}

/// The pointer under `key`, made by `make()` and inserted if absent. Whatever `make()` throws, the map
/// never holds a null for it.
template <class Map, class Make>
auto lookupOrMake(Map& map, typename Map::Key const& key, Make make) ->
    typename Map::mapped_type const& {
  if (auto* item = map.get(key)) return *item;
  if constexpr (requires { map.insertAbsent({key, make()}); }) {
    return map.insertAbsent({key, make()}).second;
  } else {
    map.set(key, make());
    return *map.get(key);
  }
}

}  // namespace Mox
