/// How what was built is brought up to date: the sets, counts and objects of all rules without an edit stand.

#include "naxel/genset/NaxelAggregatorSm.h"
#include "naxel/genset/RuleContent.h"

#include <algorithm>

namespace Naxel {

namespace {

bool haveSameSets(GenSetIpRule const& a, GenSetIpRule const& b) {
  return a.source() == b.source() && a.destination() == b.destination() &&
         std::ranges::all_of(allRangeSetTypes(),
                             [&](RangeSetType type) { return a.range(type) == b.range(type); });
}

constexpr auto unmark = [](DedupMarkAndSweeper& deduper, GenSetKey key) { deduper.unmarkKey(key); };

}  // namespace

template <class F>
void AggregatorSm::forEachSet(GenSetIpRule const& rule, Lumox::AddressFamily af, F f) {
  if (rule.source()) f(prefixDeduper(af, true), rule.source());
  if (rule.destination()) f(prefixDeduper(af, false), rule.destination());
  for (RangeSetType type : allRangeSetTypes())
    if (GenSetKey const key = rule.range(type)) f(rangeDeduper(type), key);
}

void AggregatorSm::applyEdits(std::vector<AclEdit>& edits) {
  spendKeys(edits);
  std::vector<Rules> made;
  made.reserve(edits.size());
  for (AclEdit const& edit : edits) made.push_back(compiled(edit));
  // Behind all that comes: a set whose last user goes while another one comes keeps its key, and the transforms
  // see no change.
  for (size_t i = 0; i < edits.size(); ++i) {
    for (size_t at = 0; at < made[i].size(); ++at) {
      auto const& before = edits[i].edits[at].before;
      if (before && haveSameSets(*before, *made[i][at])) {
        // The counts stand, and so does what later stages made of them.
        forEachSet(*before, edits[i].af, unmark);
        continue;
      }
      if (counts_) countRule(*made[i][at], edits[i].af, 1);
      if (before) release(*before, edits[i].af);
    }
    for (auto const& rule : edits[i].gone) release(*rule, edits[i].goneAf);
  }
  for (std::string const& name : goneAcls_) {
    BuiltAcl const& built = *built_.get(name);
    for (auto const& rule : built.list->genSetIpRule()) release(*rule, built.list->af());
    aggStatus_->aclGenSetIpRuleListDel(name);
    built_.erase(name);
  }
  for (size_t i = 0; i < edits.size(); ++i) publish(edits[i], made[i]);
  forEachDeduper([&](DedupMarkAndSweeper& deduper) {
    if (counts_ && deduper.hasUnused())
      deduper.forEachUse([&](GenSetKey key, uint32_t uses) {
        if (!uses) aggStatus_->genSetUsageInfo()->refCountDel(key);
      });
    deduper.settle();
  });
}

void AggregatorSm::spendKeys(std::vector<AclEdit> const& edits) {
  uint64_t keys = 0;
  for (auto const& [type, deduper] : rangeDeduper_)
    deduper->forEachUse([&](GenSetKey, uint32_t uses) { keys += uses; });
  auto const without = [&](GenSetIpRule const& rule) {
    for (RangeSetType type : allRangeSetTypes()) keys -= bool{rule.range(type)};
  };
  for (AclEdit const& edit : edits) {
    for (RuleEdit const& e : edit.edits)
      if (e.before) without(*e.before);
    for (auto const& rule : edit.gone) without(*rule);
  }
  for (std::string const& name : goneAcls_)
    for (auto const& rule : built_.get(name)->list->genSetIpRule()) without(*rule);
  genSetKeyGen_->genKeyInc(keys);
}

AggregatorSm::Rules AggregatorSm::compiled(AclEdit const& edit) {
  Rules made;
  made.reserve(edit.edits.size());
  for (RuleEdit const& e : edit.edits)
    made.push_back(compiledRule(*e.config, edit.af, e.before.get()));
  return made;
}

GenSetKey AggregatorSm::prefixSetOf(Mox::Ptr<IpPrefixList> const& list, Lumox::AddressFamily af,
                                    bool src, GenSetKey before) {
  if (!list) return GenSetKey();
  PrefixDedupMarkAndSweeper& deduper = prefixDeduper(af, src);
  // At once, without an index of all sets.
  if (before && saysTheSame(*aggStatus_, list.get(), PrefixXformKey(af, src), before)) {
    deduper.markKey(before);
    return before;
  }
  return buildPrefixSet(deduper, list);
}

template <class Ranges>
GenSetKey AggregatorSm::rangeSetOf(RangeSetType type, Ranges const& ranges, GenSetKey before) {
  if (before && saysTheSame(*aggStatus_, ranges, type, before)) {
    genSetKeyGen_->newKey();  // as if a set had been built and found to be known
    rangeDeduper(type).markKey(before);
    return before;
  }
  ranges_.clear();
  // The ends fit: the rule has been checked against the bounds of its fields.
  ranges.forEach(
      [&](auto const& r) { ranges_.insert(RangeSetElem(r.rangeStart(), r.rangeEnd())); });
  return buildRangeSet(type);
}

Mox::Ptr<GenSetIpRule> AggregatorSm::compiledRule(RuleConfig const& config, Lumox::AddressFamily af,
                                                  GenSetIpRule const* before) {
  static GenSetIpRule const nothing{std::string()};
  GenSetIpRule const& known = before ? *before : nothing;
  RuleFilter const& filter = filterOf(config);
  auto rule = Mox::makePtr<GenSetIpRule>(config.name());
  rule->actionIs(config.action());
  rule->matchTcpInitIs(filter.matchTcpInit());
  rule->matchTcpEstablishedIs(filter.matchTcpEstablished());
  rule->sourceIs(prefixSetOf(filter.source(), af, true, known.source()));
  rule->destinationIs(prefixSetOf(filter.destination(), af, false, known.destination()));
  filter.forEachRangeColl([&](RangeSetType type, auto const& ranges) {
    if (!ranges.empty()) rule->rangeIs(type, rangeSetOf(type, ranges, known.range(type)));
  });
  return rule;
}

void AggregatorSm::release(GenSetIpRule const& rule, Lumox::AddressFamily af) {
  forEachSet(rule, af, unmark);
  if (counts_) countRule(rule, af, -1);
}

void AggregatorSm::countRule(GenSetIpRule const& rule, Lumox::AddressFamily af, int32_t by) {
  GenSetUsageInfo& usage = *aggStatus_->genSetUsageInfo();
  // The arithmetic wraps, and the sum is right.
  auto const count = [&](GenSetKey key, int32_t n) {
    usage.refCountIs(key).valueInc(static_cast<uint32_t>(n));
  };
  forEachSet(rule, af, [&](DedupMarkAndSweeper const&, GenSetKey key) { count(key, by); });
  forEachPaired(rule, af, enabledCombos(), [&](GenSetKey key) { count(key, -by); });
}

void AggregatorSm::publish(AclEdit& edit, Rules const& made) {
  if (edit.arranged) return publishArranged(edit, made);
  BuiltAcl& built = *edit.built;
  AclGenSetIpRuleList& list = *built.list;
  Mox::HashMap<GenSetIpRule const*, size_t> replaced;
  for (size_t i = 0; i < made.size(); ++i) {
    RuleEdit const& e = edit.edits[i];
    // Replaced and not edited, because the expander tells by the object whether a rule has changed.
    list.genSetIpRuleReplace(e.place, made[i]);
    // Read only now: lists that were found to be equal have taken the stamp of one of them.
    built.stamps[e.place] = e.config->stamps();
    replaced.set(e.before.get(), i);
  }
  auto const& indexed = list.genSetIpRuleById();
  // Mostly one of many: the others are passed over without a search.
  GenSetIpRule const* const only = made.size() == 1 ? edit.edits[0].before.get() : nullptr;
  for (size_t at = 0; at < indexed.size(); ++at) {
    GenSetIpRule const* const rule = indexed[at].second.get();
    if (only && rule != only) continue;
    if (size_t const* const i = replaced.get(rule)) list.genSetIpRuleByIdReplace(at, made[*i]);
  }
  // It is the same object, and has to be published as another one.
  aggStatus_->aclGenSetIpRuleListIs(built.list);
}

void AggregatorSm::publishArranged(AclEdit& edit, Rules const& made) {
  AclArrangement& now = *edit.arranged;
  std::string const& name = edit.acl->name();
  for (size_t i = 0; i < made.size(); ++i) {
    RuleEdit const& e = edit.edits[i];
    now.rules[e.place] = made[i];
    now.stamps[e.place] = e.config->stamps();
  }
  auto const list =
      edit.built ? edit.built->list : Mox::makePtr<AclGenSetIpRuleList>(name, edit.af);
  AclGenSetIpRuleList::RuleByIdColl byId;
  byId.reserve(now.indexes.size());
  for (auto const& [index, place] : now.indexes) byId.set(index, now.rules[place]);
  list->genSetIpRulesAre(std::move(now.rules));
  list->genSetIpRuleByIdsAre(std::move(byId));
  aggStatus_->aclGenSetIpRuleListIs(list);
  built_.set(name, {edit.acl->stamp(), list, std::move(now.stamps)});
}

}  // namespace Naxel
