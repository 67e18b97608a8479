// AtomicFileCalls: the system calls whose order makes AtomicFile's writes durable (open, fsync,
// rename, unlink), behind an interface so that a test can record the order in which a write
// makes them, or make one fail, without a preloaded shim. The default forwards to the system.
//
// Every member behaves as the system call of the same name: it returns what the call returns and
// leaves errno as the call leaves it.
//
// Ownership: stateless. AtomicFile::SetCalls installs another implementation process-wide; the
// caller keeps it alive until it is uninstalled.
#ifndef QUIV_PLATFORM_ATOMICFILECALLS_H
#define QUIV_PLATFORM_ATOMICFILECALLS_H

#include <sys/types.h>

#include <filesystem>

namespace quiv::platform {

class AtomicFileCalls {
 public:
  virtual ~AtomicFileCalls() = default;

  virtual int Open(const std::filesystem::path& path, int flags, mode_t mode);
  virtual int Fsync(int fd);
  virtual int Rename(const std::filesystem::path& from, const std::filesystem::path& to);
  virtual int Unlink(const std::filesystem::path& path);
};

}  // namespace quiv::platform

#endif
