// Length limits of the provider, at the exact boundary and one past it, through the C
// functions: the buffer for a container name in PP_ENUMCONTAINERS (the name and its NUL), the
// HMAC key length above which the key is replaced by its digest (64, the block of MD5 and
// SHA-1), and the longest salt KP_SALT_EX takes (24 bytes). Each limit shifted by one fails one
// of these tests.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <cstring>
#include <memory>
#include <string>

#include "platform/wincrypt.h"
#include "support/CapiCalls.h"
#include "support/CapiHandle.h"
#include "support/TempKeyStore.h"

namespace quiv::test {
namespace {

Bytes Sequence(size_t n, uint8_t start) {
  Bytes out(n);
  for (size_t i = 0; i < n; ++i) out[i] = static_cast<uint8_t>(start + i);
  return out;
}

// The single container of a fresh store, read with heap buffers of exactly `size` bytes, so
// that the sanitizers see a write of even one byte past the end.
TEST(LengthBoundaryTest, EnumContainersNeedsRoomForTheNameAndItsTerminator) {
  for (const size_t nameLength : {1u, 15u, 100u}) {
    const TempKeyStore store;
    const std::string name(nameLength, 'n');
    ProvHandle prov;
    ASSERT_TRUE(CryptAcquireContextA(prov.put(), name.c_str(), MS_ENHANCED_PROV_A, PROV_RSA_FULL,
                                     CRYPT_NEWKEYSET));

    auto exact = std::make_unique<BYTE[]>(nameLength);
    DWORD length = static_cast<DWORD>(nameLength);
    SetLastError(0);
    EXPECT_TRUE(FailedWith(
        CryptGetProvParam(prov.get(), PP_ENUMCONTAINERS, exact.get(), &length, CRYPT_FIRST),
        ERROR_MORE_DATA))
        << "a buffer of the name's length has no room for its NUL (" << nameLength << ")";

    auto roomy = std::make_unique<BYTE[]>(nameLength + 1);
    length = static_cast<DWORD>(nameLength + 1);
    ASSERT_TRUE(Succeeded(
        CryptGetProvParam(prov.get(), PP_ENUMCONTAINERS, roomy.get(), &length, CRYPT_FIRST)));
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(roomy.get()), nameLength), name);
    EXPECT_EQ(roomy[nameLength], 0);
  }
}

// HMAC of `data` under a key of any length, through a PLAINTEXTKEYBLOB imported for HMAC only.
Bytes ProviderHmac(ALG_ID hashAlg, const Bytes& key, const Bytes& data) {
  ProvHandle prov;
  EXPECT_TRUE(CryptAcquireContextA(prov.put(), nullptr, MS_ENHANCED_PROV_A, PROV_RSA_FULL,
                                   CRYPT_VERIFYCONTEXT));
  Bytes blob = {PLAINTEXTKEYBLOB, CUR_BLOB_VERSION, 0, 0};
  const DWORD fields[] = {CALG_RC2, static_cast<DWORD>(key.size())};
  for (DWORD field : fields) {
    for (int i = 0; i < 4; ++i) blob.push_back(static_cast<uint8_t>(field >> (8 * i)));
  }
  blob.insert(blob.end(), key.begin(), key.end());
  KeyHandle hmacKey = ImportKey(prov.get(), blob, 0, CRYPT_IPSEC_HMAC_KEY);
  HashHandle hash = CreateHash(prov.get(), CALG_HMAC, hmacKey.get());
  const HMAC_INFO info = HmacInfo(hashAlg);
  EXPECT_TRUE(CryptSetHashParam(hash.get(), HP_HMAC_INFO, reinterpret_cast<const BYTE*>(&info), 0));
  EXPECT_TRUE(CryptHashData(hash.get(), data.data(), static_cast<DWORD>(data.size()), 0));
  return HashBytes(hash.get(), HP_HASHVAL, 64);
}

// The same HMAC computed by OpenSSL, the independent reference.
Bytes OpensslHmac(const char* digest, const Bytes& key, const Bytes& data) {
  Bytes out(EVP_MAX_MD_SIZE);
  size_t length = 0;
  EXPECT_NE(EVP_Q_mac(nullptr, "HMAC", nullptr, digest, nullptr, key.data(), key.size(),
                      data.data(), data.size(), out.data(), out.size(), &length),
            nullptr);
  out.resize(length);
  return out;
}

TEST(LengthBoundaryTest, HmacKeysUpToTheBlockAreUsedAsTheyAre) {
  const Bytes data = Sequence(100, 0x40);
  for (const size_t keyLength : {63u, 64u, 65u, 100u}) {
    const Bytes key = Sequence(keyLength, 0x01);
    EXPECT_EQ(Hex(ProviderHmac(CALG_MD5, key, data)), Hex(OpensslHmac("MD5", key, data)))
        << "HMAC-MD5, key of " << keyLength << " bytes";
    EXPECT_EQ(Hex(ProviderHmac(CALG_SHA1, key, data)), Hex(OpensslHmac("SHA1", key, data)))
        << "HMAC-SHA1, key of " << keyLength << " bytes";
  }
}

Bytes Salt(HCRYPTKEY key) {
  DWORD length = 0;
  EXPECT_TRUE(CryptGetKeyParam(key, KP_SALT, nullptr, &length, 0));
  Bytes out(length);
  EXPECT_TRUE(CryptGetKeyParam(key, KP_SALT, out.data(), &length, 0));
  out.resize(length);
  return out;
}

TEST(LengthBoundaryTest, SaltExTakesAtMostTwentyFourBytes) {
  for (const char* provider : {MS_DEF_PROV_A, MS_ENHANCED_PROV_A, MS_STRONG_PROV_A}) {
    ProvHandle prov;
    ASSERT_TRUE(
        CryptAcquireContextA(prov.put(), nullptr, provider, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
    for (ALG_ID algid : {CALG_RC2, CALG_RC4}) {
      KeyHandle key;
      ASSERT_TRUE(CryptGenKey(prov.get(), algid, 0, key.put()));
      Bytes longest = Sequence(24, 0x10);
      CRYPT_DATA_BLOB blob{24, longest.data()};
      EXPECT_TRUE(
          Succeeded(CryptSetKeyParam(key.get(), KP_SALT_EX, reinterpret_cast<BYTE*>(&blob), 0)))
          << provider << " " << algid;
      EXPECT_EQ(Hex(Salt(key.get())), Hex(longest)) << provider << " " << algid;

      Bytes tooLong = Sequence(25, 0x80);
      blob = {25, tooLong.data()};
      SetLastError(0);
      EXPECT_TRUE(FailedWith(
          CryptSetKeyParam(key.get(), KP_SALT_EX, reinterpret_cast<BYTE*>(&blob), 0), NTE_BAD_DATA))
          << provider << " " << algid;
      EXPECT_EQ(Hex(Salt(key.get())), Hex(longest)) << "a refused salt leaves the old one";
    }
  }
}

}  // namespace
}  // namespace quiv::test
