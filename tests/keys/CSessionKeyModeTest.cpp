// CSessionKey: cipher mode and feedback by code and by number, the IV (random, loaded, unloaded)
// and random bytes, on every provider and with the platform refusing each step.
#include "support/QuietLog.h"

#include "keys/CSessionKey.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "automation/RunTime.h"
#include "constants/CConstQUIV.h"
#include "data/CMessagetext.h"
#include "errors/QuivError.h"
#include "platform/PlatformSeam.h"
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

// --- Cipher mode, feedback, IV ---

TEST_P(EveryProvider, CipherModesByCodeAndByNumber) {
  Ref<CSessionKey> key = MakeKey(k.CALG_RC2());
  String code;
  ASSERT_TRUE(key->GetCipherModeCode(code));
  EXPECT_EQ(code, String(u"CRYPT_MODE_CBC"));
  EXPECT_TRUE(key->ChangeCipherModeCode(u"CRYPT_MODE_CBC"));
  EXPECT_TRUE(FailedWith(key->ChangeCipherModeCode(u"crypt_mode_cbc"), key->m_oLastError,
                         KEY_ERROR_UNKNOWN_CIPHER_MODE, "QUIV.ChangeCipherModeCode"));
  EXPECT_TRUE(Shows(key, "i_sCipherModeCode=crypt_mode_cbc")) << Message(key);
  EXPECT_FALSE(key->ChangeCipherModeCode(u" CRYPT_MODE_ECB"));
  ASSERT_TRUE(key->ChangeCipherModeCode(u"CRYPT_MODE_ECB"));
  int32_t mode = 0;
  ASSERT_TRUE(key->GetCipherModeID(mode));
  EXPECT_EQ(mode, k.CRYPT_MODE_ECB());
  ASSERT_TRUE(key->GetCipherModeCode(code));
  EXPECT_EQ(code, String(u"CRYPT_MODE_ECB"));
  ASSERT_TRUE(key->ChangeCipherModeID(k.CRYPT_MODE_CFB()));
  ASSERT_TRUE(key->GetCipherModeCode(code));
  EXPECT_EQ(code, String(u"CRYPT_MODE_CFB"));
  ASSERT_TRUE(key->ChangeCipherModeCode(u"CRYPT_MODE_OFB"));
  ASSERT_TRUE(key->GetCipherModeID(mode));
  EXPECT_EQ(mode, k.CRYPT_MODE_OFB());
}

TEST_F(SessionKeyBase, ModeAndFeedbackValuesMustFitOneByte) {
  OpenEnhanced();
  Ref<CSessionKey> key = MakeKey(k.CALG_RC2());
  Spy spy;
  platform::ScopedPlatformOverride use(spy);
  EXPECT_TRUE(FailedWith(key->ChangeCipherModeID(256), key->m_oLastError, kErrOverflow,
                         "QUIV.CSessionKey.ChangeCipherModeID"));
  EXPECT_TRUE(Shows(key, "i_lCipherModeID=256")) << Message(key);
  EXPECT_TRUE(FailedWith(key->ChangeFeedbackBits(-1), key->m_oLastError, kErrOverflow,
                         "QUIV.CSessionKey.ChangeFeedbackBits"));
  EXPECT_TRUE(Shows(key, "i_lFeedbackBits=-1")) << Message(key);
  EXPECT_TRUE(spy.setParams.empty());  // refused before the platform was asked
  ASSERT_TRUE(key->ChangeFeedbackBits(8));
  int32_t bits = 0;
  ASSERT_TRUE(key->GetFeedbackBits(bits));
  EXPECT_EQ(bits, 8);
  EXPECT_EQ(spy.Written(k.KP_MODE_BITS()), std::vector<DWORD>{8});
}

TEST_F(SessionKeyBase, AModeTheTablesDoNotNameIsStoredButHasNoCode) {
  OpenEnhanced();
  Ref<CSessionKey> key = MakeKey(k.CALG_RC2());
  ASSERT_TRUE(key->ChangeCipherModeID(k.CRYPT_MODE_CTS())) << Message(key);
  int32_t mode = 0;
  ASSERT_TRUE(key->GetCipherModeID(mode));
  EXPECT_EQ(mode, k.CRYPT_MODE_CTS());
  String code = u"before";
  EXPECT_TRUE(FailedWith(key->GetCipherModeCode(code), key->m_oLastError,
                         KEY_ERROR_UNKNOWN_CIPHER_MODE, "QUIV.CSessionKey.GetCipherModeCode"));
}

