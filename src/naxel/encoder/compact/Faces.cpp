#include "naxel/encoder/compact/Faces.h"

#include "naxel/encoder/compact/CubeCover.h"

#include <utility>

namespace Naxel::Compact {

Faces coveredFaces(FaceProblem const& problem, std::vector<uint16_t> places) {
  CodeMap used(problem.bits);
  if (problem.reservesLast) used.insert({static_cast<uint16_t>((1u << problem.bits) - 1), 0});
  for (uint32_t i = 0; i < places.size(); ++i) used.insert(blockCube(places[i], problem.items[i]));
  CubeCover cover(problem.bits);
  Faces faces{std::move(places), {}, 0, problem.bits};
  faces.cubes.reserve(problem.sets.size());
  std::vector<Cube> of;
  for (uint32_t s = 0; s < problem.sets.size(); ++s) {
    of.clear();
    for (uint32_t i : problem.sets[s]) of.push_back(blockCube(faces.places[i], problem.items[i]));
    faces.cubes.push_back(cover.cover(used, of, true));
    faces.price += problem.weights[s] * faces.cubes.back().size();
  }
  return faces;
}

std::optional<Faces> facesInOrder(FaceProblem const& problem, bool gray) {
  std::vector<uint16_t> places;
  uint32_t next = 0;
  uint32_t const last = (uint32_t{1} << problem.bits) - 1;
  for (uint8_t bits : problem.items) {
    // A block of codes is a block of their Gray codes, too.
    uint32_t const block = next >> bits;
    uint32_t const place = (gray ? block ^ block >> 1 : block) << bits;
    if (problem.reservesLast && place >> bits == last >> bits) return std::nullopt;
    places.push_back(static_cast<uint16_t>(place));
    next += uint32_t{1} << bits;
  }
  return coveredFaces(problem, std::move(places));
}

}  // namespace Naxel::Compact
