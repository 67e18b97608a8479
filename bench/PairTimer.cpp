#include "PairTimer.h"

#include <algorithm>
#include <chrono>
#include <exception>

namespace quiv::bench {

namespace {
using Clock = std::chrono::steady_clock;
}  // namespace

double TimeBatch(const Side& side, int batch) {
  Clock::duration total{};
  for (int i = 0; i < batch; ++i) {
    if (side.prepare) side.prepare();
    const Clock::time_point start = Clock::now();
    side.run();
    total += Clock::now() - start;
  }
  return std::chrono::duration<double>(total).count() / batch;
}

void RunPair(benchmark::State& state, const Side& ours, const Side& baseline, double batchSeconds) {
  // A first run of each warms both up and sizes the batches; it counts as a sample too.
  double bestOurs = TimeBatch(ours, 1);
  double bestBaseline = TimeBatch(baseline, 1);
  const double once = std::max(bestOurs, bestBaseline);
  const int batch = static_cast<int>(std::clamp(batchSeconds / once, 1.0, 100000.0));
  bool oursFirst = true;
  for (auto _ : state) {
    if (oursFirst) bestOurs = std::min(bestOurs, TimeBatch(ours, batch));
    bestBaseline = std::min(bestBaseline, TimeBatch(baseline, batch));
    if (!oursFirst) bestOurs = std::min(bestOurs, TimeBatch(ours, batch));
    oursFirst = !oursFirst;
  }
  state.counters[RatioReporter::kOurs] = bestOurs;
  state.counters[RatioReporter::kBaseline] = bestBaseline;
}

void RegisterPair(RatioReporter& reporter, const RatioReporter::CaseInfo& info, int samples,
                  Side ours, Side baseline, double batchSeconds) {
  reporter.AddCase(info);
  benchmark::RegisterBenchmark(info.name.c_str(),
                               [ours, baseline, batchSeconds](benchmark::State& state) {
                                 try {
                                   RunPair(state, ours, baseline, batchSeconds);
                                 } catch (const std::exception& e) {
                                   state.SkipWithError(e.what());
                                 }
                               })
      ->Iterations(samples)
      ->Unit(benchmark::kMillisecond);
}

}  // namespace quiv::bench
