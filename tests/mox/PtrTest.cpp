// Ownership by intrusive counts.

#include "mox/Ptr.h"

#include <unordered_set>

#include <gtest/gtest.h>

namespace Mox {
namespace {

struct Base : RefCounted {
  explicit Base(int& alive) : alive_(&alive) { ++*alive_; }
  ~Base() override { --*alive_; }
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
    Ptr<Base const> fixed = base;
    EXPECT_EQ(first->references(), 3u);
    EXPECT_EQ(fixed, first);
    Ptr<Base> moved = std::move(base);
    EXPECT_EQ(first->references(), 3u);
    EXPECT_EQ(base, nullptr);  // NOLINT(bugprone-use-after-move)
    Ptr<Base const> const movedOn = std::move(moved);
    EXPECT_EQ(first->references(), 3u);
  }
  EXPECT_EQ(first->references(), 1u);
  Ptr<Base> last = std::move(first);
  EXPECT_EQ(alive, 1);
  last = nullptr;
  EXPECT_EQ(alive, 0);
}

TEST(Ptr, AssignmentSurvivesItselfAndItsOwnedSource) {
  struct Node : RefCounted {
    Ptr<Node> next;
  };
  Ptr<Node> list = makePtr<Node>();
  list->next = makePtr<Node>();
  Ptr<Node>& same = list;
  list = same;
  EXPECT_EQ(list->references(), 1u);
  list = list->next;  // the source dies with what is assigned to
  ASSERT_TRUE(list);
  EXPECT_EQ(list->references(), 1u);
  EXPECT_FALSE(list->next);
}

TEST(Ptr, CastsToTheTypeOfTheObjectOrNull) {
  int alive = 0;
  Ptr<Base> const p = makePtr<Derived>(alive);
  EXPECT_EQ(dynamicPtrCast<Derived>(p), p);
  EXPECT_EQ(dynamicPtrCast<Other>(p), nullptr);
  EXPECT_EQ(dynamicPtrCast<Derived const>(Ptr<Base const>(p)), p);
  EXPECT_EQ(dynamicPtrCast<Derived>(Ptr<Base>()), nullptr);
  EXPECT_EQ(p->references(), 1u);
  std::unordered_set<Ptr<Base>> const set = {p, p, nullptr};
  EXPECT_EQ(set.size(), 2u);
}

}  // namespace
}  // namespace Mox
