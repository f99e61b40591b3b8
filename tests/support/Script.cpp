/// Making, running and shrinking the scripts of the simulator.

#include "support/AllocationFaults.h"
#include "support/Simulator.h"

#include <algorithm>
#include <map>
#include <sys/wait.h>
#include <unistd.h>

namespace Test {

namespace {

class Author {
 public:
  Author(Dice& dice, size_t events) : dice_(dice), words_(dice), left_(events) {}

  Script write() {
    for (chip_ = 0; chip_ < 2; ++chip_) {
      widths(true);
      if (dice_.oneIn(12)) on(dice_.oneIn(2) ? "restart kept denyAll" : "restart kept permitAll");
      for (uint64_t i = 0, n = dice_.below(4); i < n; ++i) driver();
      for (uint64_t i = 0, n = dice_.between(1, 3); i < n; ++i) newAcl();
    }
    // One in eight scripts has everything at once; the others leave the faults out, which would
    // hide what goes wrong without them.
    faults_ = dice_.oneIn(8);
    if (dice_.oneIn(100)) script_.push_back("trace 9");
    while (left_ > 0) event();
    return std::move(script_);
  }

 private:
  void on(std::string const& event) { script_.push_back(std::to_string(chip_) + " " + event); }
  void all(std::string event) { script_.push_back(std::move(event)); }

  std::string acl() { return "a" + std::to_string(dice_.below(3)); }
  std::string rule() { return "r" + std::to_string(dice_.below(5)); }
  std::string aclRule() { return acl() + " " + rule(); }
  std::string index() { return std::to_string(dice_.below(10)); }
  std::string side() { return dice_.oneIn(2) ? "src" : "dst"; }
  /// Which family an ACL mostly has; a prefix of the other one makes a kick fail.
  Lumox::AddressFamily family() { return dice_.oneIn(60) != v6_ ? Lumox::ipv6() : Lumox::ipv4(); }

  void newAcl() {
    std::string const name = acl();
    v6_ = name == "a2";
    if (dice_.oneIn(2)) on("af " + name + (v6_ ? " ipv6" : " ipv4"));
    for (uint64_t i = 0, n = dice_.below(6); i < n; ++i) set(name);
  }
  void set(std::string const& name) {
    v6_ = name == "a2";
    on("set " + name + " " + index() + " " + rule() + " " + words_.filter(family()));
  }
  void widths(bool every) {
    static std::vector<std::string> const prefixes = {"v4src", "v4dst", "v6src", "v6dst"};
    static std::vector<std::string> const ranges = {"srcPort", "dstPort",  "icmp", "proto",
                                                    "length",  "fragment", "dscp"};
    static std::vector<std::string> const combos = {"ipv4SrcDstPrefix", "ipv6SrcDstPrefix",
                                                    "srcDstL4Port"};
    // Narrow spaces are full or overfull most of the time; half of the worlds have room.
    bool const roomy = dice_.oneIn(2);
    auto const bits = [&] {
      return std::to_string(roomy ? dice_.between(6, 16) : dice_.between(1, 4));
    };
    for (auto const& table : prefixes)
      if (every || dice_.oneIn(4)) on("width " + table + " " + bits());
    for (auto const* group : {&ranges, &combos})
      for (auto const& table : *group)
        if (every || dice_.oneIn(4)) {
          std::string const width = dice_.oneIn(2) ? bits() : "0";
          width_[chip_][table] = width;
          on("width " + table + " " + width);
        }
  }

  /// A table is turned off and on again, over the same rules.
  void offAndOn() {
    auto const& widths = width_[chip_];
    auto const table =
        std::next(widths.begin(), static_cast<std::ptrdiff_t>(dice_.below(widths.size())));
    on("width " + table->first + " 0");
    kick();
    on("width " + table->first + " " + table->second);
    kick();
  }

