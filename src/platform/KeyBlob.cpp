#include "platform/KeyBlob.h"

#include "platform/CspError.h"
#include "platform/LittleEndian.h"
#include "platform/ProviderInfo.h"
#include "platform/RsaKey.h"
#include "platform/SizedOutput.h"
#include "platform/SymmetricKey.h"

namespace quiv::platform {
namespace {

// SIMPLEBLOB: header, the wrapping key's algid, then the RSA block (k bytes).
constexpr size_t kSimpleBlobPrefix = KeyBlob::kHeaderSize + 4;
// PLAINTEXTKEYBLOB: header, a DWORD key length, then the key bytes.
constexpr size_t kPlaintextPrefix = KeyBlob::kHeaderSize + 4;

[[noreturn]] void Fail(long code) {
  throw CspError(static_cast<uint32_t>(code));
}

bool IsSessionKeyAlgid(ALG_ID algid) {
  return GET_ALG_CLASS(algid) == ALG_CLASS_DATA_ENCRYPT;
}

// The RSA key that wraps a SIMPLEBLOB must be a key-exchange key (unconfirmed code).
const RsaKey& ExchangeKey(KeyRef key) {
  if (key.rsa == nullptr || key.rsa->algid() != CALG_RSA_KEYX) Fail(NTE_BAD_PUBLIC_KEY);
  return *key.rsa;
}

const SymmetricKey& ExportableSessionKey(KeyRef key) {
  if (key.symmetric == nullptr) Fail(NTE_BAD_KEY);
  if ((key.symmetric->permissions() & CRYPT_EXPORT) == 0) Fail(NTE_BAD_KEY_STATE);
  return *key.symmetric;
}

// Checks what Export checks and returns the blob length, without doing any cryptography.
size_t ExportSize(KeyRef key, KeyRef expKey, DWORD blobType, DWORD flags) {
  switch (blobType) {
    case PUBLICKEYBLOB:
      if (key.rsa == nullptr || !expKey.empty()) Fail(NTE_BAD_KEY);
      return key.rsa->ExportPublicBlob().size();
    case PRIVATEKEYBLOB:
      if (key.rsa == nullptr || expKey.rsa != nullptr) Fail(NTE_BAD_KEY);
      return key.rsa->ExportPrivateBlobSize(expKey.symmetric);
    case SIMPLEBLOB: {
      ExportableSessionKey(key);
      const RsaKey& wrapper = ExchangeKey(expKey);
      (void)flags;
      return kSimpleBlobPrefix + wrapper.ModulusBytes();
    }
    case PLAINTEXTKEYBLOB: {
      const SymmetricKey& session = ExportableSessionKey(key);
      if (!expKey.empty()) Fail(NTE_BAD_KEY);
      return kPlaintextPrefix + session.KeyBytes().size();
    }
    default:
      Fail(NTE_BAD_TYPE);
  }
}

}  // namespace

KeyBlob::Header KeyBlob::ReadHeader(std::span<const uint8_t> blob) {
  if (blob.size() < kHeaderSize) Fail(NTE_BAD_DATA);
  Header header;
  header.type = blob[0];
  header.version = blob[1];
  header.reserved = static_cast<uint16_t>(blob[2] | (blob[3] << 8));
  header.algid = LittleEndian::ReadDword(blob, 4);
  if (header.version != CUR_BLOB_VERSION || header.reserved != 0) Fail(NTE_BAD_DATA);
  return header;
}

void KeyBlob::WriteHeader(SecureBytes& out, uint8_t type, ALG_ID algid) {
  out.push_back(type);
  out.push_back(CUR_BLOB_VERSION);
  out.push_back(0);
  out.push_back(0);
  LittleEndian::AppendDword(out, algid);
}

void KeyBlob::Export(KeyRef key, KeyRef expKey, DWORD blobType, DWORD flags, BYTE* pbData,
                     DWORD* pdwDataLen) {
  if (pdwDataLen == nullptr) Fail(ERROR_INVALID_PARAMETER);
  const auto needed = static_cast<DWORD>(ExportSize(key, expKey, blobType, flags));
  if (pbData == nullptr) {
    *pdwDataLen = needed;
    return;
  }
  if (*pdwDataLen < needed) {
    *pdwDataLen = needed;
    Fail(ERROR_MORE_DATA);
  }
  const SecureBytes blob = Export(key, expKey, blobType, flags);
  SizedOutput::Write(blob, pbData, pdwDataLen);
}

SecureBytes KeyBlob::Export(KeyRef key, KeyRef expKey, DWORD blobType, DWORD flags) {
  ExportSize(key, expKey, blobType, flags);  // every check, before any work
  switch (blobType) {
    case PUBLICKEYBLOB: {
      const std::vector<uint8_t> blob = key.rsa->ExportPublicBlob();
      return SecureBytes(blob.begin(), blob.end());
    }
    case PRIVATEKEYBLOB:
      return key.rsa->ExportPrivateBlob(expKey.symmetric);
    case SIMPLEBLOB:
      return ExportSimple(*key.symmetric, expKey, flags);
    default:
      return ExportPlaintext(*key.symmetric, expKey);
  }
}

SecureBytes KeyBlob::ExportSimple(const SymmetricKey& key, KeyRef expKey, DWORD flags) {
  const RsaKey& wrapper = ExchangeKey(expKey);
  // Only the key bytes travel (KP_KEYLEN / 8 of them, salt excluded), in their stored order,
  // as the message of a PKCS#1 v1.5 type 2 block (RFC 8017 section 7.2), or OAEP.
  const std::vector<uint8_t> wrapped =
      wrapper.EncryptBlock(key.KeyBytes(), (flags & CRYPT_OAEP) != 0);
  SecureBytes out;
  WriteHeader(out, SIMPLEBLOB, key.algid());
  LittleEndian::AppendDword(out, wrapper.algid());
  out.insert(out.end(), wrapped.begin(), wrapped.end());
  return out;
}

SecureBytes KeyBlob::ExportPlaintext(const SymmetricKey& key, KeyRef /*expKey*/) {
  const std::span<const uint8_t> bytes = key.KeyBytes();
  SecureBytes out;
  WriteHeader(out, PLAINTEXTKEYBLOB, key.algid());
  LittleEndian::AppendDword(out, static_cast<uint32_t>(bytes.size()));
  out.insert(out.end(), bytes.begin(), bytes.end());
  return out;
}

ImportedKey KeyBlob::Import(const ProviderInfo& provider, std::span<const uint8_t> blob,
                            KeyRef pubKey, DWORD flags) {
  const Header header = ReadHeader(blob);
  ImportedKey result;
  switch (header.type) {
    case PUBLICKEYBLOB:
      result.rsa = RsaKey::ImportPublicBlob(provider, blob, flags);
      return result;
    case PRIVATEKEYBLOB:
      // Only a session key can unwrap a private blob (unconfirmed code for an RSA one).
      if (pubKey.rsa != nullptr) Fail(NTE_BAD_KEY);
      result.rsa = RsaKey::ImportPrivateBlob(provider, blob, flags, pubKey.symmetric);
      return result;
    case SIMPLEBLOB:
      return ImportSimple(provider, header, blob, pubKey, flags);
    case PLAINTEXTKEYBLOB:
      return ImportPlaintext(provider, header, blob, flags);
    default:
      Fail(NTE_BAD_TYPE);
  }
}

ImportedKey KeyBlob::ImportSimple(const ProviderInfo& provider, const Header& header,
                                  std::span<const uint8_t> blob, KeyRef pubKey, DWORD flags) {
  if (!IsSessionKeyAlgid(header.algid) || provider.Find(header.algid) == nullptr) {
    Fail(NTE_BAD_ALGID);
  }
  const RsaKey& exchange = ExchangeKey(pubKey);
  if (!exchange.HasPrivate()) Fail(NTE_BAD_PUBLIC_KEY);
  const size_t k = exchange.ModulusBytes();
  // Bytes after 12 + k are ignored (Windows imports a 140-byte blob from a 148-byte buffer).
  if (blob.size() < kSimpleBlobPrefix + k) Fail(NTE_BAD_DATA);
  const SecureBytes keyBytes =
      exchange.DecryptBlock(blob.subspan(kSimpleBlobPrefix, k), (flags & CRYPT_OAEP) != 0);
  ImportedKey result;
  result.symmetric = SymmetricKey::FromKeyBytes(provider, header.algid, keyBytes, flags,
                                                SymmetricKey::Origin::SimpleBlob);
  return result;
}

ImportedKey KeyBlob::ImportPlaintext(const ProviderInfo& provider, const Header& header,
                                     std::span<const uint8_t> blob, DWORD flags) {
  if (!IsSessionKeyAlgid(header.algid) || provider.Find(header.algid) == nullptr) {
    Fail(NTE_BAD_ALGID);
  }
  if (blob.size() < kPlaintextPrefix) Fail(NTE_BAD_DATA);
  const DWORD keyLength = LittleEndian::ReadDword(blob, KeyBlob::kHeaderSize);
  if (blob.size() - kPlaintextPrefix < keyLength) Fail(NTE_BAD_DATA);
  ImportedKey result;
  result.symmetric =
      SymmetricKey::FromKeyBytes(provider, header.algid, blob.subspan(kPlaintextPrefix, keyLength),
                                 flags, SymmetricKey::Origin::PlaintextBlob);
  return result;
}

}  // namespace quiv::platform
