/// How few changed rules are brought up to date: the sets, counts and rules of all others stand.

#include "naxel/genset/AclCheck.h"
#include "naxel/genset/NaxelAggregatorSm.h"

#include <algorithm>

namespace Naxel {

namespace {

/// So many rules that have changed are brought up to date one by one.
constexpr size_t mostEdits = 64;

}  // namespace

std::optional<std::vector<AggregatorSm::Edit>> AggregatorSm::fewEdits(Walks const& walks) const {
  if (brokenOff_ || builtCombos_ != enabledCombos() || walks.size() != built_.size())
    return std::nullopt;
  std::vector<Edit> edits;
  for (size_t w = 0; w < walks.size(); ++w) {
    AclWalk const& walk = walks[w];
    Built const* const built = built_.get(walk.acl().name());
    if (!built || built->acl != walk.acl().stamp() || built->list->af() != aclFamily(walk.acl()))
      return std::nullopt;
    for (size_t place = 0; place < walk.stamps().size(); ++place) {
      if (walk.stamps()[place] == built->stamps[place]) continue;
      if (edits.size() == mostEdits) return std::nullopt;
      edits.push_back({w, place});
    }
  }
  return edits;
}

template <class F>
void AggregatorSm::forEachSet(GenSetIpRule const& rule, Lumox::AddressFamily af, F f) {
  if (rule.source()) f(prefixDeduper(PrefixXformKey(af, true)), rule.source());
  if (rule.destination()) f(prefixDeduper(PrefixXformKey(af, false)), rule.destination());
  for (RangeSetType type : allRangeSetTypes())
    if (GenSetKey const key = rule.range(type)) f(rangeDeduper(type), key);
}

void AggregatorSm::countRule(GenSetIpRule const& rule, Lumox::AddressFamily af, int32_t by) {
  GenSetUsageInfo& usage = *aggStatus_->genSetUsageInfo();
  // The arithmetic wraps, and the sum is right.
  auto const count = [&](GenSetKey key, int32_t n) {
    usage.refCountIs(key).valueInc(static_cast<uint32_t>(n));
  };
  forEachSet(rule, af, [&](auto&, GenSetKey key) { count(key, by); });
  for (ComboLabelSetType type : {prefixComboType(af), ComboLabelSetType::srcDstL4Port}) {
    GenSetKeyPair const pair = rule.comboPair(type);
    if (!pair.src() || !pair.dst() || !hwCapability_->comboEnabled(type)) continue;
    count(pair.src(), -by);
    count(pair.dst(), -by);
  }
}

Mox::Ptr<GenSetIpRule> AggregatorSm::editedRule(RuleConfig const& config, Lumox::AddressFamily af,
                                                GenSetIpRule const& before) {
  static RuleFilter const none;
  RuleFilter const& filter = config.ruleFilter() ? *config.ruleFilter() : none;
  auto rule = Mox::makePtr<GenSetIpRule>(before.name());
  rule->actionIs(config.action());
  rule->matchTcpInitIs(filter.matchTcpInit());
  rule->matchTcpEstablishedIs(filter.matchTcpEstablished());
  auto const prefixSet = [&](Mox::Ptr<IpPrefixList> const& list, PrefixXformKey const& key,
                             GenSetKey set) {
    if (!list) return GenSetKey();
    PrefixDedupMarkAndSweeper& deduper = prefixDeduper(key);
    if (saysTheSame(list.get(), key, set)) {
      deduper.remark(set, 1);
      return set;
    }
    deduper.reopen();
    return doBuildPrefixSet(key, list);
  };
  rule->sourceIs(prefixSet(filter.source(), PrefixXformKey(af, true), before.source()));
  rule->destinationIs(
      prefixSet(filter.destination(), PrefixXformKey(af, false), before.destination()));
  filter.forEachRangeColl([&](RangeSetType type, auto const& ranges) {
    if (ranges.empty()) return;
    if (saysTheSame(ranges, type, before.range(type))) {
      rangeDeduper(type).remark(before.range(type), 1);
      genSetKeyGen_->newKey();  // as if a set had been built and found to be known
      rule->rangeIs(type, before.range(type));
      return;
    }
    rangeDeduper(type).reopen();
    rule->rangeIs(type, buildRangeSet(type, ranges));
  });
  return rule;
}

void AggregatorSm::applyEdits(Walks& walks, std::vector<Edit> const& edits) {
  dumpAllPrefixListsInRules();
  dumpAllFieldSetsInRules();
  prefixDedupers_ = {};
  rangeDedupers_ = {};
  GenSetUsageInfo& usage = *aggStatus_->genSetUsageInfo();
  // Also the sets of rules that have not changed take keys as if they had been built; what has changed takes its
  // own below.
  uint64_t keys = 0;
  for (auto const& [type, deduper] : rangeDeduper_)
    deduper->forEachUse([&](GenSetKey, uint32_t uses) { keys += uses; });
  for (auto const& [w, place] : edits)
    for (RangeSetType type : allRangeSetTypes())
      keys -= bool{built_.get(walks[w].acl().name())->rules[place]->range(type)};
  genSetKeyGen_->genKeyInc(keys);
  Mox::HashSet<DedupMarkAndSweeper const*> touched;
  std::vector<std::vector<uint32_t>> replaced(walks.size());
  for (auto const& [w, place] : edits) {
    Built& built = *built_.get(walks[w].acl().name());
    Lumox::AddressFamily const af = built.list->af();
    Mox::Ptr<GenSetIpRule> const before = built.rules[place];
    RuleConfig const& config = *walks[w].named()[place];
    if (saysTheSame(config, af, *before)) {
      for (RangeSetType type : allRangeSetTypes())
        if (before->range(type)) genSetKeyGen_->newKey();
      continue;
    }
    auto rule = editedRule(config, af, *before);
    countRule(*before, af, -1);
    countRule(*rule, af, 1);
    forEachSet(*before, af, [&](DedupMarkAndSweeper& deduper, GenSetKey key) {
      deduper.remark(key, -1);
      touched.insert(&deduper);
    });
    forEachSet(*rule, af,
               [&](DedupMarkAndSweeper& deduper, GenSetKey) { touched.insert(&deduper); });
    built.list->genSetIpRuleReplace(rule);
    built.rules[place] = std::move(rule);
    replaced[w].push_back(static_cast<uint32_t>(place));
  }
  for (size_t w = 0; w < walks.size(); ++w) {
    if (replaced[w].empty()) continue;
    Built& built = *built_.get(walks[w].acl().name());
    // Edits of an ACL are in the order of their places.
    for (AclWalk::Indexed const& i : walks[w].indexed())
      if (std::ranges::binary_search(replaced[w], i.place))
        built.list->genSetIpRuleByIdIs(i.index, built.rules[i.place]);
    // It is the same object, and has to be published as another one.
    aggStatus_->aclGenSetIpRuleListIs(built.list);
  }
  // What nobody uses any more goes, and so do its counts.
  auto const sweep = [&](DedupMarkAndSweeper& deduper) {
    if (!touched.contains(&deduper)) return;
    deduper.forEachUse([&](GenSetKey key, uint32_t uses) {
      if (!uses) usage.refCountDel(key);
    });
    deduper.sweepUnmarked();
  };
  for (auto const& [key, deduper] : prefixDeduper_) sweep(*deduper);
  for (auto const& [type, deduper] : rangeDeduper_) sweep(*deduper);
  dumpAllPrefixSets();
  dumpAllRangeSets();
}

}  // namespace Naxel
