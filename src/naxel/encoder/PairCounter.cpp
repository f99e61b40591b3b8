#include "naxel/encoder/PairCounter.h"

namespace Naxel {

size_t PairCounter::join(std::span<uint16_t const> values, std::span<Pair const> blocks) {
  if (ignored_.empty()) ignored_.assign(size_t{1} << bitWidth_, none);
  pairs_.assign(values.begin(), values.end());
  for (uint16_t v : values) ignored_[v] = 0;
  for (Pair const& block : blocks) {
    pairs_.push_back(block.lowest);
    ignored_[block.lowest] = block.ignored;
  }
  // A bit in which all pairs agree can join no two of them.
  uint32_t differing = 0;
  for (uint16_t v : pairs_) differing |= static_cast<uint32_t>(v ^ pairs_[0]);
  size_t left = pairs_.size();
  for (uint32_t bit = 1; bit <= differing && left > 1; bit <<= 1) {
    if (!(differing & bit)) continue;
    size_t kept = 0;
    for (size_t i = 0; i < left; ++i) {
      uint16_t const v = pairs_[i];
      uint16_t const ignored = ignored_[v];
      if (ignored == none) continue;
      uint16_t& partner = ignored_[v ^ bit];
      // Read from the table as it is at this moment: the partner of a pair that has joined at this bit is gone,
      // and pairs do not overlap, so nothing else stands where a bit is ignored.
      bool const joins = partner == ignored;
      // The lower of the two does it, whichever comes first.
      if (joins && (v & bit)) continue;
      if (joins) {
        partner = none;
        ignored_[v] = static_cast<uint16_t>(ignored | bit);
      }
      pairs_[kept++] = v;
    }
    left = kept;
  }
  return left;
}

uint32_t PairCounter::count(std::span<uint16_t const> values, std::span<Pair const> blocks) {
  size_t const left = join(values, blocks);
  // Only the words in use are set back. To clear the table would cost every call the size of the width.
  for (size_t i = 0; i < left; ++i) ignored_[pairs_[i]] = none;
  return static_cast<uint32_t>(left);
}

std::span<PairCounter::Pair const> PairCounter::merge(std::span<uint16_t const> values,
                                                      std::span<Pair const> blocks) {
  size_t const left = join(values, blocks);
  merged_.clear();
  for (size_t i = 0; i < left; ++i) {
    merged_.push_back({pairs_[i], ignored_[pairs_[i]]});
    ignored_[pairs_[i]] = none;
  }
  return merged_;
}

}  // namespace Naxel
