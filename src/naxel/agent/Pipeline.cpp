#include "naxel/agent/Pipeline.h"

#include "naxel/agent/StageTimes.h"
#include "naxel/control/NaxelRootSm.h"
#include "naxel/control/StageControllerTypes.h"
#include "naxel/genset/AclCheck.h"
#include "naxel/genset/FieldNames.h"
#include "naxel/loader/PDConfig.h"
#include "obel/TimerWheel.h"

#include <ostream>
#include <utility>

namespace Naxel {

class Pipeline::ProgressWatch : public RootStatus::Notifiee {
 public:
  ProgressWatch(Pipeline& pipeline, RootStatus& status) : pipeline_(pipeline) {
    notifierIs(&status);
  }
  void onKickProgress() override { pipeline_.handleProgress(); }

 private:
  Pipeline& pipeline_;
};

ChipEntities::ChipEntities(Obel::ChipId chip)
    : chipId(chip),
      capability(chipHwCapabilityFactory(chip)),
      acls(aclConfigCollFactory(chip)),
      params(Acl::paramConfigFactory()),
      rootConfig(rootConfigFactory(chip)),
      rootStatus(rootStatusFactory(chip)),
      pdConfig(pDConfigFactory(chip)),
      pdStatus(pDStatusFactory(chip)) {}

ChipEntities::ChipEntities(ChipEntities const&) = default;
ChipEntities& ChipEntities::operator=(ChipEntities const&) = default;
ChipEntities::~ChipEntities() = default;

Mox::Ptr<NaxelRootSm> buildRoot(ChipEntities const& e, Mox::Ptr<Obel::TimerWheel> wheel) {
  return naxelRootSmFactory(e.chipId, e.capability, e.rootConfig, e.rootStatus, e.acls, e.params,
                            e.pdConfig, e.pdStatus, std::move(wheel));
}

std::string name(KickEnd end) {
  static constexpr std::array<char const*, kickEndCount> names = {"success", "failure", "cancelled",
                                                                  "superseded"};
  return names[static_cast<size_t>(end)];
}

std::string text(KickResult const& result) {
  if (result.end != KickEnd::failure) return name(result.end);
  return result.message + (result.reason.empty() ? "" : ": " + result.reason);
}

std::ostream& operator<<(std::ostream& out, KickResult const& result) {
  return out << text(result);
}

Pipeline::Pipeline(Obel::ChipId chip, Mox::Ptr<Obel::TimerWheel> wheel)
    : Pipeline(ChipEntities(chip), std::move(wheel)) {}

Pipeline::Pipeline(ChipEntities const& entities, Mox::Ptr<Obel::TimerWheel> wheel)
    : entities_(entities), wheel_(std::move(wheel)) {
  build();
}

Pipeline::~Pipeline() {
  // The callback comes last, because it may do anything.
  takeDown();
  end(KickEnd::superseded);
}

void Pipeline::takeDown() {
  watch_.reset();
  stageTimes_.reset();
  // From within a notification of the root's it lives on until that returns; it must hear of nothing.
  if (root_) root_->rootConfigDel();
  root_ = nullptr;
}

void Pipeline::build() {
  // The one before writes nothing any more when the next begins.
  takeDown();
  root_ = buildRoot(entities_, wheel_);
  watch_ = std::make_unique<ProgressWatch>(*this, *entities_.rootStatus);
  stageTimes_ = std::make_unique<StageTimes>(*root_->stageSmStatus());
  stageTimes_->watcherIs([this](NaxelActiveStage stage) {
    if (stageWatcher_) stageWatcher_(stage);
  });
}

void Pipeline::entitiesIs(ChipEntities const& entities) {
  entities_ = entities;
  build();
  end(KickEnd::superseded);
}

void Pipeline::restart() { entitiesIs(entities_); }

PDData const& Pipeline::output() const { return *entities_.pdConfig->currPDData(); }

void Pipeline::request(NaxelKickRequest what) {
  // Whoever is told may destroy this object.
  auto const config = entities_.rootConfig;
  Mox::Seconds const last = config->naxelKickTime();
  // The request comes before the time, whose write starts the kick.
  config->naxelKickRequestIs(what);
  // A request is any other value; next to a very large one, adding 1 gives the same.
  config->naxelKickTimeIs(last + 1 == last ? 0 : last + 1);
}

void Pipeline::kick(Done done) {
  // Own state before the request: a kick that cannot run at all ends within it.
  bool const another = std::exchange(running_, true);
  std::swap(done_, done);
  if (another) count(KickEnd::superseded);
  kickBegin_ = StageTimes::wallSeconds();
  if (stageTimes_) stageTimes_->clear();
  request(NaxelKickRequest::naxelStart);
  // Told last, and by what is not part of this object: it may kick again, or destroy it.
  if (another && done) done(KickResult{});
}

void Pipeline::cancel() {
  if (isRunning()) request(NaxelKickRequest::naxelCancel);
}

bool Pipeline::isRunning() const { return running_; }

std::string Pipeline::waitingFor() const {
  return root_ ? root_->waitingFor() : std::string();  // none while it is taken down
}

void Pipeline::handleProgress() {
  switch (entities_.rootStatus->kickProgress()) {
    case NaxelProgress::naxelFinishedSuccess: return end(KickEnd::success);
    case NaxelProgress::naxelFinishedFail: return end(KickEnd::failure);
    case NaxelProgress::naxelCancelled: return end(KickEnd::cancelled);
    case NaxelProgress::naxelInitialized:
    case NaxelProgress::naxelRunning: return;
  }
}

void Pipeline::count(KickEnd how) {
  ++kicks_[static_cast<size_t>(how)];
  kickSeconds_ = StageTimes::wallSeconds() - kickBegin_;
  allKickSeconds_ += kickSeconds_;
}

void Pipeline::end(KickEnd how) {
  if (!std::exchange(running_, false)) return;
  count(how);
  if (stageTimes_) stageTimes_->settle();
  // Taken out first: the callback may kick again, or destroy this object.
  Done const done = std::exchange(done_, {});
  if (!done) return;
  KickResult result;
  result.end = how;
  if (how == KickEnd::failure) {
    // The words stand when the outcome is written, so they are complete here.
    result.message = entities_.rootStatus->kickMessage();
    result.reason = root_->stageControllerStatus()->failureText();
  }
  done(result);
}

std::vector<ConfigError> Pipeline::validate() const {
  return Naxel::validate(*entities_.capability, *entities_.acls);
}

std::vector<ConfigError> validate(ChipHwCapability const& widths, AclConfigColl const& acls) {
  std::vector<ConfigError> errors;
  auto const checkWidth = [&](std::string const& field, unsigned width, unsigned least) {
    if (width < least || width > 16)
      errors.push_back({ConfigError::Kind::unusable,
                        {},
                        {},
                        "label width " + std::to_string(width) + " of the " + field +
                            ": it goes from " + std::to_string(least) + " to 16"});
  };
  for (PrefixXformKey const& key : PrefixXformKey::all())
    checkWidth(fieldName(key), widths.prefixXformWidth(key), 1);
  for (RangeSetType type : allRangeSetTypes())
    checkWidth(fieldName(type), widths.rangeXformWidth(type), 0);
  for (ComboLabelSetType type : allComboLabelSetTypes())
    checkWidth(fieldName(type), widths.comboXformWidth(type), 0);
  for (AclWalk const& walk : walkAcls(acls))
    findErrors(walk, [&](ConfigError error) {
      errors.push_back(std::move(error));
      return true;
    });
  return errors;
}

}  // namespace Naxel
