#include "platform/LogService.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "platform/CspError.h"
#include "platform/RealPlatform.h"
#include "platform/wincrypt.h"

namespace quiv::platform {
namespace {

namespace fs = std::filesystem;

class LogServiceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "quiv-log-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    m_dir = pattern;
  }
  void TearDown() override { fs::remove_all(m_dir); }

  std::vector<std::string> Lines(const fs::path& file) const {
    std::ifstream in(file);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
  }

  fs::path m_dir;
};

struct Record {
  std::string identity;
  int priority;
  std::string text;
};

LogService::SystemLogWriter Recorder(std::vector<Record>& records) {
  return [&records](std::string_view identity, int priority, std::string_view text) {
    records.push_back({std::string(identity), priority, std::string(text)});
  };
}

uint32_t CodeOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const CspError& e) {
    return e.code();
  }
  return 0;
}

TEST_F(LogServiceTest, FileModeAppendsOneLinePerEventWithItsType) {
  const fs::path file = m_dir / "cryptoerr.log";
  LogService log;
  log.Start(file.string(), LogMode::File);
  log.Write("first failure", LogEventType::Error);
  log.Write("just saying", LogEventType::Information);
  const std::vector<std::string> lines = Lines(file);
  ASSERT_EQ(lines.size(), 2u);
  // "YYYY-MM-DD HH:MM:SS Error: first failure"
  EXPECT_EQ(lines[0].size(), 20 + std::string("Error: first failure").size());
  EXPECT_EQ(lines[0].substr(20), "Error: first failure");
  EXPECT_EQ(lines[0][4], '-');
  EXPECT_EQ(lines[0][13], ':');
  EXPECT_EQ(lines[1].substr(20), "Information: just saying");
}

TEST_F(LogServiceTest, FileModeKeepsWhatWasThere) {
  const fs::path file = m_dir / "existing.log";
  std::ofstream(file) << "older line\n";
  LogService log;
  log.Start(file.string(), LogMode::File);
  log.Write("newer", LogEventType::Warning);
  LogService second;  // another start on the same file appends too
  second.Start(file.string(), LogMode::File);
  second.Write("newest", LogEventType::Success);
  const std::vector<std::string> lines = Lines(file);
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0], "older line");
  EXPECT_EQ(lines[1].substr(20), "Warning: newer");
  EXPECT_EQ(lines[2].substr(20), "Success: newest");
}

TEST_F(LogServiceTest, NewFileIsPrivate) {
  const fs::path file = m_dir / "private.log";
  LogService log;
  log.Start(file.string(), LogMode::File);
  struct stat st {};
  ASSERT_EQ(stat(file.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
}

TEST_F(LogServiceTest, WriteBeforeStartIsRefused) {
  LogService log;
  EXPECT_EQ(CodeOf([&] { log.Write("x", LogEventType::Error); }),
            static_cast<uint32_t>(ERROR_INVALID_PARAMETER));
}

TEST_F(LogServiceTest, UnopenableFileIsAccessDenied) {
  LogService log;
  const fs::path file = m_dir / "no-such-folder" / "x.log";
  EXPECT_EQ(CodeOf([&] { log.Start(file.string(), LogMode::File); }),
            static_cast<uint32_t>(ERROR_ACCESS_DENIED));
  // A failed start leaves logging stopped.
  EXPECT_EQ(CodeOf([&] { log.Write("x", LogEventType::Error); }),
            static_cast<uint32_t>(ERROR_INVALID_PARAMETER));
}

TEST_F(LogServiceTest, EmptyFilePathIsRefused) {
  LogService log;
  EXPECT_EQ(CodeOf([&] { log.Start("", LogMode::File); }),
            static_cast<uint32_t>(ERROR_INVALID_PARAMETER));
}

TEST_F(LogServiceTest, SystemLogModeWritesRecordsWithPriorities) {
  std::vector<Record> records;
  LogService log(Recorder(records));
  log.Start("quiv-test", LogMode::SystemLog);
  log.Write("bad thing", LogEventType::Error);
  log.Write("careful", LogEventType::Warning);
  log.Write("fyi", LogEventType::Information);
  log.Write("done", LogEventType::Success);
  ASSERT_EQ(records.size(), 4u);
  EXPECT_EQ(records[0].identity, "quiv-test");
  EXPECT_EQ(records[0].priority, LOG_ERR);
  EXPECT_EQ(records[0].text, "bad thing");
  EXPECT_EQ(records[1].priority, LOG_WARNING);
  EXPECT_EQ(records[2].priority, LOG_INFO);
  EXPECT_EQ(records[3].priority, LOG_NOTICE);
}

TEST_F(LogServiceTest, SwitchingTargetStopsWritingTheOldOne) {
  std::vector<Record> records;
  const fs::path file = m_dir / "switch.log";
  LogService log(Recorder(records));
  log.Start(file.string(), LogMode::File);
  log.Write("to the file", LogEventType::Error);
  log.Start("", LogMode::SystemLog);
  log.Write("to the system log", LogEventType::Error);
  EXPECT_EQ(Lines(file).size(), 1u);
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].identity, "quiv");  // empty identity gets the library's name
  EXPECT_EQ(records[0].text, "to the system log");
}

TEST_F(LogServiceTest, RealSyslogAcceptsAnEvent) {
  LogService log;  // the real syslog: nothing to read back, but it must not fail
  log.Start("quiv-logservice-test", LogMode::SystemLog);
  EXPECT_EQ(CodeOf([&] { log.Write("LogServiceTest event", LogEventType::Information); }), 0u);
}

TEST_F(LogServiceTest, PlatformLogCallsReportThroughLastError) {
  std::vector<Record> records;
  RealPlatform platform(Recorder(records));
  SetLastError(0);
  EXPECT_FALSE(platform.LogEvent("not started", LogEventType::Error));
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
  EXPECT_FALSE(platform.StartLogging((m_dir / "missing" / "x.log").string(), LogMode::File));
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
  ASSERT_TRUE(platform.StartLogging("app", LogMode::SystemLog));
  ASSERT_TRUE(platform.LogEvent("through the seam", LogEventType::Error));
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].text, "through the seam");
  const fs::path file = m_dir / "seam.log";
  ASSERT_TRUE(platform.StartLogging(file.string(), LogMode::File));
  ASSERT_TRUE(platform.LogEvent("into the file", LogEventType::Warning));
  const std::vector<std::string> lines = Lines(file);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].substr(20), "Warning: into the file");
}

}  // namespace
}  // namespace quiv::platform
