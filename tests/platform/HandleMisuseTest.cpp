// Every handle-taking C function with every kind of bad handle: zero, garbage, a handle that
// was destroyed or released, a handle of another kind (a key where a hash belongs...), and the
// keys and hashes of a released context. Each must fail with ERROR_INVALID_PARAMETER (never
// crash, never act on another object), and the valid objects must be unaffected afterwards.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/wincrypt.h"
#include "support/CapiCalls.h"
#include "support/CapiHandle.h"

namespace quiv::test {
namespace {

struct Call {
  std::string name;
  std::function<BOOL(uint32_t bad)> run;
  bool optional = false;  // 0 means "none" for this argument and is valid
};

class HandleMisuseTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(CryptAcquireContextA(m_prov.put(), nullptr, MS_ENHANCED_PROV_A, PROV_RSA_FULL,
                                     CRYPT_VERIFYCONTEXT));
    m_key = DeriveKey(m_prov.get(), CALG_MD5, Bytes{'k'}, CALG_RC2, CRYPT_EXPORTABLE);
    ASSERT_TRUE(
        CryptGenKey(m_prov.get(), AT_KEYEXCHANGE, (512u << 16) | CRYPT_EXPORTABLE, m_pair.put()));
    m_hash = HashOf(m_prov.get(), CALG_MD5, Bytes{'h'});
    ASSERT_NE(m_key.get(), 0u);
    ASSERT_NE(m_hash.get(), 0u);

