#include "support/Simulator.h"

#include "naxel/types/NaxelTrace.h"
#include "support/AllocationFaults.h"
#include "support/Verbs.h"

#include <stdexcept>

namespace Test {

using namespace Naxel;

Simulator::Simulator(ScriptRun& run)
    : run_(run),
      sinkBefore_(Mox::traceSinkIs({})),
      wheel_(Mox::makePtr<Obel::TimerWheel>(activity_)) {
  AllocationFaults::failAt(0);
  strikesBefore_ = AllocationFaults::strikes();
  for (uint8_t i = 0; i < 2; ++i) chips_[i] = std::make_unique<SimChip>(i, wheel_, run);
}

Simulator::~Simulator() {
  naxelTrace().levelIs(0);
  Mox::traceSinkIs(sinkBefore_);
}

bool Simulator::step() {
  bool busy = false;
  {
    AllocationFaults::Scope const counted(true);
    busy = activity_.runPass();
  }
  for (auto const& chip : chips_) {
    busy = chip->tick() || busy;
    chip->checkRunning();
  }
  return busy;
}

void Simulator::settle() {
  // A kick takes tens of steps, a slow driver some hundreds.
  for (int i = 0; i < 20000; ++i)
    if (!step()) {
      for (auto const& chip : chips_) chip->checkAtRest();
      return;
    }
  if (run_.differences.empty()) differ("nothing comes to rest");
}

void Simulator::throwingIs(bool on) {
  Mox::traceSinkIs(on ? Mox::TraceSink([](auto const&, int, std::string const&) {
    throw std::runtime_error("a sink's own trouble");
  })
                      : Mox::TraceSink());
  for (auto const& chip : chips_) chip->throwingIs(on);
}

void Simulator::execute(std::string const& line) {
  bool const ofChip = line.starts_with("0 ") || line.starts_with("1 ");
  std::string const text = ofChip ? line.substr(2) : line;
  Verb const* const verb = Naxel::Testing::verbOf(allVerbs(), text);
  auto const* const edit = Naxel::Testing::verbOf(Naxel::Testing::allEdits(), text);
  if ((!verb && !edit) || (verb && verb->forAll) == ofChip)
    throw std::invalid_argument("unknown event: " + line);
  std::string const pattern = edit ? edit->pattern : verb->pattern;
  auto const name = Naxel::Testing::nameOfPattern(pattern).size();
  SimChip& chip = *chips_[ofChip && line[0] == '1'];
  Event event{{{std::istringstream(text.substr(name)), std::istringstream(pattern.substr(name))},
               chip.acls(),
               chip.capability(),
               chip.params()},
              *this,
              chip};
  try {
    edit ? edit->apply(event) : verb->apply(event);
  } catch (Event::Nothing const&) {
  } catch (Mox::RangeError const&) {  // some types refuse wrong values themselves
  }
  if (std::string_view(edit ? edit->group : verb->group) == "edit") ++run_.figures.edits;
}

void Simulator::finish() {
  AllocationFaults::failAt(0);
  run_.figures.faults = AllocationFaults::strikes() - strikesBefore_;
  throwingIs(false);
  for (auto const& chip : chips_) {
    chip->driver().options() = SoftChip::Options();
    if (!chip->isUp() || chip->isStale()) chip->rootUp(false);
    chip->request(NaxelKickRequest::naxelStart);
    settle();
  }
}

}  // namespace Test
