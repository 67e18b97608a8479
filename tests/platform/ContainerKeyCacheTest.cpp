// The process's cache of parsed container keys: a reopened, unchanged container shares the key
// already parsed; a container another process rewrote (even in place, with its size, inode and
// time kept) or deleted is read again or fails as it would without the cache; a key is never
// reached without its container; and a key damaged under a recomputed checksum is refused with
// NTE_KEYSET_ENTRY_BAD, through the context and through the C functions.
#include "platform/ContainerKeyCache.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "platform/ContainerFile.h"
#include "platform/ContainerStore.h"
#include "platform/CspError.h"
#include "platform/ProviderContext.h"
#include "platform/ProviderInfo.h"
#include "platform/RsaKey.h"
#include "platform/wincrypt.h"
#include "support/ChildProcess.h"
#include "support/PlatformTestHelpers.h"
#include "support/TempKeyStore.h"

namespace quiv::platform {
namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;
using test::Code;
using test::ErrorOf;

Bytes ReadFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteFile(const fs::path& path, std::span<const uint8_t> bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
}

// Runs `body` in a child process and returns its exit status.
int InChild(const std::function<int()>& body) {
  return test::ExitStatusOf(test::Spawn(body));
}

class ContainerKeyCacheTest : public ::testing::Test {
 protected:
  ProviderContext Context(const std::string& name) {
    return ProviderContext(m_strong, PROV_RSA_FULL, StoreScope::User, name, false);
  }
  // A new 512-bit signature pair in container `name` (created when missing); its public blob.
  Bytes StoreNewPair(ContainerStore& store, const std::string& name) {
    if (!store.Exists(name)) store.Create(name);
    const auto pair = RsaKey::Generate(m_strong, CALG_RSA_SIGN, 512u << 16);
    store.StorePair(name, AT_SIGNATURE, pair->StoredForm());
    return pair->ExportPublicBlob();
  }
  Bytes PublicOf(const std::string& name) {
    return Context(name).Pair(AT_SIGNATURE).ExportPublicBlob();
  }
  static size_t Kept() { return ContainerKeyCache::Instance().size(); }

