/// Flows without a switch: their bytes and texts, what they do to packets, and which of them stay where rules change.

#include "ovs/Control.h"
#include "ovs/FlowSet.h"
#include "ovs/Interpreter.h"
#include "ovs/PieceCover.h"
#include "ovs/Priorities.h"
#include "ovs/Trace.h"
#include "ovs/Wire.h"
#include "support/Fresh.h"
#include "support/Vocabulary.h"
#include "support/World.h"
#include "verify/PacketSource.h"
#include "verify/RuleOracle.h"

#include <map>
#include <set>

#include <gtest/gtest.h>

namespace Test {
namespace {

using namespace NaxelOvs;

std::string bytes(std::string_view hex) {
  std::string out;
  for (size_t i = 0; i + 1 < hex.size(); i += 2)
    out += static_cast<char>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16));
  return out;
}

// As a switch of version 3.1 reports them.
TEST(OvsFlow, ReportedBytesAreReadInOneForm) {
  struct Case {
    char const* match;
    char const* text;
  };
  for (auto const& [match, text] : {
           Case{"80000a02080080001708"
                "0a000000ff000000",
                "ip,nw_src=10.0.0.0/8"},
           Case{"80000a0286dd80003520"
                "20010db8000000000000000000000000"
                "ffffffff000000000000000000000000",
                "ipv6,ipv6_src=2001:db8::/32"},
           Case{"80000a020800800014010680001d040050fff0", "tcp,tcp_dst=0x50/0xfff0"},
           Case{"80000a0286dd8000140184"
                "800024020050",
                "sctp6,sctp_dst=80"},
           Case{"80000a02080000003401"
                "03",
                "(a match of others)"},
           Case{"80000a02080000013401"
                "03",
                "ip,ip_frag=later"},
           Case{"00013401"
                "03"
                "80000a020800",
                "ip,ip_frag=later"},
           Case{"80000a020800800014010680000", "(a match of others)"},
           Case{"80000a020800800014013a", "ip,nw_proto=58"},
           Case{"80000a020800800014010"
                "600014408"
                "00020012",
                "(a match of others)"},
           Case{"80000a020800800014010600014504"
                "00020012",
                "tcp,tcp_flags=+syn-ack"},
           Case{"80000a0208008000140106ffff5508"
                "4f4e46000002"
                "0012",
                "tcp,tcp_flags=+syn-ack"},
           Case{"80000a0208008000140106ffff5508"
                "4f4e46010002"
                "0012",
                "(a match of others)"},
           Case{"00010108"
                "00110000"
                "00ff0000",
                "reg0=0x110000/0xff0000"},
           Case{"00010108"
                "00110000"
                "00000000",
                ""},
           Case{"00010108"
                "12345678"
                "ffffffff",
                "reg0=0x12345678"},
           Case{"0001010812345678", "(a match of others)"},
           Case{"0001000412345678"
                "0001000412345678",
                "(a match of others)"},
       }) {
    SCOPED_TRACE(match);
    auto const canonical = canonicalMatch(bytes(match));
    EXPECT_EQ(canonical ? matchText(*canonical) : "(a match of others)", text);
    if (canonical) {
      EXPECT_EQ(canonicalMatch(*canonical), canonical);
    }
  }
  for (auto const& [instructions, text] :
       {Case{"0004002000000000ffff0018000023200007040f00010004000000000000"
             "0011"
             "0001000802000000",
             "load:0x11->NXM_NX_REG0[16..31],goto_table:2"},
        Case{"0004001800000000"
             "00190010"
             "00010804"
             "123456780000"
             "0000"
             "0001000801000000",
             "load:0x12345678->NXM_NX_REG4[],goto_table:1"},
        Case{"0004002800000000"
             "00190010800010010a00000000000000"
             "00000010fffffffa0000000000000000",
             "set_field:10->ip_dscp,NORMAL"},
        Case{"", "drop"},
        Case{"0004001800000000"
             "00000010000000010000000000000000",
             "(actions of others)"},
        Case{"00010008010000", "(actions of others)"}, Case{"00010000", "(actions of others)"}}) {
    SCOPED_TRACE(instructions);
    EXPECT_EQ(instructionsText(bytes(instructions)), text);
  }
}

