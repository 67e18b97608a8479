// ClassRegistry: the registry file that maps program ids and class ids to the library serving
// the class, as the platform's registry does for in-process servers. DllRegisterServer adds a
// library's classes, DllUnregisterServer removes them, and creation by program id looks them up.
//
// Where the files are:
//   - $QUIV_REGISTRY, when set (a file path), is the only registry: read, written, searched.
//   - Otherwise the user's file ${XDG_CONFIG_HOME:-$HOME/.config}/quiv/registry and the machine's
//     /etc/quiv/registry; lookups search the user's first, then the machine's, as the platform
//     merges per-user over machine-wide classes; registration writes the machine's file when
//     the process runs as root, the user's otherwise.
// The text format is RegistryText's. A missing file is an empty registry; a damaged one is an
// error, never guessed at or overwritten.
//
// Writing is a read-modify-write under an exclusive lock on "<file>.lock" beside the file, then
// an atomic replacement (temporary file, fsync, rename, folder fsync), so readers, who take no
// lock, see the old or the new file whole. Files are written 0644; a folder made for the
// machine's file is 0755, one made for a user's 0700.
//
// Errors: RegistryError (see RegistryError.h) from every member that touches a file.
#ifndef QUIV_SERVER_CLASSREGISTRY_H
#define QUIV_SERVER_CLASSREGISTRY_H

#include <filesystem>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/FileLock.h"
#include "server/RegistryEntry.h"
#include "server/RegistryError.h"

namespace quiv::server {

class ClassRegistry final {
 public:
  static constexpr const char* kEnvironment = "QUIV_REGISTRY";
  static constexpr const char* kMachineFile = "/etc/quiv/registry";
  static constexpr size_t kMaxFileBytes = 1 << 20;

  // The files lookups search, in order (environment read now). A user file that cannot be
  // located (no XDG_CONFIG_HOME, HOME or passwd entry) is left out.
  static std::vector<std::filesystem::path> SearchPath();
  // The file registration writes (environment and effective uid read now).
  // throws RegistryError(REGDB_E_WRITEREGDB) when the user's file cannot be located.
  static std::filesystem::path DefaultWritePath();

  // The first class of SearchPath() whose program id (ASCII case ignored) or, for text of the
  // form "{XXXXXXXX-...}", class id matches; nullopt when none does.
  static std::optional<RegistryEntry> Lookup(std::string_view progIdOrClassId);

  // One registry file.
  explicit ClassRegistry(std::filesystem::path file);
  const std::filesystem::path& file() const { return m_file; }

  // Every entry, in file order; empty when the file does not exist.
  std::vector<RegistryEntry> Entries() const;

  // Registers the classes of one library: every entry must name the same library, be valid
  // (RegistryText::Check) and have its own program id and class id. Removes what that library
  // registered before and any entry of another library with one of the same program ids or
  // class ids (the last registration wins, as on the platform), then adds `entries`.
  // throws RegistryError(E_INVALIDARG) for bad entries, otherwise as the class comment says.
  void Register(const std::vector<RegistryEntry>& entries);

  // Removes exactly the entries whose library is `library` and returns how many; other
  // libraries' entries stay. The file is removed when nothing is left in it.
  size_t Unregister(std::string_view library);

  std::optional<RegistryEntry> FindByProgId(std::string_view progId) const;
  std::optional<RegistryEntry> FindByClassId(const GUID& classId) const;
  // A class id when `text` is a braced GUID, a program id otherwise.
  std::optional<RegistryEntry> Find(std::string_view progIdOrClassId) const;

 private:
  // The exclusive writer's lock, after making the folder when `createFolder`; nullptr when the
  // folder does not exist and is not to be made.
  std::unique_ptr<platform::FileLock> LockForWriting(bool createFolder) const;
  // Replaces the file by `entries`, or removes it when there are none.
  void Save(const std::vector<RegistryEntry>& entries) const;

  std::filesystem::path m_file;
};

}  // namespace quiv::server

#endif
