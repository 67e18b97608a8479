// AesProvider: what the tests of the AES provider (PROV_RSA_AES) share: a verify context on it,
// a PLAINTEXTKEYBLOB for given key bytes, and in-place CryptEncrypt / CryptDecrypt calls that
// return the output bytes. Every helper adds a GoogleTest failure (naming the call and the
// error) and returns an empty handle / vector when a call fails.
#ifndef QUIV_TESTS_SUPPORT_AESPROVIDER_H
#define QUIV_TESTS_SUPPORT_AESPROVIDER_H

#include <span>

#include "platform/wincrypt.h"
#include "support/CapiCalls.h"
#include "support/CapiHandle.h"

namespace quiv::test {

// CryptAcquireContextA(MS_ENH_RSA_AES_PROV_A, PROV_RSA_AES, CRYPT_VERIFYCONTEXT).
ProvHandle AesVerifyContext();
// header (PLAINTEXTKEYBLOB, version 2, `algid`), DWORD key length, key bytes.
Bytes PlaintextKeyBlob(ALG_ID algid, std::span<const uint8_t> key);
// The key bytes imported through a PLAINTEXTKEYBLOB with `flags`.
KeyHandle PlainKey(HCRYPTPROV prov, ALG_ID algid, std::span<const uint8_t> key, DWORD flags = 0);
// CryptEncrypt of `data` (buffer sized for one more block of padding); the output bytes.
Bytes EncryptBytes(HCRYPTKEY key, std::span<const uint8_t> data, bool final);
// CryptDecrypt of `data`; the output bytes.
Bytes DecryptBytes(HCRYPTKEY key, std::span<const uint8_t> data, bool final);

}  // namespace quiv::test

#endif