// Whatever a peer sends: no reader leaves the bytes, and whole messages survive.
TEST(OvsFlow, CutAndBentBytesAreNoMessages) {
  Flow const flow{1, 7, MatchBuilder().add(MatchField::ethType, etherIpv4).bytes(),
                  loadAndGo({0, 0, 16}, 5, 2)};
  std::string const whole =
      encode({wireVersion, MessageType::multipartReply, 9, flowStatsBody(3)}) +
      encode(
          {wireVersion, MessageType::flowMod, 9, bundleAddBody(1, 2, FlowCommand::add, flow, 3)});
  Dice dice(1);
  for (int i = 0; i < 20000; ++i) {
    std::string bent = whole.substr(0, dice.below(whole.size() + 1));
    for (uint64_t n = dice.below(4); n > 0 && !bent.empty(); --n)
      bent[dice.below(bent.size())] = static_cast<char>(dice.below(256));
    std::string fault;
    bool more = false;
    std::vector<ReportedFlow> flows;
    std::vector<TableRoom> rooms;
    uint64_t count = 0;
    while (auto const message = takeMessage(bent, fault)) {
      readFlows(*message, flows, more);
      readTables(*message, rooms, more);
      readCount(*message, count);
      errorName(*message);
      if (auto const match = canonicalMatch(message->body)) matchText(*match);
      instructionsText(message->body);
    }
    readReply(bent, fault);
  }
  EXPECT_EQ(errorName(5, 1), "OFPFMFC_TABLE_FULL");
  EXPECT_EQ(errorName(17, 13), "OFPBFC_MSG_FAILED");
  EXPECT_EQ(errorName(5, 99), "error 5, 99");
}

TEST(OvsControl, RepliesAreReadWithWhatJsonAllows) {
  struct Case {
    char const* text;
    char const* result;  // or the error behind a !, or - for an unfinished one, ? for a broken one
  };
  for (auto const& [text, expected] :
       {Case{R"({"result":"a\nb\"\u0041","error":null,"id":0})", "a\nb\"A"},
        Case{R"( { "error" : "no" , "id":0,"result":null})", "!no"}, Case{R"({"result":"a)", "-"},
        Case{R"({"result":"a\u00)", "-"}, Case{R"({"result":"a\q"})", "?"},
        Case{R"({"result":{"a":1}})", "?"}, Case{R"([])", "?"}, Case{"", "-"},
        Case{R"({"result":12,)", "-"}}) {
    SCOPED_TRACE(text);
    std::string fault;
    auto const reply = readReply(text, fault);
    EXPECT_EQ(reply           ? (reply->error.empty() ? reply->result : "!" + reply->error)
              : fault.empty() ? "-"
                              : "?",
              expected);
  }
  EXPECT_EQ(jsonString("a\"\\\n"), R"("a\"\\\u000a")");
}

TEST(OvsFlow, CoversSayOfEachPortWhatPiecesSay) {
  Dice dice(7);
  for (int i = 0; i < 60; ++i) {
    std::set<uint16_t> firsts = {0};
    for (uint64_t n = dice.below(12); n > 0; --n)
      firsts.insert(static_cast<uint16_t>(dice.oneIn(2) ? dice.below(40) : dice.below(65536)));
    std::vector<LabelPiece> pieces;
    for (uint16_t first : firsts) pieces.push_back({first, static_cast<uint16_t>(dice.below(4))});
    auto const cover = coverPorts(pieces);
    ASSERT_LE(cover.size(), pieces.size() * 15 + 1);
    size_t piece = 0;
    for (uint32_t v = 0; v < 65536; v += v < 64 ? 1 : 7) {
      while (piece + 1 < pieces.size() && pieces[piece + 1].first <= v) ++piece;
      PortCover const* best = nullptr;
      for (PortCover const& c : cover)
        if (((v ^ c.value) & c.mask()) == 0 && (!best || c.length > best->length)) best = &c;
      ASSERT_TRUE(best && best->label == pieces[piece].label) << v;
    }
  }
  EXPECT_EQ(coverPorts({{0, 1}, {1024, 2}}).size(), 2u);
  EXPECT_EQ(coverPorts({{0, 3}}).size(), 1u);
}

TEST(OvsPriorities, StayAcrossInsertionsAndKeepTheOrder) {
  Dice dice(3);
  for (size_t most : {5u, 300u, 65535u}) {
    std::vector<RankItem> items;
    size_t moved = 0;
    size_t steps = most > 1000 ? 30 : 400;
    for (size_t step = 0; step < steps; ++step) {
      size_t const before = items.size();
      if (before == 0 || (before < most && !dice.oneIn(3))) {
        size_t const n = step == 0 ? (most > 1000 ? most - 2000 : 1) : 1;
        // Mostly in one place, which has no gaps soon.
        size_t const at = dice.oneIn(3) ? dice.below(before + 1) : before / 2;
        items.insert(items.begin() + static_cast<ptrdiff_t>(at), n, RankItem{});
      } else {
        items.erase(items.begin() + static_cast<ptrdiff_t>(dice.below(before)));
      }
      auto const priorities = assignPriorities(items);
      for (size_t i = 0; i < items.size(); ++i) {
        ASSERT_GT(priorities[i], 0);
        ASSERT_LT(priorities[i], i > 0 ? priorities[i - 1] : 65536);
        moved += items[i].present && *items[i].present != priorities[i];
        items[i].present = priorities[i];
      }
    }
    // One place that gets most of them has used up its gap soon, and what is full has narrow ones.
    EXPECT_LE(moved, steps * (most > 1000 ? 300 : 3)) << most;
  }
  // Two that were there the other way round: the heavier one stays.
  EXPECT_EQ(assignPriorities({{10, 1}, {20, 5}}), (std::vector<uint16_t>{32778, 20}));
}

