/// Slices of what "make soak" runs for longer, and the scripts that once failed.

#include "support/Simulator.h"
#include "support/VerdictGrid.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

namespace Test {
namespace {

using namespace Naxel;

std::string differencesOf(ScriptRun const& run) {
  std::string out;
  for (std::string const& d : run.differences) out += d + "\n";
  return out;
}

/// NAXEL_SEEDS=n runs more of them.
TEST(Simulator, RandomScripts) {
  char const* const n = std::getenv("NAXEL_SEEDS");
  uint64_t const seeds = n ? std::strtoull(n, nullptr, 10) : 150;
  Figures figures;
  for (uint64_t seed = 1; seed <= seeds; ++seed) {
    SeededDice dice(seed);
    Script const script = randomScript(dice, 60);
    ScriptRun const run = runScript(script);
    figures += run.figures;
    ASSERT_EQ(differencesOf(run), "") << "seed " << seed << ", shrunk to\n"
                                      << textOf(shrink(script));
  }
  std::printf("%s\n", text(figures).c_str());
  // All of it has to occur for the run to say anything.
  EXPECT_GT(figures.successes, seeds * 5);
  EXPECT_GT(figures.failures, seeds);
  EXPECT_GT(figures.cancels, seeds / 10);
  EXPECT_GT(figures.refusals, seeds / 10);
  EXPECT_GT(figures.faults, seeds / 50);
}

TEST(Simulator, KeptScripts) {
  std::filesystem::path const folder = std::string(NAXEL_SOURCE_DIR) + "/tests/sim";
  size_t scripts = 0;
  for (auto const& file : std::filesystem::directory_iterator(folder)) {
    if (file.path().extension() != ".sim") continue;
    std::ifstream in(file.path());
    std::string const all{std::istreambuf_iterator<char>(in), {}};
    EXPECT_EQ(differencesOf(runScript(scriptOf(all))), "") << file.path();
    ++scripts;
  }
  EXPECT_GT(scripts, 0u);
}

/// The library may fail a kick for want of memory, but it has to say so, must not load anything wrong,
/// and has to be as good as new with the next kick.
TEST(Simulator, AnyAllocationMayFail) {
  Script const first = scriptOf(R"(
    0 width srcPort 4
    0 width dstPort 4
    0 width srcDstL4Port 4
    0 width ipv4SrcDstPrefix 5
    0 set a 10 r src 10.0.0.0/8,!10.1.0.0/16 dst 10.2.0.0/16 sport 1-5 dport 80 proto 6 init
    0 set a 20 s src 10.0.0.0/9 dst 10.0.0.0/8 sport 3-9 dport 80-90 drop
    0 set b 10 r src 2001::/16 len 0-100 log)");
  Script const change = scriptOf(R"(
    0 prefix a r src +11.0.0.0/8
    0 range a s dport +443-443
    0 set a 15 t src 10.3.0.0/16 icmp 1-8)");
  auto const perhaps = [](bool yes, Script script) { return yes ? std::move(script) : Script(); };
  // On the first kick, on one after a change, on a refused one, and on one under a policy.
  for (bool again : {false, true})
    for (char const* driver :
         {"0 driver delay 1", "0 driver refuse dstPort", "0 driver hitful on"}) {
      uint64_t kicks = 0;
      for (uint64_t n = 1;; n += 1 + n / 200) {
        Script script = first;
        for (Script const& part : {perhaps(again, {"0 kick"}), perhaps(again, change)})
          script.insert(script.end(), part.begin(), part.end());
        for (std::string const& line :
             {std::string(driver), "alloc " + std::to_string(n), std::string("0 kick")})
          script.push_back(line);
        ScriptRun const run = runScript(script);
        ASSERT_EQ(differencesOf(run), "") << textOf(script);
        if (run.figures.faults == 0) break;
        ++kicks;
      }
      EXPECT_GT(kicks, 100u);
    }
}

TEST(Simulator, AScriptIsShrunkToWhatFails) {
  SeededDice dice(1);
  Script script = randomScript(dice, 20);
  script.insert(script.begin() + 12, "0 set a0 5 r0 flavour 7");  // ends the process
  EXPECT_EQ(shrink(script), Script{"0 set a0 5 r0 flavour 7"});
}

/// A comparison that cannot fail would be worth nothing.
TEST(VerdictGrid, NoticesWhateverIsChangedInAnOutput) {
  World w(R"(
    a 10 r src 10.0.0.0/8,!10.1.0.0/16 dst 10.2.0.0/16 sport 1-5 dport 80-83
    a 20 s src 10.0.0.0/9 dst 10.0.0.0/8 sport 3-9 dport 80-90 proto 6 est drop
    a 30 t src 10.1.0.0/16 dscp 10)");
  for (RangeSetType type : {RangeSetType::srcPort, RangeSetType::dstPort})
    w.capability->rangeXformWidthIs(type, 6);
  w.capability->comboXformWidthIs(ComboLabelSetType::srcDstL4Port, 6);
  ASSERT_EQ(w.kick(), NaxelProgress::naxelFinishedSuccess);
  auto const differences = [&](PDData const& data) {
    return compareVerdicts(*w.acls, data, SoftChip::KeyLayout::of(*w.capability), 1000000)
        .differences.size();
  };
  EXPECT_EQ(differences(w.tables()), 0u);

  // The output is the library's own; it is changed behind its back and put right again.
  auto const changed = [&](auto& table, auto change) {
    auto const entries = table.entry().items();
    for (size_t i = 0; i < entries.size(); ++i) {
      auto some = entries;
      change(some, i);
      table.entryIs(some);
      EXPECT_GT(differences(w.tables()), 0u) << Mox::valueToStrep(entries[i]);
    }
    table.entryIs(entries);
  };
  auto const dropped = [](auto& entries, size_t i) {
    entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(i));
  };
  auto const relabelled = [](auto& entries, size_t i) {
    using Entry = std::remove_cvref_t<decltype(entries[i])>;
    entries[i] = Entry(entries[i].key(), EncodedLabel(entries[i].value().value() ^ 1));
  };
  auto& sources = *w.tables().pdPrefixXformEntryColl(PrefixXformKey(Lumox::ipv4(), true));
  changed(sources, dropped);
  changed(sources, relabelled);
  changed(*w.tables().rangeColl(RangeSetType::dstPort), dropped);
  changed(*w.tables().comboColl(ComboLabelSetType::srcDstL4Port), dropped);
  changed(*w.tables().comboColl(ComboLabelSetType::srcDstL4Port), relabelled);

  PDAclRuleColl& acl = *w.tables().pdAclColl()->pdAcl(PDAclKey(Lumox::ipv4(), "a"));
  for (auto const& [index, rule] : acl.rule()) {
    auto const entries = rule->filter().items();
    rule->filterIs(PDAclFilter());
    EXPECT_GT(differences(w.tables()), 0u) << "matches everything";
    rule->filterIs(std::vector<PDAclFilter>());
    EXPECT_GT(differences(w.tables()), 0u) << "matches nothing";
    rule->filterIs(entries);
    NaxelActionValue const action = rule->action();
    rule->actionIs(w.rule("a", index.value() == 10 ? "s" : "r")->action());
    EXPECT_EQ(differences(w.tables()) > 0, rule->action() != action);
    rule->actionIs(action);
  }
  EXPECT_EQ(differences(w.tables()), 0u);
}

}  // namespace
}  // namespace Test
