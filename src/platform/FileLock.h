// FileLock: an advisory whole-file lock (flock) on a lock file, held for the lifetime of the
// object. Shared locks are for readers, the exclusive lock for read-modify-write. Each FileLock
// opens its own descriptor, so two FileLocks conflict whether they are in different processes
// or in different threads of one process (flock locks belong to the open file description).
//
// A process that forks while holding a FileLock gives the child a copy of the locked
// descriptor; the lock then lasts until both have closed it. The container store holds locks
// only for the length of one operation, so this matters only for a fork from another thread in
// that window (the descriptor is close-on-exec, so an exec ends it).
//
// Ownership: the FileLock owns the descriptor; destroying it closes the descriptor, which
// releases the lock. The lock file itself is never deleted (deleting a lock file lets two
// processes lock two different files).
#ifndef QUIV_PLATFORM_FILELOCK_H
#define QUIV_PLATFORM_FILELOCK_H

#include <filesystem>

namespace quiv::platform {

class FileLock final {
 public:
  enum class Mode { Shared, Exclusive };

  // Opens `path` (creating it 0600 when missing) and waits until the lock is granted.
  // A shared lock on a folder where the lock file cannot be created (read-only store, no lock
  // file yet) is granted without a descriptor: no writer can have used that folder either.
  // throws CspError with AtomicFile::ErrorCode(errno) on any other failure.
  FileLock(const std::filesystem::path& path, Mode mode);
  ~FileLock();

  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

 private:
  int m_fd = -1;
};

}  // namespace quiv::platform

#endif
