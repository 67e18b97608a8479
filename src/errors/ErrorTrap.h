// ErrorTrap: the result convention every public method of the library follows, as one
// mechanism. A method's boolean result is false until its body has run to the end; a failure
// inside the body is raised as a RuntimeError (RaiseQuiv for the library's own codes, the run
// time's helpers for run-time errors) and caught by the method's trap, which records it in the
// object's LastError and returns false. The trap is the library's only broad catch: it also
// catches std::bad_alloc (recorded as run-time error 7, "Out of memory") and any other exception
// (run-time error 51, "Internal error"), so nothing escapes to the caller.
//
//   bool CConvert::DeHex(String& i_sHex, int16_t& o_nValue) {
//     return Trap(m_oLastError, u"QUIV.CConvert.DeHex",
//                 [&] { /* ... RaiseQuiv(DATA_FORMAT_ERROR_INVALID_HEX_VALUE); ... */ },
//                 [&](CErrHandler& e) { e.AddParam(u"i_sHex", i_sHex); });
//   }
//
// On a failure the trap creates the record when `lastError` is Nothing, calls the listed
// AddParam in order, then LoadError(error, source, Nothing, ""). When an AddParam fails (the
// name is still in the map from an earlier failure, since only Clear empties it), the parameters
// added before it stay, the later ones are left out, the earlier values keep printing, and the
// failure is loaded all the same. LoadError absorbs every failure of its own.
//
// The body may return void (the result is then true once it completes) or bool (the result is
// what it returns, for methods whose success path can end early with false without a failure).
//
// Ownership: the trap holds nothing; `lastError` is the calling object's LastError reference.
#ifndef QUIV_ERRORS_ERRORTRAP_H
#define QUIV_ERRORS_ERRORTRAP_H

#include <concepts>
#include <cstdint>
#include <exception>
#include <functional>
#include <new>
#include <type_traits>
#include <utility>

#include "automation/ErrObject.h"
#include "automation/IPageContext.h"
#include "automation/Ref.h"
#include "automation/RuntimeError.h"
#include "automation/String.h"
#include "errors/CErrHandler.h"
#include "errors/QuivError.h"
#include "platform/QuivExport.h"

namespace quiv {

// The run time's numbers for the failures that do not come from a raise.
inline constexpr int32_t kErrOutOfMemory = 7;
inline constexpr int32_t kErrInternal = 51;

// Raises a library error: number `code`, source "QUIV", the description (the run time's text
// for a number it has no text of, "Application-defined or object-defined error", when empty)
// and the calling thread's last platform error (LastPlatformError()) at the moment of the raise,
// so a platform failure raised right after the failing call carries the platform's code.
[[noreturn]] QUIV_API void RaiseQuiv(QUIV_ERROR code, const String& description = String());

// The exception being handled (call only inside a catch block) as the run time's error object:
// a RuntimeError as it stands; std::bad_alloc as 7 "Out of memory"; any other exception as 51
// "Internal error" (a std::exception's what() is added to the description). The last platform
// error of a non-RuntimeError is the thread's current one.
QUIV_API ErrObject CurrentError() noexcept;

// The trap's failure path on its own, for the few handlers that do more than the convention
// (restore an argument first, return something other than a boolean): creates the record when
// Nothing, adds the parameters in order (stopping at one that fails), then
// LoadError(error, source, script, ""). Never throws.
QUIV_API void LoadTrappedError(Ref<CErrHandler>& lastError, const String& source, ErrObject& error,
                               const std::function<void(CErrHandler&)>& addParams,
                               const Ref<Object>& script = Nothing) noexcept;

// The convention: runs `body`; true when it completes (or what a bool body returns); on any
// exception records it as above and returns false.
template <class Body, class AddParams>
requires std::invocable<Body&> && std::invocable<AddParams&, CErrHandler&>
bool Trap(Ref<CErrHandler>& lastError, const char16_t* source, Body&& body,
          AddParams&& addParams) noexcept {
  try {
    if constexpr (std::is_void_v<std::invoke_result_t<Body&>>) {
      body();
      return true;
    } else {
      return static_cast<bool>(body());
    }
  } catch (...) {
    ErrObject error = CurrentError();
    LoadTrappedError(lastError, source, error, std::ref(addParams));
    return false;
  }
}

// The convention for a routine without parameters to record.
template <class Body>
requires std::invocable<Body&>
bool Trap(Ref<CErrHandler>& lastError, const char16_t* source, Body&& body) noexcept {
  return Trap(lastError, source, std::forward<Body>(body), [](CErrHandler&) {});
}

// A class's OnStartPage: creates the class's LastError record when Nothing and hands it the page
// context, under the trap with `source` ("QUIV.<Class>.OnStartPage"). False when that failed.
QUIV_API bool TrapOnStartPage(Ref<CErrHandler>& lastError, const char16_t* source,
                              const Ref<IPageContext>& i_oScript) noexcept;

// The run time's application log service, reached through the platform seam. StartLogging opens
// the log `path` with the run time's mode number: the low bits 0 (automatic: the system log when
// the version query answers the NT family, else the file), 2 (the file) or 3 (the system log);
// the flags 16 (start the file anew) and 32 (thread ids) are accepted. LogEvent writes an entry
// of the run time's event type (1 error, 2 warning, 4 information, 0 success). A failure raises
// run-time error 5 carrying the platform's last error.
QUIV_API void StartLogging(const String& path, int32_t mode);
QUIV_API void LogEvent(const String& text, int32_t eventType);

// The catalogues' own trap (they have no record to load): writes "<source>, <description of the
// exception being handled><suffix>" as one error entry of the application log. Call it only from
// a catch block. A failure to write is dropped: nothing leaves a lookup.
QUIV_API void LogCurrentFailure(const String& source, const String& suffix) noexcept;

}  // namespace quiv

#endif
