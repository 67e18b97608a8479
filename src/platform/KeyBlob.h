// KeyBlob: CryptExportKey and CryptImportKey below the handle layer. It checks the 8-byte
// BLOBHEADER common to every blob, dispatches on the blob type, and implements the blob types
// that involve a session key: SIMPLEBLOB (a session key wrapped by RSA PKCS#1 v1.5 type 2, or
// OAEP, under a key-exchange key, little-endian) and PLAINTEXTKEYBLOB (key bytes in clear).
// PUBLICKEYBLOB and PRIVATEKEYBLOB are delegated to RsaKey.
//
// Keys are passed as a pair of pointers, exactly one of which is set (the handle layer unpacks
// its key variant into them), so this class does not depend on the handle table's types.
// Ownership: nothing passed in is kept; Import returns new keys owned by the caller.
//
// Every failure throws CspError; codes per member below. Codes marked (unconfirmed) follow the
// behaviour reference where no recorded Windows observation pins them.
#ifndef QUIV_PLATFORM_KEYBLOB_H
#define QUIV_PLATFORM_KEYBLOB_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "platform/QuivExport.h"
#include "platform/SecureBytes.h"
#include "platform/wincrypt.h"

namespace quiv::platform {

class ProviderInfo;
class RsaKey;
class SymmetricKey;

// A key passed to or returned by KeyBlob: either a session key or an RSA key.
struct KeyRef {
  SymmetricKey* symmetric = nullptr;
  const RsaKey* rsa = nullptr;
  bool empty() const { return symmetric == nullptr && rsa == nullptr; }
};

// What CryptImportKey made: exactly one member is set. A PRIVATEKEYBLOB import gives a key
// pair whose algid() names the container slot it belongs to.
struct ImportedKey {
  std::unique_ptr<SymmetricKey> symmetric;
  std::unique_ptr<RsaKey> rsa;
};

class QUIV_API KeyBlob final {
 public:
  static constexpr size_t kHeaderSize = 8;

  // The BLOBHEADER (PUBLICKEYSTRUC) fields.
  struct Header {
    uint8_t type = 0;
    uint8_t version = 0;
    uint16_t reserved = 0;
    ALG_ID algid = 0;
  };

  // Reads and checks the header: at least 8 bytes, bVersion 2, reserved 0.
  // throws NTE_BAD_DATA (unconfirmed code).
  static Header ReadHeader(std::span<const uint8_t> blob);
  // Appends a header with bVersion 2 and reserved 0.
  static void WriteHeader(SecureBytes& out, uint8_t type, ALG_ID algid);

  // CryptExportKey(hKey, hExpKey, dwBlobType, dwFlags, pbData, pdwDataLen) for resolved keys.
  // `expKey` is empty when hExpKey was 0. Size rules of SizedOutput (a NULL pbData gives the
  // size without doing the work).
  //   PUBLICKEYBLOB    RSA key, no exchange key (else NTE_BAD_KEY)
  //   PRIVATEKEYBLOB   RSA pair with CRYPT_EXPORT (NTE_BAD_KEY_STATE otherwise), optionally
  //                    wrapped under a session key
  //   SIMPLEBLOB       exportable session key under a key-exchange RSA key (CRYPT_OAEP: OAEP)
  //   PLAINTEXTKEYBLOB exportable session key, no exchange key
  // throws NTE_BAD_TYPE (unknown blob type), NTE_BAD_KEY (blob type does not fit the key, or an
  // exchange key where none belongs), NTE_BAD_KEY_STATE (not exportable), NTE_BAD_PUBLIC_KEY
  // (SIMPLEBLOB without a usable RSA exchange key; unconfirmed code), ERROR_INVALID_PARAMETER
  // (pdwDataLen NULL), ERROR_MORE_DATA.
  static void Export(KeyRef key, KeyRef expKey, DWORD blobType, DWORD flags, BYTE* pbData,
                     DWORD* pdwDataLen);
  // The same, returning the bytes (the container store and tests use it).
  static SecureBytes Export(KeyRef key, KeyRef expKey, DWORD blobType, DWORD flags);

  // CryptImportKey(hProv, pbData, dwDataLen, hPubKey, dwFlags) for a resolved hPubKey (empty
  // when 0). SIMPLEBLOB needs the key-exchange pair that unwraps it; PRIVATEKEYBLOB may take a
  // session key that unwraps it; PUBLICKEYBLOB and PLAINTEXTKEYBLOB take none (ignored).
  // throws NTE_BAD_DATA (short blob, bad header, bad magic, bad padding, key length out of
  // range), NTE_BAD_TYPE (unknown bType), NTE_BAD_ALGID (algid not offered),
  // NTE_BAD_PUBLIC_KEY (SIMPLEBLOB without a key-exchange private key; unconfirmed code).
  static ImportedKey Import(const ProviderInfo& provider, std::span<const uint8_t> blob,
                            KeyRef pubKey, DWORD flags);

 private:
  static SecureBytes ExportSimple(const SymmetricKey& key, KeyRef expKey, DWORD flags);
  static SecureBytes ExportPlaintext(const SymmetricKey& key, KeyRef expKey);
  static ImportedKey ImportSimple(const ProviderInfo& provider, const Header& header,
                                  std::span<const uint8_t> blob, KeyRef pubKey, DWORD flags);
  static ImportedKey ImportPlaintext(const ProviderInfo& provider, const Header& header,
                                     std::span<const uint8_t> blob, DWORD flags);
};

}  // namespace quiv::platform

#endif
