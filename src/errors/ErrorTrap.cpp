#include "errors/ErrorTrap.h"

#include <string>

#include "automation/RunTime.h"
#include "platform/PlatformSeam.h"
#include "platform/wincrypt.h"

namespace quiv {
namespace {

// The run time's log mode number: the target in the low bits, flags above.
constexpr int32_t kLogAuto = 0;
constexpr int32_t kLogToFile = 2;
constexpr int32_t kLogToSystemLog = 3;
constexpr int32_t kLogTargetMask = 0x0F;
constexpr int32_t kLogKnownFlags = 16 | 32;

// The run time's event types (those of the Windows event log).
constexpr int32_t kEventSuccess = 0;
constexpr int32_t kEventError = 1;
constexpr int32_t kEventWarning = 2;
constexpr int32_t kEventInformation = 4;

[[noreturn]] void RaiseLogFailure() {
  RaiseRuntime(kErrInvalidProcedureCall);
}

// The automatic target follows the version query: the NT family logs to the system log (the
// event log's counterpart), the 9x family to the named file.
platform::LogMode AutomaticTarget() {
  OSVERSIONINFOA version{};
  version.dwOSVersionInfoSize = sizeof version;
  if (!platform::Platform().GetVersionExA(&version)) RaiseLogFailure();
  return version.dwPlatformId == VER_PLATFORM_WIN32_NT ? platform::LogMode::SystemLog
                                                       : platform::LogMode::File;
}

platform::LogMode TargetOf(int32_t mode) {
  if ((mode & ~(kLogTargetMask | kLogKnownFlags)) != 0) RaiseLogFailure();
  switch (mode & kLogTargetMask) {
    case kLogAuto:
      return AutomaticTarget();
    case kLogToFile:
      return platform::LogMode::File;
    case kLogToSystemLog:
      return platform::LogMode::SystemLog;
    default:
      RaiseLogFailure();
  }
}

platform::LogEventType EventTypeOf(int32_t eventType) {
  switch (eventType) {
    case kEventSuccess:
      return platform::LogEventType::Success;
    case kEventError:
      return platform::LogEventType::Error;
    case kEventWarning:
      return platform::LogEventType::Warning;
    case kEventInformation:
      return platform::LogEventType::Information;
    default:
      RaiseLogFailure();
  }
}

}  // namespace

void RaiseQuiv(QUIV_ERROR code, const String& description) {
  ErrObject error;
  error.Raise(code, String(), description);
}

ErrObject CurrentError() noexcept {
  ErrObject error;
  try {
    throw;
  } catch (const RuntimeError& e) {
    error.Load(e);
    return error;
  } catch (const std::bad_alloc&) {
    error.SetNumber(kErrOutOfMemory);
  } catch (const std::exception& e) {
    error.SetNumber(kErrInternal);
    try {
      error.SetDescription(u"Internal error: " + String::FromUtf8(e.what()));
    } catch (...) {
    }
  } catch (...) {
    error.SetNumber(kErrInternal);
  }
  // The texts are literals: no allocation can fail here beyond the String's own, and an error
  // object without a description still records the number.
  try {
    error.SetSource(kRuntimeSource);
    if (error.Description().IsEmpty()) {
      error.SetDescription(error.Number() == kErrOutOfMemory ? u"Out of memory"
                                                             : u"Internal error");
    }
  } catch (...) {
  }
  error.SetLastDllError(LastPlatformError());
  return error;
}

void LoadTrappedError(Ref<CErrHandler>& lastError, const String& source, ErrObject& error,
                      const std::function<void(CErrHandler&)>& addParams,
                      const Ref<Object>& script) noexcept {
  try {
    if (lastError.IsNothing()) lastError = MakeRef<CErrHandler>();
  } catch (...) {
    return;  // no memory for a record: the false result is all the caller gets
  }
  try {
    addParams(*lastError);
  } catch (...) {
    // A name left in the map by an earlier failure (only Clear empties it): the parameters
    // added before it stay, the later ones are not added, and the failure is still loaded.
  }
  try {
    lastError->LoadError(error, source, script, String());
  } catch (...) {
    // LoadError absorbs its own failures; only the copy of its arguments could get here.
  }
}

bool TrapOnStartPage(Ref<CErrHandler>& lastError, const char16_t* source,
                     const Ref<IPageContext>& i_oScript) noexcept {
  return Trap(lastError, source, [&] {
    if (lastError.IsNothing()) lastError = MakeRef<CErrHandler>();
    lastError->OnStartPage(i_oScript);
  });
}

void StartLogging(const String& path, int32_t mode) {
  const platform::LogMode target = TargetOf(mode);
  if (!platform::Platform().StartLogging(path.ToUtf8(), target)) RaiseLogFailure();
}

void LogEvent(const String& text, int32_t eventType) {
  const platform::LogEventType type = EventTypeOf(eventType);
  if (!platform::Platform().LogEvent(text.ToUtf8(), type)) RaiseLogFailure();
}

void LogCurrentFailure(const String& source, const String& suffix) noexcept {
  try {
    const ErrObject error = CurrentError();
    StartLogging(CErrHandler::kLogPath, CErrHandler::kLogMode);
    LogEvent(source + u", " + error.Description() + suffix, CErrHandler::kLogEntryType);
  } catch (...) {
  }
}

}  // namespace quiv
