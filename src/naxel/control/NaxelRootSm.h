#pragma once

/// The entry point of the library for one chip.
///
/// The agent creates a root state machine with the chip's input and output entities; it builds and
/// owns the whole pipeline, turns a kick request in RootConfig into a kick of the stage controller,
/// and reports course and outcome in RootStatus. A constructed root is complete. Everything runs on
/// the activity thread of the timer wheel.
///
/// Every request counts: two requests at one reading of the clock, or one after the clock has
/// stepped back, are different kicks, because the pipeline's kick time is the present time or the
/// next number above the last kick's, whichever is larger. A cancel that is requested while nothing
/// runs ends as `naxelCancelled`.
///
/// A kick works from the widths and parameters that stood when it was requested: the root copies them
/// then, so that what the agent changes meanwhile counts from the next kick on and never for one half
/// of a kick.
///
/// What an agent hands over must stay in its place. Once `ChipHwCapability`, `AclConfigColl`, `PDConfig`
/// or `PDStatus` has been deleted from its collection, nobody looks any more at the one that the root
/// has: the running kick and all later ones fail, in words, until a root is built over the new one.
///
/// Silence. A kick without any progress for as long as `ParamConfig::silenceLimit` is traced at level 0
/// together with what it waits for; again after each doubling of that time.

#include "mox/KeepAlive.h"
#include "naxel/control/PipelineParts.h"
#include "naxel/control/RootTypes.h"
#include "obel/TimerWheel.h"

#include <memory>
#include <string>
#include <vector>

namespace Acl {
class ParamConfig;
}

namespace Naxel {

class AclConfigColl;
class ChipHwCapability;
class PDConfig;
class PDStatus;

class NAXEL_EXPORT NaxelRootSm : public PipelineParts {
 public:
  /// No argument may be null. `pdConfig` may have been in use by an earlier root: its last request
  /// and the output in force are taken over. A kick that `rootStatus` reports as running ended with the
  /// earlier root, and is reported as `naxelInitialized`.
  NaxelRootSm(Obel::ChipId chipId, Mox::Ptr<ChipHwCapability const> hwCapability,
              Mox::Ptr<RootConfig> rootConfig, Mox::Ptr<RootStatus> rootStatus,
              Mox::Ptr<AclConfigColl const> aclConfigColl,
              Mox::Ptr<Acl::ParamConfig const> paramConfig, Mox::Ptr<PDConfig> pdConfig,
              Mox::Ptr<PDStatus> pdStatus, Mox::Ptr<Obel::TimerWheel> timerWheel);
  ~NaxelRootSm() override;

  Obel::ChipId chipId() const { return chipId_; }
  /// The configuration whose requests are followed; null while none is bound.
  Mox::Ptr<RootConfig> const& rootConfig() const { return rootConfig_; }
  /// Binds another configuration; what stands there is no request.
  void rootConfigIs(Mox::Ptr<RootConfig> v);
  /// Unbinds the configuration: no further request is seen.
  void rootConfigDel() { rootConfigIs(nullptr); }
  Mox::Ptr<RootStatus> const& rootStatus() const { return rootStatus_; }
  /// True from the end of construction on.
  bool initialized() const { return initialized_; }

  /// What the running kick waits for, in words for the operator: which request to the driver, which
  /// tables have answered what, which policy; or which stage. So too for the handshake of a kick that
  /// was cancelled. Empty while nothing is waited for.
  std::string waitingFor() const;

 private:
  class RootConfigReactor : public RootConfig::Notifiee {
   public:
    explicit RootConfigReactor(NaxelRootSm& sm) : sm_(sm) {}
    void onNaxelKickTime() override { sm_.handleNaxelKickTime(); }

   private:
    NaxelRootSm& sm_;
  };
  class StageStatusReactor : public StageStatus::Notifiee {
   public:
    explicit StageStatusReactor(NaxelRootSm& sm) : sm_(sm) {}
    void onStatus() override { sm_.handleStageStatus(); }
    void onProgress() override { sm_.handleProgress(); }

   private:
    NaxelRootSm& sm_;
  };
  class LoaderStatusReactor : public StageStatus::Notifiee {
   public:
    explicit LoaderStatusReactor(NaxelRootSm& sm) : sm_(sm) {}
    void onProgress() override { sm_.handleProgress(); }

