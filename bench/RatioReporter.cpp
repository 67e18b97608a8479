#include "RatioReporter.h"

#include <algorithm>
#include <utility>

namespace quiv::bench {

void RatioReporter::AddCase(CaseInfo info) {
  m_cases.push_back(std::move(info));
}

bool RatioReporter::ReportContext(const Context& context) {
  std::printf("%d CPUs at %.0f MHz; best of the repetitions, interleaved\n",
              context.cpu_info.num_cpus, context.cpu_info.cycles_per_second / 1e6);
  return true;
}

void RatioReporter::ReportRuns(const std::vector<Run>& runs) {
  bool measured = false;
  for (const Run& run : runs) {
    if (run.run_type != Run::RT_Iteration) continue;
    const std::string& name = run.run_name.function_name;
    if (run.error_occurred) {
      m_errors[name] = run.error_message;
      std::printf("%-28s error: %s\n", name.c_str(), run.error_message.c_str());
      continue;
    }
    if (run.iterations <= 0) continue;
    const double seconds = run.real_accumulated_time / static_cast<double>(run.iterations);
    const auto found = m_best.find(name);
    m_best[name] = found == m_best.end() ? seconds : std::min(found->second, seconds);
    measured = true;
  }
  if (measured) {
    const std::string& name = runs.front().run_name.function_name;
    std::printf("%-28s best %10.3f ms per iteration\n", name.c_str(), m_best[name] * 1e3);
    std::fflush(stdout);
  }
}

double RatioReporter::Rate(const CaseInfo& info, double seconds) const {
  return info.work / seconds / (info.bytes ? 1e6 : 1.0);
}

int RatioReporter::PrintTable(std::FILE* out) const {
  int below = 0;
  std::fprintf(out, "\n| case | ours | EVP | ratio | aim |\n|---|---:|---:|---:|---:|\n");
  for (const CaseInfo& info : m_cases) {
    const auto ours = m_best.find(info.name + "/ours");
    const auto evp = m_best.find(info.name + "/evp");
    if (ours == m_best.end() || evp == m_best.end()) {
      const bool failed = m_errors.count(info.name + "/ours") || m_errors.count(info.name + "/evp");
      if (failed) std::fprintf(out, "| %s | error | | | |\n", info.name.c_str());
      continue;  // filtered out
    }
    const char* unit = info.bytes ? "MB/s" : "ops/s";
    const double ratio = evp->second / ours->second;
    if (ratio < info.aim) ++below;
    std::fprintf(out, "| %s | %.1f %s | %.1f %s | %.3f%s | %.2f |\n", info.name.c_str(),
                 Rate(info, ours->second), unit, Rate(info, evp->second), unit, ratio,
                 ratio < info.aim ? " (below)" : "", info.aim);
  }
  return below;
}

}  // namespace quiv::bench
