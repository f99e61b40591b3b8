/// The parts of a pipeline, each of which can be taken out, put back and replaced by itself.

#include "naxel/encoder/NaxelLabelEncoderSm.h"
#include "naxel/expander/NaxelRuleExpanderSm.h"
#include "naxel/genset/NaxelAggregatorSm.h"
#include "naxel/xform/NaxelComboLabelResolverSm.h"
#include "naxel/xform/NaxelComboLabelSplitSm.h"
#include "naxel/xform/NaxelPrefixXformSm.h"
#include "naxel/xform/NaxelRangeSplitSm.h"
#include "support/Handshake.h"

namespace Test {
namespace {

using namespace Naxel;
PrefixXformKey const v4Source(Lumox::ipv4(), true);

/// A configuration that is bound no more starts nothing.
void expectIdle(StageConfig& old, StageStatus const& status) {
  auto const before = status.kickTime();
  old.kickTimeIs(before + 1);
  EXPECT_EQ(status.kickTime(), before);
}

TEST(PartsTest, AStageWorksFromTheConfigurationThatItIsBoundTo) {
  World w("edge 10 r src 10.0.0.0/8");
  kickOk(w);
  // Other sets under the same keys.
  auto const xform = w.root->prefixXformConfig(v4Source);
  auto const sets = Mox::makePtr<PrefixAggregatorInfo>(v4Source);
  for (auto const& [key, set] : xform->aggregatorInfo()->prefixSetColl())
    sets->prefixSetCollIs(key)->prefixIs(Mox::valueFromText<Lumox::IpGenPrefix>("11.0.0.0/8"));
  w.root->prefixXformConfigIs(v4Source, Mox::makePtr<PrefixXformConfig>(v4Source, sets));
  EXPECT_EQ(w.kick(), success) << w.failureText();
  EXPECT_EQ(w.root->prefixXformStatus(v4Source)->status(), StageStatusType::finishedSuccess);
  EXPECT_NE(dump(w.tables()).find("ipv4 src: 11.0.0.0/8="), std::string::npos) << dump(w.tables());
  expectIdle(*xform, *w.root->prefixXformStatus(v4Source));
  w.root->prefixXformConfigIs(v4Source, xform);
  kickOk(w);

  auto const aggregator = w.root->aggregatorConfig();
  auto const acls = aclConfigCollFactory(w.chipId);
  addRules(*acls, "core 5 r dst 12.0.0.0/8 drop");
  w.root->aggregatorConfigIs(aggregatorConfigFactory(acls));
  w.acls = acls;
  kickOk(w);
  expectIdle(*aggregator, *w.root->aggregatorStatus());

  auto const loader = w.root->loaderConfig();
  auto const entries = Mox::makePtr<PDAclColl>();
  entries->pdAclIs(PDAclKey(Lumox::ipv4(), "other"));
  auto const config = Mox::makePtr<LoaderConfig>();
  config->ruleExpanderLoaderInfoIs(entries);
  w.root->loaderConfigIs(config);
  EXPECT_EQ(w.kick(), success);
  EXPECT_EQ(dump(w.tables()), "acl other ipv4\n");
  auto const log = w.driver.log;
  expectIdle(*loader, *w.root->loaderStatus());
  EXPECT_EQ(w.driver.log, log);
}

TEST(PartsTest, WhatIsAnsweredAfterAPartHasBeenTakenAwayGoesNowhere) {
  std::pair<void (*)(NaxelRootSm&), NaxelProgress> const cases[] = {
      {[](NaxelRootSm& r) { r.loaderConfigDel(); }, running},
      {[](NaxelRootSm& r) { r.loaderSmDel(); }, running},
      {[](NaxelRootSm& r) { r.stageControllerConfigDel(); }, running},
      {[](NaxelRootSm& r) { r.stageControllerSmDel(); }, running},
      {[](NaxelRootSm& r) { r.stageControllerStatusDel(); }, running},
      {[](NaxelRootSm& r) { r.loaderStatusDel(); }, success}};
  char const* const steps[] = {"hitful", "confirm", "loaded", "confirm"};
  for (auto const& [cut, end] : cases)
    for (size_t done = 0; done < 4; ++done) {
      SCOPED_TRACE(testing::Message() << &cut - &cases[0].first << done);
      ByHand w;
      w.kick();
      Log log;
      for (size_t i = 0; i < 4; ++i) {
        if (i == done) log = w.driver.log, cut(*w.root);
        w.play(steps[i]);
      }
      EXPECT_EQ(w.play("tcp:failed"), end);
      bool const loaderIsCut = !w.root->loaderConfig() || !w.root->loaderSm();
      EXPECT_EQ(w.driver.log,
                loaderIsCut ? log : (Log{"acquire", "denyAll", "load", "doNotApply"}));
      w.kick();
      w.driver.automatic = w.driver.confirms = true;
      w.buildRoot();
      kickOk(w);
    }
}

TEST(PartsTest, ALoaderThatIsUnboundInAnyNotificationAsksForNothingMore) {
  for (int at = 2; at <= 5; ++at) {
    World w("edge 10 r src 10.0.0.0/8");
    w.driver.acquireAnswer = ResponseState::hitful;
    Log log;
    At<PDConfig::Notifiee> const cutter(at, *w.pdConfig, [&] {
      log = w.driver.log;
      w.root->loaderConfigDel();
    });
    EXPECT_EQ(w.kick(), running);
    EXPECT_EQ(cutter.left(), 0) << at;
    EXPECT_EQ(w.driver.log, log);
  }
}

// The operations differ in nothing but their names.
#define CHECK_PART(NAME, ...)                                   \
  SCOPED_TRACE(#NAME);                                          \
  World w, other;                                               \
  NaxelRootSm& root = *w.root;                                  \
  auto const config = root.NAME##Config(__VA_ARGS__);           \
  auto const status = root.NAME##Status(__VA_ARGS__);           \
  auto const sm = root.NAME##Sm(__VA_ARGS__);                   \
  auto const newSm = other.root->NAME##Sm(__VA_ARGS__);         \
  root.NAME##ConfigDel(__VA_ARGS__);                            \
  EXPECT_FALSE(root.NAME##Config(__VA_ARGS__) || sm->config()); \
  expectIdle(*config, *status);                                 \
  root.NAME##ConfigIs(__VA_ARGS__ __VA_OPT__(, ) config);       \
  EXPECT_EQ(root.NAME##Config(__VA_ARGS__), config);            \
  config->kickTimeIs(7);                                        \
  EXPECT_EQ(status->kickTime(), 7);                             \
  root.NAME##StatusDel(__VA_ARGS__);                            \
  EXPECT_FALSE(root.NAME##Status(__VA_ARGS__));                 \
  root.NAME##StatusIs(__VA_ARGS__ __VA_OPT__(, ) status);       \
  EXPECT_EQ(root.NAME##Status(__VA_ARGS__), status);            \
  root.NAME##SmIs(__VA_ARGS__ __VA_OPT__(, ) newSm);            \
  EXPECT_EQ(root.NAME##Sm(__VA_ARGS__), newSm);                 \
  expectIdle(*config, *status);                                 \
  root.NAME##SmDel(__VA_ARGS__);                                \
  EXPECT_FALSE(root.NAME##Sm(__VA_ARGS__));                     \
  expectIdle(*newSm->config(), *newSm->status());               \
  w.kick()

#define CHECK_KEYED(NAME, KEY)                                                    \
  {                                                                               \
    CHECK_PART(NAME, KEY);                                                        \
    auto const sms = other.root->NAME##Sm(), left = root.NAME##Sm();              \
    EXPECT_EQ(left.size() + 1, sms.size());                                       \
    other.root->NAME##ConfigDelAll();                                             \
    for (auto const& [k, one] : sms) EXPECT_FALSE(one->config());                 \
    root.NAME##StatusDelAll();                                                    \
    root.NAME##SmDelAll();                                                        \
    EXPECT_TRUE(root.NAME##Status().empty() && root.NAME##Sm().empty() &&         \
                other.root->NAME##Config().empty());                              \
    for (auto const& [k, one] : left) expectIdle(*one->config(), *one->status()); \
    w.kick();                                                                     \
  }

TEST(PartsTest, EveryPartCanBeTakenOutPutBackAndReplaced) {
  { CHECK_PART(stageController); }
  { CHECK_PART(aggregator); }
  { CHECK_PART(ruleExpander); }
  { CHECK_PART(loader); }
  CHECK_KEYED(prefixXform, v4Source)
  CHECK_KEYED(prefixEncoder, v4Source)
  CHECK_KEYED(rangeSplit, RangeSetType::dscp)
  CHECK_KEYED(rangeEncoder, RangeSetType::dscp)
  CHECK_KEYED(comboLabelResolver, ComboLabelSetType::srcDstL4Port)
  CHECK_KEYED(comboLabelSplit, ComboLabelSetType::srcDstL4Port)
  CHECK_KEYED(comboLabelEncoder, ComboLabelSetType::srcDstL4Port)
}

}  // namespace
}  // namespace Test
