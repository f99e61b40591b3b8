#include "naxel/control/NaxelRootSm.h"

#include "acl/ParamConfig.h"
#include "mox/Assert.h"
#include "naxel/control/NaxelStageControllerSm.h"
#include "naxel/control/RepairShare.h"
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

/// Calls back when an entity of the agent has lost its place.
class NaxelRootSm::DeletionReactor : public Mox::Notifiee {
 public:
  DeletionReactor(NaxelRootSm& sm, char const* why) : sm_(sm), why_(why) {}
  void onDeleted() override { sm_.handleDeleted(why_); }

 private:
  NaxelRootSm& sm_;
  char const* why_;
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
      timerWheel_(timerWheel),
      silenceTimer_(*this, std::move(timerWheel)) {
  MOX_ASSERT(hwCapability_ && rootConfig_ && rootStatus_ && aclConfigColl_ && paramConfig_ &&
             pdConfig_ && pdStatus_ && timerWheel_);
  // The stages keep these copies for life; every start of a kick writes the agent's present values into
  // them.
  kickCapability_ = Mox::makePtr<ChipHwCapability>(chipId_);
  kickCapability_->valuesIs(*hwCapability_);
  kickParamConfig_ = Acl::paramConfigFactory();
  kickParamConfig_->valuesIs(*paramConfig_);
  rootConfigReactor_.notifierIs(rootConfig_.get());
  handleInitialized();
}

NaxelRootSm::~NaxelRootSm() {
  // The driver keeps answering while the pipeline goes down.
  rootConfigDel();
  takeDown();
}

void NaxelRootSm::rootConfigIs(Mox::Ptr<RootConfig> v) {
  rootConfigReactor_.notifierIs(v.get());
  rootConfig_ = std::move(v);
}

void NaxelRootSm::onStageControllerStatus() {
  stageStatusReactor_.notifierIs(stageControllerStatus().get());
}

void NaxelRootSm::handleInitialized() {
  stageControllerConfigIs(Mox::makePtr<StageControllerConfig>());
  stageControllerStatusIs(Mox::makePtr<StageControllerStatus>());

  // Configurations and statuses come before the state machines, which are made over them and refer to each
  // other's statuses.
  auto const aggregator = Mox::makePtr<AggregatorStatus>();
  aggregatorConfigIs(aggregatorConfigFactory(aclConfigColl_));
  aggregatorStatusIs(aggregator);
  auto const loader = Mox::makePtr<LoaderStatus>();
  loaderConfigIs(Mox::makePtr<LoaderConfig>());
  loaderStatusIs(loader);
  loaderStatusReactor_.notifierIs(loader.get());
  auto const expander = Mox::makePtr<RuleExpanderStatus>();
  ruleExpanderConfigIs(Mox::makePtr<RuleExpanderConfig>(aggregator));
  ruleExpanderStatusIs(expander);
  // The expander has one collection for life and replaces its members, so this is passed on once; the
  // loader infos of the encoders are new objects in every run, and are watched.
  loaderConfig()->ruleExpanderLoaderInfoIs(expander->ruleExpanderLoaderInfo());

  genSetKeyGenIs(Mox::makePtr<GenSetKeyGenerator>());
  buildPrefixSide();
  buildRangeSide();
  // After the two others, whose statuses it reads.
  buildComboSide();
  loaderConfig()->initializedIs(true);

  aggregatorSmIs(aggregatorSmFactory(chipId_, aggregatorConfig(), aggregator, kickCapability_,
                                     genSetKeyGen()));
  ruleExpanderSmIs(
      ruleExpanderSmFactory(chipId_, ruleExpanderConfig(), expander, kickParamConfig_));
  loaderSmIs(loaderSmFactory(chipId_, loaderConfig(), loader, pdConfig_, pdStatus_, kickCapability_,
                             kickParamConfig_));
  // The controller comes last: it binds to all statuses that there are.
  stageControllerSmIs(Mox::makePtr<NaxelStageControllerSm>(chipId_, stageControllerConfig(),
                                                           stageControllerStatus(), stageSmConfig(),
                                                           stageSmStatus(), timerWheel_));
  stageControllerSm()->prepareIs([this] { takeInputs(); });
  ruleExpanderSm()->prepareIs([this] { chooseLabelCode(); });
  watchDeletion(hwCapability_,
                "ChipHwCapability has been deleted from its collection: the root state "
                "machine has to be built anew, over the present one");
  watchDeletion(aclConfigColl_,
                "AclConfigColl has been deleted from its collection: the root state "
                "machine has to be built anew, over the present one");
  watchDeletion(pdConfig_,
                "PDConfig has been deleted from its collection: the root state machine has "
                "to be built anew, over the present one");
  watchDeletion(pdStatus_,
                "PDStatus has been deleted from its collection: the root state machine has "
                "to be built anew, over the present one");
  initialized_ = true;
  // A root that went down in the middle of a kick leaves it running; it has ended with that root.
  if (rootStatus_->kickProgress() == NaxelProgress::naxelRunning)
    rootStatus_->kickProgressIs(NaxelProgress::naxelInitialized);
}

template <class Entity>
void NaxelRootSm::watchDeletion(Mox::Ptr<Entity> const& entity, char const* why) {
  deletionReactors_.push_back(std::make_unique<DeletionReactor>(*this, why));
  // To be watched does not change what an entity says.
  deletionReactors_.back()->notifierIs(const_cast<std::remove_const_t<Entity>*>(entity.get()));
}

template <class Status, class Pass>
void NaxelRootSm::watchLoaderInfo(Mox::Ptr<Status> status, Pass pass) {
  // Only the status itself calls, so a plain reference will do.
  Status& watched = *status;
  loaderInfoReactors_.push_back(
      std::make_unique<LoaderInfoReactor>([&watched, pass] { pass(watched.loaderInfo()); }));
  loaderInfoReactors_.back()->notifierIs(&watched);
}

void NaxelRootSm::buildPrefixSide() {
  for (PrefixXformKey const& key : PrefixXformKey::all()) {
    auto const config = Mox::makePtr<PrefixXformConfig>(key, aggregatorStatus()->prefixInfo(key));
    auto const status = Mox::makePtr<PrefixXformStatus>(key);
    auto const encConfig = encoderConfigFactory(status);
    auto const encStatus = Mox::makePtr<PrefixEncoderStatus>(key);
    prefixXformConfigIs(key, config);
    prefixXformStatusIs(key, status);
    prefixEncoderConfigIs(key, encConfig);
    prefixEncoderStatusIs(key, encStatus);
    ruleExpanderConfig()->prefixEncoderStatusIs(key, encStatus, status);
    // A null info is passed on like any other. It says that the field has no table any more, and whoever
    // kept the old one would load it for ever.
    watchLoaderInfo(encStatus, [this, key](auto const& info) {
      if (auto const loader = loaderConfig()) loader->prefixXformLoaderInfoIs(key, info);
    });
    prefixXformSmIs(key, naxelPrefixXformSmFactory(chipId_, config, status, kickCapability_));
    prefixEncoderSmIs(
        key, prefixLabelEncoderSmFactory(chipId_, encConfig, encStatus,
                                         aggregatorStatus()->genSetUsageInfo(), kickCapability_));
  }
}

void NaxelRootSm::buildRangeSide() {
  for (RangeSetType type : allRangeSetTypes()) {
    auto const info = aggregatorStatus()->rangeSplitInfo(type);
    auto const config = Mox::makePtr<RangeSplitConfig>(type, info);
    auto const status = Mox::makePtr<RangeSplitStatus>(type);
    auto const encConfig = Mox::makePtr<RangeEncoderConfig>(status, info);
    auto const encStatus = Mox::makePtr<RangeEncoderStatus>(type);
    rangeSplitConfigIs(type, config);
    rangeSplitStatusIs(type, status);
    rangeEncoderConfigIs(type, encConfig);
    rangeEncoderStatusIs(type, encStatus);
    ruleExpanderConfig()->rangeEncoderStatusIs(type, encStatus, status);
    watchLoaderInfo(encStatus, [this, type](auto const& loaderInfo) {
      if (auto const loader = loaderConfig()) loader->rangeSplitLoaderInfoIs(type, loaderInfo);
    });
    rangeSplitSmIs(type, rangeSplitSmFactory(chipId_, config, status, kickCapability_));
    rangeEncoderSmIs(type,
                     rangeEncoderSmFactory(chipId_, encConfig, encStatus,
                                           aggregatorStatus()->genSetUsageInfo(), kickCapability_));
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
    // The resolver and the encoder of ports read range stages, those of addresses prefix stages; what they
    // do is the same.
    if (ports) {
      srcXform = rangeSplitStatus(RangeSetType::srcPort);
      dstXform = rangeSplitStatus(RangeSetType::dstPort);
      srcEnc = rangeEncoderStatus(RangeSetType::srcPort);
      dstEnc = rangeEncoderStatus(RangeSetType::dstPort);
    }
    auto const info = Mox::makePtr<ComboLabelInfo>(type);
    auto const resolverConfig =
        Mox::makePtr<ComboLabelResolverConfig>(type, srcXform, dstXform, aggregatorStatus());
    auto const resolverStatus = Mox::makePtr<ComboLabelResolverStatus>(type, info);
    auto const splitConfig = Mox::makePtr<ComboLabelSplitConfig>(type, info);
    auto const splitStatus = Mox::makePtr<ComboLabelSplitStatus>(type);
    auto const encConfig = Mox::makePtr<ComboLabelEncoderConfig>(splitStatus, srcEnc, dstEnc);
    auto const encStatus = Mox::makePtr<ComboLabelEncoderStatus>(type);
    comboLabelInfoIs(type, info);
    comboLabelResolverConfigIs(type, resolverConfig);
    comboLabelResolverStatusIs(type, resolverStatus);
    comboLabelSplitConfigIs(type, splitConfig);
    comboLabelSplitStatusIs(type, splitStatus);
    comboLabelEncoderConfigIs(type, encConfig);
    comboLabelEncoderStatusIs(type, encStatus);
    ruleExpanderConfig()->comboLabelInfoIs(type, info);
    ruleExpanderConfig()->comboLabelEncoderStatusIs(type, encStatus, splitStatus);
    watchLoaderInfo(encStatus, [this, type](auto const& loaderInfo) {
      if (auto const loader = loaderConfig()) loader->comboLabelLoaderInfoIs(type, loaderInfo);
    });
    comboLabelResolverSmIs(
        type, comboLabelResolverSmFactory(chipId_, resolverConfig, resolverStatus, kickCapability_,
                                          type, genSetKeyGen()));
    comboLabelSplitSmIs(
        type, comboLabelSplitSmFactory(chipId_, splitConfig, splitStatus, kickCapability_));
    comboLabelEncoderSmIs(
        type, comboLabelEncoderSmFactory(chipId_, encConfig, encStatus,
                                         resolverStatus->genSetUsageInfo(), kickCapability_));
  }
}

Mox::Seconds NaxelRootSm::nextKickTime() const {
  // Statuses and driver answers are told apart by their kick time, so none may ever occur twice.
  Mox::Seconds const last =
      // An earlier root over the same pair has left its last kick time as the id of the request.
      std::max(stageControllerConfig()->kickTime(), pdConfig_->pdResourceConfig().requestId());
  // The clock alone will not do: two requests may come at one reading of it, and it may step back.
  Mox::Seconds const next = std::nextafter(last, std::numeric_limits<double>::infinity());
  return std::max(timerWheel_->activity().now(), next);
}

void NaxelRootSm::handleNaxelKickTime() {
  NaxelKickRequest const kickRequest = rootConfig_->naxelKickRequest();
  Mox::Seconds const agentKickTime = rootConfig_->naxelKickTime();
  if (auto line = trace(8))
    line << "handleNaxelKickTime"
         << " request " << kickRequest << " kick time " << agentKickTime;
  CallScope const call(*this);
  // A request that came from within one of these notifications is the newer one, and has been handled
  // by then.
  uint64_t const request = ++requests_;
  auto const superseded = [&] { return call.isLeft() || !rootConfig_ || requests_ != request; };
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
  if (!stageControllerConfig()) return;
  // Before the write that starts the kick, because a kick may end within it, and then the timer is
  // disarmed.
  silence_ = paramConfig_->silenceLimit();
  progressAt_ = timerWheel_->now();
  silenceTimer_.earliestExpiryIs(silence_ > 0 ? progressAt_ + silence_ : -1);
  // The controller wakes at the kick time and reads the request then.
  stageControllerConfig()->kickRequestIs(kickRequest);
  stageControllerConfig()->kickTimeIs(nextKickTime());
}

void NaxelRootSm::takeInputs() {
  kickCapability_->valuesIs(*hwCapability_);
  kickParamConfig_->valuesIs(*paramConfig_);
  Acl::LabelCode const code = kickParamConfig_->labelCode();
  bool const wants = kickParamConfig_->keepLabels();
  bool const keeps = wants && code == Acl::LabelCode::compact && loaderSm();
  if (wants && code == Acl::LabelCode::aligned && !toldOfAligned_)
    if (auto line = trace(0))
      line << "[" << chipId_ << "] keepLabels is without effect: the label code is aligned";
  toldOfAligned_ = wants && code == Acl::LabelCode::aligned;
  RepairShare const repair(keeps ? loaderSm()->inForce() : nullptr, kickParamConfig_->repairRows());
  auto const tell = [&](EncoderConfig& config, KeepsSets const* table) {
    config.labelCodeIs(code);
    config.basisIs(repair.basis(), table ? repair.rows(*table) : 0);
  };
  PDData const* const basis = repair.basis().get();
  for (PrefixXformKey const& key : PrefixXformKey::all())
    if (auto const config = prefixEncoderConfig(key))
      tell(*config, basis ? basis->pdPrefixXformEntryColl(key).get() : nullptr);
  for (RangeSetType type : allRangeSetTypes())
    if (auto const config = rangeEncoderConfig(type))
      tell(*config, basis ? basis->rangeColl(type).get() : nullptr);
  for (ComboLabelSetType type : allComboLabelSetTypes())
    if (auto const config = comboLabelEncoderConfig(type))
      tell(*config, basis ? basis->comboColl(type).get() : nullptr);
}

template <class F>
void NaxelRootSm::forEachEncoder(F f) const {
  // The sides before the combinations, which are keyed by the labels of both.
  for (auto const& [key, sm] : prefixEncoderSm())
    f(*sm, key.src() ? TcamFieldType::tcamFieldTypeSrcIp : TcamFieldType::tcamFieldTypeDstIp,
      key.af() == Lumox::ipv4(), key.af() == Lumox::ipv6());
  for (auto const& [type, sm] : rangeEncoderSm()) f(*sm, rangeField(type).tcamField, true, true);
  for (auto const& [type, sm] : comboLabelEncoderSm()) {
    bool const ports = type == ComboLabelSetType::srcDstL4Port;
    f(*sm, ports ? TcamFieldType::tcamFieldTypeSrcDstPort : TcamFieldType::tcamFieldTypeSrcDstIp,
      ports || type == ComboLabelSetType::ipv4SrcDstPrefix,
      ports || type == ComboLabelSetType::ipv6SrcDstPrefix);
  }
}

void NaxelRootSm::chooseLabelCode() {
  using Codes = std::array<FieldCodes, 2>;
  auto const codesBy = [](Acl::LabelCode code) {
    Codes codes;
    for (FieldCodes& family : codes) family.fill(code);
    return codes;
  };
  bool choice = false;
  forEachEncoder([&](LabelEncoderSm const& sm, auto...) { choice |= sm.hasBothCodes(); });
  // What has been chosen for the same rules and pairs stands.
  if (!choice || ruleExpanderSm()->isUpToDate()) return;
  RuleExpanderSm::Costs const costs = ruleExpanderSm()->costs();
  Codes best = codesBy(Acl::LabelCode::compact);
  uint64_t least = costs.entries(best);
  auto const consider = [&](Codes const& codes) {
    uint64_t const entries = costs.entries(codes);
    if (entries >= least) return;
    least = entries;
    best = codes;
  };
  consider(codesBy(Acl::LabelCode::aligned));
  // Rules multiply, so whether a field does better by the other code depends on the other fields; from a choice that
  // is no worse than the aligned code throughout, one field at a time makes it no worse.
  forEachEncoder([&](LabelEncoderSm const& sm, TcamFieldType field, bool v4, bool v6) {
    if (!sm.hasBothCodes()) return;
    Codes codes = best;
    auto const flip = [&](Acl::LabelCode& code) {
      code = code == Acl::LabelCode::aligned ? Acl::LabelCode::compact : Acl::LabelCode::aligned;
    };
    if (v4) flip(codes[0][static_cast<size_t>(field)]);
    if (v6) flip(codes[1][static_cast<size_t>(field)]);
    consider(codes);
  });
  forEachEncoder([&](LabelEncoderSm& sm, TcamFieldType field, bool v4, bool) {
    sm.codeIs(best[v4 ? 0 : 1][static_cast<size_t>(field)]);
  });
}

void NaxelRootSm::handleStageStatus() {
  StageControllerStatus const& status = *stageControllerStatus();
  if (auto line = trace(8))
    line << "handleStageStatus"
         << " stageStatus " << status.status();
  // A controller that has been bound anew may still report the kick before.
  if (!stageControllerConfig() || status.kickTime() != stageControllerConfig()->kickTime()) return;
  CallScope const call(*this);
  // The handshake of a cancelled kick goes on.
  bool const goesOn = status.status() == StageStatusType::inProgress ||
                      (status.status() == StageStatusType::cancelled && isShakingHands());
  if (!goesOn) silenceTimer_.earliestExpiryDel();
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
        // The words come before the outcome: whoever waits for the outcome reads them then.
        rootStatus_->kickMessageIs("Naxel failed at " + Mox::stringValue(status.lastFailedStage()) +
                                   " on chip " + valueToStrep(chipId_));
      } catch (std::bad_alloc const&) {
        // The failure itself still has to be reported.
      }
      if (call.isLeft()) return;
      return rootStatus_->kickProgressIs(NaxelProgress::naxelFinishedFail);
    case StageStatusType::finishedSkipped:
    case StageStatusType::finishedNotEnabled: break;
  }
  MOX_ASSERT(false);
}