// A bound way to every ACL; rules that no flow can say are left out.
void makeSayable(Naxel::AclConfigColl& acls, Dice& dice) {
  for (auto const& [name, acl] : acls.acl())
    for (auto const& [index, rule] : acl->ruleById()) {
      Naxel::NaxelActionValue action = rule->action();
      action.logEnabledIs(false);
      action.setTcEnabledIs(false);
      action.setDscpEnabledIs(dice.oneIn(4));
      action.dscpIs(Lumox::DscpValue(dice.below(64)));
      rule->actionIs(action);
      if (!rule->ruleFilter()) continue;
      auto const filter = rule->ruleFilterIs();
      filter->lengthDelAll();
      if (filter->fragment().empty()) continue;
      filter->fragmentDelAll();
      uint32_t const first = dice.oneIn(2) ? 0 : 1;
      filter->fragmentIs(Naxel::FragmentRange(first, first ? 8191 : 0));
    }
}

// The flows of rules against the rules themselves, with combinations and without, by rules of few values, so that they
// collide; and after a change the difference makes of the flows of before exactly those of after.
TEST(OvsTranslation, FlowsDoWhatTheRulesSay) {
  size_t loaded = 0;
  for (uint64_t seed = 1; seed <= 60; ++seed) {
    SCOPED_TRACE(seed);
    Dice dice(seed);
    World world;
    NaxelOvs::setWidths(*world.capability);
    if (seed % 3 == 0)
      for (auto type : Naxel::allComboLabelSetTypes())
        world.capability->comboXformWidthIs(type, 16);
    Layout layout;
    layout.firstTable = static_cast<uint8_t>(dice.below(40));
    layout.firstRegister = static_cast<uint8_t>(dice.below(11));
    layout.next = {Exit::Kind::table, 200};
    FlowSet flows;
    for (int change = 0; change < 3; ++change) {
      world.acls->aclDelAll();
      drawAcls(dice, *world.acls);
      makeSayable(*world.acls, dice);
      if (world.kick() != Naxel::NaxelProgress::naxelFinishedSuccess) continue;
      ++loaded;
      layout.bindings.clear();
      uint32_t port = 0;
      for (auto const& [name, acl] : world.acls->acl())
        layout.bindings.push_back({name, Binding::By::inPort, 0, ++port});
      auto const translation = translate(world.tables(), layout);
      std::string refusal = translation.refusal;
      if (refusal.find("matches ports of protocol") != refusal.npos ||
          refusal.find("matches later fragments of IPv6") != refusal.npos)
        continue;
      ASSERT_EQ(refusal, "");
      FlowSet const after = ranked(translation, layout, flows, refusal);
      FlowChanges const diff = changes(flows, after);
      std::set<Flow> patched(flows.begin(), flows.end());
      for (Flow const* f : diff.del) EXPECT_EQ(patched.erase(*f), 1u);
      for (Flow const* f : diff.change)
        std::erase_if(patched, [&](Flow const& p) { return p.sameKey(*f); });
      for (auto const* list : {&diff.add, &diff.change})
        for (Flow const* f : *list) patched.insert(*f);
      EXPECT_TRUE(std::equal(patched.begin(), patched.end(), after.begin(), after.end()));
      flows = after;
      for (Flow const& f : flows) EXPECT_EQ(canonicalMatch(f.match), f.match) << text(f);
      Verify::PacketSource source(*world.acls, seed);
      for (int i = 0; i < 150; ++i) {
        Verify::Packet const packet = source.next();
        if (!packet.isPossible()) continue;
        port = 0;
        for (auto const& [name, acl] : world.acls->acl()) {
          ++port;
          if (Verify::familyOf(*acl) != packet.af) continue;
          auto const rule = Verify::firstMatch(*acl, packet);
          auto const action = rule ? acl->ruleById(*rule)->action() : Naxel::NaxelActionValue();
          std::string const wanted =
              !rule || action.dropEnabled()
                  ? "drop"
                  : (action.setDscpEnabled()
                         ? "set_field:" + std::to_string(action.dscp().value()) + "->ip_dscp,"
                         : "") +
                        "goto_table:200";
          ASSERT_EQ(interpret(flows, layout, packet, port), wanted) << name << " " << packet;
        }
      }
    }
  }
  EXPECT_GT(loaded, 100u);
}