    // Stale handles: destroyed, released, and orphans of a released context.
    HCRYPTPROV gone = 0;
    ASSERT_TRUE(CryptAcquireContextA(&gone, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
    ASSERT_TRUE(CryptGenKey(gone, CALG_RC4, 0, &m_orphanKey));
    ASSERT_TRUE(CryptCreateHash(gone, CALG_SHA1, 0, 0, &m_orphanHash));
    ASSERT_TRUE(CryptReleaseContext(gone, 0));
    m_releasedProv = gone;
    ASSERT_TRUE(CryptGenKey(m_prov.get(), CALG_RC4, 0, &m_destroyedKey));
    ASSERT_TRUE(CryptDestroyKey(m_destroyedKey));
    ASSERT_TRUE(CryptCreateHash(m_prov.get(), CALG_MD5, 0, 0, &m_destroyedHash));
    ASSERT_TRUE(CryptDestroyHash(m_destroyedHash));
  }

  std::vector<std::pair<std::string, uint32_t>> BadContexts() const {
    return {{"zero", 0},
            {"garbage", 0xdeadbeef},
            {"all ones", 0xffffffff},
            {"released context", m_releasedProv},
            {"key handle", m_key.get()},
            {"hash handle", m_hash.get()}};
  }
  std::vector<std::pair<std::string, uint32_t>> BadKeys() const {
    return {{"zero", 0},
            {"garbage", 0x12345678},
            {"all ones", 0xffffffff},
            {"destroyed key", m_destroyedKey},
            {"key of a released context", m_orphanKey},
            {"hash handle", m_hash.get()},
            {"context handle", m_prov.get()}};
  }
  std::vector<std::pair<std::string, uint32_t>> BadHashes() const {
    return {{"zero", 0},
            {"garbage", 0x0badf00d},
            {"all ones", 0xffffffff},
            {"destroyed hash", m_destroyedHash},
            {"hash of a released context", m_orphanHash},
            {"key handle", m_key.get()},
            {"context handle", m_prov.get()}};
  }

  void ExpectAllFail(const std::vector<Call>& calls,
                     const std::vector<std::pair<std::string, uint32_t>>& bad) {
    for (const Call& call : calls) {
      for (const auto& [label, handle] : bad) {
        if (call.optional && handle == 0) continue;
        ::SetLastError(0x5eed5eed);
        const BOOL ok = call.run(handle);
        EXPECT_TRUE(FailedWith(ok, static_cast<DWORD>(ERROR_INVALID_PARAMETER)))
            << call.name << " with " << label;
      }
    }
  }

  // The good objects still work after all the abuse.
  void ExpectGoodObjectsIntact() {
    EXPECT_EQ(ProvDword(m_prov.get(), PP_PROVTYPE), 1u);
    EXPECT_EQ(KeyDword(m_key.get(), KP_ALGID), static_cast<DWORD>(CALG_RC2));
    EXPECT_EQ(KeyDword(m_pair.get(), KP_ALGID), static_cast<DWORD>(CALG_RSA_KEYX));
    EXPECT_EQ(HashDword(m_hash.get(), HP_ALGID), static_cast<DWORD>(CALG_MD5));
  }

  ProvHandle m_prov;
  KeyHandle m_key;
  KeyHandle m_pair;
  HashHandle m_hash;
  HCRYPTPROV m_releasedProv = 0;
  HCRYPTKEY m_orphanKey = 0;
  HCRYPTHASH m_orphanHash = 0;
  HCRYPTKEY m_destroyedKey = 0;
  HCRYPTHASH m_destroyedHash = 0;
  BYTE m_buffer[512] = {};
  DWORD m_length = 0;
  DWORD m_dword = 0;
};

TEST_F(HandleMisuseTest, ContextHandles) {
  const BYTE blob[] = {PUBLICKEYBLOB, 2, 0, 0};
  const std::vector<Call> calls = {
      {"CryptReleaseContext", [&](uint32_t h) { return CryptReleaseContext(h, 0); }},
      {"CryptReleaseContext(flags)", [&](uint32_t h) { return CryptReleaseContext(h, 1); }},
      {"CryptGetProvParam",
       [&](uint32_t h) {
         m_length = sizeof m_buffer;
         return CryptGetProvParam(h, PP_NAME, m_buffer, &m_length, 0);
       }},
      {"CryptGenRandom", [&](uint32_t h) { return CryptGenRandom(h, 8, m_buffer); }},
      {"CryptGetUserKey",
       [&](uint32_t h) {
         HCRYPTKEY k = 0;
         return CryptGetUserKey(h, AT_KEYEXCHANGE, &k);
       }},
      {"CryptGenKey",
       [&](uint32_t h) {
         HCRYPTKEY k = 0;
         return CryptGenKey(h, CALG_RC4, 0, &k);
       }},
      {"CryptDeriveKey",
       [&](uint32_t h) {
         HCRYPTKEY k = 0;
         return CryptDeriveKey(h, CALG_RC4, m_hash.get(), 0, &k);
       }},
      {"CryptImportKey",
       [&](uint32_t h) {
         HCRYPTKEY k = 0;
         return CryptImportKey(h, blob, 1, 0, 0, &k);  // even a 1-byte blob: the handle first
       }},
      {"CryptCreateHash",
       [&](uint32_t h) {
         HCRYPTHASH x = 0;
         return CryptCreateHash(h, CALG_MD5, 0, 0, &x);
       }},
  };
  ExpectAllFail(calls, BadContexts());
  ExpectGoodObjectsIntact();
}

TEST_F(HandleMisuseTest, KeyHandles) {
  const std::vector<Call> calls = {
      {"CryptDestroyKey", [&](uint32_t h) { return CryptDestroyKey(h); }},
      {"CryptDuplicateKey",
       [&](uint32_t h) {
         HCRYPTKEY k = 0;
         return CryptDuplicateKey(h, nullptr, 0, &k);
       }},
      {"CryptGetKeyParam",
       [&](uint32_t h) {
         m_length = sizeof m_buffer;
         return CryptGetKeyParam(h, KP_ALGID, m_buffer, &m_length, 0);
       }},
      {"CryptSetKeyParam",
       [&](uint32_t h) {
         m_dword = CRYPT_MODE_ECB;
         return CryptSetKeyParam(h, KP_MODE, reinterpret_cast<BYTE*>(&m_dword), 0);
       }},
      {"CryptExportKey(hKey)",
       [&](uint32_t h) {
         m_length = sizeof m_buffer;
         return CryptExportKey(h, 0, PUBLICKEYBLOB, 0, m_buffer, &m_length);
       }},
      {"CryptExportKey(hExpKey)",
       [&](uint32_t h) {
         m_length = sizeof m_buffer;
         return CryptExportKey(m_key.get(), h, SIMPLEBLOB, 0, m_buffer, &m_length);
       },
       true},
      {"CryptImportKey(hPubKey)",
       [&](uint32_t h) {
         const Bytes blob = ExportKey(m_key.get(), m_pair.get(), SIMPLEBLOB);
         HCRYPTKEY k = 0;
         return CryptImportKey(m_prov.get(), blob.data(), static_cast<DWORD>(blob.size()), h, 0,
                               &k);
       },
       true},
      {"CryptEncrypt",
       [&](uint32_t h) {
         m_length = 8;
         return CryptEncrypt(h, 0, TRUE, 0, m_buffer, &m_length, sizeof m_buffer);
       }},
      {"CryptEncrypt(size query)",
       [&](uint32_t h) {
         m_length = 8;
         return CryptEncrypt(h, 0, TRUE, 0, nullptr, &m_length, 0);
       }},
      {"CryptDecrypt",
       [&](uint32_t h) {
         m_length = 8;
         return CryptDecrypt(h, 0, TRUE, 0, m_buffer, &m_length);
       }},
      {"CryptCreateHash(hKey)",
       [&](uint32_t h) {
         HCRYPTHASH x = 0;
         return CryptCreateHash(m_prov.get(), CALG_MAC, h, 0, &x);
       },
       true},
      {"CryptHashSessionKey(hKey)",
       [&](uint32_t h) {
         HashHandle fresh = CreateHash(m_prov.get(), CALG_SHA1);
         return CryptHashSessionKey(fresh.get(), h, 0);
       }},
      {"CryptVerifySignatureA(hPubKey)",
       [&](uint32_t h) {
         return CryptVerifySignatureA(m_hash.get(), m_buffer, 64, h, nullptr, 0);
       }},
      {"CryptVerifySignatureW(hPubKey)",
       [&](uint32_t h) {
         return CryptVerifySignatureW(m_hash.get(), m_buffer, 64, h, nullptr, 0);
       }},
  };
  ExpectAllFail(calls, BadKeys());
  ExpectGoodObjectsIntact();
}

TEST_F(HandleMisuseTest, HashHandles) {
  const BYTE data[] = {1, 2, 3};
  const std::vector<Call> calls = {
      {"CryptDestroyHash", [&](uint32_t h) { return CryptDestroyHash(h); }},
      {"CryptDuplicateHash",
       [&](uint32_t h) {
         HCRYPTHASH x = 0;
         return CryptDuplicateHash(h, nullptr, 0, &x);
       }},
      {"CryptHashData", [&](uint32_t h) { return CryptHashData(h, data, sizeof data, 0); }},
      {"CryptHashSessionKey(hHash)",
       [&](uint32_t h) { return CryptHashSessionKey(h, m_key.get(), 0); }},
      {"CryptGetHashParam",
       [&](uint32_t h) {
         m_length = sizeof m_buffer;
         return CryptGetHashParam(h, HP_ALGID, m_buffer, &m_length, 0);
       }},
      {"CryptSetHashParam",
       [&](uint32_t h) { return CryptSetHashParam(h, HP_HASHVAL, m_buffer, 0); }},
      {"CryptSignHashA",
       [&](uint32_t h) {
         m_length = sizeof m_buffer;
         return CryptSignHashA(h, AT_KEYEXCHANGE, nullptr, 0, m_buffer, &m_length);
       }},
      {"CryptSignHashW",
       [&](uint32_t h) {
         m_length = sizeof m_buffer;
         return CryptSignHashW(h, AT_KEYEXCHANGE, nullptr, 0, m_buffer, &m_length);
       }},
      {"CryptVerifySignatureA(hHash)",
       [&](uint32_t h) {
         return CryptVerifySignatureA(h, m_buffer, 64, m_pair.get(), nullptr, 0);
       }},
      {"CryptVerifySignatureW(hHash)",
       [&](uint32_t h) {
         return CryptVerifySignatureW(h, m_buffer, 64, m_pair.get(), nullptr, 0);
       }},
      {"CryptDeriveKey(hBaseData)",
       [&](uint32_t h) {
         HCRYPTKEY k = 0;
         return CryptDeriveKey(m_prov.get(), CALG_RC4, h, 0, &k);
       }},
      {"CryptEncrypt(hHash)",
       [&](uint32_t h) {
         KeyHandle rc4;
         CryptGenKey(m_prov.get(), CALG_RC4, 0, rc4.put());
         m_length = 8;
         return CryptEncrypt(rc4.get(), h, TRUE, 0, m_buffer, &m_length, sizeof m_buffer);
       },
       true},
      {"CryptDecrypt(hHash)",
       [&](uint32_t h) {
         KeyHandle rc4;
         CryptGenKey(m_prov.get(), CALG_RC4, 0, rc4.put());
         m_length = 8;
         return CryptDecrypt(rc4.get(), h, TRUE, 0, m_buffer, &m_length);
       },
       true},
  };
  ExpectAllFail(calls, BadHashes());
  ExpectGoodObjectsIntact();
}

TEST_F(HandleMisuseTest, KeysAndHashesOfAReleasedContextStayDeadAfterTheirSlotsAreReused) {
  // Many new objects reuse freed slots; the orphans' handles must never come back to life.
  std::vector<KeyHandle> keys;
  std::vector<HashHandle> hashes;
  for (int i = 0; i < 50; ++i) {
    keys.emplace_back();
    ASSERT_TRUE(CryptGenKey(m_prov.get(), CALG_RC4, 0, keys.back().put()));
    hashes.push_back(CreateHash(m_prov.get(), CALG_SHA1));
  }
  QUIV_EXPECT_FAILS_WITH(CryptDestroyKey(m_orphanKey), ERROR_INVALID_PARAMETER);
  QUIV_EXPECT_FAILS_WITH(CryptDestroyHash(m_orphanHash), ERROR_INVALID_PARAMETER);
  QUIV_EXPECT_FAILS_WITH(CryptDestroyKey(m_destroyedKey), ERROR_INVALID_PARAMETER);
  QUIV_EXPECT_FAILS_WITH(CryptReleaseContext(m_releasedProv, 0), ERROR_INVALID_PARAMETER);
}

TEST_F(HandleMisuseTest, KeyZeroWhereTheOperationNeedsAKeyIsBadKey) {
  HashHandle hash;
  QUIV_EXPECT_FAILS_WITH(CryptCreateHash(m_prov.get(), CALG_MAC, 0, 0, hash.put()), NTE_BAD_KEY);
  QUIV_EXPECT_FAILS_WITH(CryptCreateHash(m_prov.get(), CALG_HMAC, 0, 0, hash.put()), NTE_BAD_KEY);
}

TEST_F(HandleMisuseTest, KeyOfTheWrongKind) {
  // A key pair cannot key a MAC, be hashed as a session key, or be exported as a SIMPLEBLOB.
  HashHandle mac;
  QUIV_EXPECT_FAILS_WITH(CryptCreateHash(m_prov.get(), CALG_MAC, m_pair.get(), 0, mac.put()),
                         NTE_BAD_KEY);
  HashHandle sha = CreateHash(m_prov.get(), CALG_SHA1);
  QUIV_EXPECT_FAILS_WITH(CryptHashSessionKey(sha.get(), m_pair.get(), 0), NTE_BAD_KEY);
  DWORD length = sizeof m_buffer;
  QUIV_EXPECT_FAILS_WITH(CryptExportKey(m_key.get(), 0, PUBLICKEYBLOB, 0, m_buffer, &length),
                         NTE_BAD_KEY);
  // A session key cannot verify a signature.
  QUIV_EXPECT_FAILS_WITH(CryptVerifySignatureA(m_hash.get(), m_buffer, 64, m_key.get(), nullptr, 0),
                         NTE_BAD_KEY);
}

TEST_F(HandleMisuseTest, NullPointersAreInvalidParameter) {
  HCRYPTKEY key = 0;
  HCRYPTHASH hash = 0;
  DWORD reserved = 0;
  const BYTE blob[8] = {PUBLICKEYBLOB, 2};
  QUIV_EXPECT_FAILS_WITH(CryptGenKey(m_prov.get(), CALG_RC4, 0, nullptr), ERROR_INVALID_PARAMETER);
  QUIV_EXPECT_FAILS_WITH(CryptDeriveKey(m_prov.get(), CALG_RC4, m_hash.get(), 0, nullptr),
                         ERROR_INVALID_PARAMETER);
  QUIV_EXPECT_FAILS_WITH(CryptCreateHash(m_prov.get(), CALG_MD5, 0, 0, nullptr),
                         ERROR_INVALID_PARAMETER);
  QUIV_EXPECT_FAILS_WITH(CryptImportKey(m_prov.get(), nullptr, 8, 0, 0, &key),
                         ERROR_INVALID_PARAMETER);
  QUIV_EXPECT_FAILS_WITH(CryptImportKey(m_prov.get(), blob, 0, 0, 0, &key),
                         ERROR_INVALID_PARAMETER);
  QUIV_EXPECT_FAILS_WITH(CryptImportKey(m_prov.get(), blob, 8, 0, 0, nullptr),
                         ERROR_INVALID_PARAMETER);
  QUIV_EXPECT_FAILS_WITH(CryptDuplicateKey(m_key.get(), nullptr, 0, nullptr),
                         ERROR_INVALID_PARAMETER);
  QUIV_EXPECT_FAILS_WITH(CryptDuplicateKey(m_key.get(), &reserved, 0, &key),
                         ERROR_INVALID_PARAMETER);
  QUIV_EXPECT_FAILS_WITH(CryptDuplicateKey(m_key.get(), nullptr, 1, &key), ERROR_INVALID_PARAMETER);
  QUIV_EXPECT_FAILS_WITH(CryptDuplicateHash(m_hash.get(), nullptr, 0, nullptr),
                         ERROR_INVALID_PARAMETER);
  QUIV_EXPECT_FAILS_WITH(CryptDuplicateHash(m_hash.get(), &reserved, 0, &hash),
                         ERROR_INVALID_PARAMETER);
  QUIV_EXPECT_FAILS_WITH(CryptDuplicateHash(m_hash.get(), nullptr, 1, &hash),
                         ERROR_INVALID_PARAMETER);
  QUIV_EXPECT_FAILS_WITH(CryptSetKeyParam(m_key.get(), KP_EFFECTIVE_KEYLEN, nullptr, 0),
                         ERROR_INVALID_PARAMETER);
  QUIV_EXPECT_FAILS_WITH(CryptSetHashParam(m_hash.get(), HP_HASHVAL, nullptr, 0),
                         ERROR_INVALID_PARAMETER);
  QUIV_EXPECT_FAILS_WITH(CryptGetKeyParam(m_key.get(), KP_ALGID, m_buffer, nullptr, 0),
                         ERROR_INVALID_PARAMETER);
  QUIV_EXPECT_FAILS_WITH(CryptGetHashParam(m_hash.get(), HP_ALGID, m_buffer, nullptr, 0),
                         ERROR_INVALID_PARAMETER);
  QUIV_EXPECT_FAILS_WITH(CryptGetProvParam(m_prov.get(), PP_NAME, m_buffer, nullptr, 0),
                         ERROR_INVALID_PARAMETER);
  QUIV_EXPECT_FAILS_WITH(CryptExportKey(m_key.get(), 0, PLAINTEXTKEYBLOB, 0, m_buffer, nullptr),
                         ERROR_INVALID_PARAMETER);
  QUIV_EXPECT_FAILS_WITH(CryptEncrypt(m_key.get(), 0, TRUE, 0, m_buffer, nullptr, 8),
                         ERROR_INVALID_PARAMETER);
  DWORD length = 8;
  QUIV_EXPECT_FAILS_WITH(CryptDecrypt(m_key.get(), 0, TRUE, 0, nullptr, &length),
                         ERROR_INVALID_PARAMETER);
  QUIV_EXPECT_FAILS_WITH(CryptDecrypt(m_key.get(), 0, TRUE, 0, m_buffer, nullptr),
                         ERROR_INVALID_PARAMETER);
  QUIV_EXPECT_FAILS_WITH(CryptHashData(m_hash.get(), nullptr, 4, 0), ERROR_INVALID_PARAMETER);
  ExpectGoodObjectsIntact();
}

TEST_F(HandleMisuseTest, DuplicatesAreNewHandlesOwnedByTheSameContext) {
  HCRYPTPROV prov = 0;
  ASSERT_TRUE(CryptAcquireContextA(&prov, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
  HCRYPTKEY key = 0;
  HCRYPTHASH hash = 0;
  ASSERT_TRUE(CryptGenKey(prov, CALG_RC4, 0, &key));
  ASSERT_TRUE(CryptCreateHash(prov, CALG_MD5, 0, 0, &hash));
  HCRYPTKEY keyCopy = 0;
  HCRYPTHASH hashCopy = 0;
  QUIV_ASSERT_SUCCEEDS(CryptDuplicateKey(key, nullptr, 0, &keyCopy));
  QUIV_ASSERT_SUCCEEDS(CryptDuplicateHash(hash, nullptr, 0, &hashCopy));
  EXPECT_NE(keyCopy, key);
  EXPECT_NE(hashCopy, hash);
  QUIV_EXPECT_SUCCEEDS(CryptDestroyKey(key));
  EXPECT_EQ(KeyDword(keyCopy, KP_ALGID), static_cast<DWORD>(CALG_RC4));  // the copy lives on
  QUIV_ASSERT_SUCCEEDS(CryptReleaseContext(prov, 0));
  QUIV_EXPECT_FAILS_WITH(CryptDestroyKey(keyCopy), ERROR_INVALID_PARAMETER);
  QUIV_EXPECT_FAILS_WITH(CryptDestroyHash(hashCopy), ERROR_INVALID_PARAMETER);
  QUIV_EXPECT_FAILS_WITH(CryptDestroyHash(hash), ERROR_INVALID_PARAMETER);
}

}  // namespace
}  // namespace quiv::test