  void driver() {
    auto const number = [&](uint64_t n) { return " " + std::to_string(dice_.below(n)); };
    auto const onOff = [&] { return dice_.oneIn(2) ? " on" : " off"; };
    switch (dice_.below(12)) {
      case 0: return on("driver delay" + number(4));
      case 1: return on("driver policy-delay" + number(dice_.oneIn(3) ? 30 : 3));
      case 2: return on(dice_.oneIn(2) ? "driver pace together" : "driver pace one-by-one");
      case 3:
        return on("driver order " +
                  dice_.of(std::vector<std::string>{"standard", "reversed", "prefixes-last"}));
      case 4:
        return on("driver tcp-flags " +
                  dice_.of(std::vector<std::string>{"in-turn", "last", "never"}));
      case 5: return on(std::string("driver stale") + onOff());
      case 6:
      case 7: return on(std::string("driver hitful") + onOff());
      case 8: return on(dice_.oneIn(2) ? "driver miss nothing" : "driver miss highest");
      case 9: return on("driver refuse " + table());
      case 10:
        return on(dice_.oneIn(2) ? "driver superseded dropped" : "driver superseded finished");
      default:
        return on("driver capacity " + table() +
                  (dice_.oneIn(3) ? number(40) : std::string(" 1000000")));
    }
  }
  std::string table() {
    return Mox::stringValue(Naxel::allPDTables()[dice_.below(Naxel::pdTableCount)]);
  }

  void edit() {
    switch (dice_.below(25)) {
      case 0: return newAcl();
      case 1: return on("del-acl " + acl());
      case 2: return on("rename-acl " + acl() + " " + acl());
      case 3:
        return on("af " + acl() + " " +
                  dice_.of(std::vector<std::string>{"ipv4", "ipv6", "none", "none"}));
      case 4: return on("del-rule " + aclRule());
      case 5: return on("rename-rule " + aclRule() + " " + rule());
      case 6: return on("recreate " + aclRule());
      case 7: return on("swap " + aclRule() + " " + rule());
      case 8: return on("index " + acl() + " " + index() + " " + rule());
      case 9: return on("swap-index " + acl() + " " + index() + " " + index());
      case 10: return on("del-index " + acl() + " " + index());
      case 11:
      case 12: {
        std::string const name = acl();
        v6_ = name == "a2";
        if (dice_.oneIn(4))
          return on("prefix " + name + " " + rule() + " " + side() + " -#" + index());
        return on("prefix " + name + " " + rule() + " " + side() + (dice_.oneIn(3) ? " -" : " +") +
                  (dice_.oneIn(3) ? "!" : "") + words_.prefix(family()));
      }
      case 13: return on("share " + aclRule() + " " + side() + " " + aclRule() + " " + side());
      case 14:
      case 15: return range();
      case 16:
      case 17:
        return on("toggle " + aclRule() + " " +
                  dice_.of(std::vector<std::string>{"drop", "log", "tc", "init", "est"}));
      case 18:
        if (dice_.oneIn(4)) on("empty");
        return;
      case 19: return oversize();
      case 20: return mistake();
      case 21: return dice_.oneIn(2) ? offAndOn() : widths(false);
      case 22: return on("undo" + std::string(dice_.oneIn(2) ? " 0" : " 1"));
      default: return set(acl());
    }
  }
  void range() {
    struct Field {
      char const* name;
      uint32_t bound;
    };
    static std::vector<Field> const fields = {{"sport", 65535}, {"dport", 65535}, {"icmp", 255},
                                              {"proto", 255},   {"len", 65535},   {"frag", 8191},
                                              {"dscp", 63}};
    Field const& field = dice_.of(fields);
    std::string const one = words_.ranges(field.bound);
    on("range " + aclRule() + " " + field.name + (dice_.oneIn(3) ? " -" : " +") +
       one.substr(0, one.find(',')));
  }
  void oversize() {
    std::string const name = acl();
    on("oversize " + name + " " + std::to_string(dice_.between(3, 40)));
    for (uint64_t i = 0, n = dice_.between(1, 3); i < n; ++i) kick();
    if (!dice_.oneIn(8)) on("shrink " + name);
  }
  /// Something that an agent ought not to configure, a kick or two, and the correction.
  void mistake() {
    std::string const at = aclRule();
    std::string const wrong = dice_.of(std::vector<std::string>{
        "dport 90-80", "proto 3-300", "icmp 256-256", "len 70000-70001", "sport 0-65536",
        "sport 2-1", "dport 1-65536", "icmp 9-8", "proto 9-8", "len 9-8", "frag 9-8", "dscp 9-8"});
    bool const stray = dice_.oneIn(4);
    std::string const name = acl();
    std::string const where = index();
    if (stray)
      on("stray " + name + " " + where + " " + rule());
    else
      on("range " + at + " " + wrong.substr(0, wrong.find(' ')) + " +" +
         wrong.substr(wrong.find(' ') + 1));
    for (uint64_t i = 0, n = dice_.between(1, 2); i < n; ++i) kick();
    if (stray)
      on("del-index " + name + " " + where);
    else
      on("range " + at + " " + wrong.substr(0, wrong.find(' ')) + " -" +
         wrong.substr(wrong.find(' ') + 1));
  }

