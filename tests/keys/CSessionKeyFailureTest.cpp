// CSessionKey: the failures the other session-key tests leave out: key parameters the platform
// will not read (the key length of a non-RC2 key, the steps of the RC2 length rule, the block
// length in bytes, the cipher mode, the algorithm Encrypt asks for), an IV for a stream cipher,
// and LoadSessionKey's own steps: the old key that cannot be destroyed, an RC2 length that cannot
// be set after the import, and the flags the import is made with.
#include "support/PlatformSpy.h"

#include "keys/CSessionKey.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "constants/CConstQUIV.h"
#include "data/CMessagetext.h"
#include "errors/QuivError.h"
#include "signing/CRSAKeyPair.h"
#include "support/InternalAccess.h"
#include "support/RecordMatchers.h"
#include "support/SessionKeyFixture.h"

namespace quiv {
namespace {

using test::Call;
using test::FailedWith;
using test::PlatformSpy;

const CConstQUIV k;

class CSessionKeyFailureTest : public test::SessionKeyFixture {
 protected:
  void SetUp() override { OpenEnhanced(); }
  void TearDown() override {
    spy.Break(Call::None);  // the keys are cleared through the real calls
    if (!exchange.IsNothing()) {
      exchange->Clear();
      Internal(exchange).Terminate();
    }
    SessionKeyFixture::TearDown();
  }

  // Breaks the read of one key parameter.
  void BreakRead(int32_t param) {
    spy.Break(Call::GetKeyParam, static_cast<DWORD>(k.NTE_BAD_KEY()), static_cast<DWORD>(param));
  }
  // A new RC2 key wrapped for this session's own exchange key pair, as hex.
  String WrappedKey() {
    exchange = MakeRef<CRSAKeyPair>();
    EXPECT_TRUE(Internal(exchange).SetProvider(provider));
    EXPECT_TRUE(Internal(exchange).SetExOrSigKeyObject(static_cast<int16_t>(k.AT_KEYEXCHANGE())));
    EXPECT_TRUE(exchange->SetModulus(512));
    EXPECT_TRUE(exchange->GenerateKeyPair());
    String blob;
    EXPECT_TRUE(MakeKey(k.CALG_RC2())->UnloadSessionKey(exchange, blob, STRING_HEX));
    return blob;
  }
  static int32_t AlgorithmOf(const Ref<CSessionKey>& key) {
    int32_t algId = 0;
    EXPECT_TRUE(key->GetKeyAlgorithmID(algId)) << Message(key);
    return algId;
  }

