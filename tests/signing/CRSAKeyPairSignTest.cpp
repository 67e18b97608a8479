// CRSAKeyPair signatures: Sign and VerifySignature through the key pair's own hash object, the
// hash algorithm argument, the signee kinds, the wide and narrow entry points the version code
// selects, and the platform's refusals, against the real software provider.

// The fakes use wincrypt macros, which the constants catalogue the fixture includes takes away.
#include "provider/ProviderFakes.h"
#include "support/RsaKeyPairFixture.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>

#include "automation/ByteArray.h"
#include "constants/CConstQUIV.h"
#include "data/CMessagetext.h"
#include "errors/QuivError.h"
#include "keys/CSessionKey.h"
#include "platform/ForwardingPlatform.h"
#include "platform/PlatformSeam.h"
#include "provider/CProvider.h"
#include "signing/CRSAKeyPair.h"
#include "support/InternalAccess.h"
#include "support/RecordMatchers.h"

namespace quiv {
namespace {

using test::FailedWith;
using test::FakeVersion;

const CConstQUIV k;

// Every test of this file runs without writing the application log.
const auto* const kQuiet = ::testing::AddGlobalTestEnvironment(new test::QuietEnvironment);

// ---- one-call fakes ----

// Counts the signature entry points of both forms.
class CountingEntryPoints final : public platform::ForwardingPlatform {
 public:
  CountingEntryPoints() : ForwardingPlatform(platform::Platform()) {}
  BOOL CryptSignHashA(HCRYPTHASH h, DWORD keySpec, LPCSTR d, DWORD f, BYTE* sig,
                      DWORD* len) override {
    ++signNarrow;
    return ForwardingPlatform::CryptSignHashA(h, keySpec, d, f, sig, len);
  }
  BOOL CryptSignHashW(HCRYPTHASH h, DWORD keySpec, LPCWSTR d, DWORD f, BYTE* sig,
                      DWORD* len) override {
    ++signWide;
    return ForwardingPlatform::CryptSignHashW(h, keySpec, d, f, sig, len);
  }
  BOOL CryptVerifySignatureA(HCRYPTHASH h, const BYTE* sig, DWORD len, HCRYPTKEY key, LPCSTR d,
                             DWORD f) override {
    ++verifyNarrow;
    return ForwardingPlatform::CryptVerifySignatureA(h, sig, len, key, d, f);
  }
  BOOL CryptVerifySignatureW(HCRYPTHASH h, const BYTE* sig, DWORD len, HCRYPTKEY key, LPCWSTR d,
                             DWORD f) override {
    ++verifyWide;
    return ForwardingPlatform::CryptVerifySignatureW(h, sig, len, key, d, f);
  }
  int signNarrow = 0, signWide = 0, verifyNarrow = 0, verifyWide = 0;
};

// Fails the n-th call (1-based) of CryptSignHashW with `code`.
class FailingSignHash final : public platform::ForwardingPlatform {
 public:
  FailingSignHash(int failingCall, DWORD code)
      : ForwardingPlatform(platform::Platform()), m_failingCall(failingCall), m_code(code) {}
  BOOL CryptSignHashW(HCRYPTHASH h, DWORD keySpec, LPCWSTR d, DWORD f, BYTE* sig,
                      DWORD* len) override {
    if (++m_calls == m_failingCall) {
      SetLastError(m_code);
      return FALSE;
    }
    return ForwardingPlatform::CryptSignHashW(h, keySpec, d, f, sig, len);
  }

 private:
  int m_calls = 0;
  int m_failingCall;
  DWORD m_code;
};

// CryptVerifySignatureW refused with a code other than a bad signature.
class FailingVerify final : public platform::ForwardingPlatform {
 public:
  FailingVerify() : ForwardingPlatform(platform::Platform()) {}
  BOOL CryptVerifySignatureW(HCRYPTHASH, const BYTE*, DWORD, HCRYPTKEY, LPCWSTR, DWORD) override {
    SetLastError(static_cast<DWORD>(k.NTE_BAD_KEY()));
    return FALSE;
  }
};

// ---- fixture: one provider, one 1024-bit signature pair in its container ----

class CRSAKeyPairSignTest : public test::RsaKeyPairFileFixture {
 protected:
  static void SetUpTestSuite() {
    RsaKeyPairFixture::SetUpTestSuite();
    if (HasFatalFailure()) return;
    // The container's signature key: Sign always uses the container's key of the object's key
    // specification, so no other test of this suite generates a signature key here.
    s_signer = Generated(kSignature, 1024);
    s_verifier = Pair(kSignature);
    ASSERT_TRUE(s_verifier->LoadPublicKey(PublicHex(s_signer), STRING_HEX));
  }
  static void TearDownTestSuite() {
    s_signer.SetNothing();
    s_verifier.SetNothing();
    RsaKeyPairFixture::TearDownTestSuite();
  }

