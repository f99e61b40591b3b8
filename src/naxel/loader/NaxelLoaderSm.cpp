#include "naxel/loader/NaxelLoaderSm.h"

#include "mox/Assert.h"
#include "mox/KeepAlive.h"
#include "naxel/loader/Judgement.h"
#include "naxel/types/NaxelTrace.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace Naxel {

namespace {

void append(std::string& list, std::string const& item) {
  list += (list.empty() ? "" : ", ") + item;
}

}  // namespace

LoaderSm::LoaderSm(Obel::ChipId chipId, Mox::Ptr<LoaderConfig> config,
                   Mox::Ptr<LoaderStatus> status, Mox::Ptr<PDConfig> pdConfig,
                   Mox::Ptr<PDStatus> pdStatus, Mox::Ptr<ChipHwCapability const> hwCapability,
                   Mox::Ptr<Acl::ParamConfig const> paramConfig)
    : StageSm(chipId, std::move(config), status),
      status_(std::move(status)),
      pdConfig_(std::move(pdConfig)),
      pdStatus_(std::move(pdStatus)),
      hwCapability_(std::move(hwCapability)),
      paramConfig_(std::move(paramConfig)),
      traceKey_("LoaderSm(" + valueToStrep(chipId) + ")::"),
      policy_(pdConfig_, pdStatus_) {
  // Over a PDConfig that is in use, as after a restart of the agent: while an acquire stands, the
  // output on offer has not been asked to be loaded.
  bool const acquiring = pdConfig_->pdResourceConfig().requestState() == RequestState::acquire;
  inForce_ = acquiring ? pdConfig_->prevPDData() : pdConfig_->currPDData();
  // A policy that stands over a used pair is a caution from the first kick on, also of one that fails
  // before it comes to this stage.
  updateCaution();
  driverReactor_.notifierIs(pdStatus_.get());
}

void LoaderSm::moxDoZombieReactors(bool zombie) {
  StageSm::moxDoZombieReactors(zombie);
  driverReactor_.notifierIs(zombie ? nullptr : pdStatus_.get());
  down_ = zombie;
  policy_.downIs(zombie);
}

Mox::TraceLine LoaderSm::traceStep(int level, char const* step) const {
  Mox::TraceLine line = trace(level);
  if (line) line << traceKey_ << step;
  return line;
}

void LoaderSm::doStartKick() {
  traceStep(8, "doStartKick");
  // Nothing is an answer yet: kickBegins() may write the policy, and a driver that reacts within that write
  // is ignored in this state.
  smStateIs(LoaderSmState::initial);
  advancing_ = stepWanted_ = false;  // a write that threw may have left the loop marked as running
  isHitless_ = true;
  refusals_.clear();
  policy_.kickBegins(paramConfig_->permitDuringUpdate());
  // The output is complete before anything is asked for, so where memory runs out in building it the
  // request and both outputs stay as they are.
  auto output = newOutput();
  TableRowCounts rows = rowCounts(*inForce_, *output);
  for (auto const& [table, counts] : rows)
    traceStep(4, "doStartKick") << ": " << table << ": " << counts;
  status_->rowsIs(std::move(rows));
  // Whoever was told may have taken the pipeline down.
  if (down_ || !config()) return;
  requested_ = true;
  // The state comes before the request, because the driver may answer within that write.
  smStateIs(LoaderSmState::waitingForAcquire);
  request(RequestState::acquire, inForce_, std::move(output));
}

void LoaderSm::doPDLoad() {
  auto output = newOutput();
  pdConfig_->prevPDDataIs(inForce_);
  if (!down_) pdConfig_->currPDDataIs(std::move(output));
}

Mox::Ptr<PDData const> LoaderSm::newOutput() {
  if (!widths_ || !widths_->hasValuesOf(*hwCapability_)) {
    // A copy of its own: the widths of the next kick are written into the same entity while the driver
    // still reads this output. Outputs of equal widths have one copy in common.
    auto const widths = Mox::makePtr<ChipHwCapability>(chipId());
    widths->valuesIs(*hwCapability_);
    widths_ = widths;
  }
  auto pdData = pDDataFactory(widths_);
  pdData->labelCodeIs(paramConfig_->labelCode());
  loadPrefixInfo(*pdData);
  loadRangeInfo(*pdData);
  loadComboInfo(*pdData);
  loadAclRuleInfo(*pdData);
  return pdData;
}

