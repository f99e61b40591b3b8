#include "verify/HandshakeCheck.h"

#include "naxel/control/NaxelRootSm.h"
#include "naxel/control/StageControllerTypes.h"
#include "naxel/genset/NaxelAggregatorTypes.h"
#include "naxel/loader/NaxelLoaderTypes.h"
#include "verify/Agreement.h"
#include "verify/ConfigCopy.h"
#include "verify/OutputText.h"
#include "verify/PacketSource.h"
#include "verify/RuleOracle.h"

#include <algorithm>

namespace Verify {

using namespace Naxel;

class HandshakeCheck::Watcher : public PDConfig::Notifiee,
                                public RootStatus::Notifiee,
                                public StageStatus::Notifiee {
 public:
  explicit Watcher(HandshakeCheck& check) : check_(check) {
    PDConfig::Notifiee::notifierIs(check.e_.pdConfig.get());
  }
  void pipelineIs(NaxelRootSm const* root) {
    auto const aggregator = root ? root->aggregatorStatus() : nullptr;
    StageStatus::Notifiee::notifierIs(aggregator.get());
    aggregator_ = aggregator;
    if (root) RootStatus::Notifiee::notifierIs(check_.e_.rootStatus.get());
  }

  void onPrevPDData() override { aside(&HandshakeCheck::handleOutput); }
  void onCurrPDData() override { aside(&HandshakeCheck::handleOutput); }
  void onPdResourceConfig() override { aside(&HandshakeCheck::handleRequest); }
  void onGlobalAclControl() override { aside(&HandshakeCheck::handlePolicy); }
  void onKickProgress() override { aside(&HandshakeCheck::handleProgress); }
  void onStatus() override {
    if (aggregator_->status() == StageStatusType::inProgress) aside(&HandshakeCheck::handleRead);
  }

 private:
  void aside(void (HandshakeCheck::*look)()) {
    check_.chip_.aside(true);
    (check_.*look)();
    check_.chip_.aside(false);
  }
  HandshakeCheck& check_;
  Mox::Ptr<AggregatorStatus> aggregator_;
};

HandshakeCheck::HandshakeCheck(ChipEntities const& entities, WatchedChip& chip, Figures& figures)
    : e_(entities), chip_(chip), figures_(figures), watcher_(std::make_unique<Watcher>(*this)) {}

HandshakeCheck::~HandshakeCheck() = default;

void HandshakeCheck::pipelineIs(NaxelRootSm const* root) {
  root_ = root;
  watcher_->pipelineIs(root);
  if (!root) {
    awaited_ = false;
    return;
  }
  stale_ = false;
  GlobalAclControl const policy = e_.pdConfig->globalAclControl();
  unconfirmed_.reset();
  if (policy != e_.pdStatus->globalAclControl()) unconfirmed_ = policy;
  if (!ownPolicy_ && policy != GlobalAclControl::doNotApply &&
      policy == e_.pdStatus->globalAclControl())
    ownUnclear_ = true;
}

void HandshakeCheck::requesting(NaxelKickRequest what) {
  hasRead_ = refused_ = false;
  awaited_ = root_ != nullptr;
  if (what == NaxelKickRequest::naxelStart) permitNext_ = e_.params->permitDuringUpdate();
}

void HandshakeCheck::entityReplaced() { stale_ = root_ != nullptr; }

void HandshakeCheck::driverRestarts(std::optional<GlobalAclControl> policy) {
  restarted_ = true;
  if (!policy) return;
  ownPolicy_ = true;
  // What the status shows already tells the library nothing.
  if (*policy != e_.pdStatus->globalAclControl()) {
    ownDeny_ = root_ && policy == GlobalAclControl::denyAll && unconfirmed_ != policy;
    ownLoaded_ = e_.pdConfig->pdResourceConfig().requestState() == RequestState::load;
  }
  sinceLoad_ = !root_ || root_->loaderStatus()->status() != StageStatusType::inProgress;
}

void HandshakeCheck::driverRestartsOverNewStatus() {
  entityReplaced();
  restarted_ = true;
  ownPolicy_ = false;
  ownUnclear_ = e_.pdConfig->globalAclControl() != GlobalAclControl::doNotApply;
}

void HandshakeCheck::driverStarted() {
  auto const at = std::find(inForce_.begin(), inForce_.end(), chip_.inForce().get());
  if (at != inForce_.end()) inForce_.erase(inForce_.begin(), at);
}

HandshakeCheck::Configuration const* HandshakeCheck::read(size_t kicksBefore) const {
  return kicksBefore < read_.size() ? &read_[kicksBefore] : nullptr;
}

void HandshakeCheck::handleRead() {
  Configuration const now{Mox::makePtr<AclConfigColl>(e_.chipId),
                          Mox::makePtr<ChipHwCapability>(e_.chipId)};
  copyAcls(*e_.acls, *now.acls);
  now.capability->valuesIs(*e_.capability);
  hasRead_ = true;
  read_.push_front(now);
  if (read_.size() > 3) read_.pop_back();
}

HandshakeCheck::Output const* HandshakeCheck::outputOf(PDData const* data) const {
  auto const at = std::find_if(outputs_.begin(), outputs_.end(),
                               [&](Output const& output) { return output.data.get() == data; });
  return at == outputs_.end() ? nullptr : &*at;
}

bool HandshakeCheck::mayBeInForce(PDData const* data) const {
  return std::find(inForce_.begin(), inForce_.end(), data) != inForce_.end();
}

void HandshakeCheck::handleOutput() {
  // Outputs and request are set together: whoever takes the pipeline down now has still seen it ask.
  if (root_) announced_ = e_.pdConfig->pdResourceConfig();
  auto const& data = e_.pdConfig->currPDData();
  if (outputOf(data.get())) return;
  std::string said = full(*data);
  // Before anything has been loaded, what is brought back is empty.
  if (!said.empty() && read_.empty())
    return breach("an output is offered that no configuration was read for");
  auto const acls = said.empty() ? Mox::makePtr<AclConfigColl>(e_.chipId) : read_.front().acls;
  outputs_.push_back({data, acls, std::move(said)});
  // What is in force, or may be brought back, is kept, and the newest.
  for (size_t i = 0; i + 4 < outputs_.size();)
    if (mayBeInForce(outputs_[i].data.get()))
      ++i;
    else
      outputs_.erase(outputs_.begin() + static_cast<std::ptrdiff_t>(i));
  drawProbes();
}

void HandshakeCheck::drawProbes() {
  constexpr int perOutput = 5;
  probes_.clear();
  for (size_t i = outputs_.size() < 2 ? 0 : outputs_.size() - 2; i < outputs_.size(); ++i) {
    PacketSource source(*outputs_[i].acls, ++draws_);
    for (int n = 0; n < perOutput; ++n) {
      Packet const packet = source.next();
      for (auto const& [aclName, acl] : outputs_[i].acls->acl())
        probes_.push_back({PDAclKey(packet.af, aclName), packet, {}});
    }
  }
  for (Probe& probe : probes_) {
    probe.rule[nullptr] = {};
    for (Output const& output : outputs_) {
      auto& rule = probe.rule[output.data.get()];
      auto const acl = output.acls->acl(probe.key.aclName());
      if (acl) rule.first = firstMatch(*acl, probe.packet);
      if (rule.first) rule.second = acl->ruleById(*rule.first)->action();
    }
  }
}

bool HandshakeCheck::answered(std::initializer_list<ResponseState> states) const {
  return std::all_of(allPDTables().begin(), allPDTables().end(), [&](PDTable t) {
    ResourceStatus const status = tableStatus(*e_.pdStatus, t);
    return t == PDTable::tcpFlags ||
           (status.responseId() == e_.pdConfig->pdResourceConfig().requestId() &&
            std::find(states.begin(), states.end(), status.responseState()) != states.end());
  });
}

void HandshakeCheck::handleRequest() {
  ResourceConfig const request = e_.pdConfig->pdResourceConfig();
  PDData const* const offered = e_.pdConfig->currPDData().get();
  if (!root_ && request != announced_) breach("a pipeline that is down makes a request");
  switch (request.requestState()) {
    case RequestState::acquire:
      // An empty one stands for none.
      if (auto const& previous = e_.pdConfig->prevPDData();
          previous.get() != inForce_.back() && (inForce_.back() || !full(*previous).empty()))
        breach("the previous output is not the one last asked to be loaded");
      if (request.requestId() <= lastId_) breach("a request with the id of an earlier one");
      lastId_ = request.requestId();
      refused_ = restarted_ = sinceLoad_ = false;
      permit_ = permitNext_;
      return;
    case RequestState::load:
      if (!restarted_ && !answered({ResponseState::hitless, ResponseState::hitful}))
        breach("load before every table has answered the acquire");
      inForce_.push_back(offered);
      ownUnclear_ = false;
      return;
    case RequestState::revert: break;
  }
  ++figures_.refusals;
  refused_ = true;
  ResourceStatus const refusal(request.requestId(), ResponseState::failed);
  if (!restarted_ && std::none_of(allPDTables().begin(), allPDTables().end(), [&](PDTable t) {
        return tableStatus(*e_.pdStatus, t) == refusal;
      }))
    breach("revert although the driver refused nothing");
  if (mayBeInForce(offered)) return;
  Output const* const output = outputOf(offered);
  if (!output || !output->said.empty()) breach("revert to an output that never was in force");
  inForce_.push_back(offered);
}

void HandshakeCheck::handlePolicy() {
  if (!root_) breach("a pipeline that is down sets a policy");
  GlobalAclControl const policy = e_.pdConfig->globalAclControl();
  if (policy == GlobalAclControl::doNotApply) return;
  if (policy == e_.pdStatus->globalAclControl()) return;  // a change of before is taken back
  if (policy != (permit_ ? GlobalAclControl::permitAll : GlobalAclControl::denyAll) &&
      !((ownPolicy_ || ownUnclear_) && policy == GlobalAclControl::denyAll))
    breach("another policy than the agent wants");
  if (!restarted_ &&
      tableStatus(*e_.pdStatus, PDTable::aclEntries) !=
          ResourceStatus(e_.pdConfig->pdResourceConfig().requestId(), ResponseState::hitful))
    breach("a policy for a change that nobody called hitful");
}

void HandshakeCheck::wrote(Wrote what) {
  ++figures_.writes;
  if (what == Wrote::policy || what == Wrote::output) unconfirmed_.reset();
  if (what == Wrote::policy) {
    GlobalAclControl const policy = chip_.policy();
    if (ownPolicy_ && policy != GlobalAclControl::denyAll && std::exchange(ownDeny_, false) &&
        !ownLoaded_)
      breach("the driver's own policy is lifted without a load");
    if (policy == GlobalAclControl::doNotApply) ownPolicy_ = ownUnclear_ = false;
  }
  if (what == Wrote::output) {
    auto const at = std::find(inForce_.begin(), inForce_.end(), chip_.inForce().get());
    if (at == inForce_.end()) return breach("an output is in force that nobody asked for");
    if (e_.pdConfig->pdResourceConfig().requestState() == RequestState::load) ownLoaded_ = true;
    inForce_.erase(inForce_.begin(), at);
  }
  for (Probe const& probe : probes_)
    if (!meetsWhatItMay(probe)) return;
}

/// The verdict of a policy is judged when it is set.
bool HandshakeCheck::meetsWhatItMay(Probe const& probe) {
  ++figures_.packets;
  Verdict const verdict = chip_.lookup(probe.key, probe.packet);
  if (verdict.kind == Verdict::Kind::policy) return true;
  auto const fits = [&](PDData const* data) {
    auto const& [rule, action] = probe.rule.at(data);
    return verdict.kind == Verdict::Kind::none ? !rule
                                               : rule == verdict.rule && action == verdict.action;
  };
  if (verdict.kind != Verdict::Kind::disturbed &&
      std::any_of(inForce_.begin(), inForce_.end(), fits))
    return true;
  breach("in flight, " + probe.key.aclName() + ": " + text(probe.packet) + " meets " +
         text(verdict));
  return false;
}

void HandshakeCheck::handleProgress() {
  NaxelProgress const progress = e_.rootStatus->kickProgress();
  if (!root_ && progress != NaxelProgress::naxelInitialized)
    return breach("a pipeline that is down reports " + Mox::stringValue(progress));
  if (progress != NaxelProgress::naxelRunning) awaited_ = false;
  if (progress == NaxelProgress::naxelFinishedSuccess) {
    ++figures_.successes;
    checkSuccess();
  } else if (progress == NaxelProgress::naxelFinishedFail) {
    ++figures_.failures;
    checkFailure();
  } else if (progress == NaxelProgress::naxelCancelled) {
    ++figures_.cancels;
  }
}

void HandshakeCheck::checkSuccess() {
  if (!hasRead_) return breach("success without having read the configuration since the request");
  auto const& data = e_.pdConfig->currPDData();
  if (chip_.inForce() != data) return breach("success without the new output in force");
  // A change that a pipeline of before has asked for may be carried out after it was taken back.
  bool const lifted = chip_.policy() == GlobalAclControl::doNotApply || chip_.finishesTakenBack();
  if (!(ownPolicy_ && sinceLoad_) &&
      !(lifted && e_.pdConfig->globalAclControl() == GlobalAclControl::doNotApply))
    return breach("success under a policy");
  if (chip_.reservedFor() != 0)
    return breach("success while the chip keeps resources for another load");
  if (!root_->stageControllerStatus()->failureText().empty() ||
      !e_.rootStatus->kickMessage().empty())
    breach("success with a reason for failure");
  if (isMistaken(*read_.front().acls)) breach("success with rules that cannot be compiled");
  std::string const difference = firstDifference(*read_.front().acls, *data, ++draws_);
  if (!difference.empty()) breach(difference + "\n" + dump(*data));
}

void HandshakeCheck::checkFailure() {
  if (chip_.mayLackReasons()) return;
  auto const& status = *root_->stageControllerStatus();
  std::string const& reason = status.failureText();
  auto const says = [&](char const* words) { return reason.find(words) != std::string::npos; };
  if (e_.rootStatus->kickMessage() != "Naxel failed at " +
                                          Mox::stringValue(status.lastFailedStage()) + " on chip " +
                                          std::to_string(e_.chipId.value()))
    breach("failure with the message " + e_.rootStatus->kickMessage());
  if (reason.empty()) return breach("failure without a reason");
  if (stale_ != says("has to be built anew"))
    breach("an entity is replaced or not, and the reason is " + reason);
  if (stale_) return;
  bool const policy = e_.pdStatus->globalAclControl() != GlobalAclControl::doNotApply ||
                      e_.pdConfig->globalAclControl() != GlobalAclControl::doNotApply;
  if (policy != says("in force"))
    breach(std::string("failure ") + (policy ? "under" : "without") +
           " a policy, and the reason is " + reason);
  if ((status.lastFailedStage() == NaxelActiveStage::stageAggregator) !=
      isMistaken(*read_.front().acls))
    breach("failure at " + Mox::stringValue(status.lastFailedStage()) + ": " + reason);
  if (status.lastFailedStage() == NaxelActiveStage::stageLoader) checkLoaderFailure(policy);
}

/// The handshake of an earlier kick may be refused while a later one is in its first stages: it is the stage
/// that says whose failure it is.
void HandshakeCheck::checkLoaderFailure(bool policy) {
  if (!refused_) breach("failure of the handshake although the driver refused nothing");
  if (!restarted_ && !answered({ResponseState::reverted}))
    breach("failure before every table was reverted");
  // A lift that the pipeline of before has asked for may still be under way.
  if (policy != ownPolicy_ && !ownUnclear_ && !(policy && !chip_.idle()))
    breach("failure that leaves a policy, or lifts the driver's own");
  if (chip_.reservedFor() != 0) breach("failure while the chip keeps resources for a load");
  if (root_->loaderStatus()->lastFailedState().responseId() != lastId_)
    breach("another refusal is reported than this one");
}

void HandshakeCheck::checkPublished() {
  for (Output const& output : outputs_)
    if (full(*output.data) != output.said) breach("an output has changed since it was published");
}

void HandshakeCheck::checkRunning() {
  if (root_ && e_.rootStatus->kickProgress() == NaxelProgress::naxelRunning &&
      root_->waitingFor().empty())
    breach("a running kick waits for nothing");
}

void HandshakeCheck::checkAtRest() {
  if (std::exchange(awaited_, false)) breach("a kick hangs and waits for " + root_->waitingFor());
  if (e_.rootStatus->kickProgress() == NaxelProgress::naxelFinishedSuccess && !ownPolicy_ &&
      chip_.policy() != GlobalAclControl::doNotApply)
    breach("a policy stands when all is done");
  ResourceConfig const request = e_.pdConfig->pdResourceConfig();
  if (chip_.reservedFor() != 0 && (request.requestState() != RequestState::acquire ||
                                   chip_.reservedFor() != request.requestId()))
    breach("the chip keeps resources for a load that will never be");
  checkPublished();
}

}  // namespace Verify
