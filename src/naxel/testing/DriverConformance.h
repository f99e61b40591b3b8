#pragma once

/// Proves a driver: plays configurations, changes, cancels, refusals and restarts of agent and driver through a
/// pipeline, watches what the driver answers and what packets meet in its chip, and says which rule of
/// docs/driver-guide.md it breaks, with the shortest script that shows it.
///
/// The author implements DriverUnderTest, which makes the driver and asks the chip, and calls proveDriver():
///
///     auto const report = Naxel::Testing::proveDriver([] { return std::make_unique<MyChipUnderTest>(); });
///     std::cout << text(report);
///     return report.passed() ? 0 : 1;
///
/// Everything runs on the calling thread, by a clock of its own that jumps to the next timer, so a driver that
/// waits by timers of the wheel costs no time. The same seed and driver give the same report.

#include "mox/Export.h"
#include "naxel/loader/PDConfig.h"
#include "naxel/testing/Rules.h"
#include "obel/TimerWheel.h"
#include "verify/Packet.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Naxel::Testing {

/// What a packet meets in a chip.
struct Met {
  enum class Kind : uint8_t {
    untold,   ///< the chip cannot say now; nothing is judged
    noRule,   ///< no entry of the ACL matches, or there is no such ACL
    rule,     ///< an entry matches
    denyAll,  ///< a policy stands in for the ACLs
    permitAll,
    dropped,  ///< all that a test packet tells: it does not come out again,
    passed    ///< or it does
  };
  Kind kind = Kind::untold;
  std::optional<AceIndex> rule =
      {};  ///< of the entry that matches; none where the chip tells the action alone
  NaxelActionValue action = {};  ///< of that entry
};
/// "rule 20 drop", "no rule", "denyAll".
std::string text(Met const& met);

/// One chip and its driver. A new one is made for each script: an empty chip without driver.
class DriverUnderTest {
 public:
  virtual ~DriverUnderTest() = default;

  /// Makes a driver over this pair, which may be in use. It may answer at once, or by timers of the wheel, or from
  /// within wait(). Both entities are of the kit and live until stop() has returned.
  virtual void start(Mox::Ptr<PDConfig> config, Mox::Ptr<PDStatus> status,
                     Mox::Ptr<Obel::TimerWheel> wheel) = 0;
  /// Destroys the driver, as the end of its process would: nothing is written any more. The chip stays as it is.
  virtual void stop() = 0;

  /// The chip loses its tables and policies while there is no driver. False where that cannot be played.
  virtual bool reset() { return false; }
  /// What the packet meets now if it is looked up in that ACL. Called between steps, and also from within writes of
  /// the driver into PDStatus, which is when an answer has to be true; whoever cannot say then, or at all, says
  /// `untold`, and those rules are not judged.
  virtual Met lookup(PDAclKey const& acl, Verify::Packet const& packet) {
    static_cast<void>(acl), static_cast<void>(packet);
    return {};
  }
  /// Writes the label widths of the chip; false where it can be given any, which are then drawn.
  virtual bool widths(ChipHwCapability& to) const { return static_cast<void>(to), false; }
  /// Leaves so many ACL entries of room, for all that the chip holds at a time. False where that cannot be played.
  virtual bool roomIs(size_t entries) { return static_cast<void>(entries), false; }
  /// Called on the activity thread while an answer is missing and no timer is armed: waits until the driver has
  /// gone on. False where it never will by itself.
  virtual bool wait() { return false; }
};

struct Options {
  uint64_t seed = 1;
  /// How many random scripts are played behind the fixed ones.
  size_t scripts = 150;
  /// Other than 0: as many as fit into so many seconds, whatever `scripts` says.
  double seconds = 0;
  /// After so many seconds of the kit's clock without any answer none is expected any more.
  Mox::Seconds patience = 60;
  /// The same for passes of the activity in which the driver has something to do, and no answer comes of them. A driver
  /// that goes on writing one entry per pass needs as many as its largest table has.
  size_t passes = 100000;
  /// The driver puts policies of its own in force at any time, not only when it starts. One that nobody asked for is
  /// then not taken for a wrong answer.
  bool ownPolicies = false;
  /// Traces of library and driver are written as ever; otherwise they are dropped meanwhile.
  bool traces = false;
  /// How often at most a script is played to make it shorter; fewer for a driver that takes its time.
  size_t attempts = 500;
  /// So many breaches of different rules end the run.
  size_t breaches = 3;
};

/// One breach, as the shortest script shows it that was found.
struct Breach {
  Rule rule = Rule::lookup;
  std::string what;              ///< what happened, a clause
  std::optional<PDTable> table;  ///< where it is about one
  ResourceConfig request;        ///< that stood then; its id is 0 before the first one
  std::vector<std::string> script = {};
  std::string origin = {};  ///< "fixed script 2", "seed 17"
};
std::string text(Breach const& breach);

struct Report {
  struct Figures {
    size_t scripts = 0;
    size_t kicks = 0;
    size_t requests = 0;
    size_t hitful = 0;    ///< acquires
    size_t refusals = 0;  ///< acquires
    size_t policies = 0;  ///< confirmed
    size_t restarts = 0;  ///< of the driver
    size_t packets = 0;   ///< looked up
  };
  std::vector<Breach> breaches;
  Figures figures;
  /// What this driver and this run give no occasion to judge, a clause each.
  std::vector<std::string> notJudged;

  bool passed() const { return breaches.empty(); }
};
std::string text(Report const& report);

using DriverMaker = std::function<std::unique_ptr<DriverUnderTest>()>;

Report proveDriver(DriverMaker const& make, Options const& options = {});
/// Plays one script, one event per line, as reports show them. Throws std::invalid_argument on a line that says
/// nothing known.
Report replay(DriverMaker const& make, std::vector<std::string> const& script,
              Options const& options = {});

}  // namespace Naxel::Testing

/// What a shared object that holds a driver defines, for the program naxel-conformance: a new one that the caller
/// deletes.
extern "C" NAXEL_EXPORT Naxel::Testing::DriverUnderTest* naxelDriverUnderTest();