template <class Info, class Table>
template <class Entries>
Mox::Ptr<Table const> const& LoaderSm::Made<Info, Table>::of(Mox::Ptr<Info const> const& now,
                                                             Entries entries) {
  if (table && info == now) return table;
  auto next = Mox::makePtr<Table>();
  if (now) {
    std::vector<typename Table::Coll::value_type> all;
    all.reserve(entries(*now).size());
    for (auto const& [key, label] : entries(*now)) all.emplace_back(key, label);
    next->entryIs(std::move(all));
    next->keptSetsIs(now->keptSets());
  }
  info = now;
  return table = std::move(next);
}

void LoaderSm::loadPrefixInfo(PDData& pdData) {
  size_t at = 0;
  for (PrefixXformKey const& key : PrefixXformKey::all())
    pdData.pdPrefixXformEntryCollIs(
        key, prefix_[at++].of(
                 loaderConfig().prefixXformLoaderInfo(key),
                 [](auto const& info) -> auto const& { return info.prefixToLabelMap(); }));
}

void LoaderSm::loadRangeInfo(PDData& pdData) {
  for (RangeSetType type : allRangeSetTypes()) {
    auto const info = loaderConfig().rangeSplitLoaderInfo(type);
    traceStep(6, "loadRangeInfo") << ": Xform for range: " << type << (info ? "" : " is off");
    pdData.rangeCollIs(
        type, range_[static_cast<size_t>(type)].of(
                  info, [](auto const& i) -> auto const& { return i.rangeToEncodedLabelMap(); }));
  }
}

void LoaderSm::loadComboInfo(PDData& pdData) {
  for (ComboLabelSetType type : allComboLabelSetTypes()) {
    auto const info = loaderConfig().comboLabelLoaderInfo(type);
    traceStep(6, "loadComboInfo") << ": Xform for combo: " << type << (info ? "" : " is off");
    pdData.comboCollIs(type, combo_[static_cast<size_t>(type)].of(
                                 info, [](auto const& i) -> auto const& {
                                   return i.encComboToEncodedLabelMap();
                                 }));
  }
}

void LoaderSm::loadAclRuleInfo(PDData& pdData) const {
  auto const info = loaderConfig().ruleExpanderLoaderInfo();
  // An output without ACLs would be loaded without complaint and take them all out of the chip, so a
  // missing input fails the kick.
  if (!info) throw std::logic_error("the rule expander has left no entries for the chip");
  // The expander replaces ACLs and rules and does not edit them, so that outputs can share them and the driver
  // can keep the same ones.
  for (auto const& [key, acl] : info->pdAcl()) pdData.pdAclCollIs().pdAclIs(key, acl);
}

void LoaderSm::request(RequestState state) {
  request(state, pdConfig_->prevPDData(), pdConfig_->currPDData());
}

void LoaderSm::request(RequestState state, Mox::Ptr<PDData const> prev,
                       Mox::Ptr<PDData const> curr) {
  // Whoever was told of the write before this one may have taken the pipeline down.
  if (down_ || !config()) return;
  // A step of the loop makes requests, too; it goes on by itself once this call has returned.
  bool const outermost = !advancing_;
  advancing_ = true;  // what the driver answers from within the write waits for the loop
  pdConfig_->requestIs(std::move(prev), std::move(curr),
                       ResourceConfig(config()->kickTime(), state));
  stepWanted_ = true;
  if (outermost) advanceLoop();
}

void LoaderSm::requestLoad() {
  if (down_) return;
  // A load must not fail, so from its request on this is what a revert goes back to, whether or not the
  // kick lives to see the answer.
  inForce_ = pdConfig_->currPDData();
  policy_.loadBegins();
  request(RequestState::load);
}

void LoaderSm::doForget() noexcept {
  // Whatever was under way is left to the next kick, which supersedes it.
  smStateIs(LoaderSmState::initial);
  stepWanted_ = false;
}

