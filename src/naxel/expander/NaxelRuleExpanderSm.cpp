#include "naxel/expander/NaxelRuleExpanderSm.h"

#include "mox/Assert.h"
#include "mox/Bounded.h"
#include "naxel/genset/FieldNames.h"
#include "naxel/types/NaxelTrace.h"

#include <algorithm>
#include <bit>
#include <stdexcept>
#include <utility>

namespace Naxel {

namespace {

/// So many of the stamps are about other things than the pairs of the sets.
constexpr std::ptrdiff_t otherStamps = 2;

/// "rule 20 'web' of 'edge'".
std::string ruleText(AclGenSetIpRuleList const& acl, AceIndex index, GenSetIpRule const& rule) {
  return "rule " + std::to_string(index.value()) + " '" + rule.name() + "' of '" + acl.name() + "'";
}

// Where the sources of a field stand.
size_t placeOf(Lumox::AddressFamily af, bool src) {
  return (af == Lumox::ipv4() ? 0u : 2u) + (src ? 0u : 1u);
}
size_t placeOf(RangeSetType type) { return 4 + static_cast<size_t>(type); }
size_t placeOf(ComboLabelSetType type) { return 4 + rangeFieldCount + static_cast<size_t>(type); }

}  // namespace

RuleExpanderSm::RuleExpanderSm(Obel::ChipId chipId, Mox::Ptr<RuleExpanderConfig> config,
                               Mox::Ptr<RuleExpanderStatus> status,
                               Mox::Ptr<Acl::ParamConfig const> paramConfig)
    : StageSm(chipId, std::move(config), status),
      paramConfig_(std::move(paramConfig)),
      ruleExStatus_(std::move(status)) {}

void RuleExpanderSm::doStartKick() {
  if (auto line = trace(8)) line << "RuleExpanderSm(" << chipId() << ")::doStartKick";
  if (prepare_) prepare_();
  doBuildExpandedRules();
  doSetStatus(StageStatusType::finishedSuccess);
}

uint64_t RuleExpanderSm::entryLimit() const {
  return paramConfig_ ? paramConfig_->entryLimit() : Acl::ParamConfig::defaultEntryLimit;
}

std::vector<Mox::Stamp> RuleExpanderSm::inputStamps() const {
  RuleExpanderConfig const& config = ruleExConfig();
  // The limit is no stamp, but a lower one has to have the same entries counted again.
  std::vector<Mox::Stamp> all = {config.aggregatorStatus()->stamp(), entryLimit()};
  auto const add = [&](EncoderStatus const& encoder, XformStatus const& xform) {
    // What the transform answers decides whether a set without pairs covers nothing or is a fault, so it is
    // part of the input as well.
    all.insert(all.end(), {encoder.stamp(), xform.stamp(), xform.answersForSets()});
  };
  for (PrefixXformKey const& key : PrefixXformKey::all())
    add(*config.prefixEncoderStatus(key), *config.prefixXformStatus(key));
  for (RangeSetType type : allRangeSetTypes())
    add(*config.rangeEncoderStatus(type), *config.rangeSplitStatus(type));
  for (ComboLabelSetType type : allComboLabelSetTypes()) {
    add(*config.comboLabelEncoderStatus(type), *config.comboLabelSplitStatus(type));
    all.push_back(config.comboLabelInfo(type)->stamp());
  }
  return all;
}

void RuleExpanderSm::bindSources() {
  RuleExpanderConfig const& config = ruleExConfig();
  sources_.clear();
  comboInfos_.clear();
  for (Lumox::AddressFamily const af : {Lumox::ipv4(), Lumox::ipv6()})
    for (bool const src : {true, false}) {
      PrefixXformKey const key(af, src);
      sources_.emplace_back(
          src ? TcamFieldType::tcamFieldTypeSrcIp : TcamFieldType::tcamFieldTypeDstIp,
          *config.prefixEncoderStatus(key), *config.prefixXformStatus(key));
    }
  for (RangeSetType type : allRangeSetTypes())
    sources_.emplace_back(rangeField(type).tcamField, *config.rangeEncoderStatus(type),
                          *config.rangeSplitStatus(type));
  for (ComboLabelSetType type : allComboLabelSetTypes()) {
    comboInfos_.push_back(config.comboLabelInfo(type).get());
    sources_.emplace_back(
        type == ComboLabelSetType::srcDstL4Port ? TcamFieldType::tcamFieldTypeSrcDstPort
                                                : TcamFieldType::tcamFieldTypeSrcDstIp,
        *config.comboLabelEncoderStatus(type), *config.comboLabelSplitStatus(type));
  }
}

void RuleExpanderSm::doBuildExpandedRules() {
  dumpRuleExpanderConfig();
  std::vector<Mox::Stamp> stamps = inputStamps();
  if (builtFrom_ != stamps) {
    bool const sameLabels =
        !builtFrom_.empty() &&
        std::equal(stamps.begin() + otherStamps, stamps.end(), builtFrom_.begin() + otherStamps);
    update(sameLabels);
    builtFrom_ = std::move(stamps);
  }
  dumpRuleExpanderStatus();
}

void RuleExpanderSm::update(bool sameLabels) {
  bindSources();
  std::vector<Mox::Stamp> comboStamps;
  for (ComboLabelInfo const* info : comboInfos_) comboStamps.push_back(info->stamp());
  renumbered_.reset();
  if (sameLabels) {
    for (size_t i = 1; i < sources_.size(); ++i) sources_[i].firstIs(lists_.ends[i - 1]);
  } else {
    now_ = publishedLists(sources_);
    if (!builtFrom_.empty() && comboStamps == comboStamps_) renumbered_ = renumbered(lists_, now_);
  }
  current_ = sameLabels ? &lists_ : &now_;
  std::vector<Plan> plans;
  plans.reserve(ruleExConfig().aggregatorStatus()->aclGenSetIpRuleList().size());
  for (auto const& [name, list] : ruleExConfig().aggregatorStatus()->aclGenSetIpRuleList())
    plans.push_back(planOf(*list));
  // All rules of all ACLs are counted before any entry is made: the product of crossing lists can exceed
  // any memory.
  checkEntries(plans);
  for (Plan& plan : plans) makeAcl(plan);
  for (Plan const& plan : plans) {
    ruleExStatus_->ruleExpanderLoaderInfo()->pdAclIs(plan.key);
    builtRecipes_.at(plan.key);
  }
  deleteGoneAcls();
  // Nothing below fails: output, recipes and lists belong together.
  for (Plan& plan : plans) adopt(plan);
  if (!sameLabels) lists_ = std::exchange(now_, {});
  comboStamps_ = std::move(comboStamps);
  sources_.clear();
}

std::vector<uint32_t> RuleExpanderSm::goneFactors(RuleRecipes const& known) const {
  std::vector<uint32_t> gone;
  if (!renumbered_ || std::ranges::find(*renumbered_, PairLists::none) == renumbered_->end())
    return gone;
  std::span<RuleFactor const> const to(*renumbered_);
  std::span<RuleFactor const> const factors(known.factors);
  for (uint32_t i = 0; i < factors.size(); ++i)
    if (to[factors[i]] == PairLists::none) gone.push_back(i);
  return gone;
}

RuleExpanderSm::Costs RuleExpanderSm::costs() {
  bindSources();
  renumbered_.reset();
  now_ = publishedLists(sources_);
  current_ = &now_;
  Costs costs;
  for (auto const& [name, list] : ruleExConfig().aggregatorStatus()->aclGenSetIpRuleList())
    costs.acls_.emplace_back(list->af(), planOf(*list).rules.fresh);
  costs.lists_ = std::exchange(now_, {});
  sources_.clear();
  return costs;
}

uint64_t RuleExpanderSm::Costs::entries(std::array<FieldCodes, 2> const& codes) const {
  uint64_t all = 0;
  for (auto const& [af, recipes] : acls_)
    for (size_t place = 0; place < recipes.rules.size(); ++place)
      all = Mox::boundedSum(all, recipes.entriesOf(place, lists_, codes[af == Lumox::ipv6()]));
  return all;
}

void RuleExpanderSm::deleteGoneAcls() {
  PDAclColl& out = *ruleExStatus_->ruleExpanderLoaderInfo();
  std::vector<PDAclKey> gone;
  for (auto const& [key, acl] : out.pdAcl()) {
    auto const list = ruleExConfig().aggregatorStatus()->aclGenSetIpRuleList(key.aclName());
    // An ACL that has changed its family stands under another key now. The old one would stay in the chip
    // for ever, over labels that mean something else.
    if (!list || list->af() != key.af()) gone.push_back(key);
  }
  for (PDAclKey const& key : gone) {
    out.pdAclDel(key);
    builtRecipes_.erase(key);
  }
}

PDAclRuleColl::RuleColl const& RuleExpanderSm::rulesOf(PDAclKey const& key) const {
  static PDAclRuleColl::RuleColl const none;
  auto const* const acl = ruleExStatus_->ruleExpanderLoaderInfo()->pdAcl().get(key);
  return acl ? (*acl)->rule() : none;
}

RuleExpanderSm::Plan RuleExpanderSm::planOf(AclGenSetIpRuleList const& list) {
  Lumox::AddressFamily const af = list.af();
  MOX_ASSERT_TEXT(af == Lumox::ipv4() || af == Lumox::ipv6(),
                  "af == Lumox::ipv4() || af == Lumox::ipv6()");
  Plan plan{PDAclKey(af, list.name()), &list, {}, nullptr, {}, false};
  auto const& rules = list.genSetIpRuleById();
  auto const& before = rulesOf(plan.key);
  RuleRecipes const* const known = builtRecipes_.get(plan.key);
  // Rules and recipes of an ACL are always written together, so the same places belong together.
  MOX_ASSERT(before.size() == (known ? known->rules.size() : 0));
  recipes_ = RuleRecipes();
  bool const same = current_ == &lists_;
  std::vector<uint32_t> const gone = known ? goneFactors(*known) : std::vector<uint32_t>();
  auto nextGone = gone.begin();
  // Whether the rule of a recipe has the entries that it had, if it is the same object; asked in the order of places.
  auto const stands = [&](size_t at) {
    if (same) return true;
    // What covered nothing may cover something now.
    if (!renumbered_ || known->rules[at].matchesNothing) return false;
    uint32_t const begin = at == 0 ? 0 : known->rules[at - 1].factorsEnd;
    while (nextGone != gone.end() && *nextGone < begin) ++nextGone;
    return nextGone == gone.end() || *nextGone >= known->rules[at].factorsEnd;
  };
  size_t old = 0;  // both are walked in the order of the indexes
  for (size_t place = 0; place < rules.size();) {
    // Rules are replaced when they change, and mostly stand where they stood.
    size_t kept = 0;
    if (size_t const most = std::min(rules.size() - place, before.size() - old)) {
      auto const* const was = &before[old];
      auto const* const now = &rules[place];
      RuleRecipe const* const recipe = &known->rules[old];
      while (kept < most && now[kept].first == was[kept].first &&
             now[kept].second == recipe[kept].rule && stands(old + kept))
        ++kept;
    }
    if (kept) plan.rules.keep(old, kept);
    old += kept;
    place += kept;
    if (place == rules.size()) break;
    auto const& [index, rule] = rules[place];
    while (old < before.size() && before[old].first < index) ++old;
    bool const replaces = old < before.size() && before[old].first == index;
    if (replaces && rule == known->rules[old].rule && stands(old)) continue;
    if (recipes_.rules.empty() && old == 0) recipes_.reserve(rules.size(), 4 * rules.size());
    plan.rules.add(replaces ? old++ : RulePlan::none);
    ++place;
    try {
      gatherFactors(rule, af);
    } catch (std::logic_error const& e) {
      throw std::logic_error(ruleText(list, index, *rule) + ": " + e.what());
    }
  }
  plan.rules.fresh = std::move(recipes_);
  return plan;
}

uint64_t RuleExpanderSm::entriesKept(Plan const& plan) const {
  auto const& before = rulesOf(plan.key);
  if (before.empty()) return 0;
  uint64_t kept = (*ruleExStatus_->ruleExpanderLoaderInfo()->pdAcl().get(plan.key))->numFilters();
  // Those that go are few, or they are all.
  size_t old = 0;
  auto const goUpTo = [&](size_t end) {
    for (; old < end; ++old) kept -= before[old].second->filters();
  };
  for (RulePlan::Run const& run : plan.rules.runs)
    if (run.old != RulePlan::none) {
      goUpTo(run.old);
      old += run.rules;
    }
  goUpTo(before.size());
  return kept;
}

void RuleExpanderSm::checkEntries(std::vector<Plan> const& plans) const {
  uint64_t all = 0;
  bool tooMany = false;
  for (Plan const& plan : plans) {
    all = Mox::boundedSum(all, entriesKept(plan));
    for (size_t i = 0; i < plan.rules.fresh.rules.size(); ++i) {
      uint64_t const entries = plan.rules.fresh.entriesOf(i, *current_);
      tooMany |= entries >= RuleFilterQueue::indexSpace;
      // It stays at the largest number: a sum that wraps would let an absurd configuration through.
      all = Mox::boundedSum(all, entries);
    }
  }
  if (tooMany || all > entryLimit()) throwTooMany(plans, all);
}

void RuleExpanderSm::throwTooMany(std::vector<Plan> const& plans, uint64_t all) const {
  struct Costly {
    uint64_t entries;
    AclGenSetIpRuleList const* acl;
    size_t place;
  };
  std::vector<Costly> costliest;  // descending
  constexpr size_t shown = 3;
  auto const consider = [&](uint64_t entries, Plan const& plan, size_t place) {
    auto const at =
        std::ranges::find_if(costliest, [&](Costly const& c) { return c.entries < entries; });
    costliest.insert(at, {entries, plan.list, place});
    if (costliest.size() > shown) costliest.pop_back();
  };
  for (Plan const& plan : plans) {
    size_t place = 0;
    size_t fresh = 0;
    for (RulePlan::Run const& run : plan.rules.runs)
      for (size_t i = 0; i < run.rules; ++i)
        consider(run.old == RulePlan::none ? plan.rules.fresh.entriesOf(fresh++, *current_)
                                           : rulesOf(plan.key)[run.old + i].second->filters(),
                 plan, place++);
  }
  std::string text = "at least ";
  char const* separator = "";
  for (Costly const& c : costliest) {
    auto const& [index, rule] = c.acl->genSetIpRuleById()[c.place];
    text += separator + Mox::withCommas(c.entries) +
            (*separator ? " for " : " entries needed for ") + ruleText(*c.acl, index, *rule);
    separator = ", ";
  }
  text += "; " + Mox::withCommas(all) + " in all, at most " +
          Mox::withCommas(std::min(entryLimit(), RuleFilterQueue::indexSpace - 1)) + " are made";
  throw std::length_error(text);
}

void RuleExpanderSm::makeAcl(Plan& plan) {
  auto const& before = rulesOf(plan.key);
  if (plan.rules.keepsAll(before.size())) return;
  auto const& wanted = plan.list->genSetIpRuleById();
  std::vector<PDAclRuleColl::RuleColl::value_type> rules;
  rules.reserve(wanted.size());
  uint64_t filters = entriesKept(plan);
  size_t fresh = 0;
  for (RulePlan::Run const& run : plan.rules.runs) {
    if (run.old != RulePlan::none) {
      auto const from = before.begin() + run.old;
      rules.insert(rules.end(), from, from + run.rules);
      continue;
    }
    for (uint32_t i = 0; i < run.rules; ++i) {
      auto const& [index, rule] = wanted[rules.size()];
      rules.emplace_back(index, madeRule(plan, index, fresh++));
      filters += rules.back().second->filters();
      if (auto line = trace(6))
        line << "RuleExpanderSm(" << chipId() << ")::doBuildExpandedRules"
             << " policy: " << rule->name() << " resulted in " << rules.back().second->filters()
             << " tcam entries";
    }
  }
  PDAclRuleColl::RuleColl all;
  all.adopt(std::move(rules));
  auto next = Mox::makePtr<PDAclRuleColl>(plan.key);
  next->ruleIs(std::move(all), filters);
  plan.next = std::move(next);
  RuleRecipes const* const known = builtRecipes_.get(plan.key);
  plan.replacesOnly = known && plan.rules.replacesOnly(*known);
  if (plan.replacesOnly) return;
  plan.recipes.reserve(wanted.size(),
                       plan.rules.fresh.factors.size() + (known ? known->factors.size() : 0));
}

Mox::Ptr<PDAclRule const> RuleExpanderSm::madeRule(Plan const& plan, AceIndex index, size_t fresh) {
  RuleRecipes const& recipes = plan.rules.fresh;
  NaxelActionValue const& action = recipes.rules[fresh].rule->action();
  // The object is kept where nothing about it has changed: a driver tells by the pointer that it need not
  // write the rule again.
  if (uint32_t const place = plan.rules.before[fresh]; place != RulePlan::none) {
    auto const& before = rulesOf(plan.key)[place].second;
    if (before->action() == action &&
        makeTheSame(recipes, fresh, *current_, *builtRecipes_.get(plan.key), place, lists_))
      return before;
  }
  return expandRule(index, action, recipes, fresh);
}

void RuleExpanderSm::adopt(Plan& plan) noexcept {
  RuleRecipes& known = *builtRecipes_.get(plan.key);
  std::vector<RuleFactor> const* const to = renumbered_ ? &*renumbered_ : nullptr;
  if (!plan.next) {
    if (to) known.renumber(*to);
    return;
  }
  size_t fresh = 0;
  if (plan.replacesOnly) {
    if (to) known.renumber(*to);
    for (; fresh < plan.rules.before.size(); ++fresh)
      known.replace(plan.rules.before[fresh], plan.rules.fresh, fresh);
    ruleExStatus_->ruleExpanderLoaderInfo()->pdAclIs(plan.key, std::move(plan.next));
    return;
  }
  for (RulePlan::Run const& run : plan.rules.runs)
    if (run.old != RulePlan::none) {
      plan.recipes.take(known, run.old, run.rules, to);
    } else {
      plan.recipes.take(plan.rules.fresh, fresh, run.rules, nullptr);
      fresh += run.rules;
    }
  known = std::move(plan.recipes);
  ruleExStatus_->ruleExpanderLoaderInfo()->pdAclIs(plan.key, std::move(plan.next));
}

void RuleExpanderSm::gatherFactors(Mox::Ptr<GenSetIpRule const> which, Lumox::AddressFamily af) {
  GenSetIpRule const& rule = *which;
  recipe_ = RuleRecipe();
  recipe_.rule = std::move(which);
  recipe_.tcpInit = rule.matchTcpInit();
  recipe_.tcpEstablished = rule.matchTcpEstablished();
  buildSrcDstIpField(rule.source(), rule.destination(), af);
  buildSrcDstL4PortField(rule.sport(), rule.dport());
  for (RangeSetType type : allRangeSetTypes())
    if (type != RangeSetType::srcPort && type != RangeSetType::dstPort)
      addFactor(sources_[placeOf(type)], rule.range(type));
  recipe_.factorsEnd = static_cast<uint32_t>(recipes_.factors.size());
  recipes_.rules.push_back(std::move(recipe_));
}

void RuleExpanderSm::addFactor(PairSource& source, GenSetKey key) {
  if (!key || recipe_.matchesNothing) return;
  RuleFactor const factor = source.of(key);
  if (factor != PairLists::none) {
    recipes_.factors.push_back(factor);
    recipe_.fields =
        static_cast<uint16_t>(recipe_.fields | 1u << static_cast<unsigned>(source.field()));
    return;
  }
  // A set without pairs covers nothing if its transform has looked at it and found no piece. In any other
  // case something is missing, and to leave the field out would have the rule match everything.
  if (!source.xform().answersForSets() || source.xform().plainLabelListMap()->plainLabelList(key))
    throw std::logic_error(fieldName(source.field()) +
                           " is matched by labels on this chip, and there are none for its set");
  recipe_.matchesNothing = true;
}

bool RuleExpanderSm::addCombo(ComboLabelSetType type, GenSetKey src, GenSetKey dst) {
  GenSetKey const combo =
      comboInfos_[static_cast<size_t>(type)]->srcDstToComboMap(GenSetKeyPair(src, dst));
  if (!combo) return false;
  if (auto line = trace(8))
    line << "RuleExpanderSm(" << chipId() << ")::buildCombo"
         << " comboGenSetKey:" << combo;
  addFactor(sources_[placeOf(type)], combo);
  return true;
}

void RuleExpanderSm::buildSrcDstIpField(GenSetKey source, GenSetKey destination,
                                        Lumox::AddressFamily af) {
  if (source && destination && addCombo(prefixComboType(af), source, destination)) return;
  addFactor(sources_[placeOf(af, true)], source);
  addFactor(sources_[placeOf(af, false)], destination);
}

void RuleExpanderSm::buildSrcDstL4PortField(GenSetKey sport, GenSetKey dport) {
  if (sport && dport && addCombo(ComboLabelSetType::srcDstL4Port, sport, dport)) return;
  addFactor(sources_[placeOf(RangeSetType::srcPort)], sport);
  addFactor(sources_[placeOf(RangeSetType::dstPort)], dport);
}

Mox::Ptr<PDAclRule> RuleExpanderSm::expandRule(AceIndex index, NaxelActionValue const& action,
                                               RuleRecipes const& recipes, size_t place) {
  auto out = Mox::makePtr<PDAclRule>(index);
  out->actionIs(action);
  RuleRecipe const& recipe = recipes.rules[place];
  if (recipe.matchesNothing) return out;
  PDAclFilter first;
  first.matchTcpInitIs(recipe.tcpInit);
  first.matchTcpEstablishedIs(recipe.tcpEstablished);
  // The factors of a rule are gathered in ascending order of their fields, so the lowest bit belongs to the next
  // one.
  auto const forEachField = [&](auto f) {
    unsigned fields = recipe.fields;
    for (RuleFactor factor : recipes.factorsOf(place)) {
      f(static_cast<TcamFieldType>(std::countr_zero(fields)), *current_->lists[factor]);
      fields &= fields - 1;
    }
  };
  // Most fields have one pair, which all entries have in common.
  bool multiplies = false;
  forEachField([&](TcamFieldType field, EncodedLabelWithMaskList const& list) {
    auto const& pairs = list.encLabelAndMask();
    if (pairs.size() == 1)
      first.labelFieldIs(field, pairs.front());
    else
      multiplies = true;
  });
  if (!multiplies) {
    out->filterIs(first);
    return out;
  }
  ruleFilter_.delAll();
  ruleFilter_.enq(first);
  forEachField([&](TcamFieldType field, EncodedLabelWithMaskList const& list) {
    // A list without pairs empties the queue, and the rule then has no entries.
    if (list.encLabelAndMask().size() != 1 && !ruleFilter_.empty()) buildTcamEntry(field, list);
  });
  out->filterIs(ruleFilter_.items());
  return out;
}

void RuleExpanderSm::buildTcamEntry(TcamFieldType fieldType,
                                    EncodedLabelWithMaskList const& encLabelList) {
  if (auto line = trace(8))
    line << "RuleExpanderSm(" << chipId() << ")::buildTcamEntry"
         << ", fieldType:" << fieldType;
  MOX_ASSERT_TEXT(!ruleFilter_.empty(), "ruleFilters()");
  multiply(ruleFilter_, fieldType, encLabelList);
}

void RuleExpanderSm::dumpRuleExpanderConfig() const {
  if (!naxelTrace().on(9)) return;
  for (auto const& [name, list] : ruleExConfig().aggregatorStatus()->aclGenSetIpRuleList())
    for (auto const& [index, rule] : list->genSetIpRuleById())
      for (Mox::Attribute const& a : rule->attributeTable())
        if (auto line = trace(9))
          line << name << " " << index << " " << a.name << ": " << a.text(*rule);
}

void RuleExpanderSm::dumpRuleExpanderStatus() const {
  if (!naxelTrace().on(9)) return;
  for (auto const& [key, acl] : ruleExStatus_->ruleExpanderLoaderInfo()->pdAcl())
    for (auto const& [index, rule] : acl->rule())
      for (PDAclFilter const& filter : rule->filter())
        if (auto line = trace(9)) line << key << " " << index << " " << filter;
}

Mox::Ptr<RuleExpanderSm> ruleExpanderSmFactory(Obel::ChipId chipId,
                                               Mox::Ptr<RuleExpanderConfig> config,
                                               Mox::Ptr<RuleExpanderStatus> status,
                                               Mox::Ptr<Acl::ParamConfig const> paramConfig) {
  return Mox::makePtr<RuleExpanderSm>(chipId, std::move(config), std::move(status),
                                      std::move(paramConfig));
}

}  // namespace Naxel
