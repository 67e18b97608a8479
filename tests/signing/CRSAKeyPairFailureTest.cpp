// CRSAKeyPair: the failures the other key-pair tests leave out: signees that cannot say what they
// are or say something outside the enumeration, a session key the hash cannot take, the hash
// object's Clear refused before and after the signature, a platform without a known version
// code, negative hash identifiers, loads that cannot clear the old key, and LoadPublicKey's
// missing context check.

// The fakes use wincrypt macros, which the constants catalogue the fixture includes takes away.
#include "provider/ProviderFakes.h"
#include "support/PlatformSpy.h"
#include "support/RsaKeyPairFixture.h"

#include <gtest/gtest.h>

#include <cstdint>

#include "automation/ByteArray.h"
#include "constants/CConstQUIV.h"
#include "data/IHash.h"
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

using test::Call;
using test::FailedWith;
using test::PlatformSpy;

const CConstQUIV k;

// Every test of this file runs without writing the application log.
const auto* const kQuiet = ::testing::AddGlobalTestEnvironment(new test::QuietEnvironment);

// ---- signees ----

// Answers with IHash's own defaults: it cannot say what it is.
class Speechless final : public Object, public IHash {};

// Says it is `what` and offers the bytes of "abc".
class Claims final : public Object, public IHash {
 public:
  explicit Claims(int16_t what) : m_nWhat(what) {}
  bool WhatToHash(int16_t& o_nWhat) override {
    o_nWhat = m_nWhat;
    return true;
  }
  bool GetDataAsByteArray(ByteArray& o_abData) override {
    o_abData = ByteArray{'a', 'b', 'c'};
    return true;
  }

 private:
  int16_t m_nWhat;
};

// Lends the suite's context to calls made with none: a provider that never acquired one (its
// platform has no known version code) can then hash and import.
class LendsContext final : public platform::ForwardingPlatform {
 public:
  explicit LendsContext(HCRYPTPROV lent) : ForwardingPlatform(platform::Platform()), m_lent(lent) {}
  BOOL CryptCreateHash(HCRYPTPROV h, ALG_ID alg, HCRYPTKEY key, DWORD flags,
                       HCRYPTHASH* hash) override {
    return ForwardingPlatform::CryptCreateHash(Or(h), alg, key, flags, hash);
  }
  BOOL CryptImportKey(HCRYPTPROV h, const BYTE* data, DWORD length, HCRYPTKEY unwrap, DWORD flags,
                      HCRYPTKEY* key) override {
    return ForwardingPlatform::CryptImportKey(Or(h), data, length, unwrap, flags, key);
  }

 private:
  HCRYPTPROV Or(HCRYPTPROV h) const { return h == 0 ? m_lent : h; }
  HCRYPTPROV m_lent;
};

class CRSAKeyPairFailureTest : public test::RsaKeyPairFixture {
 protected:
  static void SetUpTestSuite() {
    RsaKeyPairFixture::SetUpTestSuite();
    GenerateSuiteKeys(512, 512);
  }

  // A block the container's signature key made over `text`.
  String SignedBlock(const std::string& text) {
    String block;
    EXPECT_TRUE(signer->Sign(Message(text), block, STRING_HEX));
    return block;
  }
  const Ref<CErrHandler>& Record() const { return signer->m_oLastError; }

  Ref<CRSAKeyPair> signer = ContainersPair(kSignature);  // a fresh object, so a fresh record
};

TEST_F(CRSAKeyPairFailureTest, ASigneeThatCannotSayWhatItIsIsRefused) {
  String block = u"kept";
  EXPECT_TRUE(FailedWith(signer->Sign(MakeRef<Speechless>(), block, STRING_HEX), Record(),
                         HASH_ERROR_UNABLE_TO_DETERMINE_WHAT_TO_HASH, "QUIV.CRSAKeyPair.Sign"));
  // VerifySignature asks nothing first: the hash object's refusal is all it reports.
  bool valid = true;
  EXPECT_TRUE(FailedWith(
      signer->VerifySignature(MakeRef<Speechless>(), SignedBlock("abc"), STRING_HEX, valid),
      Record(), HASH_ERROR_UNABLE_TO_HASH_THE_DATA, "QUIV.CRSAKeyPair.VerifySignature"));
  EXPECT_EQ(block, String(u"kept"));
}

