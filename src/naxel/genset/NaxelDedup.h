#pragma once

/// Deduplication: finding and sharing objects of equal content.
///
/// Deduper maps an object to an existing equal one by content hash. DedupMarkAndSweeper keeps sets
/// alive across kicks: unmarkAll() at the start of a build, addDeduped() for every use, and
/// sweepUnmarked() at the end deletes the sets that nothing used. GenSetKeyGroupDeduper numbers
/// distinct key groups with plain labels.
///
/// Two ways of sharing. A set is looked up before it is built, by markEqual(): a prefix set through a record
/// that stands for the list's content, a range set by its elements. Or it is built first, as a
/// combination set is: where addDeduped() answers another key than the new set's, an equal set exists, the
/// new one is deleted and its key is spent. For a record that has no set yet addDeduped() answers 0.

#include "mox/HashMap.h"
#include "mox/OrderedMap.h"
#include "naxel/genset/GenSet.h"
#include "naxel/types/IpPrefixList.h"
#include "obel/ChipId.h"

namespace Naxel {

/// Objects of one hash, as the index shows itself to those who ask.
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

/// Index of objects by content: the objects stand in an array in the order in which they came, and a table
/// leads from a place, a hash of content under the process's secret, to the objects of that place.
class NAXEL_EXPORT Deduper : public Mox::Entity {
 public:
  using BucketMap = Mox::OrderedMap<uint32_t, Mox::Ptr<DedupableList>>;
  std::string_view fwkType() const override { return "Naxel::Deduper"; }
  Mox::AttributeTable const& attributeTable() const override;

  /// The object of the index that is equal to `obj`; `obj` itself, then added, if there is none.
  Mox::Ptr<Dedupable> addObj(Mox::Ptr<Dedupable> const& obj) { return items_[add(obj)].obj; }
  /// Empties the index.
  virtual void clear();
  /// The index as buckets, put together for the caller.
  BucketMap dedupedHash() const;

 protected:
  static constexpr uint32_t none = ~uint32_t{0};

  /// Position of the object that is equal to `obj`, which is added if there is none.
  size_t add(Mox::Ptr<Dedupable> const& obj);
  /// Position of the object of this place for which `same(object)` holds, or `none`.
  template <class Same>
  uint32_t find(uint64_t place, Same same) const {
    if (slots_.empty()) return none;
    size_t const mask = slots_.size() - 1;
    for (size_t slot = place & mask;; slot = (slot + 1) & mask) {
      uint32_t const at = slots_[slot];
      if (at == none || (items_[at].place == place && same(*items_[at].obj))) return at;
    }
  }
  /// Adds an object that the index does not hold.
  void addNew(Mox::Ptr<Dedupable> obj, uint64_t place);
  size_t objects() const { return items_.size(); }
  Mox::Ptr<Dedupable> const& object(size_t at) const { return items_[at].obj; }
  /// Whether the objects can be found.
  bool isIndexed() const { return items_.empty() || !slots_.empty(); }
  /// Forgets where the objects are, and keeps them.
  void clearIndex() noexcept { slots_ = {}; }
  /// Indexes the objects that are there.
  void rebuildIndex() { rebuildIndex(items_.size()); }
  /// Drops the objects for which `gone(position)` holds; the index must be empty.
  template <class Gone>
  void dropObjects(Gone gone) {
    size_t to = 0;
    for (size_t from = 0; from < items_.size(); ++from) {
      if (gone(from)) continue;
      if (to != from) items_[to] = std::move(items_[from]);
      ++to;
    }
    items_.resize(to);
  }

 private:
  struct Item {
    Mox::Ptr<Dedupable> obj;
    uint64_t place = 0;
  };
  /// With room for so many objects.
  void rebuildIndex(size_t room);
  void enter(uint32_t at) noexcept;

  std::vector<Item> items_;
  std::vector<uint32_t> slots_;  // positions by place; a power of two many, at most half in use
};

/// Keeps objects while they are in use. Between kicks the index is empty; the objects stay.
class NAXEL_EXPORT DedupMarkAndSweeper : public Deduper {
 public:
  std::string_view fwkType() const override { return "Naxel::DedupMarkAndSweeper"; }
  Mox::AttributeTable const& attributeTable() const override;

