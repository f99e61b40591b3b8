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
size_t readOne(Mox::Entity const& entity) {
  EXPECT_NE(entity.fwkType(), "");
  size_t values = 0;
  for (Mox::Attribute const& a : entity.attributeTable()) {
    std::string const text = entity.attributeText(a.name);
    EXPECT_NE(text, "?") << entity.fwkType() << " " << a.name;
    values += text != "operation";
  }
  return values;
}
/// The same over entities, those of them that are there, and over all of some collections.
template <class... Pointers>
size_t readAll(Pointers const&... entities) {
  return ((entities ? readOne(*entities) : 0) + ...);
}
template <class... Colls>
size_t readEach(Colls const&... colls) {
  size_t n = 0;
  auto const read = [&](auto const& coll) {
    for (auto const& [key, entity] : coll) n += readOne(*entity);
  };
  (read(colls), ...);
  return n;
}

/// One entity of every kind at least.
size_t readPipeline(World const& w) {
  NaxelRootSm const& root = *w.root;
  PrefixXformKey const key(Lumox::ipv4(), true);
  RangeSetType const type = RangeSetType::srcPort;
  ComboLabelSetType const combo = ComboLabelSetType::srcDstL4Port;
  auto const acl = w.acls->acl("a");
  auto const filter = acl->ruleByName("r")->ruleFilter();
  auto const sets = root.aggregatorStatus();
  auto const rules = sets->aclGenSetIpRuleList("a");
  auto const lists = root.prefixXformStatus(key)->plainLabelListMap();
  auto const encoder = root.prefixEncoderStatus(key);
  auto const combos = root.comboLabelResolverStatus(combo)->comboLabelInfo();
  size_t n =
      readAll(w.acls, w.capability, w.params, w.rootConfig, w.rootStatus, w.pdConfig, w.pdStatus,
              acl, filter, filter->source(), root.stageSmConfig(), root.stageSmStatus(),
              root.stageControllerConfig(), root.stageControllerStatus(), root.genSetKeyGen(),
              sets->genSetUsageInfo(), sets->prefixInfo(key), sets->rangeSplitInfo(type), rules,
              lists, encoder->loaderInfo(), root.rangeEncoderStatus(type)->loaderInfo(), combos,
              root.comboLabelEncoderStatus(combo)->loaderInfo(),
              root.ruleExpanderStatus()->ruleExpanderLoaderInfo());
  for (unsigned s = 1; s <= 10; ++s) {
    auto const stage = static_cast<NaxelActiveStage>(s);
    root.stageSmConfig()->forEach(stage, [&](StageConfig& c) { n += readOne(c); });
    root.stageSmStatus()->forEach(stage, [&](StageStatus const& c) { n += readOne(c); });
  }
  n += readEach(acl->ruleByName(), sets->prefixInfo(key)->prefixSetColl(),
                sets->rangeSplitInfo(type)->rangeSetColl(), lists->plainLabelList(),
                encoder->encodedLabelList(), combos->comboLabelSetColl());
  if (rules) n += readEach(rules->genSetIpRuleById());
  auto const data = w.pdConfig->currPDData();
  if (!data) return n;
  n += readAll(data, data->pdAclColl(), data->rangeColl(type), data->comboColl(combo));
  for (auto const& [aclKey, entries] : data->pdAclColl()->pdAcl()) n += readEach(entries->rule());
  return n + readEach(data->pdPrefixXformEntryColl(), data->pdAclColl()->pdAcl());
}

TEST(Attributes, EveryEntityReadsAsText) {
  World w(
      "a 10 r src 10.0.0.0/8,!10.1.0.0/16 dst 10.2.0.0/16 sport 1-5 dport 80-83 init\n"
      "a 20 s src 10.0.0.0/9 dst 10.0.0.0/8 sport 3-9 dport 80-90 proto 6 est drop log tc=3\n");
  size_t const before = readPipeline(w);
  for (RangeSetType type : {RangeSetType::srcPort, RangeSetType::dstPort})
    w.capability->rangeXformWidthIs(type, 6);
  w.capability->comboXformWidthIs(ComboLabelSetType::srcDstL4Port, 6);
  ASSERT_EQ(w.kick(), NaxelProgress::naxelFinishedSuccess) << w.failureText();
  EXPECT_GT(readPipeline(w), before + 60);
  auto const group = genSetKeyGroupFactory();
  auto const model = genSetCostModelFactory();
  Deduper deduper;
  deduper.addObj(group);
  EncodedLabelAllocator const allocator(4, encoderConfigFactory(Mox::makePtr<XformStatus>()), model,
                                        encoderStatusFactory(),
                                        Mox::makePtr<EncodedLabelAllocStatus>());
  EXPECT_GT(readAll(group, model) + readOne(allocator) + readOne(deduper) +
                readOne(DedupMarkAndSweeper()) + readOne(DedupableList(1)) +
                readOne(PrefixListDedup(nullptr)) + readOne(GenSetKeyGroupDeduper()) +
                readOne(GenSetRefCount(GenSetKey(1))),
            15u);
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
    EXPECT_GE(readOne(*entity), 1u);                           \
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
  for (auto const& [key, width] : chip->prefixXformWidth()) EXPECT_EQ(width, 16);
  EXPECT_TRUE(chip->rangeXformWidth().empty() && chip->comboXformWidth().empty());
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
