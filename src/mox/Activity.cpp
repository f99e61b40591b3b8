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

namespace {

/// The earlier of two waiting times, of which a negative one is none.
Seconds earlier(Seconds a, Seconds b) { return b >= 0 && (a < 0 || b < a) ? b : a; }

}  // namespace

Seconds Activity::untilTimer() const {
  Seconds wait = -1;
  for (ActivitySource const* source : sources_)
    if (source) wait = earlier(wait, source->untilTimer());
  return wait;
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
    for (ActivitySource const* source : sources_)
      if (source) wait = earlier(wait, source->untilDue());
    Seconds const elapsed = std::chrono::duration<double>(SteadyClock::now() - begin).count();
    // A hand-set clock does not move while this thread sleeps.
    bool const canWait = dynamic_cast<ManualClock const*>(&clock_) == nullptr;
    // Only what brings work on keeps the loop alive. A timer that merely watches would do so for ever.
    if (wait < 0 || elapsed >= timeout || (wait > 0 && !canWait)) return false;
    // Sleeps no longer than until a watching timer is due, which has to run though nothing comes of it.
    wait = std::min(earlier(wait, untilTimer()), timeout - elapsed);
    std::this_thread::sleep_for(std::chrono::duration<double>(wait));
  }
  return true;
}

}  // namespace Mox
