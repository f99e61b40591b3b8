#pragma once

/// Judges a driver by what it answers and by what packets meet meanwhile. It trusts the library, and knows of the
/// driver only what passes through the Relay and what DriverUnderTest tells.
///
/// At each moment there are outputs and policies that packets may meet: one of each, but two outputs while a load
/// runs, and two policies while a change is not confirmed. Whatever narrows these down is looked at with packets:
/// answers and confirmations from within their write, everything else between two steps. What packets meet instead is
/// explained by Suspects.h.
///
/// The first breach ends it: from then on nothing is judged, and nothing that the driver writes is passed on.

#include "naxel/testing/DriverConformance.h"
#include "naxel/testing/Relay.h"
#include "naxel/testing/Suspects.h"
#include "naxel/types/AclConfig.h"

#include <map>
#include <set>

namespace Naxel::Testing {

class Judge : public Relay::Listener {
 public:
  /// All arguments outlive it. `figures` counts on.
  Judge(Relay& relay, DriverUnderTest& driver, AclConfigColl const& acls, Options const& options,
        Report::Figures& figures);
  Judge(Judge const&) = delete;
  Judge& operator=(Judge const&) = delete;
  ~Judge() override;

  std::optional<Breach> const& breach() const { return breach_; }
  /// A request is not completely answered, or a policy not confirmed.
  bool isOutstanding() const;
  /// Counts what the driver has written; no two moments with writes in between have the same.
  uint64_t writes() const { return writes_; }

  /// The driver is about to be made for the first time, when it may put a policy of its own in force; anew.
  void starting() { restarted_ = true; }
  void restarting();
  /// Called with each request before the driver is told of it.
  void beforeRequestIs(std::function<void()> before) { before_ = std::move(before); }
  /// It has been given another amount of room, so earlier answers say nothing any more.
  void roomChanged() { answers_.clear(); }
  /// After each step; and when nothing is under way any more.
  void step() { look(Moment::between); }
  void atRest();

  void requested() override;
  void policyAsked() override;
  bool answered(PDTable table) override;
  bool policyReported() override;

 private:
  enum class Moment : uint8_t {
    between,
    acquired,     // the acquire is answered
    superseding,  // a newer acquire has got its first answer, and so the load before is complete
    loaded,
    reverted,
    policy,
    rest
  };
  struct Probe {
    PDAclKey key;
    Verify::Packet packet;
    std::map<PDData const*, Verify::Verdict> meets;
  };
  using Output = Mox::Ptr<PDData const>;

  ResourceConfig const& request() const { return relay_.libraryConfig->pdResourceConfig(); }
  ResourceStatus status(PDTable table) const { return tableStatus(*relay_.driverStatus, table); }
  bool answers(PDTable table) const;
  bool isComplete() const;
  bool isPolicyOpen() const;
  void requestComplete();
  void checkAcquired();
  void checkMissing();
  void checkOutputs();
  void inForceIs(Output const& output);
  void keep(Output const& output);

  void drawProbes();
  void look(Moment moment);
  bool fits(Probe& probe, Met const& met);
  void blame(Moment moment, Probe const& probe, Met const& met);
  void blameTables(Moment moment, std::string const& seen, std::vector<Observation> const& all);
  bool explains(Output const& output, std::vector<Observation> const& all) const;
  void fault(Rule rule, std::string what, std::optional<PDTable> table = {});

  Relay& relay_;
  DriverUnderTest& driver_;
  AclConfigColl const& acls_;
  Options const& options_;
  Report::Figures& figures_;
  std::function<void()> before_;
  std::optional<Breach> breach_;
  uint64_t writes_ = 0;

  std::set<Mox::Seconds> asked_;                     // ids
  std::map<PDTable, std::set<ResponseState>> said_;  // to the present id
  std::set<PDTable> late_;                           // that have answered an older one since
  bool complete_ = true;                             // the present request has been answered
  bool restarted_ = false;    // the driver, and nothing has come to rest since
  bool restartOpen_ = false;  // and a request stood that was not answered
  bool acquired_ = false;     // the present request is an acquire
  size_t abandoned_ = 0;      // acquires that no load followed

  std::vector<Output> may_;      // what packets may meet, oldest first
  Output loading_;               // a load that is not answered
  Output offered_;               // by the last acquire
  std::vector<Output> earlier_;  // what has been in force, oldest first
  std::set<GlobalAclControl> mayPolicy_ = {GlobalAclControl::doNotApply};
  std::optional<GlobalAclControl> takenBack_;  // the library has, and the driver may finish it

  std::vector<std::pair<Output, std::string>> published_;  // and what they said then
  struct Answer {
    ResponseState state;
    size_t abandoned;
  };
  std::map<std::pair<std::string, std::string>, Answer>
      answers_;  // by what was in force, and offered
  std::vector<Probe> probes_;
  uint64_t draws_ = 0;
  size_t turn_ = 0;
};

}  // namespace Naxel::Testing
