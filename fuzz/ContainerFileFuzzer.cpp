// Fuzz target: the key container file parser. Any bytes either parse or are rejected with
// NTE_KEYSET_ENTRY_BAD (never a crash, never another exception), and what parses is exactly
// what the writer produces for the parsed contents (the format has one encoding per container).
//
// Run: build/fuzz/fuzz/fuzz_container_file fuzz/corpus/container_file -max_total_time=60
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "platform/ContainerFile.h"
#include "platform/CspError.h"

using namespace quiv::platform;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::span<const uint8_t> input(data, size);
  try {
    const ContainerFile file = ContainerFile::Decode(input);
    const SecureBytes again = file.Encode();
    if (again.size() != size || !std::equal(again.begin(), again.end(), data)) std::abort();
    if (file.name().empty() || file.name().size() > ContainerFile::kMaxNameBytes) std::abort();
  } catch (const CspError& e) {
    if (e.code() != static_cast<uint32_t>(NTE_KEYSET_ENTRY_BAD)) std::abort();
  }
  return 0;
}
