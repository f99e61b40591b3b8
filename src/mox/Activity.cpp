#include "mox/Activity.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace Mox {

Clock::~Clock() = default;

Seconds WallClock::now() const {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

ActivitySource::ActivitySource(Activity& activity) : activity_(activity) {
  activity_.sources_.push_back(this);
}

ActivitySource::~ActivitySource() {
  // The place stays, so that a pass that is running now keeps its bearings.
  std::replace(activity_.sources_.begin(), activity_.sources_.end(), this,
               static_cast<ActivitySource*>(nullptr));
}

bool Activity::runPass() {
  bool worked = false;
  size_t const count = sources_.size();  // sources that come in this pass start with the next
  // A source may run a pass itself, and that one closes gaps.
  for (size_t i = 0; i < std::min(count, sources_.size()); ++i)
    if (sources_[i] && sources_[i]->runPass()) worked = true;
  std::erase(sources_, nullptr);
  return worked;
}

bool Activity::runUntilIdle(size_t maxPasses) {
  for (size_t i = 0; i < maxPasses; ++i)
    if (!runPass()) return true;
  return false;
}

bool Activity::runUntil(std::function<bool()> const& done, Seconds timeout) {
  using SteadyClock = std::chrono::steady_clock;
  auto const begin = SteadyClock::now();
  while (!done()) {
    if (runPass()) continue;
    Seconds wait = -1;
    for (ActivitySource const* source : sources_) {
      Seconds const due = source->untilDue();
      if (due >= 0 && (wait < 0 || due < wait)) wait = due;
    }
    Seconds const elapsed = std::chrono::duration<double>(SteadyClock::now() - begin).count();
    bool const canWait = dynamic_cast<ManualClock const*>(&clock_) == nullptr;
    if (wait < 0 || elapsed >= timeout || (wait > 0 && !canWait)) return false;
    std::this_thread::sleep_for(std::chrono::duration<double>(std::min(wait, timeout - elapsed)));
  }
  return true;
}

}  // namespace Mox
