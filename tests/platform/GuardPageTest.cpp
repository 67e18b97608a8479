// No C function reads or writes outside the lengths it is given. Every buffer here ends exactly
// where an inaccessible page begins (GuardedBuffer), so one byte too far faults at once, and the
// bytes before it are checked for stray writes. Each function that takes a buffer is run over
// every length that matters (0..127 for data, every size up to the exact one for outputs,
// every prefix of each key blob), for each of the three providers.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/wincrypt.h"
#include "support/CapiCalls.h"
#include "support/CapiHandle.h"
#include "support/GuardedBuffer.h"
#include "support/TempKeyStore.h"

namespace quiv::test {
namespace {

constexpr size_t kLengths = 128;  // data lengths 0..127
constexpr DWORD kRsa1024 = (1024u << 16) | CRYPT_EXPORTABLE;
constexpr uint8_t kUntouched = 0x5A;

Bytes Sequence(size_t n) {
  Bytes out(n);
  for (size_t i = 0; i < n; ++i) out[i] = static_cast<uint8_t>(i * 7 + 1);
  return out;
}

bool AllEqual(std::span<const uint8_t> bytes, uint8_t value) {
  for (uint8_t b : bytes) {
    if (b != value) return false;
  }
  return true;
}

// An output call under the size rule: every buffer shorter than the size it reports fails with
// ERROR_MORE_DATA and stays untouched; the exact size succeeds. `call(pbData, pdwDataLen)`.
using OutputCall = std::function<BOOL(BYTE*, DWORD*)>;
void CheckOutputBounds(const OutputCall& call, const std::string& what) {
  DWORD needed = 0;
  ASSERT_TRUE(Succeeded(call(nullptr, &needed))) << what;
  for (DWORD size = 0; size <= needed; ++size) {
    GuardedBuffer buffer(size);
    buffer.Fill(kUntouched);
    DWORD length = size;
    SetLastError(0);
    const BOOL ok = call(buffer.data(), &length);
    if (size < needed) {
      EXPECT_TRUE(FailedWith(ok, ERROR_MORE_DATA)) << what << " size " << size;
      EXPECT_TRUE(AllEqual(buffer.bytes(), kUntouched)) << what << " size " << size;
    } else {
      EXPECT_TRUE(Succeeded(ok)) << what << " size " << size;
    }
    EXPECT_TRUE(buffer.PrefixIntact()) << what << " size " << size;
  }
}

class GuardPageTest : public ::testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    ASSERT_TRUE(CryptAcquireContextA(m_prov.put(), nullptr, GetParam(), PROV_RSA_FULL,
                                     CRYPT_VERIFYCONTEXT));
    ASSERT_TRUE(CryptGenKey(m_prov.get(), AT_KEYEXCHANGE, kRsa1024, m_exchange.put()));
    PROV_ENUMALGS record{};
    for (DWORD flags = CRYPT_FIRST;; flags = CRYPT_NEXT) {
      DWORD length = sizeof record;
      if (!CryptGetProvParam(m_prov.get(), PP_ENUMALGS, reinterpret_cast<BYTE*>(&record), &length,
                             flags)) {
        break;
      }
      const ALG_ID algid = record.aiAlgid;
      if (GET_ALG_CLASS(algid) == ALG_CLASS_DATA_ENCRYPT) m_ciphers.push_back(algid);
      if (GET_ALG_CLASS(algid) == ALG_CLASS_HASH) m_hashes.push_back(algid);
    }
    ASSERT_FALSE(m_ciphers.empty());
  }

  KeyHandle NewKey(ALG_ID algid) {
    KeyHandle key;
    EXPECT_TRUE(CryptGenKey(m_prov.get(), algid, CRYPT_EXPORTABLE, key.put())) << algid;
    return key;
  }

  // A hash of each kind the provider offers; MAC and HMAC keyed with an RC2 key.
  HashHandle NewHash(ALG_ID algid) {
    HashHandle hash;
    const HCRYPTKEY key = (algid == CALG_MAC || algid == CALG_HMAC) ? MacKey() : 0;
    EXPECT_TRUE(CryptCreateHash(m_prov.get(), algid, key, 0, hash.put())) << algid;
    if (algid == CALG_HMAC) {
      HMAC_INFO info = HmacInfo(CALG_SHA1);
      EXPECT_TRUE(
          CryptSetHashParam(hash.get(), HP_HMAC_INFO, reinterpret_cast<const BYTE*>(&info), 0));
    }
    return hash;
  }