  PlatformSpy spy;  // every test's calls go through it; a test breaks one
  platform::ScopedPlatformOverride m_useSpy{spy};
  Ref<CRSAKeyPair> exchange;
};

// ---- the held key's parameters ----

TEST_F(CSessionKeyFailureTest, ANonRC2KeyWhoseLengthCannotBeReadSaysSo) {
  for (const int32_t algId : {k.CALG_RC4(), k.CALG_DES()}) {
    SCOPED_TRACE(algId);
    Ref<CSessionKey> key = MakeKey(algId);
    BreakRead(k.KP_KEYLEN());
    int32_t bits = -3;
    EXPECT_TRUE(FailedWith(key->GetKeyLength(bits), key->m_oLastError,
                           KEY_ERROR_UNABLE_TO_GET_KEY_LENGTH, "QUIV.CSessionKey.GetKeyLength"));
    EXPECT_TRUE(Shows(key, "RC2 key:=False")) << Message(key);
    EXPECT_TRUE(Shows(key, "o_lKeyLen=-3")) << Message(key);
    spy.Break(Call::None);
  }
}

TEST_F(CSessionKeyFailureTest, TheRC2RuleStopsWhereTheKeysAlgorithmCannotBeRead) {
  Ref<CSessionKey> key = MakeKey(k.CALG_RC2());
  BreakRead(k.KP_ALGID());
  EXPECT_TRUE(FailedWith(Internal(key).IfRC2ChangeLength(), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_GET_KEY_ALGORITHM_ID,
                         "QUIV.CSessionKey.IfRC2ChangeLength"));
  EXPECT_TRUE(FailedWith(key->GenerateSessionKey(), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_SET_RC2_KEY_LENGTH,
                         "QUIV.CSessionKey.GenerateSessionKey"));
  HCRYPTKEY handle = 0;
  EXPECT_FALSE(Internal(key).GetKeyHandle(handle));
}

TEST_F(CSessionKeyFailureTest, TheRC2RuleStopsWhereTheEffectiveLengthCannotBeRead) {
  Ref<CSessionKey> rc2 = MakeKey(k.CALG_RC2());
  Ref<CSessionKey> rc4 = MakeKey(k.CALG_RC4());
  BreakRead(k.KP_EFFECTIVE_KEYLEN());
  EXPECT_TRUE(FailedWith(Internal(rc2).IfRC2ChangeLength(), rc2->m_oLastError,
                         KEY_ERROR_UNABLE_TO_GET_KEY_LENGTH, "QUIV.CSessionKey.IfRC2ChangeLength"));
  EXPECT_TRUE(Internal(rc4).IfRC2ChangeLength()) << Message(rc4);  // the length of RC2 keys only
}

TEST_F(CSessionKeyFailureTest, TheBlockLengthInBytesReportsItsOwnFailure) {
  Ref<CSessionKey> key = MakeKey(k.CALG_RC2());
  BreakRead(k.KP_BLOCKLEN());
  int32_t bytes = -5;
  EXPECT_TRUE(FailedWith(key->GetBlockLengthInBytes(bytes), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_GET_BLOCKLENGTH, "QUIV.CSessionKey.GetBlockLength"));
  EXPECT_EQ(bytes, -5);
}

TEST_F(CSessionKeyFailureTest, AModeThatCannotBeReadHasNoCode) {
  Ref<CSessionKey> key = MakeKey(k.CALG_RC2());
  BreakRead(k.KP_MODE());
  String code = u"kept";
  EXPECT_TRUE(FailedWith(key->GetCipherModeCode(code), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_GET_CIPHER_MODE_ID,
                         "QUIV.CSessionKey.GetCipherModeCode"));
  EXPECT_EQ(code, String(u"kept"));
}

TEST_F(CSessionKeyFailureTest, AnIVForAStreamCipherIsRefusedBeforeItIsRead) {
  Ref<CSessionKey> key = MakeKey(k.CALG_RC4());
  EXPECT_TRUE(FailedWith(key->LoadAndAddIV(u"no hex at all", STRING_HEX), key->m_oLastError,
                         KEY_ERROR_NOT_A_BLOCK_CIPHER, "QUIV.CSessionKey.LoadAndAddIV"));
  EXPECT_TRUE(Shows(key, "i_sIV=no hex at all")) << Message(key);
  EXPECT_TRUE(Shows(key, "i_nLoadFormat=2")) << Message(key);
  EXPECT_TRUE(spy.Written(k.KP_IV()).empty());
}

TEST_F(CSessionKeyFailureTest, EncryptStopsWhereTheKeysAlgorithmCannotBeRead) {
  Ref<CSessionKey> key = MakeKey(k.CALG_RC2());
  const std::string text = "plaintext that stays";
  const ByteArray plain(std::vector<uint8_t>(text.begin(), text.end()));
  Ref<CMessagetext> message = MakeRef<CMessagetext>();
  ASSERT_TRUE(message->SetMessageText(plain));
  BreakRead(k.KP_ALGID());
  EXPECT_TRUE(FailedWith(key->Encrypt(message, ENTIRE), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_GET_KEY_ALGORITHM_ID, "QUIV.CSessionKey.Encrypt"));
  EXPECT_TRUE(Shows(key, "Begin of ASCII of plntxt=plaintext ")) << Message(key);
  EXPECT_TRUE(Shows(key, "i_lAmount * i_lAmount=1")) << Message(key);
  ByteArray after;
  ASSERT_TRUE(message->GetMessageText(after));
  EXPECT_EQ(after, plain);
}

// ---- LoadSessionKey ----

TEST_F(CSessionKeyFailureTest, ALoadStopsWhenTheHeldKeyCannotBeDestroyed) {
  const String blob = WrappedKey();
  Ref<CSessionKey> key = MakeKey(k.CALG_RC4());
  spy.Break(Call::DestroyKey, static_cast<DWORD>(k.NTE_BAD_KEY()));
  EXPECT_TRUE(FailedWith(key->LoadSessionKey(exchange, blob, STRING_HEX), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_DESTROY_KEY, "QUIV.CSessionKey.LoadSessionKey"));
  EXPECT_TRUE(spy.importFlags.empty());
  EXPECT_EQ(AlgorithmOf(key), k.CALG_RC4());  // the old key is still the one held
}

TEST_F(CSessionKeyFailureTest, AnImportedKeyWhoseRC2LengthCannotBeSetStaysHeld) {
  const String blob = WrappedKey();
  Ref<CSessionKey> key = NewKey();
  spy.Break(Call::SetKeyParam, static_cast<DWORD>(k.NTE_BAD_DATA()),
            static_cast<DWORD>(k.KP_EFFECTIVE_KEYLEN()));
  EXPECT_TRUE(FailedWith(key->LoadSessionKey(exchange, blob, STRING_HEX), key->m_oLastError,
                         KEY_ERROR_UNABLE_TO_SET_RC2_KEY_LENGTH,
                         "QUIV.CSessionKey.LoadSessionKey"));
  EXPECT_EQ(AlgorithmOf(key), k.CALG_RC2());
}

TEST_F(CSessionKeyFailureTest, ImportedKeysAreUnsaltedAndExportableOnlyWhenUnloadable) {
  const String blob = WrappedKey();
  Ref<CSessionKey> open = NewKey();
  Ref<CSessionKey> sealed = NewKey();
  ASSERT_TRUE(sealed->SetUnloadable(false));
  ASSERT_TRUE(open->LoadSessionKey(exchange, blob, STRING_HEX)) << Message(open);
  ASSERT_TRUE(sealed->LoadSessionKey(exchange, blob, STRING_HEX)) << Message(sealed);
  const auto noSalt = static_cast<DWORD>(k.CRYPT_NO_SALT());
  EXPECT_EQ(spy.importFlags,
            (std::vector<DWORD>{static_cast<DWORD>(k.CRYPT_EXPORTABLE()) | noSalt, noSalt}));
}

}  // namespace
}  // namespace quiv
