#include "CapiSession.h"

#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>

namespace quiv::bench {

CapiSession::CapiSession() : CapiSession(MS_ENHANCED_PROV_A, PROV_RSA_FULL) {}

CapiSession::CapiSession(const char* name, DWORD type) {
  Check(CryptAcquireContextA(&m_prov, nullptr, name, type, CRYPT_VERIFYCONTEXT),
        "CryptAcquireContextA");
}

CapiSession::~CapiSession() {
  for (const HCRYPTKEY key : m_keys) CryptDestroyKey(key);
  CryptReleaseContext(m_prov, 0);
}

void CapiSession::Check(BOOL ok, const char* call) {
  if (ok) return;
  char code[16];
  std::snprintf(code, sizeof code, "0x%08X", GetLastError());
  throw std::runtime_error(std::string(call) + " failed: " + code);
}

// PLAINTEXTKEYBLOB: BLOBHEADER, then a DWORD key length, then the key bytes (little-endian
// fields, which is also this machine's order).
HCRYPTKEY CapiSession::ImportPlaintextKey(ALG_ID algid, std::span<const uint8_t> key) {
  BLOBHEADER header{};
  header.bType = PLAINTEXTKEYBLOB;
  header.bVersion = CUR_BLOB_VERSION;
  header.aiKeyAlg = algid;
  const uint32_t length = static_cast<uint32_t>(key.size());
  std::vector<uint8_t> blob(sizeof header + sizeof length + key.size());
  std::memcpy(blob.data(), &header, sizeof header);
  std::memcpy(blob.data() + sizeof header, &length, sizeof length);
  std::memcpy(blob.data() + sizeof header + sizeof length, key.data(), key.size());

  HCRYPTKEY handle = 0;
  Check(CryptImportKey(m_prov, blob.data(), static_cast<DWORD>(blob.size()), 0, 0, &handle),
        "CryptImportKey");
  m_keys.push_back(handle);
  if (algid == CALG_RC2) {
    const DWORD bits = length * 8;
    Check(CryptSetKeyParam(handle, KP_EFFECTIVE_KEYLEN, reinterpret_cast<const BYTE*>(&bits), 0),
          "CryptSetKeyParam(KP_EFFECTIVE_KEYLEN)");
  }
  return handle;
}

HCRYPTKEY CapiSession::GenerateSignatureKey(uint32_t bits) {
  HCRYPTKEY handle = 0;
  Check(CryptGenKey(m_prov, AT_SIGNATURE, (bits << 16) | CRYPT_EXPORTABLE, &handle),
        "CryptGenKey(AT_SIGNATURE)");
  m_keys.push_back(handle);
  return handle;
}

std::vector<uint8_t> CapiSession::ExportPrivateKeyBlob(HCRYPTKEY key) const {
  DWORD length = 0;
  Check(CryptExportKey(key, 0, PRIVATEKEYBLOB, 0, nullptr, &length), "CryptExportKey(size)");
  std::vector<uint8_t> blob(length);
  Check(CryptExportKey(key, 0, PRIVATEKEYBLOB, 0, blob.data(), &length), "CryptExportKey");
  blob.resize(length);
  return blob;
}

}  // namespace quiv::bench
