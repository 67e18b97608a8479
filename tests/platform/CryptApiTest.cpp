// The C entry points as an application drives them: CryptAcquireContext resolution and flag
// rules, key containers through contexts, CryptGetUserKey, CryptReleaseContext, CryptGenRandom,
// the per-thread last error, GetVersionExA, and several threads at once.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "platform/ContainerStore.h"
#include "platform/wincrypt.h"
#include "support/CapiCalls.h"
#include "support/CapiHandle.h"
#include "support/TempKeyStore.h"

namespace quiv::test {
namespace {

constexpr DWORD kSmallRsa = 512u << 16;  // fast key pairs for tests that only need a pair

std::string ProvString(HCRYPTPROV prov, DWORD param) {
  DWORD length = 0;
  if (!CryptGetProvParam(prov, param, nullptr, &length, 0)) return "<size query failed>";
  std::string value(length, '\0');
  if (!CryptGetProvParam(prov, param, reinterpret_cast<BYTE*>(value.data()), &length, 0)) {
    return "<read failed>";
  }
  value.resize(length);
  EXPECT_FALSE(value.empty());
  if (!value.empty()) {
    EXPECT_EQ(value.back(), '\0');
    value.pop_back();
  }
  return value;
}

class CryptApiTest : public ::testing::Test {
 protected:
  TempKeyStore m_store;
};

// ---- provider resolution (checked in Windows' order) ----

TEST_F(CryptApiTest, ProviderTypeZeroOrAbove999IsCheckedFirst) {
  HCRYPTPROV prov = 0;
  QUIV_EXPECT_FAILS_WITH(CryptAcquireContextA(&prov, nullptr, nullptr, 0, CRYPT_VERIFYCONTEXT),
                         NTE_BAD_PROV_TYPE);
  QUIV_EXPECT_FAILS_WITH(CryptAcquireContextA(&prov, nullptr, nullptr, 1000, CRYPT_VERIFYCONTEXT),
                         NTE_BAD_PROV_TYPE);
  // Even before the NULL handle pointer and bad flags.
  QUIV_EXPECT_FAILS_WITH(CryptAcquireContextA(nullptr, nullptr, nullptr, 0, 0xffffffffu),
                         NTE_BAD_PROV_TYPE);
  QUIV_EXPECT_FAILS_WITH(CryptAcquireContextW(nullptr, nullptr, nullptr, 1000, 0),
                         NTE_BAD_PROV_TYPE);
}

TEST_F(CryptApiTest, NullHandlePointerIsInvalidParameter) {
  QUIV_EXPECT_FAILS_WITH(
      CryptAcquireContextA(nullptr, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT),
      ERROR_INVALID_PARAMETER);
  QUIV_EXPECT_FAILS_WITH(
      CryptAcquireContextW(nullptr, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT),
      ERROR_INVALID_PARAMETER);
}

TEST_F(CryptApiTest, TypeWithoutDefaultProvider) {
  HCRYPTPROV prov = 0;
  QUIV_EXPECT_FAILS_WITH(CryptAcquireContextA(&prov, nullptr, nullptr, 999, CRYPT_VERIFYCONTEXT),
                         NTE_PROV_TYPE_NOT_DEF);
  QUIV_EXPECT_FAILS_WITH(CryptAcquireContextA(&prov, nullptr, "", 12, CRYPT_VERIFYCONTEXT),
                         NTE_PROV_TYPE_NOT_DEF);
}

TEST_F(CryptApiTest, UnknownProviderName) {
  HCRYPTPROV prov = 0;
  QUIV_EXPECT_FAILS_WITH(
      CryptAcquireContextA(&prov, nullptr, "No Such Provider", PROV_RSA_FULL, CRYPT_VERIFYCONTEXT),
      NTE_KEYSET_NOT_DEF);
  QUIV_EXPECT_FAILS_WITH(
      CryptAcquireContextW(&prov, nullptr, u"No Such Provider", PROV_RSA_FULL, CRYPT_VERIFYCONTEXT),
      NTE_KEYSET_NOT_DEF);
}

TEST_F(CryptApiTest, ProviderOfAnotherType) {
  HCRYPTPROV prov = 0;
  QUIV_EXPECT_FAILS_WITH(
      CryptAcquireContextA(&prov, nullptr, MS_ENHANCED_PROV_A, 24, CRYPT_VERIFYCONTEXT),
      NTE_PROV_TYPE_NO_MATCH);
}

TEST_F(CryptApiTest, EmptyOrNullProviderNameGivesStrong) {
  for (const char* name : {static_cast<const char*>(nullptr), ""}) {
    ProvHandle prov;
    QUIV_ASSERT_SUCCEEDS(
        CryptAcquireContextA(prov.put(), nullptr, name, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
    EXPECT_EQ(ProvString(prov.get(), PP_NAME), MS_STRONG_PROV_A);
  }
  ProvHandle wide;
  QUIV_ASSERT_SUCCEEDS(
      CryptAcquireContextW(wide.put(), u"", u"", PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
  EXPECT_EQ(ProvString(wide.get(), PP_NAME), MS_STRONG_PROV_A);
}

TEST_F(CryptApiTest, EachProviderByNameAndForm) {
  for (const std::string name : {MS_DEF_PROV_A, MS_ENHANCED_PROV_A, MS_STRONG_PROV_A}) {
    ProvHandle narrow;
    QUIV_ASSERT_SUCCEEDS(CryptAcquireContextA(narrow.put(), nullptr, name.c_str(), PROV_RSA_FULL,
                                              CRYPT_VERIFYCONTEXT));
    EXPECT_EQ(ProvString(narrow.get(), PP_NAME), name);
    const std::u16string wideName(name.begin(), name.end());
    ProvHandle wide;
    QUIV_ASSERT_SUCCEEDS(CryptAcquireContextW(wide.put(), nullptr, wideName.c_str(), PROV_RSA_FULL,
                                              CRYPT_VERIFYCONTEXT));
    EXPECT_EQ(ProvString(wide.get(), PP_NAME), name);
  }
}

TEST_F(CryptApiTest, ProviderNameIsCaseInsensitive) {
  ProvHandle prov;
  QUIV_ASSERT_SUCCEEDS(CryptAcquireContextA(prov.put(), nullptr,
                                            "MICROSOFT ENHANCED CRYPTOGRAPHIC PROVIDER V1.0",
                                            PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
  EXPECT_EQ(ProvString(prov.get(), PP_NAME), MS_ENHANCED_PROV_A);
}

// ---- flags ----

TEST_F(CryptApiTest, VerifyContextWithANameIsBadFlags) {
  HCRYPTPROV prov = 0;
  QUIV_EXPECT_FAILS_WITH(
      CryptAcquireContextA(&prov, "named", MS_DEF_PROV_A, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT),
      NTE_BAD_FLAGS);
  QUIV_EXPECT_FAILS_WITH(
      CryptAcquireContextW(&prov, u"named", nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT),
      NTE_BAD_FLAGS);
}

TEST_F(CryptApiTest, InvalidFlagCombinationsAreBadFlags) {
  const DWORD combos[] = {
      CRYPT_NEWKEYSET | CRYPT_DELETEKEYSET,
      CRYPT_VERIFYCONTEXT | CRYPT_DELETEKEYSET,
      CRYPT_VERIFYCONTEXT | CRYPT_NEWKEYSET | CRYPT_DELETEKEYSET,
      0x10000000u,  // part of CRYPT_VERIFYCONTEXT alone
      0x80000000u,
      0x00000001u,  // not an acquisition flag
      0x00000100u,
  };
  for (const DWORD flags : combos) {
    HCRYPTPROV prov = 0;
    QUIV_EXPECT_FAILS_WITH(CryptAcquireContextA(&prov, "c", nullptr, PROV_RSA_FULL, flags),
                           NTE_BAD_FLAGS)
        << std::hex << flags;
  }
}

TEST_F(CryptApiTest, VerifyContextWithNewKeysetIsAVerifyContext) {
  ProvHandle prov;
  QUIV_ASSERT_SUCCEEDS(CryptAcquireContextA(prov.put(), nullptr, nullptr, PROV_RSA_FULL,
                                            CRYPT_VERIFYCONTEXT | CRYPT_NEWKEYSET));
  KeyHandle key;
  QUIV_EXPECT_FAILS_WITH(CryptGetUserKey(prov.get(), AT_KEYEXCHANGE, key.put()), NTE_NO_KEY);
  // Nothing was created in the store.
  EXPECT_FALSE(std::filesystem::exists(m_store.folder() / "user") &&
               !std::filesystem::is_empty(m_store.folder() / "user"));
}

TEST_F(CryptApiTest, SilentFlagIsAccepted) {
  ProvHandle prov;
  QUIV_EXPECT_SUCCEEDS(CryptAcquireContextA(prov.put(), nullptr, nullptr, PROV_RSA_FULL,
                                            CRYPT_VERIFYCONTEXT | CRYPT_SILENT));
  ProvHandle created;
  QUIV_EXPECT_SUCCEEDS(CryptAcquireContextA(created.put(), "quiet", nullptr, PROV_RSA_FULL,
                                            CRYPT_NEWKEYSET | CRYPT_SILENT));
}

// ---- containers ----

TEST_F(CryptApiTest, OpenMissingContainerIsBadKeyset) {
  HCRYPTPROV prov = 0;
  QUIV_EXPECT_FAILS_WITH(CryptAcquireContextA(&prov, "missing", nullptr, PROV_RSA_FULL, 0),
                         NTE_BAD_KEYSET);
  QUIV_EXPECT_FAILS_WITH(
      CryptAcquireContextA(&prov, "missing", nullptr, PROV_RSA_FULL, CRYPT_DELETEKEYSET),
      NTE_BAD_KEYSET);
}

TEST_F(CryptApiTest, CreateOpenDeleteLifecycle) {
  {
    ProvHandle created;
    QUIV_ASSERT_SUCCEEDS(
        CryptAcquireContextA(created.put(), "Life", nullptr, PROV_RSA_FULL, CRYPT_NEWKEYSET));
    EXPECT_EQ(ProvString(created.get(), PP_CONTAINER), "Life");
    HCRYPTPROV again = 0;
    QUIV_EXPECT_FAILS_WITH(
        CryptAcquireContextA(&again, "life", nullptr, PROV_RSA_FULL, CRYPT_NEWKEYSET), NTE_EXISTS);
  }
  {
    ProvHandle opened;
    QUIV_ASSERT_SUCCEEDS(CryptAcquireContextA(opened.put(), "LIFE", nullptr, PROV_RSA_FULL, 0));
    // The name as created, whatever spelling opened it.
    EXPECT_EQ(ProvString(opened.get(), PP_CONTAINER), "Life");
  }
  HCRYPTPROV deleted = 0x5eed;
  QUIV_ASSERT_SUCCEEDS(
      CryptAcquireContextA(&deleted, "life", nullptr, PROV_RSA_FULL, CRYPT_DELETEKEYSET));
  EXPECT_EQ(deleted, 0u);
  QUIV_EXPECT_FAILS_WITH(CryptReleaseContext(deleted, 0), ERROR_INVALID_PARAMETER);
  HCRYPTPROV prov = 0;
  QUIV_EXPECT_FAILS_WITH(CryptAcquireContextA(&prov, "Life", nullptr, PROV_RSA_FULL, 0),
                         NTE_BAD_KEYSET);
}

TEST_F(CryptApiTest, WideContainerNameIsTheSameContainer) {
  ProvHandle created;
  QUIV_ASSERT_SUCCEEDS(
      CryptAcquireContextW(created.put(), u"Caf\u00e9", nullptr, PROV_RSA_FULL, CRYPT_NEWKEYSET));
  ProvHandle narrow;
  QUIV_ASSERT_SUCCEEDS(
      CryptAcquireContextA(narrow.put(), "Caf\xc3\xa9", nullptr, PROV_RSA_FULL, 0));
  EXPECT_EQ(ProvString(narrow.get(), PP_CONTAINER), "Caf\xc3\xa9");
}

TEST_F(CryptApiTest, OverlongContainerNameIsBadKeyset) {
  const std::string name(261, 'n');
  HCRYPTPROV prov = 0;
  QUIV_EXPECT_FAILS_WITH(
      CryptAcquireContextA(&prov, name.c_str(), nullptr, PROV_RSA_FULL, CRYPT_NEWKEYSET),
      NTE_BAD_KEYSET);
  ProvHandle longest;
  QUIV_EXPECT_SUCCEEDS(CryptAcquireContextA(longest.put(), name.substr(1).c_str(), nullptr,
                                            PROV_RSA_FULL, CRYPT_NEWKEYSET));
}

TEST_F(CryptApiTest, DefaultContainerIsNamedAfterTheUser) {
  const std::string user = platform::ContainerStore::DefaultContainerName();
  HCRYPTPROV prov = 0;
  QUIV_EXPECT_FAILS_WITH(CryptAcquireContextA(&prov, nullptr, nullptr, PROV_RSA_FULL, 0),
                         NTE_BAD_KEYSET);
  {
    ProvHandle created;
    QUIV_ASSERT_SUCCEEDS(
        CryptAcquireContextA(created.put(), "", nullptr, PROV_RSA_FULL, CRYPT_NEWKEYSET));
    EXPECT_EQ(ProvString(created.get(), PP_CONTAINER), user);
  }
  ProvHandle byName;
  QUIV_EXPECT_SUCCEEDS(CryptAcquireContextA(byName.put(), user.c_str(), nullptr, PROV_RSA_FULL, 0));
  ProvHandle wide;
  QUIV_EXPECT_SUCCEEDS(CryptAcquireContextW(wide.put(), nullptr, nullptr, PROV_RSA_FULL, 0));
  HCRYPTPROV deleted = 0;
  QUIV_EXPECT_SUCCEEDS(
      CryptAcquireContextA(&deleted, nullptr, nullptr, PROV_RSA_FULL, CRYPT_DELETEKEYSET));
  QUIV_EXPECT_FAILS_WITH(CryptAcquireContextA(&prov, "", nullptr, PROV_RSA_FULL, 0),
                         NTE_BAD_KEYSET);
}

TEST_F(CryptApiTest, MachineKeysetIsASeparateStore) {
  {
    ProvHandle machine;
    QUIV_ASSERT_SUCCEEDS(CryptAcquireContextA(machine.put(), "shared", nullptr, PROV_RSA_FULL,
                                              CRYPT_NEWKEYSET | CRYPT_MACHINE_KEYSET));
    EXPECT_EQ(ProvDword(machine.get(), PP_KEYSET_TYPE), static_cast<DWORD>(CRYPT_MACHINE_KEYSET));
  }
  HCRYPTPROV prov = 0;
  QUIV_EXPECT_FAILS_WITH(CryptAcquireContextA(&prov, "shared", nullptr, PROV_RSA_FULL, 0),
                         NTE_BAD_KEYSET);
  {
    ProvHandle reopened;
    QUIV_ASSERT_SUCCEEDS(CryptAcquireContextA(reopened.put(), "shared", nullptr, PROV_RSA_FULL,
                                              CRYPT_MACHINE_KEYSET));
    ProvHandle user;
    QUIV_ASSERT_SUCCEEDS(
        CryptAcquireContextA(user.put(), "shared", nullptr, PROV_RSA_FULL, CRYPT_NEWKEYSET));
    EXPECT_EQ(ProvDword(user.get(), PP_KEYSET_TYPE), 0u);
  }
  QUIV_ASSERT_SUCCEEDS(CryptAcquireContextA(&prov, "shared", nullptr, PROV_RSA_FULL,
                                            CRYPT_DELETEKEYSET | CRYPT_MACHINE_KEYSET));
  QUIV_EXPECT_FAILS_WITH(
      CryptAcquireContextA(&prov, "shared", nullptr, PROV_RSA_FULL, CRYPT_MACHINE_KEYSET),
      NTE_BAD_KEYSET);
  ProvHandle userStill;
  QUIV_EXPECT_SUCCEEDS(CryptAcquireContextA(userStill.put(), "shared", nullptr, PROV_RSA_FULL, 0));
}

TEST_F(CryptApiTest, StoreLocationFollowsTheEnvironment) {
  ProvHandle created;
  QUIV_ASSERT_SUCCEEDS(
      CryptAcquireContextA(created.put(), "here", nullptr, PROV_RSA_FULL, CRYPT_NEWKEYSET));
  EXPECT_FALSE(std::filesystem::is_empty(m_store.folder() / "user"));
}

// ---- key pairs in containers ----

TEST_F(CryptApiTest, NewContainerHasNoKeys) {
  ProvHandle prov;
  QUIV_ASSERT_SUCCEEDS(
      CryptAcquireContextA(prov.put(), "empty", nullptr, PROV_RSA_FULL, CRYPT_NEWKEYSET));
  for (const DWORD keySpec : {DWORD{AT_KEYEXCHANGE}, DWORD{AT_SIGNATURE}}) {
    KeyHandle key;
    QUIV_EXPECT_FAILS_WITH(CryptGetUserKey(prov.get(), keySpec, key.put()), NTE_NO_KEY);
  }
}

TEST_F(CryptApiTest, BadKeySpecIsBadKey) {
  ProvHandle prov;
  QUIV_ASSERT_SUCCEEDS(
      CryptAcquireContextA(prov.put(), "keyslots", nullptr, PROV_RSA_FULL, CRYPT_NEWKEYSET));
  for (const DWORD keySpec : {0u, 3u, 0xffffffffu}) {
    KeyHandle key;
    QUIV_EXPECT_FAILS_WITH(CryptGetUserKey(prov.get(), keySpec, key.put()), NTE_BAD_KEY) << keySpec;
  }
  QUIV_EXPECT_FAILS_WITH(CryptGetUserKey(prov.get(), AT_SIGNATURE, nullptr),
                         ERROR_INVALID_PARAMETER);
}

TEST_F(CryptApiTest, GeneratedPairIsWrittenAtOnceAndSurvivesRelease) {
  ProvHandle first;
  QUIV_ASSERT_SUCCEEDS(
      CryptAcquireContextA(first.put(), "pairs", nullptr, PROV_RSA_FULL, CRYPT_NEWKEYSET));
  KeyHandle generated;
  QUIV_ASSERT_SUCCEEDS(
      CryptGenKey(first.get(), AT_SIGNATURE, kSmallRsa | CRYPT_EXPORTABLE, generated.put()));
  const Bytes publicBlob = ExportKey(generated.get(), 0, PUBLICKEYBLOB);
  ASSERT_FALSE(publicBlob.empty());
  {
    // A second context, opened while the first is still open, sees the pair.
    ProvHandle second;
    QUIV_ASSERT_SUCCEEDS(CryptAcquireContextA(second.put(), "pairs", nullptr, PROV_RSA_FULL, 0));
    KeyHandle user;
    QUIV_ASSERT_SUCCEEDS(CryptGetUserKey(second.get(), AT_SIGNATURE, user.put()));
    EXPECT_EQ(ExportKey(user.get(), 0, PUBLICKEYBLOB), publicBlob);
    KeyHandle other;
    QUIV_EXPECT_FAILS_WITH(CryptGetUserKey(second.get(), AT_KEYEXCHANGE, other.put()), NTE_NO_KEY);
  }
  generated.reset();
  first.reset();
  ProvHandle reopened;
  QUIV_ASSERT_SUCCEEDS(CryptAcquireContextA(reopened.put(), "pairs", nullptr, PROV_RSA_FULL, 0));
  KeyHandle user;
  QUIV_ASSERT_SUCCEEDS(CryptGetUserKey(reopened.get(), AT_SIGNATURE, user.put()));
  EXPECT_EQ(ExportKey(user.get(), 0, PUBLICKEYBLOB), publicBlob);
  EXPECT_EQ(KeyDword(user.get(), KP_PERMISSIONS) & CRYPT_EXPORT, static_cast<DWORD>(CRYPT_EXPORT));
}

TEST_F(CryptApiTest, UserKeyGivesANewHandleEachCallAndDestroyKeepsThePair) {
  ProvHandle prov;
  QUIV_ASSERT_SUCCEEDS(
      CryptAcquireContextA(prov.put(), "handles", nullptr, PROV_RSA_FULL, CRYPT_NEWKEYSET));
  KeyHandle generated;
  QUIV_ASSERT_SUCCEEDS(CryptGenKey(prov.get(), CALG_RSA_KEYX, kSmallRsa, generated.put()));
  HCRYPTKEY a = 0;
  HCRYPTKEY b = 0;
  QUIV_ASSERT_SUCCEEDS(CryptGetUserKey(prov.get(), AT_KEYEXCHANGE, &a));
  QUIV_ASSERT_SUCCEEDS(CryptGetUserKey(prov.get(), AT_KEYEXCHANGE, &b));
  EXPECT_NE(a, b);
  EXPECT_NE(a, generated.get());
  QUIV_EXPECT_SUCCEEDS(CryptDestroyKey(a));
  QUIV_EXPECT_FAILS_WITH(CryptDestroyKey(a), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(KeyDword(b, KP_ALGID), static_cast<DWORD>(CALG_RSA_KEYX));  // b unaffected
  QUIV_EXPECT_SUCCEEDS(CryptDestroyKey(b));
  KeyHandle again;
  QUIV_EXPECT_SUCCEEDS(CryptGetUserKey(prov.get(), AT_KEYEXCHANGE, again.put()));
}

TEST_F(CryptApiTest, ImportedPrivateBlobFillsItsSlotAndPublicBlobDoesNot) {
  Bytes privateBlob;
  Bytes publicBlob;
  {
    ProvHandle verify;
    QUIV_ASSERT_SUCCEEDS(
        CryptAcquireContextA(verify.put(), nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
    KeyHandle pair;
    QUIV_ASSERT_SUCCEEDS(
        CryptGenKey(verify.get(), AT_SIGNATURE, kSmallRsa | CRYPT_EXPORTABLE, pair.put()));
    privateBlob = ExportKey(pair.get(), 0, PRIVATEKEYBLOB);
    publicBlob = ExportKey(pair.get(), 0, PUBLICKEYBLOB);
  }
  ASSERT_FALSE(privateBlob.empty());
  {
    ProvHandle prov;
    QUIV_ASSERT_SUCCEEDS(
        CryptAcquireContextA(prov.put(), "imported", nullptr, PROV_RSA_FULL, CRYPT_NEWKEYSET));
    KeyHandle pub = ImportKey(prov.get(), publicBlob, 0, 0);
    KeyHandle none;
    QUIV_EXPECT_FAILS_WITH(CryptGetUserKey(prov.get(), AT_SIGNATURE, none.put()), NTE_NO_KEY);
    KeyHandle priv = ImportKey(prov.get(), privateBlob, 0, 0);
  }
  ProvHandle reopened;
  QUIV_ASSERT_SUCCEEDS(CryptAcquireContextA(reopened.put(), "imported", nullptr, PROV_RSA_FULL, 0));
  KeyHandle user;
  QUIV_ASSERT_SUCCEEDS(CryptGetUserKey(reopened.get(), AT_SIGNATURE, user.put()));
  EXPECT_EQ(ExportKey(user.get(), 0, PUBLICKEYBLOB), publicBlob);
  KeyHandle exchange;
  QUIV_EXPECT_FAILS_WITH(CryptGetUserKey(reopened.get(), AT_KEYEXCHANGE, exchange.put()),
                         NTE_NO_KEY);
}

TEST_F(CryptApiTest, VerifyContextPairsAreEphemeral) {
  ProvHandle prov;
  QUIV_ASSERT_SUCCEEDS(
      CryptAcquireContextA(prov.put(), nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
  KeyHandle pair;
  QUIV_ASSERT_SUCCEEDS(CryptGenKey(prov.get(), AT_KEYEXCHANGE, kSmallRsa, pair.put()));
  // Usable for the life of the context...
  KeyHandle user;
  QUIV_EXPECT_SUCCEEDS(CryptGetUserKey(prov.get(), AT_KEYEXCHANGE, user.put()));
  HashHandle hash = HashOf(prov.get(), CALG_SHA1, Bytes{1, 2, 3});
  DWORD length = 0;
  QUIV_EXPECT_SUCCEEDS(CryptSignHashA(hash.get(), AT_KEYEXCHANGE, nullptr, 0, nullptr, &length));
  EXPECT_EQ(length, 64u);
  // ...and never written anywhere.
  const std::filesystem::path folder = m_store.folder();
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    EXPECT_FALSE(entry.is_regular_file()) << entry.path();
  }
}

TEST_F(CryptApiTest, SignWithEmptySlotIsNoKey) {
  ProvHandle prov;
  QUIV_ASSERT_SUCCEEDS(
      CryptAcquireContextA(prov.put(), nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
  HashHandle hash = HashOf(prov.get(), CALG_MD5, Bytes{1});
  DWORD length = 0;
  QUIV_EXPECT_FAILS_WITH(CryptSignHashW(hash.get(), AT_SIGNATURE, nullptr, 0, nullptr, &length),
                         NTE_NO_KEY);
  QUIV_EXPECT_FAILS_WITH(CryptSignHashW(hash.get(), AT_SIGNATURE, nullptr, 0x100, nullptr, &length),
                         NTE_BAD_FLAGS);
  QUIV_EXPECT_FAILS_WITH(CryptSignHashW(hash.get(), AT_SIGNATURE, nullptr, 0, nullptr, nullptr),
                         ERROR_INVALID_PARAMETER);
}

TEST_F(CryptApiTest, SignAndVerifyThroughBothForms) {
  ProvHandle prov;
  QUIV_ASSERT_SUCCEEDS(
      CryptAcquireContextA(prov.put(), nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
  KeyHandle pair;
  QUIV_ASSERT_SUCCEEDS(CryptGenKey(prov.get(), AT_SIGNATURE, kSmallRsa, pair.put()));
  const Bytes data{'a', 'b', 'c'};
  Bytes signature(64);
  {
    HashHandle hash = HashOf(prov.get(), CALG_SHA1, data);
    DWORD length = static_cast<DWORD>(signature.size());
    QUIV_ASSERT_SUCCEEDS(
        CryptSignHashA(hash.get(), AT_SIGNATURE, nullptr, 0, signature.data(), &length));
    EXPECT_EQ(length, 64u);
  }
  HashHandle wide = HashOf(prov.get(), CALG_SHA1, data);
  QUIV_EXPECT_SUCCEEDS(
      CryptVerifySignatureW(wide.get(), signature.data(), 64, pair.get(), nullptr, 0));
  HashHandle narrow = HashOf(prov.get(), CALG_SHA1, data);
  QUIV_EXPECT_SUCCEEDS(
      CryptVerifySignatureA(narrow.get(), signature.data(), 64, pair.get(), nullptr, 0));
  HashHandle other = HashOf(prov.get(), CALG_SHA1, Bytes{'x'});
  QUIV_EXPECT_FAILS_WITH(
      CryptVerifySignatureA(other.get(), signature.data(), 64, pair.get(), nullptr, 0),
      NTE_BAD_SIGNATURE);
}

TEST_F(CryptApiTest, NarrowDescriptionIsHashedAsItsWideForm) {
  ProvHandle prov;
  QUIV_ASSERT_SUCCEEDS(
      CryptAcquireContextA(prov.put(), nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
  KeyHandle pair;
  QUIV_ASSERT_SUCCEEDS(CryptGenKey(prov.get(), AT_SIGNATURE, kSmallRsa, pair.put()));
  Bytes signature(64);
  {
    HashHandle hash = HashOf(prov.get(), CALG_MD5, Bytes{9});
    DWORD length = 64;
    QUIV_ASSERT_SUCCEEDS(
        CryptSignHashA(hash.get(), AT_SIGNATURE, "d\xc3\xa9sc", 0, signature.data(), &length));
  }
  HashHandle wide = HashOf(prov.get(), CALG_MD5, Bytes{9});
  QUIV_EXPECT_SUCCEEDS(
      CryptVerifySignatureW(wide.get(), signature.data(), 64, pair.get(), u"d\u00e9sc", 0));
  HashHandle plain = HashOf(prov.get(), CALG_MD5, Bytes{9});
  QUIV_EXPECT_FAILS_WITH(
      CryptVerifySignatureW(plain.get(), signature.data(), 64, pair.get(), nullptr, 0),
      NTE_BAD_SIGNATURE);
}

// ---- release ----

TEST_F(CryptApiTest, ReleaseWithFlagsFailsButStillReleases) {
  HCRYPTPROV prov = 0;
  QUIV_ASSERT_SUCCEEDS(
      CryptAcquireContextA(&prov, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
  QUIV_EXPECT_FAILS_WITH(CryptReleaseContext(prov, 1), NTE_BAD_FLAGS);
  QUIV_EXPECT_FAILS_WITH(CryptReleaseContext(prov, 0), ERROR_INVALID_PARAMETER);
}

TEST_F(CryptApiTest, ReleaseOfBadHandlesIsInvalidParameterWhateverTheFlags) {
  for (const DWORD flags : {0u, 1u}) {
    QUIV_EXPECT_FAILS_WITH(CryptReleaseContext(0, flags), ERROR_INVALID_PARAMETER);
    QUIV_EXPECT_FAILS_WITH(CryptReleaseContext(0xdeadbeef, flags), ERROR_INVALID_PARAMETER);
  }
}

// ---- random ----

TEST_F(CryptApiTest, GenRandomFillsAndDiffers) {
  ProvHandle prov;
  QUIV_ASSERT_SUCCEEDS(
      CryptAcquireContextA(prov.put(), nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
  Bytes a(64, 0);
  Bytes b(64, 0);
  QUIV_ASSERT_SUCCEEDS(CryptGenRandom(prov.get(), 64, a.data()));
  QUIV_ASSERT_SUCCEEDS(CryptGenRandom(prov.get(), 64, b.data()));
  EXPECT_NE(a, b);
  EXPECT_NE(a, Bytes(64, 0));
  QUIV_EXPECT_SUCCEEDS(CryptGenRandom(prov.get(), 0, nullptr));
  QUIV_EXPECT_FAILS_WITH(CryptGenRandom(prov.get(), 4, nullptr), ERROR_INVALID_PARAMETER);
}

TEST_F(CryptApiTest, GenRandomOnReleasedContext) {
  HCRYPTPROV prov = 0;
  QUIV_ASSERT_SUCCEEDS(
      CryptAcquireContextA(&prov, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
  QUIV_ASSERT_SUCCEEDS(CryptReleaseContext(prov, 0));
  BYTE b[4];
  QUIV_EXPECT_FAILS_WITH(CryptGenRandom(prov, 4, b), ERROR_INVALID_PARAMETER);
}

// ---- last error, version ----

TEST_F(CryptApiTest, LastErrorIsPerThread) {
  SetLastError(111);
  std::thread other([] {
    EXPECT_EQ(GetLastError(), 0u);  // a new thread starts clean
    HCRYPTPROV prov = 0;
    EXPECT_FALSE(CryptAcquireContextA(&prov, nullptr, nullptr, 0, 0));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(NTE_BAD_PROV_TYPE));
  });
  other.join();
  EXPECT_EQ(GetLastError(), 111u);
}

TEST_F(CryptApiTest, SuccessLeavesTheLastErrorAlone) {
  ProvHandle prov;
  SetLastError(0x1234);
  QUIV_ASSERT_SUCCEEDS(
      CryptAcquireContextA(prov.put(), nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
  EXPECT_EQ(GetLastError(), 0x1234u);
}

TEST_F(CryptApiTest, VersionIsNtFamily) {
  OSVERSIONINFOA info{};
  std::fill(std::begin(info.szCSDVersion), std::end(info.szCSDVersion), 'x');
  info.dwOSVersionInfoSize = sizeof info;
  ASSERT_EQ(sizeof info, 148u);
  QUIV_ASSERT_SUCCEEDS(GetVersionExA(&info));
  EXPECT_EQ(info.dwPlatformId, static_cast<DWORD>(VER_PLATFORM_WIN32_NT));
  EXPECT_EQ(info.dwMajorVersion, 5u);
  EXPECT_EQ(info.dwMinorVersion, 1u);
  EXPECT_EQ(info.dwBuildNumber, 2600u);
  EXPECT_EQ(info.szCSDVersion[0], '\0');
  EXPECT_EQ(info.dwOSVersionInfoSize, 148u);
}

TEST_F(CryptApiTest, VersionExtendedRecordIsAccepted) {
  struct {
    OSVERSIONINFOA base;
    uint8_t tail[8];
  } extended;
  std::memset(&extended, 0xAB, sizeof extended);
  extended.base.dwOSVersionInfoSize = 156;
  QUIV_ASSERT_SUCCEEDS(GetVersionExA(&extended.base));
  EXPECT_EQ(extended.base.dwMajorVersion, 5u);
  for (const uint8_t b : extended.tail) EXPECT_EQ(b, 0);
}

TEST_F(CryptApiTest, VersionRefusesBadSizeAndNull) {
  OSVERSIONINFOA info{};
  info.dwOSVersionInfoSize = 100;
  QUIV_EXPECT_FAILS_WITH(GetVersionExA(&info), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(info.dwMajorVersion, 0u);
  QUIV_EXPECT_FAILS_WITH(GetVersionExA(nullptr), ERROR_INVALID_PARAMETER);
}

// ---- threads ----

// Every thread works on its own context, keys and hashes; under ASan/TSan-free builds this
// catches races in the handle tables and the per-call locking.
TEST_F(CryptApiTest, ThreadsHammerDifferentHandles) {
  constexpr int kThreads = 6;
  constexpr int kRounds = 150;
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < kRounds; ++round) {
        HCRYPTPROV prov = 0;
        if (!CryptAcquireContextA(&prov, nullptr, MS_ENHANCED_PROV_A, PROV_RSA_FULL,
                                  CRYPT_VERIFYCONTEXT)) {
          ++failures;
          continue;
        }
        HCRYPTHASH hash = 0;
        HCRYPTKEY key = 0;
        const BYTE phrase[] = {'p', static_cast<BYTE>(t), static_cast<BYTE>(round)};
        BYTE data[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
        BYTE copy[32] = {};
        std::memcpy(copy, data, sizeof data);
        DWORD length = sizeof data;
        const bool ok = CryptCreateHash(prov, CALG_MD5, 0, 0, &hash) &&
                        CryptHashData(hash, phrase, sizeof phrase, 0) &&
                        CryptDeriveKey(prov, CALG_RC4, hash, 0, &key) &&
                        CryptEncrypt(key, 0, TRUE, 0, copy, &length, sizeof copy) &&
                        CryptDecrypt(key, 0, TRUE, 0, copy, &length) && length == sizeof data &&
                        std::memcmp(copy, data, sizeof data) == 0;
        if (!ok) ++failures;
        // Every other round the context goes first, orphaning the key and hash.
        if (round % 2 == 0) {
          if (!CryptDestroyKey(key) || !CryptDestroyHash(hash)) ++failures;
          if (!CryptReleaseContext(prov, 0)) ++failures;
        } else {
          if (!CryptReleaseContext(prov, 0)) ++failures;
          if (CryptDestroyKey(key) || GetLastError() != ERROR_INVALID_PARAMETER) ++failures;
          if (CryptDestroyHash(hash)) ++failures;
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(failures.load(), 0);
}

// Several threads share one context and one key: calls are serialised, nothing breaks.
TEST_F(CryptApiTest, ThreadsSharingOneKeyAreSerialised) {
  ProvHandle prov;
  QUIV_ASSERT_SUCCEEDS(
      CryptAcquireContextA(prov.put(), nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT));
  KeyHandle key;
  QUIV_ASSERT_SUCCEEDS(CryptGenKey(prov.get(), CALG_RC2, 0, key.put()));
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 200; ++i) {
        BYTE buffer[16] = {};
        DWORD length = 8;
        if (!CryptEncrypt(key.get(), 0, TRUE, 0, buffer, &length, sizeof buffer) || length != 16) {
          ++failures;
        }
        HCRYPTHASH hash = 0;
        if (!CryptCreateHash(prov.get(), CALG_SHA1, 0, 0, &hash) || !CryptDestroyHash(hash)) {
          ++failures;
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(failures.load(), 0);
}

}  // namespace
}  // namespace quiv::test