TEST_F(CRSAKeyPairFailureTest, AKindOutsideTheEnumerationIsNothingToSignButIsVerifiedAsData) {
  for (const int16_t what : {int16_t{7}, int16_t{-1}, int16_t{42}}) {
    SCOPED_TRACE(what);
    String block;
    EXPECT_TRUE(FailedWith(signer->Sign(MakeRef<Claims>(what), block, STRING_HEX), Record(),
                           SIGNATURE_ERROR_UNABLE_TO_DETERMINE_WHAT_TO_SIGN,
                           "QUIV.CRSAKeyPair.Sign"));
  }
  // The hash object takes any such kind as data, so its bytes verify like message text.
  EXPECT_TRUE(Verifies(signer, MakeRef<Claims>(7), SignedBlock("abc")));
}

TEST_F(CRSAKeyPairFailureTest, ASessionKeyTheHashObjectCannotTakeIsReportedBySign) {
  const Ref<CSessionKey> key = SessionKey(k.CALG_RC4(), u"signed through its handle");
  String block;
  ASSERT_TRUE(signer->Sign(key, block, STRING_HEX));
  PlatformSpy spy;
  platform::ScopedPlatformOverride use(spy);
  spy.Break(Call::HashSessionKey, static_cast<DWORD>(k.NTE_BAD_KEY()));
  String again = u"kept";
  EXPECT_TRUE(FailedWith(signer->Sign(key, again, STRING_HEX), Record(),
                         HASH_ERROR_UNABLE_TO_HASH_SESSION_KEY, "QUIV.CRSAKeyPair.Sign"));
  bool valid = false;
  EXPECT_TRUE(FailedWith(signer->VerifySignature(key, block, STRING_HEX, valid), Record(),
                         HASH_ERROR_UNABLE_TO_HASH_THE_DATA, "QUIV.CRSAKeyPair.VerifySignature"));
  EXPECT_EQ(again, String(u"kept"));
}

TEST_F(CRSAKeyPairFailureTest, VerifyReportsAnyHasheeTheHashObjectRefusesAsData) {
  const String block = SignedBlock("abc");
  bool valid = true;
  // A key pair without a view, and a session key without a key.
  EXPECT_TRUE(
      FailedWith(signer->VerifySignature(ContainersPair(kExchange), block, STRING_HEX, valid),
                 Record(), HASH_ERROR_UNABLE_TO_HASH_THE_DATA, "QUIV.CRSAKeyPair.VerifySignature"));
  EXPECT_TRUE(FailedWith(signer->VerifySignature(MakeRef<CSessionKey>(), block, STRING_HEX, valid),
                         Record(), HASH_ERROR_UNABLE_TO_HASH_THE_DATA,
                         "QUIV.CRSAKeyPair.VerifySignature"));
  EXPECT_TRUE(valid);
}

TEST_F(CRSAKeyPairFailureTest, SignClearsTheHashObjectBeforeAndAfter) {
  PlatformSpy spy;
  platform::ScopedPlatformOverride use(spy);
  spy.Break(Call::DestroyHash, static_cast<DWORD>(k.NTE_BAD_HASH()));
  // After: the block is already out when the hash cannot be destroyed.
  String block;
  EXPECT_TRUE(FailedWith(signer->Sign(Message("abc"), block, STRING_HEX), Record(),
                         HASH_ERROR_UNABLE_TO_CLEAR_HASH_OBJECT, "QUIV.CRSAKeyPair.Sign"));
  // Before: the hash left behind cannot be cleared, so nothing is signed.
  String again = u"kept";
  EXPECT_TRUE(FailedWith(signer->Sign(Message("abc"), again, STRING_HEX), Record(),
                         HASH_ERROR_UNABLE_TO_CLEAR_HASH_OBJECT, "QUIV.CRSAKeyPair.Sign"));
  EXPECT_EQ(again, String(u"kept"));
  spy.Break(Call::None);
  EXPECT_TRUE(Verifies(s_signature, Message("abc"), block));
}

TEST_F(CRSAKeyPairFailureTest, VerifyClearsTheHashObjectBeforeAndAfter) {
  const String block = SignedBlock("abc");
  PlatformSpy spy;
  platform::ScopedPlatformOverride use(spy);
  spy.Break(Call::DestroyHash, static_cast<DWORD>(k.NTE_BAD_HASH()));
  // After: the verdict is already given when the hash cannot be destroyed.
  bool valid = false;
  EXPECT_TRUE(FailedWith(signer->VerifySignature(Message("abc"), block, STRING_HEX, valid),
                         Record(), HASH_ERROR_UNABLE_TO_CLEAR_HASH_OBJECT,
                         "QUIV.CRSAKeyPair.VerifySignature"));
  EXPECT_TRUE(valid);
  // Before: no verdict.
  valid = false;
  EXPECT_TRUE(FailedWith(signer->VerifySignature(Message("abc"), block, STRING_HEX, valid),
                         Record(), HASH_ERROR_UNABLE_TO_CLEAR_HASH_OBJECT,
                         "QUIV.CRSAKeyPair.VerifySignature"));
  EXPECT_FALSE(valid);
}

