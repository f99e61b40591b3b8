#include "support/SimChip.h"

#include "support/AllocationFaults.h"
#include "support/VerdictGrid.h"
#include "verify/NaiveLookup.h"
#include "verify/PacketSource.h"
#include "verify/RuleOracle.h"

#include <algorithm>
#include <stdexcept>

namespace Test {

using namespace Naxel;
using Verify::KeyLayout;
using Verify::Packet;
using Verify::Verdict;

Figures& Figures::operator+=(Figures const& more) {
  edits += more.edits;
  kicks += more.kicks;
  successes += more.successes;
  failures += more.failures;
  cancels += more.cancels;
  roots += more.roots;
  writes += more.writes;
  packets += more.packets;
  refusals += more.refusals;
  faults += more.faults;
  return *this;
}

std::string text(Figures const& f) {
  auto const figure = [](uint64_t n, char const* what) { return std::to_string(n) + " " + what; };
  return figure(f.kicks, "kicks (") + figure(f.successes, "successes, ") +
         figure(f.failures, "failures, ") + figure(f.cancels, "cancelled), ") +
         figure(f.edits, "edits, ") + figure(f.roots, "pipelines built, ") +
         figure(f.writes, "driver writes, ") + figure(f.packets, "packets compared, ") +
         figure(f.refusals, "refusals, ") + figure(f.faults, "allocation faults");
}

namespace {

/// True if some rule says what no packet field can: an index of a rule that is not there, a range that
/// ends before it starts or beyond its field, addresses of two families in one ACL.
bool isMistaken(AclConfigColl const& acls) {
  for (auto const& [name, acl] : acls.acl()) {
    for (auto const& [index, rule] : acl->ruleById())
      if (acl->ruleByName(rule->name()) != rule) return true;
    bool v4 = acl->af() == Lumox::ipv4();
    bool v6 = acl->af() == Lumox::ipv6();
    bool range = false;
    for (auto const& [ruleName, rule] : acl->ruleByName()) {
      if (!rule->ruleFilter()) continue;
      for (auto const& list : {rule->ruleFilter()->source(), rule->ruleFilter()->destination()})
        for (auto const* prefixes :
             {list ? &list->addr() : nullptr, list ? &list->exceptAddr() : nullptr})
          if (prefixes)
            for (auto const& p : *prefixes) (p.af() == Lumox::ipv4() ? v4 : v6) = true;
      rule->ruleFilter()->forEachRangeColl([&](RangeSetType type, auto const& ranges) {
        uint32_t const bound = rangeField(type).bound();
        for (auto const& r : ranges)
          range = range || r.rangeStart() > r.rangeEnd() || r.rangeEnd() > bound;
      });
    }
    if (range || (v4 && v6)) return true;
  }
  return false;
}

}  // namespace

/// The configuration as the aggregator met it.
struct SimChip::Snapshot {
  Mox::Ptr<AclConfigColl> acls;
  Mox::Ptr<ChipHwCapability> capability;
  uint64_t at;
};

/// An output that has been published, the rules that it was made of, and what it said then.
struct SimChip::Output {
  Mox::Ptr<PDData const> data;
  std::shared_ptr<Snapshot> snapshot;
  std::string said;
};

/// A packet for an ACL, and the rule that it must hit under each output that may be in force.
struct SimChip::Probe {
  PDAclKey key;
  Packet packet;
  std::map<PDData const*, std::pair<std::optional<AceIndex>, NaxelActionValue>> rule;
};

class SimChip::ProgressWatcher : public RootStatus::Notifiee {
 public:
  explicit ProgressWatcher(SimChip& chip) : chip_(chip) { notifierIs(chip.e_.rootStatus.get()); }
  void onKickProgress() override {
    AllocationFaults::Scope const uncounted(false);
    chip_.onProgress();
  }

 private:
  SimChip& chip_;
};

class SimChip::AggregatorWatcher : public StageStatus::Notifiee {
 public:
  explicit AggregatorWatcher(SimChip& chip) : chip_(chip), status_(chip.root_->aggregatorStatus()) {
    notifierIs(status_.get());
  }
  void onStatus() override {
    AllocationFaults::Scope const uncounted(false);
    if (status_->status() == StageStatusType::inProgress) chip_.takeSnapshot();
  }

