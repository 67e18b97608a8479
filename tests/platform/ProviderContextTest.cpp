// Provider parameters of a context (CryptGetProvParam): the size rules, the scalar values, the
// algorithm enumeration with its shared cursor, the container enumeration with its fixed size
// of 261, PP_CONTAINER and PP_UNIQUE_CONTAINER; and the context's key-pair slots.
#include "platform/ProviderContext.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "platform/CspError.h"
#include "platform/ProviderInfo.h"
#include "platform/RsaKey.h"
#include "platform/wincrypt.h"
#include "support/TempKeyStore.h"

namespace quiv::platform {
namespace {

using Bytes = std::vector<uint8_t>;

uint32_t CodeOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const CspError& e) {
    return e.code();
  }
  return 0;
}

constexpr uint32_t Code(long value) {
  return static_cast<uint32_t>(value);
}

class ProviderContextTest : public ::testing::Test {
 protected:
  ProviderContext Open(std::string name, ProviderKind kind = ProviderKind::Strong,
                       StoreScope scope = StoreScope::User) {
    ContainerStore(scope).Create(name);
    return ProviderContext(ProviderInfo::Of(kind), PROV_RSA_FULL, scope, name, false);
  }
  static ProviderContext Verify(ProviderKind kind = ProviderKind::Strong) {
    return ProviderContext(ProviderInfo::Of(kind), PROV_RSA_FULL, StoreScope::User, "", true);
  }
  static DWORD Dword(ProviderContext& context, DWORD param) {
    DWORD value = 0xcccccccc;
    DWORD length = sizeof value;
    context.GetParam(param, reinterpret_cast<BYTE*>(&value), &length, 0);
    EXPECT_EQ(length, 4u);
    return value;
  }
  static std::string Text(ProviderContext& context, DWORD param) {
    DWORD length = 0;
    context.GetParam(param, nullptr, &length, 0);
    std::string value(length, 'x');
    context.GetParam(param, reinterpret_cast<BYTE*>(value.data()), &length, 0);
    EXPECT_EQ(length, value.size());
    EXPECT_EQ(value.back(), '\0');
    value.pop_back();
    return value;
  }

  quiv::test::TempKeyStore m_store;
};

TEST_F(ProviderContextTest, NullLengthPointerIsInvalidParameter) {
  ProviderContext context = Verify();
  BYTE buffer[4];
  EXPECT_EQ(CodeOf([&] { context.GetParam(PP_PROVTYPE, buffer, nullptr, 0); }),
            Code(ERROR_INVALID_PARAMETER));
  EXPECT_EQ(CodeOf([&] { context.GetParam(PP_ENUMALGS, nullptr, nullptr, CRYPT_FIRST); }),
            Code(ERROR_INVALID_PARAMETER));
  EXPECT_EQ(CodeOf([&] { context.GetParam(PP_ENUMCONTAINERS, nullptr, nullptr, 0); }),
            Code(ERROR_INVALID_PARAMETER));
}

TEST_F(ProviderContextTest, SizeQueryShortBufferAndExactBuffer) {
  ProviderContext context = Verify(ProviderKind::Base);
  DWORD length = 0;
  context.GetParam(PP_NAME, nullptr, &length, 0);
  EXPECT_EQ(length, 43u);  // "Microsoft Base Cryptographic Provider v1.0" + NUL
  std::vector<char> buffer(43, '#');
  length = 42;
  EXPECT_EQ(CodeOf([&] {
              context.GetParam(PP_NAME, reinterpret_cast<BYTE*>(buffer.data()), &length, 0);
            }),
            Code(ERROR_MORE_DATA));
  EXPECT_EQ(length, 43u);
  EXPECT_EQ(buffer[0], '#');  // untouched
  length = 100;
  buffer.resize(100, '#');
  context.GetParam(PP_NAME, reinterpret_cast<BYTE*>(buffer.data()), &length, 0);
  EXPECT_EQ(length, 43u);
  EXPECT_STREQ(buffer.data(), MS_DEF_PROV_A);
  // A short DWORD buffer.
  length = 3;
  DWORD value = 0;
  EXPECT_EQ(
      CodeOf([&] { context.GetParam(PP_PROVTYPE, reinterpret_cast<BYTE*>(&value), &length, 0); }),
      Code(ERROR_MORE_DATA));
  EXPECT_EQ(length, 4u);
}

