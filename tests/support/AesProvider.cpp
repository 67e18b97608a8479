#include "support/AesProvider.h"

#include <gtest/gtest.h>

namespace quiv::test {

ProvHandle AesVerifyContext() {
  ProvHandle prov;
  EXPECT_TRUE(Succeeded(CryptAcquireContextA(prov.put(), nullptr, MS_ENH_RSA_AES_PROV_A,
                                             PROV_RSA_AES, CRYPT_VERIFYCONTEXT)))
      << "CRYPT_VERIFYCONTEXT on the AES provider";
  return prov;
}

Bytes PlaintextKeyBlob(ALG_ID algid, std::span<const uint8_t> key) {
  Bytes blob = {PLAINTEXTKEYBLOB, CUR_BLOB_VERSION, 0, 0};
  for (int shift = 0; shift < 32; shift += 8) blob.push_back(static_cast<uint8_t>(algid >> shift));
  const auto length = static_cast<DWORD>(key.size());
  for (int shift = 0; shift < 32; shift += 8) blob.push_back(static_cast<uint8_t>(length >> shift));
  blob.insert(blob.end(), key.begin(), key.end());
  return blob;
}

KeyHandle PlainKey(HCRYPTPROV prov, ALG_ID algid, std::span<const uint8_t> key, DWORD flags) {
  return ImportKey(prov, PlaintextKeyBlob(algid, key), 0, flags);
}

Bytes EncryptBytes(HCRYPTKEY key, std::span<const uint8_t> data, bool final) {
  constexpr size_t kRoom = 16;  // the largest block: AES
  Bytes buffer(data.begin(), data.end());
  buffer.resize(data.size() + kRoom);
  auto length = static_cast<DWORD>(data.size());
  const BOOL ok = CryptEncrypt(key, 0, final ? TRUE : FALSE, 0, buffer.data(), &length,
                               static_cast<DWORD>(buffer.size()));
  EXPECT_TRUE(Succeeded(ok)) << "CryptEncrypt of " << data.size() << " bytes";
  if (!ok) return {};
  buffer.resize(length);
  return buffer;
}

Bytes DecryptBytes(HCRYPTKEY key, std::span<const uint8_t> data, bool final) {
  Bytes buffer(data.begin(), data.end());
  auto length = static_cast<DWORD>(buffer.size());
  const BOOL ok = CryptDecrypt(key, 0, final ? TRUE : FALSE, 0, buffer.data(), &length);
  EXPECT_TRUE(Succeeded(ok)) << "CryptDecrypt of " << data.size() << " bytes";
  if (!ok) return {};
  buffer.resize(length);
  return buffer;
}

}  // namespace quiv::test
