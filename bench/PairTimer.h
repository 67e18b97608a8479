// PairTimer: times our side of a case against its baseline on the same machine at the same
// moment. Each benchmark iteration times one batch of each side, alternating which goes first,
// and keeps the best batch of each; the best seconds per run land in the RatioReporter's
// counters. On a shared, loaded machine this keeps both sides within milliseconds of each other.
#ifndef QUIV_BENCH_PAIRTIMER_H
#define QUIV_BENCH_PAIRTIMER_H

#include <benchmark/benchmark.h>

#include <functional>

#include "RatioReporter.h"

namespace quiv::bench {

// One side of a case: `run` is timed; `prepare` (optional) runs before each run, untimed.
struct Side {
  std::function<void()> run;
  std::function<void()> prepare;
};

// Mean seconds per run over `batch` runs, each timed on its own so that `prepare` stays out.
double TimeBatch(const Side& side, int batch);

// Batches last about this long, or one run when a run takes longer.
inline constexpr double kBatchSeconds = 0.004;

// The benchmark body: batches of about `batchSeconds` (at least one run each).
void RunPair(benchmark::State& state, const Side& ours, const Side& baseline,
             double batchSeconds = kBatchSeconds);

// Registers the case with the reporter and as one benchmark of `samples` iterations (batch
// pairs). An exception from either side skips the case with its message.
void RegisterPair(RatioReporter& reporter, const RatioReporter::CaseInfo& info, int samples,
                  Side ours, Side baseline, double batchSeconds = kBatchSeconds);

}  // namespace quiv::bench

#endif
