// Recorded Windows values for hashes, CALG_MAC and CALG_HMAC (categories hash, hmac, mac of
// windows-csp.json), replayed through the C functions exactly as each vector's procedure says.
#include <gtest/gtest.h>

#include <cstring>

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

// hash.md2.seq2048
void PlainHash(VectorCase& v, const VectorProvider& p) {
  const ProvHandle prov = p.Verify();
  const HashHandle hash = CreateHash(prov.get(), v.Input("algid").Alg());
  const Bytes data = v.Input("data").Hex();
  QUIV_EXPECT_SUCCEEDS(
      CryptHashData(hash.get(), data.data(), Size(data), v.Input("hashdata_flags").Dword()));
  EXPECT_EQ(HashDword(hash.get(), HP_HASHSIZE), v.Expected("HP_HASHSIZE").Dword());
  const Bytes expected = v.Expected("HP_HASHVAL").Hex();
  EXPECT_EQ(Hex(HashBytes(hash.get(), HP_HASHVAL, 16)), Hex(expected));  // a 16-byte buffer
}

// hash.md4.seq2048, hash.md5.seq2048: a call with bad flags must leave the hash untouched.
void HashWithRejectedFlags(VectorCase& v, const VectorProvider& p) {
  const ProvHandle prov = p.Verify();
  const HashHandle hash = CreateHash(prov.get(), v.Input("algid").Alg());
  if (v.HasExpected("HP_HASHSIZE_before_data")) {
    EXPECT_EQ(HashDword(hash.get(), HP_HASHSIZE), v.Expected("HP_HASHSIZE_before_data").Dword());
  }
  const Bytes data = v.Input("data").Hex();
  QUIV_EXPECT_FAILS_WITH(
      CryptHashData(hash.get(), data.data(), Size(data), v.Input("bad_flags").Dword()),
      v.Expected("bad_flags_error").Error());
  QUIV_EXPECT_SUCCEEDS(
      CryptHashData(hash.get(), data.data(), Size(data), v.Input("good_flags").Dword()));
  if (v.HasExpected("HP_HASHSIZE")) {
    EXPECT_EQ(HashDword(hash.get(), HP_HASHSIZE), v.Expected("HP_HASHSIZE").Dword());
  }
  const Bytes expected = v.Expected("HP_HASHVAL").Hex();
  EXPECT_EQ(Hex(HashBytes(hash.get(), HP_HASHVAL, Size(expected))), Hex(expected));
}

// hash.md5.empty: reading the value finishes the hash; it can be read again but not fed.
void ValueOfEmptyHash(VectorCase& v, const VectorProvider& p) {
  const ProvHandle prov = p.Verify();
  const HashHandle hash = CreateHash(prov.get(), v.Input("algid").Alg());
  const Bytes first = v.Expected("HP_HASHVAL_first").Hex();
  EXPECT_EQ(Hex(HashBytes(hash.get(), HP_HASHVAL, Size(first))), Hex(first));
  const Bytes second = v.Expected("HP_HASHVAL_second").Hex();
  EXPECT_EQ(Hex(HashBytes(hash.get(), HP_HASHVAL, Size(second))), Hex(second));
  const Bytes late = v.Input("data_after_read").Hex();
  QUIV_EXPECT_FAILS_WITH(CryptHashData(hash.get(), late.data(), Size(late), 0),
                         v.Expected("hashdata_after_read_error").Error());
  const Bytes third = v.Expected("HP_HASHVAL_third").Hex();
  EXPECT_EQ(Hex(HashBytes(hash.get(), HP_HASHVAL, Size(third))), Hex(third));
}

// hash.sha1.seq2048.duplicate: the duplicate carries the state of the first bytes.
void DuplicateMidway(VectorCase& v, const VectorProvider& p) {
  const ProvHandle prov = p.Verify();
  const HashHandle hash = CreateHash(prov.get(), v.Input("algid").Alg());
  const Bytes data = v.Input("data").Hex();
  const DWORD split = v.Input("split_at").Dword();
  ASSERT_LE(split, Size(data));
  QUIV_ASSERT_SUCCEEDS(CryptHashData(hash.get(), data.data(), split, CRYPT_USERDATA));
  HashHandle duplicate;
  QUIV_ASSERT_SUCCEEDS(CryptDuplicateHash(hash.get(), nullptr, 0, duplicate.put()));
  QUIV_EXPECT_SUCCEEDS(CryptHashData(duplicate.get(), data.data() + split, Size(data) - split, 0));
  EXPECT_EQ(HashDword(duplicate.get(), HP_HASHSIZE), v.Expected("HP_HASHSIZE").Dword());
  const Bytes expected = v.Expected("HP_HASHVAL").Hex();
  EXPECT_EQ(Hex(HashBytes(duplicate.get(), HP_HASHVAL, Size(expected))), Hex(expected));
}

