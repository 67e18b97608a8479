#include "platform/ContainerFile.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <algorithm>

#include "platform/CspError.h"
#include "platform/LittleEndian.h"
#include "platform/Ossl.h"

namespace quiv::platform {
namespace {

constexpr uint16_t kAllSlots = 0x3;

void AppendWord(SecureBytes& out, uint16_t value) {
  out.push_back(static_cast<uint8_t>(value & 0xFF));
  out.push_back(static_cast<uint8_t>(value >> 8));
}

// Grows the buffer and copies into the new tail. (vector::insert of a range into a reserved
// SecureBytes draws a false -Wstringop-overflow from GCC 12 at -O2.)
void AppendBytes(SecureBytes& out, std::span<const uint8_t> bytes) {
  const size_t at = out.size();
  out.resize(at + bytes.size());
  std::copy(bytes.begin(), bytes.end(), out.begin() + static_cast<std::ptrdiff_t>(at));
}

uint16_t ReadWord(std::span<const uint8_t> bytes, size_t offset) {
  return static_cast<uint16_t>(bytes[offset] | (bytes[offset + 1] << 8));
}

std::array<uint8_t, ContainerFile::kDigestBytes> Sha256(std::span<const uint8_t> bytes) {
  std::array<uint8_t, ContainerFile::kDigestBytes> digest{};
  unsigned int length = 0;
  Ossl::Check(EVP_Digest(bytes.data(), bytes.size(), digest.data(), &length, Ossl::Digest("SHA256"),
                         nullptr),
              static_cast<uint32_t>(NTE_FAIL));
  return digest;
}

[[noreturn]] void Damaged() {
  throw CspError(NTE_KEYSET_ENTRY_BAD);
}

}  // namespace

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
  uint16_t mask = 0;
  for (size_t i = 0; i < m_pairs.size(); ++i) {
    if (m_pairs[i]) mask |= static_cast<uint16_t>(1u << i);
  }
  auto length = [](const std::optional<SecureBytes>& pair) {
    return static_cast<uint32_t>(pair ? pair->size() : 0);
  };
  SecureBytes out;
  out.reserve(kHeaderBytes + m_name.size() + length(m_pairs[0]) + length(m_pairs[1]) +
              kDigestBytes);
  AppendBytes(out, kMagic);
  AppendWord(out, kVersion);
  AppendWord(out, mask);
  LittleEndian::AppendDword(out, static_cast<uint32_t>(m_name.size()));
  LittleEndian::AppendDword(out, length(m_pairs[0]));
  LittleEndian::AppendDword(out, length(m_pairs[1]));
  AppendBytes(out, std::span(reinterpret_cast<const uint8_t*>(m_name.data()), m_name.size()));
  for (const auto& pair : m_pairs) {
    if (pair) AppendBytes(out, *pair);
  }
  const auto digest = Sha256(out);
  AppendBytes(out, digest);
  return out;
}

ContainerFile ContainerFile::Decode(std::span<const uint8_t> file) {
  if (file.size() < kHeaderBytes + kDigestBytes || file.size() > kMaxFileBytes) Damaged();
  if (!std::equal(kMagic.begin(), kMagic.end(), file.begin())) Damaged();
  if (ReadWord(file, 8) != kVersion) Damaged();
  const uint16_t mask = ReadWord(file, 10);
  const size_t nameLength = LittleEndian::ReadDword(file, 12);
  const std::array<size_t, 2> pairLength = {LittleEndian::ReadDword(file, 16),
                                            LittleEndian::ReadDword(file, 20)};
  if ((mask & ~kAllSlots) != 0) Damaged();
  if (nameLength == 0 || nameLength > kMaxNameBytes) Damaged();
  for (size_t i = 0; i < pairLength.size(); ++i) {
    if (pairLength[i] > kMaxPairBytes) Damaged();
    if ((mask & (1u << i)) == 0 && pairLength[i] != 0) Damaged();
  }
  // Every length is bounded above, so this sum cannot overflow.
  const size_t bodyLength = kHeaderBytes + nameLength + pairLength[0] + pairLength[1];
  if (file.size() != bodyLength + kDigestBytes) Damaged();
  const auto digest = Sha256(file.first(bodyLength));
  if (CRYPTO_memcmp(digest.data(), file.data() + bodyLength, kDigestBytes) != 0) Damaged();

  const auto name = file.subspan(kHeaderBytes, nameLength);
  if (std::find(name.begin(), name.end(), uint8_t{0}) != name.end()) Damaged();
  ContainerFile result(std::string(name.begin(), name.end()));
  size_t offset = kHeaderBytes + nameLength;
  for (size_t i = 0; i < pairLength.size(); ++i) {
    if ((mask & (1u << i)) != 0) {
      result.m_pairs[i] = SecureBytes(file.begin() + offset, file.begin() + offset + pairLength[i]);
    }
    offset += pairLength[i];
  }
  return result;
}

}  // namespace quiv::platform
