// CKeyTools: the paths the other key-tools tests leave out: the second read of a key parameter,
// a size query that already succeeds, the two low bytes of a number, KP_SALT, each refusal of
// ChangeKeyPermissions and GetKeyPermissions with the mask they write and read, a blob of the
// right class whatever its type, and OnStartPage. Keys come from session keys on the real
// provider; PlatformSpy breaks or answers single calls.
#include "support/PlatformSpy.h"

#include "keys/CKeyTools.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>

#include "automation/MapPageContext.h"
#include "constants/CConstQUIV.h"
#include "errors/QuivError.h"
#include "keys/CSessionKey.h"
#include "provider/CProvider.h"
#include "support/InternalAccess.h"
#include "support/RecordMatchers.h"
#include "support/SessionKeyFixture.h"

namespace quiv {
namespace {

using test::Call;
using test::FailedWith;
using test::PlatformSpy;

const CConstQUIV k;

// A permission set as the six flags, in the routines' order.
struct Permissions {
  bool encrypt = false, decrypt = false, exportable = false, read = false, write = false,
       mac = false;
};

class CKeyToolsFailureTest : public test::SessionKeyFixture {
 protected:
  void SetUp() override {
    OpenEnhanced();
    EXPECT_TRUE(Internal(MakeKey(k.CALG_RC4())).GetKeyHandle(key));
  }
  void TearDown() override {
    spy.Break(Call::None);  // the keys are cleared through the real calls
    nameless->TerminateAll();
    SessionKeyFixture::TearDown();
  }
  // ChangeKeyPermissions goes past its first step only when the provider cannot name itself.
  bool Change(HCRYPTKEY key, const Permissions& p) {
    return tools->ChangeKeyPermissions(nameless, key, p.encrypt, p.decrypt, p.exportable, p.read,
                                       p.write, p.mac);
  }
  bool Read(HCRYPTKEY key, Permissions& p) {
    return tools->GetKeyPermissions(provider, key, 0, p.encrypt, p.decrypt, p.exportable, p.read,
                                    p.write, p.mac);
  }
  const Ref<CErrHandler>& Record() const { return tools->m_oLastError; }

