// Tries of prefixes against a search through a plain set.

#include "routing/TrieGen.h"

#include <random>
#include <set>

#include <gtest/gtest.h>

namespace Routing {
namespace {

using Lumox::AddressFamily;
using Lumox::IpGenPrefix;

/// Collects what a walk hands out, up to a number of prefixes.
struct Collector : TrieGenWalkCallback {
  int handlePrefix(IpGenPrefix const& p) override {
    seen.push_back(p);
    return seen.size() < most;
  }
  size_t most = 0;
  std::vector<IpGenPrefix> seen;
};

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
  return six ? IpGenPrefix::v6(word[0], word[1], length)
             : IpGenPrefix::v4(static_cast<uint32_t>(word[0] >> 32), length);
}

TEST(TrieGenTest, ATrieEqualsItsModelUnderRandomRoutes) {
  for (AddressFamily const af : {Lumox::ipv4(), Lumox::ipv6()}) {
    SCOPED_TRACE(af);
    std::mt19937 random(3);
    TrieGen trie("trie", af);
    std::set<IpGenPrefix> model;
    for (int round = 0; round < 1500; ++round) {
      for (unsigned i = random() % 4; i > 0; --i) {
        IpGenPrefix const p = some(random, af).masked();
        // Phases of growth and of shrinking.
        bool const present = random() % 10 < (round / 200 % 2 ? 3u : 8u);
        trie.routeIs(p, present);
        present ? void(model.insert(p)) : void(model.erase(p));
      }
      ASSERT_EQ(trie.size(), model.size());
      IpGenPrefix const p = some(random, af);  // perhaps with host bits
      ASSERT_EQ(trie.has(p.masked()), model.contains(p.masked())) << p;
      // Those that contain a prefix stand in the order of their lengths.
      IpGenPrefix parent = trie.noParent();
      for (IpGenPrefix const& q : model)
        if (q.length() < p.length() && q.contains(p)) parent = q;
      ASSERT_EQ(trie.findParent(p), parent) << p;

      Collector collector;
      collector.most = 1 + random() % (model.size() + 1);
      trie.preOrderWalk(p, collector);
      std::vector<IpGenPrefix> under;
      for (IpGenPrefix const& q : model)
        if (p.contains(q) && under.size() < collector.most) under.push_back(q);
      ASSERT_EQ(collector.seen, under) << p;
    }
    EXPECT_EQ(
        trie.findParent(af == Lumox::ipv4() ? IpGenPrefix::v6(0, 0, 64) : IpGenPrefix::v4(0, 8)),
        trie.noParent());
  }
}

TEST(TrieGenDeathTest, RoutesOfAnotherFamilyOrWithHostBitsAreBrokenInvariants) {
  TrieGen trie("routes", Lumox::ipv4());
  EXPECT_DEATH(trie.routeIs(IpGenPrefix::v6(0, 0, 0), true), "assertion failed");
  EXPECT_DEATH(trie.routeIs(IpGenPrefix::v4(1, 24), true), "assertion failed");
}

}  // namespace
}  // namespace Routing