TEST_F(CRSAKeyPairFailureTest, WithoutAKnownVersionCodeNothingIsSignedOrVerified) {
  Ref<CProvider> unversioned;
  {
    test::FakeVersion noVersion(0, 0, 0, true);
    platform::ScopedPlatformOverride use(noVersion);
    unversioned = CProvider::Create();
  }
  ASSERT_EQ(Internal(unversioned).WinVer(), String());
  Internal(unversioned).SetHasContext(true);  // it can acquire none: the suite's is lent below
  LendsContext lends(Internal(s_provider).ContextHandle());
  platform::ScopedPlatformOverride use(lends);
  Ref<CRSAKeyPair> pair = Pair(unversioned, kSignature);
  String block = u"kept";
  EXPECT_FALSE(pair->Sign(Message("abc"), block, STRING_HEX));
  EXPECT_EQ(test::RecordSource(pair->m_oLastError), "QUIV.CRSAKeyPair.Sign");
  EXPECT_EQ(block, String(u"kept"));
  ASSERT_TRUE(pair->LoadPublicKey(PublicHex(s_signature), STRING_HEX));
  for (const bool given : {true, false}) {
    bool valid = given;
    EXPECT_TRUE(pair->VerifySignature(Message("abc"), u"0102", STRING_HEX, valid));
    EXPECT_EQ(valid, given);
  }
  pair->Clear();
  Internal(pair).Terminate();
  Internal(unversioned).SetHasContext(false);
  unversioned->TerminateAll();
}

TEST_F(CRSAKeyPairFailureTest, ANegativeHashIdentifierIsRefusedBySignAndByTheHashObject) {
  const String block = SignedBlock("abc");
  String out = u"kept";
  EXPECT_TRUE(FailedWith(signer->Sign(Message("abc"), out, STRING_HEX, kNegativeMd5), Record(),
                         HASH_ERROR_UNKNOWN_HASH_ALGORITHM_ID, "QUIV.CRSAKeyPair.Sign"));
  bool valid = false;
  EXPECT_TRUE(FailedWith(
      signer->VerifySignature(Message("abc"), block, STRING_HEX, valid, kNegativeMd5), Record(),
      HASH_ERROR_UNABLE_TO_SET_HASH_ALGORITHM_ID, "QUIV.CRSAKeyPair.VerifySignature"));
  EXPECT_FALSE(valid);
}

// ---- loads ----

TEST_F(CRSAKeyPairFailureTest, ALoadStopsWhenTheHeldKeyCannotBeCleared) {
  const String publicKey = PublicHex(s_signature);
  PlatformSpy spy;
  platform::ScopedPlatformOverride use(spy);
  spy.Break(Call::DestroyKey, static_cast<DWORD>(k.NTE_BAD_KEY()));
  EXPECT_TRUE(FailedWith(signer->LoadKeyPair(String(), CURRENT_KEY_CONTAINER), Record(),
                         KEY_ERROR_UNABLE_TO_CLEAR_OBJECT_OF_KEY_HANDLES,
                         "QUIV.CRSAKeyPair.LoadKeyPair"));
  EXPECT_TRUE(FailedWith(signer->LoadPublicKey(publicKey, STRING_HEX), Record(),
                         KEY_ERROR_UNABLE_TO_CLEAR_OBJECT_OF_KEY_HANDLES,
                         "QUIV.CRSAKeyPair.LoadPublicKey"));
  EXPECT_EQ(Contents(signer), KEY_PAIR);  // the old key is still held
}

TEST_F(CRSAKeyPairFailureTest, LoadPublicKeyMakesNoContextCheck) {
  Ref<CProvider> idle = CProvider::Create();
  Ref<CRSAKeyPair> pair = Pair(idle, kSignature);
  EXPECT_TRUE(FailedWith(pair->LoadKeyPair(PrivateHex(s_signature), STRING_HEX), pair->m_oLastError,
                         GENERAL_ERROR_NO_CONTEXT, "QUIV.CRSAKeyPair.LoadKeyPair"));
  // It goes on to the import, which the provider refuses without a context.
  EXPECT_TRUE(FailedWith(pair->LoadPublicKey(PublicHex(s_signature), STRING_HEX),
                         pair->m_oLastError, KEY_ERROR_UNABLE_TO_LOAD_RSA_KEY,
                         "QUIV.CRSAKeyPair.LoadPublicKey"));
  Internal(pair).Terminate();
  idle->TerminateAll();
}

}  // namespace
}  // namespace quiv
