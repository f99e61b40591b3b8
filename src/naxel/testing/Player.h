#pragma once

/// Plays a script: an agent with a pipeline, the driver under test behind a Relay, and a clock that jumps.
///
/// A script has one event per line: the edits of Edits.h, and
///
///   kick                     a kick, and everything that follows from it, until all rests
///   request / cancel         the same without what follows
///   pass N / run             N steps; until all rests
///   until acquire|load|revert   steps until that is asked for, or all rests
///   down / up                the agent's process ends; another one starts over what there is
///   down-at acquire|load|revert   it ends right when the library asks for that
///   restart kept|lost        the driver's process ends and starts; the chip keeps or loses its tables
///   room N                   of ACL entries in the chip, if the driver can play that
///   permit off|on            which policy the agent wants
///
/// An event that makes no sense where it stands does nothing, so a script stays valid when lines are taken out.

#include "naxel/agent/Agent.h"
#include "naxel/testing/Edits.h"
#include "naxel/testing/Judge.h"
#include "naxel/testing/Script.h"

namespace Naxel::Testing {

class Player {
 public:
  Player(DriverMaker const& make, Options const& options, Report::Figures& figures);
  Player(Player const&) = delete;
  Player& operator=(Player const&) = delete;
  ~Player();

  /// Throws std::invalid_argument for a line that says nothing known.
  void play(std::string const& line);
  /// Until all rests; no more than that where a rule has been broken.
  void settle();
  std::optional<Breach> const& breach() const { return judge_.breach(); }

  struct Event : Edit {
    Player& player;
  };
  static std::span<Verb<Event> const> verbs();

  // What the verbs do.
  void request();
  void cancel() const;
  void down() { pipeline_.reset(); }
  void up();
  void downAt(RequestState state) { downAt_ = state; }
  void restart(bool chipKept);
  void room(size_t entries);
  bool step();
  void until(RequestState state);

 private:
  void fall();

  Mox::ManualClock clock_;
  Mox::Activity activity_{clock_};
  Mox::Ptr<Obel::TimerWheel> wheel_;
  Options const& options_;
  Report::Figures& figures_;
  Relay relay_;
  ChipEntities entities_;
  Mox::Ptr<ChipHwCapability> widths_;  // that edits write: the agent's, or none of anybody's
  std::unique_ptr<DriverUnderTest> driver_;
  Judge judge_;
  std::optional<RequestState> downAt_;
  std::unique_ptr<Pipeline> pipeline_;
};

/// Plays all of it, until all rests.
std::optional<Breach> played(DriverMaker const& make, Script const& script, Options const& options,
                             Report::Figures& figures);

/// Scripts that show what is usual, each with one thing in view; and one that is drawn from a seed.
std::vector<Script> fixedScripts();
Script drawnScript(uint64_t seed);

}  // namespace Naxel::Testing