TEST_F(ProviderContextTest, ScalarParameters) {
  for (const ProviderKind kind :
       {ProviderKind::Base, ProviderKind::Enhanced, ProviderKind::Strong}) {
    ProviderContext context = Verify(kind);
    EXPECT_EQ(Dword(context, PP_PROVTYPE), 1u);
    EXPECT_EQ(Dword(context, PP_VERSION), 0x200u);
    EXPECT_EQ(Dword(context, PP_IMPTYPE), static_cast<DWORD>(CRYPT_IMPL_SOFTWARE));
    EXPECT_EQ(Dword(context, PP_KEYSPEC), 3u);
    EXPECT_EQ(Dword(context, PP_KEYSET_TYPE), 0u);
    EXPECT_EQ(Dword(context, PP_KEYSTORAGE) & CRYPT_SEC_DESCR, static_cast<DWORD>(CRYPT_SEC_DESCR));
    EXPECT_EQ(Dword(context, PP_SIG_KEYSIZE_INC), 8u);
    EXPECT_EQ(Dword(context, PP_KEYX_KEYSIZE_INC), 8u);
    EXPECT_EQ(Text(context, PP_NAME), ProviderInfo::Of(kind).name());
  }
}

TEST_F(ProviderContextTest, NameSizesOfTheThreeProviders) {
  const std::pair<ProviderKind, DWORD> sizes[] = {
      {ProviderKind::Base, 43}, {ProviderKind::Enhanced, 47}, {ProviderKind::Strong, 40}};
  for (const auto& [kind, size] : sizes) {
    ProviderContext context = Verify(kind);
    DWORD length = 0;
    context.GetParam(PP_NAME, nullptr, &length, 0);
    EXPECT_EQ(length, size);
  }
}

TEST_F(ProviderContextTest, MachineContextReportsMachineKeysetType) {
  ProviderContext context = Open("m", ProviderKind::Strong, StoreScope::Machine);
  EXPECT_EQ(Dword(context, PP_KEYSET_TYPE), static_cast<DWORD>(CRYPT_MACHINE_KEYSET));
}

TEST_F(ProviderContextTest, UnknownAndUnsupportedParametersAreBadType) {
  ProviderContext context = Verify();
  for (const DWORD param :
       {0u, 7u, 9u, 99u, DWORD{PP_USE_HARDWARE_RNG}, DWORD{PP_KEYSET_SEC_DESCR}}) {
    DWORD length = 64;
    BYTE buffer[64];
    EXPECT_EQ(CodeOf([&] { context.GetParam(param, buffer, &length, 0); }), Code(NTE_BAD_TYPE))
        << param;
  }
}

TEST_F(ProviderContextTest, ContainerNameAndLength) {
  ProviderContext context = Open("abcdefgh");
  DWORD length = 0;
  context.GetParam(PP_CONTAINER, nullptr, &length, 0);
  EXPECT_EQ(length, 9u);
  EXPECT_EQ(Text(context, PP_CONTAINER), "abcdefgh");
}

TEST_F(ProviderContextTest, UniqueContainerOfExample) {
  ProviderContext context = Open("example");
  const std::string unique = Text(context, PP_UNIQUE_CONTAINER);
  EXPECT_EQ(unique.substr(0, 33), "059e0890f9d1bebb853da53fcacb895f_");
  EXPECT_EQ(unique.size() + 1, 70u);
  EXPECT_TRUE(
      std::regex_match(unique.substr(33),
                       std::regex("[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}")))
      << unique;
  // Stable: the same machine gives the same suffix for every container.
  ProviderContext other = Open("other");
  EXPECT_EQ(Text(other, PP_UNIQUE_CONTAINER).substr(33), unique.substr(33));
  EXPECT_NE(Text(other, PP_UNIQUE_CONTAINER).substr(0, 32), unique.substr(0, 32));
}

// ---- PP_ENUMALGS / PP_ENUMALGS_EX ----

std::vector<ALG_ID> EnumerateIds(ProviderContext& context, DWORD param) {
  std::vector<ALG_ID> ids;
  DWORD flags = CRYPT_FIRST;
  for (;;) {
    BYTE record[88] = {};
    DWORD length = sizeof record;
    const uint32_t code = CodeOf([&] { context.GetParam(param, record, &length, flags); });
    if (code == Code(ERROR_NO_MORE_ITEMS)) break;
    EXPECT_EQ(code, 0u);
    if (code != 0) break;
    EXPECT_EQ(length, param == PP_ENUMALGS ? 32u : 88u);
    ALG_ID id;
    std::memcpy(&id, record, 4);
    ids.push_back(id);
    flags = 0;
  }
  return ids;
}

std::vector<ALG_ID> ProviderIds(ProviderKind kind) {
  std::vector<ALG_ID> ids;
  for (const AlgRecord& record : ProviderInfo::Of(kind).Algorithms()) ids.push_back(record.algid);
  return ids;
}

