/// What stood, found again for the sets of now; and the order of the work.

#include "mox/Assert.h"
#include "mox/KeyedHash.h"
#include "naxel/encoder/compact/Keeper.h"

namespace Naxel::Compact {

namespace {

/// Bound of the work, in looks at words of codes, beyond which all is encoded afresh.
constexpr uint64_t placingSteps = 2'000'000;
constexpr uint64_t placingStepsPerMember = 100;
/// In how many sets that were there the labels of one are looked for, in all.
constexpr uint64_t votesAtMost = 1'000'000;

}  // namespace

void KeptSets::end(bool resists) {
  Ends const begin = from(ends_.size());
  auto const first = codes_.begin() + begin.codes;
  if (codes_.end() - first == 1 && cubes_.size() == begin.cubes + 1 && !cubes_.back().free) {
    codes_.pop_back();
    cubes_.pop_back();
    return;
  }
  uint64_t place = 0;
  for (auto code = first; code != codes_.end(); ++code) place += Mox::KeyedHash::ofWord(*code);
  ends_.push_back(
      {static_cast<uint32_t>(codes_.size()), static_cast<uint32_t>(cubes_.size()), place});
  resists_.push_back(resists);
}

Keeper::Keeper(DistinctSets const& sets, LabelsInForce const& inForce, KeptSets const& kept,
               unsigned bits)
    : distinct_(sets),
      setsOf_(distinct_.sets.transposed(static_cast<uint32_t>(inForce.codes.size()))),
      inLargest_(inForce.codes.size()),
      inForce_(inForce),
      kept_(kept),
      bits_(bits),
      cover_(bits),
      used_(bits),
      taken_(bits),
      codes_(inForce.codes),
      labelAt_(bits, SetFamily::none),
      matched_(bits, 0),
      cubes_(distinct_.sets.size()),
      hulls_(distinct_.sets.size()),
      scratch_(bits),
      keptFirst_(std::bit_ceil(kept.size() + 1), SetFamily::none),
      linkFrom_(bits, SetFamily::none),
      resists_(distinct_.sets.size()),
      triedAgain_(kept.triedAgain) {
  Cube const last = cubeOf((1u << bits) - 1);
  used_.insert(last);
  taken_.insert(last);
  for (uint32_t l = 0; l < labels(); ++l) {
    if (!isPlaced(l)) continue;
    MOX_ASSERT(codes_[l] < last.value && labelAt_[codes_[l]] == SetFamily::none);
    used_.insert(cubeOf(codes_[l]));
    taken_.insert(cubeOf(codes_[l]));
    labelAt_.at(codes_[l]) = l;
  }
  for (uint16_t code : inForce.vacated) taken_.insert(cubeOf(code));
  for (uint32_t s = 0; s < std::min(largestSets, distinct_.sets.size()); ++s)
    for (uint32_t l : distinct_.sets[s]) inLargest_[l] |= uint64_t{1} << s;
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
  auto const add = [this](CubeList const& all, uint64_t by) {
    if (all.size() == 1) return matched_.add(all[0], by);
    // Cubes of a set may overlap, and each of their codes counts once.
    for (Cube c : all) {
      forEachCode(c, 0, [&](uint32_t code) {
        if (!scratch_.has(code)) matched_.at(code) += by;
        return true;
      });
      scratch_.insert(c);
    }
    for (Cube c : all) scratch_.erase(c);
  };
  add(cubes_[set], ~weight + 1);
  add(cubes, weight);
  if (!cubes.empty()) hulls_[set] = cubes[0];
  for (Cube c : cubes) hulls_[set] = hulls_[set].joined(c);
  cubes_[set].swap(cubes);
  resists_[set] = false;
  if (log_) log_->push_back({set, std::move(cubes)});
}

/// Finds the sets before that have a code of one of these sets.
void Keeper::linkCodesOf(std::vector<uint32_t> const& sets) {
  std::vector<uint32_t> asked;
  for (uint32_t s : sets)
    for (uint32_t l : distinct_.sets[s])
      if (isPlaced(l)) asked.push_back(codes_[l]);
  for (uint32_t code : asked) scratch_.insert(cubeOf(code));
  for (uint32_t s = 0; s < kept_.size(); ++s)
    for (uint16_t code : kept_.codes(s)) {
      if (!scratch_.has(code)) continue;
      uint32_t& from = linkFrom_.at(code);
      links_.push_back({s, from});
      from = static_cast<uint32_t>(links_.size() - 1);
    }
  for (uint32_t code : asked) scratch_.erase(cubeOf(code));
}

/// Of the sets before the one that has the most codes in common, if those are more than it takes to tell them apart.
std::optional<size_t> Keeper::mostAlike(uint32_t set) {
  std::vector<uint32_t> votes;
  int64_t placed = 0;
  for (uint32_t l : distinct_.sets[set]) {
    if (!isPlaced(l)) continue;
    ++placed;
    for (uint32_t at = linkFrom_[codes_[l]]; at != SetFamily::none; at = links_[at].next) {
      // All that are asked count, also where nothing comes of it.
      if (++votes_ > votesAtMost) return std::nullopt;
      votes.push_back(links_[at].set);
    }
  }
  std::ranges::sort(votes);
  std::optional<size_t> best;
  int64_t most = 0;
  for (size_t i = 0; i < votes.size();) {
    size_t const from = i;
    while (i < votes.size() && votes[i] == votes[from]) ++i;
    auto const common = static_cast<int64_t>(i - from);
    auto const size = static_cast<int64_t>(kept_.codes(votes[from]).size());
    int64_t const score = 3 * common - size - placed;
    if (score <= most) continue;
    most = score;
    best = votes[from];
  }
  return best;
}

/// Labels that have left the set or joined it.
void Keeper::question(uint32_t set, size_t was) {
  for (uint16_t code : kept_.codes(was))
    if (uint32_t const l = labelAt_[code]; l != SetFamily::none && !has(set, l))
      questioned_.push_back(l);
  for (uint32_t l : distinct_.sets[set])
    if (isPlaced(l) && !matches(set, codes_[l])) questioned_.push_back(l);
}

/// The set before that had the codes of this one's labels, of which so many are placed; `place` is that of their codes.
uint32_t Keeper::sameAs(uint32_t set, uint64_t place, size_t placed) const {
  uint32_t at = keptFirst_[place & (keptFirst_.size() - 1)];
  for (; at != SetFamily::none; at = keptNext_[at]) {
    auto const codes = kept_.codes(at);
    if (kept_.place(at) != place || codes.size() != placed) continue;
    // As many, and each is one of a label in here: equal places are no proof.
    if (std::ranges::all_of(codes, [&](uint16_t code) {
          uint32_t const l = labelAt_[code];
          return l != SetFamily::none && seenIn_[l] == set;
        }))
      break;
  }
  return at;
}

void Keeper::findCubes() {
  keptNext_.reserve(kept_.size());
  for (uint32_t s = 0; s < kept_.size(); ++s)
    keptNext_.push_back(std::exchange(keptFirst_[kept_.place(s) & (keptFirst_.size() - 1)], s));
  seenIn_.assign(labels(), SetFamily::none);
  size_t found = 0;
  std::vector<uint32_t> others;
  for (uint32_t s = 0; s < distinct_.sets.size(); ++s) {
    uint64_t place = 0;
    uint32_t last = SetFamily::none;
    size_t placed = 0;
    for (uint32_t l : distinct_.sets[s]) {
      if (!isPlaced(l)) continue;
      seenIn_[l] = s;
      last = codes_[l];
      place += Mox::KeyedHash::ofWord(last);
      ++placed;
    }
    if (placed == 0) continue;
    if (uint32_t const at = sameAs(s, place, placed); at != SetFamily::none) {
      cubesAre(s, CubeList(kept_.cubes(at)));
      resists_[s] = kept_.resists(at);
      ++found;
    } else if (placed == 1) {
      cubesAre(s, {cubeOf(last)});
    } else {
      others.push_back(s);
    }
  }
  changes_ = found != kept_.size() || !others.empty() || !inForce_.vacated.empty();
  if (others.empty()) return;
  linkCodesOf(others);
  for (uint32_t s : others)
    if (auto const alike = mostAlike(s)) {
      cubesAre(s, CubeList(kept_.cubes(*alike)));
      question(s, *alike);
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
  if (changes_ || !fresh.empty()) improve(repairRows);
  return true;
}

KeptCode Keeper::take() {
  KeptCode out;
  out.codes.assign(codes_.begin(), codes_.end());
  out.cubes = std::move(cubes_);
  out.resists = std::move(resists_);
  out.triedAgain = triedAgain_;
  return out;
}

std::optional<KeptCode> keptCode(DistinctSets const& sets, LabelsInForce const& inForce,
                                 KeptSets const& kept, unsigned bits, uint64_t repairRows) {
  Keeper keeper(sets, inForce, kept, bits);
  if (!keeper.run(repairRows)) return std::nullopt;
  return keeper.take();
}

}  // namespace Naxel::Compact
