/// Kicks one after another over a configuration that changes little or not at all: what a stage
/// skips must be what it would have made again.

#include "naxel/encoder/NaxelLabelEncoderSm.h"
#include "support/AllocationFaults.h"
#include "support/Handshake.h"
#include "support/Thinning.h"

#include <regex>

namespace Test {
namespace {

using namespace Naxel;
using Stage = NaxelActiveStage;
using AtStatus = At<StageStatus::Notifiee>;  // of kick time, beginning and end of a run

constexpr char twoRules[] =
    "edge 10 one src 10.0.0.0/8 dst 20.0.0.0/8 sport 5 dport 80 proto 6\n"
    "edge 20 two src 30.0.0.0/8 dst 20.0.0.0/8 sport 6 dport 443,8080-8090 dscp 3 drop\n"
    "core 10 one src 30.0.0.0/8,!30.1.0.0/16 icmp 8 len 100-200 frag 1\n";

TEST(SkipTest, AnUnchangedConfigurationSkipsAllButExpanderAndLoader) {
  for (Chip chip : allChips) {
    World w(twoRules);
    setWidths(w, chip);
    kickOk(w);
    std::string const before = full(w.tables());
    kickOk(w);
    EXPECT_EQ(full(w.tables()), before);
    for (unsigned s = 1; s <= static_cast<unsigned>(Stage::stageLoader); ++s) {
      Stage const stage = static_cast<Stage>(s);
      bool const works = stage >= Stage::stageRuleExpander;
      w.root->stageSmStatus()->forEach(stage, [&](StageStatus const& status) {
        if (status.status() == StageStatusType::finishedNotEnabled) return;
        EXPECT_EQ(status.status(),
                  works ? StageStatusType::finishedSuccess : StageStatusType::finishedSkipped)
            << stage;
      });
    }
  }
}

TEST(SkipTest, TooManyPiecesFailEveryTimeAndThenWorkAgain) {
  constexpr char apart[] =
      "edge 10 a src 10.0.0.0/8 dst 20.0.0.0/8\nedge 20 b src 11.0.0.0/8 dst 20.0.0.0/8";
  struct Case {
    std::string rules;  // too many as long as they differ in 10, 11 and 12
    Stage first,
        again;  // work on pieces is skipped on repetition, so a later stage names the failure
    uint8_t prefix, range, combo;  // widths
  };
  Case const cases[] = {
      {"edge 10 a src 10.0.0.0/8\nedge 20 b src 11.0.0.0/8\nedge 30 c src 12.0.0.0/8",
       Stage::stagePrefixXform, Stage::stagePrefixEncoder, 1, 0, 0},
      // Two labels, which a width of 1 could hold were not one value kept for misses.
      {"edge 1 a src 10.0.0.0/8,11.0.0.0/8\nedge 2 b src 11.0.0.0/8", Stage::stagePrefixXform,
       Stage::stagePrefixEncoder, 1, 0, 0},
      {"edge 1 a dport 10\nedge 2 b dport 11", Stage::stageRangeSplit, Stage::stageRangeEncoder, 8,
       1, 0},
      {apart, Stage::stageComboLabelSplit, Stage::stageComboLabelEncoder, 8, 0, 1},
      {apart, Stage::stagePrefixXform, Stage::stageComboLabelResolver, 1, 0, 8}};
  for (Case const& c : cases)
    for (bool workedBefore : {false, true}) {
      SCOPED_TRACE(testing::Message() << c.rules << workedBefore);
      std::string const less = std::regex_replace(c.rules, std::regex("1[12]"), "10");
      World w(workedBefore ? less : c.rules);
      w.capability->prefixXformWidthIs(PrefixXformKey(Lumox::ipv4(), true), c.prefix);
      w.capability->rangeXformWidthIs(RangeSetType::dstPort, c.range);
      w.capability->comboXformWidthIs(ComboLabelSetType::ipv4SrcDstPrefix, c.combo);
      if (workedBefore) kickOk(w);
      w.rules(c.rules);
      kickFails(w, c.first);
      std::string const text = w.failureText();
      for (int i = 0; i < 2; ++i) kickFails(w, c.again, text);
      w.rules(less);
      kickOk(w);
      w.rules(c.rules);
      EXPECT_EQ(w.kick(), failure);
      // A wider chip makes room for the very same rules.
      setWidths(w, c.combo ? Chip::combos : Chip::labels);
      w.capability->prefixXformWidthIs(PrefixXformKey(Lumox::ipv4(), true), 4);
      kickOk(w);
    }
}

// Rules that only one side of a combination belongs to change the labels of that side alone.
TEST(SkipTest, ACombinationFollowsTheLabelsOfBothItsSides) {
  for (std::string const side : {"src", "dst"}) {
    std::string const other = side == "src" ? "dst" : "src";
    World w("edge 1 a " + side + " 10.0.0.0/8 " + other + " 1.0.0.0/8\nedge 2 b " + side +
            " 11.0.0.0/8 " + other + " 1.0.0.0/8");
    setWidths(w, Chip::combos);
    kickOk(w);
    auto const before = dump(w.tables());
    for (int i = 3; i < 9; ++i)
      w.rules("edge " + std::to_string(i) + " r" + std::to_string(i) + " " + side + " 11.0.0.0/8");
    kickOk(w);
    auto const split = w.root->comboLabelSplitStatus(ComboLabelSetType::ipv4SrcDstPrefix);
    EXPECT_EQ(split->status(), StageStatusType::finishedSkipped);
    EXPECT_FALSE(dump(w.tables()).starts_with(before.substr(0, before.find("acl")))) << before;
  }
}

// In a pipeline a transform refuses first what an encoder has no labels for.
TEST(SkipTest, AnEncoderThatHasFailedWorksAgainFromTheInputBefore) {
  auto const xform = Mox::makePtr<PrefixXformStatus>(PrefixXformKey(Lumox::ipv4(), true));
  auto const lists = Mox::makePtr<PlainLabelListMap>();
  for (uint32_t i = 1; i <= 3; ++i) lists->plainLabelListIs(GenSetKey(i)).labelIs(PlainLabel(i));
  xform->plainLabelListMapIs(lists);
  xform->statusIs(StageStatusType::finishedSkipped);
  auto const widths = chipHwCapabilityFactory(Obel::ChipId(0));
  auto const config = encoderConfigFactory(xform);
  auto const status = Mox::makePtr<PrefixEncoderStatus>(PrefixXformKey(Lumox::ipv4(), true));
  auto const encoder = prefixLabelEncoderSmFactory(Obel::ChipId(0), config, status,
                                                   Mox::makePtr<GenSetUsageInfo>(), widths);
  std::vector<StageStatusType> seen;
  for (uint8_t width : {2, 2, 1, 2}) {
    widths->prefixXformWidthIs(PrefixXformKey(Lumox::ipv4(), true), width);
    config->kickTimeIs(config->kickTime() + 1);
    seen.push_back(status->status());
  }
  using enum StageStatusType;
  EXPECT_EQ(seen, (std::vector{finishedSuccess, finishedSkipped, finishedFailed, finishedSuccess}));
  EXPECT_EQ(status->plainToEncodedLabel().size(), 3u);
}

// Neither can come about from outside; a later stage does not take its predecessor's word for it.
TEST(SkipTest, WhatAnEarlierStageLeavesOutFailsTheKickAndIsForgotten) {
  World w("edge 10 one sport 1-5\nedge 20 two sport 3-9\nedge 30 three sport 7-20 dport 80\n");
  w.capability->rangeXformWidthIs(RangeSetType::srcPort, 3);
  auto const encoder = w.root->rangeEncoderStatus(RangeSetType::srcPort);
  auto const split = w.root->rangeSplitStatus(RangeSetType::srcPort);
  {
    AtStatus const lost(3, *encoder, [&] {
      encoder->encodedLabelListDelAll();
      split->statusIs(StageStatusType::finishedFailed);
    });
    kickFails(w, Stage::stageRuleExpander, "rule 10 'one' of 'edge': source port");
  }
  w.rules("edge 40 four sport 6");
  kickOk(w);
}

// The encoder would find one bit for the pieces that the split has counted against three, and the
// aggregator of a chip with pairs would miss a side.
TEST(SkipTest, AWidthChangedDuringAKickCountsFromTheNextOneOn) {
  constexpr RangeSetType srcPort = RangeSetType::srcPort;
  constexpr ComboLabelSetType ports = ComboLabelSetType::srcDstL4Port;
  for (Chip chip : {Chip::labels, Chip::combos})
    for (uint8_t width : {0, 1}) {
      SCOPED_TRACE(testing::Message() << static_cast<int>(chip) << " " << int{width});
      World w("edge 10 one sport 1-5\nedge 20 two sport 3-9\nedge 30 three sport 7-20 dport 80\n");
      setWidths(w, chip);
      std::string const wide = freshTables(w);
      {
        AtStatus const narrower(3, *w.root->rangeSplitStatus(srcPort), [&] {
          w.capability->rangeXformWidthIs(srcPort, width);
          w.capability->comboXformWidthDel(ports);
          w.params->permitDuringUpdateIs(true);
        });
        EXPECT_EQ(w.kick(), success) << w.failureText();
        EXPECT_EQ(full(w.tables()), wide);
        EXPECT_EQ(w.tables().hwCapability()->rangeXformWidth(srcPort), 8);
      }
      if (width == 0)
        kickOk(w);
      else
        EXPECT_EQ(w.kick(), failure);
    }
}

TEST(SkipTest, ASetCountsTheRulesThatUseItAndAPairCountsInstead) {
  World w(
      "edge 10 one src 10.0.0.0/8 dport 80\nedge 20 two src 10.0.0.0/8 dport 80\n"
      "edge 30 three src 10.0.0.0/8 dst 20.0.0.0/8\nsix 10 six src 2001::/16 dst 2002::/16");
  auto const expectCounts = [&](std::vector<uint32_t> const& counts) {
    kickOk(w);
    auto const status = w.root->aggregatorStatus();
    auto const acl = status->aclGenSetIpRuleList("edge");
    auto const three = acl->genSetIpRule("three"), one = acl->genSetIpRule("one");
    std::vector<uint32_t> found;
    for (GenSetKey key : {three->source(), three->destination(), one->dport()})
      found.push_back(status->genSetUsageInfo()->refCountValue(key));
    EXPECT_EQ(found, counts);
  };
  expectCounts({3, 1, 2});
  expectCounts({3, 1, 2});
  w.capability->comboXformWidthIs(ComboLabelSetType::ipv4SrcDstPrefix, 8);
  expectCounts({2, 0, 2});
  // Nor does a pair of the other family count.
  auto const combos = w.root->comboLabelResolverStatus(ComboLabelSetType::ipv4SrcDstPrefix);
  EXPECT_EQ(combos->comboLabelInfo()->comboLabelSetColl().size(), 1u);
  // A side without labels makes no pairs.
  w.rules("edge 40 four sport 7 dport 80");
  w.capability->comboXformWidthIs(ComboLabelSetType::srcDstL4Port, 8);
  w.capability->rangeXformWidthIs(RangeSetType::dstPort, 8);
  expectCounts({2, 0, 3});
  w.capability->rangeXformWidthIs(RangeSetType::srcPort, 8);
  expectCounts({2, 0, 2});
}

TEST(SkipTest, AnEditThatIsUndoneAfterARunBrokeOffIsNotTakenForMade) {
  Traced const quiet;
  World w(twoRules), before(twoRules);
  setWidths(w, Chip::combos);
  auto const config = w.root->aggregatorConfig();
  kickOk(w);
  for (uint64_t n = 1, struck = 1; struck; n += thinning()) {
    w.rules("edge 20 two src 10.1.0.0/16 dst 20.0.0.0/8 sport 7 dport 1-9 log");
    uint64_t const strikes = AllocationFaults::strikes();
    AllocationFaults::failAt(n);
    {
      AllocationFaults::Scope const counted(true);
      config->kickTimeIs(config->kickTime() + 1);
    }
    AllocationFaults::failAt(0);
    struck = AllocationFaults::strikes() - strikes;
    copyAcls(*before.acls, *w.acls);
    kickOk(w);
  }
}

}  // namespace
}  // namespace Test
