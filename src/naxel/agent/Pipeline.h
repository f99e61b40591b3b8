#pragma once

/// The agent's side of one chip: the entities that pass between agent, library and driver, and the pipeline
/// over them.
///
/// An agent makes one Pipeline per chip, attaches the chip's driver to pdConfig() and pdStatus(), writes
/// widths, ACLs and parameters, and kicks. Whatever it does beyond that it does by the entities, which stay
/// within reach.
///
/// Who looks at an output includes naxel/loader/PDConfig.h, who looks into the stages
/// naxel/control/NaxelRootSm.h.
///
///     Naxel::Pipeline pipeline(Obel::ChipId(0), wheel);
///     MyDriver driver(pipeline.pdConfig(), pipeline.pdStatus());
///     pipeline.acls()->aclIs("edge") ...
///     pipeline.kick([](Naxel::KickResult const& result) { std::cout << result << '\n'; });
///
/// Everything runs on the activity thread of the wheel; there are no locks.

#include "acl/ParamConfig.h"
#include "naxel/control/RootTypes.h"
#include "naxel/loader/HwCapability.h"
#include "naxel/types/AclConfig.h"

#include <array>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

namespace Obel {
class TimerWheel;
}

namespace Naxel {

class NaxelRootSm;
class PDConfig;
class PDData;
class PDStatus;
class StageTimes;
struct Metrics;

/// The entities of one chip. None may be null once a pipeline stands over them.
struct NAXEL_EXPORT ChipEntities {
  /// New ones, with the values that a chip has by default.
  explicit ChipEntities(Obel::ChipId chip);
  ChipEntities(ChipEntities const& other);
  ChipEntities& operator=(ChipEntities const& other);
  ~ChipEntities();

  Obel::ChipId chipId;
  Mox::Ptr<ChipHwCapability> capability;  ///< written by the agent, as are the next two
  Mox::Ptr<AclConfigColl> acls;
  Mox::Ptr<Acl::ParamConfig> params;
  Mox::Ptr<RootConfig> rootConfig;
  Mox::Ptr<RootStatus> rootStatus;
  Mox::Ptr<PDConfig> pdConfig;
  Mox::Ptr<PDStatus> pdStatus;  ///< written by the driver
};

/// A pipeline over these entities, for whoever keeps the root himself. Otherwise Pipeline does.
NAXEL_EXPORT Mox::Ptr<NaxelRootSm> buildRoot(ChipEntities const& entities,
                                             Mox::Ptr<Obel::TimerWheel> wheel);

/// How a kick has ended.
enum class KickEnd : uint8_t {
  success,  ///< the tables of the present rules are in force
  failure,  ///< those of before are; the reason says why
  cancelled,  ///< by cancel(); a handshake that had begun goes on and may still put its tables in force
  superseded  ///< another kick has been requested, or the pipeline was taken down
};

struct KickResult {
  KickEnd end = KickEnd::superseded;
  /// Which stage has failed on which chip; empty unless the kick has failed.
  std::string message;
  /// Why, in words for the operator; empty unless the kick has failed.
  std::string reason;

  explicit operator bool() const { return end == KickEnd::success; }
};
/// "success", "failure", ...
NAXEL_EXPORT std::string name(KickEnd end);
/// "success", "Naxel failed at stageLoader on chip 0: ...".
NAXEL_EXPORT std::string text(KickResult const& result);
NAXEL_EXPORT std::ostream& operator<<(std::ostream& out, KickResult const& result);

/// Every error of these widths and rules, in the order of the ACLs; empty where a kick would take them as they
/// are. For rules that are not those of a pipeline yet. Neither fails nor aborts, whatever stands there.
/// O(rules).
NAXEL_EXPORT std::vector<ConfigError> validate(ChipHwCapability const& widths,
                                               AclConfigColl const& acls);

class NAXEL_EXPORT Pipeline {
 public:
  using Done = std::function<void(KickResult const&)>;