TEST_F(SessionKeyBase, APlatformRefusalOfTheModeIsReported) {
  OpenEnhanced();
  Ref<CSessionKey> key = MakeKey(k.CALG_RC2());
  Spy spy;
  platform::ScopedPlatformOverride use(spy);
  spy.Break(Call::SetKeyParam);
  EXPECT_TRUE(FailedWith(key->ChangeCipherModeID(2), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_SET_CIPHER_MODE,
                         "QUIV.CSessionKey.ChangeCipherModeID"));
  EXPECT_TRUE(FailedWith(key->ChangeCipherModeCode(u"CRYPT_MODE_ECB"), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_SET_CIPHER_MODE, "QUIV.ChangeCipherModeCode"));
  EXPECT_TRUE(FailedWith(key->ChangeFeedbackBits(8), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_SET_FEEDBACK_BITS,
                         "QUIV.CSessionKey.ChangeFeedbackBits"));
}

TEST_P(EveryProvider, ARandomIVIsOneBlockOfABlockCipher) {
  Ref<CSessionKey> key = MakeKey(k.CALG_RC2());
  EXPECT_EQ(IV(key), "0000000000000000");
  ASSERT_TRUE(key->AddRandomIV()) << Message(key);
  const std::string first = IV(key);
  EXPECT_EQ(first.size(), 16u);
  EXPECT_NE(first, "0000000000000000");
  ASSERT_TRUE(key->AddRandomIV());
  EXPECT_NE(IV(key), first);

  Ref<CSessionKey> rc4 = MakeKey(k.CALG_RC4());
  EXPECT_TRUE(FailedWith(rc4->AddRandomIV(), rc4->m_oLastError, KEY_ERROR_NOT_A_BLOCK_CIPHER,
                         "QUIV.CSessionKey.AddRandomIV"));
  // The algorithm setting decides, not the key held.
  ASSERT_TRUE(key->SetKeyAlgorithmID(k.CALG_RC4()));
  EXPECT_TRUE(FailedWith(key->AddRandomIV(), key->m_oLastError, KEY_ERROR_NOT_A_BLOCK_CIPHER,
                         "QUIV.CSessionKey.AddRandomIV"));
}

TEST_F(SessionKeyBase, ARandomIVThatCannotBeMadeOrSetIsReported) {
  OpenEnhanced();
  Ref<CSessionKey> key = MakeKey(k.CALG_DES());
  Spy spy;
  platform::ScopedPlatformOverride use(spy);
  spy.Break(Call::GenRandom);
  EXPECT_TRUE(FailedWith(key->AddRandomIV(), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_GENERATE_RANDOM_IV, "QUIV.CSessionKey.AddRandomIV"));
  spy.Break(Call::SetKeyParam, static_cast<DWORD>(k.NTE_FAIL()), static_cast<DWORD>(k.KP_IV()));
  EXPECT_TRUE(FailedWith(key->AddRandomIV(), key->m_oLastError, KEY_ERROR_UNABLE_TO_ADD_IV,
                         "QUIV.CSessionKey.AddRandomIV"));
  EXPECT_TRUE(FailedWith(key->LoadAndAddIV(u"0102030405060708", STRING_HEX), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_ADD_IV, "QUIV.CSessionKey.LoadAndAddIV"));
  spy.Break(Call::GetKeyParam, static_cast<DWORD>(k.NTE_FAIL()),
            static_cast<DWORD>(k.KP_BLOCKLEN()));
  EXPECT_TRUE(FailedWith(key->AddRandomIV(), key->m_oLastError, KEY_ERROR_UNABLE_TO_GET_BLOCKLENGTH,
                         "QUIV.CSessionKey.AddRandomIV"));
}

