// CErrHandler: the record's fields, Clear, AddParam, LoadError's parsing, the assembled message
// (compared character for character, trailing blanks included) and the two log entries every
// LoadError writes, seen through a recording fake of the platform's log service.
#include "errors/CErrHandler.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <type_traits>
#include <vector>

#include "RecordingPlatform.h"
#include "automation/ByteArray.h"
#include "automation/Dictionary.h"
#include "automation/ErrObject.h"
#include "automation/MapPageContext.h"
#include "automation/RunTime.h"
#include "errors/CErrQUIV.h"
#include "errors/QuivError.h"
#include "platform/PlatformSeam.h"
#include "platform/wincrypt.h"

namespace quiv {
namespace {

using testing::RecordingPlatform;

constexpr uint32_t kErrorAccessDenied = 5;
constexpr uint32_t kNteNoKey = 0x8009000D;
const std::string kReportFailedEntry = "ReportErrorMessage failed. - CErrHandler.LoadError. ";

ErrObject MakeErr(int32_t number, const String& source, const String& description,
                  uint32_t lastDllError = 0) {
  ErrObject err;
  err.SetNumber(number);
  err.SetSource(source);
  err.SetDescription(description);
  err.SetLastDllError(lastDllError);
  return err;
}

// The run time's text for an object variable that is not set, as the first entry carries it.
std::string ObjectNotSetEntry() {
  return RuntimeDescription(kErrObjectNotSet).ToUtf8() + " - CErrHandler.ReportErrorMessage. ";
}

class PageThatFails final : public IPageContext {
 public:
  String ServerVariable(const String&) const override { RaiseRuntime(kErrInvalidProcedureCall); }
  String QueryString() const override { return String(); }
};

class CErrHandlerTest : public ::testing::Test {
 protected:
  // Loads a failure with no page context and no comment, as the library's traps do.
  void Load(int32_t number, const String& source, const String& description,
            uint32_t lastDllError = 0) {
    ErrObject err = MakeErr(number, u"QUIV", description, lastDllError);
    m_record->LoadError(err, source);
  }
  std::string Message() const { return m_record->LastError().ToUtf8(); }

