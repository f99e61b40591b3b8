#pragma once

/// Generic sets: the prefix sets, range sets and combination sets that rules refer to by key, the
/// groups of keys that name disjoint pieces, and the counts of use. A set's key and type are fixed;
/// its members are filled right after creation and frozen once the set has been published: changed
/// input makes a new set with a new key.

#include "lumox/IpGenPrefix.h"
#include "mox/FlatSet.h"
#include "mox/HashMap.h"
#include "mox/Stamp.h"
#include "naxel/genset/GenSetTypes.h"
#include "naxel/types/IpPrefixList.h"

#include <cstdint>
#include <string>

namespace Naxel {

/// Source of set keys, one per chip: 1, 2, 3, ... over all kinds of sets.
class NAXEL_EXPORT GenSetKeyGenerator : public Mox::Entity {
 public:
  std::string_view fwkType() const override { return "Naxel::GenSetKeyGenerator"; }
  Mox::AttributeTable const& attributeTable() const override;

  uint64_t genKey() const { return genKey_; }
  void genKeyIs(uint64_t v) { genKey_ = v; }
  /// Adds `n` and returns the new value.
  uint64_t genKeyInc(uint64_t n) { return genKey_ += n; }
  /// The key of a new set.
  GenSetKey newKey() { return GenSetKey(genKeyInc(1)); }

 private:
  uint64_t genKey_ = 0;
};

/// Base of all sets.
class NAXEL_EXPORT GenSet : public Dedupable {
 public:
  explicit GenSet(GenSetKey key) : key_(key) {}
  std::string_view fwkType() const override { return "Naxel::GenSet"; }
  Mox::AttributeTable const& attributeTable() const override;
  GenSetKey key() const { return key_; }

 private:
  GenSetKey key_;
};

/// A set of addresses: those in `prefix` and not in `exceptPrefix`. Whoever fills it clears the host bits;
/// prefixes that differ in them alone are different members.
/// Prefix sets do not compare by content; they are shared through the list that they stand for.
class NAXEL_EXPORT PrefixSet : public GenSet {
 public:
  using PrefixColl = Mox::FlatSet<Lumox::IpGenPrefix>;
  using GenSet::GenSet;
  std::string_view fwkType() const override { return "Naxel::PrefixSet"; }
  Mox::AttributeTable const& attributeTable() const override;

  PrefixColl const& prefix() const { return prefix_; }
  bool prefixHas(Lumox::IpGenPrefix const& p) const { return prefix_.contains(p); }
  void prefixIs(Lumox::IpGenPrefix const& p) { prefix_.insert(p); }
  /// Takes over all prefixes at once, in any order.
  void prefixIs(std::vector<Lumox::IpGenPrefix> all) { prefix_.adopt(std::move(all)); }
  void prefixDel(Lumox::IpGenPrefix const& p) { prefix_.erase(p); }
  void prefixDelAll() { prefix_.clear(); }

  PrefixColl const& exceptPrefix() const { return exceptPrefix_; }
  bool exceptPrefixHas(Lumox::IpGenPrefix const& p) const { return exceptPrefix_.contains(p); }
  void exceptPrefixIs(Lumox::IpGenPrefix const& p) { exceptPrefix_.insert(p); }
  void exceptPrefixIs(std::vector<Lumox::IpGenPrefix> all) { exceptPrefix_.adopt(std::move(all)); }
  void exceptPrefixDel(Lumox::IpGenPrefix const& p) { exceptPrefix_.erase(p); }
  void exceptPrefixDelAll() { exceptPrefix_.clear(); }

  /// The list that the set was built from, as it was then; null where it was not built from one.
  Mox::Ptr<IpPrefixList const> const& prefixList() const { return prefixList_; }
  void prefixListIs(Mox::Ptr<IpPrefixList const> v) { prefixList_ = std::move(v); }

  /// For trace lines: the key and at most two members of each collection.
  std::string stringValue() const;

 private:
  PrefixColl prefix_;
  PrefixColl exceptPrefix_;
  Mox::Ptr<IpPrefixList const> prefixList_;
};

/// A set of values of one packet field.
class NAXEL_EXPORT RangeSet : public GenSet {
 public:
  using RangeColl = Mox::FlatSet<RangeSetElem>;
  RangeSet(GenSetKey key, RangeSetType type) : GenSet(key), type_(type) {}
  std::string_view fwkType() const override { return "Naxel::RangeSet"; }
  Mox::AttributeTable const& attributeTable() const override;

  RangeSetType type() const { return type_; }
  RangeColl const& range() const { return range_; }
  void rangeIs(RangeSetElem const& e) { range_.insert(e); }
  /// Takes over all elements at once.
  void rangeIs(RangeColl all) { range_ = std::move(all); }
  void rangeDel(RangeSetElem const& e) { range_.erase(e); }
  void rangeDelAll() { range_.clear(); }

  uint32_t hash() const override;
  uint64_t place() const override { return place(range_); }
  /// Place of a set with these elements.
  static uint64_t place(RangeColl const& ranges);
  bool isEqual(Mox::Ptr<Dedupable const> const& other) const override;
  std::string stringValue() const;

 private:
  RangeSetType type_;
  RangeColl range_;
};

/// A set of source/destination label combinations.
class NAXEL_EXPORT ComboLabelSet : public GenSet {
 public:
  ComboLabelSet(GenSetKey key, ComboLabelSetType type) : GenSet(key), type_(type) {}
  std::string_view fwkType() const override { return "Naxel::ComboLabelSet"; }
  Mox::AttributeTable const& attributeTable() const override;

