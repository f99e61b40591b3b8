#include "obel/TimerWheel.h"

#include "mox/Assert.h"
#include "mox/KeepAlive.h"
#include "mox/Trace.h"

#include <algorithm>

namespace Obel {

TimerNotifiee::TimerNotifiee(Mox::Ptr<TimerWheel> wheel) : wheel_(std::move(wheel)) {
  if (wheel_) wheel_->join();
}

TimerNotifiee::~TimerNotifiee() {
  earliestExpiryDel();
  if (wheel_) wheel_->leave();
}

void TimerNotifiee::timerWheelIs(Mox::Ptr<TimerWheel> wheel) {
  if (wheel) wheel->join();
  Mox::Seconds const expiry = earliestExpiry();
  earliestExpiryDel();
  if (wheel_) wheel_->leave();
  wheel_ = std::move(wheel);
  if (wheel_) earliestExpiryIs(expiry);
}

void TimerNotifiee::earliestExpiryIs(Mox::Seconds expiry) {
  if (!(expiry >= 0)) return earliestExpiryDel();
  MOX_ASSERT(wheel_);
  // So that a clock that steps back cannot delay an expiry set to its present reading.
  wheel_->now();
  earliestExpiryDel();
  expiry_ = expiry;
  wheel_->arm(*this);
}

void TimerNotifiee::earliestExpiryDel() {
  if (armed()) wheel_->disarm(*this);
}

Mox::Seconds TimerWheel::now() const {
  now_ = std::max(now_, activity().now());
  return now_;
}

bool TimerWheel::earlier(TimerNotifiee const* a, TimerNotifiee const* b) {
  return a->expiry_ != b->expiry_ ? a->expiry_ < b->expiry_ : a->order_ < b->order_;
}

void TimerWheel::put(size_t place, TimerNotifiee* t) {
  heap_[place] = t;
  t->place_ = place;
}

void TimerWheel::siftUp(size_t place) {
  TimerNotifiee* const t = heap_[place];
  for (; place > 0 && earlier(t, heap_[(place - 1) / 2]); place = (place - 1) / 2)
    put(place, heap_[(place - 1) / 2]);
  put(place, t);
}

void TimerWheel::siftDown(size_t place) {
  TimerNotifiee* const t = heap_[place];
  for (;;) {
    size_t child = 2 * place + 1;
    if (child >= heap_.size()) break;
    if (child + 1 < heap_.size() && earlier(heap_[child + 1], heap_[child])) ++child;
    if (!earlier(heap_[child], t)) break;
    put(place, heap_[child]);
    place = child;
  }
  put(place, t);
}

void TimerWheel::join() {
  // Ahead of the need, so that many timers one by one do not each copy all.
  if (heap_.capacity() <= members_) heap_.reserve(2 * members_ + 8);
  ++members_;
}

void TimerWheel::arm(TimerNotifiee& t) {
  t.order_ = ++armings_;
  heap_.push_back(&t);
  t.place_ = heap_.size() - 1;
  siftUp(t.place_);
}

void TimerWheel::disarm(TimerNotifiee& t) {
  size_t const place = t.place_;
  t.place_ = TimerNotifiee::notArmed;
  if (t.due_) {
    due_[place] = nullptr;
    t.due_ = false;
    return;
  }
  TimerNotifiee* const last = heap_.back();
  heap_.pop_back();
  if (last == &t) return;
  put(place, last);
  siftUp(place);
  siftDown(last->place_);
}

bool TimerWheel::runPass() {
  auto const alive = Mox::keepAlive(this);
  Mox::Seconds const present = now();
  try {
    due_.reserve(due_.size() + heap_.size());
  } catch (std::bad_alloc const&) {
    return true;  // the next pass finds everything as it is
  }
  while (!heap_.empty() && heap_.front()->expiry_ <= present) {
    TimerNotifiee* const t = heap_.front();
    disarm(*t);
    t->place_ = due_.size();
    t->due_ = true;
    due_.push_back(t);
  }
  bool const worked = nextDue_ < due_.size();
  while (nextDue_ < due_.size()) {
    TimerNotifiee* const t = due_[nextDue_++];
    if (!t) continue;
    disarm(*t);
    try {
      t->handleExpiry();
    } catch (std::exception const& e) {
      if (auto line = Mox::moxTrace().line(0)) line << "TimerWheel: a timer threw: " << e.what();
    } catch (...) {
      if (auto line = Mox::moxTrace().line(0)) line << "TimerWheel: a timer threw";
    }
  }
  due_.clear();
  nextDue_ = 0;
  return worked;
}

Mox::Seconds TimerWheel::untilDue() const {
  if (nextDue_ < due_.size()) return 0;
  if (heap_.empty()) return -1;
  return std::max(0.0, heap_.front()->expiry_ - now());
}

}  // namespace Obel
