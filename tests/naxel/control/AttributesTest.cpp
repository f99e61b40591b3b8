/// Every entity of a pipeline can be read attribute by attribute, whatever state it is in.

#include "naxel/encoder/CostModel.h"
#include "naxel/encoder/EncodedLabelAllocator.h"
#include "naxel/genset/NaxelDedup.h"
#include "naxel/loader/HwCapability.h"
#include "naxel/loader/NaxelLoaderTypes.h"
#include "support/World.h"

#include <gtest/gtest.h>

namespace Test {
namespace {

using namespace Naxel;

/// Number of attributes that have a value.
size_t readAll(Mox::Entity const& entity) {
  EXPECT_NE(entity.fwkType(), "");
  size_t values = 0;
  for (Mox::Attribute const& a : entity.attributeTable()) {
    std::string const text = entity.attributeText(a.name);
    EXPECT_NE(text, "?") << entity.fwkType() << " " << a.name;
    values += text != "operation";
  }
  return values;
}

size_t readOutput(PDData const& data) {
  size_t n = readAll(data) + readAll(*data.pdAclColl());
  for (auto const& [key, table] : data.pdPrefixXformEntryColl()) n += readAll(*table);
  for (RangeSetType type : allRangeSetTypes()) n += readAll(*data.rangeColl(type));
  for (ComboLabelSetType type : allComboLabelSetTypes()) n += readAll(*data.comboColl(type));
  for (auto const& [key, acl] : data.pdAclColl()->pdAcl()) {
    n += readAll(*acl);
    for (auto const& [index, rule] : acl->rule()) n += readAll(*rule);
  }
  return n;
}

size_t readConfiguration(World const& w) {
  size_t n = readAll(*w.acls) + readAll(*w.capability) + readAll(*w.params);
  for (auto const& [name, acl] : w.acls->acl()) {
    n += readAll(*acl);
    for (auto const& [ruleName, rule] : acl->ruleByName()) {
      n += readAll(*rule);
      if (!rule->ruleFilter()) continue;
      n += readAll(*rule->ruleFilter());
      if (rule->ruleFilter()->source()) n += readAll(*rule->ruleFilter()->source());
    }
  }
  return n;
}

size_t readPipeline(NaxelRootSm const& root) {
  size_t n = 0;
  auto const& configs = *root.stageSmConfig();
  auto const& statuses = *root.stageSmStatus();
  for (unsigned s = 1; s <= 10; ++s) {
    configs.forEach(static_cast<NaxelActiveStage>(s), [&](StageConfig& c) { n += readAll(c); });
    statuses.forEach(static_cast<NaxelActiveStage>(s),
                     [&](StageStatus const& c) { n += readAll(c); });
  }
  n += readAll(configs) + readAll(statuses) + readAll(*root.stageControllerConfig()) +
       readAll(*root.stageControllerStatus()) + readAll(*root.genSetKeyGen());
  AggregatorStatus const& sets = *root.aggregatorStatus();
  n += readAll(*sets.genSetUsageInfo());
  for (PrefixXformKey const& key : PrefixXformKey::all()) {
    n += readAll(*sets.prefixInfo(key));
    for (auto const& [k, set] : sets.prefixInfo(key)->prefixSetColl()) n += readAll(*set);
    n += readAll(*root.prefixXformStatus(key)->plainLabelListMap());
    for (auto const& [k, list] : root.prefixXformStatus(key)->plainLabelListMap()->plainLabelList())
      n += readAll(*list);
    if (auto const& info = root.prefixEncoderStatus(key)->loaderInfo()) n += readAll(*info);
    for (auto const& [k, pairs] : root.prefixEncoderStatus(key)->encodedLabelList())
      n += readAll(*pairs);
  }
  for (RangeSetType type : allRangeSetTypes()) {
    n += readAll(*sets.rangeSplitInfo(type));
    for (auto const& [k, set] : sets.rangeSplitInfo(type)->rangeSetColl()) n += readAll(*set);
    if (auto const& info = root.rangeEncoderStatus(type)->loaderInfo()) n += readAll(*info);
  }
  for (ComboLabelSetType type : allComboLabelSetTypes()) {
    auto const& info = *root.comboLabelResolverStatus(type)->comboLabelInfo();
    n += readAll(info);
    for (auto const& [k, set] : info.comboLabelSetColl()) n += readAll(*set);
    if (auto const& loader = root.comboLabelEncoderStatus(type)->loaderInfo())
      n += readAll(*loader);
  }
  for (auto const& [name, list] : sets.aclGenSetIpRuleList()) {
    n += readAll(*list);
    for (auto const& rule : list->genSetIpRule()) n += readAll(*rule);
  }
  n += readAll(*root.ruleExpanderStatus()->ruleExpanderLoaderInfo());
  return n;
}

/// Puts what is there in its place again.
class SameAgain : public StageSmStatus::Notifiee, public StageSmConfig::Notifiee {
 public:
  explicit SameAgain(NaxelRootSm const& root) {
    auto& c = *root.stageSmConfig();
    auto& s = *root.stageSmStatus();
    StageSmConfig::Notifiee::notifierIs(&c);
    StageSmStatus::Notifiee::notifierIs(&s);
    each(c.prefixXformConfig(), [&](auto k, auto v) { c.prefixXformConfigIs(k, v); });
    each(c.rangeSplitConfig(), [&](auto k, auto v) { c.rangeSplitConfigIs(k, v); });
    each(c.comboLabelResolverConfig(), [&](auto k, auto v) { c.comboLabelResolverConfigIs(k, v); });
    each(c.comboLabelSplitConfig(), [&](auto k, auto v) { c.comboLabelSplitConfigIs(k, v); });
    each(c.prefixEncoderConfig(), [&](auto k, auto v) { c.prefixEncoderConfigIs(k, v); });
    each(c.rangeEncoderConfig(), [&](auto k, auto v) { c.rangeEncoderConfigIs(k, v); });
    each(c.comboLabelEncoderConfig(), [&](auto k, auto v) { c.comboLabelEncoderConfigIs(k, v); });
    each(s.prefixXformStatus(), [&](auto k, auto v) { s.prefixXformStatusIs(k, v); });
    each(s.rangeSplitStatus(), [&](auto k, auto v) { s.rangeSplitStatusIs(k, v); });
    each(s.comboLabelResolverStatus(), [&](auto k, auto v) { s.comboLabelResolverStatusIs(k, v); });
    each(s.comboLabelSplitStatus(), [&](auto k, auto v) { s.comboLabelSplitStatusIs(k, v); });
    each(s.prefixEncoderStatus(), [&](auto k, auto v) { s.prefixEncoderStatusIs(k, v); });
    each(s.rangeEncoderStatus(), [&](auto k, auto v) { s.rangeEncoderStatusIs(k, v); });
    each(s.comboLabelEncoderStatus(), [&](auto k, auto v) { s.comboLabelEncoderStatusIs(k, v); });
  }

