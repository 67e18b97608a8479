#include "server/ClassRegistry.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "platform/AtomicFile.h"
#include "platform/CspError.h"
#include "platform/FileLock.h"
#include "platform/UserHome.h"
#include "platform/wincrypt.h"
#include "server/GuidText.h"
#include "server/RegistryText.h"

namespace quiv::server {

namespace {

using platform::AtomicFile;
using platform::CspError;
using platform::FileLock;

constexpr mode_t kFileMode = 0644;
constexpr mode_t kMachineFolderMode = 0755;
constexpr mode_t kUserFolderMode = 0700;

std::string_view Environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string_view() : std::string_view(value);
}

std::optional<std::filesystem::path> UserFile() {
  // XDG base directories: a relative XDG_CONFIG_HOME is invalid and ignored.
  if (const auto xdg = Environment("XDG_CONFIG_HOME"); !xdg.empty() && xdg.front() == '/') {
    return std::filesystem::path(xdg) / "quiv" / "registry";
  }
  const auto home = platform::UserHome();
  if (!home) return std::nullopt;
  return std::filesystem::path(*home) / ".config" / "quiv" / "registry";
}

// What a failed file operation says: the provider's code for the errno it met.
std::string Reason(const CspError& error) {
  switch (error.code()) {
    case static_cast<uint32_t>(NTE_PERM):
      return "permission denied";
    case static_cast<uint32_t>(NTE_NO_MEMORY):
      return "out of memory";
    case static_cast<uint32_t>(NTE_KEYSET_ENTRY_BAD):
      return "not a regular file or too large";
    default:
      return "input/output error";
  }
}

// Whether `old` has the program id or the class id of one of `entries`.
bool Collides(const RegistryEntry& old, const std::vector<RegistryEntry>& entries) {
  return std::any_of(entries.begin(), entries.end(), [&](const RegistryEntry& e) {
    return RegistryText::SameProgId(old.progId, e.progId) || IsEqualGUID(&old.classId, &e.classId);
  });
}

// Entries one library may register together: valid, of that library, without duplicates.
void CheckOneLibrary(const std::vector<RegistryEntry>& entries) {
  for (size_t i = 0; i < entries.size(); ++i) {
    RegistryText::Check(entries[i]);
    if (entries[i].library != entries.front().library) {
      throw std::invalid_argument("entries of more than one library");
    }
    if (Collides(entries[i], {entries.begin(), entries.begin() + static_cast<ptrdiff_t>(i)})) {
      throw std::invalid_argument("program id '" + entries[i].progId + "' or class id " +
                                  FormatGuid(entries[i].classId) + " given twice");
    }
  }
}

[[noreturn]] void FailWrite(const std::filesystem::path& file, const std::string& reason) {
  throw RegistryError(REGDB_E_WRITEREGDB,
                      "cannot write the registry " + file.string() + ": " + reason);
}

}  // namespace

std::vector<std::filesystem::path> ClassRegistry::SearchPath() {
  if (const auto relocated = Environment(kEnvironment); !relocated.empty()) {
    return {std::filesystem::path(relocated)};
  }
  std::vector<std::filesystem::path> files;
  if (const auto user = UserFile()) files.push_back(*user);
  files.emplace_back(kMachineFile);
  return files;
}

std::filesystem::path ClassRegistry::DefaultWritePath() {
  if (const auto relocated = Environment(kEnvironment); !relocated.empty()) {
    return std::filesystem::path(relocated);
  }
  if (::geteuid() == 0) return kMachineFile;
  const auto user = UserFile();
  if (!user) FailWrite("(per-user)", "neither XDG_CONFIG_HOME nor HOME locates it");
  return *user;
}

std::optional<RegistryEntry> ClassRegistry::Lookup(std::string_view progIdOrClassId) {
  for (const auto& file : SearchPath()) {
    if (auto found = ClassRegistry(file).Find(progIdOrClassId)) return found;
  }
  return std::nullopt;
}

