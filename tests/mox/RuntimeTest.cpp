// The activity thread, tracing and assertions.

#include "mox/Activity.h"
#include "mox/Assert.h"
#include "support/TraceLog.h"

#include <algorithm>
#include <memory>

#include <gtest/gtest.h>

namespace Mox {
namespace {

/// Due once at a time of the clock; then does what the test asks of it.
class Once : public ActivitySource {
 public:
  Once(Activity& activity, Seconds due, std::function<void()> act)
      : ActivitySource(activity), act_(std::move(act)), due_(due) {}
  bool runPass() override {
    if (due_ < 0 || activity().now() < due_) return false;
    due_ = -1;
    auto const act = act_;  // a copy, because it may destroy this source
    act();
    return true;
  }
  Seconds untilDue() const override {
    return due_ < 0 ? -1 : std::max(0.0, due_ - activity().now());
  }

 private:
  std::function<void()> act_;
  Seconds due_;
};

TEST(ActivityTest, SourcesMayComeAndGoInAPass) {
  ManualClock clock;
  Activity activity(clock);
  std::string log;
  std::unique_ptr<Once> first, second, late;
  first = std::make_unique<Once>(activity, 0, [&] {
    log += "first ";
    second.reset();
    late = std::make_unique<Once>(activity, 0, [&] { log += "late "; });
    first.reset();
  });
  second = std::make_unique<Once>(activity, 0, [] { FAIL() << "gone before its turn"; });
  Once const third(activity, 0, [&] { log += "third "; });
  EXPECT_TRUE(activity.runPass());
  EXPECT_EQ(log, "first third ");  // what comes starts with the next pass
  EXPECT_TRUE(activity.runPass());
  EXPECT_EQ(log, "first third late ");
  EXPECT_FALSE(activity.runPass());
}

TEST(ActivityTest, RunUntilEndsWhenDoneOrWhenNothingCanBecomeDue) {
  ManualClock clock(1000);
  Activity activity(clock);
  EXPECT_TRUE(activity.runUntil([] { return true; }));
  EXPECT_FALSE(activity.runUntil([] { return false; }));
  bool done = false;
  Once source(activity, 1010, [&] { done = true; });
  EXPECT_FALSE(activity.runUntil([&] { return done; }));  // a hand-set clock is not waited for
  clock.nowInc(10);
  EXPECT_TRUE(activity.runUntil([&] { return done; }));

  WallClock wall;
  Activity real(wall);
  bool woken = false;
  Once soon(real, wall.now() + 0.005, [&] { woken = true; });
  EXPECT_TRUE(real.runUntil([&] { return woken; }, 60));
  Once never(real, wall.now() + 1e6, nullptr);
  EXPECT_FALSE(real.runUntil([] { return false; }, 0.005));
}

TEST(Trace, LevelsUpToThatOfTheFacilityAreWrittenAndOthersNotEvaluated) {
  ::Test::TraceLog trace;
  TraceFacility facility{"Fac", 4};
  int evaluated = 0;
  auto const write = [&](int level) {
    if (auto line = facility.line(level)) line << "key:" << ++evaluated << ' ' << 0.5;
  };
  for (int level : {0, 4, 5, 9}) write(level);
  facility.levelIs(-1);
  write(0);
  EXPECT_EQ(trace.lines, "Fac:0:key:1 0.5\nFac:4:key:2 0.5\n");
  EXPECT_EQ(evaluated, 2);
}

TEST(Trace, ASinkMayThrowAndMayReplaceItself) {
  ::Test::TraceLog const before;
  TraceFacility const facility{"Fac"};
  traceSinkIs([](auto const&...) { throw 1; });
  EXPECT_NO_THROW(facility.line(0) << "lost");
  std::string log;
  traceSinkIs([&, text = std::string("kept alive by the call ")](auto const&...) {
    traceSinkIs([&](auto const&, int, std::string const& t) { log += t; });
    log += text;
  });
  facility.line(0) << "one";
  facility.line(0) << "two";
  EXPECT_EQ(log, "kept alive by the call two");
  traceSinkIs(nullptr);
  EXPECT_NO_THROW(facility.line(0) << "dropped");
}

TEST(AssertDeathTest, ABrokenInvariantPrintsItsTextAndPlaceAndAborts) {
  int const one = 1;
  MOX_ASSERT(one == 1);
  EXPECT_DEATH(MOX_ASSERT(one == 2),
               "assertion failed: one == 2 at .*RuntimeTest.cpp:[0-9]+ in .*TestBody");
  EXPECT_DEATH(MOX_ASSERT_TEXT(one == 2, "fixed text"), "assertion failed: fixed text at ");
  // The agent is told before the end, whatever it does with it.
  for (bool throws : {false, true}) {
    assertionHandlerIs([throws](std::string const& line) {
      std::fprintf(stderr, "told: %s|", line.c_str());
      if (throws) throw 1;
      MOX_ASSERT(throws);
    });
    EXPECT_DEATH(MOX_ASSERT_DETAIL(one == 2, "text", "why"),
                 "told: assertion failed: text at .*TestBody.*: why\\|");
  }
  EXPECT_TRUE(assertionHandlerIs(nullptr));
}

}  // namespace
}  // namespace Mox
