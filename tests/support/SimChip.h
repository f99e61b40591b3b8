#pragma once

/// One chip of the simulator: its configuration, its pipeline and a software chip behind it, all of
/// them watched by a HandshakeCheck, which lists what must hold.
///
/// Besides, whenever a kick succeeds everything is as a pipeline without a history makes it of the same
/// rules and widths: tables, entries, numbers of sets. Whenever one fails a pipeline without a history fails
/// too, unless the driver has refused or an entity of the agent has been replaced. And only what the library
/// allocates itself is made to fail.

#include "softchip/SoftChip.h"
#include "support/World.h"
#include "verify/HandshakeCheck.h"

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

class SimChip : private Verify::WatchedChip {
 public:
  SimChip(uint8_t number, Mox::Ptr<Obel::TimerWheel> wheel, Figures& figures,
          std::vector<std::string>& differences);
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
  void undo(size_t kicksBefore);

  void request(Naxel::NaxelKickRequest what);
  /// Requests another kick, or takes the root down, from within the notification of this progress.
  void rekickAt(Naxel::NaxelProgress progress) { rekickAt_ = progress; }
  void downAt(Naxel::NaxelProgress progress) { downAt_ = progress; }
  /// Takes the root down when it offers an output, before it asks for anything.
  void downAtOutput() { downAtOutput_ = true; }
  /// Takes the root down when it makes this request of the driver.
  void downAtRequest(Naxel::RequestState state) { downAtRequest_ = state; }
  /// Watchers of library and driver entities that throw.
  void throwingIs(bool on);

  bool running() const;
  Naxel::NaxelActiveStage activeStage() const;
  /// A step of the driver. False if there was nothing to do.
  bool tick();
  /// What must hold while something is under way, and while nothing is.
  void checkRunning() { check_.checkRunning(); }
  void checkAtRest();

 private:
  class Watcher;
  class DriverSide;
  template <class Base>
  class Thrower;

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
  bool mayLackReasons() const override;

  /// Begins to count allocations, or not to, or goes back to what was before that.
  void mark(bool ends, bool counts);
  void onProgress();
  void onWrite(SoftChip::Write const& write);
  void buildDriver(SoftChip::Options options, bool settled);
  void compareWithFresh(Naxel::NaxelProgress progress);

  uint8_t number_;
  Mox::Ptr<Obel::TimerWheel> wheel_;
  Figures& figures_;
  std::vector<std::string>& differences_;

  Naxel::ChipEntities e_;
  Mox::Ptr<Naxel::HwCapabilityColl> capabilities_;
  Mox::Ptr<Naxel::GlobalPDStatus> pdStatuses_;

  // In the order in which they must be told: see DriverSide.
  Verify::HandshakeCheck check_;
  std::unique_ptr<Watcher> watcher_;
  std::unique_ptr<DriverSide> statusFirst_;
  std::unique_ptr<DriverSide> configFirst_;
  std::unique_ptr<SoftChip::Chip> chip_;
  std::unique_ptr<DriverSide> configLast_;
  Mox::Ptr<Naxel::NaxelRootSm> root_;
  std::unique_ptr<DriverSide> statusLast_;
  std::vector<std::unique_ptr<Mox::Notifiee>> throwers_;
  std::vector<bool> counting_;  // what counted before each side was entered
  bool rewiring_ = false;       // the sides are being built anew; nothing counts

  uint64_t requests_ = 0;
  uint64_t strikesBefore_ = 0;  // allocations that had failed when the kick was requested
  std::optional<Naxel::NaxelProgress> rekickAt_;
  std::optional<Naxel::NaxelProgress> downAt_;
  std::optional<Naxel::RequestState> downAtRequest_;
  bool downAtOutput_ = false;
  size_t breachesSeen_ = 0;
};

}  // namespace Test
