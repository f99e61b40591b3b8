#pragma once

/// The tables that `make bench` prints: medians over the repetitions, and what follows from them.

#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace Bench {

/// Collects the results while the benchmarks run, and names the one that has come to its end.
class Report : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(Context const& context) override;
  void ReportRuns(std::vector<Run> const& runs) override;
  void Finalize() override;

 private:
  struct Result {
    double ms = 0;
    std::map<std::string, double> counters;
    std::string failure;
  };

  /// Null where the benchmark did not run.
  Result const* find(std::string const& kind, std::string const& set) const;
  /// The sets of a kind, in the order in which they ran.
  std::vector<std::string> const& sets(std::string const& kind) const;
  /// Milliseconds of KIND/SET as text; "-" where there are none.
  std::string ms(std::string const& kind, std::string const& set) const;
  void printKicks() const;
  void printStages() const;
  void printGrowth() const;
  void printCodes() const;
  void printChanges() const;
  void printChurn() const;
  void printCombos() const;
  void printYardstick(std::string const& kind, std::string const& size,
                      std::string const& beside) const;
  void printRatios(std::string const& kind, std::string const& size,
                   std::string const& beside) const;
  void printMemory() const;
  void printFailures() const;

  std::map<std::string, Result> results_;                 // by KIND/SET
  std::map<std::string, std::vector<std::string>> sets_;  // by KIND, in the order of the runs
};

}  // namespace Bench
