/// The root over the whole pipeline: what the agent sees of its requests, and what it may do from
/// within a notification.

#include "sequences/Fresh.h"

namespace Test {
namespace {

using namespace Naxel;
using Progress = NaxelProgress;

constexpr char rules[] = "edge 10 r src 10.0.0.0/8 dst 20.0.0.0/8 dport 80\nedge 20 s proto 6";

/// Notes the progress, and does something at chosen notifications.
class Agent : public RootStatus::Notifiee {
 public:
  explicit Agent(World& world) { notifierIs(world.rootStatus.get()); }
  std::vector<Progress> seen;
  std::function<void(Progress)> onProgress = [](Progress) {};

 private:
  void onKickProgress() override {
    Progress const p = static_cast<RootStatus const*>(notifier())->kickProgress();
    seen.push_back(p);
    onProgress(p);
  }
};

TEST(RootTest, RequestsAreCountedAndTheirCourseIsReported) {
  World w(rules, 3);
  Agent agent(w);
  EXPECT_EQ(w.progress(), Progress::naxelInitialized);
  EXPECT_TRUE(w.root->initialized());
  w.request();
  EXPECT_EQ(w.progress(), Progress::naxelRunning);
  w.run();
  w.rootConfig->naxelKickTimeIs(w.rootConfig->naxelKickTime());  // no new value, no request
  EXPECT_EQ(w.rootStatus->kickCount(), 1u);
  EXPECT_EQ(w.rootStatus->kickTime(), w.rootConfig->naxelKickTime());
  w.rules("edge 30 bad dport 2-1");
  w.kick();
  EXPECT_EQ(w.rootStatus->kickMessage(), "Naxel failed at stageAggregator on chip 3");
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
  EXPECT_EQ(agent.seen,
            (std::vector<Progress>{Progress::naxelRunning, Progress::naxelFinishedSuccess,
                                   Progress::naxelRunning, Progress::naxelFinishedFail,
                                   Progress::naxelRunning, Progress::naxelCancelled,
                                   Progress::naxelRunning, Progress::naxelFinishedSuccess}));
}

TEST(RootTest, ACancelFromWithinANotificationIsTheNewerRequest) {
  World w(rules);
  Agent agent(w);
  agent.onProgress = [&](Progress p) {
    if (p == Progress::naxelRunning &&
        w.rootConfig->naxelKickRequest() == NaxelKickRequest::naxelStart)
      w.request(NaxelKickRequest::naxelCancel);
  };
  w.request();
  EXPECT_EQ(w.run(), Progress::naxelCancelled);
  EXPECT_TRUE(w.driver.log.empty());
  agent.onProgress = [](Progress) {};
  kickOk(w);
}

}  // namespace
}  // namespace Test