 private:
  SimChip& chip_;
  Mox::Ptr<AggregatorStatus> status_;
};

class SimChip::ConfigWatcher : public PDConfig::Notifiee {
 public:
  explicit ConfigWatcher(SimChip& chip) : chip_(chip) { notifierIs(chip.e_.pdConfig.get()); }
  void onPrevPDData() override {
    AllocationFaults::Scope const uncounted(false);
    chip_.onPrevious();
  }
  void onCurrPDData() override {
    AllocationFaults::Scope const uncounted(false);
    chip_.onOutput();
  }
  void onGlobalAclControl() override {
    chip_.enterDriver();
    if (!chip_.isUp()) chip_.differ("a pipeline that is down sets a policy");
    chip_.onPolicy();
  }
  void onPdResourceConfig() override {
    chip_.enterDriver();
    chip_.onRequest();
  }

 private:
  SimChip& chip_;
};

/// Only what the library itself allocates is made to fail. The driver works inside the library's
/// writes, and the library inside the driver's: one of these before and one behind the actual
/// watchers of an entity mark where a side begins and ends.
class SimChip::DriverSide : public PDStatus::Notifiee, public PDConfig::Notifiee {
 public:
  enum class Ends : uint8_t { no, yes };
  DriverSide(SimChip& chip, Ends ends, PDStatus* status, PDConfig* config)
      : chip_(chip), ends_(ends == Ends::yes) {
    if (status) PDStatus::Notifiee::notifierIs(status);
    if (config) PDConfig::Notifiee::notifierIs(config);
  }
  void onGlobalAclControl() override { mark(); }
  void onPdResourceConfig() override { mark(); }
  void onTableStatus() override { mark(); }

 private:
  void mark() {
    if (chip_.rewiring_) return;
    if (!ends_) {
      chip_.counting_.push_back(AllocationFaults::countingIs(true));
    } else if (!chip_.counting_.empty()) {
      AllocationFaults::countingIs(chip_.counting_.back());
      chip_.counting_.pop_back();
    }
  }
  SimChip& chip_;
  bool ends_;
};

/// Throws whenever it is told something that agent or driver write or watch.
template <class Base>
class SimChip::Thrower : public Base {
 public:
  explicit Thrower(Mox::Entity* entity) { this->notifierIs(entity); }
  // Each base has some of these.
  void onKickProgress() { fail(); }
  void onCurrPDData() { fail(); }
  void onPdResourceConfig() { fail(); }
  void onGlobalAclControl() { fail(); }
  void onPdAclRuleEntryStatus() { fail(); }
  void onStatus() { fail(); }

