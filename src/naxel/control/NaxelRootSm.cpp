#include "naxel/control/NaxelRootSm.h"

#include "mox/Assert.h"
#include "mox/KeepAlive.h"
#include "naxel/encoder/NaxelLabelEncoderSm.h"
#include "naxel/expander/NaxelRuleExpanderSm.h"
#include "naxel/genset/NaxelAggregatorSm.h"
#include "naxel/loader/NaxelLoaderSm.h"
#include "naxel/types/NaxelTrace.h"
#include "naxel/xform/NaxelComboLabelResolverSm.h"
#include "naxel/xform/NaxelComboLabelSplitSm.h"
#include "naxel/xform/NaxelPrefixXformSm.h"
#include "naxel/xform/NaxelRangeSplitSm.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>

namespace Naxel {

/// Calls back when the loader info of an encoder is replaced.
class NaxelRootSm::LoaderInfoReactor : public EncoderStatus::Notifiee {
 public:
  explicit LoaderInfoReactor(std::function<void()> pass) : pass_(std::move(pass)) {}
  void onLoaderInfo() override { pass_(); }

 private:
  std::function<void()> pass_;
};

NaxelRootSm::NaxelRootSm(Obel::ChipId chipId, Mox::Ptr<ChipHwCapability const> hwCapability,
                         Mox::Ptr<RootConfig> rootConfig, Mox::Ptr<RootStatus> rootStatus,
                         Mox::Ptr<AclConfigColl const> aclConfigColl,
                         Mox::Ptr<Acl::ParamConfig const> paramConfig, Mox::Ptr<PDConfig> pdConfig,
                         Mox::Ptr<PDStatus> pdStatus, Mox::Ptr<Obel::TimerWheel> timerWheel)
    : chipId_(chipId),
      hwCapability_(std::move(hwCapability)),
      rootConfig_(std::move(rootConfig)),
      rootStatus_(std::move(rootStatus)),
      aclConfigColl_(std::move(aclConfigColl)),
      paramConfig_(std::move(paramConfig)),
      pdConfig_(std::move(pdConfig)),
      pdStatus_(std::move(pdStatus)),
      timerWheel_(std::move(timerWheel)) {
  MOX_ASSERT(hwCapability_ && rootConfig_ && rootStatus_ && aclConfigColl_ && paramConfig_ &&
             pdConfig_ && pdStatus_ && timerWheel_);
  rootConfigReactor_.notifierIs(rootConfig_.get());
  handleInitialized();
}

NaxelRootSm::~NaxelRootSm() {
  // The driver keeps answering while the pipeline goes down.
  rootConfigDel();
  if (stageControllerSm_) stageControllerSm_->moxDoZombieReactors(true);
  for (auto const& sm : stageSms_) sm->moxDoZombieReactors(true);
}

void NaxelRootSm::rootConfigDel() {
  rootConfigReactor_.notifierIs(nullptr);
  rootConfig_ = nullptr;
}

void NaxelRootSm::handleInitialized() {
  stageControllerConfig_ = Mox::makePtr<StageControllerConfig>();
  stageControllerStatus_ = Mox::makePtr<StageControllerStatus>();
  stageStatusReactor_.notifierIs(stageControllerStatus_.get());

  aggregatorConfig_ = aggregatorConfigFactory(aclConfigColl_);
  aggregatorStatus_ = Mox::makePtr<AggregatorStatus>();
  loaderConfig_ = Mox::makePtr<LoaderConfig>();
  loaderStatus_ = Mox::makePtr<LoaderStatus>();
  ruleExpanderConfig_ = Mox::makePtr<RuleExpanderConfig>(aggregatorStatus_);
  ruleExpanderStatus_ = Mox::makePtr<RuleExpanderStatus>();
  loaderConfig_->ruleExpanderLoaderInfoIs(ruleExpanderStatus_->ruleExpanderLoaderInfo());

  stageSmConfig_ = Mox::makePtr<StageSmConfig>();
  stageSmStatus_ = Mox::makePtr<StageSmStatus>();
  stageSmConfig_->aggregatorConfigIs(aggregatorConfig_);
  stageSmStatus_->aggregatorStatusIs(aggregatorStatus_);
  stageSmConfig_->ruleExpanderConfigIs(ruleExpanderConfig_);
  stageSmStatus_->ruleExpanderStatusIs(ruleExpanderStatus_);
  stageSmConfig_->loaderConfigIs(loaderConfig_);
  stageSmStatus_->loaderStatusIs(loaderStatus_);

  genSetKeyGen_ = Mox::makePtr<GenSetKeyGenerator>();
  buildPrefixSide();
  buildRangeSide();
  buildComboSide();
  loaderConfig_->initializedIs(true);

  stageSms_.push_back(aggregatorSmFactory(chipId_, aggregatorConfig_, aggregatorStatus_,
                                          hwCapability_, genSetKeyGen_));
  stageSms_.push_back(ruleExpanderSmFactory(chipId_, ruleExpanderConfig_, ruleExpanderStatus_));
  loaderSm_ = loaderSmFactory(chipId_, loaderConfig_, loaderStatus_, pdConfig_, pdStatus_,
                              hwCapability_, paramConfig_);
  stageSms_.push_back(loaderSm_);
  stageControllerSm_ =
      Mox::makePtr<NaxelStageControllerSm>(chipId_, stageControllerConfig_, stageControllerStatus_,
                                           stageSmConfig_, stageSmStatus_, timerWheel_);
  initialized_ = true;
}

template <class Status, class Pass>
void NaxelRootSm::watchLoaderInfo(Mox::Ptr<Status> status, Pass pass) {
  // The reactor is a member and the status is kept beside it, so plain references will do.
  Status& watched = *status;
  loaderInfoReactors_.push_back(
      std::make_unique<LoaderInfoReactor>([&watched, pass] { pass(watched.loaderInfo()); }));
  loaderInfoReactors_.back()->notifierIs(&watched);
}

void NaxelRootSm::buildPrefixSide() {
  for (PrefixXformKey const& key : PrefixXformKey::all()) {
    auto const config = Mox::makePtr<PrefixXformConfig>(key, aggregatorStatus_->prefixInfo(key));
    auto const status = Mox::makePtr<PrefixXformStatus>(key);
    auto const encConfig = encoderConfigFactory(status);
    auto const encStatus = Mox::makePtr<PrefixEncoderStatus>(key);
    prefixXformStatus_.set(key, status);
    prefixEncoderStatus_.set(key, encStatus);
    stageSmConfig_->prefixXformConfigIs(key, config);
    stageSmStatus_->prefixXformStatusIs(key, status);
    stageSmConfig_->prefixEncoderConfigIs(key, encConfig);
    stageSmStatus_->prefixEncoderStatusIs(key, encStatus);
    ruleExpanderConfig_->prefixEncoderStatusIs(key, encStatus, status);
    watchLoaderInfo(encStatus, [this, key](auto const& info) {
      loaderConfig_->prefixXformLoaderInfoIs(key, info);
    });
    stageSms_.push_back(naxelPrefixXformSmFactory(chipId_, config, status, hwCapability_));
    stageSms_.push_back(prefixLabelEncoderSmFactory(
        chipId_, encConfig, encStatus, aggregatorStatus_->genSetUsageInfo(), hwCapability_));
  }
}

void NaxelRootSm::buildRangeSide() {
  for (RangeSetType type : allRangeSetTypes()) {
    auto const info = aggregatorStatus_->rangeSplitInfo(type);
    auto const config = Mox::makePtr<RangeSplitConfig>(type, info);
    auto const status = Mox::makePtr<RangeSplitStatus>(type);
    auto const encConfig = Mox::makePtr<RangeEncoderConfig>(status, info);
    auto const encStatus = Mox::makePtr<RangeEncoderStatus>(type);
    rangeSplitStatus_.set(type, status);
    rangeEncoderStatus_.set(type, encStatus);
    stageSmConfig_->rangeSplitConfigIs(type, config);
    stageSmStatus_->rangeSplitStatusIs(type, status);
    stageSmConfig_->rangeEncoderConfigIs(type, encConfig);
    stageSmStatus_->rangeEncoderStatusIs(type, encStatus);
    ruleExpanderConfig_->rangeEncoderStatusIs(type, encStatus, status);
    watchLoaderInfo(encStatus, [this, type](auto const& loaderInfo) {
      loaderConfig_->rangeSplitLoaderInfoIs(type, loaderInfo);
    });
    stageSms_.push_back(rangeSplitSmFactory(chipId_, config, status, hwCapability_));
    stageSms_.push_back(rangeEncoderSmFactory(chipId_, encConfig, encStatus,
                                              aggregatorStatus_->genSetUsageInfo(), hwCapability_));
  }
}

void NaxelRootSm::buildComboSide() {
  for (ComboLabelSetType type : allComboLabelSetTypes()) {
    bool const ports = type == ComboLabelSetType::srcDstL4Port;
    Lumox::AddressFamily const af =
        type == ComboLabelSetType::ipv4SrcDstPrefix ? Lumox::ipv4() : Lumox::ipv6();
    PrefixXformKey const srcKey(af, true);
    PrefixXformKey const dstKey(af, false);
    Mox::Ptr<XformStatus const> srcXform = prefixXformStatus(srcKey);
    Mox::Ptr<XformStatus const> dstXform = prefixXformStatus(dstKey);
    Mox::Ptr<EncoderStatus const> srcEnc = prefixEncoderStatus(srcKey);
    Mox::Ptr<EncoderStatus const> dstEnc = prefixEncoderStatus(dstKey);
    if (ports) {
      srcXform = rangeSplitStatus(RangeSetType::srcPort);
      dstXform = rangeSplitStatus(RangeSetType::dstPort);
      srcEnc = rangeEncoderStatus(RangeSetType::srcPort);
      dstEnc = rangeEncoderStatus(RangeSetType::dstPort);
    }
    auto const info = Mox::makePtr<ComboLabelInfo>(type);
    auto const resolverConfig =
        Mox::makePtr<ComboLabelResolverConfig>(type, srcXform, dstXform, aggregatorStatus_);
    auto const resolverStatus = Mox::makePtr<ComboLabelResolverStatus>(type, info);
    auto const splitConfig = Mox::makePtr<ComboLabelSplitConfig>(type, info);
    auto const splitStatus = Mox::makePtr<ComboLabelSplitStatus>(type);
    auto const encConfig = Mox::makePtr<ComboLabelEncoderConfig>(splitStatus, srcEnc, dstEnc);
    auto const encStatus = Mox::makePtr<ComboLabelEncoderStatus>(type);
    comboLabelInfo_.set(type, info);
    comboLabelResolverStatus_.set(type, resolverStatus);
    comboLabelSplitStatus_.set(type, splitStatus);
    comboLabelEncoderStatus_.set(type, encStatus);
    stageSmConfig_->comboLabelResolverConfigIs(type, resolverConfig);
    stageSmStatus_->comboLabelResolverStatusIs(type, resolverStatus);
    stageSmConfig_->comboLabelSplitConfigIs(type, splitConfig);
    stageSmStatus_->comboLabelSplitStatusIs(type, splitStatus);
    stageSmConfig_->comboLabelEncoderConfigIs(type, encConfig);
    stageSmStatus_->comboLabelEncoderStatusIs(type, encStatus);
    ruleExpanderConfig_->comboLabelInfoIs(type, info);
    ruleExpanderConfig_->comboLabelEncoderStatusIs(type, encStatus, splitStatus);
    watchLoaderInfo(encStatus, [this, type](auto const& loaderInfo) {
      loaderConfig_->comboLabelLoaderInfoIs(type, loaderInfo);
    });
    stageSms_.push_back(comboLabelResolverSmFactory(chipId_, resolverConfig, resolverStatus,
                                                    hwCapability_, type, genSetKeyGen_));
    stageSms_.push_back(comboLabelSplitSmFactory(chipId_, splitConfig, splitStatus, hwCapability_));
    stageSms_.push_back(comboLabelEncoderSmFactory(
        chipId_, encConfig, encStatus, resolverStatus->genSetUsageInfo(), hwCapability_));
  }
}

Mox::Seconds NaxelRootSm::nextKickTime() const {
  // Statuses and driver answers are told apart by their kick time, so none may ever occur twice.
  Mox::Seconds const last =
      std::max(stageControllerConfig_->kickTime(), pdConfig_->pdResourceConfig().requestId());
  Mox::Seconds const next = std::nextafter(last, std::numeric_limits<double>::infinity());
  return std::max(timerWheel_->activity().now(), next);
}

void NaxelRootSm::handleNaxelKickTime() {
  NaxelKickRequest const kickRequest = rootConfig_->naxelKickRequest();
  Mox::Seconds const agentKickTime = rootConfig_->naxelKickTime();
  if (auto line = trace(8))
    line << "handleNaxelKickTime"
         << " request " << kickRequest << " kick time " << agentKickTime;
  // Reactors of the status may take the root down.
  auto const alive = Mox::keepAlive(this);
  // A request that came from within one of these notifications is the newer one, and has been handled
  // by then.
  auto const superseded = [&] {
    return !rootConfig_ || rootConfig_->naxelKickTime() != agentKickTime;
  };
  rootStatus_->kickCountIs(rootStatus_->kickCount() + 1);
  if (superseded()) return;
  rootStatus_->kickTimeIs(agentKickTime);
  if (superseded()) return;
  if (kickRequest == NaxelKickRequest::naxelStart) {
    rootStatus_->kickMessageIs(std::string());
    if (superseded()) return;
    rootStatus_->kickProgressIs(NaxelProgress::naxelRunning);
    if (superseded()) return;
  }
  stageControllerConfig_->kickRequestIs(kickRequest);
  stageControllerConfig_->kickTimeIs(nextKickTime());
}

void NaxelRootSm::handleStageStatus() {
  StageControllerStatus const& status = *stageControllerStatus_;
  if (auto line = trace(8))
    line << "handleStageStatus"
         << " stageStatus " << status.status();
  if (status.kickTime() != stageControllerConfig_->kickTime()) return;
  auto const alive = Mox::keepAlive(this);
  switch (status.status()) {
    case StageStatusType::init: return rootStatus_->kickProgressIs(NaxelProgress::naxelInitialized);
    case StageStatusType::inProgress:
      return rootStatus_->kickProgressIs(NaxelProgress::naxelRunning);
    case StageStatusType::finishedSuccess:
      return rootStatus_->kickProgressIs(NaxelProgress::naxelFinishedSuccess);
    case StageStatusType::cancelled:
      return rootStatus_->kickProgressIs(NaxelProgress::naxelCancelled);
    case StageStatusType::finishedFailed:
      try {
        rootStatus_->kickMessageIs("Naxel failed at " + Mox::stringValue(status.lastFailedStage()) +
                                   " on chip " + valueToStrep(chipId_));
      } catch (std::bad_alloc const&) {
        // The failure itself still has to be reported.
      }
      return rootStatus_->kickProgressIs(NaxelProgress::naxelFinishedFail);
    case StageStatusType::finishedSkipped:
    case StageStatusType::finishedNotEnabled: break;
  }
  MOX_ASSERT(false);
}

Mox::Ptr<NaxelRootSm> naxelRootSmFactory(Obel::ChipId chipId,
                                         Mox::Ptr<ChipHwCapability const> hwCapability,
                                         Mox::Ptr<RootConfig> rootConfig,
                                         Mox::Ptr<RootStatus> rootStatus,
                                         Mox::Ptr<AclConfigColl const> aclConfigColl,
                                         Mox::Ptr<Acl::ParamConfig const> paramConfig,
                                         Mox::Ptr<PDConfig> pdConfig, Mox::Ptr<PDStatus> pdStatus,
                                         Mox::Ptr<Obel::TimerWheel> timerWheel) {
  return Mox::makePtr<NaxelRootSm>(chipId, std::move(hwCapability), std::move(rootConfig),
                                   std::move(rootStatus), std::move(aclConfigColl),
                                   std::move(paramConfig), std::move(pdConfig), std::move(pdStatus),
                                   std::move(timerWheel));
}

}  // namespace Naxel
