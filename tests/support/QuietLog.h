// QuietLog: the real provider without the error records' application log. A test installs one
// (platform::ScopedPlatformOverride) so that failures it provokes on purpose leave no log file
// in the working folder and write nothing to syslog; every other call goes to the provider.
#ifndef QUIV_TESTS_SUPPORT_QUIETLOG_H
#define QUIV_TESTS_SUPPORT_QUIETLOG_H

#include <gtest/gtest.h>

#include <memory>
#include <string_view>

#include "platform/ForwardingPlatform.h"
#include "platform/PlatformSeam.h"

namespace quiv::test {

class QuietLog final : public platform::ForwardingPlatform {
 public:
  QuietLog() : ForwardingPlatform(platform::DefaultPlatform()) {}
  bool StartLogging(std::string_view, platform::LogMode) override { return true; }
  bool LogEvent(std::string_view, platform::LogEventType) override { return true; }
};

// Installs a QuietLog around every test of a program. Register it once per test file:
//   const auto* const kQuiet = ::testing::AddGlobalTestEnvironment(new test::QuietEnvironment);
class QuietEnvironment final : public ::testing::Environment {
 public:
  void SetUp() override { m_use = std::make_unique<platform::ScopedPlatformOverride>(m_quiet); }
  void TearDown() override { m_use.reset(); }

 private:
  QuietLog m_quiet;
  std::unique_ptr<platform::ScopedPlatformOverride> m_use;
};

}  // namespace quiv::test

#endif
