/// Every world of a kind, and in each of them every packet: fields that differ in two bits only, all
/// lists and range sets that can be written with a few members, two or three rules of them, every
/// label width from none to more than enough. The pipelines keep their history from one rule set to
/// the next.
///
/// The suite takes one rule set of many; NAXEL_EVERY=1 takes all of them.

#include "mox/Trace.h"
#include "softchip/LoadedTables.h"
#include "support/World.h"
#include "verify/Agreement.h"
#include "verify/NaiveLookup.h"
#include "verify/RuleOracle.h"

#include <cstdlib>
#include <set>

#include <gtest/gtest.h>

namespace Test {
namespace {

using namespace Naxel;
using Verify::KeyLayout;

uint64_t every(uint64_t ofSuite) {
  char const* const n = std::getenv("NAXEL_EVERY");
  return n ? std::strtoull(n, nullptr, 10) : ofSuite;
}

/// All prefixes of at most two bits.
std::vector<std::string> const& prefixes() {
  static std::vector<std::string> const all = {"0.0.0.0/0",  "0.0.0.0/1",  "128.0.0.0/1",
                                               "0.0.0.0/2",  "64.0.0.0/2", "128.0.0.0/2",
                                               "192.0.0.0/2"};
  return all;
}

/// All lists of one or two prefixes, and of one or two with an exception.
std::vector<std::string> lists() {
  std::vector<std::string> out;
  auto const& p = prefixes();
  for (size_t i = 0; i < p.size(); ++i) {
    out.push_back(p[i]);
    for (size_t j = 0; j < p.size(); ++j) {
      out.push_back(p[i] + ",!" + p[j]);
      if (j > i) out.push_back(p[i] + "," + p[j]);
      if (j > i && j >= 3) out.push_back(p[i] + "," + p[j] + ",!" + p[j - 2]);
    }
  }
  out.push_back("!0.0.0.0/0");
  return out;
}

/// All sets of one or two ranges within 0..3.
std::vector<std::string> rangeSets() {
  std::vector<std::string> single;
  for (int a = 0; a < 4; ++a)
    for (int b = a; b < 4; ++b) single.push_back(std::to_string(a) + "-" + std::to_string(b));
  std::vector<std::string> out = single;
  for (size_t i = 0; i < single.size(); ++i)
    for (size_t j = i + 1; j < single.size(); ++j) out.push_back(single[i] + "," + single[j]);
  return out;
}

/// Pipelines that differ in label widths, over one configuration.
class Universe {
 public:
  Universe() : sink_(Mox::traceSinkIs({})) {}
  void add(std::function<void(ChipHwCapability&)> const& widths) {
    worlds_.push_back(std::make_unique<World>());
    World& w = *worlds_.back();
    w.acls = acls_;
    widths(*w.capability);
    w.buildRoot();
  }
  ~Universe() {
    Mox::traceSinkIs(sink_);
    EXPECT_GT(successes, 0u);
    std::printf("%llu rule sets, %llu kicks, %llu of them successes\n",
                static_cast<unsigned long long>(ruleSets), static_cast<unsigned long long>(kicks),
                static_cast<unsigned long long>(successes));
  }

  /// `fits(capability)`: whether the widths must do (true) or cannot (false); none if it is close.
  void check(std::string const& rules,
             std::function<std::optional<bool>(ChipHwCapability const&)> const& fits) {
    ++ruleSets;
    acls_->aclDelAll();
    addRules(*acls_, rules);
    for (auto const& world : worlds_) {
      ++kicks;
      bool const success = world->kick() == NaxelProgress::naxelFinishedSuccess;
      auto const must = fits(*world->capability);
      ASSERT_EQ(success, must.value_or(success)) << rules << world->failureText();
      if (!success) continue;
      ++successes;
      PDData const& tables = world->tables();
      ASSERT_EQ(Verify::firstDifference(*acls_, tables), "") << rules << dump(tables);
      if (ruleSets % 64) continue;
      for (Verify::MissYields miss : {Verify::MissYields::nothing, Verify::MissYields::highest})
        literally(tables, KeyLayout::of(tables, miss));
    }
  }

  uint64_t ruleSets = 0;

 private:
  /// The packets one by one through the software chip's two lookups, which keeps the comparison above
  /// honest.
  void literally(PDData const& tables, KeyLayout const& layout) {
    SoftChip::LoadedTables loaded(Mox::Ptr<PDData const>(&tables), layout);
    auto const& [name, acl] = *acls_->acl().begin();
    PDAclKey const key(Lumox::ipv4(), name);
    for (uint64_t src = 0; src < 4; ++src)
      for (uint64_t dst = 0; dst < 4; ++dst)
        for (uint16_t sport = 0; sport < 5; ++sport)
          for (uint16_t dport = 0; dport < 5; ++dport) {
            Verify::Packet p;
            p.src = {src << 62, 0};
            p.dst = {dst << 62, 0};
            p.sport = sport;
            p.dport = dport;
            auto const expected = Verify::firstMatch(*acl, p);
            auto const naive = Verify::naiveLookup(tables, layout, key, p);
            ASSERT_EQ(naive, loaded.lookup(key, p)) << p;
            ASSERT_EQ(naive.kind == Verify::Verdict::Kind::rule, expected.has_value()) << p;
            ASSERT_EQ(naive.rule, expected.value_or(naive.rule)) << p;
          }
  }

