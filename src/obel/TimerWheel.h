#pragma once

/// Timers on the activity thread.
///
/// The armed timers stand in a binary heap ordered by expiry and, among equal ones, by the order in
/// which they were armed; each knows its place, so arming, disarming and expiring cost O(log n) of
/// the armed ones, and a timer that is not armed costs nothing. Expiries are exact times, not
/// ticks.
///
/// Timers that only watch over the work of others stand in a heap of their own: nothing comes of them,
/// so a loop that waits for work does not count them (`untilDue()`).
///
/// A pass first takes out all that is due, then calls it in that order. So what is armed by a
/// handler waits for the next pass, even if its time has come, and whatever a handler disarms or
/// arms anew is not called for its old expiry. A handler may run a pass itself; that one calls the
/// rest first.
///
/// Arming does not allocate, so it cannot fail: a timer's place in the heap is reserved when the timer
/// joins the wheel.
///
/// The wheel's time is the largest reading of the clock that it has seen: an expiry set to the
/// present time runs in the next pass, whatever the clock does until then.

#include "mox/Activity.h"
#include "mox/Ptr.h"

#include <array>
#include <vector>

namespace Obel {

class TimerWheel;

/// One timer. It shares ownership of its wheel; destroying it disarms it.
class NAXEL_EXPORT TimerNotifiee {
 public:
  /// What a timer is for: it brings work on, or it only watches.
  enum class Purpose : uint8_t { work, watch };

  /// `wheel` may be null and be given later.
  explicit TimerNotifiee(Mox::Ptr<TimerWheel> wheel, Purpose purpose = Purpose::work);
  TimerNotifiee(TimerNotifiee const&) = delete;
  TimerNotifiee& operator=(TimerNotifiee const&) = delete;
  virtual ~TimerNotifiee();

  Mox::Ptr<TimerWheel> const& timerWheel() const { return wheel_; }
  /// Moves the timer to another wheel with the expiry that it has; null disarms it.
  void timerWheelIs(Mox::Ptr<TimerWheel> wheel);

  /// When handleExpiry() will be called, at the earliest; negative while the timer is not armed.
  Mox::Seconds earliestExpiry() const { return armed() ? expiry_ : -1; }
  /// Arms the timer, or moves it; a negative value disarms it. There must be a wheel.
  void earliestExpiryIs(Mox::Seconds expiry);
  void earliestExpiryDel();
  /// Called on the activity thread; the timer is disarmed before the call and may be armed again in
  /// it, for a later pass.
  virtual void handleExpiry() = 0;

 private:
  friend class TimerWheel;
  bool armed() const { return place_ != notArmed; }

  static constexpr size_t notArmed = ~size_t{0};
  Mox::Ptr<TimerWheel> wheel_;
  Purpose purpose_;
  Mox::Seconds expiry_ = 0;
  uint64_t order_ = 0;
  size_t place_ = notArmed;  // in the wheel's heap, or among those due in the pass that is running
  bool due_ = false;
};

/// The timers of one chip or agent.
class NAXEL_EXPORT TimerWheel : public Mox::RefCounted, public Mox::ActivitySource {
 public:
  explicit TimerWheel(Mox::Activity& activity) : ActivitySource(activity) {}

  /// The largest reading of the clock so far.
  Mox::Seconds now() const;

  bool runPass() override;
  Mox::Seconds untilDue() const override;
  Mox::Seconds untilTimer() const override;

 private:
  friend class TimerNotifiee;
  using Heap = std::vector<TimerNotifiee*>;

  static bool earlier(TimerNotifiee const* a, TimerNotifiee const* b);
  void join();
  void leave() { --members_; }
  void arm(TimerNotifiee& t);
  void disarm(TimerNotifiee& t);
  static void put(Heap& heap, size_t place, TimerNotifiee* t);
  static void siftUp(Heap& heap, size_t place);
  static void siftDown(Heap& heap, size_t place);
  Heap& heapOf(TimerNotifiee const& t) { return heap_[static_cast<size_t>(t.purpose_)]; }
  /// The first of all that are armed; null if there is none.
  TimerNotifiee* first() const;
  Mox::Seconds until(TimerNotifiee const* t) const;

  std::array<Heap, 2> heap_;         // by purpose
  std::vector<TimerNotifiee*> due_;  // of the pass that is running; null where disarmed since
  size_t nextDue_ = 0;
  size_t members_ = 0;  // timers that share this wheel, armed or not
  uint64_t armings_ = 0;
  // Never falls, whatever the clock does.
  mutable Mox::Seconds now_ = 0;
};

}  // namespace Obel