void LoaderSm::handleXformStatus() {
  // Reactors of the status may take the owner of this stage down, here and below.
  auto const alive = Mox::keepAlive(this);
  traceStep(8, "handleXformStatus");
  // All that this state waits for is a policy, so no answer of a table brings it on.
  if (requested_ && smState_ == LoaderSmState::pdLoadSuccess) {
    Judgement const judgement = judged();
    assertLoadable(judgement);
    // A driver that has restarted says again what it has said.
    if (judgement.complete)
      traceStep(1, "handleXformStatus") << ": the answers to the finished load are complete again";
    return;
  }
  advance();
}

void LoaderSm::handleTcpFlagsStatus() {
  auto const alive = Mox::keepAlive(this);
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
  auto const alive = Mox::keepAlive(this);
  traceStep(8, "handleGlobalAclControl");
  // Read before the report is evaluated, which writes a policy of the driver's own over it.
  GlobalAclControl const asked = pdConfig_->globalAclControl();
  PolicyExchange::News const news = policy_.handleReport();
  updateCaution();
  if (down_) return;
  // What took the place of that change is still outstanding, so there is nothing to go on with.
  if (news == PolicyExchange::News::late) {
    if (auto line = traceStep(1, "handleGlobalAclControl"))
      line << ": late confirmation of " << pdStatus_->globalAclControl()
           << ", which was asked for before this pipeline";
    return;
  }
  // Before the first request a driver fills in what it has started with, which is no news to an operator.
  if (news == PolicyExchange::News::ownPolicy && requested_)
    if (auto line = traceStep(0, "handleGlobalAclControl"))
      line << ": the driver reports policy " << pdStatus_->globalAclControl()
           << " by itself, where " << asked << " was asked for";
  advance();
}

void LoaderSm::updateCaution() noexcept {
  try {
    status_->cautionIs(policy_.caution());
  } catch (std::bad_alloc const&) {
    status_->cautionIs(std::string());  // better none than a wrong one
  }
}

void LoaderSm::noteProgress() {
  ResourceConfig const& request = pdConfig_->pdResourceConfig();
  // Progress arms the silence timer anew. If every write of the driver counted, one that repeats the same
  // answers for ever would never be reported as silent.
  Stance const now{request, judge(*pdStatus_, request).answered, smState_};
  if (std::exchange(stance_, now) != now) status_->progressInc();
}

void LoaderSm::advance() {
  // Before the first request the driver fills in its statuses; while an output is put together it
  // may look at it. Neither is an answer. Nor is there anything to do for a loader that is unbound.
  if (!requested_ || smState_ == LoaderSmState::initial || !config()) {
    traceStep(2, "advance") << ": ignored before the request";
    return;
  }
  stepWanted_ = true;
  if (!advancing_) advanceLoop();
}

void LoaderSm::advanceLoop() {
  auto const alive = Mox::keepAlive(this);
  advancing_ = true;
  try {
    while (stepWanted_ && !down_) {
      stepWanted_ = false;
      takeStep();
    }
    // This loop runs below a write of the driver and not below the frame of the stage, so nobody else would
    // turn an exception into a failed kick.
  } catch (std::exception const& e) {
    doFailThrown(e.what());
  } catch (...) {
    doFailThrown("unknown exception");
  }
  advancing_ = false;
  if (!down_) noteProgress();
}

void LoaderSm::assertLoadable(Judgement const& judgement) const {
  if (!judgement.failedLoad) return;
  PDTable const table = *judgement.failedLoad;
  MOX_ASSERT_DETAIL(false, "0 && \"Failed to load data into acquired resources\"",
                    "chip " + valueToStrep(chipId()) + ", table " + tableTitle(table) +
                        ": answer " + valueToStrep(tableStatus(*pdStatus_, table)) + " to " +
                        valueToStrep(pdConfig_->pdResourceConfig()));
}

