#include "naxel/expander/NaxelRuleExpanderSm.h"

#include "mox/Assert.h"
#include "naxel/types/NaxelTrace.h"

#include <limits>
#include <stdexcept>

namespace Naxel {

namespace {

constexpr uint64_t indexSpace = std::numeric_limits<uint32_t>::max();

/// Entries that one rule may have at most; far beyond any chip, and well within memory.
constexpr uint64_t productCap = uint64_t{1} << 22;

/// The field that each range type is matched in, by type.
constexpr TcamFieldType rangeFields[] = {
    TcamFieldType::tcamFieldTypeSrcPort, TcamFieldType::tcamFieldTypeDstPort,
    TcamFieldType::tcamFieldTypeIcmp,    TcamFieldType::tcamFieldTypeProto,
    TcamFieldType::tcamFieldTypeLength,  TcamFieldType::tcamFieldTypeFragOffset,
    TcamFieldType::tcamFieldTypeDscp};

size_t placeOf(Lumox::AddressFamily af, bool src) {
  return (af == Lumox::ipv4() ? 0u : 2u) + (src ? 0u : 1u);
}

}  // namespace

void RuleFilterQueue::enq(PDAclFilter const& f) {
  if (nextIndex_ == indexSpace) throw std::length_error("linkqueue index space full");
  items_.push_back(f);
  ++nextIndex_;
}

PDAclFilter RuleFilterQueue::deq() {
  PDAclFilter const f = items_[head_++];
  // Dropping the consumed half now and then keeps the cost of a removal constant on average.
  if (head_ * 2 > items_.size() && head_ >= 64) {
    items_.erase(items_.begin(), items_.begin() + static_cast<std::ptrdiff_t>(head_));
    head_ = 0;
  }
  return f;
}

void RuleFilterQueue::delAll() {
  items_.clear();
  head_ = 0;
  nextIndex_ = 0;
}

void setTcamField(PDAclFilter& filter, TcamFieldType type, EncodedLabelWithMask const& value) {
  switch (type) {
    case TcamFieldType::tcamFieldTypeSrcIp: return filter.sourceIs(value);
    case TcamFieldType::tcamFieldTypeDstIp: return filter.destinationIs(value);
    case TcamFieldType::tcamFieldTypeSrcDstIp: return filter.prefixComboIs(value);
    case TcamFieldType::tcamFieldTypeSrcPort: return filter.sportIs(value);
    case TcamFieldType::tcamFieldTypeDstPort: return filter.dportIs(value);
    case TcamFieldType::tcamFieldTypeSrcDstPort: return filter.portComboIs(value);
    case TcamFieldType::tcamFieldTypeIcmp: return filter.icmpTypeIs(value);
    case TcamFieldType::tcamFieldTypeProto: return filter.protoIs(value);
    case TcamFieldType::tcamFieldTypeLength: return filter.lengthIs(value);
    case TcamFieldType::tcamFieldTypeFragOffset: return filter.fragmentIs(value);
    case TcamFieldType::tcamFieldTypeDscp: return filter.dscpIs(value);
    case TcamFieldType::tcamFieldTypeNone:
    case TcamFieldType::tcamFieldTypeMatchTcpInit:
    case TcamFieldType::tcamFieldTypeMmatchTcpEstablished: break;
  }
  MOX_ASSERT(false && "Invalid tcam field");
}

RuleExpanderSm::RuleExpanderSm(Obel::ChipId chipId, Mox::Ptr<RuleExpanderConfig> config,
                               Mox::Ptr<RuleExpanderStatus> status)
    : StageSm(chipId, config, status),
      ruleExConfig_(std::move(config)),
      ruleExStatus_(std::move(status)) {}

void RuleExpanderSm::doStartKick() {
  if (auto line = trace(8)) line << "RuleExpanderSm(" << chipId() << ")::doStartKick";
  doBuildExpandedRules();
  doSetStatus(StageStatusType::finishedSuccess);
}

std::vector<uint64_t> RuleExpanderSm::inputRevisions() const {
  std::vector<uint64_t> all = {ruleExConfig_->aggregatorStatus()->revision()};
  auto const add = [&](EncoderStatus const& encoder, XformStatus const& xform) {
    all.insert(all.end(), {encoder.revision(), xform.revision(), xform.answersForSets()});
  };
  for (PrefixXformKey const& key : PrefixXformKey::all())
    add(*ruleExConfig_->prefixEncoderStatus(key), *ruleExConfig_->prefixXformStatus(key));
  for (RangeSetType type : allRangeSetTypes())
    add(*ruleExConfig_->rangeEncoderStatus(type), *ruleExConfig_->rangeSplitStatus(type));
  for (ComboLabelSetType type : allComboLabelSetTypes()) {
    add(*ruleExConfig_->comboLabelEncoderStatus(type), *ruleExConfig_->comboLabelSplitStatus(type));
    all.push_back(ruleExConfig_->comboLabelInfo(type)->revision());
  }
  return all;
}

void RuleExpanderSm::bindSources() {
  auto const source = [](TcamFieldType field, EncoderStatus const& encoder,
                         XformStatus const& xform) {
    return Source{field, &encoder, &xform, KeyPlaces(keysOf(encoder.encodedLabelList()))};
  };
  prefixSources_.clear();
  for (Lumox::AddressFamily const af : {Lumox::ipv4(), Lumox::ipv6()})
    for (bool const src : {true, false}) {
      PrefixXformKey const key(af, src);
      prefixSources_.push_back(
          source(src ? TcamFieldType::tcamFieldTypeSrcIp : TcamFieldType::tcamFieldTypeDstIp,
                 *ruleExConfig_->prefixEncoderStatus(key), *ruleExConfig_->prefixXformStatus(key)));
    }
  rangeSources_.clear();
  for (RangeSetType type : allRangeSetTypes())
    rangeSources_.push_back(source(rangeFields[static_cast<size_t>(type)],
                                   *ruleExConfig_->rangeEncoderStatus(type),
                                   *ruleExConfig_->rangeSplitStatus(type)));
  comboSources_.clear();
  for (ComboLabelSetType type : allComboLabelSetTypes())
    comboSources_.push_back(source(type == ComboLabelSetType::srcDstL4Port
                                       ? TcamFieldType::tcamFieldTypeSrcDstPort
                                       : TcamFieldType::tcamFieldTypeSrcDstIp,
                                   *ruleExConfig_->comboLabelEncoderStatus(type),
                                   *ruleExConfig_->comboLabelSplitStatus(type)));
}

void RuleExpanderSm::doBuildExpandedRules() {
  dumpRuleExpanderConfig();
  std::vector<uint64_t> revisions = inputRevisions();
  if (builtFrom_ != revisions) {
    builtFrom_.clear();
    bindSources();
    deleteGoneAcls();
    for (auto const& [name, list] : ruleExConfig_->aggregatorStatus()->aclGenSetIpRuleList())
      buildAcl(*list);
    for (auto* sources : {&prefixSources_, &rangeSources_, &comboSources_}) sources->clear();
    builtFrom_ = std::move(revisions);
  }
  dumpRuleExpanderStatus();
}

void RuleExpanderSm::deleteGoneAcls() {
  PDAclColl& out = *ruleExStatus_->ruleExpanderLoaderInfo();
  std::vector<PDAclKey> gone;
  for (auto const& [key, acl] : out.pdAcl()) {
    auto const list = ruleExConfig_->aggregatorStatus()->aclGenSetIpRuleList(key.aclName());
    if (!list || list->af() != key.af()) gone.push_back(key);
  }
  for (PDAclKey const& key : gone) {
    out.pdAclDel(key);
    digests_.erase(key);
  }
}

void RuleExpanderSm::buildAcl(AclGenSetIpRuleList const& list) {
  Lumox::AddressFamily const af = list.af();
  MOX_ASSERT_TEXT(af == Lumox::ipv4() || af == Lumox::ipv6(),
                  "af == Lumox::ipv4() || af == Lumox::ipv6()");
  PDAclKey const key(af, list.name());
  auto const acl = ruleExStatus_->ruleExpanderLoaderInfo()->pdAclIs(key);
  Digests& oldDigests = digests_.at(key);
  auto const& oldRules = acl->rule();
  MOX_ASSERT(oldRules.size() == oldDigests.size());
  size_t old = 0;  // both are walked in the order of the indexes

  Mox::FlatMap<AceIndex, Mox::Ptr<PDAclRule>> rules;
  Digests digests;
  rules.reserve(list.genSetIpRuleById().size());
  digests.reserve(list.genSetIpRuleById().size());
  for (auto const& [index, rule] : list.genSetIpRuleById()) {
    uint64_t const digest = gatherFactors(*rule, af);
    while (old < oldRules.size() && oldRules[old].first < index) ++old;
    bool const same = old < oldRules.size() && oldRules[old].first == index &&
                      oldDigests[old] == digest && oldRules[old].second->action() == rule->action();
    rules.set(index, same ? oldRules[old].second : expandRule(index, *rule));
    digests.push_back(digest);
    if (auto line = trace(6))
      line << "RuleExpanderSm(" << chipId() << ")::doBuildExpandedRules"
           << " policy: " << rule->name() << " resulted in " << rules.back().second->filters()
           << " tcam entries";
  }
  acl->ruleIs(std::move(rules));
  oldDigests = std::move(digests);
}

uint64_t RuleExpanderSm::gatherFactors(GenSetIpRule const& rule, Lumox::AddressFamily af) {
  factors_.clear();
  matchesNothing_ = false;
  buildSrcDstIpField(rule.source(), rule.destination(), af);
  buildSrcDstL4PortField(rule.sport(), rule.dport());
  for (RangeSetType type : allRangeSetTypes())
    if (type != RangeSetType::srcPort && type != RangeSetType::dstPort)
      addFactor(rangeSources_[static_cast<size_t>(type)], rule.range(type));

  uint64_t digest = (rule.matchTcpInit() ? 1u : 0u) | (rule.matchTcpEstablished() ? 2u : 0u) |
                    (matchesNothing_ ? 4u : 0u);
  for (Factor const& f : factors_) {
    digest = Mox::hashCombine(digest, static_cast<uint64_t>(f.field));
    digest = Mox::hashCombine(digest, f.list->contentHash());
  }
  return digest;
}

void RuleExpanderSm::addFactor(Source const& source, GenSetKey key) {
  if (!key || matchesNothing_) return;
  uint32_t const at = source.places.of(key);
  if (at != KeyPlaces::none) {
    factors_.push_back({source.field, source.encoder->encodedLabelList()[at].second.get()});
    return;
  }
  if (!source.xform->answersForSets() || source.xform->plainLabelListMap()->plainLabelList(key))
    throw std::logic_error(
        Mox::stringValue(source.field) + ": set " + valueToStrep(key) +
        " has no labels and its field is not matched by raw values on this chip");
  matchesNothing_ = true;
}

bool RuleExpanderSm::addCombo(ComboLabelSetType type, GenSetKey src, GenSetKey dst) {
  GenSetKey const combo =
      ruleExConfig_->comboLabelInfo(type)->srcDstToComboMap(GenSetKeyPair(src, dst));
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

Mox::Ptr<PDAclRule> RuleExpanderSm::expandRule(AceIndex index, GenSetIpRule const& rule) {
  auto out = Mox::makePtr<PDAclRule>(index);
  out->actionIs(rule.action());
  if (matchesNothing_) return out;
  ruleFilterDelAll();
  ruleFilterEnq(PDAclFilter());
  for (Factor const& f : factors_)
    if (ruleFilters()) buildTcamEntry(f.field, *f.list);
  out->filterIs(collectFilters(rule));
  return out;
}

std::vector<PDAclFilter> RuleExpanderSm::collectFilters(GenSetIpRule const& rule) {
  std::vector<PDAclFilter> filters;
  filters.reserve(ruleFilters());
  ruleFilterDeduper_.clear();
  bool ascending = true;
  while (ruleFilters()) {
    PDAclFilter filter = ruleFilterDeq();
    filter.matchTcpInitIs(rule.matchTcpInit());
    filter.matchTcpEstablishedIs(rule.matchTcpEstablished());
    // The lists are ascending, and so are their products: as long as that holds, none occurs twice.
    if (ascending && !filters.empty() && !(filters.back() < filter)) {
      ascending = false;
      for (PDAclFilter const& f : filters) ruleFilterDeduper_.insert(f);
    }
    if (!ascending && !ruleFilterDeduper_.insert(filter)) {
      if (auto line = trace(6))
        line << "RuleExpanderSm(" << chipId() << ")::doBuildExpandedRules"
             << " Deduping filter with key: " << filter.hash() << ", filter: " << filter;
      continue;
    }
    filters.push_back(filter);
  }
  return filters;
}

void RuleExpanderSm::buildTcamEntry(TcamFieldType fieldType,
                                    EncodedLabelWithMaskList const& encLabelList) {
  if (auto line = trace(8))
    line << "RuleExpanderSm(" << chipId() << ")::buildTcamEntry"
         << ", fieldType:" << fieldType;
  MOX_ASSERT(ruleFilters());
  auto const& pairs = encLabelList.encLabelAndMask();
  size_t const n = ruleFilters();
  if (uint64_t{n} * pairs.size() > productCap)
    throw std::length_error(
        "linkqueue index space full: at least " + std::to_string(uint64_t{n} * pairs.size()) +
        " entries needed for one rule, at most " + std::to_string(productCap) + " are built");
  if (pairs.size() == 1)
    return ruleFilter_.replaceAll(
        [&](PDAclFilter& filter) { setTcamField(filter, fieldType, pairs.front()); });
  for (size_t i = 0; i < n; ++i) {
    PDAclFilter filter = ruleFilterDeq();
    for (EncodedLabelWithMask const& e : pairs) {
      setTcamField(filter, fieldType, e);
      ruleFilterEnq(filter);
    }
  }
}

void RuleExpanderSm::dumpRuleExpanderConfig() const {
  if (!naxelTrace().on(9)) return;
  for (auto const& [name, list] : ruleExConfig_->aggregatorStatus()->aclGenSetIpRuleList())
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
                                               Mox::Ptr<RuleExpanderStatus> status) {
  return Mox::makePtr<RuleExpanderSm>(chipId, std::move(config), std::move(status));
}

}  // namespace Naxel
