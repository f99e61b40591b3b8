// Tries of prefixes against a search through a plain set.

#include "routing/TrieGen.h"

#include <random>
#include <set>

#include <gtest/gtest.h>

namespace Routing {
namespace {

using Lumox::AddressFamily;
using Lumox::IpGenPrefix;
using Prefixes = std::vector<IpGenPrefix>;

IpGenPrefix prefix(char const* text) { return Mox::valueFromText<IpGenPrefix>(text); }

/// Collects what a walk hands out, up to a number of prefixes.
struct Collector : TrieGenWalkCallback {
  explicit Collector(TrieGen const* trie = nullptr, size_t most = ~size_t{0})
      : trie_(trie), most_(most) {}
  int handlePrefix(IpGenPrefix const& p) override {
    seen.push_back(p);
    if (trie_) parents.push_back(trie_->findParent(p));
    return seen.size() < most_ ? 1 : 0;
  }
  Prefixes seen, parents;

 private:
  TrieGen const* trie_;
  size_t most_;
};

Prefixes walked(TrieGen const& trie, IpGenPrefix const& root, size_t most = ~size_t{0}) {
  Collector collector(nullptr, most);
  trie.preOrderWalk(root, collector);
  return collector.seen;
}

/// A random prefix; few bits differ, all along the address, so that prefixes nest deeply.
IpGenPrefix some(std::mt19937& random, AddressFamily af) {
  bool const six = af == Lumox::ipv6();
  unsigned const step = six ? 16 : 4;
  uint64_t word[2] = {0, 0};
  for (int i = 0; i < 3; ++i) {
    unsigned const at = random() % 8 * step;
    if (random() % 2) word[at / 64] |= uint64_t{1} << (63 - at % 64);
  }
  auto const length = static_cast<uint8_t>(random() % 9 * step);
  return (six ? IpGenPrefix::v6(word[0], word[1], length)
              : IpGenPrefix::v4(static_cast<uint32_t>(word[0] >> 32), length))
      .masked();
}

IpGenPrefix naiveParent(std::set<IpGenPrefix> const& model, IpGenPrefix const& p,
                        IpGenPrefix const& none) {
  IpGenPrefix const* best = nullptr;
  for (IpGenPrefix const& q : model)
    if (q.length() < p.length() && q.contains(p) && (!best || q.length() > best->length()))
      best = &q;
  return best ? *best : none;
}

TEST(TrieGenTest, ATrieEqualsItsModelUnderRandomRoutes) {
  for (AddressFamily const af : {Lumox::ipv4(), Lumox::ipv6()}) {
    SCOPED_TRACE(af);
    std::mt19937 random(3);
    TrieGen trie("trie", af);
    std::set<IpGenPrefix> model;
    for (int round = 0; round < 1500; ++round) {
      for (unsigned i = random() % 4; i > 0; --i) {
        IpGenPrefix const p = some(random, af);
        // Phases of growth and of shrinking.
        bool const present = random() % 10 < (round / 200 % 2 ? 3u : 8u);
        trie.routeIs(p, present);
        if (present)
          model.insert(p);
        else
          model.erase(p);
      }
      ASSERT_EQ(trie.size(), model.size());
      IpGenPrefix const p = some(random, af);
      ASSERT_EQ(trie.has(p), model.contains(p)) << p;
      ASSERT_EQ(trie.findParent(p), naiveParent(model, p, trie.noParent())) << p;

      Prefixes under;
      for (IpGenPrefix const& q : model)
        if (p.contains(q)) under.push_back(q);
      ASSERT_EQ(walked(trie, p), under) << p;
      if (round % 10) continue;
      Collector collector(&trie);
      trie.preOrderWalk(p, collector);
      ASSERT_EQ(collector.seen, under);
      for (size_t i = 0; i < under.size(); ++i)
        ASSERT_EQ(collector.parents[i], naiveParent(model, under[i], trie.noParent())) << under[i];
    }
  }
}

TEST(TrieGenTest, HostBitsDoNotMakeAPrefixItsOwnParent) {
  TrieGen trie("parents", Lumox::ipv4());
  trie.routeIs(prefix("10.0.0.0/8"), true);
  trie.routeIs(prefix("10.0.0.0/24"), true);
  EXPECT_EQ(trie.findParent(prefix("10.0.0.7/24")), prefix("10.0.0.0/8"));
  EXPECT_EQ(trie.findParent(prefix("10.0.0.7/32")), prefix("10.0.0.0/24"));
  EXPECT_EQ(trie.findParent(prefix("10.9.0.0/8")), trie.noParent());
  EXPECT_EQ(trie.findParent(prefix("::/64")), trie.noParent());
  EXPECT_EQ(trie.noParent().af(), Lumox::ipv6());
  EXPECT_EQ(TrieGen("six", Lumox::ipv6()).noParent().af(), Lumox::ipv4());
}

TEST(TrieGenDeathTest, RoutesOfAnotherFamilyOrWithHostBitsAreBrokenInvariants) {
  TrieGen trie("routes", Lumox::ipv4());
  EXPECT_DEATH(trie.routeIs(prefix("::/0"), true), "assertion failed");
  EXPECT_DEATH(trie.routeIs(prefix("10.0.0.1/24"), true), "assertion failed");
}

}  // namespace
}  // namespace Routing
