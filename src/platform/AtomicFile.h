// AtomicFile: the file operations of the container store, made crash-safe. A file is replaced
// by writing a temporary file in the same folder, fsyncing it, renaming it over the target and
// fsyncing the folder, so after a crash or a kill the target holds the old or the new content,
// whole. Files are made 0600 and folders 0700 whatever the process umask, unless a caller asks
// for another mode (files others must read, such as a machine-wide registry). Callers serialise
// writers to one folder (the container store holds its exclusive FileLock).
//
// Ownership: stateless; every buffer belongs to the caller. The test hooks (a function pointer
// and the system-call interface) are process-wide, null outside tests.
//
// Errors: CspError with ErrorCode(errno): NTE_PERM (EACCES, EPERM, EROFS), NTE_NO_MEMORY
// (ENOMEM), NTE_FAIL (anything else).
#ifndef QUIV_PLATFORM_ATOMICFILE_H
#define QUIV_PLATFORM_ATOMICFILE_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>

#include <sys/types.h>

#include "platform/SecureBytes.h"

namespace quiv::platform {

class AtomicFileCalls;

class AtomicFile final {
 public:
  // Temporary files start with this prefix; listing code skips them.
  static constexpr const char* kTempPrefix = ".tmp-";

  // The provider error code for a failed system call.
  static uint32_t ErrorCode(int error);

  // Creates `folder` and any missing parent, each new one 0700 (existing folders are left as
  // they are). throws the errno codes.
  static void MakePrivateFolder(const std::filesystem::path& folder);
  // The same with `mode` for the new folders.
  static void MakeFolder(const std::filesystem::path& folder, mode_t mode);

  // Replaces `target` with `bytes` atomically and durably; the new file has `mode`.
  // On failure the target is untouched and the temporary file removed. throws the errno codes.
  static void Write(const std::filesystem::path& target, std::span<const uint8_t> bytes,
                    mode_t mode = 0600);

  // The whole content of `path`, or nullopt when it does not exist. A path that is not a
  // regular file (a symbolic link, a folder) or is larger than `maxBytes` is not one of ours:
  // throws CspError(NTE_KEYSET_ENTRY_BAD); the errno codes otherwise.
  static std::optional<SecureBytes> Read(const std::filesystem::path& path, size_t maxBytes);

  // Removes `path` durably (unlink, fsync of the folder), whatever it is: a file, a symbolic
  // link (not its target) or a folder, with everything in it. Returns false when nothing was
  // there. throws the errno codes, and logs the path and the system's reason.
  static bool Remove(const std::filesystem::path& path);

  // Removes temporary files left in `folder` by writers that died before renaming them.
  // Only safe while holding the folder's exclusive lock (no live writer then has one open).
  static void RemoveStaleTemporaries(const std::filesystem::path& folder);

  // Test only: called in Write after the temporary file is complete and synced, before the
  // rename, with the temporary file's path. nullptr (the default) disables it.
  using BeforeRenameHook = void (*)(const std::filesystem::path& temporary);
  static void SetBeforeRenameHook(BeforeRenameHook hook);

  // Test only: the system calls every member makes through AtomicFileCalls; nullptr (the
  // default) restores the system's own. The object must outlive its installation.
  static void SetCalls(AtomicFileCalls* calls);
};

}  // namespace quiv::platform

#endif
