#include "Report.h"

#include "naxel/types/ControlEnums.h"
#include "output/TextTable.h"

#include <cmath>
#include <iostream>
#include <set>

namespace Bench {

using NaxelTool::fixed;
using Rows = std::vector<std::vector<std::string>>;

bool Report::ReportContext(Context const&) { return true; }

void Report::ReportRuns(std::vector<Run> const& runs) {
  for (Run const& run : runs) {
    // With a single repetition there are no aggregates.
    bool const counts =
        run.run_type == Run::RT_Aggregate ? run.aggregate_name == "median" : run.repetitions <= 1;
    if (!counts && !run.error_occurred) continue;
    std::string const& name = run.run_name.function_name;
    size_t const slash = name.find('/');
    auto const [at, isNew] = results_.try_emplace(name);
    if (isNew) sets_[name.substr(0, slash)].push_back(name.substr(slash + 1));
    Result& result = at->second;
    result.failure = run.error_occurred ? run.error_message : "";
    result.ms = run.error_occurred ? 0 : run.GetAdjustedRealTime();
    for (auto const& [counter, value] : run.counters) result.counters[counter] = value.value;
    if (isNew) std::cerr << name << "\n";
  }
}

Report::Result const* Report::find(std::string const& kind, std::string const& set) const {
  auto const at = results_.find(kind + "/" + set);
  return at == results_.end() || !at->second.failure.empty() ? nullptr : &at->second;
}

std::vector<std::string> const& Report::sets(std::string const& kind) const {
  static std::vector<std::string> const none;
  auto const at = sets_.find(kind);
  return at == sets_.end() ? none : at->second;
}

std::string Report::ms(std::string const& kind, std::string const& set) const {
  Result const* const result = find(kind, set);
  return result ? fixed(result->ms, result->ms < 10 ? 2 : 1) : "-";
}

void Report::printKicks() const {
  if (sets("first").empty()) return;
  Rows rows = {{"kick (ms)", "rules", "entries", "first", "unchanged", "action", "prefix"}};
  for (std::string const& set : sets("first")) {
    Result const* const first = find("first", set);
    auto const count = [&](char const* counter) {
      return first ? fixed(first->counters.at(counter), 0) : "-";
    };
    rows.push_back({set, count("rules"), count("entries"), ms("first", set), ms("unchanged", set),
                    ms("action", set), ms("prefix", set)});
  }
  NaxelTool::printTable(std::cout, rows, 1);
  std::cout << '\n';
}

void Report::printStages() const {
  if (sets("first").empty()) return;
  Rows rows = {{"stages (ms)"}};
  for (size_t i = 1; i < Mox::EnumNames<Naxel::NaxelActiveStage>::value.size(); ++i)
    rows[0].push_back(Naxel::stringValue(static_cast<Naxel::NaxelActiveStage>(i)).substr(5));
  for (std::string const& set : sets("first")) {
    Result const* const first = find("first", set);
    if (!first) continue;
    rows.push_back({set});
    for (size_t i = 1; i < Mox::EnumNames<Naxel::NaxelActiveStage>::value.size(); ++i)
      rows.back().push_back(fixed(
          first->counters.at(Naxel::stringValue(static_cast<Naxel::NaxelActiveStage>(i))), 2));
  }
  NaxelTool::printTable(std::cout, rows, 1);
  std::cout << '\n';
}

/// Sets that differ in their size alone are named NAME:SIZE.
void Report::printGrowth() const {
  if (sets("first").empty()) return;
  std::map<std::string, std::pair<Result const*, Result const*>> ends;
  for (std::string const& set : sets("first")) {
    Result const* const first = find("first", set);
    size_t const colon = set.find(':');
    if (!first || colon == std::string::npos) continue;
    auto& [low, high] = ends[set.substr(0, colon)];
    auto const rules = [](Result const* r) { return r->counters.at("rules"); };
    if (!low || rules(first) < rules(low)) low = first;
    if (!high || rules(first) > rules(high)) high = first;
  }
  Rows rows = {{"growth of the first kick", "from", "to", "exponent"}};
  for (auto const& [name, pair] : ends) {
    auto const& [low, high] = pair;
    if (low == high) continue;
    double const from = low->counters.at("rules");
    double const to = high->counters.at("rules");
    rows.push_back({name, fixed(from, 0), fixed(to, 0),
                    fixed(std::log(high->ms / low->ms) / std::log(to / from), 3)});
  }
  if (rows.size() == 1) return;
  NaxelTool::printTable(std::cout, rows, 1);
  std::cout << '\n';
}

void Report::printCombos() const {
  if (sets("combo").empty()) return;
  Rows rows = {{"combinations (ms)", "rules", "entries", "first", "resolver", "split", "encoder"}};
  for (std::string const& set : sets("combo")) {
    Result const* const result = find("combo", set);
    if (!result) continue;
    auto const counter = [&](char const* name, int digits) {
      return fixed(result->counters.at(name), digits);
    };
    rows.push_back({set, counter("rules", 0), counter("entries", 0), ms("combo", set),
                    counter("stageComboLabelResolver", 2), counter("stageComboLabelSplit", 2),
                    counter("stageComboLabelEncoder", 2)});
  }
  NaxelTool::printTable(std::cout, rows, 1);
  std::cout << '\n';
}

void Report::printChanges() const {
  if (sets("change").empty()) return;
  Rows rows = {{"change", "ms", "% of a first kick"}};
  for (std::string const& set : sets("change"))
    if (Result const* const result = find("change", set))
      rows.push_back({set, ms("change", set), fixed(result->counters.at("share"), 1)});
  NaxelTool::printTable(std::cout, rows, 1);
  std::cout << '\n';
}

void Report::printChurn() const {
  if (sets("churn").empty()) return;
  Rows rows = {{"churn (rows)", "median", "95 %", "99 %", "worst", "labels", "worst", "entries",
                "to afresh", "ms"}};
  for (std::string const& set : sets("churn")) {
    Result const* const result = find("churn", set);
    if (!result) continue;
    auto const counter = [&](char const* name, int digits) {
      return fixed(result->counters.at(name), digits);
    };
    rows.push_back({set, counter("median", 0), counter("p95", 0), counter("p99", 0),
                    counter("worst", 0), counter("labelsMedian", 0), counter("labelsWorst", 0),
                    counter("entries", 0), counter("afresh", 3), ms("churn", set)});
  }
  NaxelTool::printTable(std::cout, rows, 1);
  std::cout << '\n';
}

void Report::printCodes() const {
  if (sets("codes").empty()) return;
  Rows rows = {
      {"label codes", "rules", "aligned", "compact", "aligned (ms)", "compact (ms)", "ratio"}};
  for (std::string const& set : sets("codes")) {
    Result const* const result = find("codes", set);
    if (!result) continue;
    auto const counter = [&](char const* name, int digits) {
      return fixed(result->counters.at(name), digits);
    };
    rows.push_back({set, counter("rules", 0), counter("alignedPerRule", 3), counter("perRule", 3),
                    counter("aligned", 1), ms("codes", set), counter("ratio", 2)});
  }
  NaxelTool::printTable(std::cout, rows, 1);
  std::cout << '\n';
}

void Report::printYardstick(std::string const& kind, std::string const& size,
                            std::string const& beside) const {
  if (sets(kind).empty()) return;
  Rows rows = {{kind + " (ms)", size, "transform", beside, "ratio", "kick", "ratio"}};
  for (std::string const& set : sets(kind)) {
    Result const* const result = find(kind, set);
    if (!result) continue;
    auto const counter = [&](char const* name, int digits) {
      return fixed(result->counters.at(name), digits);
    };
    rows.push_back({set, counter("size", 0), counter("transform", 2), counter("beside", 2),
                    counter("ratio", 2), ms(kind, set), counter("kickRatio", 2)});
  }
  NaxelTool::printTable(std::cout, rows, 1);
  std::cout << '\n';
}

void Report::printRatios(std::string const& kind, std::string const& size,
                         std::string const& beside) const {
  if (sets(kind).empty()) return;
  Rows rows = {{kind + " (ms)", size, "time", beside, "ratio"}};
  for (std::string const& set : sets(kind)) {
    Result const* const result = find(kind, set);
    if (!result) continue;
    auto const counter = [&](char const* name, int digits) {
      return fixed(result->counters.at(name), digits);
    };
    rows.push_back(
        {set, counter("size", 0), ms(kind, set), counter("beside", 2), counter("ratio", 2)});
  }
  NaxelTool::printTable(std::cout, rows, 1);
  std::cout << '\n';
}

void Report::printMemory() const {
  if (sets("memory").empty()) return;
  Rows rows = {{"memory (bytes per rule)", "rules", "configuration", "peak of kick", "afterwards"}};
  for (std::string const& set : sets("memory")) {
    Result const* const result = find("memory", set);
    if (!result) continue;
    auto const counter = [&](char const* name) { return fixed(result->counters.at(name), 0); };
    rows.push_back(
        {set, counter("rules"), counter("configuration"), counter("peak"), counter("after")});
  }
  NaxelTool::printTable(std::cout, rows, 1);
  std::cout << '\n';
}

/// Once for each set and reason, with the first benchmark that it kept from running.
void Report::printFailures() const {
  std::set<std::string> said;
  for (auto const& [kind, sets] : sets_)
    for (std::string const& set : sets) {
      std::string const& failure = results_.at(kind + "/" + set).failure;
      bool const isNew = !failure.empty() && said.insert(set + ": " + failure).second;
      if (isNew) std::cout << kind << '/' << set << ": " << failure << '\n';
    }
}

void Report::Finalize() {
  printKicks();
  printStages();
  printGrowth();
  printCodes();
  printChanges();
  printChurn();
  printCombos();
  printYardstick("list", "prefixes", "std::set");
  printYardstick("ranges", "ranges", "std::sort");
  printRatios("walk", "rules", "std::map");
  printRatios("crafted", "prefixes", "random");
  printRatios("nested", "lists", "ten of 2k");
  printRatios("removal", "rules", "ten of 10k");
  printMemory();
  printFailures();
}

}  // namespace Bench
