// SectionPump: runs a large input through a cipher or hash in sections of fixed size, in
// constant memory. The session key's Encrypt and Decrypt take a message in sections (the AMOUNT
// mechanism: NOT_FINAL_SECTION for all but the last, FINAL_SECTION for the last); every section
// but the last is a whole number of cipher blocks. The pump reads one section ahead, so it knows
// which section is the last, and folds a tail of a few bytes into the section before it: the
// last section is short only when the whole input is.
//
// Sections are handed over as vectors the sink may keep (a message object takes them without a
// copy).
#ifndef QUIV_TOOLS_QUIV_SECTIONPUMP_H
#define QUIV_TOOLS_QUIV_SECTIONPUMP_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "DataReader.h"
#include "ProgressBar.h"

namespace quiv::cli {

class SectionPump final {
 public:
  // A multiple of every block length (8).
  static constexpr size_t kSection = 256u << 10;
  // A last piece up to this size joins the section before it.
  static constexpr size_t kShortTail = 16;

  using Sink = std::function<void(std::vector<uint8_t>&& section, bool final)>;

  // Reads everything from `reader`, handing `sink` each section in order; the last call has
  // final = true (also for an empty input, with an empty section).
  static void Run(DataReader& reader, ProgressBar& progress, const Sink& sink);
};

}  // namespace quiv::cli

#endif
