// CapiSession: the benchmarks' side of the provider, reached only through the CryptoAPI C
// functions of platform/wincrypt.h. It holds one ephemeral (CRYPT_VERIFYCONTEXT) session of the
// Enhanced provider (or of another named provider) and owns every key it makes: they are destroyed,
// then the context released, when the session ends. Failures throw std::runtime_error naming the
// call and its error code.
#ifndef QUIV_BENCH_CAPISESSION_H
#define QUIV_BENCH_CAPISESSION_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "platform/wincrypt.h"

namespace quiv::bench {

class CapiSession final {
 public:
  CapiSession();
  // A session of the provider `name` of type `type` (e.g. the AES provider, PROV_RSA_AES).
  CapiSession(const char* name, DWORD type);
  ~CapiSession();
  CapiSession(const CapiSession&) = delete;
  CapiSession& operator=(const CapiSession&) = delete;

  HCRYPTPROV Provider() const { return m_prov; }

  // A session key imported from a PLAINTEXTKEYBLOB holding exactly `key`, so that the baseline
  // can use the same bytes. For RC2 the effective length is set to the key length in bits.
  HCRYPTKEY ImportPlaintextKey(ALG_ID algid, std::span<const uint8_t> key);

  // A new exportable RSA signature key pair of `bits` bits (the session's AT_SIGNATURE key).
  HCRYPTKEY GenerateSignatureKey(uint32_t bits);

  // The key's PRIVATEKEYBLOB, for handing the same key to the baseline.
  std::vector<uint8_t> ExportPrivateKeyBlob(HCRYPTKEY key) const;

  // Throws when `ok` is false, with the call's name and GetLastError().
  static void Check(BOOL ok, const char* call);

 private:
  HCRYPTPROV m_prov = 0;
  std::vector<HCRYPTKEY> m_keys;
};

}  // namespace quiv::bench

#endif
