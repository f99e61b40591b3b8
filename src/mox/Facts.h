#pragma once

/// Entities as lines of facts, which `diff` compares: every line is a path and, behind " = ", what stands there.
///
///   acls.acl['edge'].ruleByName['web'].ruleFilter.dportRange[rangeStart=80 rangeEnd=80]
///   acls.acl['edge'].ruleById[10] = see acls.acl['edge'].ruleByName['web']
///   acls.acl['edge'].af = ipv4
///
/// A path leads over attributes (".name") and members of collections ("[key]", in the order of the keys). A member that
/// is all that there is to say ends its line, and so does an entity that holds nothing. What is not there has no line:
/// null references, empty collections, empty texts, set key 0; nor have attributes that follow from others, and the
/// name of an entity that repeats its key. An entity that several refer to is written where it comes first.
///
/// Values of more than two fields show those that differ from their defaults, "default" if none does. Points in time are
/// numbered as they come, from kick#1 on: which ones are equal is told, and no clock.

#include "mox/Text.h"

#include <algorithm>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <unordered_map>
#include <vector>

namespace Mox {

class Entity;

namespace detail {
template <class T>
concept HasFields = requires {
  T::fields();
};
template <class T>
concept PointsToEntity = requires(T const& v) {
  v->attributeTable();
};
template <class T>
concept HoldsEntity = requires(T const& v) {
  v.get()->attributeTable();
};
template <HasFields T>
constexpr bool hasEntityField() {
  return std::apply(
      [](auto... f) { return (HoldsEntity<std::remove_cvref_t<decltype(T().*f.member)>> || ...); },
      T::fields());
}
/// What a member of a collection is told apart by.
template <class T>
decltype(auto) factKey(T const& item) {
  if constexpr (requires { item.first; })
    return (item.first);
  else if constexpr (requires { item->name(); })
    return item->name();
  else if constexpr (requires { item.key(); })
    return item.key();
  else
    return (item);
}
}  // namespace detail

/// Writes as it walks: what it remembers are the entities that several refer to.
class NAXEL_EXPORT FactWriter {
 public:
  explicit FactWriter(std::ostream& out) : out_(out) {}
  FactWriter(FactWriter const&) = delete;
  FactWriter& operator=(FactWriter const&) = delete;

  /// Writes what an entity holds, and what it refers to; nothing for null. `head` begins each line.
  void write(std::string_view head, Entity const* entity);
  /// Has an entity written under a head that is yet to come, and only referred to before.
  void homeIs(Entity const* entity, std::string_view head);
  /// Numbers points in time from 1 again: those to come are of another clock.
  void timesDelAll() { times_.clear(); }
  /// The types of all entities that were written.
  std::set<std::string_view> const& types() const { return types_; }

  /// For attributes: what stands at the present path.
  template <class T>
  void facts(T const& v);
  void time(Seconds t);

 private:
  void entity(Entity const& e);
  /// Writes the line and takes the path back to that length.
  void emit(size_t end);
  void appendTime(Seconds t);
  template <class T>
  void append(T const& v);
  template <class T, class F>
  void appendField(T const& v, F const& f, bool sparse, bool& any);
  template <class T>
  void fields(T const& v);
  template <class C>
  void members(C const& coll);
  template <class T>
  void member(T const& item);
  template <class K, class F>
  void at(K const& key, F then);

