#pragma once

/// One chip's pipeline as an agent would build it, with the software chip as its driver.

#include "input/ChipReader.h"
#include "mox/Activity.h"
#include "naxel/agent/Agent.h"
#include "naxel/agent/Metrics.h"
#include "naxel/control/NaxelRootSm.h"
#include "softchip/SoftChip.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace NaxelTool {

/// One reason of a failed kick, and the field that it is about where it is about one.
struct KickReason {
  std::variant<std::monostate, Naxel::PrefixXformKey, Naxel::RangeSetType, Naxel::ComboLabelSetType>
      field;
  std::string text;
};

class Session {
 public:
  /// `acls` must not change while a kick runs.
  Session(ChipSetup const& setup, Mox::Ptr<Naxel::AclConfigColl> acls);
  Session(Session const&) = delete;
  Session& operator=(Session const&) = delete;
  ~Session();

  /// Called at the start of each stage of a kick.
  void stageWatcherIs(std::function<void(Naxel::NaxelActiveStage)> f) {
    pipeline_->stageWatcherIs(std::move(f));
  }
  /// Another chip for the next kick: its widths, label code and limit of entries. The chip in software stays
  /// as it is.
  void setupIs(ChipSetup const& setup);
  /// Requests a kick and runs the activity until its end. Returns true on success.
  bool kick();

  Naxel::RootStatus const& rootStatus() const { return *pipeline_->rootStatus(); }
  Mox::Ptr<Naxel::AclConfigColl> const& acls() const { return pipeline_->acls(); }
  /// The output in force, after a kick that succeeded.
  Naxel::PDData const& data() const { return pipeline_->output(); }
  SoftChip::Chip& softChip() { return *softChip_; }
  SoftChip::Chip const& softChip() const { return *softChip_; }
  Naxel::NaxelRootSm const& root() const { return pipeline_->root(); }

  Naxel::Metrics metrics() const { return pipeline_->metrics(); }
  /// All entities as lines that `diff` compares.
  void dump(std::ostream& out) const { pipeline_->dump(out); }
  /// The temporary policy that the last kick went through; none when the load was hitless.
  std::optional<Naxel::GlobalAclControl> temporaryPolicy() const { return policy_.temporary; }
  /// The stage at which the last kick failed.
  Naxel::NaxelActiveStage failedStage() const;
  /// What its statuses say of that; may be empty.
  std::vector<KickReason> kickReasons() const;
  /// Why the last kick failed: one line per status that reports it, and what the chip's tables lack.
  /// May be empty.
  std::vector<std::string> failureTexts() const;

 private:
  /// Remembers which policy the library asked for.
  struct PolicyReactor : Naxel::PDConfig::Notifiee {
    void onGlobalAclControl() override;
    std::optional<Naxel::GlobalAclControl> temporary;
  };

  Mox::WallClock clock_;
  Mox::Activity activity_{clock_};
  Mox::Ptr<Obel::TimerWheel> wheel_;
  std::unique_ptr<SoftChip::Chip> softChip_;
  std::unique_ptr<Naxel::Pipeline> pipeline_;
  PolicyReactor policy_;
};

}  // namespace NaxelTool
