#include "platform/ContainerStore.h"

#include "platform/CspError.h"

namespace quiv::platform {

// First cut: the interface only. Every member fails with NTE_FAIL until the file store lands.

ContainerStore::ContainerStore(StoreScope scope) : m_scope(scope), m_folder() {}

ContainerStore::ContainerStore(StoreScope scope, std::filesystem::path folder)
    : m_scope(scope), m_folder(std::move(folder)) {}

std::filesystem::path ContainerStore::DefaultFolder(StoreScope) {
  throw CspError(NTE_FAIL);
}
std::string ContainerStore::DefaultContainerName() {
  return {};
}
std::string ContainerStore::UniqueContainerName(std::string_view) {
  throw CspError(NTE_FAIL);
}
std::string ContainerStore::MachineGuid() {
  return {};
}
bool ContainerStore::Exists(std::string_view) const {
  throw CspError(NTE_FAIL);
}
std::string ContainerStore::Create(std::string_view) {
  throw CspError(NTE_FAIL);
}
void ContainerStore::Delete(std::string_view) {
  throw CspError(NTE_FAIL);
}
ContainerFile ContainerStore::Open(std::string_view) const {
  throw CspError(NTE_FAIL);
}
std::vector<std::string> ContainerStore::List() const {
  throw CspError(NTE_FAIL);
}
void ContainerStore::StorePair(std::string_view, DWORD, std::span<const uint8_t>) {
  throw CspError(NTE_FAIL);
}
std::optional<SecureBytes> ContainerStore::LoadPair(std::string_view, DWORD) const {
  throw CspError(NTE_FAIL);
}
std::filesystem::path ContainerStore::FileFor(std::string_view) const {
  return m_folder;
}

}  // namespace quiv::platform
