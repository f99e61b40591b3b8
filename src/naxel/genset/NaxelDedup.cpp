#include "naxel/genset/NaxelDedup.h"

#include "mox/Assert.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace Naxel {

Mox::AttributeTable const& DedupableList::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&DedupableList::hashValue_>("hashValue"),
      Mox::attribute<&DedupableList::dedupedObj_>("dedupedObj")};
  return table;
}

Mox::AttributeTable const& Deduper::attributeTable() const {
  static Mox::AttributeTable const table = {Mox::operation("addObj"), Mox::operation("clear"),
                                            Mox::attribute<&Deduper::dedupedHash>("dedupedHash")};
  return table;
}

void Deduper::clear() {
  clearIndex();
  items_.clear();
}

Deduper::BucketMap Deduper::dedupedHash() const {
  BucketMap buckets;
  // Between kicks there is no index, and so nothing to show, though the objects are there.
  if (last_.empty()) return buckets;
  for (Item const& item : items_) {
    uint32_t const hash = item.obj->hash();
    Mox::lookupOrMake(buckets, hash, [&] {
      return Mox::makePtr<DedupableList>(hash);
    })->dedupedObjIs(item.obj);
  }
  return buckets;
}

size_t Deduper::add(Mox::Ptr<Dedupable> const& obj) {
  uint64_t const place = obj->place();
  uint32_t const known = find(place, [&](Dedupable const& o) { return o.isEqual(obj); });
  if (known != none) return known;
  // At the end, so that a position stays what it is until objects are dropped.
  items_.push_back({obj, place});
  enter(static_cast<uint32_t>(items_.size() - 1));
  return items_.size() - 1;
}

void Deduper::enter(uint32_t at) {
  Item& item = items_[at];
  if (uint32_t* last = last_.get(item.place)) {
    item.before = std::exchange(*last, at);
  } else {
    item.before = none;
    last_.insertAbsent({item.place, at});
  }
}

void Deduper::rebuildIndex() {
  last_.clear();
  last_.reserve(items_.size());
  for (uint32_t at = 0; at < items_.size(); ++at) enter(at);
}

Mox::AttributeTable const& DedupMarkAndSweeper::attributeTable() const {
  static Mox::AttributeTable const table = Mox::joinTables(
      Deduper::attributeTable(),
      {Mox::operation("addDeduped"), Mox::operation("unmarkAll"), Mox::operation("sweepUnmarked"),
       Mox::operation("doCleanupSweptEntry"), Mox::operation("getGenSetKey"),
       Mox::attribute<&DedupMarkAndSweeper::deduped>("deduped")});
  return table;
}

GenSetKey DedupMarkAndSweeper::mark(size_t at) {
  // Objects come by add() without a mark; all that are missing are made at once.
  if (marks_.size() <= at) marks_.resize(objects());
  Mark& m = marks_[at];
  m.key = keyOf(at);
  m.deduped = true;
  ++m.uses;
  return m.key;
}

void DedupMarkAndSweeper::markKey(GenSetKey key) { ++marks_[byPlace_[places_.at(key)]].uses; }

void DedupMarkAndSweeper::reopen() {
  if (!isIndexed()) rebuildIndex();
  marks_.resize(objects());
}

void DedupMarkAndSweeper::remark(GenSetKey key, int32_t by) {
  for (size_t at = 0; at < marks_.size(); ++at)
    if (keyOf(at) == key) {
      marks_[at].uses += static_cast<uint32_t>(by);
      return;
    }
  MOX_ASSERT(false && "Unknown set");
}

void DedupMarkAndSweeper::unmarkAll() {
  clearIndex();
  marks_.resize(objects());
  // A record that was added and never marked is left over from a run that an exception has ended. If it has a
  // set, that one goes with those that no record stands for.
  dropMarked([](Mark const& m) { return !m.deduped; });
  rebuildIndex();
  for (size_t at = 0; at < marks_.size(); ++at) {
    marks_[at].uses = 0;
    // Noted once for all: to ask an object costs a virtual call and a cast.
    marks_[at].key = keyOf(at);
  }
  // Keys mostly rise as objects come, but after a run that was broken off an older object may have got
  // a later key.
  byPlace_.resize(marks_.size());
  std::iota(byPlace_.begin(), byPlace_.end(), 0u);
  auto const less = [&](uint32_t a, uint32_t b) { return marks_[a].key < marks_[b].key; };
  if (!std::is_sorted(byPlace_.begin(), byPlace_.end(), less))
    std::sort(byPlace_.begin(), byPlace_.end(), less);
  std::vector<GenSetKey> keys;
  keys.reserve(marks_.size());
  for (uint32_t at : byPlace_) keys.push_back(marks_[at].key);
  places_ = KeyPlaces(std::move(keys));
}

