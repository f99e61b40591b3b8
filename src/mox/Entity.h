#pragma once

/// Entities: reference-counted objects with typed attributes and keyed collections that tell their
/// notifiees about changes.
///
/// An entity type X that can be watched declares
///
///   class Notifiee : public Mox::Notifiee {
///    public:
///     virtual void onPriority() {}            // one per attribute
///     virtual void onRule(Seq const&) {}      // one per collection, given the key
///   };
///
/// and writes its attributes through the helpers below; the member pointer of the handler is the
/// attribute's identity:
///
///   uint16_t priority() const { return priority_; }
///   void priorityIs(uint16_t v) { attrIs(priority_, v, &Notifiee::onPriority); }
///
/// A watcher derives from X::Notifiee. The notifiee object is its registration: notifierIs()
/// attaches it, notifierIs(nullptr) or its destruction detaches it.
///
/// Rules. A change is told synchronously, after the assignment, only if the value differs, in the
/// order in which notifiees attached; handlers read the current state. Notifiees may attach, detach
/// and be destroyed inside a round: one that goes is not called any more, one that comes is called
/// from the next change on. The notifying entity outlives the round. What escapes a handler is
/// traced at level 0 and the round goes on. Since a setter returns only after every handler has
/// run, write your own state first and the attribute that wakes others last.
///
/// An entity that is deleted from the collection that owns it tells its own notifiees, through
/// onDeleted(): whoever still holds a Ptr to it holds something that nobody else looks at any more.
///
/// All of this belongs to one activity thread.

#include "mox/Export.h"
#include "mox/Facts.h"
#include "mox/Ptr.h"
#include "mox/Text.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Mox {

class Entity;
class NotifieeRound;

/// Base of all notifiees.
class NAXEL_EXPORT Notifiee {
 public:
  Notifiee() = default;
  Notifiee(Notifiee const&) = delete;
  Notifiee& operator=(Notifiee const&) = delete;
  virtual ~Notifiee();

  /// The watched entity; null while detached and after the entity has been destroyed.
  Entity* notifier() const { return notifier_; }
  /// Watches `entity` instead of the present one, behind all its other notifiees; null detaches.
  void notifierIs(Entity* entity);

  /// The watched entity has been deleted from its collection. It lives on while it is held.
  virtual void onDeleted() {}

 private:
  friend class Entity;
  friend class NotifieeRound;

  Entity* notifier_ = nullptr;
  Notifiee* previous_ = nullptr;
  Notifiee* next_ = nullptr;
  uint64_t attached_ = 0;  // number of this attachment to the entity, rising
};

/// One attribute of an entity type: its name, how to read it as text, and how to write what it holds line by line.
struct Attribute {
  std::string_view name;
  std::string (*text)(Entity const&);
  void (*facts)(Entity const&, FactWriter&);  ///< null where it says nothing of its own
};
using AttributeTable = std::vector<Attribute>;

class NAXEL_EXPORT Entity : public RefCounted {
 public:
  Entity() = default;
  Entity(Entity const&) = delete;
  Entity& operator=(Entity const&) = delete;
  ~Entity() override;

  /// Qualified type name, "Naxel::PDConfig".
  virtual std::string_view fwkType() const = 0;
  /// The attributes in their declared order.
  virtual AttributeTable const& attributeTable() const;
  /// Text of the attribute of that name; throws RangeError where there is none.
  std::string attributeText(std::string_view name) const;

 protected:
  /// Assigns and notifies if the value differs.
  template <class N, class T, class V>
  void attrIs(T& slot, V&& value, void (N::*on)()) {
    if (slot == value) return;
    // The value stands before anybody is told: handlers read the entity and not an argument.
    slot = std::forward<V>(value);
    notify(on);
  }
  /// The member of `map` under `key`, made by `make()` and told if absent. The map holds Ptrs.
  template <class N, class Map, class K, class Make>
  auto itemIs(Map& map, K const& key, void (N::*on)(K const&), Make make) {
    if (auto* item = map.get(key)) return *item;
    // Made before the map is touched, so that an exception leaves no null under the key.
    auto item = make();
    map.set(key, item);
    notify(on, key);
    return item;
  }
  /// Deletes a member of a map or set and tells its key if it was there.
  template <class N, class Coll, class K>
  void itemDel(Coll& coll, K const& key, void (N::*on)(K const&)) {
    // The caller's key may live in what is deleted.
    K const copy = key;  // NOLINT(performance-unnecessary-copy-initialization): see above
    // Held beyond its deletion, so that those who watch the member can be told behind those who watch the
    // collection.
    auto const deleted = memberOf(coll, copy);
    if (!coll.erase(copy)) return;
    notify(on, copy);
    tellDeleted(deleted);
  }
  /// Sets the value under a key and tells if it was absent or differed.
  template <class N, class Map, class K, class V>
  void itemSet(Map& map, K const& key, V value, void (N::*on)(K const&)) {
    if (auto* old = map.get(key); old && *old == value) return;
    map.set(key, std::move(value));
    notify(on, key);
  }
  /// Inserts into a set and tells if it was absent.
  template <class N, class Set, class K>
  void memberIs(Set& set, K const& key, void (N::*on)(K const&)) {
    if (set.contains(key)) return;
    set.insert(key);
    notify(on, key);
  }
  /// Empties a collection and tells every key that was there.
  template <class N, class Coll, class K>
  void collDelAll(Coll& coll, void (N::*on)(K const&)) {
    // Gathered before the collection is emptied: a handler may fill it again, and must not be told of what
    // it has added.
    std::vector<K> keys;
    std::vector<decltype(memberOf(coll, std::declval<K const&>()))> deleted;
    for (auto const& item : coll) {
      if (notifiees_) keys.push_back(keyOf<K>(item));
      if constexpr (ownsEntities<Coll>) deleted.push_back(memberOf(coll, keyOf<K>(item)));
    }
    coll.clear();
    for (K const& key : keys) notify(on, key);
    for (auto const& member : deleted) tellDeleted(member);
  }

