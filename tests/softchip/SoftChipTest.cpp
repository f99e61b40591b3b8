/// The driver's side of the handshake: requests written by hand, answers as the chip gives them.

#include "Output.h"
#include "softchip/NaiveLookup.h"
#include "softchip/PacketSource.h"
#include "softchip/RuleOracle.h"
#include "softchip/SoftChip.h"
#include "support/World.h"

#include <algorithm>

#include <gtest/gtest.h>

namespace SoftChip {
namespace {

using Naxel::GlobalAclControl;
using Naxel::PDAclKey;
using Naxel::PDData;
using Naxel::RequestState;
using Naxel::ResourceStatus;
using Naxel::ResponseState;

PDAclKey const edge(Lumox::ipv4(), "edge");

/// An output whose only rule has index `rule`, and that has `ports` port ranges.
Mox::Ptr<PDData const> outputOf(uint32_t rule, uint16_t ports = 0) {
  Output out;
  out.entry(edge, rule, std::vector<Match>{});
  for (uint16_t p = 0; p < ports; ++p) out.range(Naxel::RangeSetType::dstPort, p, p, p);
  return out.data;
}

/// The library's side by hand, with everything that the chip writes on record.
class Bench : private Naxel::PDStatus::Notifiee {
 public:
  explicit Bench(Options const& options = {}, bool withWheel = true) {
    capability->rangeXformWidthIs(Naxel::RangeSetType::dstPort, 8);
    config->prevPDDataIs(Naxel::pDDataFactory());
    notifierIs(status.get());
    build(options, withWheel);
  }
  void build(Options const& options, bool withWheel = true) {
    chip.reset();
    chip = std::make_unique<Chip>(config, status, capability, withWheel ? wheel : nullptr, options);
    chip->observerIs([this](Write const& w) { observed(w); });
  }

  void acquire(double id, Mox::Ptr<PDData const> data) {
    config->prevPDDataIs(chip->inForce() ? chip->inForce() : config->prevPDData());
    config->currPDDataIs(std::move(data));
    request(id, RequestState::acquire);
  }
  void request(double id, RequestState state) { config->pdResourceConfigIs({id, state}); }
  void policy(GlobalAclControl v) { config->globalAclControlIs(v); }
  void load(double id, Mox::Ptr<PDData const> data) {
    acquire(id, std::move(data));
    run();
    request(id, RequestState::load);
    run();
  }
  void run() { ASSERT_TRUE(activity.runUntilIdle(1000)); }

  ResourceStatus at(Table t) const { return statusOf(*status, t); }
  /// True if every table but the one for TCP flags says this.
  bool all(double id, ResponseState state) const {
    return std::all_of(allTables().begin(), allTables().end(), [&](Table t) {
      return t == Table::tcpFlags || at(t) == ResourceStatus(id, state);
    });
  }
  /// What a packet meets now.
  std::string probe() { return text(chip->lookup(edge, packetOf("10.0.0.1"))); }

  Mox::ManualClock clock;
  Mox::Activity activity{clock};
  Mox::Ptr<Obel::TimerWheel> wheel = Mox::makePtr<Obel::TimerWheel>(activity);
  Mox::Ptr<Naxel::PDConfig> config = Naxel::pDConfigFactory(Obel::ChipId(0));
  Mox::Ptr<Naxel::PDStatus> status = Mox::makePtr<Naxel::PDStatus>(Obel::ChipId(0));
  Mox::Ptr<Naxel::ChipHwCapability> capability =
      Mox::makePtr<Naxel::ChipHwCapability>(Obel::ChipId(0));
  std::unique_ptr<Chip> chip;
  std::vector<Table> answered;       // in the order of the writes
  std::vector<std::string> probes;   // what packets met after each write, repetitions left out
  std::vector<std::string> entries;  // ACL table statuses as they changed
  std::function<void()> reaction;    // of the library to a changed status of the ACL table

