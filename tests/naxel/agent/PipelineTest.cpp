/// The agent's object for one chip: every kick ends, once, and says how; and a configuration can be checked
/// without a kick.

#include "naxel/agent/Metrics.h"
#include "naxel/genset/AclCheck.h"
#include "support/Handshake.h"

#include <limits>

namespace Test {
namespace {

using namespace Naxel;

/// A pipeline over the entities of a world. One of them stands in a collection.
struct Owner : ByHand {
  explicit Owner(char const* rules = firstRules) : ByHand(rules) {
    root = nullptr;
    capability = capabilities->chipHwCapabilityIs(chipId);
    pipeline = std::make_unique<Pipeline>(*this, wheel);
  }
  /// Kicks, and notes how that ends under a name; then acts.
  void kick(std::string const& name, std::function<void()> const& act = {}) {
    pipeline->kick([=, this](KickResult const& result) {
      ended[name].push_back(text(result));
      if (act) act();
    });
  }
  /// Answers what stands and all that comes.
  void answer() {
    driver.automatic = driver.confirms = true;
    driver.answer();
    run();
  }

  Mox::Ptr<HwCapabilityColl> capabilities = hwCapabilityCollFactory();
  std::map<std::string, Log> ended;
  std::unique_ptr<Pipeline> pipeline;
};

constexpr char badRule[] =
    "Naxel failed at stageAggregator on chip 0: ACL 'edge', rule 'bad': destination port range 2-1 "
    "starts above its end";
constexpr char deleted[] =
    "Naxel failed at stageAggregator on chip 0: ChipHwCapability has been deleted from its "
    "collection: "
    "the root state machine has to be built anew, over the present one";

std::string const failsAtOnce = std::string(deleted).replace(16, 15, "stageInit");

TEST(PipelineTest, EveryKickEndsOnceWhateverIsDoneFromWithinTheEndOfAnother) {
  struct Case {
    std::string end;
    void (*bring)(Owner&);
    std::string inner;  // how a kick from within the callback ends
  };
  Case const cases[] = {
      {"success", [](Owner& a) { a.answer(); }, "success"},
      {badRule, [](Owner&) {}, badRule},
      {"Naxel failed at stageLoader on chip 0: the driver refused resources for ACL entries",
       [](Owner& a) { a.run(), a.acl(ResponseState::failed), a.finish(ResponseState::hitless); },
       "success"},
      {"cancelled", [](Owner& a) { a.run(), a.pipeline->cancel(), a.run(); }, "success"},
      {"superseded", [](Owner& a) { a.kick("other"); }, "success"},
      {"superseded", [](Owner& a) { a.run(), a.pipeline->restart(); }, "success"},
      {"superseded", [](Owner& a) { a.pipeline.reset(); }, ""},
      {deleted, [](Owner& a) { a.capabilities->chipHwCapabilityDel(a.chipId); }, failsAtOnce}};
  enum Act { nothing, kickAgain, restartAndKick, destroy };
  for (Case const& c : cases)
    for (Act act : {nothing, kickAgain, restartAndKick, destroy}) {
      SCOPED_TRACE(testing::Message() << &c - cases << " " << act);
      Traced const quiet;
      Owner a(c.end == badRule ? "edge 90 bad dport 2-1" : firstRules);
      Pipeline& pipeline = *a.pipeline;  // also from within its destructor
      a.kick("first", [&] {
        EXPECT_EQ(pipeline.isRunning(), a.ended.contains("other") || &c == &cases[4]);
        if (act == destroy) return a.pipeline.reset();
        if (act == restartAndKick && a.pipeline) pipeline.restart();
        if (act != nothing)
          pipeline.kick([&](KickResult const& r) { a.ended["inner"].push_back(text(r)); });
        pipeline.waitingFor();
      });
      EXPECT_TRUE(pipeline.isRunning());
      c.bring(a);
      a.answer();
      EXPECT_EQ(a.ended["first"], Log{c.end});
      bool const kicks = (act == kickAgain || act == restartAndKick) && !c.inner.empty();
      // What the root is built over anew counts as present.
      std::string const inner =
          act == restartAndKick && c.inner == failsAtOnce ? "success" : c.inner;
      EXPECT_EQ(a.ended["inner"], kicks ? Log{inner} : Log{});
      Log const other{act == nothing ? "success" : "superseded"};
      EXPECT_EQ(a.ended["other"], &c == &cases[4] ? other : Log{});
      EXPECT_TRUE(!a.pipeline || (!a.pipeline->isRunning() && a.pipeline->waitingFor().empty()));
    }
}

TEST(PipelineTest, MetricsCountEveryKickAndTellOfTheLastOneAlsoFromWithinItsEnd) {
  Traced const quiet;
  Owner a;
  auto const loader = static_cast<size_t>(NaxelActiveStage::stageLoader);
  std::map<StageStatusType, size_t> const once = {{StageStatusType::finishedSuccess, 1}};
  Metrics within;
  a.kick("first", [&] { within = a.pipeline->metrics(); });
  a.answer();
  for (Metrics const& m : {within, a.pipeline->metrics()}) {
    EXPECT_EQ(m.stages[loader].outcome, once);
    for (size_t s = 1; s < stageCount; ++s) EXPECT_FALSE(m.stages[s].outcome.empty()) << s;
    EXPECT_EQ(m.tableRows.back(), a.pipeline->output().pdAclColl()->numFilters());
    EXPECT_EQ(m.changes.get(PDTable::aclEntries)->added(), m.tableRows.back());
    EXPECT_GE(m.kickSeconds, m.stages[loader].seconds);
    ASSERT_GE(m.labels.size(), PrefixXformKey::all().size() + rangeFieldCount);
    for (LabelUse const& use : m.labels) EXPECT_LE(use.used, use.available()) << use.field;
    EXPECT_EQ(m.labels[0].field, "ipv4Src");
  }
  a.driver.automatic = false;
  a.kick("superseded");
  a.kick("cancelled");
  a.run(), a.pipeline->cancel(), a.run();
  a.answer();
  a.capabilities->chipHwCapabilityDel(a.chipId);
  a.kick("failure");
  a.run();
  Metrics const m = a.pipeline->metrics();
  EXPECT_EQ(m.kicks, (std::array<uint64_t, kickEndCount>{1, 1, 1, 1}));
  EXPECT_GE(m.allKickSeconds, within.kickSeconds + m.kickSeconds);
}

TEST(PipelineTest, AnyKickTimeOfTheAgentsHasANextOne) {
  Owner a;
  a.answer();
  using Limits = std::numeric_limits<double>;
  for (double last : {-5.0, 1e300, Limits::max(), Limits::infinity(), Limits::quiet_NaN()}) {
    a.rootConfig->naxelKickTimeIs(last);
    a.run();
    auto const requests = a.rootStatus->kickCount();
    a.pipeline->cancel();  // none runs, so nothing is requested
    a.kick("kick", [&] { a.pipeline->restart(), a.kick("kick"); });
    a.run();
    EXPECT_EQ(a.rootStatus->kickCount(), requests + 2) << last;
    EXPECT_EQ(std::exchange(a.ended["kick"], {}), (Log{"success", "success"}));
  }
}

TEST(PipelineTest, AllErrorsAreFoundAtOnceAndNoneWhereAKickSucceeds) {
  Traced const quiet;
  Owner a("ok 1 r sport 0-65535 dport 80\nacl none\naf six ipv6\nsix 1 r src ::/0");
  a.answer();
  auto const errors = [&] {
    Log all;
    for (ConfigError const& e : a.pipeline->validate()) all.push_back(e.text);
    return all;
  };
  a.rules(
      "a 1 r dport 2-1,80,9-8 proto 256\naf b ipv6\nb 1 r src 10.0.0.0/8 icmp 3-2\n"
      "c 1 r src ::/0,1.2.3.4/32");
  // An end out of bounds is stored, although the setter complains.
  DscpRange bad(0, 63);
  EXPECT_THROW(bad.rangeEndIs(100), Mox::RangeError);
  a.rule("a", "r")->ruleFilterIs()->dscpIs(bad);
  EXPECT_EQ(
      errors(),
      (Log{"ACL 'a', rule 'r': destination port range 2-1 starts above its end",
           "ACL 'a', rule 'r': destination port range 9-8 starts above its end",
           "ACL 'a', rule 'r': protocol range 256-256 exceeds the field's maximum 255",
           "ACL 'a', rule 'r': DSCP range 0-100 exceeds the field's maximum 63",
           "ACL 'b', rule 'r': ICMP type range 3-2 starts above its end",
           "ACL 'b': the source of rule 'r' holds a prefix of another family than the ACL's ipv6",
           "ACL 'c': IPv4 and IPv6 prefixes in one ACL: IPv4 in the source of rule 'r', IPv6 in "
           "the source of rule 'r'"}));
  for (char const* acl : {"a", "b", "c", ""}) {
    a.kick(acl);
    a.run();
    EXPECT_TRUE(a.ended[acl][0].ends_with(*acl ? errors()[0] : "success")) << a.ended[acl][0];
    a.acls->aclDel(acl);
  }
  EXPECT_EQ(errors(), Log{});
  // What would end the process, or cannot be written as text.
  auto const acl = a.acls->acl("ok");
  acl->ruleByName("r")->ruleFilter()->sourceIs();
  acl->ruleByName("r")->ruleFilter()->destinationIs();
  acl->ruleByIdIs(AceIndex(4), nullptr);
  acl->ruleByIdIs(AceIndex(5), Mox::makePtr<RuleConfig>("r"));
  a.capability->prefixXformWidthIs(PrefixXformKey(Lumox::ipv4(), true), 0);
  a.capability->rangeXformWidthIs(RangeSetType::srcPort, 17);
  a.capability->comboXformWidthIs(ComboLabelSetType::srcDstL4Port, 99);
  EXPECT_EQ(errors(),
            (Log{"label width 0 of the IPv4 source address: it goes from 1 to 16",
                 "label width 17 of the source port: it goes from 0 to 16",
                 "label width 99 of the source and destination port: it goes from 0 to 16",
                 "ACL 'ok', rule 'r': the source list has no member",
                 "ACL 'ok', rule 'r': the destination list has no member",
                 "ACL 'ok', index 4 refers to a rule that the ACL does not hold",
                 "ACL 'ok', index 5 refers to a rule that the ACL does not hold"}));
}

}  // namespace
}  // namespace Test
