#include "naxel/genset/NaxelAggregatorSm.h"

#include "mox/Assert.h"
#include "naxel/genset/AclCheck.h"
#include "naxel/genset/AclDigest.h"
#include "naxel/types/NaxelTrace.h"

#include <algorithm>

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
  for (auto const& p : prefixes) all.push_back(p.masked());
  return all;
}

}  // namespace

GenSetKey PrefixDedupMarkAndSweeper::markList(IpPrefixList const& list) {
  return markEqual(list.hash(), [&](Dedupable const& record) {
    return static_cast<PrefixListDedup const&>(record).prefixList()->isEqual(list);
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
  return markEqual(RangeSet::hash(type_, ranges), [&](Dedupable const& set) {
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
    : StageSm(chipId, config, status),
      aggConfig_(std::move(config)),
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
  acls_ = walkAcls(*aggConfig_->aclConfigColl());
  AggregatorWorkingSet const workingSet = workingSetOf(acls_);
  if (aggWorkingSet_ == workingSet) {
    if (auto line = trace(6))
      line << "AggregatorSm(" << chipId() << ")::doStartKick"
           << ": Unchanged working set, skipping";
    acls_ = {};
    return doSetStatus(StageStatusType::finishedSkipped);
  }
  // Nothing has been touched yet, so a refused configuration leaves the last good state usable.
  if (auto reason = checkAcls(acls_)) {
    if (auto line = trace(0)) line << "AggregatorSm(" << chipId() << ")::doStartKick: " << *reason;
    acls_ = {};
    return doFail(*reason);
  }
  aggWorkingSet_.reset();
  doCleanSm();
  brokenOff_ = true;
  doBuildSets();
  doDeleteUnusedSets();
  built_.clear();
  for (AclWalk& walk : acls_)
    built_.set(walk.acl().name(),
               {aggStatus_->aclGenSetIpRuleList(walk.acl().name()), walk.takeContents()});
  brokenOff_ = false;
  acls_ = {};
  aggWorkingSet_ = workingSet;
  doSetStatus(StageStatusType::finishedSuccess);
}

AggregatorWorkingSet AggregatorSm::doBuildWorkingSet() const {
  return workingSetOf(walkAcls(*aggConfig_->aclConfigColl()));
}

AggregatorWorkingSet AggregatorSm::workingSetOf(std::vector<AclWalk> const& acls) const {
  uint32_t enabledCombos = 0;
  for (ComboLabelSetType type : allComboLabelSetTypes())
    if (hwCapability_->comboXformWidth(type)) enabledCombos |= 1u << static_cast<unsigned>(type);
  return digestAcls(acls, enabledCombos);
}

void AggregatorSm::doCleanSm() {
  for (auto const& [key, deduper] : prefixDeduper_) deduper->unmarkAll();
  for (auto const& [type, deduper] : rangeDeduper_) deduper->unmarkAll();
  if (brokenOff_) {
    built_.clear();
    deleteUnnamedSets();
  }
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
  dumpAllPrefixListsInRules();
  dumpAllFieldSetsInRules();
  prefixDedupers_ = {};
  rangeDedupers_ = {};
  for (AclWalk const& walk : acls_) {
    Lumox::AddressFamily const af = aclFamily(walk.acl());
    if (auto const list = reusableList(walk, af)) {
      rebuildList(walk, list);
      continue;
    }
    auto const list = aggStatus_->aclGenSetIpRuleListIs(walk.acl().name(), af);
    list->reserve(walk.named().size(), walk.indexed().size());
    for (RuleConfig const* rule : walk.named())
      buildRule(*rule, af, *list->genSetIpRuleIs(rule->name()));
  }
  countUses();
  dumpAllPrefixSets();
  dumpAllRangeSets();
}

Mox::Ptr<AclGenSetIpRuleList> AggregatorSm::reusableList(AclWalk const& walk,
                                                         Lumox::AddressFamily af) const {
  Built const* built = built_.get(walk.acl().name());
  if (!built || built->list->af() != af) return nullptr;
  auto const& old = built->list->genSetIpRule();
  bool const same = std::equal(
      old.begin(), old.end(), walk.named().begin(), walk.named().end(),
      [](auto const& rule, RuleConfig const* config) { return rule->name() == config->name(); });
  return same ? built->list : nullptr;
}

void AggregatorSm::rebuildList(AclWalk const& walk, Mox::Ptr<AclGenSetIpRuleList> const& list) {
  std::vector<uint64_t> const& contents = built_.get(walk.acl().name())->contents;
  std::vector<Mox::Ptr<GenSetIpRule>> changed;
  size_t place = 0;
  for (auto const& rule : list->genSetIpRule()) {
    if (contents[place] == walk.contents()[place]) {
      reuseRule(*rule, list->af());
    } else {
      changed.push_back(Mox::makePtr<GenSetIpRule>(rule->name()));
      buildRule(*walk.named()[place], list->af(), *changed.back());
    }
    ++place;
  }
  for (auto& rule : changed) list->genSetIpRuleReplace(std::move(rule));
  list->genSetIpRuleByIdDelAll();
  aggStatus_->aclGenSetIpRuleListIs(list);
}

void AggregatorSm::buildRule(RuleConfig const& config, Lumox::AddressFamily af,
                             GenSetIpRule& rule) {
  rule.actionIs(config.action());
  if (config.ruleFilter()) buildRuleSets(*config.ruleFilter(), af, rule);
}

void AggregatorSm::reuseRule(GenSetIpRule const& rule, Lumox::AddressFamily af) {
  if (rule.source()) prefixDeduper(PrefixXformKey(af, true)).markKey(rule.source());
  if (rule.destination()) prefixDeduper(PrefixXformKey(af, false)).markKey(rule.destination());
  for (RangeSetType type : allRangeSetTypes())
    if (GenSetKey const key = rule.range(type)) {
      rangeDeduper(type).markKey(key);
      genSetKeyGen_->newKey();  // as if a set had been built and found to be known
    }
  uncountPair(prefixComboType(af), rule);
  uncountPair(ComboLabelSetType::srcDstL4Port, rule);
}

void AggregatorSm::buildRuleSets(RuleFilter const& filter, Lumox::AddressFamily af,
                                 GenSetIpRule& rule) {
  if (filter.source()) rule.sourceIs(doBuildPrefixSet(PrefixXformKey(af, true), filter.source()));
  if (filter.destination())
    rule.destinationIs(doBuildPrefixSet(PrefixXformKey(af, false), filter.destination()));
  size_t type = 0;
  filter.forEachRangeColl([&](auto const& ranges) {
    RangeSetType const setType = allRangeSetTypes()[type++];
    if (!ranges.empty()) rule.rangeIs(setType, buildRangeSet(setType, ranges));
  });
  rule.matchTcpInitIs(filter.matchTcpInit());
  rule.matchTcpEstablishedIs(filter.matchTcpEstablished());
  uncountPair(prefixComboType(af), rule);
  uncountPair(ComboLabelSetType::srcDstL4Port, rule);
}

void AggregatorSm::countUses() {
  GenSetUsageInfo& usage = *aggStatus_->genSetUsageInfo();
  auto const publish = [&](GenSetKey key, uint32_t uses) {
    if (uses) usage.refCountIs(key).valueInc(uses);
  };
  size_t sets = 0;
  for (auto const& [key, deduper] : prefixDeduper_) sets += deduper->size();
  for (auto const& [type, deduper] : rangeDeduper_) sets += deduper->size();
  usage.reserve(sets);
  for (auto const& [key, deduper] : prefixDeduper_) deduper->forEachUse(publish);
  for (auto const& [type, deduper] : rangeDeduper_) deduper->forEachUse(publish);
}

void AggregatorSm::uncountPair(ComboLabelSetType type, GenSetIpRule const& rule) {
  GenSetKeyPair const pair = rule.comboPair(type);
  if (!pair.src() || !pair.dst() || hwCapability_->comboXformWidth(type) == 0) return;
  aggStatus_->genSetUsageInfo()->refCountIs(pair.src()).valueDec(1);
  aggStatus_->genSetUsageInfo()->refCountIs(pair.dst()).valueDec(1);
}

PrefixDedupMarkAndSweeper& AggregatorSm::prefixDeduper(PrefixXformKey const& key) {
  PrefixDedupMarkAndSweeper*& slot =
      prefixDedupers_[(key.af() == Lumox::ipv4() ? 0u : 2u) + (key.src() ? 0u : 1u)];
  if (!slot) slot = prefixDeduperIs(key, aggStatus_->prefixInfo(key), chipId()).get();
  return *slot;
}

RangeDedupMarkAndSweeper& AggregatorSm::rangeDeduper(RangeSetType type) {
  RangeDedupMarkAndSweeper*& slot = rangeDedupers_[static_cast<size_t>(type)];
  if (!slot) slot = rangeDeduperIs(type, aggStatus_->rangeSplitInfo(type), chipId()).get();
  return *slot;
}

GenSetKey AggregatorSm::doBuildPrefixSet(PrefixXformKey const& key,
                                         Mox::Ptr<IpPrefixList const> const& list) {
  PrefixDedupMarkAndSweeper& deduper = prefixDeduper(key);
  if (GenSetKey const known = deduper.markList(*list)) return known;

  // The record that stands for the content, which is an older one than ours where an exception kept
  // it from getting its set.
  auto const record =
      Mox::dynamicPtrCast<PrefixListDedup>(deduper.addObj(prefixListDedupFactory(list)));
  GenSetKey const setKey = genSetKeyGen_->newKey();
  auto const set = deduper.prefixAggInfo()->prefixSetCollIs(setKey);
  set->prefixIs(masked(list->addr()));
  set->exceptPrefixIs(masked(list->exceptAddr()));
  record->prefixSetIs(set);
  deduper.addDeduped(record);
  if (auto line = trace(6))
    line << "AggregatorSm(" << chipId() << ")::doBuildPrefixSet"
         << " Creating prefixSet, "
         << " prefixXformKey:" << key << ", set key:" << setKey << set->stringValue();
  return setKey;
}

template <class Ranges>
GenSetKey AggregatorSm::buildRangeSet(RangeSetType type, Ranges const& ranges) {
  // The ends fit: the whole configuration has been checked against the bounds of its fields.
  auto const elem = [](auto const& r) {
    return RangeSetElem(static_cast<uint16_t>(r.rangeStart()), static_cast<uint16_t>(r.rangeEnd()));
  };
  ranges_.clear();
  for (auto const& r : ranges) ranges_.insert(elem(r));
  return buildRangeSet(type);
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

void AggregatorSm::doBuildAclGenSetRuleById() {
  std::vector<Mox::Ptr<GenSetIpRule>> named;
  for (AclWalk const& walk : acls_) {
    auto const list = aggStatus_->aclGenSetIpRuleList(walk.acl().name());
    named.clear();
    named.reserve(walk.named().size());
    for (auto const& rule : list->genSetIpRule()) named.push_back(rule);
    for (AclWalk::Indexed const& i : walk.indexed()) {
      MOX_ASSERT(i.place < named.size());
      list->genSetIpRuleByIdIs(i.index, named[i.place]);
    }
  }
}

void AggregatorSm::doDeleteUnusedSets() {
  for (auto const& [key, deduper] : prefixDeduper_) deduper->sweepUnmarked();
  for (auto const& [type, deduper] : rangeDeduper_) deduper->sweepUnmarked();
}

Mox::Ptr<AggregatorSm> aggregatorSmFactory(Obel::ChipId chipId, Mox::Ptr<AggregatorConfig> config,
                                           Mox::Ptr<AggregatorStatus> status,
                                           Mox::Ptr<ChipHwCapability const> hwCapability,
                                           Mox::Ptr<GenSetKeyGenerator> genSetKeyGen) {
  return Mox::makePtr<AggregatorSm>(chipId, std::move(config), std::move(status),
                                    std::move(hwCapability), std::move(genSetKeyGen));
}

}  // namespace Naxel
