// CAlgInfo's cursor across refills: SetAlgorithms keeps the cursor and EOF, a cursor left beyond
// a shorter list cannot move or read, and a failed fill keeps the view while the full list it
// started to fill shows through the next filter.
#include "ProviderSessionFixture.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <map>

#include "automation/Dictionary.h"
#include "automation/MapPageContext.h"
#include "automation/RunTime.h"
#include "automation/RuntimeError.h"
#include "constants/CConstQUIV.h"
#include "errors/QuivError.h"
#include "provider/CAlgInfo.h"
#include "provider/CProvider.h"
#include "support/InternalAccess.h"

namespace quiv {
namespace {

const CConstQUIV k;

// The getters and moves have no trap: their failures reach the caller as the run time's error.
::testing::AssertionResult Raises(int32_t number, const std::function<void()>& call) {
  try {
    call();
  } catch (const RuntimeError& e) {
    if (e.Number() == number) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "raised run-time error " << e.Number();
  }
  return ::testing::AssertionFailure() << "raised nothing";
}

class CAlgInfoCursorTest : public test::ProviderSessionFixture {
 protected:
  // The Base provider's twelve algorithms, raw and in the catalogue.
  void SetUp() override {
    ProviderSessionFixture::SetUp();
    ASSERT_TRUE(provider->SetProviderName(k.MS_DEF_PROV()));
    ASSERT_TRUE(provider->LoadProvider());
    ASSERT_TRUE(Internal(provider).GetProvParamList(k.PP_ENUMALGS_EX(), items, 0));
    ASSERT_EQ(items.Count(), 12u);
    ASSERT_TRUE(Internal(info).SetAlgorithms(items));
  }

  // The first `count` raw items, keyed from 0.
  void CopyFirst(int32_t count, Dictionary& into) {
    for (int32_t i = 0; i < count; ++i) into.Add(i, items.Item(i));
  }
  // The algorithm id of raw item `index` (its top byte is always 0).
  int32_t IdOf(int32_t index) {
    const ByteArray item = items.Item(index).ToByteArray();
    return item.At(0) | item.At(1) << 8 | item.At(2) << 16;
  }

  Ref<CAlgInfo> info = MakeRef<CAlgInfo>();
  Dictionary items;
};

TEST_F(CAlgInfoCursorTest, ACursorBeyondAShorterListCanNeitherMoveNorRead) {
  info->MoveLast();
  Dictionary two;
  CopyFirst(2, two);
  ASSERT_TRUE(Internal(info).SetAlgorithms(two));
  EXPECT_EQ(info->AlgCount(), 2);
  EXPECT_TRUE(Raises(kErrApplicationDefined, [&] { info->MoveNext(); }));
  EXPECT_TRUE(Raises(kErrApplicationDefined, [&] { info->MovePrevious(); }));
  EXPECT_TRUE(Raises(kErrSubscriptOutOfRange, [&] { (void)info->AlgorithmID(); }));
  EXPECT_TRUE(Raises(kErrSubscriptOutOfRange, [&] { (void)info->ShortAlgorithmName(); }));
  EXPECT_TRUE(Raises(kErrSubscriptOutOfRange, [&] { (void)info->MaxLength(); }));
  EXPECT_TRUE(info->m_oLastError.IsNothing());
  info->MoveLast();
  EXPECT_EQ(info->AlgorithmID(), IdOf(1));
}

TEST_F(CAlgInfoCursorTest, ARefillKeepsTheCursorAndEof) {
  info->MoveFirst();
  info->MoveNext();
  info->MoveNext();
  ASSERT_TRUE(Internal(info).SetAlgorithms(items));
  EXPECT_EQ(info->AlgorithmID(), IdOf(2));

  info->MoveLast();
  info->MoveNext();
  ASSERT_TRUE(info->Eof());
  ASSERT_TRUE(Internal(info).SetAlgorithms(items));
  EXPECT_TRUE(info->Eof());
  EXPECT_EQ(info->AlgorithmID(), IdOf(11));
}

TEST_F(CAlgInfoCursorTest, ARefillClearsBof) {
  info->MoveFirst();
  info->MovePrevious();
  ASSERT_TRUE(info->Bof());
  ASSERT_TRUE(Internal(info).SetAlgorithms(items));
  EXPECT_FALSE(info->Bof());
  info->MoveNext();  // from a cleared BOF the cursor moves on, not back to the first record
  EXPECT_EQ(info->AlgorithmID(), IdOf(1));
}

TEST_F(CAlgInfoCursorTest, AFailedFillKeepsTheViewButNotTheFullList) {
  ByteArray bad = items.Item(1).ToByteArray();
  bad[7] = 0x80;  // the top byte of dwDefaultLen
  Dictionary broken;
  CopyFirst(1, broken);
  broken.Add(1, bad);
  EXPECT_FALSE(Internal(info).SetAlgorithms(broken));
  EXPECT_EQ(info->AlgCount(), 12);
  // The full list was sized and filled up to the bad item: a filter copies it into the view.
  ASSERT_TRUE(info->FilterAlgorithms(ALL_ALGORITHMS));
  EXPECT_EQ(info->AlgCount(), 2);
  EXPECT_EQ(info->AlgorithmID(), IdOf(0));
  info->MoveNext();
  EXPECT_EQ(info->AlgorithmID(), 0);
  EXPECT_TRUE(info->ShortAlgorithmName().IsEmpty());
}

TEST_F(CAlgInfoCursorTest, OnStartPageMakesTheRecordAndHandsItThePage) {
  ASSERT_TRUE(info->m_oLastError.IsNothing());
  const std::map<String, String> variables{{u"PATH_INFO", u"/algs.asp"}};
  ASSERT_TRUE(info->OnStartPage(MakeRef<MapPageContext>(variables, String(u"c=3"))));
  ASSERT_FALSE(info->m_oLastError.IsNothing());
  EXPECT_FALSE(info->FilterAlgorithms(0));
  EXPECT_EQ(info->m_oLastError->m_sWebPageURL.ToUtf8(), "/algs.asp?c=3");
}

}  // namespace
}  // namespace quiv
