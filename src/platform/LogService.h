// LogService: the application log of the platform seam. It writes events either to the system
// log (openlog/syslog: what the NT-family callers get, the counterpart of an event log) or by
// appending one line per event to a named file (what 9x-family callers get). The caller picks
// the target when it starts logging; LogEvent then writes to that target until the next start.
//
// A file line reads "YYYY-MM-DD HH:MM:SS <Type>: <text>" in local time, <Type> being Success,
// Error, Warning or Information. System-log records carry the same text, with the syslog
// priority NOTICE, ERR, WARNING or INFO and the identity given at start.
//
// Ownership and threads: a LogService owns the open file (closed on the next start and on
// destruction) and the identity string handed to openlog. Calls are serialised by a mutex, so
// one service may be shared by every thread. The system-log writer can be replaced (tests pass
// a recording function); the default one calls syslog.
#ifndef QUIV_PLATFORM_LOGSERVICE_H
#define QUIV_PLATFORM_LOGSERVICE_H

#include <functional>
#include <mutex>
#include <string>
#include <string_view>

#include "platform/IPlatform.h"

namespace quiv::platform {

class LogService final {
 public:
  // Receives one system-log record: identity, syslog priority, text.
  using SystemLogWriter =
      std::function<void(std::string_view identity, int priority, std::string_view text)>;

  LogService();  // system-log records go to syslog
  explicit LogService(SystemLogWriter writer);
  ~LogService();
  LogService(const LogService&) = delete;
  LogService& operator=(const LogService&) = delete;

  // Starts logging to the target. SystemLog: `path` is the identity the records carry (an empty
  // one becomes "quiv"). File: `path` is opened for appending (created 0600 when missing).
  // throws CspError: ERROR_INVALID_PARAMETER (empty file path), ERROR_ACCESS_DENIED (the file
  // cannot be opened for appending), ERROR_NOT_ENOUGH_MEMORY.
  void Start(std::string_view path, LogMode mode);

  // Writes one event. throws CspError: ERROR_INVALID_PARAMETER (logging not started, or an
  // unknown type), ERROR_ACCESS_DENIED (the file write failed).
  void Write(std::string_view text, LogEventType type);

  static int SyslogPriority(LogEventType type);
  static std::string_view TypeName(LogEventType type);

 private:
  void CloseFile();
  void WriteFileLine(std::string_view text, LogEventType type);

  std::mutex m_mutex;
  SystemLogWriter m_writer;  // empty: syslog itself
  bool m_started = false;
  LogMode m_mode = LogMode::SystemLog;
  std::string m_identity;  // kept alive for openlog, which keeps the pointer
  int m_fd = -1;
};

}  // namespace quiv::platform

#endif
