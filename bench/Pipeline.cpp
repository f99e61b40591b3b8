#include "Pipeline.h"

#include <ctime>
#include <stdexcept>

namespace Bench {

using Naxel::NaxelActiveStage;
using Naxel::NaxelProgress;

double threadSeconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

AtOnceDriver::AtOnceDriver(Naxel::PDConfig& config, Naxel::PDStatus& status)
    : config_(config), status_(status) {
  notifierIs(&config);
}

void AtOnceDriver::onPdResourceConfig() {
  Naxel::ResponseState state = Naxel::ResponseState::hitless;
  Naxel::ResourceConfig const request = config_.pdResourceConfig();
  if (request.requestState() == Naxel::RequestState::load) state = Naxel::ResponseState::loaded;
  if (request.requestState() == Naxel::RequestState::revert) state = Naxel::ResponseState::reverted;
  Naxel::ResourceStatus const answer(request.requestId(), state);
  for (Naxel::PrefixXformKey const& key : Naxel::PrefixXformKey::all())
    status_.pdPrefixXformEntryStatusIs(key, answer);
  for (Naxel::ComboLabelSetType const type : Naxel::allComboLabelSetTypes())
    status_.comboStatusIs(type, answer);
  for (Naxel::RangeSetType const type : Naxel::allRangeSetTypes())
    status_.rangeStatusIs(type, answer);
  status_.pdAclRuleEntryStatusIs(answer);
}

void AtOnceDriver::onGlobalAclControl() { status_.globalAclControlIs(config_.globalAclControl()); }

void Pipeline::StageWatch::onStatus() {
  Naxel::StageStatusType const status = status_.status();
  if (status == Naxel::StageStatusType::init) return;
  if (status == Naxel::StageStatusType::inProgress)
    started_ = threadSeconds();
  else
    seconds_ += threadSeconds() - started_;
}

Pipeline::Pipeline(Mox::Ptr<Naxel::AclConfigColl const> acls,
                   Mox::Ptr<Naxel::ChipHwCapability const> capability)
    : wheel_(Mox::makePtr<Obel::TimerWheel>(activity_)),
      rootConfig_(Mox::makePtr<Naxel::RootConfig>(capability->chipId())),
      rootStatus_(Mox::makePtr<Naxel::RootStatus>(capability->chipId())),
      pdConfig_(Naxel::pDConfigFactory(capability->chipId())),
      pdStatus_(Mox::makePtr<Naxel::PDStatus>(capability->chipId())),
      driver_(*pdConfig_, *pdStatus_) {
  root_ = Naxel::naxelRootSmFactory(capability->chipId(), capability, rootConfig_, rootStatus_,
                                    std::move(acls), Acl::paramConfigFactory(), pdConfig_,
                                    pdStatus_, wheel_);
  watchStages();
}

void Pipeline::watch(NaxelActiveStage stage, Naxel::StageStatus& status) {
  watches_.push_back(std::make_unique<StageWatch>(status, seconds_[static_cast<size_t>(stage)]));
}

void Pipeline::watchStages() {
  using enum NaxelActiveStage;
  watch(stageAggregator, *root_->aggregatorStatus());
  for (Naxel::PrefixXformKey const& key : Naxel::PrefixXformKey::all()) {
    watch(stagePrefixXform, *root_->prefixXformStatus(key));
    watch(stagePrefixEncoder, *root_->prefixEncoderStatus(key));
  }
  for (Naxel::RangeSetType const type : Naxel::allRangeSetTypes()) {
    watch(stageRangeSplit, *root_->rangeSplitStatus(type));
    watch(stageRangeEncoder, *root_->rangeEncoderStatus(type));
  }
  for (Naxel::ComboLabelSetType const type : Naxel::allComboLabelSetTypes()) {
    watch(stageComboLabelResolver, *root_->comboLabelResolverStatus(type));
    watch(stageComboLabelSplit, *root_->comboLabelSplitStatus(type));
    watch(stageComboLabelEncoder, *root_->comboLabelEncoderStatus(type));
  }
  watch(stageRuleExpander, *root_->ruleExpanderStatus());
  watch(stageLoader, *root_->loaderStatus());
}

double Pipeline::kick() {
  seconds_.fill(0);
  uint32_t const before = rootStatus_->kickCount();
  double const start = threadSeconds();
  rootConfig_->naxelKickTimeIs(rootConfig_->naxelKickTime() + 1);
  activity_.runUntil([&] {
    return rootStatus_->kickCount() != before &&
           rootStatus_->kickProgress() != NaxelProgress::naxelRunning;
  });
  double const seconds = threadSeconds() - start;
  if (rootStatus_->kickProgress() != NaxelProgress::naxelFinishedSuccess)
    throw std::runtime_error(root_->stageControllerStatus()->failureText().empty()
                                 ? "the kick did not succeed"
                                 : root_->stageControllerStatus()->failureText());
  return seconds;
}

}  // namespace Bench
