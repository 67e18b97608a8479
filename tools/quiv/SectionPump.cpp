#include "SectionPump.h"

namespace quiv::cli {

namespace {

std::vector<uint8_t> ReadSection(DataReader& reader) {
  std::vector<uint8_t> section;
  section.reserve(SectionPump::kSection + SectionPump::kShortTail);
  while (section.size() < SectionPump::kSection) {
    if (reader.ReadInto(section, SectionPump::kSection - section.size()) == 0) break;
  }
  return section;
}

}  // namespace

void SectionPump::Run(DataReader& reader, ProgressBar& progress, const Sink& sink) {
  uint64_t reported = 0;
  std::vector<uint8_t> held = ReadSection(reader);
  for (;;) {
    std::vector<uint8_t> next =
        held.size() < kSection ? std::vector<uint8_t>{} : ReadSection(reader);
    progress.Advance(reader.Consumed() - reported);
    reported = reader.Consumed();
    if (next.empty()) break;
    if (next.size() <= kShortTail) {
      held.insert(held.end(), next.begin(), next.end());
      break;
    }
    sink(std::move(held), false);
    held = std::move(next);
  }
  sink(std::move(held), true);
}

}  // namespace quiv::cli
