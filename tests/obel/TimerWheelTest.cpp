// Timers and the activity thread: when they run, in which order, and what may happen to them while others run.

#include "obel/TimerWheel.h"
#include "support/TraceLog.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <random>
#include <set>

#include <gtest/gtest.h>

namespace Obel {
namespace {

using Mox::Seconds;

/// Does what the test asks of it.
class Timer : public TimerNotifiee {
 public:
  Timer(Mox::Ptr<TimerWheel> wheel, std::function<void()> act, Purpose purpose = Purpose::work)
      : TimerNotifiee(std::move(wheel), purpose), act_(std::move(act)) {}
  void handleExpiry() override {
    EXPECT_LT(earliestExpiry(), 0) << "still armed in its call";
    auto const act = act_;  // a copy, because it may destroy this timer
    act();
  }

 private:
  std::function<void()> act_;
};

struct TimerWheelTest : ::testing::Test {
  Mox::ManualClock clock{1000};
  Mox::Activity activity{clock};
  Mox::Ptr<TimerWheel> wheel = Mox::makePtr<TimerWheel>(activity);
};

// A pass takes out what is due, by expiry and then in the order of arming, and calls what is not armed
// anew, disarmed or destroyed before its turn. Calls do all that to any timer, turn the clock and run
// passes of their own, and some throw.
TEST_F(TimerWheelTest, RandomOperationsRunTheTimersOfTheModel) {
  struct Arming {
    Seconds expiry;
    uint64_t number;
    size_t timer;
    auto operator<=>(Arming const&) const = default;
  };
  std::mt19937 random(7);
  ::Test::TraceLog trace;
  std::vector<std::unique_ptr<Timer>> timers(40);
  std::set<Arming> armed;
  std::vector<Arming> due;  // of the passes that run, in the order of their calls
  uint64_t armings = 0;
  Seconds latest = clock.now();  // which the wheel has seen
  auto const isWatch = [](size_t n) { return n % 4 == 0; };
  auto const observed = [&] { return latest = std::max(latest, clock.now()); };
  auto const turnClock = [&] {
    clock.nowIs(clock.now() + random() % 5 - 1);
    if (random() % 2) {
      EXPECT_EQ(wheel->now(), observed());
    }
  };
  auto const pass = [&](bool nested) {
    observed();
    bool const any = !due.empty() || (!armed.empty() && armed.begin()->expiry <= latest);
    while (!armed.empty() && armed.begin()->expiry <= latest)
      due.push_back(armed.extract(armed.begin()).value());
    EXPECT_EQ(activity.runPass() || nested, any || nested);
    EXPECT_TRUE(due.empty()) << due.size() << " not called";
  };
  std::function<void(size_t)> called;
  auto const change = [&] {
    if (random() % 8 == 0) turnClock();
    size_t const n = random() % timers.size();
    auto const isOfTimer = [&](Arming const& a) { return a.timer == n; };
    std::erase_if(armed, isOfTimer);
    std::erase_if(due, isOfTimer);
    auto const what = random() % 8;
    if (what == 0 || !timers[n])
      timers[n] = std::make_unique<Timer>(
          wheel, [&, n] { called(n); }, isWatch(n) ? Timer::Purpose::watch : Timer::Purpose::work);
    if (what <= 1) return timers[n]->earliestExpiryDel();
    Seconds const expiry = observed() + random() % 8 - 3;
    armed.insert({expiry, ++armings, n});
    timers[n]->earliestExpiryIs(expiry);
    EXPECT_EQ(timers[n]->earliestExpiry(), expiry);
  };
  called = [&](size_t n) {
    ASSERT_FALSE(due.empty());
    EXPECT_EQ(n, due.front().timer);
    due.erase(due.begin());
    for (auto i = random() % 3; i > 0; --i) change();
    if (random() % 16 == 0) pass(true);
    if (random() % 32 == 0) throw Mox::RangeError("late");
    if (random() % 32 == 0) throw 1;
  };
  for (int round = 0; round < 3000 && !HasFailure(); ++round) {
    for (int i = 0; i < 6; ++i) change();
    turnClock();
    pass(false);
    auto const until = [&](auto at) {
      return at != armed.end() ? std::max(0.0, at->expiry - observed()) : -1;
    };
    auto const isWork = [&](Arming const& a) { return !isWatch(a.timer); };
    EXPECT_EQ(wheel->untilDue(), until(std::find_if(armed.begin(), armed.end(), isWork)));
    EXPECT_EQ(wheel->untilTimer(), until(armed.begin()));
  }
  for (std::string const text : {"a timer threw\n", "a timer threw: late\n"})
    EXPECT_NE(trace.lines.find("Mox:0:TimerWheel: " + text), text.npos);
}

TEST_F(TimerWheelTest, SourcesMayComeAndGoInAPass) {
  std::string log;
  auto const source = [&](std::function<void()> act) {
    auto out = std::make_unique<Timer>(Mox::makePtr<TimerWheel>(activity), std::move(act));
    out->earliestExpiryIs(0);
    return out;
  };
  std::unique_ptr<Timer> first, second, late;
  first = source([&] {
    log += "first ";
    second.reset();
    late = source([&] { log += "late "; });
    first.reset();
  });
  second = source([] { FAIL() << "gone before its turn"; });
  auto const third = source([&] { log += "third "; });
  EXPECT_TRUE(activity.runPass());
  EXPECT_EQ(log, "first third ");  // what comes starts with the next pass
  EXPECT_TRUE(activity.runPass());
  EXPECT_EQ(log, "first third late ");
  EXPECT_FALSE(activity.runPass());
}

TEST_F(TimerWheelTest, RunUntilEndsWhenDoneOrWhenNothingCanBecomeDue) {
  bool done = false;
  Timer timer(wheel, [&] { done = true; });
  EXPECT_TRUE(activity.runUntil([] { return true; }));
  EXPECT_FALSE(activity.runUntil([] { return false; }));
  timer.earliestExpiryIs(1010);
  EXPECT_FALSE(activity.runUntil([&] { return done; }));  // a hand-set clock is not waited for
  clock.nowInc(10);
  EXPECT_TRUE(activity.runUntil([&] { return done; }));

  Mox::WallClock wall;
  Mox::Activity real(wall);
  Timer woken(Mox::makePtr<TimerWheel>(real), [&] { done = false; });
  woken.earliestExpiryIs(wall.now() + 0.005);
  EXPECT_TRUE(real.runUntil([&] { return !done; }, 60));
  woken.earliestExpiryIs(wall.now() + 1e6);
  EXPECT_FALSE(real.runUntil([] { return false; }, 0.005));
}

}  // namespace
}  // namespace Obel
