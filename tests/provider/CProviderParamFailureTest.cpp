// CProvider's parameter readers when the provider answers oddly: failing size queries and data
// calls, the numbers each id decodes to, and the enumeration loop behind GetProvParamList and
// GetListOfAlgorithms, through a scripted CryptGetProvParam.
#include "ProviderSessionFixture.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "automation/Dictionary.h"
#include "automation/RunTime.h"
#include "constants/CConstQUIV.h"
#include "errors/QuivError.h"
#include "provider/CAlgInfo.h"
#include "provider/CProvider.h"
#include "support/InternalAccess.h"
#include "support/RecordMatchers.h"

namespace quiv {
namespace {

using namespace std::string_literals;
using test::Enumeration;
using test::FailedWith;
using test::FakeProvParam;
using test::WithProvParam;

const CConstQUIV k;
const auto kFail = static_cast<DWORD>(k.NTE_FAIL());

// A zero-terminated name as an enumeration item.
std::vector<BYTE> Item(const std::string& name) {
  return std::vector<BYTE>(name.c_str(), name.c_str() + name.size() + 1);
}

class CProviderParamFailureTest : public test::ProviderSessionFixture {
 protected:
  void SetUp() override {
    ProviderSessionFixture::SetUp();
    ASSERT_TRUE(provider->LoadProvider());
  }
  const Ref<CErrHandler>& Record() const { return provider->m_oLastError; }

