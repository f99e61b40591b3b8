#pragma once

/// Hashes that decide places in tables, keyed by a secret of the process.
///
/// The functions of Hash.h are public: whoever writes a prefix list or a rule can compute as many
/// values as he likes that share a place, and a table that goes by them then costs the square of its
/// size. Places therefore come from SipHash-1-3 (J.-P. Aumasson and D. J. Bernstein, "SipHash: a fast
/// short-input PRF", 2012) over the words of a key, under a secret that nobody outside the process
/// knows. The words go in as they are: whatever compressed them first by a public function would let
/// through keys that are equal from then on. A key of one word, which most of the library's own numbers
/// and pointers are, is multiplied by a secret odd number and mixed once more instead: nobody outside the
/// process chooses those keys.
///
/// A place says nothing about equality: tables compare keys. Nor does anything that is iterated or
/// published depend on places.

#include "mox/Export.h"

#include <bit>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <type_traits>

namespace Mox {

struct HashSecret {
  uint64_t k0 = 0;
  uint64_t k1 = 0;
};

/// The secret, drawn from the system's source of randomness at its first use. There is one in the
/// process, also where the library is shared: tables are inline code on both sides.
NAXEL_EXPORT HashSecret const& drawnHashSecret() noexcept;
/// The same without a call: every place in every table asks for it.
inline HashSecret const& hashSecret() noexcept {
  static HashSecret const& secret = drawnHashSecret();
  return secret;
}
/// Sets the secret, so that a run can be repeated place by place in a debugger. Only before its first
/// use, which is the first element of the first table: later it ends the process.
NAXEL_EXPORT void hashSecretIs(HashSecret const& secret) noexcept;

/// The state of one hash: feed words, then take the finished value.
class KeyedHash {
 public:
  explicit KeyedHash(HashSecret const& secret = hashSecret()) noexcept
      : v0_(secret.k0 ^ 0x736f6d6570736575u),
        v1_(secret.k1 ^ 0x646f72616e646f6du),
        v2_(secret.k0 ^ 0x6c7967656e657261u),
        v3_(secret.k1 ^ 0x7465646279746573u) {}

  KeyedHash& word(uint64_t w) noexcept {
    v3_ ^= w;
    round();
    v0_ ^= w;
    return *this;
  }
  /// The bytes of a text, and how many they are.
  KeyedHash& text(std::string_view s) noexcept {
    size_t at = 0;
    for (; at + 8 <= s.size(); at += 8) word(bytes(s.data() + at, 8));
    // The length tells texts apart that differ in trailing zero bytes alone.
    return word(bytes(s.data() + at, s.size() - at) | uint64_t{s.size()} << 56);
  }
  uint64_t finish() const noexcept {
    KeyedHash h = *this;
    h.v2_ ^= 0xff;
    h.round();
    h.round();
    h.round();
    return h.v0_ ^ h.v1_ ^ h.v2_ ^ h.v3_;
  }
  /// Place of a key that is one word.
  static uint64_t ofWord(uint64_t w) noexcept {
    HashSecret const& secret = hashSecret();
    // The upper bits of the product are the good ones, and tables take the lower ones: they are stirred
    // once more, and so are runs of numbers, which a product alone spreads badly under some secrets.
    uint64_t const product = (w ^ secret.k0) * (secret.k1 | 1);
    uint64_t const stirred = (product ^ product >> 32) * 0xd6e8feb86659fd93u;
    return stirred ^ stirred >> 32;
  }

 private:
  /// Up to eight bytes, the lowest first.
  static uint64_t bytes(char const* from, size_t n) noexcept {
    uint64_t w = 0;
    if constexpr (std::endian::native == std::endian::little) {
      std::memcpy(&w, from, n);
    } else {
      for (size_t i = 0; i < n; ++i) w |= uint64_t{static_cast<uint8_t>(from[i])} << (8 * i);
    }
    return w;
  }
  void round() noexcept {
    v0_ += v1_;
    v1_ = std::rotl(v1_, 13) ^ v0_;
    v0_ = std::rotl(v0_, 32);
    v2_ += v3_;
    v3_ = std::rotl(v3_, 16) ^ v2_;
    v0_ += v3_;
    v3_ = std::rotl(v3_, 21) ^ v0_;
    v2_ += v1_;
    v1_ = std::rotl(v1_, 17) ^ v2_;
    v2_ = std::rotl(v2_, 32);
  }

  uint64_t v0_;
  uint64_t v1_;
  uint64_t v2_;
  uint64_t v3_;
};

/// A key that is one word: numbers, enumerations, pointers (by the object that they refer to), and types
/// with `uint64_t placeWord() const`.
template <class T>
concept OneWordKey = requires(T const& v) {
  v.placeWord();
}
|| std::is_arithmetic_v<T> || std::is_enum_v<T> || std::is_pointer_v<T> || requires(T const& v) {
  v.get();
};

template <OneWordKey T>
uint64_t placeWord(T const& v) noexcept {
  if constexpr (requires { v.placeWord(); }) {
    return v.placeWord();
  } else if constexpr (requires { v.get(); }) {
    return reinterpret_cast<uintptr_t>(v.get());
  } else if constexpr (std::is_pointer_v<T>) {
    return reinterpret_cast<uintptr_t>(v);
  } else if constexpr (std::is_floating_point_v<T>) {
    return std::bit_cast<uint64_t>(v == 0 ? 0.0 : double{v});
  } else {
    return static_cast<uint64_t>(v);
  }
}

/// Feeds a key. A type of several words takes part by `void placeWords(KeyedHash&) const`, which feeds
/// all that its equality looks at.
template <class T>
void placeWords(KeyedHash& h, T const& v) noexcept {
  if constexpr (OneWordKey<T>) {
    h.word(placeWord(v));
  } else if constexpr (std::is_convertible_v<T const&, std::string_view>) {
    h.text(v);
  } else {
    v.placeWords(h);
  }
}

/// Where a key belongs in a table, before it is cut to the size of the table.
template <class T>
uint64_t placeOf(T const& key) noexcept {
  if constexpr (OneWordKey<T>) {
    return KeyedHash::ofWord(placeWord(key));
  } else {
    KeyedHash h;
    placeWords(h, key);
    return h.finish();
  }
}

/// Place of a set of keys that come and go one by one: the sum of theirs, each mixed under the secret
/// before it is added.
class KeyedSetHash {
 public:
  template <class T>
  void add(T const& key) noexcept {
    sum_ += mixed(key);
  }
  template <class T>
  void remove(T const& key) noexcept {
    sum_ -= mixed(key);
  }
  uint64_t value() const noexcept { return sum_; }
  friend bool operator==(KeyedSetHash const&, KeyedSetHash const&) = default;

 private:
  /// Products of single words would add up to the product of their sum.
  template <class T>
  static uint64_t mixed(T const& key) noexcept {
    KeyedHash h;
    placeWords(h, key);
    return h.finish();
  }
  uint64_t sum_ = 0;
};

}  // namespace Mox