  /// Over new entities.
  Pipeline(Obel::ChipId chip, Mox::Ptr<Obel::TimerWheel> wheel);
  /// Over entities that are there: those of the agent's own collections, or a pair of PDConfig and PDStatus
  /// that an earlier pipeline has used, whose output in force and outstanding request are taken over.
  Pipeline(ChipEntities const& entities, Mox::Ptr<Obel::TimerWheel> wheel);
  Pipeline(Pipeline const&) = delete;
  Pipeline& operator=(Pipeline const&) = delete;
  /// A kick that is running ends as superseded, and its callback is told; what that one kicks is never heard
  /// of.
  ~Pipeline();

  Obel::ChipId chipId() const { return entities_.chipId; }
  ChipEntities const& entities() const { return entities_; }
  Mox::Ptr<ChipHwCapability> const& capability() const { return entities_.capability; }
  Mox::Ptr<AclConfigColl> const& acls() const { return entities_.acls; }
  Mox::Ptr<Acl::ParamConfig> const& params() const { return entities_.params; }
  Mox::Ptr<RootConfig> const& rootConfig() const { return entities_.rootConfig; }
  Mox::Ptr<RootStatus> const& rootStatus() const { return entities_.rootStatus; }
  Mox::Ptr<PDConfig> const& pdConfig() const { return entities_.pdConfig; }
  Mox::Ptr<PDStatus> const& pdStatus() const { return entities_.pdStatus; }
  /// The output that was last offered to the driver; after a kick that succeeded the one in force.
  PDData const& output() const;
  /// The stages, for whoever looks into them. Another one after entitiesIs() and restart().
  NaxelRootSm& root() const { return *root_; }

  /// Requests a kick. `done` is called once, at its end, from within a pass of the activity, or from within
  /// kick() where no kick can run at all; it may kick again, or destroy the pipeline. A kick that is running
  /// is superseded, and its callback is told once the new one has been requested.
  void kick(Done done = {});
  /// Cancels the running kick; nothing happens where none runs.
  void cancel();
  /// True from kick() until the callback is about to be called.
  bool isRunning() const;
  /// What the running kick, or the handshake of a cancelled one, waits for, in words; empty while nothing is.
  std::string waitingFor() const;

  /// The same of what stands in capability() and acls(). Whether labels, entries and tables fit is for a kick to
  /// find out.
  std::vector<ConfigError> validate() const;

  /// Counters of kicks, times of stages, labels in use, rows of tables: include naxel/agent/Metrics.h. O(ACLs).
  Metrics metrics() const;
  /// Writes what the agent has written and what each stage and the driver have published, as lines that `diff`
  /// compares: see mox/Facts.h. At any time, also within a kick or after one that has failed. Equal input and equal
  /// kicks before give equal bytes. O(what is written).
  void dump(std::ostream& out) const;
  /// Called at the start of each stage of a kick. It may not end the pipeline.
  void stageWatcherIs(std::function<void(NaxelActiveStage)> f);

  /// Takes the pipeline down and builds another over these entities. For an agent that has made some of them
  /// anew: the library keeps to those that it was given.
  void entitiesIs(ChipEntities const& entities);
  /// The same over the present ones.
  void restart();

 private:
  class ProgressWatch;

  void build();
  void takeDown();
  void count(KickEnd how);
  void end(KickEnd how);
  void request(NaxelKickRequest what);
  void handleProgress();

  ChipEntities entities_;
  Mox::Ptr<Obel::TimerWheel> wheel_;
  Mox::Ptr<NaxelRootSm> root_;
  std::unique_ptr<ProgressWatch> watch_;
  Done done_;
  bool running_ = false;
  std::unique_ptr<StageTimes> stageTimes_;  // of the present root
  std::function<void(NaxelActiveStage)> stageWatcher_;
  std::array<uint64_t, 4> kicks_{};  // that have ended, by KickEnd
  Mox::Seconds kickBegin_ = 0;       // by the steady clock, as are the next two
  Mox::Seconds kickSeconds_ = 0;
  Mox::Seconds allKickSeconds_ = 0;
};

}  // namespace Naxel
