// libquiv exports the CryptoAPI functions with C linkage (plain, unmangled names a C program or
// an FFI binds to), and keeps the provider's internals hidden. Read from the dynamic symbol
// table of the built shared library with `nm -D`.
#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>
#include <map>
#include <string>

#include "support/DynamicSymbols.h"

namespace quiv {
namespace {

namespace fs = std::filesystem;

const char* const kCFunctions[] = {
    "CryptAcquireContextA", "CryptAcquireContextW",  "CryptReleaseContext",   "CryptGetProvParam",
    "CryptGetUserKey",      "CryptGenKey",           "CryptDeriveKey",        "CryptDestroyKey",
    "CryptDuplicateKey",    "CryptGetKeyParam",      "CryptSetKeyParam",      "CryptExportKey",
    "CryptImportKey",       "CryptEncrypt",          "CryptDecrypt",          "CryptGenRandom",
    "CryptCreateHash",      "CryptHashData",         "CryptHashSessionKey",   "CryptGetHashParam",
    "CryptSetHashParam",    "CryptDestroyHash",      "CryptDuplicateHash",    "CryptSignHashA",
    "CryptSignHashW",       "CryptVerifySignatureA", "CryptVerifySignatureW", "GetLastError",
    "SetLastError",         "GetVersionExA",
};

fs::path Library() {
  return fs::path(QUIV_BINARY_DIR) / "src" / "libquiv.so";
}

using test::DynamicSymbols;

class ExportsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(fs::exists(Library())) << Library() << " is missing: build the quiv target";
    m_symbols = DynamicSymbols(Library());
    ASSERT_FALSE(m_symbols.empty()) << "nm -D read nothing from " << Library();
  }
  std::map<std::string, char> m_symbols;
};

TEST_F(ExportsTest, EveryCFunctionIsExportedUnmangled) {
  for (const char* name : kCFunctions) {
    const auto it = m_symbols.find(name);
    ASSERT_NE(it, m_symbols.end()) << name << " is not exported";
    EXPECT_EQ(it->second, 'T') << name << " is not a function in the text section";
  }
}

// Whether a mangled symbol names the identifier as a whole (its length prefix included), so that
// a method such as GetSessionKeyObject does not count as the class KeyObject.
bool NamesIdentifier(const std::string& symbol, const std::string& identifier) {
  const std::string mangled = std::to_string(identifier.size()) + identifier;
  for (size_t at = symbol.find(mangled); at != std::string::npos;
       at = symbol.find(mangled, at + 1)) {
    if (at == 0 || !std::isdigit(static_cast<unsigned char>(symbol[at - 1]))) return true;
  }
  return false;
}

TEST_F(ExportsTest, ProviderInternalsAreHidden) {
  // The last-error store, the handle tables and the entry points' helpers are not part of the
  // library's interface.
  for (const auto& [name, type] : m_symbols) {
    for (const char* internal :
         {"ThreadLastError", "HandleTable", "ProviderContext", "KeyObject"}) {
      EXPECT_FALSE(NamesIdentifier(name, internal)) << name;
    }
  }
}

TEST(ExportsNamesTest, OnlyWholeIdentifiersCount) {
  EXPECT_TRUE(NamesIdentifier("_ZN4quiv8platform9KeyObject5CloneEv", "KeyObject"));
  EXPECT_FALSE(NamesIdentifier("_ZN4quiv11CRSAKeyPair19SetExOrSigKeyObjectEs", "KeyObject"));
  EXPECT_FALSE(NamesIdentifier(
      "_ZN4quiv9CProvider19GetSessionKeyObjectERNS_3RefINS_11CSessionKeyEEE", "KeyObject"));
}

TEST_F(ExportsTest, TheSeamIsExported) {
  // The library's other layers and tests reach the platform through these.
  EXPECT_TRUE(m_symbols.count("_ZN4quiv8platform8PlatformEv")) << "quiv::platform::Platform()";
  bool forwarding = false;
  for (const auto& [name, type] : m_symbols) {
    if (name.find("ForwardingPlatform") != std::string::npos) forwarding = true;
  }
  EXPECT_TRUE(forwarding) << "quiv::platform::ForwardingPlatform";
}

}  // namespace
}  // namespace quiv
