// ContainerFile: the contents of one key container (its name as created and its two key-pair
// slots) and the codec of the file that holds it. The pair bytes are opaque here.
//
// File layout (all integers little-endian, fixed width):
//   offset  size  field
//   0       8     magic "QUIVKEYC"
//   8       2     format version, 1
//   10      2     slot mask: bit 0 = AT_KEYEXCHANGE present, bit 1 = AT_SIGNATURE present
//   12      4     name length N (1..260)
//   16      4     exchange pair length X (0 when absent)
//   20      4     signature pair length S (0 when absent)
//   24      N     name bytes (no NUL)
//   24+N    X     exchange pair
//   24+N+X  S     signature pair
//   end-32  32    SHA-256 of every preceding byte
// The file is exactly 56 + N + X + S bytes; anything else (short, long, wrong magic, version,
// mask bits, lengths, digest) is a damaged container.
//
// Ownership: a ContainerFile owns copies of the name and the pair bytes (in wiping buffers).
#ifndef QUIV_PLATFORM_CONTAINERFILE_H
#define QUIV_PLATFORM_CONTAINERFILE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/QuivExport.h"
#include "platform/SecureBytes.h"
#include "platform/wincrypt.h"

namespace quiv::platform {

class QUIV_API ContainerFile final {
 public:
  static constexpr std::array<uint8_t, 8> kMagic = {'Q', 'U', 'I', 'V', 'K', 'E', 'Y', 'C'};
  static constexpr uint16_t kVersion = 1;
  static constexpr size_t kHeaderBytes = 24;
  static constexpr size_t kDigestBytes = 32;
  static constexpr size_t kMaxNameBytes = 260;
  // Far above a 16384-bit private key blob; bounds what a damaged length field can ask for.
  static constexpr size_t kMaxPairBytes = 1u << 20;
  static constexpr size_t kMaxFileBytes =
      kHeaderBytes + kMaxNameBytes + 2 * kMaxPairBytes + kDigestBytes;

  // An empty container named `name` (not validated here; the store checks names).
  explicit ContainerFile(std::string name) : m_name(std::move(name)) {}

  const std::string& name() const { return m_name; }

  // The pair in `slot`, nullopt when empty. throws NTE_BAD_KEY (slot not 1 or 2).
  const std::optional<SecureBytes>& Pair(DWORD slot) const;
  // Replaces the pair in `slot`. throws NTE_BAD_KEY (slot not 1 or 2), NTE_BAD_LEN (too long).
  void SetPair(DWORD slot, std::span<const uint8_t> pair);

  // The file image described above. throws NTE_FAIL (digest unavailable).
  SecureBytes Encode() const;
  // Parses a file image. throws NTE_KEYSET_ENTRY_BAD on any deviation from the layout.
  static ContainerFile Decode(std::span<const uint8_t> file);

 private:
  static size_t SlotIndex(DWORD slot);

  std::string m_name;
  std::array<std::optional<SecureBytes>, 2> m_pairs;
};

}  // namespace quiv::platform

#endif