  /// Runs one round of notification.
  template <class N, class... A>
  void notify(void (N::*on)(A...), std::type_identity_t<A>... args) {
    if (!notifiees_) return;
    notifyAll([&](Notifiee& n) {
      // A notifiee of a base type watches the attributes of the base alone, and so does one that only waits
      // for the deletion.
      if (auto* typed = dynamic_cast<N*>(&n)) (typed->*on)(args...);
    });
  }

 private:
  friend class Notifiee;
  friend class NotifieeRound;

  /// The notifiees, linked through themselves, and the rounds now walking them.
  struct List {
    Notifiee* first = nullptr;
    Notifiee* last = nullptr;
    NotifieeRound* innermost = nullptr;
    uint64_t attachments = 0;
  };

  /// Whether the members of a collection are Ptrs to entities.
  template <class Coll>
  static constexpr bool ownsEntities = requires(Coll& c, typename Coll::Key const& k) {
    (*c.get(k))->attributeTable();
  };
  /// The member of that key where it is an entity; nothing else has to be kept.
  template <class Coll, class K>
  static auto memberOf(Coll& coll, K const& key) {
    if constexpr (ownsEntities<Coll>) {
      auto const* const member = coll.get(key);
      return member ? *member : nullptr;
    } else {
      return nullptr;
    }
  }
  static void tellDeleted(std::nullptr_t) {}
  template <class P>
  static void tellDeleted(P const& member) {
    if (member) member->notifyDeleted();
  }
  void notifyDeleted() const;

  template <class K, class Item>
  static K const& keyOf(Item const& item) {
    if constexpr (std::is_same_v<Item, K>) {
      return item;
    } else if constexpr (requires { item.first; }) {
      return item.first;
    } else {
      return item.key();
    }
  }
  void notifyAll(std::function<void(Notifiee&)> const& call);

  // Most entities are never watched, and pay one pointer for it.
  std::unique_ptr<List> notifiees_;  // null until the first notifiee comes
};

/// Text of an attribute's value: values print their text form, pointers the type of what they point
/// to, collections their members.
template <class T>
std::string attributeTextOf(T const& v) {
  if constexpr (HasTextForm<T>) {
    return valueToStrep(v);
  } else if constexpr (requires { v->fwkType(); }) {
    return v ? "Ptr('" + std::string(v->fwkType()) + "')" : "None";
  } else if constexpr (requires { v.has_value(); }) {
    return v ? attributeTextOf(*v) : "None";
  } else if constexpr (requires { v.first, v.second; }) {
    return attributeTextOf(v.first) + ": " + attributeTextOf(v.second);
  } else if constexpr (requires { v.begin(), v.end(); }) {
    std::string out = "{";
    for (auto const& item : v) out += (out.size() > 1 ? ", " : "") + attributeTextOf(item);
    return out + "}";
  } else {
    return "?";
  }
}

namespace detail {
template <class M>
struct MemberOf;
template <class C, class T>
struct MemberOf<T C::*> {
  using Class = C;
};
}  // namespace detail

namespace detail {
template <auto Member>
decltype(auto) attributeOf(Entity const& e) {
  using Class = typename MemberOf<decltype(Member)>::Class;
  return std::invoke(Member, static_cast<Class const&>(e));
}
}  // namespace detail

/// Table entry for what follows from other attributes: a data member or a getter without arguments.
template <auto Member>
Attribute derivedAttribute(std::string_view name) {
  return {name, [](Entity const& e) { return attributeTextOf(detail::attributeOf<Member>(e)); },
          nullptr};
}
/// And for all others.
template <auto Member>
Attribute attribute(std::string_view name) {
  Attribute a = derivedAttribute<Member>(name);
  a.facts = [](Entity const& e, FactWriter& out) { out.facts(detail::attributeOf<Member>(e)); };
  return a;
}
/// And for a point in time.
template <auto Member>
Attribute timeAttribute(std::string_view name) {
  Attribute a = derivedAttribute<Member>(name);
  a.facts = [](Entity const& e, FactWriter& out) { out.time(detail::attributeOf<Member>(e)); };
  return a;
}
/// Table entry for an operation, which has no value to read.
inline Attribute operation(std::string_view name) {
  return {name, [](Entity const&) { return std::string("operation"); }, nullptr};
}
/// The attributes of a base followed by those of the derived type.
inline AttributeTable joinTables(AttributeTable base, AttributeTable const& own) {
  base.insert(base.end(), own.begin(), own.end());
  return base;
}

}  // namespace Mox