 private:
  void observed(Write const& w) {
    if (w.kind == Write::Kind::answer) answered.push_back(w.table);
    std::string const met = probe();
    if (probes.empty() || probes.back() != met) probes.push_back(met);
  }
  void onPdAclRuleEntryStatus() override {
    auto const& s = status->pdAclRuleEntryStatus();
    entries.push_back(std::to_string(static_cast<int>(s.responseId())) + " " +
                      Mox::stringValue(s.responseState()));
    if (reaction) reaction();
  }
};

TEST(SoftChip, EveryTableIsAnsweredInTheChosenOrderAndTime) {
  for (uint32_t delay : {0u, 1u, 3u}) {
    for (Pace pace : {Pace::together, Pace::oneByOne}) {
      for (AnswerOrder order :
           {AnswerOrder::standard, AnswerOrder::reversed, AnswerOrder::prefixTablesLast}) {
        for (TcpFlagsAnswer tcp :
             {TcpFlagsAnswer::inTurn, TcpFlagsAnswer::last, TcpFlagsAnswer::never}) {
          SCOPED_TRACE(testing::Message() << delay << int(pace) << int(order) << int(tcp));
          Options options;
          options.answerAfterTicks = delay;
          options.pace = pace;
          options.order = order;
          options.tcpFlags = tcp;
          Bench bench(options);
          size_t const count = tcp == TcpFlagsAnswer::never ? 15 : 16;

          bench.acquire(1, outputOf(10));
          size_t const atOnce = delay > 0 ? 0 : pace == Pace::together ? count : 1;
          EXPECT_EQ(bench.answered.size(), atOnce);
          for (uint32_t i = 1; i < delay; ++i) bench.activity.runPass();
          EXPECT_EQ(bench.answered.size(), atOnce);
          bench.run();
          EXPECT_TRUE(bench.all(1, ResponseState::hitless));
          ASSERT_EQ(bench.answered.size(), count);
          Table const first = order == AnswerOrder::reversed           ? Table::aclEntries
                              : order == AnswerOrder::prefixTablesLast ? Table::v4PrefixCombo
                                                                       : Table::v4Source;
          EXPECT_EQ(bench.answered.front(), first);
          if (order == AnswerOrder::prefixTablesLast && tcp != TcpFlagsAnswer::last) {
            EXPECT_EQ(bench.answered.back(), Table::v6Destination);
          }
          if (tcp == TcpFlagsAnswer::last) {
            EXPECT_EQ(bench.answered.back(), Table::tcpFlags);
          }
          EXPECT_EQ(bench.at(Table::tcpFlags), tcp == TcpFlagsAnswer::never
                                                   ? ResourceStatus()
                                                   : ResourceStatus(1, ResponseState::hitless));

          bench.request(1, RequestState::load);
          bench.run();
          EXPECT_TRUE(bench.all(1, ResponseState::loaded));
          EXPECT_EQ(bench.chip->inForce(), bench.config->currPDData());
          EXPECT_TRUE(bench.chip->idle());
          EXPECT_TRUE(bench.chip->breaches().empty());
        }
      }
    }
  }
}

TEST(SoftChip, TheWayOfAChangeFollowsFromTheRoom) {
  struct Case {
    char const* name;
    uint16_t held;
    uint16_t wanted;
    size_t capacity;
    bool forceHitful;
    ResponseState others;
    ResponseState dstPort;
  };
  using enum ResponseState;
  for (Case const& c :
       std::initializer_list<Case>{{"side by side", 3, 5, 8, false, hitless, hitless},
                                   {"one too many", 3, 6, 8, false, hitful, hitful},
                                   {"just fits alone", 8, 8, 8, false, hitful, hitful},
                                   {"less room than before", 5, 3, 4, false, hitful, hitful},
                                   {"never fits", 3, 9, 8, false, hitless, failed},
                                   {"never fits and held", 8, 9, 8, false, hitful, failed},
                                   {"forced", 0, 1, 8, true, hitful, hitful},
                                   {"no room at all", 0, 0, 0, false, hitless, hitless}}) {
    SCOPED_TRACE(c.name);
    Bench bench;
    bench.load(1, outputOf(10, c.held));
    bench.chip->options().capacity[Table::dstPort] = c.capacity;
    bench.chip->options().forceHitful = c.forceHitful;
    bench.acquire(2, outputOf(20, c.wanted));
    EXPECT_EQ(bench.at(Table::dstPort), ResourceStatus(2, c.dstPort));
    bool const othersAgree = std::all_of(allTables().begin(), allTables().end(), [&](Table t) {
      return t == Table::dstPort || bench.at(t).responseState() == c.others ||
             (c.dstPort == failed && bench.at(t).responseState() == hitful);
    });
    EXPECT_TRUE(othersAgree);
    EXPECT_EQ(bench.chip->shortfalls().size(), c.dstPort == failed ? 1u : 0u);
    if (c.dstPort == failed) {
      EXPECT_EQ(text(bench.chip->shortfalls()[0]), "dstPort: 9 entries needed, 8 available");
    }
  }
}

TEST(SoftChip, RefusesAsManyAcquiresAsAskedAndRevertKeepsWhatIsInForce) {
  Bench bench;
  auto const first = outputOf(10);
  bench.load(1, first);
  bench.chip->options().refuseTable = Table::v6Source;
  bench.chip->options().refuseAcquires = 1;
  bench.acquire(2, outputOf(20));
  EXPECT_EQ(bench.at(Table::v6Source), ResourceStatus(2, ResponseState::failed));
  EXPECT_EQ(bench.at(Table::aclEntries), ResourceStatus(2, ResponseState::hitless));

  bench.probes.clear();
  bench.config->currPDDataIs(first);
  bench.request(2, RequestState::revert);
  EXPECT_TRUE(bench.all(2, ResponseState::reverted));
  EXPECT_EQ(bench.probes, std::vector<std::string>{"rule 10 entry 0 permit"});
  EXPECT_EQ(bench.chip->inForce(), first);

  bench.load(3, outputOf(30));
  EXPECT_EQ(bench.probe(), "rule 30 entry 0 permit");
  EXPECT_TRUE(bench.chip->breaches().empty());
}

TEST(SoftChip, RevertWithoutAnyLoadPutsTheEmptyOutputInForce) {
  Bench bench;
  auto const empty = bench.config->prevPDData();
  bench.chip->options().refuseAcquires = 1;
  bench.acquire(1, outputOf(10));
  bench.config->currPDDataIs(empty);
  bench.request(1, RequestState::revert);
  EXPECT_TRUE(bench.all(1, ResponseState::reverted));
  EXPECT_EQ(bench.chip->inForce(), empty);
  EXPECT_EQ(bench.probe(), "none");
}

TEST(SoftChip, AHitlessChangeShowsPacketsTheOldOrTheNewOutput) {
  Bench bench;
  bench.load(1, outputOf(10));
  EXPECT_EQ(bench.chip->hits(edge, Naxel::AceIndex(10), 0), bench.answered.size() - 16 + 1);
  bench.probes.clear();
  bench.load(2, outputOf(20));
  EXPECT_EQ(bench.probes,
            (std::vector<std::string>{"rule 10 entry 0 permit", "rule 20 entry 0 permit"}));
  // Nothing says loaded before the switch.
  EXPECT_EQ(bench.chip->hits(edge, Naxel::AceIndex(10), 0), 0u);
}

TEST(SoftChip, AHitfulChangeNeedsAPolicy) {
  for (bool withPolicy : {true, false}) {
    SCOPED_TRACE(withPolicy);
    Options options;
    options.answerAfterTicks = 2;
    options.confirmPolicyAfterTicks = 2;
    Bench bench(options);
    bench.load(1, outputOf(10));
    bench.chip->options().forceHitful = true;
    bench.probes.clear();

    bench.acquire(2, outputOf(20));
    bench.run();
    EXPECT_TRUE(bench.all(2, ResponseState::hitful));
    if (withPolicy) {
      bench.policy(GlobalAclControl::denyAll);
      bench.activity.runPass();
      EXPECT_EQ(bench.chip->policy(), GlobalAclControl::doNotApply);
      bench.activity.runPass();
      EXPECT_EQ(bench.status->globalAclControl(), GlobalAclControl::denyAll);
    }
    bench.request(2, RequestState::load);
    EXPECT_EQ(bench.chip->tables(), nullptr);
    bench.run();
    EXPECT_TRUE(bench.all(2, ResponseState::loaded));
    if (withPolicy) {
      bench.policy(GlobalAclControl::doNotApply);
      bench.run();
    }
    EXPECT_EQ(bench.probes, (std::vector<std::string>{"rule 10 entry 0 permit",
                                                      withPolicy ? "policy denyAll" : "disturbed",
                                                      "rule 20 entry 0 permit"}));
    EXPECT_EQ(bench.chip->breaches().size(), withPolicy ? 0u : 1u);
  }
}

TEST(SoftChip, ANewAcquireSupersedesTheOldOne) {
  for (bool stale : {false, true}) {
    SCOPED_TRACE(stale);
    Options options;
    options.answerAfterTicks = 2;
    options.pace = Pace::oneByOne;
    options.staleAnswers = stale;
    Bench bench(options);
    bench.acquire(1, outputOf(10));
    bench.acquire(2, outputOf(20));  // nothing was answered yet
    for (int i = 0; i < 6; ++i) bench.activity.runPass();
    EXPECT_EQ(bench.at(Table::v4Source), ResourceStatus(2, ResponseState::hitless));
    EXPECT_EQ(bench.at(Table::aclEntries), ResourceStatus());
    bench.acquire(3, outputOf(30));  // half was answered
    bench.run();
    EXPECT_TRUE(bench.all(3, ResponseState::hitless));
    EXPECT_EQ(bench.entries, stale ? (std::vector<std::string>{"2 hitless", "3 hitless"})
                                   : (std::vector<std::string>{"3 hitless"}));
  }
}

TEST(SoftChip, ALoadIsFinishedBeforeANewerAcquireIsAnswered) {
  Options options;
  options.answerAfterTicks = 3;
  Bench bench(options, false);  // without a wheel the owner ticks
  auto const tick = [&](int times) {
    while (times-- > 0) bench.chip->tick();
  };
  auto const first = outputOf(10);
  bench.acquire(1, first);
  tick(3);
  bench.request(1, RequestState::load);
  tick(1);
  bench.acquire(2, outputOf(20));
  bench.acquire(3, outputOf(30));
  tick(2);
  EXPECT_EQ(bench.entries, (std::vector<std::string>{"1 hitless", "1 loaded"}));
  tick(3);
  EXPECT_EQ(bench.entries.back(), "3 hitless");
  EXPECT_TRUE(bench.chip->idle());
  EXPECT_EQ(bench.chip->inForce(), first);
  EXPECT_TRUE(bench.chip->breaches().empty());
}

TEST(SoftChip, ALibraryMayReactWithinTheAnswers) {
  for (TcpFlagsAnswer tcp : {TcpFlagsAnswer::inTurn, TcpFlagsAnswer::last}) {
    SCOPED_TRACE(int(tcp));
    Options options;
    options.tcpFlags = tcp;
    options.forceHitful = true;
    Bench bench(options);
    bench.reaction = [&] {
      if (bench.all(1, ResponseState::hitful)) {
        bench.policy(GlobalAclControl::permitAll);
        EXPECT_EQ(bench.status->globalAclControl(), GlobalAclControl::permitAll);
        bench.request(1, RequestState::load);
        EXPECT_TRUE(bench.all(1, ResponseState::loaded));
        bench.policy(GlobalAclControl::doNotApply);
      }
    };
    bench.acquire(1, outputOf(10));
    EXPECT_EQ(bench.entries, (std::vector<std::string>{"1 hitful", "1 loaded"}));
    EXPECT_EQ(bench.probe(), "rule 10 entry 0 permit");
    EXPECT_EQ(bench.at(Table::tcpFlags), ResourceStatus(1, ResponseState::loaded));
    EXPECT_TRUE(bench.chip->breaches().empty());
    auto const tcpFlags = std::find(bench.answered.begin(), bench.answered.end(), Table::tcpFlags);
    EXPECT_EQ(tcpFlags - bench.answered.begin(), tcp == TcpFlagsAnswer::last ? 30 : 14);
  }
}

TEST(SoftChip, BreachesOfTheContractAreOnRecord) {
  struct Case {
    char const* finding;
    std::function<void(Bench&)> act;
  };
  for (Case const& c : std::initializer_list<Case>{
           {"not acquired",
            [](Bench& b) {
              b.config->currPDDataIs(outputOf(10));
              b.request(1, RequestState::load);
            }},
           {"not acquired",
            [](Bench& b) {
              b.chip->options().refuseAcquires = 1;
              b.load(1, outputOf(10));
            }},
           {"not acquired",
            [](Bench& b) {
              b.acquire(1, outputOf(10));
              b.request(2, RequestState::load);
            }},
           {"another output",
            [](Bench& b) {
              b.acquire(1, outputOf(10));
              b.config->currPDDataIs(outputOf(20));
              b.request(1, RequestState::load);
            }},
           {"before it had been confirmed",
            [](Bench& b) {
              b.chip->options().confirmPolicyAfterTicks = 1;
              b.policy(GlobalAclControl::denyAll);
              b.policy(GlobalAclControl::permitAll);
            }},
           {"without an output", [](Bench& b) { b.request(1, RequestState::acquire); }},
           {"wider than 8 bits", [](Bench& b) {
              Output out;
              out.range(Naxel::RangeSetType::dstPort, 1, 1, 256);
              b.acquire(1, out.data);
            }}}) {
    SCOPED_TRACE(c.finding);
    Bench bench;
    c.act(bench);
    bench.run();
    ASSERT_EQ(bench.chip->breaches().size(), 1u);
    EXPECT_NE(bench.chip->breaches()[0].find(c.finding), std::string::npos)
        << bench.chip->breaches()[0];
  }
}

TEST(SoftChip, AChipBuiltOverAConfigurationInUseTakesOver) {
  Options slow;
  slow.answerAfterTicks = 3;
  slow.pace = Pace::oneByOne;
  auto const first = outputOf(10);
  auto const second = outputOf(20);
  struct Case {
    char const* name;
    std::function<void(Bench&)> before;
    std::string probe;   // at once
    std::string answer;  // in the end
  };
  for (Case const& c : std::initializer_list<Case>{
           {"acquire waiting", [&](Bench& b) { b.acquire(2, second); }, "rule 10 entry 0 permit",
            "2 hitless"},
           {"acquire half answered",
            [&](Bench& b) {
              b.acquire(2, second);
              for (int i = 0; i < 8; ++i) b.activity.runPass();
            },
            "rule 10 entry 0 permit", "2 hitless"},
           {"load waiting",
            [&](Bench& b) {
              b.acquire(2, second);
              b.run();
              b.request(2, RequestState::load);
            },
            "rule 10 entry 0 permit", "2 loaded"},
           {"loaded", [&](Bench& b) { b.load(2, second); }, "rule 20 entry 0 permit", "2 loaded"},
           {"policy waiting",
            [&](Bench& b) {
              b.chip->options().confirmPolicyAfterTicks = 5;
              b.policy(GlobalAclControl::denyAll);
            },
            "policy denyAll", "1 loaded"}}) {
    SCOPED_TRACE(c.name);
    Bench bench(slow);
    bench.load(1, first);
    c.before(bench);
    bench.build({});
    EXPECT_EQ(bench.probe(), c.answer == "2 loaded" ? "rule 20 entry 0 permit" : c.probe);
    EXPECT_EQ(bench.entries.back(), c.answer);
    EXPECT_EQ(bench.status->globalAclControl(), bench.config->globalAclControl());
    EXPECT_TRUE(bench.chip->breaches().empty());
    if (c.answer == "2 hitless") {
      bench.request(2, RequestState::load);
      EXPECT_EQ(bench.probe(), "rule 20 entry 0 permit");
      EXPECT_TRUE(bench.chip->breaches().empty());
    }
  }
}

TEST(SoftChip, ThePipelinesTablesGiveTheVerdictsOfTheRules) {
  ::Test::World world(
      "edge 10 a src 10.0.0.0/8,!10.1.0.0/16 dport 80,443-450 proto 6 init drop\n"
      "edge 20 b dst 20.0.0.0/8 sport 1024-65535 proto 6 est\n"
      "edge 30 c src 10.1.0.0/16 dst 20.1.0.0/16,30.0.0.0/8 proto 17 dscp 8-15\n"
      "edge 40 d src 10.0.0.0/7 icmp 8 proto 1 drop\n"
      "six 10 a src 2001:db8::/32,!2001:db8:1::/48 dst 2001::/16 proto 6,58\n"
      "six 20 b len 0-1280 frag 1-8191 drop\n");
  world.driver.automatic = world.driver.confirms = false;
  Options options;
  options.answerAfterTicks = 1;
  options.missYields = MissYields::highest;
  Chip chip(world.pdConfig, world.pdStatus, world.capability, world.wheel, options);
  for (bool labelled : {false, true}) {
    if (labelled) {
      for (Naxel::RangeSetType type : Naxel::allRangeSetTypes())
        world.capability->rangeXformWidthIs(type, 8);
      for (Naxel::ComboLabelSetType type : Naxel::allComboLabelSetTypes())
        world.capability->comboXformWidthIs(type, 10);
      chip.options().forceHitful = true;
    }
    ASSERT_EQ(world.kick(), Naxel::NaxelProgress::naxelFinishedSuccess) << world.failureText();
    EXPECT_EQ(chip.policy(), GlobalAclControl::doNotApply);
    for (auto const& [name, acl] : world.acls->acl()) {
      RuleOracle const oracle(*acl);
      PacketSource source(*acl, 11);
      for (int i = 0; i < 4000; ++i) {
        Packet const packet = source.next();
        Verdict const verdict = chip.lookup(PDAclKey(oracle.af(), name), packet);
        auto const rule = oracle.firstMatch(packet);
        ASSERT_EQ(verdict.kind, rule ? Verdict::Kind::rule : Verdict::Kind::none)
            << packet << " with " << text(chip.labelsOf(packet));
        if (rule) {
          ASSERT_EQ(verdict.rule, *rule) << packet;
          ASSERT_EQ(verdict.action, acl->ruleById(*rule)->action());
        }
      }
    }
    EXPECT_TRUE(chip.breaches().empty()) << chip.breaches().front();
  }
}

}  // namespace
}  // namespace SoftChip
