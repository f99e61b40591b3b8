#pragma once

/// What the entries of an output match as functions of all bits of a packet, by what the contract of
/// PDConfig.h says about lookups.

#include "naxel/loader/PDData.h"
#include "verify/Bdd.h"
#include "verify/ExactBits.h"
#include "verify/MatchKey.h"

#include <array>
#include <map>
#include <memory>
#include <span>
#include <unordered_map>
#include <vector>

namespace Verify::Exact {

/// Ascending.
using LabelSet = std::vector<uint16_t>;

/// Items by the label that they have.
template <class Item>
class ByLabel {
 public:
  void add(uint16_t label, Item item) { all_[label].push_back(std::move(item)); }

  /// Null for a label that nothing has.
  std::vector<Item> const* of(uint16_t label) const {
    auto const at = all_.find(label);
    return at == all_.end() ? nullptr : &at->second;
  }
  /// The labels that occur and agree with `value` in the bits of `mask`.
  LabelSet matching(uint16_t value, uint16_t mask) const {
    LabelSet out;
    value &= mask;
    // No label below `value` agrees, nor one above that with ones in all other bits.
    auto const end = all_.upper_bound(static_cast<uint16_t>(value | ~mask));
    for (auto at = all_.lower_bound(value); at != end; ++at)
      if ((at->first & mask) == value) out.push_back(at->first);
    return out;
  }

 private:
  std::map<uint16_t, std::vector<Item>> all_;
};

/// All values of a field, cut where the label changes. Values are written from the left, as addresses
/// are.
class Partition {
 public:
  /// The longest prefix counts.
  Partition(Bits bits, Naxel::PDPrefixXformEntryColl const& table, Lumox::AddressFamily af);
  Partition(Bits bits, Naxel::PDRangeXformEntryColl const& table);

  /// The labels that occur in the table and that a pair matches.
  LabelSet matching(uint16_t value, uint16_t mask) const { return piece_.matching(value, mask); }
  bool hasMisses() const { return !miss_.empty(); }
  /// The values that have one of the labels, and those without label if `misses` is true.
  Bdd of(LabelSet const& labels, bool misses) const;

 private:
  Bdd tree(int depth, Address block, std::span<Interval const> all) const;

  Bits bits_;
  ByLabel<Interval> piece_;
  std::vector<Interval> miss_;
};

class EntryFunctions {
 public:
  /// For packets of one family. `layout` says what a miss yields.
  EntryFunctions(Naxel::PDData const& data, KeyLayout const& layout, Lumox::AddressFamily af)
      : data_(data), layout_(layout), af_(af) {}

  /// What at least one entry of the rule matches.
  Bdd matched(Naxel::PDAclRule const& rule);
  /// Something that was asked for depends on what a miss yields.
  bool missMatters() const { return missMatters_; }

 private:
  struct LabelPair {
    uint16_t source;
    uint16_t destination;
  };
  Bdd const& matched(Field field, Naxel::EncodedLabelWithMask const& match);
  Bdd made(Field field, uint16_t value, uint16_t mask);
  Bdd labelled(Field field, LabelSet const& labels, bool highest);
  Bdd combined(Field field, uint16_t value, uint16_t mask);
  Bdd paired(Field field, LabelSet const& labels);
  Bdd const& flagsMatched(Naxel::PDAclFilter const& entry);
  Partition const& partition(Field field);
  ByLabel<LabelPair> const& pairs(Field field);
  uint16_t highestLabel(Field field) const;

  Naxel::PDData const& data_;
  KeyLayout layout_;
  Lumox::AddressFamily af_;
  bool missMatters_ = false;
  std::array<std::unique_ptr<Partition>, fieldCount> partition_;
  std::array<std::unique_ptr<ByLabel<LabelPair>>, fieldCount> pairs_;
  std::unordered_map<uint64_t, Bdd> matched_;  // by field, value and mask
  std::map<std::pair<bool, bool>, Bdd> flags_;
};

}  // namespace Verify::Exact
