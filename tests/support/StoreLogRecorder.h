// StoreLogRecorder: collects what the container store logs (ContainerStoreLog) for the lifetime
// of the object, instead of sending it to syslog, so that a test can check the reason given.
// One at a time per process; records from every thread land in the same list.
#ifndef QUIV_TESTS_SUPPORT_STORELOGRECORDER_H
#define QUIV_TESTS_SUPPORT_STORELOGRECORDER_H

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ContainerStoreLog.h"

namespace quiv::test {

class StoreLogRecorder final {
 public:
  StoreLogRecorder() {
    Lines().clear();
    platform::ContainerStoreLog::SetWriter(&Record);
  }
  ~StoreLogRecorder() { platform::ContainerStoreLog::SetWriter(nullptr); }
  StoreLogRecorder(const StoreLogRecorder&) = delete;
  StoreLogRecorder& operator=(const StoreLogRecorder&) = delete;

  // Every record so far, joined by newlines.
  std::string Text() const {
    const std::lock_guard lock(Mutex());
    std::string text;
    for (const auto& line : Lines()) text += line + "\n";
    return text;
  }

 private:
  static std::vector<std::string>& Lines() {
    static std::vector<std::string> lines;
    return lines;
  }
  static std::mutex& Mutex() {
    static std::mutex mutex;
    return mutex;
  }
  static void Record(std::string_view text) {
    const std::lock_guard lock(Mutex());
    Lines().emplace_back(text);
  }
};

}  // namespace quiv::test

#endif
