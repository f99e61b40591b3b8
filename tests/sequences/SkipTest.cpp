/// Kicks one after another over a configuration that changes little or not at all: what a stage
/// skips must be what it would have made again.

#include "naxel/genset/NaxelAggregatorTypes.h"
#include "sequences/Fresh.h"

namespace Test {
namespace {

using namespace Naxel;
using Stage = NaxelActiveStage;

Lumox::IpGenPrefix prefix(char const* text) { return Mox::valueFromText<Lumox::IpGenPrefix>(text); }

constexpr char twoRules[] =
    "edge 10 one src 10.0.0.0/8 dst 20.0.0.0/8 sport 5 dport 80 proto 6\n"
    "edge 20 two src 30.0.0.0/8 dst 20.0.0.0/8 sport 6 dport 443,8080-8090 dscp 3 drop\n"
    "core 10 one src 30.0.0.0/8,!30.1.0.0/16 icmp 8 len 100-200 frag 1\n";

/// A change of the configuration that must show in the tables.
struct Edit {
  char const* name;
  char const* before;
  std::function<void(World&)> apply;
};

void swapFilters(World& w, char const* one, char const* two) {
  std::string const a = one, b = two;
  fillFilter(*w.rule("edge", "one"), b);
  fillFilter(*w.rule("edge", "two"), a);
}

Mox::Ptr<RuleFilter> filter(World const& w, char const* rule) {
  return w.rule("edge", rule)->ruleFilter();
}

std::vector<Edit> const& edits() {
  static std::vector<Edit> const all = {
      {"a prefix is added in place", twoRules,
       [](World& w) { filter(w, "one")->source()->addrIs(prefix("11.0.0.0/8")); }},
      {"a prefix is replaced in place", twoRules,
       [](World& w) {
         filter(w, "one")->source()->addrIs(prefix("11.0.0.0/8"));
         filter(w, "one")->source()->addrDel(prefix("10.0.0.0/8"));
       }},
      {"an except prefix is added in place", twoRules,
       [](World& w) { filter(w, "one")->source()->exceptAddrIs(prefix("10.1.0.0/16")); }},
      {"one of two equal lists is edited", "edge 10 one src 10.0.0.0/8\nedge 20 two src 10.0.0.0/8",
       [](World& w) { filter(w, "one")->source()->addrIs(prefix("11.0.0.0/8")); }},
      {"the later of two equal lists is edited",
       "edge 10 one src 10.0.0.0/8\nedge 20 two src 10.0.0.0/8",
       [](World& w) { filter(w, "two")->source()->addrIs(prefix("11.0.0.0/8")); }},
      {"two lists become equal", "edge 10 one src 10.0.0.0/8\nedge 20 two src 11.0.0.0/8 drop",
       [](World& w) {
         filter(w, "one")->source()->addrIs(prefix("11.0.0.0/8"));
         filter(w, "one")->source()->addrDel(prefix("10.0.0.0/8"));
       }},
      {"two lists exchange their contents",
       "edge 10 one src 10.0.0.0/8\nedge 20 two src 10.1.0.0/16 drop",
       [](World& w) {
         for (char const* rule : {"one", "two"}) {
           auto const list = filter(w, rule)->source();
           bool const wide = list->addrHas(prefix("10.0.0.0/8"));
           list->addrDelAll();
           list->addrIs(prefix(wide ? "10.1.0.0/16" : "10.0.0.0/8"));
         }
       }},
      {"a shared list is edited", "edge 10 one src 10.0.0.0/8\nedge 20 two drop",
       [](World& w) {
         filter(w, "two")->sourceIs(filter(w, "one")->source());
         filter(w, "one")->source()->addrIs(prefix("11.0.0.0/8"));
       }},
      {"a prefix turns into one of like bytes", "edge 10 one src 10.0.0.0/8",
       [](World& w) { fillFilter(*w.rule("edge", "one"), "src 8.0.0.0/10"); }},
      {"a prefix turns into one of like sum", "edge 10 one src 10.0.0.0/24",
       [](World& w) { fillFilter(*w.rule("edge", "one"), "src 10.0.0.56/32"); }},
      {"only an action changes", twoRules,
       [](World& w) {
         NaxelActionValue action;
         action.dropEnabledIs(true);
         w.rule("edge", "one")->actionIs(action);
       }},
      {"only a traffic class changes", "edge 10 one src 10.0.0.0/8 tc=1",
       [](World& w) { fillFilter(*w.rule("edge", "one"), "src 10.0.0.0/8 tc=2"); }},
      {"two rules exchange their indexes", twoRules,
       [](World& w) {
         auto const acl = w.acls->acl("edge");
         acl->ruleByIdIs(AceIndex(10), acl->ruleByName("two"));
         acl->ruleByIdIs(AceIndex(20), acl->ruleByName("one"));
       }},
      {"a rule moves to another index", twoRules,
       [](World& w) {
         auto const acl = w.acls->acl("edge");
         acl->ruleByIdDel(AceIndex(10));
         acl->ruleByIdIs(AceIndex(30), acl->ruleByName("one"));
       }},
      {"a rule gets a second index", twoRules,
       [](World& w) {
         w.acls->acl("edge")->ruleByIdIs(AceIndex(5), w.acls->acl("edge")->ruleByName("two"));
       }},
      {"a rule loses its only index", twoRules,
       [](World& w) { w.acls->acl("edge")->ruleByIdDel(AceIndex(10)); }},
      {"only a TCP flag is set", twoRules,
       [](World& w) { filter(w, "one")->matchTcpInitIs(true); }},
      {"one TCP flag replaces the other", "edge 10 one src 10.0.0.0/8 init",
       [](World& w) { fillFilter(*w.rule("edge", "one"), "src 10.0.0.0/8 est"); }},
      {"source and destination change places", twoRules,
       [](World& w) {
         fillFilter(*w.rule("edge", "one"),
                    "dst 10.0.0.0/8 src 20.0.0.0/8 sport 5 dport 80 proto 6");
       }},
      {"the ports change places", twoRules,
       [](World& w) {
         fillFilter(*w.rule("edge", "one"),
                    "src 10.0.0.0/8 dst 20.0.0.0/8 sport 80 dport 5 proto 6");
       }},
      {"a range moves to another field of its bound", "edge 10 one proto 6",
       [](World& w) { fillFilter(*w.rule("edge", "one"), "icmp 6"); }},
      {"two rules exchange their filters", "edge 10 one src 10.0.0.0/8\nedge 20 two dport 80",
       [](World& w) { swapFilters(w, "src 10.0.0.0/8", "dport 80"); }},
      {"two equal filters become two other equal filters",
       "edge 10 one src 10.0.0.0/8\nedge 20 two src 10.0.0.0/8",
       [](World& w) { swapFilters(w, "src 11.0.0.0/8", "src 11.0.0.0/8"); }},
      {"a rule moves to another ACL", "edge 10 one src 10.0.0.0/8\nacl core",
       [](World& w) {
         w.acls->acl("edge")->ruleByNameDel("one");
         w.rules("core 10 one src 10.0.0.0/8");
       }},
      {"an ACL and a rule exchange their names", "a 10 b src 10.0.0.0/8",
       [](World& w) {
         w.acls->aclDel("a");
         w.rules("b 10 a src 10.0.0.0/8");
       }},
      {"two ACLs exchange their rules", "a 10 r src 10.0.0.0/8\nb 10 r src 11.0.0.0/8",
       [](World& w) { w.rules("a 10 r src 11.0.0.0/8\nb 10 r src 10.0.0.0/8"); }},
      {"an ACL is deleted", twoRules, [](World& w) { w.acls->aclDel("core"); }},
      {"an ACL is renamed", twoRules,
       [](World& w) {
         w.acls->aclDel("core");
         w.rules("heart 10 one src 30.0.0.0/8,!30.1.0.0/16 icmp 8 len 100-200 frag 1");
       }},
      {"an ACL without rules is added", twoRules, [](World& w) { w.rules("acl empty"); }},
      {"an ACL without addresses changes its family", "edge 10 one dport 80\naf edge ipv4",
       [](World& w) { w.rules("af edge ipv6"); }},
      {"all ACLs are deleted", twoRules, [](World& w) { w.acls->aclDelAll(); }},
      {"a filter is taken away", twoRules,
       [](World& w) { w.rule("edge", "one")->ruleFilterDel(); }},
      {"a constraint is taken away", twoRules, [](World& w) { filter(w, "one")->sourceDel(); }},
      {"a rule is deleted and made anew under its name", twoRules,
       [](World& w) {
         w.acls->acl("edge")->ruleByNameDel("one");
         w.rules("edge 10 one src 12.0.0.0/8");
       }},
      {"a narrower list cuts an old one", twoRules,
       [](World& w) { w.rules("core 5 new src 10.1.0.0/16 dport 79-81"); }},
      {"only the usage of sets changes", twoRules,
       [](World& w) { w.rules("edge 30 three src 10.0.0.0/8\nedge 40 four src 10.0.0.0/8 est"); }}};
  return all;
}

TEST(SkipTest, EveryEditShowsInTheTables) {
  for (Edit const& edit : edits())
    for (Chip chip : allChips) {
      SCOPED_TRACE(std::string(edit.name) + ", chip " + std::to_string(static_cast<int>(chip)));
      World w(edit.before);
      setWidths(w, chip);
      kickOk(w);
      std::string const before = full(w.tables());
      edit.apply(w);
      kickOk(w);
      EXPECT_NE(full(w.tables()), before);
      kickOk(w);
    }
}

// A cancelled kick consumes the word of each stage that it ran that there is something new.
TEST(SkipTest, AnEditIsNotLostWhereverAKickIsCancelled) {
  for (Edit const& edit : edits())
    for (unsigned stage = 1; stage <= static_cast<unsigned>(Stage::stageLoader); ++stage) {
      SCOPED_TRACE(std::string(edit.name) + ", stage " + std::to_string(stage));
      World w(edit.before);
      setWidths(w, Chip::combos);
      kickOk(w);
      edit.apply(w);
      w.request();
      w.runUntilStage(static_cast<Stage>(stage));
      w.request(NaxelKickRequest::naxelCancel);
      ASSERT_EQ(w.run(), NaxelProgress::naxelCancelled);
      kickOk(w);
    }
}

// The same for a kick that fails at the range split, or before anything is done.
TEST(SkipTest, AnEditIsNotLostWhenAKickFails) {
  for (Edit const& edit : edits())
    for (bool early : {true, false}) {
      SCOPED_TRACE(std::string(edit.name) + (early ? ", early" : ", late"));
      World w(edit.before);
      setWidths(w, Chip::combos);
      kickOk(w);
      edit.apply(w);
      if (early)
        w.rules("zz 10 bad dport 9-8");
      else
        w.rules("zz 10 bad len 1\nzz 20 bad2 len 2");
      w.capability->rangeXformWidthIs(RangeSetType::length, 1);
      kickFails(w, early ? Stage::stageAggregator : Stage::stageRangeSplit);
      // On repetition the split skips, and the encoder refuses its output.
      kickFails(w, early ? Stage::stageAggregator : Stage::stageRangeEncoder);
      w.acls->aclDel("zz");
      kickOk(w);
    }
}

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

TEST(SkipTest, ARangeWithoutWidthIsCompiledFromTheFirstKickOn) {
  World w("edge 10 r dport 80");
  kickOk(w);
  EXPECT_EQ(dump(w.tables()), "acl edge ipv4 10: dport=80/65535\n");
  w.rules("edge 10 r dport 81");
  kickOk(w);
  EXPECT_EQ(dump(w.tables()), "acl edge ipv4 10: dport=81/65535\n");
}

// More users turn the cost order of two source sets round; neither sets nor pairs change.
TEST(SkipTest, ACombinationFollowsItsSidesWhenTheyAreReencoded) {
  World w("edge 10 r1 src 10.0.0.0/8 dst 20.0.0.0/8\nedge 20 r2 src 30.0.0.0/8");
  w.capability->comboXformWidthIs(ComboLabelSetType::ipv4SrcDstPrefix, 8);
  kickOk(w);
  auto const sides = [&] {
    std::string const text = dump(w.tables());
    return text.substr(0, text.find("ipv4SrcDst"));
  };
  std::string const before = sides();
  w.rules("edge 30 r3 src 10.0.0.0/8\nedge 40 r4 src 10.0.0.0/8 est");
  kickOk(w);
  EXPECT_NE(sides(), before);
}

TEST(SkipTest, TooManyPiecesFailEveryTimeAndThenWorkAgain) {
  struct Case {
    char const* rules;
    char const* less;
    Stage stage;
    void (*narrow)(World&);
  };
  Case const cases[] = {
      {"edge 10 a src 10.0.0.0/8\nedge 20 b src 11.0.0.0/8\nedge 30 c src 12.0.0.0/8",
       "edge 10 a src 10.0.0.0/8\nedge 20 b src 10.0.0.0/8\nedge 30 c src 10.0.0.0/8",
       Stage::stagePrefixXform,
       [](World& w) { w.capability->prefixXformWidthIs(PrefixXformKey(Lumox::ipv4(), true), 1); }},
      // Two labels, which a width of 1 could hold were not one value kept for misses.
      {"edge 10 a src 10.0.0.0/8,11.0.0.0/8\nedge 20 b src 11.0.0.0/8",
       "edge 10 a src 10.0.0.0/8,11.0.0.0/8\nedge 20 b src 10.0.0.0/8,11.0.0.0/8",
       Stage::stagePrefixXform,
       [](World& w) { w.capability->prefixXformWidthIs(PrefixXformKey(Lumox::ipv4(), true), 1); }},
      {"edge 10 a dport 1\nedge 20 b dport 2", "edge 10 a dport 1\nedge 20 b dport 1",
       Stage::stageRangeSplit,
       [](World& w) { w.capability->rangeXformWidthIs(RangeSetType::dstPort, 1); }},
      {"edge 10 a src 10.0.0.0/8 dst 20.0.0.0/8\nedge 20 b src 11.0.0.0/8 dst 20.0.0.0/8",
       "edge 10 a src 10.0.0.0/8 dst 20.0.0.0/8\nedge 20 b src 10.0.0.0/8 dst 20.0.0.0/8",
       Stage::stageComboLabelSplit,
       [](World& w) { w.capability->comboXformWidthIs(ComboLabelSetType::ipv4SrcDstPrefix, 1); }}};
  for (Case const& c : cases) {
    SCOPED_TRACE(c.rules);
    for (bool workedBefore : {false, true}) {
      World w(workedBefore ? c.less : c.rules);
      c.narrow(w);
      if (workedBefore) {
        kickOk(w);
        w.rules(c.rules);
      }
      std::string text;
      for (int i = 0; i < 5; ++i) {
        SCOPED_TRACE(i);
        ASSERT_EQ(w.kick(), NaxelProgress::naxelFinishedFail);
        // The piece work is skipped on repetition, so a later stage names the failure.
        if (i == 0)
          EXPECT_EQ(w.root->stageControllerStatus()->lastFailedStage(), c.stage);
        else
          EXPECT_EQ(w.failureText(), text);
        text = w.failureText();
        EXPECT_NE(text, "");
      }
      w.rules(c.less);
      kickOk(w);
      w.rules(c.rules);
      EXPECT_EQ(w.kick(), NaxelProgress::naxelFinishedFail);
      // A wider chip makes room for the very same rules.
      w.capability->prefixXformWidthIs(PrefixXformKey(Lumox::ipv4(), true), 4);
      if (w.capability->rangeXformWidth(RangeSetType::dstPort))
        w.capability->rangeXformWidthIs(RangeSetType::dstPort, 4);
      if (w.capability->comboXformWidth(ComboLabelSetType::ipv4SrcDstPrefix))
        w.capability->comboXformWidthIs(ComboLabelSetType::ipv4SrcDstPrefix, 4);
      kickOk(w);
    }
  }
}

TEST(SkipTest, AnImpossibleConfigurationFailsEveryTimeUntilItIsMended) {
  for (char const* bad :
       {"zz 10 r dport 9-8", "zz 10 r dport 80-65616", "zz 10 r proto 256",
        "zz 10 r src 10.0.0.0/8 dst 2001::/16", "af zz ipv6\nzz 10 r src 10.0.0.0/8"}) {
    SCOPED_TRACE(bad);
    World w(twoRules);
    kickOk(w);
    w.rules(bad);
    for (int i = 0; i < 3; ++i) kickFails(w, Stage::stageAggregator, "zz");
    w.acls->aclDel("zz");
    kickOk(w);
    w.rules(bad);
    kickFails(w, Stage::stageAggregator);
    w.acls->aclDelAll();  // an empty configuration is not "never run"
    kickOk(w);
    EXPECT_EQ(dump(w.tables()), "");
  }
}

TEST(SkipTest, AFirstKickOverNothingMayBeCancelledAnywhere) {
  for (unsigned stage = 1; stage <= static_cast<unsigned>(Stage::stageLoader); ++stage)
    for (Chip chip : allChips) {
      World w;
      setWidths(w, chip);
      w.request();
      w.runUntilStage(static_cast<Stage>(stage));
      w.request(NaxelKickRequest::naxelCancel);
      ASSERT_EQ(w.run(), NaxelProgress::naxelCancelled);
      kickOk(w);
      w.rules(twoRules);
      kickOk(w);
    }
}

// The root was built before any width is written; they come and go between kicks.
TEST(SkipTest, WidthsAreThoseOfTheKick) {
  World w(twoRules);
  Chip const order[] = {Chip::combos, Chip::raw,    Chip::combos, Chip::labels,
                        Chip::raw,    Chip::labels, Chip::combos};
  for (Chip chip : order) {
    SCOPED_TRACE(static_cast<int>(chip));
    setWidths(w, chip);
    kickOk(w);
    w.rules("edge 30 extra src 10.1.0.0/16 dst 20.1.0.0/16 dport 1-100 drop");
    kickOk(w);
    w.acls->acl("edge")->ruleByNameDel("extra");
  }
  for (uint8_t width : {4, 3, 16, 0, 5}) {
    SCOPED_TRACE(static_cast<int>(width));
    setWidths(w, Chip::combos, width);
    for (PrefixXformKey const& key : PrefixXformKey::all())
      w.capability->prefixXformWidthIs(key, width ? width : 16);
    kickOk(w);
  }
  // One side alone loses its width: the pair is matched by two fields.
  w.capability->rangeXformWidthDel(RangeSetType::srcPort);
  kickOk(w);
  EXPECT_EQ(w.root->comboLabelResolverStatus(ComboLabelSetType::srcDstL4Port)->status(),
            StageStatusType::finishedNotEnabled);
  w.capability->rangeXformWidthIs(RangeSetType::srcPort, 5);
  kickOk(w);
}

TEST(SkipTest, ASetCountsTheRulesThatUseItAndAPairCountsInstead) {
  World w(
      "edge 10 one src 10.0.0.0/8 dport 80\nedge 20 two src 10.0.0.0/8 dport 80\n"
      "edge 30 three src 10.0.0.0/8 dst 20.0.0.0/8");
  auto const counts = [&] {
    auto const status = w.root->aggregatorStatus();
    auto const acl = status->aclGenSetIpRuleList("edge");
    auto const usage = status->genSetUsageInfo();
    auto const three = acl->genSetIpRule("three");
    return std::vector<uint32_t>{usage->refCountValue(three->source()),
                                 usage->refCountValue(three->destination()),
                                 usage->refCountValue(acl->genSetIpRule("one")->dport())};
  };
  kickOk(w);
  EXPECT_EQ(counts(), (std::vector<uint32_t>{3, 1, 2}));
  kickOk(w);
  EXPECT_EQ(counts(), (std::vector<uint32_t>{3, 1, 2}));
  w.capability->comboXformWidthIs(ComboLabelSetType::ipv4SrcDstPrefix, 8);
  kickOk(w);
  EXPECT_EQ(counts(), (std::vector<uint32_t>{2, 0, 2}));
}

}  // namespace
}  // namespace Test
