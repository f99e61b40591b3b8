#pragma once

/// Value types. A type that derives from ValueType<T> and lists its fields once gets equality,
/// ordering (by the fields, first to last), hash, text form and parser from that list:
///
///   class GenCombo : public Mox::ValueType<GenCombo> {
///    public:
///     static constexpr std::string_view typeName = "Naxel::GenCombo";
///     static constexpr auto fields() {
///       return std::make_tuple(Mox::field("srcLabel", &GenCombo::srcLabel_),
///                              Mox::field("dstLabel", &GenCombo::dstLabel_));
///     }
///
/// A type whose fields fit into one number that is ordered as they are may offer it as orderKey();
/// then it is compared and hashed by that number.
///
/// The text form is Value('Naxel::GenCombo', ** {'srcLabel': 1, 'dstLabel': 2}). Wrappers of one
/// number derive from NumberValue instead and print as the bare number.

#include "mox/Hash.h"
#include "mox/KeyedHash.h"
#include "mox/Text.h"

#include <compare>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

namespace Mox {

/// 64-bit hash of anything that takes part in a value: public, and the same everywhere.
template <class T>
uint64_t hashOf(T const& v) noexcept {
  if constexpr (requires { v.hash64(); }) {
    return v.hash64();
  } else if constexpr (std::is_same_v<T, std::string>) {
    return hashText(v);
  } else if constexpr (std::is_same_v<T, double>) {
    return mix64(__builtin_bit_cast(uint64_t, v == 0 ? 0.0 : v));
  } else if constexpr (requires { v.get(); }) {
    return mix64(reinterpret_cast<uintptr_t>(v.get()));  // pointers: identity of the object
  } else if constexpr (std::is_pointer_v<T>) {
    return mix64(reinterpret_cast<uintptr_t>(v));
  } else {
    return mix64(static_cast<uint64_t>(v));
  }
}

/// One field of a value type. `check`, if given, throws RangeError on a stored value out of bounds.
template <class C, class T>
struct Field {
  char const* name;
  T C::*member;
  void (*check)(C const&);
};

template <class C, class T>
constexpr Field<C, T> field(char const* name, T C::*member, void (*check)(C const&) = nullptr) {
  return {name, member, check};
}

/// Base of value types, see the head of this file. T is default constructible.
template <class T>
class ValueType {
 public:
  friend bool operator==(T const& a, T const& b) {
    if constexpr (requires { a.orderKey(); })
      return a.orderKey() == b.orderKey();
    else
      return std::apply([&](auto const&... f) { return ((a.*f.member == b.*f.member) && ...); },
                        T::fields());
  }
  friend auto operator<=>(T const& a, T const& b) {
    if constexpr (requires { a.orderKey(); }) {
      return a.orderKey() <=> b.orderKey();
    } else {
      // Partial, because a field may be a floating-point number.
      std::partial_ordering order = std::partial_ordering::equivalent;
      std::apply(
          [&](auto const&... f) {
            (void)((order = std::partial_ordering(a.*f.member <=> b.*f.member),
                    order == std::partial_ordering::equivalent) &&
                   ...);
          },
          T::fields());
      return order;
    }
  }
  uint64_t hash64() const noexcept {
    if constexpr (requires { self().orderKey(); }) {
      return mix64(self().orderKey());
    } else {
      uint64_t h = 0;
      std::apply([&](auto const&... f) { ((h = hashCombine(h, hashOf(self().*f.member))), ...); },
                 T::fields());
      return h;
    }
  }
  uint32_t hash() const noexcept { return foldHash(hash64()); }
  uint64_t placeWord() const noexcept requires requires(T const& v) { v.orderKey(); }
  { return self().orderKey(); }
  void placeWords(KeyedHash& h) const noexcept {
    std::apply([&](auto const&... f) { (Mox::placeWords(h, self().*f.member), ...); }, T::fields());
  }

  friend std::ostream& operator<<(std::ostream& out, T const& v) { return out << valueToStrep(v); }

 private:
  T const& self() const noexcept { return static_cast<T const&>(*this); }
};

template <class T>
concept FieldedValue = std::is_base_of_v<ValueType<T>, T>;

template <FieldedValue T>
struct TextForm<T> {
  static void write(std::string& out, T const& v) {
    out += "Value('";
    out += T::typeName;
    out += "', ** {";
    [[maybe_unused]] char const* separator = "'";
    std::apply([&](auto const&... f) { (writeField(out, v, f, separator), ...); }, T::fields());
    out += "})";
  }

  /// Starts from default values and applies the bound checks of the fields; `v` changes only when
  /// all of the value could be read.
  static void read(TextCursor& c, T& v) {
    T value{};
    c.expect("Value('");
    c.expect(T::typeName);
    c.expect("', ** {");
    [[maybe_unused]] char const* separator = "'";
    std::apply([&](auto const&... f) { (readField(c, value, f, separator), ...); }, T::fields());
    c.expect("})");
    v = std::move(value);
  }

 private:
  template <class F>
  static void writeField(std::string& out, T const& v, F const& f, char const*& separator) {
    using Member = std::remove_cvref_t<decltype(v.*f.member)>;
    out += separator;
    out += f.name;
    out += "': ";
    TextForm<Member>::write(out, v.*f.member);
    separator = ", '";
  }
  template <class F>
  static void readField(TextCursor& c, T& v, F const& f, char const*& separator) {
    using Member = std::remove_cvref_t<decltype(v.*f.member)>;
    c.expect(separator);
    c.expect(f.name);
    c.expect("': ");
    try {
      TextForm<Member>::read(c, v.*f.member);
      if (f.check) f.check(v);
    } catch (RangeError const& e) {
      throw RangeError(std::string(e.what()) + ", in field '" + f.name + "'");
    } catch (ParseError const& e) {
      throw ParseError(std::string(e.what()) + ", in field '" + f.name + "'");
    }
    separator = ", '";
  }
};

/// Base of the wrappers of one unsigned number. A bound is the business of T's constructor, which
/// throws RangeError; parsing goes through it.
template <class T, class R>
class NumberValue {
 public:
  using Rep = R;

  constexpr NumberValue() = default;
  constexpr explicit NumberValue(R v) : value_(v) {}

  constexpr R value() const noexcept { return value_; }
  constexpr uint64_t hash64() const noexcept { return mix64(value_); }
  constexpr uint32_t hash() const noexcept { return foldHash(hash64()); }
  uint64_t placeWord() const noexcept { return value_; }

  friend constexpr bool operator==(T const& a, T const& b) noexcept {
    return a.value() == b.value();
  }
  friend constexpr std::strong_ordering operator<=>(T const& a, T const& b) noexcept {
    return a.value() <=> b.value();
  }
  friend std::ostream& operator<<(std::ostream& out, T const& v) {
    return out << std::to_string(v.value());
  }

 protected:
  R value_ = 0;
};

template <class T>
concept NumberWrapper = requires {
  typename T::Rep;
}
&&std::is_base_of_v<NumberValue<T, typename T::Rep>, T>;

template <NumberWrapper T>
struct TextForm<T> {
  static void write(std::string& out, T const& v) { out += std::to_string(v.value()); }
  static void read(TextCursor& c, T& v) {
    using Rep = typename T::Rep;
    Rep number = 0;
    try {
      TextForm<Rep>::read(c, number);
    } catch (RangeError const&) {
      static_cast<void>(T(static_cast<Rep>(~Rep{0})));  // a bound of T's own speaks first
      throw;
    }
    v = T(number);
  }
};

}  // namespace Mox