   private:
    NaxelRootSm& sm_;
  };
  class SilenceTimer : public Obel::TimerNotifiee {
   public:
    SilenceTimer(NaxelRootSm& sm, Mox::Ptr<Obel::TimerWheel> wheel)
        : TimerNotifiee(std::move(wheel), Purpose::watch), sm_(sm) {}
    void handleExpiry() override { sm_.handleSilence(); }

   private:
    NaxelRootSm& sm_;
  };
  class DeletionReactor;
  class LoaderInfoReactor;
  /// Keeps the root through a call in which handlers may let go of it.
  class CallScope {
   public:
    explicit CallScope(NaxelRootSm& sm) : sm_(sm), alive_(Mox::keepAlive(&sm)) { ++sm_.calls_; }
    ~CallScope() { --sm_.calls_; }
    CallScope(CallScope const&) = delete;
    CallScope& operator=(CallScope const&) = delete;
    /// Nobody but such calls has the root any more: it is as good as destroyed, and writes nothing.
    bool isLeft() const { return alive_ && sm_.references() == sm_.calls_; }

   private:
    NaxelRootSm& sm_;
    Mox::Ptr<NaxelRootSm> alive_;
  };

  void handleNaxelKickTime();
  void handleStageStatus();
  void handleProgress();
  void handleSilence();
  bool isShakingHands() const;
  void handleDeleted(char const* why);
  void handleInitialized();
  void onStageControllerStatus() override;
  void buildPrefixSide();
  void buildRangeSide();
  void buildComboSide();
  /// Copies widths and parameters for the kick that begins.
  void takeInputs();
  /// Has all encoders that have both codes publish the one by which the rules take fewer entries.
  void chooseLabelCode();
  /// Calls `f` for each encoder with the field of the entries that it serves, for IPv4 and for IPv6.
  template <class F>
  void forEachEncoder(F f) const;
  Mox::Seconds nextKickTime() const;
  template <class Entity>
  void watchDeletion(Mox::Ptr<Entity> const& entity, char const* why);
  /// Keeps the loader's configuration in step with an encoder's loader info.
  template <class Status, class Pass>
  void watchLoaderInfo(Mox::Ptr<Status> status, Pass pass);

  Obel::ChipId chipId_;
  Mox::Ptr<ChipHwCapability const> hwCapability_;
  Mox::Ptr<RootConfig> rootConfig_;
  Mox::Ptr<RootStatus> rootStatus_;
  Mox::Ptr<AclConfigColl const> aclConfigColl_;
  Mox::Ptr<Acl::ParamConfig const> paramConfig_;
  Mox::Ptr<PDConfig> pdConfig_;
  Mox::Ptr<PDStatus> pdStatus_;
  Mox::Ptr<Obel::TimerWheel> timerWheel_;

  Mox::Ptr<ChipHwCapability> kickCapability_;   // as of the last start
  Mox::Ptr<Acl::ParamConfig> kickParamConfig_;  // so too
  uint64_t requests_ = 0;
  uint32_t calls_ = 0;
  Mox::Seconds progressAt_ = 0;
  Mox::Seconds silence_ = 0;  // after so long without progress it is told next

  std::vector<std::unique_ptr<LoaderInfoReactor>> loaderInfoReactors_;
  std::vector<std::unique_ptr<DeletionReactor>> deletionReactors_;
  bool initialized_ = false;
  bool toldOfAligned_ = false;
  RootConfigReactor rootConfigReactor_{*this};
  StageStatusReactor stageStatusReactor_{*this};
  // The loader's progress is watched apart from the controller's: the handshake of a cancelled kick goes on
  // while the controller rests.
  LoaderStatusReactor loaderStatusReactor_{*this};
  SilenceTimer silenceTimer_;
};
NAXEL_EXPORT Mox::Ptr<NaxelRootSm> naxelRootSmFactory(
    Obel::ChipId chipId, Mox::Ptr<ChipHwCapability const> hwCapability,
    Mox::Ptr<RootConfig> rootConfig, Mox::Ptr<RootStatus> rootStatus,
    Mox::Ptr<AclConfigColl const> aclConfigColl, Mox::Ptr<Acl::ParamConfig const> paramConfig,
    Mox::Ptr<PDConfig> pdConfig, Mox::Ptr<PDStatus> pdStatus,
    Mox::Ptr<Obel::TimerWheel> timerWheel);

}  // namespace Naxel
