/// Every world of a kind, and in each of them every packet: fields that differ in two bits only, all
/// lists and range sets that can be written with a few members, two or three rules of them, every
/// label width from none to more than enough. The pipelines keep their history from one rule set to
/// the next.
///
/// The suite takes one rule set of many; NAXEL_EVERY=1 takes all of them.

#include "support/TraceLog.h"
#include "support/World.h"
#include "verify/Agreement.h"
#include "verify/RuleOracle.h"

#include <cstdlib>
#include <set>

#include <gtest/gtest.h>

namespace Test {
namespace {

using namespace Naxel;

/// All lists of one or two prefixes of at most two bits, and of one or two with an exception.
std::vector<std::string> lists() {
  std::vector<std::string> const p = {"0.0.0.0/0",  "0.0.0.0/1",   "128.0.0.0/1", "0.0.0.0/2",
                                      "64.0.0.0/2", "128.0.0.0/2", "192.0.0.0/2"};
  std::vector<std::string> out = {"!0.0.0.0/0"};
  for (size_t i = 0; i < p.size(); ++i) {
    out.push_back(p[i]);
    for (size_t j = 0; j < p.size(); ++j) {
      out.push_back(p[i] + ",!" + p[j]);
      if (j > i) out.push_back(p[i] + "," + p[j]);
      if (j > i && j >= 3) out.push_back(p[i] + "," + p[j] + ",!" + p[j - 2]);
    }
  }
  return out;
}

/// All sets of one or two ranges within 0..3.
std::vector<std::string> rangeSets() {
  std::vector<std::string> out;
  for (int a = 0; a < 4; ++a)
    for (int b = a; b < 4; ++b) out.push_back(std::to_string(a) + "-" + std::to_string(b));
  for (size_t i = 0, single = out.size(); i < single; ++i)
    for (size_t j = i + 1; j < single; ++j) out.push_back(out[i] + "," + out[j]);
  return out;
}

/// Pipelines that differ in label widths, over one configuration.
class Universe {
 public:
  ~Universe() { EXPECT_GT(successes_, 0u); }
  /// Of a width that counts for check().
  void add(uint8_t width, std::function<void(ChipHwCapability&)> const& widths) {
    worlds_.emplace_back(width, std::make_unique<World>());
    World& w = *worlds_.back().second;
    w.acls = acls_;
    widths(*w.capability);
    w.buildRoot();
  }

  /// One rule set of so many, unless NAXEL_EVERY says otherwise. It takes so many labels, and perhaps some of
  /// `spare`; one value of a width is kept for misses.
  void check(uint64_t ofSuite, std::string const& rules, size_t labels = 0, size_t spare = 65536) {
    char const* const every = std::getenv("NAXEL_EVERY");
    if (asked_++ % (every ? std::strtoull(every, nullptr, 10) : ofSuite) ||
        testing::Test::HasFatalFailure())
      return;
    acls_->aclDelAll();
    addRules(*acls_, rules);
    ++ruleSets_;
    auto const code = ruleSets_ % 3 ? Acl::LabelCode::compact : Acl::LabelCode::aligned;
    for (auto const& [width, world] : worlds_) {
      world->params->labelCodeIs(code);
      world->params->keepLabelsIs(ruleSets_ % 3 == 1);
      bool const success = world->kick() == NaxelProgress::naxelFinishedSuccess;
      size_t const most = width ? (size_t{1} << width) - 1 : 65535;
      ASSERT_FALSE(success && labels > most) << rules;
      ASSERT_FALSE(!success && labels + spare <= most) << rules << world->failureText();
      if (!success) continue;
      ++successes_;
      PDData const& tables = world->tables();
      ASSERT_EQ(Verify::firstDifference(*acls_, tables), "") << rules << dump(tables);
      // Packet by packet as well, which keeps the proof honest.
      if (ruleSets_ % 64 == 0) {
        ASSERT_EQ(Verify::sampledDifference(*acls_, tables, ruleSets_), "") << rules;
      }
    }
  }

 private:
  TraceLog const quiet_;
  Mox::Ptr<AclConfigColl> acls_ = Mox::makePtr<AclConfigColl>(Obel::ChipId(0));
  std::vector<std::pair<uint8_t, std::unique_ptr<World>>> worlds_;
  uint64_t asked_ = 0;
  size_t ruleSets_ = 0;
  size_t successes_ = 0;
};

/// Which of the points 0..3 a filter matches, a bit each.
unsigned pointsOf(std::string const& filter) {
  AclConfigColl acls{Obel::ChipId(0)};
  addRules(acls, "a 1 r " + filter);
  unsigned out = 0;
  for (unsigned point = 0; point < 4; ++point) {
    Verify::Packet p;
    p.src = {uint64_t{point} << 62, 0};
    p.dport = static_cast<uint16_t>(point);
    out |= unsigned{Verify::firstMatch(*acls.acl("a"), p).has_value()} << point;
  }
  return out;
}

/// How many different non-empty groups of filters the points lie in.
size_t pieces(std::initializer_list<unsigned> filters) {
  std::set<unsigned> groups;
  for (unsigned point = 0; point < 4; ++point) {
    unsigned group = 0;
    for (unsigned points : filters) group = group << 1 | (points >> point & 1);
    groups.insert(group);
  }
  return groups.size() - groups.count(0);
}

/// Three rules that ask something of one field.
void checkField(Universe& all, uint64_t ofSuite, std::string const& field,
                std::vector<std::string> const& texts, size_t spare) {
  std::vector<unsigned> points;
  for (auto const& text : texts) points.push_back(pointsOf(field + text));
  for (size_t i = 0; i < texts.size(); ++i)
    for (size_t j = 0; j < texts.size(); ++j)
      for (size_t k : {i, (i + 3 * j + 7) % texts.size()})
        all.check(ofSuite,
                  "a 10 r " + field + texts[i] + "\na 20 s " + field + texts[j] + " drop\na 30 t " +
                      field + texts[k],
                  pieces({points[i], points[j], points[k]}), spare);
}

TEST(Exhaustive, PrefixListsOfTwoBits) {
  Universe all;
  PrefixXformKey const source(Lumox::ipv4(), true);
  for (uint8_t width : std::initializer_list<uint8_t>{1, 2, 3, 16})
    all.add(width, [&](ChipHwCapability& c) { c.prefixXformWidthIs(source, width); });
  // A prefix may need a label without having an address of its own, all of them lying in longer prefixes.
  checkField(all, 80, "src ", lists(), 3);
}

TEST(Exhaustive, PortRangesOfTwoBits) {
  Universe all;
  for (uint8_t width : std::initializer_list<uint8_t>{0, 1, 2, 3, 16})
    all.add(width, [&](ChipHwCapability& c) { c.rangeXformWidthIs(RangeSetType::dstPort, width); });
  checkField(all, 20, "dport ", rangeSets(), 0);
}

TEST(Exhaustive, PairsOfPortsAndOfAddressesWithAndWithoutCombinations) {
  Universe all;
  for (uint8_t combo : std::initializer_list<uint8_t>{0, 1, 2, 3, 16})
    for (uint8_t side : std::initializer_list<uint8_t>{0, 2, 16})
      all.add(16, [&](ChipHwCapability& c) {
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
  for (bool port : {false, true})
    for (size_t i = 0; i < 25; ++i)
      for (size_t j = 0; j < 25; ++j)
        for (size_t k = 0; k < 25; ++k)
          all.check(160, "a 10 r " + pair(i, port) + "\na 20 s " + pair(j, port) +
                             " drop\na 30 t " + pair(k, !port));
}

}  // namespace
}  // namespace Test