  const ProviderInfo& m_strong = ProviderInfo::Of(ProviderKind::Strong);
  test::TempKeyStore m_temp;
  ContainerStore m_store{StoreScope::User};
};

TEST_F(ContainerKeyCacheTest, AReopenedUnchangedContainerSharesTheParsedKey) {
  const Bytes blob = StoreNewPair(m_store, "site");
  ProviderContext first = Context("site");
  ProviderContext second = Context("site");
  const RsaKey& a = first.Pair(AT_SIGNATURE);
  const RsaKey& b = second.Pair(AT_SIGNATURE);
  EXPECT_EQ(&a, &b);
  EXPECT_EQ(a.ExportPublicBlob(), blob);
}

TEST_F(ContainerKeyCacheTest, AContainerRewrittenByAnotherProcessIsReadAgain) {
  const Bytes before = StoreNewPair(m_store, "site");
  EXPECT_EQ(PublicOf("site"), before);
  const Bytes written = test::BytesFromChild([&] {
    ContainerStore store(StoreScope::User);
    return StoreNewPair(store, "site");
  });
  ASSERT_EQ(written.size(), before.size());
  EXPECT_NE(written, before);
  EXPECT_EQ(PublicOf("site"), written);
}

// A cache that trusted the file's identity (device, inode, size, modification time) would hand
// out the old key here; the bytes themselves are what decides.
TEST_F(ContainerKeyCacheTest, ARewriteInPlaceWithSizeInodeAndTimeKeptIsStillSeen) {
  const Bytes before = StoreNewPair(m_store, "site");
  EXPECT_EQ(PublicOf("site"), before);
  const fs::path path = m_store.PathOf("site");
  struct stat old {};
  ASSERT_EQ(0, ::stat(path.c_str(), &old));
  const Bytes written = test::BytesFromChild([&]() -> Bytes {
    ContainerFile file("site");
    const auto pair = RsaKey::Generate(m_strong, CALG_RSA_SIGN, 512u << 16);
    file.SetPair(AT_SIGNATURE, pair->StoredForm());
    const SecureBytes image = file.Encode();
    const int fd = ::open(path.c_str(), O_WRONLY);
    if (fd < 0 || ::write(fd, image.data(), image.size()) != static_cast<ssize_t>(image.size())) {
      return {};
    }
    const timespec times[2] = {old.st_atim, old.st_mtim};
    if (::futimens(fd, times) != 0 || ::close(fd) != 0) return {};
    return pair->ExportPublicBlob();
  });
  ASSERT_EQ(written.size(), before.size());
  struct stat now {};
  ASSERT_EQ(0, ::stat(path.c_str(), &now));
  ASSERT_EQ(now.st_ino, old.st_ino);
  ASSERT_EQ(now.st_size, old.st_size);
  ASSERT_EQ(now.st_mtim.tv_sec, old.st_mtim.tv_sec);
  ASSERT_EQ(now.st_mtim.tv_nsec, old.st_mtim.tv_nsec);
  EXPECT_EQ(PublicOf("site"), written);
}

TEST_F(ContainerKeyCacheTest, AContainerDeletedByAnotherProcessFailsToOpenAndIsDropped) {
  StoreNewPair(m_store, "site");
  PublicOf("site");
  const size_t kept = Kept();
  EXPECT_EQ(InChild([] {
              ContainerStore(StoreScope::User).Delete("site");
              return 0;
            }),
            0);
  EXPECT_EQ(ErrorOf([&] { Context("site").Pair(AT_SIGNATURE); }), Code(NTE_BAD_KEYSET));
  EXPECT_EQ(Kept(), kept - 1);
}

TEST_F(ContainerKeyCacheTest, DeletingOrRewritingTheContainerHereDropsItsKey) {
  StoreNewPair(m_store, "gone");
  PublicOf("gone");
  const size_t kept = Kept();
  m_store.Delete("gone");
  EXPECT_EQ(Kept(), kept - 1);
  StoreNewPair(m_store, "rewritten");
  PublicOf("rewritten");
  StoreNewPair(m_store, "rewritten");
  EXPECT_EQ(Kept(), kept - 1);
}

TEST_F(ContainerKeyCacheTest, AKeptKeyIsNeverReachedWithoutItsContainer) {
  const Bytes blob = StoreNewPair(m_store, "site");
  PublicOf("site");
  const fs::path path = m_store.PathOf("site");
  const fs::path aside = m_temp.folder() / "aside";
  fs::rename(path, aside);
  EXPECT_EQ(ErrorOf([&] { Context("site").Pair(AT_SIGNATURE); }), Code(NTE_BAD_KEYSET));
  fs::rename(aside, path);
  EXPECT_EQ(PublicOf("site"), blob);
  // A container damaged on disk is damaged, whatever was kept from it before.
  Bytes image = ReadFile(path);
  image[image.size() - 1] ^= 1;  // a damaged checksum
  WriteFile(path, image);
  EXPECT_EQ(ErrorOf([&] { Context("site").Pair(AT_SIGNATURE); }), Code(NTE_KEYSET_ENTRY_BAD));
}

TEST_F(ContainerKeyCacheTest, AChildProcessStartsWithoutTheParentsKeys) {
  StoreNewPair(m_store, "site");
  PublicOf("site");
  ASSERT_GT(Kept(), 0u);
  EXPECT_EQ(InChild([] { return static_cast<int>(ContainerKeyCache::Instance().size()); }), 0);
}

TEST_F(ContainerKeyCacheTest, NoMoreThanTheCapacityIsKept) {
  StoreNewPair(m_store, "model");
  const SecureBytes stored = *m_store.LoadPair("model", AT_SIGNATURE);
  for (size_t i = 0; i <= ContainerKeyCache::kCapacity; ++i) {
    const std::string name = "c" + std::to_string(i);
    m_store.Create(name);
    m_store.StorePair(name, AT_SIGNATURE, stored);
    Context(name).Pair(AT_SIGNATURE);
  }
  EXPECT_EQ(Kept(), ContainerKeyCache::kCapacity);
}

// Contexts of several threads sign with the one kept key at the same time; every signature
// verifies. (The key's OpenSSL state is complete before it is shared; OpenSSL serialises its own
// blinding.)
TEST_F(ContainerKeyCacheTest, ThreadsSignWithTheSharedKeyAtOnce) {
  StoreNewPair(m_store, "shared");
  PublicOf("shared");
  std::atomic<int> good{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      HCRYPTPROV prov = 0;
      if (!CryptAcquireContextA(&prov, "shared", MS_STRONG_PROV_A, PROV_RSA_FULL, 0)) return;
      HCRYPTKEY pub = 0;
      CryptGetUserKey(prov, AT_SIGNATURE, &pub);
      for (int i = 0; i < 25; ++i) {
        HCRYPTHASH hash = 0;
        BYTE signature[64];
        DWORD length = sizeof signature;
        const BYTE data[] = {static_cast<BYTE>(i), 1, 2, 3};
        bool ok = CryptCreateHash(prov, CALG_SHA1, 0, 0, &hash) &&
                  CryptHashData(hash, data, sizeof data, 0) &&
                  CryptSignHashA(hash, AT_SIGNATURE, nullptr, 0, signature, &length);
        CryptDestroyHash(hash);
        ok = ok && CryptCreateHash(prov, CALG_SHA1, 0, 0, &hash) &&
             CryptHashData(hash, data, sizeof data, 0) &&
             CryptVerifySignatureA(hash, signature, length, pub, nullptr, 0);
        CryptDestroyHash(hash);
        if (ok) ++good;
      }
      CryptDestroyKey(pub);
      CryptReleaseContext(prov, 0);
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(good.load(), 100);
}

TEST_F(ContainerKeyCacheTest, AnExponentOnePairIsKeptAsTheWindowsProvidersKeepIt) {
  const auto pair = test::SharedPair("rsa512_pubexp1_private");
  m_store.Create("one");
  m_store.StorePair("one", AT_KEYEXCHANGE, pair->StoredForm());
  EXPECT_EQ(Context("one").Pair(AT_KEYEXCHANGE).ExportPublicBlob(), pair->ExportPublicBlob());
}

// ---- A key damaged under a recomputed checksum ---------------------------------------------

// Offsets in the stored form of a 512-bit pair: 8 bytes of store header, the 8-byte blob header,
// RSAPUBKEY (magic, bitlen, pubexp), then n (64), p, q, dP, dQ, qInv (32 each) and d (64).
struct Field {
  const char* name;
  size_t offset;
};
void PrintTo(const Field& field, std::ostream* out) {
  *out << field.name;
}
constexpr size_t kFields = 8 + 8 + 12;
const Field kDamaged[] = {
    {"public exponent", 8 + 8 + 8}, {"modulus", kFields + 20}, {"p", kFields + 64 + 5},
    {"q", kFields + 96 + 5},        {"dP", kFields + 128 + 5}, {"dQ", kFields + 160 + 5},
    {"qInv", kFields + 192 + 5},    {"d", kFields + 224 + 20},
};

class DamagedKeyTest : public ContainerKeyCacheTest, public ::testing::WithParamInterface<Field> {
 protected:
  // Damages one bit of the field in the stored pair and writes the container back with a
  // checksum that matches the damaged bytes.
  void DamageUnderAValidChecksum(const std::string& name) {
    const fs::path path = m_store.PathOf(name);
    ContainerFile file = ContainerFile::Decode(ReadFile(path));
    SecureBytes pair = *file.Pair(AT_SIGNATURE);
    pair[GetParam().offset] ^= 0x02;
    file.SetPair(AT_SIGNATURE, pair);
    WriteFile(path, file.Encode());
    ASSERT_NO_THROW(m_store.Open(name));  // the file itself is whole
  }
};

TEST_P(DamagedKeyTest, IsKeysetEntryBadWhetherOrNotTheKeyWasKept) {
  StoreNewPair(m_store, "fresh");
  DamageUnderAValidChecksum("fresh");
  EXPECT_EQ(ErrorOf([&] { Context("fresh").Pair(AT_SIGNATURE); }), Code(NTE_KEYSET_ENTRY_BAD));

  StoreNewPair(m_store, "kept");
  PublicOf("kept");
  const size_t kept = Kept();
  DamageUnderAValidChecksum("kept");
  EXPECT_EQ(ErrorOf([&] { Context("kept").Pair(AT_SIGNATURE); }), Code(NTE_KEYSET_ENTRY_BAD));
  EXPECT_EQ(Kept(), kept - 1);
}

TEST_P(DamagedKeyTest, TheCFunctionsReportKeysetEntryBad) {
  StoreNewPair(m_store, "api");
  DamageUnderAValidChecksum("api");
  HCRYPTPROV prov = 0;
  ASSERT_TRUE(CryptAcquireContextA(&prov, "api", MS_STRONG_PROV_A, PROV_RSA_FULL, 0));
  HCRYPTKEY key = 0;
  EXPECT_FALSE(CryptGetUserKey(prov, AT_SIGNATURE, &key));
  EXPECT_EQ(GetLastError(), Code(NTE_KEYSET_ENTRY_BAD));
  HCRYPTHASH hash = 0;
  ASSERT_TRUE(CryptCreateHash(prov, CALG_SHA1, 0, 0, &hash));
  BYTE signature[64];
  DWORD length = sizeof signature;
  EXPECT_FALSE(CryptSignHashA(hash, AT_SIGNATURE, nullptr, 0, signature, &length));
  EXPECT_EQ(GetLastError(), Code(NTE_KEYSET_ENTRY_BAD));
  CryptDestroyHash(hash);
  CryptReleaseContext(prov, 0);
}

INSTANTIATE_TEST_SUITE_P(Fields, DamagedKeyTest, ::testing::ValuesIn(kDamaged),
                         [](const ::testing::TestParamInfo<Field>& info) {
                           std::string name = info.param.name;
                           for (char& c : name) {
                             if (c == ' ') c = '_';
                           }
                           return name;
                         });

}  // namespace
}  // namespace quiv::platform
