#include "support/CapiCalls.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

#include "support/VectorFile.h"

namespace quiv::test {

namespace {

struct NamedCode {
  DWORD code;
  const char* name;
};

constexpr NamedCode kNames[] = {
    {0, "ERROR_SUCCESS"},
    {ERROR_INVALID_PARAMETER, "ERROR_INVALID_PARAMETER"},
    {ERROR_MORE_DATA, "ERROR_MORE_DATA"},
    {ERROR_NO_MORE_ITEMS, "ERROR_NO_MORE_ITEMS"},
    {ERROR_INTERNAL_ERROR, "ERROR_INTERNAL_ERROR"},
    {static_cast<DWORD>(NTE_BAD_UID), "NTE_BAD_UID"},
    {static_cast<DWORD>(NTE_BAD_HASH), "NTE_BAD_HASH"},
    {static_cast<DWORD>(NTE_BAD_KEY), "NTE_BAD_KEY"},
    {static_cast<DWORD>(NTE_BAD_LEN), "NTE_BAD_LEN"},
    {static_cast<DWORD>(NTE_BAD_DATA), "NTE_BAD_DATA"},
    {static_cast<DWORD>(NTE_BAD_SIGNATURE), "NTE_BAD_SIGNATURE"},
    {static_cast<DWORD>(NTE_BAD_ALGID), "NTE_BAD_ALGID"},
    {static_cast<DWORD>(NTE_BAD_FLAGS), "NTE_BAD_FLAGS"},
    {static_cast<DWORD>(NTE_BAD_TYPE), "NTE_BAD_TYPE"},
    {static_cast<DWORD>(NTE_BAD_KEY_STATE), "NTE_BAD_KEY_STATE"},
    {static_cast<DWORD>(NTE_BAD_HASH_STATE), "NTE_BAD_HASH_STATE"},
    {static_cast<DWORD>(NTE_NO_KEY), "NTE_NO_KEY"},
    {static_cast<DWORD>(NTE_NO_MEMORY), "NTE_NO_MEMORY"},
    {static_cast<DWORD>(NTE_EXISTS), "NTE_EXISTS"},
    {static_cast<DWORD>(NTE_PERM), "NTE_PERM"},
    {static_cast<DWORD>(NTE_NOT_FOUND), "NTE_NOT_FOUND"},
    {static_cast<DWORD>(NTE_BAD_PROV_TYPE), "NTE_BAD_PROV_TYPE"},
    {static_cast<DWORD>(NTE_BAD_PUBLIC_KEY), "NTE_BAD_PUBLIC_KEY"},
    {static_cast<DWORD>(NTE_BAD_KEYSET), "NTE_BAD_KEYSET"},
    {static_cast<DWORD>(NTE_PROV_TYPE_NOT_DEF), "NTE_PROV_TYPE_NOT_DEF"},
    {static_cast<DWORD>(NTE_KEYSET_NOT_DEF), "NTE_KEYSET_NOT_DEF"},
    {static_cast<DWORD>(NTE_KEYSET_ENTRY_BAD), "NTE_KEYSET_ENTRY_BAD"},
    {static_cast<DWORD>(NTE_PROV_TYPE_NO_MATCH), "NTE_PROV_TYPE_NO_MATCH"},
    {static_cast<DWORD>(NTE_FAIL), "NTE_FAIL"},
};

// A value the provider never reports, so a call that forgets SetLastError is visible.
constexpr DWORD kSentinel = 0x5eed5eedu;

}  // namespace

std::string Hex(std::span<const uint8_t> bytes) {
  return VectorFile::EncodeHex(bytes);
}

std::string ErrorText(DWORD code) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08x", code);
  for (const auto& n : kNames) {
    if (n.code == code) return std::string(text) + " (" + n.name + ")";
  }
  return text;
}

::testing::AssertionResult Succeeded(BOOL ok) {
  if (ok) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure()
         << "call failed, GetLastError() = " << ErrorText(GetLastError());
}

::testing::AssertionResult FailedWith(BOOL ok, DWORD expected) {
  const uint32_t codes[] = {expected};
  return FailedWithAnyOf(ok, codes);
}

