// CErrHandler: the error record. Every public class of the library keeps one as its LastError
// property; when a method fails, its trap (ErrorTrap.h) loads the failure into the record and the
// method returns false. The caller then reads the public fields, or the default member
// LastError() for a one-line description of the failure. Clients may also create a record and
// load it themselves.
//
// What LoadError does, in order: copy the error object's description, source, number and last
// platform error into the fields; clear the error object; split the full source
// "Project.Class.Routine" into its three fields; name the library code (CErrQUIV) and the
// platform code (CErrAPI); read the page URL, server address and cookies when a page context is
// set; assemble the one-line message; report it to the application log. Every failure inside is
// written to the application log ("c:\cryptoerr.log", mode 16, entry type 1, through the platform
// seam's log service) and never reaches the caller of LoadError.
//
// The reporting step asks the platform version through a provider reference that nothing in the
// system assigns. The query on that empty reference fails with run-time error 91, so every
// LoadError writes exactly two log entries, "<run-time error 91's text> -
// CErrHandler.ReportErrorMessage. " and "ReportErrorMessage failed. - CErrHandler.LoadError. ",
// and the record keeps its fields afterwards (the Clear at the end of a successful report is not
// reached). That sequence is the published behaviour and is kept.
//
// Ownership: the record owns its parameter map (a Dictionary, made on first use), holds a counted
// reference to the page context handed to OnStartPage or LoadError until OnEndPage, and owns a
// CConstQUIV. Single-threaded: a record belongs to one owning object and its thread.
//
// The public fields are plain data members in the interface's order; the automation surface
// publishes each under the name without its m_ and type prefix (m_sProjectName is ProjectName,
// m_dblErrLastDLLError is ErrLastDLLError). No logic runs when they are read or written.
#ifndef QUIV_ERRORS_CERRHANDLER_H
#define QUIV_ERRORS_CERRHANDLER_H

#include <cstdint>

#include "automation/Dictionary.h"
#include "automation/ErrObject.h"
#include "automation/IPageContext.h"
#include "automation/Object.h"
#include "automation/Ref.h"
#include "automation/String.h"
#include "automation/Variant.h"
#include "platform/QuivExport.h"

#include "constants/CConstQUIV.h"

namespace quiv {

class QUIV_API CErrHandler final : public Object {
 public:
  // The application log the record writes to, as the run time's log service is addressed.
  static constexpr char16_t kLogPath[] = u"c:\\cryptoerr.log";
  // Automatic choice of target (the system log on the NT family, the file otherwise), with the
  // file started anew.
  static constexpr int32_t kLogMode = 16;
  // An error entry.
  static constexpr int32_t kLogEntryType = 1;

  // A new record: every string empty, numbers 0, WebRedirectFlag true.
  CErrHandler();
  ~CErrHandler() override;

  // The public fields, in interface order.
  String m_sProjectName;
  String m_sClassName;
  String m_sRoutineName;
  String m_sDBConnectStr;    // never filled by the library; reset by Clear
  String m_sDBLogin;         // never filled by the library; reset by Clear
  String m_sDBPwd;           // never filled by the library; reset by Clear
  String m_sComments;        // LoadError's comment
  bool m_fWebRedirectFlag;   // never read by the library; true on creation, false after Clear
  String m_sWebRedirectURL;  // never filled by the library; reset by Clear
  String m_sWebPageURL;      // PATH_INFO "?" query string, when a page context is set
  String m_sWebCookies;      // HTTP_COOKIE
  String m_sWebIP;           // LOCAL_ADDR (the server's own address)
  int32_t m_lErrNumber;
  String m_sErrSource;
  String m_sErrDescription;
  double m_dblErrLastDLLError;  // the 32-bit last platform error, widened
  String m_sAPIError;           // the platform error's name, trimmed; empty for code 0
  String m_sQUIVError;          // the library error's text; empty outside the library's range

