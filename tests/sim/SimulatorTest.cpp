/// Slices of what "make soak" runs for longer, and the scripts that once failed.

#include "support/Simulator.h"
#include "support/Thinning.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

namespace Test {
namespace {

/// NAXEL_SEEDS=n runs more of them.
TEST(Simulator, RandomScripts) {
  char const* const n = std::getenv("NAXEL_SEEDS");
  uint64_t const seeds = n ? std::strtoull(n, nullptr, 10) : 300 / thinning();
  Figures figures;
  for (uint64_t seed = 1; seed <= seeds; ++seed) {
    ScriptRun const run = runScript(randomScript(seed));
    figures += run.figures;
    ASSERT_EQ(run.differences, "") << "seed " << seed << ", shrunk to\n"
                                   << textOf(shrink(randomScript(seed)));
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
    for (Script const& script : scriptsOf(in)) {
      EXPECT_EQ(runScript(script).differences, "") << file.path() << "\n" << textOf(script);
      ++scripts;
    }
  }
  EXPECT_GT(scripts, 0u);
}

/// The library may fail a kick for want of memory, but it has to say so, must not load anything wrong,
/// and has to be as good as new with the next kick.
TEST(Simulator, AnyAllocationMayFail) {
  std::string const first = R"(
    0 width srcPort 4
    0 width dstPort 4
    0 width portCombo 4
    0 width v4PrefixCombo 5
    0 set a 10 r src 10.0.0.0/8,!10.1.0.0/16 dst 10.2.0.0/16 sport 1-5 dport 80 proto 6 init
    0 set a 20 s src 10.0.0.0/9 dst 10.0.0.0/8 sport 3-9 dport 80-90 drop
    0 set b 10 r src 2001::/16 len 0-100 log
)";
  std::string const kickAndChange = R"(
    0 kick
    0 prefix a r src +11.0.0.0/8
    0 range a s dport +443-443
    0 set a 15 t src 10.3.0.0/16 icmp 1-8
)";
  // On the first kick, on one after a change, on a refused one, and on one under a policy.
  for (std::string const& rules : {first, first + kickAndChange})
    for (char const* driver : {"delay 1", "refuse dstPort", "hitful on"}) {
      uint64_t kicks = 0;
      for (uint64_t n = 1, faults = 1; faults > 0; n += (1 + n / 200) * thinning(), ++kicks) {
        std::istringstream all(rules + "0 driver " + driver + "\nalloc " + std::to_string(n) +
                               "\n0 kick");
        ScriptRun const run = runScript(scriptsOf(all)[0]);
        ASSERT_EQ(run.differences, "") << all.str();
        faults = run.figures.faults;
      }
      EXPECT_GT(kicks, 100u / thinning());
    }
}

}  // namespace
}  // namespace Test