::testing::AssertionResult FailedWithAnyOf(BOOL ok, std::span<const uint32_t> expected) {
  const DWORD error = GetLastError();
  std::string wanted;
  for (const uint32_t e : expected) wanted += (wanted.empty() ? "" : " or ") + ErrorText(e);
  if (ok) return ::testing::AssertionFailure() << "call succeeded; expected failure " << wanted;
  if (std::find(expected.begin(), expected.end(), error) == expected.end()) {
    return ::testing::AssertionFailure()
           << "call failed with " << ErrorText(error) << "; expected " << wanted;
  }
  return ::testing::AssertionSuccess();
}

::testing::AssertionResult FailedWithAnyCode(BOOL ok) {
  if (ok) return ::testing::AssertionFailure() << "call succeeded; expected a failure";
  return ::testing::AssertionSuccess() << "failed with " << ErrorText(GetLastError());
}

DWORD ProvDword(HCRYPTPROV prov, DWORD param, DWORD flags) {
  DWORD value = kSentinel;
  DWORD length = sizeof value;
  if (!CryptGetProvParam(prov, param, reinterpret_cast<BYTE*>(&value), &length, flags)) {
    ADD_FAILURE() << "CryptGetProvParam(" << param << ") failed: " << ErrorText(GetLastError());
    return kNoValue;
  }
  EXPECT_EQ(length, sizeof value) << "CryptGetProvParam(" << param << ") length";
  return value;
}

Bytes ProvBytes(HCRYPTPROV prov, DWORD param, DWORD bufferSize, DWORD flags) {
  Bytes buffer(bufferSize);
  DWORD length = bufferSize;
  if (!CryptGetProvParam(prov, param, buffer.data(), &length, flags)) {
    ADD_FAILURE() << "CryptGetProvParam(" << param << ") failed: " << ErrorText(GetLastError());
    return {};
  }
  EXPECT_LE(length, bufferSize) << "CryptGetProvParam(" << param << ") length";
  buffer.resize(std::min(length, bufferSize));
  return buffer;
}

DWORD KeyDword(HCRYPTKEY key, DWORD param) {
  DWORD value = kSentinel;
  DWORD length = sizeof value;
  if (!CryptGetKeyParam(key, param, reinterpret_cast<BYTE*>(&value), &length, 0)) {
    ADD_FAILURE() << "CryptGetKeyParam(" << param << ") failed: " << ErrorText(GetLastError());
    return kNoValue;
  }
  EXPECT_EQ(length, sizeof value) << "CryptGetKeyParam(" << param << ") length";
  return value;
}

DWORD KeyParamSize(HCRYPTKEY key, DWORD param) {
  DWORD length = 0;
  if (!CryptGetKeyParam(key, param, nullptr, &length, 0)) {
    ADD_FAILURE() << "CryptGetKeyParam(" << param
                  << ", NULL) failed: " << ErrorText(GetLastError());
    return kNoValue;
  }
  return length;
}

Bytes KeyBytes(HCRYPTKEY key, DWORD param) {
  const DWORD size = KeyParamSize(key, param);
  if (size == kNoValue) return {};
  Bytes buffer(size);
  DWORD length = size;
  if (!CryptGetKeyParam(key, param, buffer.data(), &length, 0)) {
    ADD_FAILURE() << "CryptGetKeyParam(" << param << ") failed: " << ErrorText(GetLastError());
    return {};
  }
  EXPECT_EQ(length, size) << "CryptGetKeyParam(" << param << ") length after the size query";
  buffer.resize(std::min(length, size));
  return buffer;
}

DWORD HashDword(HCRYPTHASH hash, DWORD param) {
  DWORD value = kSentinel;
  DWORD length = sizeof value;
  if (!CryptGetHashParam(hash, param, reinterpret_cast<BYTE*>(&value), &length, 0)) {
    ADD_FAILURE() << "CryptGetHashParam(" << param << ") failed: " << ErrorText(GetLastError());
    return kNoValue;
  }
  EXPECT_EQ(length, sizeof value) << "CryptGetHashParam(" << param << ") length";
  return value;
}

