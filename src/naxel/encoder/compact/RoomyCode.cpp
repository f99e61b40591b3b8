#include "naxel/encoder/compact/RoomyCode.h"

#include <algorithm>
#include <numeric>
#include <optional>
#include <utility>

namespace Naxel::Compact {

namespace {

/// From so many uses on a set gets room for labels to come.
constexpr uint64_t roomFromUses = 4;
/// By what part of the price room may make a code dearer.
constexpr uint64_t dearerPart = 20;

/// How many codes to leave free in a set of so many uses and labels; more in what costs more to change.
uint64_t roomFor(uint64_t uses, size_t labels, uint64_t leastUses) {
  if (uses < leastUses) return 0;
  return static_cast<uint64_t>(std::bit_width(uses / leastUses)) + labels / 8;
}

/// So many more labels like each one, as places that are left free.
Code codeWithCopies(SetFamily const& sets, std::vector<uint64_t> const& weights,
                    std::vector<uint64_t> const& copies, unsigned bits) {
  auto const n = static_cast<uint32_t>(copies.size());
  std::vector<uint32_t> first(n);
  uint32_t next = n;
  for (uint32_t l = 0; l < n; next += static_cast<uint32_t>(copies[l++])) first[l] = next;
  SetFamily more;
  std::vector<uint32_t> members;
  for (uint32_t s = 0; s < sets.size(); ++s) {
    members.assign(sets[s].begin(), sets[s].end());
    for (uint32_t l : sets[s])
      for (uint32_t k = 0; k < copies[l]; ++k) members.push_back(first[l] + k);
    std::ranges::sort(members);
    for (uint32_t l : members) more.add(l);
    more.end();
  }
  Code code = compactCode(more, weights, next, bits);
  code.codes.resize(n);
  return code;
}

/// Free codes in each set by what it costs to change; a free code is like a label that is in no smaller set than need
/// be. None where there is no room for any.
std::vector<uint64_t> copiesByUse(SetFamily const& sets, std::vector<uint64_t> const& weights,
                                  uint32_t n, unsigned bits) {
  SetFamily const setsOf = sets.transposed(n);
  std::vector<uint32_t> like(sets.size(), SetFamily::none);
  for (uint32_t s = 0; s < sets.size(); ++s)
    for (uint32_t l : sets[s])
      if (like[s] == SetFamily::none || setsOf[l].size() < setsOf[like[s]].size()) like[s] = l;
  uint64_t const most = (uint64_t{1} << bits) / 4;
  for (uint64_t leastUses = roomFromUses; leastUses <= uint64_t{1} << 32; leastUses *= 4) {
    std::vector<uint64_t> copies(n, 0);
    for (uint32_t s = 0; s < sets.size(); ++s)
      copies[like[s]] = std::max(copies[like[s]], roomFor(weights[s], sets[s].size(), leastUses));
    // Each is one more member of all sets that its label is in, and those must not become many times as large.
    uint64_t members = 0;
    for (uint32_t l = 0; l < n; ++l) members += copies[l] * setsOf[l].size();
    if (std::accumulate(copies.begin(), copies.end(), uint64_t{n}) <= most &&
        members <= (uint64_t{1} << bits) + 2 * sets.members())
      return copies;
  }
  return {};
}

}  // namespace

Code roomyCode(SetFamily const& sets, std::vector<uint64_t> const& weights, uint32_t n,
               unsigned bits) {
  auto const price = [&](Code const& of) {
    uint64_t cubes = 0;
    for (uint32_t s = 0; s < sets.size(); ++s) cubes += weights[s] * of.cubes[s].size();
    return cubes;
  };
  std::optional<Code> best;
  uint64_t most = std::accumulate(weights.begin(), weights.end(), uint64_t{0});
  if (auto const copies = copiesByUse(sets, weights, n, bits); !copies.empty()) {
    best = codeWithCopies(sets, weights, copies, bits);
    if (price(*best) == most) return std::move(*best);
  }
  // What crosses finds no faces with much room inside; some for each label may do.
  Code plain = compactCode(sets, weights, n, bits);
  most = price(plain) + price(plain) / dearerPart;
  if (best && price(*best) <= most) return std::move(*best);
  for (unsigned more : {4u, 3u, 2u, 1u}) {
    if (bits <= more || uint64_t{n} >= uint64_t{1} << (bits - more - 1)) continue;
    Code code = compactCode(sets, weights, n, bits - more);
    if (price(code) > most) continue;
    // Each code becomes a block with it as the first.
    for (uint16_t& c : code.codes) c = static_cast<uint16_t>(c << more);
    for (auto& cubes : code.cubes)
      for (Cube& c : cubes)
        c = {static_cast<uint16_t>(c.value << more),
             static_cast<uint16_t>(c.free << more | ((1u << more) - 1))};
    return code;
  }
  return plain;
}

}  // namespace Naxel::Compact
