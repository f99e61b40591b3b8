#pragma once

/// One bridge's pipeline: rules, the library, and the driver of Open vSwitch.

#include "input/ChipReader.h"
#include "mox/Activity.h"
#include "naxel/agent/Agent.h"
#include "naxel/control/NaxelRootSm.h"
#include "ovs/SwitchDriver.h"

#include <functional>
#include <optional>
#include <string>

namespace NaxelTool {

class SwitchSession {
 public:
  SwitchSession(ChipSetup const& setup, Mox::Ptr<Naxel::AclConfigColl> acls,
                NaxelOvs::DriverOptions options);
  SwitchSession(SwitchSession const&) = delete;
  SwitchSession& operator=(SwitchSession const&) = delete;
  ~SwitchSession();

  /// Called with what the driver waits for, each time that it is something else; "" where it has come.
  void waitingIs(std::function<void(std::string const&)> f) { tell_ = std::move(f); }
  /// Runs a kick. None where it has not ended within so many seconds, or before `stop` says so, which is asked a few
  /// times a second: the driver then still tries.
  std::optional<Naxel::KickResult> kick(Mox::Seconds limit,
                                        std::function<bool()> const& stop = nullptr);
  /// Goes on with what the driver does by itself until `done` says so, which is asked a few times a second.
  void runUntil(std::function<bool()> const& done);

  NaxelOvs::SwitchDriver const& driver() const { return *driver_; }
  Naxel::PDData const& output() const { return pipeline_->output(); }
  /// The stage at which the last kick failed.
  Naxel::NaxelActiveStage failedStage() const;

 private:
  void tell();

  std::function<void(std::string const&)> tell_;
  std::string told_;
  Mox::WallClock clock_;
  Mox::Activity activity_{clock_};
  Mox::Ptr<Obel::TimerWheel> wheel_;
  std::unique_ptr<NaxelOvs::SwitchDriver> driver_;
  std::unique_ptr<Naxel::Pipeline> pipeline_;
};

}  // namespace NaxelTool