  static inline Ref<CRSAKeyPair> s_signer;
  static inline Ref<CRSAKeyPair> s_verifier;
};

// ---- the defaults ----

TEST_F(CRSAKeyPairSignTest, TheDefaultIsAnMd5SignatureAsLongAsTheModulus) {
  Ref<CMessagetext> message = Message("the message to sign");
  String block;
  int32_t algorithm = -1;
  ASSERT_TRUE(s_signer->Sign(message, block, STRING_HEX, algorithm));
  EXPECT_EQ(algorithm, static_cast<int32_t>(k.CALG_MD5()));  // the caller's variable receives it
  EXPECT_EQ(block.Length(), 256u);                           // 128 bytes as hex
  EXPECT_TRUE(Verifies(s_signer, message, block));
  EXPECT_TRUE(Verifies(s_verifier, message, block));
  EXPECT_TRUE(Verifies(s_verifier, message, block, static_cast<int32_t>(k.CALG_MD5())));
  EXPECT_FALSE(Verifies(s_verifier, message, block, static_cast<int32_t>(k.CALG_SHA1())));
  EXPECT_TRUE(s_signer->m_oLastError.IsNothing());
}

TEST_F(CRSAKeyPairSignTest, SigningTwiceGivesTheSameBlockBecauseTheHashStartsAfresh) {
  Ref<CMessagetext> message = Message("deterministic");
  String first, second;
  ASSERT_TRUE(s_signer->Sign(message, first, STRING_HEX));
  ASSERT_TRUE(s_signer->Sign(message, second, STRING_HEX));
  EXPECT_EQ(first, second);  // PKCS #1 v1.5 (RFC 8017 section 8.2) has no random part
  String other;
  ASSERT_TRUE(s_signer->Sign(Message("deterministiC"), other, STRING_HEX));
  EXPECT_NE(first, other);
}

TEST_F(CRSAKeyPairSignTest, AChangedMessageIsAVerdictNotAFailure) {
  Ref<CMessagetext> message = Message("pay 100 to bob");
  String block;
  ASSERT_TRUE(s_signer->Sign(message, block, STRING_HEX));
  bool valid = true;
  ASSERT_TRUE(s_verifier->VerifySignature(Message("pay 900 to bob"), block, STRING_HEX, valid));
  EXPECT_FALSE(valid);
  EXPECT_TRUE(s_verifier->m_oLastError.IsNothing());
}

TEST_F(CRSAKeyPairSignTest, AChangedSignatureByteFailsTheCheck) {
  Ref<CMessagetext> message = Message("flip a bit");
  String block;
  ASSERT_TRUE(s_signer->Sign(message, block, STRING_HEX));
  std::u16string text = block.u16();
  text[10] = text[10] == u'0' ? u'1' : u'0';
  EXPECT_FALSE(Verifies(s_verifier, message, String(text)));
}

TEST_F(CRSAKeyPairSignTest, AShortSignatureFailsTheCheck) {
  Ref<CMessagetext> message = Message("half a signature");
  String block;
  ASSERT_TRUE(s_signer->Sign(message, block, STRING_HEX));
  EXPECT_FALSE(Verifies(s_verifier, message, block.Left(128)));
}

TEST_F(CRSAKeyPairSignTest, TheVerifierMustKnowTheHashAlgorithm) {
  Ref<CMessagetext> message = Message("sha signed");
  String block;
  ASSERT_TRUE(s_signer->Sign(message, block, STRING_HEX, static_cast<int32_t>(k.CALG_SHA1())));
  EXPECT_FALSE(Verifies(s_verifier, message, block));  // the default is MD5
  EXPECT_TRUE(Verifies(s_verifier, message, block, static_cast<int32_t>(k.CALG_SHA())));
  String md2;
  ASSERT_TRUE(s_signer->Sign(message, md2, STRING_HEX, static_cast<int32_t>(k.CALG_MD2())));
  EXPECT_TRUE(Verifies(s_verifier, message, md2, static_cast<int32_t>(k.CALG_MD2())));
  EXPECT_NE(md2, block);
}

// ---- the hash algorithm argument ----

TEST_F(CRSAKeyPairSignTest, ACipherAlgorithmIsRefusedBySignAndByTheHashObjectInVerify) {
  Ref<CRSAKeyPair> signer = ContainersPair(kSignature);
  Ref<CMessagetext> message = Message("rc4 is no hash");
  String block = u"untouched";
  const int32_t rc4 = static_cast<int32_t>(k.CALG_RC4());
  EXPECT_TRUE(FailedWith(signer->Sign(message, block, STRING_HEX, rc4), signer->m_oLastError,
                         HASH_ERROR_UNKNOWN_HASH_ALGORITHM_ID, "QUIV.CRSAKeyPair.Sign"));
  EXPECT_EQ(block, String(u"untouched"));
  const std::string text = signer->m_oLastError->LastError().ToUtf8();
  EXPECT_NE(text.find("(o_sSignatureBlock=untouched) (o_nSignatureBlockFormat=2) (i_lHashAlgID=" +
                      std::to_string(rc4) + ")"),
            std::string::npos)
      << text;

  String good;
  ASSERT_TRUE(signer->Sign(message, good, STRING_HEX));
  bool valid = true;
  EXPECT_TRUE(FailedWith(signer->VerifySignature(message, good, STRING_HEX, valid, rc4),
                         signer->m_oLastError, HASH_ERROR_UNABLE_TO_SET_HASH_ALGORITHM_ID,
                         "QUIV.CRSAKeyPair.VerifySignature"));
  EXPECT_TRUE(valid);
}

// ---- what may be signed ----

TEST_F(CRSAKeyPairSignTest, APublicKeyVerifiesButCannotSign) {
  String block;
  EXPECT_TRUE(FailedWith(
      s_verifier->Sign(Message("x1"), block, STRING_HEX), s_verifier->m_oLastError,
      KEY_ERROR_KEY_PAIR_OBJECT_CONTAINS_ONLY_A_PUBLIC_KEY_HANDLE, "QUIV.CRSAKeyPair.Sign"));
}

TEST_F(CRSAKeyPairSignTest, AKeyPairWithoutAViewCannotBeSigned) {
  Ref<CRSAKeyPair> subject = Generated(kExchange);
  String block;
  Ref<CRSAKeyPair> signer = ContainersPair(kSignature);
  EXPECT_TRUE(FailedWith(signer->Sign(subject, block, STRING_HEX), signer->m_oLastError,
                         SIGNATURE_ERROR_WHAT_TO_SIGN_NOT_SPECIFIED, "QUIV.CRSAKeyPair.Sign"));
}

TEST_F(CRSAKeyPairSignTest, AKeyPairsPublicViewIsSignedAsItsBlob) {
  Ref<CRSAKeyPair> subject = Generated(kExchange);
  String block;
  ASSERT_TRUE(s_signer->Sign(subject->PublicKey(), block, STRING_HEX));
  EXPECT_TRUE(Verifies(s_verifier, subject->PublicKey(), block));
  // The same bytes as message text verify too: what was signed is the STRING_VB form of the blob.
  String blobText;
  ASSERT_TRUE(subject->UnloadPublicKey(blobText, STRING_VB));
  Ref<CMessagetext> asText = MakeRef<CMessagetext>();
  ASSERT_TRUE(asText->SetMessageText(ByteArray(blobText.Bytes())));
  EXPECT_TRUE(Verifies(s_verifier, asText, block));
  // The private view is another blob, so the check fails.
  EXPECT_FALSE(Verifies(s_verifier, subject->PrivateKey(), block));
}

TEST_F(CRSAKeyPairSignTest, AOneByteMessageIsNoDataAndAnEmptyOneHasNone) {
  String block;
  Ref<CMessagetext> oneByte = MakeRef<CMessagetext>();
  ASSERT_TRUE(oneByte->SetMessageText(ByteArray{65}));
  Ref<CRSAKeyPair> signer = ContainersPair(kSignature);
  EXPECT_TRUE(FailedWith(signer->Sign(oneByte, block, STRING_HEX), signer->m_oLastError,
                         HASH_ERROR_UNABLE_TO_HASH_THE_DATA, "QUIV.CRSAKeyPair.Sign"));
  Ref<CRSAKeyPair> other = ContainersPair(kSignature);
  EXPECT_TRUE(FailedWith(other->Sign(MakeRef<CMessagetext>(), block, STRING_HEX),
                         other->m_oLastError, SIGNATURE_ERROR_UNABLE_TO_GET_DATA_TO_SIGN_OR_VERIFY,
                         "QUIV.CRSAKeyPair.Sign"));
  bool valid = true;
  EXPECT_TRUE(FailedWith(other->VerifySignature(oneByte, String(u"0102"), STRING_HEX, valid),
                         other->m_oLastError, HASH_ERROR_UNABLE_TO_HASH_THE_DATA,
                         "QUIV.CRSAKeyPair.VerifySignature"));
}

TEST_F(CRSAKeyPairSignTest, ASessionKeyIsSignedThroughItsHandle) {
  auto session = [](const String& phrase) {
    return SessionKey(static_cast<int32_t>(k.CALG_RC4()), phrase);
  };
  Ref<CSessionKey> key = session(u"signed session key");
  String block;
  ASSERT_TRUE(s_signer->Sign(key, block, STRING_HEX));
  EXPECT_TRUE(Verifies(s_verifier, key, block));
  EXPECT_FALSE(Verifies(s_verifier, session(u"another session key"), block));
  Ref<CRSAKeyPair> signer = ContainersPair(kSignature);
  EXPECT_TRUE(FailedWith(signer->Sign(session(String()), block, STRING_HEX), signer->m_oLastError,
                         HASH_ERROR_UNABLE_TO_GET_SESSION_KEY_HANDLE, "QUIV.CRSAKeyPair.Sign"));
}

// ---- the signature block ----

TEST_F(CRSAKeyPairSignTest, ABlockThatDoesNotLoadIsRefused) {
  Ref<CRSAKeyPair> verifier = ContainersPair(kSignature);
  bool valid = true;
  EXPECT_TRUE(
      FailedWith(verifier->VerifySignature(Message("message"), u"not hex", STRING_HEX, valid),
                 verifier->m_oLastError, SIGNATURE_ERROR_UNABLE_TO_LOAD_SIGNATURE_BLOCK,
                 "QUIV.CRSAKeyPair.VerifySignature"));
  EXPECT_TRUE(valid);
}

TEST_F(CRSAKeyPairSignTest, BlocksTravelInEveryFormat) {
  Ref<CMessagetext> message = Message("formats");
  String hex;
  ASSERT_TRUE(s_signer->Sign(message, hex, STRING_HEX));
  for (DATA_FORMAT format : {FILE_BINARY, FILE_HEX}) {
    SCOPED_TRACE(format);
    String path = PathString(format == FILE_BINARY ? "sig.bin" : "sig.hex");
    ASSERT_TRUE(s_signer->Sign(message, path, format));
    EXPECT_TRUE(Verifies(s_verifier, message, path, -1, format));
  }
  String vb;
  ASSERT_TRUE(s_signer->Sign(message, vb, STRING_VB));
  EXPECT_EQ(vb.ByteLength(), 128u);
  EXPECT_TRUE(Verifies(s_verifier, message, vb, -1, STRING_VB));
  String unloadable = u"kept";
  Ref<CRSAKeyPair> signer = ContainersPair(kSignature);
  EXPECT_TRUE(FailedWith(
      signer->Sign(message, unloadable, CURRENT_KEY_CONTAINER), signer->m_oLastError,
      DATA_FORMAT_ERROR_UNABLE_TO_CONVERT_BYTE_ARRAY_TO_DATA_FORMAT, "QUIV.CRSAKeyPair.Sign"));
}

// ---- keys ----

TEST_F(CRSAKeyPairSignTest, VerificationNeedsAKey) {
  Ref<CRSAKeyPair> empty = Pair(kSignature);
  bool valid = true;
  EXPECT_TRUE(FailedWith(empty->VerifySignature(Message("message"), u"0102", STRING_HEX, valid),
                         empty->m_oLastError, KEY_ERROR_KEY_PAIR_OBJECT_HAS_NO_KEYS,
                         "QUIV.CRSAKeyPair.VerifySignature"));
}

TEST_F(CRSAKeyPairSignTest, SigningNeedsAContext) {
  Ref<CProvider> idle = CProvider::Create();
  Ref<CRSAKeyPair> pair = Pair(idle, kSignature);
  String block;
  EXPECT_TRUE(FailedWith(pair->Sign(Message("message"), block, STRING_HEX), pair->m_oLastError,
                         GENERAL_ERROR_NO_CONTEXT, "QUIV.CRSAKeyPair.Sign"));
  Internal(pair).Terminate();
  idle->TerminateAll();
}

TEST_F(CRSAKeyPairSignTest, AnExchangePairSignsWithTheExchangeKey) {
  Ref<CRSAKeyPair> exchange = Pair(kExchange);
  ASSERT_TRUE(exchange->SetModulus(512));
  ASSERT_TRUE(exchange->GenerateKeyPair());
  Ref<CMessagetext> message = Message("signed by the exchange key");
  String block;
  ASSERT_TRUE(exchange->Sign(message, block, STRING_HEX));
  EXPECT_EQ(block.Length(), 128u);  // a 512-bit key: 64 bytes
  EXPECT_TRUE(Verifies(exchange, message, block));
  EXPECT_FALSE(Verifies(s_verifier, message, block.Left(128) + block.Left(128)));
}

TEST_F(CRSAKeyPairSignTest, SignUsesTheContainersKeyOfTheKeySpecificationNotTheObjectsHandle) {
  // A second container so the suite's signature key stays as it is.
  Ref<CProvider> provider = CProvider::Create();
  ASSERT_TRUE(OpenNewContainer(provider, u"second"));
  Ref<CRSAKeyPair> first = Pair(provider, kSignature);
  ASSERT_TRUE(first->SetModulus(512));
  ASSERT_TRUE(first->GenerateKeyPair());
  Ref<CRSAKeyPair> second = Pair(provider, kSignature);
  ASSERT_TRUE(second->SetModulus(512));
  ASSERT_TRUE(second->GenerateKeyPair());  // now the container's signature key
  Ref<CMessagetext> message = Message("whose key?");
  String block;
  ASSERT_TRUE(first->Sign(message, block, STRING_HEX));
  EXPECT_FALSE(Verifies(first, message, block));
  EXPECT_TRUE(Verifies(second, message, block));
  Internal(first).Terminate();
  Internal(second).Terminate();
  provider->TerminateAll();
}

// ---- entry points and platform refusals ----

TEST_F(CRSAKeyPairSignTest, TheNtFamilyUsesTheWideEntryPoints) {
  CountingEntryPoints counter;
  platform::ScopedPlatformOverride use(counter);
  Ref<CMessagetext> message = Message("wide");
  String block;
  ASSERT_TRUE(s_signer->Sign(message, block, STRING_HEX));
  EXPECT_TRUE(Verifies(s_verifier, message, block));
  EXPECT_EQ(counter.signWide, 2);  // size query, then the signature
  EXPECT_EQ(counter.verifyWide, 1);
  EXPECT_EQ(counter.signNarrow + counter.verifyNarrow, 0);
}

TEST_F(CRSAKeyPairSignTest, The9xFamilyUsesTheNarrowEntryPoints) {
  for (DWORD minor : {0u, 10u}) {  // "95", then "98"
    SCOPED_TRACE(minor);
    Ref<CProvider> provider;
    {
      FakeVersion nineX(1, 4, minor);
      platform::ScopedPlatformOverride use(nineX);
      provider = CProvider::Create();
    }
    ASSERT_TRUE(OpenNewContainer(provider, String(u"narrow") + String::FromInt(minor)));
    Ref<CRSAKeyPair> pair = Pair(provider, kSignature);
    ASSERT_TRUE(pair->SetModulus(512));
    ASSERT_TRUE(pair->GenerateKeyPair());
    CountingEntryPoints counter;
    platform::ScopedPlatformOverride use(counter);
    Ref<CMessagetext> message = Message("narrow");
    String block;
    ASSERT_TRUE(pair->Sign(message, block, STRING_HEX));
    EXPECT_TRUE(Verifies(pair, message, block));
    EXPECT_EQ(counter.signNarrow, 2);
    EXPECT_EQ(counter.verifyNarrow, 1);
    EXPECT_EQ(counter.signWide + counter.verifyWide, 0);
    Internal(pair).Terminate();
    provider->TerminateAll();
  }
}

TEST_F(CRSAKeyPairSignTest, ASizeQueryRefusedForAnotherReasonIsAMemoryFailure) {
  Ref<CRSAKeyPair> signer = ContainersPair(kSignature);
  FailingSignHash failing(1, static_cast<DWORD>(k.NTE_BAD_KEY()));
  platform::ScopedPlatformOverride use(failing);
  String block;
  EXPECT_TRUE(FailedWith(signer->Sign(Message("message"), block, STRING_HEX), signer->m_oLastError,
                         GENERAL_ERROR_UNABLE_TO_GET_AVAILABLE_MEMORY, "QUIV.CRSAKeyPair.Sign"));
  EXPECT_EQ(static_cast<uint32_t>(signer->m_oLastError->m_dblErrLastDLLError),
            static_cast<uint32_t>(k.NTE_BAD_KEY()));
}

TEST_F(CRSAKeyPairSignTest, ARefusedSignatureIsRecorded) {
  Ref<CRSAKeyPair> signer = ContainersPair(kSignature);
  FailingSignHash failing(2, static_cast<DWORD>(k.NTE_BAD_HASH()));
  platform::ScopedPlatformOverride use(failing);
  String block = u"kept";
  EXPECT_TRUE(FailedWith(signer->Sign(Message("message"), block, STRING_HEX), signer->m_oLastError,
                         SIGNATURE_ERROR_UNABLE_TO_SIGN_HASH, "QUIV.CRSAKeyPair.Sign"));
  EXPECT_EQ(block, String(u"kept"));
  // The next call starts from a cleared hash object and succeeds.
  platform::ScopedPlatformOverride real(platform::DefaultPlatform());
  EXPECT_TRUE(signer->Sign(Message("message"), block, STRING_HEX));
}

TEST_F(CRSAKeyPairSignTest, AVerificationRefusedForAnotherReasonIsAFailure) {
  Ref<CRSAKeyPair> verifier = ContainersPair(kSignature);
  Ref<CMessagetext> message = Message("message");
  String block;
  ASSERT_TRUE(verifier->Sign(message, block, STRING_HEX));
  FailingVerify failing;
  platform::ScopedPlatformOverride use(failing);
  bool valid = true;
  EXPECT_TRUE(FailedWith(verifier->VerifySignature(message, block, STRING_HEX, valid),
                         verifier->m_oLastError, KEY_ERROR_UNABLE_TO_VERIFY_SIGNATURE,
                         "QUIV.CRSAKeyPair.VerifySignature"));
  EXPECT_TRUE(valid);
}

// --- the hash algorithm's write-back and the variable's type ---

template <class Alg>
concept SignTakes = requires(CRSAKeyPair& pair, const Ref<IHash>& signee, String& block, Alg&& a) {
  pair.Sign(signee, block, STRING_HEX, std::forward<Alg>(a));
};
template <class Alg>
concept VerifyTakes = requires(CRSAKeyPair& pair, const Ref<IHash>& signee, bool& valid, Alg&& a) {
  pair.VerifySignature(signee, String(), STRING_HEX, valid, std::forward<Alg>(a));
};

// An int32_t variable receives CALG_MD5 for -1; constants and temporaries are read only.
static_assert(SignTakes<int32_t&> && VerifyTakes<int32_t&>);
static_assert(SignTakes<int32_t> && VerifyTakes<int32_t>);
static_assert(SignTakes<const int16_t&> && VerifyTakes<const int16_t&>);
// A variable of another type would silently miss the write-back: it does not compile.
static_assert(!SignTakes<int16_t&> && !VerifyTakes<int16_t&>);
static_assert(!SignTakes<int64_t&> && !VerifyTakes<int64_t&>);
static_assert(!SignTakes<uint32_t&> && !VerifyTakes<uint32_t&>);
static_assert(!SignTakes<ALG_ID&> && !VerifyTakes<ALG_ID&>);

}  // namespace
}  // namespace quiv
