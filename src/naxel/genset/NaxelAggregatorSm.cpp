#include "naxel/genset/NaxelAggregatorSm.h"

#include "mox/Assert.h"
#include "naxel/genset/AclCheck.h"
#include "naxel/genset/AclDigest.h"
#include "naxel/types/NaxelTrace.h"

namespace Naxel {

namespace {

/// Text of the error that refuses a second instance under a key.
template <class A, class B>
[[noreturn]] void throwNameInUse(char const* parameter, A const& wanted, B const& held) {
  throw Mox::NameInUseError(
      std::string("Reinstantiating the pointer interface where constructor parameter attribute ") +
      parameter + " has a different value of " + Mox::attributeTextOf(wanted) +
      " than the current value of " + Mox::attributeTextOf(held) + " not allowed");
}

std::vector<Lumox::IpGenPrefix> masked(IpPrefixList::PrefixColl const& prefixes) {
  std::vector<Lumox::IpGenPrefix> all;
  all.reserve(prefixes.size());
  prefixes.forEach([&](Lumox::IpGenPrefix const& p) { all.push_back(p.masked()); });
  return all;
}

}  // namespace

GenSetKey PrefixDedupMarkAndSweeper::markList(IpPrefixList const& list) {
  return markEqual(list.place(), [&](Dedupable const& record) {
    auto const& known = static_cast<PrefixListDedup const&>(record);
    return known.prefixSet() && known.prefixList()->isEqual(list);
  });
}

void PrefixDedupMarkAndSweeper::doCleanupSweptEntry(GenSetKey key) {
  if (auto line = trace(6))
    line << "PrefixDeduper(af=" << key_.af() << ", src=" << int{key_.src()}
         << ", chipId:" << chipId_ << ") Cleaning up key:" << key;
  prefixAggInfo_->prefixSetCollDel(key);
}

GenSetKey PrefixDedupMarkAndSweeper::getGenSetKey(Dedupable const& obj) const {
  auto const* prefixListDedup = dynamic_cast<PrefixListDedup const*>(&obj);
  MOX_ASSERT(prefixListDedup);
  return prefixListDedup->prefixSet() ? prefixListDedup->prefixSet()->key() : GenSetKey();
}

GenSetKey RangeDedupMarkAndSweeper::markRanges(RangeSet::RangeColl const& ranges) {
  return markEqual(RangeSet::place(ranges), [&](Dedupable const& set) {
    return static_cast<RangeSet const&>(set).range() == ranges;
  });
}

void RangeDedupMarkAndSweeper::doCleanupSweptEntry(GenSetKey key) {
  if (auto line = trace(6))
    line << "RangeDeduper(type=" << type_ << ", chipId:" << chipId_ << "): Cleaning up key:" << key;
  rangeSplitAggInfo_->rangeSetCollDel(key);
}

GenSetKey RangeDedupMarkAndSweeper::getGenSetKey(Dedupable const& obj) const {
  auto const* rangeSet = dynamic_cast<RangeSet const*>(&obj);
  MOX_ASSERT(rangeSet);
  return rangeSet->key();
}

AggregatorSm::AggregatorSm(Obel::ChipId chipId, Mox::Ptr<AggregatorConfig> config,
                           Mox::Ptr<AggregatorStatus> status,
                           Mox::Ptr<ChipHwCapability const> hwCapability,
                           Mox::Ptr<GenSetKeyGenerator> genSetKeyGen)
    : StageSm(chipId, std::move(config), status),
      aggStatus_(std::move(status)),
      hwCapability_(std::move(hwCapability)),
      genSetKeyGen_(std::move(genSetKeyGen)) {}

Mox::Ptr<PrefixDedupMarkAndSweeper> AggregatorSm::prefixDeduperIs(
    PrefixXformKey const& key, Mox::Ptr<PrefixAggregatorInfo> const& info, Obel::ChipId chipId) {
  Mox::Ptr<PrefixDedupMarkAndSweeper> const& slot = Mox::lookupOrMake(prefixDeduper_, key, [&] {
    return Mox::makePtr<PrefixDedupMarkAndSweeper>(key, info, chipId);
  });
  if (slot->prefixAggInfo() != info) throwNameInUse("_prefixAggInfo", info, slot->prefixAggInfo());
  if (slot->chipId() != chipId) throwNameInUse("_chipId", chipId, slot->chipId());
  return slot;
}

Mox::Ptr<RangeDedupMarkAndSweeper> AggregatorSm::rangeDeduperIs(
    RangeSetType type, Mox::Ptr<RangeSplitAggregatorInfo> const& info, Obel::ChipId chipId) {
  Mox::Ptr<RangeDedupMarkAndSweeper> const& slot = Mox::lookupOrMake(rangeDeduper_, type, [&] {
    return Mox::makePtr<RangeDedupMarkAndSweeper>(type, info, chipId);
  });
  if (slot->rangeSplitAggInfo() != info)
    throwNameInUse("_rangeSplitAggInfo", info, slot->rangeSplitAggInfo());
  if (slot->chipId() != chipId) throwNameInUse("_chipId", chipId, slot->chipId());
  return slot;
}

void AggregatorSm::doStartKick() {
  if (auto line = trace(8)) line << "AggregatorSm(" << chipId() << ")::doStartKick";
  doRunStage();
}

StageSm::Look AggregatorSm::doLook() {
  // Which combinations are matched through one label decides which uses count, so it is part of the input.
  bool const stands = remembers_ && builtCombos_ == enabledCombos();
  // Read before anything is looked at: what is written meanwhile is another change.
  lookedAt_ = configChanges();
  bool const untouched = stands && lookedAt_ == seenChanges_;
  if (!untouched) findEdits();
  if (untouched || (stands && edits_.empty() && goneAcls_.empty())) {
    seenChanges_ = lookedAt_;
    if (auto line = trace(6))
      line << "AggregatorSm(" << chipId() << ")::doStartKick"
           << ": Unchanged working set, skipping";
    return {Look::At::unchanged};
  }
  // What stands was sound when it was built. Only where something is wrong are all rules looked at, to name the
  // first of all errors.
  bool const sound = std::ranges::all_of(edits_, [](AclEdit const& e) { return e.isSound(); });
  if (sound) return {Look::At::work};
  edits_.clear();
  auto reason = checkAcls(walkAcls(*aggConfig().aclConfigColl()));
  MOX_ASSERT(reason);
  if (auto line = trace(0)) line << "AggregatorSm(" << chipId() << ")::doStartKick: " << *reason;
  return {Look::At::refused, std::move(*reason)};
}

void AggregatorSm::findEdits() {
  edits_.clear();
  goneAcls_.clear();
  auto const& acls = aggConfig().aclConfigColl()->acl();
  size_t known = 0;
  for (auto const& [name, acl] : acls) {
    BuiltAcl* const built = brokenOff_ ? nullptr : built_.get(name);
    known += built != nullptr;
    if (!built)
      edits_.push_back(wholeAcl(*acl));
    else if (auto edit = editOf(*acl, *built, *aggStatus_))
      edits_.push_back(std::move(*edit));
  }
  if (brokenOff_ || known == built_.size()) return;
  for (auto const& [name, built] : built_)
    if (!acls.contains(name)) goneAcls_.push_back(name);
}

std::optional<std::string> AggregatorSm::doWork() {
  // They refer to the configuration as it is now, so they must not outlive the run, however it ends.
  std::vector<AclEdit> edits = std::move(edits_);
  edits_.clear();
  for (AclEdit const& edit : edits) traceFamily(*edit.acl);
  bool const anew = brokenOff_ || built_.empty();
  counts_ = !anew && builtCombos_ == enabledCombos();
  if (anew) cleanSm();
  // Behind cleanSm(), which looks at how the run before has ended.
  brokenOff_ = true;
  dumpAllPrefixListsInRules();
  dumpAllFieldSetsInRules();
  applyEdits(edits);
  if (!counts_) {
    countUses();
    // What counts has changed, and so has what is made of rules that say the same.
    for (auto const& [name, built] : built_) aggStatus_->aclGenSetIpRuleListIs(built.list);
  }
  dumpAllPrefixSets();
  dumpAllRangeSets();
  builtCombos_ = enabledCombos();
  brokenOff_ = false;
  return std::nullopt;
}

AggregatorWorkingSet AggregatorSm::doBuildWorkingSet() const {
  return digestOf(*aggConfig().aclConfigColl(), enabledCombos());
}

std::optional<AggregatorWorkingSet> AggregatorSm::aggWorkingSet() const {
  if (!remembers_) return std::nullopt;
  return digestOf(*aggStatus_, builtCombos_);
}

uint32_t AggregatorSm::enabledCombos() const {
  uint32_t combos = 0;
  for (ComboLabelSetType type : allComboLabelSetTypes())
    if (hwCapability_->comboEnabled(type)) combos |= 1u << static_cast<unsigned>(type);
  return combos;
}

void AggregatorSm::doCleanSm() {
  doForget();
  cleanSm();
}

void AggregatorSm::cleanSm() {
  built_.clear();
  // Before the sets without a record are deleted: it drops the records that were never marked, and what they
  // stand for goes with the others.
  forEachDeduper([](DedupMarkAndSweeper& deduper) { deduper.unmarkAll(); });
  if (brokenOff_) deleteUnnamedSets();
  aggStatus_->aclGenSetIpRuleListDelAll();
  aggStatus_->genSetUsageInfo()->refCountDelAll();
}

void AggregatorSm::deleteUnnamedSets() {
  // A run that was broken off by an exception may leave sets that no record stands for; they would
  // spend labels for ever.
  auto const sweep = [](DedupMarkAndSweeper const& deduper, auto const& coll, auto del) {
    Mox::HashSet<GenSetKey> named;
    deduper.forEachKey([&](GenSetKey key) { named.insert(key); });
    if (named.size() == coll.size()) return;
    std::vector<GenSetKey> unnamed;
    for (auto const& [key, set] : coll)
      if (!named.contains(key)) unnamed.push_back(key);
    for (GenSetKey key : unnamed) del(key);
  };
  for (auto const& [key, deduper] : prefixDeduper_) {
    PrefixAggregatorInfo& info = *deduper->prefixAggInfo();
    sweep(*deduper, info.prefixSetColl(), [&](GenSetKey k) { info.prefixSetCollDel(k); });
  }
  for (auto const& [type, deduper] : rangeDeduper_) {
    RangeSplitAggregatorInfo& info = *deduper->rangeSplitAggInfo();
    sweep(*deduper, info.rangeSetColl(), [&](GenSetKey k) { info.rangeSetCollDel(k); });
  }
}

void AggregatorSm::doBuildSets() {
  doBuildFieldSets();
  doBuildAclGenSetRuleById();
}

void AggregatorSm::doBuildFieldSets() {
  counts_ = false;
  for (auto const& [name, acl] : aggConfig().aclConfigColl()->acl()) {
    AclEdit edit = wholeAcl(*acl);
    edit.arranged->indexes.clear();  // a step of its own
    publish(edit, compiled(edit));
  }
  built_.clear();  // the steps by themselves do not keep it up to date
  countUses();
}

void AggregatorSm::doBuildAclGenSetRuleById() {
  for (AclWalk const& walk : walkAcls(*aggConfig().aclConfigColl())) {
    auto const list = aggStatus_->aclGenSetIpRuleList(walk.acl().name());
    MOX_ASSERT(list);
    for (AclWalk::Indexed const& i : walk.indexed()) {
      MOX_ASSERT(i.place < list->genSetIpRule().size());
      list->genSetIpRuleByIdIs(i.index, list->genSetIpRule()[i.place]);
    }
  }
}

void AggregatorSm::countUses() {
  GenSetUsageInfo& usage = *aggStatus_->genSetUsageInfo();
  usage.refCountDelAll();
  size_t sets = 0;
  forEachDeduper([&](DedupMarkAndSweeper const& deduper) { sets += deduper.size(); });
  usage.reserve(sets);
  forEachDeduper([&](DedupMarkAndSweeper const& deduper) {
    deduper.forEachUse([&](GenSetKey key, uint32_t uses) {
      if (uses) usage.refCountIs(key).valueIs(uses);
    });
  });
  uint32_t const combos = enabledCombos();
  if (!combos) return;
  for (auto const& [name, list] : aggStatus_->aclGenSetIpRuleList())
    for (auto const& rule : list->genSetIpRule())
      forEachPaired(*rule, list->af(), combos,
                    [&](GenSetKey key) { usage.refCountIs(key).valueDec(1); });
}

PrefixDedupMarkAndSweeper& AggregatorSm::madeDeduper(PrefixXformKey const& key) {
  auto const deduper = prefixDeduperIs(key, aggStatus_->prefixInfo(key), chipId());
  return *(prefixDedupers_[(key.af() == Lumox::ipv4() ? 0u : 2u) + (key.src() ? 0u : 1u)] =
               deduper.get());
}

RangeDedupMarkAndSweeper& AggregatorSm::madeDeduper(RangeSetType type) {
  auto const deduper = rangeDeduperIs(type, aggStatus_->rangeSplitInfo(type), chipId());
  return *(rangeDedupers_[static_cast<size_t>(type)] = deduper.get());
}

GenSetKey AggregatorSm::doBuildPrefixSet(PrefixXformKey const& key,
                                         Mox::Ptr<IpPrefixList const> const& list) {
  return buildPrefixSet(prefixDeduper(key.af(), key.src()), list);
}

GenSetKey AggregatorSm::buildPrefixSet(PrefixDedupMarkAndSweeper& deduper,
                                       Mox::Ptr<IpPrefixList const> const& list) {
  if (GenSetKey const known = deduper.markList(*list)) return known;

  GenSetKey const setKey = genSetKeyGen_->newKey();
  auto const set = Mox::makePtr<PrefixSet>(setKey);
  // Host bits are cleared here: the trie holds prefixes without them, and two prefixes that differ in them
  // alone are one node.
  set->prefixIs(masked(list->addr()));
  if (list->exceptAddrs()) set->exceptPrefixIs(masked(list->exceptAddr()));
  auto const record = prefixListDedupFactory(list);
  record->prefixSetIs(set);
  set->prefixListIs(record->prefixList());
  // The set first: a record of a set that is nowhere would hand out its key after an exception.
  deduper.prefixAggInfo()->prefixSetCollAdd(set);
  deduper.addMarked(record, list->place(), setKey);
  if (auto line = trace(6))
    line << "AggregatorSm(" << chipId() << ")::doBuildPrefixSet"
         << " Creating prefixSet, "
         << " prefixXformKey:" << deduper.prefixAggInfo()->prefixXformKey()
         << ", set key:" << setKey << set->stringValue();
  return setKey;
}

GenSetKey AggregatorSm::buildRangeSet(RangeSetType type) {
  if (auto line = trace(8))
    line << "AggregatorSm(" << chipId() << ")::buildRangeSet"
         << ", setType:" << type;
  // Before the set, which only a deduper can clear away again after an exception.
  RangeDedupMarkAndSweeper& deduper = rangeDeduper(type);
  // Also a set that is not built takes a key.
  GenSetKey const key = genSetKeyGen_->newKey();
  if (GenSetKey const known = deduper.markRanges(ranges_)) {
    if (auto line = trace(6))
      line << "AggregatorSm(" << chipId() << ")::buildRangeSet"
           << " Reusing rangeSet, key:" << known;
    return known;
  }
  auto const set = deduper.rangeSplitAggInfo()->rangeSetCollIs(key, type);
  set->rangeIs(ranges_);
  deduper.addDeduped(set);
  if (auto line = trace(6))
    line << "AggregatorSm(" << chipId() << ")::buildRangeSet"
         << " Creating rangeSet, key:" << key << set->stringValue();
  return key;
}

void AggregatorSm::doDeleteUnusedSets() {
  forEachDeduper([](DedupMarkAndSweeper& deduper) { deduper.sweepUnmarked(); });
}

Mox::Ptr<AggregatorSm> aggregatorSmFactory(Obel::ChipId chipId, Mox::Ptr<AggregatorConfig> config,
                                           Mox::Ptr<AggregatorStatus> status,
                                           Mox::Ptr<ChipHwCapability const> hwCapability,
                                           Mox::Ptr<GenSetKeyGenerator> genSetKeyGen) {
  return Mox::makePtr<AggregatorSm>(chipId, std::move(config), std::move(status),
                                    std::move(hwCapability), std::move(genSetKeyGen));
}

}  // namespace Naxel