  std::string stage() {
    return Mox::stringValue(static_cast<Naxel::NaxelActiveStage>(dice_.between(1, 10)));
  }
  std::string progress() {
    return Mox::stringValue(static_cast<Naxel::NaxelProgress>(dice_.between(1, 4)));
  }
  void kick() {
    switch (dice_.below(12)) {
      case 0:
        // What a kick leaves half done is for the next one to find.
        on("cancel-at " + stage());
        if (dice_.oneIn(3)) edit();
        return on("kick");
      case 1:
        on("request");
        all("pass " + std::to_string(dice_.below(20)));
        return;
      case 2:
        on("request");
        on("request");
        return;
      case 3:
        on("request");
        all("pass " + std::to_string(dice_.below(40)));
        if (dice_.oneIn(4)) on("driver refuse " + table());
        on(dice_.oneIn(3) ? "cancel" : "request");
        return;
      case 4: on("rekick-at " + progress()); return on("kick");
      case 5: all(dice_.oneIn(2) ? "clock -600" : "clock 1"); return on("kick");
      case 6:
        on("cancel");
        on("request");
        return all("run");
      default: return on("kick");
    }
  }
  void restart() {
    if (dice_.oneIn(3)) {
      static std::vector<std::string> const requests = {"acquire", "load", "revert"};
      on(dice_.oneIn(4)   ? "down-at-output"
         : dice_.oneIn(2) ? "down-at " + progress()
                          : "down-at-request " + dice_.of(requests));
      kick();
    } else {
      on("request");
      all("pass " + std::to_string(dice_.below(40)));
      on("down");
    }
    if (dice_.oneIn(3)) all("pass " + std::to_string(dice_.below(5)));
    on(dice_.oneIn(3) ? "up-fresh" : "up");
  }
  /// The driver starts anew while something is under way or at rest, perhaps together with the agent.
  void driverRestart() {
    bool const both = dice_.oneIn(3);
    if (dice_.oneIn(3)) {
      kick();
    } else {
      on("request");
      all("pass " + std::to_string(dice_.below(40)));
    }
    if (both) on("down");
    std::string const answers = dice_.oneIn(2) ? "restart kept" : "restart lost";
    on(answers + (dice_.oneIn(2) ? "" : dice_.oneIn(3) ? " permitAll" : " denyAll"));
    if (dice_.oneIn(3)) all("pass " + std::to_string(dice_.below(5)));
    if (both) on(dice_.oneIn(3) ? "up-fresh" : "up");
    if (dice_.oneIn(2)) on("undo 0");
  }
  void replaced() {
    if (dice_.oneIn(2)) {
      on("request");
      all("pass " + std::to_string(dice_.below(40)));
    }
    on(dice_.oneIn(2) ? "replace capability" : "replace status");
    for (uint64_t i = 0, n = dice_.below(3); i < n; ++i) kick();
    on("up-fresh");
  }
  void fault() {
    if (dice_.oneIn(2))
      all(dice_.oneIn(2) ? "throwing on" : "throwing off");
    else
      all("alloc " + std::to_string(dice_.between(1, dice_.oneIn(3) ? 30 : 1200)));
  }

