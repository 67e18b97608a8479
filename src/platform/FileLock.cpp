#include "platform/FileLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/AtomicFile.h"
#include "platform/CspError.h"

namespace quiv::platform {
namespace {

bool CannotCreate(int error) {
  return error == EACCES || error == EPERM || error == EROFS;
}

// Opens the lock file, creating it 0600 whatever the umask when it does not exist yet.
int OpenOrCreate(const std::filesystem::path& path) {
  for (;;) {
    const int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
    if (fd >= 0 || errno != ENOENT) return fd;
    const int created = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (created < 0 && errno == EEXIST) continue;  // another process made it first
    if (created >= 0 && ::fchmod(created, 0600) != 0) {
      const int error = errno;
      ::close(created);
      errno = error;
      return -1;
    }
    return created;
  }
}

}  // namespace

FileLock::FileLock(const std::filesystem::path& path, Mode mode) {
  m_fd = OpenOrCreate(path);
  if (m_fd < 0 && mode == Mode::Shared && CannotCreate(errno)) {
    m_fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (m_fd < 0 && errno == ENOENT) return;
  }
  if (m_fd < 0) throw CspError(AtomicFile::ErrorCode(errno));
  const int operation = mode == Mode::Shared ? LOCK_SH : LOCK_EX;
  while (::flock(m_fd, operation) != 0) {
    if (errno == EINTR) continue;
    const int error = errno;
    ::close(m_fd);
    throw CspError(AtomicFile::ErrorCode(error));
  }
}

FileLock::~FileLock() {
  if (m_fd >= 0) ::close(m_fd);
}

}  // namespace quiv::platform
