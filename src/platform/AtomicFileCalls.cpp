#include "platform/AtomicFileCalls.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

namespace quiv::platform {

int AtomicFileCalls::Open(const std::filesystem::path& path, int flags, mode_t mode) {
  return ::open(path.c_str(), flags, mode);
}

int AtomicFileCalls::Fsync(int fd) {
  return ::fsync(fd);
}

int AtomicFileCalls::Rename(const std::filesystem::path& from, const std::filesystem::path& to) {
  return ::rename(from.c_str(), to.c_str());
}

int AtomicFileCalls::Unlink(const std::filesystem::path& path) {
  return ::unlink(path.c_str());
}

}  // namespace quiv::platform
