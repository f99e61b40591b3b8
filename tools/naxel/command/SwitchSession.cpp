#include "command/SwitchSession.h"

#include "naxel/control/StageControllerTypes.h"

namespace NaxelTool {

namespace {

/// Wakes the activity now and then, so that something else is looked at.
class Ticking : public Obel::TimerNotifiee {
 public:
  Ticking(Mox::Ptr<Obel::TimerWheel> const& wheel, Mox::Seconds every)
      : TimerNotifiee(wheel), every_(every) {
    arm();
  }
  void handleExpiry() override { arm(); }

 private:
  void arm() { earliestExpiryIs(timerWheel()->now() + every_); }
  Mox::Seconds every_;
};

}  // namespace

SwitchSession::SwitchSession(ChipSetup const& setup, Mox::Ptr<Naxel::AclConfigColl> acls,
                             NaxelOvs::DriverOptions options)
    : wheel_(Mox::makePtr<Obel::TimerWheel>(activity_)) {
  Naxel::ChipEntities entities(setup.capability->chipId());
  entities.capability = setup.capability;
  entities.acls = std::move(acls);
  entities.params->labelCodeIs(setup.labelCode);
  entities.params->entryLimitIs(setup.entryLimit);
  entities.params->keepLabelsIs(true);
  driver_ = std::make_unique<NaxelOvs::SwitchDriver>(entities.pdConfig, entities.pdStatus, wheel_,
                                                     std::move(options));
  driver_->start();
  pipeline_ = std::make_unique<Naxel::Pipeline>(entities, wheel_);
}

SwitchSession::~SwitchSession() = default;

Naxel::NaxelActiveStage SwitchSession::failedStage() const {
  return pipeline_->root().stageControllerStatus()->lastFailedStage();
}

std::optional<Naxel::KickResult> SwitchSession::kick(Mox::Seconds limit,
                                                     std::function<bool()> const& stop) {
  // Shared, since a kick that this one has waited for in vain ends when this function has.
  auto const result = std::make_shared<std::optional<Naxel::KickResult>>();
  Mox::Seconds const end = clock_.now() + limit;
  Ticking const ticking(wheel_, 0.1);
  pipeline_->kick([result](Naxel::KickResult const& r) { *result = r; });
  activity_.runUntil([&] {
    tell();
    return *result || clock_.now() >= end || (stop && stop());
  });
  return *result;
}

void SwitchSession::runUntil(std::function<bool()> const& done) {
  Ticking const ticking(wheel_, 0.2);
  activity_.runUntil([&] {
    tell();
    return done();
  });
}

void SwitchSession::tell() {
  if (!tell_ || driver_->waitingFor() == told_) return;
  told_ = driver_->waitingFor();
  tell_(told_);
}

}  // namespace NaxelTool
