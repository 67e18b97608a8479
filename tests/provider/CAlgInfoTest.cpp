// CAlgInfo: the algorithm catalogue filled from the real providers, its filters and its cursor,
// and the provider's GetListOfAlgorithms that fills it.
#include "support/QuietLog.h"

#include "provider/CAlgInfo.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "automation/RunTime.h"
#include "automation/RuntimeError.h"
#include "constants/CConstQUIV.h"
#include "errors/QuivError.h"
#include "platform/PlatformSeam.h"
#include "provider/CProvider.h"
#include "support/InternalAccess.h"
#include "support/RecordMatchers.h"
#include "support/TempKeyStore.h"

namespace quiv {
namespace {

using test::FailedWith;

const CConstQUIV k;

// The providers' published lists, written out here from the provider documentation: id,
// default, minimum and maximum length, protocols, short and long name.
struct Expected {
  int32_t id;
  int32_t defaultLength;
  int32_t minLength;
  double maxLength;
  int32_t protocols;
  const char* code;
  const char* shortName;
  const char* longName;
};

const std::vector<Expected> kBase = {
    {0x6602, 40, 40, 56, 0, "CALG_RC2", "RC2", "RSA Data Security's RC2"},
    {0x6801, 40, 40, 56, 0, "CALG_RC4", "RC4", "RSA Data Security's RC4"},
    {0x6601, 56, 56, 56, 0, "CALG_DES", "DES", "Data Encryption Standard (DES)"},
    {0x8004, 160, 160, 160, 0x20, "CALG_SHA", "SHA-1", "Secure Hash Algorithm (SHA-1)"},
    {0x8001, 128, 128, 128, 0x20, "CALG_MD2", "MD2", "Message Digest 2 (MD2)"},
    {0x8002, 128, 128, 128, 0x20, "CALG_MD4", "MD4", "Message Digest 4 (MD4)"},
    {0x8003, 128, 128, 128, 0x20, "CALG_MD5", "MD5", "Message Digest 5 (MD5)"},
    {0x8008, 288, 288, 288, 0, "CALG_SSL3_SHAMD5", "SSL3 SHAMD5", "SSL3 SHAMD5"},
    {0x8005, 0, 0, 0, 0, "CALG_MAC", "MAC", "Message Authentication Code"},
    {0x2400, 512, 384, 16384, 0x30, "CALG_RSA_SIGN", "RSA_SIGN", "RSA Signature"},
    {0xA400, 512, 384, 1024, 0x30, "CALG_RSA_KEYX", "RSA_KEYX", "RSA Key Exchange"},
    {0x8009, 0, 0, 0, 0, "CALG_HMAC", "HMAC", "Hugo's MAC (HMAC)"},
};

class CAlgInfoTest : public ::testing::Test {
 protected:
  void Load(const String& name) {
    ASSERT_TRUE(provider->SetProviderTypeID(k.PROV_RSA_FULL()));
    if (!name.IsEmpty()) {
      ASSERT_TRUE(provider->SetProviderName(name));
    }
    ASSERT_TRUE(provider->LoadProvider());
    ASSERT_TRUE(provider->GetListOfAlgorithms(info))
        << provider->m_oLastError->LastError().ToUtf8();
  }
  void TearDown() override { provider->TerminateAll(); }

  // Every record from MoveFirst to EOF, by id.
  std::vector<int32_t> Walk() {
    std::vector<int32_t> ids;
    info->MoveFirst();
    while (!info->Eof()) {
      ids.push_back(info->AlgorithmID());
      info->MoveNext();
    }
    return ids;
  }

