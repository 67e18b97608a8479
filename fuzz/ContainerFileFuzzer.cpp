// Fuzz target: the key container file parser and the key loader behind it. Any bytes either
// parse or are rejected with NTE_KEYSET_ENTRY_BAD (never a crash, never another exception), and
// what parses is exactly what the writer produces for the parsed contents (the format has one
// encoding per container). Each pair a parsed file holds then either loads as a key that passed
// the RSA key check or is rejected with NTE_KEYSET_ENTRY_BAD, as a container read from disk is.
//
// Run: build/fuzz/fuzz/fuzz_container_file fuzz/corpus/container_file -max_total_time=60
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "platform/ContainerFile.h"
#include "platform/CspError.h"
#include "platform/ProviderInfo.h"
#include "platform/RsaKey.h"

using namespace quiv::platform;

namespace {

void LoadPair(const SecureBytes& stored) {
  try {
    const auto key = RsaKey::FromStoredForm(ProviderInfo::Of(ProviderKind::Strong), stored);
    if (!key->HasPrivate()) std::abort();
  } catch (const CspError& e) {
    if (e.code() != static_cast<uint32_t>(NTE_KEYSET_ENTRY_BAD) &&
        e.code() != static_cast<uint32_t>(NTE_NO_MEMORY)) {
      std::abort();
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::span<const uint8_t> input(data, size);
  try {
    const ContainerFile file = ContainerFile::Decode(input);
    const SecureBytes again = file.Encode();
    if (again.size() != size || !std::equal(again.begin(), again.end(), data)) std::abort();
    if (file.name().empty() || file.name().size() > ContainerFile::kMaxNameBytes) std::abort();
    for (const DWORD slot : {DWORD{AT_KEYEXCHANGE}, DWORD{AT_SIGNATURE}}) {
      if (file.Pair(slot)) LoadPair(*file.Pair(slot));
    }
  } catch (const CspError& e) {
    if (e.code() != static_cast<uint32_t>(NTE_KEYSET_ENTRY_BAD)) std::abort();
  }
  return 0;
}
