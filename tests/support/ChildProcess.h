// ChildProcess: runs part of a test in a real second process (fork), for what must hold between
// processes: the container store's locks and crash safety, and what one process sees of another's
// changes. The child runs `body` and exits with its return value (99 when it throws) without
// returning into the test framework.
#ifndef QUIV_TESTS_SUPPORT_CHILDPROCESS_H
#define QUIV_TESTS_SUPPORT_CHILDPROCESS_H

#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <functional>
#include <vector>

namespace quiv::test {

// Starts `body` in a child process; returns its pid.
inline pid_t Spawn(const std::function<int()>& body) {
  const pid_t pid = ::fork();
  if (pid == 0) {
    int status = 99;
    try {
      status = body();
    } catch (...) {
    }
    ::_exit(status);
  }
  return pid;
}

// Waits for the child: its exit status, 128 + the signal that ended it, or -1.
inline int ExitStatusOf(pid_t pid) {
  int status = 0;
  if (::waitpid(pid, &status, 0) != pid) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Runs `body` in a child process and returns the bytes it returned, or nothing when the child
// failed.
inline std::vector<uint8_t> BytesFromChild(const std::function<std::vector<uint8_t>()>& body) {
  int fds[2];
  if (::pipe(fds) != 0) return {};
  const pid_t pid = Spawn([&] {
    const std::vector<uint8_t> out = body();
    size_t done = 0;
    while (done < out.size()) {
      const ssize_t n = ::write(fds[1], out.data() + done, out.size() - done);
      if (n <= 0) return 1;
      done += static_cast<size_t>(n);
    }
    return 0;
  });
  ::close(fds[1]);
  std::vector<uint8_t> in;
  uint8_t buffer[4096];
  for (ssize_t n; (n = ::read(fds[0], buffer, sizeof buffer)) > 0;)
    in.insert(in.end(), buffer, buffer + n);
  ::close(fds[0]);
  return ExitStatusOf(pid) == 0 ? in : std::vector<uint8_t>{};
}

}  // namespace quiv::test

#endif
