#include "support/Simulator.h"

#include "naxel/types/NaxelTrace.h"
#include "support/AllocationFaults.h"
#include "support/Verbs.h"

#include <stdexcept>

namespace Test {

using namespace Naxel;

Simulator::Simulator()
    : sinkBefore_(Mox::traceSinkIs({})), wheel_(Mox::makePtr<Obel::TimerWheel>(activity_)) {
  AllocationFaults::failAt(0);
  strikesBefore_ = AllocationFaults::strikes();
  for (uint8_t i = 0; i < 2; ++i)
    chips_[i] = std::make_unique<SimChip>(i, wheel_, figures_, differences_);
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
  for (auto const& chip : chips_) busy = chip->tick() || busy;
  return busy;
}

void Simulator::settle() {
  // A kick takes tens of steps, a slow driver some hundreds.
  for (int i = 0; i < 20000; ++i)
    if (!step()) {
      for (auto const& chip : chips_) chip->checkAtRest();
      return;
    }
  if (differences_.empty()) differences_.push_back("nothing comes to rest");
}

void Simulator::throwingIs(bool on) {
  Mox::traceSinkIs(on ? Mox::TraceSink([](auto const&, int, std::string const&) {
    throw std::runtime_error("a sink's own trouble");
  })
                      : Mox::TraceSink());
  for (auto const& chip : chips_) chip->throwingIs(on);
}

void Simulator::checkRunning() {
  for (auto const& chip : chips_) chip->checkRunning();
}

void Simulator::execute(std::string const& line) {
  bool const ofChip = line.starts_with("0 ") || line.starts_with("1 ");
  Verb const* const verb = verbOf(ofChip ? line.substr(2) : line);
  Event event{*this, *chips_[ofChip && line[0] == '1'], std::istringstream(line)};
  if (!verb || verb->forAll == ofChip) event.unknown();
  event.in.ignore(static_cast<std::streamsize>((ofChip ? 2 : 0) + nameOf(*verb).size()));
  verb->apply(event);
  if (std::string_view(verb->group) == "edit") ++figures_.edits;
}

void Simulator::finish() {
  AllocationFaults::failAt(0);
  figures_.faults = AllocationFaults::strikes() - strikesBefore_;
  throwingIs(false);
  for (auto const& chip : chips_) {
    chip->driver().options() = SoftChip::Options();
    if (!chip->isUp() || chip->isStale()) chip->rootUp(false);
    chip->request(NaxelKickRequest::naxelStart);
    settle();
  }
}

}  // namespace Test
