// RatioReporter: a Google Benchmark reporter for paired benchmarks. Each case is one benchmark
// that times our side and the baseline alternately and leaves the best time per message (or
// operation) of each in the counters kOurs and kBaseline, in seconds. The reporter prints a line
// per finished case and, at the end, a table: case, our rate, the baseline's rate, and their
// ratio (our rate divided by the baseline's: 1.0 means as fast, below 1.0 slower).
#ifndef QUIV_BENCH_RATIOREPORTER_H
#define QUIV_BENCH_RATIOREPORTER_H

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace quiv::bench {

class RatioReporter final : public benchmark::BenchmarkReporter {
 public:
  static constexpr const char* kOurs = "ours_s";
  static constexpr const char* kBaseline = "evp_s";

  // What one message of a case is: `work` bytes (shown in MB/s, 10^6 bytes per second) or
  // `work` operations (ops/s), with the ratio the case aims at.
  struct CaseInfo {
    std::string name;
    bool bytes = true;
    double work = 1;
    double aim = 0.95;
  };

  // `baseline` names the baseline's column in the table (OpenSSL's EVP unless said otherwise).
  explicit RatioReporter(std::string baseline = "EVP") : m_baseline(std::move(baseline)) {}

  void AddCase(CaseInfo info);

  bool ReportContext(const Context& context) override;
  void ReportRuns(const std::vector<Run>& runs) override;

  // Prints the table to `out` as Markdown. Returns how many measured cases fall below their aim.
  int PrintTable(std::FILE* out) const;
  // The best seconds per message (or operation) of our side and of the baseline for a finished
  // case; zeros for a case that did not run.
  std::pair<double, double> Best(const std::string& name) const;

 private:
  double Rate(const CaseInfo& info, double seconds) const;

  std::string m_baseline;
  std::vector<CaseInfo> m_cases;
  std::map<std::string, std::pair<double, double>> m_best;  // case -> (ours, baseline) seconds
  std::map<std::string, std::string> m_errors;
};

}  // namespace quiv::bench

#endif
