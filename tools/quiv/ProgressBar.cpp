#include "ProgressBar.h"

#include <unistd.h>

#include <cstdio>

namespace quiv::cli {

ProgressBar::ProgressBar(std::optional<uint64_t> total) {
  m_active = total && *total > kThreshold && ::isatty(2) == 1;
  if (m_active) m_total = *total;
}

ProgressBar::~ProgressBar() {
  if (m_active && m_shown >= 0) std::fprintf(stderr, "\r%60s\r", "");
}

void ProgressBar::Advance(uint64_t bytes) {
  if (!m_active) return;
  m_done += bytes;
  const int percent = static_cast<int>(m_done * 100 / m_total);
  if (percent == m_shown) return;
  m_shown = percent;
  constexpr int kWidth = 40;
  const int filled = percent * kWidth / 100;
  char bar[kWidth + 1];
  for (int i = 0; i < kWidth; ++i) bar[i] = i < filled ? '#' : '.';
  bar[kWidth] = '\0';
  std::fprintf(stderr, "\r[%s] %3d%% %llu MiB", bar, percent,
               static_cast<unsigned long long>(m_done >> 20));
  std::fflush(stderr);
}

}  // namespace quiv::cli
