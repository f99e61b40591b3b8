#include "obel/TimerWheel.h"

#include "mox/Trace.h"

#include <algorithm>

namespace Obel {

TimerNotifiee::~TimerNotifiee() { earliestExpiryDel(); }

void TimerNotifiee::earliestExpiryIs(Mox::Seconds expiry) {
  wheel_
      ->now();  // so that a clock that steps back cannot delay an expiry set to its present reading
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

void TimerWheel::arm(TimerNotifiee& t) {
  t.order_ = ++armings_;
  t.waiting_ = running_;
  if (!running_) return insert(t);
  next_.push_back(&t);
  t.place_ = next_.size() - 1;
}

void TimerWheel::insert(TimerNotifiee& t) {
  heap_.push_back(&t);
  t.place_ = heap_.size() - 1;
  siftUp(t.place_);
}

void TimerWheel::disarm(TimerNotifiee& t) {
  size_t const place = t.place_;
  t.place_ = TimerNotifiee::notArmed;
  std::vector<TimerNotifiee*>& from = t.waiting_ ? next_ : heap_;
  TimerNotifiee* const last = from.back();
  from.pop_back();
  if (last == &t) return;
  from[place] = last;
  last->place_ = place;
  if (t.waiting_) return;
  siftUp(place);
  siftDown(last->place_);
}

bool TimerWheel::runPass() {
  Mox::Ptr<TimerWheel> const alive(references() > 0 ? this : nullptr);
  Mox::Seconds const present = now();
  bool worked = false;
  running_ = true;
  while (!heap_.empty() && heap_.front()->expiry_ <= present) {
    TimerNotifiee* const t = heap_.front();
    disarm(*t);
    worked = true;
    try {
      t->handleExpiry();
    } catch (std::exception const& e) {
      if (auto line = Mox::moxTrace().line(0)) line << "TimerWheel: a timer threw: " << e.what();
    } catch (...) {
      if (auto line = Mox::moxTrace().line(0)) line << "TimerWheel: a timer threw";
    }
  }
  running_ = false;
  for (TimerNotifiee* t : next_) {
    t->waiting_ = false;
    insert(*t);
  }
  next_.clear();
  return worked;
}

Mox::Seconds TimerWheel::untilDue() const {
  if (heap_.empty()) return -1;
  return std::max(0.0, heap_.front()->expiry_ - now());
}

}  // namespace Obel
