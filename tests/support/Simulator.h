#pragma once

/// A world in one process, all of it commanded by a script: an agent that edits the configuration of
/// two chips and kicks their pipelines, the drivers of both, the clock, and faults. The same script
/// always does the same. SimChip.h says what is checked on the way.
///
/// A script has one event per line; Verbs.cpp lists them, but those that edit the
/// configuration, which stand in naxel/testing/Edits.cpp. Lines that begin with the number of a chip, 0 or 1,
/// are about that chip. An event that makes no sense where it stands, such as an edit of a rule that is not
/// there, does nothing, so that a script stays valid when lines are taken out of it. Some that do not explain
/// themselves:
///
///   set ACL INDEX RULE FILTER      the rule as in addRules(), under this index
///   recreate, swap                 the rule is another object; two rules change filters
///   index, stray                   an index for a rule of the ACL; for one that it does not have
///   prefix ... +P|-P|+!P|-!P|-#N   one member of a list, in place; #N is the N-th
///   share ... ...                  the second side gets the list object of the first
///   oversize ACL N                 N rules of one port each, in the place of those of before
///   undo N                         back to what the last kick but N has read
///   kick / request                 runs until everything rests, or does not
///   rekick-at, down-at             from within the notification
///   up-fresh                       over a new RootConfig and RootStatus
///   restart kept|lost [POLICY]     the driver, with its answers or without, with a policy of its own
///   replace capability|status      the agent's entity
///   pass N / run                   N steps of all; until everything rests
///   clock SECONDS                  forth or back
///   throwing on|off                watchers and a trace sink that throw
///   alloc N                        the N-th allocation of the library from now on fails

#include "mox/Trace.h"
#include "naxel/testing/Script.h"
#include "support/SimChip.h"
#include "support/Vocabulary.h"

#include <array>
#include <functional>

namespace Test {

using Naxel::Testing::Script;
using Naxel::Testing::scriptsOf;
using Naxel::Testing::textOf;

class Simulator {
 public:
  explicit Simulator(ScriptRun& run);
  ~Simulator();

  /// Throws std::invalid_argument for a line that says nothing known.
  void execute(std::string const& line);
  /// All faults and limits off; a last kick for each chip, which has to end.
  void finish();

  /// One step of pipelines and drivers; false if there was nothing to do.
  bool step();
  /// Steps until everything rests, and looks whether that is as it should be.
  void settle();
  void throwingIs(bool on);
  Mox::ManualClock& clock() { return clock_; }
  void differ(std::string const& what) { run_.differences += what + "\n"; }

 private:
  ScriptRun& run_;
  uint64_t strikesBefore_ = 0;
  Mox::TraceSink sinkBefore_;
  Mox::ManualClock clock_;
  Mox::Activity activity_{clock_};
  Mox::Ptr<Obel::TimerWheel> wheel_;
  std::array<std::unique_ptr<SimChip>, 2> chips_;
};

/// A script of about so many events, and the settings that it begins with; that of a seed is of 60.
Script randomScript(Dice& dice, size_t events);
Script randomScript(uint64_t seed);

/// Runs a script to its end. What is left over afterwards counts as a difference too.
ScriptRun runScript(Script const& script);

/// Takes out of a failing script what it fails without. Each attempt runs in a process of its own,
/// so that it may crash.
Script shrink(Script best);

/// Runs something in a process of its own. False where that says so, throws or crashes.
bool succeedsApart(std::function<bool()> const& run);

}  // namespace Test