  /// Marks the object that stands for `obj` as in use and returns the key of its set; 0 when it has
  /// no set yet.
  GenSetKey addDeduped(Mox::Ptr<Dedupable> const& obj) { return mark(add(obj)); }
  /// The same for an object that is not made yet: it would have this place, and `same(object)` tells
  /// whether a known one is equal to it. 0, and nothing is marked, where there is none or it has no set.
  template <class Same>
  GenSetKey markEqual(uint64_t place, Same same) {
    if (!isIndexed()) rebuildIndex();
    uint32_t const at = find(place, same);
    if (at == none) return GenSetKey();
    return keyOf(at) ? mark(at) : GenSetKey();
  }
  /// Adds an object that markEqual() has not found, with the key of its set, and marks it.
  void addMarked(Mox::Ptr<Dedupable> obj, uint64_t place, GenSetKey key);
  /// Marks the object whose set has that key, or takes one mark back. It must have been marked before. O(log
  /// objects).
  void markKey(GenSetKey key) { ++marks_[placeOf(key)].uses; }
  void unmarkKey(GenSetKey key) {
    if (--marks_[placeOf(key)].uses == 0) unused_ = true;
  }
  /// Whether an object may have lost its last mark since the last sweep.
  bool hasUnused() const { return unused_; }
  /// Ends a run that has begun with the marks of the one before: as sweepUnmarked(), but at once where no object
  /// has lost its last mark.
  void settle();
  /// How many objects there are.
  size_t size() const { return objects(); }
  /// Calls `f(key, uses)` for every object that has a set, with how often it was marked since
  /// unmarkAll().
  template <class F>
  void forEachUse(F f) const {
    for (size_t at = 0; at < marks_.size(); ++at)
      if (GenSetKey const key = keyOf(at)) f(key, marks_[at].uses);
  }
  /// Takes every mark away and indexes the objects again, but for those that were never marked.
  void unmarkAll();
  /// Deletes the objects without a mark together with their sets and empties the index.
  void sweepUnmarked();
  void clear() override { clearIndex(); }
  /// Deletes the set of that key from the collection that owns it.
  virtual void doCleanupSweptEntry(GenSetKey) {}
  /// Key of the set that an object stands for.
  virtual GenSetKey getGenSetKey(Dedupable const& obj) const;

  /// The objects that have been given to addDeduped(), with their marks; put together for the caller.
  std::vector<std::pair<Mox::Ptr<Dedupable>, bool>> deduped() const;
  /// Calls `f(key)` for the key of every object that has a set.
  template <class F>
  void forEachKey(F f) const {
    for (size_t at = 0; at < objects(); ++at)
      if (GenSetKey const key = getGenSetKey(*object(at))) f(key);
  }

 private:
  struct Mark {
    GenSetKey key;  // of the object's set; 0 until it is known
    uint32_t uses = 0;
    bool deduped = false;  // has been marked at some time
  };
  GenSetKey mark(size_t at);
  /// Makes the marks that objects lack.
  void makeMarks();
  void keyIs(size_t at, GenSetKey key);
  /// Position of the object whose set has that key.
  size_t placeOf(GenSetKey key) const;
  GenSetKey keyOf(size_t at) const {
    return at < marks_.size() && marks_[at].key ? marks_[at].key : getGenSetKey(*object(at));
  }
  /// Drops the objects for which `gone(mark)` holds; the index must be empty.
  template <class Gone>
  void dropMarked(Gone gone) {
    dropObjects([&](size_t at) { return gone(marks_[at]); });
    std::erase_if(marks_, gone);
  }

  std::vector<Mark> marks_;  // by position; shorter where objects came without a mark
  bool rising_ = true;       // the keys do, with the positions
  bool unused_ = false;
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
  uint64_t place() const override { return prefixList_ ? prefixList_->place() : 0; }
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
  /// Frees what only further groups would need. The next call is clear().
  void settle() { clearIndex(); }
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