  HCRYPTKEY MacKey() {
    if (m_macKey.get() == 0) m_macKey = NewKey(CALG_RC2);
    return m_macKey.get();
  }

  bool IsBlock(ALG_ID algid) const { return algid != CALG_RC4; }

  ProvHandle m_prov;
  KeyHandle m_exchange;
  KeyHandle m_macKey;
  std::vector<ALG_ID> m_ciphers;
  std::vector<ALG_ID> m_hashes;
};

// A ciphertext shorter than the modulus is refused without reading past its length (Windows
// reads a whole modulus of bytes whatever the length says).
TEST_P(GuardPageTest, RsaDecryptReadsNoMoreThanTheLength) {
  const Bytes message = Sequence(16);
  Bytes cipher(128);
  std::memcpy(cipher.data(), message.data(), message.size());
  DWORD length = static_cast<DWORD>(message.size());
  ASSERT_TRUE(CryptEncrypt(m_exchange.get(), 0, TRUE, 0, cipher.data(), &length, 128));
  ASSERT_EQ(length, 128u);
  for (DWORD flags : {0u, static_cast<DWORD>(CRYPT_OAEP)}) {
    for (size_t n = 0; n < kLengths; ++n) {
      GuardedBuffer buffer(std::span<const uint8_t>(cipher.data(), n));
      DWORD in = static_cast<DWORD>(n);
      SetLastError(0);
      EXPECT_TRUE(FailedWith(CryptDecrypt(m_exchange.get(), 0, TRUE, flags, buffer.data(), &in),
                             NTE_BAD_DATA))
          << "length " << n;
      EXPECT_EQ(in, n) << "the length stays as it was";
    }
  }
  GuardedBuffer whole(cipher);
  DWORD in = 128;
  ASSERT_TRUE(Succeeded(CryptDecrypt(m_exchange.get(), 0, TRUE, 0, whole.data(), &in)));
  EXPECT_EQ(Bytes(whole.data(), whole.data() + in), message);
}

TEST_P(GuardPageTest, RsaEncryptStaysInItsBuffer) {
  for (size_t n = 0; n <= 117; ++n) {
    const Bytes message = Sequence(n);
    GuardedBuffer exact(128);
    std::copy(message.begin(), message.end(), exact.data());
    DWORD length = static_cast<DWORD>(n);
    EXPECT_TRUE(Succeeded(CryptEncrypt(m_exchange.get(), 0, TRUE, 0, exact.data(), &length, 128)))
        << n;
    EXPECT_TRUE(exact.PrefixIntact());
    GuardedBuffer shorter(127);
    shorter.Fill(kUntouched);
    length = static_cast<DWORD>(n);
    SetLastError(0);
    EXPECT_TRUE(FailedWith(CryptEncrypt(m_exchange.get(), 0, TRUE, 0, shorter.data(), &length, 127),
                           ERROR_MORE_DATA));
    EXPECT_TRUE(AllEqual(shorter.bytes(), kUntouched));
  }
}

