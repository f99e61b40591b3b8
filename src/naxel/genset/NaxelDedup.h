#pragma once

/// Deduplication: finding and sharing objects of equal content.
///
/// Deduper maps an object to an existing equal one by content hash. DedupMarkAndSweeper keeps sets
/// alive across kicks: unmarkAll() at the start of a build, addDeduped() for every use, and
/// sweepUnmarked() at the end deletes the sets that nothing used. GenSetKeyGroupDeduper numbers
/// distinct key groups with plain labels.
///
/// Two ways of sharing. Prefix sets are found before they are built, through a record that stands
/// for the list's content: addDeduped() answers 0 for content that has no set yet. Range and
/// combination sets are built first; where addDeduped() answers another key than the new set's, an
/// equal set exists, the new one is deleted and its key is spent.

#include "mox/HashMap.h"
#include "mox/OrderedMap.h"
#include "naxel/genset/GenSet.h"
#include "naxel/types/IpPrefixList.h"
#include "obel/ChipId.h"

namespace Naxel {

/// Objects of one hash.
class NAXEL_EXPORT DedupableList : public Mox::Entity {
 public:
  explicit DedupableList(uint32_t hashValue) : hashValue_(hashValue) {}
  std::string_view fwkType() const override { return "Naxel::DedupableList"; }
  Mox::AttributeTable const& attributeTable() const override;

  uint32_t hashValue() const { return hashValue_; }
  /// The objects, in the order in which they came.
  std::vector<Mox::Ptr<Dedupable>> const& dedupedObj() const { return dedupedObj_; }
  void dedupedObjIs(Mox::Ptr<Dedupable> obj) { dedupedObj_.push_back(std::move(obj)); }

 private:
  uint32_t hashValue_;
  std::vector<Mox::Ptr<Dedupable>> dedupedObj_;
};

/// Index of objects by content.
class NAXEL_EXPORT Deduper : public Mox::Entity {
 public:
  std::string_view fwkType() const override { return "Naxel::Deduper"; }
  Mox::AttributeTable const& attributeTable() const override;

  /// The object of the index that is equal to `obj`; `obj` itself, then added, if there is none.
  Mox::Ptr<Dedupable> addObj(Mox::Ptr<Dedupable> const& obj);
  /// Empties the index.
  virtual void clear() { dedupedHash_.clear(); }
  Mox::HashMap<uint32_t, Mox::Ptr<DedupableList>> const& dedupedHash() const {
    return dedupedHash_;
  }

 private:
  Mox::HashMap<uint32_t, Mox::Ptr<DedupableList>> dedupedHash_;
};

/// Keeps objects while they are in use. Between kicks the index is empty and only `deduped` holds
/// the objects.
class NAXEL_EXPORT DedupMarkAndSweeper : public Deduper {
 public:
  std::string_view fwkType() const override { return "Naxel::DedupMarkAndSweeper"; }
  Mox::AttributeTable const& attributeTable() const override;

  /// Marks the object that stands for `obj` as in use and returns the key of its set; 0 when it has
  /// no set yet.
  GenSetKey addDeduped(Mox::Ptr<Dedupable> const& obj);
  /// Takes every mark away and indexes the objects again.
  void unmarkAll();
  /// Deletes the objects without a mark together with their sets and empties the index.
  void sweepUnmarked();
  /// Deletes the set of that key from the collection that owns it.
  virtual void doCleanupSweptEntry(GenSetKey) {}
  /// Key of the set that an object stands for.
  virtual GenSetKey getGenSetKey(Dedupable const& obj) const;

  /// The objects with their marks.
  Mox::HashMap<Mox::Ptr<Dedupable>, bool> const& deduped() const { return deduped_; }

 private:
  Mox::HashMap<Mox::Ptr<Dedupable>, bool> deduped_;
};

/// Stands for the content of a prefix list. `prefixList` is the list it was made for until a set is
/// built for it; from then on it is a private copy, so that later edits of the configuration change
/// neither the record's hash nor what its set contains.
class NAXEL_EXPORT PrefixListDedup : public Dedupable {
 public:
  explicit PrefixListDedup(Mox::Ptr<IpPrefixList const> list) : prefixList_(std::move(list)) {}
  std::string_view fwkType() const override { return "Naxel::PrefixListDedup"; }
  Mox::AttributeTable const& attributeTable() const override;

  Mox::Ptr<IpPrefixList const> const& prefixList() const { return prefixList_; }
  /// The set built for this content; null until then.
  Mox::Ptr<PrefixSet> const& prefixSet() const { return prefixSet_; }
  /// Stores the set and replaces the list by a frozen copy of it.
  void prefixSetIs(Mox::Ptr<PrefixSet> set);

  uint32_t hash() const override { return prefixList_ ? prefixList_->hash() : 0; }
  bool isEqual(Mox::Ptr<Dedupable const> const& other) const override;

 private:
  Mox::Ptr<IpPrefixList const> prefixList_;
  Mox::Ptr<PrefixSet> prefixSet_;
};
NAXEL_EXPORT Mox::Ptr<PrefixListDedup> prefixListDedupFactory(
    Mox::Ptr<IpPrefixList const> prefixList);

/// Gives each distinct key group a plain label: 1, 2, 3, ... in the order in which they come.
class NAXEL_EXPORT GenSetKeyGroupDeduper : public Deduper {
 public:
  using LabelMap = Mox::HashMap<Mox::Ptr<Dedupable>, PlainLabel>;
  std::string_view fwkType() const override { return "Naxel::GenSetKeyGroupDeduper"; }
  Mox::AttributeTable const& attributeTable() const override;

  /// The label of a group; equal groups get the same one until the next clear().
  PlainLabel addGroup(Mox::Ptr<GenSetKeyGroup> const& group);
  void clear() override;

  /// The distinct groups in the order of their labels.
  LabelMap const& dedupedGenSetKeyGroup() const { return dedupedGenSetKeyGroup_; }
  uint32_t plainLabel() const { return plainLabel_; }
  void plainLabelIs(uint32_t v) { plainLabel_ = v; }
  uint32_t plainLabelInc(uint32_t n) { return plainLabel_ += n; }

 private:
  LabelMap dedupedGenSetKeyGroup_;
  uint32_t plainLabel_ = 0;
};

}  // namespace Naxel
