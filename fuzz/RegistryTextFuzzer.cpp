// Fuzz target: the class registry file parser. Any bytes either parse or are refused with
// std::invalid_argument (never a crash, never another exception). What parses is valid entry by
// entry, has unique program ids and class ids, and survives the writer: formatting the entries
// and parsing that text gives the same entries, and formatting those the same text.
//
// Run: build/fuzz/fuzz/fuzz_registry_text fuzz/corpus/registry_text -max_total_time=60
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "FuzzSupport.h"
#include "server/RegistryText.h"

using quiv::server::RegistryEntry;
using quiv::server::RegistryText;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  std::vector<RegistryEntry> entries;
  try {
    entries = RegistryText::Parse(text);
  } catch (const std::invalid_argument&) {
    return 0;
  }
  for (size_t i = 0; i < entries.size(); ++i) {
    RegistryText::Check(entries[i]);  // throws, and so crashes the run, if Parse let it through
    for (size_t j = 0; j < i; ++j) {
      fuzz::Require(!RegistryText::SameProgId(entries[i].progId, entries[j].progId));
      fuzz::Require(!IsEqualGUID(&entries[i].classId, &entries[j].classId));
    }
  }
  const std::string canonical = RegistryText::Format(entries);
  fuzz::Require(RegistryText::Parse(canonical) == entries);
  fuzz::Require(RegistryText::Format(RegistryText::Parse(canonical)) == canonical);
  return 0;
}
