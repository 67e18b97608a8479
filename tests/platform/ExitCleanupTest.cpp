// A program may end with provider handles still open, however it ends: returning from main,
// calling exit(), exiting from another thread while this one works, returning while another
// thread still works, or using the handles from an atexit handler. Each case runs the small
// program exit_child (every hash and key kind, RSA pairs, verify and named contexts) in a child
// process, after each of the early calls that once made the handle tables outlive the OpenSSL
// state their objects hold; it must end with status 0 and print nothing (no crash, no hang, no
// sanitizer report). The child is built twice where the test build is sanitized: once with the
// sanitizers and once plain, since a plain build crashes where the sanitizers only report.
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <tuple>
#include <vector>

#include "support/TempKeyStore.h"

extern char** environ;

namespace quiv::test {
namespace {

struct ChildResult {
  int status = -1;
  bool timedOut = false;
  std::string output;
};

// Runs `argv` with stdout and stderr in one pipe; kills it after `limit`.
ChildResult RunChild(const std::vector<std::string>& argv, std::chrono::seconds limit) {
  ChildResult result;
  int fds[2];
  if (::pipe(fds) != 0) return result;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, fds[1], STDERR_FILENO);
  posix_spawn_file_actions_addclose(&actions, fds[0]);
  std::vector<char*> args;
  for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  pid_t pid = -1;
  const int spawned = posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(fds[1]);
  if (spawned != 0) {
    ::close(fds[0]);
    result.output = "spawn failed";
    return result;
  }
  const auto deadline = std::chrono::steady_clock::now() + limit;
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      result.timedOut = true;
      ::kill(pid, SIGKILL);
      break;
    }
    pollfd p{fds[0], POLLIN, 0};
    if (::poll(&p, 1, static_cast<int>(left.count())) <= 0) continue;
    char buffer[4096];
    const ssize_t n = ::read(fds[0], buffer, sizeof buffer);
    if (n <= 0) break;  // every writer is gone: the child has ended
    result.output.append(buffer, static_cast<size_t>(n));
  }
  ::close(fds[0]);
  ::waitpid(pid, &result.status, 0);
  return result;
}

std::string Describe(int status) {
  if (WIFEXITED(status)) return "exit status " + std::to_string(WEXITSTATUS(status));
  if (WIFSIGNALED(status)) return "killed by signal " + std::to_string(WTERMSIG(status));
  return "status " + std::to_string(status);
}

// The child programs: the sanitized one, and the plain one where the build has sanitizers.
std::vector<std::string> Children() {
  std::vector<std::string> out = {QUIV_EXIT_CHILD};
  if (std::string(QUIV_EXIT_CHILD_PLAIN) != "") out.push_back(QUIV_EXIT_CHILD_PLAIN);
  return out;
}

using Case = std::tuple<std::string, std::string, std::string, std::string>;

class ExitCleanupTest : public ::testing::TestWithParam<Case> {};

TEST_P(ExitCleanupTest, EndsCleanlyWithHandlesOpen) {
  const auto& [child, provider, early, ending] = GetParam();
  const TempKeyStore store;
  const ChildResult r = RunChild({child, provider, early, ending}, std::chrono::seconds(90));
  EXPECT_FALSE(r.timedOut) << "the child hung at exit";
  EXPECT_TRUE(WIFEXITED(r.status) && WEXITSTATUS(r.status) == 0) << Describe(r.status);
  EXPECT_EQ(r.output, "");
}

std::string CaseName(const ::testing::TestParamInfo<Case>& info) {
  const auto& [child, provider, early, ending] = info.param;
  std::string name =
      (child == Children().front() ? "main_" : "plain_") + provider + "_" + early + "_" + ending;
  for (char& c : name) {
    if (c == '-') c = '_';
  }
  return name;
}

INSTANTIATE_TEST_SUITE_P(Matrix, ExitCleanupTest,
                         ::testing::Combine(::testing::ValuesIn(Children()),
                                            ::testing::Values("base", "enhanced", "strong"),
                                            ::testing::Values("none", "zero", "verify"),
                                            ::testing::Values("return", "exit", "thread-exit",
                                                              "thread-running", "atexit")),
                         CaseName);

}  // namespace
}  // namespace quiv::test
