// ProgressBar: a one-line bar on standard error for long runs, shown only when standard error
// is a terminal and the input is a file larger than a few MiB (a pipe has no known end, and a
// short run has nothing to watch). It redraws only when the shown percentage changes, and
// clears its line when done, so nothing of it ends up in a log or a pipe.
#ifndef QUIV_TOOLS_QUIV_PROGRESSBAR_H
#define QUIV_TOOLS_QUIV_PROGRESSBAR_H

#include <cstdint>
#include <optional>

namespace quiv::cli {

class ProgressBar final {
 public:
  // Inputs up to this size show no bar.
  static constexpr uint64_t kThreshold = 8u << 20;

  explicit ProgressBar(std::optional<uint64_t> total);
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  void Advance(uint64_t bytes);

 private:
  uint64_t m_total = 0;
  uint64_t m_done = 0;
  int m_shown = -1;
  bool m_active = false;
};

}  // namespace quiv::cli

#endif