// hash.sha2.unsupported_in_rsa_full
void UnsupportedHashes(VectorCase& v, const VectorProvider& p) {
  const ProvHandle prov = p.Verify();
  const DWORD error = v.Expected("each_error").Error();
  const VectorNode algids = v.Input("algids");
  for (size_t i = 0; i < algids.Size(); ++i) {
    const ALG_ID alg = algids.At(i).Alg();
    HashHandle hash;
    QUIV_EXPECT_FAILS_WITH(CryptCreateHash(prov.get(), alg, 0, 0, hash.put()), error)
        << " algid 0x" << std::hex << alg;
  }
}

// hash.use_after_context_release: the hash outlives its context only as a dead handle.
void HashOfReleasedContext(VectorCase& v, const VectorProvider& p) {
  ProvHandle prov = p.Verify();
  HashHandle hash = CreateHash(prov.get(), CALG_SHA1);
  ASSERT_NE(hash.get(), 0u);
  QUIV_ASSERT_SUCCEEDS(CryptReleaseContext(prov.release(), 0));
  const Bytes data = v.Input("data").Hex();
  QUIV_EXPECT_FAILS_WITH(CryptHashData(hash.get(), data.data(), Size(data), 0),
                         v.Expected("hashdata_error").Error());
  QUIV_EXPECT_FAILS_WITH(CryptDestroyHash(hash.release()), v.Expected("destroyhash_error").Error());
}

// hmac.without_key
void KeyedHashWithoutKey(VectorCase& v, const VectorProvider& p) {
  const ProvHandle prov = p.Verify();
  HashHandle hash;
  QUIV_EXPECT_FAILS_WITH(
      CryptCreateHash(prov.get(), v.Input("algid").Alg(), v.Input("key").Dword(), 0, hash.put()),
      v.Expected("error").Error());
}

// mac.rc2_40.seq256: the MAC works on a private copy of the key taken at CryptCreateHash.
void MacOfStandardRc2Key(VectorCase& v, const VectorProvider& p) {
  const ProvHandle prov = p.Verify();
  const KeyHandle key = StandardKey(v, prov.get(), CALG_RC2);
  ASSERT_NE(key.get(), 0u);
  const Bytes data = v.Input("data").Hex();

  constexpr DWORD kBuffer = 264;  // the procedure's buffer
  Bytes buffer(data);
  buffer.resize(kBuffer);
  DWORD length = Size(data);
  QUIV_EXPECT_SUCCEEDS(CryptEncrypt(key.get(), 0, TRUE, 0, buffer.data(), &length, kBuffer));
  EXPECT_EQ(length, v.Expected("encrypt_256_final_length").Dword());

  const HashHandle mac = CreateHash(prov.get(), CALG_MAC, key.get());
  ASSERT_NE(mac.get(), 0u);
  Bytes block(data.begin(), data.begin() + 8);  // moves the key's own chaining state on
  length = 8;
  QUIV_EXPECT_SUCCEEDS(CryptEncrypt(key.get(), 0, FALSE, 0, block.data(), &length, 8));
  QUIV_EXPECT_SUCCEEDS(CryptHashData(mac.get(), data.data(), Size(data), 0));
  const DWORD size = HashParamSize(mac.get(), HP_HASHVAL);
  EXPECT_EQ(size, v.Expected("HP_HASHVAL_length").Dword());
  EXPECT_EQ(Hex(HashBytes(mac.get(), HP_HASHVAL, size)), Hex(v.Expected("HP_HASHVAL").Hex()));
  QUIV_EXPECT_FAILS_WITH(CryptHashData(mac.get(), data.data(), 1, 0),
                         v.Expected("hashdata_after_value_error").Error());
}

