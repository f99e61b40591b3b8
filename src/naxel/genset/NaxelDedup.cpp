#include "naxel/genset/NaxelDedup.h"

#include "mox/Assert.h"

#include <algorithm>

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
  if (slots_.empty()) return buckets;
  for (Item const& item : items_) {
    uint32_t const hash = item.obj->hash();
    Mox::lookupOrMake(buckets, hash, [&] {
      return Mox::makePtr<DedupableList>(hash);
    })->dedupedObjIs(item.obj);
  }
  return buckets;
}

size_t Deduper::add(Mox::Ptr<Dedupable> const& obj) {
  if (!isIndexed()) rebuildIndex();
  uint64_t const place = obj->place();
  uint32_t const known = find(place, [&](Dedupable const& o) { return o.isEqual(obj); });
  if (known != none) return known;
  addNew(obj, place);
  return items_.size() - 1;
}

void Deduper::addNew(Mox::Ptr<Dedupable> obj, uint64_t place) {
  // Room first: an object that cannot be found must not stay.
  if (slots_.size() < 2 * (items_.size() + 1)) rebuildIndex(items_.size() + 1);
  // At the end, so that a position stays what it is until objects are dropped.
  items_.push_back({std::move(obj), place});
  enter(static_cast<uint32_t>(items_.size() - 1));
}

void Deduper::enter(uint32_t at) noexcept {
  size_t const mask = slots_.size() - 1;
  size_t slot = items_[at].place & mask;
  while (slots_[slot] != none) slot = (slot + 1) & mask;
  slots_[slot] = at;
}

void Deduper::rebuildIndex(size_t room) {
  size_t capacity = 16;
  while (capacity < 2 * room) capacity *= 2;
  slots_.assign(capacity, none);
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
  if (marks_.size() != objects()) makeMarks();
  Mark& m = marks_[at];
  if (!m.key) keyIs(at, getGenSetKey(*object(at)));
  m.deduped = true;
  ++m.uses;
  return m.key;
}

void DedupMarkAndSweeper::addMarked(Mox::Ptr<Dedupable> obj, uint64_t place, GenSetKey key) {
  addNew(std::move(obj), place);
  makeMarks();
  keyIs(objects() - 1, key);
  marks_.back().uses = 1;
  marks_.back().deduped = true;
}

void DedupMarkAndSweeper::makeMarks() {
  // Objects come by add() without a mark; all that are missing are made at once. Whichever of several gets its
  // key first, the keys need not rise.
  rising_ = rising_ && marks_.size() + 1 == objects();
  marks_.resize(objects());
}

void DedupMarkAndSweeper::keyIs(size_t at, GenSetKey key) {
  marks_[at].key = key;
  rising_ = rising_ && at + 1 == marks_.size() && (at == 0 || marks_[at - 1].key < key);
}

size_t DedupMarkAndSweeper::placeOf(GenSetKey key) const {
  // Keys mostly rise as objects come, but after a run that was broken off an older object may have got
  // a later key.
  auto const place =
      rising_
          ? std::lower_bound(marks_.begin(), marks_.end(), key,
                             [](Mark const& m, GenSetKey k) { return m.key < k; })
          : std::find_if(marks_.begin(), marks_.end(), [&](Mark const& m) { return m.key == key; });
  MOX_ASSERT(place != marks_.end() && place->key == key);
  return static_cast<size_t>(place - marks_.begin());
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
  rising_ = std::is_sorted(marks_.begin(), marks_.end(),
                           [](Mark const& a, Mark const& b) { return a.key < b.key; });
  unused_ = true;
}

void DedupMarkAndSweeper::sweepUnmarked() {
  // The index refers to positions, which are about to change; and it is made anew when it is needed.
  clear();
  marks_.resize(objects());
  for (size_t at = 0; at < marks_.size(); ++at)
    if (marks_[at].uses == 0 && marks_[at].deduped) doCleanupSweptEntry(keyOf(at));
  dropMarked([](Mark const& m) { return m.uses == 0; });
  unused_ = false;
}

void DedupMarkAndSweeper::settle() {
  if (unused_ || marks_.size() != objects())
    sweepUnmarked();
  else
    clear();
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
      Mox::derivedAttribute<&PrefixListDedup::hash>("hash"), Mox::operation("isEqual"),
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
