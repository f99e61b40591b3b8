/// What stood, found again for the sets of now; and the order of the work.

#include "mox/Assert.h"
#include "naxel/encoder/compact/Keeper.h"

namespace Naxel::Compact {

namespace {

/// Bound of the work, in looks at words of codes, beyond which all is encoded afresh.
constexpr uint64_t placingSteps = 2'000'000;
constexpr uint64_t placingStepsPerMember = 100;
/// In how many sets that were there the labels of one are looked for, in all.
constexpr uint64_t votesAtMost = 1'000'000;

}  // namespace

Keeper::Keeper(SetFamily const& sets, std::vector<uint64_t> const& weights,
               LabelsInForce const& inForce, KeptSets const& kept, unsigned bits)
    : distinct_(sets, weights, 1),
      setsOf_(distinct_.sets.transposed(static_cast<uint32_t>(inForce.codes.size()))),
      inForce_(inForce),
      kept_(kept),
      bits_(bits),
      cover_(bits),
      used_(bits),
      taken_(bits),
      codes_(inForce.codes),
      labelAt_(size_t{1} << bits, SetFamily::none),
      matched_(size_t{1} << bits),
      cubes_(distinct_.sets.size()),
      hulls_(distinct_.sets.size()),
      scratch_(bits) {
  Cube const last = cubeOf((1u << bits) - 1);
  used_.insert(last);
  taken_.insert(last);
  for (uint32_t l = 0; l < labels(); ++l) {
    if (!isPlaced(l)) continue;
    MOX_ASSERT(codes_[l] < last.value && labelAt_[codes_[l]] == SetFamily::none);
    used_.insert(cubeOf(codes_[l]));
    taken_.insert(cubeOf(codes_[l]));
    labelAt_[codes_[l]] = l;
  }
  for (uint16_t code : inForce.vacated) taken_.insert(cubeOf(code));
}

std::vector<Cube> Keeper::placesOf(uint32_t set) const {
  std::vector<Cube> places;
  places.reserve(distinct_.sets[set].size());
  for (uint32_t l : distinct_.sets[set])
    if (isPlaced(l)) places.push_back(cubeOf(codes_[l]));
  return places;
}

void Keeper::cubesAre(uint32_t set, CubeList cubes) {
  uint64_t const weight = distinct_.weights[set];
  // Cubes of a set may overlap, and each of their codes counts once.
  auto const add = [this](CubeList const& all, uint64_t by) {
    for (Cube c : all)
      forEachCode(c, 0, [&](uint32_t code) {
        if (!scratch_.meets(cubeOf(code))) matched_[code] += by;
        if (all.size() > 1) scratch_.insert(cubeOf(code));
        return true;
      });
    if (all.size() > 1)
      for (Cube c : all) scratch_.erase(c);
  };
  add(cubes_[set], ~weight + 1);
  add(cubes, weight);
  if (!cubes.empty()) hulls_[set] = cubes[0];
  for (Cube c : cubes) hulls_[set] = hulls_[set].joined(c);
  cubes_[set].swap(cubes);
  if (log_) log_->push_back({set, std::move(cubes)});
}

/// Of the sets before the one that has the most codes in common, if those are more than it takes to tell them apart.
std::optional<size_t> Keeper::mostAlike(Codes const& codes) {
  if (keptFrom_.empty()) {
    keptFrom_.assign(size_t{1} << bits_, SetFamily::none);
    for (auto s = static_cast<uint32_t>(kept_.sets.size()); s-- > 0;)
      for (uint16_t code : kept_.sets[s].codes) {
        keptAt_.push_back({s, keptFrom_[code]});
        keptFrom_[code] = static_cast<uint32_t>(keptAt_.size() - 1);
      }
  }
  std::vector<uint32_t> votes;
  for (uint16_t code : codes)
    for (uint32_t at = keptFrom_[code]; at != SetFamily::none; at = keptAt_[at].next) {
      // All that are asked count, also where nothing comes of it.
      if (++votes_ > votesAtMost) return std::nullopt;
      votes.push_back(keptAt_[at].set);
    }
  std::ranges::sort(votes);
  std::optional<size_t> best;
  int64_t most = 0;
  for (size_t i = 0; i < votes.size();) {
    size_t const from = i;
    while (i < votes.size() && votes[i] == votes[from]) ++i;
    auto const common = static_cast<int64_t>(i - from);
    auto const size = static_cast<int64_t>(kept_.sets[votes[from]].codes.size());
    int64_t const score = 3 * common - size - static_cast<int64_t>(codes.size());
    if (score <= most) continue;
    most = score;
    best = votes[from];
  }
  return best;
}

/// Labels that have left the set or joined it.
void Keeper::question(uint32_t set, KeptSets::Set const& was, Codes const& codes) {
  auto const ask = [this](uint16_t code) {
    if (labelAt_[code] != SetFamily::none) questioned_.push_back(labelAt_[code]);
  };
  for (uint16_t code : was.codes)
    if (!std::ranges::binary_search(codes, code)) ask(code);
  for (Cube c : cubes_[set]) scratch_.insert(c);
  for (uint16_t code : codes)
    if (!scratch_.meets(cubeOf(code))) ask(code);
  for (Cube c : cubes_[set]) scratch_.erase(c);
}

void Keeper::findCubes() {
  Codes codes;
  for (uint32_t s = 0; s < distinct_.sets.size(); ++s) {
    codes.clear();
    for (uint32_t l : distinct_.sets[s])
      if (isPlaced(l)) codes.push_back(static_cast<uint16_t>(codes_[l]));
    std::ranges::sort(codes);
    if (codes.empty()) continue;
    auto const at = std::ranges::lower_bound(kept_.sets, codes, {}, &KeptSets::Set::codes);
    if (at != kept_.sets.end() && at->codes == codes) {
      cubesAre(s, at->cubes);
    } else if (codes.size() == 1) {
      cubesAre(s, {cubeOf(codes[0])});
    } else if (auto const alike = mostAlike(codes)) {
      cubesAre(s, kept_.sets[*alike].cubes);
      question(s, kept_.sets[*alike], codes);
    }
  }
  std::ranges::sort(questioned_);
  questioned_.erase(std::unique(questioned_.begin(), questioned_.end()), questioned_.end());
}

bool Keeper::isExhausted() const {
  return steps_ + cover_.steps() > placingSteps + placingStepsPerMember * setsOf_.members();
}

bool Keeper::run(uint64_t repairRows) {
  findCubes();
  std::vector<uint32_t> fresh;
  for (uint32_t l = 0; l < labels(); ++l)
    if (!isPlaced(l)) fresh.push_back(l);
  if (2 * (fresh.size() + questioned_.size()) > labels()) return false;
  for (uint32_t l : questioned_) unplace(l);
  if (!giveHomes()) return false;
  for (uint32_t l : questioned_)
    if (!place(l)) return false;
  for (uint32_t l : fresh)
    if (!place(l)) return false;
  for (uint32_t s = 0; s < cubes_.size(); ++s)
    if (cubes_[s].empty()) cubesAre(s, CubeList(cover_.cover(used_, placesOf(s), true)));
  improve(repairRows);
  return true;
}

Code Keeper::take(SetFamily const& sets) {
  Code code;
  for (uint32_t c : codes_) code.codes.push_back(static_cast<uint16_t>(c));
  code.cubes.reserve(sets.size());
  for (uint32_t s = 0; s < sets.size(); ++s) code.cubes.push_back(cubes_[distinct_.of[s]]);
  return code;
}

std::optional<Code> keptCode(SetFamily const& sets, std::vector<uint64_t> const& weights,
                             LabelsInForce const& inForce, KeptSets const& kept, unsigned bits,
                             uint64_t repairRows) {
  Keeper keeper(sets, weights, inForce, kept, bits);
  if (!keeper.run(repairRows)) return std::nullopt;
  return keeper.take(sets);
}

}  // namespace Naxel::Compact
