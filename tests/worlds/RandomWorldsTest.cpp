/// Small random worlds under random edits. After every kick that reports success the tables must give
/// every probed packet the verdict of the ordered rules, and must equal, entry for entry, those that a
/// fresh pipeline makes of the same configuration; after every kick that reports failure they must be
/// what they were before. Values are drawn from few, so that rules, sets and edges collide.
///
/// A failing run prints its seed; NAXEL_SEED=n runs that seed alone, NAXEL_SEEDS=n the first n.

#include "mox/Trace.h"
#include "softchip/LoadedTables.h"
#include "softchip/NaiveLookup.h"
#include "softchip/PacketSource.h"
#include "softchip/RuleOracle.h"
#include "support/World.h"

#include <cstdlib>

#include <gtest/gtest.h>

namespace Test {
namespace {

using namespace Naxel;
using SoftChip::Random;

/// Random pieces of configurations, from a small vocabulary.
class Vocabulary {
 public:
  explicit Vocabulary(Random& random) : random_(random) {}

  std::string prefix(Lumox::AddressFamily af) {
    // Three bits below a fixed byte, cut at lengths 8 to 11, sometimes with host bits or everything.
    if (random_.oneIn(20)) return af == Lumox::ipv4() ? "0.0.0.0/0" : "::/0";
    uint64_t const bits = random_.below(8) << 5;
    uint64_t const length = random_.between(8, 11);
    if (af == Lumox::ipv4())
      return "10." + std::to_string(bits) + (random_.oneIn(6) ? ".1.2/" : ".0.0/") +
             std::to_string(length);
    char text[40];
    std::snprintf(text, sizeof text, "20%02x::%s/%u", static_cast<unsigned>(bits),
                  random_.oneIn(6) ? "5" : "", static_cast<unsigned>(length));
    return text;
  }
  std::string list(Lumox::AddressFamily af) {
    std::string out;
    uint64_t const members = random_.below(4);
    for (uint64_t i = 0; i < members; ++i) out += (i ? "," : "") + prefix(af);
    uint64_t const exceptions = members == 0 ? 1 : random_.oneIn(3) ? random_.between(1, 2) : 0;
    for (uint64_t i = 0; i < exceptions; ++i) out += (out.empty() ? "!" : ",!") + prefix(af);
    return out;
  }
  std::string ranges(uint32_t bound) {
    std::string out;
    for (uint64_t i = 0, n = random_.between(1, 3); i < n; ++i) {
      uint64_t a = random_.oneIn(8) ? bound - random_.below(3) : random_.below(12);
      uint64_t b = random_.oneIn(8) ? bound : random_.oneIn(3) ? a : random_.below(12);
      if (a > b) std::swap(a, b);
      out += (i ? "," : "") + std::to_string(a) + "-" + std::to_string(b);
    }
    return out;
  }
  std::string filter(Lumox::AddressFamily af) {
    std::string out;
    auto const maybe = [&](unsigned n, char const* key, std::string const& value) {
      if (random_.oneIn(n)) out += std::string(key) + " " + value + " ";
    };
    maybe(2, "src", list(af));
    maybe(2, "dst", list(af));
    maybe(3, "sport", ranges(65535));
    maybe(2, "dport", ranges(65535));
    maybe(6, "icmp", ranges(255));
    maybe(4, "proto", random_.oneIn(2) ? "6" : ranges(255));
    maybe(8, "len", ranges(65535));
    maybe(8, "frag", ranges(8191));
    maybe(8, "dscp", ranges(63));
    if (random_.oneIn(8)) out += "init ";
    if (random_.oneIn(8)) out += "est ";
    if (random_.oneIn(3)) out += "drop ";
    return out;
  }

 private:
  Random& random_;
};

class RandomWorld {
 public:
  explicit RandomWorld(uint64_t seed) : random_(seed), words_(random_) {
    drawWidths();
    for (uint64_t i = 0, n = random_.between(1, 3); i < n; ++i) addAcl();
  }