TEST_P(EveryProvider, ALoadedIVMustBeExactlyOneBlock) {
  Ref<CSessionKey> key = MakeKey(k.CALG_RC2());
  const char* source = "QUIV.CSessionKey.LoadAndAddIV";
  const int32_t wrong = KEY_ERROR_INPUT_IV_PARAMETER_REJECTED_BECAUSE_LENGTH_IS_WRONG;
  EXPECT_TRUE(FailedWith(key->LoadAndAddIV(u"01020304050607", STRING_HEX), key->m_oLastError, wrong,
                         source));
  EXPECT_TRUE(Shows(key, "i_sIV=01020304050607")) << Message(key);
  EXPECT_TRUE(Shows(key, "i_nLoadFormat=2")) << Message(key);
  EXPECT_TRUE(FailedWith(key->LoadAndAddIV(u"010203040506070809", STRING_HEX), key->m_oLastError,
                         wrong, source));
  EXPECT_TRUE(FailedWith(key->LoadAndAddIV(u"nothex!!", STRING_HEX), key->m_oLastError,
                         DATA_FORMAT_ERROR_UNABLE_TO_LOAD, source));
  EXPECT_EQ(IV(key), "0000000000000000");
  ASSERT_TRUE(key->LoadAndAddIV(u"A1B2C3D4E5F60718", STRING_HEX)) << Message(key);
  EXPECT_EQ(IV(key), "A1B2C3D4E5F60718");
  // The IV changes what CBC makes of the same plaintext.
  const ByteArray withIV = EncryptOnce(key, m_sample);
  ASSERT_TRUE(key->LoadAndAddIV(u"0000000000000000", STRING_HEX));
  EXPECT_NE(EncryptOnce(key, m_sample), withIV);
}

TEST_F(SessionKeyBase, UnloadIVReportsUnderTheNeighbouringName) {
  OpenEnhanced();
  Ref<CSessionKey> key = MakeKey(k.CALG_RC2());
  String out = u"target";
  EXPECT_TRUE(FailedWith(key->UnloadIV(out, CURRENT_KEY_CONTAINER), key->m_oLastError,
                         DATA_FORMAT_ERROR_UNABLE_TO_UNLOAD, "QUIV.CSessionKey.GetCipherModeCode"));
  EXPECT_TRUE(Shows(key, "o_sIV=target")) << Message(key);
  EXPECT_TRUE(Shows(key, "i_nUnloadFormat=4")) << Message(key);
  Spy spy;
  platform::ScopedPlatformOverride use(spy);
  spy.Break(Call::GetKeyParam, static_cast<DWORD>(k.NTE_FAIL()), static_cast<DWORD>(k.KP_KEYLEN()));
  EXPECT_TRUE(FailedWith(key->UnloadIV(out, STRING_HEX), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_GET_BLOCKLENGTH,
                         "QUIV.CSessionKey.GetCipherModeCode"));
  spy.Break(Call::GetKeyParam, static_cast<DWORD>(k.NTE_FAIL()), static_cast<DWORD>(k.KP_IV()));
  EXPECT_TRUE(FailedWith(key->UnloadIV(out, STRING_HEX), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_GET_IV, "QUIV.CSessionKey.GetCipherModeCode"));
  EXPECT_EQ(out, String(u"target"));
}

TEST_P(EveryProvider, RandomBytesFillTheCallersArrayWithoutAKey) {
  Ref<CSessionKey> key = NewKey();
  ByteArray first(std::vector<uint8_t>(16, 0));
  ASSERT_TRUE(key->GetRandomBytes(first)) << Message(key);
  EXPECT_EQ(first.size(), 16u);
  ByteArray second(std::vector<uint8_t>(16, 0));
  ASSERT_TRUE(key->GetRandomBytes(second));
  EXPECT_NE(first, second);
  EXPECT_NE(first, ByteArray(std::vector<uint8_t>(16, 0)));
}

TEST_F(SessionKeyBase, RandomBytesThatCannotBeMadeLeaveOneElement) {
  OpenBase();
  Ref<CSessionKey> key = NewKey();
  Spy spy;
  platform::ScopedPlatformOverride use(spy);
  spy.Break(Call::GenRandom);
  ByteArray bytes(std::vector<uint8_t>(16, 7));
  EXPECT_TRUE(FailedWith(key->GetRandomBytes(bytes), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_GENERATE_RANDOM_BYTES,
                         "QUIV.CSessionKey.GetRandomBytes"));
  EXPECT_EQ(bytes.size(), 1u);
}

}  // namespace
}  // namespace quiv
