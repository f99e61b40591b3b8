/// Making, running and shrinking the scripts of the simulator.

#include "support/AllocationFaults.h"
#include "support/Pieces.h"
#include "support/Simulator.h"
#include "support/Verbs.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <sys/wait.h>
#include <unistd.h>

namespace Test {

namespace {

/// Courses of several events, behind those of single ones in Verbs.cpp. A step is an event or, with a @, one of
/// a group; "0..2*" before it says how often. A <kind.name> is the same one throughout a course.
struct Course {
  char const* group;
  unsigned weight;
  char const* steps;
};
constexpr Course courses[] = {
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

class Author {
 public:
  explicit Author(Dice& dice) : dice_(dice), words_(dice) {
    for (Verb const& verb : allVerbs())
      if (verb.weight > 0) groups_[verb.group].push_back({verb.group, verb.weight, verb.pattern});
    for (Course const& course : courses) groups_[course.group].push_back(course);
  }

  Script write(size_t events) {
    for (chip_ = 0; chip_ < 2; ++chip_) group("world");
    // One in eight scripts has everything at once; the others leave the faults out, which would
    // hide what goes wrong without them.
    if (!dice_.oneIn(8)) groups_["fault"] = groups_["kick"];
    if (dice_.oneIn(100)) line("trace 9");
    for (; events > 0; --events) {
      chip_ = dice_.oneIn(4) ? 1 : 0;
      group("event");
    }
    return std::move(script_);
  }

 private:
  using Names = std::map<std::string, std::string>;

  void group(std::string const& name) {
    auto const& all = groups_.at(name);
    uint64_t sum = 0;
    for (Course const& course : all) sum += course.weight;
    uint64_t at = dice_.below(sum);
    auto course = all.begin();
    for (; at >= course->weight; ++course) at -= course->weight;
    play(course->steps);
  }

  void play(std::string const& steps) {
    Names names;
    for (std::string step : pieces(steps, "; ")) {
      uint64_t times = 1;
      if (size_t const star = step.find('*'); star != step.npos) {
        times = std::stoul(drawn(step.substr(0, star)));
        step.erase(0, star + 1);
      }
      for (; times > 0; --times) step[0] == '@' ? group(step.substr(1)) : line(filled(step, names));
    }
  }

  void line(std::string const& text) {
    bool const forAll = verbOf(text)->forAll;
    script_.push_back(forAll ? text : std::to_string(chip_) + " " + text);
  }

  /// Draws the words of a pattern that are not fixed.
  std::string filled(std::string const& pattern, Names& names) {
    std::istringstream in(pattern);
    std::string out;
    for (std::string word; in >> word;) {
      word = drawn(word);
      size_t const open = word.find('<');
      if (size_t const close = word.find('>'); open != word.npos) {
        std::string const kind = word.substr(open + 1, close - open - 1);
        std::string& value = names[kind];
        if (value.empty() || kind.find('.') == kind.npos) value = some(kind);
        if (kind.starts_with("acl")) v6_ = value == "a2";
        word.replace(open, close + 1 - open, value);
      }
      out += (out.empty() ? "" : " ") + word;
    }
    return out;
  }

  /// One of the words between bars; a number, if that is two with dots between.
  std::string drawn(std::string const& word) {
    std::string const part = dice_.of(pieces(word, "|"));
    size_t const dots = part.find("..");
    if (dots == part.npos) return part;
    return std::to_string(dice_.between(std::stoul(part), std::stoul(part.substr(dots + 2))));
  }

  /// Which family an ACL mostly has; a prefix of the other one makes a kick fail.
  Lumox::AddressFamily family() { return dice_.oneIn(60) != v6_ ? Lumox::ipv6() : Lumox::ipv4(); }

  std::string some(std::string const& kind) {
    std::string const k = kind.substr(0, kind.find('.'));
    if (k == "acl") return "a" + std::to_string(dice_.below(3));
    if (k == "rule") return "r" + std::to_string(dice_.below(5));
    if (k == "index") return std::to_string(dice_.below(10));
    if (k == "filter") return words_.filter(family());
    if (k == "prefix") return words_.prefix(family());
    if (k == "field") return std::string(someField().name);
    if (k == "wrong") return drawn("90-80|3-300|256-256|70000-70001|0-65536|2-1|1-65536|9-8");
    if (k == "range") {
      auto const& field = someField();
      std::string const one = words_.ranges(field.bound());
      return std::string(field.name) + drawn(" -| +| +") + one.substr(0, one.find(','));
    }
    if (k == "stage") return nameOfOne<Naxel::NaxelActiveStage>(1, 10);
    if (k == "progress") return nameOfOne<Naxel::NaxelProgress>(1, 4);
    if (k == "table") return nameOfOne<Naxel::PDTable>(0, Naxel::pdTableCount - 1);
    return drawn("1..4|6..16");  // bits
  }
  Naxel::RangeField const& someField() {
    return Naxel::rangeFields[dice_.below(Naxel::rangeFieldCount)];
  }
  template <class E>
  std::string nameOfOne(uint64_t first, uint64_t last) {
    return Mox::stringValue(static_cast<E>(dice_.between(first, last)));
  }

  Dice& dice_;
  Vocabulary words_;
  std::map<std::string, std::vector<Course>> groups_;
  Script script_;
  unsigned chip_ = 0;
  bool v6_ = false;
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
  auto const passes = [](Script const& script) {
    return succeedsApart([&] {
      return std::freopen("/dev/null", "w", stderr) && runScript(script).differences.empty();
    });
  };
  for (size_t chunk = std::max<size_t>(1, best.size() / 2);;
       chunk = std::max<size_t>(1, chunk / 2)) {
    size_t const before = best.size();
    for (size_t at = 0; at < best.size();) {
      Script attempt = best;
      auto const from = attempt.begin() + static_cast<std::ptrdiff_t>(at);
      attempt.erase(from, from + static_cast<std::ptrdiff_t>(std::min(chunk, best.size() - at)));
      if (passes(attempt))
        at += chunk;
      else
        best = std::move(attempt);
    }
    if (chunk == 1 && best.size() == before) return best;
  }
}

std::vector<Script> scriptsOf(std::istream& in) {
  std::vector<Script> scripts(1);
  for (std::string line; std::getline(in, line);) {
    line.erase(0, std::min(line.find_first_not_of(" \t\r"), line.size()));
    if (line == "---")
      scripts.emplace_back();
    else if (!line.empty() && line[0] != '#')
      scripts.back().push_back(line);
  }
  return scripts;
}

std::string textOf(Script const& script) {
  std::string out;
  for (std::string const& line : script) out += line + "\n";
  return out;
}

}  // namespace Test
