// ContainerStore: the provider's key containers, kept in files. There are two stores, one per
// user and one for the machine (CRYPT_MACHINE_KEYSET); a container name can exist in one and not
// the other. A container holds at most one key pair per slot (AT_KEYEXCHANGE, AT_SIGNATURE) as
// opaque bytes (the RSA key's stored form); this class never interprets them.
//
// Where the stores live: ${XDG_DATA_HOME:-$HOME/.local/share}/quiv/keys for the user and
// /var/lib/quiv/keys for the machine. When QUIV_KEY_STORE=<dir> is set, the stores are
// <dir>/user and <dir>/machine. The variable is read when a ContainerStore is constructed.
//
// Names: any bytes except NUL, 1 to 260 bytes (MAX_PATH). Lookup is case-insensitive for ASCII
// letters (bytes 0x80 and above compare exactly, so the file a name maps to never depends on a
// locale); the spelling used at creation is the one kept and listed. Each container is one
// file whose name is derived from a hash of the case-folded name; the real name is inside.
//
// Durability and sharing: every change is written to a temporary file in the store folder,
// fsynced, renamed over the old file and the folder fsynced, so a crash leaves the old or the
// new container whole. Processes are serialised with flock on the store's lock file (shared for
// reads, exclusive for read-modify-write); every operation opens its own lock descriptor, so
// threads of one process are serialised the same way and a ContainerStore may be used from any
// number of threads at once. Files are created 0600 and folders 0700, whatever the umask.
//
// Damage: a container file that is truncated, damaged or not ours makes every operation that
// reads it fail with NTE_KEYSET_ENTRY_BAD. Such a file is never replaced by Create or StorePair;
// only an explicit Delete removes it (the way a user recovers the name), whatever is at its path
// (a folder in its place is removed with its content; a symbolic link, not its target).
//
// The store folder: every operation first checks the folder, as ssh checks a key folder. A
// symbolic link, a folder owned by another user (root excepted) or one that group or others may
// write to is refused with NTE_PERM (a file in place of the folder: NTE_FAIL); read or search
// permission for others on the user's own folder is removed (mode 0700). The folders above the
// store folder are trusted. Refusals and repairs are logged (ContainerStoreLog).
//
// Errors: every member throws CspError. Codes common to all members that touch the disk:
// NTE_PERM (the store folder or a file is not accessible: EACCES, EPERM, EROFS),
// NTE_NO_MEMORY (ENOMEM), NTE_FAIL (any other system failure, e.g. ENOSPC or EIO).
// A name that is empty, longer than 260 bytes or contains a NUL byte gives NTE_BAD_KEYSET
// (the caller maps the empty name to DefaultContainerName() before calling).
//
// Ownership: a ContainerStore owns only its folder path; it holds no open files between calls.
#ifndef QUIV_PLATFORM_CONTAINERSTORE_H
#define QUIV_PLATFORM_CONTAINERSTORE_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ContainerFile.h"
#include "platform/QuivExport.h"
#include "platform/SecureBytes.h"
#include "platform/wincrypt.h"

struct stat;

namespace quiv::platform {

enum class StoreScope : uint8_t { User, Machine };

class QUIV_API ContainerStore final {
 public:
  static constexpr size_t kMaxNameBytes = 260;  // MAX_PATH; PP_ENUMCONTAINERS reports 261

  // The user or machine store at its configured location (QUIV_KEY_STORE is read now).
  // Nothing is created on disk until the first write. throws NTE_FAIL when the user store's
  // location cannot be determined (neither XDG_DATA_HOME nor HOME nor a passwd entry).
  explicit ContainerStore(StoreScope scope);
  // A store rooted at an explicit folder (tools and tests). Does not throw.
  ContainerStore(StoreScope scope, std::filesystem::path folder);

  StoreScope scope() const { return m_scope; }
  const std::filesystem::path& folder() const { return m_folder; }

