#include "support/SimChip.h"

#include "support/AllocationFaults.h"

#include <algorithm>
#include <stdexcept>

namespace Test {

using namespace Naxel;
using Write = SoftChip::Write;

namespace {

struct Figure {
  uint64_t Figures::*value;
  char const* what;
};
constexpr Figure allFigures[] = {
    {&Figures::kicks, "kicks"},          {&Figures::successes, "successes"},
    {&Figures::failures, "failures"},    {&Figures::cancels, "cancelled"},
    {&Figures::edits, "edits"},          {&Figures::roots, "pipelines built"},
    {&Figures::writes, "driver writes"}, {&Figures::packets, "packets looked up"},
    {&Figures::refusals, "refusals"},    {&Figures::faults, "allocation faults"}};

/// How many sets a pipeline has, of each kind.
std::string setsOf(NaxelRootSm const& root) {
  std::string out;
  auto const add = [&](auto const& sets) { out += std::to_string(sets.size()) + " "; };
  for (PrefixXformKey const& key : PrefixXformKey::all())
    add(root.aggregatorStatus()->prefixInfo(key)->prefixSetColl());
  for (RangeSetType type : allRangeSetTypes())
    add(root.aggregatorStatus()->rangeSplitInfo(type)->rangeSetColl());
  for (ComboLabelSetType type : allComboLabelSetTypes())
    add(root.comboLabelResolverStatus(type)->comboLabelInfo()->comboLabelSetColl());
  return out;
}

}  // namespace

Figures& Figures::operator+=(Figures const& more) {
  for (Figure const& f : allFigures) this->*f.value += more.*f.value;
  return *this;
}

std::string text(Figures const& figures) {
  std::string out;
  for (Figure const& f : allFigures)
    out += (out.empty() ? "" : ", ") + std::to_string(figures.*f.value) + " " + f.what;
  return out;
}

/// Takes the pipeline down, or kicks again, from within a notification; the check has seen it before.
class SimChip::Watcher : public RootStatus::Notifiee, public PDConfig::Notifiee {
 public:
  explicit Watcher(SimChip& chip) : chip_(chip) {
    PDConfig::Notifiee::notifierIs(chip.e_.pdConfig.get());
  }
  void onKickProgress() override {
    AllocationFaults::Scope const uncounted(false);
    chip_.onProgress();
  }
  void onPrevPDData() override {
    if (chip_.requests_ % 2 == 0) downIf(std::exchange(chip_.downAtOutput_, false));
  }
  void onCurrPDData() override { downIf(std::exchange(chip_.downAtOutput_, false)); }
  void onPdResourceConfig() override {
    bool const now = chip_.downAtRequest_ == chip_.e_.pdConfig->pdResourceConfig().requestState();
    if (now) chip_.downAtRequest_.reset();
    downIf(now);
  }

 private:
  void downIf(bool now) {
    AllocationFaults::Scope const uncounted(false);
    if (now) chip_.rootDown();
  }
  SimChip& chip_;
};

/// Only what the library itself allocates is made to fail. The driver works inside the library's
/// writes, and the library inside the driver's: one of these before and one behind the actual
/// watchers of an entity mark where a side begins and ends.
class SimChip::DriverSide : public PDStatus::Notifiee, public PDConfig::Notifiee {
 public:
  DriverSide(SimChip& chip, bool ends, PDStatus* status) : chip_(chip), ends_(ends), counts_(true) {
    PDStatus::Notifiee::notifierIs(status);
  }
  DriverSide(SimChip& chip, bool ends, PDConfig* config)
      : chip_(chip), ends_(ends), counts_(false) {
    PDConfig::Notifiee::notifierIs(config);
  }
  void onGlobalAclControl() override { mark(); }
  void onPdResourceConfig() override { mark(); }
  void onTableStatus() override { mark(); }

