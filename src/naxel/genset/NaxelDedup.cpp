#include "naxel/genset/NaxelDedup.h"

#include "mox/Assert.h"

namespace Naxel {

Mox::AttributeTable const& DedupableList::attributeTable() const {
  static Mox::AttributeTable const table = {
      Mox::attribute<&DedupableList::hashValue_>("hashValue"),
      Mox::attribute<&DedupableList::dedupedObj_>("dedupedObj")};
  return table;
}

Mox::AttributeTable const& Deduper::attributeTable() const {
  static Mox::AttributeTable const table = {Mox::operation("addObj"), Mox::operation("clear"),
                                            Mox::attribute<&Deduper::dedupedHash_>("dedupedHash")};
  return table;
}

Mox::Ptr<Dedupable> Deduper::addObj(Mox::Ptr<Dedupable> const& obj) {
  uint32_t const hash = obj->hash();
  Mox::Ptr<DedupableList> const& list =
      Mox::lookupOrMake(dedupedHash_, hash, [&] { return Mox::makePtr<DedupableList>(hash); });
  for (Mox::Ptr<Dedupable> const& member : list->dedupedObj())
    if (member->isEqual(obj)) return member;
  list->dedupedObjIs(obj);
  return obj;
}

Mox::AttributeTable const& DedupMarkAndSweeper::attributeTable() const {
  static Mox::AttributeTable const table = Mox::joinTables(
      Deduper::attributeTable(),
      {Mox::operation("addDeduped"), Mox::operation("unmarkAll"), Mox::operation("sweepUnmarked"),
       Mox::operation("doCleanupSweptEntry"), Mox::operation("getGenSetKey"),
       Mox::attribute<&DedupMarkAndSweeper::deduped_>("deduped")});
  return table;
}

GenSetKey DedupMarkAndSweeper::addDeduped(Mox::Ptr<Dedupable> const& obj) {
  Mox::Ptr<Dedupable> const canonical = addObj(obj);
  deduped_.set(canonical, true);
  return getGenSetKey(*canonical);
}

void DedupMarkAndSweeper::unmarkAll() {
  // The index may still hold objects of a run that did not reach its sweep.
  clear();
  std::vector<Mox::Ptr<Dedupable>> objects;
  objects.reserve(deduped_.size());
  for (auto const& [obj, mark] : deduped_) objects.push_back(obj);
  for (auto const& obj : objects) {
    deduped_.set(obj, false);
    addObj(obj);
  }
}

void DedupMarkAndSweeper::sweepUnmarked() {
  std::vector<Mox::Ptr<Dedupable>> unmarked;
  for (auto const& [obj, mark] : deduped_)
    if (!mark) unmarked.push_back(obj);
  for (auto const& obj : unmarked) {
    doCleanupSweptEntry(getGenSetKey(*obj));
    deduped_.erase(obj);
  }
  clear();
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
  auto copy = Mox::makePtr<IpPrefixList>();
  for (auto const& p : prefixList_->addr()) copy->addrIs(p);
  for (auto const& p : prefixList_->exceptAddr()) copy->exceptAddrIs(p);
  prefixList_ = std::move(copy);
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