// Final and non-final calls of every session cipher, each in a buffer of exactly the room the
// call needs, with a hash taking the plaintext on the way.
TEST_P(GuardPageTest, SessionCiphersStayInTheirBuffers) {
  for (ALG_ID algid : m_ciphers) {
    KeyHandle key = NewKey(algid);
    KeyHandle partKey = NewKey(algid);  // non-final calls leave a chaining state behind
    HashHandle hash = NewHash(CALG_MD5);
    for (size_t n = 0; n < kLengths; ++n) {
      const Bytes plain = Sequence(n);
      const size_t room = IsBlock(algid) ? (n / 8 + 1) * 8 : n;
      GuardedBuffer buffer(room);
      std::copy(plain.begin(), plain.end(), buffer.data());
      DWORD length = static_cast<DWORD>(n);
      ASSERT_TRUE(Succeeded(CryptEncrypt(key.get(), hash.get(), TRUE, 0, buffer.data(), &length,
                                         static_cast<DWORD>(room))))
          << algid << " length " << n;
      ASSERT_EQ(length, room);
      if (IsBlock(algid)) {
        // One byte less room than the padded message needs: refused, nothing written.
        GuardedBuffer tight(room - 1);
        tight.Fill(kUntouched);
        DWORD tightLength = static_cast<DWORD>(std::min(n, room - 1));
        SetLastError(0);
        EXPECT_TRUE(FailedWith(CryptEncrypt(key.get(), 0, TRUE, 0, tight.data(), &tightLength,
                                            static_cast<DWORD>(room - 1)),
                               ERROR_MORE_DATA));
        EXPECT_TRUE(AllEqual(tight.bytes(), kUntouched)) << algid << " length " << n;
      }
      GuardedBuffer cipher(buffer.bytes());
      length = static_cast<DWORD>(room);
      ASSERT_TRUE(Succeeded(CryptDecrypt(key.get(), hash.get(), TRUE, 0, cipher.data(), &length)))
          << algid << " length " << n;
      EXPECT_EQ(Bytes(cipher.data(), cipher.data() + length), plain);
      if (IsBlock(algid) && n % 8 != 0) continue;
      GuardedBuffer part(plain);
      length = static_cast<DWORD>(n);
      EXPECT_TRUE(Succeeded(
          CryptEncrypt(partKey.get(), 0, FALSE, 0, part.data(), &length, static_cast<DWORD>(n))));
      EXPECT_TRUE(Succeeded(CryptDecrypt(partKey.get(), 0, FALSE, 0, part.data(), &length)));
      EXPECT_TRUE(buffer.PrefixIntact() && cipher.PrefixIntact() && part.PrefixIntact());
    }
  }
}

// A data length larger than the buffer's capacity is refused before anything is read.
TEST_P(GuardPageTest, EncryptNeverReadsPastTheCapacity) {
  std::vector<KeyHandle> keys;
  for (ALG_ID algid : m_ciphers) keys.push_back(NewKey(algid));
  std::vector<HCRYPTKEY> handles = {m_exchange.get()};
  for (const KeyHandle& key : keys) handles.push_back(key.get());
  for (HCRYPTKEY key : handles) {
    for (DWORD capacity : {0u, 16u}) {
      for (size_t n = capacity + 1; n < kLengths; ++n) {
        GuardedBuffer buffer(capacity);
        buffer.Fill(kUntouched);
        for (BOOL final : {FALSE, TRUE}) {
          DWORD length = static_cast<DWORD>(n);
          SetLastError(0);
          EXPECT_TRUE(
              FailedWithAnyCode(CryptEncrypt(key, 0, final, 0, buffer.data(), &length, capacity)))
              << "capacity " << capacity << " length " << n;
          EXPECT_TRUE(AllEqual(buffer.bytes(), kUntouched));
        }
      }
    }
  }
}

TEST_P(GuardPageTest, HashDataReadsOnlyTheLength) {
  for (ALG_ID algid : m_hashes) {
    if (algid == CALG_SSL3_SHAMD5) continue;  // takes no data
    for (size_t n = 0; n < kLengths; ++n) {
      const Bytes data = Sequence(n);
      GuardedBuffer buffer(data);
      HashHandle guarded = NewHash(algid);
      HashHandle reference = NewHash(algid);
      ASSERT_TRUE(Succeeded(CryptHashData(guarded.get(), buffer.data(), static_cast<DWORD>(n), 0)))
          << algid << " length " << n;
      ASSERT_TRUE(Succeeded(CryptHashData(reference.get(), data.data(), static_cast<DWORD>(n), 0)));
      EXPECT_EQ(HashBytes(guarded.get(), HP_HASHVAL, 64),
                HashBytes(reference.get(), HP_HASHVAL, 64))
          << algid << " length " << n;
    }
  }
}

TEST_P(GuardPageTest, GenRandomWritesOnlyTheLength) {
  for (size_t n = 0; n < kLengths; ++n) {
    GuardedBuffer buffer(n);
    EXPECT_TRUE(Succeeded(CryptGenRandom(m_prov.get(), static_cast<DWORD>(n), buffer.data())));
    EXPECT_TRUE(buffer.PrefixIntact()) << n;
  }
}

