/// The root over the whole pipeline: what the agent sees of its requests, and what it may do from
/// within a notification.

#include "support/Handshake.h"

namespace Test {
namespace {

using namespace Naxel;
using Progress = NaxelProgress;

struct ProgressLog : RootStatus::Notifiee {
  explicit ProgressLog(RootStatus& status) { notifierIs(&status); }
  void onKickProgress() override {
    seen.push_back(static_cast<RootStatus const*>(notifier())->kickProgress());
  }
  std::vector<Progress> seen;
};

TEST(RootTest, RequestsAreCountedAndTheirCourseIsReported) {
  World w(firstRules, 3);
  ProgressLog const log(*w.rootStatus);
  EXPECT_EQ(w.progress(), Progress::naxelInitialized);
  EXPECT_EQ(w.kick(), success);
  w.rootConfig->naxelKickTimeIs(w.rootConfig->naxelKickTime());  // no new value, no request
  EXPECT_EQ(w.rootStatus->kickCount(), 1u);
  EXPECT_EQ(w.rootStatus->kickTime(), w.rootConfig->naxelKickTime());
  w.rules("edge 30 bad dport 2-1");
  w.kick();
  w.request(NaxelKickRequest::naxelCancel);
  w.run();
  // A cancel leaves the text of the last failure.
  EXPECT_EQ(w.rootStatus->kickMessage(), "Naxel failed at stageAggregator on chip 3");
  w.acls->acl("edge")->ruleByNameDel("bad");
  w.rootConfig->naxelKickRequestIs(NaxelKickRequest::naxelStart);
  w.rootConfig->naxelKickTimeIs(-5);  // the agent's own number
  EXPECT_EQ(w.rootStatus->kickMessage(), "");
  w.run();
  EXPECT_EQ(w.rootStatus->kickCount(), 4u);
  EXPECT_EQ(w.rootStatus->kickTime(), -5);
  EXPECT_EQ(log.seen, (std::vector{running, success, running, failure, running,
                                   Progress::naxelCancelled, running, success}));
}

TEST(RootTest, ACancelFromWithinANotificationIsTheNewerRequest) {
  for (int at : {1, 2, 3}) {  // count, time and progress
    World w(firstRules);
    At<RootStatus::Notifiee> const canceller(at, *w.rootStatus,
                                             [&] { w.request(NaxelKickRequest::naxelCancel); });
    w.request();
    EXPECT_EQ(w.run(), Progress::naxelCancelled) << at;
    EXPECT_TRUE(w.driver.log.empty());
    kickOk(w);
  }
}

TEST(RootTest, AKickThatARootLeftRunningIsOverForTheNext) {
  ByHand w;
  for (Progress left : {Progress::naxelRunning, Progress::naxelFinishedFail}) {
    w.rootStatus->kickProgressIs(left);
    w.buildRoot();
    EXPECT_EQ(w.progress(), left == running ? Progress::naxelInitialized : left);
    EXPECT_EQ(w.kick(), running);
  }
}

/// A world whose entities stand in the collections of an agent.
struct Owned : World {
  Owned() { take(); }
  /// Makes what is missing, and a root and a driver over it.
  void take() {
    root = nullptr;
    capability = capabilities->chipHwCapabilityIs(chipId);
    acls = configs->aclConfigCollIs(chipId);
    pdConfig = pdConfigs->pdConfigIs(chipId);
    pdStatus = pdStatuses->pdStatusIs(chipId);
    chip = std::make_unique<ScriptDriver>(*pdConfig, *pdStatus);
    addRules(*acls, "edge 10 r src 10.0.0.0/8 dport 80");
    buildRoot();
  }
  Mox::Ptr<HwCapabilityColl> capabilities = hwCapabilityCollFactory();
  Mox::Ptr<GlobalAclConfig> configs = globalAclConfigFactory();
  Mox::Ptr<GlobalPDConfig> pdConfigs = globalPDConfigFactory();
  Mox::Ptr<GlobalPDStatus> pdStatuses = globalPDStatusFactory();
  std::unique_ptr<ScriptDriver> chip;
};

TEST(RootTest, AnEntityThatIsDeletedFromItsCollectionFailsKicksUntilTheRootIsBuiltAnew) {
  std::pair<std::string, void (*)(Owned&)> const cases[] = {
      {"ChipHwCapability", [](Owned& w) { w.capabilities->chipHwCapabilityDel(w.chipId); }},
      {"AclConfigColl", [](Owned& w) { w.configs->aclConfigCollDelAll(); }},
      {"PDConfig", [](Owned& w) { w.pdConfigs->pdConfigDel(w.chipId); }},
      {"PDStatus", [](Owned& w) { w.pdStatuses->pdStatusDelAll(); }}};
  enum When { idle, requested, inTheHandshake };
  for (auto const& [what, del] : cases)
    for (When when : {idle, requested, inTheHandshake}) {
      SCOPED_TRACE(testing::Message() << what << when);
      Owned w;
      ASSERT_EQ(w.kick(), success);
      Traced traced;
      w.chip->automatic = false;
      if (when != idle) w.request();
      if (when == inTheHandshake) w.run();
      del(w);
      std::string const text = what +
                               " has been deleted from its collection: the root state machine has "
                               "to be built anew, over the present one";
      EXPECT_GT(traced.count(text), 0);
      EXPECT_EQ(w.progress(), when == idle ? success : failure);
      EXPECT_EQ(w.failureText(), when == idle ? "" : text);
      auto const requests = w.chip->log.size();
      for (int kicks = 0; kicks < 2; ++kicks) {
        EXPECT_EQ(w.kick(), failure);
        EXPECT_EQ(w.failureText(), text);
      }
      EXPECT_EQ(w.chip->log.size(), requests);
      w.clock.nowInc(1);
      w.take();
      kickOk(w);
    }
}

}  // namespace
}  // namespace Test