DWORD HashParamSize(HCRYPTHASH hash, DWORD param) {
  DWORD length = 0;
  if (!CryptGetHashParam(hash, param, nullptr, &length, 0)) {
    ADD_FAILURE() << "CryptGetHashParam(" << param
                  << ", NULL) failed: " << ErrorText(GetLastError());
    return kNoValue;
  }
  return length;
}

Bytes HashBytes(HCRYPTHASH hash, DWORD param, DWORD bufferSize) {
  Bytes buffer(bufferSize);
  DWORD length = bufferSize;
  if (!CryptGetHashParam(hash, param, buffer.data(), &length, 0)) {
    ADD_FAILURE() << "CryptGetHashParam(" << param << ") failed: " << ErrorText(GetLastError());
    return {};
  }
  EXPECT_LE(length, bufferSize) << "CryptGetHashParam(" << param << ") length";
  buffer.resize(std::min(length, bufferSize));
  return buffer;
}

HashHandle CreateHash(HCRYPTPROV prov, ALG_ID alg, HCRYPTKEY key) {
  HashHandle hash;
  EXPECT_TRUE(Succeeded(CryptCreateHash(prov, alg, key, 0, hash.put())))
      << "CryptCreateHash(0x" << std::hex << alg << ")";
  return hash;
}

HashHandle HashOf(HCRYPTPROV prov, ALG_ID alg, std::span<const uint8_t> data) {
  HashHandle hash = CreateHash(prov, alg);
  EXPECT_TRUE(Succeeded(CryptHashData(hash.get(), data.data(), static_cast<DWORD>(data.size()), 0)))
      << "CryptHashData";
  return hash;
}

KeyHandle DeriveKey(HCRYPTPROV prov, ALG_ID hashAlg, std::span<const uint8_t> data, ALG_ID keyAlg,
                    DWORD flags) {
  const HashHandle hash = HashOf(prov, hashAlg, data);
  KeyHandle key;
  EXPECT_TRUE(Succeeded(CryptDeriveKey(prov, keyAlg, hash.get(), flags, key.put())))
      << "CryptDeriveKey(0x" << std::hex << keyAlg << ", flags 0x" << flags << ")";
  return key;
}

KeyHandle ImportKey(HCRYPTPROV prov, std::span<const uint8_t> blob, HCRYPTKEY pubKey, DWORD flags) {
  KeyHandle key;
  EXPECT_TRUE(Succeeded(
      CryptImportKey(prov, blob.data(), static_cast<DWORD>(blob.size()), pubKey, flags, key.put())))
      << "CryptImportKey of a " << blob.size() << "-byte blob, flags 0x" << std::hex << flags;
  return key;
}

Bytes ExportKey(HCRYPTKEY key, HCRYPTKEY expKey, DWORD blobType) {
  DWORD size = 0;
  if (!CryptExportKey(key, expKey, blobType, 0, nullptr, &size)) {
    ADD_FAILURE() << "CryptExportKey(type " << blobType
                  << ", NULL) failed: " << ErrorText(GetLastError());
    return {};
  }
  Bytes blob(size);
  DWORD length = size;
  if (!CryptExportKey(key, expKey, blobType, 0, blob.data(), &length)) {
    ADD_FAILURE() << "CryptExportKey(type " << blobType
                  << ") failed: " << ErrorText(GetLastError());
    return {};
  }
  EXPECT_LE(length, size) << "CryptExportKey length after the size query";
  blob.resize(std::min(length, size));
  return blob;
}

DWORD SetDwordKeyParam(HCRYPTKEY key, DWORD param, DWORD value) {
  SetLastError(0);
  if (CryptSetKeyParam(key, param, reinterpret_cast<const BYTE*>(&value), 0)) return 0;
  return GetLastError();
}

HMAC_INFO HmacInfo(ALG_ID hashAlg, Bytes* inner, Bytes* outer) {
  HMAC_INFO info{};
  info.HashAlgid = hashAlg;
  if (inner != nullptr) {
    info.pbInnerString = inner->data();
    info.cbInnerString = static_cast<DWORD>(inner->size());
  }
  if (outer != nullptr) {
    info.pbOuterString = outer->data();
    info.cbOuterString = static_cast<DWORD>(outer->size());
  }
  return info;
}

}  // namespace quiv::test
