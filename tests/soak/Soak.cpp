/// Runs the simulator for a time: soak SECONDS [SEED]. Without a seed it goes through the seeds from
/// NAXEL_FIRST_SEED (default 1) on; with one it runs that seed alone, prints its script and what it
/// did. A failing seed is shrunk to a short script, printed and written to soak-SEED.sim, which
/// "soak FILE" replays and which can be kept as a test under tests/sim/.

#include "support/Simulator.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sys/mman.h>

namespace {

using namespace Test;
using Clock = std::chrono::steady_clock;

/// Runs a script and tells of differences, or what it did; false if there are any.
bool passes(std::string const& name, Script const& script, Figures* sum = nullptr) {
  ScriptRun const run = runScript(script);
  if (sum)
    *sum += run.figures;
  else
    std::printf("%s: %s\n", name.c_str(), text(run.figures).c_str());
  if (!run.differences.empty()) std::printf("%s fails:\n%s", name.c_str(), run.differences.c_str());
  return run.differences.empty();
}

/// What processes that run seeds share with this one, which goes on where one of them crashes.
struct Progress {
  uint64_t seed;
  Figures figures;
};

bool soak(double seconds, Progress& at) {
  auto const start = Clock::now();
  auto const spent = [&] { return std::chrono::duration<double>(Clock::now() - start).count(); };
  uint64_t const first = at.seed;
  int failures = 0;
  while (spent() < seconds && failures < 5) {
    bool const fine = succeedsApart([&] {
      for (int i = 0; i < 200 && spent() < seconds; ++i, ++at.seed)
        if (!passes("seed " + std::to_string(at.seed), randomScript(at.seed), &at.figures))
          return false;
      return true;
    });
    if (fine) continue;
    ++failures;
    std::string const path = "soak-" + std::to_string(at.seed) + ".sim";
    std::printf("seed %llu has failed; shrinking\n", static_cast<unsigned long long>(at.seed));
    std::string const small = textOf(shrink(randomScript(at.seed++)));
    std::ofstream(path) << small;
    std::printf("%swritten to %s\n", small.c_str(), path.c_str());
  }
  std::printf("seeds %llu to %llu: %s, %d differences, %.0f s\n",
              static_cast<unsigned long long>(first), static_cast<unsigned long long>(at.seed),
              text(at.figures).c_str(), failures, spent());
  return failures == 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    std::fprintf(stderr, "usage: %s SECONDS [SEED] | FILE\n", argv[0]);
    return 2;
  }
  bool fine = true;
  if (std::ifstream file(argv[1]); file.is_open()) {
    for (Script const& script : scriptsOf(file)) fine = passes(argv[1], script) && fine;
  } else if (argc == 3) {
    Script const script = randomScript(std::strtoull(argv[2], nullptr, 10));
    std::printf("%s", textOf(script).c_str());
    std::fflush(stdout);
    fine = passes(std::string("seed ") + argv[2], script);
  } else {
    char const* const first = std::getenv("NAXEL_FIRST_SEED");
    auto* const at = static_cast<Progress*>(
        mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    at->seed = first ? std::strtoull(first, nullptr, 10) : 1;
    fine = soak(std::strtod(argv[1], nullptr), *at);
  }
  return fine ? 0 : 1;
}