  std::ostream& out_;
  std::string path_;
  size_t keyAt_ = 0;    // where the last key begins
  std::string known_;   // what the attribute at a path of length knownAt_ need not repeat
  size_t knownAt_ = 0;  // 0 where there is none
  size_t lines_ = 0;
  std::unordered_map<Entity const*, std::string> homes_;  // never walked
  std::vector<Seconds> times_;
  std::set<std::string_view> types_;
};

template <class T>
void FactWriter::facts(T const& v) {
  if constexpr (detail::PointsToEntity<T>) {
    if (v) entity(*v);
  } else if constexpr (detail::HoldsEntity<T>) {
    facts(v.get());
  } else if constexpr (requires { v.has_value(); }) {
    if (v) facts(*v);
  } else if constexpr (HasTextForm<T>) {
    if constexpr (requires {
                    v.empty();
                    requires std::is_same_v<T, std::string>;
                  }) {
      if (v.empty()) return;
    } else if constexpr (std::is_class_v<T> && std::is_constructible_v<bool, T const&>) {
      if (!v) return;
    }
    if constexpr (detail::HasFields<T>) {
      if constexpr (detail::hasEntityField<T>()) return fields(v);
    }
    size_t const end = path_.size();
    path_ += " = ";
    append(v);
    emit(end);
  } else if constexpr (requires { v.begin(), v.end(); }) {
    members(v);
  }
}

template <class T>
void FactWriter::append(T const& v) {
  if constexpr (detail::HasFields<T>) {
    bool any = false;
    std::apply([&](auto const&... f) { (appendField(v, f, sizeof...(f) > 2, any), ...); },
               T::fields());
    if (!any) path_ += "default";
  } else if constexpr (HasTextForm<T>) {
    TextForm<T>::write(path_, v);
  } else {
    path_ += '?';
  }
}

template <class T, class F>
void FactWriter::appendField(T const& v, F const& f, bool sparse, bool& any) {
  static T const defaults{};
  auto const& value = v.*f.member;
  using Value = std::remove_cvref_t<decltype(value)>;
  if (sparse && value == defaults.*f.member) return;
  if (any) path_ += ' ';
  any = true;
  path_ += f.name;
  path_ += '=';
  if constexpr (std::is_same_v<Value, Seconds>) {
    appendTime(value);
  } else if constexpr (detail::HasFields<Value>) {
    path_ += '(';
    append(value);
    path_ += ')';
  } else {
    append(value);
  }
}

/// A value that refers to an entity, field by field.
template <class T>
void FactWriter::fields(T const& v) {
  size_t const end = path_.size();
  auto const one = [&](auto const& f) {
    path_ += '.';
    path_ += f.name;
    if constexpr (std::is_same_v<std::remove_cvref_t<decltype(v.*f.member)>, Seconds>)
      time(v.*f.member);
    else
      facts(v.*f.member);
    path_.resize(end);
  };
  std::apply([&](auto const&... f) { (one(f), ...); }, T::fields());
}

template <class C>
void FactWriter::members(C const& coll) {
  using Item = std::remove_cvref_t<decltype(*coll.begin())>;
  using Key = std::remove_cvref_t<decltype(detail::factKey(std::declval<Item const&>()))>;
  // A sequence has no keys, and keeps its order.
  if constexpr (requires {
                  typename C::Key;
                  requires HasTextForm<Key>;
                }) {
    auto const less = [](Item const& a, Item const& b) {
      return detail::factKey(a) < detail::factKey(b);
    };
    if (!std::is_sorted(coll.begin(), coll.end(), less)) {
      std::vector<Item const*> sorted;
      sorted.reserve(coll.size());
      for (Item const& item : coll) sorted.push_back(&item);
      std::sort(sorted.begin(), sorted.end(),
                [&](Item const* a, Item const* b) { return less(*a, *b); });
      for (Item const* item : sorted) member(*item);
      return;
    }
  }
  for (Item const& item : coll) member(item);
}

template <class T>
void FactWriter::member(T const& item) {
  at(detail::factKey(item), [&] {
    if constexpr (requires { item.first, item.second; })
      facts(item.second);
    else if constexpr (detail::PointsToEntity<T>)
      facts(item);
    else if constexpr (requires { item.key(), item.value(); })
      facts(item.value());
    else
      emit(path_.size());
  });
}

template <class K, class F>
void FactWriter::at(K const& key, F then) {
  size_t const end = path_.size();
  path_ += '[';
  keyAt_ = path_.size();
  append(key);
  path_ += ']';
  then();
  path_.resize(end);
}

}  // namespace Mox
