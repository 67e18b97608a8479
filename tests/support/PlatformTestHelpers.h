// PlatformTestHelpers: what the platform's tests share: the recorded keys and vectors of
// windows-csp.json by name, the three providers' descriptions, and the error code a platform
// call throws. Nothing here reaches OpenSSL: the independent arithmetic the tests check against
// stays in the tests themselves.
#ifndef QUIV_TESTS_SUPPORT_PLATFORMTESTHELPERS_H
#define QUIV_TESTS_SUPPORT_PLATFORMTESTHELPERS_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "platform/CspError.h"
#include "platform/ProviderInfo.h"
#include "platform/RsaKey.h"
#include "platform/SecureBytes.h"
#include "support/VectorFile.h"

namespace quiv::test {

// Hex from the vector file as bytes; throws on an odd length or a non-hex character.
std::vector<uint8_t> FromHex(const std::string& hex);
std::vector<uint8_t> ToBytes(const platform::SecureBytes& bytes);

const platform::ProviderInfo& Base();
const platform::ProviderInfo& Enhanced();
const platform::ProviderInfo& Strong();
// "Base", "Enhanced", anything else the Strong provider.
const platform::ProviderInfo& ByName(const std::string& kind);

// The code of the CspError `f` throws, 0 when it returns.
template <class F>
uint32_t ErrorOf(F&& f) {
  try {
    f();
  } catch (const platform::CspError& e) {
    return e.code();
  }
  return 0;
}

// An NTE_ or ERROR_ value (a LONG) as ErrorOf reports it.
constexpr uint32_t Code(long c) {
  return static_cast<uint32_t>(c);
}

#ifdef QUIV_TEST_DATA_DIR
// shared_inputs[name] of windows-csp.json, decoded.
inline std::vector<uint8_t> Shared(const std::string& name) {
  return WindowsVectors().Shared(name);
}

inline const nlohmann::json& Vector(const std::string& id) {
  return WindowsVectors().Vector(id);
}

// A recorded PRIVATEKEYBLOB imported into the Enhanced provider.
inline std::unique_ptr<platform::RsaKey> SharedPair(const std::string& name, DWORD flags = 0) {
  return platform::RsaKey::ImportPrivateBlob(Enhanced(), Shared(name), flags, nullptr);
}
#endif

}  // namespace quiv::test

#endif