  Mox::TraceSink sink_;
  Mox::Ptr<AclConfigColl> acls_ = Mox::makePtr<AclConfigColl>(Obel::ChipId(0));
  std::vector<std::unique_ptr<World>> worlds_;
  uint64_t kicks = 0;
  uint64_t successes = 0;
};

/// How many different non-empty sets of lists the points 0..3 and beyond lie in.
size_t pieces(std::vector<std::function<bool(unsigned)>> const& lists) {
  std::set<std::vector<bool>> groups;
  for (unsigned point = 0; point < 4; ++point) {
    std::vector<bool> group;
    for (auto const& list : lists) group.push_back(list(point));
    groups.insert(group);
  }
  groups.erase(std::vector<bool>(lists.size(), false));
  return groups.size();
}
/// What the number of pieces says about the width: one value is kept for misses. A prefix may need a
/// label without having an address of its own, all of them lying in longer prefixes; then up to
/// `spare` more are needed.
std::optional<bool> fit(size_t pieces, uint8_t width, size_t spare) {
  size_t const labels = (size_t{1} << width) - 1;
  if (width == 0 || pieces + spare <= labels) return true;
  if (pieces > labels) return false;
  return std::nullopt;
}

std::function<bool(unsigned)> listPredicate(std::string const& text) {
  auto const filter = Mox::makePtr<RuleConfig>("r");
  fillFilter(*filter, "src " + text);
  auto const set = Verify::AddressSet(filter->ruleFilter()->source().get(), Lumox::ipv4());
  return [set](unsigned point) { return set.contains({uint64_t{point} << 62, 0}); };
}
std::function<bool(unsigned)> rangePredicate(std::string const& text) {
  auto const rule = Mox::makePtr<RuleConfig>("r");
  fillFilter(*rule, "dport " + text);
  return [rule](unsigned point) {
    for (auto const& r : rule->ruleFilter()->dportRange())
      if (r.rangeStart() <= point && point <= r.rangeEnd()) return true;
    return false;
  };
}

TEST(Exhaustive, PrefixListsOfTwoBits) {
  Universe all;
  PrefixXformKey const source(Lumox::ipv4(), true);
  for (uint8_t width : std::initializer_list<uint8_t>{1, 2, 3, 16})
    all.add([&](ChipHwCapability& c) { c.prefixXformWidthIs(source, width); });
  auto const texts = lists();
  std::vector<std::function<bool(unsigned)>> predicates;
  for (auto const& text : texts) predicates.push_back(listPredicate(text));
  uint64_t n = 0;
  for (size_t i = 0; i < texts.size(); ++i)
    for (size_t j = 0; j < texts.size(); ++j) {
      if (n++ % every(40) || testing::Test::HasFatalFailure()) continue;
      all.check("a 10 r src " + texts[i] + "\na 20 s src " + texts[j] + " drop\n",
                [&](ChipHwCapability const& c) {
                  return fit(pieces({predicates[i], predicates[j]}), c.prefixXformWidth(source), 2);
                });
    }
}

TEST(Exhaustive, PortRangesOfTwoBits) {
  Universe all;
  for (uint8_t width : std::initializer_list<uint8_t>{0, 1, 2, 3, 16})
    all.add([&](ChipHwCapability& c) { c.rangeXformWidthIs(RangeSetType::dstPort, width); });
  auto const texts = rangeSets();
  std::vector<std::function<bool(unsigned)>> predicates;
  for (auto const& text : texts) predicates.push_back(rangePredicate(text));
  uint64_t n = 0;
  for (size_t i = 0; i < texts.size(); ++i)
    for (size_t j = 0; j < texts.size(); ++j)
      for (size_t k : {i, (i + 3 * j + 7) % texts.size()}) {
        if (n++ % every(20) || testing::Test::HasFatalFailure()) continue;
        all.check("a 10 r dport " + texts[i] + "\na 20 s dport " + texts[j] +
                      " drop\na 30 t dport " + texts[k],
                  [&](ChipHwCapability const& c) {
                    return fit(pieces({predicates[i], predicates[j], predicates[k]}),
                               c.rangeXformWidth(RangeSetType::dstPort), 0);
                  });
      }
}

TEST(Exhaustive, PairsOfPortsAndOfAddressesWithAndWithoutCombinations) {
  Universe all;
  for (uint8_t combo : std::initializer_list<uint8_t>{0, 1, 2, 3, 16})
    for (uint8_t side : std::initializer_list<uint8_t>{0, 2, 16})
      all.add([&](ChipHwCapability& c) {
        c.rangeXformWidthIs(RangeSetType::srcPort, side);
        c.rangeXformWidthIs(RangeSetType::dstPort, side);
        c.comboXformWidthIs(ComboLabelSetType::srcDstL4Port, combo);
        if (side > 0)
          for (PrefixXformKey const& key : PrefixXformKey::all()) c.prefixXformWidthIs(key, side);
        c.comboXformWidthIs(ComboLabelSetType::ipv4SrcDstPrefix, combo);
      });
  std::vector<std::string> const ports = {"0", "1-2", "0-3", "2-3", "0,3"};
  std::vector<std::string> const nets = {"0.0.0.0/0", "0.0.0.0/1", "64.0.0.0/2",
                                         "0.0.0.0/1,!64.0.0.0/2", "!0.0.0.0/0"};
  auto const pair = [&](size_t i, bool port) {
    auto const& words = port ? ports : nets;
    return std::string(port ? "sport " : "src ") + words[i / 5] + (port ? " dport " : " dst ") +
           words[i % 5];
  };
  uint64_t n = 0;
  for (bool port : {false, true})
    for (size_t i = 0; i < 25; ++i)
      for (size_t j = 0; j < 25; ++j)
        for (size_t k = 0; k < 25; ++k) {
          if (n++ % every(160) || testing::Test::HasFatalFailure()) continue;
          all.check("a 10 r " + pair(i, port) + "\na 20 s " + pair(j, port) + " drop\na 30 t " +
                        pair(k, !port),
                    [](ChipHwCapability const&) { return std::nullopt; });
        }
}

}  // namespace
}  // namespace Test
