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
  return markEqual(list.place(), [&](Dedupable const& record) {
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
  if (isUnchanged()) {
    if (auto line = trace(6))
      line << "AggregatorSm(" << chipId() << ")::doStartKick"
           << ": Unchanged working set, skipping";
    return {Look::At::unchanged};
  }
  walks_ = walkAcls(*aggConfig().aclConfigColl());
  if (auto reason = checkAcls(walks_)) {
    if (auto line = trace(0)) line << "AggregatorSm(" << chipId() << ")::doStartKick: " << *reason;
    walks_.clear();
    return {Look::At::refused, std::move(*reason)};
  }
  return {Look::At::work};
}

std::optional<std::string> AggregatorSm::doWork() {
  // They refer to the configuration as it is now, so they must not outlive the run, however it ends.
  Walks walks = std::move(walks_);
  // Before anything is touched, so that an exception up to here costs no more than this kick.
  auto contents = contentsOf(walks);
  workingSet_ = digestAcls(walks, contents, enabledCombos());
  if (auto const edits = fewEdits(walks)) {
    brokenOff_ = true;
    applyEdits(walks, *edits);
    for (size_t a = 0; a < walks.size(); ++a) {
      Built& built = *built_.get(walks[a].acl().name());
      built.stamps = walks[a].takeStamps();
      built.contents = std::move(contents[a]);
    }
    brokenOff_ = false;
    return std::nullopt;
  }
  cleanSm();
  // Behind cleanSm(), which looks at how the run before has ended.
  brokenOff_ = true;
  buildFieldSets(walks);
  // What the last run has built is read until here.
  built_.clear();
  for (size_t a = 0; a < walks.size(); ++a) {
    AclWalk& walk = walks[a];
    std::string const& name = walk.acl().name();
    auto rules = rulesOf(walk);
    buildRuleById(walk, rules);
    built_.set(name, {walk.acl().stamp(), aggStatus_->aclGenSetIpRuleList(name), walk.takeStamps(),
                      std::move(contents[a]), std::move(rules)});
  }
  // Last, when every rule has marked its sets: a set whose last user goes while another one comes keeps its
  // key, and the transforms see no change.
  doDeleteUnusedSets();
  builtCombos_ = enabledCombos();
  brokenOff_ = false;
  return std::nullopt;
}

void AggregatorSm::doRemember() noexcept { aggWorkingSet_ = workingSet_; }

AggregatorWorkingSet AggregatorSm::doBuildWorkingSet() const {
  Walks const walks = walkAcls(*aggConfig().aclConfigColl());
  return digestAcls(walks, contentsOf(walks), enabledCombos());
}

std::vector<std::vector<uint64_t>> AggregatorSm::contentsOf(Walks const& walks) const {
  std::vector<std::vector<uint64_t>> all;
  all.reserve(walks.size());
  for (AclWalk const& walk : walks) {
    Built const* const built = built_.get(walk.acl().name());
    std::vector<uint64_t>& contents = all.emplace_back();
    contents.reserve(walk.named().size());
    for (size_t place = 0; place < walk.named().size(); ++place) {
      // The stamps are those of the same place. Rules that have moved are hashed again, which costs time
      // and never a wrong digest.
      bool const known =
          built && place < built->stamps.size() && built->stamps[place] == walk.stamps()[place];
      contents.push_back(known ? built->contents[place] : walk.named()[place]->contentHash());
    }
  }
  return all;
}

uint32_t AggregatorSm::enabledCombos() const {
  uint32_t combos = 0;
  for (ComboLabelSetType type : allComboLabelSetTypes())
    if (hwCapability_->comboEnabled(type)) combos |= 1u << static_cast<unsigned>(type);
  return combos;
}

bool AggregatorSm::isUnchanged() {
  // Which combinations are matched through one label decides which uses count, so it is part of the input.
  if (!aggWorkingSet_ || builtCombos_ != enabledCombos()) return false;
  auto const& acls = aggConfig().aclConfigColl()->acl();
  if (acls.size() != built_.size()) return false;
  for (auto const& [name, acl] : acls) {
    Built* const built = built_.get(name);
    if (!built || !isUnchanged(*acl, *built)) return false;
  }
  return true;
}

bool AggregatorSm::isUnchanged(AclConfig const& acl, Built& built) const {
  if (acl.ruleByName().size() != built.rules.size()) return false;
  Lumox::AddressFamily const af = built.list->af();
  // The stamp of the ACL covers which rules it has and under which indexes, not what the rules say: a rule
  // is told by stamps of its own.
  bool const sameRules = acl.stamp() == built.acl;
  if (!sameRules) {
    if (aclFamily(acl) != af) return false;
    auto const& indexed = built.list->genSetIpRuleById();
    auto const sameIndex = [&](auto const& now, auto const& then) {
      auto const& [index, rule] = now;
      return index == then.first && rule && rule->name() == then.second->name() &&
             acl.ruleByName(rule->name()) == rule;
    };
    if (!std::equal(acl.ruleById().begin(), acl.ruleById().end(), indexed.begin(), indexed.end(),
                    sameIndex))
      return false;
  }
  size_t place = 0;
  for (auto const& [name, rule] : acl.ruleByName()) {
    // Written in another order, the rules of equal names are compared.
    Mox::Ptr<GenSetIpRule> other;
    if (!sameRules && built.rules[place]->name() != name) {
      other = built.list->genSetIpRule(name);
      if (!other) return false;
      built.stamps[place] = RuleStamps();
      built.contents[place] = 0;
      built.rules[place] = std::move(other);
    }
    RuleStamps const stamps = rule->stamps();
    if (stamps != built.stamps[place]) {
      if (!saysTheSame(*rule, af, *built.rules[place])) return false;
      // What is learnt here is true whatever the rest of the look comes to, so it is kept where a later
      // rule differs, too.
      built.stamps[place] = stamps;
      built.contents[place] = rule->contentHash();
    }
    ++place;
  }
  built.acl = acl.stamp();
  return true;
}

bool AggregatorSm::saysTheSame(IpPrefixList const* list, PrefixXformKey const& key,
                               GenSetKey set) const {
  if (!list || !set) return !list && !set;
  auto const known = aggStatus_->prefixInfo(key)->prefixSetColl(set);
  // The list as it stood when the set was built: the configuration's own one may have been edited since.
  return known && known->prefixList() && known->prefixList()->isEqual(*list);
}

bool AggregatorSm::saysTheSame(RuleConfig const& config, Lumox::AddressFamily af,
                               GenSetIpRule const& rule) const {
  static RuleFilter const none;
  RuleFilter const& filter = config.ruleFilter() ? *config.ruleFilter() : none;
  if (config.name() != rule.name() || config.action() != rule.action() ||
      filter.matchTcpInit() != rule.matchTcpInit() ||
      filter.matchTcpEstablished() != rule.matchTcpEstablished())
    return false;
  if (!saysTheSame(filter.source().get(), PrefixXformKey(af, true), rule.source()) ||
      !saysTheSame(filter.destination().get(), PrefixXformKey(af, false), rule.destination()))
    return false;
  bool same = true;
  filter.forEachRangeColl([&](RangeSetType type, auto const& ranges) {
    same = same && saysTheSame(ranges, type, rule.range(type));
  });
  return same;
}

void AggregatorSm::doCleanSm() {
  doForget();
  built_.clear();  // the steps by themselves do not keep it up to date
  cleanSm();
}

void AggregatorSm::cleanSm() {
  // Before the sets without a record are deleted: it drops the records that were never marked, and what they
  // stand for goes with the others.
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

void AggregatorSm::doBuildFieldSets() { buildFieldSets(walkAcls(*aggConfig().aclConfigColl())); }

void AggregatorSm::doBuildAclGenSetRuleById() {
  for (AclWalk const& walk : walkAcls(*aggConfig().aclConfigColl()))
    buildRuleById(walk, rulesOf(walk));
}

void AggregatorSm::buildFieldSets(Walks const& walks) {
  dumpAllPrefixListsInRules();
  dumpAllFieldSetsInRules();
  prefixDedupers_ = {};
  rangeDedupers_ = {};
  for (AclWalk const& walk : walks) {
    Lumox::AddressFamily const af = aclFamily(walk.acl());
    if (Built const* const built = reusable(walk, af)) {
      rebuildList(walk, *built);
      continue;
    }
    auto const list = aggStatus_->aclGenSetIpRuleListIs(walk.acl().name(), af);
    list->reserve(walk.named().size(), walk.indexed().size());
    for (RuleConfig const* rule : walk.named())
      buildRule(*rule, af, *list->genSetIpRuleAdd(rule->name()));
  }
  countUses();
  dumpAllPrefixSets();
  dumpAllRangeSets();
}

AggregatorSm::Built const* AggregatorSm::reusable(AclWalk const& walk,
                                                  Lumox::AddressFamily af) const {
  Built const* built = built_.get(walk.acl().name());
  if (!built || built->list->af() != af) return nullptr;
  bool const same = std::equal(
      built->rules.begin(), built->rules.end(), walk.named().begin(), walk.named().end(),
      [](auto const& rule, RuleConfig const* config) { return rule->name() == config->name(); });
  return same ? built : nullptr;
}

void AggregatorSm::rebuildList(AclWalk const& walk, Built const& built) {
  auto const& list = built.list;
  for (size_t place = 0; place < built.rules.size(); ++place) {
    GenSetIpRule const& rule = *built.rules[place];
    RuleConfig const& config = *walk.named()[place];
    if (built.stamps[place] == walk.stamps()[place] || saysTheSame(config, list->af(), rule)) {
      reuseRule(rule, list->af());
      continue;
    }
    auto changed = Mox::makePtr<GenSetIpRule>(rule.name());
    buildRule(config, list->af(), *changed);
    // Replaced and not edited, because the expander tells by the object whether a rule has changed.
    list->genSetIpRuleReplace(std::move(changed));
  }
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
  filter.forEachRangeColl([&](RangeSetType type, auto const& ranges) {
    if (!ranges.empty()) rule.rangeIs(type, buildRangeSet(type, ranges));
  });
  rule.matchTcpInitIs(filter.matchTcpInit());
  rule.matchTcpEstablishedIs(filter.matchTcpEstablished());
  uncountPair(prefixComboType(af), rule);
  uncountPair(ComboLabelSetType::srcDstL4Port, rule);
}

void AggregatorSm::countUses() {
  GenSetUsageInfo& usage = *aggStatus_->genSetUsageInfo();
  auto const publish = [&](GenSetKey key, uint32_t uses) {
    // The pairs have been taken off before, so a count may have passed below zero meanwhile. The arithmetic
    // wraps, and the sum is right.
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
  // A rule that matches both sides through one label does not use the pairs of either side, and must not
  // make them look expensive.
  if (!pair.src() || !pair.dst() || !hwCapability_->comboEnabled(type)) return;
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

  GenSetKey const setKey = genSetKeyGen_->newKey();
  auto const set = deduper.prefixAggInfo()->prefixSetCollIs(setKey);
  // Host bits are cleared here: the trie holds prefixes without them, and two prefixes that differ in them
  // alone are one node.
  set->prefixIs(masked(list->addr()));
  set->exceptPrefixIs(masked(list->exceptAddr()));
  auto const record = prefixListDedupFactory(list);
  record->prefixSetIs(set);
  set->prefixListIs(record->prefixList());
  // There may be an older record of the content, if it was marked before it had a set.
  if (!deduper.addDeduped(record))
    Mox::dynamicPtrCast<PrefixListDedup>(deduper.addObj(record))->prefixSetIs(set);
  if (auto line = trace(6))
    line << "AggregatorSm(" << chipId() << ")::doBuildPrefixSet"
         << " Creating prefixSet, "
         << " prefixXformKey:" << key << ", set key:" << setKey << set->stringValue();
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

std::vector<Mox::Ptr<GenSetIpRule>> AggregatorSm::rulesOf(AclWalk const& walk) const {
  auto const list = aggStatus_->aclGenSetIpRuleList(walk.acl().name());
  MOX_ASSERT(list);
  std::vector<Mox::Ptr<GenSetIpRule>> rules;
  rules.reserve(walk.named().size());
  // Mostly they stand in the same order, but a list may be older than the order of the names.
  auto next = list->genSetIpRule().begin();
  for (RuleConfig const* config : walk.named()) {
    bool const inOrder = next != list->genSetIpRule().end() && (*next)->name() == config->name();
    rules.push_back(inOrder ? *next++ : list->genSetIpRule(config->name()));
    MOX_ASSERT(rules.back());
  }
  return rules;
}

void AggregatorSm::buildRuleById(AclWalk const& walk,
                                 std::vector<Mox::Ptr<GenSetIpRule>> const& rules) {
  auto const list = aggStatus_->aclGenSetIpRuleList(walk.acl().name());
  for (AclWalk::Indexed const& i : walk.indexed()) {
    MOX_ASSERT(i.place < rules.size());
    list->genSetIpRuleByIdIs(i.index, rules[i.place]);
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