// Each blob whole, then every prefix of it: a prefix may import or fail, never read on.
TEST_P(GuardPageTest, ImportKeyReadsOnlyTheBlob) {
  KeyHandle session = NewKey(CALG_RC4);
  std::vector<std::pair<std::string, Bytes>> blobs = {
      {"public", ExportKey(m_exchange.get(), 0, PUBLICKEYBLOB)},
      {"private", ExportKey(m_exchange.get(), 0, PRIVATEKEYBLOB)},
      {"simple", ExportKey(session.get(), m_exchange.get(), SIMPLEBLOB)},
      {"plaintext", ExportKey(session.get(), 0, PLAINTEXTKEYBLOB)},
      {"wrapped private", ExportKey(m_exchange.get(), session.get(), PRIVATEKEYBLOB)}};
  for (const auto& [name, blob] : blobs) {
    ASSERT_FALSE(blob.empty()) << name;
    const HCRYPTKEY unwrap = name == "simple"            ? m_exchange.get()
                             : name == "wrapped private" ? session.get()
                                                         : 0;
    for (size_t n = 1; n <= blob.size(); ++n) {
      GuardedBuffer buffer(std::span<const uint8_t>(blob.data(), n));
      KeyHandle imported;
      const BOOL ok = CryptImportKey(m_prov.get(), buffer.data(), static_cast<DWORD>(n), unwrap,
                                     CRYPT_EXPORTABLE, imported.put());
      if (n == blob.size()) {
        EXPECT_TRUE(Succeeded(ok)) << name;
      }
      EXPECT_TRUE(buffer.PrefixIntact()) << name << " length " << n;
    }
  }
}

TEST_P(GuardPageTest, ExportKeyAndGetParamsStayInTheirBuffers) {
  KeyHandle session = NewKey(CALG_RC4);
  const HCRYPTKEY pair = m_exchange.get();
  const auto exporter = [](HCRYPTKEY key, HCRYPTKEY with, DWORD type) {
    return [=](BYTE* p, DWORD* n) { return CryptExportKey(key, with, type, 0, p, n); };
  };
  CheckOutputBounds(exporter(pair, 0, PUBLICKEYBLOB), "PUBLICKEYBLOB");
  CheckOutputBounds(exporter(pair, 0, PRIVATEKEYBLOB), "PRIVATEKEYBLOB");
  CheckOutputBounds(exporter(pair, session.get(), PRIVATEKEYBLOB), "wrapped PRIVATEKEYBLOB");
  CheckOutputBounds(exporter(session.get(), pair, SIMPLEBLOB), "SIMPLEBLOB");
  CheckOutputBounds(exporter(session.get(), 0, PLAINTEXTKEYBLOB), "PLAINTEXTKEYBLOB");

  // Every parameter each object reports, whatever its number.
  std::vector<HCRYPTKEY> keys = {pair};
  std::vector<KeyHandle> owned;
  for (ALG_ID algid : m_ciphers) {
    owned.push_back(NewKey(algid));
    keys.push_back(owned.back().get());
  }
  for (HCRYPTKEY key : keys) {
    for (DWORD param = 1; param < 64; ++param) {
      DWORD size = 0;
      if (!CryptGetKeyParam(key, param, nullptr, &size, 0)) continue;
      CheckOutputBounds([=](BYTE* p, DWORD* n) { return CryptGetKeyParam(key, param, p, n, 0); },
                        "key param " + std::to_string(param));
    }
  }
  for (ALG_ID algid : m_hashes) {
    HashHandle hash = NewHash(algid);
    if (algid == CALG_SSL3_SHAMD5) {
      const Bytes value = Sequence(36);
      ASSERT_TRUE(CryptSetHashParam(hash.get(), HP_HASHVAL, value.data(), 0));
    }
    for (DWORD param = 1; param < 16; ++param) {
      DWORD size = 0;
      if (!CryptGetHashParam(hash.get(), param, nullptr, &size, 0)) continue;
      const HCRYPTHASH h = hash.get();
      CheckOutputBounds([=](BYTE* p, DWORD* n) { return CryptGetHashParam(h, param, p, n, 0); },
                        "hash " + std::to_string(algid) + " param " + std::to_string(param));
    }
  }
}

TEST_P(GuardPageTest, ProviderParamsStayInTheirBuffers) {
  const TempKeyStore store;
  ProvHandle named;
  ASSERT_TRUE(
      CryptAcquireContextA(named.put(), "guarded", GetParam(), PROV_RSA_FULL, CRYPT_NEWKEYSET));
  for (HCRYPTPROV prov : {m_prov.get(), named.get()}) {
    for (DWORD param = 1; param < 64; ++param) {
      // Enumerations restart at every call; PP_ENUMCONTAINERS reports the largest size a name
      // may need rather than the next name's, see LengthBoundaryTest.
      if (param == PP_ENUMCONTAINERS) continue;
      const DWORD flags = (param == PP_ENUMALGS || param == PP_ENUMALGS_EX) ? CRYPT_FIRST : 0;
      DWORD size = 0;
      if (!CryptGetProvParam(prov, param, nullptr, &size, flags)) continue;
      CheckOutputBounds(
          [=](BYTE* p, DWORD* n) { return CryptGetProvParam(prov, param, p, n, flags); },
          "provider param " + std::to_string(param));
    }
  }
}