  void run(unsigned steps) {
    for (unsigned step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
      SCOPED_TRACE("step " + std::to_string(step));
      for (uint64_t i = 0, n = random_.below(3); i < n; ++i) edit();
      std::string const before = tablesText();
      if (random_.oneIn(6)) {
        w_.request();
        w_.runUntilStage(static_cast<NaxelActiveStage>(random_.between(1, 10)));
        w_.request(NaxelKickRequest::naxelCancel);
        w_.run();
        continue;
      }
      w_.driver.acquireAnswer = random_.oneIn(8)   ? ResponseState::failed
                                : random_.oneIn(4) ? ResponseState::hitful
                                                   : ResponseState::hitless;
      NaxelProgress const progress = w_.kick();
      if (progress == NaxelProgress::naxelFinishedSuccess) {
        ++successes;
        compareWithFresh();
        compareVerdicts();
      } else {
        ASSERT_EQ(progress, NaxelProgress::naxelFinishedFail);
        ++failures;
        EXPECT_NE(w_.failureText(), "");
        EXPECT_EQ(tablesText(), before);
        if (w_.driver.acquireAnswer != ResponseState::failed) {
          EXPECT_EQ(w_.kick(), NaxelProgress::naxelFinishedFail) << "on repetition";
        }
      }
      EXPECT_EQ(w_.pdStatus->globalAclControl(), GlobalAclControl::doNotApply);
    }
  }

  static inline unsigned successes = 0;
  static inline unsigned failures = 0;
  static inline uint64_t packets = 0;

 private:
  void drawWidths() {
    // Narrow spaces are full or overfull most of the time; one in three worlds has room.
    bool const roomy = random_.oneIn(3);
    auto const width = [&] { return static_cast<uint8_t>(roomy ? 16 : random_.between(1, 4)); };
    ChipHwCapability& c = *w_.capability;
    for (PrefixXformKey const& key : PrefixXformKey::all()) c.prefixXformWidthIs(key, width());
    for (RangeSetType type : allRangeSetTypes())
      c.rangeXformWidthIs(type, random_.oneIn(2) ? width() : uint8_t{0});
    for (ComboLabelSetType type : allComboLabelSetTypes())
      c.comboXformWidthIs(type, random_.oneIn(2) ? width() : uint8_t{0});
  }

  void addAcl() {
    std::string const name = "a" + std::to_string(random_.below(4));
    if (w_.acls->acl(name)) return;
    if (random_.oneIn(3)) w_.acls->aclIs(name)->afIs(Lumox::ipv6());
    w_.acls->aclIs(name);
    for (uint64_t i = 0, n = random_.between(0, 5); i < n; ++i) setRule(name);
  }
  Lumox::AddressFamily familyOf(std::string const& acl) {
    return w_.acls->acl(acl)->af().value_or(Lumox::ipv4());
  }
  void setRule(std::string const& acl) {
    auto const config = w_.acls->acl(acl);
    auto const rule = config->ruleByNameIs("r" + std::to_string(random_.below(6)));
    config->ruleByIdIs(AceIndex(static_cast<uint32_t>(random_.below(12))), rule);
    fillFilter(*rule, words_.filter(familyOf(acl)));
  }
  Mox::Ptr<AclConfig> someAcl() {
    std::vector<Mox::Ptr<AclConfig>> all;
    for (auto const& [name, acl] : w_.acls->acl()) all.push_back(acl);
    return all.empty() ? nullptr : random_.of(all);
  }
  Mox::Ptr<RuleConfig> someRule(AclConfig const& acl) {
    std::vector<Mox::Ptr<RuleConfig>> all;
    for (auto const& [name, rule] : acl.ruleByName()) all.push_back(rule);
    return all.empty() ? nullptr : random_.of(all);
  }

