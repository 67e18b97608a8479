// Recorded Windows key-derivation table (category key_derivation_table of windows-csp.json,
// vectors kdf.NN.*): hash 512 patterned bytes, derive a key of the provider's default length,
// encrypt four bytes; or, for algorithms the provider does not offer, the derivation error.
#include <gtest/gtest.h>

#include <algorithm>

#include "platform/wincrypt.h"
#include "support/CapiCalls.h"
#include "support/VectorSuites.h"
#include "support/VectorTest.h"

namespace quiv::test {
namespace {

void KdfRow(VectorCase& v, const VectorProvider& p) {
  const DWORD row = v.Input("row").Dword();
  const Bytes data = v.Input("data_hex").Hex();
  // The data is described as "byte j = (j + row) mod 256"; hold the file to it.
  size_t mismatches = 0;
  for (size_t j = 0; j < data.size(); ++j) mismatches += data[j] != ((j + row) & 0xff);
  EXPECT_EQ(data.size(), 512u);
  EXPECT_EQ(mismatches, 0u) << "data_hex does not follow its row pattern";
  const Bytes plaintext = v.Input("plaintext").Hex();
  ASSERT_EQ(plaintext.size(), 4u);
  EXPECT_TRUE(std::equal(plaintext.begin(), plaintext.end(), data.begin()))
      << "plaintext is not the first 4 data bytes";

  const ProvHandle prov = p.Verify();
  const HashHandle hash = HashOf(prov.get(), v.Input("hash_alg").Alg(), data);
  ASSERT_NE(hash.get(), 0u);
  const Bytes value = HashBytes(hash.get(), HP_HASHVAL, 128);  // a 128-byte buffer
  EXPECT_EQ(value.size(), v.Expected("hash_length").Dword());
  EXPECT_EQ(Hex(value), Hex(v.Expected("HP_HASHVAL").Hex()));

  const ALG_ID keyAlg = v.Input("key_alg").Alg();
  const DWORD flags = v.Input("derive_flags").Dword();
  KeyHandle key;
  if (v.HasExpected("derive_error")) {
    QUIV_EXPECT_FAILS_WITH(CryptDeriveKey(prov.get(), keyAlg, hash.get(), flags, key.put()),
                           v.Expected("derive_error").Error());
    return;
  }
  QUIV_ASSERT_SUCCEEDS(CryptDeriveKey(prov.get(), keyAlg, hash.get(), flags, key.put()));
  EXPECT_EQ(KeyDword(key.get(), KP_MODE), v.Expected("KP_MODE").Dword());
  constexpr DWORD kBuffer = 512;
  Bytes buffer(plaintext);
  buffer.resize(kBuffer);
  DWORD length = static_cast<DWORD>(plaintext.size());
  QUIV_ASSERT_SUCCEEDS(CryptEncrypt(key.get(), 0, TRUE, 0, buffer.data(), &length, kBuffer));
  EXPECT_EQ(length, v.Expected("encrypted_length").Dword());
  buffer.resize(std::min<size_t>(length, kBuffer));
  EXPECT_EQ(Hex(buffer), Hex(v.Expected("ciphertext").Hex()));
}

class VectorsKdf : public VectorTest {};

// Every row of the table follows the same procedure.
TEST_P(VectorsKdf, Procedure) {
  KdfRow(Vector(), Provider());
}

INSTANTIATE_TEST_SUITE_P(Windows, VectorsKdf,
                         ::testing::ValuesIn(WindowsVectors().Params(kKdfCategories)),
                         VectorTestName);

}  // namespace
}  // namespace quiv::test