void LoaderSm::takeStep() {
  bool const acquiring = pdConfig_->pdResourceConfig().requestState() == RequestState::acquire;
  Judgement const judgement = judged();
  assertLoadable(judgement);
  // Kept, because noteRefusals() moves the state on.
  bool const acquired = smState_ == LoaderSmState::pdAcquireSuccess;
  noteRefusals(judgement);
  // Up to the request of the load, any table may still refuse.
  if (acquired && smState_ == LoaderSmState::pdLocalFail) smStateIs(LoaderSmState::pdAcquireFail);
  switch (smState_) {
    case LoaderSmState::waitingForAcquire:
    case LoaderSmState::pdLocalFail:
      if (!judgement.complete) return;
      isHitless_ = judgement.hitless;
      tellDisagreement(judgement);
      smStateIs(smState_ == LoaderSmState::pdLocalFail ? LoaderSmState::pdAcquireFail
                                                       : LoaderSmState::pdAcquireSuccess);
      return handleLoaderState();
    case LoaderSmState::pdAcquireSuccess:
      // Waiting for the temporary policy. What else the tables say now does not count.
      if (acquiring) return handleLoaderState();
      if (!judgement.complete) return;
      policy_.settled();
      smStateIs(LoaderSmState::pdLoadSuccess);
      return handleLoaderState();
    case LoaderSmState::waitingForRevert:
      if (!judgement.complete) return;
      policy_.settled();
      smStateIs(LoaderSmState::pdRevertSuccess);
      return handleLoaderState();
    case LoaderSmState::pdAcquireFail:
    case LoaderSmState::pdLoadSuccess:
    case LoaderSmState::pdRevertSuccess: return handleLoaderState();
    case LoaderSmState::initial: return;  // unbound from within the write before
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
      // The tables are rewritten only once the driver reports the policy as in force. Until then every
      // event comes here again.
      if (isHitless_ || policyIs(policy_.temporary())) return requestLoad();
      if (policy_.isContested()) doAcquireFail();
      return;
    case LoaderSmState::pdAcquireFail: return doAcquireFail();
    case LoaderSmState::pdLoadSuccess:
      if (status_->status() != StageStatusType::inProgress) return;
      if (policyIs(GlobalAclControl::doNotApply))
        doSetStatus(StageStatusType::finishedSuccess);
      else if (policy_.isContested())
        doFail(
            "the new tables are loaded, but the driver puts a policy in force whenever one is "
            "lifted: " +
            std::to_string(policy_.ownPolicies()) + " times in this kick");
      return;
    case LoaderSmState::pdRevertSuccess:
      if (status_->status() != StageStatusType::inProgress) return;
      // What the driver brought along may be all that protects tables that were never loaded.
      if (policy_.untilLoaded() || policyIs(GlobalAclControl::doNotApply) || policy_.isContested())
        doFail(refusalText());
      return;
  }
  MOX_ASSERT(0 && "Invalid smState");
}

void LoaderSm::doAcquireFail() {
  // The refused output is kept before the request puts the previous one in its place, and the state is set
  // before the driver can answer that request from within the write.
  status_->lastFailedStateIs(FailureData(pdConfig_->currPDData(), failedResponseId_));
  smStateIs(LoaderSmState::waitingForRevert);
  request(RequestState::revert, pdConfig_->prevPDData(), pdConfig_->prevPDData());
}

std::string LoaderSm::refusalText() const {
  // Without a refusal this is reached only with a driver that contests the temporary policy.
  if (refusals_.empty())
    return "the driver puts another policy in force whenever one is asked for: " +
           std::to_string(policy_.ownPolicies()) + " times in this kick";
  std::string tables;
  for (Refusal const& refusal : refusals_)
    append(tables,
           tableTitle(refusal.table) + (refusal.reason.empty() ? "" : " (" + refusal.reason + ")"));
  return "the driver refused resources for " + tables;
}

bool LoaderSm::policyIs(GlobalAclControl wanted) {
  // Both sides as they stand now: the driver may confirm within the write, and the trace is about what has
  // changed.
  GlobalAclControl const before = pdStatus_->globalAclControl();
  GlobalAclControl const asked = pdConfig_->globalAclControl();
  bool const done = policy_.policyIs(wanted);
  if (down_) return false;
  if (asked != wanted || pdStatus_->globalAclControl() != before)
    if (auto line = traceStep(1, "handleLoaderState")) line << ": Set global policy: " << wanted;
  updateCaution();
  return done;
}