  RecordingPlatform m_platform;
  platform::ScopedPlatformOverride m_use{m_platform};
  Ref<CErrHandler> m_record = MakeRef<CErrHandler>();
};

Ref<IPageContext> Page(const std::map<String, String>& variables, const String& query) {
  return MakeRef<MapPageContext>(variables, query);
}

// --- fields, Clear, AddParam ---

TEST_F(CErrHandlerTest, NewRecordIsEmptyWithWebRedirectFlagTrue) {
  const CErrHandler& r = *m_record;
  for (const String* field :
       {&r.m_sProjectName, &r.m_sClassName, &r.m_sRoutineName, &r.m_sDBConnectStr, &r.m_sDBLogin,
        &r.m_sDBPwd, &r.m_sComments, &r.m_sWebRedirectURL, &r.m_sWebPageURL, &r.m_sWebCookies,
        &r.m_sWebIP, &r.m_sErrSource, &r.m_sErrDescription, &r.m_sAPIError, &r.m_sQUIVError}) {
    EXPECT_TRUE(field->IsEmpty());
  }
  EXPECT_TRUE(r.m_fWebRedirectFlag);
  EXPECT_EQ(r.m_lErrNumber, 0);
  EXPECT_EQ(r.m_dblErrLastDLLError, 0.0);
  EXPECT_EQ(r.LastError(), String());
  EXPECT_EQ(r.TypeName(), String(u"CErrHandler"));
  EXPECT_TRUE(m_platform.m_entries.empty());
}

TEST_F(CErrHandlerTest, ClearResetsEveryFieldAndWebRedirectFlagReadsFalse) {
  CErrHandler& r = *m_record;
  for (String* field :
       {&r.m_sProjectName, &r.m_sClassName, &r.m_sRoutineName, &r.m_sDBConnectStr, &r.m_sDBLogin,
        &r.m_sDBPwd, &r.m_sComments, &r.m_sWebRedirectURL, &r.m_sWebPageURL, &r.m_sWebCookies,
        &r.m_sWebIP, &r.m_sErrSource, &r.m_sErrDescription, &r.m_sAPIError, &r.m_sQUIVError}) {
    *field = u"x";
  }
  r.m_lErrNumber = 3;
  r.m_dblErrLastDLLError = 4;
  r.Clear();
  for (const String* field :
       {&r.m_sProjectName, &r.m_sClassName, &r.m_sRoutineName, &r.m_sDBConnectStr, &r.m_sDBLogin,
        &r.m_sDBPwd, &r.m_sComments, &r.m_sWebRedirectURL, &r.m_sWebPageURL, &r.m_sWebCookies,
        &r.m_sWebIP, &r.m_sErrSource, &r.m_sErrDescription, &r.m_sAPIError, &r.m_sQUIVError}) {
    EXPECT_TRUE(field->IsEmpty());
  }
  EXPECT_FALSE(r.m_fWebRedirectFlag);
  EXPECT_EQ(r.m_lErrNumber, 0);
  EXPECT_EQ(r.m_dblErrLastDLLError, 0.0);
}

TEST_F(CErrHandlerTest, SecondAddParamWithTheSameNameRaises457ToTheCaller) {
  m_record->AddParam(u"i_sHex", u"0G");
  try {
    m_record->AddParam(u"i_sHex", u"11");
    FAIL() << "no error";
  } catch (const RuntimeError& e) {
    EXPECT_EQ(e.Number(), kErrDuplicateKey);
  }
  EXPECT_TRUE(m_platform.m_entries.empty());  // no trap: nothing is logged
}

TEST_F(CErrHandlerTest, ClearEmptiesTheParametersButKeepsTheMessage) {
  m_record->AddParam(u"a", u"1");
  Load(0, u"P.C.R", u"text");
  const std::string before = Message();
  ASSERT_EQ(before, "P.C.R (a=1) : Runtime error: text. ");
  m_record->Clear();
  EXPECT_EQ(Message(), before);
  m_record->AddParam(u"a", u"2");  // the name is free again
  Load(0, u"P.C.R", u"text");
  EXPECT_EQ(Message(), "P.C.R (a=2) : Runtime error: text. ");
}

TEST_F(CErrHandlerTest, ClearKeepsThePageContext) {
  m_record->OnStartPage(Page({}, u""));
  m_record->Clear();
  Load(0, u"P.C.R", u"");
  EXPECT_EQ(Message(), "P.C.R : Pg: ?. WSrvr: . Cookies: . ");
}

// --- LoadError: copying and parsing ---

TEST_F(CErrHandlerTest, LoadErrorCopiesTheErrorObjectAndClearsIt) {
  ErrObject err = MakeErr(-2147220972, u"QUIV", u"desc", kErrorAccessDenied);
  m_record->LoadError(err, u"QUIV.CConvert.LoadItem");
  EXPECT_EQ(m_record->m_lErrNumber, -2147220972);
  EXPECT_EQ(m_record->m_sErrSource, String(u"QUIV"));
  EXPECT_EQ(m_record->m_sErrDescription, String(u"desc"));
  EXPECT_EQ(m_record->m_dblErrLastDLLError, 5.0);
  EXPECT_EQ(err.Number(), 0);
  EXPECT_TRUE(err.Source().IsEmpty());
  EXPECT_TRUE(err.Description().IsEmpty());
  EXPECT_EQ(err.LastDllError(), 0u);
}

TEST_F(CErrHandlerTest, ThreePartSourceFillsProjectClassAndRoutine) {
  Load(0, u"QUIV.CConvert.LoadItem", u"d");
  EXPECT_EQ(m_record->m_sProjectName, String(u"QUIV"));
  EXPECT_EQ(m_record->m_sClassName, String(u"CConvert"));
  EXPECT_EQ(m_record->m_sRoutineName, String(u"LoadItem"));
}

TEST_F(CErrHandlerTest, RoutineNameMayHoldABlank) {
  Load(0, u"QUIV.CProvider.Get WinVer", u"d");
  EXPECT_EQ(m_record->m_sClassName, String(u"CProvider"));
  EXPECT_EQ(m_record->m_sRoutineName, String(u"Get WinVer"));
}

TEST_F(CErrHandlerTest, FourPartSourceGoesWholeIntoProjectName) {
  Load(0, u"QUIV.CConvert.LoadItem", u"d");
  Load(0, u"A.B.C.D", u"d");
  EXPECT_EQ(m_record->m_sProjectName, String(u"A.B.C.D"));
  EXPECT_TRUE(m_record->m_sClassName.IsEmpty());
  EXPECT_TRUE(m_record->m_sRoutineName.IsEmpty());
  EXPECT_EQ(Message(), "A.B.C.D.. : Runtime error: d. ");
}

TEST_F(CErrHandlerTest, TwoPartAndEmptySourcesGoWholeIntoProjectName) {
  Load(0, u"CErrHandler.LoadError", u"d");
  EXPECT_EQ(m_record->m_sProjectName, String(u"CErrHandler.LoadError"));
  EXPECT_TRUE(m_record->m_sClassName.IsEmpty());
  Load(0, u"", u"d");
  EXPECT_TRUE(m_record->m_sProjectName.IsEmpty());
  EXPECT_EQ(Message(), ".. : Runtime error: d. ");
}

TEST_F(CErrHandlerTest, LibraryRangeBoundsFillQuivError) {
  Load(-2147220992, u"P.C.R", u"");
  EXPECT_EQ(m_record->m_sQUIVError, String(u"(Undefined error, used in debugging.)"));
  Load(-2147155969, u"P.C.R", u"");
  EXPECT_FALSE(m_record->m_sQUIVError.IsEmpty());
  EXPECT_EQ(m_record->m_sQUIVError, CErrQUIV{}.LastError(-2147155969));
}

TEST_F(CErrHandlerTest, NumbersJustOutsideTheLibraryRangeLeaveQuivErrorEmpty) {
  Load(-2147220992, u"P.C.R", u"");
  Load(-2147220993, u"P.C.R", u"");
  EXPECT_TRUE(m_record->m_sQUIVError.IsEmpty());
  Load(-2147220992, u"P.C.R", u"");
  Load(-2147155968, u"P.C.R", u"");
  EXPECT_TRUE(m_record->m_sQUIVError.IsEmpty());
  Load(kErrObjectNotSet, u"P.C.R", u"");
  EXPECT_TRUE(m_record->m_sQUIVError.IsEmpty());
}

TEST_F(CErrHandlerTest, LastPlatformErrorZeroLeavesApiErrorEmpty) {
  Load(0, u"P.C.R", u"d", kErrorAccessDenied);
  ASSERT_FALSE(m_record->m_sAPIError.IsEmpty());
  Load(0, u"P.C.R", u"d", 0);
  EXPECT_TRUE(m_record->m_sAPIError.IsEmpty());
}

TEST_F(CErrHandlerTest, ApiErrorIsTheTrimmedName) {
  Load(0, u"P.C.R", u"d", kErrorAccessDenied);
  EXPECT_EQ(m_record->m_sAPIError, String(u"ERROR_ACCESS_DENIED"));
}

TEST_F(CErrHandlerTest, ProviderErrorsWidenAsSignedValues) {
  Load(0, u"P.C.R", u"d", kNteNoKey);
  EXPECT_EQ(m_record->m_dblErrLastDLLError, -2146893811.0);
  EXPECT_EQ(m_record->m_sAPIError, String(u"NTE_NO_KEY"));
}

TEST_F(CErrHandlerTest, CommentIsStored) {
  ErrObject err = MakeErr(0, u"QUIV", u"d");
  m_record->LoadError(err, u"P.C.R", Nothing, u"my note");
  EXPECT_EQ(m_record->m_sComments, String(u"my note"));
}

// --- the assembled message ---

TEST_F(CErrHandlerTest, MessageWithOnlyADescription) {
  Load(0, u"P.C.R", u"text");
  EXPECT_EQ(Message(), "P.C.R : Runtime error: text. ");
}

TEST_F(CErrHandlerTest, MessageWithNothingToSay) {
  Load(0, u"P.C.R", u"");
  EXPECT_EQ(Message(), "P.C.R : ");
}

TEST_F(CErrHandlerTest, MessageWithAStringParameterAndTheLibraryText) {
  m_record->AddParam(u"i_sHex", u"0G");
  Load(DATA_FORMAT_ERROR_INVALID_HEX_VALUE, u"QUIV.CConvert.DeHex", u"");
  EXPECT_EQ(Message(), "QUIV.CConvert.DeHex (i_sHex=0G) : DATA_FORMAT_ERROR_INVALID_HEX_VALUE. ");
}

TEST_F(CErrHandlerTest, MessageWithNumberParameters) {
  m_record->AddParam(u"i_lLong", int32_t{-26114});
  m_record->AddParam(u"i_nInt", int16_t{3});
  m_record->AddParam(u"d", 1.5);
  m_record->AddParam(u"zero", int32_t{0});
  Load(0, u"P.C.R", u"");
  EXPECT_EQ(Message(), "P.C.R (i_lLong=-26114) (i_nInt=3) (d=1.5) (zero=0) : ");
}

TEST_F(CErrHandlerTest, MessageWithAnEmptyStringParameter) {
  m_record->AddParam(u"Empty plaintext.", u"");
  Load(0, u"P.C.R", u"");
  EXPECT_EQ(Message(), "P.C.R (Empty plaintext.=) : ");
}

TEST_F(CErrHandlerTest, MessageWithAOneByteArrayParameter) {
  m_record->AddParam(u"name", ByteArray{7});
  Load(0, u"P.C.R", u"");
  EXPECT_EQ(Message(), "P.C.R (name contains single byte =7) : ");
}

TEST_F(CErrHandlerTest, TheClearedArrayFormPrintsAsASingleZeroByte) {
  m_record->AddParam(u"blob", ByteArray());
  Load(0, u"P.C.R", u"");
  EXPECT_EQ(Message(), "P.C.R (blob contains single byte =0) : ");
}

TEST_F(CErrHandlerTest, AnArrayWithNoElementsPrintsEmpty) {
  m_record->AddParam(u"none", ByteArray(std::vector<uint8_t>{}));
  Load(0, u"P.C.R", u"");
  EXPECT_EQ(Message(), "P.C.R (none=) : ");
}

TEST_F(CErrHandlerTest, MessageWithALongerArrayReadsItsBytesAsTwoByteCharacters) {
  m_record->AddParam(u"ab", ByteArray{'O', 0, 'K', 0});
  m_record->AddParam(u"wide", ByteArray{0x41, 0x42});  // one character, U+4241
  Load(0, u"P.C.R", u"");
  EXPECT_EQ(m_record->LastError(), String(u"P.C.R (ab=OK) (wide=\u4241) : "));
}

TEST_F(CErrHandlerTest, MessageWithAComment) {
  ErrObject err = MakeErr(0, u"QUIV", u"");
  m_record->LoadError(err, u"P.C.R", Nothing, u"note");
  EXPECT_EQ(Message(), "P.C.R : [note] ");
}

TEST_F(CErrHandlerTest, MessageWithAnApiName) {
  Load(0, u"P.C.R", u"", kErrorAccessDenied);
  EXPECT_EQ(Message(), "P.C.R : API error=ERROR_ACCESS_DENIED. ");
}

TEST_F(CErrHandlerTest, MessageWithTheThreeWebParts) {
  m_record->OnStartPage(Page({{u"PATH_INFO", u"/shop/pay.asp"},
                              {u"LOCAL_ADDR", u"10.0.0.5"},
                              {u"HTTP_COOKIE", u"sid=abc; lang=en"}},
                             u"order=17&x=1"));
  Load(0, u"P.C.R", u"");
  EXPECT_EQ(m_record->m_sWebPageURL, String(u"/shop/pay.asp?order=17&x=1"));
  EXPECT_EQ(m_record->m_sWebIP, String(u"10.0.0.5"));
  EXPECT_EQ(m_record->m_sWebCookies, String(u"sid=abc; lang=en"));
  EXPECT_EQ(Message(),
            "P.C.R : Pg: /shop/pay.asp?order=17&x=1. WSrvr: 10.0.0.5. Cookies: sid=abc; lang=en. ");
}

TEST_F(CErrHandlerTest, WebPartsAreWrittenEvenWhenEmptyAndTheQuestionMarkAlways) {
  m_record->OnStartPage(Page({{u"PATH_INFO", u"/a"}}, u""));
  Load(0, u"P.C.R", u"");
  EXPECT_EQ(Message(), "P.C.R : Pg: /a?. WSrvr: . Cookies: . ");
}

TEST_F(CErrHandlerTest, NoPageContextNoWebParts) {
  m_record->OnStartPage(Page({{u"PATH_INFO", u"/a"}}, u"q"));
  Load(0, u"P.C.R", u"");
  m_record->OnEndPage();
  Load(0, u"P.C.R", u"d");
  EXPECT_EQ(Message(), "P.C.R : Runtime error: d. ");
  // The fields read from the page last time are not reset by a load without one.
  EXPECT_EQ(m_record->m_sWebPageURL, String(u"/a?q"));
}

TEST_F(CErrHandlerTest, EveryPartInOrder) {
  m_record->OnStartPage(
      Page({{u"PATH_INFO", u"/p"}, {u"LOCAL_ADDR", u"::1"}, {u"HTTP_COOKIE", u"c=1"}}, u"q=2"));
  m_record->AddParam(u"s", u"v");
  m_record->AddParam(u"n", int32_t{9});
  m_record->AddParam(u"e", u"");
  m_record->AddParam(u"b", ByteArray{200});
  ErrObject err = MakeErr(DATA_FORMAT_ERROR_INVALID_HEX_VALUE, u"QUIV", u"Overflow", 87);
  m_record->LoadError(err, u"QUIV.CConvert.DeHex", Nothing, u"why");
  EXPECT_EQ(Message(),
            "QUIV.CConvert.DeHex (s=v) (n=9) (e=) (b contains single byte =200) : [why] "
            "DATA_FORMAT_ERROR_INVALID_HEX_VALUE. Runtime error: Overflow. "
            "API error=ERROR_INVALID_PARAMETER. Pg: /p?q=2. WSrvr: ::1. Cookies: c=1. ");
}

TEST_F(CErrHandlerTest, ParametersOfAnEarlierFailurePrintAgainUntilClear) {
  m_record->AddParam(u"first", u"1");
  Load(0, u"P.C.R", u"a");
  m_record->AddParam(u"second", u"2");
  Load(0, u"P.C.S", u"b");
  EXPECT_EQ(Message(), "P.C.S (first=1) (second=2) : Runtime error: b. ");
  m_record->Clear();
  Load(0, u"P.C.T", u"c");
  EXPECT_EQ(Message(), "P.C.T : Runtime error: c. ");
}

TEST_F(CErrHandlerTest, LastErrorKeepsTheMessageAfterClear) {
  Load(0, u"P.C.R", u"text");
  m_record->Clear();
  EXPECT_EQ(Message(), "P.C.R : Runtime error: text. ");
}

// --- the log ---

TEST_F(CErrHandlerTest, EachLoadErrorWritesExactlyTwoEntries) {
  Load(0, u"P.C.R", u"text");
  ASSERT_EQ(m_platform.m_entries.size(), 2u);
  EXPECT_EQ(m_platform.m_entries[0].m_sText, ObjectNotSetEntry());
  EXPECT_TRUE(m_platform.m_entries[0].m_sText.ends_with("CErrHandler.ReportErrorMessage. "));
  EXPECT_EQ(m_platform.m_entries[1].m_sText, kReportFailedEntry);
  for (const auto& entry : m_platform.m_entries) {
    EXPECT_EQ(entry.m_type, platform::LogEventType::Error);
  }
  // Logging is started anew for each entry, with the literal path; the NT-family version code
  // picks the system log.
  ASSERT_EQ(m_platform.m_starts.size(), 2u);
  for (const auto& start : m_platform.m_starts) {
    EXPECT_EQ(start.m_sPath, "c:\\cryptoerr.log");
    EXPECT_EQ(start.m_mode, platform::LogMode::SystemLog);
  }
  Load(0, u"P.C.R", u"again");
  EXPECT_EQ(m_platform.m_entries.size(), 4u);
  EXPECT_EQ(m_platform.m_entries[3].m_sText, kReportFailedEntry);
}

TEST_F(CErrHandlerTest, NineXFamilyLogsToTheNamedFile) {
  m_platform.m_platformId = VER_PLATFORM_WIN32_WINDOWS;
  Load(0, u"P.C.R", u"text");
  ASSERT_EQ(m_platform.m_starts.size(), 2u);
  EXPECT_EQ(m_platform.m_starts[0].m_mode, platform::LogMode::File);
  EXPECT_EQ(m_platform.m_starts[0].m_sPath, "c:\\cryptoerr.log");
  EXPECT_EQ(m_platform.m_entries.size(), 2u);
}

TEST_F(CErrHandlerTest, TheRecordKeepsItsFieldsAfterLoadError) {
  m_record->AddParam(u"p", u"v");
  Load(-2147220972, u"QUIV.CConvert.DeHex", u"text", kErrorAccessDenied);
  EXPECT_EQ(m_record->m_lErrNumber, -2147220972);
  EXPECT_EQ(m_record->m_sRoutineName, String(u"DeHex"));
  EXPECT_TRUE(m_record->m_fWebRedirectFlag);  // Clear was not reached
  // ... and the parameter map too: the same name cannot be added again.
  EXPECT_THROW(m_record->AddParam(u"p", u"w"), RuntimeError);
}

TEST_F(CErrHandlerTest, ReportErrorMessageFailsOnTheUnassignedProviderAndLogsOnce) {
  m_record->m_sProjectName = u"kept";
  EXPECT_FALSE(m_record->ReportErrorMessage());
  ASSERT_EQ(m_platform.m_entries.size(), 1u);
  EXPECT_EQ(m_platform.m_entries[0].m_sText, ObjectNotSetEntry());
  EXPECT_EQ(m_record->m_sProjectName, String(u"kept"));
}

TEST_F(CErrHandlerTest, ALogThatCannotStartDoesNotReachTheCaller) {
  m_platform.m_startFailure = ERROR_ACCESS_DENIED;
  Load(0, u"P.C.R", u"text");
  EXPECT_TRUE(m_platform.m_entries.empty());
  EXPECT_EQ(m_platform.m_starts.size(), 2u);  // each trap tried once
  EXPECT_EQ(Message(), "P.C.R : Runtime error: text. ");
}

TEST_F(CErrHandlerTest, ALogThatCannotWriteDoesNotReachTheCaller) {
  m_platform.m_eventFailure = ERROR_ACCESS_DENIED;
  Load(0, u"P.C.R", u"text");
  EXPECT_TRUE(m_platform.m_entries.empty());
  EXPECT_EQ(m_record->m_sClassName, String(u"C"));
}

TEST_F(CErrHandlerTest, AParameterWithoutTextOrBytesFailsTheAssembly) {
  m_record->AddParam(u"ok", u"1");
  m_record->AddParam(u"empty", Variant());  // Empty has no byte array form: type mismatch
  Load(0, u"P.C.R", u"text");
  ASSERT_EQ(m_platform.m_entries.size(), 2u);
  EXPECT_EQ(m_platform.m_entries[0].m_sText, RuntimeDescription(kErrTypeMismatch).ToUtf8() +
                                                 " - CErrHandler.AssembleErrorMessage. ");
  EXPECT_EQ(m_platform.m_entries[1].m_sText,
            "AssembleErrorMessage failed. - CErrHandler.LoadError. ");
}

TEST_F(CErrHandlerTest, APageThatFailsFailsTheParsing) {
  m_record->OnStartPage(MakeRef<PageThatFails>());
  Load(0, u"P.C.R", u"text");
  ASSERT_EQ(m_platform.m_entries.size(), 2u);
  EXPECT_EQ(m_platform.m_entries[0].m_sText, RuntimeDescription(kErrInvalidProcedureCall).ToUtf8() +
                                                 " - CErrHandler.ParseInformation. ");
  EXPECT_EQ(m_platform.m_entries[1].m_sText,
            "ParseErrorInformation failed. - CErrHandler.LoadError. ");
  EXPECT_EQ(Message(), "");  // no message was assembled
}

// --- the page context through LoadError ---

TEST_F(CErrHandlerTest, LoadErrorTakesAPageContextAndKeepsIt) {
  const Ref<IPageContext> page = Page({{u"LOCAL_ADDR", u"192.0.2.1"}}, u"");
  ErrObject err = MakeErr(0, u"QUIV", u"");
  m_record->LoadError(err, u"P.C.R", page, u"");
  EXPECT_EQ(Message(), "P.C.R : Pg: ?. WSrvr: 192.0.2.1. Cookies: . ");
  Load(0, u"P.C.S", u"");
  EXPECT_EQ(Message(), "P.C.S : Pg: ?. WSrvr: 192.0.2.1. Cookies: . ");
}

TEST_F(CErrHandlerTest, LoadErrorWithAnObjectThatIsNoPageContextStopsBeforeParsing) {
  ErrObject err = MakeErr(0, u"QUIV", u"d");
  m_record->LoadError(err, u"P.C.R", MakeRef<CErrHandler>(), u"c");
  ASSERT_EQ(m_platform.m_entries.size(), 1u);
  EXPECT_EQ(m_platform.m_entries[0].m_sText,
            RuntimeDescription(kErrTypeMismatch).ToUtf8() + " - CErrHandler.LoadError. ");
  EXPECT_EQ(m_record->m_sErrDescription, String(u"d"));  // copied before the trap
  EXPECT_TRUE(m_record->m_sProjectName.IsEmpty());       // never parsed
  EXPECT_TRUE(m_record->m_sComments.IsEmpty());
  EXPECT_EQ(Message(), "");
}

TEST_F(CErrHandlerTest, OnEndPageForgetsThePageContext) {
  const Ref<IPageContext> page = Page({}, u"");
  m_record->OnStartPage(page);
  EXPECT_EQ(page.UseCount(), 2);
  m_record->OnEndPage();
  EXPECT_EQ(page.UseCount(), 1);
}

TEST(CErrHandlerLifetimeTest, ReleasingTheRecordReleasesThePageContext) {
  const Ref<IPageContext> page = MakeRef<MapPageContext>(std::map<String, String>{}, u"");
  {
    Ref<CErrHandler> record = MakeRef<CErrHandler>();
    record->OnStartPage(page);
    EXPECT_EQ(page.UseCount(), 2);
  }
  EXPECT_EQ(page.UseCount(), 1);
}

// --- read access by the automation names ---

TEST_F(CErrHandlerTest, EveryFieldReadsByItsAutomationName) {
  CErrHandler& r = *m_record;
  r.m_sDBConnectStr = u"dsn";
  r.m_sDBLogin = u"login";
  r.m_sDBPwd = u"pwd";
  r.m_sWebRedirectURL = u"/next";
  ErrObject err = MakeErr(-2147220972, u"QUIV", u"desc", kNteNoKey);
  r.LoadError(err, u"QUIV.CConvert.LoadItem",
              MakeRef<MapPageContext>(std::map<String, String>{{u"PATH_INFO", u"/p"},
                                                               {u"LOCAL_ADDR", u"127.0.0.1"},
                                                               {u"HTTP_COOKIE", u"c=1"}},
                                      u"q=2"),
              u"my comment");
  const CErrHandler& c = r;
  EXPECT_EQ(c.ProjectName(), String(u"QUIV"));
  EXPECT_EQ(c.ClassName(), String(u"CConvert"));
  EXPECT_EQ(c.RoutineName(), String(u"LoadItem"));
  EXPECT_EQ(c.DBConnectStr(), String(u"dsn"));
  EXPECT_EQ(c.DBLogin(), String(u"login"));
  EXPECT_EQ(c.DBPwd(), String(u"pwd"));
  EXPECT_EQ(c.Comments(), String(u"my comment"));
  EXPECT_TRUE(c.WebRedirectFlag());
  EXPECT_EQ(c.WebRedirectURL(), String(u"/next"));
  EXPECT_EQ(c.WebPageURL(), String(u"/p?q=2"));
  EXPECT_EQ(c.WebCookies(), String(u"c=1"));
  EXPECT_EQ(c.WebIP(), String(u"127.0.0.1"));
  EXPECT_EQ(c.ErrNumber(), -2147220972);
  EXPECT_EQ(c.ErrSource(), String(u"QUIV"));
  EXPECT_EQ(c.ErrDescription(), String(u"desc"));
  EXPECT_EQ(c.ErrLastDLLError(), static_cast<double>(static_cast<int32_t>(kNteNoKey)));
  EXPECT_EQ(c.APIError(), String(u"NTE_NO_KEY"));
  EXPECT_EQ(c.QUIVError(), CErrQUIV().LastError(-2147220972));
  EXPECT_FALSE(c.QUIVError().IsEmpty());
  EXPECT_EQ(c.FullSource(), String(u"QUIV.CConvert.LoadItem"));
  // The record's own class name stays within reach under the run time's name for it.
  EXPECT_EQ(c.TypeName(), String(u"CErrHandler"));
}

TEST_F(CErrHandlerTest, ATwoPartSourceReadsWhole) {
  Load(-2147220972, u"QUIV.ChangeCipherModeCode", u"d");
  EXPECT_EQ(m_record->FullSource(), String(u"QUIV.ChangeCipherModeCode"));
  EXPECT_EQ(m_record->ProjectName(), String(u"QUIV.ChangeCipherModeCode"));
  EXPECT_TRUE(m_record->ClassName().IsEmpty());
  EXPECT_TRUE(m_record->RoutineName().IsEmpty());
}

TEST_F(CErrHandlerTest, TheFullSourceOutlivesClear) {
  Load(0, u"QUIV.CConvert.LoadItem", u"d");
  m_record->Clear();
  EXPECT_EQ(m_record->FullSource(), String(u"QUIV.CConvert.LoadItem"));
  EXPECT_TRUE(m_record->ClassName().IsEmpty());
}

TEST_F(CErrHandlerTest, ParametersReadInTheOrderAdded) {
  EXPECT_EQ(m_record->Parameters().Count(), 0u);  // no map yet: an empty view
  m_record->AddParam(u"zeta", 1);
  m_record->AddParam(u"alpha", u"two");
  m_record->AddParam(u"mid", ByteArray{3});
  const Dictionary& params = m_record->Parameters();
  ASSERT_EQ(params.Count(), 3u);
  EXPECT_EQ(params.Keys(), (std::vector<Variant>{u"zeta", u"alpha", u"mid"}));
  EXPECT_EQ(params.Items(), (std::vector<Variant>{1, u"two", ByteArray{3}}));
  ASSERT_NE(params.Find(u"alpha"), nullptr);
  EXPECT_EQ(*params.Find(u"alpha"), Variant(u"two"));
  EXPECT_FALSE(params.Exists(u"beta"));
  m_record->Clear();
  EXPECT_EQ(m_record->Parameters().Count(), 0u);
}

// What a holder of the parameter view could change, if its type let it.
template <class Map>
concept Writable = requires(Map& map) {
  map.Add(Variant(), Variant());
}
|| requires(Map& map) {
  map.RemoveAll();
}
|| requires(Map& map) {
  map.SetItem(Variant(), Variant());
}
|| requires(Map& map) {
  map.Item(Variant());
};

TEST_F(CErrHandlerTest, TheParameterViewIsReadOnly) {
  using View = decltype(m_record->Parameters());
  static_assert(std::is_same_v<View, const Dictionary&>);
  static_assert(Writable<Dictionary>);
  static_assert(!Writable<std::remove_reference_t<View>>);
}

}  // namespace
}  // namespace quiv
