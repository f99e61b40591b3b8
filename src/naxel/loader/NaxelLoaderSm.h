#pragma once

/// The loader: hands a new output to the chip's driver and walks the handshake. The contract with
/// the driver is at the head of PDConfig.h.
///
/// Reads    the loader infos of the encoders, the expander's entries, PDStatus.
/// Writes   PDConfig, and LoaderStatus with the last refused output.
/// Skips    never.
/// Fails    when the driver refuses the acquire; the previous output is offered again then.
/// Order    tables in natural order.
///
///   initial -> waitingForAcquire -> pdAcquireSuccess -> pdLoadSuccess            (success)
///                     |                    |
///                     v                    v
///               pdLocalFail -> pdAcquireFail -> waitingForRevert -> pdRevertSuccess   (failure)
///
/// In pdAcquireSuccess a change that disturbs traffic first waits for the temporary policy, then
/// the load is requested; the state is left when that load is answered, not before. At the end of a
/// load and of a revert any policy that stands is lifted, whichever kick has set it, and the stage
/// ends when that is confirmed. PolicyExchange knows how one is set and lifted, and which one stays.
///
/// Re-entrancy. The driver may answer from within a write. Events only ask for another step of one
/// loop, which looks at the current state; every step sets its state before it writes.
///
/// What is in force is what was last asked to be loaded: a load must not fail, so from the request
/// on the driver will have it in force, whatever happens to the kick.
///
/// Answers to a finished load that become complete again are those of a driver that has restarted.

#include "acl/ParamConfig.h"
#include "mox/Trace.h"
#include "naxel/control/StageSm.h"
#include "naxel/loader/HwCapability.h"
#include "naxel/loader/NaxelLoaderTypes.h"
#include "naxel/loader/PolicyExchange.h"

#include <string>
#include <vector>

namespace Naxel {

struct Judgement;

class NAXEL_EXPORT LoaderSm : public StageSm {
 public:
  LoaderSm(Obel::ChipId chipId, Mox::Ptr<LoaderConfig> config, Mox::Ptr<LoaderStatus> status,
           Mox::Ptr<PDConfig> pdConfig, Mox::Ptr<PDStatus> pdStatus,
           Mox::Ptr<ChipHwCapability const> hwCapability,
           Mox::Ptr<Acl::ParamConfig const> paramConfig);

  /// Where the handshake stands. It says `initial` before the first kick, and after a kick that has failed
  /// by an exception.
  LoaderSmState smState() const { return smState_; }
  /// Whether the driver has called the output of this kick hitless; true until it has answered the acquire
  /// completely.
  bool isHitless() const { return isHitless_; }
  /// The id of the last request that a table has refused; 0 if there was none.
  Mox::Seconds failedResponseId() const { return failedResponseId_; }
  std::string const& traceKey() const { return traceKey_; }
  Mox::Ptr<PDConfig> const& pdConfig() const { return pdConfig_; }
  Mox::Ptr<PDStatus> const& pdStatus() const { return pdStatus_; }
  /// The output that was last asked to be loaded; an empty one before the first load.
  Mox::Ptr<PDData const> const& inForce() const { return inForce_; }
  /// True while the handshake waits for the driver.
  bool isWaiting() const noexcept;
  /// What it waits for, in words: which request, which tables have answered what, which
  /// policy. Empty while it does not wait.
  std::string waitingFor() const;

  void doStartKick() override;
  /// Builds the new output and sets it and the previous one.
  void doPDLoad();
  void doForget() noexcept override;
  void moxDoZombieReactors(bool zombie) override;

 private:
  /// Passes the driver's answers on.
  class DriverReactor : public PDStatus::Notifiee {
   public:
    explicit DriverReactor(LoaderSm& sm) : sm_(sm) {}
    void onGlobalAclControl() override { sm_.handleGlobalAclControl(); }
    void onTableStatus() override { sm_.handleXformStatus(); }
    void onPdTcpFlagsXformEntryStatus() override { sm_.handleTcpFlagsStatus(); }

   private:
    LoaderSm& sm_;
  };