void NaxelRootSm::handleProgress() {
  // Progress does not arm what is not armed: either no kick runs, or silence is not to be told.
  if (silenceTimer_.earliestExpiry() < 0) return;
  progressAt_ = timerWheel_->now();
  silence_ = kickParamConfig_->silenceLimit();
  silenceTimer_.earliestExpiryIs(silence_ > 0 ? progressAt_ + silence_ : -1);
}

bool NaxelRootSm::isShakingHands() const { return loaderSm() && loaderSm()->isWaiting(); }

void NaxelRootSm::handleSilence() {
  // Whether and when to look again must not depend on memory for the words.
  if (rootStatus_->kickProgress() != NaxelProgress::naxelRunning && !isShakingHands()) return;
  Mox::Seconds const now = timerWheel_->now();
  Mox::Seconds const silent = now - progressAt_;
  // Less than the clock can tell from none would be due again at once.
  while (progressAt_ + silence_ <= now) silence_ *= 2;
  silenceTimer_.earliestExpiryIs(progressAt_ + silence_);
  if (auto line = trace(0))
    line << "[" << chipId_ << "] No progress for " << std::llround(silent)
         << " s: " << waitingFor();
}

void NaxelRootSm::handleDeleted(char const* why) {
  CallScope const call(*this);
  if (auto line = trace(0)) line << "[" << chipId_ << "] " << why;
  // Later kicks fail, too: with the present entity out of its place, success would be reported for a
  // configuration or a driver that nobody looks at.
  if (auto const controller = stageControllerSm()) controller->obstacleIs(why);
}

std::string NaxelRootSm::waitingFor() const {
  bool const running = rootStatus_->kickProgress() == NaxelProgress::naxelRunning;
  // A kick that has not come to its handshake yet does not wait for the one of the kick before it.
  bool const early = running && stageControllerSm() &&
                     stageControllerSm()->activeStage() != NaxelActiveStage::stageLoader;
  if (!early && isShakingHands()) return loaderSm()->waitingFor();
  if (!stageControllerSm() || !stageControllerConfig())
    return running ? "there is no stage controller, or it is not bound" : "";
  return stageControllerSm()->waitingFor();
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
