#pragma once

/// Hash functions. All of them give the same value for the same input on every machine and
/// compiler, because hash collections and digests must not depend on either.

#include <cstdint>
#include <string_view>

namespace Mox {

/// Bijective 64-bit mixer (the finaliser of splitmix64); every input bit reaches every output bit.
constexpr uint64_t mix64(uint64_t x) noexcept {
  x += 0x9e3779b97f4a7c15u;
  x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9u;
  x = (x ^ (x >> 27)) * 0x94d049bb133111ebu;
  return x ^ (x >> 31);
}

/// Order-dependent combination of a running hash with one more word. Multiplying the hash by an odd
/// constant first keeps small hashes apart whatever small words come with them.
constexpr uint64_t hashCombine(uint64_t seed, uint64_t word) noexcept {
  return mix64((seed + 1) * 0xd6e8feb86659fd93u + word);
}

/// 64 bits folded to 32 without losing either half.
constexpr uint32_t foldHash(uint64_t h) noexcept { return static_cast<uint32_t>(h ^ (h >> 32)); }

/// Bob Jenkins' one-at-a-time hash: feed bytes or whole words, then take the finished value.
class OneAtATime {
 public:
  constexpr OneAtATime& byte(uint8_t b) noexcept {
    h_ += b;
    h_ += h_ << 10;
    h_ ^= h_ >> 6;
    return *this;
  }
  /// The bytes of an integer, lowest first.
  template <class Int>
  constexpr OneAtATime& bytes(Int v) noexcept {
    for (unsigned i = 0; i < sizeof(Int); ++i)
      byte(static_cast<uint8_t>(static_cast<uint64_t>(v) >> (8 * i)));
    return *this;
  }
  /// One 32-bit word as a single step.
  constexpr OneAtATime& word(uint32_t w) noexcept {
    h_ = (h_ + w) * 1025u;
    h_ ^= h_ >> 6;
    return *this;
  }
  constexpr uint32_t finish() const noexcept {
    uint32_t h = h_;
    h += h << 3;
    h ^= h >> 11;
    h += h << 15;
    return h;
  }

 private:
  uint32_t h_ = 0;
};

/// 64-bit hash of a text.
constexpr uint64_t hashText(std::string_view text) noexcept {
  uint64_t h = mix64(text.size());
  for (char c : text) h = (h ^ static_cast<uint8_t>(c)) * 0x100000001b3u;
  return mix64(h);
}

}  // namespace Mox
