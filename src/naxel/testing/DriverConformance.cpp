#include "naxel/testing/DriverConformance.h"

#include "mox/Trace.h"
#include "naxel/testing/Player.h"
#include "verify/MatchKey.h"

#include <algorithm>
#include <chrono>

namespace Naxel::Testing {

namespace {

using Clock = std::chrono::steady_clock;

class Run {
 public:
  Run(DriverMaker const& make, Options const& options) : make_(make), options_(options) {
    // Refusals and worse are what is played, and nothing to tell an operator. But what has escaped a driver's
    // reaction is why answers are missing.
    sinkBefore_ = Mox::traceSinkIs(
        [this](Mox::TraceFacility const& from, int level, std::string const& line) {
          if (from.name() == "Mox") escaped_ = line;
          if (options_.traces && sinkBefore_) sinkBefore_(from, level, line);
        });
  }
  Run(Run const&) = delete;
  Run& operator=(Run const&) = delete;
  ~Run() { Mox::traceSinkIs(std::move(sinkBefore_)); }

  Report all() {
    size_t n = 0;
    for (Script const& script : fixedScripts()) {
      if (isOver()) break;
      one(script, "fixed script " + std::to_string(++n));
    }
    for (uint64_t seed = options_.seed; !isOver(); ++seed) {
      if (options_.seconds > 0 ? since() >= options_.seconds
                               : seed - options_.seed >= options_.scripts)
        break;
      one(drawnScript(seed), "seed " + std::to_string(seed));
    }
    return finished();
  }

  Report alone(Script const& script) {
    ++report_.figures.scripts;
    if (auto breach = play(script, report_.figures)) {
      breach->script = script;
      report_.breaches.push_back(std::move(*breach));
    }
    return finished();
  }

 private:
  double since() const { return std::chrono::duration<double>(Clock::now() - start_).count(); }
  bool isOver() const { return report_.breaches.size() >= options_.breaches; }

  std::optional<Breach> play(Script const& script, Report::Figures& figures) {
    escaped_.clear();
    auto breach = played(make_, script, options_, figures);
    if (breach && !escaped_.empty()) breach->what += "; traced meanwhile: " + escaped_;
    return breach;
  }

  void one(Script const& script, std::string const& origin) {
    ++report_.figures.scripts;
    auto const found = play(script, report_.figures);
    if (!found || std::ranges::any_of(report_.breaches, [&](Breach const& known) {
          return known.rule == found->rule;
        }))
      return;
    // Another breach than this one may show in a shorter script, and is found there by itself.
    Report::Figures uncounted;
    size_t attempts = 0;
    auto const fails = [&](Script const& attempt) {
      if (++attempts > options_.attempts) return false;
      auto const breach = play(attempt, uncounted);
      return breach && breach->rule == found->rule;
    };
    Script const small = simplified(shrunk(script, fails), fails);
    Breach breach = play(small, uncounted).value_or(*found);
    breach.script = small;
    breach.origin = origin;
    report_.breaches.push_back(std::move(breach));
  }

  Report finished() {
    Report::Figures const& f = report_.figures;
    auto const missing = [&](bool missed, char const* what) {
      if (missed) report_.notJudged.emplace_back(what);
    };
    missing(f.packets == 0,
            "lookups and what is in force: the driver looks no packets up, so only the handshake "
            "is judged");
    missing(f.refusals == 0, "refusals and reverts: no acquire was refused");
    missing(f.hitful == 0, "policies: no change was hitful");
    missing(f.restarts == 0, "restarts: the driver was not restarted");
    return std::move(report_);
  }

  DriverMaker const& make_;
  Options const& options_;
  Mox::TraceSink sinkBefore_;
  std::string escaped_;
  Clock::time_point const start_ = Clock::now();
  Report report_;
};

}  // namespace

Report proveDriver(DriverMaker const& make, Options const& options) {
  return Run(make, options).all();
}

Report replay(DriverMaker const& make, std::vector<std::string> const& script,
              Options const& options) {
  return Run(make, options).alone(script);
}

std::string text(Met const& met) {
  switch (met.kind) {
    case Met::Kind::untold: return "what the chip cannot say";
    case Met::Kind::noRule: return "no rule";
    case Met::Kind::denyAll: return "denyAll";
    case Met::Kind::permitAll: return "permitAll";
    case Met::Kind::dropped: return "a drop";
    case Met::Kind::passed: return "a pass";
    case Met::Kind::rule: break;
  }
  std::string out = met.rule ? "rule " + std::to_string(met.rule->value()) : "a rule";
  return out + (met.action.dropEnabled() ? " drop" : " permit");
}

std::string text(Breach const& breach) {
  RuleText const& rule = textOf(breach.rule);
  std::string out = "breach of " + std::string(rule.name) + ": " + std::string(rule.demands) + "\n";
  if (breach.table) out += "  table:   " + tableTitle(*breach.table) + "\n";
  if (breach.request.requestId() != 0)
    out += "  request: " + Mox::stringValue(breach.request.requestState()) + " of id " +
           Mox::valueToStrep(breach.request.requestId()) + "\n";
  out += "  " + breach.what + "\n";
  if (!breach.origin.empty()) out += "  script, shrunk from " + breach.origin + ":\n";
  for (std::string const& line : breach.script) out += "    " + line + "\n";
  return out;
}

std::string text(Report const& report) {
  std::string out;
  for (Breach const& breach : report.breaches) out += text(breach);
  Report::Figures const& f = report.figures;
  auto const count = [&](size_t n, char const* what) {
    return (out.empty() || out.back() == '\n' ? "" : ", ") + std::to_string(n) + " " + what;
  };
  out += count(f.scripts, "scripts");
  out += count(f.kicks, "kicks");
  out += count(f.requests, "requests");
  out += count(f.hitful, "hitful");
  out += count(f.refusals, "refused");
  out += count(f.policies, "policies");
  out += count(f.restarts, "restarts");
  out += count(f.packets, "packets") + "\n";
  // Of a run that has ended early this says nothing.
  if (report.passed())
    for (std::string const& what : report.notJudged) out += "not judged: " + what + "\n";
  size_t const n = report.breaches.size();
  return out + (n == 0   ? "the driver keeps the rules\n"
                : n == 1 ? "the driver breaks 1 rule\n"
                         : "the driver breaks " + std::to_string(n) + " rules\n");
}

}  // namespace Naxel::Testing