TEST_F(ProviderContextTest, EnumerationListsEveryRecordThenNoMoreItems) {
  for (const ProviderKind kind :
       {ProviderKind::Base, ProviderKind::Enhanced, ProviderKind::Strong}) {
    ProviderContext context = Verify(kind);
    const std::vector<ALG_ID> expected = ProviderIds(kind);
    EXPECT_EQ(expected.size(), kind == ProviderKind::Base ? 12u : 14u);
    EXPECT_EQ(EnumerateIds(context, PP_ENUMALGS), expected);
    EXPECT_EQ(EnumerateIds(context, PP_ENUMALGS_EX), expected);
  }
}

TEST_F(ProviderContextTest, EnumerationRecordsMatchTheProviderTable) {
  ProviderContext context = Verify(ProviderKind::Enhanced);
  BYTE record[88];
  DWORD length = sizeof record;
  context.GetParam(PP_ENUMALGS_EX, record, &length, CRYPT_FIRST);
  const auto expected =
      ProviderInfo::EnumAlgsExRecord(ProviderInfo::Of(ProviderKind::Enhanced).Algorithms()[0]);
  EXPECT_EQ(Bytes(record, record + 88), Bytes(expected.begin(), expected.end()));
}

TEST_F(ProviderContextTest, OneCursorIsSharedByBothForms) {
  ProviderContext context = Verify(ProviderKind::Base);
  const std::vector<ALG_ID> expected = ProviderIds(ProviderKind::Base);
  std::vector<ALG_ID> seen;
  for (size_t i = 0; i < expected.size(); ++i) {
    BYTE record[88];
    DWORD length = sizeof record;
    const DWORD param = i % 2 == 0 ? PP_ENUMALGS : PP_ENUMALGS_EX;
    context.GetParam(param, record, &length, i == 0 ? CRYPT_FIRST : 0);
    ALG_ID id;
    std::memcpy(&id, record, 4);
    seen.push_back(id);
  }
  EXPECT_EQ(seen, expected);
  BYTE record[88];
  DWORD length = sizeof record;
  EXPECT_EQ(CodeOf([&] { context.GetParam(PP_ENUMALGS_EX, record, &length, 0); }),
            Code(ERROR_NO_MORE_ITEMS));
  EXPECT_EQ(CodeOf([&] { context.GetParam(PP_ENUMALGS, record, &length, 0); }),
            Code(ERROR_NO_MORE_ITEMS));
  // CRYPT_FIRST restarts.
  length = sizeof record;
  context.GetParam(PP_ENUMALGS, record, &length, CRYPT_FIRST);
  ALG_ID id;
  std::memcpy(&id, record, 4);
  EXPECT_EQ(id, expected[0]);
}

TEST_F(ProviderContextTest, SizeQueryAndShortBufferDoNotAdvanceTheCursor) {
  ProviderContext context = Verify();
  const std::vector<ALG_ID> expected = ProviderIds(ProviderKind::Strong);
  DWORD length = 0;
  context.GetParam(PP_ENUMALGS_EX, nullptr, &length, CRYPT_FIRST);
  EXPECT_EQ(length, 88u);
  BYTE record[88];
  length = 87;
  EXPECT_EQ(CodeOf([&] { context.GetParam(PP_ENUMALGS_EX, record, &length, 0); }),
            Code(ERROR_MORE_DATA));
  EXPECT_EQ(length, 88u);
  context.GetParam(PP_ENUMALGS_EX, record, &length, 0);
  ALG_ID id;
  std::memcpy(&id, record, 4);
  EXPECT_EQ(id, expected[0]);
}

// ---- PP_ENUMCONTAINERS ----

std::vector<std::string> EnumerateContainers(ProviderContext& context, DWORD extraFlags = 0) {
  std::vector<std::string> names;
  DWORD flags = CRYPT_FIRST | extraFlags;
  for (;;) {
    char name[261];
    DWORD length = sizeof name;
    const uint32_t code = CodeOf([&] {
      context.GetParam(PP_ENUMCONTAINERS, reinterpret_cast<BYTE*>(name), &length, flags);
    });
    if (code == Code(ERROR_NO_MORE_ITEMS)) break;
    EXPECT_EQ(code, 0u);
    if (code != 0) break;
    EXPECT_EQ(length, 261u);  // left as the caller set it
    names.emplace_back(name);
    flags = extraFlags;
  }
  return names;
}

TEST_F(ProviderContextTest, EnumContainersListsTheStore) {
  ProviderContext context = Open("Alpha");
  Open("beta");
  const std::vector<std::string> names = EnumerateContainers(context);
  EXPECT_EQ(std::set<std::string>(names.begin(), names.end()),
            (std::set<std::string>{"Alpha", "beta"}));
}