TEST_P(GuardPageTest, SignAndVerifyStayInTheirBuffers) {
  KeyHandle signature;
  ASSERT_TRUE(CryptGenKey(m_prov.get(), AT_SIGNATURE, kRsa1024, signature.put()));
  const Bytes data = Sequence(40);
  HashHandle hash = HashOf(m_prov.get(), CALG_SHA1, data);
  const char description[] = "guarded";
  GuardedBuffer text(
      std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(description), sizeof description));
  const auto sign = [&](BYTE* p, DWORD* n) {
    return CryptSignHashA(hash.get(), AT_SIGNATURE, reinterpret_cast<LPCSTR>(text.data()), 0, p, n);
  };
  CheckOutputBounds(sign, "CryptSignHash");
  // The last successful call signed; sign once more into a plain buffer for the check below.
  HashHandle again = HashOf(m_prov.get(), CALG_SHA1, data);
  Bytes sig(128);
  DWORD sigLength = 128;
  ASSERT_TRUE(CryptSignHashA(again.get(), AT_SIGNATURE, description, 0, sig.data(), &sigLength));
  for (size_t n = 0; n <= sig.size(); ++n) {
    GuardedBuffer buffer(std::span<const uint8_t>(sig.data(), n));
    HashHandle check = HashOf(m_prov.get(), CALG_SHA1, data);
    SetLastError(0);
    const BOOL ok = CryptVerifySignatureA(check.get(), buffer.data(), static_cast<DWORD>(n),
                                          signature.get(), description, 0);
    if (n < sig.size()) {
      EXPECT_TRUE(FailedWith(ok, NTE_BAD_SIGNATURE)) << n;
    } else {
      EXPECT_TRUE(Succeeded(ok));
    }
  }
}

// Parameters without a length are read at their fixed size and no further.
TEST_P(GuardPageTest, SetParamsReadOnlyTheParameter) {
  for (ALG_ID algid : m_ciphers) {
    KeyHandle key = NewKey(algid);
    GuardedBuffer iv(Sequence(8));
    EXPECT_TRUE(Succeeded(CryptSetKeyParam(key.get(), KP_IV, iv.data(), 0))) << algid;
    const DWORD values[][2] = {{KP_MODE, CRYPT_MODE_CBC},
                               {KP_MODE_BITS, 8},
                               {KP_PADDING, PKCS5_PADDING},
                               {KP_PERMISSIONS, 0x3F}};
    for (const auto& [param, value] : values) {
      GuardedBuffer word(4);
      std::memcpy(word.data(), &value, 4);
      EXPECT_TRUE(Succeeded(CryptSetKeyParam(key.get(), param, word.data(), 0)))
          << algid << " param " << param;
    }
    if (algid == CALG_RC2) {
      const DWORD bits = 40;
      GuardedBuffer word(std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(&bits), 4));
      EXPECT_TRUE(Succeeded(CryptSetKeyParam(key.get(), KP_EFFECTIVE_KEYLEN, word.data(), 0)));
    }
    if (algid == CALG_RC2 || algid == CALG_RC4) {
      GuardedBuffer salt(Sequence(11));
      EXPECT_TRUE(Succeeded(CryptSetKeyParam(key.get(), KP_SALT, salt.data(), 0))) << algid;
      for (size_t n = 0; n <= 24; ++n) {
        GuardedBuffer bytes(Sequence(n));
        CRYPT_DATA_BLOB blob{static_cast<DWORD>(n), bytes.data()};
        GuardedBuffer holder(
            std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(&blob), sizeof blob));
        EXPECT_TRUE(Succeeded(CryptSetKeyParam(key.get(), KP_SALT_EX, holder.data(), 0))) << n;
      }
    }
  }
  GuardedBuffer permissions(4);
  const DWORD rsaPermissions = 0x3F;
  std::memcpy(permissions.data(), &rsaPermissions, 4);
  EXPECT_TRUE(Succeeded(CryptSetKeyParam(m_exchange.get(), KP_PERMISSIONS, permissions.data(), 0)));

  for (ALG_ID algid : m_hashes) {
    HashHandle hash = NewHash(algid);
    DWORD size = 0;
    ASSERT_TRUE(CryptGetHashParam(hash.get(), HP_HASHSIZE, nullptr, &size, 0));
    const DWORD width = HashDword(hash.get(), HP_HASHSIZE);
    GuardedBuffer value(Sequence(width));
    EXPECT_TRUE(Succeeded(CryptSetHashParam(hash.get(), HP_HASHVAL, value.data(), 0))) << algid;
  }
  for (size_t n = 0; n < kLengths; ++n) {
    HashHandle hmac = NewHash(CALG_HMAC);
    GuardedBuffer inner(Sequence(n));
    GuardedBuffer outer(Sequence(n));
    HMAC_INFO info{CALG_MD5, n ? inner.data() : nullptr, static_cast<DWORD>(n),
                   n ? outer.data() : nullptr, static_cast<DWORD>(n)};
    GuardedBuffer holder(
        std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(&info), sizeof info));
    EXPECT_TRUE(Succeeded(CryptSetHashParam(hmac.get(), HP_HMAC_INFO, holder.data(), 0))) << n;
  }
}

