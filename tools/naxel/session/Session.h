#pragma once

/// One chip's pipeline as an agent would build it, with the software chip as its driver.

#include "input/ChipReader.h"
#include "mox/Activity.h"
#include "naxel/control/NaxelRootSm.h"
#include "naxel/loader/PDConfig.h"
#include "session/StageTimes.h"
#include "softchip/SoftChip.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace NaxelTool {

/// How many labels an encoder has handed out.
struct LabelUse {
  std::string field;
  unsigned width = 0;  ///< in bits; 0 where the field is matched by its raw value
  size_t used = 0;
};

class Session {
 public:
  /// `acls` must not change while a kick runs.
  Session(ChipSetup const& setup, Mox::Ptr<Naxel::AclConfigColl const> acls);
  Session(Session const&) = delete;
  Session& operator=(Session const&) = delete;
  ~Session();

  /// Requests a kick and runs the activity until its end. Returns true on success.
  bool kick();

  Naxel::RootStatus const& rootStatus() const { return *rootStatus_; }
  Mox::Ptr<Naxel::AclConfigColl const> const& acls() const { return acls_; }
  /// The output in force, after a kick that succeeded.
  Naxel::PDData const& data() const { return *pdConfig_->currPDData(); }
  SoftChip::Chip& softChip() { return *softChip_; }
  Naxel::NaxelRootSm const& root() const { return *root_; }

  /// Wall time of the last kick, in seconds.
  double kickSeconds() const { return kickSeconds_; }
  StageTimes const& stageTimes() const { return stageTimes_; }
  /// One for each key of the prefix, range and combination encoders, in this order. Combinations that
  /// the chip does not make are left out.
  std::vector<LabelUse> labelUse() const;
  /// The temporary policy that the last kick went through; none when the load was hitless.
  std::optional<Naxel::GlobalAclControl> temporaryPolicy() const { return policy_.temporary; }
  /// Why the last kick failed: one line per status that reports it, and what the chip's tables lack.
  /// May be empty.
  std::vector<std::string> failureTexts() const;

 private:
  /// Remembers which policy the library asked for.
  struct PolicyReactor : Naxel::PDConfig::Notifiee {
    void onGlobalAclControl() override;
    std::optional<Naxel::GlobalAclControl> temporary;
  };
  struct Status {
    Naxel::NaxelActiveStage stage;
    std::string key;  // empty for a stage without keys
    Mox::Ptr<Naxel::StageStatus const> status;
  };

  template <class P>
  void watch(Naxel::NaxelActiveStage stage, P const& status, std::string key = "");
  void watchStages();

  Obel::ChipId chip_;
  Mox::WallClock clock_;
  Mox::Activity activity_{clock_};
  Mox::Ptr<Obel::TimerWheel> wheel_;
  Mox::Ptr<Naxel::ChipHwCapability const> capability_;
  Mox::Ptr<Naxel::AclConfigColl const> acls_;
  Mox::Ptr<Naxel::RootConfig> rootConfig_;
  Mox::Ptr<Naxel::RootStatus> rootStatus_;
  Mox::Ptr<Naxel::PDConfig> pdConfig_;
  Mox::Ptr<Naxel::PDStatus> pdStatus_;
  std::unique_ptr<SoftChip::Chip> softChip_;
  Mox::Ptr<Naxel::NaxelRootSm> root_;
  std::vector<Status> statuses_;
  StageTimes stageTimes_;
  PolicyReactor policy_;
  double kickSeconds_ = 0;
};

}  // namespace NaxelTool
