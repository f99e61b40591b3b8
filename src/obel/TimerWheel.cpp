#include "obel/TimerWheel.h"

#include "mox/Assert.h"
#include "mox/KeepAlive.h"
#include "mox/Trace.h"

#include <algorithm>

namespace Obel {

TimerNotifiee::TimerNotifiee(Mox::Ptr<TimerWheel> wheel, Purpose purpose)
    : wheel_(std::move(wheel)), purpose_(purpose) {
  if (wheel_) wheel_->join();
}

TimerNotifiee::~TimerNotifiee() {
  earliestExpiryDel();
  if (wheel_) wheel_->leave();
}

void TimerNotifiee::timerWheelIs(Mox::Ptr<TimerWheel> wheel) {
  // The new wheel first: it may lack the memory, and then the timer stays armed where it is.
  if (wheel) wheel->join();
  Mox::Seconds const expiry = earliestExpiry();
  earliestExpiryDel();
  if (wheel_) wheel_->leave();
  wheel_ = std::move(wheel);
  if (wheel_) earliestExpiryIs(expiry);
}

void TimerNotifiee::earliestExpiryIs(Mox::Seconds expiry) {
  // Written so that a time that is no number disarms as well.
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

void TimerWheel::put(Heap& heap, size_t place, TimerNotifiee* t) {
  heap[place] = t;
  t->place_ = place;
}

void TimerWheel::siftUp(Heap& heap, size_t place) {
  TimerNotifiee* const t = heap[place];
  for (; place > 0 && earlier(t, heap[(place - 1) / 2]); place = (place - 1) / 2)
    put(heap, place, heap[(place - 1) / 2]);
  put(heap, place, t);
}

void TimerWheel::siftDown(Heap& heap, size_t place) {
  TimerNotifiee* const t = heap[place];
  for (;;) {
    size_t child = 2 * place + 1;
    if (child >= heap.size()) break;
    if (child + 1 < heap.size() && earlier(heap[child + 1], heap[child])) ++child;
    if (!earlier(heap[child], t)) break;
    put(heap, place, heap[child]);
    place = child;
  }
  put(heap, place, t);
}

void TimerWheel::join() {
  // Ahead of the need, so that many timers one by one do not each copy all.
  for (Heap& heap : heap_)
    if (heap.capacity() <= members_) heap.reserve(2 * members_ + 8);
  ++members_;
}

void TimerWheel::arm(TimerNotifiee& t) {
  // A timer that is armed anew stands behind the others of its time, as one that is armed for the first
  // time does.
  t.order_ = ++armings_;
  Heap& heap = heapOf(t);
  heap.push_back(&t);
  t.place_ = heap.size() - 1;
  siftUp(heap, t.place_);
}

void TimerWheel::disarm(TimerNotifiee& t) {
  size_t const place = t.place_;
  t.place_ = TimerNotifiee::notArmed;
  // The pass that is running finds the empty place and calls nobody, also where the timer is destroyed.
  if (t.due_) {
    due_[place] = nullptr;
    t.due_ = false;
    return;
  }
  Heap& heap = heapOf(t);
  TimerNotifiee* const last = heap.back();
  heap.pop_back();
  if (last == &t) return;
  put(heap, place, last);
  // The last timer may belong above or below the place that has become free.
  siftUp(heap, place);
  siftDown(heap, last->place_);
}

TimerNotifiee* TimerWheel::first() const {
  TimerNotifiee* t = nullptr;
  for (Heap const& heap : heap_)
    if (!heap.empty() && (!t || earlier(heap.front(), t))) t = heap.front();
  return t;
}

bool TimerWheel::runPass() {
  auto const alive = Mox::keepAlive(this);
  Mox::Seconds const present = now();
  try {
    // Room for everything that can be due, before any timer leaves its heap: one that was taken out and not
    // written down would never expire.
    due_.reserve(due_.size() + heap_[0].size() + heap_[1].size());
  } catch (std::bad_alloc const&) {
    return true;  // the next pass finds everything as it is
  }
  for (TimerNotifiee* t = first(); t && t->expiry_ <= present; t = first()) {
    disarm(*t);
    t->place_ = due_.size();
    t->due_ = true;
    due_.push_back(t);
  }
  bool const worked = nextDue_ < due_.size();
  // The position belongs to the wheel and not to this call: a pass that a handler runs takes the rest, and
  // this one then finds nothing.
  while (nextDue_ < due_.size()) {
    TimerNotifiee* const t = due_[nextDue_++];
    if (!t) continue;
    // Before the call, so that the handler may arm it anew or destroy it.
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

Mox::Seconds TimerWheel::until(TimerNotifiee const* t) const {
  if (nextDue_ < due_.size()) return 0;
  return t ? std::max(0.0, t->expiry_ - now()) : -1;
}

Mox::Seconds TimerWheel::untilDue() const {
  Heap const& work = heap_[static_cast<size_t>(TimerNotifiee::Purpose::work)];
  return until(work.empty() ? nullptr : work.front());
}

Mox::Seconds TimerWheel::untilTimer() const { return until(first()); }

}  // namespace Obel
