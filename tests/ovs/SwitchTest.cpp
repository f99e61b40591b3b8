/// Rules in force in a real switch: what it does with packets, changes of one rule, and whatever can go wrong between
/// it and an agent. NAXEL_OVS_CHANGES and NAXEL_OVS_PACKETS make the course of changes longer.

#include "generate/Generate.h"
#include "ovs/Bridge.h"
#include "support/TraceLog.h"
#include "support/World.h"
#include "verify/ConfigCopy.h"
#include "verify/Random.h"
#include "verify/RuleOracle.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <sstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

namespace Test {
namespace {

using NaxelOvs::DriverOptions;
using NaxelOvs::SwitchError;
using Acls = Mox::Ptr<Naxel::AclConfigColl>;

class OvsSwitch : public testing::Test {
 protected:
  void SetUp() override {
    if (!Bridge::possible()) GTEST_SKIP() << "the packages of Open vSwitch are not unpacked";
    bridge = std::make_unique<Bridge>();
  }
  std::unique_ptr<Bridge> bridge;
  TraceLog traces;
};

/// Makes one set of flows of another, and returns why that failed; "" if it has not.
std::string write(DriverOptions const& options, NaxelOvs::FlowSet const& from,
                  NaxelOvs::FlowSet const& to) {
  try {
    NaxelOvs::Switch bridge(options.target.management, options.patience);
    bridge.ownFlows(options.layout);
    bridge.apply(NaxelOvs::changes(from, to), options.layout);
    return {};
  } catch (SwitchError const& error) {
    return error.text;
  }
}

std::string generated(bool ipv6, uint64_t seed) {
  std::ostringstream out;
  NaxelTool::generateObjectGroups(out, {.rules = 120,
                                        .acls = 1,
                                        .lists = 30,
                                        .listSize = 8,
                                        .overlap = NaxelTool::Overlap::mixed,
                                        .ipv6 = ipv6,
                                        .seed = seed});
  return out.str();
}

TEST_F(OvsSwitch, DoesWithPacketsWhatGeneratedRulesSay) {
  std::ostringstream filters;
  NaxelTool::generateFilterSet(filters, {NaxelTool::FilterStyle::fw, 300, 5});
  for (std::string const& rules : {generated(false, 1), generated(true, 2), filters.str()}) {
    auto const acls = aclsOf(rules);
    kick(*agent(acls, bridge->options()));
    expectInForce(acls, bridge->options(), 200);
  }
}

// Two ACLs of IPv4 and one of IPv6, by port and by register, behind tables of somebody else and before others; all
// that actions may do, and fields of every kind.
TEST_F(OvsSwitch, ChoosesAmongAclsAndLeavesOtherTablesAlone) {
  auto const acls = small(
      "a 10 r src 10.0.0.0/8,!10.1.0.0/16 proto 6 dport 80,1000-2000 est\n"
      "a 20 r src 10.0.0.0/8 icmp 3,8-9 proto 1 drop\na 30 r fragment 1-8191 proto 17\n"
      "b 10 r dscp 1,5-9 drop\nb 20 r proto 6,17,132 sport 5-70 init\nb 30 r dst 10.0.0.0/7\n"
      "c 10 r src 2001:db8::/33,2001:db8:8000::/48 proto 58 icmp 128-129\nc 20 r dst 2001::/16\n");
  auto const dscp = acls->acl("b")->ruleByName("r");
  DriverOptions options = bridge->options();
  options.layout.firstTable = 30;
  options.layout.firstRegister = 3;
  options.layout.next = {NaxelOvs::Exit::Kind::table, 60};
  options.layout.noVerdict = {NaxelOvs::Exit::Kind::table, 61};
  using By = NaxelOvs::Binding::By;
  options.layout.bindings = {
      {"a", By::inPort, 0, 1}, {"b", By::reg, 0, 7}, {"c", By::everything, 0, 0}};
  bridge->tool(
      "ovs-ofctl add-flow br0 'table=0,in_port=2 actions=load:7->NXM_NX_REG0[],goto_table:30'");
  bridge->tool("ovs-ofctl add-flow br0 'table=0,priority=1 actions=goto_table:30'");
  bridge->tool("ovs-ofctl add-flow br0 'table=60 actions=output:1'");
  kick(*agent(acls, options));
  // The way to b leads through the port.
  DriverOptions asked = options;
  asked.layout.bindings[1] = {"b", By::inPort, 0, 2};
  expectInForce(acls, asked, 400);
  bridge->tool("ovs-ofctl del-flows --strict br0 table=0,in_port=2");
}

/// Changes of one rule, such as operators make.
void change(Naxel::AclConfigColl& acls, Verify::Random& random) {
  std::vector<Mox::Ptr<Naxel::RuleConfig>> rules;
  auto const acl = acls.acl().begin()->second;
  for (auto const& [index, rule] : acl->ruleById()) rules.push_back(rule);
  auto const rule = random.of(rules);
  auto const filter = rule->ruleFilterIs();
  switch (random.below(4)) {
    case 0: {
      Naxel::NaxelActionValue action = rule->action();
      action.dropEnabledIs(!action.dropEnabled());
      return rule->actionIs(action);
    }
    case 1: {
      auto const first = static_cast<uint16_t>(random.below(60000));
      filter->dportRangeDelAll();
      filter->dportRangeIs(
          Naxel::L4PortRange(first, static_cast<uint16_t>(first + random.below(5000))));
      return filter->protoIs(Naxel::ProtoRange(6, 6));
    }
    case 2: {
      auto const free = Naxel::AceIndex(random.below(20000));
      if (!acl->ruleByIdHas(free)) acl->ruleByIdIs(free, rule);
      return;
    }
    default: {
      auto const list = Mox::makePtr<Naxel::IpPrefixList>();
      bool const v4 = Verify::familyOf(*acl) == Lumox::ipv4();
      auto const bits = random.next();
      list->addrIs(v4 ? Lumox::IpGenPrefix::v4(static_cast<uint32_t>(bits), 20).masked()
                      : Lumox::IpGenPrefix::v6(bits, 0, 40).masked());
      return filter->sourceIs(list);
    }
  }
}

uint64_t setting(char const* name, uint64_t usual) {
  char const* const given = std::getenv(name);
  return given ? std::strtoull(given, nullptr, 10) : usual;
}

/// Loads in a process of its own, which is killed after so many microseconds.
void loadAndDie(Acls const& acls, DriverOptions const& options, uint64_t after) {
  pid_t const child = fork();
  if (child == 0) {
    auto const doomed = agent(acls, options);
    static_cast<void>(doomed->kick(20));
    _exit(0);
  }
  usleep(static_cast<useconds_t>(after));
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
}

TEST_F(OvsSwitch, EveryChangeIsOneStepWhoeverEndsWhen) {
  uint64_t const changes = setting("NAXEL_OVS_CHANGES", 5);
  uint64_t const packets = setting("NAXEL_OVS_PACKETS", 50);
  Verify::Random random(setting("NAXEL_OVS_SEED", 1));
  auto acls = aclsOf(generated(random.oneIn(2), random.below(100)));
  auto const options = bridge->options();
  auto session = agent(acls, options);
  kick(*session);
  size_t written = 0;
  size_t killedOld = 0;
  for (uint64_t i = 1; i <= changes && !HasFailure(); ++i) {
    SCOPED_TRACE(i);
    auto const before = Mox::makePtr<Naxel::AclConfigColl>(Obel::ChipId(0));
    Verify::copyAcls(*acls, *before);
    change(*acls, random);
    if (random.oneIn(5)) {
      loadAndDie(acls, options, 5000 + random.below(60000));
      bool const old = !NaxelTool::verifySwitch(before, options, packets, i).difference;
      killedOld += old;
      if (!old) expectInForce(acls, options, packets, i);
      session = agent(acls, options);
    } else if (random.oneIn(8)) {
      bridge->crash();
      // The agent is not told, and finds nothing there when it loads.
      if (random.oneIn(2)) {
        bridge->resume();
      } else {
        std::thread later([&] { bridge->resume(); });
        auto const result = session->kick(20);
        later.join();
        // An acquire that comes before the switch does is refused; what is in force is then another matter.
        if (result && !*result) {
          EXPECT_NE(result->reason.find("switch"), std::string::npos) << result->reason;
        }
      }
    }
    kick(*session);
    auto const& report = session->driver().lastLoad();
    EXPECT_EQ(bridge->flows().size(), report.flows);
    written += report.added + report.deleted + report.changed;
    expectInForce(acls, options, packets, i);
  }
  RecordProperty("written", std::to_string(written / changes));
  RecordProperty("killedOld", std::to_string(killedOld));
}

TEST_F(OvsSwitch, OneRuleMoreWritesLittle) {
  auto const acls = aclsOf(generated(false, 3));
  auto const session = agent(acls, bridge->options());
  kick(*session);
  kick(*session);
  auto const* report = &session->driver().lastLoad();
  EXPECT_EQ(report->added + report->deleted + report->changed, 0u);
  EXPECT_TRUE(report->cachesFollowed);
  auto const rule = acls->acl().begin()->second->ruleByNameIs("more");
  rule->ruleFilterIs()->protoIs(Naxel::ProtoRange(47, 47));
  acls->acl().begin()->second->ruleByIdIs(Naxel::AceIndex(15), rule);
  kick(*session);
  EXPECT_LE(report->added + report->deleted + report->changed, 4u);
}

TEST_F(OvsSwitch, AnAgentThatStaysPutsBackWhatASwitchHasLost) {
  auto const acls = aclsOf(generated(false, 4));
  DriverOptions options = bridge->options();
  options.watch = 0.05;
  auto const session = agent(acls, options);
  kick(*session);
  size_t const flows = bridge->flows().size();
  bridge->crash();
  session->runUntil([&] { return !session->driver().waitingFor().empty(); });
  // Where it was in the middle of asking, the connection is what is gone.
  std::string const waiting = session->driver().waitingFor();
  EXPECT_NE(waiting.find(bridge->folder()), std::string::npos) << waiting;
  bridge->resume();
  session->runUntil([&] { return session->driver().restored() > 0; });
  EXPECT_EQ(bridge->flows().size(), flows);
  expectInForce(acls, options, 50);
}

TEST_F(OvsSwitch, WhatASwitchCannotTakeIsRefusedInWordsAndLeavesItAsItIs) {
  auto const first = small("e 10 r src 10.0.0.0/8 drop");
  kick(*agent(first, bridge->options()));
  auto const before = bridge->flows();
  auto const second = small("e 10 r src 11.0.0.0/8 drop\ne 20 s dport 5-9 proto 6");
  auto const refused = [&](DriverOptions const& options, std::string const& words) {
    SCOPED_TRACE(words);
    kick(*agent(second, options), words);
  };
  auto const usual = bridge->options();
  DriverOptions o = usual;
  o.target.management = bridge->folder() + "/br7.mgmt";
  refused(o, "there is no switch at " + bridge->folder() + "/br7.mgmt: No such file");
  o.target.management = std::string(120, 'x') + "/br0.mgmt";
  refused(o, "is longer than the 107 bytes");
  o.target.management = bridge->folder() + "/db.sock";
  refused(o, "has closed the connection");
  o = usual;
  o.target.control = bridge->folder() + "/none.ctl";
  refused(o, "there is no switch at " + bridge->folder() + "/none.ctl: No such file");

  std::string const vsctl = "ovs-vsctl --db=unix:" + bridge->folder() + "/db.sock ";
  bridge->tool(vsctl + "set bridge br0 protocols=OpenFlow10,OpenFlow13");
  refused(usual, "the switch speaks OpenFlow 1.3 at most, and bundles need 1.4");
  // It names 1.5 as its highest version, and has not the one that we need.
  bridge->tool(vsctl + "set bridge br0 protocols=OpenFlow10,OpenFlow15");
  refused(usual, "the switch does not speak OpenFlow 1.4: OFPHFC_INCOMPATIBLE");
  bridge->tool(vsctl + "clear bridge br0 protocols");

  bridge->tool("ovs-ofctl add-flow br0 table=11,priority=5,tcp,actions=output:1");
  refused(usual, "table 11 holds a flow of somebody else, of cookie 0x0: table=11,priority=5,tcp");
  bridge->tool("ovs-ofctl del-flows br0 table=11,tcp");
  // Not ours in spite of its cookie, since it goes away by itself.
  std::string const cookie = std::to_string(usual.layout.cookie());
  bridge->tool("ovs-ofctl add-flow br0 cookie=" + cookie +
               ",table=3,idle_timeout=9,tcp,actions=drop");
  refused(usual, "table 3 holds a flow of somebody else");
  bridge->tool("ovs-ofctl del-flows br0 table=3,tcp");

  bridge->tool("ovs-ofctl set-frags br0 normal");
  o = usual;
  o.setFragments = false;
  refused(o, "is in the fragment mode normal, which hides ports of fragments");
  bridge->tool("ovs-ofctl set-frags br0 nx-match");

  bridge->tool(vsctl +
               "--id=@t create Flow_Table flow_limit=2 -- set bridge br0 flow_tables:11=@t");
  refused(usual, "table 11 holds 2 flows at most, and 3 are needed");
  NaxelOvs::FlowSet more = before;
  more.push_back(
      {11, 9, NaxelOvs::MatchBuilder().add(NaxelOvs::MatchField::inPort, 1).bytes(), {}});
  std::sort(more.begin(), more.end());
  EXPECT_EQ(write(usual, before, more),
            "the switch answers OFPFMFC_TABLE_FULL to table=11,priority=9,in_port=1 actions=drop");
  kick(*agent(small("e 10 r length 5"), usual), "rule 10 of ACL e matches the length of packets");
  EXPECT_EQ(bridge->flows(), before);
  expectInForce(first, usual, 20);
}

// A switch keeps the rest of a bundle of which it has refused a message, and would put that in force.
TEST_F(OvsSwitch, ABundleWithAFlowThatIsRefusedPutsNothingInForce) {
  auto const options = bridge->options();
  auto const first = small("e 10 r src 10.0.0.0/8 drop");
  kick(*agent(first, options));
  auto const before = bridge->flows();
  using NaxelOvs::MatchField;
  NaxelOvs::FlowSet wanted(before.begin() + 3, before.end());  // others go
  for (uint32_t port : {1u, 70000u, 2u})
    wanted.push_back({11, 9, NaxelOvs::MatchBuilder().add(MatchField::inPort, port).bytes(), {}});
  std::sort(wanted.begin(), wanted.end());
  EXPECT_EQ(
      write(options, before, wanted),
      "the switch answers OFPBMC_BAD_VALUE to table=11,priority=9,in_port=70000 actions=drop");
  EXPECT_EQ(bridge->flows(), before);
  expectInForce(first, options, 20);
}

// Both have read the same flows. The one that comes second would leave what the first has added.
TEST_F(OvsSwitch, TwoThatWriteAtTheSameTimeDoNotMixTheirFlows) {
  auto const options = bridge->options();
  kick(*agent(small("e 10 r src 10.0.0.0/8 drop\ne 20 s dport 80 proto 6"), options));
  auto const one = bridge->flows();
  kick(*agent(small("e 10 r src 11.0.0.0/8 drop\ne 20 s dport 90 proto 17"), options));
  auto const other = bridge->flows();
  NaxelOvs::FlowSet const none;
  for (auto const& [before, wanted] : {std::pair(&other, &none), std::pair(&none, &other)}) {
    SCOPED_TRACE(before->size());
    if (before->empty()) bridge->tool("ovs-ofctl del-flows br0");
    NaxelOvs::Switch late(options.target.management, options.patience);
    EXPECT_EQ(late.ownFlows(options.layout), *before);
    EXPECT_EQ(write(options, *before, one), "");
    try {
      late.apply(NaxelOvs::changes(*before, *wanted), options.layout);
      ADD_FAILURE() << "written over flows that were not read";
    } catch (SwitchError const& error) {
      EXPECT_EQ(error.text.find("somebody else has written into our tables"), 0u) << error.text;
    }
    EXPECT_EQ(bridge->flows(), one);
  }
}

}  // namespace
}  // namespace Test