ClassRegistry::ClassRegistry(std::filesystem::path file) : m_file(std::move(file)) {}

std::vector<RegistryEntry> ClassRegistry::Entries() const {
  std::optional<platform::SecureBytes> bytes;
  try {
    bytes = AtomicFile::Read(m_file, kMaxFileBytes);
  } catch (const CspError& error) {
    throw RegistryError(REGDB_E_READREGDB,
                        "cannot read the registry " + m_file.string() + ": " + Reason(error));
  }
  if (!bytes) return {};
  try {
    return RegistryText::Parse(
        std::string_view(reinterpret_cast<const char*>(bytes->data()), bytes->size()));
  } catch (const std::invalid_argument& error) {
    throw RegistryError(REGDB_E_READREGDB,
                        "damaged registry " + m_file.string() + ", " + error.what());
  }
}

void ClassRegistry::Register(const std::vector<RegistryEntry>& entries) {
  try {
    CheckOneLibrary(entries);
  } catch (const std::invalid_argument& error) {
    throw RegistryError(E_INVALIDARG, std::string("cannot register: ") + error.what());
  }
  if (entries.empty()) return;
  const auto lock = LockForWriting(true);
  std::vector<RegistryEntry> kept = Entries();
  std::erase_if(kept, [&](const RegistryEntry& old) {
    return old.library == entries.front().library || Collides(old, entries);
  });
  kept.insert(kept.end(), entries.begin(), entries.end());
  Save(kept);
}

size_t ClassRegistry::Unregister(std::string_view library) {
  const auto lock = LockForWriting(false);
  if (!lock) return 0;  // no folder, so nothing registered
  std::vector<RegistryEntry> kept = Entries();
  const size_t removed =
      std::erase_if(kept, [&](const RegistryEntry& old) { return old.library == library; });
  if (removed != 0) Save(kept);
  return removed;
}

std::optional<RegistryEntry> ClassRegistry::FindByProgId(std::string_view progId) const {
  for (RegistryEntry& e : Entries()) {
    if (RegistryText::SameProgId(e.progId, progId)) return std::move(e);
  }
  return std::nullopt;
}

std::optional<RegistryEntry> ClassRegistry::FindByClassId(const GUID& classId) const {
  for (RegistryEntry& e : Entries()) {
    if (IsEqualGUID(&e.classId, &classId)) return std::move(e);
  }
  return std::nullopt;
}

std::optional<RegistryEntry> ClassRegistry::Find(std::string_view progIdOrClassId) const {
  if (progIdOrClassId.starts_with('{')) {
    const auto classId = ParseGuid(progIdOrClassId);
    return classId ? FindByClassId(*classId) : std::nullopt;
  }
  return FindByProgId(progIdOrClassId);
}

std::unique_ptr<platform::FileLock> ClassRegistry::LockForWriting(bool createFolder) const {
  const auto folder =
      m_file.parent_path().empty() ? std::filesystem::path(".") : m_file.parent_path();
  try {
    if (createFolder) {
      AtomicFile::MakeFolder(folder, m_file == kMachineFile ? kMachineFolderMode : kUserFolderMode);
    } else if (!std::filesystem::is_directory(folder)) {
      return nullptr;
    }
    return std::make_unique<FileLock>(std::filesystem::path(m_file.string() + ".lock"),
                                      FileLock::Mode::Exclusive);
  } catch (const CspError& error) {
    FailWrite(m_file, Reason(error));
  }
}

void ClassRegistry::Save(const std::vector<RegistryEntry>& entries) const {
  try {
    if (entries.empty()) {
      AtomicFile::Remove(m_file);
      return;
    }
    const std::string text = RegistryText::Format(entries);
    AtomicFile::Write(m_file, {reinterpret_cast<const uint8_t*>(text.data()), text.size()},
                      kFileMode);
  } catch (const CspError& error) {
    FailWrite(m_file, Reason(error));
  }
}

}  // namespace quiv::server
