// SectionPump: runs a large input through a cipher or hash in sections of fixed size, in
// constant memory. The session key's Encrypt and Decrypt take a message in sections (the AMOUNT
// mechanism: NOT_FINAL_SECTION for all but the last, FINAL_SECTION for the last); every section
// but the last is a whole number of cipher blocks, and the last one is never left short when
// there is more data before it: the pump holds back one section so that the final section
// always carries at least a full section whenever the input is longer than two.
#ifndef QUIV_TOOLS_QUIV_SECTIONPUMP_H
#define QUIV_TOOLS_QUIV_SECTIONPUMP_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

#include "DataReader.h"
#include "ProgressBar.h"

namespace quiv::cli {

class SectionPump final {
 public:
  // A multiple of every block length (8), and of the hex layout.
  static constexpr size_t kSection = 256u << 10;

  using Sink = std::function<void(std::span<const uint8_t> section, bool final)>;

  // Reads everything from `reader`, handing `sink` each section in order; the last call has
  // final = true (also for an empty input, with an empty section).
  static void Run(DataReader& reader, ProgressBar& progress, const Sink& sink);
};

}  // namespace quiv::cli

#endif
