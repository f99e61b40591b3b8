#pragma once

/// A label code that stays: codes for sets that have changed a little since others were encoded, such that
/// little of what stands in the tables has to be written anew.
///
/// Idea. A label that was there keeps its code, and a set keeps its cubes as long as they match its labels and no
/// other label in use. A new label takes a free code inside the cubes of its sets and outside all others: blocks are
/// filled up to powers of two, so there mostly is one, and then nothing else is written. Where there is none, the code
/// is taken for which the fewest rows change: an own set's cube grows or it gets one more, a foreign set that
/// matches the code is covered anew. A label that has left a set or joined one is asked the same question, with its
/// present code as one of the answers. A set that is new gets a block for its new labels.
///
/// Codes that labels leave go to no other label here: while the tables before are still in force, such a code would mean
/// two things.
///
/// A set is known by its labels, not by any name: it is the one before that consisted of the same labels, less those that
/// are gone; else the one that has the most in common with it.
///
/// Cubes become more with time. Therefore some sets are improved each time, the costliest first, as long as
/// what they take is above what they took, for a use, when all was last encoded afresh, and as long as no more rows
/// are written for that than allowed. What does not help takes time, too: a set that resists is left alone while it
/// stands as it is, but for a few of them that have their turn each time, since others may have made room.
///
/// Example, width 3: {1 2 3} is 0xx and {1 2} is 00x, with the codes 000, 001 and 010. A label 4 that is in the
/// first set only gets 011, and nothing else changes. A label 5 in both finds no free code in 00x; 00x cannot grow
/// over 3 or 4; so it gets a code outside, 100, and one more cube in each set.
///
/// Invariants. Those of compactCode(). The result depends on the arguments alone; where labels and sets are those that
/// were kept, it is what stands.
///
/// Cost. A few passes over the members of all sets; for each label that is new or in question some hundred looks
/// at codes, and for each that is placed a pass over the sets.

#include "mox/Export.h"
#include "naxel/encoder/compact/Cube.h"
#include "naxel/encoder/compact/DistinctSets.h"

#include <optional>
#include <span>
#include <vector>

namespace Naxel::Compact {

/// How the sets of a field are encoded in an output, each once.
struct KeptSets {
  /// The codes of a set's labels, in no order that means anything.
  std::span<uint16_t const> codes(size_t set) const {
    return {codes_.data() + from(set).codes, codes_.data() + ends_[set].codes};
  }
  std::span<Cube const> cubes(size_t set) const {
    return {cubes_.data() + from(set).cubes, cubes_.data() + ends_[set].cubes};
  }
  /// Where the set belongs in a table by its codes: the sum of theirs, each mixed under the secret of the process.
  uint64_t place(size_t set) const { return ends_[set].place; }
  size_t size() const { return ends_.size(); }
  void reserve(size_t sets) { ends_.reserve(sets); }
  void addCode(uint16_t code) { codes_.push_back(code); }
  void addCube(Cube cube) { cubes_.push_back(cube); }
  /// Ends the set of the codes and cubes since the last end. It is left out if it has one label and matches its code
  /// alone, as sets of one label mostly do. `resists` says whether nothing made it cheaper.
  void end(bool resists);
  bool resists(size_t set) const { return resists_[set]; }

  /// What all sets of the field take: cubes, each as often as rules use its set, and uses of sets.
  struct Price {
    uint64_t cubes = 0;
    uint64_t uses = 0;
  };
  Price now;
  Price fresh;  ///< when they were last encoded afresh

  /// How many cubes are above what they would be as of the last encoding afresh.
  uint64_t excess() const {
    if (!fresh.uses) return 0;
    // In parts, of which no product leaves a word: uses are as many as rules, and a set has 2^16 cubes at most.
    uint64_t const least =
        fresh.cubes / fresh.uses * now.uses + fresh.cubes % fresh.uses * now.uses / fresh.uses;
    return now.cubes > least ? now.cubes - least : 0;
  }

  /// How many sets that resist have been tried again: those behind them in the order of costs are next.
  uint32_t triedAgain = 0;

 private:
  struct Ends {
    uint32_t codes = 0;
    uint32_t cubes = 0;
    uint64_t place = 0;
  };
  Ends from(size_t set) const { return set ? ends_[set - 1] : Ends(); }

  std::vector<uint16_t> codes_;
  std::vector<Cube> cubes_;
  std::vector<Ends> ends_;
  std::vector<bool> resists_;
};

/// What stands in a table, by the labels of now.
struct LabelsInForce {
  std::vector<uint32_t> codes;    ///< of each label; SetFamily::none of new ones
  std::vector<uint32_t> rows;     ///< of the table, of each label
  std::vector<uint16_t> vacated;  ///< codes in force that are no label's any more
};

/// A code that was kept.
struct KeptCode {
  std::vector<uint16_t> codes;  ///< of each label
  std::vector<CubeList> cubes;  ///< of each distinct set
  std::vector<bool> resists;    ///< of each distinct set
  uint32_t triedAgain = 0;      ///< see KeptSets
};

/// `sets` are all sets, those of one label as well; `repairRows` is how many entries of rules may be written to improve
/// what stands; the rest as of compactCode(). None where room is exhausted, or where so little stays that encoding
/// afresh is better.
NAXEL_EXPORT std::optional<KeptCode> keptCode(DistinctSets const& sets,
                                              LabelsInForce const& inForce, KeptSets const& kept,
                                              unsigned bits, uint64_t repairRows);

}  // namespace Naxel::Compact
