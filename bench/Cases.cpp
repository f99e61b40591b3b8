#include "Cases.h"

namespace Bench {

void addCase(std::string const& kind, std::string const& set, int samples,
             std::function<double(benchmark::State&)> sample) {
  benchmark::RegisterBenchmark((kind + "/" + set).c_str(),
                               [sample](benchmark::State& state) {
                                 for (auto _ : state) {
                                   try {
                                     state.SetIterationTime(sample(state));
                                   } catch (std::exception const& e) {
                                     state.SkipWithError(e.what());
                                     break;
                                   }
                                 }
                               })
      ->UseManualTime()
      ->Iterations(samples)
      ->Unit(benchmark::kMillisecond);
}

}  // namespace Bench
