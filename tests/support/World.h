#pragma once

/// One chip's pipeline with a hand-set clock, its configuration as text, and a driver that the test
/// commands.

#include "naxel/agent/Agent.h"
#include "naxel/control/NaxelRootSm.h"
#include "naxel/control/NaxelStageControllerSm.h"
#include "naxel/encoder/EncoderTypes.h"
#include "naxel/expander/RuleExpanderTypes.h"
#include "naxel/loader/NaxelLoaderTypes.h"
#include "naxel/testing/RuleText.h"
#include "naxel/xform/NaxelXformTypes.h"
#include "verify/ConfigCopy.h"
#include "verify/OutputText.h"

#include <string>
#include <string_view>
#include <vector>

namespace Test {

using Naxel::Testing::addRules;
using Naxel::Testing::fillFilter;
using Naxel::Testing::rangeFieldOf;
using Verify::copyAcls;
using Verify::dump;
using Verify::full;

/// Answers the library's requests, at once unless told to hold.
class ScriptDriver : private Naxel::PDConfig::Notifiee {
 public:
  ScriptDriver(Naxel::PDConfig& config, Naxel::PDStatus& status);

  /// Answers requests from within the write (default); otherwise the test calls answer().
  bool automatic = true;
  /// Confirms policies from within the write (default); otherwise the test calls confirmPolicy().
  bool confirms = true;
  /// What an automatic driver says to an acquire.
  Naxel::ResponseState acquireAnswer = Naxel::ResponseState::hitless;

  /// Requests and policies in the order in which they came, as "acquire", "load", "revert",
  /// "denyAll", ...
  std::vector<std::string> log;

  Naxel::ResourceConfig current() const { return config_.pdResourceConfig(); }
  /// Answers the current request for all tables but the one for TCP flags: hitless (or
  /// acquireAnswer), loaded or reverted.
  void answer();
  /// Writes one answer into all tables but the one for TCP flags.
  void answerAll(Naxel::ResourceStatus const& status);
  void confirmPolicy() { status_.globalAclControlIs(config_.globalAclControl()); }

 private:
  void onPdResourceConfig() override;
  void onGlobalAclControl() override;

  Naxel::PDConfig& config_;
  Naxel::PDStatus& status_;
};

/// Everything for one chip. Members are public: tests reach into all of it.
class World : public Naxel::ChipEntities {
 public:
  /// `rules` as in addRules().
  explicit World(std::string_view rules = {}, uint8_t chip = 0);

  /// Builds the root (again), over the same configuration and PDConfig.
  void buildRoot();
  /// Requests a kick and runs the activity until it rests. Returns the progress.
  Naxel::NaxelProgress kick();
  /// Requests without running.
  void request(Naxel::NaxelKickRequest what = Naxel::NaxelKickRequest::naxelStart);
  Naxel::NaxelProgress run();
  Naxel::NaxelProgress progress() const { return rootStatus->kickProgress(); }
  std::string failureText() const { return root->stageControllerStatus()->failureText(); }
  void rules(std::string_view text) { addRules(*acls, text); }
  Mox::Ptr<Naxel::RuleConfig> rule(std::string const& acl, std::string const& name) const {
    return acls->acl(acl)->ruleByName(name);
  }
  /// What the driver was last asked to load.
  Naxel::PDData const& tables() const { return *pdConfig->currPDData(); }

  Mox::ManualClock clock;
  Mox::Activity activity{clock};
  Mox::Ptr<Obel::TimerWheel> wheel;
  ScriptDriver driver;
  Mox::Ptr<Naxel::NaxelRootSm> root;
};

}  // namespace Test
