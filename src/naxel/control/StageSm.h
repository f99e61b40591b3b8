#pragma once

/// The frame of every stage.
///
/// A stage is started by a new kick time in its configuration. handleKickTime() stamps that time
/// into the stage's status, reports `inProgress` and calls the stage's doStartKick(), which works
/// or schedules its work and ends with a final status. A stage reports failure only through its
/// status: whatever is thrown below handleKickTime() ends here as `finishedFailed`, with a trace at
/// level 0, after doForget() has dropped what the stage remembers of its last input, so that the
/// next kick does the work again.
///
/// There is one reference to the configuration, and a stage asks for it anew wherever it needs it: so
/// a stage that is bound to another configuration works from that one, and remembers nothing of what
/// it did for the one before. A stage that is bound to none reacts to nothing and reports nothing.
///
/// One activity thread; no locks.

#include "mox/Assert.h"
#include "naxel/control/StageTypes.h"
#include "obel/ChipId.h"

#include <optional>
#include <string>

namespace Naxel {

class NAXEL_EXPORT StageSm : public Mox::RefCounted {
 public:
  /// Watches `config` from now on. Neither entity may be null.
  StageSm(Obel::ChipId chipId, Mox::Ptr<StageConfig> config, Mox::Ptr<StageStatus> status);
  ~StageSm() override;

  Obel::ChipId chipId() const { return chipId_; }
  Mox::Ptr<StageConfig> const& config() const { return config_; }
  Mox::Ptr<StageStatus> const& status() const { return status_; }

  /// Binds a configuration in place of the present one, with everything that it points to; a null one
  /// unbinds. It must be of the type that the stage is made for.
  /// Another one makes the stage forget what it has worked from. Binding starts nothing: the kick time that
  /// stands in the new configuration is no request.
  void newConfig(Mox::Ptr<StageConfig> config) { configIs(std::move(config)); }
  virtual void configIs(Mox::Ptr<StageConfig> config);
  virtual void configDel() { configIs(nullptr); }

  /// Runs a kick.
  void handleKickTime();
  /// Stamps the configuration's kick time into the status, then sets the status, so that whoever
  /// reacts to the status sees the kick that it answers.
  void doSetStatus(StageStatusType s);
  /// The stage's work.
  virtual void doStartKick() {}
  /// Stops reacting (true) or reacts again (false): for the time in which an owner takes a pipeline
  /// down.
  virtual void moxDoZombieReactors(bool zombie);

 protected:
  /// The configuration as the stage's own type.
  template <class Config>
  Config& configAs() const {
    auto* const typed = dynamic_cast<Config*>(config_.get());
    MOX_ASSERT(typed);
    return *typed;
  }
  /// What a stage finds before it works.
  struct Look {
    enum class At : uint8_t {
      off,        ///< this chip does without the stage
      unchanged,  ///< what the last run has made stands
      refused,  ///< the input is wrong, and nothing has been touched: what is remembered stays true
      unusable,  ///< a stage before has left nothing to work from
      work
    };
    At at = At::work;
    std::string reason = {};  // where it is refused or unusable
  };
  /// Looks at the input and leaves everything as it is.
  virtual Look doLook() { return {}; }
  /// The work itself. Returns the reason where it fails.
  virtual std::optional<std::string> doWork() { return std::nullopt; }
  /// What was worked from becomes what is remembered. Called after work that did not fail.
  virtual void doRemember() noexcept {}
  /// Publishes that there is nothing, in the place of what an earlier width made.
  virtual void doClearOutput() {}
  /// The run of a stage that works at once: skips, fails, forgets and remembers, for all of them alike. What
  /// is remembered is dropped before the work and whenever it does not end in success, so that no later kick
  /// can take for done what was not; and it is set before the status, whose watchers may start the next kick.
  void doRunStage();
  /// Ends the kick with the reason in words.
  void doFail(std::string text);
  /// Ends the kick after an exception: forgets, traces, fails. For work that does not run below
  /// handleKickTime().
  void doFailThrown(char const* what) noexcept;
  /// Drops every remembered digest: the last run did not end in success.
  virtual void doForget() noexcept {}

 private:
  class ConfigReactor : public StageConfig::Notifiee {
   public:
    explicit ConfigReactor(StageSm& sm) : sm_(sm) {}
    void onKickTime() override { sm_.handleKickTime(); }

   private:
    StageSm& sm_;
  };

  Obel::ChipId chipId_;
  Mox::Ptr<StageConfig> config_;
  Mox::Ptr<StageStatus> status_;
  ConfigReactor configReactor_{*this};
};

}  // namespace Naxel
