// Recorded Windows values for contexts, key containers, provider parameters and the size-query
// index (categories prov_params, context, size_query of windows-csp.json), replayed through the
// C functions exactly as each vector's procedure says. Every test runs against its own empty
// temporary key store.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "platform/wincrypt.h"
#include "support/CapiCalls.h"
#include "support/StandardKey.h"
#include "support/VectorSuites.h"
#include "support/VectorTest.h"

namespace quiv::test {
namespace {

DWORD Size(const Bytes& bytes) {
  return static_cast<DWORD>(bytes.size());
}

struct DwordRead {
  DWORD value = kNoValue;
  DWORD length = 0;
};

// CryptGetProvParam into a 4-byte buffer, keeping the length the provider reports.
DwordRead ProvDwordWithLength(HCRYPTPROV prov, DWORD param, DWORD bufferSize = 4) {
  Bytes buffer(std::max<DWORD>(bufferSize, 4), 0);
  DwordRead read;
  read.length = bufferSize;
  if (!CryptGetProvParam(prov, param, buffer.data(), &read.length, 0)) {
    ADD_FAILURE() << "CryptGetProvParam(" << param << ") failed: " << ErrorText(GetLastError());
    return read;
  }
  std::memcpy(&read.value, buffer.data(), 4);
  return read;
}

std::string CString(const Bytes& bytes) {
  const auto nul = std::find(bytes.begin(), bytes.end(), 0);
  return std::string(bytes.begin(), nul);
}

// pp.keysize_increments
void KeySizeIncrements(VectorCase& v, const VectorProvider& p) {
  const ProvHandle prov = p.Verify();
  const DWORD bufferSize = v.Input("buffer_size").Dword();
  const VectorNode params = v.Input("params");
  for (size_t i = 0; i < params.Size(); ++i) {
    const std::string name = params.At(i)["name"].Text();
    const DWORD param = params.At(i).Alg();  // {name, value}, checked against the file's table
    const DwordRead read = ProvDwordWithLength(prov.get(), param, bufferSize);
    EXPECT_EQ(read.value, v.Expected(name).Dword()) << name;
    EXPECT_EQ(read.length, bufferSize) << name;
  }
}

// pp.enumcontainers: the open container must be among the enumerated names.
void EnumContainers(VectorCase& v, const VectorProvider& p) {
  const std::string name = v.Input("container_name").Text();
  const ProvHandle prov = p.NewContainer(name.c_str());
  ASSERT_NE(prov.get(), 0u);
  const DWORD param = v.Input("param").Dword();
  const DWORD first = v.Input("first_flag").Dword();
  const DWORD bufferSize = v.Input("buffer_size").Dword();

  DWORD length = 0;
  QUIV_EXPECT_SUCCEEDS(CryptGetProvParam(prov.get(), param, nullptr, &length, first));
  EXPECT_EQ(length, v.Expected("size_query_length").Dword());

  std::vector<std::string> names;
  Bytes buffer(bufferSize, 0);
  length = bufferSize;
  QUIV_ASSERT_SUCCEEDS(CryptGetProvParam(prov.get(), param, buffer.data(), &length, first));
  EXPECT_EQ(length, v.Expected("length_after_first_with_buffer").Dword());
  names.push_back(CString(buffer));

  const DWORD endError = v.Expected("end_error").Error();
  for (int guard = 0; guard < 10000; ++guard) {
    std::fill(buffer.begin(), buffer.end(), 0);
    length = bufferSize;
    ::SetLastError(0x5eed5eedu);
    if (!CryptGetProvParam(prov.get(), param, buffer.data(), &length, 0)) {
      EXPECT_EQ(GetLastError(), endError) << ErrorText(GetLastError());
      break;
    }
    names.push_back(CString(buffer));
  }
  const std::string wanted = v.Expected("contains").Text();
  EXPECT_NE(std::find(names.begin(), names.end(), wanted), names.end())
      << wanted << " not enumerated; " << names.size() << " names seen";
}

// pp.container_params
void ContainerParams(VectorCase& v, const VectorProvider& p) {
  const std::string name = v.Input("container_name").Text();
  const ProvHandle prov = p.NewContainer(name.c_str());
  ASSERT_NE(prov.get(), 0u);
  const DwordRead type = ProvDwordWithLength(prov.get(), PP_PROVTYPE);
  EXPECT_EQ(type.value, v.Expected("PP_PROVTYPE").Dword());
  EXPECT_EQ(type.length, v.Expected("PP_PROVTYPE_length").Dword());
  EXPECT_EQ(ProvDword(prov.get(), PP_KEYSET_TYPE), v.Expected("PP_KEYSET_TYPE").Dword());
  const DWORD bit = v.Expected("PP_KEYSTORAGE_has_bit").Dword();
  EXPECT_EQ(ProvDword(prov.get(), PP_KEYSTORAGE) & bit, bit) << "PP_KEYSTORAGE";
  EXPECT_EQ(ProvDword(prov.get(), PP_KEYSPEC), v.Expected("PP_KEYSPEC").Dword());

  const DWORD maxPath = v.file().Constant("derived", "MAX_PATH");
  const Bytes container = ProvBytes(prov.get(), PP_CONTAINER, maxPath);
  EXPECT_EQ(Hex(container), Hex(v.Expected("PP_CONTAINER").Hex()));
  EXPECT_EQ(container.size(), v.Expected("PP_CONTAINER_length").Dword());

  // "<prefix><MachineGuid>\0": the prefix is recorded, the GUID is the machine's own.
  const Bytes unique = ProvBytes(prov.get(), PP_UNIQUE_CONTAINER, maxPath);
  const std::string prefix = v.Expected("PP_UNIQUE_CONTAINER_prefix").Text();
  const std::string form = v.Expected("PP_UNIQUE_CONTAINER_form").Text();
  ASSERT_EQ(form, prefix + "<MachineGuid>\\0") << "unexpected description of the form";
  const std::string text(unique.begin(), unique.end());
  EXPECT_TRUE(text.starts_with(prefix)) << text;
  ASSERT_FALSE(unique.empty());
  EXPECT_EQ(unique.back(), 0) << "not NUL-terminated";
  EXPECT_EQ(std::count(unique.begin(), unique.end(), 0), 1) << "NUL inside the value";
  EXPECT_GT(unique.size(), prefix.size() + 1) << "no machine GUID after the prefix";
}

// pp.provtype_per_provider
void ProvTypePerProvider(VectorCase& v, const VectorProvider& p) {
  ASSERT_EQ(v.Expected("PP_PROVTYPE").Text(), "the type the context was opened with");
  const DWORD expectedLength = v.Expected("length").Dword();
  const VectorNode pairs = v.Input("pairs");
  bool found = false;
  for (size_t i = 0; i < pairs.Size(); ++i) {
    const VectorNode pair = pairs.At(i);
    if (pair["provider"].Text() != p.label()) {
      pair.Acknowledge("a pair of another provider column");
      continue;
    }
    found = true;
    const DWORD type = pair["type"].Dword();
    ProvHandle prov;
    QUIV_ASSERT_SUCCEEDS(
        CryptAcquireContextA(prov.put(), nullptr, p.CspName(), type, CRYPT_VERIFYCONTEXT));
    const DwordRead read = ProvDwordWithLength(prov.get(), PP_PROVTYPE);
    EXPECT_EQ(read.value, type);
    EXPECT_EQ(read.length, expectedLength);
  }
  EXPECT_TRUE(found) << "no pair for " << p.label();
}

// ctx.acquire_errors
void AcquireErrors(VectorCase& v, const VectorProvider& p) {
  const std::string name = v.Input("container_name").Text();
  HCRYPTPROV h = 0;
  QUIV_EXPECT_FAILS_WITH(CryptAcquireContextA(&h, nullptr, p.CspName(), 0, 0),
                         v.Expected("prov_type_0_error").Error());
  const std::vector<uint32_t> nullHandle =
      v.Expected("null_handle_pointer_error").ErrorAlternatives();
  for (const DWORD flags : {DWORD{0}, DWORD{CRYPT_DELETEKEYSET}}) {
    ::SetLastError(0x5eed5eedu);
    EXPECT_TRUE(FailedWithAnyOf(
        CryptAcquireContextA(nullptr, nullptr, p.CspName(), p.Type(), flags), nullHandle))
        << "NULL handle pointer, flags " << flags;
  }
  QUIV_EXPECT_FAILS_WITH(p.Acquire(&h, name.c_str(), CRYPT_DELETEKEYSET),
                         v.Expected("missing_container_delete_error").Error());
  QUIV_EXPECT_FAILS_WITH(p.Acquire(&h, name.c_str(), 0),
                         v.Expected("missing_container_open_error").Error());
  QUIV_EXPECT_FAILS_WITH(p.Acquire(&h, name.c_str(), CRYPT_VERIFYCONTEXT),
                         v.Expected("named_container_verifycontext_error").Error());

  // The default container: create it, delete it, then opening it fails.
  { const ProvHandle created = p.NewContainer(nullptr); }
  QUIV_EXPECT_SUCCEEDS(p.Acquire(&h, nullptr, CRYPT_DELETEKEYSET)) << " deleting the default";
  QUIV_EXPECT_FAILS_WITH(p.Acquire(&h, nullptr, 0),
                         v.Expected("deleted_default_container_open_error").Error());
}

// ctx.release_bad_flags_still_releases
void ReleaseWithBadFlags(VectorCase& v, const VectorProvider& p) {
  ProvHandle prov = p.Verify();
  ASSERT_NE(prov.get(), 0u);
  const HCRYPTPROV raw = prov.release();
  QUIV_EXPECT_FAILS_WITH(CryptReleaseContext(raw, v.Input("bad_flags").Dword()),
                         v.Expected("first_error").Error());
  QUIV_EXPECT_FAILS_WITH(CryptReleaseContext(raw, 0), v.Expected("second_error").Error());
}

// ctx.verifycontext_has_no_keys
void VerifyContextHasNoKeys(VectorCase& v, const VectorProvider& p) {
  const ProvHandle verify = p.Verify();
  ASSERT_NE(verify.get(), 0u);
  EXPECT_EQ(ProvDword(verify.get(), PP_KEYSPEC), v.Expected("PP_KEYSPEC_if_supported").Dword());
  const DWORD noKey = v.Expected("get_user_key_error").Error();
  for (const DWORD keySpec : {DWORD{AT_KEYEXCHANGE}, DWORD{AT_SIGNATURE}}) {
    KeyHandle key;
    QUIV_EXPECT_FAILS_WITH(CryptGetUserKey(verify.get(), keySpec, key.put()), noKey) << keySpec;
  }
  const ProvHandle created = p.NewContainer(nullptr);
  ASSERT_NE(created.get(), 0u);
  const DWORD newNoKey = v.Expected("new_container_get_user_key_error").Error();
  for (const DWORD keySpec : {DWORD{AT_KEYEXCHANGE}, DWORD{AT_SIGNATURE}}) {
    KeyHandle key;
    QUIV_EXPECT_FAILS_WITH(CryptGetUserKey(created.get(), keySpec, key.put()), newNoKey) << keySpec;
  }
}

// Checks one slot of a container against "present" / "fails".
void ExpectSlot(HCRYPTPROV prov, DWORD keySpec, VectorOutcome outcome, const std::string& label) {
  KeyHandle key;
  ::SetLastError(0x5eed5eedu);
  const BOOL ok = CryptGetUserKey(prov, keySpec, key.put());
  if (outcome == VectorOutcome::Present) {
    EXPECT_TRUE(Succeeded(ok)) << label;
  } else {
    EXPECT_TRUE(FailedWithAnyCode(ok)) << label;
  }
}

// ctx.genkey_slot_selection
void GenKeySlotSelection(VectorCase& v, const VectorProvider& p) {
  const std::string container = v.file().ContainerName();
  const VectorNode algids = v.Input("algids");
  for (size_t i = 0; i < algids.Size(); ++i) {
    const ALG_ID alg = algids.At(i).Alg();
    std::string key = algids.At(i)["name"].Text();  // CALG_RSA_SIGN -> rsa_sign
    key = key.substr(key.find('_') + 1);
    std::transform(key.begin(), key.end(), key.begin(), [](char c) { return std::tolower(c); });
    SCOPED_TRACE(key);
    {
      const ProvHandle prov = p.NewContainer(container.c_str());
      ASSERT_NE(prov.get(), 0u);
      KeyHandle pair;
      QUIV_ASSERT_SUCCEEDS(CryptGenKey(prov.get(), alg, 0, pair.put()));
      const VectorNode slots = v.Expected(key);
      for (const char* slot : {"AT_SIGNATURE", "AT_KEYEXCHANGE"}) {
        ExpectSlot(prov.get(), v.file().Constant("other_flags", slot), slots[slot].Outcome(), slot);
      }
    }
    HCRYPTPROV h = 0;
    QUIV_EXPECT_SUCCEEDS(p.Acquire(&h, container.c_str(), CRYPT_DELETEKEYSET));
  }

  // "<slot> present" after generating into that slot, releasing and reopening.
  const std::string reopen = v.Expected("reopen").Text();
  ASSERT_TRUE(reopen.ends_with(" present")) << reopen;
  const std::string slot = reopen.substr(0, reopen.size() - std::string(" present").size());
  const DWORD keySpec = v.file().Constant("other_flags", slot);
  {
    const ProvHandle prov = p.NewContainer(container.c_str());
    ASSERT_NE(prov.get(), 0u);
    KeyHandle pair;
    QUIV_ASSERT_SUCCEEDS(CryptGenKey(prov.get(), keySpec, 0, pair.put()));
  }
  ProvHandle reopened;
  QUIV_ASSERT_SUCCEEDS(p.Acquire(reopened.put(), container.c_str(), 0));
  ExpectSlot(reopened.get(), keySpec, VectorOutcome::Present, slot + " after reopening");
}

// ctx.machine_keyset
void MachineKeyset(VectorCase& v, const VectorProvider& p) {
  const std::string name = v.file().ContainerName();
  const VectorNode flags = v.Input("flags");
  const DWORD newKeyset = flags["CRYPT_NEWKEYSET"].Dword();
  const DWORD machine = flags["CRYPT_MACHINE_KEYSET"].Dword();
  const DWORD deleteKeyset = flags["CRYPT_DELETEKEYSET"].Dword();
  const auto expectOutcome = [&](BOOL ok, const char* step) {
    ASSERT_EQ(v.Expected(step).Outcome(), VectorOutcome::Succeeds);
    EXPECT_TRUE(Succeeded(ok)) << step;
  };
  {
    ProvHandle prov;
    expectOutcome(p.Acquire(prov.put(), name.c_str(), newKeyset | machine), "create");
  }
  {
    ProvHandle prov;
    expectOutcome(p.Acquire(prov.put(), name.c_str(), machine), "reopen");
  }
  HCRYPTPROV h = 0;
  expectOutcome(p.Acquire(&h, name.c_str(), deleteKeyset | machine), "delete");
  ProvHandle prov;
  QUIV_EXPECT_FAILS_WITH(p.Acquire(prov.put(), name.c_str(), machine),
                         v.Expected("reopen_after_delete_error").Error());
}

// ctx.gen_random
void GenRandom(VectorCase& v, const VectorProvider& p) {
  const ProvHandle prov = p.Verify();
  const DWORD length = v.Input("length").Dword();
  Bytes first(length, 0);
  Bytes second(length, 0);
  const BOOL ok1 = CryptGenRandom(prov.get(), length, first.data());
  const BOOL ok2 = CryptGenRandom(prov.get(), length, second.data());
  EXPECT_EQ(ok1 && ok2, v.Expected("both_succeed").Bool());
  EXPECT_EQ(first != second, v.Expected("outputs_differ").Bool()) << Hex(first);
}

// size.summary: every size answer indexed by the file, each reproduced by its own query.
void SizeSummary(VectorCase& v, const VectorProvider& p) {
  const Bytes seq2000 = v.file().Shared("seq2000");
  const Bytes seq256 = v.file().Shared("seq256");
  const ProvHandle verify = p.Verify();
  const std::string container = v.file().ContainerName();
  const ProvHandle stored = p.NewContainer(container.c_str());
  ASSERT_NE(verify.get(), 0u);
  ASSERT_NE(stored.get(), 0u);

  const auto rc2 = [&] {
    return DeriveKey(verify.get(), CALG_MD2, seq2000, CALG_RC2, (40u << 16) | CRYPT_EXPORTABLE);
  };
  const auto encryptSizeQuery = [](HCRYPTKEY key, DWORD mode, DWORD length, DWORD bufLen) {
    EXPECT_EQ(SetDwordKeyParam(key, KP_MODE, mode), 0u);
    EXPECT_TRUE(Succeeded(CryptEncrypt(key, 0, TRUE, 0, nullptr, &length, bufLen)));
    return length;
  };
  const auto hashSize = [&](ALG_ID alg, HCRYPTKEY key) {
    const HashHandle hash = CreateHash(verify.get(), alg, key);
    return HashDword(hash.get(), HP_HASHSIZE);
  };

  struct Entry {
    const char* key;
    std::function<std::vector<DWORD>()> measure;
  };
  const std::vector<Entry> entries = {
      {"CryptEncrypt RC2 ECB/CBC, 23 bytes, Final",
       [&] {
         const KeyHandle key = rc2();
         return std::vector<DWORD>{encryptSizeQuery(key.get(), CRYPT_MODE_ECB, 23, 24),
                                   encryptSizeQuery(key.get(), CRYPT_MODE_CBC, 23, 24)};
       }},
      {"CryptEncrypt RC2 CFB, 7 bytes, Final (newest revision)",
       [&] {
         const KeyHandle key = rc2();
         return std::vector<DWORD>{encryptSizeQuery(key.get(), CRYPT_MODE_CFB, 7, 8)};
       }},
      {"CryptEncrypt RC2, 256 bytes, Final (real buffer 264)",
       [&] {
         const KeyHandle key = rc2();
         Bytes buffer(seq256);
         buffer.resize(264);
         DWORD length = Size(seq256);
         EXPECT_TRUE(Succeeded(CryptEncrypt(key.get(), 0, TRUE, 0, buffer.data(), &length, 264)));
         return std::vector<DWORD>{length};
       }},
      {"CryptEncrypt RSA 1024 exchange key, 12 bytes",
       [&] {
         const KeyHandle key =
             ImportKey(verify.get(), v.file().Shared("rsa1024_keyx_private"), 0, 0);
         DWORD length = 12;
         EXPECT_TRUE(Succeeded(CryptEncrypt(key.get(), 0, TRUE, 0, nullptr, &length, 0)));
         return std::vector<DWORD>{length};
       }},
      {"CryptSignHash with 1024-bit key",
       [&] {
         const KeyHandle key =
             ImportKey(stored.get(), v.file().Shared("rsa1024_sign_private_highbit"), 0, 0);
         const HashHandle hash = HashOf(stored.get(), CALG_MD5, seq256);
         DWORD length = 0;
         EXPECT_TRUE(
             Succeeded(CryptSignHashA(hash.get(), AT_SIGNATURE, nullptr, 0, nullptr, &length)));
         return std::vector<DWORD>{length};
       }},
      {"KP_IV of RC2", [&] { return std::vector<DWORD>{KeyParamSize(rc2().get(), KP_IV)}; }},
      {"KP_SALT of derived 40-bit RC2",
       [&] { return std::vector<DWORD>{KeyParamSize(rc2().get(), KP_SALT)}; }},
      {"PP_ENUMCONTAINERS with CRYPT_FIRST",
       [&] {
         DWORD length = 0;
         EXPECT_TRUE(Succeeded(
             CryptGetProvParam(stored.get(), PP_ENUMCONTAINERS, nullptr, &length, CRYPT_FIRST)));
         return std::vector<DWORD>{length};
       }},
      {"HP_HASHSIZE MD2/MD4/MD5",
       [&] {
         return std::vector<DWORD>{hashSize(CALG_MD2, 0), hashSize(CALG_MD4, 0),
                                   hashSize(CALG_MD5, 0)};
       }},
      {"HP_HASHSIZE SHA-1", [&] { return std::vector<DWORD>{hashSize(CALG_SHA1, 0)}; }},
      {"HP_HASHSIZE CALG_MAC",
       [&] {
         const KeyHandle key = rc2();
         return std::vector<DWORD>{hashSize(CALG_MAC, key.get())};
       }},
      {"HP_HASHSIZE CALG_HMAC with MD5",
       [&] {
         const KeyHandle key = rc2();
         const HashHandle hash = CreateHash(verify.get(), CALG_HMAC, key.get());
         const HMAC_INFO info = HmacInfo(CALG_MD5);
         EXPECT_TRUE(Succeeded(
             CryptSetHashParam(hash.get(), HP_HMAC_INFO, reinterpret_cast<const BYTE*>(&info), 0)));
         return std::vector<DWORD>{HashDword(hash.get(), HP_HASHSIZE)};
       }},
  };
  for (const auto& entry : entries) {
    SCOPED_TRACE(entry.key);
    const DWORD expected = v.Expected(entry.key).Dword();
    for (const DWORD measured : entry.measure()) EXPECT_EQ(measured, expected);
  }
  // The SHA-2 sizes belong to the AES provider, whatever column this instance runs for.
  const std::vector<uint32_t> sha2Sizes =
      v.Expected("HP_HASHSIZE SHA-256/384/512 (AES provider)").DwordList();
  ProvHandle aes;
  QUIV_ASSERT_SUCCEEDS(CryptAcquireContextA(aes.put(), nullptr, MS_ENH_RSA_AES_PROV_A, PROV_RSA_AES,
                                            CRYPT_VERIFYCONTEXT));
  const ALG_ID sha2[] = {CALG_SHA_256, CALG_SHA_384, CALG_SHA_512};
  ASSERT_EQ(sha2Sizes.size(), std::size(sha2));
  for (size_t i = 0; i < sha2Sizes.size(); ++i) {
    const HashHandle hash = CreateHash(aes.get(), sha2[i]);
    EXPECT_EQ(HashDword(hash.get(), HP_HASHSIZE), sha2Sizes[i]) << "SHA-2 hash " << i;
  }
}

constexpr NamedProcedure kProcedures[] = {
    {"pp.keysize_increments", KeySizeIncrements},
    {"pp.enumcontainers", EnumContainers},
    {"pp.container_params", ContainerParams},
    {"pp.provtype_per_provider", ProvTypePerProvider},
    {"ctx.acquire_errors", AcquireErrors},
    {"ctx.release_bad_flags_still_releases", ReleaseWithBadFlags},
    {"ctx.verifycontext_has_no_keys", VerifyContextHasNoKeys},
    {"ctx.genkey_slot_selection", GenKeySlotSelection},
    {"ctx.machine_keyset", MachineKeyset},
    {"ctx.gen_random", GenRandom},
    {"size.summary", SizeSummary},
};

class VectorsContext : public VectorTest {};

TEST_P(VectorsContext, Procedure) {
  RunProcedure(kProcedures);
}

INSTANTIATE_TEST_SUITE_P(Windows, VectorsContext,
                         ::testing::ValuesIn(WindowsVectors().Params(kContextCategories)),
                         VectorTestName);

}  // namespace
}  // namespace quiv::test