TEST_F(ProviderContextTest, EnumContainersSizeIs261WhateverTheName) {
  ProviderContext context = Open("a");
  DWORD length = 0;
  context.GetParam(PP_ENUMCONTAINERS, nullptr, &length, CRYPT_FIRST);
  EXPECT_EQ(length, 261u);
  // A buffer that fits the name is enough; the length stays as given.
  char name[8] = {};
  length = sizeof name;
  context.GetParam(PP_ENUMCONTAINERS, reinterpret_cast<BYTE*>(name), &length, CRYPT_FIRST);
  EXPECT_STREQ(name, "a");
  EXPECT_EQ(length, 8u);
}

TEST_F(ProviderContextTest, EnumContainersShortBufferIsMoreDataWithoutAdvancing) {
  ProviderContext context = Open("longer-name");
  char name[261] = {};
  DWORD length = 5;
  EXPECT_EQ(CodeOf([&] {
              context.GetParam(PP_ENUMCONTAINERS, reinterpret_cast<BYTE*>(name), &length,
                               CRYPT_FIRST);
            }),
            Code(ERROR_MORE_DATA));
  EXPECT_EQ(length, 261u);
  context.GetParam(PP_ENUMCONTAINERS, reinterpret_cast<BYTE*>(name), &length, 0);
  EXPECT_STREQ(name, "longer-name");
  EXPECT_EQ(CodeOf([&] {
              context.GetParam(PP_ENUMCONTAINERS, reinterpret_cast<BYTE*>(name), &length, 0);
            }),
            Code(ERROR_NO_MORE_ITEMS));
}

TEST_F(ProviderContextTest, EnumContainersFromAVerifyContextAndMachineStore) {
  Open("user-one");
  Open("machine-one", ProviderKind::Strong, StoreScope::Machine);
  ProviderContext verify = Verify();
  EXPECT_EQ(EnumerateContainers(verify), std::vector<std::string>{"user-one"});
  EXPECT_EQ(EnumerateContainers(verify, CRYPT_MACHINE_KEYSET),
            std::vector<std::string>{"machine-one"});
}

TEST_F(ProviderContextTest, EmptyStoreHasNoContainers) {
  ProviderContext verify = Verify();
  char name[261];
  DWORD length = sizeof name;
  EXPECT_EQ(CodeOf([&] {
              verify.GetParam(PP_ENUMCONTAINERS, reinterpret_cast<BYTE*>(name), &length,
                              CRYPT_FIRST);
            }),
            Code(ERROR_NO_MORE_ITEMS));
}

// ---- key-pair slots ----

TEST_F(ProviderContextTest, PairSlotsStartEmptyAndRejectOtherSpecs) {
  ProviderContext context = Open("slots");
  EXPECT_EQ(CodeOf([&] { context.Pair(AT_KEYEXCHANGE); }), Code(NTE_NO_KEY));
  EXPECT_EQ(CodeOf([&] { context.Pair(AT_SIGNATURE); }), Code(NTE_NO_KEY));
  EXPECT_EQ(CodeOf([&] { context.Pair(3); }), Code(NTE_BAD_KEY));
}

TEST_F(ProviderContextTest, KeptPairIsStoredInItsSlot) {
  const ProviderInfo& strong = ProviderInfo::Of(ProviderKind::Strong);
  const auto pair = RsaKey::Generate(strong, CALG_RSA_SIGN, 512u << 16);
  {
    ProviderContext context = Open("kept");
    context.KeepPair(*pair);
    EXPECT_EQ(context.Pair(AT_SIGNATURE).ExportPublicBlob(), pair->ExportPublicBlob());
    EXPECT_EQ(CodeOf([&] { context.Pair(AT_KEYEXCHANGE); }), Code(NTE_NO_KEY));
  }
  EXPECT_TRUE(ContainerStore(StoreScope::User).LoadPair("kept", AT_SIGNATURE).has_value());
  ProviderContext reopened(strong, PROV_RSA_FULL, StoreScope::User, "kept", false);
  EXPECT_EQ(reopened.Pair(AT_SIGNATURE).ExportPublicBlob(), pair->ExportPublicBlob());
}

TEST_F(ProviderContextTest, VerifyContextKeepsPairsInMemoryOnly) {
  const ProviderInfo& strong = ProviderInfo::Of(ProviderKind::Strong);
  const auto pair = RsaKey::Generate(strong, CALG_RSA_KEYX, 512u << 16);
  ProviderContext context = Verify();
  context.KeepPair(*pair);
  EXPECT_EQ(context.Pair(AT_KEYEXCHANGE).ExportPublicBlob(), pair->ExportPublicBlob());
  EXPECT_TRUE(ContainerStore(StoreScope::User).List().empty());
}

}  // namespace
}  // namespace quiv::platform
