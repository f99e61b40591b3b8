#include "generate/GeneratePrefixes.h"

namespace NaxelTool {

uint64_t PrefixTree::extend(Verify::Random& random, uint64_t bits, unsigned from,
                            unsigned to) const {
  for (unsigned depth = from; depth < to; ++depth) {
    uint64_t const node = Mox::mix64(Mox::mix64(bits ^ seed_) + depth);
    unsigned const least = depth < knee_ ? least_ : 50;
    unsigned const percent = least + static_cast<unsigned>((node >> 1) % (depth < knee_ ? 20 : 10));
    bool const favoured = random.below(100) < percent;
    bool const one = favoured == ((node & 1) != 0);
    if (one) bits |= uint64_t{1} << (63 - depth);
  }
  return bits;
}

}  // namespace NaxelTool
