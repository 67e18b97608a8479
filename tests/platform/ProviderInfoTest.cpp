// ProviderInfo against the registered names and the PP_ENUMALGS(_EX) records the providers
// report.
#include "platform/ProviderInfo.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/VectorFile.h"

namespace quiv::platform {
namespace {

using test::VectorFile;

std::string HexOf(std::span<const uint8_t> bytes) {
  return VectorFile::EncodeHex(std::vector<uint8_t>(bytes.begin(), bytes.end()));
}

TEST(ProviderInfoTest, ExactNamesAndLengthsWithNul) {
  EXPECT_EQ(ProviderInfo::Of(ProviderKind::Base).name(),
            "Microsoft Base Cryptographic Provider v1.0");
  EXPECT_EQ(ProviderInfo::Of(ProviderKind::Enhanced).name(),
            "Microsoft Enhanced Cryptographic Provider v1.0");
  EXPECT_EQ(ProviderInfo::Of(ProviderKind::Strong).name(),
            "Microsoft Strong Cryptographic Provider");
  EXPECT_EQ(ProviderInfo::Of(ProviderKind::Base).name().size() + 1, 43u);
  EXPECT_EQ(ProviderInfo::Of(ProviderKind::Enhanced).name().size() + 1, 47u);
  EXPECT_EQ(ProviderInfo::Of(ProviderKind::Strong).name().size() + 1, 40u);
}

TEST(ProviderInfoTest, FindByNameIgnoresCase) {
  const ProviderInfo* base = ProviderInfo::FindByName(MS_DEF_PROV_A);
  ASSERT_NE(base, nullptr);
  EXPECT_EQ(base->kind(), ProviderKind::Base);
  EXPECT_EQ(ProviderInfo::FindByName("MICROSOFT ENHANCED CRYPTOGRAPHIC PROVIDER V1.0"),
            &ProviderInfo::Of(ProviderKind::Enhanced));
  EXPECT_EQ(ProviderInfo::FindByName("microsoft strong cryptographic provider"),
            &ProviderInfo::Of(ProviderKind::Strong));
  EXPECT_EQ(ProviderInfo::FindByName("Microsoft Strong Cryptographic Provider "), nullptr);
  EXPECT_EQ(ProviderInfo::FindByName("microsoft enhanced rsa and aes cryptographic provider"),
            &ProviderInfo::Of(ProviderKind::Aes));
  EXPECT_EQ(ProviderInfo::FindByName("Microsoft Enhanced DSS and Diffie-Hellman Cryptographic "
                                     "Provider"),
            nullptr);
  EXPECT_EQ(ProviderInfo::FindByName(""), nullptr);
}

TEST(ProviderInfoTest, DefaultIsStrong) {
  EXPECT_EQ(&ProviderInfo::Default(), &ProviderInfo::Of(ProviderKind::Strong));
}

std::vector<ALG_ID> Ids(const ProviderInfo& p) {
  std::vector<ALG_ID> ids;
  for (const AlgRecord& r : p.Algorithms()) ids.push_back(r.algid);
  return ids;
}

TEST(ProviderInfoTest, AlgorithmOrder) {
  const std::vector<ALG_ID> base = {CALG_RC2, CALG_RC4,      CALG_DES,      CALG_SHA,
                                    CALG_MD2, CALG_MD4,      CALG_MD5,      CALG_SSL3_SHAMD5,
                                    CALG_MAC, CALG_RSA_SIGN, CALG_RSA_KEYX, CALG_HMAC};
  const std::vector<ALG_ID> enhanced = {
      CALG_RC2, CALG_RC4, CALG_DES,         CALG_3DES_112, CALG_3DES,     CALG_SHA,      CALG_MD2,
      CALG_MD4, CALG_MD5, CALG_SSL3_SHAMD5, CALG_MAC,      CALG_RSA_SIGN, CALG_RSA_KEYX, CALG_HMAC};
  EXPECT_EQ(Ids(ProviderInfo::Of(ProviderKind::Base)), base);
  EXPECT_EQ(Ids(ProviderInfo::Of(ProviderKind::Enhanced)), enhanced);
  EXPECT_EQ(Ids(ProviderInfo::Of(ProviderKind::Strong)), enhanced);
}

TEST(ProviderInfoTest, LengthRanges) {
  const ProviderInfo& base = ProviderInfo::Of(ProviderKind::Base);
  const ProviderInfo& strong = ProviderInfo::Of(ProviderKind::Strong);
  const AlgRecord* rc2 = base.Find(CALG_RC2);
  ASSERT_NE(rc2, nullptr);
  EXPECT_EQ(rc2->defaultBits, 40u);
  EXPECT_EQ(rc2->minBits, 40u);
  EXPECT_EQ(rc2->maxBits, 56u);
  EXPECT_EQ(strong.Find(CALG_RC4)->defaultBits, 128u);
  EXPECT_EQ(strong.Find(CALG_RC4)->maxBits, 128u);
  EXPECT_EQ(base.Find(CALG_RSA_KEYX)->maxBits, 1024u);
  EXPECT_EQ(base.Find(CALG_RSA_SIGN)->defaultBits, 512u);
  EXPECT_EQ(strong.Find(CALG_RSA_KEYX)->maxBits, 16384u);
  EXPECT_EQ(strong.Find(CALG_RSA_SIGN)->defaultBits, 1024u);
  EXPECT_EQ(strong.Find(CALG_3DES)->defaultBits, 168u);
}

TEST(ProviderInfoTest, MissingAlgorithms) {
  const ProviderInfo& base = ProviderInfo::Of(ProviderKind::Base);
  EXPECT_EQ(base.Find(CALG_3DES), nullptr);
  EXPECT_EQ(base.Find(CALG_3DES_112), nullptr);
  for (const ALG_ID algid : {CALG_SHA_256, CALG_SHA_384, CALG_SHA_512, CALG_AES_128, CALG_RC5}) {
    EXPECT_EQ(ProviderInfo::Default().Find(algid), nullptr) << algid;
  }
  EXPECT_NE(base.Find(CALG_SHA1), nullptr);  // CALG_SHA and CALG_SHA1 are one id
}

// PROV_ENUMALGS: aiAlgid, dwBitLen, dwNameLen, szName[20], little-endian, no padding.
TEST(ProviderInfoTest, EnumAlgsRecordLayout) {
  const AlgRecord* rc2 = ProviderInfo::Of(ProviderKind::Base).Find(CALG_RC2);
  EXPECT_EQ(HexOf(ProviderInfo::EnumAlgsRecord(*rc2)),
            "02660000"
            "28000000"
            "04000000"
            "52433200000000000000000000000000"
            "00000000");
}

// PROV_ENUMALGS_EX: the 88-byte record with both names.
TEST(ProviderInfoTest, EnumAlgsExRecordLayout) {
  const AlgRecord* des3 = ProviderInfo::Of(ProviderKind::Enhanced).Find(CALG_3DES_112);
  ASSERT_NE(des3, nullptr);
  const std::string name = "3DES TWO KEY";
  const std::string longName = "Two Key Triple DES";
  std::vector<uint8_t> expected = {0x09, 0x66, 0, 0, 112, 0, 0, 0, 112, 0, 0, 0,
                                   112,  0,    0, 0, 0,   0, 0, 0, 13,  0, 0, 0};
  std::vector<uint8_t> field(20, 0);
  std::copy(name.begin(), name.end(), field.begin());
  expected.insert(expected.end(), field.begin(), field.end());
  expected.insert(expected.end(), {19, 0, 0, 0});
  std::vector<uint8_t> longField(40, 0);
  std::copy(longName.begin(), longName.end(), longField.begin());
  expected.insert(expected.end(), longField.begin(), longField.end());
  EXPECT_EQ(HexOf(ProviderInfo::EnumAlgsExRecord(*des3)), VectorFile::EncodeHex(expected));

  const AlgRecord* sha = ProviderInfo::Of(ProviderKind::Base).Find(CALG_SHA);
  const auto record = ProviderInfo::EnumAlgsExRecord(*sha);
  EXPECT_EQ(record[16], 0x20);  // signing protocol
  EXPECT_EQ(record[20], 6);     // "SHA-1" + NUL
  EXPECT_EQ(record[44], 30);    // "Secure Hash Algorithm (SHA-1)" + NUL
  const AlgRecord* keyx = ProviderInfo::Of(ProviderKind::Base).Find(CALG_RSA_KEYX);
  EXPECT_EQ(ProviderInfo::EnumAlgsExRecord(*keyx)[16], 0x30);
}

TEST(ProviderInfoTest, LongNamesFitTheirFields) {
  for (const ProviderKind kind : {ProviderKind::Base, ProviderKind::Enhanced}) {
    for (const AlgRecord& r : ProviderInfo::Of(kind).Algorithms()) {
      EXPECT_LT(r.name.size(), 20u);
      EXPECT_LT(r.longName.size(), 40u);
    }
  }
  EXPECT_EQ(ProviderInfo::Of(ProviderKind::Base).Find(CALG_HMAC)->longName, "Hugo's MAC (HMAC)");
}

TEST(ProviderInfoTest, AesProviderNamesTypeAndDefault) {
  const ProviderInfo& aes = ProviderInfo::Of(ProviderKind::Aes);
  EXPECT_EQ(aes.name(), "Microsoft Enhanced RSA and AES Cryptographic Provider");
  EXPECT_EQ(aes.name().size() + 1, 54u);
  EXPECT_EQ(aes.type(), static_cast<DWORD>(PROV_RSA_AES));
  EXPECT_EQ(ProviderInfo::DefaultFor(PROV_RSA_AES), &aes);
  EXPECT_EQ(ProviderInfo::DefaultFor(PROV_RSA_FULL), &ProviderInfo::Default());
  EXPECT_EQ(ProviderInfo::DefaultFor(12), nullptr);  // PROV_RSA_SCHANNEL is not built
  const ProviderInfo* prototype = ProviderInfo::FindByName(MS_ENH_RSA_AES_PROV_XP_A);
  ASSERT_NE(prototype, nullptr);
  EXPECT_NE(prototype, &aes);
  EXPECT_EQ(prototype->kind(), ProviderKind::Aes);
  EXPECT_EQ(prototype->name(), MS_ENH_RSA_AES_PROV_XP_A);
  EXPECT_EQ(prototype->type(), static_cast<DWORD>(PROV_RSA_AES));
  for (const ProviderKind kind :
       {ProviderKind::Base, ProviderKind::Enhanced, ProviderKind::Strong}) {
    EXPECT_EQ(ProviderInfo::Of(kind).type(), static_cast<DWORD>(PROV_RSA_FULL));
  }
  EXPECT_TRUE(aes.HasEnhancedSaltRules());
  EXPECT_TRUE(ProviderInfo::Of(ProviderKind::Enhanced).HasEnhancedSaltRules());
  EXPECT_FALSE(ProviderInfo::Of(ProviderKind::Strong).HasEnhancedSaltRules());
  EXPECT_FALSE(ProviderInfo::Of(ProviderKind::Base).HasEnhancedSaltRules());
}

TEST(ProviderInfoTest, AesProviderAlgorithms) {
  const ProviderInfo& aes = ProviderInfo::Of(ProviderKind::Aes);
  const ProviderInfo& enhanced = ProviderInfo::Of(ProviderKind::Enhanced);
  ASSERT_EQ(aes.Algorithms().size(), 20u);
  for (size_t i = 0; i < enhanced.Algorithms().size(); ++i) {
    EXPECT_EQ(HexOf(ProviderInfo::EnumAlgsExRecord(aes.Algorithms()[i])),
              HexOf(ProviderInfo::EnumAlgsExRecord(enhanced.Algorithms()[i])))
        << i;
  }
  for (const auto& [algid, bits] : {std::pair{CALG_AES_128, 128u}, std::pair{CALG_AES_192, 192u},
                                    std::pair{CALG_AES_256, 256u}, std::pair{CALG_SHA_256, 256u},
                                    std::pair{CALG_SHA_384, 384u}, std::pair{CALG_SHA_512, 512u}}) {
    const AlgRecord* record = aes.Find(algid);
    ASSERT_NE(record, nullptr) << algid;
    EXPECT_EQ(record->defaultBits, bits);
    EXPECT_EQ(record->minBits, bits);
    EXPECT_EQ(record->maxBits, bits);
  }
  EXPECT_EQ(aes.Find(CALG_AES), nullptr);
  EXPECT_EQ(aes.Find(CALG_RC5), nullptr);
  // "AES 128", 8 bytes with its NUL, and a 38-character long name in the 40-byte field.
  const auto record = ProviderInfo::EnumAlgsExRecord(*aes.Find(CALG_AES_128));
  EXPECT_EQ(HexOf(std::span(record).subspan(0, 24)),
            "0e6600008000000080000000800000000000000008000000");
}

}  // namespace
}  // namespace quiv::platform
