#pragma once

/// Enumerations with names. An enumeration takes part by a specialisation of EnumNames that lists
/// the names of its values 0, 1, 2, ... in order; the text form is the bare name.

#include "mox/Text.h"

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

namespace Mox {

/// Specialise with `static constexpr std::array<std::string_view, N> value`.
template <class E>
struct EnumNames;

template <class E>
concept NamedEnum = std::is_enum_v<E> && requires {
  EnumNames<E>::value.size();
};

/// Name of a value; a number outside the enumeration prints as that number.
template <NamedEnum E>
std::string stringValue(E e) {
  auto const n = static_cast<size_t>(e);
  return n < EnumNames<E>::value.size() ? std::string(EnumNames<E>::value[n]) : std::to_string(n);
}

/// The value of that name, or none.
template <NamedEnum E>
std::optional<E> instanceFromText(std::string_view name) {
  for (size_t i = 0; i < EnumNames<E>::value.size(); ++i)
    if (EnumNames<E>::value[i] == name) return static_cast<E>(i);
  return std::nullopt;
}

/// The value of that number, or none.
template <NamedEnum E>
std::optional<E> instanceFromNumber(uint64_t number) {
  if (number >= EnumNames<E>::value.size()) return std::nullopt;
  return static_cast<E>(number);
}

template <NamedEnum E>
struct TextForm<E> {
  static void write(std::string& out, E e) { out += stringValue(e); }
  static void read(TextCursor& c, E& e) {
    std::string_view const name = c.takeWhile([](char ch) {
      return (ch >= 'a' && ch <= 'z') || (ch >= 'A' && ch <= 'Z') || (ch >= '0' && ch <= '9');
    });
    auto const value = instanceFromText<E>(name);
    if (!value) c.fail("'" + std::string(name) + "' names no value of the enumeration");
    e = *value;
  }
};

}  // namespace Mox
