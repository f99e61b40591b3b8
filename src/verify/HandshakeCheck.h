#pragma once

/// Watches one chip's pipeline and its driver from outside while somebody kicks, edits and restarts them, and
/// says in a sentence each what they do against the contract of loader/PDConfig.h.
///
/// What must hold, and when it is looked at:
///
/// - Whenever the driver writes a single table, policy or status: packets that are likely to tell meet the
///   verdict of the output in force before, of an output that the library has asked to be loaded since, or of
///   a policy; an output that comes into force has been asked for; a driver's own policy that denies, and that
///   the pipeline can tell for one, is not lifted before an output has been loaded.
/// - With a request: somebody is there to make it. An acquire has an id of its own and names as previous
///   output the one last asked to be loaded; a load comes when every table has answered the acquire, a revert
///   when one has refused, to an output that was in force.
/// - With a policy: it is the one that the agent wants, or denies on behalf of the driver's own, and the
///   driver has called the change hitful.
/// - Whenever a kick reports success: the configuration has been read since it was requested; the new output
///   is in force, no policy stands, nothing is reserved in the chip, no reason for a failure is given; the rules
///   are such that they can be compiled, and the tables do what the rules say.
/// - Whenever a kick reports failure: there is a reason in words, which names a policy that stands and an
///   entity that has been replaced; the stage that failed had cause to; the old output is completely in force,
///   nothing is reserved, and the driver's own policy stands as before.
/// - At rest: no kick hangs, no output has changed since it was published, nothing is reserved for a load that
///   will never be, no policy stands after a success. A kick that runs says what it waits for.
///
/// Whoever builds, kicks and restarts says so before or after, as each function asks. Everything runs on the
/// activity thread of the pipeline.

#include "naxel/agent/Pipeline.h"
#include "naxel/loader/PDData.h"
#include "verify/MatchKey.h"
#include "verify/Packet.h"

#include <deque>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Verify {

/// The chip and its driver as the check sees them; told of what it finds.
class WatchedChip {
 public:
  virtual ~WatchedChip() = default;

  /// What a packet meets now.
  virtual Verdict lookup(Naxel::PDAclKey const& acl, Packet const& packet) = 0;
  /// The output in force; null before the first load and while the tables are being rewritten.
  virtual Mox::Ptr<Naxel::PDData const> inForce() const = 0;
  /// The policy in force.
  virtual Naxel::GlobalAclControl policy() const = 0;
  /// The id of the acquire whose resources are kept until its load is requested; 0 while none are.
  virtual Mox::Seconds reservedFor() const = 0;
  /// Nothing is under way.
  virtual bool idle() const = 0;
  /// A policy change that the library has taken back may be carried out nevertheless, and is not through.
  virtual bool finishesTakenBack() const { return false; }

  /// Somebody breaks the contract.
  virtual void breach(std::string const& sentence) = 0;
  /// The check begins or ends its own work within a notification: for whoever measures or limits what library
  /// and driver do there.
  virtual void aside(bool begins) { static_cast<void>(begins); }
  /// There may not have been the memory for a reason why the running kick fails.
  virtual bool mayLackReasons() const { return false; }
};

class HandshakeCheck {
 public:
  /// What has been seen.
  struct Figures {
    uint64_t successes = 0;
    uint64_t failures = 0;
    uint64_t cancels = 0;
    uint64_t refusals = 0;  ///< acquires that the driver refused
    uint64_t writes = 0;    ///< of the driver, looked at one by one
    uint64_t packets = 0;   ///< looked up on the way
  };
  /// What a kick has worked from.
  struct Configuration {
    Mox::Ptr<Naxel::AclConfigColl> acls;
    Mox::Ptr<Naxel::ChipHwCapability> capability;
  };

  /// Attaches to PDConfig, which stays the same, and should be the first there. The other entities may be
  /// replaced in their place. All three arguments outlive the check.
  HandshakeCheck(Naxel::ChipEntities const& entities, WatchedChip& chip, Figures& figures);
  HandshakeCheck(HandshakeCheck const&) = delete;
  HandshakeCheck& operator=(HandshakeCheck const&) = delete;
  ~HandshakeCheck();

