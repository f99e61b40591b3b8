/// Making, running and shrinking the scripts of the simulator.

#include "naxel/testing/ScriptWriter.h"
#include "support/AllocationFaults.h"
#include "support/Simulator.h"
#include "support/Verbs.h"

#include <cstdio>
#include <sys/wait.h>
#include <unistd.h>

namespace Test {

namespace {

/// Courses of several events, behind those of single ones in Verbs.cpp and naxel/testing/Edits.cpp.
constexpr Naxel::Testing::Course courses[] = {
    {"world", 11, "@widths; code aligned|compact|compact; 0..3*@driver; 1..3*@new-acl"},
    {"world", 1, "@widths; restart kept denyAll|permitAll; 0..3*@driver; 1..3*@new-acl"},

    {"event", 2, "@driver"},
    {"event", 1, "@upheaval"},
    {"event", 1, "@fault"},
    {"event", 4, "@kick"},
    {"event", 7, "@edit"},

    {"new-acl", 1, "0..5*set <acl.a> <index> <rule> <filter>"},
    {"new-acl", 1, "af <acl.a> ipv4|ipv6|none; 0..5*set <acl.a> <index> <rule> <filter>"},
    {"edit", 4, "@new-acl"},
    {"edit", 3, "oversize <acl.a> 3..40; 1..3*@kick; oversize <acl.a> 0"},
    {"edit", 1, "oversize <acl.a> 3..40; 1..3*@kick"},
    // Something that an agent ought not to configure, a kick or two, and the correction.
    {"edit", 3,
     "range <acl.a> <rule.r> <field.f> +<wrong.w>; 1..2*@kick; "
     "range <acl.a> <rule.r> <field.f> -<wrong.w>"},
    {"edit", 1, "stray <acl.a> <index.i> <rule>; 1..2*@kick; del-index <acl.a> <index.i>"},
    {"edit", 2, "0..6*width <table> 0|1..4|6..16"},
    // A table is turned off and on again, over the same rules.
    {"edit", 2,
     "width <table.t> <bits.b>; @kick; width <table.t> 0; @kick; width <table.t> <bits.b>; @kick"},

    {"kick", 15, "kick"},
    // What a kick leaves half done is for the next one to find.
    {"kick", 2, "cancel-at <stage>; kick"},
    {"kick", 1, "cancel-at <stage>; @edit; kick"},
    {"kick", 3, "request; pass 0..19"},
    {"kick", 3, "request; request"},
    {"kick", 2, "request; pass 0..39; cancel|request|request"},
    {"kick", 1, "request; pass 0..39; driver refuse <table>; cancel|request|request"},
    {"kick", 3, "rekick-at <progress>; kick"},
    {"kick", 3, "clock -600|1; kick"},
    {"kick", 3, "cancel; request; run"},

    {"upheaval", 12, "@fall; 0..1*pass 0..4; up|up|up-fresh"},
    {"fall", 2, "down-at output; @kick"},
    {"fall", 3, "down-at <progress>; @kick"},
    {"fall", 3, "down-at acquire|load|revert; @kick"},
    {"fall", 16, "request; pass 0..39; down"},
    // The driver starts anew while something is under way or at rest, perhaps together with the agent.
    {"upheaval", 5, "@busy; @restart; 0..1*pass 0..4; 0..1*undo 0"},
    {"upheaval", 3, "@busy; down; @restart; 0..1*pass 0..4; up|up|up-fresh; 0..1*undo 0"},
    {"busy", 1, "@kick"},
    {"busy", 2, "request; pass 0..39"},
    {"restart", 1, "restart kept|lost"},
    {"restart", 1, "restart kept|lost denyAll|denyAll|permitAll"},
    {"upheaval", 1, "0..1*@busy; replace capability|status; 0..2*@kick; up-fresh"},
};

class Author : Naxel::Testing::ScriptWriter {
 public:
  explicit Author(Dice& dice) : ScriptWriter(dice), dice_(dice) {
    add(Naxel::Testing::allEdits());
    add(allVerbs());
    add(courses);
  }

  Script write(size_t events) {
    for (chip_ = 0; chip_ < 2; ++chip_) group("world");
    // One in eight scripts has everything at once; the others leave the faults out, which would
    // hide what goes wrong without them.
    if (!dice_.oneIn(8)) replace("fault", "kick");
    if (dice_.oneIn(100)) line("trace 9");
    for (; events > 0; --events) {
      chip_ = dice_.oneIn(4) ? 1 : 0;
      group("event");
    }
    return std::move(script_);
  }

 private:
  void line(std::string const& text) override {
    Verb const* const verb = Naxel::Testing::verbOf(allVerbs(), text);
    script_.push_back(verb && verb->forAll ? text : std::to_string(chip_) + " " + text);
  }

  Dice& dice_;
  Script script_;
  unsigned chip_ = 0;
};

}  // namespace

Script randomScript(Dice& dice, size_t events) { return Author(dice).write(events); }

Script randomScript(uint64_t seed) {
  Dice dice(seed);
  return randomScript(dice, 60);
}

ScriptRun runScript(Script const& script) {
  ScriptRun run;
  for (bool warm : {false, true}) {
    run = {};
    int64_t const before = AllocationFaults::live();
    {
      Simulator simulator(run);
      for (std::string const& line : script) {
        simulator.execute(line);
        if (!run.differences.empty()) return run;
      }
      simulator.finish();
      if (!run.differences.empty()) return run;
    }
    int64_t const left = AllocationFaults::live() - before;
    if (left == 0) break;
    // Some of what a first run leaves are tables that are made once. A second run leaves nothing.
    if (warm) run.differences = std::to_string(left) + " allocations are left over\n";
  }
  return run;
}

bool succeedsApart(std::function<bool()> const& run) {
  std::fflush(stdout);
  pid_t const child = fork();
  if (child == 0) {
    bool success = false;
    try {
      success = run();
    } catch (std::exception const& e) {
      std::fprintf(stderr, "%s\n", e.what());
    }
    std::fflush(stdout);
    _exit(success ? 0 : 1);
  }
  int status = 0;
  return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

Script shrink(Script best) {
  // What it prints on the way down has been seen already.
  return Naxel::Testing::shrunk(std::move(best), [](Script const& script) {
    return !succeedsApart([&] {
      return std::freopen("/dev/null", "w", stderr) && runScript(script).differences.empty();
    });
  });
}

}  // namespace Test
