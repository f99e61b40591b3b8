// Ownership by intrusive counts.

#include "mox/Ptr.h"

#include <unordered_set>

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
struct Other : Base {
  using Base::Base;
};

static_assert(!std::is_convertible_v<Base*, Ptr<Base>>);

TEST(Ptr, TheLastOwnerDeletes) {
  int alive = 0;
  Ptr<Derived> first = makePtr<Derived>(alive);
  EXPECT_EQ(first->references(), 1u);
  {
    Ptr<Base> base = first;
    Ptr<Base const> const fixed = base;
    EXPECT_EQ(fixed, first);
    Ptr<Base> moved = std::move(base);
    EXPECT_EQ(base, nullptr);  // NOLINT(bugprone-use-after-move)
    Ptr<Base const> const movedOn = std::move(moved);
    EXPECT_EQ(first->references(), 3u);
    EXPECT_EQ(dynamicPtrCast<Derived const>(movedOn), first);
    EXPECT_EQ(dynamicPtrCast<Derived>(Ptr<Base>(first)), first);
    EXPECT_EQ(dynamicPtrCast<Other>(Ptr<Base>(first)), nullptr);
    EXPECT_EQ(dynamicPtrCast<Derived>(Ptr<Base>()), nullptr);
    EXPECT_EQ((std::unordered_set<Ptr<Base>>{first, first, nullptr}).size(), 2u);
  }
  EXPECT_EQ(first->references(), 1u);
  Ptr<Base> last = std::move(first);
  EXPECT_EQ(alive, 1);
  last = nullptr;
  EXPECT_EQ(alive, 0);
}

TEST(Ptr, AssignmentSurvivesItselfAndItsOwnedSource) {
  int alive = 0;
  Ptr<Base> list = makePtr<Base>(alive);
  list->next = makePtr<Base>(alive);
  Ptr<Base>& same = list;
  list = same;
  EXPECT_EQ(list->references(), 1u);
  list = list->next;  // the source dies with what is assigned to
  EXPECT_EQ(alive, 1);
  EXPECT_EQ(list->references(), 1u);
  EXPECT_FALSE(list->next);
}

}  // namespace
}  // namespace Mox
