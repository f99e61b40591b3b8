#pragma once

/// One chip of the simulator: its configuration, its pipeline and a software chip behind it, all of
/// them watched by a HandshakeCheck, which lists what must hold.
///
/// Besides, whenever a kick succeeds everything is as a pipeline without a history makes it of the same
/// rules and widths: tables, entries, numbers of sets. Whenever one fails a pipeline without a history fails
/// too, unless the driver has refused or an entity of the agent has been replaced. And only what the library
/// allocates itself is made to fail.

#include "naxel/control/RootTypes.h"
#include "softchip/SoftChip.h"
#include "support/AllocationFaults.h"
#include "support/Told.h"
#include "verify/ConfigCopy.h"
#include "verify/HandshakeCheck.h"

#include <array>
#include <memory>
#include <string>
#include <vector>

namespace Test {

/// What a run did.
struct Figures : Verify::HandshakeCheck::Figures {
  uint64_t edits = 0;
  uint64_t kicks = 0;
  uint64_t roots = 0;   ///< pipelines built
  uint64_t faults = 0;  ///< allocations made to fail

  Figures& operator+=(Figures const& more);
};
std::string text(Figures const& figures);

struct ScriptRun {
  std::string differences;  ///< from what must hold, one per line
  Figures figures;
};

class SimChip : private Verify::WatchedChip,
                private Naxel::RootStatus::Notifiee,
                private Naxel::PDConfig::Notifiee {
 public:
  SimChip(uint8_t number, Mox::Ptr<Obel::TimerWheel> wheel, ScriptRun& run);
  ~SimChip() override;

  Naxel::AclConfigColl& acls() { return *e_.acls; }
  Naxel::ChipHwCapability& capability() { return *e_.capability; }
  Acl::ParamConfig& params() { return *e_.params; }
  SoftChip::Chip& driver() { return *chip_; }

  /// Builds the root over what there is, or takes it down. With `freshEntities` the agent has lost
  /// its own RootConfig and RootStatus too.
  void rootUp(bool freshEntities);
  void rootDown();
  bool isUp() const { return static_cast<bool>(root_); }
  /// Has the driver start anew over what there is: with a policy of its own, or going by what the library
  /// has asked for. It announces its answers again, or has lost them all.
  void driverRestart(bool keepsAnswers, std::optional<Naxel::GlobalAclControl> policy);
  /// Has the agent delete one of its entities and make another. No kick can succeed before the root is
  /// built anew.
  void capabilityReplace();
  void pdStatusReplace();
  bool isStale() const { return check_.isStale(); }
  /// Brings the configuration back to what the last kick but so many has read.
  void undo(size_t kicksBefore) {
    if (auto const* then = check_.read(kicksBefore)) Verify::copyAcls(*then->acls, acls());
  }

  void request(Naxel::NaxelKickRequest what);
  /// Requests another kick, or takes the root down, from within a notification: that of this progress; down also
  /// from that of an "output" that is offered before anything is asked for, or of this request of the driver.
  void rekickAt(std::string const& moment) { rekickAt_ = moment; }
  void downAt(std::string const& moment) { downAt_ = moment; }
  /// Watchers of library and driver entities that throw.
  void throwingIs(bool on);

  Naxel::NaxelActiveStage activeStage() const;
  /// A step of the driver. False if there was nothing to do.
  bool tick() { return !chip_->idle() && (chip_->tick(), true); }
  /// What must hold while something is under way, and while nothing is.
  void checkRunning() { check_.checkRunning(); }
  void checkAtRest();

 private:
  Verify::Verdict lookup(Naxel::PDAclKey const& acl, Verify::Packet const& packet) override {
    return chip_->lookup(acl, packet);
  }
  Mox::Ptr<Naxel::PDData const> inForce() const override { return chip_->inForce(); }
  Naxel::GlobalAclControl policy() const override { return chip_->policy(); }
  Mox::Seconds reservedFor() const override { return chip_->reservedFor(); }
  bool idle() const override { return chip_->idle(); }
  bool finishesTakenBack() const override {
    return chip_->options().finishesSuperseded && !chip_->idle();
  }
  void breach(std::string const& sentence) override;
  void aside(bool begins) override { mark(!begins, false); }
  bool mayLackReasons() const override { return AllocationFaults::strikes() != strikesBefore_; }

  void onKickProgress() override;
  void onPrevPDData() override { moment(requests_ % 2 ? "" : "output"); }
  void onCurrPDData() override { moment("output"); }
  void onPdResourceConfig() override {
    moment(Mox::stringValue(e_.pdConfig->pdResourceConfig().requestState()));
  }
  void moment(std::string const& name);

  /// Only what the library itself allocates is made to fail. The driver works inside the library's writes, and the
  /// library inside the driver's: a side before and one behind the actual watchers of an entity mark where either
  /// begins and ends. Beginning, it has allocations counted or not, as it says; ending, as it was before that.
  void mark(bool ends, bool counts);
  template <class Base>
  std::unique_ptr<Told<Base>> side(Mox::Entity* entity, bool ends, bool counts) {
    return std::make_unique<Told<Base>>(entity, [this, ends, counts] { mark(ends, counts); });
  }
  void statusSide(bool ends);
  /// Makes a driver in the place of the present one, and something else between the two.
  void driverAnew(std::function<void()> const& meanwhile,
                  std::optional<Naxel::GlobalAclControl> policy = {});
  void onWrite(SoftChip::Write const& write);
  /// Holds what the encoders have published against their sets.
  void checkCodes();
  void compareWithFresh(Naxel::NaxelProgress progress);

  uint8_t number_;
  Mox::Ptr<Obel::TimerWheel> wheel_;
  ScriptRun& run_;

  Naxel::ChipEntities e_;
  Mox::Ptr<Naxel::HwCapabilityColl> capabilities_;
  Mox::Ptr<Naxel::GlobalPDStatus> pdStatuses_;

  // In the order in which they must be told: see mark().
  Verify::HandshakeCheck check_;
  std::array<std::unique_ptr<Told<Naxel::PDStatus::Notifiee>>, 2> statusSides_;
  std::array<std::unique_ptr<Told<Naxel::PDConfig::Notifiee>>, 2> configSides_;
  std::unique_ptr<SoftChip::Chip> chip_;
  Mox::Ptr<Naxel::NaxelRootSm> root_;
  std::vector<std::unique_ptr<Mox::Notifiee>> throwers_;
  std::vector<bool> counting_;  // what counted before each side was entered
  bool rewiring_ = false;       // the sides are being built anew; nothing counts

  uint64_t requests_ = 0;
  uint64_t strikesBefore_ = 0;  // allocations that had failed when the kick was requested
  std::string rekickAt_;
  std::string downAt_;
  size_t breachesSeen_ = 0;
};

}  // namespace Test
