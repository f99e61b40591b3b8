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

/// What the range fields without combination are written into.
struct RangeField {
  RangeSetType type;
  TcamFieldType field;
};
constexpr RangeField rangeFields[] = {
    {RangeSetType::icmp, TcamFieldType::tcamFieldTypeIcmp},
    {RangeSetType::proto, TcamFieldType::tcamFieldTypeProto},
    {RangeSetType::length, TcamFieldType::tcamFieldTypeLength},
    {RangeSetType::fragment, TcamFieldType::tcamFieldTypeFragOffset},
    {RangeSetType::dscp, TcamFieldType::tcamFieldTypeDscp}};

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

void RuleExpanderSm::doBuildExpandedRules() {
  dumpRuleExpanderConfig();
  PDAclColl& out = *ruleExStatus_->ruleExpanderLoaderInfo();
  auto const& lists = ruleExConfig_->aggregatorStatus()->aclGenSetIpRuleList();
  std::vector<PDAclKey> gone;
  for (auto const& [key, acl] : out.pdAcl()) {
    auto const list = Mox::lookup(lists, key.aclName());
    if (!list || list->af() != key.af()) gone.push_back(key);
  }
  for (PDAclKey const& key : gone) out.pdAclDel(key);

  for (auto const& [name, list] : lists) {
    Lumox::AddressFamily const af = list->af();
    MOX_ASSERT_TEXT(af == Lumox::ipv4() || af == Lumox::ipv6(),
                    "af == Lumox::ipv4() || af == Lumox::ipv6()");
    auto const acl = out.pdAclIs(PDAclKey(af, name));
    acl->ruleDelAll();
    ruleFilterDelAll();
    ruleFilterDeduper_.clear();
    for (auto const& [index, rule] : list->genSetIpRuleById()) {
      auto const pdRule = acl->ruleIs(index);
      expandRule(*rule, af, *pdRule);
      if (auto line = trace(6))
        line << "RuleExpanderSm(" << chipId() << ")::doBuildExpandedRules"
             << " policy: " << rule->name() << " resulted in " << pdRule->filters()
             << " tcam entries";
    }
  }
  dumpRuleExpanderStatus();
}

void RuleExpanderSm::expandRule(GenSetIpRule const& rule, Lumox::AddressFamily af, PDAclRule& out) {
  MOX_ASSERT(ruleFilters() == 0);
  out.actionIs(rule.action());
  ruleFilterDelAll();
  ruleFilterEnq(PDAclFilter());
  buildSrcDstIpField(rule.source(), rule.destination(), af);
  if (ruleFilters()) buildSrcDstL4PortField(rule.sport(), rule.dport());
  for (RangeField const& f : rangeFields) {
    if (!ruleFilters()) break;
    if (GenSetKey const key = rule.range(f.type))
      buildField(f.field, key, *ruleExConfig_->rangeEncoderStatus(f.type),
                 *ruleExConfig_->rangeSplitStatus(f.type));
  }
  collectFilters(rule, out);
}

void RuleExpanderSm::collectFilters(GenSetIpRule const& rule, PDAclRule& out) {
  std::vector<PDAclFilter> filters;
  filters.reserve(ruleFilters());
  bool const single = ruleFilters() == 1;
  ruleFilterDeduper_.clear();
  while (ruleFilters()) {
    PDAclFilter filter = ruleFilterDeq();
    filter.matchTcpInitIs(rule.matchTcpInit());
    filter.matchTcpEstablishedIs(rule.matchTcpEstablished());
    if (!single && !ruleFilterDeduper_.insert(filter)) {
      if (auto line = trace(6))
        line << "RuleExpanderSm(" << chipId() << ")::doBuildExpandedRules"
             << " Deduping filter with key: " << filter.hash() << ", filter: " << filter;
      continue;
    }
    filters.push_back(filter);
  }
  out.filterIs(std::move(filters));
}

bool RuleExpanderSm::buildCombo(ComboLabelSetType type, TcamFieldType fieldType, GenSetKey src,
                                GenSetKey dst) {
  GenSetKey const combo =
      ruleExConfig_->comboLabelInfo(type)->srcDstToComboMap(GenSetKeyPair(src, dst));
  if (!combo) return false;
  if (auto line = trace(8))
    line << "RuleExpanderSm(" << chipId() << ")::buildCombo"
         << " comboGenSetKey:" << combo;
  buildField(fieldType, combo, *ruleExConfig_->comboLabelEncoderStatus(type),
             *ruleExConfig_->comboLabelSplitStatus(type));
  return true;
}

void RuleExpanderSm::buildSrcDstIpField(GenSetKey source, GenSetKey destination,
                                        Lumox::AddressFamily af) {
  if (source && destination &&
      buildCombo(prefixComboType(af), TcamFieldType::tcamFieldTypeSrcDstIp, source, destination))
    return;
  PrefixXformKey const src(af, true);
  PrefixXformKey const dst(af, false);
  if (source)
    buildField(TcamFieldType::tcamFieldTypeSrcIp, source, *ruleExConfig_->prefixEncoderStatus(src),
               *ruleExConfig_->prefixXformStatus(src));
  if (destination && ruleFilters())
    buildField(TcamFieldType::tcamFieldTypeDstIp, destination,
               *ruleExConfig_->prefixEncoderStatus(dst), *ruleExConfig_->prefixXformStatus(dst));
}

void RuleExpanderSm::buildSrcDstL4PortField(GenSetKey sport, GenSetKey dport) {
  if (sport && dport &&
      buildCombo(ComboLabelSetType::srcDstL4Port, TcamFieldType::tcamFieldTypeSrcDstPort, sport,
                 dport))
    return;
  auto const build = [&](TcamFieldType field, RangeSetType type, GenSetKey key) {
    if (key && ruleFilters())
      buildField(field, key, *ruleExConfig_->rangeEncoderStatus(type),
                 *ruleExConfig_->rangeSplitStatus(type));
  };
  build(TcamFieldType::tcamFieldTypeSrcPort, RangeSetType::srcPort, sport);
  build(TcamFieldType::tcamFieldTypeDstPort, RangeSetType::dstPort, dport);
}

void RuleExpanderSm::buildField(TcamFieldType fieldType, GenSetKey key,
                                EncoderStatus const& encoder, XformStatus const& xform) {
  if (EncodedLabelWithMaskList const* list = encoder.encodedLabelList(key))
    return buildTcamEntry(fieldType, *list);
  if (xform.answersForSets() && !xform.plainLabelListMap()->plainLabelList(key))
    return ruleFilterDelAll();
  throw std::logic_error(Mox::stringValue(fieldType) + ": set " + valueToStrep(key) +
                         " has no labels and its field is not matched by raw values on this chip");
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
