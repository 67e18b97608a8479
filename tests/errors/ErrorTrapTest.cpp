// The result convention: the trap's result, the record it fills, the parameters in order, the
// exceptions it catches (bad_alloc and foreign ones included), the OnStartPage convention and the
// run time's log service helpers, all through a recording fake of the platform's log service.
#include "errors/ErrorTrap.h"

#include <gtest/gtest.h>

#include <map>
#include <new>
#include <stdexcept>
#include <string>

#include "RecordingPlatform.h"
#include "automation/ByteArray.h"
#include "automation/MapPageContext.h"
#include "automation/RunTime.h"
#include "platform/PlatformSeam.h"
#include "platform/wincrypt.h"

namespace quiv {
namespace {

using testing::RecordingPlatform;

constexpr DWORD kErrorInvalidParameter = 87;

class ErrorTrapTest : public ::testing::Test {
 protected:
  // The thread's last platform error outlives the call that set it (as the platform's does), so
  // each test starts from none.
  void SetUp() override { platform::Platform().SetLastError(0); }

  std::string Message() const { return m_lastError->LastError().ToUtf8(); }

  RecordingPlatform m_platform;
  platform::ScopedPlatformOverride m_use{m_platform};
  Ref<CErrHandler> m_lastError;
};

// The trap can be called from a noexcept context: nothing escapes it.
static_assert(noexcept(Trap(std::declval<Ref<CErrHandler>&>(), u"", [] {})));

TEST_F(ErrorTrapTest, ACompletedBodyIsTrueAndCreatesNoRecord) {
  int ran = 0;
  EXPECT_TRUE(Trap(m_lastError, u"QUIV.CTest.Run", [&] { ++ran; }));
  EXPECT_EQ(ran, 1);
  EXPECT_TRUE(m_lastError.IsNothing());
  EXPECT_TRUE(m_platform.m_entries.empty());
}

TEST_F(ErrorTrapTest, ABooleanBodyGivesItsOwnResultWithoutARecord) {
  EXPECT_FALSE(Trap(m_lastError, u"QUIV.CTest.Run", [] { return false; }));
  EXPECT_TRUE(Trap(m_lastError, u"QUIV.CTest.Run", [] { return true; }));
  EXPECT_TRUE(m_lastError.IsNothing());
}

TEST_F(ErrorTrapTest, ARaisedLibraryErrorIsFalseAndFillsTheRecord) {
  bool reachedEnd = false;
  const bool result = Trap(m_lastError, u"QUIV.CConvert.DeHex", [&] {
    RaiseQuiv(DATA_FORMAT_ERROR_INVALID_HEX_VALUE);
    reachedEnd = true;
  });
  EXPECT_FALSE(result);
  EXPECT_FALSE(reachedEnd);
  ASSERT_FALSE(m_lastError.IsNothing());
  EXPECT_EQ(m_lastError->m_lErrNumber, DATA_FORMAT_ERROR_INVALID_HEX_VALUE);
  EXPECT_EQ(m_lastError->m_sErrSource, String(u"QUIV"));
  // A raise without a description carries the run time's text for an unknown number.
  EXPECT_EQ(m_lastError->m_sErrDescription,
            RuntimeDescription(DATA_FORMAT_ERROR_INVALID_HEX_VALUE));
  EXPECT_EQ(m_lastError->m_sProjectName, String(u"QUIV"));
  EXPECT_EQ(m_lastError->m_sClassName, String(u"CConvert"));
  EXPECT_EQ(m_lastError->m_sRoutineName, String(u"DeHex"));
  EXPECT_EQ(m_lastError->m_sQUIVError, String(u"DATA_FORMAT_ERROR_INVALID_HEX_VALUE"));
  EXPECT_TRUE(m_lastError->m_sComments.IsEmpty());
  EXPECT_EQ(Message(),
            "QUIV.CConvert.DeHex : DATA_FORMAT_ERROR_INVALID_HEX_VALUE. Runtime error: "
            "Application-defined or object-defined error. ");
}

TEST_F(ErrorTrapTest, RaiseQuivKeepsAGivenDescription) {
  EXPECT_FALSE(Trap(m_lastError, u"QUIV.CErrHandler.LoadError",
                    [] { RaiseQuiv(CERRHANDLER_ERROR, u"ReportErrorMessage failed."); }));
  EXPECT_EQ(m_lastError->m_sErrDescription, String(u"ReportErrorMessage failed."));
  EXPECT_EQ(m_lastError->m_lErrNumber, -2147220991);
}

TEST_F(ErrorTrapTest, APlatformFailureCarriesThePlatformsLastError) {
  EXPECT_FALSE(Trap(m_lastError, u"QUIV.CProvider.Clear", [] {
    // A handle that was never issued: the provider refuses it with ERROR_INVALID_PARAMETER.
    if (!platform::Platform().CryptReleaseContext(0x7fffffff, 0)) {
      RaiseQuiv(GENERAL_ERROR_UNABLE_TO_RELASE_CONTEXT);
    }
  }));
  EXPECT_EQ(m_lastError->m_dblErrLastDLLError, static_cast<double>(kErrorInvalidParameter));
  EXPECT_EQ(m_lastError->m_sAPIError, String(u"ERROR_INVALID_PARAMETER"));
  EXPECT_EQ(m_lastError->m_sQUIVError, String(u"GENERAL_ERROR_UNABLE_TO_RELASE_CONTEXT"));
}

TEST_F(ErrorTrapTest, ProviderErrorCodesReachTheRecordByName) {
  EXPECT_FALSE(Trap(m_lastError, u"QUIV.CSessionKey.Encrypt", [] {
    platform::Platform().SetLastError(static_cast<DWORD>(CConstQUIV{}.NTE_BAD_KEY()));
    RaiseQuiv(KEY_ERROR_INVALID_KEY_HANDLE);
  }));
  EXPECT_EQ(m_lastError->m_sAPIError, String(u"NTE_BAD_KEY"));
}

TEST_F(ErrorTrapTest, ParametersAreAddedInOrder) {
  EXPECT_FALSE(Trap(
      m_lastError, u"QUIV.CConvert.LoadItem", [] { RaiseQuiv(DATA_FORMAT_ERROR_CORRUPT_HEX_FILE); },
      [](CErrHandler& e) {
        e.AddParam(u"Len of byte array", int32_t{0});
        e.AddParam(u"i_sDataSource", u"x.hex");
        e.AddParam(u"i_nLoadFormat", int16_t{1});
      }));
  EXPECT_EQ(Message(),
            "QUIV.CConvert.LoadItem (Len of byte array=0) (i_sDataSource=x.hex) (i_nLoadFormat=1) "
            ": DATA_FORMAT_ERROR_CORRUPT_HEX_FILE. Runtime error: Application-defined or "
            "object-defined error. ");
}

TEST_F(ErrorTrapTest, ParametersAreNotAddedOnSuccess) {
  int added = 0;
  EXPECT_TRUE(Trap(
      m_lastError, u"QUIV.CTest.Run", [] {}, [&](CErrHandler&) { ++added; }));
  EXPECT_EQ(added, 0);
}

TEST_F(ErrorTrapTest, AnExistingRecordIsReused) {
  m_lastError = MakeRef<CErrHandler>();
  const CErrHandler* const before = m_lastError.get();
  EXPECT_FALSE(Trap(m_lastError, u"QUIV.CTest.Run", [] { RaiseQuiv(UNDEFINED_ERROR); }));
  EXPECT_EQ(m_lastError.get(), before);
  EXPECT_EQ(m_lastError->m_lErrNumber, UNDEFINED_ERROR);
}

TEST_F(ErrorTrapTest, ASecondFailureWithTheSameParametersStillLoadsTheNewError) {
  const auto fail = [&](QUIV_ERROR code, const char16_t* hex) {
    return Trap(
        m_lastError, u"QUIV.CConvert.DeHex", [&] { RaiseQuiv(code); },
        [&](CErrHandler& e) {
          e.AddParam(u"i_sHex", hex);
          e.AddParam(u"other", u"o");
        });
  };
  EXPECT_FALSE(fail(DATA_FORMAT_ERROR_INVALID_HEX_VALUE, u"0G"));
  EXPECT_FALSE(fail(DATA_FORMAT_ERROR_CORRUPT_HEX_FILE, u"ZZ"));
  EXPECT_EQ(m_lastError->m_lErrNumber, DATA_FORMAT_ERROR_CORRUPT_HEX_FILE);
  // Only Clear empties the map: the first failure's values print again.
  EXPECT_EQ(Message(),
            "QUIV.CConvert.DeHex (i_sHex=0G) (other=o) : DATA_FORMAT_ERROR_CORRUPT_HEX_FILE. "
            "Runtime error: Application-defined or object-defined error. ");
  EXPECT_EQ(m_platform.m_entries.size(), 4u);
}

TEST_F(ErrorTrapTest, EachTrappedFailureWritesTheTwoLogEntries) {
  EXPECT_FALSE(Trap(m_lastError, u"QUIV.CTest.Run", [] { RaiseQuiv(UNDEFINED_ERROR); }));
  ASSERT_EQ(m_platform.m_entries.size(), 2u);
  EXPECT_TRUE(m_platform.m_entries[0].m_sText.ends_with("CErrHandler.ReportErrorMessage. "));
  EXPECT_EQ(m_platform.m_entries[1].m_sText,
            "ReportErrorMessage failed. - CErrHandler.LoadError. ");
}

TEST_F(ErrorTrapTest, RunTimeErrorsKeepTheirNumbersAndTexts) {
  EXPECT_FALSE(Trap(m_lastError, u"QUIV.CTest.Run", [] {
    const Ref<CErrHandler> none;
    none->Clear();
  }));
  EXPECT_EQ(m_lastError->m_lErrNumber, kErrObjectNotSet);
  EXPECT_EQ(m_lastError->m_sErrDescription, RuntimeDescription(kErrObjectNotSet));
  EXPECT_TRUE(m_lastError->m_sQUIVError.IsEmpty());
  EXPECT_FALSE(Trap(m_lastError, u"QUIV.CTest.Run", [] { CInt(int32_t{40000}); }));
  EXPECT_EQ(m_lastError->m_lErrNumber, kErrOverflow);
  EXPECT_EQ(m_lastError->m_sErrDescription, String(u"Overflow"));
}

TEST_F(ErrorTrapTest, BadAllocIsCaughtAsOutOfMemory) {
  EXPECT_FALSE(Trap(m_lastError, u"QUIV.CTest.Run", [] { throw std::bad_alloc(); }));
  EXPECT_EQ(m_lastError->m_lErrNumber, kErrOutOfMemory);
  EXPECT_EQ(m_lastError->m_sErrDescription, String(u"Out of memory"));
  EXPECT_EQ(Message(), "QUIV.CTest.Run : Runtime error: Out of memory. ");
}

TEST_F(ErrorTrapTest, AnArrayBeyondTheLibrarysLimitIsCaught) {
  // More elements than a vector can hold: the standard library refuses with length_error
  // before allocating anything.
  EXPECT_FALSE(Trap(m_lastError, u"QUIV.CTest.Run", [] {
    ByteArray huge;
    huge.ReDimPreserve(INT64_MAX);
  }));
  ASSERT_FALSE(m_lastError.IsNothing());
  EXPECT_EQ(m_lastError->m_lErrNumber, kErrInternal);
}

TEST_F(ErrorTrapTest, AStandardExceptionIsCaughtAsAnInternalError) {
  EXPECT_FALSE(
      Trap(m_lastError, u"QUIV.CTest.Run", [] { throw std::out_of_range("index 9 of 4"); }));
  EXPECT_EQ(m_lastError->m_lErrNumber, kErrInternal);
  EXPECT_EQ(m_lastError->m_sErrDescription, String(u"Internal error: index 9 of 4"));
  EXPECT_EQ(m_lastError->m_sErrSource, String(u"QUIV"));
}

TEST_F(ErrorTrapTest, AnythingElseThrownIsCaughtToo) {
  EXPECT_FALSE(Trap(m_lastError, u"QUIV.CTest.Run", [] { throw 42; }));
  EXPECT_EQ(m_lastError->m_lErrNumber, kErrInternal);
  EXPECT_EQ(m_lastError->m_sErrDescription, String(u"Internal error"));
}

// Each kind of failure that does not come from a raise still carries the thread's last platform
// error at the moment it reached the trap, and its name.
TEST_F(ErrorTrapTest, OutOfMemoryCarriesThePlatformsLastError) {
  EXPECT_FALSE(Trap(m_lastError, u"QUIV.CTest.Run", [] {
    platform::Platform().SetLastError(kErrorInvalidParameter);
    throw std::bad_alloc();
  }));
  EXPECT_EQ(m_lastError->ErrLastDLLError(), static_cast<double>(kErrorInvalidParameter));
  EXPECT_EQ(m_lastError->APIError(), String(u"ERROR_INVALID_PARAMETER"));
}

TEST_F(ErrorTrapTest, AStandardExceptionCarriesThePlatformsLastError) {
  EXPECT_FALSE(Trap(m_lastError, u"QUIV.CTest.Run", [] {
    platform::Platform().SetLastError(kErrorInvalidParameter);
    throw std::out_of_range("index 9 of 4");
  }));
  EXPECT_EQ(m_lastError->ErrLastDLLError(), static_cast<double>(kErrorInvalidParameter));
  EXPECT_EQ(m_lastError->APIError(), String(u"ERROR_INVALID_PARAMETER"));
}

TEST_F(ErrorTrapTest, AnUnknownExceptionCarriesThePlatformsLastError) {
  EXPECT_FALSE(Trap(m_lastError, u"QUIV.CTest.Run", [] {
    platform::Platform().SetLastError(kErrorInvalidParameter);
    throw 42;
  }));
  EXPECT_EQ(m_lastError->ErrLastDLLError(), static_cast<double>(kErrorInvalidParameter));
  EXPECT_EQ(m_lastError->APIError(), String(u"ERROR_INVALID_PARAMETER"));
}

TEST_F(ErrorTrapTest, AFailingParameterListDoesNotEscape) {
  EXPECT_FALSE(Trap(
      m_lastError, u"QUIV.CTest.Run", [] { RaiseQuiv(UNDEFINED_ERROR); },
      [](CErrHandler& e) {
        e.AddParam(u"a", u"1");
        throw std::bad_alloc();
      }));
  EXPECT_EQ(m_lastError->m_lErrNumber, UNDEFINED_ERROR);
  EXPECT_EQ(Message(),
            "QUIV.CTest.Run (a=1) : (Undefined error, used in debugging.). Runtime error: "
            "Application-defined or object-defined error. ");
}

TEST_F(ErrorTrapTest, AFailingLogDoesNotEscape) {
  m_platform.m_startFailure = ERROR_ACCESS_DENIED;
  EXPECT_FALSE(Trap(m_lastError, u"QUIV.CTest.Run", [] { RaiseQuiv(UNDEFINED_ERROR); }));
  EXPECT_EQ(m_lastError->m_lErrNumber, UNDEFINED_ERROR);
}

TEST_F(ErrorTrapTest, LoadTrappedErrorPassesAPageContext) {
  ErrObject err;
  err.SetNumber(UNDEFINED_ERROR);
  err.SetDescription(u"d");
  const Ref<IPageContext> page =
      MakeRef<MapPageContext>(std::map<String, String>{{u"PATH_INFO", u"/k"}}, u"");
  LoadTrappedError(
      m_lastError, u"QUIV.CSessionKey.Clear", err, [](CErrHandler& e) { e.AddParam(u"n", 1.0); },
      page);
  EXPECT_EQ(Message(),
            "QUIV.CSessionKey.Clear (n=1) : (Undefined error, used in debugging.). "
            "Runtime error: d. Pg: /k?. WSrvr: . Cookies: . ");
  EXPECT_EQ(err.Number(), 0);  // LoadError cleared it
}

// --- the OnStartPage convention ---

TEST_F(ErrorTrapTest, OnStartPageCreatesTheRecordAndHandsItThePage) {
  const Ref<IPageContext> page = MakeRef<MapPageContext>(
      std::map<String, String>{{u"PATH_INFO", u"/p"}, {u"HTTP_COOKIE", u"c=1"}}, u"a=b");
  EXPECT_TRUE(TrapOnStartPage(m_lastError, u"QUIV.CTest.OnStartPage", page));
  ASSERT_FALSE(m_lastError.IsNothing());
  EXPECT_EQ(page.UseCount(), 2);
  EXPECT_FALSE(Trap(m_lastError, u"QUIV.CTest.Run", [] { RaiseQuiv(UNDEFINED_ERROR, u"x"); }));
  EXPECT_EQ(Message(),
            "QUIV.CTest.Run : (Undefined error, used in debugging.). Runtime error: x. "
            "Pg: /p?a=b. WSrvr: . Cookies: c=1. ");
}

TEST_F(ErrorTrapTest, OnStartPageReusesAnExistingRecord) {
  m_lastError = MakeRef<CErrHandler>();
  const CErrHandler* const before = m_lastError.get();
  EXPECT_TRUE(TrapOnStartPage(m_lastError, u"QUIV.CTest.OnStartPage",
                              MakeRef<MapPageContext>(std::map<String, String>{}, u"")));
  EXPECT_EQ(m_lastError.get(), before);
}

// --- the run time's log service ---

TEST_F(ErrorTrapTest, AutomaticModeFollowsThePlatformFamily) {
  StartLogging(u"c:\\cryptoerr.log", 16);
  m_platform.m_platformId = VER_PLATFORM_WIN32_WINDOWS;
  StartLogging(u"c:\\cryptoerr.log", 16);
  ASSERT_EQ(m_platform.m_starts.size(), 2u);
  EXPECT_EQ(m_platform.m_starts[0].m_mode, platform::LogMode::SystemLog);
  EXPECT_EQ(m_platform.m_starts[1].m_mode, platform::LogMode::File);
  EXPECT_EQ(m_platform.m_starts[1].m_sPath, "c:\\cryptoerr.log");
}

TEST_F(ErrorTrapTest, ExplicitTargetsIgnoreTheFamily) {
  StartLogging(u"f.log", 2);
  StartLogging(u"f.log", 3 | 32);
  ASSERT_EQ(m_platform.m_starts.size(), 2u);
  EXPECT_EQ(m_platform.m_starts[0].m_mode, platform::LogMode::File);
  EXPECT_EQ(m_platform.m_starts[1].m_mode, platform::LogMode::SystemLog);
}

TEST_F(ErrorTrapTest, UnknownModesAndTypesRaiseInvalidProcedureCall) {
  for (const int32_t mode : {1, 4, 15, 64, -1}) {
    try {
      StartLogging(u"f.log", mode);
      ADD_FAILURE() << "mode " << mode;
    } catch (const RuntimeError& e) {
      EXPECT_EQ(e.Number(), kErrInvalidProcedureCall);
    }
  }
  StartLogging(u"f.log", 16);
  for (const int32_t type : {3, 5, 8, -1}) {
    EXPECT_THROW(LogEvent(u"t", type), RuntimeError) << type;
  }
  EXPECT_TRUE(m_platform.m_entries.empty());
}

TEST_F(ErrorTrapTest, EventTypesMapToTheServicesTypes) {
  StartLogging(u"f.log", 16);
  LogEvent(u"e", 1);
  LogEvent(u"w", 2);
  LogEvent(u"i", 4);
  LogEvent(u"s", 0);
  ASSERT_EQ(m_platform.m_entries.size(), 4u);
  EXPECT_EQ(m_platform.m_entries[0].m_type, platform::LogEventType::Error);
  EXPECT_EQ(m_platform.m_entries[1].m_type, platform::LogEventType::Warning);
  EXPECT_EQ(m_platform.m_entries[2].m_type, platform::LogEventType::Information);
  EXPECT_EQ(m_platform.m_entries[3].m_type, platform::LogEventType::Success);
  EXPECT_EQ(m_platform.m_entries[0].m_sText, "e");
}

TEST_F(ErrorTrapTest, AFailedLogCallRaisesWithThePlatformsLastError) {
  m_platform.m_startFailure = ERROR_ACCESS_DENIED;
  try {
    StartLogging(u"f.log", 2);
    FAIL() << "no error";
  } catch (const RuntimeError& e) {
    EXPECT_EQ(e.Number(), kErrInvalidProcedureCall);
    EXPECT_EQ(e.LastDllError(), static_cast<uint32_t>(ERROR_ACCESS_DENIED));
  }
}

}  // namespace
}  // namespace quiv