  /// A pipeline has been built over the entities, or (null) is about to be taken down.
  void pipelineIs(Naxel::NaxelRootSm const* root);
  /// The agent is about to write a request into RootConfig.
  void requesting(Naxel::NaxelKickRequest what);
  /// The agent has deleted one of its entities and made another. No kick can succeed before a pipeline is
  /// built over it.
  void entityReplaced();
  bool isStale() const { return stale_; }

  /// The driver is gone, and another one is about to take over: with a policy of its own in force, or going
  /// by what the library has asked for.
  void driverRestarts(std::optional<Naxel::GlobalAclControl> policy);
  /// The same, and PDStatus is a new one.
  void driverRestartsOverNewStatus();
  /// It has.
  void driverStarted();

  /// A single write of the driver.
  enum class Wrote : uint8_t {
    table,   ///< an entry, a table, the status of one, or a policy that has not been reported
    output,  ///< another output is in force, or the same one anew
    policy   ///< PDStatus reports the policy in force
  };
  void wrote(Wrote what);

  /// While something is under way.
  void checkRunning();
  /// While nothing is.
  void checkAtRest();

  /// What the last kick but so many has read; null if that is too long ago.
  Configuration const* read(size_t kicksBefore = 0) const;
  /// The last kick has read the configuration since it was requested.
  bool hasRead() const { return hasRead_; }

 private:
  /// An output that has been published, what it was made of, and what it said then.
  struct Output {
    Mox::Ptr<Naxel::PDData const> data;
    Mox::Ptr<Naxel::AclConfigColl> acls;
    std::string said;
  };
  /// A packet for an ACL, and the rule that it must hit under each output that may be in force.
  struct Probe {
    Naxel::PDAclKey key;
    Packet packet;
    std::map<Naxel::PDData const*,
             std::pair<std::optional<Naxel::AceIndex>, Naxel::NaxelActionValue>>
        rule;
  };
  class Watcher;

  void handleRead();
  void handleOutput();
  void handleRequest();
  void handlePolicy();
  void handleProgress();
  void drawProbes();
  bool meetsWhatItMay(Probe const& probe);
  void checkSuccess();
  void checkFailure();
  void checkLoaderFailure(bool policy);
  void checkPublished();
  /// True if all tables show an answer of these to the standing request; the one for TCP flags need not.
  bool answered(std::initializer_list<Naxel::ResponseState> states) const;
  bool mayBeInForce(Naxel::PDData const* data) const;
  Output const* outputOf(Naxel::PDData const* data) const;
  void breach(std::string const& sentence) const { chip_.breach(sentence); }

  Naxel::ChipEntities const& e_;
  WatchedChip& chip_;
  Figures& figures_;
  Naxel::NaxelRootSm const* root_ = nullptr;

  std::deque<Configuration> read_;  // of the last kicks, the newest first
  bool hasRead_ = false;
  std::vector<Output> outputs_;
  std::vector<Naxel::PDData const*> inForce_ = {nullptr};  // what packets may meet, oldest first
  std::vector<Probe> probes_;
  uint64_t draws_ = 0;

  bool awaited_ = false;             // a kick has been requested and has not been seen to end
  bool stale_ = false;               // an entity has been replaced since the pipeline was built
  Naxel::ResourceConfig announced_;  // the outputs of this request have been seen while it was up
  Mox::Seconds lastId_ = 0;
  bool refused_ = false;     // the driver refused the present kick's acquire
  bool restarted_ = false;   // the driver, since the last acquire
  bool permitNext_ = false;  // the temporary policy of the next acquire
  bool permit_ = false;      // and that of the last

  bool ownPolicy_ = false;  // the driver's own stands
  /// Or what stands may be an earlier pipeline's: one that takes over a pair cannot tell the two apart.
  bool ownUnclear_ = false;
  bool ownDeny_ = false;  // it came under a pipeline, and denies
  // What the pipeline before had asked for when this one came. The driver may finish that; a policy of its own
  // of the same value cannot be told from it.
  std::optional<Naxel::GlobalAclControl> unconfirmed_;
  bool ownLoaded_ = false;  // and an output has been loaded since
  bool sinceLoad_ = false;  // and came when the handshake was over

  std::unique_ptr<Watcher> watcher_;  // last: tells of nothing before all else is there
};

}  // namespace Verify
