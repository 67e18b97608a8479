#include "platform/AtomicFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>

#include "platform/AtomicFileCalls.h"
#include "platform/ContainerStoreLog.h"
#include "platform/CspError.h"
#include "platform/wincrypt.h"

namespace quiv::platform {
namespace {

std::atomic<AtomicFile::BeforeRenameHook> g_beforeRename{nullptr};
std::atomic<uint64_t> g_tempCounter{0};
std::atomic<AtomicFileCalls*> g_calls{nullptr};

AtomicFileCalls& Calls() {
  // Never destroyed, so that a store used from an exit handler still has its system calls.
  static AtomicFileCalls* const system = new AtomicFileCalls();
  AtomicFileCalls* installed = g_calls.load();
  return installed != nullptr ? *installed : *system;
}

[[noreturn]] void ThrowErrno(int error) {
  throw CspError(AtomicFile::ErrorCode(error));
}

// Closes a descriptor on every path out of a function.
class Descriptor final {
 public:
  explicit Descriptor(int fd) : m_fd(fd) {}
  ~Descriptor() {
    if (m_fd >= 0) ::close(m_fd);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return m_fd; }
  // Closes now and reports the error close() gives (a delayed write error on some filesystems).
  int Close() {
    const int result = ::close(m_fd);
    m_fd = -1;
    return result == 0 ? 0 : errno;
  }

 private:
  int m_fd;
};

// A rename or an unlink is durable only once the folder holding the entry is synced.
void SyncFolder(const std::filesystem::path& folder) {
  Descriptor dir(Calls().Open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0));
  if (dir.get() < 0) ThrowErrno(errno);
  if (Calls().Fsync(dir.get()) != 0) ThrowErrno(errno);
}

void WriteAll(int fd, std::span<const uint8_t> bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) ThrowErrno(errno);
    done += static_cast<size_t>(n);
  }
}

std::filesystem::path TemporaryFor(const std::filesystem::path& target) {
  const std::string name = std::string(AtomicFile::kTempPrefix) + target.filename().string() + "-" +
                           std::to_string(::getpid()) + "-" +
                           std::to_string(g_tempCounter.fetch_add(1));
  return target.parent_path() / name;
}

std::filesystem::path FolderOf(const std::filesystem::path& path) {
  const auto parent = path.parent_path();
  return parent.empty() ? std::filesystem::path(".") : parent;
}

// Writes the complete temporary file; its content is on disk when this returns.
void WriteTemporary(const std::filesystem::path& temporary, std::span<const uint8_t> bytes,
                    mode_t mode) {
  Descriptor file(
      Calls().Open(temporary, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (file.get() < 0) ThrowErrno(errno);
  // The umask may have removed bits at creation; set the mode exactly.
  if (::fchmod(file.get(), mode) != 0) ThrowErrno(errno);
  WriteAll(file.get(), bytes);
  if (Calls().Fsync(file.get()) != 0) ThrowErrno(errno);
  if (const int error = file.Close(); error != 0) ThrowErrno(error);
}

bool IsFolder(const std::filesystem::path& path) {
  struct stat info {};
  return ::lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// Says in the log why `path` could not be removed, then throws the code for `error`.
[[noreturn]] void Refuse(const std::filesystem::path& path, int error) {
  ContainerStoreLog::Warn("cannot remove " + path.string() + ": " + std::strerror(error));
  ThrowErrno(error);
}

// A folder where a file should be: removed with everything in it (symbolic links inside are
// removed, never followed).
void RemoveFolder(const std::filesystem::path& path) {
  std::error_code error;
  std::filesystem::remove_all(path, error);
  if (error) Refuse(path, error.value());
}

}  // namespace

uint32_t AtomicFile::ErrorCode(int error) {
  switch (error) {
    case EACCES:
    case EPERM:
    case EROFS:
      return static_cast<uint32_t>(NTE_PERM);
    case ENOMEM:
      return static_cast<uint32_t>(NTE_NO_MEMORY);
    default:
      return static_cast<uint32_t>(NTE_FAIL);
  }
}

void AtomicFile::MakePrivateFolder(const std::filesystem::path& folder) {
  MakeFolder(folder, 0700);
}

void AtomicFile::MakeFolder(const std::filesystem::path& folder, mode_t mode) {
  std::filesystem::path current;
  for (const auto& part : folder) {
    current /= part;
    if (::mkdir(current.c_str(), mode) == 0) {
      if (::chmod(current.c_str(), mode) != 0) ThrowErrno(errno);
      SyncFolder(FolderOf(current));
      continue;
    }
    if (errno != EEXIST) ThrowErrno(errno);
  }
  struct stat info {};
  if (::stat(folder.c_str(), &info) != 0) ThrowErrno(errno);
  if (!S_ISDIR(info.st_mode)) ThrowErrno(ENOTDIR);
}

void AtomicFile::Write(const std::filesystem::path& target, std::span<const uint8_t> bytes,
                       mode_t mode) {
  const auto temporary = TemporaryFor(target);
  try {
    WriteTemporary(temporary, bytes, mode);
    if (const auto hook = g_beforeRename.load()) hook(temporary);
    if (Calls().Rename(temporary, target) != 0) ThrowErrno(errno);
  } catch (...) {
    Calls().Unlink(temporary);
    throw;
  }
  SyncFolder(FolderOf(target));
}

std::optional<SecureBytes> AtomicFile::Read(const std::filesystem::path& path, size_t maxBytes) {
  Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (file.get() < 0) {
    if (errno == ENOENT) return std::nullopt;
    if (errno == ELOOP) throw CspError(NTE_KEYSET_ENTRY_BAD);
    ThrowErrno(errno);
  }
  struct stat info {};
  if (::fstat(file.get(), &info) != 0) ThrowErrno(errno);
  if (!S_ISREG(info.st_mode)) throw CspError(NTE_KEYSET_ENTRY_BAD);
  if (static_cast<uint64_t>(info.st_size) > maxBytes) throw CspError(NTE_KEYSET_ENTRY_BAD);
  // One byte more than allowed, so a file that grew after fstat is still caught.
  SecureBytes bytes(static_cast<size_t>(info.st_size) + 1);
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = ::read(file.get(), bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) ThrowErrno(errno);
    if (n == 0) break;
    done += static_cast<size_t>(n);
  }
  if (done > maxBytes) throw CspError(NTE_KEYSET_ENTRY_BAD);
  bytes.resize(done);
  return bytes;
}

bool AtomicFile::Remove(const std::filesystem::path& path) {
  if (Calls().Unlink(path) != 0) {
    const int error = errno;
    if (error == ENOENT) return false;
    // Linux reports EISDIR for a folder, POSIX allows EPERM.
    if ((error != EISDIR && error != EPERM) || !IsFolder(path)) Refuse(path, error);
    RemoveFolder(path);
  }
  SyncFolder(FolderOf(path));
  return true;
}

void AtomicFile::RemoveStaleTemporaries(const std::filesystem::path& folder) {
  std::error_code error;
  std::filesystem::directory_iterator it(folder, error);
  if (error) ThrowErrno(error.value());
  for (; it != std::filesystem::directory_iterator(); it.increment(error)) {
    const std::string name = it->path().filename().string();
    if (name.starts_with(kTempPrefix)) Calls().Unlink(it->path());
  }
  if (error) ThrowErrno(error.value());
}

void AtomicFile::SetBeforeRenameHook(BeforeRenameHook hook) {
  g_beforeRename.store(hook);
}

void AtomicFile::SetCalls(AtomicFileCalls* calls) {
  g_calls.store(calls);
}

}  // namespace quiv::platform