void DedupMarkAndSweeper::sweepUnmarked() {
  // The index refers to positions, which are about to change; and the next run makes it anew in any case.
  clear();
  places_ = KeyPlaces();
  byPlace_ = {};
  marks_.resize(objects());
  for (size_t at = 0; at < marks_.size(); ++at)
    if (marks_[at].uses == 0 && marks_[at].deduped) doCleanupSweptEntry(keyOf(at));
  dropMarked([](Mark const& m) { return m.uses == 0; });
}

std::vector<std::pair<Mox::Ptr<Dedupable>, bool>> DedupMarkAndSweeper::deduped() const {
  std::vector<std::pair<Mox::Ptr<Dedupable>, bool>> all;
  for (size_t at = 0; at < marks_.size(); ++at)
    if (marks_[at].deduped) all.emplace_back(object(at), marks_[at].uses > 0);
  return all;
}

GenSetKey DedupMarkAndSweeper::getGenSetKey(Dedupable const&) const {
  MOX_ASSERT(false && "Not implemented");
  return GenSetKey();
}

Mox::AttributeTable const& PrefixListDedup::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&PrefixListDedup::hash>("hash"), Mox::operation("isEqual"),
      Mox::attribute<&PrefixListDedup::prefixList_>("prefixList"),
      Mox::attribute<&PrefixListDedup::prefixSet_>("prefixSet")};
  return table;
}

void PrefixListDedup::prefixSetIs(Mox::Ptr<PrefixSet> set) {
  // The copy shares its members with the list until one of the two is written, so this costs no memory as
  // long as the agent leaves the list alone.
  prefixList_ = prefixList_->copy();
  prefixSet_ = std::move(set);
}

bool PrefixListDedup::isEqual(Mox::Ptr<Dedupable const> const& other) const {
  auto const* record = dynamic_cast<PrefixListDedup const*>(other.get());
  return record && prefixList_ && record->prefixList_ && prefixList_->isEqual(record->prefixList_);
}

Mox::Ptr<PrefixListDedup> prefixListDedupFactory(Mox::Ptr<IpPrefixList const> prefixList) {
  return Mox::makePtr<PrefixListDedup>(std::move(prefixList));
}

Mox::AttributeTable const& GenSetKeyGroupDeduper::attributeTable() const {
  static Mox::AttributeTable const table = Mox::joinTables(
      {Mox::operation("addObj"), Mox::attribute<&GenSetKeyGroupDeduper::dedupedHash>("dedupedHash"),
       Mox::operation("clear")},
      {Mox::operation("addGroup"),
       Mox::attribute<&GenSetKeyGroupDeduper::dedupedGenSetKeyGroup_>("dedupedGenSetKeyGroup"),
       Mox::attribute<&GenSetKeyGroupDeduper::plainLabel_>("plainLabel")});
  return table;
}

PlainLabel GenSetKeyGroupDeduper::addGroup(Mox::Ptr<GenSetKeyGroup> const& group) {
  // The same object again, which is what sharing transforms mostly bring, needs no content hash.
  if (PlainLabel const* known = dedupedGenSetKeyGroup_.get(group)) return *known;
  // Another object may hold the same keys: equal groups must get one label, or the pieces would need more
  // labels than they differ in.
  Mox::Ptr<Dedupable> const canonical = addObj(group);
  if (PlainLabel const* known = dedupedGenSetKeyGroup_.get(canonical)) return *known;
  PlainLabel const label(plainLabelInc(1));
  dedupedGenSetKeyGroup_.set(canonical, label);
  return label;
}

void GenSetKeyGroupDeduper::clear() {
  plainLabelIs(0);
  dedupedGenSetKeyGroup_.clear();
  Deduper::clear();
}

}  // namespace Naxel