  PlatformSpy spy;  // every test's calls go through it; a test breaks or answers one
  platform::ScopedPlatformOverride m_useSpy{spy};
  HCRYPTKEY key = 0;                              // an RC4 key on the Enhanced provider
  Ref<CProvider> nameless = CProvider::Create();  // no context, so no name
  Ref<CKeyTools> tools = MakeRef<CKeyTools>();
};

// ---- GetKeyParam ----

TEST_F(CKeyToolsFailureTest, ASecondReadThePlatformRefusesIsItsOwnFailure) {
  spy.Break(Call::GetKeyParam, static_cast<DWORD>(k.NTE_BAD_KEY()),
            static_cast<DWORD>(k.KP_KEYLEN()), 1);  // the size query gets through
  Variant value;
  EXPECT_TRUE(FailedWith(tools->GetKeyParam(key, k.KP_KEYLEN(), value), Record(),
                         KEY_ERROR_CRYPTGETKEYPARAM_FAILED, "QUIV.CKeyTools.GetKeyParam"));
  EXPECT_EQ(static_cast<uint32_t>(Record()->m_dblErrLastDLLError),
            static_cast<uint32_t>(k.NTE_BAD_KEY()));
}

TEST_F(CKeyToolsFailureTest, ASizeQueryThatSucceedsKeepsTheOneByteBuffer) {
  // An unsalted key has an empty salt: the first call already succeeds with nothing to write.
  Variant value;
  ASSERT_TRUE(tools->GetKeyParam(key, k.KP_SALT(), value));
  EXPECT_EQ(value.ToByteArray(), ByteArray{0});
}

TEST_F(CKeyToolsFailureTest, ASaltComesBackAsAllItsBytes) {
  spy.answers[static_cast<DWORD>(k.KP_SALT())] = 0x04030201;
  Variant value;
  ASSERT_TRUE(tools->GetKeyParam(key, k.KP_SALT(), value));
  EXPECT_EQ(value.ToByteArray(), (ByteArray{1, 2, 3, 4}));
}

TEST_F(CKeyToolsFailureTest, OnlyTheTwoLowBytesOfANumberAreRead) {
  for (const int32_t param :
       {k.KP_ALGID(), k.KP_BLOCKLEN(), k.KP_KEYLEN(), k.KP_MODE(), k.KP_MODE_BITS(), k.KP_PADDING(),
        k.KP_EFFECTIVE_KEYLEN(), k.KP_PERMISSIONS()}) {
    SCOPED_TRACE(param);
    spy.answers[static_cast<DWORD>(param)] = 0x56781234;
    Variant value;
    ASSERT_TRUE(tools->GetKeyParam(key, param, value));
    EXPECT_EQ(value.ToLong(), 0x1234);
  }
}

// ---- ChangeKeyPermissions ----

TEST_F(CKeyToolsFailureTest, ADuplicateThatCannotBeDestroyedStopsThePermissionChange) {
  spy.Break(Call::DestroyKey, static_cast<DWORD>(k.NTE_BAD_KEY()));
  EXPECT_TRUE(FailedWith(Change(key, {.encrypt = true}), Record(), KEY_ERROR_UNABLE_TO_DESTROY_KEY,
                         "QUIV.CKeyTools.ChangeKeyPermissions"));
  EXPECT_TRUE(spy.Written(k.KP_PERMISSIONS()).empty());
}

TEST_F(CKeyToolsFailureTest, TheMaskGoesOutInTheLowByteOfFour) {
  const std::pair<Permissions, int32_t> cases[] = {
      {{}, 0},
      {{.encrypt = true}, k.CRYPT_ENCRYPT()},
      {{.decrypt = true, .write = true}, k.CRYPT_DECRYPT() | k.CRYPT_WRITE()},
      {{.exportable = true, .read = true, .mac = true},
       k.CRYPT_EXPORT() | k.CRYPT_READ() | k.CRYPT_MAC()},
      {{true, true, true, true, true, true}, 0x3F},
  };
  for (const auto& [flags, mask] : cases) {
    SCOPED_TRACE(mask);
    EXPECT_TRUE(Change(key, flags)) << Record()->LastError().ToUtf8();
    ASSERT_FALSE(spy.Written(k.KP_PERMISSIONS()).empty());
    // The DWORD read back from the four bytes: bytes 1 to 3 are zero.
    EXPECT_EQ(spy.Written(k.KP_PERMISSIONS()).back(), static_cast<DWORD>(mask));
  }
}

TEST_F(CKeyToolsFailureTest, ARefusedPermissionWriteIsItsOwnFailure) {
  spy.Break(Call::SetKeyParam, static_cast<DWORD>(k.NTE_BAD_DATA()),
            static_cast<DWORD>(k.KP_PERMISSIONS()));
  EXPECT_TRUE(FailedWith(Change(key, {.decrypt = true}), Record(),
                         KEY_ERROR_UNABLE_TO_SET_KEY_PERMISSIONS,
                         "QUIV.CKeyTools.ChangeKeyPermissions"));
}

// ---- GetKeyPermissions ----

TEST_F(CKeyToolsFailureTest, AnUnreadableMaskIsItsOwnFailure) {
  spy.Break(Call::GetKeyParam, static_cast<DWORD>(k.NTE_BAD_KEY()),
            static_cast<DWORD>(k.KP_PERMISSIONS()));
  Permissions read;
  EXPECT_TRUE(FailedWith(Read(key, read), Record(), KEY_ERROR_UNABLE_TO_GET_KEY_PERMISSIONS,
                         "QUIV.CKeyTools.GetKeyPermissions"));
}

TEST_F(CKeyToolsFailureTest, WriteAndMacAreReadFromTheirOwnBits) {
  const int32_t others = k.CRYPT_ENCRYPT() | k.CRYPT_DECRYPT() | k.CRYPT_EXPORT() | k.CRYPT_READ();
  for (const int32_t mask : {k.CRYPT_WRITE(), k.CRYPT_MAC(), others}) {
    SCOPED_TRACE(mask);
    spy.answers[static_cast<DWORD>(k.KP_PERMISSIONS())] = static_cast<DWORD>(mask);
    Permissions read;
    ASSERT_TRUE(Read(key, read));
    EXPECT_EQ(read.write, mask == k.CRYPT_WRITE());
    EXPECT_EQ(read.mac, mask == k.CRYPT_MAC());
    EXPECT_EQ(read.encrypt && read.decrypt && read.exportable && read.read, mask == others);
  }
}

// ---- ValidateBlob ----

// The header of a key blob of `type` holding algorithm `algId`.
ByteArray Header(int32_t type, int32_t algId) {
  return ByteArray{static_cast<uint8_t>(type),       2, 0, 0, static_cast<uint8_t>(algId),
                   static_cast<uint8_t>(algId >> 8), 0, 0};
}

TEST_F(CKeyToolsFailureTest, ABlobOfTheRightClassPassesWhateverItsType) {
  // A data-encryption class with the DSS type, and Diffie-Hellman as an exchange key.
  const int32_t oddCipher = k.ALG_CLASS_DATA_ENCRYPT() | k.ALG_TYPE_DSS() | 1;
  ByteArray blob = Header(k.SIMPLEBLOB(), oddCipher);
  int32_t algClass = k.ALG_CLASS_DATA_ENCRYPT();
  EXPECT_TRUE(tools->ValidateBlob(k.SIMPLEBLOB(), algClass, blob));
  blob = Header(k.PUBLICKEYBLOB(), k.CALG_DH_SF());
  algClass = k.AT_KEYEXCHANGE();
  EXPECT_TRUE(tools->ValidateBlob(k.PUBLICKEYBLOB(), algClass, blob));
  EXPECT_EQ(algClass, k.ALG_CLASS_KEY_EXCHANGE());
  EXPECT_TRUE(Record().IsNothing());
  // The same type under a class that does not match is refused for its type.
  blob = Header(k.PUBLICKEYBLOB(), oddCipher);
  algClass = k.AT_SIGNATURE();
  EXPECT_TRUE(FailedWith(
      tools->ValidateBlob(k.PUBLICKEYBLOB(), algClass, blob), Record(),
      DATA_FORMAT_ERROR_ATTEMPTED_TO_LOAD_KEY_ALGORITHM_TYPE_UNSUPPORTED_BY_PROV_RSA_FULL_PROVIDERS,
      "QUIV.CKeyTools.ValidateBlob"));
}

// ---- OnStartPage ----

TEST_F(CKeyToolsFailureTest, OnStartPageMakesTheRecordAndHandsItThePage) {
  const std::map<String, String> variables{{u"PATH_INFO", u"/tools.asp"}};
  ASSERT_TRUE(tools->OnStartPage(MakeRef<MapPageContext>(variables, String(u"t=1"))));
  ASSERT_FALSE(Record().IsNothing());
  String code;
  EXPECT_FALSE(tools->CipherMode_ID2Code(-1, code));  // a failure the record reports
  EXPECT_EQ(Record()->m_sWebPageURL.ToUtf8(), "/tools.asp?t=1");
}

}  // namespace
}  // namespace quiv
