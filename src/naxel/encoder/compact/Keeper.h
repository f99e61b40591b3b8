#pragma once

/// The work on a code that stays; KeptCode.h says what for. What stood is found for the sets of now in
/// KeptCode.cpp, labels get their codes in KeeperPlaces.cpp, and KeeperImprovement.cpp makes dear sets cheaper.

#include "naxel/encoder/compact/CodeTable.h"
#include "naxel/encoder/compact/CubeCover.h"
#include "naxel/encoder/compact/KeptCode.h"

#include <algorithm>
#include <array>
#include <utility>

namespace Naxel::Compact {

class Keeper {
 public:
  Keeper(DistinctSets const& sets, LabelsInForce const& inForce, KeptSets const& kept,
         unsigned bits);
  bool run(uint64_t repairRows);
  KeptCode take();

 private:
  /// The cubes that a set had before.
  struct Undo {
    uint32_t set;
    CubeList cubes;
  };

  static constexpr uint32_t largestSets = 64;

  uint32_t labels() const { return static_cast<uint32_t>(codes_.size()); }
  bool isPlaced(uint32_t label) const { return codes_[label] != SetFamily::none; }
  static Cube cubeOf(uint32_t code) { return {static_cast<uint16_t>(code), 0}; }
  bool has(uint32_t set, uint32_t label) const {
    return set < largestSets ? inLargest_[label] >> set & 1
                             : std::ranges::binary_search(setsOf_[label], set);
  }
  bool matches(uint32_t set, uint32_t code) const {
    return std::ranges::any_of(cubes_[set], [&](Cube c) { return c.contains(cubeOf(code)); });
  }
  std::vector<Cube> placesOf(uint32_t set) const;
  void findCubes();
  uint32_t sameAs(uint32_t set, uint64_t place, size_t placed) const;
  void linkCodesOf(std::vector<uint32_t> const& sets);
  std::optional<size_t> mostAlike(uint32_t set);
  void question(uint32_t set, size_t was);
  bool giveHomes();
  bool isExhausted() const;
  std::optional<Cube> freeBlock(uint32_t set, unsigned size);
  std::optional<Cube> freeBlock(unsigned size);
  bool isFree(Cube block, uint64_t matched) const;
  uint64_t ownMatches(uint32_t label, uint32_t code) const;
  void collectCodes(uint32_t label);
  std::optional<Cube> grown(uint32_t set, uint32_t code, size_t& which) const;
  bool holdsOnlyOwn(uint32_t set, Cube cube) const;
  uint64_t priceAt(uint32_t label, uint32_t code, uint64_t enough) const;
  bool place(uint32_t label);
  void put(uint32_t label, uint32_t code);
  void isAt(uint32_t label, uint32_t code);
  void unplace(uint32_t label);
  void extend(uint32_t set, uint32_t code, CubeList& cubes);
  void cutOut(uint32_t set, uint32_t code);
  void cubesAre(uint32_t set, CubeList cubes);
  void improve(uint64_t rows);
  std::vector<uint32_t> labelsOfSmallest(uint32_t set) const;
  bool moveOut(uint32_t set, uint32_t label);
  std::pair<int64_t, uint64_t> gainOf(std::vector<Undo> const& log) const;
  bool improveSet(uint32_t set, uint64_t& rows);
  uint64_t rowsBetween(uint32_t set, CubeList const& a, CubeList const& b) const;

  DistinctSets const& distinct_;
  SetFamily setsOf_;
  std::vector<uint64_t>
      inLargest_;  // of each label a bit for each of the first sets, which are asked for most
  LabelsInForce const& inForce_;
  KeptSets const& kept_;
  unsigned bits_;
  CubeCover cover_;
  CodeMap used_;
  CodeMap taken_;  // used, or in force, or reserved
  std::vector<uint32_t> codes_;
  CodeTable<uint32_t> labelAt_;
  CodeTable<uint64_t> matched_;  // for each code the weight of the sets that match it
  std::vector<CubeList> cubes_;
  std::vector<Cube> hulls_;
  CodeMap scratch_;  // empty between uses
  std::vector<uint32_t> questioned_;
  std::vector<uint32_t> candidates_;
  std::array<uint32_t, 17> freeFrom_{};  // below it no block of the size is free
  // The sets before in a table by their places, and behind each the next at the same place.
  std::vector<uint32_t> keptFirst_;
  std::vector<uint32_t> keptNext_;
  std::vector<uint32_t> seenIn_;  // of each label the set at hand, if it is in there
  // The sets before that have a code that is asked for: the first link of each code, and behind each the next.
  struct Link {
    uint32_t set;
    uint32_t next;
  };
  CodeTable<uint32_t> linkFrom_;
  std::vector<Link> links_;
  uint64_t votes_ = 0;
  bool changes_ = false;  // labels or sets are not those before
  std::vector<bool>
      resists_;  // of each set: nothing has made it cheaper, and its cubes are what they were
  uint32_t triedAgain_;
  mutable uint64_t steps_ = 0;
  bool priceOnly_ = false;  // rows do not count
  std::vector<Undo>* log_ = nullptr;
};

}  // namespace Naxel::Compact