  void edit() {
    auto const acl = someAcl();
    auto const rule = acl ? someRule(*acl) : nullptr;
    switch (random_.below(10)) {
      case 0: return addAcl();
      case 1:
        if (acl) w_.acls->aclDel(acl->name());
        return;
      case 2:
        if (rule) acl->ruleByNameDel(rule->name());
        return;
      case 3:
        if (rule && rule->ruleFilter() && rule->ruleFilter()->source())
          rule->ruleFilter()->source()->addrIs(
              Mox::valueFromText<Lumox::IpGenPrefix>(words_.prefix(familyOf(acl->name()))));
        return;
      case 4:
        if (rule) {
          NaxelActionValue action = rule->action();
          action.logEnabledIs(!action.logEnabled());
          rule->actionIs(action);
        }
        return;
      case 5:
        if (rule && rule->ruleFilter())
          rule->ruleFilter()->matchTcpInitIs(!rule->ruleFilter()->matchTcpInit());
        return;
      case 6:
        if (rule) acl->ruleByIdIs(AceIndex(static_cast<uint32_t>(random_.below(12))), rule);
        return;
      case 7:
        if (random_.oneIn(3)) drawWidths();
        return;
      default:
        if (acl) setRule(acl->name());
    }
  }

  std::string tablesText() const {
    return w_.pdConfig->currPDData() ? dump(w_.tables()) : std::string();
  }

  void compareWithFresh() {
    World fresh;
    fresh.acls = w_.acls;
    fresh.capability = w_.capability;
    fresh.buildRoot();
    EXPECT_EQ(fresh.kick(), NaxelProgress::naxelFinishedSuccess) << fresh.failureText();
    EXPECT_EQ(tablesText(), dump(fresh.tables()));
    auto const action = [](PDData const& data) {
      std::string out;
      for (auto const& [key, acl] : data.pdAclColl()->pdAcl())
        for (auto const& [index, rule] : acl->rule()) out += valueToStrep(rule->action());
      return out;
    };
    EXPECT_EQ(action(w_.tables()), action(fresh.tables()));
  }

  void compareVerdicts() {
    auto const layout =
        SoftChip::KeyLayout::of(*w_.capability, random_.oneIn(2) ? SoftChip::MissYields::highest
                                                                 : SoftChip::MissYields::nothing);
    for (auto const& breach : SoftChip::outputBreaches(w_.tables(), layout))
      ADD_FAILURE() << breach;
    SoftChip::LoadedTables loaded(w_.pdConfig->currPDData(), layout);
    SoftChip::PacketSource source(*w_.acls, random_.next());
    for (int i = 0; i < 150 && !testing::Test::HasFailure(); ++i) {
      SoftChip::Packet const packet = source.next();
      for (auto const& [name, acl] : w_.acls->acl()) {
        PDAclKey const key(SoftChip::familyOf(*acl), name);
        auto const expected = SoftChip::firstMatch(*acl, packet);
        auto const naive = SoftChip::naiveLookup(w_.tables(), layout, key, packet);
        EXPECT_EQ(naive, loaded.lookup(key, packet)) << packet;
        std::optional<AceIndex> got;
        if (naive.kind == SoftChip::Verdict::Kind::rule) got = naive.rule;
        EXPECT_TRUE(got == expected)
            << name << ": " << packet << "\n  tables: " << naive
            << "\n  rules: " << (expected ? valueToStrep(*expected) : "none") << "\n"
            << tablesText();
        ++packets;
      }
    }
  }

  Random random_;
  Vocabulary words_;
  World w_;
};

/// How many worlds to run; NAXEL_SEEDS for a longer search.
uint64_t seeds() {
  char const* const n = std::getenv("NAXEL_SEEDS");
  return n ? std::strtoull(n, nullptr, 10) : 400;
}

TEST(RandomWorlds, TablesGiveTheVerdictOfTheRulesAfterEveryKick) {
  auto const silence = Mox::traceSinkIs({});
  char const* const only = std::getenv("NAXEL_SEED");
  uint64_t const first = only ? std::strtoull(only, nullptr, 10) : 1;
  for (uint64_t seed = first; seed < first + (only ? 1 : seeds()); ++seed) {
    SCOPED_TRACE("NAXEL_SEED=" + std::to_string(seed));
    RandomWorld(seed).run(12);
    if (HasFailure()) break;
  }
  Mox::traceSinkIs(silence);
  RecordProperty("packets", std::to_string(RandomWorld::packets));
  // Both outcomes have to occur for the run to say anything.
  if (!only) {
    EXPECT_GT(RandomWorld::successes, 1000u);
    EXPECT_GT(RandomWorld::failures, 200u);
  }
}

}  // namespace
}  // namespace Test
