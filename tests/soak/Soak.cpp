/// Runs the simulator for a time: soak SECONDS [SEED]. Without a seed it goes through the seeds from
/// NAXEL_FIRST_SEED (default 1) on; with one it runs that seed alone, prints its script and what it
/// did. A failing seed is shrunk to a short script, printed and written to soak-SEED.sim, which
/// "soak FILE" replays and which can be kept as a test under tests/sim/.

#include "support/Simulator.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace Test;
using Clock = std::chrono::steady_clock;

constexpr size_t events = 60;
constexpr uint64_t seedsAtATime = 200;

Script scriptOfSeed(uint64_t seed) {
  SeededDice dice(seed);
  return randomScript(dice, events);
}

void report(std::string const& name, Script const& script, std::string const& why) {
  std::cout << name << " fails: " << why << "\nshrinking " << script.size() << " lines\n"
            << std::flush;
  Script const small = shrink(script);
  std::string const path = "soak-" + name + ".sim";
  std::ofstream(path) << textOf(small);
  std::cout << textOf(small) << "written to " << path << "\n" << std::flush;
}

std::string whyOf(ScriptRun const& run) {
  std::string out;
  for (std::string const& d : run.differences) out += "\n  " + d;
  return out;
}

/// Seeds in a process of their own, which may crash: then `at` says where.
struct Batch {
  Figures figures;
  uint64_t at = 0;
  bool failed = false;
};

Batch runBatch(uint64_t first, Clock::time_point end) {
  int pipe[2];
  if (::pipe(pipe) != 0) std::abort();
  pid_t const child = fork();
  if (child == 0) {
    Batch batch;
    for (batch.at = first; batch.at < first + seedsAtATime && Clock::now() < end; ++batch.at) {
      if (write(pipe[1], &batch, sizeof batch) != sizeof batch) _exit(3);
      ScriptRun const run = runScript(scriptOfSeed(batch.at));
      batch.figures += run.figures;
      batch.failed = !run.differences.empty();
      if (batch.failed) break;
    }
    if (write(pipe[1], &batch, sizeof batch) != sizeof batch) _exit(3);
    _exit(0);
  }
  close(pipe[1]);
  Batch batch;
  while (read(pipe[0], &batch, sizeof batch) == sizeof batch) {
  }
  close(pipe[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) batch.failed = true;
  return batch;
}

int soak(double seconds, uint64_t first) {
  auto const start = Clock::now();
  auto const end =
      start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
  Figures figures;
  uint64_t failures = 0;
  uint64_t seed = first;
  while (Clock::now() < end && failures < 5) {
    Batch const batch = runBatch(seed, end);
    figures += batch.figures;
    seed = batch.at;
    if (!batch.failed) continue;
    ++failures;
    Script const script = scriptOfSeed(seed);
    // Once more here for the reason; the process may end with it.
    pid_t const child = fork();
    if (child == 0) {
      std::cout << "seed " << seed << ":" << whyOf(runScript(script)) << "\n" << std::flush;
      _exit(0);
    }
    waitpid(child, nullptr, 0);
    report(std::to_string(seed), script, "see above");
    ++seed;
  }
  std::printf("seeds %llu to %llu: %s, %llu differences, %.0f s\n",
              static_cast<unsigned long long>(first), static_cast<unsigned long long>(seed),
              text(figures).c_str(), static_cast<unsigned long long>(failures),
              std::chrono::duration<double>(Clock::now() - start).count());
  return failures == 0 ? 0 : 1;
}

int replay(std::string const& name, Script const& script) {
  ScriptRun const run = runScript(script);
  std::printf("%s: %s\n", name.c_str(), text(run.figures).c_str());
  if (run.differences.empty()) return 0;
  std::printf("differences:%s\n", whyOf(run).c_str());
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    std::fprintf(stderr, "usage: %s SECONDS [SEED] | FILE\n", argv[0]);
    return 2;
  }
  std::string const what = argv[1];
  std::ifstream file(what);
  if (file.is_open()) {
    std::stringstream all;
    all << file.rdbuf();
    int outcome = 0;
    for (Script const& script : scriptsOf(all.str())) outcome |= replay(what, script);
    return outcome;
  }
  if (argc == 3) {
    Script const script = scriptOfSeed(std::strtoull(argv[2], nullptr, 10));
    std::cout << textOf(script) << std::flush;
    int const outcome = replay(std::string("seed ") + argv[2], script);
    return outcome;
  }
  char const* const first = std::getenv("NAXEL_FIRST_SEED");
  return soak(std::strtod(argv[1], nullptr), first ? std::strtoull(first, nullptr, 10) : 1);
}
