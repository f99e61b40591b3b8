#pragma once

/// One bank of the chip's tables: an output together with the structures that make lookups quick.
///
/// Prefix and range tables become sorted cuts of their number line with one label between two cuts,
/// so the longest prefix or the range is a binary search; where prefixes nest, the cuts carry the
/// label of the innermost. Combination tables are sorted pairs. The entries of an ACL stand in a
/// FirstMatchIndex whose dimensions are the bytes of the match key that any entry constrains: a
/// mask splits at byte borders, so the index decides exactly. Entries of small ACLs are compared
/// one by one.

#include "naxel/loader/PDData.h"
#include "verify/FirstMatchIndex.h"
#include "verify/MatchKey.h"
#include "verify/Packet.h"

#include <array>
#include <map>
#include <optional>
#include <vector>

namespace SoftChip {

using Verify::Address;
using Verify::Field;
using Verify::fieldCount;
using Verify::FirstMatchIndex;
using Verify::KeyLayout;
using Verify::Labels;
using Verify::Packet;
using Verify::Verdict;

/// Labels of the pieces of a number line. Each cut starts a piece that goes on to the next one.
template <class Key>
class Cuts {
 public:
  /// From `at` on the label holds; `at` is not before the last cut, which it replaces if it is
  /// equal.
  void cut(Key at, std::optional<uint16_t> label) {
    if (!start_.empty() && start_.back() == at)
      label_.back() = label;
    else {
      start_.push_back(at);
      label_.push_back(label);
    }
  }
  std::optional<uint16_t> label(Key at) const {
    size_t low = 0;
    for (size_t n = start_.size(); n > 0;) {  // the number of cuts not behind `at`
      size_t const half = n / 2;
      if (start_[low + half] <= at) {
        low += half + 1;
        n -= half + 1;
      } else {
        n = half;
      }
    }
    return low == 0 ? std::nullopt : label_[low - 1];
  }

 private:
  std::vector<Key> start_;
  std::vector<std::optional<uint16_t>> label_;
};

class LoadedTables {
 public:
  /// `data` must not be null; it is kept, and must be one that is not written any more, as every output is
  /// that PDConfig has seen.
  LoadedTables(Mox::Ptr<Naxel::PDData const> data, KeyLayout const& layout);

  Mox::Ptr<Naxel::PDData const> const& data() const { return data_; }
  KeyLayout const& layout() const { return layout_; }

  Labels labelsOf(Packet const& packet) const;
  /// The first matching entry of the ACL; counts the hit.
  Verdict lookup(Naxel::PDAclKey const& acl, Packet const& packet);
  /// How often lookups ended in this entry; 0 where there is none.
  uint64_t hits(Naxel::PDAclKey const& acl, Naxel::AceIndex rule, uint32_t entry) const;

 private:
  struct Entry {
    std::array<uint16_t, fieldCount> value;
    std::array<uint16_t, fieldCount> mask;
    bool tcpInit;
    bool tcpEstablished;
    bool never;     // matches no packet at all
    uint32_t rule;  // position in Acl::rule
    bool flagsMatch(Packet const& packet) const;
  };
  struct Rule {
    Naxel::PDAclRule const* rule;
    uint32_t firstEntry;
  };
  /// One dimension of an index: a byte of a field.
  struct KeyByte {
    Field field;
    uint8_t shift;
  };
  struct Acl {
    std::vector<Rule> rule;
    std::vector<Entry> entry;
    std::vector<uint64_t> hits;
    std::vector<KeyByte> keyByte;
    FirstMatchIndex index;  // unused while there are few entries
  };
  using Pairs = std::vector<std::pair<uint32_t, uint16_t>>;  // (source << 16 | destination, label)

  // One word of an index row: with no more entries than that, comparing them one by one is quick enough and
  // takes no memory.
  static constexpr size_t fewEntries = 64;
  static constexpr size_t maxKeyBytes = 2 * fieldCount;

  static Cuts<Address> cutsOf(Naxel::PDPrefixXformEntryColl const& table);
  static Cuts<uint16_t> cutsOf(Naxel::PDRangeXformEntryColl const& table);
  static Pairs pairsOf(Naxel::PDComboEntryColl const& table);
  static Acl aclOf(Naxel::PDAclRuleColl const& rules);
  static void buildIndex(Acl& acl);
  static bool matches(Entry const& entry, Labels const& labels, Packet const& packet);
  static size_t firstEntry(Acl const& acl, Labels const& labels, Packet const& packet);
  void combine(Labels& labels, Field to, Naxel::ComboLabelSetType type, Field src, Field dst) const;

  Mox::Ptr<Naxel::PDData const> data_;
  KeyLayout layout_;
  std::array<Cuts<Address>, 4> prefix_;  // in the order of PrefixXformKey::all()
  std::array<Cuts<uint16_t>, Naxel::rangeFieldCount> range_;
  std::array<Pairs, 3> combo_;
  std::map<Naxel::PDAclKey, Acl> acl_;
};

}  // namespace SoftChip