  ComboLabelSetType type() const { return type_; }
  Mox::FlatSet<GenCombo> const& comboLabel() const { return comboLabel_; }
  void comboLabelIs(GenCombo const& c) { comboLabel_.insert(c); }
  /// Takes over all combinations at once, in any order.
  void comboLabelIs(std::vector<GenCombo> all) { comboLabel_.adopt(std::move(all)); }
  void comboLabelDel(GenCombo const& c) { comboLabel_.erase(c); }
  void comboLabelDelAll() { comboLabel_.clear(); }

  uint32_t hash() const override;
  uint64_t place() const override;
  bool isEqual(Mox::Ptr<Dedupable const> const& other) const override;
  std::string stringValue() const;

 private:
  ComboLabelSetType type_;
  Mox::FlatSet<GenCombo> comboLabel_;
};

/// The sets that one disjoint piece belongs to.
class NAXEL_EXPORT GenSetKeyGroup : public Dedupable {
 public:
  using KeyColl = Mox::FlatSet<GenSetKey>;
  std::string_view fwkType() const override { return "Naxel::GenSetKeyGroup"; }
  Mox::AttributeTable const& attributeTable() const override;

  KeyColl const& keyGroup() const { return keyGroup_; }
  size_t keyGroups() const { return keyGroup_.size(); }
  void keyGroupIs(GenSetKey key) { keyGroup_.insert(key); }
  /// Takes over all keys at once, in any order.
  void keyGroupIs(std::vector<GenSetKey> all) { keyGroup_.adopt(std::move(all)); }
  void keyGroupDel(GenSetKey key) { keyGroup_.erase(key); }
  void keyGroupDelAll() { keyGroup_.clear(); }
  /// Unites this group with another one, or takes the other one's keys out of it. O(keys of both).
  void addToKeyGroup(GenSetKeyGroup const& other);
  void removeFromKeyGroup(GenSetKeyGroup const& other);

  uint32_t hash() const override;
  uint64_t place() const override;
  bool isEqual(Mox::Ptr<Dedupable const> const& other) const override;

 private:
  KeyColl keyGroup_;
};
NAXEL_EXPORT Mox::Ptr<GenSetKeyGroup> genSetKeyGroupFactory();

/// A key group together with the elementary ranges that share it. Ranges take no part in equality.
class NAXEL_EXPORT RangeSetKeyGroup : public GenSetKeyGroup {
 public:
  std::string_view fwkType() const override { return "Naxel::RangeSetKeyGroup"; }
  Mox::AttributeTable const& attributeTable() const override;

  Mox::FlatSet<RangeSetElem> const& rangeElem() const { return rangeElem_; }
  void rangeElemIs(RangeSetElem const& e) { rangeElem_.insert(e); }
  void rangeElemDel(RangeSetElem const& e) { rangeElem_.erase(e); }
  void rangeElemDelAll() { rangeElem_.clear(); }

 private:
  Mox::FlatSet<RangeSetElem> rangeElem_;
};

/// How many rule fields refer to a set. Arithmetic is plain 32-bit, without bound checks.
class NAXEL_EXPORT GenSetRefCount : public Mox::Entity {
 public:
  explicit GenSetRefCount(GenSetKey key) : key_(key) {}
  std::string_view fwkType() const override { return "Naxel::GenSetRefCount"; }
  Mox::AttributeTable const& attributeTable() const override;

  GenSetKey key() const { return key_; }
  uint32_t value() const { return value_; }
  void valueIs(uint32_t v) { value_ = v; }
  void valueInc(uint32_t n) { value_ += n; }
  void valueDec(uint32_t n) { value_ -= n; }
  uint32_t hash() const;

 private:
  GenSetKey key_;
  uint32_t value_ = 0;
};

/// The counts of use of the sets of a chip: numbers in one table, shown as entities to those who ask.
class NAXEL_EXPORT GenSetUsageInfo : public Mox::Entity {
 public:
  std::string_view fwkType() const override { return "Naxel::GenSetUsageInfo"; }
  Mox::AttributeTable const& attributeTable() const override;

  /// The counts as they are now, put together for the caller.
  Mox::HashMap<GenSetKey, Mox::Ptr<GenSetRefCount>> refCount() const;
  /// The count of that key as it is now, or null; made for the caller.
  Mox::Ptr<GenSetRefCount> refCount(GenSetKey key) const;
  bool refCountHas(GenSetKey key) const { return counts_.contains(key); }
  /// Count of use of a set; 0 if it has none.
  uint32_t refCountValue(GenSetKey key) const {
    uint32_t const* count = counts_.get(key);
    return count ? *count : 0;
  }

  /// A count in the table, for a write at once.
  class Count {
   public:
    explicit Count(uint32_t& value) : value_(value) {}
    uint32_t value() const { return value_; }
    void valueIs(uint32_t v) { value_ = v; }
    void valueInc(uint32_t n) { value_ += n; }
    void valueDec(uint32_t n) { value_ -= n; }

   private:
    uint32_t& value_;
  };
  /// The count of that key, made with value 0 if absent. Write it before stamp() is asked for and before the
  /// next one is made.
  Count refCountIs(GenSetKey key) {
    // Whoever takes the count may write it, so the stamp is given up here already.
    stamp_.renew();
    return Count(counts_.at(key));
  }
  void refCountDel(GenSetKey key) {
    stamp_.renew();
    counts_.erase(key);
  }
  void refCountDelAll() {
    stamp_.renew();
    counts_.clear();
  }
  /// Stamp of the counts.
  Mox::Stamp stamp() const { return stamp_.get(); }
  /// Makes room for the counts that are to come.
  void reserve(size_t counts) { counts_.reserve(counts); }

 private:
  Mox::HashMap<GenSetKey, uint32_t> counts_;
  Mox::ContentStamp stamp_;
};

}  // namespace Naxel