  // The same fields read by their automation names, for C++ callers (ClassName() is the field,
  // the class the failure's source names; the record's own class name is TypeName()).
  const String& ProjectName() const { return m_sProjectName; }
  const String& ClassName() const { return m_sClassName; }
  const String& RoutineName() const { return m_sRoutineName; }
  const String& DBConnectStr() const { return m_sDBConnectStr; }
  const String& DBLogin() const { return m_sDBLogin; }
  const String& DBPwd() const { return m_sDBPwd; }
  const String& Comments() const { return m_sComments; }
  bool WebRedirectFlag() const { return m_fWebRedirectFlag; }
  const String& WebRedirectURL() const { return m_sWebRedirectURL; }
  const String& WebPageURL() const { return m_sWebPageURL; }
  const String& WebCookies() const { return m_sWebCookies; }
  const String& WebIP() const { return m_sWebIP; }
  int32_t ErrNumber() const { return m_lErrNumber; }
  const String& ErrSource() const { return m_sErrSource; }
  const String& ErrDescription() const { return m_sErrDescription; }
  double ErrLastDLLError() const { return m_dblErrLastDLLError; }
  const String& APIError() const { return m_sAPIError; }
  const String& QUIVError() const { return m_sQUIVError; }

  // The full source last given to LoadError, whole: "QUIV.CConvert.LoadItem", or a source that
  // does not split into three parts, such as "QUIV.ChangeCipherModeCode" (ProjectName then holds
  // it too, and ClassName and RoutineName are empty). Clear does not touch it.
  const String& FullSource() const { return m_sFullSource; }
  // The parameters added since the last Clear, in the order they were added (names and values
  // as given). Read-only: Count, Exists, Find, Keys and Items; AddParam is the way to add.
  const Dictionary& Parameters() const;

  // Empties the parameter map, then resets the fields (WebRedirectFlag to false). The assembled
  // message, the full source and the page context stay.
  void Clear();
  // Adds a parameter shown in later messages. Names and values are kept as given; values may be
  // strings, numbers or byte arrays. A name already in the map raises run-time error 457 to the
  // caller: there is no trap here. The map is emptied only by Clear.
  void AddParam(const Variant& iName, const Variant& iValue);
  // The default member: "Returns a string describing the last error that occurred." The last
  // assembled message (empty until one was assembled); Clear does not touch it.
  String LastError() const;
  // Loads a failure (see the header comment). i_oErr is cleared. A non-Nothing i_oScript must
  // be a page context; it replaces the stored one. Never throws.
  void LoadError(ErrObject& i_oErr, const String& i_sFullSource,
                 const Ref<Object>& i_oScript = Nothing, const String& i_sComment = String());
  // Reports the assembled message to the application log. True when reported (the record is
  // then cleared); false when the reporting failed, which is logged. Never throws.
  bool ReportErrorMessage();
  // Stores the page context the web fields are read from; OnEndPage forgets it.
  void OnStartPage(const Ref<IPageContext>& iScript);
  void OnEndPage();

  String TypeName() const override { return u"CErrHandler"; }

 private:
  // The platform version query the reporting step needs ("95", "98", "NT" or "2K"). The provider
  // answers it; the record's reference to one is never assigned (see above).
  class IWinVerQuery {
   public:
    virtual ~IWinVerQuery() = default;
    virtual String GetWinVer() = 0;
  };

  bool ParseInformation();
  bool AssembleErrorMessage();
  // Rewrites io_sSource to "<description> - <source>. " and writes it to the log. A logging
  // failure is thrown to the calling trap.
  static void LogHandlerError(const ErrObject& i_oErr, String& io_sSource);
  // Inside a catch block: LogHandlerError for the exception being handled; never throws.
  static void LogTrappedFailure(const char16_t* source) noexcept;
  Dictionary& Params();

  String m_sFullSource;
  String m_sMessage;
  Ref<Dictionary> m_dParams;
  Ref<IPageContext> m_oScript;
  [[maybe_unused]] const CConstQUIV m_oConst{};  // kept for the record's lifetime; nothing reads it
  Ref<IWinVerQuery> m_oProvider;
};

}  // namespace quiv

#endif
