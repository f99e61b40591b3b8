#include "naxel/loader/NaxelLoaderSm.h"

#include "mox/Assert.h"
#include "mox/KeepAlive.h"
#include "naxel/types/NaxelTrace.h"

namespace Naxel {

LoaderSm::LoaderSm(Obel::ChipId chipId, Mox::Ptr<LoaderConfig> config,
                   Mox::Ptr<LoaderStatus> status, Mox::Ptr<PDConfig> pdConfig,
                   Mox::Ptr<PDStatus> pdStatus, Mox::Ptr<ChipHwCapability const> hwCapability,
                   Mox::Ptr<Acl::ParamConfig const> paramConfig)
    : StageSm(chipId, config, status),
      config_(std::move(config)),
      status_(std::move(status)),
      pdConfig_(std::move(pdConfig)),
      pdStatus_(std::move(pdStatus)),
      hwCapability_(std::move(hwCapability)),
      paramConfig_(std::move(paramConfig)),
      traceKey_("LoaderSm(" + valueToStrep(chipId) + ")::") {
  // Over a PDConfig that is in use, as after a restart of the agent: while an acquire stands, the
  // output on offer has not been asked to be loaded.
  bool const acquiring = pdConfig_->pdResourceConfig().requestState() == RequestState::acquire;
  inForce_ = acquiring ? pdConfig_->prevPDData() : pdConfig_->currPDData();
  if (!inForce_) inForce_ = pDDataFactory();
  driverReactor_.notifierIs(pdStatus_.get());
}

void LoaderSm::moxDoZombieReactors(bool zombie) {
  StageSm::moxDoZombieReactors(zombie);
  driverReactor_.notifierIs(zombie ? nullptr : pdStatus_.get());
  down_ = zombie;
}

Mox::TraceLine LoaderSm::traceStep(int level, char const* step) const {
  Mox::TraceLine line = trace(level);
  if (line) line << traceKey_ << step;
  return line;
}

void LoaderSm::doStartKick() {
  traceStep(8, "doStartKick");
  smStateIs(LoaderSmState::initial);
  advancing_ = turnWanted_ = false;  // a write that threw may have left the loop marked as running
  isHitless_ = true;
  refusedTables_.clear();
  // A policy that the driver stood up by itself before the first request is taken for ours, so that
  // it is lifted by the end of the load.
  if (pdConfig_->pdResourceConfig().requestId() == 0)
    pdConfig_->globalAclControlIs(pdStatus_->globalAclControl());
  doPDLoad();
  requested_ = true;
  smStateIs(LoaderSmState::waitingForAcquire);
  request(RequestState::acquire);
}

void LoaderSm::doPDLoad() {
  auto pdData = pDDataFactory();
  for (PrefixXformKey const& key : PrefixXformKey::all())
    loadPrefixInfo(config_->prefixXformLoaderInfo(key), *pdData->pdPrefixXformEntryColl(key));
  loadRangeInfo(*pdData);
  loadComboInfo(*pdData);
  loadAclRuleInfo(*pdData);
  pdConfig_->prevPDDataIs(inForce_);
  pdConfig_->currPDDataIs(std::move(pdData));
}

void LoaderSm::loadPrefixInfo(Mox::Ptr<PrefixXformLoaderInfo const> const& info,
                              PDPrefixXformEntryColl& table) const {
  if (!info) return;
  std::vector<PDPrefixXformEntry> entries;
  entries.reserve(info->prefixToLabelMap().size());
  for (auto const& [prefix, label] : info->prefixToLabelMap()) entries.emplace_back(prefix, label);
  table.entryIs(std::move(entries));
}

void LoaderSm::loadRangeInfo(PDData& pdData) const {
  for (RangeSetType type : allRangeSetTypes()) {
    auto const info = config_->rangeSplitLoaderInfo(type);
    traceStep(6, "loadRangeInfo") << ": Xform for range: " << type << (info ? "" : " is off");
    if (!info) continue;
    std::vector<PDRangeXformEntry> entries;
    entries.reserve(info->rangeToEncodedLabelMap().size());
    for (auto const& [elem, label] : info->rangeToEncodedLabelMap())
      entries.emplace_back(elem, label);
    pdData.rangeColl(type)->entryIs(std::move(entries));
  }
}

void LoaderSm::loadComboInfo(PDData& pdData) const {
  for (ComboLabelSetType type : allComboLabelSetTypes()) {
    auto const info = config_->comboLabelLoaderInfo(type);
    traceStep(6, "loadComboInfo") << ": Xform for combo: " << type << (info ? "" : " is off");
    if (!info) continue;
    std::vector<PDComboEntry> entries;
    entries.reserve(info->encComboToEncodedLabelMap().size());
    for (auto const& [pair, label] : info->encComboToEncodedLabelMap())
      entries.emplace_back(pair, label);
    pdData.comboColl(type)->entryIs(std::move(entries));
  }
}

void LoaderSm::loadAclRuleInfo(PDData& pdData) const {
  // The expander replaces its rules and does not edit them, so that the driver can keep the same
  // ones.
  for (auto const& [key, acl] : config_->ruleExpanderLoaderInfo()->pdAcl())
    pdData.pdAclColl()->pdAclIs(key)->ruleIs(acl->rule());
}

void LoaderSm::request(RequestState state) {
  // Whoever was told of the write before this one may have taken the pipeline down.
  if (down_) return;
  bool const outermost = !advancing_;
  advancing_ = true;  // what the driver answers from within the write waits for the loop
  pdConfig_->pdResourceConfigIs(ResourceConfig(config_->kickTime(), state));
  turnWanted_ = true;
  if (outermost) advanceLoop();
}

void LoaderSm::requestLoad() {
  if (down_) return;
  inForce_ = pdConfig_->currPDData();
  request(RequestState::load);
}

void LoaderSm::handleXformStatus() {
  traceStep(8, "handleXformStatus");
  if (requested_ && smState_ == LoaderSmState::pdLoadSuccess) {
    // All tables have answered, so whatever makes the answers complete again has changed one of them.
    bool const complete = checkAllStatus();
    MOX_ASSERT_TEXT(smState_ != LoaderSmState::pdLocalFail,
                    "0 && \"Failed to load data into acquired resources\"");
    if (!complete) return;
    MOX_ASSERT(0 && "reached invalid state for handleXformStatus");
  }
  advance();
}

void LoaderSm::handleTcpFlagsStatus() {
  traceStep(8, "handleXformStatus");
  // The table is never filled, so a driver may answer for it last or never. Only a refused acquire
  // says anything.
  if (requested_ && pdConfig_->pdResourceConfig().requestState() != RequestState::acquire) {
    traceStep(2, "handleXformStatus") << ": TCP flags status ignored";
    return;
  }
  advance();
}

void LoaderSm::handleGlobalAclControl() {
  traceStep(8, "handleGlobalAclControl");
  if (!requested_) {
    traceStep(2, "handleGlobalAclControl") << ": ignored before the first request";
    return;
  }
  MOX_ASSERT_TEXT(pdConfig_->globalAclControl() == pdStatus_->globalAclControl(),
                  "pdConfig()->globalAclControl() == pdStatus()->globalAclControl()");
  advance();
}

void LoaderSm::advance() {
  // Before the first request the driver fills in its statuses; while an output is put together it
  // may look at it. Neither is an answer.
  if (!requested_ || smState_ == LoaderSmState::initial) {
    traceStep(2, "advance") << ": ignored before the request";
    return;
  }
  turnWanted_ = true;
  if (!advancing_) advanceLoop();
}

void LoaderSm::advanceLoop() {
  // Reactors of the status may take the owner of this stage down.
  auto const alive = Mox::keepAlive(this);
  advancing_ = true;
  try {
    while (turnWanted_ && !down_) {
      turnWanted_ = false;
      takeTurn();
    }
  } catch (std::exception const& e) {
    giveUp(e.what());
  } catch (...) {
    giveUp("unknown exception");
  }
  advancing_ = false;
}

void LoaderSm::giveUp(char const* what) noexcept {
  // Whatever was under way is left to the next kick, which supersedes it.
  smStateIs(LoaderSmState::initial);
  turnWanted_ = false;
  doFailThrown(what);
}

void LoaderSm::takeTurn() {
  RequestState const requestState = pdConfig_->pdResourceConfig().requestState();
  switch (smState_) {
    case LoaderSmState::waitingForAcquire:
    case LoaderSmState::pdLocalFail:
      if (!checkAllStatus()) return;
      // A refused load is judged here too: the tables answer one by one.
      MOX_ASSERT_TEXT(requestState != RequestState::load,
                      "0 && \"Failed to load data into acquired resources\"");
      smStateIs(smState_ == LoaderSmState::pdLocalFail ? LoaderSmState::pdAcquireFail
                                                       : LoaderSmState::pdAcquireSuccess);
      return handleLoaderState();
    case LoaderSmState::pdAcquireSuccess:
      if (requestState == RequestState::acquire) {
        // Waiting for the temporary policy. Of the tables only the one for TCP flags can still say
        // something new, and only a refusal counts.
        bool const hitless = isHitless_;
        checkAllStatus();
        isHitless_ = hitless;
        if (smState_ == LoaderSmState::pdLocalFail) smStateIs(LoaderSmState::pdAcquireFail);
        return handleLoaderState();
      }
      if (!checkAllStatus()) return;
      MOX_ASSERT_TEXT(smState_ != LoaderSmState::pdLocalFail,
                      "0 && \"Failed to load data into acquired resources\"");
      smStateIs(LoaderSmState::pdLoadSuccess);
      return handleLoaderState();
    case LoaderSmState::waitingForRevert:
      if (!checkAllStatus()) return;
      smStateIs(LoaderSmState::pdRevertSuccess);
      return handleLoaderState();
    case LoaderSmState::pdLoadSuccess:
    case LoaderSmState::pdRevertSuccess: return handleLoaderState();
    case LoaderSmState::initial:
    case LoaderSmState::pdAcquireFail: break;
  }
  MOX_ASSERT(0 && "reached invalid state for handleXformStatus");
}

void LoaderSm::handleLoaderState() {
  if (auto line = traceStep(8, "handleLoaderState")) line << " state " << smState_;
  switch (smState_) {
    case LoaderSmState::initial:
    case LoaderSmState::waitingForAcquire:
    case LoaderSmState::pdLocalFail:
    case LoaderSmState::waitingForRevert: return;
    case LoaderSmState::pdAcquireSuccess:
      if (isHitless_ || policyIs(temporaryPolicy())) requestLoad();
      return;
    case LoaderSmState::pdAcquireFail: return doAcquireFail();
    case LoaderSmState::pdLoadSuccess:
      if (status_->status() == StageStatusType::inProgress &&
          policyIs(GlobalAclControl::doNotApply))
        doSetStatus(StageStatusType::finishedSuccess);
      return;
    case LoaderSmState::pdRevertSuccess:
      if (status_->status() == StageStatusType::inProgress &&
          policyIs(GlobalAclControl::doNotApply))
        doFail(traceKey_ + " the driver refused resources for " + refusedTables_);
      return;
  }
  MOX_ASSERT(0 && "Invalid smState");
}

void LoaderSm::doAcquireFail() {
  status_->lastFailedStateIs(FailureData(pdConfig_->currPDData(), failedResponseId_));
  smStateIs(LoaderSmState::waitingForRevert);
  pdConfig_->currPDDataIs(pdConfig_->prevPDData());
  request(RequestState::revert);
}

GlobalAclControl LoaderSm::temporaryPolicy() const {
  return paramConfig_->permitDuringUpdate() ? GlobalAclControl::permitAll
                                            : GlobalAclControl::denyAll;
}

bool LoaderSm::policyIs(GlobalAclControl wanted) {
  if (pdConfig_->globalAclControl() != pdStatus_->globalAclControl()) return false;
  if (pdConfig_->globalAclControl() == wanted) return true;
  if (auto line = traceStep(1, "handleLoaderState")) line << ": Set global policy: " << wanted;
  pdConfig_->globalAclControlIs(wanted);
  return !down_ && pdStatus_->globalAclControl() == wanted;
}

bool LoaderSm::checkXformStatus(ResourceStatus const& status, std::string const& table) {
  ResourceConfig const& current = pdConfig_->pdResourceConfig();
  if (status.responseId() != current.requestId()) return false;
  ResponseState const response = status.responseState();
  auto const refused = [&](char const* text) {
    traceStep(0, "checkXformStatus") << text;
    smStateIs(LoaderSmState::pdLocalFail);
    failedResponseId_ = status.responseId();
    if (refusedTables_.find(table) == std::string::npos)
      refusedTables_ += (refusedTables_.empty() ? "" : ", ") + table;
    return true;
  };
  switch (current.requestState()) {
    case RequestState::acquire:
      if (response == ResponseState::failed) return refused(": Failed resource acquisition");
      if (response != ResponseState::hitless && response != ResponseState::hitful) return false;
      isHitless_ = response == ResponseState::hitless;
      return true;
    case RequestState::load:
      if (response == ResponseState::failed) return refused(": Failed to load resources");
      return response == ResponseState::loaded;
    case RequestState::revert:
      if (response != ResponseState::reverted) return false;
      traceStep(2, "checkXformStatus") << ": Unused resources have been released";
      return true;
  }
  MOX_ASSERT(0 && "RequestState not implemented");
  return false;
}

bool LoaderSm::checkPrefixStatus() {
  bool all = true;
  for (PrefixXformKey const& key : PrefixXformKey::all()) {
    traceStep(8, "checkPrefixStatus") << "Check xform status for prefix: " << key;
    ResourceStatus const* status = pdStatus_->pdPrefixXformEntryStatus().get(key);
    // The driver fills the collection; a key that is missing has not answered.
    if (!status ||
        !checkXformStatus(*status, Mox::stringValue(key.af()) +
                                       (key.src() ? " source" : " destination") + " prefixes"))
      all = false;
  }
  if (!all) traceStep(1, "checkPrefixStatus") << ": Not all prefix entry status have been updated";
  return all;
}

bool LoaderSm::checkComboStatus() {
  bool all = true;
  for (ComboLabelSetType type : allComboLabelSetTypes()) {
    traceStep(8, "checkComboStatus") << "Check xform status for combo: " << type;
    if (!checkXformStatus(pdStatus_->comboStatus(type), Mox::stringValue(type) + " combinations"))
      all = false;
  }
  if (!all) traceStep(1, "checkComboStatus") << ": Not all combo entry status have been updated";
  return all;
}

bool LoaderSm::checkRangeStatus() {
  bool all = true;
  for (RangeSetType type : allRangeSetTypes()) {
    traceStep(8, "checkRangeStatus") << "Check xform status for range: " << type;
    if (!checkXformStatus(pdStatus_->rangeStatus(type), Mox::stringValue(type) + " ranges"))
      all = false;
  }
  if (!all) traceStep(1, "checkRangeStatus") << ": Not all range entry status have been updated";
  return all;
}

bool LoaderSm::checkAllStatus() {
  ResourceStatus const& tcpFlags = pdStatus_->pdTcpFlagsXformEntryStatus();
  if (pdConfig_->pdResourceConfig().requestState() == RequestState::acquire &&
      tcpFlags.responseState() == ResponseState::failed)
    checkXformStatus(tcpFlags, "TCP flags");
  // All of them, and in this order: the table examined last decides between hitless and hitful.
  bool const prefixes = checkPrefixStatus();
  bool const combos = checkComboStatus();
  bool const ranges = checkRangeStatus();
  bool const acls = checkXformStatus(pdStatus_->pdAclRuleEntryStatus(), "ACL entries");
  return prefixes && combos && ranges && acls;
}

Mox::Ptr<LoaderSm> loaderSmFactory(Obel::ChipId chipId, Mox::Ptr<LoaderConfig> config,
                                   Mox::Ptr<LoaderStatus> status, Mox::Ptr<PDConfig> pdConfig,
                                   Mox::Ptr<PDStatus> pdStatus,
                                   Mox::Ptr<ChipHwCapability const> hwCapability,
                                   Mox::Ptr<Acl::ParamConfig const> paramConfig) {
  return Mox::makePtr<LoaderSm>(chipId, std::move(config), std::move(status), std::move(pdConfig),
                                std::move(pdStatus), std::move(hwCapability),
                                std::move(paramConfig));
}

}  // namespace Naxel
