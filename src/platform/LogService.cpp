#include "platform/LogService.h"

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "platform/CspError.h"

namespace quiv::platform {

LogService::LogService() = default;

LogService::LogService(SystemLogWriter writer) : m_writer(std::move(writer)) {}

LogService::~LogService() {
  CloseFile();
  if (m_started && m_mode == LogMode::SystemLog && !m_writer) closelog();
}

int LogService::SyslogPriority(LogEventType type) {
  switch (type) {
    case LogEventType::Success:
      return LOG_NOTICE;
    case LogEventType::Error:
      return LOG_ERR;
    case LogEventType::Warning:
      return LOG_WARNING;
    case LogEventType::Information:
      return LOG_INFO;
  }
  throw CspError(static_cast<uint32_t>(ERROR_INVALID_PARAMETER));
}

std::string_view LogService::TypeName(LogEventType type) {
  switch (type) {
    case LogEventType::Success:
      return "Success";
    case LogEventType::Error:
      return "Error";
    case LogEventType::Warning:
      return "Warning";
    case LogEventType::Information:
      return "Information";
  }
  throw CspError(static_cast<uint32_t>(ERROR_INVALID_PARAMETER));
}

void LogService::Start(std::string_view path, LogMode mode) {
  const std::lock_guard lock(m_mutex);
  if (mode == LogMode::File && path.empty()) {
    throw CspError(static_cast<uint32_t>(ERROR_INVALID_PARAMETER));
  }
  CloseFile();
  m_started = false;
  if (mode == LogMode::File) {
    const std::string name(path);
    const int fd = ::open(name.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) {
      throw CspError(
          static_cast<uint32_t>(errno == ENOMEM ? ERROR_NOT_ENOUGH_MEMORY : ERROR_ACCESS_DENIED));
    }
    m_fd = fd;
  } else {
    m_identity = path.empty() ? std::string("quiv") : std::string(path);
    if (!m_writer) openlog(m_identity.c_str(), LOG_PID, LOG_USER);
  }
  m_mode = mode;
  m_started = true;
}

void LogService::Write(std::string_view text, LogEventType type) {
  const std::lock_guard lock(m_mutex);
  if (!m_started) throw CspError(static_cast<uint32_t>(ERROR_INVALID_PARAMETER));
  if (m_mode == LogMode::File) {
    WriteFileLine(text, type);
    return;
  }
  const int priority = SyslogPriority(type);
  if (m_writer) {
    m_writer(m_identity, priority, text);
  } else {
    syslog(priority, "%.*s", static_cast<int>(text.size()), text.data());
  }
}

void LogService::WriteFileLine(std::string_view text, LogEventType type) {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  char stamp[32];
  const size_t stampLength = std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S ", &local);
  std::string line(stamp, stampLength);
  line.append(TypeName(type)).append(": ").append(text).append("\n");
  // One write per line: with O_APPEND the line lands whole at the end even when several
  // processes log to the same file.
  size_t done = 0;
  while (done < line.size()) {
    const ssize_t n = ::write(m_fd, line.data() + done, line.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) throw CspError(static_cast<uint32_t>(ERROR_ACCESS_DENIED));
    done += static_cast<size_t>(n);
  }
}

void LogService::CloseFile() {
  if (m_fd >= 0) ::close(m_fd);
  m_fd = -1;
}

}  // namespace quiv::platform