TEST(OvsTranslation, WhatNoFlowCanSayIsRefusedInWords) {
  struct Case {
    char const* rules;
    char const* refusal;
  };
  for (auto const& [rules, refusal] : {
           Case{"e 10 r length 100-200",
                "rule 10 of ACL e matches the length of packets, which Open vSwitch cannot"},
           Case{"e 10 r fragment 5-100", "rule 10 of ACL e matches some fragment offsets above 0"},
           Case{"e 10 r fragment 1-8191\ne 20 s fragment 0", ""},
           Case{"e 10 r src 11::/16 proto 17 fragment 1-8191",
                "rule 10 of ACL e matches later fragments of IPv6 by their protocol"},
           Case{"e 10 r src 11::/16 proto 6,44 fragment 1-8191\ne 20 s dst 11::/16 proto 17", ""},
           Case{"e 10 r src 10.0.0.0/8 proto 17 fragment 1-8191", ""},
           Case{"e 10 r proto 136 dport 80", "rule 10 of ACL e matches ports of protocol 136"},
           Case{"e 10 r proto 47 dport 80", ""},
           Case{"e 10 r proto 6,136 dport 80", ""},
           Case{"e 10 r dport 80 tc=3", "rule 10 of ACL e sets a traffic class"},
           Case{"e 10 r log", "rule 10 of ACL e logs"},
           Case{"e 10 r src 10.0.0.0/8\nf 10 r src 11.0.0.0/8", "there are several ACLs of ipv4"},
           Case{"e 10 r src 10.0.0.0/8\nf 10 r src 11::/16", ""},
       }) {
    SCOPED_TRACE(rules);
    World world(rules);
    NaxelOvs::setWidths(*world.capability);
    ASSERT_EQ(world.kick(), Naxel::NaxelProgress::naxelFinishedSuccess) << world.failureText();
    Layout layout;
    std::string const found = translate(world.tables(), layout).refusal;
    EXPECT_TRUE(*refusal ? found.starts_with(refusal) : found.empty()) << found;
    layout.ignoreActions = true;
    EXPECT_NE(translate(world.tables(), layout).refusal.find("logs"), 0u);
    layout.bindings = {{"g"}};
    EXPECT_EQ(translate(world.tables(), layout).refusal, "there is no ACL 'g' among the rules");
  }
}

TEST(OvsLayout, WhatNoBridgeHasIsAFault) {
  using By = Binding::By;
  auto const faultOf = [](auto const& change) {
    Layout layout;
    change(layout);
    return layoutFault(layout);
  };
  auto const bind = [&](Binding const& binding) {
    return faultOf([&](Layout& l) { l.bindings = {binding}; });
  };
  // The switch refuses flows in its last table, and matches on ports that cannot be.
  EXPECT_EQ(faultOf([](Layout& l) { l.firstTable = 242; }), "");
  EXPECT_EQ(faultOf([](Layout& l) { l.firstTable = 243; }),
            "the tables from 243 on are fewer than the 12 that are needed");
  EXPECT_EQ(faultOf([](Layout& l) { l.next = {Exit::Kind::table, 253}; }), "");
  EXPECT_EQ(faultOf([](Layout& l) {
              l.next = {Exit::Kind::table, 254};
            }),
            "permitted packets go to table 254, and the last one of a bridge is 253");
  EXPECT_EQ(faultOf([](Layout& l) {
              l.noAcl = {Exit::Kind::table, 11};
            }),
            "packets without an ACL go to table 11, which is not behind our last one, 11");
  EXPECT_EQ(faultOf([](Layout& l) { l.firstRegister = 11; }),
            "the registers from 11 on are fewer than the 6 that are needed");
  for (uint32_t port : {1u, 65279u, 0xfffffffeu})
    EXPECT_EQ(bind({"e", By::inPort, 0, port}), "") << port;
  for (uint32_t port : {0u, 65280u, 65534u, 70000u, 0xffffffffu})
    EXPECT_EQ(bind({"e", By::inPort, 0, port}).find("no port of a bridge has the number"), 0u)
        << port;
  EXPECT_EQ(bind({"e", By::reg, 16, 0}), "there is no register 16");
}

}  // namespace
}  // namespace Test
