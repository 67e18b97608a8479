// RatioReporter: a Google Benchmark reporter for paired benchmarks. Each case is registered
// twice, as "<case>/ours" and "<case>/evp"; the reporter keeps the best (smallest) wall-clock
// time per iteration over the repetitions of each, prints one line per finished benchmark, and
// at the end a table: case, our rate, the baseline's rate, and their ratio (our rate divided by
// the baseline's, so 1.0 means as fast and below 1.0 means slower). The best of several
// interleaved repetitions is the figure least disturbed by other work on a shared machine.
#ifndef QUIV_BENCH_RATIOREPORTER_H
#define QUIV_BENCH_RATIOREPORTER_H

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace quiv::bench {

class RatioReporter final : public benchmark::BenchmarkReporter {
 public:
  // What one iteration of a case does: `work` bytes (shown in MB/s, 10^6 bytes) or `work`
  // operations (ops/s), with the ratio the case aims at.
  struct CaseInfo {
    std::string name;
    bool bytes = true;
    double work = 1;
    double aim = 0.95;
  };

  void AddCase(CaseInfo info);

  bool ReportContext(const Context& context) override;
  void ReportRuns(const std::vector<Run>& runs) override;

  // Prints the table to `out` (as Markdown, ready to paste into the performance notes).
  // Returns how many measured cases fall below their aim.
  int PrintTable(std::FILE* out) const;

 private:
  double Rate(const CaseInfo& info, double seconds) const;

  std::vector<CaseInfo> m_cases;
  std::map<std::string, double> m_best;  // benchmark name -> best seconds per iteration
  std::map<std::string, std::string> m_errors;
};

}  // namespace quiv::bench

#endif
