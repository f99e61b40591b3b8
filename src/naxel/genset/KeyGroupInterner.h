#pragma once

/// Hash-consing of key groups: one shared, frozen object per distinct content, so that transforms
/// can tell and combine groups by pointer.

#include "mox/HashMap.h"
#include "naxel/genset/GenSet.h"

#include <optional>

namespace Naxel {

/// Lives for one run of a transform.
class KeyGroupInterner {
 public:
  using Keys = std::vector<GenSetKey>;

  /// The group of these ascending keys. O(size of the group).
  Mox::Ptr<GenSetKeyGroup> intern(Keys const& keys) {
    Mox::KeyedSetHash hash;
    for (GenSetKey key : keys) hash.add(key);
    return intern(keys, hash);
  }
  /// The same with the hash at hand: content is copied only for a group that is new.
  Mox::Ptr<GenSetKeyGroup> intern(Keys const& keys, Mox::KeyedSetHash const& hash);

  /// Number of distinct groups so far.
  size_t size() const { return groups_.size(); }
  /// Keys in all of them together.
  size_t memberships() const { return memberships_; }
  /// Makes room for this many groups.
  void reserve(size_t n) { groups_.reserve(n); }

 private:
  struct Entry {
    uint64_t hash = 0;
    Keys const* probe = nullptr;  // content to look for; null in stored entries
    Mox::Ptr<GenSetKeyGroup> group;

    Keys const& keys() const { return probe ? *probe : group->keyGroup().items(); }
    uint64_t placeWord() const noexcept { return hash; }
    bool operator==(Entry const& o) const { return hash == o.hash && keys() == o.keys(); }
  };
  Mox::HashSet<Entry> groups_;
  size_t memberships_ = 0;
};

inline Mox::Ptr<GenSetKeyGroup> KeyGroupInterner::intern(Keys const& keys,
                                                         Mox::KeyedSetHash const& hash) {
  // A search compares the content, whatever the hash says: groups of equal hash that differ must not become
  // one.
  if (Entry const* known = groups_.find(Entry{hash.value(), &keys, nullptr})) return known->group;
  auto group = genSetKeyGroupFactory();
  group->keyGroupIs(keys);
  groups_.insert(Entry{hash.value(), nullptr, group});
  memberships_ += keys.size();
  return group;
}

}  // namespace Naxel