Judgement LoaderSm::judged() const {
  ResourceConfig const& request = pdConfig_->pdResourceConfig();
  // The walks by kind are for the trace alone; judge() looks at all tables by itself.
  if (naxelTrace().on(1)) {
    struct Kind {
      char const* step;
      char const* name;
      bool (*has)(PDTable);
    };
    for (Kind const& kind : {Kind{"checkPrefixStatus", "prefix", isPrefixTable},
                             Kind{"checkComboStatus", "combo", isComboTable},
                             Kind{"checkRangeStatus", "range", isRangeTable}}) {
      bool all = true;
      for (PDTable table : allPDTables()) {
        if (!kind.has(table)) continue;
        traceStep(8, kind.step) << "Check xform status for " << kind.name << ": " << table;
        bool const answered = answers(tableStatus(*pdStatus_, table), request);
        if (answered && request.requestState() == RequestState::revert)
          traceStep(2, "checkXformStatus") << ": Unused resources have been released";
        all = all && answered;
      }
      if (!all)
        traceStep(1, kind.step) << ": Not all " << kind.name << " entry status have been updated";
    }
  }
  return judge(*pdStatus_, request);
}

void LoaderSm::noteRefusals(Judgement const& judgement) {
  for (PDTable table : judgement.refusedBy) {
    // The answer stands, and every further step sees it again: a table is traced and listed once, with the
    // reason that it gave first.
    failedResponseId_ = pdConfig_->pdResourceConfig().requestId();
    smStateIs(LoaderSmState::pdLocalFail);
    if (std::ranges::any_of(refusals_, [&](Refusal const& r) { return r.table == table; }))
      continue;
    refusals_.push_back({table, pdStatus_->refusalReason(table)});
    if (auto line = traceStep(0, "checkXformStatus"))
      line << ": Failed resource acquisition: " << tableTitle(table)
           << (refusals_.back().reason.empty() ? "" : ": " + refusals_.back().reason);
  }
}

void LoaderSm::tellDisagreement(Judgement const& judgement) const {
  if (!judgement.isMixed()) return;
  if (auto line = traceStep(0, "checkXformStatus"))
    line << ": the driver answers hitful for " << tableTitle(*judgement.hitfulTable)
         << " and hitless for " << tableTitle(*judgement.hitlessTable)
         << "; the table examined last, " << tableTitle(PDTable::aclEntries) << ", decides: "
         << (isHitless_ ? "traffic may be disturbed without a policy" : "a policy stands in");
}

bool LoaderSm::isWaiting() const noexcept {
  return requested_ && status_->status() == StageStatusType::inProgress &&
         smState_ != LoaderSmState::initial;
}

std::string LoaderSm::waitingFor() const {
  if (!isWaiting()) return {};
  ResourceConfig const& current = pdConfig_->pdResourceConfig();
  std::string const request =
      Mox::stringValue(current.requestState()) + " of id " + valueToStrep(current.requestId());
  // In pdAcquireSuccess the request tells two waits apart: as long as it is the acquire, which has been
  // answered, the temporary policy is waited for.
  bool const policy = smState_ == LoaderSmState::pdLoadSuccess ||
                      smState_ == LoaderSmState::pdRevertSuccess ||
                      (smState_ == LoaderSmState::pdAcquireSuccess &&
                       current.requestState() == RequestState::acquire);
  if (policy)
    return "the driver has answered the " + request + ", and has to put policy " +
           Mox::stringValue(pdConfig_->globalAclControl()) + " in force: it reports " +
           Mox::stringValue(pdStatus_->globalAclControl());
  std::string missing;
  std::string answered;
  for (PDTable table : allPDTables()) {
    ResourceStatus const answer = tableStatus(*pdStatus_, table);
    std::string const said = Mox::stringValue(answer.responseState());
    if (answers(answer, current))
      append(answered, tableTitle(table) + " " + said);
    else if (table != PDTable::tcpFlags)
      append(missing,
             tableTitle(table) + " (" +
                 (answer.responseId() == 0 ? std::string("never answered")
                                           : said + " to id " + valueToStrep(answer.responseId())) +
                 ")");
  }
  return "the driver has to answer the " + request + " for " + missing +
         (answered.empty() ? "" : "; answered: " + answered);
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
