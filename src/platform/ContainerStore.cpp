#include "platform/ContainerStore.h"

#include <openssl/evp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <utility>

#include "platform/AtomicFile.h"
#include "platform/ContainerKeyCache.h"
#include "platform/ContainerStoreLog.h"
#include "platform/CspError.h"
#include "platform/FileLock.h"
#include "platform/Ossl.h"
#include "platform/UserHome.h"

namespace quiv::platform {
namespace {

constexpr const char* kLockFile = ".lock";
constexpr const char* kFileSuffix = ".key";
constexpr size_t kHexNameLength = 64;  // SHA-256 in hex

std::string_view Environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string_view() : std::string_view(value);
}

// Container names are compared like the Windows providers' ANSI names, but only ASCII letters
// are folded: folding by locale would let the file a name maps to change with the locale.
std::string Folded(std::string_view name) {
  std::string folded(name);
  for (char& c : folded) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return folded;
}

void CheckName(std::string_view name) {
  if (name.empty() || name.size() > ContainerStore::kMaxNameBytes ||
      name.find('\0') != std::string_view::npos) {
    throw CspError(NTE_BAD_KEYSET);
  }
}

void CheckSlot(DWORD slot) {
  if (slot != AT_KEYEXCHANGE && slot != AT_SIGNATURE) throw CspError(NTE_BAD_KEY);
}

template <size_t N>
std::array<uint8_t, N> DigestOf(const char* algorithm, std::span<const uint8_t> bytes) {
  std::array<uint8_t, N> digest{};
  unsigned int length = 0;
  Ossl::Check(EVP_Digest(bytes.data(), bytes.size(), digest.data(), &length,
                         Ossl::Digest(algorithm), nullptr),
              static_cast<uint32_t>(NTE_FAIL));
  return digest;
}

std::span<const uint8_t> Bytes(std::string_view text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

std::string Hex(std::span<const uint8_t> bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string out;
  for (const uint8_t b : bytes) {
    out.push_back(kDigits[b >> 4]);
    out.push_back(kDigits[b & 0xF]);
  }
  return out;
}

bool IsContainerFileName(const std::string& name) {
  const std::string_view suffix(kFileSuffix);
  return name.size() == kHexNameLength + suffix.size() && name.ends_with(suffix) &&
         std::all_of(name.begin(), name.begin() + kHexNameLength,
                     [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

std::filesystem::path UserFolder() {
  // XDG base directories: a relative XDG_DATA_HOME is invalid and ignored.
  if (const auto xdg = Environment("XDG_DATA_HOME"); !xdg.empty() && xdg.front() == '/') {
    return std::filesystem::path(xdg) / "quiv" / "keys";
  }
  const auto home = UserHome();
  if (!home) throw CspError(NTE_FAIL);
  return std::filesystem::path(*home) / ".local" / "share" / "quiv" / "keys";
}

// 32 hex digits as 8-4-4-4-12, or nullopt when `id` is not 32 hex digits.
std::optional<std::string> GuidFromHex(std::string id) {
  const auto isHex = [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; };
  if (id.size() != 32 || !std::all_of(id.begin(), id.end(), isHex)) return std::nullopt;
  std::transform(id.begin(), id.end(), id.begin(), [](char c) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  });
  return id.substr(0, 8) + "-" + id.substr(8, 4) + "-" + id.substr(12, 4) + "-" + id.substr(16, 4) +
         "-" + id.substr(20, 12);
}

std::optional<std::string> GuidFromFile(const char* path) {
  std::ifstream in(path);
  std::string line;
  if (!in || !std::getline(in, line)) return std::nullopt;
  return GuidFromHex(line);
}

std::string OctalMode(mode_t mode) {
  std::array<char, 8> text{};
  std::snprintf(text.data(), text.size(), "%04o", static_cast<unsigned>(mode));
  return text.data();
}

std::string ComputeMachineGuid() {
  for (const char* path : {"/etc/machine-id", "/var/lib/dbus/machine-id"}) {
    if (auto guid = GuidFromFile(path)) return *guid;
  }
  std::array<char, 256> host{};
  ::gethostname(host.data(), host.size() - 1);
  const auto digest = DigestOf<16>("MD5", Bytes(host.data()));
  return *GuidFromHex(Hex(digest));
}

}  // namespace

ContainerStore::ContainerStore(StoreScope scope) : m_scope(scope), m_folder(DefaultFolder(scope)) {}

ContainerStore::ContainerStore(StoreScope scope, std::filesystem::path folder)
    : m_scope(scope), m_folder(std::move(folder)) {}

std::filesystem::path ContainerStore::DefaultFolder(StoreScope scope) {
  const char* leaf = scope == StoreScope::User ? "user" : "machine";
  if (const auto relocated = Environment("QUIV_KEY_STORE"); !relocated.empty()) {
    // Made absolute now, so a later change of working folder does not move the store.
    std::error_code error;
    auto base = std::filesystem::absolute(std::filesystem::path(relocated), error);
    if (error) throw CspError(NTE_FAIL);
    return base / leaf;
  }
  if (scope == StoreScope::Machine) return "/var/lib/quiv/keys";
  return UserFolder();
}

std::string ContainerStore::DefaultContainerName() {
  std::vector<char> buffer(16384);
  passwd entry{};
  passwd* found = nullptr;
  const uid_t uid = ::geteuid();
  if (::getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr &&
      found->pw_name != nullptr && found->pw_name[0] != '\0') {
    return found->pw_name;
  }
  return std::to_string(uid);
}

std::string ContainerStore::UniqueContainerName(std::string_view name) {
  // The digest covers the terminating NUL of the ANSI name as well.
  std::string terminated(name);
  terminated.push_back('\0');
  const auto digest = DigestOf<16>("MD5", Bytes(terminated));
  std::string out;
  for (size_t word = 0; word < 4; ++word) {
    const uint32_t value = static_cast<uint32_t>(digest[4 * word]) |
                           static_cast<uint32_t>(digest[4 * word + 1]) << 8 |
                           static_cast<uint32_t>(digest[4 * word + 2]) << 16 |
                           static_cast<uint32_t>(digest[4 * word + 3]) << 24;
    std::array<char, 9> text{};
    std::snprintf(text.data(), text.size(), "%08x", value);
    out += text.data();
  }
  return out + "_" + MachineGuid();
}

std::string ContainerStore::MachineGuid() {
  // Never destroyed: a program may still ask for unique container names from an atexit handler
  // or another thread while exit() runs (see the handle tables in CryptApi.cpp).
  static const std::string* const guid = new std::string(ComputeMachineGuid());
  return *guid;
}

std::filesystem::path ContainerStore::FileFor(std::string_view name) const {
  CheckName(name);
  const std::string folded = Folded(name);
  return m_folder / (Hex(DigestOf<32>("SHA256", Bytes(folded))) + kFileSuffix);
}

std::filesystem::path ContainerStore::PathOf(std::string_view name) const {
  return FileFor(name);
}

std::filesystem::path ContainerStore::LockPath() const {
  return m_folder / kLockFile;
}

bool ContainerStore::FolderExists() const {
  struct stat info {};
  if (::lstat(m_folder.c_str(), &info) != 0) {
    if (errno == ENOENT) return false;
    throw CspError(AtomicFile::ErrorCode(errno));
  }
  CheckFolder(info);
  return true;
}

// The store folder is trusted only as ssh trusts a key folder: a real folder (not a symbolic
// link, which could send the keys anywhere), owned by this user (or root), that no one else can
// write to (a folder others could write to may already hold containers they planted, so it is
// refused, not repaired). Read or search access for others on our own folder is repaired, as
// nothing can have been put in it that way. Every refusal and repair is logged with the path.
void ContainerStore::CheckFolder(const struct stat& info) const {
  const auto refuse = [&](const std::string& why, LONG code) {
    ContainerStoreLog::Warn("refusing the store folder " + m_folder.string() + ": " + why);
    throw CspError(code);
  };
  if (S_ISLNK(info.st_mode)) refuse("it is a symbolic link", NTE_PERM);
  if (!S_ISDIR(info.st_mode)) refuse("it is not a folder", NTE_FAIL);
  const uid_t self = ::geteuid();
  if (info.st_uid != self && info.st_uid != 0) {
    refuse("it belongs to uid " + std::to_string(info.st_uid) + ", not to this user (uid " +
               std::to_string(self) + ")",
           NTE_PERM);
  }
  const mode_t mode = info.st_mode & 07777;
  if ((mode & (S_IWGRP | S_IWOTH)) != 0) {
    refuse("group or others may write to it (mode " + OctalMode(mode) + "); make it 0700",
           NTE_PERM);
  }
  if (info.st_uid == self && (mode & (S_IRWXG | S_IRWXO)) != 0) {
    if (::chmod(m_folder.c_str(), 0700) != 0) throw CspError(AtomicFile::ErrorCode(errno));
    ContainerStoreLog::Warn("the store folder " + m_folder.string() + " had mode " +
                            OctalMode(mode) + "; set to 0700");
  }
}

// Reads and checks the container at `path` (the caller holds a lock). The name inside must map
// to this file; a file copied or renamed under another container's name is not that container.
std::optional<ContainerFile> ContainerStore::ReadLocked(const std::filesystem::path& path,
                                                        std::string_view name) const {
  const auto bytes = AtomicFile::Read(path, ContainerFile::kMaxFileBytes);
  if (!bytes) return std::nullopt;
  ContainerFile file = ContainerFile::Decode(*bytes);
  if (Folded(file.name()) != Folded(name)) throw CspError(NTE_KEYSET_ENTRY_BAD);
  return file;
}

bool ContainerStore::Exists(std::string_view name) const {
  const auto path = FileFor(name);
  if (!FolderExists()) return false;
  FileLock lock(LockPath(), FileLock::Mode::Shared);
  struct stat info {};
  if (::lstat(path.c_str(), &info) == 0) return true;
  if (errno == ENOENT) return false;
  throw CspError(AtomicFile::ErrorCode(errno));
}

std::string ContainerStore::Create(std::string_view name) {
  const auto path = FileFor(name);
  AtomicFile::MakePrivateFolder(m_folder);
  FolderExists();  // checks what was there before
  FileLock lock(LockPath(), FileLock::Mode::Exclusive);
  AtomicFile::RemoveStaleTemporaries(m_folder);
  struct stat info {};
  if (::lstat(path.c_str(), &info) == 0) throw CspError(NTE_EXISTS);
  if (errno != ENOENT) throw CspError(AtomicFile::ErrorCode(errno));
  const ContainerFile file{std::string(name)};
  AtomicFile::Write(path, file.Encode());
  return file.name();
}

void ContainerStore::Delete(std::string_view name) {
  const auto path = FileFor(name);
  if (!FolderExists()) throw CspError(NTE_BAD_KEYSET);
  FileLock lock(LockPath(), FileLock::Mode::Exclusive);
  ContainerKeyCache::Instance().Forget(path);
  if (!AtomicFile::Remove(path)) throw CspError(NTE_BAD_KEYSET);
}

ContainerFile ContainerStore::Open(std::string_view name) const {
  const auto path = FileFor(name);
  if (!FolderExists()) throw CspError(NTE_BAD_KEYSET);
  FileLock lock(LockPath(), FileLock::Mode::Shared);
  auto file = ReadLocked(path, name);
  if (!file) throw CspError(NTE_BAD_KEYSET);
  return std::move(*file);
}

std::vector<std::string> ContainerStore::List() const {
  if (!FolderExists()) return {};
  FileLock lock(LockPath(), FileLock::Mode::Shared);
  std::vector<std::pair<std::string, std::string>> found;  // folded name, stored name
  std::error_code error;
  std::filesystem::directory_iterator it(m_folder, error);
  for (; !error && it != std::filesystem::directory_iterator(); it.increment(error)) {
    if (!IsContainerFileName(it->path().filename().string())) continue;
    try {
      const auto bytes = AtomicFile::Read(it->path(), ContainerFile::kMaxFileBytes);
      if (!bytes) continue;
      ContainerFile file = ContainerFile::Decode(*bytes);
      if (FileFor(file.name()) != it->path()) continue;
      found.emplace_back(Folded(file.name()), file.name());
    } catch (const CspError& e) {
      // A damaged container has no readable name to list; it stays until deleted by name.
      if (e.code() != static_cast<uint32_t>(NTE_KEYSET_ENTRY_BAD)) throw;
    }
  }
  if (error) throw CspError(AtomicFile::ErrorCode(error.value()));
  std::sort(found.begin(), found.end());
  std::vector<std::string> names;
  names.reserve(found.size());
  for (auto& entry : found) names.push_back(std::move(entry.second));
  return names;
}

void ContainerStore::StorePair(std::string_view name, DWORD slot, std::span<const uint8_t> pair) {
  const auto path = FileFor(name);
  CheckSlot(slot);  // slot and length errors before touching the disk
  if (pair.size() > ContainerFile::kMaxPairBytes) throw CspError(NTE_BAD_LEN);
  if (!FolderExists()) throw CspError(NTE_BAD_KEYSET);
  FileLock lock(LockPath(), FileLock::Mode::Exclusive);
  AtomicFile::RemoveStaleTemporaries(m_folder);
  auto file = ReadLocked(path, name);
  if (!file) throw CspError(NTE_BAD_KEYSET);
  file->SetPair(slot, pair);
  ContainerKeyCache::Instance().Forget(path);
  AtomicFile::Write(path, file->Encode());
}

std::optional<SecureBytes> ContainerStore::LoadPair(std::string_view name, DWORD slot) const {
  CheckName(name);
  CheckSlot(slot);
  return Open(name).Pair(slot);
}

}  // namespace quiv::platform
