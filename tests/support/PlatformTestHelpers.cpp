#include "support/PlatformTestHelpers.h"

namespace quiv::test {

std::vector<uint8_t> FromHex(const std::string& hex) {
  return VectorFile::DecodeHex(hex);
}

std::vector<uint8_t> ToBytes(const platform::SecureBytes& bytes) {
  return std::vector<uint8_t>(bytes.begin(), bytes.end());
}

const platform::ProviderInfo& Base() {
  return *platform::ProviderInfo::FindByName(MS_DEF_PROV_A);
}

const platform::ProviderInfo& Enhanced() {
  return *platform::ProviderInfo::FindByName(MS_ENHANCED_PROV_A);
}

const platform::ProviderInfo& Strong() {
  return *platform::ProviderInfo::FindByName(MS_STRONG_PROV_A);
}

const platform::ProviderInfo& ByName(const std::string& kind) {
  if (kind == "Base") return Base();
  return kind == "Enhanced" ? Enhanced() : Strong();
}

}  // namespace quiv::test