// Names handed in as strings are read up to their terminator and no further.
TEST_P(GuardPageTest, AcquireContextReadsNamesToTheirEnd) {
  const TempKeyStore store;
  const std::string provider = GetParam();
  GuardedBuffer providerName(std::span<const uint8_t>(
      reinterpret_cast<const uint8_t*>(provider.c_str()), provider.size() + 1));
  const char container[] = "guarded name";
  GuardedBuffer containerName(
      std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(container), sizeof container));
  ProvHandle prov;
  EXPECT_TRUE(Succeeded(CryptAcquireContextA(
      prov.put(), reinterpret_cast<LPCSTR>(containerName.data()),
      reinterpret_cast<LPCSTR>(providerName.data()), PROV_RSA_FULL, CRYPT_NEWKEYSET)));
}

TEST_P(GuardPageTest, WideNamesAndDescriptionsAreReadToTheirEnd) {
  const TempKeyStore store;
  const std::string narrow = GetParam();
  std::u16string provider(narrow.begin(), narrow.end());
  const std::u16string container = u"guarded wide";
  const std::u16string description = u"described";
  const auto guard = [](const std::u16string& text) {
    return std::make_unique<GuardedBuffer>(std::span<const uint8_t>(
        reinterpret_cast<const uint8_t*>(text.c_str()), (text.size() + 1) * sizeof(char16_t)));
  };
  const auto providerName = guard(provider);
  const auto containerName = guard(container);
  const auto text = guard(description);
  const auto wide = [](const std::unique_ptr<GuardedBuffer>& b) {
    return reinterpret_cast<LPCWSTR>(b->data());
  };
  ProvHandle prov;
  ASSERT_TRUE(Succeeded(CryptAcquireContextW(prov.put(), wide(containerName), wide(providerName),
                                             PROV_RSA_FULL, CRYPT_NEWKEYSET)));
  KeyHandle signature;
  ASSERT_TRUE(CryptGenKey(prov.get(), AT_SIGNATURE, (512u << 16), signature.put()));
  const Bytes data = Sequence(10);
  HashHandle hash = HashOf(prov.get(), CALG_MD5, data);
  Bytes sig(64);
  DWORD length = 64;
  ASSERT_TRUE(
      Succeeded(CryptSignHashW(hash.get(), AT_SIGNATURE, wide(text), 0, sig.data(), &length)));
  HashHandle check = HashOf(prov.get(), CALG_MD5, data);
  EXPECT_TRUE(Succeeded(
      CryptVerifySignatureW(check.get(), sig.data(), length, signature.get(), wide(text), 0)));
}

INSTANTIATE_TEST_SUITE_P(Providers, GuardPageTest,
                         ::testing::Values(MS_DEF_PROV_A, MS_ENHANCED_PROV_A, MS_STRONG_PROV_A),
                         [](const ::testing::TestParamInfo<const char*>& info) {
                           return std::string(info.index == 0   ? "Base"
                                              : info.index == 1 ? "Enhanced"
                                                                : "Strong");
                         });

}  // namespace
}  // namespace quiv::test
