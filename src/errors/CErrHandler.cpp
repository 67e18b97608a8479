#include "errors/CErrHandler.h"

#include <vector>

#include "automation/ByteArray.h"
#include "automation/RunTime.h"
#include "errors/CErrAPI.h"
#include "errors/CErrQUIV.h"
#include "errors/ErrorTrap.h"

namespace quiv {
namespace {

// The library's own error numbers: FACILITY_ITF codes 0x0200 to 0xFFFF, the range COM leaves to
// interface-defined errors (0x80040200 to 0x8004FFFF).
constexpr int32_t kQuivRangeFirst = -2147220992;
constexpr int32_t kQuivRangeLast = -2147155969;

}  // namespace

// The traps of the record's own routines: the failure being handled goes to the log. A failure
// of the log itself ends the trap quietly; the routine's result already says it failed.
void CErrHandler::LogTrappedFailure(const char16_t* source) noexcept {
  const ErrObject error = CurrentError();
  try {
    String text = source;
    LogHandlerError(error, text);
  } catch (...) {
  }
}

CErrHandler::CErrHandler() : m_fWebRedirectFlag(true), m_lErrNumber(0), m_dblErrLastDLLError(0) {}

// Members release themselves (page context, constants, parameter map); nothing here can fail.
CErrHandler::~CErrHandler() = default;

Dictionary& CErrHandler::Params() {
  if (m_dParams.IsNothing()) m_dParams = MakeRef<Dictionary>();
  return *m_dParams;
}

// A record that never had a parameter has no map yet; it shows an empty one rather than making
// its map in a const reader.
const Dictionary& CErrHandler::Parameters() const {
  static const Dictionary kNone;
  return m_dParams.IsNothing() ? kNone : *m_dParams;
}

void CErrHandler::Clear() {
  Params().RemoveAll();
  m_sAPIError = String();
  m_sClassName = String();
  m_sComments = String();
  m_sDBConnectStr = String();
  m_sDBLogin = String();
  m_sDBPwd = String();
  m_sErrDescription = String();
  m_dblErrLastDLLError = 0;
  m_lErrNumber = 0;
  m_sErrSource = String();
  m_sProjectName = String();
  m_fWebRedirectFlag = false;
  m_sWebRedirectURL = String();
  m_sRoutineName = String();
  m_sQUIVError = String();
  m_sWebCookies = String();
  m_sWebIP = String();
  m_sWebPageURL = String();
}

void CErrHandler::AddParam(const Variant& iName, const Variant& iValue) {
  Params().Add(iName, iValue);
}

String CErrHandler::LastError() const {
  return m_sMessage;
}

void CErrHandler::OnStartPage(const Ref<IPageContext>& iScript) {
  m_oScript = iScript;
}

void CErrHandler::OnEndPage() {
  m_oScript.SetNothing();
}

void CErrHandler::LoadError(ErrObject& i_oErr, const String& i_sFullSource,
                            const Ref<Object>& i_oScript, const String& i_sComment) {
  // Copied before the trap is armed: these fields describe the failure being loaded, whatever
  // happens to the record afterwards.
  m_sErrDescription = i_oErr.Description();
  m_sErrSource = i_oErr.Source();
  m_lErrNumber = i_oErr.Number();
  // The run time keeps the last platform error as a signed 32-bit integer, so NTE_ codes widen
  // to negative doubles (NTE_NO_KEY is -2146893811), as the error names are listed.
  m_dblErrLastDLLError = static_cast<double>(static_cast<int32_t>(i_oErr.LastDllError()));
  try {
    i_oErr.Clear();
    m_sFullSource = i_sFullSource;
    if (!i_oScript.IsNothing()) {
      // The script object's default value must be a page context: a binding hands the page
      // context itself.
      const Ref<IPageContext> page = i_oScript.As<IPageContext>();
      if (page.IsNothing()) RaiseRuntime(kErrTypeMismatch);
      OnStartPage(page);
    }
    m_sComments = i_sComment;
    if (!ParseInformation()) RaiseQuiv(CERRHANDLER_ERROR, u"ParseErrorInformation failed.");
    if (!AssembleErrorMessage()) RaiseQuiv(CERRHANDLER_ERROR, u"AssembleErrorMessage failed.");
    if (!ReportErrorMessage()) RaiseQuiv(CERRHANDLER_ERROR, u"ReportErrorMessage failed.");
  } catch (...) {
    LogTrappedFailure(u"CErrHandler.LoadError");
  }
}

bool CErrHandler::ParseInformation() {
  try {
    const std::vector<String> parts = m_sFullSource.Split(u".");
    if (parts.size() == 3) {
      m_sProjectName = parts[0];
      m_sClassName = parts[1];
      m_sRoutineName = parts[2];
    } else {
      m_sProjectName = m_sFullSource;
      m_sClassName = String();
      m_sRoutineName = String();
    }
    if (m_lErrNumber >= kQuivRangeFirst && m_lErrNumber <= kQuivRangeLast) {
      const CErrQUIV catalogue{};
      m_sQUIVError = catalogue.LastError(m_lErrNumber);
    } else {
      m_sQUIVError = String();
    }
    if (m_dblErrLastDLLError == 0) {
      m_sAPIError = String();
    } else {
      const CErrAPI names{};
      m_sAPIError = names.LastError(m_dblErrLastDLLError).Trim();
    }
    if (!m_oScript.IsNothing()) {
      m_sWebPageURL = m_oScript->ServerVariable(u"PATH_INFO") + u"?" + m_oScript->QueryString();
      m_sWebIP = m_oScript->ServerVariable(u"LOCAL_ADDR");
      m_sWebCookies = m_oScript->ServerVariable(u"HTTP_COOKIE");
    }
    return true;
  } catch (...) {
    LogTrappedFailure(u"CErrHandler.ParseInformation");
    return false;
  }
}

bool CErrHandler::AssembleErrorMessage() {
  try {
    m_sMessage = m_sProjectName + u"." + m_sClassName + u"." + m_sRoutineName + u" ";
    Dictionary& params = Params();
    if (params.Count() > 0) {
      const std::vector<Variant> names = params.Keys();
      const std::vector<Variant> values = params.Items();
      for (size_t i = 0; i < names.size(); ++i) {
        const String name = names[i].TextForm();
        // The text form counts whole characters: a one-byte array reads as no character and
        // falls through to the byte-array branches.
        const String text = values[i].TextForm();
        if (text.Length() != 0) {
          m_sMessage += u"(" + name + u"=" + text + u") ";
          continue;
        }
        const ByteArray bytes = values[i].ToByteArray();
        if (bytes.size() == 0) {
          m_sMessage += u"(" + name + u"=) ";
        } else {
          m_sMessage +=
              u"(" + name + u" contains single byte =" + String::FromInt(bytes[0]) + u") ";
        }
      }
    }
    m_sMessage += u": ";
    if (!m_sComments.IsEmpty()) m_sMessage += u"[" + m_sComments + u"] ";
    if (!m_sQUIVError.IsEmpty()) m_sMessage += m_sQUIVError + u". ";
    if (!m_sErrDescription.IsEmpty()) {
      m_sMessage += u"Runtime error: " + m_sErrDescription + u". ";
    }
    if (!m_sAPIError.IsEmpty()) m_sMessage += u"API error=" + m_sAPIError + u". ";
    if (!m_oScript.IsNothing()) {
      m_sMessage += u"Pg: " + m_sWebPageURL + u". ";
      m_sMessage += u"WSrvr: " + m_sWebIP + u". ";
      m_sMessage += u"Cookies: " + m_sWebCookies + u". ";
    }
    return true;
  } catch (...) {
    LogTrappedFailure(u"CErrHandler.AssembleErrorMessage");
    return false;
  }
}

bool CErrHandler::ReportErrorMessage() {
  try {
    // m_oProvider is never assigned: the first query raises run-time error 91 and the trap logs
    // it. The branches below are what a record with a provider would do.
    const String firstAnswer = m_oProvider->GetWinVer();
    if (firstAnswer == u"98" || firstAnswer == u"95") StartLogging(kLogPath, kLogMode);
    const String secondAnswer = m_oProvider->GetWinVer();
    if (secondAnswer == u"2K" || secondAnswer == u"NT") LogEvent(m_sMessage, kLogEntryType);
    Clear();
    return true;
  } catch (...) {
    LogTrappedFailure(u"CErrHandler.ReportErrorMessage");
    return false;
  }
}

void CErrHandler::LogHandlerError(const ErrObject& i_oErr, String& io_sSource) {
  io_sSource = i_oErr.Description() + u" - " + io_sSource + u". ";
  StartLogging(kLogPath, kLogMode);
  LogEvent(io_sSource, kLogEntryType);
}

}  // namespace quiv