  void event() {
    --left_;
    chip_ = dice_.oneIn(4) ? 1 : 0;
    switch (dice_.below(16)) {
      case 0: return driver();
      case 1:
        if (dice_.oneIn(4)) on(dice_.oneIn(2) ? "permit on" : "permit off");
        return driver();
      case 2: return all("pass " + std::to_string(dice_.below(30)));
      case 3:
        if (dice_.oneIn(3)) return restart();
        if (dice_.oneIn(3)) return driverRestart();
        if (dice_.oneIn(12)) return replaced();
        return all("run");
      case 4:
        if (faults_) return fault();
        return kick();
      case 5:
      case 6:
      case 7:
      case 8: return kick();
      default: return edit();
    }
  }

  Dice& dice_;
  Vocabulary words_;
  size_t left_;
  Script script_;
  unsigned chip_ = 0;
  bool v6_ = false;
  bool faults_ = false;
  std::array<std::map<std::string, std::string>, 2> width_;  // of ranges and combinations
};

/// True if the script fails, in whatever way. Runs it in a child process.
bool fails(Script const& script) {
  pid_t const child = fork();
  if (child == 0) {
    // What it prints on the way down has been seen already.
    if (!std::freopen("/dev/null", "w", stderr)) _exit(2);
    bool failed = true;
    try {
      failed = !runScript(script).differences.empty();
    } catch (...) {
    }
    _exit(failed ? 1 : 0);
  }
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child) return false;
  return !WIFEXITED(status) || WEXITSTATUS(status) != 0;
}

}  // namespace

Script randomScript(Dice& dice, size_t events) { return Author(dice, events).write(); }

ScriptRun runScript(Script const& script) {
  ScriptRun run;
  int64_t before = 0;
  int64_t after = 0;
  for (bool warm : {false, true}) {
    run = {};
    before = AllocationFaults::live();
    {
      Simulator simulator;
      for (std::string const& line : script) {
        simulator.execute(line);
        if (!simulator.differences().empty()) break;
      }
      if (simulator.differences().empty()) simulator.finish();
      run.differences = simulator.differences();
      run.figures = simulator.figures();
    }
    // Some of what a first run leaves are tables that are made once. A second run leaves nothing.
    int64_t const kept = static_cast<int64_t>(run.differences.capacity() > 0) +
                         std::count_if(run.differences.begin(), run.differences.end(),
                                       [](std::string const& d) { return d.size() > 15; });
    after = AllocationFaults::live() - kept;
    if (after == before || warm || !run.differences.empty()) break;
  }
  if (run.differences.empty() && after != before)
    run.differences.push_back(std::to_string(after - before) + " allocations are left over");
  return run;
}

Script shrink(Script const& script) {
  Script best = script;
  for (size_t chunk = std::max<size_t>(1, best.size() / 2);;
       chunk = std::max<size_t>(1, chunk / 2)) {
    bool smaller = false;
    for (size_t at = 0; at < best.size();) {
      Script attempt = best;
      auto const from = attempt.begin() + static_cast<std::ptrdiff_t>(at);
      attempt.erase(from, from + static_cast<std::ptrdiff_t>(std::min(chunk, best.size() - at)));
      if (fails(attempt)) {
        best = std::move(attempt);
        smaller = true;
      } else {
        at += chunk;
      }
    }
    if (chunk == 1 && !smaller) return best;
  }
}

std::vector<Script> scriptsOf(std::string const& text) {
  std::vector<Script> scripts(1);
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    if (line == "---")
      scripts.emplace_back();
    else if (line.find_first_not_of(" \t\r") != std::string::npos && line[0] != '#')
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
