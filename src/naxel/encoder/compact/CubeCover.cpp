#include "naxel/encoder/compact/CubeCover.h"

#include <algorithm>
#include <array>

namespace Naxel::Compact {

namespace {

constexpr size_t exactPlaces = 7;
constexpr size_t manyPlaces = 48;
constexpr size_t mostToJoin = 192;
constexpr size_t nearest = 8;

}  // namespace

std::vector<Cube> CubeCover::cover(CodeMap const& used, std::span<Cube const> places,
                                   bool exactly) {
  if (places.size() <= 1) return {places.begin(), places.end()};
  for (Cube p : places) own_.insert(p);
  std::vector<Cube> cubes;
  Cube whole = places[0];
  for (Cube p : places) whole = whole.joined(p);
  if (isOwn(used, whole)) {
    cubes = {whole};
  } else if (places.size() == 2) {
    cubes = {places[0], places[1]};
  } else if (exactly && places.size() <= exactPlaces) {
    cubes = exact(used, places);
  } else if (places.size() > manyPlaces) {
    cubes = halved(used, places);
    if (cubes.size() <= mostToJoin) cubes = greedy(used, cubes);
  } else {
    cubes = greedy(used, places);
    if (exactly && cubes.size() > 2) {
      // From the other end on, it may come out better.
      std::vector<Cube> const reversed(places.rbegin(), places.rend());
      std::vector<Cube> other = greedy(used, reversed);
      if (other.size() < cubes.size()) cubes = std::move(other);
    }
  }
  for (Cube p : places) own_.erase(p);
  return cubes;
}

std::vector<Cube> CubeCover::halved(CodeMap const& used, std::span<Cube const> places) const {
  std::vector<Cube> cubes(places.begin(), places.end());
  for (unsigned b = 0; b < bits_; ++b) {
    auto const bit = static_cast<uint16_t>(1u << b);
    for (Cube& c : cubes)
      if (!(c.free & bit) && isOwn(used, c.freed(bit))) c = c.freed(bit);
    std::sort(cubes.begin(), cubes.end());
    cubes.erase(std::unique(cubes.begin(), cubes.end()), cubes.end());
  }
  return cubes;
}

std::vector<Cube> CubeCover::greedy(CodeMap const& used, std::span<Cube const> places) const {
  steps_ += places.size() * places.size();
  std::vector<Cube> cubes;
  std::vector<Cube> left(places.begin(), places.end());
  while (!left.empty()) {
    Cube cube = left.front();
    left.erase(left.begin());
    for (bool grown = true; grown && !left.empty();) {
      grown = false;
      std::array<std::pair<unsigned, uint32_t>, nearest> near;
      size_t found = 0;
      for (uint32_t i = 0; i < left.size(); ++i) {
        std::pair<unsigned, uint32_t> const candidate{cube.joined(left[i]).bits(), i};
        if (found == nearest && candidate >= near.back()) continue;
        if (found < nearest) ++found;
        size_t at = found - 1;
        for (; at > 0 && candidate < near[at - 1]; --at) near[at] = near[at - 1];
        near[at] = candidate;
      }
      for (size_t k = 0; k < found && !grown; ++k) {
        Cube const joined = cube.joined(left[near[k].second]);
        if (!isOwn(used, joined)) continue;
        cube = joined;
        std::erase_if(left, [&](Cube p) { return cube.contains(p); });
        grown = true;
      }
    }
    cubes.push_back(cube);
  }
  if (cubes.size() <= manyPlaces)
    for (size_t i = 0; i < cubes.size(); ++i)
      for (size_t j = i + 1; j < cubes.size(); ++j)
        if (isOwn(used, cubes[i].joined(cubes[j]))) {
          cubes[i] = cubes[i].joined(cubes[j]);
          cubes.erase(cubes.begin() + static_cast<ptrdiff_t>(j));
          j = i;
        }
  return cubes;
}

std::vector<Cube> CubeCover::exact(CodeMap const& used, std::span<Cube const> places) const {
  uint32_t const all = (1u << places.size()) - 1;
  std::array<Cube, 1u << exactPlaces> cube;
  std::array<bool, 1u << exactPlaces> own{};
  std::array<uint8_t, 1u << exactPlaces> price{};
  std::array<uint8_t, 1u << exactPlaces> last{};
  for (uint32_t set = 1; set <= all; ++set) {
    uint32_t const low = set & -set;
    uint32_t const rest = set ^ low;
    cube[set] = places[static_cast<size_t>(std::countr_zero(set))];
    if (rest) cube[set] = cube[set].joined(cube[rest]);
    own[set] = !rest || (own[rest] && isOwn(used, cube[set]));
    // One cube holds the lowest place and any of the others.
    price[set] = 255;
    for (uint32_t with = rest;; with = (with - 1) & rest) {
      if (own[with | low] && price[rest ^ with] + 1 < price[set]) {
        price[set] = static_cast<uint8_t>(price[rest ^ with] + 1);
        last[set] = static_cast<uint8_t>(with | low);
      }
      if (!with) break;
    }
  }
  std::vector<Cube> cubes;
  for (uint32_t set = all; set; set ^= last[set]) cubes.push_back(cube[last[set]]);
  return cubes;
}

}  // namespace Naxel::Compact
