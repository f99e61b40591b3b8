#pragma once

/// One chip of the simulator: its configuration, its pipeline and a software chip behind it, all of
/// them watched.
///
/// What must hold, and when it is looked at:
///
/// - Whenever the chip writes a single table, policy or status, packets that are likely to tell
///   meet the verdict of the output in force before, of an output that the library has asked to be
///   loaded since, or of the temporary policy, and that only if the driver called the change hitful.
/// - Whenever a kick reports success, the tables in force give every class of packets the verdict of
///   the rules as the kick read them, which was after it had been requested; no policy stands; nothing
///   is reserved in the chip; and everything is as a pipeline without a history makes it of the same
///   rules and widths: tables, entries, numbers of sets.
/// - Whenever a kick reports failure, the tables in force are those of before, there is a reason in
///   words, which names a policy that stands, and a pipeline without a history fails too, unless the
///   driver refused or an entity of the agent has been replaced.
/// - A policy of the driver's own stands until a load has succeeded.
/// - No output changes once it has been published.
/// - Every kick ends, and says while it runs what it waits for.

#include "softchip/SoftChip.h"
#include "support/World.h"

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Test {

/// What a run did.
struct Figures {
  uint64_t edits = 0;
  uint64_t kicks = 0;
  uint64_t successes = 0;
  uint64_t failures = 0;
  uint64_t cancels = 0;
  uint64_t roots = 0;     ///< pipelines built
  uint64_t writes = 0;    ///< of the driver, looked at one by one
  uint64_t packets = 0;   ///< compared against the rules
  uint64_t refusals = 0;  ///< acquires that the driver refused
  uint64_t faults = 0;    ///< allocations made to fail

  Figures& operator+=(Figures const& more);
};
std::string text(Figures const& figures);

class SimChip {
 public:
  SimChip(uint8_t number, Mox::Ptr<Obel::TimerWheel> wheel, Figures& figures,
          std::vector<std::string>& differences);
  ~SimChip();

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
  bool isStale() const { return stale_; }
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
  void checkRunning();
  void checkAtRest();

 private:
  struct Snapshot;
  struct Output;
  struct Probe;
  class ProgressWatcher;
  class AggregatorWatcher;
  class ConfigWatcher;
  class DriverSide;
  template <class Base>
  class Thrower;

  void onProgress();
  void onOutput();
  void onRequest();
  void onPolicy();
  void onPrevious();
  void onWrite(SoftChip::Write const& write);
  /// True if all tables show an answer of these to the standing request; the one for TCP flags need not.
  bool answered(std::initializer_list<Naxel::ResponseState> states) const;
  void enterDriver();
  void buildDriver(SoftChip::Options options, bool settled);
  void takeSnapshot();
  void drawProbes();
  void checkSuccess();
  void checkFailure();
  void checkPublished();
  Output const* outputOf(Naxel::PDData const* data) const;
  void differ(std::string const& what);
  std::string name() const { return "chip " + std::to_string(number_) + ": "; }

  uint8_t number_;
  Mox::Ptr<Obel::TimerWheel> wheel_;
  Figures& figures_;
  std::vector<std::string>& differences_;

  Naxel::ChipEntities e_;
  Mox::Ptr<Naxel::HwCapabilityColl> capabilities_;
  Mox::Ptr<Naxel::GlobalPDStatus> pdStatuses_;

  // In the order in which they must be told: see DriverSide.
  std::unique_ptr<DriverSide> statusFirst_;
  std::unique_ptr<ConfigWatcher> configWatcher_;
  std::unique_ptr<SoftChip::Chip> chip_;
  std::unique_ptr<DriverSide> configLast_;
  Mox::Ptr<Naxel::NaxelRootSm> root_;
  std::unique_ptr<DriverSide> statusLast_;
  std::unique_ptr<ProgressWatcher> progressWatcher_;
  std::unique_ptr<AggregatorWatcher> aggregatorWatcher_;
  std::vector<std::unique_ptr<Mox::Notifiee>> throwers_;
  std::vector<bool> counting_;  // what counted before each side was entered
  bool rewiring_ = false;       // the sides are being built anew; nothing counts

  uint64_t now_ = 0;  // numbers events
  uint64_t requestedAt_ = 0;
  bool awaited_ = false;  // a kick has been requested and has not been seen to end
  Mox::Seconds lastId_ = 0;
  bool refused_ = false;    // the driver refused the present kick's acquire
  bool stale_ = false;      // an entity has been replaced since the root was built
  bool ownPolicy_ = false;  // the driver's own stands
  /// Or what stands may be an earlier pipeline's: one that takes over a pair cannot tell the two apart.
  bool ownUnclear_ = false;
  bool ownDeny_ = false;        // it came under a pipeline, and denies
  bool ownLoaded_ = false;      // and an output has been loaded since
  bool sinceLoad_ = false;      // and came when the handshake was over
  bool restarted_ = false;      // the driver, since the last acquire
  bool permitNext_ = false;     // the temporary policy of the next acquire
  bool permit_ = false;         // and that of the last
  bool goingDown_ = false;      // within a write that goes on
  uint64_t strikesBefore_ = 0;  // allocations that had failed when the kick was requested
  std::optional<Naxel::NaxelProgress> rekickAt_;
  std::optional<Naxel::NaxelProgress> downAt_;
  std::optional<Naxel::RequestState> downAtRequest_;
  bool downAtOutput_ = false;
  std::shared_ptr<Snapshot> snapshot_;
  std::deque<std::shared_ptr<Snapshot>> read_;  // of the last kicks, the newest first
  std::vector<Output> outputs_;
  std::vector<Naxel::PDData const*> inForce_;  // what packets may meet, the oldest first
  std::vector<Probe> probes_;
  size_t breachesSeen_ = 0;
};

}  // namespace Test
