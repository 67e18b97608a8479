// Recorded Windows values for RSA key blobs, SIMPLEBLOB unwrapping and signature verification
// (categories private_key_blob, simpleblob, public_key_blob, signature of windows-csp.json),
// replayed through the C functions exactly as each vector's procedure says.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "platform/wincrypt.h"
#include "support/CapiCalls.h"
#include "support/VectorSuites.h"
#include "support/VectorTest.h"

namespace quiv::test {
namespace {

DWORD Size(const Bytes& bytes) {
  return static_cast<DWORD>(bytes.size());
}

DWORD BlobDword(const Bytes& blob, size_t offset) {
  DWORD value = 0;
  if (blob.size() >= offset + 4) std::memcpy(&value, blob.data() + offset, 4);  // little-endian
  return value;
}

// The file writes a trailing NUL as the two characters backslash and zero.
Bytes TextBytes(std::string text) {
  if (text.ends_with("\\0")) text.replace(text.size() - 2, 2, std::string(1, '\0'));
  return Bytes(text.begin(), text.end());
}

// rsa.keyx1024.import: the private blob lands in the slot its aiKeyAlg names.
void ImportIntoContainer(VectorCase& v, const VectorProvider& p) {
  const std::string container = v.file().ContainerName();
  const ProvHandle prov = p.NewContainer(container.c_str());
  ASSERT_NE(prov.get(), 0u);
  const Bytes blob = v.Input("blob").Hex();
  ASSERT_EQ(v.Expected("import").Outcome(), VectorOutcome::Succeeds);
  const KeyHandle key = ImportKey(prov.get(), blob, 0, v.Input("import_flags").Dword());
  ASSERT_NE(key.get(), 0u);

  const std::string slot = v.Expected("container_slot").Text();
  const DWORD keySpec = v.file().Constant("other_flags", slot);
  const DWORD otherSpec = keySpec == AT_KEYEXCHANGE ? AT_SIGNATURE : AT_KEYEXCHANGE;
  KeyHandle user;
  QUIV_EXPECT_SUCCEEDS(CryptGetUserKey(prov.get(), keySpec, user.put())) << " slot " << slot;
  EXPECT_EQ(KeyDword(user.get(), KP_ALGID), BlobDword(blob, 4)) << "the blob's aiKeyAlg";
  KeyHandle other;
  EXPECT_TRUE(FailedWithAnyCode(CryptGetUserKey(prov.get(), otherSpec, other.put())))
      << "the other slot of a new container must stay empty";
}

// rsa.keyx1024.simpleblob_import_and_decrypt
void SimpleBlobDecrypt(VectorCase& v, const VectorProvider& p) {
  const ProvHandle prov = p.Verify();
  const KeyHandle exchange = ImportKey(prov.get(), v.Input("exchange_key").Hex(), 0, 0);
  ASSERT_NE(exchange.get(), 0u);
  const Bytes blob = v.Input("simpleblob").Hex();
  const DWORD importLength = v.Input("import_length").Dword();
  ASSERT_LE(importLength, blob.size());
  KeyHandle session;
  QUIV_ASSERT_SUCCEEDS(
      CryptImportKey(prov.get(), blob.data(), importLength, exchange.get(), 0, session.put()));
  EXPECT_EQ(KeyDword(session.get(), KP_PERMISSIONS), v.Expected("KP_PERMISSIONS").Dword());

  Bytes buffer = v.Input("ciphertext").Hex();
  DWORD length = Size(buffer);
  QUIV_ASSERT_SUCCEEDS(CryptDecrypt(session.get(), 0, TRUE, 0, buffer.data(), &length));
  EXPECT_EQ(length, v.Expected("decrypted_length").Dword());
  buffer.resize(std::min<size_t>(length, buffer.size()));
  const Bytes plaintext = v.Expected("plaintext").Hex();
  EXPECT_EQ(Hex(buffer), Hex(plaintext));
  EXPECT_EQ(Hex(TextBytes(v.Expected("plaintext_text").Text())), Hex(plaintext))
      << "plaintext_text and plaintext disagree";
}

// rsa.sign1024_highbit.private_roundtrip: export reproduces the imported blob byte for byte.
void PrivateRoundTrip(VectorCase& v, const VectorProvider& p) {
  const std::string container = v.file().ContainerName();
  const ProvHandle prov = p.NewContainer(container.c_str());
  ASSERT_NE(prov.get(), 0u);
  const KeyHandle key =
      ImportKey(prov.get(), v.Input("blob").Hex(), 0, v.Input("import_flags").Dword());
  ASSERT_NE(key.get(), 0u);
  DWORD size = 0;
  QUIV_EXPECT_SUCCEEDS(CryptExportKey(key.get(), 0, PRIVATEKEYBLOB, 0, nullptr, &size));
  EXPECT_EQ(size, v.Expected("export_length").Dword());
  EXPECT_EQ(Hex(ExportKey(key.get(), 0, PRIVATEKEYBLOB)), Hex(v.Expected("exported").Hex()));
}

// rsa.public512_0x11.import_export: a public key whose modulus is no real modulus.
void PublicRoundTrip(VectorCase& v, const VectorProvider& p) {
  const ProvHandle prov = p.Verify();
  const KeyHandle key = ImportKey(prov.get(), v.Input("blob").Hex(), 0, 0);
  ASSERT_NE(key.get(), 0u);
  EXPECT_EQ(KeyDword(key.get(), KP_ALGID), v.Expected("KP_ALGID").Dword());
  EXPECT_EQ(KeyDword(key.get(), KP_PERMISSIONS), v.Expected("KP_PERMISSIONS").Dword());
  Bytes buffer(1024);  // "a large buffer"
  DWORD length = Size(buffer);
  QUIV_ASSERT_SUCCEEDS(CryptExportKey(key.get(), 0, PUBLICKEYBLOB, 0, buffer.data(), &length));
  EXPECT_EQ(length, v.Expected("export_length").Dword());
  buffer.resize(std::min<size_t>(length, buffer.size()));
  EXPECT_EQ(Hex(buffer), Hex(v.Expected("exported").Hex()));
}

// The digest of a hash, read from a duplicate so that the hash itself stays unfinished.
Bytes DigestOf(HCRYPTHASH hash) {
  HashHandle duplicate;
  if (!CryptDuplicateHash(hash, nullptr, 0, duplicate.put())) {
    ADD_FAILURE() << "CryptDuplicateHash failed: " << ErrorText(GetLastError());
    return {};
  }
  return HashBytes(duplicate.get(), HP_HASHVAL, 64);
}

// sig.verify.md5.with_oid
void VerifyWithOid(VectorCase& v, const VectorProvider& p) {
  const ProvHandle prov = p.Verify();
  const KeyHandle key = ImportKey(prov.get(), v.Input("public_key").Hex(), 0, 0);
  ASSERT_NE(key.get(), 0u);
  const HashHandle hash = HashOf(prov.get(), v.Input("hash_alg").Alg(), v.Input("data").Hex());
  ASSERT_NE(hash.get(), 0u);
  EXPECT_EQ(Hex(DigestOf(hash.get())), Hex(v.Expected("digest (derived)").Hex()));
  const Bytes signature = v.Input("signature").Hex();
  const BOOL ok = CryptVerifySignatureA(hash.get(), signature.data(), Size(signature), key.get(),
                                        nullptr, v.Input("flags").Dword());
  const DWORD error = ok ? 0 : GetLastError();
  EXPECT_EQ(ok != FALSE, v.Expected("verify").Bool()) << "GetLastError " << ErrorText(error);
}

// sig.verify.md5.without_oid: the same hash, verified with each flag value in turn.
void VerifyWithoutOid(VectorCase& v, const VectorProvider& p) {
  const ProvHandle prov = p.Verify();
  const KeyHandle key = ImportKey(prov.get(), v.Input("public_key").Hex(), 0, 0);
  ASSERT_NE(key.get(), 0u);
  const HashHandle hash = HashOf(prov.get(), v.Input("hash_alg").Alg(), v.Input("data").Hex());
  ASSERT_NE(hash.get(), 0u);
  const Bytes signature = v.Input("signature").Hex();
  for (const uint32_t flags : v.Input("flags_tried").DwordList()) {
    const char* keyName = flags == 0                 ? "verify_flags_0"
                          : flags == CRYPT_NOHASHOID ? "verify_flags_nohashoid"
                                                     : nullptr;
    ASSERT_NE(keyName, nullptr) << "no expected result recorded for flags " << flags;
    const BOOL ok = CryptVerifySignatureA(hash.get(), signature.data(), Size(signature), key.get(),
                                          nullptr, flags);
    const DWORD error = ok ? 0 : GetLastError();
    EXPECT_EQ(ok != FALSE, v.Expected(keyName).Bool())
        << "flags " << flags << ", GetLastError " << ErrorText(error);
  }
}

// sig.verify.bad_inputs. The file does not carry the MD2 signature whose first half the
// procedure passes; the length is rejected before the content is looked at, so any bytes of
// that length exercise the same check.
void VerifyBadInputs(VectorCase& v, const VectorProvider& p) {
  const ProvHandle prov = p.Verify();
  const Bytes publicBlob = v.file().Shared("rsa1024_sign_public");
  const KeyHandle key = ImportKey(prov.get(), publicBlob, 0, 0);
  ASSERT_NE(key.get(), 0u);
  const HashHandle hash = HashOf(prov.get(), v.Input("hash_alg").Alg(), v.Input("data").Hex());
  ASSERT_NE(hash.get(), 0u);
  const DWORD modulusBytes = BlobDword(publicBlob, 12) / 8;
  QUIV_EXPECT_FAILS_WITH(
      CryptVerifySignatureA(hash.get(), nullptr, modulusBytes, key.get(), nullptr, 0),
      v.Expected("null_signature_error").Error());
  const Bytes standIn(modulusBytes, 0x5a);
  QUIV_EXPECT_FAILS_WITH(
      CryptVerifySignatureA(hash.get(), standIn.data(), v.Input("short_length").Dword(), key.get(),
                            nullptr, 0),
      v.Expected("short_signature_error").Error());
}

constexpr NamedProcedure kProcedures[] = {
    {"rsa.keyx1024.import", ImportIntoContainer},
    {"rsa.keyx1024.simpleblob_import_and_decrypt", SimpleBlobDecrypt},
    {"rsa.sign1024_highbit.private_roundtrip", PrivateRoundTrip},
    {"rsa.public512_0x11.import_export", PublicRoundTrip},
    {"sig.verify.md5.with_oid", VerifyWithOid},
    {"sig.verify.md5.without_oid", VerifyWithoutOid},
    {"sig.verify.bad_inputs", VerifyBadInputs},
};

class VectorsRsa : public VectorTest {};

TEST_P(VectorsRsa, Procedure) {
  RunProcedure(kProcedures);
}

INSTANTIATE_TEST_SUITE_P(Windows, VectorsRsa,
                         ::testing::ValuesIn(WindowsVectors().Params(kRsaCategories)),
                         VectorTestName);

}  // namespace
}  // namespace quiv::test