  // The folder a scope resolves to now (environment applied). throws NTE_FAIL as the ctor.
  static std::filesystem::path DefaultFolder(StoreScope scope);

  // The default container's name: the login name of the effective user (getpwuid(geteuid())),
  // or the decimal uid when there is no passwd entry. Does not throw.
  static std::string DefaultContainerName();

  // PP_UNIQUE_CONTAINER for `name` (without the NUL): MD5 over the name bytes and one zero byte,
  // as four little-endian 32-bit words in 8 lowercase hex digits each, '_', machine GUID.
  // throws NTE_FAIL (digest unavailable).
  static std::string UniqueContainerName(std::string_view name);
  // The machine GUID (36 characters, 8-4-4-4-12 lowercase hex) from /etc/machine-id or
  // /var/lib/dbus/machine-id; without either, one derived from the host name (stable per host).
  static std::string MachineGuid();

  // True when a container of that name (any case) exists, even if its file is damaged.
  // throws NTE_BAD_KEYSET (bad name) and the disk codes.
  bool Exists(std::string_view name) const;

  // CRYPT_NEWKEYSET: creates an empty container and returns its name as stored (= `name`).
  // throws NTE_EXISTS (a container of that name exists, damaged or not), NTE_BAD_KEYSET
  // (bad name) and the disk codes.
  std::string Create(std::string_view name);

  // CRYPT_DELETEKEYSET: removes the container and its key pairs; a damaged file is removed too.
  // throws NTE_BAD_KEYSET (missing or bad name) and the disk codes.
  void Delete(std::string_view name);

  // Opening a container: its stored name and both slots.
  // throws NTE_BAD_KEYSET (missing or bad name), NTE_KEYSET_ENTRY_BAD (damaged file) and the
  // disk codes.
  ContainerFile Open(std::string_view name) const;

  // PP_ENUMCONTAINERS: the names as created, in a stable order (byte order of the case-folded
  // name). Damaged files are skipped (their names cannot be read). A store folder that does not
  // exist yet is an empty store. throws the disk codes.
  std::vector<std::string> List() const;

  // Stores `pair` in `slot` (AT_KEYEXCHANGE or AT_SIGNATURE), replacing what was there; the
  // other slot is kept. Written before returning.
  // throws NTE_BAD_KEYSET (missing or bad name), NTE_BAD_KEY (slot not 1 or 2), NTE_BAD_LEN
  // (pair larger than ContainerFile::kMaxPairBytes), NTE_KEYSET_ENTRY_BAD (damaged file, left
  // as it is) and the disk codes.
  void StorePair(std::string_view name, DWORD slot, std::span<const uint8_t> pair);

  // The bytes stored in `slot`, or nullopt when the slot is empty.
  // throws NTE_BAD_KEYSET (missing or bad name), NTE_BAD_KEY (slot not 1 or 2),
  // NTE_KEYSET_ENTRY_BAD (damaged file) and the disk codes.
  std::optional<SecureBytes> LoadPair(std::string_view name, DWORD slot) const;

  // The file that holds (or would hold) the container `name`: what identifies it in the
  // process's cache of parsed keys. throws NTE_BAD_KEYSET (bad name).
  std::filesystem::path PathOf(std::string_view name) const;

 private:
  // The file of a container: SHA-256 of the case-folded name, in hex, ".key".
  // throws NTE_BAD_KEYSET (bad name).
  std::filesystem::path FileFor(std::string_view name) const;
  std::filesystem::path LockPath() const;
  // False when the folder does not exist yet; checks (and may repair) it when it does.
  // throws NTE_PERM or NTE_FAIL for a folder it refuses, and the disk codes.
  bool FolderExists() const;
  void CheckFolder(const struct stat& info) const;
  std::optional<ContainerFile> ReadLocked(const std::filesystem::path& path,
                                          std::string_view name) const;

  StoreScope m_scope;
  std::filesystem::path m_folder;
};

}  // namespace quiv::platform

#endif
