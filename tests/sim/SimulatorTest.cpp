/// Slices of what "make soak" runs for longer, and the scripts that once failed.

#include "support/Simulator.h"
#include "support/Thinning.h"

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
  uint64_t const seeds = n ? std::strtoull(n, nullptr, 10) : 300 / thinning();
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
  if (seeds < 30) return;
  EXPECT_GT(figures.successes, seeds * 5);
  EXPECT_GT(figures.failures, seeds);
  EXPECT_GT(figures.cancels, seeds / 10);
  EXPECT_GT(figures.refusals, seeds / 10);
  EXPECT_GT(figures.faults, 0u);
}

TEST(Simulator, KeptScripts) {
  std::filesystem::path const folder = std::string(NAXEL_SOURCE_DIR) + "/tests/sim";
  size_t scripts = 0;
  for (auto const& file : std::filesystem::directory_iterator(folder)) {
    if (file.path().extension() != ".sim") continue;
    std::ifstream in(file.path());
    std::string const all{std::istreambuf_iterator<char>(in), {}};
    for (Script const& script : scriptsOf(all)) {
      EXPECT_EQ(differencesOf(runScript(script)), "") << file.path() << "\n" << textOf(script);
      ++scripts;
    }
  }
  EXPECT_GT(scripts, 0u);
}

/// The library may fail a kick for want of memory, but it has to say so, must not load anything wrong,
/// and has to be as good as new with the next kick.
TEST(Simulator, AnyAllocationMayFail) {
  Script const first = scriptsOf(R"(
    0 width srcPort 4
    0 width dstPort 4
    0 width srcDstL4Port 4
    0 width ipv4SrcDstPrefix 5
    0 set a 10 r src 10.0.0.0/8,!10.1.0.0/16 dst 10.2.0.0/16 sport 1-5 dport 80 proto 6 init
    0 set a 20 s src 10.0.0.0/9 dst 10.0.0.0/8 sport 3-9 dport 80-90 drop
    0 set b 10 r src 2001::/16 len 0-100 log)")[0];
  Script const change = scriptsOf(R"(
    0 prefix a r src +11.0.0.0/8
    0 range a s dport +443-443
    0 set a 15 t src 10.3.0.0/16 icmp 1-8)")[0];
  auto const perhaps = [](bool yes, Script script) { return yes ? std::move(script) : Script(); };
  // On the first kick, on one after a change, on a refused one, and on one under a policy.
  for (bool again : {false, true})
    for (char const* driver :
         {"0 driver delay 1", "0 driver refuse dstPort", "0 driver hitful on"}) {
      uint64_t kicks = 0;
      for (uint64_t n = 1;; n += (1 + n / 200) * thinning()) {
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
      EXPECT_GT(kicks, 100u / thinning());
    }
}

TEST(Simulator, AScriptIsShrunkToWhatFails) {
  SeededDice dice(1);
  Script script = randomScript(dice, 20);
  script.insert(script.begin() + 12, "0 set a0 5 r0 flavour 7");  // ends the process
  EXPECT_EQ(shrink(script), Script{"0 set a0 5 r0 flavour 7"});
}

}  // namespace
}  // namespace Test
