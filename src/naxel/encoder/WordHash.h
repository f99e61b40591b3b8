#pragma once

/// The digest of what an encoder reads.

#include "mox/Hash.h"

#include <cstdint>

namespace Naxel {

/// Runs a 32-bit hash over 64-bit words, mixed so that every bit of a word counts.
class WordHash {
 public:
  void add(uint64_t word) { hash_.word(Mox::foldHash(Mox::mix64(word))); }
  uint32_t finish() const { return hash_.finish(); }

 private:
  Mox::OneAtATime hash_;
};

inline uint64_t joinHalves(WordHash const& high, WordHash const& low) {
  return uint64_t{high.finish()} << 32 | low.finish();
}

}  // namespace Naxel