  // The list of `id` read while `enumeration` answers it.
  bool ListWith(int32_t id, Enumeration& enumeration, Dictionary& list) {
    return WithProvParam(id, enumeration.Answer(),
                         [&] { return Internal(provider).GetProvParamList(id, list); });
  }
  // GetProvParam of `id` while `answer` answers it.
  bool ReadWith(int32_t id, FakeProvParam::Answer answer, Variant& value) {
    return WithProvParam(id, std::move(answer),
                         [&] { return Internal(provider).GetProvParam(id, value); });
  }
};

// --- Single values --------------------------------------------------------------------------

TEST_F(CProviderParamFailureTest, EachReaderReportsAParameterItCannotRead) {
  String text;
  int32_t number = 0;
  const struct {
    int32_t id;
    std::function<bool()> read;
    const char* source;
  } readers[] = {
      {k.PP_NAME(), [&] { return provider->GetProviderName(text); },
       "QUIV.CProvider.GetProviderName"},
      {k.PP_PROVTYPE(), [&] { return provider->GetProviderTypeID(number); },
       "QUIV.CProvider.GetProviderTypeID"},
      {k.PP_VERSION(), [&] { return provider->GetProviderVersion(text); },
       "CProvider.GetProviderVersion"},
  };
  for (const auto& reader : readers) {
    EXPECT_TRUE(FailedWith(WithProvParam(reader.id, test::Refused(kFail), reader.read), Record(),
                           PROVIDER_ERROR_UNABLE_TO_GET_PROVIDER_PARAMETER, reader.source));
  }
}

TEST_F(CProviderParamFailureTest, ATypeCodeWithoutATypeIdFails) {
  String code;
  const auto read = [&] { return provider->GetProviderTypeCode(code); };
  EXPECT_TRUE(FailedWith(WithProvParam(k.PP_PROVTYPE(), test::Refused(kFail), read), Record(),
                         PROVIDER_ERROR_UNABLE_TO_GET_PROVIDER_TYPE_ID,
                         "QUIV.CProvider.GetProviderTypeCode"));
}

TEST_F(CProviderParamFailureTest, AFailedDataCallIsUnableToGetTheParameter) {
  Variant value;
  EXPECT_TRUE(FailedWith(ReadWith(k.PP_NAME(), test::DataCallRefused(16, kFail), value), Record(),
                         PROVIDER_ERROR_UNABLE_TO_GET_PROVIDER_PARAMETER,
                         "QUIV.CProvider.GetProvParam"));
}

TEST_F(CProviderParamFailureTest, TheRngAndKeySizeStepIdsAreCheckedNumbers) {
  for (const int32_t id :
       {k.PP_USE_HARDWARE_RNG(), k.PP_KEYX_KEYSIZE_INC(), k.PP_SIG_KEYSIZE_INC()}) {
    SCOPED_TRACE(id);
    Variant value;
    ASSERT_TRUE(ReadWith(id, test::FixedBytes({0x08, 0x01, 0x02, 0x03}), value));
    EXPECT_EQ(value.GetKind(), Variant::Kind::Long);
    EXPECT_EQ(value.ToLong(), 0x03020108);
    EXPECT_TRUE(FailedWith(ReadWith(id, test::FixedBytes({0, 0, 0, 0x80}), value), Record(),
                           kErrOverflow, "QUIV.CProvider.GetProvParam"));
  }
}

TEST_F(CProviderParamFailureTest, TheExtendedAlgorithmListIsRefusedLikeTheOthers) {
  Variant value;
  EXPECT_TRUE(FailedWith(Internal(provider).GetProvParam(k.PP_ENUMALGS_EX(), value), Record(),
                         PROVIDER_ERROR_USE_CPROVIDER_GETPROVPARAMLIST_INSTEAD,
                         "QUIV.CProvider.GetProvParam"));
}

// --- Lists ----------------------------------------------------------------------------------

TEST_F(CProviderParamFailureTest, AListSizeQueryFailingOtherwiseIsAMemoryError) {
  Enumeration refusing({}, kFail);  // the size query already meets the refusal
  Dictionary list;
  EXPECT_TRUE(FailedWith(ListWith(k.PP_ENUMCONTAINERS(), refusing, list), Record(),
                         GENERAL_ERROR_UNABLE_TO_GET_AVAILABLE_MEMORY,
                         "QUIV.CProvider.GetProvParamList"));
}

TEST_F(CProviderParamFailureTest, AnotherErrorInTheLoopBreaksTheList) {
  Enumeration enumeration{{Item("only")}, kFail};
  Dictionary list;
  EXPECT_TRUE(FailedWith(ListWith(k.PP_ENUMCONTAINERS(), enumeration, list), Record(),
                         PROVIDER_ERROR_UNABLE_TO_LOOP_THROUGH_CRYPTPROVPARAM,
                         "QUIV.CProvider.GetProvParamList"));
  EXPECT_EQ(list.Count(), 1u);
}

TEST_F(CProviderParamFailureTest, OnlyTheSizeQueryAndTheFirstItemAskWithCryptFirst) {
  Enumeration enumeration{{Item("first"), Item("xy"), Item("z")}};
  Dictionary list;
  ASSERT_TRUE(ListWith(k.PP_ENUMCONTAINERS(), enumeration, list));
  EXPECT_EQ(list.Count(), 3u);
  const auto first = static_cast<DWORD>(k.CRYPT_FIRST());
  // Size query, three items, the end.
  EXPECT_EQ(enumeration.flags, (std::vector<DWORD>{first, first, 0, 0, 0}));
}

TEST_F(CProviderParamFailureTest, EveryItemIsTheWholeBufferOfTheFirstQuery) {
  Enumeration enumeration{{Item("abcdef"), Item("xy")}};
  Dictionary list;
  ASSERT_TRUE(ListWith(k.PP_ENUMCONTAINERS(), enumeration, list));
  ASSERT_EQ(list.Count(), 2u);
  EXPECT_EQ(list.Item(int32_t{0}).ToByteArray(), ByteArray(Item("abcdef")));
  // The shorter second item lands over the first one's bytes, which stay behind it.
  const std::string second = "xy\0def\0"s;
  EXPECT_EQ(list.Item(int32_t{1}).ToByteArray(),
            ByteArray(std::vector<BYTE>(second.begin(), second.end())));
}

// --- The algorithm catalogue ----------------------------------------------------------------

TEST_F(CProviderParamFailureTest, AnUnreadableAlgorithmListFillsNoCatalogue) {
  Ref<CAlgInfo> info = MakeRef<CAlgInfo>();
  const auto fill = [&] { return provider->GetListOfAlgorithms(info); };
  EXPECT_TRUE(FailedWith(WithProvParam(k.PP_ENUMALGS_EX(), test::Refused(kFail), fill), Record(),
                         PROVIDER_ERROR_UNABLE_TO_GET_LIST_OF_PROVIDER_PARAMS,
                         "QUIV.CProvider.GetListOfAlgorithms"));
}

TEST_F(CProviderParamFailureTest, AnAlgorithmThatDoesNotFitFailsTheCatalogue) {
  Dictionary real;
  ASSERT_TRUE(Internal(provider).GetProvParamList(k.PP_ENUMALGS_EX(), real));
  ByteArray item = real.Item(int32_t{0}).ToByteArray();
  item[15] = 0x80;  // the top byte of dwMaxLen
  Enumeration enumeration{{std::vector<BYTE>(item.span().begin(), item.span().end())}};
  Ref<CAlgInfo> info = MakeRef<CAlgInfo>();
  const auto fill = [&] { return provider->GetListOfAlgorithms(info); };
  EXPECT_TRUE(FailedWith(WithProvParam(k.PP_ENUMALGS_EX(), enumeration.Answer(), fill), Record(),
                         PROVIDER_ERROR_UNABLE_TO_ASSIGN_PARAMETER_ARRAY,
                         "QUIV.CProvider.GetListOfAlgorithms"));
  EXPECT_TRUE(FailedWith(false, info->m_oLastError, kErrOverflow, "QUIV.CAlgInfo.SetAlgorithms"));
}

}  // namespace
}  // namespace quiv
