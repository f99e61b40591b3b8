#include "answers/CostAccount.h"

#include "mox/Bounded.h"
#include "naxel/encoder/EncoderTypes.h"
#include "naxel/xform/NaxelXformTypes.h"
#include "output/RuleText.h"
#include "output/TcamBits.h"

#include <algorithm>
#include <numeric>

namespace NaxelTool {

using Naxel::ComboLabelSetType;
using Naxel::GenSetKey;
using Naxel::RangeSetType;

namespace {

constexpr size_t shownUsers = 3;

/// Bits of the fields that the rules of an ACL look at, as values.
unsigned plainKeyBitsOf(Naxel::AclGenSetIpRuleList const& rules) {
  bool source = false;
  bool destination = false;
  bool init = false;
  bool established = false;
  std::array<bool, Naxel::rangeFieldCount> ranges{};
  for (auto const& [index, rule] : rules.genSetIpRuleById()) {
    source |= bool(rule->source());
    destination |= bool(rule->destination());
    init |= rule->matchTcpInit();
    established |= rule->matchTcpEstablished();
    for (RangeSetType const type : Naxel::allRangeSetTypes())
      ranges[static_cast<size_t>(type)] |= bool(rule->range(type));
  }
  unsigned out = (source ? 1 : 0) + (destination ? 1 : 0);
  out *= bitsOf(rules.af());
  for (RangeSetType const type : Naxel::allRangeSetTypes())
    if (ranges[static_cast<size_t>(type)]) out += Naxel::rangeField(type).bits;
  return out + (init ? 1 : 0) + (established ? 1 : 0);
}

IntervalSet valuesIn(Naxel::RuleFilter const& filter, RangeSetType wanted) {
  IntervalSet out;
  filter.forEachRangeColl([&](RangeSetType type, auto const& ranges) {
    if (type == wanted) out = valuesOf(ranges);
  });
  return out;
}

/// How the codes of labels lie in a space of so many bits.
std::vector<size_t> mapOf(Naxel::EncoderStatus const& encoder, unsigned bits) {
  constexpr unsigned mostParts = 6;  // as a power of two
  std::vector<size_t> out(size_t{1} << std::min(bits, mostParts));
  unsigned const shift = bits > mostParts ? bits - mostParts : 0;
  for (auto const& [plain, code] : encoder.plainToEncodedLabel())
    if (size_t const part = size_t{code.value()} >> shift; part < out.size()) ++out[part];
  return out;
}

std::string ruleLabel(std::string const& acl, Naxel::AceIndex index, std::string const& name) {
  std::string const number = std::to_string(index.value());
  return acl + " " + number + (name == number ? "" : " '" + name + "'");
}

}  // namespace

void CostAccount::take(Session const& session, Naxel::PDData const* data) {
  for (auto const& [name, acl] : rules_.acls()->acl()) takeAcl(session, *acl);
  for (AclCost const& acl : out_.acls) {
    out_.entries = Mox::boundedSum(out_.entries, acl.entries);
    out_.plainEntries = Mox::boundedSum(out_.plainEntries, acl.plainEntries);
  }
  if (data) {
    KeyBits const keys(*data);
    for (AclCost& acl : out_.acls)
      if (auto const table = data->pdAclColl()->pdAcl({acl.af, acl.name}))
        acl.keyBits = keys.of(*table);
  }
  sortAll();
  takeFields(session, data);
  takeStages(session);
  out_.sourceEntries = out_.costs.size();
  if (out_.counted)
    out_.worseThanPlain = static_cast<size_t>(std::ranges::count_if(
        out_.costs, [](RuleCost const& c) { return c.entries > c.plainEntries; }));
}

void CostAccount::takeAcl(Session const& session, Naxel::AclConfig const& acl) {
  ofEntry_.clear();
  auto const list = session.root().aggregatorStatus()->aclGenSetIpRuleList(acl.name());
  if (!list) return;
  AclCost sum{acl.name(), list->af(), acl.ruleById().size(), 0, 0, 0, plainKeyBitsOf(*list)};
  auto const& generic = list->genSetIpRuleById();
  for (auto const& [index, rule] : acl.ruleById()) {
    auto const* const known = generic.get(index);
    if (!known) continue;
    std::vector<RuleFactorView> factors;
    if (out_.counted) factors = factorsOf(session.root(), **known, list->af());
    uint64_t const entries = out_.counted ? entriesOf(factors) : 0;
    uint64_t const plain = plain_.entries(*rule);
    sum.entries = Mox::boundedSum(sum.entries, entries);
    sum.plainEntries = Mox::boundedSum(sum.plainEntries, plain);
    useSets(session, acl, index, *rule, **known, entries);
    for (RuleFactorView const& f : factors)
      if (!f.isCombo && f.pairs > 1) {
        uint64_t& extra = sets_[place_.at(f.key.value())].cost.extra;
        extra = Mox::boundedSum(extra, entries - entries / f.pairs);
      }
    RuleCost& cost = entryOf(acl, index);
    size_t const place = static_cast<size_t>(&cost - out_.costs.data());
    if (cost.rules.size() == 1 || entries > most_[place]) {
      most_[place] = entries;
      cost.factors = costFactors(**known, factors);
    }
    cost.entries = Mox::boundedSum(cost.entries, entries);
    cost.plainEntries = Mox::boundedSum(cost.plainEntries, plain);
  }
  out_.acls.push_back(std::move(sum));
}

RuleCost& CostAccount::entryOf(Naxel::AclConfig const& acl, Naxel::AceIndex index) {
  RuleOrigin const* const origin = rules_.origin(acl.name(), index);
  size_t place = out_.costs.size();
  if (origin && !origin->implied)
    place = ofEntry_.try_emplace(uint64_t{origin->file} << 32 | origin->entry, place).first->second;
  if (place == out_.costs.size()) {
    auto const rule = acl.ruleById(index);
    RuleCost made;
    made.acl = acl.name();
    made.name = rule->name();
    made.from = rules_.originText(acl.name(), index);
    made.text = ruleText(*rule, rules_.lists());
    out_.costs.push_back(std::move(made));
  }
  out_.costs[place].rules.push_back(index);
  return out_.costs[place];
}

void CostAccount::useSets(Session const& session, Naxel::AclConfig const& acl,
                          Naxel::AceIndex index, Naxel::RuleConfig const& rule,
                          Naxel::GenSetIpRule const& generic, uint64_t entries) {
  Naxel::NaxelRootSm const& root = session.root();
  auto const use = [&](Set& set) {
    set.rules.emplace_back(&acl.name(), index);
    set.cost.entries = Mox::boundedSum(set.cost.entries, entries);
    if (set.cost.users.size() < shownUsers)
      set.cost.users.push_back(ruleLabel(acl.name(), index, rule.name()));
  };
  Lumox::AddressFamily const af = root.aggregatorStatus()->aclGenSetIpRuleList(acl.name())->af();
  for (bool const src : {true, false}) {
    GenSetKey const key = src ? generic.source() : generic.destination();
    if (!key) continue;
    Naxel::PrefixXformKey const which(af, src);
    Set& set = setOf(key, prefixKeyName(which), *root.prefixXformStatus(which),
                     *root.prefixEncoderStatus(which));
    if (!set.isKnown) {
      auto const& list = *(src ? rule.ruleFilter()->source() : rule.ruleFilter()->destination());
      set.cost.text = listText(list, rules_.lists());
      set.cost.members = list.addrs() + list.exceptAddrs();
      set.cost.plain = coverSize(addressesOf(list), bitsOf(af));
      set.isKnown = true;
    }
    use(set);
  }
  for (RangeSetType const type : Naxel::allRangeSetTypes()) {
    GenSetKey const key = generic.range(type);
    if (!key) continue;
    Set& set = setOf(key, Naxel::stringValue(type), *root.rangeSplitStatus(type),
                     *root.rangeEncoderStatus(type));
    if (!set.isKnown) {
      IntervalSet const values = valuesIn(*rule.ruleFilter(), type);
      set.cost.text = valuesText(values);
      set.cost.members = values.size();
      set.cost.plain = coverSize(values, Naxel::rangeField(type).bits);
      set.isKnown = true;
    }
    use(set);
  }
}

CostAccount::Set& CostAccount::setOf(GenSetKey key, std::string const& field,
                                     Naxel::XformStatus const& xform,
                                     Naxel::EncoderStatus const& encoder) {
  auto const [at, isNew] = place_.try_emplace(key.value(), sets_.size());
  if (isNew) {
    Set set;
    set.cost.field = field;
    set.cost.labels = labelsOf(xform, key);
    if (auto const* const pairs = encoder.encodedLabelList(key))
      set.cost.cubes = pairs->encLabelAndMask().size();
    sets_.push_back(std::move(set));
  }
  return sets_[at->second];
}

std::vector<CostFactor> CostAccount::costFactors(Naxel::GenSetIpRule const& generic,
                                                 std::vector<RuleFactorView> const& factors) const {
  std::vector<CostFactor> out;
  auto const costOf = [&](GenSetKey key) -> ListCost const& {
    return sets_[place_.at(key.value())].cost;
  };
  for (RuleFactorView const& f : factors) {
    CostFactor factor{std::string(Naxel::labelFieldName(f.field)), {}, f.pairs, 0};
    if (f.isCombo) {
      bool const ports = f.field == Naxel::TcamFieldType::tcamFieldTypeSrcDstPort;
      auto const pair = generic.comboPair(ports ? ComboLabelSetType::srcDstL4Port
                                                : ComboLabelSetType::ipv4SrcDstPrefix);
      factor.what = costOf(pair.src()).text + " > " + costOf(pair.dst()).text;
      factor.plain = Mox::boundedProduct(costOf(pair.src()).plain, costOf(pair.dst()).plain);
    } else {
      factor.what = costOf(f.key).text;
      factor.plain = costOf(f.key).plain;
    }
    if (factor.cubes != 1 || factor.plain != 1) out.push_back(std::move(factor));
  }
  return out;
}

void CostAccount::sortAll() {
  auto const key = [this](RuleCost const& c) { return out_.counted ? c.entries : c.plainEntries; };
  std::ranges::stable_sort(out_.costs,
                           [&](RuleCost const& a, RuleCost const& b) { return key(a) > key(b); });
  order_.resize(sets_.size());
  std::iota(order_.begin(), order_.end(), size_t{0});
  std::ranges::stable_sort(order_, [this](size_t a, size_t b) {
    ListCost const& x = sets_[a].cost;
    ListCost const& y = sets_[b].cost;
    return std::tuple(x.extra, x.labels, x.entries, x.members) >
           std::tuple(y.extra, y.labels, y.entries, y.members);
  });
  for (size_t const i : order_) {
    sets_[i].cost.rules = sets_[i].rules.size();
    out_.lists.push_back(sets_[i].cost);
  }
}

void CostAccount::takeStages(Session const& session) {
  Naxel::Metrics const metrics = session.metrics();
  for (size_t i = 1; i < Naxel::stageCount; ++i) {
    auto const stage = static_cast<Naxel::NaxelActiveStage>(i);
    Naxel::StageMetrics const& times = metrics.stages[i];
    std::string outcome;
    for (auto const& [status, count] : times.outcome)
      outcome += (outcome.empty() ? "" : ", ") + Naxel::stringValue(status);
    out_.stages.push_back({Naxel::stringValue(stage), std::move(outcome), times.seconds});
  }
}

void CostAccount::takeFields(Session const& session, Naxel::PDData const* data) {
  std::optional<KeyBits> keys;
  if (data) keys.emplace(*data);
  auto const uses = session.metrics().labels;
  auto const add = [&](std::string const& name, std::string const& member, size_t sets,
                       std::initializer_list<Lumox::AddressFamily> families, Verify::Field field,
                       Naxel::EncoderStatus const& encoder) {
    auto const use = std::ranges::find(uses, name, &Naxel::LabelUse::field);
    if (!sets || use == uses.end()) return;
    FieldCost out{name, member, use->width, use->used, 0, use->code, sets, {}};
    if (keys)
      for (Lumox::AddressFamily const af : families)
        out.keyBits = std::max(out.keyBits, keys->field(af, field));
    if (use->width && keys) out.map = mapOf(encoder, out.keyBits);
    out_.fields.push_back(std::move(out));
  };
  auto const setsOf = [&](std::string const& name) {
    return static_cast<size_t>(std::ranges::count(out_.lists, name, &ListCost::field));
  };
  for (Naxel::PrefixXformKey const& key : Naxel::PrefixXformKey::all())
    add(prefixKeyName(key), memberPath(key), setsOf(prefixKeyName(key)), {key.af()},
        key.src() ? Verify::Fields::source : Verify::Fields::destination,
        *session.root().prefixEncoderStatus(key));
  for (RangeSetType const type : Naxel::allRangeSetTypes())
    add(Naxel::stringValue(type), memberPath(type), setsOf(Naxel::stringValue(type)),
        {Lumox::ipv4(), Lumox::ipv6()}, Naxel::rangeField(type).tcamField,
        *session.root().rangeEncoderStatus(type));
  for (ComboLabelSetType const type : Naxel::allComboLabelSetTypes()) {
    bool const ports = type == ComboLabelSetType::srcDstL4Port;
    bool const v6 = type == ComboLabelSetType::ipv6SrcDstPrefix;
    add(Naxel::stringValue(type), memberPath(type),
        session.root().comboLabelEncoderStatus(type)->encodedLabelList().size(),
        {v6 ? Lumox::ipv6() : Lumox::ipv4()},
        ports ? Verify::Fields::portCombo : Verify::Fields::prefixCombo,
        *session.root().comboLabelEncoderStatus(type));
  }
}

}  // namespace NaxelTool
