// Ownership, tracing and assertions.

#include "mox/Assert.h"
#include "mox/Ptr.h"
#include "support/TraceLog.h"

#include <gtest/gtest.h>

namespace Mox {
namespace {

struct Base : RefCounted {
  explicit Base(int& alive) : alive_(&alive) { ++*alive_; }
  ~Base() override { --*alive_; }
  Ptr<Base> next;

 private:
  int* alive_;
};
struct Derived : Base {
  using Base::Base;
};

static_assert(!std::is_convertible_v<Base*, Ptr<Base>>);

TEST(Ptr, TheLastOwnerDeletes) {
  int alive = 0;
  Ptr<Derived> first = makePtr<Derived>(alive);
  {
    Ptr<Base> base = first;
    Ptr<Base const> const fixed = base;
    Ptr<Base const> const moved = std::move(base);
    EXPECT_EQ(base, nullptr);  // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(dynamicPtrCast<Derived const>(moved), first);
    EXPECT_EQ(dynamicPtrCast<Derived>(makePtr<Base>(alive)), nullptr);
    EXPECT_EQ(first->references(), 3u);
  }
  Ptr<Base> list = std::move(first);
  list->next = makePtr<Base>(alive);
  Ptr<Base>& same = list;
  list = same;
  EXPECT_EQ(list->references(), 1u);
  EXPECT_EQ(alive, 2);
  list = list->next;  // the source dies with what is assigned to
  EXPECT_EQ(list->references(), 1u);
  EXPECT_EQ(alive, 1);
  list = nullptr;
  EXPECT_EQ(alive, 0);
}

TEST(Trace, LevelsUpToThatOfTheFacilityAreWrittenAndOthersNotEvaluated) {
  ::Test::TraceLog trace;
  TraceFacility facility{"Fac", 4};
  int evaluated = 0;
  for (int level : {0, 4, 5, 9})
    if (auto line = facility.line(level)) line << "key:" << ++evaluated << ' ' << 0.5;
  facility.levelIs(-1);
  EXPECT_FALSE(facility.line(0));
  EXPECT_EQ(trace.lines, "Fac:0:key:1 0.5\nFac:4:key:2 0.5\n");
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