// mac.rc4_key_rejected
void MacWithStreamKey(VectorCase& v, const VectorProvider& p) {
  const ProvHandle prov = p.Verify();
  const KeyHandle key = StandardKey(v, prov.get());
  ASSERT_NE(key.get(), 0u);
  HashHandle mac;
  QUIV_EXPECT_FAILS_WITH(CryptCreateHash(prov.get(), CALG_MAC, key.get(), 0, mac.put()),
                         v.Expected("error").Error());
}

// hmac.sha1.rfc2202.case1..3: PLAINTEXTKEYBLOB with CRYPT_IPSEC_HMAC_KEY, then HMAC-SHA1.
void HmacOfPlaintextKey(VectorCase& v, const VectorProvider& p) {
  const Bytes key = v.Input("key").Hex();
  const Bytes blob = v.Input("plaintextkeyblob").Hex();
  // The blob must be the key it claims to carry: header, DWORD length, the key bytes.
  ASSERT_EQ(blob.size(), 12 + key.size());
  EXPECT_EQ(blob[0], PLAINTEXTKEYBLOB);
  DWORD keyLength = 0;
  std::memcpy(&keyLength, blob.data() + 8, 4);
  EXPECT_EQ(keyLength, key.size());
  EXPECT_EQ(Hex(Bytes(blob.begin() + 12, blob.end())), Hex(key));

  const ProvHandle prov = p.Verify();
  const KeyHandle imported = ImportKey(prov.get(), blob, 0, v.Input("import_flags").Dword());
  ASSERT_NE(imported.get(), 0u);
  const HashHandle hmac = CreateHash(prov.get(), CALG_HMAC, imported.get());
  ASSERT_NE(hmac.get(), 0u);
  const HMAC_INFO info = HmacInfo(CALG_SHA1);
  QUIV_EXPECT_SUCCEEDS(
      CryptSetHashParam(hmac.get(), HP_HMAC_INFO, reinterpret_cast<const BYTE*>(&info), 0));
  const Bytes data = v.Input("data").Hex();
  QUIV_EXPECT_SUCCEEDS(CryptHashData(hmac.get(), data.data(), Size(data), 0));
  EXPECT_EQ(Hex(HashBytes(hmac.get(), HP_HASHVAL, 20)), Hex(v.Expected("HP_HASHVAL").Hex()));
}

constexpr NamedProcedure kProcedures[] = {
    {"hash.md2.seq2048", PlainHash},
    {"hash.md4.seq2048", HashWithRejectedFlags},
    {"hash.md5.seq2048", HashWithRejectedFlags},
    {"hash.md5.empty", ValueOfEmptyHash},
    {"hash.sha1.seq2048.duplicate", DuplicateMidway},
    {"hash.sha2.unsupported_in_rsa_full", UnsupportedHashes},
    {"hash.use_after_context_release", HashOfReleasedContext},
    {"hmac.without_key", KeyedHashWithoutKey},
    {"mac.rc2_40.seq256", MacOfStandardRc2Key},
    {"mac.rc4_key_rejected", MacWithStreamKey},
    {"hmac.sha1.rfc2202.case1", HmacOfPlaintextKey},
    {"hmac.sha1.rfc2202.case2", HmacOfPlaintextKey},
    {"hmac.sha1.rfc2202.case3", HmacOfPlaintextKey},
};

class VectorsHash : public VectorTest {};

TEST_P(VectorsHash, Procedure) {
  RunProcedure(kProcedures);
}

INSTANTIATE_TEST_SUITE_P(Windows, VectorsHash,
                         ::testing::ValuesIn(WindowsVectors().Params(kHashCategories)),
                         VectorTestName);

// Every standard-key vector derives from MD2(seq2000); the file records that value (recomputed
// independently by its authors), so check it on its own: a wrong MD2 would otherwise show up only
// as unexplained ciphertext mismatches.
TEST(VectorsSharedInputs, Md2OfSeq2000IsTheRecordedValue) {
  const TempKeyStore store;
  const VectorProvider provider("Strong");
  const ProvHandle prov = provider.Verify();
  const HashHandle hash = HashOf(prov.get(), CALG_MD2, WindowsVectors().Shared("seq2000"));
  EXPECT_EQ(Hex(HashBytes(hash.get(), HP_HASHVAL, 16)),
            Hex(WindowsVectors().Shared("md2_of_seq2000")));
}

}  // namespace
}  // namespace quiv::test
