// RecordingPlatform: a platform seam fake for the error tests. It forwards every call to the
// real provider except the application log service, whose calls it records instead of writing
// to syslog or a file, and the version query, whose platform family a test may choose. Either
// log call can be made to fail with a given last error.
//
// Install it for a scope with ScopedPlatformOverride. It does not own the target.
#ifndef QUIV_TESTS_ERRORS_RECORDINGPLATFORM_H
#define QUIV_TESTS_ERRORS_RECORDINGPLATFORM_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ForwardingPlatform.h"
#include "platform/PlatformSeam.h"
#include "platform/wincrypt.h"

namespace quiv::testing {

class RecordingPlatform final : public platform::ForwardingPlatform {
 public:
  struct Start {
    std::string m_sPath;
    platform::LogMode m_mode;
  };
  struct Entry {
    std::string m_sText;
    platform::LogEventType m_type;
  };

  RecordingPlatform() : ForwardingPlatform(platform::DefaultPlatform()) {}

  bool StartLogging(std::string_view path, platform::LogMode mode) override {
    m_starts.push_back({std::string(path), mode});
    if (m_startFailure) {
      SetLastError(*m_startFailure);
      return false;
    }
    m_started = true;
    return true;
  }

  // As the real service: an entry before any start fails with ERROR_INVALID_PARAMETER.
  bool LogEvent(std::string_view text, platform::LogEventType type) override {
    if (m_eventFailure || !m_started) {
      SetLastError(m_eventFailure.value_or(static_cast<DWORD>(ERROR_INVALID_PARAMETER)));
      return false;
    }
    m_entries.push_back({std::string(text), type});
    return true;
  }

  BOOL GetVersionExA(OSVERSIONINFOA* info) override {
    const BOOL result = target().GetVersionExA(info);
    if (result && m_platformId) info->dwPlatformId = *m_platformId;
    return result;
  }

  std::vector<Start> m_starts;
  std::vector<Entry> m_entries;
  std::optional<DWORD> m_startFailure;
  std::optional<DWORD> m_eventFailure;
  std::optional<DWORD> m_platformId;

 private:
  bool m_started = false;
};

}  // namespace quiv::testing

#endif
