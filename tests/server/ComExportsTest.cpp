// libquiv exports the automation helpers and the standard interface identifiers with C linkage,
// under the platform's names, and keeps the registry and coercion internals hidden.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>

#include "support/DynamicSymbols.h"

namespace {

namespace fs = std::filesystem;

const char* const kFunctions[] = {
    "SysAllocString",        "SysAllocStringLen",   "SysAllocStringByteLen", "SysReAllocString",
    "SysReAllocStringLen",   "SysFreeString",       "SysStringLen",          "SysStringByteLen",
    "VariantInit",           "VariantClear",        "VariantCopy",           "VariantCopyInd",
    "VariantChangeType",     "VariantChangeTypeEx", "SafeArrayCreateVector", "SafeArrayDestroy",
    "SafeArrayCopy",         "SafeArrayLock",       "SafeArrayUnlock",       "SafeArrayAccessData",
    "SafeArrayUnaccessData", "SafeArrayGetUBound",  "SafeArrayGetLBound",    "SafeArrayGetDim",
    "SafeArrayGetElemsize",  "SafeArrayGetVartype", "CLSIDFromString",       "IIDFromString",
    "StringFromGUID2",
};

const char* const kIdentifiers[] = {"GUID_NULL",         "IID_NULL",      "IID_IUnknown",
                                    "IID_IClassFactory", "IID_IDispatch", "IID_ITypeInfo",
                                    "IID_ITypeLib",      "IID_ITypeComp"};

class ComExportsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const fs::path library = fs::path(QUIV_BINARY_DIR) / "src" / "libquiv.so";
    ASSERT_TRUE(fs::exists(library)) << library << " is missing: build the quiv target";
    m_symbols = quiv::test::DynamicSymbols(library);
    ASSERT_FALSE(m_symbols.empty()) << "nm -D read nothing from " << library;
  }
  std::map<std::string, char> m_symbols;
};

TEST_F(ComExportsTest, EveryHelperIsAnUnmangledFunction) {
  for (const char* name : kFunctions) {
    const auto it = m_symbols.find(name);
    ASSERT_NE(it, m_symbols.end()) << name << " is not exported";
    EXPECT_EQ(it->second, 'T') << name;
  }
}

TEST_F(ComExportsTest, TheInterfaceIdentifiersAreReadOnlyData) {
  for (const char* name : kIdentifiers) {
    const auto it = m_symbols.find(name);
    ASSERT_NE(it, m_symbols.end()) << name << " is not exported";
    EXPECT_EQ(it->second, 'R') << name;
  }
}

TEST_F(ComExportsTest, TheRegistryAndCoercionInternalsAreHidden) {
  for (const auto& [name, type] : m_symbols) {
    for (const char* internal : {"ClassRegistry", "RegistryText", "CoerceVariant",
                                 "ParseNumberText", "ParseGuid", "IsValidVariantType"}) {
      EXPECT_EQ(name.find(internal), std::string::npos) << name;
    }
  }
}

}  // namespace
