#pragma once

/// The activity thread: a loop of passes over the sources of deferred work (the timer wheels), and
/// the clock that it goes by.

#include "mox/Export.h"
#include "mox/Text.h"

#include <functional>
#include <vector>

namespace Mox {

/// Tells the time of day in seconds since 1970-01-01 UTC.
class NAXEL_EXPORT Clock {
 public:
  virtual ~Clock();
  virtual Seconds now() const = 0;
};

/// The machine's clock. It can be stepped, also backward.
class NAXEL_EXPORT WallClock : public Clock {
 public:
  Seconds now() const override;
};

/// A clock that stands still until it is set.
class NAXEL_EXPORT ManualClock : public Clock {
 public:
  explicit ManualClock(Seconds now = 1000.0) : now_(now) {}
  Seconds now() const override { return now_; }
  /// May go back, as a machine's clock can.
  void nowIs(Seconds now) { now_ = now; }
  void nowInc(Seconds by) { now_ += by; }

 private:
  Seconds now_;
};

class Activity;

/// Something that has work to do in a pass of the activity thread. Registered for its lifetime; the
/// activity must outlive it.
class NAXEL_EXPORT ActivitySource {
 public:
  explicit ActivitySource(Activity& activity);
  ActivitySource(ActivitySource const&) = delete;
  ActivitySource& operator=(ActivitySource const&) = delete;
  virtual ~ActivitySource();

  Activity& activity() const { return activity_; }

  /// Does what is due. Returns true if there was anything.
  virtual bool runPass() = 0;
  /// Seconds until there is something due that brings work on, 0 if there is already, negative for never.
  virtual Seconds untilDue() const = 0;
  /// The same with what only watches over the work, such as a timer that tells of silence.
  virtual Seconds untilTimer() const { return untilDue(); }

 private:
  Activity& activity_;
};

/// The loop. One per thread; everything that it calls runs on that thread.
class NAXEL_EXPORT Activity {
 public:
  /// `clock` must outlive the activity.
  explicit Activity(Clock const& clock) : clock_(clock) {}
  Activity(Activity const&) = delete;
  Activity& operator=(Activity const&) = delete;

  Clock const& clock() const { return clock_; }
  Seconds now() const { return clock_.now(); }

  /// One pass over all sources. Returns true if any of them had work. Not from within a notification of an
  /// entity, whose writer is in the middle of a step; a timer's handler may run one.
  bool runPass();
  /// Seconds until the next pass is wanted if nothing happens before, negative for never: how long a
  /// thread with a loop of its own may sleep.
  Seconds untilTimer() const;
  /// Passes until none has work that is due now; at most `maxPasses`. For the hand-set clock.
  /// Returns true if it came to rest.
  bool runUntilIdle(size_t maxPasses = 1000000);
  /// Passes until `done()`; sleeps while nothing is due. Returns false when nothing is left that could
  /// ever become due and bring work on, or after `timeout` seconds of the machine's steady clock. With a
  /// hand-set clock, waiting for a later time returns false at once.
  bool runUntil(std::function<bool()> const& done, Seconds timeout = 1e9);

 private:
  friend class ActivitySource;

  Clock const& clock_;
  std::vector<ActivitySource*> sources_;
};

}  // namespace Mox
