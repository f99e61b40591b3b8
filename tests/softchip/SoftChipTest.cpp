/// The driver's side of the handshake: requests written by hand, answers as the chip gives them.

#include "softchip/SoftChip.h"
#include "support/Output.h"
#include "support/World.h"
#include "verify/NaiveLookup.h"
#include "verify/PacketSource.h"
#include "verify/RuleOracle.h"

#include <algorithm>

#include <gtest/gtest.h>

namespace SoftChip {

using namespace Verify;
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
  out.widths->rangeXformWidthIs(Naxel::RangeSetType::dstPort, 8);
  out.entry(edge, rule, std::vector<Match>{});
  for (uint16_t p = 0; p < ports; ++p) out.range(Naxel::RangeSetType::dstPort, p, p, p);
  return out.data;
}

/// The library's side by hand, with everything that the chip writes on record.
class Bench : private Naxel::PDStatus::Notifiee {
 public:
  explicit Bench(Options const& options = {}, bool withWheel = true) {
    notifierIs(status.get());
    build(options, withWheel);
  }
  void build(Options const& options, bool withWheel = true) {
    chip.reset();
    chip = std::make_unique<Chip>(config, status, withWheel ? wheel : nullptr, options);
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

  ResourceStatus at(Table t) const { return Naxel::tableStatus(*status, t); }
  /// True if every table but the one for TCP flags says this.
  bool all(double id, ResponseState state) const {
    return std::all_of(Naxel::allPDTables().begin(), Naxel::allPDTables().end(), [&](Table t) {
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
    bool const othersAgree =
        std::all_of(Naxel::allPDTables().begin(), Naxel::allPDTables().end(), [&](Table t) {
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
           {"wider than 8 bits", [](Bench& b) {
              Output out;
              out.widths->rangeXformWidthIs(Naxel::RangeSetType::dstPort, 8);
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

}  // namespace
}  // namespace SoftChip