 private:
  [[noreturn]] void fail() {
    if (++thrown_ % 2) throw std::runtime_error("a watcher's own trouble");
    throw thrown_;
  }
  int thrown_ = 0;
};

SimChip::SimChip(uint8_t number, Mox::Ptr<Obel::TimerWheel> wheel, Figures& figures,
                 std::vector<std::string>& differences)
    : number_(number),
      wheel_(std::move(wheel)),
      figures_(figures),
      differences_(differences),
      e_(Obel::ChipId(number)),
      capabilities_(Mox::makePtr<HwCapabilityColl>()),
      pdStatuses_(globalPDStatusFactory()),
      inForce_{nullptr} {
  e_.capability = capabilities_->chipHwCapabilityIs(e_.chipId);
  e_.pdStatus = pdStatuses_->pdStatusIs(e_.chipId);
  statusFirst_ =
      std::make_unique<DriverSide>(*this, DriverSide::Ends::no, e_.pdStatus.get(), nullptr);
  configWatcher_ = std::make_unique<ConfigWatcher>(*this);
  buildDriver({}, false);
  rootUp(false);
}

SimChip::~SimChip() = default;

void SimChip::rootUp(bool freshEntities) {
  rootDown();
  if (freshEntities) {
    e_.rootConfig = Mox::makePtr<RootConfig>(e_.chipId);
    e_.rootStatus = Mox::makePtr<RootStatus>(e_.chipId);
  }
  stale_ = false;
  GlobalAclControl const policy = e_.pdConfig->globalAclControl();
  if (!ownPolicy_ && policy != GlobalAclControl::doNotApply &&
      policy == e_.pdStatus->globalAclControl())
    ownUnclear_ = true;
  root_ = buildRoot(e_, wheel_);
  statusLast_ =
      std::make_unique<DriverSide>(*this, DriverSide::Ends::yes, e_.pdStatus.get(), nullptr);
  progressWatcher_ = std::make_unique<ProgressWatcher>(*this);
  aggregatorWatcher_ = std::make_unique<AggregatorWatcher>(*this);
  ++figures_.roots;
}

void SimChip::rootDown() {
  root_ = nullptr;
  awaited_ = false;
}

void SimChip::enterDriver() {
  if (!rewiring_) counting_.push_back(AllocationFaults::countingIs(false));
}

void SimChip::buildDriver(SoftChip::Options options, bool settled) {
  configLast_.reset();
  chip_.reset();
  SoftChip::Options first = options;
  if (settled) {
    // What it works off, it answers later than from within its own making.
    first.answerAfterTicks = std::max(first.answerAfterTicks, 1u);
    first.confirmPolicyAfterTicks = std::max(first.confirmPolicyAfterTicks, 1u);
  }
  chip_ = std::make_unique<SoftChip::Chip>(e_.pdConfig, e_.pdStatus, nullptr, first);
  options.bootPolicy.reset();
  chip_->options() = options;
  chip_->observerIs([this](SoftChip::Write const& w) { onWrite(w); });
  configLast_ =
      std::make_unique<DriverSide>(*this, DriverSide::Ends::yes, nullptr, e_.pdConfig.get());
  breachesSeen_ = 0;
  auto const at = std::find(inForce_.begin(), inForce_.end(), chip_->inForce().get());
  if (at != inForce_.end()) inForce_.erase(inForce_.begin(), at);
}

void SimChip::driverRestart(bool keepsAnswers, std::optional<GlobalAclControl> policy) {
  rewiring_ = true;
  SoftChip::Options options = chip_->options();
  options.bootPolicy = policy;
  configLast_.reset();
  chip_.reset();
  std::array<ResourceStatus, pdTableCount> said;
  for (PDTable table : allPDTables()) {
    said[static_cast<size_t>(table)] = tableStatus(*e_.pdStatus, table);
    if (policy || !keepsAnswers) tableStatusIs(*e_.pdStatus, table, ResourceStatus());
  }
  for (PDTable table : allPDTables())
    if (keepsAnswers) tableStatusIs(*e_.pdStatus, table, said[static_cast<size_t>(table)]);
  restarted_ = true;
  if (policy) {
    ownPolicy_ = true;
    // What the status shows already tells the library nothing.
    if (*policy != e_.pdStatus->globalAclControl()) {
      ownDeny_ = root_ && policy == GlobalAclControl::denyAll;
      ownLoaded_ = e_.pdConfig->pdResourceConfig().requestState() == RequestState::load;
    }
    sinceLoad_ = !root_ || root_->loaderStatus()->status() != StageStatusType::inProgress;
  }
  buildDriver(options, true);
  rewiring_ = false;
}

void SimChip::capabilityReplace() {
  auto const before = e_.capability;
  stale_ = isUp();
  capabilities_->chipHwCapabilityDel(e_.chipId);
  e_.capability = capabilities_->chipHwCapabilityIs(e_.chipId);
  copyWidths(*before, *e_.capability);
}

void SimChip::pdStatusReplace() {
  rewiring_ = true;
  SoftChip::Options const options = chip_->options();
  configLast_.reset();
  chip_.reset();
  statusLast_.reset();
  statusFirst_.reset();
  stale_ = isUp();
  pdStatuses_->pdStatusDel(e_.chipId);
  e_.pdStatus = pdStatuses_->pdStatusIs(e_.chipId);
  statusFirst_ =
      std::make_unique<DriverSide>(*this, DriverSide::Ends::no, e_.pdStatus.get(), nullptr);
  statusLast_ =
      std::make_unique<DriverSide>(*this, DriverSide::Ends::yes, e_.pdStatus.get(), nullptr);
  restarted_ = true;
  ownPolicy_ = false;
  ownUnclear_ = e_.pdConfig->globalAclControl() != GlobalAclControl::doNotApply;
  buildDriver(options, true);
  rewiring_ = false;
}

void SimChip::undo(size_t kicksBefore) {
  if (kicksBefore < read_.size()) restoreAcls(*read_[kicksBefore]->acls, *e_.acls);
}

void SimChip::throwingIs(bool on) {
  throwers_.clear();
  if (!on) return;
  throwers_.push_back(std::make_unique<Thrower<RootStatus::Notifiee>>(e_.rootStatus.get()));
  throwers_.push_back(std::make_unique<Thrower<PDConfig::Notifiee>>(e_.pdConfig.get()));
  throwers_.push_back(std::make_unique<Thrower<PDStatus::Notifiee>>(e_.pdStatus.get()));
  if (root_) {
    throwers_.push_back(
        std::make_unique<Thrower<StageStatus::Notifiee>>(root_->aggregatorStatus().get()));
    throwers_.push_back(
        std::make_unique<Thrower<StageStatus::Notifiee>>(root_->loaderStatus().get()));
  }
}

bool SimChip::running() const {
  return root_ && e_.rootStatus->kickProgress() == NaxelProgress::naxelRunning;
}

NaxelActiveStage SimChip::activeStage() const {
  return root_ ? root_->stageControllerSm()->activeStage() : NaxelActiveStage::stageInit;
}

void SimChip::request(NaxelKickRequest what) {
  requestedAt_ = ++now_;
  refused_ = false;
  strikesBefore_ = AllocationFaults::strikes();
  if (root_) {
    ++figures_.kicks;
    awaited_ = true;
  }
  if (what == NaxelKickRequest::naxelStart) permitNext_ = e_.params->permitDuringUpdate();
  e_.rootConfig->naxelKickRequestIs(what);
  AllocationFaults::Scope const counted(true);
  e_.rootConfig->naxelKickTimeIs(e_.rootConfig->naxelKickTime() + 1);
}

bool SimChip::tick() {
  if (chip_->idle()) return false;
  chip_->tick();
  return true;
}

void SimChip::differ(std::string const& what) {
  if (differences_.size() < 10) differences_.push_back(name() + what);
}

void SimChip::takeSnapshot() {
  auto const acls = Mox::makePtr<AclConfigColl>(e_.chipId);
  auto const capability = Mox::makePtr<ChipHwCapability>(e_.chipId);
  copyAcls(*e_.acls, *acls);
  copyWidths(*e_.capability, *capability);
  snapshot_ = std::make_shared<Snapshot>(Snapshot{acls, capability, ++now_});
  read_.push_front(snapshot_);
  if (read_.size() > 3) read_.pop_back();
}

SimChip::Output const* SimChip::outputOf(PDData const* data) const {
  for (Output const& output : outputs_)
    if (output.data.get() == data) return &output;
  return nullptr;
}

void SimChip::onPrevious() {
  if (!downAtOutput_ || now_ % 2) return;
  downAtOutput_ = false;
  goingDown_ = true;
  rootDown();
}

void SimChip::onOutput() {
  auto const& data = e_.pdConfig->currPDData();
  if (downAtOutput_) {
    downAtOutput_ = false;
    goingDown_ = true;
    rootDown();
  }
  if (outputOf(data.get())) return;
  auto snapshot = snapshot_;
  if (dump(*data).empty()) {
    // What is brought back before anything has been loaded.
    snapshot = std::make_shared<Snapshot>(
        Snapshot{Mox::makePtr<AclConfigColl>(e_.chipId), e_.capability, now_});
  } else if (!snapshot) {
    return differ("an output is offered that no configuration was read for");
  }
  outputs_.push_back({data, snapshot, full(*data)});
  // What is in force, or may be brought back, is kept, and the newest.
  for (size_t i = 0; i + 4 < outputs_.size();) {
    PDData const* const old = outputs_[i].data.get();
    if (std::find(inForce_.begin(), inForce_.end(), old) == inForce_.end())
      outputs_.erase(outputs_.begin() + static_cast<std::ptrdiff_t>(i));
    else
      ++i;
  }
  drawProbes();
}

void SimChip::drawProbes() {
  constexpr int perOutput = 5;
  probes_.clear();
  for (size_t i = outputs_.size() < 2 ? 0 : outputs_.size() - 2; i < outputs_.size(); ++i) {
    Verify::PacketSource source(*outputs_[i].snapshot->acls, now_ + i);
    for (int n = 0; n < perOutput; ++n) {
      Packet const packet = source.next();
      for (auto const& [aclName, acl] : outputs_[i].snapshot->acls->acl())
        probes_.push_back({PDAclKey(packet.af, aclName), packet, {}});
    }
  }
  for (Probe& probe : probes_) {
    probe.rule[nullptr] = {};
    for (Output const& output : outputs_) {
      auto& rule = probe.rule[output.data.get()];
      auto const acl = output.snapshot->acls->acl(probe.key.aclName());
      if (!acl || Verify::familyOf(*acl) != probe.key.af()) continue;
      rule.first = Verify::firstMatch(*acl, probe.packet);
      if (rule.first) rule.second = acl->ruleById(*rule.first)->action();
    }
  }
}

bool SimChip::answered(std::initializer_list<ResponseState> states) const {
  return std::all_of(allPDTables().begin(), allPDTables().end(), [&](SoftChip::Table t) {
    ResourceStatus const status = tableStatus(*e_.pdStatus, t);
    return t == SoftChip::Table::tcpFlags ||
           (status.responseId() == e_.pdConfig->pdResourceConfig().requestId() &&
            std::find(states.begin(), states.end(), status.responseState()) != states.end());
  });
}

void SimChip::onRequest() {
  ResourceConfig const request = e_.pdConfig->pdResourceConfig();
  PDData const* const offered = e_.pdConfig->currPDData().get();
  if (!isUp() && !std::exchange(goingDown_, false))
    differ("a pipeline that is down makes a request");
  if (downAtRequest_ == request.requestState()) {
    downAtRequest_.reset();
    rootDown();
  }
  switch (request.requestState()) {
    case RequestState::acquire:
      // An empty one stands for none.
      if (auto const& previous = e_.pdConfig->prevPDData();
          previous.get() != inForce_.back() && (inForce_.back() || !full(*previous).empty()))
        differ("the previous output is not the one last asked to be loaded");
      if (request.requestId() <= lastId_) differ("a request with the id of an earlier one");
      lastId_ = request.requestId();
      refused_ = restarted_ = sinceLoad_ = false;
      permit_ = permitNext_;
      return;
    case RequestState::load:
      if (!restarted_ && !answered({ResponseState::hitless, ResponseState::hitful}))
        differ("load before every table has answered the acquire");
      inForce_.push_back(offered);
      ownUnclear_ = false;
      return;
    case RequestState::revert: break;
  }
  ++figures_.refusals;
  refused_ = true;
  bool const failed =
      std::any_of(allPDTables().begin(), allPDTables().end(), [&](SoftChip::Table t) {
        return tableStatus(*e_.pdStatus, t) ==
               ResourceStatus(request.requestId(), ResponseState::failed);
      });
  if (!failed && !restarted_) differ("revert although the driver refused nothing");
  Output const* const output = outputOf(offered);
  bool const was = std::find(inForce_.begin(), inForce_.end(), offered) != inForce_.end();
  if (!was && !(output && output->said.empty()))
    differ("revert to an output that never was in force");
  if (!was) inForce_.push_back(offered);
}

void SimChip::onPolicy() {
  GlobalAclControl const policy = e_.pdConfig->globalAclControl();
  if (policy == GlobalAclControl::doNotApply) return;
  if (policy == e_.pdStatus->globalAclControl()) return;  // a change of before is taken back
  if (policy != (permit_ ? GlobalAclControl::permitAll : GlobalAclControl::denyAll) &&
      !((ownPolicy_ || ownUnclear_) && policy == GlobalAclControl::denyAll))
    differ("another policy than the agent wants");
  ResourceStatus const answer = tableStatus(*e_.pdStatus, PDTable::aclEntries);
  if (!restarted_ &&
      answer != ResourceStatus(e_.pdConfig->pdResourceConfig().requestId(), ResponseState::hitful))
    differ("a policy for a change that nobody called hitful");
}

void SimChip::onWrite(SoftChip::Write const& write) {
  ++figures_.writes;
  using Kind = SoftChip::Write::Kind;
  if (write.kind == Kind::policyStatus && chip_->policy() == GlobalAclControl::doNotApply)
    ownUnclear_ = false;
  if (write.kind == Kind::policyStatus && ownPolicy_) {
    GlobalAclControl const policy = chip_->policy();
    if (policy != GlobalAclControl::denyAll && std::exchange(ownDeny_, false) && !ownLoaded_)
      differ("the driver's own policy is lifted without a load");
    if (policy == GlobalAclControl::doNotApply) ownPolicy_ = false;
  }
  PDData const* const now = chip_->inForce().get();
  if (write.kind == Kind::switched || write.kind == Kind::rewritten) {
    auto const at = std::find(inForce_.begin(), inForce_.end(), now);
    if (at == inForce_.end()) return differ("an output is in force that nobody asked for");
    if (e_.pdConfig->pdResourceConfig().requestState() == RequestState::load) ownLoaded_ = true;
    inForce_.erase(inForce_.begin(), at);
  }
  for (std::string const& breach : chip_->breaches())
    if (static_cast<size_t>(&breach - chip_->breaches().data()) >= breachesSeen_) differ(breach);
  breachesSeen_ = chip_->breaches().size();

  for (Probe const& probe : probes_) {
    Verdict const verdict = chip_->lookup(probe.key, probe.packet);
    ++figures_.packets;
    if (verdict.kind == Verdict::Kind::policy) continue;  // onPolicy() judges them
    bool right = verdict.kind != Verdict::Kind::disturbed;
    if (right) {
      auto const fits = [&](PDData const* data) {
        auto const& [rule, action] = probe.rule.at(data);
        return verdict.kind == Verdict::Kind::none
                   ? !rule
                   : rule == verdict.rule && action == verdict.action;
      };
      right = std::any_of(inForce_.begin(), inForce_.end(), fits);
    }
    if (!right) {
      differ("in flight, " + probe.key.aclName() + ": " + Verify::text(probe.packet) + " meets " +
             Verify::text(verdict));
      return;
    }
  }
}

void SimChip::onProgress() {
  NaxelProgress const progress = e_.rootStatus->kickProgress();
  if (!root_ && progress != NaxelProgress::naxelInitialized)
    return differ("a pipeline that is down reports " + Mox::stringValue(progress));
  switch (progress) {
    case NaxelProgress::naxelFinishedSuccess:
      ++figures_.successes;
      checkSuccess();
      break;
    case NaxelProgress::naxelFinishedFail:
      ++figures_.failures;
      checkFailure();
      break;
    case NaxelProgress::naxelCancelled: ++figures_.cancels; break;
    case NaxelProgress::naxelInitialized:
    case NaxelProgress::naxelRunning: break;
  }
  if (progress != NaxelProgress::naxelRunning) awaited_ = false;
  if (rekickAt_ == progress) {
    rekickAt_.reset();
    request(NaxelKickRequest::naxelStart);
  } else if (downAt_ == progress) {
    downAt_.reset();
    rootDown();
  }
}

void SimChip::checkSuccess() {
  if (!snapshot_ || snapshot_->at < requestedAt_)
    return differ("success without having read the configuration since the request");
  auto const data = e_.pdConfig->currPDData();
  if (!data || chip_->inForce() != data) return differ("success without the new output in force");
  // A change that a pipeline of before has asked for may be carried out after it was taken back.
  bool const lifted = chip_->policy() == GlobalAclControl::doNotApply ||
                      (chip_->options().finishesSuperseded && !chip_->idle());
  if (!(ownPolicy_ && sinceLoad_) &&
      !(lifted && e_.pdConfig->globalAclControl() == GlobalAclControl::doNotApply))
    return differ("success under a policy");
  if (chip_->reservedFor() != 0)
    return differ("success while the chip keeps resources for another load");
  if (!root_->stageControllerStatus()->failureText().empty() ||
      !e_.rootStatus->kickMessage().empty())
    differ("success with a reason for failure");

  if (isMistaken(*snapshot_->acls)) differ("success with rules that cannot be compiled");
  // The one reading of a miss in one kick, the other in the next.
  KeyLayout const layout =
      KeyLayout::of(*data, now_ % 2 ? Verify::MissYields::highest : Verify::MissYields::nothing);
  GridResult const grid = compareVerdicts(*snapshot_->acls, *data, layout, 3000, now_);
  figures_.packets += grid.packets;
  for (std::string const& d : grid.differences) differ(d + "\n" + dump(*data));

  World fresh({}, number_);
  fresh.acls = snapshot_->acls;
  fresh.capability = snapshot_->capability;
  fresh.buildRoot();
  if (fresh.kick() != NaxelProgress::naxelFinishedSuccess)
    return differ("success where a new pipeline fails: " + fresh.failureText());
  if (full(fresh.tables()) != full(*data))
    differ("the output is not that of a new pipeline:\n" + full(*data) + "but:\n" +
           full(fresh.tables()));
  auto const sets = [](NaxelRootSm const& root) {
    std::string out;
    for (PrefixXformKey const& key : PrefixXformKey::all())
      out += std::to_string(root.aggregatorStatus()->prefixInfo(key)->prefixSetColl().size()) + " ";
    for (RangeSetType type : allRangeSetTypes())
      out += std::to_string(root.aggregatorStatus()->rangeSplitInfo(type)->rangeSetColl().size()) +
             " ";
    for (ComboLabelSetType type : allComboLabelSetTypes())
      out +=
          std::to_string(
              root.comboLabelResolverStatus(type)->comboLabelInfo()->comboLabelSetColl().size()) +
          " ";
    return out;
  };
  if (sets(*fresh.root) != sets(*root_))
    differ("numbers of sets " + sets(*root_) + "instead of " + sets(*fresh.root));
}

void SimChip::checkFailure() {
  auto const& status = *root_->stageControllerStatus();
  if (AllocationFaults::strikes() != strikesBefore_)
    return;  // even the reason may be what there was no memory for
  std::string const message = "Naxel failed at " + Mox::stringValue(status.lastFailedStage()) +
                              " on chip " + std::to_string(number_);
  if (e_.rootStatus->kickMessage() != message)
    differ("failure with the message " + e_.rootStatus->kickMessage());
  if (status.failureText().empty()) return differ("failure without a reason");
  bool const policy = e_.pdStatus->globalAclControl() != GlobalAclControl::doNotApply ||
                      e_.pdConfig->globalAclControl() != GlobalAclControl::doNotApply;
  if (!stale_ && policy != (status.failureText().find("in force") != std::string::npos))
    differ(std::string("failure ") + (policy ? "under" : "without") +
           " a policy, and the reason is " + status.failureText());
  if (stale_ != (status.failureText().find("has to be built anew") != std::string::npos))
    differ("an entity is replaced or not, and the reason is " + status.failureText());
  if (stale_) return;
  if ((status.lastFailedStage() == NaxelActiveStage::stageAggregator) !=
      isMistaken(*snapshot_->acls))
    differ("failure at " + Mox::stringValue(status.lastFailedStage()) + ": " +
           status.failureText());
  // The handshake of an earlier kick may be refused while this one is in its first stages.
  if (status.lastFailedStage() == NaxelActiveStage::stageLoader) {
    if (!refused_) differ("failure of the handshake although the driver refused nothing");
    if (!restarted_ && !answered({ResponseState::reverted}))
      differ("failure before every table was reverted");
    // A lift that the pipeline of before has asked for may still be under way.
    if (policy != ownPolicy_ && !ownUnclear_ && !(policy && !chip_->idle()))
      differ("failure that leaves a policy, or lifts the driver's own");
    if (chip_->reservedFor() != 0) differ("failure while the chip keeps resources for a load");
    if (root_->loaderStatus()->lastFailedState().responseId() != lastId_)
      differ("another refusal is reported than this one");
    return;
  }
  World fresh({}, number_);
  fresh.acls = snapshot_->acls;
  fresh.capability = snapshot_->capability;
  fresh.buildRoot();
  // Not necessarily for the same reason: of several, a pipeline with a history may meet another first,
  // since a transform that failed before on the same sets leaves it to the stages behind.
  if (fresh.kick() != NaxelProgress::naxelFinishedFail)
    differ("failure where a new pipeline succeeds: " + status.failureText());
}

void SimChip::checkPublished() {
  for (Output const& output : outputs_)
    if (full(*output.data) != output.said) differ("an output has changed since it was published");
}

void SimChip::checkRunning() {
  if (running() && root_->waitingFor().empty()) differ("a running kick waits for nothing");
}

void SimChip::checkAtRest() {
  if (awaited_ && root_) {
    differ("a kick hangs at " + Mox::stringValue(activeStage()) + ": " + root_->waitingFor());
    awaited_ = false;
  }
  if (e_.rootStatus->kickProgress() == NaxelProgress::naxelFinishedSuccess && !ownPolicy_ &&
      chip_->policy() != GlobalAclControl::doNotApply)
    differ("a policy stands when all is done");
  ResourceConfig const request = e_.pdConfig->pdResourceConfig();
  if (chip_->reservedFor() != 0 && (request.requestState() != RequestState::acquire ||
                                    chip_->reservedFor() != request.requestId()))
    differ("the chip keeps resources for a load that will never be");
  NaxelProgress const progress = e_.rootStatus->kickProgress();
  if ((progress == NaxelProgress::naxelFinishedSuccess ||
       progress == NaxelProgress::naxelFinishedFail) &&
      activeStage() != NaxelActiveStage::stageInit)
    differ("a stage is active between kicks");
  checkPublished();
}

}  // namespace Test
