#pragma once

/// The stage controller: runs one kick of the pipeline of one chip.
///
/// It starts the stages one after another in the order of NaxelActiveStage by writing its kick time
/// into their configurations; all instances of a keyed stage run together. Every change of a
/// stage's status schedules one review on the timer wheel, however many changes there are in one
/// pass; the review moves on, waits, or ends the kick. A stage that reports failure ends it with
/// `lastFailedStage` set.
///
/// A cancel is a kick of its own: the review that follows ends it with `cancelled`. The stage that
/// was running is not told, so a loader in its handshake goes on and may still install its output;
/// its later status carries the older kick time and is ignored. A start that is requested before
/// the review of a cancel ran takes its place, and the cancel is then never reported.
///
/// Whichever stage has failed, the reason goes on with the caution of the loader, if it has one: who
/// reads that a kick has failed must read there that a policy is in force.

#include "naxel/control/StageControllerTypes.h"
#include "naxel/control/StageSm.h"
#include "naxel/control/StageSmColl.h"
#include "obel/TimerWheel.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Naxel {

class NAXEL_EXPORT NaxelStageControllerSm : public StageSm {
 public:
  NaxelStageControllerSm(Obel::ChipId chipId, Mox::Ptr<StageControllerConfig> config,
                         Mox::Ptr<StageControllerStatus> status,
                         Mox::Ptr<StageSmConfig> stageConfig, Mox::Ptr<StageSmStatus> stageStatus,
                         Mox::Ptr<Obel::TimerWheel> timerWheel);
  ~NaxelStageControllerSm() override;

  Mox::Ptr<StageControllerConfig> stageControllerConfig() const {
    return Mox::dynamicPtrCast<StageControllerConfig>(config());
  }
  Mox::Ptr<StageControllerStatus> const& stageControllerStatus() const { return status_; }
  /// The stage now running; stageInit between kicks, and after a cancel the stage that was running.
  NaxelActiveStage activeStage() const { return activeStage_; }
  bool initialized() const { return initialized_; }

  /// What is done at each start before the first stage runs; what it throws fails the kick.
  void prepareIs(std::function<void()> prepare) { prepare_ = std::move(prepare); }
  void doStartKick() override;
  /// Moves on to the next stage and starts it.
  void transitStage();
  /// Has one review run in the next pass of the timer wheel.
  void scheduleReview();
  void doReview();
  /// Why no kick can run any more, in words; null while there is nothing of the kind. It must stay where it
  /// is. Setting it ends the running kick; all later ones fail at once.
  char const* obstacle() const { return obstacle_; }
  void obstacleIs(char const* why);

  /// What a running kick waits for outside of the handshake with the driver, in words; empty while none
  /// runs.
  std::string waitingFor() const;

  /// A status as it stands for the present kick: `init` if it belongs to an older one.
  StageStatusType doCheckStageStatus(StageStatus const& status) const;
  StageStatusType doCheckPrefixXformStatus() const;
  StageStatusType doCheckRangeSplitStatus() const;
  StageStatusType doCheckComboLabelResolverStatus() const;
  StageStatusType doCheckComboLabelSplitStatus() const;
  StageStatusType doCheckPrefixEncoderStatus() const;
  StageStatusType doCheckRangeEncoderStatus() const;
  StageStatusType doCheckComboLabelEncoderStatus() const;

  void moxDoZombieReactors(bool zombie) override;

 private:
  /// Watches one stage status.
  class StatusReactor : public StageStatus::Notifiee {
   public:
    StatusReactor(NaxelStageControllerSm& sm, StageStatus& status) : sm_(sm) {
      notifierIs(&status);
    }
    void onStatus() override { handleStatus(); }

   private:
    void handleStatus();
    NaxelStageControllerSm& sm_;
  };
  /// Watches which statuses there are.
  class StageStatusReactor : public StageSmStatus::Notifiee {
   public:
    explicit StageStatusReactor(NaxelStageControllerSm& sm) : sm_(sm) {}
    void onAggregatorStatus() override { bind(NaxelActiveStage::stageAggregator); }
    void onPrefixXformStatus(PrefixXformKey const&) override {
      bind(NaxelActiveStage::stagePrefixXform);
    }
    void onRangeSplitStatus(RangeSetType const&) override {
      bind(NaxelActiveStage::stageRangeSplit);
    }
    void onComboLabelResolverStatus(ComboLabelSetType const&) override {
      bind(NaxelActiveStage::stageComboLabelResolver);
    }
    void onComboLabelSplitStatus(ComboLabelSetType const&) override {
      bind(NaxelActiveStage::stageComboLabelSplit);
    }
    void onPrefixEncoderStatus(PrefixXformKey const&) override {
      bind(NaxelActiveStage::stagePrefixEncoder);
    }
    void onRangeEncoderStatus(RangeSetType const&) override {
      bind(NaxelActiveStage::stageRangeEncoder);
    }
    void onComboLabelEncoderStatus(ComboLabelSetType const&) override {
      bind(NaxelActiveStage::stageComboLabelEncoder);
    }
    void onRuleExpanderStatus() override { bind(NaxelActiveStage::stageRuleExpander); }
    void onLoaderStatus() override { bind(NaxelActiveStage::stageLoader); }
    void bind(NaxelActiveStage stage);

   private:
    NaxelStageControllerSm& sm_;
    std::map<NaxelActiveStage, std::vector<std::unique_ptr<StatusReactor>>> reactors_;
  };
  class ReviewTimer : public Obel::TimerNotifiee {
   public:
    ReviewTimer(NaxelStageControllerSm& sm, Mox::Ptr<Obel::TimerWheel> wheel)
        : TimerNotifiee(std::move(wheel)), sm_(sm) {}
    void handleExpiry() override { sm_.doReview(); }

   private:
    NaxelStageControllerSm& sm_;
  };

  void handleInitialized();
  StageStatusType doCheckKeyed(NaxelActiveStage stage) const;
  StageStatusType checkActiveStage() const;
  std::string failureTextOf(NaxelActiveStage stage) const;
  void doEndFailed(NaxelActiveStage stage, std::function<std::string()> const& text);
  /// Ends the running kick, whatever its stage is doing.
  void doFailKick(char const* why);
  NaxelKickRequest kickRequest() const { return configAs<StageControllerConfig>().kickRequest(); }

  Mox::Ptr<StageControllerStatus> status_;
  Mox::Ptr<StageSmConfig> stageConfig_;
  Mox::Ptr<StageSmStatus> stageStatus_;
  Mox::Ptr<Obel::TimerWheel> timerWheel_;
  NaxelActiveStage activeStage_ = NaxelActiveStage::stageInit;
  std::function<void()> prepare_;
  char const* obstacle_ = nullptr;
  bool initialized_ = false;
  StageStatusReactor stageStatusReactor_{*this};
  ReviewTimer timer_;
};

}  // namespace Naxel