 private:
  void onRangeSplitConfig(RangeSetType const&) override { ADD_FAILURE() << "nothing changed"; }
  void onRangeSplitStatus(RangeSetType const&) override { ADD_FAILURE() << "nothing changed"; }
  template <class Coll, class F>
  static void each(Coll const& coll, F f) {
    auto const copy = coll;
    for (auto const& [key, value] : copy) f(key, value);
  }
};

TEST(Attributes, EveryEntityReadsAsText) {
  World w(
      "a 10 r src 10.0.0.0/8,!10.1.0.0/16 dst 10.2.0.0/16 sport 1-5 dport 80-83 init\n"
      "a 20 s src 10.0.0.0/9 dst 10.0.0.0/8 sport 3-9 dport 80-90 proto 6 est drop log tc=3\n"
      "b 30 t src 2001::/16 dscp 10 len 5 frag 1 icmp 8\n"
      "acl c\n");
  size_t const before = readPipeline(*w.root) + readConfiguration(w);
  for (RangeSetType type : {RangeSetType::srcPort, RangeSetType::dstPort})
    w.capability->rangeXformWidthIs(type, 6);
  for (ComboLabelSetType type : allComboLabelSetTypes()) w.capability->comboXformWidthIs(type, 6);
  ASSERT_EQ(w.kick(), NaxelProgress::naxelFinishedSuccess) << w.failureText();
  EXPECT_GT(readPipeline(*w.root) + readConfiguration(w), before);
  SameAgain{*w.root};
  EXPECT_GT(readOutput(w.tables()), 40u);
  EXPECT_GT(
      readAll(*w.pdConfig) + readAll(*w.pdStatus) + readAll(*w.rootConfig) + readAll(*w.rootStatus),
      20u);
  auto const group = genSetKeyGroupFactory();
  Deduper deduper;
  deduper.addObj(group);
  EXPECT_GT(readAll(*group) + readAll(deduper) + readAll(DedupMarkAndSweeper()) +
                readAll(DedupableList(1)) + readAll(PrefixListDedup(nullptr)) +
                readAll(GenSetKeyGroupDeduper()) + readAll(GenSetCostModel()) +
                readAll(GenSetRefCount(GenSetKey(1))),
            8u);
}

// The operations of a collection differ in nothing but their names.
#define CHECK_COLLECTION(ENTITY, NAME, ONE, TWO)               \
  {                                                            \
    auto const entity = ENTITY;                                \
    EXPECT_TRUE(entity->NAME().empty());                       \
    EXPECT_FALSE(entity->NAME(ONE) || entity->NAME##Has(ONE)); \
    auto const made = entity->NAME##Is(ONE);                   \
    auto const other = entity->NAME##Is(TWO);                  \
    EXPECT_EQ(entity->NAME##Is(ONE), made);                    \
    EXPECT_EQ(entity->NAME(TWO), other);                       \
    EXPECT_GE(readAll(*entity), 1u);                           \
    entity->NAME##Del(ONE);                                    \
    EXPECT_FALSE(entity->NAME(ONE) || entity->NAME##Has(ONE)); \
    EXPECT_TRUE(entity->NAME##Has(TWO));                       \
    entity->NAME##DelAll();                                    \
    EXPECT_TRUE(entity->NAME().empty());                       \
  }

TEST(Attributes, CollectionsOfTheAgentBeginEmptyAndForgetWhatIsDeleted) {
  Obel::ChipId const chip(1), next(2);
  CHECK_COLLECTION(globalPDConfigFactory(), pdConfig, chip, next)
  CHECK_COLLECTION(globalPDStatusFactory(), pdStatus, chip, next)
  CHECK_COLLECTION(hwCapabilityCollFactory(), chipHwCapability, chip, next)
  CHECK_COLLECTION(globalAclConfigFactory(), aclConfigColl, chip, next)
  CHECK_COLLECTION(aclConfigCollFactory(chip), acl, "a", "b")
  auto const acl = aclConfigCollFactory(chip)->aclIs("edge");
  CHECK_COLLECTION(acl, ruleByName, "a", "b")
  auto const rule = acl->ruleByNameIs("a");
  for (uint32_t index : {1u, 2u, 3u}) acl->ruleByIdIs(AceIndex(index), rule);
  acl->ruleByIdDel(AceIndex(2));
  EXPECT_TRUE(acl->ruleById(AceIndex(1)) == rule && !acl->ruleByIdHas(AceIndex(2)));
  acl->ruleByIdDelAll();
  EXPECT_TRUE(acl->ruleById().empty() && acl->ruleByNameHas("a"));
}

TEST(Attributes, AChipBeginsWithPrefixLabelsOf16BitsOnly) {
  auto const chip = hwCapabilityCollFactory()->chipHwCapabilityIs(Obel::ChipId(5));
  EXPECT_EQ(chip->chipId(), Obel::ChipId(5));
  EXPECT_EQ(chip->prefixXformWidth().size(), 4u);
  for (PrefixXformKey const& key : PrefixXformKey::all())
    EXPECT_EQ(chip->prefixXformWidth(key), 16);
  EXPECT_TRUE(chip->rangeXformWidth().empty() && chip->comboXformWidth().empty());
  for (ComboLabelSetType type : allComboLabelSetTypes()) EXPECT_FALSE(chip->comboEnabled(type));
  EXPECT_FALSE(chip->tcpFlagsXformSupported());
  EXPECT_EQ(chip->tcpFlagsXformWidth(), 2);
}

// What can be reached from a published output cannot be written.
template <class T>
T const& reached();
template <class... Pointers>
constexpr bool readOnly =
    (std::is_const_v<std::remove_reference_t<decltype(*reached<Pointers>())>> && ...);
static_assert(
    readOnly<decltype(reached<PDConfig>().currPDData()), decltype(reached<PDConfig>().prevPDData()),
             decltype(reached<FailureData>().pdData()), decltype(reached<PDData>().hwCapability()),
             decltype(reached<PDData>().rangeColl(RangeSetType::dscp)),
             decltype(reached<PDData>().comboColl(ComboLabelSetType::srcDstL4Port)),
             decltype(reached<PDData>().pdPrefixXformEntryColl(PrefixXformKey())),
             PDData::PrefixColls::mapped_type, decltype(reached<PDData>().pdAclColl()),
             decltype(reached<PDAclColl>().pdAcl(PDAclKey())), PDAclColl::AclColl::mapped_type,
             PDAclRuleColl::RuleColl::mapped_type,
             decltype(reached<PDAclRuleColl>().rule(AceIndex()))>);
static_assert(!std::is_convertible_v<Mox::Ptr<PDData const>, Mox::Ptr<PDData>>);
static_assert(!std::is_convertible_v<PDData*, Mox::Ptr<PDData>>);

}  // namespace
}  // namespace Test
