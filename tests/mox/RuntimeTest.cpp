// The activity thread, tracing and assertions.

#include "mox/Activity.h"
#include "mox/Assert.h"
#include "mox/Trace.h"

#include <algorithm>
#include <memory>

#include <gtest/gtest.h>

namespace Mox {
namespace {

/// Due once at a time of the clock; then does what the test asks of it.
class Once : public ActivitySource {
 public:
  Once(Activity& activity, Seconds due, std::function<void()> act = nullptr)
      : ActivitySource(activity), act_(std::move(act)), due_(due) {}
  bool runPass() override {
    ++passes;
    if (due_ < 0 || activity().now() < due_) return false;
    due_ = -1;
    if (auto const act = act_) act();  // a copy, because it may destroy this source
    return true;
  }
  Seconds untilDue() const override {
    return due_ < 0 ? -1 : std::max(0.0, due_ - activity().now());
  }
  int passes = 0;

 private:
  std::function<void()> act_;
  Seconds due_;
};

TEST(ActivityTest, SourcesMayComeAndGoInAPass) {
  ManualClock clock;
  Activity activity(clock);
  std::unique_ptr<Once> first, second, third, late;
  first = std::make_unique<Once>(activity, 0, [&] {
    second.reset();
    late = std::make_unique<Once>(activity, 0);
    first.reset();
  });
  second = std::make_unique<Once>(activity, 0, [] { FAIL() << "gone before its turn"; });
  third = std::make_unique<Once>(activity, 0);
  EXPECT_TRUE(activity.runPass());
  EXPECT_EQ(third->passes, 1);
  EXPECT_EQ(late->passes, 0);  // starts with the next pass
  EXPECT_TRUE(activity.runPass());
  EXPECT_EQ(third->passes, 2);
  EXPECT_EQ(late->passes, 1);
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
  Once never(real, wall.now() + 1e6);
  EXPECT_FALSE(real.runUntil([] { return false; }, 0.005));
}

struct TraceTest : ::testing::Test {
  TraceTest() {
    before = traceSinkIs([this](TraceFacility const& f, int level, std::string const& text) {
      lines += f.name() + ":" + std::to_string(level) + ":" + text + "\n";
    });
  }
  ~TraceTest() override { traceSinkIs(before); }
  TraceSink before;
  std::string lines;
  TraceFacility facility{"Fac", 4};
};

TEST_F(TraceTest, LevelsUpToThatOfTheFacilityAreWrittenAndOthersNotEvaluated) {
  int evaluated = 0;
  auto const write = [&](int level) {
    if (auto line = facility.line(level)) line << "key:" << ++evaluated << ' ' << 0.5;
  };
  for (int level : {0, 4, 5, 9}) write(level);
  EXPECT_EQ(lines, "Fac:0:key:1 0.5\nFac:4:key:2 0.5\n");
  facility.levelIs(-1);
  write(0);
  EXPECT_EQ(evaluated, 2);
}

TEST_F(TraceTest, ASinkMayThrowAndMayReplaceItself) {
  traceSinkIs([](auto const&...) { throw 1; });
  EXPECT_NO_THROW(facility.line(0) << "lost");
  std::string second;
  traceSinkIs([&, text = std::string("kept alive by the call")](auto const&...) {
    traceSinkIs([&](TraceFacility const&, int, std::string const& t) { second += t; });
    lines += text;
  });
  facility.line(0) << "one";
  facility.line(0) << "two";
  EXPECT_EQ(lines, "kept alive by the call");
  EXPECT_EQ(second, "two");
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
