#pragma once

/// A bridge of Open vSwitch as a chip: the driver's side of the handshake.
///
/// Every load is one atomic bundle of what differs from the flows that the bridge holds, which are read back for it
/// each time. A packet therefore meets the flows of before or the new ones and nothing between, whoever ends when.
/// So every change is hitless, and nothing is kept here that a restart of either side could make wrong.
///
/// An acquire asks the switch, changes nothing in it, and refuses in words. What it has found may have changed when
/// the load comes. A load that cannot be done then is tried again, less and less often, until it is; waitingFor()
/// says what for, and so does a trace at level 0.
///
/// Whoever else writes into our tables at the same time, by this driver in another process or by hand, does not mix his
/// flows with ours: a bundle is refused where the flows are not those any more that were read for it.
///
/// A conversation with the switch holds up the activity thread: milliseconds as a rule, some tenths of a second for
/// tens of thousands of flows. Where the switch is silent it takes `patience`, or a millisecond for each flow besides
/// while these are taken over; a switch that was silent once has a fifth of that to say its first word from then on.
/// Waiting for cached flows holds up nobody.
///
///     Naxel::Pipeline pipeline(Obel::ChipId(0), wheel);
///     NaxelOvs::setWidths(*pipeline.capability());
///     NaxelOvs::SwitchDriver driver(pipeline.pdConfig(), pipeline.pdStatus(), wheel, options);
///     driver.start();

#include "naxel/driver/Drivers.h"
#include "ovs/Translation.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace NaxelOvs {

/// Where a bridge is reached.
struct Target {
  std::string management;  ///< the bridge's socket, "/var/run/openvswitch/br0.mgmt"
  /// That of ovs-vswitchd, for waiting until cached flows follow. "" finds it beside the other one, each time: its
  /// name changes with every start.
  std::string control;

  std::string bridge() const;
  std::string controlPath() const;
};
/// "br0", which stands in $OVS_RUNDIR or else /var/run/openvswitch; or a path with a slash, with "unix:" or without.
NAXEL_EXPORT Target targetFromText(std::string const& text);

struct DriverOptions {
  Target target;
  Layout layout;
  /// Puts the bridge into the fragment mode nx-match, which rules on ports need; else another one is refused.
  bool setFragments = false;
  std::chrono::milliseconds patience{5000};
  /// Answers a load when cached flows follow it, which takes about half a second, where the control socket is there;
  /// otherwise when the bundle is in force.
  bool awaitCaches = true;
  /// Seconds between two tries.
  Mox::Seconds firstRetry = 0.1;
  Mox::Seconds lastRetry = 5;
  /// Seconds between two looks whether the bridge still holds what it should, after which that is put in force again;
  /// 0 for never.
  Mox::Seconds watch = 0;
};

/// What a bundle has changed.
struct LoadReport {
  size_t flows = 0;  ///< that are in force
  size_t added = 0;
  size_t deleted = 0;
  size_t changed = 0;           ///< that do something else under the same match
  double seconds = 0;           ///< with reading back, until the bundle is in force
  double cacheSeconds = 0;      ///< until cached flows follow it, behind that
  bool cachesFollowed = false;  ///< the control socket was there to tell that
};

class NAXEL_EXPORT SwitchDriver : public Naxel::Driver, private Obel::TimerNotifiee {
 public:
  SwitchDriver(Mox::Ptr<Naxel::PDConfig> config, Mox::Ptr<Naxel::PDStatus> status,
               Mox::Ptr<Obel::TimerWheel> wheel, DriverOptions options);
  ~SwitchDriver() override;

  DriverOptions const& options() const { return options_; }
  /// What keeps a load, or anything that has to be put in force, in words; "" while nothing does.
  std::string const& waitingFor() const { return waitingFor_; }
  /// Of the last load that is complete.
  LoadReport const& lastLoad() const { return report_; }
  /// How often the bridge did not hold what it should, when it was looked at.
  uint64_t restored() const { return restored_; }

 private:
  void acquire(Offer const& offer) override;
  void load(Offer const& offer) override;
  void revert(Offer const& offer) override;
  void policy(Naxel::GlobalAclControl wanted) override;
  void restore(Mox::Ptr<Naxel::PDData const> const& inForce) override;
  void handleExpiry() override;

  void work();
  std::string faultOf(Naxel::PDData const& data);
  void wantedIs(Mox::Ptr<Naxel::PDData const> const& data);
  void converge();
  bool settled();
  bool holds();
  void retry(std::string const& why);
  void armWatch();

  DriverOptions options_;
  std::optional<Offer> offer_;                          // of the request that is not answered
  std::optional<Naxel::GlobalAclControl> policyAsked_;  // and not confirmed
  Naxel::GlobalAclControl policy_ = Naxel::GlobalAclControl::doNotApply;
  std::unique_ptr<Translation> wanted_;  // what was last loaded; none before
  bool stale_ = false;                   // the bridge may hold something else than what is wanted
  struct Settling;
  std::unique_ptr<Settling> settling_;  // what is in force, and not for cached flows yet
  std::string waitingFor_;
  unsigned tries_ = 0;
  LoadReport report_;
  uint64_t restored_ = 0;
};

}  // namespace NaxelOvs