  test::QuietLog m_quiet;
  platform::ScopedPlatformOverride m_use{m_quiet};
  test::TempKeyStore store;
  Ref<CProvider> provider = CProvider::Create();
  Ref<CAlgInfo> info = MakeRef<CAlgInfo>();
};

TEST_F(CAlgInfoTest, TheBaseProvidersListRecordByRecord) {
  Load(k.MS_DEF_PROV());
  ASSERT_EQ(info->AlgCount(), static_cast<int32_t>(kBase.size()));
  info->MoveFirst();
  for (const Expected& e : kBase) {
    SCOPED_TRACE(e.code);
    ASSERT_FALSE(info->Eof());
    EXPECT_EQ(info->AlgorithmID(), e.id);
    EXPECT_EQ(info->AlgorithmCode().ToUtf8(), e.code);
    EXPECT_EQ(info->DefaultLength(), e.defaultLength);
    EXPECT_EQ(info->MinLength(), e.minLength);
    EXPECT_EQ(info->MaxLength(), e.maxLength);
    EXPECT_EQ(info->NumProtocols(), e.protocols);
    EXPECT_EQ(info->ShortAlgorithmName().ToUtf8(), e.shortName);
    EXPECT_EQ(info->LongAlgorithmName().ToUtf8(), e.longName);
    info->MoveNext();
  }
  EXPECT_TRUE(info->Eof());
}

TEST_F(CAlgInfoTest, EnhancedAndTheDefaultProviderAddTheTripleDesKeys) {
  Load(k.MS_ENHANCED_PROV());
  const std::vector<int32_t> enhanced = Walk();
  EXPECT_EQ(enhanced.size(), 14u);
  EXPECT_EQ(enhanced[3], k.CALG_3DES_112());
  EXPECT_EQ(enhanced[4], k.CALG_3DES());
  info->MoveLast();
  EXPECT_EQ(info->AlgorithmCode().ToUtf8(), "CALG_HMAC");
  info->MovePrevious();
  EXPECT_EQ(info->AlgorithmCode().ToUtf8(), "CALG_RSA_KEYX");
  EXPECT_EQ(info->DefaultLength(), 1024);
  EXPECT_EQ(info->MaxLength(), 16384.0);
  info->MoveFirst();
  EXPECT_EQ(info->DefaultLength(), 128);  // RC2 on Enhanced

  Ref<CProvider> strong = CProvider::Create();
  ASSERT_TRUE(strong->SetProviderTypeID(k.PROV_RSA_FULL()));
  ASSERT_TRUE(strong->LoadProvider());
  Ref<CAlgInfo> other = MakeRef<CAlgInfo>();
  ASSERT_TRUE(strong->GetListOfAlgorithms(other));
  EXPECT_EQ(other->AlgCount(), 14);
  strong->TerminateAll();
}

TEST_F(CAlgInfoTest, AHashFilterKeepsOnlyHashes) {
  Load(k.MS_ENHANCED_PROV());
  ASSERT_TRUE(info->FilterAlgorithms(HASHES));
  const std::vector<int32_t> hashes = Walk();
  ASSERT_EQ(info->AlgCount(), 7);
  for (const int32_t id : hashes) EXPECT_EQ(id & 0xE000, k.ALG_CLASS_HASH());
  ASSERT_TRUE(info->FilterAlgorithms(SYMMETRIC_CIPHERS));
  EXPECT_EQ(info->AlgCount(), 5);
  // Filters start from the full list each time.
  ASSERT_TRUE(info->FilterAlgorithms(KEY_EXCHANGE_CIPHERS));
  EXPECT_EQ(info->AlgCount(), 1);
  EXPECT_EQ(info->AlgorithmID(), k.CALG_RSA_KEYX());
  ASSERT_TRUE(info->FilterAlgorithms(ALL_ALGORITHMS));
  EXPECT_EQ(info->AlgCount(), 14);
}

TEST_F(CAlgInfoTest, UnknownClassesAreRefusedAndTheViewStays) {
  Load(k.MS_DEF_PROV());
  ASSERT_TRUE(info->FilterAlgorithms(HASHES));
  for (const int32_t bad : {0, 16384, 57345}) {
    EXPECT_TRUE(FailedWith(info->FilterAlgorithms(bad), info->m_oLastError,
                           PROVIDER_ERROR_UNKNOWN_ALGORITHM_CLASS_SPECIFIED,
                           "QUIV.CAlgInfo.FilterAlgorithms"));
  }
  EXPECT_EQ(info->AlgCount(), 7);  // SHA, MD2, MD4, MD5, SSL3 SHAMD5, MAC, HMAC
}

TEST_F(CAlgInfoTest, AFilterThatMatchesNothingLeavesOneEmptyRecord) {
  Load(k.MS_DEF_PROV());
  // The Base list has no 3DES, but no class is empty there either: use a list of hashes only.
  Dictionary items;
  ASSERT_TRUE(Internal(provider).GetProvParamList(k.PP_ENUMALGS_EX(), items, 0));
  Dictionary hashesOnly;
  for (int32_t i = 3; i <= 6; ++i) hashesOnly.Add(i - 3, items.Item(i));
  ASSERT_TRUE(Internal(info).SetAlgorithms(hashesOnly));
  ASSERT_TRUE(info->FilterAlgorithms(SIGNATURE_CIPHERS));
  EXPECT_EQ(info->AlgCount(), 1);
  EXPECT_EQ(info->AlgorithmID(), 0);
  EXPECT_TRUE(info->AlgorithmCode().IsEmpty());
  EXPECT_TRUE(info->ShortAlgorithmName().IsEmpty());
}

TEST_F(CAlgInfoTest, TheCursorStopsAtEitherEndAndComesBack) {
  Load(k.MS_DEF_PROV());
  info->MoveLast();
  info->MoveNext();
  EXPECT_TRUE(info->Eof());
  EXPECT_EQ(info->AlgorithmID(), k.CALG_HMAC());
  info->MoveNext();
  EXPECT_TRUE(info->Eof());
  info->MovePrevious();  // back to the last record, not the one before
  EXPECT_FALSE(info->Eof());
  EXPECT_EQ(info->AlgorithmID(), k.CALG_HMAC());

  info->MoveFirst();
  info->MovePrevious();
  EXPECT_TRUE(info->Bof());
  EXPECT_EQ(info->AlgorithmID(), k.CALG_RC2());
  info->MoveNext();  // back to the first record, not the second
  EXPECT_FALSE(info->Bof());
  EXPECT_EQ(info->AlgorithmID(), k.CALG_RC2());
  info->MoveNext();
  EXPECT_EQ(info->AlgorithmID(), k.CALG_RC4());
}

TEST_F(CAlgInfoTest, ANameOfExactlyItsStoredLengthReadsItsTerminator) {
  Load(k.MS_DEF_PROV());
  info->MoveFirst();
  // "RSA Data Security's RC2" is 23 characters, stored with length 24: the 25th position read
  // is the byte after the terminator and does not reach the text.
  EXPECT_EQ(info->LongAlgorithmName().ToUtf8(), "RSA Data Security's RC2");
  // A hand-made item whose short name fills its field up to the stored length.
  Dictionary items;
  ASSERT_TRUE(Internal(provider).GetProvParamList(k.PP_ENUMALGS_EX(), items, 0));
  ByteArray item = items.Item(0).ToByteArray();
  const std::string name = "ABCDEFGHIJKLMNOPQRS";  // 19 characters and the terminator
  for (size_t i = 0; i < 20; ++i) item[24 + i] = i < name.size() ? name[i] : 0;
  item[20] = 20;
  Dictionary one;
  one.Add(0, item);
  ASSERT_TRUE(Internal(info).SetAlgorithms(one));
  info->MoveFirst();
  EXPECT_EQ(info->ShortAlgorithmName().ToUtf8(), name);
}

TEST_F(CAlgInfoTest, ALengthWithItsTopBitSetOverflows) {
  Load(k.MS_DEF_PROV());
  Dictionary items;
  ASSERT_TRUE(Internal(provider).GetProvParamList(k.PP_ENUMALGS_EX(), items, 0));
  ByteArray item = items.Item(0).ToByteArray();
  item[15] = 0x80;  // dwMaxLen
  Dictionary one;
  one.Add(0, item);
  EXPECT_TRUE(FailedWith(Internal(info).SetAlgorithms(one), info->m_oLastError, kErrOverflow,
                         "QUIV.CAlgInfo.SetAlgorithms"));
}

TEST_F(CAlgInfoTest, AnIdWithoutACodeNameFailsTheFill) {
  Load(k.MS_DEF_PROV());
  Dictionary items;
  ASSERT_TRUE(Internal(provider).GetProvParamList(k.PP_ENUMALGS_EX(), items, 0));
  ByteArray item = items.Item(0).ToByteArray();
  item[0] = 0x10;  // 0x6610 is no algorithm
  Dictionary one;
  one.Add(0, item);
  EXPECT_TRUE(FailedWith(Internal(info).SetAlgorithms(one), info->m_oLastError,
                         KEY_ERROR_UNABLE_TO_GET_KEY_ALGORITHM_CODE,
                         "QUIV.CAlgInfo.SetAlgorithms"));
}

TEST_F(CAlgInfoTest, AnEmptyListCannotBeSized) {
  Dictionary none;
  EXPECT_TRUE(FailedWith(Internal(info).SetAlgorithms(none), info->m_oLastError,
                         kErrSubscriptOutOfRange, "QUIV.CAlgInfo.SetAlgorithms"));
}

TEST_F(CAlgInfoTest, AnUnfilledCatalogueFailsItsGettersWithoutARecord) {
  try {
    (void)info->AlgCount();
    ADD_FAILURE() << "AlgCount succeeded";
  } catch (const RuntimeError& e) {
    EXPECT_EQ(e.Number(), kErrSubscriptOutOfRange);
  }
  EXPECT_THROW((void)info->AlgorithmID(), RuntimeError);
  EXPECT_THROW(info->MoveNext(), RuntimeError);
  EXPECT_TRUE(info->m_oLastError.IsNothing());
}

TEST_F(CAlgInfoTest, TheProviderNeedsAContextAndACatalogue) {
  EXPECT_TRUE(FailedWith(provider->GetListOfAlgorithms(info), provider->m_oLastError,
                         GENERAL_ERROR_NO_CONTEXT, "QUIV.CProvider.GetListOfAlgorithms"));
  ASSERT_TRUE(provider->SetProviderTypeID(k.PROV_RSA_FULL()));
  ASSERT_TRUE(provider->LoadProvider());
  Ref<CAlgInfo> nothing;
  EXPECT_TRUE(FailedWith(provider->GetListOfAlgorithms(nothing), provider->m_oLastError,
                         kErrObjectNotSet, "QUIV.CProvider.GetListOfAlgorithms"));
}

}  // namespace
}  // namespace quiv