  /// A new output, filled.
  Mox::Ptr<PDData const> newOutput();
  /// A transform table and what it was made of. Infos are replaced and never changed, so outputs share the table as long
  /// as the info stands.
  template <class Info, class Table>
  struct Made {
    Mox::Ptr<Info const> info;
    Mox::Ptr<Table const> table;
    /// The table of that info, which may be null: then it has no entries.
    template <class Entries>
    Mox::Ptr<Table const> const& of(Mox::Ptr<Info const> const& now, Entries entries);
  };
  void loadPrefixInfo(PDData& pdData);
  void loadRangeInfo(PDData& pdData);
  void loadComboInfo(PDData& pdData);
  void loadAclRuleInfo(PDData& pdData) const;

  /// How far the handshake has come.
  struct Stance {
    ResourceConfig request;
    size_t answered = 0;  // tables
    LoaderSmState state = LoaderSmState::initial;
    friend bool operator==(Stance const&, Stance const&) = default;
  };

  /// A table that has refused the present request, and why if the driver says so.
  struct Refusal {
    PDTable table;
    std::string reason;
  };

  void handleXformStatus();
  void handleTcpFlagsStatus();
  void handleGlobalAclControl();
  void handleLoaderState();

  /// Has the loop take another step.
  void advance();
  void advanceLoop();
  /// What changes nothing, such as an answer to another request, is no progress.
  void noteProgress();
  void takeStep();
  /// What the present answers come to. Traces which tables are missing.
  Judgement judged() const;
  /// Takes note of tables that refuse.
  void noteRefusals(Judgement const& judgement);
  /// Says so where the tables do not agree whether the change is hitless.
  void tellDisagreement(Judgement const& judgement) const;
  /// Ends the process where a table fails to load what it has acquired.
  void assertLoadable(Judgement const& judgement) const;
  void smStateIs(LoaderSmState v) { smState_ = v; }
  void request(RequestState state);
  /// The same with another output.
  void request(RequestState state, Mox::Ptr<PDData const> prev, Mox::Ptr<PDData const> curr);
  void requestLoad();
  void doAcquireFail();
  std::string refusalText() const;
  /// Works towards a policy; true once it is in force and nothing is outstanding.
  bool policyIs(GlobalAclControl wanted);
  void updateCaution() noexcept;
  Mox::TraceLine traceStep(int level, char const* step) const;

  LoaderConfig const& loaderConfig() const { return configAs<LoaderConfig>(); }

  Mox::Ptr<LoaderStatus> status_;
  Mox::Ptr<PDConfig> pdConfig_;
  Mox::Ptr<PDStatus> pdStatus_;
  Mox::Ptr<ChipHwCapability const> hwCapability_;
  Mox::Ptr<Acl::ParamConfig const> paramConfig_;
  std::string traceKey_;
  LoaderSmState smState_ = LoaderSmState::initial;
  bool isHitless_ = true;
  Mox::Seconds failedResponseId_ = 0;
  std::vector<Refusal> refusals_;
  Mox::Ptr<PDData const> inForce_;
  Mox::Ptr<ChipHwCapability const> widths_;  // of the last output, as are the next
  std::array<Made<PrefixXformLoaderInfo, PDPrefixXformEntryColl>, 4> prefix_;
  std::array<Made<RangeSplitLoaderInfo, PDRangeXformEntryColl>, rangeFieldCount> range_;
  std::array<Made<ComboLabelLoaderInfo, PDComboEntryColl>, 3> combo_;
  PolicyExchange policy_;
  Stance stance_;
  bool down_ = false;        // the owner takes the pipeline down
  bool requested_ = false;   // a request of this loader stands
  bool advancing_ = false;   // the loop is running
  bool stepWanted_ = false;  // something happened since its last look
  // The last member: it is made when everything that it calls is there, and destroyed first.
  DriverReactor driverReactor_{*this};
};
NAXEL_EXPORT Mox::Ptr<LoaderSm> loaderSmFactory(Obel::ChipId chipId, Mox::Ptr<LoaderConfig> config,
                                                Mox::Ptr<LoaderStatus> status,
                                                Mox::Ptr<PDConfig> pdConfig,
                                                Mox::Ptr<PDStatus> pdStatus,
                                                Mox::Ptr<ChipHwCapability const> hwCapability,
                                                Mox::Ptr<Acl::ParamConfig const> paramConfig);

}  // namespace Naxel
