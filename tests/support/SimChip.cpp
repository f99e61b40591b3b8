#include "support/SimChip.h"

#include "support/Fresh.h"
#include "support/LabelSets.h"

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

/// What a pipeline offers, and how many sets it has, of each kind.
std::string outputOf(NaxelRootSm const& root, PDConfig const& config) {
  std::string out = full(*config.currPDData()) + "sets: ";
  auto const add = [&](auto const& sets) { out += std::to_string(sets.size()) + " "; };
  for (PrefixXformKey const& key : PrefixXformKey::all())
    add(root.aggregatorStatus()->prefixInfo(key)->prefixSetColl());
  for (RangeSetType type : allRangeSetTypes())
    add(root.aggregatorStatus()->rangeSplitInfo(type)->rangeSetColl());
  for (ComboLabelSetType type : allComboLabelSetTypes())
    add(root.comboLabelResolverStatus(type)->comboLabelInfo()->comboLabelSetColl());
  return out + "\n";
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

SimChip::SimChip(uint8_t number, Mox::Ptr<Obel::TimerWheel> wheel, ScriptRun& run)
    : number_(number),
      wheel_(std::move(wheel)),
      run_(run),
      e_(Obel::ChipId(number)),
      capabilities_(Mox::makePtr<HwCapabilityColl>()),
      pdStatuses_(globalPDStatusFactory()),
      check_(e_, *this, run.figures) {
  e_.capability = capabilities_->chipHwCapabilityIs(e_.chipId);
  e_.pdStatus = pdStatuses_->pdStatusIs(e_.chipId);
  PDConfig::Notifiee::notifierIs(e_.pdConfig.get());
  configSides_[0] = side<PDConfig::Notifiee>(e_.pdConfig.get(), false, false);
  statusSide(false);
  driverAnew([] {});
  rootUp(false);
}

SimChip::~SimChip() = default;

void SimChip::statusSide(bool ends) {
  statusSides_[ends] = side<PDStatus::Notifiee>(e_.pdStatus.get(), ends, true);
}

void SimChip::rootUp(bool freshEntities) {
  rootDown();
  if (freshEntities) {
    e_.rootConfig = Mox::makePtr<RootConfig>(e_.chipId);
    e_.rootStatus = Mox::makePtr<RootStatus>(e_.chipId);
  }
  root_ = buildRoot(e_, wheel_);
  statusSide(true);
  check_.pipelineIs(root_.get());
  RootStatus::Notifiee::notifierIs(e_.rootStatus.get());
  ++run_.figures.roots;
}

void SimChip::rootDown() {
  check_.pipelineIs(nullptr);
  root_ = nullptr;
}

void SimChip::mark(bool ends, bool counts) {
  if (rewiring_) return;
  if (!ends) {
    counting_.push_back(AllocationFaults::countingIs(counts));
  } else if (!counting_.empty()) {
    AllocationFaults::countingIs(counting_.back());
    counting_.pop_back();
  }
}

void SimChip::driverAnew(std::function<void()> const& meanwhile,
                         std::optional<GlobalAclControl> policy) {
  rewiring_ = true;
  SoftChip::Options const options = chip_ ? chip_->options() : SoftChip::Options();
  configSides_[1].reset();
  chip_.reset();
  meanwhile();
  // What it works off, it answers later than from within its own making.
  SoftChip::Options first = options;
  first.bootPolicy = policy;
  first.answerAfterTicks = std::max(first.answerAfterTicks, 1u);
  first.confirmPolicyAfterTicks = std::max(first.confirmPolicyAfterTicks, 1u);
  chip_ = std::make_unique<SoftChip::Chip>(e_.pdConfig, e_.pdStatus, nullptr, first);
  chip_->options() = options;
  chip_->observerIs([this](Write const& w) { onWrite(w); });
  configSides_[1] = side<PDConfig::Notifiee>(e_.pdConfig.get(), true, false);
  breachesSeen_ = 0;
  check_.driverStarted();
  rewiring_ = false;
}

void SimChip::driverRestart(bool keepsAnswers, std::optional<GlobalAclControl> policy) {
  auto const answers = [&] {
    std::vector<ResourceStatus> said;
    for (PDTable t : allPDTables()) {
      said.push_back(keepsAnswers ? tableStatus(*e_.pdStatus, t) : ResourceStatus());
      if (policy) tableStatusIs(*e_.pdStatus, t, ResourceStatus());
    }
    for (PDTable t : allPDTables()) tableStatusIs(*e_.pdStatus, t, said[static_cast<size_t>(t)]);
    check_.driverRestarts(policy);
  };
  driverAnew(answers, policy);
}

void SimChip::capabilityReplace() {
  auto const before = e_.capability;
  check_.entityReplaced();
  capabilities_->chipHwCapabilityDel(e_.chipId);
  e_.capability = capabilities_->chipHwCapabilityIs(e_.chipId);
  e_.capability->valuesIs(*before);
}

void SimChip::pdStatusReplace() {
  driverAnew([&] {
    check_.driverRestartsOverNewStatus();
    pdStatuses_->pdStatusDel(e_.chipId);
    e_.pdStatus = pdStatuses_->pdStatusIs(e_.chipId);
    statusSide(false);
    statusSide(true);
  });
}

void SimChip::throwingIs(bool on) {
  throwers_.clear();
  if (!on) return;
  auto const add = [&](auto& entity) {
    using Base = typename std::decay_t<decltype(entity)>::Notifiee;
    throwers_.push_back(std::make_unique<Told<Base>>(&entity, [n = 0]() mutable {
      if (++n % 2) throw std::runtime_error("a watcher's own trouble");
      throw n;
    }));
  };
  add(*e_.rootStatus);
  add(*e_.pdConfig);
  add(*e_.pdStatus);
  if (!root_) return;
  add(*root_->aggregatorStatus());
  add(*root_->loaderStatus());
}

NaxelActiveStage SimChip::activeStage() const {
  return root_ ? root_->stageControllerSm()->activeStage() : NaxelActiveStage::stageInit;
}

void SimChip::request(NaxelKickRequest what) {
  ++requests_;
  strikesBefore_ = AllocationFaults::strikes();
  if (root_) ++run_.figures.kicks;
  check_.requesting(what);
  e_.rootConfig->naxelKickRequestIs(what);
  AllocationFaults::Scope const counted(true);
  e_.rootConfig->naxelKickTimeIs(e_.rootConfig->naxelKickTime() + 1);
}

void SimChip::breach(std::string const& sentence) {
  if (run_.differences.size() < 10000)
    run_.differences += "chip " + std::to_string(number_) + ": " + sentence + "\n";
}

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

void SimChip::onKickProgress() {
  AllocationFaults::Scope const uncounted(false);
  NaxelProgress const progress = e_.rootStatus->kickProgress();
  if (root_ && check_.hasRead()) compareWithFresh(progress);
  if (rekickAt_ != Mox::stringValue(progress)) return moment(Mox::stringValue(progress));
  rekickAt_.clear();
  request(NaxelKickRequest::naxelStart);
}

void SimChip::moment(std::string const& name) {
  AllocationFaults::Scope const uncounted(false);
  if (name.empty() || name != downAt_) return;
  downAt_.clear();
  rootDown();
}

void SimChip::checkCodes() {
  auto const check = [this](EncoderStatus const& encoder, XformStatus const& xform,
                            uint32_t width) {
    if (!width) return;
    std::string const fault = codeFault(encoder, *xform.plainLabelListMap(), width);
    if (!fault.empty()) breach(fault);
  };
  ChipHwCapability const& widths = *check_.read()->capability;
  for (PrefixXformKey const& key : PrefixXformKey::all())
    check(*root_->prefixEncoderStatus(key), *root_->prefixXformStatus(key),
          widths.prefixXformWidth(key));
  for (RangeSetType type : allRangeSetTypes())
    check(*root_->rangeEncoderStatus(type), *root_->rangeSplitStatus(type),
          widths.rangeXformWidth(type));
  for (ComboLabelSetType type : allComboLabelSetTypes())
    check(*root_->comboLabelEncoderStatus(type), *root_->comboLabelSplitStatus(type),
          widths.comboXformWidth(type));
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
  fresh.params->labelCodeIs(root_->rangeEncoderConfig(RangeSetType::dstPort)->labelCode());
  fresh.buildRoot();
  // Not necessarily for the same reason: of several, a pipeline with a history may meet another first,
  // since a transform that failed before on the same sets leaves it to the stages behind.
  if (success != (fresh.kick() == NaxelProgress::naxelFinishedSuccess))
    return breach(success ? "success where a new pipeline fails: " + fresh.failureText()
                          : "failure where a new pipeline succeeds: " + status.failureText());
  if (success) {
    checkCodes();
    // Labels that are kept depend on what was in force before.
    if (root_->rangeEncoderConfig(RangeSetType::dstPort)->basis()) return;
    std::string const have = outputOf(*root_, *e_.pdConfig);
    std::string const want = outputOf(*fresh.root, *fresh.pdConfig);
    if (have != want)
      breach("the output is not that of a new pipeline:\n" + have + "but:\n" + want);
  }
  if (success || status.lastFailedStage() == NaxelActiveStage::stageAggregator ||
      run_.figures.failures % 8)
    return;
  // Wide labels are enough for all that a script can say.
  fresh.capability = Mox::makePtr<ChipHwCapability>(e_.chipId);
  setWidths(fresh, Chip::combos, 12);
  for (auto const& key : PrefixXformKey::all()) fresh.capability->prefixXformWidthIs(key, 12);
  fresh.buildRoot();
  if (fresh.kick() != NaxelProgress::naxelFinishedSuccess)
    breach("failure although the labels suffice: " + fresh.failureText());
}

void SimChip::checkAtRest() {
  check_.checkAtRest();
  NaxelProgress const progress = e_.rootStatus->kickProgress();
  if (progress != NaxelProgress::naxelRunning && progress != NaxelProgress::naxelCancelled &&
      activeStage() != NaxelActiveStage::stageInit)
    breach("a stage is active between kicks");
}

}  // namespace Test
