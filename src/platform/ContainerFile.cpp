#include "platform/ContainerFile.h"

#include "platform/CspError.h"

namespace quiv::platform {

size_t ContainerFile::SlotIndex(DWORD slot) {
  if (slot != AT_KEYEXCHANGE && slot != AT_SIGNATURE) throw CspError(NTE_BAD_KEY);
  return slot - 1;
}

const std::optional<SecureBytes>& ContainerFile::Pair(DWORD slot) const {
  return m_pairs[SlotIndex(slot)];
}

void ContainerFile::SetPair(DWORD slot, std::span<const uint8_t> pair) {
  const size_t index = SlotIndex(slot);
  if (pair.size() > kMaxPairBytes) throw CspError(NTE_BAD_LEN);
  m_pairs[index] = SecureBytes(pair.begin(), pair.end());
}

SecureBytes ContainerFile::Encode() const {
  throw CspError(NTE_FAIL);
}
ContainerFile ContainerFile::Decode(std::span<const uint8_t>) {
  throw CspError(NTE_KEYSET_ENTRY_BAD);
}

}  // namespace quiv::platform
