#include "SectionPump.h"

#include <vector>

namespace quiv::cli {

void SectionPump::Run(DataReader& reader, ProgressBar& progress, const Sink& sink) {
  std::vector<uint8_t> pending;
  pending.reserve(2 * kSection);
  bool end = false;
  uint64_t reported = 0;
  for (;;) {
    while (!end && pending.size() < 2 * kSection) {
      if (reader.ReadInto(pending, 2 * kSection - pending.size()) == 0) end = true;
    }
    progress.Advance(reader.Consumed() - reported);
    reported = reader.Consumed();
    if (end) break;
    sink(std::span(pending.data(), kSection), false);
    pending.erase(pending.begin(), pending.begin() + kSection);
  }
  sink(std::span(pending.data(), pending.size()), true);
}

}  // namespace quiv::cli
