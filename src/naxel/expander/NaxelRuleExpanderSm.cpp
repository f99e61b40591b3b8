#include "naxel/expander/NaxelRuleExpanderSm.h"

#include "mox/Assert.h"
#include "mox/Bounded.h"
#include "naxel/genset/FieldNames.h"
#include "naxel/types/NaxelTrace.h"

#include <algorithm>
#include <bit>
#include <limits>
#include <stdexcept>

namespace Naxel {

namespace {

/// So many of the stamps are about other things than the pairs of the sets.
constexpr std::ptrdiff_t otherStamps = 2;

/// "rule 20 'web' of 'edge'".
std::string ruleText(AclGenSetIpRuleList const& acl, AceIndex index, GenSetIpRule const& rule) {
  return "rule " + std::to_string(index.value()) + " '" + rule.name() + "' of '" + acl.name() + "'";
}

size_t placeOf(Lumox::AddressFamily af, bool src) {
  return (af == Lumox::ipv4() ? 0u : 2u) + (src ? 0u : 1u);
}

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
  auto const source = [](TcamFieldType field, EncoderStatus const& encoder,
                         XformStatus const& xform) {
    return Source{field, &encoder, &xform, KeyPlaces(keysOf(encoder.encodedLabelList()))};
  };
  RuleExpanderConfig const& config = ruleExConfig();
  prefixSources_.clear();
  for (Lumox::AddressFamily const af : {Lumox::ipv4(), Lumox::ipv6()})
    for (bool const src : {true, false}) {
      PrefixXformKey const key(af, src);
      prefixSources_.push_back(
          source(src ? TcamFieldType::tcamFieldTypeSrcIp : TcamFieldType::tcamFieldTypeDstIp,
                 *config.prefixEncoderStatus(key), *config.prefixXformStatus(key)));
    }
  rangeSources_.clear();
  for (RangeSetType type : allRangeSetTypes())
    rangeSources_.push_back(source(rangeField(type).tcamField, *config.rangeEncoderStatus(type),
                                   *config.rangeSplitStatus(type)));
  comboSources_.clear();
  comboInfos_.clear();
  for (ComboLabelSetType type : allComboLabelSetTypes()) {
    comboInfos_.push_back(config.comboLabelInfo(type).get());
    comboSources_.push_back(
        source(type == ComboLabelSetType::srcDstL4Port ? TcamFieldType::tcamFieldTypeSrcDstPort
                                                       : TcamFieldType::tcamFieldTypeSrcDstIp,
               *config.comboLabelEncoderStatus(type), *config.comboLabelSplitStatus(type)));
  }
}

void RuleExpanderSm::doBuildExpandedRules() {
  dumpRuleExpanderConfig();
  std::vector<Mox::Stamp> stamps = inputStamps();
  if (builtFrom_ != stamps) {
    bool const sameLabels =
        !builtFrom_.empty() &&
        std::equal(stamps.begin() + otherStamps, stamps.end(), builtFrom_.begin() + otherStamps);
    // Nothing counts as built until all of it is: an exception below leaves some ACLs of the last run and
    // some of this one.
    bool const built = !builtFrom_.empty();
    builtFrom_.clear();
    bindSources();
    goneLists_.reset();
    std::vector<Mox::Stamp> comboStamps;
    for (ComboLabelInfo const* info : comboInfos_) comboStamps.push_back(info->stamp());
    if (built && !sameLabels && comboStamps == comboStamps_) goneLists_ = goneLists();
    deleteGoneAcls();
    std::vector<Plan> plans;
    for (auto const& [name, list] : ruleExConfig().aggregatorStatus()->aclGenSetIpRuleList())
      plans.push_back(planOf(*list, sameLabels));
    // All rules of all ACLs are counted before any entry is made: the product of crossing lists can exceed
    // any memory.
    checkEntries(plans);
    // Old and new recipes stand side by side until the last of the old ones is gone.
    size_t const oldLists = lists_.size();
    if (!sameLabels) {
      listEnds_.clear();
      for (auto const* sources : {&prefixSources_, &rangeSources_, &comboSources_})
        for (Source const& source : *sources) {
          for (auto const& [key, list] : source.encoder->encodedLabelList()) lists_.push_back(list);
          listEnds_.push_back(lists_.size() - oldLists);
        }
      comboStamps_ = std::move(comboStamps);
    }
    // They refer to what the encoders have published by plain pointers, which the next run of an encoder
    // ends.
    for (auto* sources : {&prefixSources_, &rangeSources_, &comboSources_}) sources->clear();
    for (Plan& plan : plans) buildAcl(std::move(plan));
    if (!sameLabels)
      lists_.erase(lists_.begin(), lists_.begin() + static_cast<std::ptrdiff_t>(oldLists));
    builtFrom_ = std::move(stamps);
  }
  dumpRuleExpanderStatus();
}

std::vector<RuleFactor> RuleExpanderSm::goneLists() const {
  std::vector<RuleFactor> gone;
  size_t old = 0;
  auto end = listEnds_.begin();
  for (auto const* sources : {&prefixSources_, &rangeSources_, &comboSources_})
    for (Source const& source : *sources) {
      auto now = source.encoder->encodedLabelList().begin();
      auto const last = source.encoder->encodedLabelList().end();
      for (; old < *end; ++old) {
        while (now != last && now->first < lists_[old]->key()) ++now;
        if (now == last || now->second != lists_[old]) gone.push_back(lists_[old].get());
      }
      ++end;
    }
  std::ranges::sort(gone, std::less<>());
  return gone;
}

bool RuleExpanderSm::stands(Recipes const& known, size_t place) const {
  // What covered nothing may cover something now.
  if (!goneLists_ || known.rules[place].matchesNothing) return false;
  return std::ranges::none_of(known.factorsOf(place), [this](RuleFactor f) {
    return std::ranges::binary_search(*goneLists_, f, std::less<>());
  });
}

RuleExpanderSm::Costs RuleExpanderSm::costs() {
  bindSources();
  goneLists_.reset();
  Costs costs;
  for (auto const& [name, list] : ruleExConfig().aggregatorStatus()->aclGenSetIpRuleList())
    costs.acls_.emplace_back(list->af(), planOf(*list, false).recipes);
  return costs;
}

uint64_t RuleExpanderSm::Costs::entries(std::array<FieldCodes, 2> const& codes) const {
  uint64_t all = 0;
  for (auto const& [af, recipes] : acls_)
    for (size_t place = 0; place < recipes.rules.size(); ++place)
      all = Mox::boundedSum(all, recipes.entriesOf(place, codes[af == Lumox::ipv6()]));
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

RuleExpanderSm::Plan RuleExpanderSm::planOf(AclGenSetIpRuleList const& list, bool sameLabels) {
  Lumox::AddressFamily const af = list.af();
  MOX_ASSERT_TEXT(af == Lumox::ipv4() || af == Lumox::ipv6(),
                  "af == Lumox::ipv4() || af == Lumox::ipv6()");
  recipes_ = Recipes();
  recipes_.rules.reserve(list.genSetIpRuleById().size());
  Recipes const* const known =
      sameLabels || goneLists_ ? builtRecipes_.get(PDAclKey(af, list.name())) : nullptr;
  size_t place = 0;
  for (auto const& [index, rule] : list.genSetIpRuleById()) {
    // Rules are replaced when they change, and mostly stand where they stood.
    // With equal labels the same rule object has the same pairs, and its recipe is copied without a search
    // for its sets; so it is where the lists that it refers to are published as before.
    if (known && place < known->rules.size() && known->rules[place].rule == rule &&
        (sameLabels || stands(*known, place))) {
      recipes_.add(*known, place++);
      continue;
    }
    ++place;
    try {
      gatherFactors(rule, af);
    } catch (std::logic_error const& e) {
      throw std::logic_error(ruleText(list, index, *rule) + ": " + e.what());
    }
  }
  return {&list, std::move(recipes_)};
}

void RuleExpanderSm::checkEntries(std::vector<Plan> const& plans) const {
  uint64_t const limit = entryLimit();
  struct Costly {
    uint64_t entries;
    AclGenSetIpRuleList const* acl;
    size_t place;
  };
  std::vector<Costly> costliest;  // descending
  constexpr size_t shown = 3;
  uint64_t all = 0;
  for (Plan const& plan : plans)
    for (size_t place = 0; place < plan.recipes.rules.size(); ++place) {
      uint64_t const entries = plan.recipes.entriesOf(place);
      // It stays at the largest number: a sum that wraps would let an absurd configuration through.
      all = Mox::boundedSum(all, entries);
      if (costliest.size() == shown && entries <= costliest.back().entries) continue;
      auto const at =
          std::ranges::find_if(costliest, [&](Costly const& c) { return c.entries < entries; });
      costliest.insert(at, {entries, plan.list, place});
      if (costliest.size() > shown) costliest.pop_back();
    }
  if (all <= limit &&
      (costliest.empty() || costliest.front().entries < RuleFilterQueue::indexSpace))
    return;
  std::string text = "at least ";
  char const* separator = "";
  for (Costly const& c : costliest) {
    auto const& [index, rule] = c.acl->genSetIpRuleById()[c.place];
    text += separator + Mox::withCommas(c.entries) +
            (*separator ? " for " : " entries needed for ") + ruleText(*c.acl, index, *rule);
    separator = ", ";
  }
  text += "; " + Mox::withCommas(all) + " in all, at most " +
          Mox::withCommas(std::min(limit, RuleFilterQueue::indexSpace - 1)) + " are made";
  throw std::length_error(text);
}

void RuleExpanderSm::buildAcl(Plan plan) {
  AclGenSetIpRuleList const& list = *plan.list;
  PDAclKey const key(list.af(), list.name());
  auto const acl = ruleExStatus_->ruleExpanderLoaderInfo()->pdAclIs(key);
  // Rules and recipes of an ACL are always written together, so the same places belong together.
  Recipes& oldRecipes = builtRecipes_.at(key);
  auto const& oldRules = acl->rule();
  MOX_ASSERT(oldRules.size() == oldRecipes.rules.size());
  size_t old = 0;  // both are walked in the order of the indexes

  PDAclRuleColl::RuleColl rules;
  rules.reserve(list.genSetIpRuleById().size());
  size_t place = 0;
  for (auto const& [index, rule] : list.genSetIpRuleById()) {
    while (old < oldRules.size() && oldRules[old].first < index) ++old;
    // The object is kept where nothing about it has changed: a driver tells by the pointer that it need not
    // write the rule again.
    bool const same = old < oldRules.size() && oldRules[old].first == index &&
                      oldRules[old].second->action() == rule->action() &&
                      plan.recipes.isSame(place, oldRecipes, old);
    rules.set(index,
              same ? oldRules[old].second
                   : Mox::Ptr<PDAclRule const>(expandRule(index, *rule, plan.recipes, place)));
    ++place;
    if (auto line = trace(6))
      line << "RuleExpanderSm(" << chipId() << ")::doBuildExpandedRules"
           << " policy: " << rule->name() << " resulted in " << rules.back().second->filters()
           << " tcam entries";
  }
  acl->ruleIs(std::move(rules));
  oldRecipes = std::move(plan.recipes);
}

void RuleExpanderSm::gatherFactors(Mox::Ptr<GenSetIpRule> const& which, Lumox::AddressFamily af) {
  GenSetIpRule const& rule = *which;
  recipe_ = Recipe();
  recipe_.rule = which;
  recipe_.tcpInit = rule.matchTcpInit();
  recipe_.tcpEstablished = rule.matchTcpEstablished();
  buildSrcDstIpField(rule.source(), rule.destination(), af);
  buildSrcDstL4PortField(rule.sport(), rule.dport());
  for (RangeSetType type : allRangeSetTypes())
    if (type != RangeSetType::srcPort && type != RangeSetType::dstPort)
      addFactor(rangeSources_[static_cast<size_t>(type)], rule.range(type));
  recipe_.factorsEnd = static_cast<uint32_t>(recipes_.factors.size());
  recipes_.rules.push_back(std::move(recipe_));
}

void RuleExpanderSm::addFactor(Source const& source, GenSetKey key) {
  if (!key || recipe_.matchesNothing) return;
  uint32_t const at = source.places.of(key);
  if (at != KeyPlaces::none) {
    recipes_.factors.push_back(source.encoder->encodedLabelList()[at].second.get());
    recipe_.fields =
        static_cast<uint16_t>(recipe_.fields | 1u << static_cast<unsigned>(source.field));
    return;
  }
  // A set without pairs covers nothing if its transform has looked at it and found no piece. In any other
  // case something is missing, and to leave the field out would have the rule match everything.
  if (!source.xform->answersForSets() || source.xform->plainLabelListMap()->plainLabelList(key))
    throw std::logic_error(fieldName(source.field) +
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
  addFactor(comboSources_[static_cast<size_t>(type)], combo);
  return true;
}

void RuleExpanderSm::buildSrcDstIpField(GenSetKey source, GenSetKey destination,
                                        Lumox::AddressFamily af) {
  if (source && destination && addCombo(prefixComboType(af), source, destination)) return;
  addFactor(prefixSources_[placeOf(af, true)], source);
  addFactor(prefixSources_[placeOf(af, false)], destination);
}

void RuleExpanderSm::buildSrcDstL4PortField(GenSetKey sport, GenSetKey dport) {
  if (sport && dport && addCombo(ComboLabelSetType::srcDstL4Port, sport, dport)) return;
  addFactor(rangeSources_[static_cast<size_t>(RangeSetType::srcPort)], sport);
  addFactor(rangeSources_[static_cast<size_t>(RangeSetType::dstPort)], dport);
}

Mox::Ptr<PDAclRule> RuleExpanderSm::expandRule(AceIndex index, GenSetIpRule const& rule,
                                               Recipes const& recipes, size_t place) {
  auto out = Mox::makePtr<PDAclRule>(index);
  out->actionIs(rule.action());
  if (recipes.rules[place].matchesNothing) return out;
  ruleFilter_.delAll();
  ruleFilter_.enq(PDAclFilter());
  Recipe const& recipe = recipes.rules[place];
  unsigned fields = recipe.fields;
  for (RuleFactor const& f : recipes.factorsOf(place)) {
    // The factors of a rule are gathered in ascending order of their fields, so the lowest bit belongs to
    // the next one.
    auto const field = static_cast<TcamFieldType>(std::countr_zero(fields));
    fields &= fields - 1;
    // A list without pairs empties the queue, and the rule then has no entries.
    if (!ruleFilter_.empty()) buildTcamEntry(field, *f);
  }
  out->filterIs(takeDistinct(
      ruleFilter_, recipe.tcpInit, recipe.tcpEstablished, [this](PDAclFilter const& filter) {
        if (auto line = trace(6))
          line << "RuleExpanderSm(" << chipId() << ")::doBuildExpandedRules"
               << " Deduping filter with key: " << filter.hash() << ", filter: " << filter;
      }));
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
