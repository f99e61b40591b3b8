// Timers: when they run, in which order, and what may happen to them while others run.

#include "mox/Trace.h"
#include "obel/TimerWheel.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <random>

#include <gtest/gtest.h>

namespace Obel {
namespace {

/// Writes its name to a log, then does what the test asks of it.
class Timer : public TimerNotifiee {
 public:
  Timer(Mox::Ptr<TimerWheel> wheel, char name, std::string& log)
      : TimerNotifiee(std::move(wheel)), name_(name), log_(log) {}
  void handleExpiry() override {
    EXPECT_LT(earliestExpiry(), 0) << "still armed in its call";
    log_ += name_;
    if (auto const doNow = act) doNow();  // a copy, because it may destroy this timer
  }
  std::function<void()> act;

 private:
  char name_;
  std::string& log_;
};

struct TimerWheelTest : ::testing::Test {
  /// What runs in one pass at the time that the clock shows.
  std::string pass() {
    activity.runPass();
    return std::exchange(log, {});
  }
  Mox::ManualClock clock{1000};
  Mox::Activity activity{clock};
  Mox::Ptr<TimerWheel> wheel = Mox::makePtr<TimerWheel>(activity);
  std::string log;
  Timer a{wheel, 'a', log}, b{wheel, 'b', log}, c{wheel, 'c', log}, d{wheel, 'd', log};
};

TEST_F(TimerWheelTest, TimersRunByExpiryAndThenInTheOrderOfArming) {
  EXPECT_LT(wheel->untilDue(), 0);
  c.earliestExpiryIs(1000);
  b.earliestExpiryIs(990);
  a.earliestExpiryIs(1000);
  d.earliestExpiryIs(1000.5);
  EXPECT_EQ(wheel->untilDue(), 0);
  EXPECT_EQ(pass(), "bca");
  EXPECT_EQ(pass(), "");
  EXPECT_EQ(wheel->untilDue(), 0.5);
  EXPECT_EQ(d.earliestExpiry(), 1000.5);
  clock.nowIs(1000.5);
  EXPECT_EQ(pass(), "d");
  EXPECT_LT(d.earliestExpiry(), 0);
}

TEST_F(TimerWheelTest, ATimerArmedInACallbackRunsInTheNextPass) {
  a.act = [&] {
    if (clock.now() == 1000) a.earliestExpiryIs(0);
    b.earliestExpiryIs(0);
    clock.nowIs(1001);
  };
  c.earliestExpiryIs(1000);
  d.earliestExpiryIs(1001);
  a.earliestExpiryIs(1000);
  EXPECT_EQ(pass(), "ca");
  EXPECT_EQ(wheel->untilDue(), 0);
  EXPECT_EQ(pass(), "ad");  // a arms b anew
  EXPECT_EQ(pass(), "b");
  EXPECT_EQ(pass(), "");
}

TEST_F(TimerWheelTest, ACallbackMayDisarmMoveOrDestroyOthersThatAreDue) {
  auto doomed = std::make_unique<Timer>(wheel, 'x', log);
  auto self = std::make_unique<Timer>(wheel, 's', log);
  a.act = [&] {
    doomed.reset();
    b.earliestExpiryDel();
    c.earliestExpiryIs(999);
  };
  self->act = [&] { self.reset(); };
  a.earliestExpiryIs(1000);
  self->earliestExpiryIs(1000);
  doomed->earliestExpiryIs(1000);
  for (Timer* t : {&b, &c, &d}) t->earliestExpiryIs(1000);
  EXPECT_EQ(pass(), "asd");
  EXPECT_EQ(self, nullptr);
  EXPECT_EQ(pass(), "c");
  // Armed in the pass and destroyed in it again.
  auto brief = std::make_unique<Timer>(wheel, 'x', log);
  a.act = [&] {
    brief->earliestExpiryIs(0);
    d.earliestExpiryIs(0);
  };
  b.act = [&] { brief.reset(); };
  a.earliestExpiryIs(1000);
  b.earliestExpiryIs(1000);
  EXPECT_EQ(pass(), "ab");
  EXPECT_EQ(pass(), "d");
}

TEST_F(TimerWheelTest, AClockThatStepsBackDelaysNothingThatIsDue) {
  a.earliestExpiryIs(clock.now());
  clock.nowIs(400);
  EXPECT_EQ(wheel->untilDue(), 0);
  EXPECT_EQ(pass(), "a");
  a.earliestExpiryIs(wheel->now());
  EXPECT_EQ(wheel->now(), 1000);
  EXPECT_EQ(pass(), "a");
  a.earliestExpiryIs(1003);
  clock.nowIs(900);
  EXPECT_EQ(wheel->untilDue(), 3);
  EXPECT_EQ(pass(), "");
  clock.nowIs(1003);
  EXPECT_EQ(pass(), "a");
}

TEST_F(TimerWheelTest, ACallbackThatThrowsDoesNotStopThePass) {
  Mox::TraceSink const before =
      Mox::traceSinkIs([&](auto const&, int level, auto const&) { log += std::to_string(level); });
  a.act = [] { throw Mox::RangeError("late"); };
  b.act = [] { throw 1; };
  for (Timer* t : {&a, &b, &c}) t->earliestExpiryIs(1);
  EXPECT_EQ(pass(), "a0b0c");
  Mox::traceSinkIs(before);
  a.earliestExpiryIs(1);
  a.act = nullptr;
  EXPECT_EQ(pass(), "a");
}

// Many timers armed, moved, disarmed and destroyed at random, also by their own calls.
TEST_F(TimerWheelTest, RandomOperationsRunTheTimersOfTheModel) {
  std::mt19937 random(7);
  struct Numbered : TimerNotifiee {
    Numbered(Mox::Ptr<TimerWheel> w, std::function<void(Numbered&)> f)
        : TimerNotifiee(std::move(w)), call(std::move(f)) {}
    void handleExpiry() override { call(*this); }
    std::function<void(Numbered&)> call;
    uint64_t armed = 0;
  };
  using Due = std::pair<double, uint64_t>;  // expiry and number of the arming
  std::vector<std::unique_ptr<Numbered>> timers(60);
  std::vector<Due> called;
  uint64_t armings = 0;
  auto const arm = [&](Numbered& t) {
    t.armed = ++armings;
    t.earliestExpiryIs(wheel->now() + random() % 8 - 3);
  };
  for (auto& t : timers)
    t = std::make_unique<Numbered>(wheel, [&](Numbered& self) {
      called.push_back({0, self.armed});
      if (random() % 4 == 0) arm(self);
    });
  for (int round = 0; round < 3000; ++round) {
    for (int i = 0; i < 8; ++i) {
      auto& t = timers[random() % timers.size()];
      if (random() % 3)
        arm(*t);
      else if (random() % 8)
        t->earliestExpiryDel();
      else
        t = std::make_unique<Numbered>(wheel, t->call);
    }
    if (random() % 2) clock.nowInc(random() % 3);
    std::vector<Due> due;
    for (auto const& t : timers)
      if (t->earliestExpiry() >= 0 && t->earliestExpiry() <= clock.now())
        due.push_back({t->earliestExpiry(), t->armed});
    std::sort(due.begin(), due.end());
    called.clear();
    activity.runPass();
    ASSERT_EQ(called.size(), due.size());
    for (size_t i = 0; i < due.size(); ++i) ASSERT_EQ(called[i].second, due[i].second);
  }
}

}  // namespace
}  // namespace Obel
