#include "RatioReporter.h"

namespace quiv::bench {

void RatioReporter::AddCase(CaseInfo info) {
  m_cases.push_back(std::move(info));
}

bool RatioReporter::ReportContext(const Context& context) {
  std::printf("%d CPUs at %.0f MHz, load average %.2f; best sample of each side\n",
              context.cpu_info.num_cpus, context.cpu_info.cycles_per_second / 1e6,
              context.cpu_info.load_avg.empty() ? 0.0 : context.cpu_info.load_avg.front());
  return true;
}

void RatioReporter::ReportRuns(const std::vector<Run>& runs) {
  for (const Run& run : runs) {
    const std::string& name = run.run_name.function_name;
    if (run.error_occurred) {
      m_errors[name] = run.error_message;
      std::printf("%-30s error: %s\n", name.c_str(), run.error_message.c_str());
      continue;
    }
    const auto ours = run.counters.find(kOurs);
    const auto evp = run.counters.find(kBaseline);
    if (ours == run.counters.end() || evp == run.counters.end()) continue;
    m_best[name] = {ours->second.value, evp->second.value};
    std::printf("%-30s ours %10.4f ms, %s %10.4f ms\n", name.c_str(), ours->second.value * 1e3,
                m_baseline.c_str(), evp->second.value * 1e3);
    std::fflush(stdout);
  }
}

double RatioReporter::Rate(const CaseInfo& info, double seconds) const {
  return info.work / seconds / (info.bytes ? 1e6 : 1.0);
}

int RatioReporter::PrintTable(std::FILE* out) const {
  int below = 0;
  std::fprintf(out, "\n| case | ours | %s | ratio | aim |\n|---|---:|---:|---:|---:|\n",
               m_baseline.c_str());
  for (const CaseInfo& info : m_cases) {
    const auto found = m_best.find(info.name);
    if (found == m_best.end()) {
      if (m_errors.count(info.name) != 0)
        std::fprintf(out, "| %s | error | | | |\n", info.name.c_str());
      continue;  // filtered out
    }
    const auto [ours, evp] = found->second;
    const char* unit = info.bytes ? "MB/s" : "ops/s";
    const double ratio = evp / ours;
    if (ratio < info.aim) ++below;
    std::fprintf(out, "| %s | %.1f %s | %.1f %s | %.3f%s | %.2f |\n", info.name.c_str(),
                 Rate(info, ours), unit, Rate(info, evp), unit, ratio,
                 ratio < info.aim ? " (below)" : "", info.aim);
  }
  return below;
}

std::pair<double, double> RatioReporter::Best(const std::string& name) const {
  const auto found = m_best.find(name);
  return found == m_best.end() ? std::pair<double, double>{0, 0} : found->second;
}

}  // namespace quiv::bench