 private:
  void mark() {
    if (!chip_.rewiring_) chip_.mark(ends_, counts_);
  }
  SimChip& chip_;
  bool ends_;
  bool counts_;
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
      check_(e_, *this, figures),
      watcher_(std::make_unique<Watcher>(*this)) {
  e_.capability = capabilities_->chipHwCapabilityIs(e_.chipId);
  e_.pdStatus = pdStatuses_->pdStatusIs(e_.chipId);
  statusFirst_ = std::make_unique<DriverSide>(*this, false, e_.pdStatus.get());
  configFirst_ = std::make_unique<DriverSide>(*this, false, e_.pdConfig.get());
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
  root_ = buildRoot(e_, wheel_);
  statusLast_ = std::make_unique<DriverSide>(*this, true, e_.pdStatus.get());
  check_.pipelineIs(root_.get());
  watcher_->RootStatus::Notifiee::notifierIs(e_.rootStatus.get());
  ++figures_.roots;
}

void SimChip::rootDown() {
  check_.pipelineIs(nullptr);
  root_ = nullptr;
}

void SimChip::mark(bool ends, bool counts) {
  if (!ends) {
    counting_.push_back(AllocationFaults::countingIs(counts));
  } else if (!counting_.empty()) {
    AllocationFaults::countingIs(counting_.back());
    counting_.pop_back();
  }
}

void SimChip::buildDriver(SoftChip::Options options, bool settled) {
  SoftChip::Options first = options;
  if (settled) {
    // What it works off, it answers later than from within its own making.
    first.answerAfterTicks = std::max(first.answerAfterTicks, 1u);
    first.confirmPolicyAfterTicks = std::max(first.confirmPolicyAfterTicks, 1u);
  }
  chip_ = std::make_unique<SoftChip::Chip>(e_.pdConfig, e_.pdStatus, nullptr, first);
  options.bootPolicy.reset();
  chip_->options() = options;
  chip_->observerIs([this](Write const& w) { onWrite(w); });
  configLast_ = std::make_unique<DriverSide>(*this, true, e_.pdConfig.get());
  breachesSeen_ = 0;
  check_.driverStarted();
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
  check_.driverRestarts(policy);
  buildDriver(options, true);
  rewiring_ = false;
}

void SimChip::capabilityReplace() {
  auto const before = e_.capability;
  check_.entityReplaced();
  capabilities_->chipHwCapabilityDel(e_.chipId);
  e_.capability = capabilities_->chipHwCapabilityIs(e_.chipId);
  e_.capability->valuesIs(*before);
}

void SimChip::pdStatusReplace() {
  rewiring_ = true;
  SoftChip::Options const options = chip_->options();
  configLast_.reset();
  chip_.reset();
  statusLast_.reset();
  statusFirst_.reset();
  check_.driverRestartsOverNewStatus();
  pdStatuses_->pdStatusDel(e_.chipId);
  e_.pdStatus = pdStatuses_->pdStatusIs(e_.chipId);
  statusFirst_ = std::make_unique<DriverSide>(*this, false, e_.pdStatus.get());
  statusLast_ = std::make_unique<DriverSide>(*this, true, e_.pdStatus.get());
  buildDriver(options, true);
  rewiring_ = false;
}

void SimChip::undo(size_t kicksBefore) {
  if (auto const* then = check_.read(kicksBefore)) copyAcls(*then->acls, *e_.acls);
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
  ++requests_;
  strikesBefore_ = AllocationFaults::strikes();
  if (root_) ++figures_.kicks;
  check_.requesting(what);
  e_.rootConfig->naxelKickRequestIs(what);
  AllocationFaults::Scope const counted(true);
  e_.rootConfig->naxelKickTimeIs(e_.rootConfig->naxelKickTime() + 1);
}

bool SimChip::tick() {
  if (chip_->idle()) return false;
  chip_->tick();
  return true;
}

void SimChip::breach(std::string const& sentence) {
  if (differences_.size() < 10)
    differences_.push_back("chip " + std::to_string(number_) + ": " + sentence);
}

bool SimChip::mayLackReasons() const { return AllocationFaults::strikes() != strikesBefore_; }

void SimChip::onWrite(Write const& write) {
  for (auto const& all = chip_->breaches(); breachesSeen_ < all.size();)
    breach(all[breachesSeen_++]);
  using Kind = Write::Kind;
  using Wrote = Verify::HandshakeCheck::Wrote;
  bool const output = write.kind == Kind::switched || write.kind == Kind::rewritten;
  check_.wrote(output                             ? Wrote::output
               : write.kind == Kind::policyStatus ? Wrote::policy
                                                  : Wrote::table);
}

void SimChip::onProgress() {
  NaxelProgress const progress = e_.rootStatus->kickProgress();
  if (root_ && check_.hasRead()) compareWithFresh(progress);
  if (rekickAt_ == progress) {
    rekickAt_.reset();
    request(NaxelKickRequest::naxelStart);
  } else if (downAt_ == progress) {
    downAt_.reset();
    rootDown();
  }
}

void SimChip::compareWithFresh(NaxelProgress progress) {
  bool const success = progress == NaxelProgress::naxelFinishedSuccess;
  auto const& status = *root_->stageControllerStatus();
  if (!success && (progress != NaxelProgress::naxelFinishedFail || mayLackReasons() || isStale() ||
                   status.lastFailedStage() == NaxelActiveStage::stageLoader))
    return;
  World fresh({}, number_);
  fresh.acls = check_.read()->acls;
  fresh.capability = check_.read()->capability;
  fresh.buildRoot();
  // Not necessarily for the same reason: of several, a pipeline with a history may meet another first,
  // since a transform that failed before on the same sets leaves it to the stages behind.
  if (success != (fresh.kick() == NaxelProgress::naxelFinishedSuccess))
    return breach(success ? "success where a new pipeline fails: " + fresh.failureText()
                          : "failure where a new pipeline succeeds: " + status.failureText());
  if (!success) return;
  PDData const& data = *e_.pdConfig->currPDData();
  if (full(fresh.tables()) != full(data))
    breach("the output is not that of a new pipeline:\n" + full(data) + "but:\n" +
           full(fresh.tables()));
  if (setsOf(*fresh.root) != setsOf(*root_))
    breach("numbers of sets " + setsOf(*root_) + "instead of " + setsOf(*fresh.root));
}

void SimChip::checkAtRest() {
  check_.checkAtRest();
  if (!running() && e_.rootStatus->kickProgress() != NaxelProgress::naxelCancelled &&
      activeStage() != NaxelActiveStage::stageInit)
    breach("a stage is active between kicks");
}

}  // namespace Test
