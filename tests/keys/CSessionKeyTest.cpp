// CSessionKey: settings and generation (flag words, the hashed phrase, the RC2 effective-length
// rule per provider), the getters of the held key, Clear and termination, the IHash answers and
// the permissions. Modes and IVs are in CSessionKeyModeTest.cpp, encryption in
// CSessionKeyEncryptTest.cpp, transport in CSessionKeyTransportTest.cpp.
#include "support/QuietLog.h"

#include "keys/CSessionKey.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "automation/MapPageContext.h"
#include "automation/RunTime.h"
#include "constants/CConstQUIV.h"
#include "data/CMessagetext.h"
#include "errors/QuivError.h"
#include "platform/PlatformSeam.h"
#include "provider/CProvider.h"
#include "support/InternalAccess.h"
#include "support/PlatformSpy.h"
#include "support/RecordMatchers.h"
#include "support/SessionKeyFixture.h"

namespace quiv {
namespace {

using test::FailedWith;

const CConstQUIV k;

using Spy = test::PlatformSpy;
using test::Call;

// A provider session in a temporary key store, with session keys tied to it.
using SessionKeyBase = test::SessionKeyFixture;
using EveryProvider = test::SessionKeyOnEveryProvider;
EVERY_SESSION_KEY_PROVIDER(EveryProvider);

// --- Settings ---

TEST_P(EveryProvider, AFreshObjectMakesAnExportableUnsaltedRC2KeyOfTheDefaultLength) {
  Spy spy;
  platform::ScopedPlatformOverride use(spy);
  Ref<CSessionKey> key = NewKey();
  ASSERT_TRUE(key->GenerateSessionKey()) << Message(key);
  ASSERT_EQ(spy.genKeyFlags.size(), 1u);
  EXPECT_EQ(spy.genKeyFlags[0], static_cast<DWORD>(k.CRYPT_EXPORTABLE() | k.CRYPT_NO_SALT()));
  EXPECT_TRUE(spy.deriveKeyFlags.empty());
  int32_t algId = 0;
  ASSERT_TRUE(key->GetKeyAlgorithmID(algId));
  EXPECT_EQ(algId, k.CALG_RC2());
  String code;
  ASSERT_TRUE(key->GetKeyAlgorithmCode(code));
  EXPECT_EQ(code, String(u"CALG_RC2"));
  // No salt: KP_SALT of the platform key is empty.
  HCRYPTKEY handle = 0;
  ASSERT_TRUE(Internal(key).GetKeyHandle(handle));
  DWORD saltLength = 64;
  BYTE salt[64];
  ASSERT_TRUE(platform::Platform().CryptGetKeyParam(handle, static_cast<DWORD>(k.KP_SALT()), salt,
                                                    &saltLength, 0));
  EXPECT_EQ(saltLength, 0u);
  // Base: 40 bits, untouched. Enhanced: the effective length raised to 128. Default (Strong):
  // 128 already, untouched.
  const std::string which = GetParam();
  EXPECT_EQ(KeyLength(key), which == "Base" ? 40 : 128);
  const std::vector<DWORD> effective = spy.Written(k.KP_EFFECTIVE_KEYLEN());
  if (which == "Enhanced") {
    EXPECT_EQ(effective, std::vector<DWORD>{128});
  } else {
    EXPECT_TRUE(effective.empty());
  }
}

TEST_P(EveryProvider, TheKeyLengthTravelsInTheUpperSixteenBitsOfTheFlags) {
  Spy spy;
  platform::ScopedPlatformOverride use(spy);
  Ref<CSessionKey> key = NewKey();
  ASSERT_TRUE(key->SetKeyLength(56));
  ASSERT_TRUE(key->GenerateSessionKey()) << Message(key);
  ASSERT_EQ(spy.genKeyFlags.size(), 1u);
  EXPECT_EQ(spy.genKeyFlags[0], 0x00380000u | 0x1u | 0x10u);
  EXPECT_EQ(KeyLength(key), 56);

  ASSERT_TRUE(key->SetUnloadable(false));
  ASSERT_TRUE(key->SetKeyPhrase(u"phrase"));
  ASSERT_TRUE(key->GenerateSessionKey()) << Message(key);
  ASSERT_EQ(spy.deriveKeyFlags.size(), 1u);
  EXPECT_EQ(spy.deriveKeyFlags[0], 0x00380000u | 0x10u);
}

TEST_F(SessionKeyBase, TheFlagWordSplitsTheLengthIntoItsTwoBytes) {
  OpenEnhanced();
  Spy spy;
  platform::ScopedPlatformOverride use(spy);
  Ref<CSessionKey> key = NewKey();
  ASSERT_TRUE(key->SetKeyLength(0x1234));
  ASSERT_TRUE(key->SetUnloadable(false));
  // 4660 bits is no RC2 length the provider makes: the flags still reach it, and it refuses.
  EXPECT_TRUE(FailedWith(key->GenerateSessionKey(), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_CREATE_KEY, "QUIV.CSessionKey.GenerateSessionKey"));
  ASSERT_EQ(spy.genKeyFlags.size(), 1u);
  EXPECT_EQ(spy.genKeyFlags[0], 0x12340010u);
  EXPECT_TRUE(Shows(key, "keyphrase=")) << Message(key);
  EXPECT_TRUE(Shows(key, "key len=4660")) << Message(key);
  EXPECT_TRUE(Shows(key, "unloadable=0")) << Message(key);
  HCRYPTKEY handle = 0;
  EXPECT_FALSE(Internal(key).GetKeyHandle(handle));
}

TEST_F(SessionKeyBase, ThePhraseIsHashedAsUtf16WithOneTerminatingNul) {
  OpenBase();
  Spy spy;
  platform::ScopedPlatformOverride use(spy);
  Ref<CSessionKey> key = NewKey();
  ASSERT_TRUE(key->SetKeyPhrase(u" K\u00e9y "));
  ASSERT_TRUE(key->GenerateSessionKey()) << Message(key);
  ASSERT_EQ(spy.hashed.size(), 1u);
  const std::vector<uint8_t> expected{0x20, 0, 0x4B, 0, 0xE9, 0, 0x79, 0, 0x20, 0, 0, 0};
  EXPECT_EQ(spy.hashed[0], expected);
  ASSERT_EQ(spy.hashAlgs.size(), 1u);
  EXPECT_EQ(spy.hashAlgs[0], static_cast<ALG_ID>(k.CALG_MD5()));
  EXPECT_EQ(spy.hashesMade, 1);
  EXPECT_EQ(spy.hashesDestroyed, 1);
  EXPECT_TRUE(spy.genKeyFlags.empty());

  ASSERT_TRUE(key->SetHashAlgorithmID(k.CALG_SHA()));
  ASSERT_TRUE(key->GenerateSessionKey()) << Message(key);
  ASSERT_EQ(spy.hashAlgs.size(), 2u);
  EXPECT_EQ(spy.hashAlgs[1], static_cast<ALG_ID>(k.CALG_SHA()));
}

TEST_F(SessionKeyBase, TheDerivedKeyIsTheOneTheDocumentedDerivationGives) {
  // The same derivation by hand through the platform: MD5 over the phrase's UTF-16LE bytes and
  // its NUL, CryptDeriveKey with the library's flag word; both keys must encrypt alike.
  OpenEnhanced();
  Ref<CSessionKey> key = MakeKey(k.CALG_3DES(), u"correct horse");
  platform::IPlatform& p = platform::Platform();
  HCRYPTHASH hash = 0;
  ASSERT_TRUE(p.CryptCreateHash(Internal(provider).ContextHandle(),
                                static_cast<ALG_ID>(k.CALG_MD5()), 0, 0, &hash));
  const std::u16string text = u"correct horse";
  std::vector<uint8_t> bytes;
  for (char16_t c : text) {
    bytes.push_back(static_cast<uint8_t>(c & 0xFF));
    bytes.push_back(static_cast<uint8_t>(c >> 8));
  }
  bytes.insert(bytes.end(), {0, 0});
  ASSERT_TRUE(p.CryptHashData(hash, bytes.data(), static_cast<DWORD>(bytes.size()), 0));
  HCRYPTKEY manual = 0;
  ASSERT_TRUE(p.CryptDeriveKey(Internal(provider).ContextHandle(),
                               static_cast<ALG_ID>(k.CALG_3DES()), hash,
                               static_cast<DWORD>(k.CRYPT_NO_SALT()), &manual));
  p.CryptDestroyHash(hash);
  std::vector<uint8_t> buffer(m_sample.ToVector());
  buffer.resize(32);
  DWORD length = static_cast<DWORD>(m_sample.size());
  ASSERT_TRUE(p.CryptEncrypt(manual, 0, TRUE, 0, buffer.data(), &length, 32));
  buffer.resize(length);
  p.CryptDestroyKey(manual);
  EXPECT_EQ(EncryptOnce(key, m_sample).ToVector(), buffer);
}

TEST_F(SessionKeyBase, SettingsRefuseAlgorithmsOfTheWrongClass) {
  OpenBase();
  Ref<CSessionKey> key = NewKey();
  EXPECT_TRUE(FailedWith(key->SetKeyAlgorithmID(k.CALG_MD5()), key->m_oLastError,
                         KEY_ERROR_NOT_A_SYMMETRIC_KEY_ALGORITHM,
                         "QUIV.CSessionKey.SetKeyAlgorithmID"));
  EXPECT_TRUE(FailedWith(key->SetHashAlgorithmID(k.CALG_RC4()), key->m_oLastError,
                         HASH_ERROR_UNKNOWN_HASH_ALGORITHM_ID,
                         "QUIV.CSessionKey.SetHashAlgorithmID"));
  // The refused values were not stored: the defaults still make an RC2 key from MD5.
  Spy spy;
  platform::ScopedPlatformOverride use(spy);
  ASSERT_TRUE(key->SetKeyPhrase(u"p"));
  ASSERT_TRUE(key->GenerateSessionKey());
  EXPECT_EQ(spy.hashAlgs, std::vector<ALG_ID>{static_cast<ALG_ID>(k.CALG_MD5())});
  int32_t algId = 0;
  ASSERT_TRUE(key->GetKeyAlgorithmID(algId));
  EXPECT_EQ(algId, k.CALG_RC2());
  // The provider's support is not checked when the setting is made.
  EXPECT_TRUE(key->SetKeyAlgorithmID(k.CALG_3DES()));
}

TEST_F(SessionKeyBase, KeyLengthMustBeANonNegativeSixteenBitNumber) {
  OpenBase();
  Ref<CSessionKey> key = NewKey();
  EXPECT_TRUE(FailedWith(key->SetKeyLength(-1), key->m_oLastError, KEY_ERROR_BAD_KEY_LENGTH,
                         "QUIV.CSessionKey.SetKeyLength"));
  EXPECT_TRUE(key->SetKeyLength(0));
  EXPECT_TRUE(key->SetKeyLength(32767));
  EXPECT_TRUE(FailedWith(key->SetKeyLength(32768), key->m_oLastError, kErrOverflow,
                         "QUIV.CSessionKey.SetKeyLength"));
}

TEST_F(SessionKeyBase, ABlankPhraseKeepsTheFormerOne) {
  OpenBase();
  Spy spy;
  platform::ScopedPlatformOverride use(spy);
  Ref<CSessionKey> key = NewKey();
  ASSERT_TRUE(key->SetKeyPhrase(u"first"));
  ASSERT_TRUE(key->GenerateSessionKey());
  const ByteArray before = EncryptOnce(key, m_sample);
  EXPECT_TRUE(key->SetKeyPhrase(u"   "));
  EXPECT_TRUE(key->SetKeyPhrase(String()));
  ASSERT_TRUE(key->GenerateSessionKey());
  EXPECT_EQ(EncryptOnce(key, m_sample), before);
  ASSERT_EQ(spy.hashed.size(), 2u);
  EXPECT_EQ(spy.hashed[0], spy.hashed[1]);
  EXPECT_TRUE(spy.genKeyFlags.empty());
}

TEST_P(EveryProvider, OnePhraseHashAndAlgorithmGiveOneKey) {
  Ref<CSessionKey> one = MakeKey(k.CALG_RC2(), u"shared secret");
  Ref<CSessionKey> two = MakeKey(k.CALG_RC2(), u"shared secret");
  Ref<CSessionKey> other = MakeKey(k.CALG_RC2(), u"shared secreT");
  const ByteArray cipher = EncryptOnce(one, m_sample);
  EXPECT_EQ(EncryptOnce(two, m_sample), cipher);
  EXPECT_NE(EncryptOnce(other, m_sample), cipher);
  EXPECT_NE(cipher, m_sample);
}

TEST_F(SessionKeyBase, SetDefaultKeySettingsRestoresTheDefaultsAndLeavesTheKey) {
  OpenEnhanced();
  Ref<CSessionKey> key = MakeKey(k.CALG_RC4(), u"phrase", 56);
  ASSERT_TRUE(key->SetHashAlgorithmID(k.CALG_SHA()));
  ASSERT_TRUE(key->SetUnloadable(false));
  ASSERT_TRUE(key->SetDefaultKeySettings());
  int32_t algId = 0;
  ASSERT_TRUE(key->GetKeyAlgorithmID(algId));
  EXPECT_EQ(algId, k.CALG_RC4());
  EXPECT_EQ(KeyLength(key), 56);

  Spy spy;
  platform::ScopedPlatformOverride use(spy);
  ASSERT_TRUE(key->GenerateSessionKey());
  EXPECT_TRUE(spy.hashed.empty());  // the phrase is gone: a random key
  EXPECT_EQ(spy.genKeyFlags, std::vector<DWORD>{0x11});
  ASSERT_TRUE(key->GetKeyAlgorithmID(algId));
  EXPECT_EQ(algId, k.CALG_RC2());
}

TEST_F(SessionKeyBase, SettingsChangeNothingInAKeyThatExists) {
  OpenEnhanced();
  Ref<CSessionKey> key = MakeKey(k.CALG_RC2());
  ASSERT_TRUE(key->SetKeyAlgorithmID(k.CALG_RC4()));
  ASSERT_TRUE(key->SetKeyLength(40));
  int32_t algId = 0;
  ASSERT_TRUE(key->GetKeyAlgorithmID(algId));
  EXPECT_EQ(algId, k.CALG_RC2());
  EXPECT_EQ(KeyLength(key), 128);
}

TEST_F(SessionKeyBase, GenerationReplacesTheKeyItHeld) {
  OpenBase();
  Ref<CSessionKey> key = MakeKey(k.CALG_RC4());
  HCRYPTKEY first = 0;
  ASSERT_TRUE(Internal(key).GetKeyHandle(first));
  ASSERT_TRUE(key->GenerateSessionKey());
  DWORD length = 4;
  BYTE value[4];
  EXPECT_FALSE(platform::Platform().CryptGetKeyParam(first, static_cast<DWORD>(k.KP_ALGID()), value,
                                                     &length, 0));
}

// --- Generation failures ---

TEST_F(SessionKeyBase, EachDerivationStepReportsItsOwnCode) {
  OpenBase();
  Ref<CSessionKey> key = NewKey();
  ASSERT_TRUE(key->SetKeyPhrase(u"secret"));
  const char* source = "QUIV.CSessionKey.GenerateSessionKey";

  // A keyed hash cannot be made without its key.
  ASSERT_TRUE(key->SetHashAlgorithmID(k.CALG_MAC()));
  EXPECT_TRUE(FailedWith(key->GenerateSessionKey(), key->m_oLastError,
                         HASH_ERROR_UNABLE_TO_CREATE_CRYPTOAPI_HASH_OBJECT, source));
  EXPECT_TRUE(Shows(key, "keyphrase=secret")) << Message(key);
  EXPECT_TRUE(Shows(key, "unloadable=1")) << Message(key);
  ASSERT_TRUE(key->SetHashAlgorithmID(k.CALG_MD5()));

  // The Base provider has no triple DES.
  ASSERT_TRUE(key->SetKeyAlgorithmID(k.CALG_3DES()));
  key->m_oLastError->Clear();
  EXPECT_TRUE(FailedWith(key->GenerateSessionKey(), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_DERIVE_KEY, source));
  EXPECT_EQ(static_cast<uint32_t>(key->m_oLastError->m_dblErrLastDLLError),
            static_cast<uint32_t>(k.NTE_BAD_ALGID()));
  ASSERT_TRUE(key->SetKeyAlgorithmID(k.CALG_RC2()));

  Spy spy;
  platform::ScopedPlatformOverride use(spy);
  spy.Break(Call::HashData);
  key->m_oLastError->Clear();
  EXPECT_TRUE(FailedWith(key->GenerateSessionKey(), key->m_oLastError,
                         HASH_ERROR_UNABLE_TO_HASH_THE_DATA, source));
  spy.Break(Call::DestroyHash);
  key->m_oLastError->Clear();
  EXPECT_TRUE(FailedWith(key->GenerateSessionKey(), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_RELEASE_HASH_HANDLE, source));
  spy.Break(Call::CreateHash);
  key->m_oLastError->Clear();
  EXPECT_TRUE(FailedWith(key->GenerateSessionKey(), key->m_oLastError,
                         HASH_ERROR_UNABLE_TO_CREATE_CRYPTOAPI_HASH_OBJECT, source));
  HCRYPTKEY handle = 0;
  EXPECT_FALSE(Internal(key).GetKeyHandle(handle));
  // A hash made for a failed derivation does not stay behind (the one whose release was made
  // to fail aside).
  EXPECT_EQ(spy.hashesMade, spy.hashesDestroyed + 1);
}

TEST_F(SessionKeyBase, ARandomKeyTheProviderCannotMakeFails) {
  OpenBase();
  Ref<CSessionKey> key = NewKey();
  ASSERT_TRUE(key->SetKeyAlgorithmID(k.CALG_3DES_112()));
  EXPECT_TRUE(FailedWith(key->GenerateSessionKey(), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_CREATE_KEY, "QUIV.CSessionKey.GenerateSessionKey"));
  EXPECT_TRUE(Shows(key, "key len=0")) << Message(key);
  HCRYPTKEY handle = 0;
  EXPECT_FALSE(Internal(key).GetKeyHandle(handle));
}

TEST_F(SessionKeyBase, GenerationStopsWhenTheOldKeyCannotBeDestroyed) {
  OpenBase();
  Ref<CSessionKey> key = MakeKey(k.CALG_RC4());
  Spy spy;
  platform::ScopedPlatformOverride use(spy);
  spy.Break(Call::DestroyKey);
  EXPECT_TRUE(FailedWith(key->GenerateSessionKey(), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_DESTROY_KEY, "QUIV.CSessionKey.GenerateSessionKey"));
  EXPECT_TRUE(spy.genKeyFlags.empty());
  HCRYPTKEY handle = 0;
  EXPECT_TRUE(Internal(key).GetKeyHandle(handle));  // the old key is still held
}

// --- The RC2 effective-length rule ---

TEST_F(SessionKeyBase, OnTheEnhancedProviderRC2FollowsTheRequestedLength) {
  OpenEnhanced();
  Spy spy;
  platform::ScopedPlatformOverride use(spy);
  Ref<CSessionKey> key = MakeKey(k.CALG_RC2(), String(), 56);
  EXPECT_EQ(spy.Written(k.KP_EFFECTIVE_KEYLEN()), std::vector<DWORD>{56});
  EXPECT_EQ(KeyLength(key), 56);
  Ref<CSessionKey> rc4 = MakeKey(k.CALG_RC4());
  EXPECT_EQ(spy.Written(k.KP_EFFECTIVE_KEYLEN()).size(), 1u);  // RC4: nothing to set
  EXPECT_EQ(KeyLength(rc4), 128);
}

TEST_F(SessionKeyBase, RC2KeysFromOnePhraseAgreeAcrossTheProviders) {
  // With the effective length following the key length, the Enhanced provider's 40- and 56-bit
  // RC2 keys are the Base provider's, and its default key the Strong (default) provider's.
  std::vector<ByteArray> base;
  OpenBase();
  for (int32_t bits : {40, 56}) {
    base.push_back(EncryptOnce(MakeKey(k.CALG_RC2(), u"across", bits), m_sample));
  }
  Ref<CSessionKey> baseRc4 = MakeKey(k.CALG_RC4(), u"across", 56);
  const ByteArray baseStream = EncryptOnce(baseRc4, m_sample);
  TearDown();
  m_keys.clear();

  OpenEnhanced();
  EXPECT_EQ(EncryptOnce(MakeKey(k.CALG_RC2(), u"across", 40), m_sample), base[0]);
  EXPECT_EQ(EncryptOnce(MakeKey(k.CALG_RC2(), u"across", 56), m_sample), base[1]);
  EXPECT_EQ(EncryptOnce(MakeKey(k.CALG_RC4(), u"across", 56), m_sample), baseStream);
  const ByteArray enhancedDefault = EncryptOnce(MakeKey(k.CALG_RC2(), u"across"), m_sample);
  TearDown();
  m_keys.clear();

  Open(String());
  EXPECT_EQ(EncryptOnce(MakeKey(k.CALG_RC2(), u"across"), m_sample), enhancedDefault);
}

TEST_F(SessionKeyBase, AFailedLengthChangeLeavesNoKey) {
  OpenEnhanced();
  Spy spy;
  platform::ScopedPlatformOverride use(spy);
  spy.Break(Call::SetKeyParam, static_cast<DWORD>(k.NTE_BAD_DATA()),
            static_cast<DWORD>(k.KP_EFFECTIVE_KEYLEN()));
  Ref<CSessionKey> key = NewKey();
  EXPECT_TRUE(FailedWith(key->GenerateSessionKey(), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_SET_RC2_KEY_LENGTH,
                         "QUIV.CSessionKey.GenerateSessionKey"));
  HCRYPTKEY handle = 0;
  EXPECT_FALSE(Internal(key).GetKeyHandle(handle));
  EXPECT_EQ(spy.keysDestroyed, 0);  // the platform key is not destroyed by the failure
}

TEST_F(SessionKeyBase, AnUnreadableProviderNameFailsTheLengthRule) {
  OpenEnhanced();
  Spy spy;
  platform::ScopedPlatformOverride use(spy);
  spy.Break(Call::GetProvParam, static_cast<DWORD>(k.NTE_FAIL()), static_cast<DWORD>(k.PP_NAME()));
  Ref<CSessionKey> key = NewKey();
  EXPECT_TRUE(FailedWith(key->GenerateSessionKey(), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_SET_RC2_KEY_LENGTH,
                         "QUIV.CSessionKey.GenerateSessionKey"));
  EXPECT_TRUE(FailedWith(Internal(key).IfRC2ChangeLength(), key->m_oLastError,
                         PROVIDER_ERROR_UNABLE_TO_GET_PROVIDER_NAME,
                         "QUIV.CSessionKey.IfRC2ChangeLength"));
}

TEST_F(SessionKeyBase, OnlyAnRC2SettingMayChangeTheEffectiveLength) {
  OpenEnhanced();
  Ref<CSessionKey> key = MakeKey(k.CALG_RC2());
  ASSERT_TRUE(Internal(key).ChangeRC2KeyLength(64));
  int32_t bits = 0;
  ASSERT_TRUE(Internal(key).GetRC2KeyLength(bits));
  EXPECT_EQ(bits, 64);
  ASSERT_TRUE(key->SetKeyAlgorithmID(k.CALG_DES()));
  EXPECT_TRUE(FailedWith(Internal(key).ChangeRC2KeyLength(40), key->m_oLastError,
                         KEY_ERROR_CAN_ONLY_SET_RC2_KEY_LENGTHS,
                         "QUIV.CSessionKey.ChangeRC2KeyLength"));
  ASSERT_TRUE(key->SetKeyAlgorithmID(k.CALG_RC2()));
  EXPECT_TRUE(FailedWith(Internal(key).ChangeRC2KeyLength(0), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_SET_RC2_KEY_LENGTH,
                         "QUIV.CSessionKey.ChangeRC2KeyLength"));
}

// --- Getters ---

TEST_P(EveryProvider, EveryKeyOperationNeedsAKey) {
  Ref<CSessionKey> key = NewKey();
  const auto& record = key->m_oLastError;
  const int32_t code = KEY_ERROR_KEY_OBJECT_DOES_NOT_HAVE_SESSION_KEY_HANDLE;
  int32_t number = -7;
  String text = u"untouched";
  Variant value;
  HCRYPTKEY handle = 0;
  bool flags[6] = {};
  EXPECT_TRUE(FailedWith(key->GetKeyAlgorithmID(number), record, code,
                         "QUIV.CSessionKey.GetKeyAlgorithmID"));
  EXPECT_TRUE(FailedWith(key->GetKeyAlgorithmCode(text), record, code,
                         "QUIV.CSessionKey.GetKeyAlgorithmCode"));
  EXPECT_TRUE(FailedWith(key->GetBlockLengthInBits(number), record, code,
                         "QUIV.CSessionKey.GetBlockLength"));
  EXPECT_TRUE(FailedWith(key->GetBlockLengthInBytes(number), record, code,
                         "QUIV.CSessionKey.GetBlockLength"));
  EXPECT_TRUE(FailedWith(key->GetKeyLength(number), record, code, "QUIV.CSessionKey.GetKeyLength"));
  EXPECT_TRUE(Shows(key, "RC2 key:=False")) << Message(key);
  EXPECT_TRUE(Shows(key, "o_lKeyLen=-7")) << Message(key);
  EXPECT_TRUE(FailedWith(Internal(key).GetKeyHandle(handle), record, code,
                         "QUIV.CSessionKey.GetKeyHandle"));
  EXPECT_TRUE(FailedWith(Internal(key).GetKeyParam(k.KP_ALGID(), value), record, code,
                         "QUIV.CSessionKey.GetKeyParam"));
  EXPECT_TRUE(FailedWith(Internal(key).GetRC2KeyLength(number), record, code,
                         "QUIV.CSessionKey.GetRC2KeyLength"));
  EXPECT_TRUE(
      FailedWith(key->GetCipherModeID(number), record, code, "QUIV.CSessionKey.GetCipherModeID"));
  EXPECT_TRUE(
      FailedWith(key->GetCipherModeCode(text), record, code, "QUIV.CSessionKey.GetCipherModeCode"));
  EXPECT_TRUE(
      FailedWith(key->GetFeedbackBits(number), record, code, "QUIV.CSessionKey.GetFeedbackBits"));
  EXPECT_TRUE(FailedWith(key->ChangeCipherModeCode(u"CRYPT_MODE_CBC"), record, code,
                         "QUIV.ChangeCipherModeCode"));
  EXPECT_TRUE(
      FailedWith(key->ChangeCipherModeID(1), record, code, "QUIV.CSessionKey.ChangeCipherModeID"));
  EXPECT_TRUE(
      FailedWith(key->ChangeFeedbackBits(8), record, code, "QUIV.CSessionKey.ChangeFeedbackBits"));
  EXPECT_TRUE(FailedWith(key->AddRandomIV(), record, code, "QUIV.CSessionKey.AddRandomIV"));
  EXPECT_TRUE(FailedWith(key->LoadAndAddIV(u"0001020304050607", STRING_HEX), record, code,
                         "QUIV.CSessionKey.LoadAndAddIV"));
  EXPECT_TRUE(FailedWith(key->UnloadIV(text, STRING_HEX), record, code,
                         "QUIV.CSessionKey.GetCipherModeCode"));
  EXPECT_TRUE(
      FailedWith(key->GetKeyPermissions(flags[0], flags[1], flags[2], flags[3], flags[4], flags[5]),
                 record, code, "QUIV.CSessionKey.SetKeyPermission"));
  EXPECT_TRUE(FailedWith(key->GetSessionKeyHandle(handle), record, code,
                         "QUIV.CSessionKey.IHash_GetSessionKeyHandle"));
  EXPECT_EQ(number, -7);
  EXPECT_EQ(text, String(u"untouched"));
  EXPECT_EQ(handle, 0u);
}

TEST_P(EveryProvider, BlockLengthsOfABlockAndAStreamCipher) {
  Ref<CSessionKey> rc2 = MakeKey(k.CALG_RC2());
  Ref<CSessionKey> rc4 = MakeKey(k.CALG_RC4());
  Ref<CSessionKey> des = MakeKey(k.CALG_DES());
  int32_t value = -1;
  ASSERT_TRUE(rc2->GetBlockLengthInBits(value));
  EXPECT_EQ(value, 64);
  ASSERT_TRUE(rc2->GetBlockLengthInBytes(value));
  EXPECT_EQ(value, 8);
  ASSERT_TRUE(rc4->GetBlockLengthInBits(value));
  EXPECT_EQ(value, 0);
  ASSERT_TRUE(rc4->GetBlockLengthInBytes(value));
  EXPECT_EQ(value, 0);
  ASSERT_TRUE(des->GetBlockLengthInBytes(value));
  EXPECT_EQ(value, 8);
  EXPECT_EQ(KeyLength(des), 64);  // stored DES length, parity bits included
  String code;
  ASSERT_TRUE(des->GetKeyAlgorithmCode(code));
  EXPECT_EQ(code, String(u"CALG_DES"));
  ASSERT_TRUE(rc4->GetKeyAlgorithmCode(code));
  EXPECT_EQ(code, String(u"CALG_RC4"));
}

TEST_F(SessionKeyBase, AnAlgorithmTheTablesDoNotNameHasNoCode) {
  OpenEnhanced();
  Ref<CSessionKey> key = MakeKey(k.CALG_RC4());
  Spy spy;
  platform::ScopedPlatformOverride use(spy);
  spy.answers[static_cast<DWORD>(k.KP_ALGID())] = 0x660E;  // AES: a name the tables lack
  String code;
  EXPECT_TRUE(FailedWith(key->GetKeyAlgorithmCode(code), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_GET_KEY_ALGORITHM_CODE,
                         "QUIV.CSessionKey.GetKeyAlgorithmCode"));
  EXPECT_EQ(code, String(u"(Unknown Key Algorithm ID!)"));
  spy.answers.clear();
  spy.Break(Call::GetKeyParam, static_cast<DWORD>(k.NTE_FAIL()), static_cast<DWORD>(k.KP_ALGID()));
  EXPECT_TRUE(FailedWith(key->GetKeyAlgorithmCode(code), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_GET_KEY_ALGORITHM_ID,
                         "QUIV.CSessionKey.GetKeyAlgorithmCode"));
}

TEST_F(SessionKeyBase, ABlockLengthThatIsNoWholeNumberOfBytesIsRefused) {
  OpenEnhanced();
  Ref<CSessionKey> key = MakeKey(k.CALG_RC2());
  Spy spy;
  platform::ScopedPlatformOverride use(spy);
  spy.answers[static_cast<DWORD>(k.KP_BLOCKLEN())] = 60;
  int32_t value = -1;
  ASSERT_TRUE(key->GetBlockLengthInBits(value));
  EXPECT_EQ(value, 60);
  EXPECT_TRUE(FailedWith(key->GetBlockLengthInBytes(value), key->m_oLastError,
                         KEY_ERROR_BLOCK_LENGTH_NOT_MULTIPLE_OF_EIGHT,
                         "QUIV.CSessionKey.GetBlockLength"));
  EXPECT_TRUE(FailedWith(key->AddRandomIV(), key->m_oLastError,
                         KEY_ERROR_BLOCK_LENGTH_NOT_MULTIPLE_OF_EIGHT,
                         "QUIV.CSessionKey.AddRandomIV"));
  EXPECT_TRUE(FailedWith(key->LoadAndAddIV(u"0102030405060708", STRING_HEX), key->m_oLastError,
                         KEY_ERROR_BLOCK_LENGTH_NOT_MULTIPLE_OF_EIGHT,
                         "QUIV.CSessionKey.LoadAndAddIV"));
}

TEST_F(SessionKeyBase, AnEffectiveLengthBelowFortyIsLeftAlone) {
  OpenEnhanced();
  Spy spy;
  platform::ScopedPlatformOverride use(spy);
  spy.answers[static_cast<DWORD>(k.KP_EFFECTIVE_KEYLEN())] = 32;
  Ref<CSessionKey> key = MakeKey(k.CALG_RC2());
  EXPECT_TRUE(spy.Written(k.KP_EFFECTIVE_KEYLEN()).empty());
  EXPECT_EQ(KeyLength(key), 32);
}

TEST_F(SessionKeyBase, AnEffectiveLengthOfExactlyFortyFollowsTheKeyLength) {
  OpenEnhanced();
  Spy spy;
  platform::ScopedPlatformOverride use(spy);
  spy.answers[static_cast<DWORD>(k.KP_EFFECTIVE_KEYLEN())] = 40;
  Ref<CSessionKey> key = MakeKey(k.CALG_RC2(), String(), 56);
  EXPECT_EQ(spy.Written(k.KP_EFFECTIVE_KEYLEN()), std::vector<DWORD>{56});
}

TEST_F(SessionKeyBase, AnEffectiveLengthOfThirtyNineIsLeftAlone) {
  OpenEnhanced();
  Spy spy;
  platform::ScopedPlatformOverride use(spy);
  spy.answers[static_cast<DWORD>(k.KP_EFFECTIVE_KEYLEN())] = 39;
  Ref<CSessionKey> key = MakeKey(k.CALG_RC2(), String(), 56);
  EXPECT_TRUE(spy.Written(k.KP_EFFECTIVE_KEYLEN()).empty());
}

TEST_F(SessionKeyBase, TheEffectiveLengthIsWrittenAsALittleEndianWord) {
  OpenEnhanced();
  Ref<CSessionKey> key = MakeKey(k.CALG_RC2());
  Spy spy;
  platform::ScopedPlatformOverride use(spy);
  ASSERT_TRUE(Internal(key).ChangeRC2KeyLength(300));
  EXPECT_EQ(spy.Written(k.KP_EFFECTIVE_KEYLEN()), std::vector<DWORD>{300});
  EXPECT_EQ(KeyLength(key), 300);  // RC2 reports its effective length, not the key bytes
  Variant bytes;
  ASSERT_TRUE(Internal(key).GetKeyParam(k.KP_KEYLEN(), bytes));
  EXPECT_EQ(bytes.ToLong(), 128);
  // The new length is also the setting the next key is made with (too long for a new key here).
  ASSERT_TRUE(key->SetKeyPhrase(u"next"));
  EXPECT_TRUE(FailedWith(key->GenerateSessionKey(), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_DERIVE_KEY, "QUIV.CSessionKey.GenerateSessionKey"));
  EXPECT_TRUE(Shows(key, "key len=300")) << Message(key);
  ASSERT_FALSE(spy.deriveKeyFlags.empty());
  EXPECT_EQ(spy.deriveKeyFlags.back() >> 16, 300u);
}

TEST_F(SessionKeyBase, AKeyParameterThePlatformCannotReadFailsEachGetter) {
  OpenEnhanced();
  Ref<CSessionKey> key = MakeKey(k.CALG_RC2());
  Spy spy;
  platform::ScopedPlatformOverride use(spy);
  spy.Break(Call::GetKeyParam);
  int32_t value = 0;
  EXPECT_TRUE(FailedWith(key->GetKeyAlgorithmID(value), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_GET_KEY_ALGORITHM_ID,
                         "QUIV.CSessionKey.GetKeyAlgorithmID"));
  EXPECT_TRUE(FailedWith(key->GetBlockLengthInBits(value), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_GET_BLOCKLENGTH, "QUIV.CSessionKey.GetBlockLength"));
  EXPECT_TRUE(FailedWith(key->GetKeyLength(value), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_GET_KEY_ALGORITHM_ID,
                         "QUIV.CSessionKey.GetKeyLength"));
  EXPECT_TRUE(FailedWith(key->GetCipherModeID(value), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_GET_CIPHER_MODE_ID,
                         "QUIV.CSessionKey.GetCipherModeID"));
  EXPECT_TRUE(FailedWith(key->GetFeedbackBits(value), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_GET_CIPHER_MODE_BITS,
                         "QUIV.CSessionKey.GetFeedbackBits"));
  Variant raw;
  EXPECT_TRUE(FailedWith(Internal(key).GetKeyParam(k.KP_KEYLEN(), raw), key->m_oLastError,
                         KEY_ERROR_CRYPTGETKEYPARAM_FAILED, "QUIV.CSessionKey.GetKeyParam"));
  EXPECT_TRUE(FailedWith(Internal(key).GetRC2KeyLength(value), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_GET_EFFECTIVE_KEYLENGTH,
                         "QUIV.CSessionKey.GetRC2KeyLength"));
  // Only the effective length unreadable: GetKeyLength names the RC2 branch.
  spy.Break(Call::GetKeyParam, static_cast<DWORD>(k.NTE_FAIL()),
            static_cast<DWORD>(k.KP_EFFECTIVE_KEYLEN()));
  key->m_oLastError->Clear();  // the parameters of the earlier failure stay until cleared
  EXPECT_TRUE(FailedWith(key->GetKeyLength(value), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_GET_RC2_KEY_LENGTH, "QUIV.CSessionKey.GetKeyLength"));
  EXPECT_TRUE(Shows(key, "RC2 key:=True")) << Message(key);
}

// --- Clear and termination ---

TEST_F(SessionKeyBase, ClearDestroysTheKeyAndKeepsTheSettings) {
  OpenBase();
  Ref<CSessionKey> key = NewKey();
  EXPECT_TRUE(key->Clear());  // nothing to destroy
  ASSERT_TRUE(key->SetKeyAlgorithmID(k.CALG_RC4()));
  ASSERT_TRUE(key->SetKeyPhrase(u"kept"));
  ASSERT_TRUE(key->GenerateSessionKey());
  const ByteArray cipher = EncryptOnce(key, m_sample);
  HCRYPTKEY handle = 0;
  ASSERT_TRUE(Internal(key).GetKeyHandle(handle));
  ASSERT_TRUE(key->Clear());
  EXPECT_FALSE(Internal(key).GetKeyHandle(handle));
  DWORD length = 4;
  BYTE value[4];
  EXPECT_FALSE(platform::Platform().CryptGetKeyParam(handle, static_cast<DWORD>(k.KP_ALGID()),
                                                     value, &length, 0));
  ASSERT_TRUE(key->GenerateSessionKey());
  EXPECT_EQ(EncryptOnce(key, m_sample), cipher);
}

TEST_F(SessionKeyBase, AFailedClearKeepsTheKey) {
  OpenBase();
  Ref<CSessionKey> key = MakeKey(k.CALG_RC4());
  {
    Spy spy;
    platform::ScopedPlatformOverride use(spy);
    spy.Break(Call::DestroyKey);
    EXPECT_TRUE(FailedWith(key->Clear(), key->m_oLastError, KEY_ERROR_UNABLE_TO_DESTROY_KEY,
                           "QUIV.CSessionKey.Clear"));
  }
  HCRYPTKEY handle = 0;
  EXPECT_TRUE(Internal(key).GetKeyHandle(handle));
  EXPECT_TRUE(key->Clear());
}

TEST_F(SessionKeyBase, TerminationLeavesTheKeyAndTheDestructorThenKeepsAway) {
  OpenBase();
  Spy spy;
  platform::ScopedPlatformOverride use(spy);
  {
    Ref<CSessionKey> key = MakeRef<CSessionKey>();
    ASSERT_TRUE(Internal(key).SetProvider(provider));
    ASSERT_TRUE(key->GenerateSessionKey());
    Internal(key).Terminate();
  }
  EXPECT_EQ(spy.keysDestroyed, 0);
  {
    Ref<CSessionKey> key = MakeRef<CSessionKey>();
    ASSERT_TRUE(Internal(key).SetProvider(provider));
    ASSERT_TRUE(key->GenerateSessionKey());
  }
  EXPECT_EQ(spy.keysDestroyed, 1);  // dropped without termination: its key goes with it
}

TEST_F(SessionKeyBase, TerminationDropsTheProviderReference) {
  OpenBase();
  Ref<CSessionKey> key = MakeRef<CSessionKey>();
  ASSERT_TRUE(Internal(key).SetProvider(provider));
  const long held = provider.UseCount();
  Internal(key).Terminate();
  EXPECT_EQ(provider.UseCount(), held - 1);
}

TEST_F(SessionKeyBase, OnStartPageMakesTheRecordAndHandsItThePage) {
  OpenBase();
  Ref<CSessionKey> key = NewKey();
  const std::map<String, String> variables{{u"PATH_INFO", u"/key.asp"}};
  ASSERT_TRUE(key->OnStartPage(MakeRef<MapPageContext>(variables, String(u"k=1"))));
  ASSERT_FALSE(key->m_oLastError.IsNothing());
  HCRYPTKEY handle = 0;
  EXPECT_FALSE(Internal(key).GetKeyHandle(handle));
  EXPECT_EQ(key->m_oLastError->m_sWebPageURL.ToUtf8(), "/key.asp?k=1");
}

TEST_F(SessionKeyBase, AnotherProviderTakesEffectAtTheNextUse) {
  OpenBase();
  Ref<CProvider> base = provider;
  OpenEnhanced();
  Ref<CSessionKey> key = NewKey();
  ASSERT_TRUE(key->GenerateSessionKey());
  EXPECT_EQ(KeyLength(key), 128);
  ASSERT_TRUE(key->Clear());
  ASSERT_TRUE(Internal(key).SetProvider(base));
  // The Enhanced rule stored its 128 bits as the length setting, which the Base provider refuses.
  EXPECT_TRUE(FailedWith(key->GenerateSessionKey(), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_CREATE_KEY, "QUIV.CSessionKey.GenerateSessionKey"));
  EXPECT_TRUE(Shows(key, "key len=128")) << Message(key);
  ASSERT_TRUE(key->SetKeyLength(0));
  EXPECT_TRUE(key->GenerateSessionKey()) << Message(key);  // in the Base provider's context
  EXPECT_EQ(KeyLength(key), 40);
  ASSERT_TRUE(key->Clear());
  base->TerminateAll();
}

// --- IHash ---

TEST_P(EveryProvider, TheHashableContractHandsOutTheKeyHandleOnly) {
  Ref<CSessionKey> key = NewKey();
  int16_t what = -1;
  ASSERT_TRUE(key->WhatToHash(what));
  EXPECT_EQ(what, SESSION_KEY);
  ByteArray data{1, 2};
  EXPECT_TRUE(FailedWith(key->GetDataAsByteArray(data), key->m_oLastError,
                         KEY_ERROR_THIS_METHOD_SHOULD_NEVER_BE_CALLED_FROM_A_SESSION_KEY_OBJECT,
                         "QUIV.CSessionKey.IHash_GetDataAsByteArray"));
  EXPECT_EQ(data, (ByteArray{1, 2}));
  ASSERT_TRUE(key->GenerateSessionKey());
  EXPECT_FALSE(key->GetDataAsByteArray(data));
  HCRYPTKEY fromHash = 0;
  HCRYPTKEY own = 0;
  const Ref<IHash> hashable = key;
  ASSERT_TRUE(hashable->GetSessionKeyHandle(fromHash));
  ASSERT_TRUE(Internal(key).GetKeyHandle(own));
  EXPECT_EQ(fromHash, own);
  EXPECT_NE(own, 0u);
}

// --- Permissions ---

TEST_F(SessionKeyBase, ThePermissionsOfAnEnhancedKeyShowWhetherItMayBeExported) {
  OpenEnhanced();
  Ref<CSessionKey> exportable = MakeKey(k.CALG_RC2());
  bool f[6] = {};
  ASSERT_TRUE(exportable->GetKeyPermissions(f[0], f[1], f[2], f[3], f[4], f[5]))
      << Message(exportable);
  EXPECT_TRUE(f[0]);  // encrypt
  EXPECT_TRUE(f[1]);  // decrypt
  EXPECT_TRUE(f[2]);  // export
  Ref<CSessionKey> sealed = NewKey();
  ASSERT_TRUE(sealed->SetUnloadable(false));
  ASSERT_TRUE(sealed->GenerateSessionKey());
  ASSERT_TRUE(sealed->GetKeyPermissions(f[0], f[1], f[2], f[3], f[4], f[5]));
  EXPECT_TRUE(f[0]);
  EXPECT_FALSE(f[2]);
}

TEST_F(SessionKeyBase, TheBaseProviderRefusesToReportPermissions) {
  OpenBase();
  Ref<CSessionKey> key = MakeKey(k.CALG_RC2());
  bool f[6] = {};
  EXPECT_TRUE(FailedWith(key->GetKeyPermissions(f[0], f[1], f[2], f[3], f[4], f[5]),
                         key->m_oLastError, KEY_ERROR_UNABLE_TO_SET_KEY_PERMISSIONS,
                         "QUIV.CSessionKey.SetKeyPermission"));
}

}  // namespace
}  // namespace quiv
