// Ownership by intrusive counts.

#include "mox/Ptr.h"

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

}  // namespace
}  // namespace Mox
